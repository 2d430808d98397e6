/// \file lanes.h
/// Vectors and what works on each of their lanes: selection, comparison, minimum and maximum, shifts, and what is asked of all
/// lanes at once. The types are the compilers' own vectors: `+ - * & | ^`, comparisons (all ones or zero a lane) and
/// `mask ? a : b` work on them lane by lane, one instruction each on Arm; integer lanes wrap.
///
/// Every operation of this folder has one contract and up to three bodies: for NEON, for AVX2, and a plain one for any other
/// processor. The plain body is the definition; a test holds the others to it.
#ifndef TARVU_SIMD_LANES_H
#define TARVU_SIMD_LANES_H

#include <algorithm>
#include <bit>
#include <cstddef>
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

/// A vector of elements of T.
template <class T, size_t bytes>
struct VectorOf {
  typedef T type __attribute__((vector_size(bytes)));
};
template <class T>
using LanesOf = typename VectorOf<T, 16>::type;

/// The widest lanes that the target computes in at once: what a loop over a long run steps by. One source serves both.
inline constexpr size_t kWidest = TARVU_AVX2 ? 32 : 16;
template <class T>
using WidestOf = typename VectorOf<T, kWidest>::type;
#if TARVU_AVX2
typedef float f32xn __attribute__((vector_size(32)));
typedef double f64xn __attribute__((vector_size(32)));
typedef int32_t s32xn __attribute__((vector_size(32)));
typedef uint32_t u32xn __attribute__((vector_size(32)));
typedef uint64_t u64xn __attribute__((vector_size(32)));
#else
typedef f32x4 f32xn;
typedef f64x2 f64xn;
typedef s32x4 s32xn;
typedef u32x4 u32xn;
typedef u64x2 u64xn;
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
using LaneType = typename LaneOf<V>::type;
template <class V>
inline constexpr int kLanes = static_cast<int>(sizeof(V) / sizeof(LaneType<V>));

template <class V>
concept Lanes = (kLanes<V> > 1);
template <class V>
concept FloatLanes = Lanes<V> && std::is_same_v < LaneType<V>,
float > ;

/// As many integer lanes of the same width.
template <FloatLanes F>
using SignedLanes = typename VectorOf<int32_t, sizeof(F)>::type;
template <FloatLanes F>
using UnsignedLanes = typename VectorOf<uint32_t, sizeof(F)>::type;

/// Lane i of the result is lane k_i of `a` with `b` behind it.
#if __has_builtin(__builtin_shufflevector)
template <int... k, class A, class B>
inline auto take_lanes(A a, B b) {
  return __builtin_shufflevector(a, b, k...);
}
#else
template <int... k, class A, class B>
inline A take_lanes(A a, B b) {
  using Number = std::conditional_t<sizeof(LaneType<A>) == 1, int8_t,
                                    std::conditional_t<sizeof(LaneType<A>) == 2, int16_t,
                                                       std::conditional_t<sizeof(LaneType<A>) == 4, int32_t, int64_t>>>;
  return __builtin_shuffle(a, A(b), typename VectorOf<Number, sizeof(A)>::type{k...});
}
#endif

/// All lanes equal to `x`.
template <class V>
inline V fill(LaneType<V> x) {
  if constexpr (kLanes<V> == 1) {
    return x;
  } else {
    return [x]<int... k>(std::integer_sequence<int, k...>) { return V{(static_cast<void>(k), x)...}; }
    (std::make_integer_sequence<int, kLanes<V>>{});
  }
}

/// f of every lane: for plain bodies.
template <class Out, class V, class F>
inline Out map_lanes(V a, F f) {
  Out out{};
  for (int k = 0; k < kLanes<V>; ++k) out[k] = f(a[k]);
  return out;
}
template <class Out, class V, class F>
inline Out map_lanes(V a, V b, F f) {
  Out out{};
  for (int k = 0; k < kLanes<V>; ++k) out[k] = f(a[k], b[k]);
  return out;
}

/// The lanes of `a` where `mask` is all ones, of `b` where it is 0. Masks have no other lanes.
template <class Mask, Lanes V>
inline V select(Mask mask, V a, V b) {
  static_assert(sizeof(Mask) == sizeof(V) && kLanes<Mask> == kLanes<V>);
#if TARVU_NEON
  return V(vbslq_u8(uint8x16_t(mask), uint8x16_t(a), uint8x16_t(b)));
#else
  return mask ? a : b;
#endif
}

