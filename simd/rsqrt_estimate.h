/// \file rsqrt_estimate.h
/// The estimate of 1 / sqrt(x) that the Arm processor gives in one instruction, FRSQRTE, with some 8 significant bits; the same
/// bits on every processor.
///
/// A positive x is 4^e * m with m from 1/4 to below 1. The estimate depends on e and on m cut to a multiple of 1/512 below 1/2,
/// of 1/256 above; it is the reciprocal root of the middle of that step, rounded to 9 bits. Subnormal numbers count in full.
/// Zero gives infinity of its sign, infinity gives 0, every other negative x and NaN give NaN.
#ifndef TARVU_SIMD_RSQRT_ESTIMATE_H
#define TARVU_SIMD_RSQRT_ESTIMATE_H

#include <array>
#include <bit>
#include <limits>

#include "simd/lanes.h"

namespace tarvu {

#if TARVU_NEON
inline f32x4 reciprocal_root_estimate(f32x4 x) { return vrsqrteq_f32(x); }
#else
/// The architecture's procedure in integers. `step` is m in units of 1/512, 128 to 511; the result is the estimate in units of
/// 1/256, 256 to 511.
constexpr uint32_t estimate_of_step(uint32_t step) {
  const uint32_t middle = step < 256 ? step * 2 + 1 : (step / 2 * 2 + 1) * 2;  // in units of 1/1024
  uint32_t root = 512;
  while (middle * (root + 1) * (root + 1) < (1u << 28)) ++root;
  return (root + 1) / 2;
}

/// The low 8 bits of the estimate of each step; the ninth is set in all.
inline constexpr std::array<uint8_t, 384> kEstimates = [] {
  std::array<uint8_t, 384> estimates{};
  for (uint32_t i = 0; i < estimates.size(); ++i) estimates[i] = static_cast<uint8_t>(estimate_of_step(i + 128));
  return estimates;
}();

inline float reciprocal_root_estimate(float x) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const auto bits = std::bit_cast<uint32_t>(x);
  if (x == 0.0f) return (bits >> 31) != 0 ? -kInfinity : kInfinity;
  if (!(x > 0.0f)) return std::numeric_limits<float>::quiet_NaN();
  if (x == kInfinity) return 0.0f;
  int exponent = static_cast<int>(bits >> 23);
  uint32_t fraction = bits & 0x7FFFFFu;
  if (exponent == 0) {
    const int shift = std::countl_zero(fraction) - 8;  // brings the leading one to where a normal number's is
    fraction = (fraction << shift) & 0x7FFFFFu;
    exponent = 1 - shift;
  }
  const uint32_t leading = 256 | (fraction >> 15);
  const bool odd = (exponent & 1) != 0;
  const uint32_t step = odd ? leading / 2 : leading;
  const auto result_exponent = static_cast<uint32_t>((380 - exponent) / 2);
  return std::bit_cast<float>((result_exponent << 23) | (uint32_t{kEstimates[step - 128]} << 15));
}

template <class V>
inline V reciprocal_root_estimate(V x) {
  return map_lanes<V>(x, [](float lane) { return reciprocal_root_estimate(lane); });
}
#endif

}  // namespace tarvu

#endif  // TARVU_SIMD_RSQRT_ESTIMATE_H
