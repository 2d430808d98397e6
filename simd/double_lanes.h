/// \file double_lanes.h
/// Doubles in lanes: a vector of floats widened to two vectors, and narrowed again.
#ifndef TARVU_SIMD_DOUBLE_LANES_H
#define TARVU_SIMD_DOUBLE_LANES_H

#include "simd/lanes.h"

namespace tarvu {

/// Half as many lanes as f32xn has, in a vector of the same size.
typedef double f64xn __attribute__((vector_size(sizeof(f32xn))));
typedef uint64_t u64xn __attribute__((vector_size(sizeof(f32xn))));

/// The lower, or the upper, half of a vector of floats widened.
inline f64x2 widen_low(f32x4 x) {
#if TARVU_NEON
  return vcvt_f64_f32(vget_low_f32(x));
#elif TARVU_AVX2
  return f64x2(_mm_cvtps_pd(__m128(x)));
#else
  return f64x2{double{x[0]}, double{x[1]}};
#endif
}
inline f64x2 widen_high(f32x4 x) {
#if TARVU_NEON
  return vcvt_high_f64_f32(x);
#else
  return widen_low(f32x4(__builtin_shufflevector(x, x, 2, 3, 2, 3)));
#endif
}

/// Both rounded to floats by the rounding environment: `low` in the lower half.
inline f32x4 narrow(f64x2 low, f64x2 high) {
#if TARVU_NEON
  return vcvt_high_f32_f64(vcvt_f32_f64(low), high);
#elif TARVU_AVX2
  return f32x4(_mm_movelh_ps(_mm_cvtpd_ps(__m128d(low)), _mm_cvtpd_ps(__m128d(high))));
#else
  return f32x4{static_cast<float>(low[0]), static_cast<float>(low[1]), static_cast<float>(high[0]),
               static_cast<float>(high[1])};
#endif
}

#if TARVU_AVX2
inline f64xn widen_low(f32xn x) { return f64xn(_mm256_cvtps_pd(_mm256_castps256_ps128(__m256(x)))); }
inline f64xn widen_high(f32xn x) { return f64xn(_mm256_cvtps_pd(_mm256_extractf128_ps(__m256(x), 1))); }
inline f32xn narrow(f64xn low, f64xn high) {
  return f32xn(_mm256_set_m128(_mm256_cvtpd_ps(__m256d(high)), _mm256_cvtpd_ps(__m256d(low))));
}
#endif

/// The lanes of a vector of floats, widened.
struct DoublePair {
  f64xn low, high;
};
inline DoublePair widen(f32xn x) { return {widen_low(x), widen_high(x)}; }
inline f32xn narrow(const DoublePair &x) { return narrow(x.low, x.high); }

/// Whether every lane of a comparison's result is true.
inline bool all_true(s32xn mask) {
#if TARVU_NEON
  return vminvq_u32(u32x4(mask)) != 0;
#elif TARVU_AVX2
  return _mm256_movemask_ps(__m256(mask)) == 0xFF;
#else
  return (mask[0] & mask[1] & mask[2] & mask[3]) != 0;
#endif
}

/// e^x - 1 as power - 1 + power * rest, for -160 <= x <= 160, with a relative error below 2^-40 in all sums that cancel nothing.
struct Exponential {
  f64xn power;  // of two
  f64xn rest;

  f64xn whole() const { return power + power * rest; }             // e^x
  f64xn less_one() const { return (power - 1.0) + power * rest; }  // e^x - 1
};

inline Exponential exponential(f64xn x) {
  constexpr double kLog2E = 0x1.71547652b82fep0;
  constexpr double kLn2Upper = 0x1.62e42fefa38p-1;  // its products with whole numbers below 2^11 are exact
  constexpr double kLn2Lower = 0x1.ef35793c7673p-45;
  constexpr double kToWhole = 0x1.8p52;  // added, it leaves the nearest whole number in the lowest bits
  const f64xn shifted = x * kLog2E + kToWhole;
  const f64xn whole = shifted - kToWhole;
  const f64xn r = (x - whole * kLn2Upper) - whole * kLn2Lower;
  constexpr double kReciprocalFactorials[] = {1.0 / 2,    1.0 / 6,     1.0 / 24,     1.0 / 120,    1.0 / 720,
                                              1.0 / 5040, 1.0 / 40320, 1.0 / 362880, 1.0 / 3628800};
  f64xn series = f64xn{} + kReciprocalFactorials[8];  // 1 + r / 2! + r^2 / 3! + ...; |r| is below 0.347
  for (int k = 7; k >= 0; --k) series = series * r + kReciprocalFactorials[k];
  series = series * r + 1.0;
  const auto power = f64xn((u64xn(shifted) << 52) + uint64_t{0x3FF0000000000000});
  return {power, series * r};
}

}  // namespace tarvu

#endif  // TARVU_SIMD_DOUBLE_LANES_H
