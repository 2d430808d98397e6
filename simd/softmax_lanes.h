/// \file softmax_lanes.h
/// Lane operations of softmax: maxima that keep NaN, the exponential of a difference to the maximum, and blocks of a row
/// whose elements are summed in a fixed order.
#ifndef TARVU_SIMD_SOFTMAX_LANES_H
#define TARVU_SIMD_SOFTMAX_LANES_H

#include <algorithm>

#include "simd/conversion.h"
#include "simd/fast_exp.h"

namespace tarvu {

/// The larger of two, one float or lanes; NaN if either is. The sign of a zero result is not fixed.
template <class V>
inline V larger_or_nan(V a, V b) {
#if TARVU_NEON
  return larger(a, b);
#else
  if constexpr (kLanes<V> == 1) {
    return larger(a, b);
  } else {
    return b != b ? b : larger(a, b);
  }
#endif
}

/// The largest lane; NaN if any is.
inline float largest_lane(f32x4 a) {
#if TARVU_NEON
  return vmaxvq_f32(a);
#else
  const f32x4 pairs = larger_or_nan(a, f32x4(__builtin_shufflevector(a, a, 2, 3, 0, 1)));
  return larger(pairs[0], pairs[1]);
#endif
}
#if TARVU_AVX2
inline f32x4 lower_half(f32xn a) { return f32x4(_mm256_castps256_ps128(__m256(a))); }
inline f32x4 upper_half(f32xn a) { return f32x4(_mm256_extractf128_ps(__m256(a), 1)); }
inline float largest_lane(f32xn a) { return largest_lane(larger_or_nan(lower_half(a), upper_half(a))); }
#endif

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

/// Sixteen consecutive floats of a row, in vectors whose order is the target's own.
inline constexpr uint32_t kRowBlock = 16;
inline constexpr uint32_t kRowBlockParts = kRowBlock / kLanes<f32xn>;
struct RowBlock {
  f32xn part[kRowBlockParts];
};

inline RowBlock load_row_block(const float *from) {
#if TARVU_NEON
  const float32x4x4_t quarters = vld4q_f32(from);
  return {{quarters.val[0], quarters.val[1], quarters.val[2], quarters.val[3]}};
#else
  RowBlock block;
  for (uint32_t k = 0; k < kRowBlockParts; ++k) block.part[k] = load<f32xn>(from + kLanes<f32xn> * k);
  return block;
#endif
}

inline void store_row_block(const RowBlock &block, float *to) {
#if TARVU_NEON
  vst4q_f32(to, {{block.part[0], block.part[1], block.part[2], block.part[3]}});
#else
  for (uint32_t k = 0; k < kRowBlockParts; ++k) store(to + kLanes<f32xn> * k, block.part[k]);
#endif
}

/// To lane k of `sum` adds the elements 4k, 4k + 1, 4k + 2 and 4k + 3 of the block, in this order.
inline f32x4 add_row_block(f32x4 sum, const RowBlock &block) {
#if TARVU_NEON
  for (const f32x4 part : block.part) sum = sum + part;
#elif TARVU_AVX2
  const __m256 low = _mm256_unpacklo_ps(__m256(block.part[0]), __m256(block.part[1]));   // 0 8 1 9, 4 12 5 13
  const __m256 high = _mm256_unpackhi_ps(__m256(block.part[0]), __m256(block.part[1]));  // 2 10 3 11, 6 14 7 15
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
    for (int k = 0; k < 4; ++k) sum[k] = sum[k] + block.part[k][element];
  }
#endif
  return sum;
}

}  // namespace tarvu

#endif  // TARVU_SIMD_SOFTMAX_LANES_H
