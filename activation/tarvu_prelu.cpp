// Parametric rectifier on integers: one slope for each channel, one shift for all.
#include <algorithm>
#include <cstdio>

#include "frame/tarvu_util.h"
#include "simd/leaky_slope.h"

namespace tarvu {
namespace {

template <class T>
T saturated(int32_t x) {
  return static_cast<T>(std::clamp<int32_t>(x, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

/// One element with the shift taken modulo 32, always to the right.
/// Kept apart from the blocks, which shift a lane: slope 3 and shift -1 take -2 to -12 in a block and to -1 here, slope 1 and
/// shift 32 take -5 to -1 in a block and to -5 here.
template <class T>
T rectified_in_tail(T x, int8_t slope, int8_t shift) {
  const int32_t negative = std::min<int32_t>(x, 0);
  const int32_t positive = std::max<int32_t>(x, 0);
  return saturated<T>(positive + shift_right(negative * slope, shift));
}

template <class T>
int32_t rectify_plane(const T *in, T *out, int8_t slope, uint32_t count, int8_t shift) {
  const uint32_t in_blocks = count / kSlopeBlock<T> * kSlopeBlock<T>;
  slope_run(in, out, in_blocks, slope, shift);
  for (uint32_t i = in_blocks; i < count; ++i) store(out + i, rectified_in_tail(load<T>(in + i), slope, shift));
  return 0;
}

template <class T>
int32_t rectify_by_table(const T *in, const int8_t *slopes, T *out, uint32_t modulus, int8_t shift, int32_t count,
                         int32_t divisor_a, uint32_t divisor_b) {
  for (int32_t i = 0; i < count; ++i) {
    const auto quotient = static_cast<uint32_t>(divide(i, divisor_a));
    const uint32_t reduced = quotient - divide(quotient, modulus) * modulus;
    const int8_t slope = slopes[divide(reduced, divisor_b)];
    store(out + i, rectified_in_tail(load<T>(in + i), slope, shift));
  }
  return 0;
}

/// Kept: the first batch item alone, whatever `num` says.
template <class T>
void rectify_channels(const _NN_PRELU_PARM &parm) {
  const uint32_t plane = parm.width * parm.height;
  const auto *in = pointer<const T>(parm.in_addr);
  auto *out = pointer<T>(parm.out_addr);
  const auto *slopes = pointer<const int8_t>(parm.weight_addr);
  for (uint32_t c = 0; c < parm.channels; ++c, in += plane, out += plane) {
    rectify_plane(in, out, slopes[c], plane, parm.shift);
  }
}

_QX_RESULT check(const _NN_PRELU_PARM &parm) {
  if (parm.width != 0 && parm.height != 0 && parm.channels != 0 && parm.num != 0) return QX_OK;
  std::printf(
      "\033[1;31mERR:%s() shape should be positive, but input is %dx%dx%dx%d(num x channels x height x "
      "width)\r\n\033[0m",
      "tarvu_prelu_checkparm", static_cast<int32_t>(parm.num), static_cast<int32_t>(parm.channels),
      static_cast<int32_t>(parm.height), static_cast<int32_t>(parm.width));
  return QX_ERR_PARAM;
}

}  // namespace
}  // namespace tarvu

int32_t tarvu_prelu_neon_func_int8(const int8_t *in, int8_t *out, int8_t weight, uint32_t count, int8_t shift) {
  return tarvu::rectify_plane(in, out, weight, count, shift);
}

int32_t tarvu_prelu_neon_func_int16(const int16_t *in, int16_t *out, int8_t weight, uint32_t count, int8_t shift) {
  return tarvu::rectify_plane(in, out, weight, count, shift);
}

int32_t tarvu_prelu_c_func_int8(const int8_t *in, const int8_t *weights, int8_t *out, uint32_t modulus, int8_t shift,
                                int32_t count, int32_t divisor_a, uint32_t divisor_b) {
  return tarvu::rectify_by_table(in, weights, out, modulus, shift, count, divisor_a, divisor_b);
}

int32_t tarvu_prelu_c_func_int16(const int16_t *in, const int8_t *weights, int16_t *out, uint32_t modulus, int8_t shift,
                                 int32_t count, int32_t divisor_a, uint32_t divisor_b) {
  return tarvu::rectify_by_table(in, weights, out, modulus, shift, count, divisor_a, divisor_b);
}

_QX_RESULT tarvu_prelu_process(const _NN_PRELU_PARM *parm) {
  const _QX_RESULT result = tarvu::check(*parm);
  if (result != QX_OK) return result;
  switch (tarvu::width_bits(parm->in_fmt)) {
    case 8:
      tarvu::rectify_channels<int8_t>(*parm);
      break;
    case 16:
      tarvu::rectify_channels<int16_t>(*parm);
      break;
    default:
      break;  // other widths do nothing, without a message
  }
  return QX_OK;
}
