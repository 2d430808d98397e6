/// \file softmax_lanes.h
/// Lane operations of softmax: maxima that keep NaN, the exponential of a difference to the maximum, blocks of a row
/// whose elements are summed in a fixed order, and extremes of 16-bit lanes.
#ifndef TARVU_SIMD_SOFTMAX_LANES_H
#define TARVU_SIMD_SOFTMAX_LANES_H

#include <algorithm>

#include "simd/conversion.h"
#include "simd/fast_exp.h"

namespace tarvu {

/// The larger of two, one float or lanes; NaN if either is, quiet or signalling. The sign of a zero result is not fixed.
inline float larger_or_nan(float a, float b) { return larger(a, b); }
#if TARVU_NEON
inline f32x4 larger_or_nan(f32x4 a, f32x4 b) { return larger(a, b); }
#else
template <FloatLanes F>
inline F larger_or_nan(F a, F b) {
  return b != b ? b : larger(a, b);
}
#endif

/// The same with a limit that is a number.
template <class V>
inline V larger_or_limit(V a, float limit) {
  if constexpr (kLanes<V> == 1) {
    return larger_or_nan(a, limit);
  } else {
    return larger(a, fill<V>(limit));
  }
}

/// The largest of each four lanes, and of all; NaN if any is.
inline f32x4 combine_lanes(f32x4 a) { return a; }
#if TARVU_AVX2
inline f32x4 combine_lanes(f32xn a) {
  return larger_or_nan(f32x4(_mm256_castps256_ps128(__m256(a))), f32x4(_mm256_extractf128_ps(__m256(a), 1)));
}
#endif
inline float largest_lane(f32x4 a) {
#if TARVU_NEON
  return vmaxvq_f32(a);
#else
  const f32x4 pairs = larger_or_nan(a, f32x4(__builtin_shufflevector(a, a, 2, 3, 0, 1)));
  return larger(pairs[0], pairs[1]);
#endif
}

/// fast_exp_step() for x from -87.0 to 0.0 and for NaN, which gives 0.0: the bits then fit a signed integer.
template <class V>
inline V fast_exp_of_difference(V x) {
#if TARVU_AVX2
  const V scaled = x * kLog2E;
  const V exponent = scaled + kExpOffset;
  const V bits = exponent * 0x1p23f;
  // NaN is converted to the least integer.
  if constexpr (kLanes<V> == 1) {
    return std::bit_cast<float>(std::max(_mm_cvttss_si32(_mm_set_ss(bits)), 0));
  } else if constexpr (kLanes<V> == 4) {
    return V(_mm_max_epi32(_mm_cvttps_epi32(__m128(bits)), _mm_setzero_si128()));
  } else {
    return V(_mm256_max_epi32(_mm256_cvttps_epi32(__m256(bits)), _mm256_setzero_si256()));
  }
#else
  return fast_exp_step(x);
#endif
}

/// The largest of each lane's share of 16 consecutive floats.
inline constexpr uint32_t kRowBlock = 16;
inline constexpr uint32_t kRowBlockParts = kRowBlock / kLanes<f32xn>;
inline f32xn largest_in_block(const float *from) {
  f32xn x[kRowBlockParts];
  for (uint32_t k = 0; k < kRowBlockParts; ++k) x[k] = load<f32xn>(from + kLanes<f32xn> * k);
  for (uint32_t half = kRowBlockParts / 2; half != 0; half /= 2) {
    for (uint32_t k = 0; k < half; ++k) x[k] = larger_or_nan(x[k], x[k + half]);
  }
  return x[0];
}

/// Sixteen consecutive floats of a row, in vectors whose order is the target's own.
#if TARVU_NEON
typedef float32x4x4_t RowBlock;
inline RowBlock load_row_block(const float *from) { return vld4q_f32(from); }
inline void store_row_block(const RowBlock &block, float *to) { vst4q_f32(to, block); }
template <class Step>
inline RowBlock map_row_block(RowBlock block, Step step) {
  for (float32x4_t &part : block.val) part = step(part);
  return block;
}
#else
struct RowBlock {
  f32xn val[kRowBlockParts];
};
inline RowBlock load_row_block(const float *from) {
  RowBlock block;
  for (uint32_t k = 0; k < kRowBlockParts; ++k) block.val[k] = load<f32xn>(from + kLanes<f32xn> * k);
  return block;
}
inline void store_row_block(const RowBlock &block, float *to) {
  for (uint32_t k = 0; k < kRowBlockParts; ++k) store(to + kLanes<f32xn> * k, block.val[k]);
}
template <class Step>
inline RowBlock map_row_block(RowBlock block, Step step) {
  for (f32xn &part : block.val) part = step(part);
  return block;
}
#endif

/// To lane k of `sum` adds the elements 4k, 4k + 1, 4k + 2 and 4k + 3 of the block, in this order.
inline f32x4 add_row_block(f32x4 sum, const RowBlock &block) {
#if TARVU_NEON
  for (const f32x4 part : block.val) sum = sum + part;
#elif TARVU_AVX2
  const __m256 low = _mm256_unpacklo_ps(__m256(block.val[0]), __m256(block.val[1]));   // 0 8 1 9, 4 12 5 13
  const __m256 high = _mm256_unpackhi_ps(__m256(block.val[0]), __m256(block.val[1]));  // 2 10 3 11, 6 14 7 15
  const __m128 low_0 = _mm256_castps256_ps128(low);
  const __m128 low_4 = _mm256_extractf128_ps(low, 1);
  const __m128 high_2 = _mm256_castps256_ps128(high);
  const __m128 high_6 = _mm256_extractf128_ps(high, 1);
  sum = sum + f32x4(_mm_unpacklo_ps(low_0, low_4));
  sum = sum + f32x4(_mm_unpackhi_ps(low_0, low_4));
  sum = sum + f32x4(_mm_unpacklo_ps(high_2, high_6));
  sum = sum + f32x4(_mm_unpackhi_ps(high_2, high_6));
#else
  for (int element = 0; element < 4; ++element) {
    for (int k = 0; k < 4; ++k) sum[k] = sum[k] + block.val[k][element];
  }
#endif
  return sum;
}

/// Shifts of one 16-bit element or of lanes by 0 to 15: to the left the bits beyond the top are lost, to the right the
/// sign comes in.
inline int16_t shift_left_16(int16_t x, int count) { return static_cast<int16_t>(shift_left(int32_t{x}, count)); }
inline int16_t shift_right_16(int16_t x, int count) { return static_cast<int16_t>(shift_right(int32_t{x}, count)); }
inline s16x8 shift_left_16(s16x8 x, int count) { return s16x8(u16x8(x) << count); }
inline s16x8 shift_right_16(s16x8 x, int count) { return x >> count; }

/// Wrapping subtraction from an element or from each lane.
inline int16_t subtract_16(int16_t a, int16_t b) { return static_cast<int16_t>(a - b); }
inline s16x8 subtract_16(s16x8 a, int16_t b) { return s16x8(u16x8(a) - static_cast<uint16_t>(b)); }

/// The least and the largest of eight lanes, and whether all are 0.
inline int16_t least_lane(s16x8 a) {
#if TARVU_NEON
  return vminvq_s16(a);
#else
  int16_t least = a[0];
  for (int k = 1; k < 8; ++k) least = std::min<int16_t>(least, a[k]);
  return least;
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
inline bool is_zero(s16x8 a) {
#if TARVU_NEON
  return vmaxvq_u32(u32x4(a)) == 0;
#else
  return (u64x2(a)[0] | u64x2(a)[1]) == 0;
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_SOFTMAX_LANES_H
