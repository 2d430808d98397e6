/// \file lstm_gates.h
/// The gates of LSTM and its outputs: logistic function and hyperbolic tangent with the bits that the mathematics library's double
/// functions give after rounding to float.
///
/// Runs are computed in lanes by functions of a smaller precision, about 40 bits. Where such a value rounds to the same float
/// from both ends of an interval around it that surely holds the library's value too, that float is the result; where it does not,
/// once in some thousand elements, and outside the range of the fast functions the library decides.
#ifndef TARVU_ACTIVATION_LSTM_GATES_H
#define TARVU_ACTIVATION_LSTM_GATES_H

#include <cmath>

#include "simd/convert.h"
#include "simd/doubles.h"
#include "tarvu.h"

namespace tarvu {

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

/// Half the interval, relative: more than the errors of the fast functions (below 2^-40) and of any usable library together.
inline constexpr double kGateTolerance = 0x1p-39;

/// Rounds to floats; `known` tells for which lanes all of the interval rounds to the same.
struct RoundedGate {
  f32xn value;
  s32xn known;
};
inline RoundedGate round_gate(const Wide<f64xn> &x) {
  constexpr double kLeast = 1.0 - kGateTolerance;
  constexpr double kMost = 1.0 + kGateTolerance;
  const f32xn from_below = narrow({x.low * kLeast, x.high * kLeast});
  const f32xn from_above = narrow({x.low * kMost, x.high * kMost});
  return {from_below, from_below == from_above};
}

inline f64xn fast_logistic(f64xn minus_x) { return 1.0 / (exponential(minus_x).whole() + 1.0); }

/// For x of 0 or more.
inline f64xn fast_tanh(f64xn x) {
  const f64xn grown = exponential(x + x).less_one();
  return grown / (grown + 2.0);
}

inline RoundedGate fast_logistic(f32xn x) {
  constexpr float kRange = 80.0f;
  const Wide<f64xn> minus_x = widen(-x);
  RoundedGate gate = round_gate({fast_logistic(minus_x.low), fast_logistic(minus_x.high)});
  gate.known &= absolute(x) <= kRange;
  return gate;
}

/// The float of `magnitude`, which is not negative, with the sign of x.
inline RoundedGate round_odd_gate(const Wide<f64xn> &magnitude, f32xn x) {
  RoundedGate gate = round_gate(magnitude);
  gate.value = f32xn(u32xn(gate.value) | (u32xn(x) & 0x80000000u));
  return gate;
}

/// |tanh(x)|.
inline Wide<f64xn> fast_tanh_magnitude(f32xn x) {
  constexpr float kOne = 40.0f;  // from here on it is 1 in double
  const Wide<f64xn> magnitude = widen(at_most(absolute(x), fill<f32xn>(kOne)));
  return {fast_tanh(magnitude.low), fast_tanh(magnitude.high)};
}

inline RoundedGate fast_tanh(f32xn x) { return round_odd_gate(fast_tanh_magnitude(x), x); }

/// factor * tanh(x), for a factor that is not negative.
inline RoundedGate fast_scaled_tanh(f32xn factor, f32xn x) {
  const Wide<f64xn> magnitude = fast_tanh_magnitude(x);
  const Wide<f64xn> factors = widen(factor);
  return round_odd_gate({factors.low * magnitude.low, factors.high * magnitude.high}, x);
}

/// The same for one element by the library: rounded once, from double.
inline float tanh_by_library(float x) { return static_cast<float>(std::tanh(static_cast<double>(x))); }
inline float scaled_tanh_by_library(float factor, float x) {
  return static_cast<float>(static_cast<double>(factor) * std::tanh(static_cast<double>(x)));
}

/// Stores the gates of one vector. `exact` gives that of one lane.
template <class Exact>
inline void store_gates(const RoundedGate &gates, float *to, Exact exact) {
  if (all(gates.known)) [[likely]] {
    store(to, gates.value);
    return;
  }
  float results[kLanes<f32xn>];
  for (int lane = 0; lane < kLanes<f32xn>; ++lane) results[lane] = exact(lane);
  store(to, load<f32xn>(results));
}

/// x[i] = sigmoid(x[i]).
inline void logistic_run(float *x, uint32_t count) {
  for (; count >= kLanes<f32xn>; count -= kLanes<f32xn>, x += kLanes<f32xn>) {
    store_gates(fast_logistic(load<f32xn>(x)), x, [=](int lane) { return sigmoid(x[lane]); });
  }
  for (uint32_t i = 0; i < count; ++i) x[i] = sigmoid(x[i]);
}

/// x[i] = tanh(x[i]).
inline void tanh_run(float *x, uint32_t count) {
  for (; count >= kLanes<f32xn>; count -= kLanes<f32xn>, x += kLanes<f32xn>) {
    store_gates(fast_tanh(load<f32xn>(x)), x, [=](int lane) { return tanh_by_library(x[lane]); });
  }
  for (uint32_t i = 0; i < count; ++i) x[i] = tanh_by_library(x[i]);
}

/// to[i] = factors[i] * tanh(x[i]), the product in double. The factors are outputs of logistic_run(). x and `to` may stand at any
/// address.
inline void scaled_tanh_run(const float *factors, const float *x, float *to, uint32_t count) {
  const auto exact = [=](uint32_t i) { return scaled_tanh_by_library(factors[i], load<float>(x + i)); };
  uint32_t i = 0;
  for (; i + kLanes<f32xn> <= count; i += kLanes<f32xn>) {
    store_gates(fast_scaled_tanh(load<f32xn>(factors + i), load<f32xn>(x + i)), to + i,
                [=](int lane) { return exact(i + static_cast<uint32_t>(lane)); });
  }
  for (; i < count; ++i) store(to + i, exact(i));
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_LSTM_GATES_H