// ---- Minimum and maximum of floats

/// The larger, and the smaller, of two; NaN if either is. Which zero comes of zeros of both signs is not fixed.
inline float maximum(float a, float b) {
#if TARVU_NEON
  float result;
  __asm__("fmax %s0, %s1, %s2" : "=w"(result) : "w"(a), "w"(b));
  return result;
#else
  return a > b || a != a ? a : b;
#endif
}
inline float minimum(float a, float b) {
#if TARVU_NEON
  float result;
  __asm__("fmin %s0, %s1, %s2" : "=w"(result) : "w"(a), "w"(b));
  return result;
#else
  return a < b || a != a ? a : b;
#endif
}

/// The larger of x and `limit` at least, and the smaller at most; NaN if x is. The limit is no NaN: with one the result is x or
/// NaN. Which zero comes of zeros of both signs is not fixed. One instruction everywhere, unlike maximum().
inline float at_least(float x, float limit) {
#if TARVU_NEON
  return maximum(x, limit);
#else
  return x > limit || x != x ? x : limit;
#endif
}
inline float at_most(float x, float limit) {
#if TARVU_NEON
  return minimum(x, limit);
#else
  return x < limit || x != x ? x : limit;
#endif
}

#if TARVU_NEON
inline f32x4 maximum(f32x4 a, f32x4 b) { return vmaxq_f32(a, b); }
inline f32x4 minimum(f32x4 a, f32x4 b) { return vminq_f32(a, b); }
inline f32x4 at_least(f32x4 x, f32x4 limit) { return vmaxq_f32(x, limit); }
inline f32x4 at_most(f32x4 x, f32x4 limit) { return vminq_f32(x, limit); }
#else
template <FloatLanes F>
inline F at_least(F x, F limit) {
#if TARVU_AVX2
  // MAXPS and MINPS give their second operand if either is NaN.
  if constexpr (sizeof(F) == 16) {
    return F(_mm_max_ps(__m128(limit), __m128(x)));
  } else {
    return F(_mm256_max_ps(__m256(limit), __m256(x)));
  }
#else
  return map_lanes<F>(x, limit, [](float lane, float lane_limit) { return at_least(lane, lane_limit); });
#endif
}
template <FloatLanes F>
inline F at_most(F x, F limit) {
#if TARVU_AVX2
  if constexpr (sizeof(F) == 16) {
    return F(_mm_min_ps(__m128(limit), __m128(x)));
  } else {
    return F(_mm256_min_ps(__m256(limit), __m256(x)));
  }
#else
  return map_lanes<F>(x, limit, [](float lane, float lane_limit) { return at_most(lane, lane_limit); });
#endif
}
template <FloatLanes F>
inline F maximum(F a, F b) {
#if TARVU_AVX2
  return b != b ? b : at_least(a, b);
#else
  return map_lanes<F>(a, b, [](float lane_a, float lane_b) { return maximum(lane_a, lane_b); });
#endif
}
template <FloatLanes F>
inline F minimum(F a, F b) {
#if TARVU_AVX2
  return b != b ? b : at_most(a, b);
#else
  return map_lanes<F>(a, b, [](float lane_a, float lane_b) { return minimum(lane_a, lane_b); });
#endif
}
#endif

/// Held to 0.0..1.0. -0.0 becomes 0.0, NaN stays.
inline float clamp_to_unit(float x) {
  const float low = x <= 0.0f ? 0.0f : x;
  return low > 1.0f ? 1.0f : low;
}
#if TARVU_NEON
inline f32x4 clamp_to_unit(f32x4 x) { return vminq_f32(vmaxq_f32(x, f32x4{}), vdupq_n_f32(1.0f)); }
#else
template <FloatLanes F>
inline F clamp_to_unit(F x) {
#if TARVU_AVX2
  const F low = x <= 0.0f ? F{} : x;
  return low > 1.0f ? fill<F>(1.0f) : low;
#else
  return map_lanes<F>(x, [](float lane) { return clamp_to_unit(lane); });
#endif
}
#endif

