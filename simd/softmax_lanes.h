/// \file softmax_lanes.h
/// Lane operations of softmax: maxima that keep NaN, the exponential of a difference to the maximum, blocks of a row
/// whose elements are summed in a fixed order, and extremes of 16-bit lanes.
#ifndef TARVU_SIMD_SOFTMAX_LANES_H
#define TARVU_SIMD_SOFTMAX_LANES_H

#include <algorithm>

#include "simd/fast_exp.h"
#include "simd/runs.h"

namespace tarvu {

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
    for (uint32_t k = 0; k < half; ++k) x[k] = maximum(x[k], x[k + half]);
  }
  return x[0];
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

}  // namespace tarvu

#endif  // TARVU_SIMD_SOFTMAX_LANES_H
