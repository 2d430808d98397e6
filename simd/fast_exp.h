/// \file fast_exp.h
/// The approximate exponential that several operators share: log2(e) * x plus the exponent bias, read as the bits of a
/// float.
#ifndef TARVU_SIMD_FAST_EXP_H
#define TARVU_SIMD_FAST_EXP_H

#include <algorithm>
#include <bit>

#include "simd/convert.h"

namespace tarvu {

inline constexpr float kLog2E = 1.442695f;
static_assert(std::bit_cast<uint32_t>(kLog2E) == 0x3FB8AA3B);
inline constexpr float kExpOffset = 126.934906f;  // exponent bias 127 less a correction that centres the error
static_assert(std::bit_cast<uint32_t>(kExpOffset) == 0x42FDDEAC);
inline constexpr int kFloatFractionBits = 23;

/// t as an unsigned 32-bit fixed-point number of 23 fraction bits, read as the bits of a float: towards zero, 0 for all
/// t below 2^-23 and for NaN, 0xFFFFFFFF (a NaN) for all t of 512 and more. From 255 on the bits are those of infinity
/// and NaN, from 256 on those of negative floats.
inline float bits_from_exponent(float t) {
#if TARVU_NEON
  return std::bit_cast<float>(vcvts_n_u32_f32(t, kFloatFractionBits));
#else
  return std::bit_cast<float>(to_u32(t * 0x1p23f));  // exact, or infinity
#endif
}

/// The same for lanes.
#if TARVU_NEON
inline f32x4 bits_from_exponent(f32x4 t) { return f32x4(vcvtq_n_u32_f32(t, kFloatFractionBits)); }
#else
template <FloatLanes F>
inline F bits_from_exponent(F t) {
  return F(to_u32(t * 0x1p23f));
}
#endif

/// fast_exp(x) for one float or for lanes: product and sum are rounded each, never fused.
template <class V>
inline V fast_exp_step(V x) {
  const V scaled = x * kLog2E;
  const V exponent = scaled + kExpOffset;
  return bits_from_exponent(exponent);
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

}  // namespace tarvu

#endif  // TARVU_SIMD_FAST_EXP_H
