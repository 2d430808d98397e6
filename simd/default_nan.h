/// \file default_nan.h
/// Arithmetic whose NaN is read as bits later on. A NaN that an operation makes of other operands is 0x7FC00000; of an operand
/// that is NaN already it is this operand, of two the first. Arm has it so; x86 makes 0xFFC00000, and its compilers exchange the
/// operands of a sum. NaN operands are quiet.
#ifndef TARVU_SIMD_DEFAULT_NAN_H
#define TARVU_SIMD_DEFAULT_NAN_H

#include <bit>

#include "simd/convert.h"

namespace tarvu {

inline constexpr uint32_t kDefaultNan = 0x7FC00000;

template <class V>
inline V with_default_nan(V result, [[maybe_unused]] V a, [[maybe_unused]] V b) {
#if TARVU_NEON
  return result;
#else
  const V nan = fill<V>(std::bit_cast<float>(kDefaultNan));
  const V of_operands = a == a ? (b == b ? nan : b) : a;
  return result == result ? result : of_operands;
#endif
}

/// a + b and a * b. In assembly on Arm, since compilers take the operands of a sum and of a product in any order, and the first
/// NaN is to count.
template <class V>
inline V add_default_nan(V a, V b) {
#if TARVU_NEON
  V sum;
  if constexpr (kLanes<V> == 1) {
    __asm__("fadd %s0, %s1, %s2" : "=w"(sum) : "w"(a), "w"(b));
  } else {
    __asm__("fadd %0.4s, %1.4s, %2.4s" : "=w"(sum) : "w"(a), "w"(b));
  }
  return sum;
#else
  return with_default_nan(a + b, a, b);
#endif
}
template <class V>
inline V multiply_default_nan(V a, V b) {
#if TARVU_NEON
  V product;
  if constexpr (kLanes<V> == 1) {
    __asm__("fmul %s0, %s1, %s2" : "=w"(product) : "w"(a), "w"(b));
  } else {
    __asm__("fmul %0.4s, %1.4s, %2.4s" : "=w"(product) : "w"(a), "w"(b));
  }
  return product;
#else
  return with_default_nan(a * b, a, b);
#endif
}

template <class V>
inline V subtract_default_nan(V a, V b) {
  return with_default_nan(a - b, a, b);
}

}  // namespace tarvu

#endif  // TARVU_SIMD_DEFAULT_NAN_H
