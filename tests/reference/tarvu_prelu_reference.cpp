#include "tests/reference/tarvu_prelu_reference.h"

#include <cstdio>
#include <limits>

#include "tests/reference/processor_rules.h"

namespace reference {
namespace {

template <class T>
int32_t saturate(int32_t value) {
  if (value > std::numeric_limits<T>::max()) return std::numeric_limits<T>::max();
  if (value < std::numeric_limits<T>::min()) return std::numeric_limits<T>::min();
  return value;
}

/// Shift of a product in a lane of the type Lane, to the left for a negative count. A lane that is moved by its whole
/// width is empty but, to the right, for its sign.
template <class Lane>
int32_t shift_in_lane(int32_t product, int32_t shift) {
  const int32_t lane_bits = 8 * static_cast<int32_t>(sizeof(Lane));
  if (shift >= lane_bits) return product < 0 ? -1 : 0;
  if (shift >= 0) return shift_right_32(product, shift);
  if (-shift >= lane_bits) return 0;
  return static_cast<Lane>(shift_left_32(product, -shift));
}

template <class T, class Lane>
int32_t one_slope(const T *in, T *out, int8_t weight, uint32_t count, int8_t shift, uint32_t block) {
  const uint32_t in_blocks = count / block * block;
  for (uint32_t i = 0; i < count; ++i) {
    const int32_t x = load<T>(in + i);
    const int32_t n = x < 0 ? x : 0;
    const int32_t p = x > 0 ? x : 0;
    int32_t q = n * weight;
    q = i < in_blocks ? shift_in_lane<Lane>(q, shift) : shift_right_32(q, shift);
    store<T>(out + i, static_cast<T>(saturate<T>(q) + p));
  }
  return 0;
}

template <class T>
int32_t slope_per_element(const T *in, const int8_t *weights, T *out, uint32_t modulus, int8_t shift, int32_t count,
                          int32_t divisor_a, uint32_t divisor_b) {
  for (int32_t i = 0; i < count; ++i) {
    const uint32_t quotient = static_cast<uint32_t>(divide_32(i, divisor_a));
    const uint32_t remainder = modulus == 0 ? quotient : quotient % modulus;
    const uint32_t index = divide_u32(remainder, divisor_b);
    const int32_t x = load<T>(in + i);
    const int32_t n = x < 0 ? x : 0;
    const int32_t p = x > 0 ? x : 0;
    const int32_t q = n * weights[index];
    store<T>(out + i, static_cast<T>(saturate<T>(p + shift_right_32(q, shift))));
  }
  return 0;
}

}  // namespace

int32_t tarvu_prelu_neon_func_int8(const int8_t *in, int8_t *out, int8_t weight, uint32_t count, int8_t shift) {
  return one_slope<int8_t, int16_t>(in, out, weight, count, shift, 16);
}

int32_t tarvu_prelu_neon_func_int16(const int16_t *in, int16_t *out, int8_t weight, uint32_t count, int8_t shift) {
  return one_slope<int16_t, int32_t>(in, out, weight, count, shift, 8);
}

int32_t tarvu_prelu_c_func_int8(const int8_t *in, const int8_t *weights, int8_t *out, uint32_t modulus, int8_t shift,
                                int32_t count, int32_t divisor_a, uint32_t divisor_b) {
  return slope_per_element(in, weights, out, modulus, shift, count, divisor_a, divisor_b);
}

int32_t tarvu_prelu_c_func_int16(const int16_t *in, const int8_t *weights, int16_t *out, uint32_t modulus, int8_t shift,
                                 int32_t count, int32_t divisor_a, uint32_t divisor_b) {
  return slope_per_element(in, weights, out, modulus, shift, count, divisor_a, divisor_b);
}

_QX_RESULT tarvu_prelu_process(const _NN_PRELU_PARM *parm) {
  if (parm->width == 0 || parm->height == 0 || parm->channels == 0 || parm->num == 0) {
    std::printf(
        "\033[1;31mERR:%s() shape should be positive, but input is %dx%dx%dx%d(num x channels x height x width)\r\n"
        "\033[0m",
        "tarvu_prelu_checkparm", static_cast<int>(parm->num), static_cast<int>(parm->channels),
        static_cast<int>(parm->height), static_cast<int>(parm->width));
    return QX_ERR_PARAM;
  }
  const int32_t element_bits = parm->in_fmt.frac_bits + parm->in_fmt.int_bits + parm->in_fmt.sign_bits;
  const uint32_t plane = parm->width * parm->height;
  const int8_t *weights = reinterpret_cast<const int8_t *>(parm->weight_addr);
  for (uint32_t c = 0; c < parm->channels; ++c) {
    const uint64_t first = uint64_t{c} * plane;
    if (element_bits == 8) {
      reference::tarvu_prelu_neon_func_int8(reinterpret_cast<const int8_t *>(parm->in_addr + first),
                                            reinterpret_cast<int8_t *>(parm->out_addr + first), weights[c], plane,
                                            parm->shift);
    } else if (element_bits == 16) {
      reference::tarvu_prelu_neon_func_int16(reinterpret_cast<const int16_t *>(parm->in_addr + 2 * first),
                                             reinterpret_cast<int16_t *>(parm->out_addr + 2 * first), weights[c], plane,
                                             parm->shift);
    }
  }
  return QX_OK;
}

}  // namespace reference
