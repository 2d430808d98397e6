#include "tests/reference/tarvu_lrn_reference.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "tests/reference/bit_depth_trans_reference.h"
#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_softmax_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

/// The NaN that the processor answers with: a NaN operand, the first before the second, or 0x7FC00000 for a new one. It
/// is seen here since the power reads the bits of its argument.
float with_processor_nan(float result, float a, float b) {
  constexpr uint32_t kQuiet = 0x00400000;
  if (result == result) return result;
  if (a != a) return std::bit_cast<float>(std::bit_cast<uint32_t>(a) | kQuiet);
  if (b != b) return std::bit_cast<float>(std::bit_cast<uint32_t>(b) | kQuiet);
  return std::bit_cast<float>(uint32_t{0x7FC00000});
}

float plus(float a, float b) { return with_processor_nan(a + b, a, b); }
float minus(float a, float b) { return with_processor_nan(a - b, a, b); }
float times(float a, float b) { return with_processor_nan(a * b, a, b); }

float square_as_product(float x) { return times(x, x); }
float square_as_power(float x) { return static_cast<float>(std::pow(static_cast<double>(x), 2.0)); }

/// One item of `channels` planes.
void one_item(const float *in, float *out, float *sums, float *squares, double k, uint32_t local_size,
              uint32_t channels, float alpha_n, float beta, uint32_t plane, uint32_t half, float (*square)(float)) {
  const uint32_t count = channels * plane;
  const float start = with_processor_nan(static_cast<float>(k / static_cast<double>(alpha_n)), alpha_n, alpha_n);
  for (uint32_t i = 0; i < count; ++i) store<float>(sums + i, start);

  const uint32_t square_count = (channels + local_size - 1) * plane;
  for (uint32_t i = 0; i < square_count; ++i) store<float>(squares + i, 0.0f);
  for (uint32_t j = 0; j < count; ++j) store<float>(squares + size_t{half} * plane + j, square(load<float>(in + j)));

  for (uint32_t p = 0; p < local_size; ++p) {
    for (uint32_t j = 0; j < plane; ++j) {
      store<float>(sums + j, plus(load<float>(sums + j), load<float>(squares + size_t{p} * plane + j)));
    }
  }
  for (uint32_t c = 1; c < channels; ++c) {
    for (uint32_t j = 0; j < plane; ++j) {
      const float before = load<float>(sums + size_t{c - 1} * plane + j);
      const float enters = load<float>(squares + (size_t{c} + local_size - 1) * plane + j);
      const float leaves = load<float>(squares + size_t{c - 1} * plane + j);
      const float with_new = plus(before, enters);
      store<float>(sums + size_t{c} * plane + j, minus(with_new, leaves));
    }
  }
  for (uint32_t i = 0; i < count; ++i) {
    const float t = times(alpha_n, load<float>(sums + i));
    const float r = reference::fast_Pow(t, -beta);
    store<float>(out + i, load<float>(in + i) * r);
  }
}

template <class T>
T *pointer(uint64_t address) {
  return reinterpret_cast<T *>(address);
}

}  // namespace

float fast_Pow(float x, float p) {
  const uint32_t bits = std::bit_cast<uint32_t>(x) + 0xC0876C08u;
  float y = static_cast<float>(static_cast<int32_t>(bits));
  y = y * p;
  y = y + 1064866816.0f;
  return std::bit_cast<float>(float_to_s32(static_cast<double>(y)));
}
static_assert(std::bit_cast<uint32_t>(1064866816.0f) == 0x4E7DE250);

int32_t tarvu_lrn_neon_func(const float *in, float *out, float *sums, float *squares, int32_t lrn_k, uint32_t num,
                            uint32_t local_size, uint32_t channels, float alpha_n, float beta, uint32_t width,
                            uint32_t height, uint32_t half) {
  const uint32_t plane = width * height;
  const uint32_t item = channels * plane;
  for (uint32_t b = 0; b < num; ++b) {
    const size_t first = size_t{b} * item;
    one_item(in + first, out + first, sums + first, squares, static_cast<double>(lrn_k), local_size, channels, alpha_n,
             beta, plane, half, square_as_product);
  }
  return 0;
}

int32_t tarvu_lrn_c_func(const float *in, float *out, float *sums, float *squares, int32_t lrn_k, uint32_t num,
                         uint32_t local_size, uint32_t channels, float alpha_n, float beta, uint32_t width,
                         uint32_t height, uint32_t half) {
  const uint32_t plane = width * height;
  const uint32_t item = channels * plane;
  for (uint32_t b = 0; b < num; ++b) {
    const size_t first = size_t{b} * item;
    one_item(in + first, out + first, sums + first, squares, static_cast<double>(static_cast<uint32_t>(lrn_k)),
             local_size, channels, alpha_n, beta, plane, half, square_as_power);
  }
  return 0;
}