/// x where it is greater than 0.0, infinity included; 0.0 for all else: -0.0 and every NaN, signalling or quiet. In integers, since
/// a compiler may make a maximum of a comparison of floats, and Arm's gives NaN for a signalling NaN.
inline float positive_number(float x) {
  const auto bits = std::bit_cast<int32_t>(x);  // from 0.0 to infinity in the order of the floats
  return std::bit_cast<float>(bits < 0 || bits > 0x7F800000 ? 0 : bits);
}

/// The same held to 1.0.
inline float number_in_unit(float x) {
  return std::bit_cast<float>(std::min(std::bit_cast<int32_t>(positive_number(x)), 0x3F800000));
}

// ---- Shifts of integer lanes

/// x * 2^left if `left` is positive, bits beyond the lane lost; else x / 2^-left rounded down, which is arithmetic for signed
/// lanes and logical for unsigned ones. So as many places as the lane has, and more, give 0 to the left, and to the right 0 or,
/// of a negative lane, -1. Counts of -128 to 127; lanes of 16, 32 and 64 bits.
template <class T>
inline T shift_lane(T x, int left) {
  constexpr int kBits = 8 * sizeof(T);
  if (left >= kBits) return 0;
  if (left >= 0) return static_cast<T>(static_cast<std::make_unsigned_t<T>>(x) << left);
  if (std::is_unsigned_v<T> && left <= -kBits) return 0;
  return static_cast<T>(x >> std::min(-left, kBits - 1));
}
#if TARVU_NEON
inline s16x8 shift_lanes(s16x8 x, int left) { return vshlq_s16(x, vdupq_n_s16(static_cast<int16_t>(left))); }
inline u16x8 shift_lanes(u16x8 x, int left) { return vshlq_u16(x, vdupq_n_s16(static_cast<int16_t>(left))); }
inline s32x4 shift_lanes(s32x4 x, int left) { return vshlq_s32(x, vdupq_n_s32(left)); }
inline u32x4 shift_lanes(u32x4 x, int left) { return vshlq_u32(x, vdupq_n_s32(left)); }
inline s64x2 shift_lanes(s64x2 x, int left) { return vshlq_s64(x, vdupq_n_s64(left)); }
inline u64x2 shift_lanes(u64x2 x, int left) { return vshlq_u64(x, vdupq_n_s64(left)); }
#else
template <Lanes V>
inline V shift_lanes(V x, int left) {
#if TARVU_AVX2
  if constexpr (sizeof(LaneType<V>) != 8 && sizeof(V) == 32) {
    // Counts of the lane's width and more leave the sign, or nothing.
    const __m128i up = _mm_cvtsi32_si128(std::max(left, 0));
    const __m128i down = _mm_cvtsi32_si128(std::max(-left, 0));
    if constexpr (std::is_same_v<LaneType<V>, int16_t>)
      return V(_mm256_sra_epi16(_mm256_sll_epi16(__m256i(x), up), down));
    if constexpr (std::is_same_v<LaneType<V>, uint16_t>)
      return V(_mm256_srl_epi16(_mm256_sll_epi16(__m256i(x), up), down));
    if constexpr (std::is_same_v<LaneType<V>, int32_t>)
      return V(_mm256_sra_epi32(_mm256_sll_epi32(__m256i(x), up), down));
    if constexpr (std::is_same_v<LaneType<V>, uint32_t>)
      return V(_mm256_srl_epi32(_mm256_sll_epi32(__m256i(x), up), down));
  }
#endif
  return map_lanes<V>(x, [=](LaneType<V> lane) { return shift_lane(lane, left); });
}
#endif

// ---- All lanes at once

/// Whether any lane, and whether every lane, of a mask of 32-bit lanes is set.
inline bool any(s32x4 mask) {
#if TARVU_NEON
  return vmaxvq_u32(uint32x4_t(mask)) != 0;
#elif TARVU_AVX2
  return _mm_movemask_ps(__m128(mask)) != 0;
#else
  return (mask[0] | mask[1] | mask[2] | mask[3]) != 0;
#endif
}
inline bool all(s32x4 mask) {
#if TARVU_NEON
  return vminvq_u32(uint32x4_t(mask)) != 0;
#elif TARVU_AVX2
  return _mm_movemask_ps(__m128(mask)) == 0xF;
#else
  return (mask[0] & mask[1] & mask[2] & mask[3]) != 0;
#endif
}
#if TARVU_AVX2
inline bool any(s32xn mask) { return _mm256_movemask_ps(__m256(mask)) != 0; }
inline bool all(s32xn mask) { return _mm256_movemask_ps(__m256(mask)) == 0xFF; }
#endif

