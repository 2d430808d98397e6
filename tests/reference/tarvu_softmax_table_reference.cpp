#include "tests/reference/tarvu_softmax_table_reference.h"

#include <cmath>
#include <cstdio>

#include "tests/reference/processor_rules.h"

namespace reference {
namespace {

constexpr int32_t kLastEntry = 671;

/// Entry `index` of the table: exp of a value at or below 0 with 6 fraction bits, in 14 fraction bits.
int16_t entry(int32_t index) {
  return static_cast<int16_t>(std::lround(16384.0 * std::exp((index - kLastEntry) / 64.0)));
}

int16_t shift_left_in_16_bits(int16_t x, int32_t count) { return static_cast<int16_t>(shift_left_32(x, count)); }

int16_t shift_right_in_16_bits(int16_t x, int32_t count) {
  return static_cast<int16_t>(shift_right_32(x, count > 31 ? 31 : count));
}

}  // namespace

_QX_RESULT vendor_submax_s16(const int16_t *in, int16_t *out, uint32_t count, uint8_t frac_bits) {
  const int32_t n = 6 - static_cast<int32_t>(frac_bits);
  const uint32_t tail = count & 7;
  const uint32_t singles = tail >= 6 ? tail - 4 : tail;

  int16_t m = -32768;
  for (uint32_t i = 0; i < count; ++i) {
    const int16_t x = load<int16_t>(in + i);
    int16_t shifted;
    if (n <= 0) {
      shifted = shift_right_in_16_bits(x, -n);
    } else if (i < count - singles) {
      shifted = shift_left_in_16_bits(x, n);
    } else {
      // Kept: single elements are shifted the other way, by -n modulo 32.
      shifted = shift_right_in_16_bits(x, 32 - n);
    }
    store<int16_t>(out + i, shifted);
    if (shifted > m) m = shifted;
  }
  for (uint32_t i = 0; i < count; ++i) {
    store<int16_t>(out + i, static_cast<int16_t>(subtract_32(load<int16_t>(out + i), m)));
  }
  for (uint32_t i = 0; i < count; ++i) {
    const int32_t v = load<int16_t>(out + i);
    if (v > 0) {
      std::printf("\033[1;31mERR:%s() idx %d over limit %d\r\n\033[0m", "vendor_submax_s16", v + 8191, 8191);
      return QX_ERR_OVER_LIMIT;
    }
    store<int16_t>(out + i, v + kLastEntry < 0 ? int16_t{0} : entry(v + kLastEntry));
  }
  return QX_OK;
}

int32_t vendor_ais_checkparm(const _NN_SOFTMAX_PARM *parm) {
  if (parm->batch == 0) {
    std::printf("\033[1;31mERR:%s() batch num should be positive, but input is %d\r\n\033[0m", "vendor_ais_checkparm",
                static_cast<int>(parm->batch));
    return 2;
  }
  if (parm->channel == 0) {
    std::printf("\033[1;31mERR:%s() channel should be positive, but input is %d\r\n\033[0m", "vendor_ais_checkparm",
                static_cast<int>(parm->channel));
    return 2;
  }
  return 0;
}

_QX_RESULT vendor_softmax_process(const _NN_SOFTMAX_PARM *parm) {
  if (reference::vendor_ais_checkparm(parm) != 0) return QX_ERR_PARAM;
  const uint8_t frac_bits = static_cast<uint8_t>(parm->in_fmt.frac_bits);
  for (uint32_t b = 0; b < parm->batch; ++b) {
    const uint64_t first = uint64_t{2} * b * parm->channel;
    reference::vendor_submax_s16(reinterpret_cast<const int16_t *>(parm->in_addr + first),
                                 reinterpret_cast<int16_t *>(parm->out_addr + first), parm->channel, frac_bits);
  }
  return QX_OK;
}

}  // namespace reference
