/// \file convert.h
/// Rounding of floats to integral floats and to integers, and integers to floats, for one value, for four lanes and for the target's
/// widest lanes. Roundings leave integral floats, infinities and the sign of zero as they are; NaN stays NaN. Conversions to
/// integers truncate and saturate; NaN gives 0. A word is a 32-bit integer.
#ifndef TARVU_SIMD_CONVERT_H
#define TARVU_SIMD_CONVERT_H

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

/// Integers to the nearest float, ties to even.
inline float to_f32(int32_t x) { return static_cast<float>(x); }
inline float to_f32(uint32_t x) { return static_cast<float>(x); }
inline f32x4 to_f32(s32x4 x) { return __builtin_convertvector(x, f32x4); }
inline f32x4 to_f32(u32x4 x) { return __builtin_convertvector(x, f32x4); }

/// x * 2^-fraction_bits in one operation, for a fraction of 1 to 32 bits; exact where x has no more than 24 significant bits.
/// One instruction on Arm; elsewhere no faster than a conversion and a product.
inline constexpr bool kConvertsFractionsAtOnce = TARVU_NEON;
template <int fraction_bits>
inline float to_f32_fraction(int32_t x) {
  return to_f32(x) * (1.0f / static_cast<float>(uint64_t{1} << fraction_bits));
}
template <int fraction_bits>
inline float to_f32_fraction(uint32_t x) {
  return to_f32(x) * (1.0f / static_cast<float>(uint64_t{1} << fraction_bits));
}
#if TARVU_NEON
template <int fraction_bits>
inline f32x4 to_f32_fraction(s32x4 x) {
  return vcvtq_n_f32_s32(x, fraction_bits);
}
template <int fraction_bits>
inline f32x4 to_f32_fraction(u32x4 x) {
  return vcvtq_n_f32_u32(x, fraction_bits);
}
#endif

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
inline s32x4 round_down_to_s32(f32x4 x) { return vcvtmq_s32_f32(x); }
inline u32x4 round_down_to_u32(f32x4 x) { return vcvtmq_u32_f32(x); }
#else
#if TARVU_AVX2
template <int mode, FloatLanes F>
inline F round_lanes(F x) {
  if constexpr (sizeof(F) == 16) {
    return F(_mm_round_ps(__m128(x), mode | _MM_FROUND_NO_EXC));
  } else {
    return F(_mm256_round_ps(__m256(x), mode | _MM_FROUND_NO_EXC));
  }
}
template <FloatLanes F>
inline F round_down(F x) {
  return round_lanes<_MM_FROUND_TO_NEG_INF>(x);
}
template <FloatLanes F>
inline F round_up(F x) {
  return round_lanes<_MM_FROUND_TO_POS_INF>(x);
}
template <FloatLanes F>
inline F round_to_zero(F x) {
  return round_lanes<_MM_FROUND_TO_ZERO>(x);
}
template <FloatLanes F>
inline F round_by_environment(F x) {
  return round_lanes<_MM_FROUND_CUR_DIRECTION>(x);
}
template <FloatLanes F>
inline F round_half_even(F x) {
  return round_lanes<_MM_FROUND_TO_NEAREST_INT>(x);
}
#else
template <FloatLanes F>
inline F round_down(F x) {
  return map_lanes<F>(x, [](float y) { return round_down(y); });
}
template <FloatLanes F>
inline F round_up(F x) {
  return map_lanes<F>(x, [](float y) { return round_up(y); });
}
template <FloatLanes F>
inline F round_to_zero(F x) {
  return map_lanes<F>(x, [](float y) { return round_to_zero(y); });
}
template <FloatLanes F>
inline F round_by_environment(F x) {
  return map_lanes<F>(x, [](float y) { return round_by_environment(y); });
}
template <FloatLanes F>
inline F round_half_even(F x) {
  return map_lanes<F>(x, [](float y) { return round_half_even(y); });
}
#endif

template <FloatLanes F>
inline F absolute(F x) {
  return F(UnsignedLanes<F>(x) & 0x7FFFFFFFu);
}
template <FloatLanes F>
inline F round_half_away(F x) {
  const F whole = round_to_zero(x);
  const F one = F((UnsignedLanes<F>(x) & 0x80000000u) | 0x3F800000u);  // with the sign of x
  return absolute(x - whole) >= 0.5f ? whole + one : whole;
}
#if TARVU_AVX2
/// CVTTPS gives the least integer for all that a signed word cannot hold.
template <FloatLanes F>
inline SignedLanes<F> truncate(F x) {
  using S = SignedLanes<F>;
  if constexpr (sizeof(F) == 16) {
    return S(_mm_cvttps_epi32(__m128(x)));
  } else {
    return S(_mm256_cvttps_epi32(__m256(x)));
  }
}
template <FloatLanes F>
inline SignedLanes<F> to_s32(F x) {
  using S = SignedLanes<F>;
  return (truncate(x) ^ S(x >= 0x1p31f)) & S(x == x);
}
template <FloatLanes F>
inline UnsignedLanes<F> to_u32(F x) {
  using U = UnsignedLanes<F>;
  const F from_zero = x > 0.0f ? x : F{};  // NaN becomes 0 too
  const SignedLanes<F> low = truncate(from_zero);
  const SignedLanes<F> high = truncate(from_zero - 0x1p31f);
  return U(low) | (U(low >> 31) & U(high | (high >> 31)));
}
#else
template <FloatLanes F>
inline SignedLanes<F> to_s32(F x) {
  return map_lanes<SignedLanes<F>>(x, [](float y) { return to_s32(y); });
}
template <FloatLanes F>
inline UnsignedLanes<F> to_u32(F x) {
  return map_lanes<UnsignedLanes<F>>(x, [](float y) { return to_u32(y); });
}
#endif
template <FloatLanes F>
inline SignedLanes<F> round_down_to_s32(F x) {
  return to_s32(round_down(x));
}
template <FloatLanes F>
inline UnsignedLanes<F> round_down_to_u32(F x) {
  return to_u32(round_down(x));
}
#endif
#if TARVU_AVX2
inline f32xn to_f32(s32xn x) { return __builtin_convertvector(x, f32xn); }
inline f32xn to_f32(u32xn x) { return __builtin_convertvector(x, f32xn); }
#endif

// ---- Words of an element type

/// The word that holds an element of T: signed for the signed types, unsigned for the unsigned ones.
template <class T>
using WordOf = std::conditional_t<std::is_signed_v<T>, int32_t, uint32_t>;
template <class T>
using WordLanesOf = WidestOf<WordOf<T>>;

/// Floats to words of T: towards zero, and rounded down.
template <class T, class V>
inline auto to_word(V x) {
  if constexpr (std::is_signed_v<T>) {
    return to_s32(x);
  } else {
    return to_u32(x);
  }
}
template <class T>
inline WordOf<T> round_down_to_word(float x) {
  return to_word<T>(round_down(x));
}
template <class T, FloatLanes F>
inline auto round_down_to_word(F x) {
  if constexpr (std::is_signed_v<T>) {
    return round_down_to_s32(x);
  } else {
    return round_down_to_u32(x);
  }
}

/// A float to T, towards zero with saturation; NaN gives 0.
template <class T>
inline T to_integer(float x) {
  return saturate<T>(to_word<T>(x));
}

}  // namespace tarvu

#endif  // TARVU_SIMD_CONVERT_H
