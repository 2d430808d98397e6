/// \file lanes.h
/// 128-bit lane types and the operations that all kernels share. The types are the compilers' own vectors: `+ - * & | ^`,
/// comparisons (all ones or zero a lane) and `mask ? a : b` work on them lane by lane, one instruction each on Arm.
/// Operations for one family stand in headers of their own beside this one.
#ifndef TARVU_SIMD_LANES_H
#define TARVU_SIMD_LANES_H

#include <type_traits>
#include <utility>

#include "simd/processor.h"

namespace tarvu {

typedef float f32x4 __attribute__((vector_size(16)));
typedef double f64x2 __attribute__((vector_size(16)));
typedef int32_t s32x4 __attribute__((vector_size(16)));
typedef uint32_t u32x4 __attribute__((vector_size(16)));
typedef int64_t s64x2 __attribute__((vector_size(16)));
typedef uint64_t u64x2 __attribute__((vector_size(16)));
typedef int16_t s16x8 __attribute__((vector_size(16)));
typedef uint16_t u16x8 __attribute__((vector_size(16)));
typedef int8_t s8x16 __attribute__((vector_size(16)));
typedef uint8_t u8x16 __attribute__((vector_size(16)));

/// The widest lanes that the target computes in at once: what a loop over a long run steps by. One source serves both.
#if TARVU_AVX2
typedef float f32xn __attribute__((vector_size(32)));
typedef int32_t s32xn __attribute__((vector_size(32)));
typedef uint32_t u32xn __attribute__((vector_size(32)));
#else
typedef f32x4 f32xn;
typedef s32x4 s32xn;
typedef u32x4 u32xn;
#endif

/// The element type of a lane type, and the number of its lanes; a plain scalar is its own single lane.
template <class V>
struct LaneOf {
  using type = V;
};
template <class V>
requires requires(V v) { v[0]; }
struct LaneOf<V> {
  using type = std::remove_cvref_t<decltype(std::declval<V>()[0])>;
};
template <class V>
inline constexpr int kLanes = static_cast<int>(sizeof(V) / sizeof(typename LaneOf<V>::type));

/// All lanes equal to `x`.
template <class V>
inline V fill(typename LaneOf<V>::type x) {
  if constexpr (kLanes<V> == 1) {
    return x;
  } else {
    return x - V{};  // exact for floats too: x - 0 is x, -0 included
  }
}

/// f of every lane: for portable bodies.
template <class Out, class V, class F>
inline Out map_lanes(V a, F f) {
  Out out{};
  for (int k = 0; k < kLanes<V>; ++k) out[k] = f(a[k]);
  return out;
}

/// Interleaves the lower, or the upper, halves of two vectors: a0 b0 a1 b1 ...
inline u8x16 zip_low(u8x16 a, u8x16 b) {
  return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
inline u8x16 zip_high(u8x16 a, u8x16 b) {
  return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
}
inline u16x8 zip_low(u16x8 a, u16x8 b) { return __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11); }
inline u16x8 zip_high(u16x8 a, u16x8 b) { return __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15); }

/// The lanes in the opposite order.
inline u8x16 reverse(u8x16 a) {
#if TARVU_NEON
  return vqtbl1q_u8(a, u8x16{15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0});
#else
  return __builtin_shufflevector(a, a, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
#endif
}
inline u16x8 reverse(u16x8 a) {
#if TARVU_NEON
  return u16x8(vqtbl1q_u8(u8x16(a), u8x16{14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1}));
#else
  return __builtin_shufflevector(a, a, 7, 6, 5, 4, 3, 2, 1, 0);
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_LANES_H
