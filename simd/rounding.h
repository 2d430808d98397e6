/// \file rounding.h
/// Rounding of floats to integral floats and to integers, for four lanes and for one. Integral floats, infinities and the sign
/// of zero stay as they are; NaN stays NaN. Conversions to integers truncate (or round down) and saturate; NaN gives 0.
#ifndef TARVU_SIMD_ROUNDING_H
#define TARVU_SIMD_ROUNDING_H

#include <cmath>

#include "simd/lanes.h"

namespace tarvu {

inline float round_down(float x) { return std::floor(x); }
inline float round_up(float x) { return std::ceil(x); }
inline float round_to_zero(float x) { return std::trunc(x); }
inline float round_by_environment(float x) { return std::rint(x); }
inline float absolute(float x) { return std::fabs(x); }

/// To nearest, ties away from zero, whatever the rounding environment.
inline float round_half_away(float x) {
#if TARVU_NEON
  return vget_lane_f32(vrnda_f32(vdup_n_f32(x)), 0);
#else
  const float whole = std::trunc(x);
  return std::fabs(x - whole) >= 0.5f ? whole + std::copysign(1.0f, x) : whole;  // the difference is exact
#endif
}

/// To nearest, ties to even, whatever the rounding environment.
inline float round_half_even(float x) {
#if TARVU_NEON
  return vrndns_f32(x);
#else
  const float whole = std::trunc(x);
  const float fraction = std::fabs(x - whole);
  const bool odd = whole - 2.0f * std::trunc(0.5f * whole) != 0.0f;
  return fraction > 0.5f || (fraction == 0.5f && odd) ? whole + std::copysign(1.0f, x) : whole;
#endif
}

/// The same for four lanes.
#if TARVU_NEON
inline f32x4 round_down(f32x4 x) { return vrndmq_f32(x); }
inline f32x4 round_up(f32x4 x) { return vrndpq_f32(x); }
inline f32x4 round_to_zero(f32x4 x) { return vrndq_f32(x); }
inline f32x4 round_by_environment(f32x4 x) { return vrndiq_f32(x); }
inline f32x4 round_half_away(f32x4 x) { return vrndaq_f32(x); }
inline f32x4 round_half_even(f32x4 x) { return vrndnq_f32(x); }
inline f32x4 absolute(f32x4 x) { return vabsq_f32(x); }
inline s32x4 to_s32(f32x4 x) { return vcvtq_s32_f32(x); }
inline u32x4 to_u32(f32x4 x) { return vcvtq_u32_f32(x); }
#else
inline f32x4 round_down(f32x4 x) { return map_lanes<f32x4>(x, [](float y) { return round_down(y); }); }
inline f32x4 round_up(f32x4 x) { return map_lanes<f32x4>(x, [](float y) { return round_up(y); }); }
inline f32x4 round_to_zero(f32x4 x) { return map_lanes<f32x4>(x, [](float y) { return round_to_zero(y); }); }
inline f32x4 round_by_environment(f32x4 x) { return map_lanes<f32x4>(x, [](float y) { return round_by_environment(y); }); }
inline f32x4 round_half_away(f32x4 x) { return map_lanes<f32x4>(x, [](float y) { return round_half_away(y); }); }
inline f32x4 round_half_even(f32x4 x) { return map_lanes<f32x4>(x, [](float y) { return round_half_even(y); }); }
inline f32x4 absolute(f32x4 x) { return map_lanes<f32x4>(x, [](float y) { return absolute(y); }); }
inline s32x4 to_s32(f32x4 x) { return map_lanes<s32x4>(x, [](float y) { return to_s32(y); }); }
inline u32x4 to_u32(f32x4 x) { return map_lanes<u32x4>(x, [](float y) { return to_u32(y); }); }
#endif

/// Integers to the nearest float, ties to even.
inline f32x4 to_f32(s32x4 x) { return __builtin_convertvector(x, f32x4); }
inline f32x4 to_f32(u32x4 x) { return __builtin_convertvector(x, f32x4); }
inline float to_f32(int32_t x) { return static_cast<float>(x); }
inline float to_f32(uint32_t x) { return static_cast<float>(x); }

/// The larger and the smaller; NaN if either is. The sign of a zero result is not fixed.
inline float larger(float a, float b) { return a > b || a != a ? a : b; }
inline float smaller(float a, float b) { return a < b || a != a ? a : b; }
#if TARVU_NEON
inline f32x4 larger(f32x4 a, f32x4 b) { return vmaxq_f32(a, b); }
inline f32x4 smaller(f32x4 a, f32x4 b) { return vminq_f32(a, b); }
#else
inline f32x4 larger(f32x4 a, f32x4 b) { return ((a > b) | (a != a)) ? a : b; }
inline f32x4 smaller(f32x4 a, f32x4 b) { return ((a < b) | (a != a)) ? a : b; }
#endif

}  // namespace tarvu

#endif  // TARVU_SIMD_ROUNDING_H
