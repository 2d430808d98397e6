/// \file rounding.h
/// Rounding of floats to integral floats and to integers, for one value, for four lanes and for the target's widest lanes.
/// Integral floats, infinities and the sign of zero stay as they are; NaN stays NaN. Conversions to integers truncate and
/// saturate; NaN gives 0.
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

/// The larger and the smaller; NaN if `a` is, quiet or signalling. The sign of a zero result is not fixed. In lanes `b` must not
/// be NaN; of one float it may, and the result is NaN. On Arm in assembly: of a comparison and a selection a compiler may make
/// the other maximum, which drops a quiet NaN.
inline float larger(float a, float b) {
#if TARVU_NEON
  float result;
  __asm__("fmax %s0, %s1, %s2" : "=w"(result) : "w"(a), "w"(b));
  return result;
#else
  return a > b || a != a ? a : b;
#endif
}
inline float smaller(float a, float b) {
#if TARVU_NEON
  float result;
  __asm__("fmin %s0, %s1, %s2" : "=w"(result) : "w"(a), "w"(b));
  return result;
#else
  return a < b || a != a ? a : b;
#endif
}

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
inline f32x4 larger(f32x4 a, f32x4 b) { return vmaxq_f32(a, b); }
inline f32x4 smaller(f32x4 a, f32x4 b) { return vminq_f32(a, b); }
inline s32x4 to_s32(f32x4 x) { return vcvtq_s32_f32(x); }
inline u32x4 to_u32(f32x4 x) { return vcvtq_u32_f32(x); }
inline s32x4 round_down_to_s32(f32x4 x) { return vcvtmq_s32_f32(x); }
inline u32x4 round_down_to_u32(f32x4 x) { return vcvtmq_u32_f32(x); }
#else
/// The same in compiler vectors of any length, where the processor's own form of an operation is not at hand.
template <class F>
concept FloatLanes = std::is_same_v<F, f32x4> || std::is_same_v<F, f32xn>;

/// The integer lanes of as many lanes.
template <FloatLanes F>
using SignedLanes = std::conditional_t<sizeof(F) == 16, s32x4, s32xn>;
template <FloatLanes F>
using UnsignedLanes = std::conditional_t<sizeof(F) == 16, u32x4, u32xn>;

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
/// MINPS and MAXPS give the second operand if either is NaN: `b` must not be NaN.
template <FloatLanes F>
inline F larger(F a, F b) {
  if constexpr (sizeof(F) == 16) {
    return F(_mm_max_ps(__m128(b), __m128(a)));
  } else {
    return F(_mm256_max_ps(__m256(b), __m256(a)));
  }
}
template <FloatLanes F>
inline F smaller(F a, F b) {
  if constexpr (sizeof(F) == 16) {
    return F(_mm_min_ps(__m128(b), __m128(a)));
  } else {
    return F(_mm256_min_ps(__m256(b), __m256(a)));
  }
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
template <FloatLanes F>
inline F larger(F a, F b) {
  return ((a > b) | (a != a)) ? a : b;
}
template <FloatLanes F>
inline F smaller(F a, F b) {
  return ((a < b) | (a != a)) ? a : b;
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
  using S = SignedLanes<F>;
  const F within = smaller(larger(F(S(x) & S(x == x)), fill<F>(-0x1p31f)), fill<F>(0x1.fffffep30f));
  return x >= 0x1p31f ? S{} + std::numeric_limits<int32_t>::max() : __builtin_convertvector(within, S);
}
template <FloatLanes F>
inline UnsignedLanes<F> to_u32(F x) {
  using U = UnsignedLanes<F>;
  using S = SignedLanes<F>;
  const F rest = larger(x >= 0x1p31f ? x - 0x1p31f : x, F{});
  const U top = U(x >= 0x1p31f) & 0x80000000u;
  const U bits = U(to_s32(rest)) | top;
  return S(x >= 0x1p32f) ? U{} - 1u : bits;
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

}  // namespace tarvu

#endif  // TARVU_SIMD_ROUNDING_H