/// Whether all bits of a vector are 0.
template <Lanes V>
requires(sizeof(V) == 16) inline bool is_zero(V a) {
#if TARVU_NEON
  return vmaxvq_u32(uint32x4_t(a)) == 0;
#else
  return (u64x2(a)[0] | u64x2(a)[1]) == 0;
#endif
}

/// The largest and the least lane. Of floats: NaN if any is.
inline float largest_lane(f32x4 a) {
#if TARVU_NEON
  return vmaxvq_f32(a);
#elif TARVU_AVX2
  const f32x4 pairs = maximum(a, f32x4(take_lanes<2, 3, 0, 1>(a, a)));
  return maximum(pairs[0], pairs[1]);
#else
  return maximum(maximum(a[0], a[1]), maximum(a[2], a[3]));
#endif
}
inline int16_t largest_lane(s16x8 a) {
#if TARVU_NEON
  return vmaxvq_s16(a);
#else
  int16_t largest = a[0];
  for (int k = 1; k < 8; ++k) largest = std::max<int16_t>(largest, a[k]);
  return largest;
#endif
}
inline int16_t least_lane(s16x8 a) {
#if TARVU_NEON
  return vminvq_s16(a);
#else
  int16_t least = a[0];
  for (int k = 1; k < 8; ++k) least = std::min<int16_t>(least, a[k]);
  return least;
#endif
}

/// The largest of the lanes k, k + 4, ... of a vector in lane k; NaN if any of them is.
inline f32x4 largest_of_fours(f32x4 a) { return a; }
#if TARVU_AVX2
inline f32x4 largest_of_fours(f32xn a) {
  return maximum(f32x4(_mm256_castps256_ps128(__m256(a))), f32x4(_mm256_extractf128_ps(__m256(a), 1)));
}
#endif

/// The sum of four lanes as ((lane 0 + lane 1) + lane 2) + lane 3, each sum rounded.
inline float sum_in_order(f32x4 a) { return ((a[0] + a[1]) + a[2]) + a[3]; }

/// Numbers from 0 to 15 as bits of a word, of which first() and without_first() tell them in ascending order. Each has as many bits
/// of the word as the target makes soonest.
struct Sixteen {
  uint64_t bits;

  bool empty() const { return bits == 0; }
};
#if TARVU_NEON
inline constexpr int kBitsEach = 4;
#else
inline constexpr int kBitsEach = 1;
#endif
inline uint32_t first_of(Sixteen numbers) {
  return static_cast<uint32_t>(std::countr_zero(numbers.bits)) / static_cast<uint32_t>(kBitsEach);
}
inline Sixteen without_first(Sixteen numbers) { return {numbers.bits & (numbers.bits - 1)}; }

/// The numbers i with from[i] >= threshold, of sixteen floats; NaN on either side is none.
inline Sixteen places_at_least(const float *from, float threshold) {
#if TARVU_NEON
  uint16x8_t halves[2];
  for (int k = 0; k < 2; ++k) {
    const u32x4 first = u32x4(load<f32x4>(from + 8 * k) >= threshold);
    const u32x4 second = u32x4(load<f32x4>(from + 8 * k + 4) >= threshold);
    halves[k] = vuzp1q_u16(uint16x8_t(first), uint16x8_t(second));
  }
  const uint8x16_t bytes = vuzp1q_u8(uint8x16_t(halves[0]), uint8x16_t(halves[1]));
  uint64_t found = vget_lane_u64(uint64x1_t(vshrn_n_u16(uint16x8_t(bytes), 4)), 0);  // four bits of each byte
  if (found != 0) [[unlikely]]
    found &= 0x8888888888888888u;
  return {found};
#elif TARVU_AVX2
  const auto bits = [=](int at) {
    return static_cast<uint32_t>(_mm256_movemask_ps(__m256(load<f32xn>(from + at) >= threshold)));
  };
  return {bits(0) | bits(8) << 8};
#else
  uint64_t found = 0;
  for (int k = 0; k < 16; ++k) found |= uint64_t{load<float>(from + k) >= threshold} << k;
  return {found};
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_LANES_H
