/// \file doubles.h
/// Doubles in lanes: vectors of floats widened to twice as many vectors, and narrowed again, lanes in order.
#ifndef TARVU_SIMD_DOUBLES_H
#define TARVU_SIMD_DOUBLES_H

#include <cmath>

#include "simd/widen.h"

namespace tarvu {

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
  return widen_low(f32x4(take_lanes<2, 3, 2, 3>(x, x)));
#endif
}

/// Both rounded to floats by the rounding environment, which is to nearest with ties to even unless a caller changed it: `low` in
/// the lower half. What is too large for a float becomes infinity; NaN stays NaN.
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

/// All lanes of a vector of floats, the lower half in `low`, and back.
inline Wide<f64xn> widen(f32xn x) { return {widen_low(x), widen_high(x)}; }
inline f32xn narrow(const Wide<f64xn> &x) { return narrow(x.low, x.high); }

/// a * b + c, rounded once.
inline double fused_multiply_add(double a, double b, double c) { return std::fma(a, b, c); }
inline f64xn fused_multiply_add(f64xn a, f64xn b, f64xn c) {
#if TARVU_NEON
  return vfmaq_f64(c, a, b);
#elif TARVU_AVX2 && defined(__FMA__)
  return f64xn(_mm256_fmadd_pd(__m256d(a), __m256d(b), __m256d(c)));
#else
  for (int k = 0; k < kLanes<f64xn>; ++k) c[k] = std::fma(a[k], b[k], c[k]);
  return c;
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_DOUBLES_H