_QX_RESULT tarvu_lrn_process(const _NN_LRN_PARM *parm) {
  const uint32_t n = parm->batch;
  const uint32_t c = parm->channel;
  const uint32_t w = parm->width;
  const uint32_t h = parm->height;
  const uint32_t local_size = parm->local_size;
  const uint32_t plane = w * h;
  const uint32_t total = n * c * plane;
  uint64_t cursor = parm->work_buffer;
  float *sums = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * total));
  float *squares = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * ((c + local_size - 1) * plane)));
  float *float_in = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * (c * plane)));
  float *float_out = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * (c * plane)));
  const float alpha_n = parm->alpha / static_cast<float>(local_size);
  const uint32_t half = (local_size - 1) >> 1;

  if (local_size % 2 == 0) {
    std::printf("\033[1;31mERR:%s() LRN only supports odd values for local_size!\r\n\033[0m", "tarvu_lrn_process");
    return QX_ERR_PARAM;
  }
  if (n == 0 || c == 0 || w == 0 || h == 0 || local_size == 0 || parm->beta <= 0.0f || parm->alpha <= 0.0f) {
    std::printf(
        "\033[1;31mERR:%s() shape should be positive, but input is %dx%dx%dx%d(num x channels x width x height),"
        "%dx%fx%f(size x beta x alpha)\r\n\033[0m",
        "tarvu_lrn_checkparm", static_cast<int>(n), static_cast<int>(c), static_cast<int>(w), static_cast<int>(h),
        static_cast<int>(local_size), static_cast<double>(parm->beta), static_cast<double>(parm->alpha));
    return QX_ERR_PARAM;
  }
  const float in_scale = scale_as_float(parm->in_scale);
  const float out_scale = scale_as_float(parm->out_scale);
  const _NN_FMT &in_fmt = parm->in_fmt;
  const _NN_FMT &out_fmt = parm->out_fmt;
  const int32_t in_bits = in_fmt.frac_bits + in_fmt.int_bits + in_fmt.sign_bits;
  const int32_t out_bits = out_fmt.frac_bits + out_fmt.int_bits + out_fmt.sign_bits;

  _QX_RESULT result = QX_OK;
  for (uint32_t b = 0; b < n; ++b) {
    const uint64_t in = parm->in_addr + uint64_t{b} * parm->in_batch_ofs;
    const uint64_t out = parm->out_addr + uint64_t{b} * parm->out_batch_ofs;
    const float *source = float_in;
    if (in_bits == 8 && in_fmt.sign_bits != 0) {
      reference::int8tofloat_neon(pointer<const int8_t>(in), float_in, in_fmt.frac_bits, total, in_scale);
    } else if (in_bits == 8) {
      reference::uint8tofloat_neon(pointer<const uint8_t>(in), float_in, in_fmt.frac_bits, total, in_scale);
    } else if (in_bits == 16 && in_fmt.sign_bits != 0) {
      reference::int16tofloat_neon(pointer<const int16_t>(in), float_in, in_fmt.frac_bits, total, in_scale);
    } else if (in_bits == 16) {
      reference::uint16tofloat_neon(pointer<const uint16_t>(in), float_in, in_fmt.frac_bits, total, in_scale);
    } else {
      source = pointer<const float>(in);
    }
    float *destination = out_bits == 8 || out_bits == 16 ? float_out : pointer<float>(out);
    result = reference::tarvu_lrn_neon_func(source, destination, sums, squares, parm->lrn_k, 1, local_size, c, alpha_n,
                                            parm->beta, w, h, half);
    if (out_bits == 8 && out_fmt.sign_bits != 0) {
      reference::floattoint8_neon(float_out, pointer<int8_t>(out), out_fmt.frac_bits, total, out_scale);
    } else if (out_bits == 8) {
      reference::floattouint8_neon(float_out, pointer<uint8_t>(out), out_fmt.frac_bits, total, out_scale);
    } else if (out_bits == 16 && out_fmt.sign_bits != 0) {
      reference::floattoint16_neon(float_out, pointer<int16_t>(out), out_fmt.frac_bits, total, out_scale);
    } else if (out_bits == 16) {
      reference::floattouint16_neon(float_out, pointer<uint16_t>(out), out_fmt.frac_bits, total, out_scale);
    }
  }
  return result;
}

}  // namespace reference
