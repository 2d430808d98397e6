/// \file layernorm_runs.h
/// Layer normalisation of runs that follow one another, in double: the mean, the variance and the normalised values, several runs
/// side by side or one alone. The order of the operations within a run is the same everywhere.
#ifndef TARVU_ACTIVATION_LAYERNORM_RUNS_H
#define TARVU_ACTIVATION_LAYERNORM_RUNS_H

#include <bit>
#include <cmath>

#include "activation/layernorm_block.h"
#include "simd/integer_sum.h"
#include "simd/run_lanes.h"

namespace tarvu {

/// What the runs of a call share.
struct LayernormRuns {
  size_t length;  ///< elements of a run
  double eps;
  LearnedArray gamma;
  LearnedArray beta;
  float in_multiplier;   ///< of integer elements
  float out_multiplier;  ///< of integer elements
};

/// acc + d * d, rounded once.
template <class D>
inline D add_square(D acc, D d) {
  return fused_multiply_add(d, d, acc);
}

inline double inverse_deviation(double square_sum, const LayernormRuns &runs) {
  return 1.0 / std::sqrt(square_sum / static_cast<double>(runs.length) + runs.eps);
}

/// y * gamma + beta, rounded twice. An absent gamma stands as 1, an absent beta as -0: neither changes a float.
template <class V>
inline V scale_and_shift(V y, V gamma, V beta) {
  const V scaled = y * gamma;
  return scaled + beta;
}

/// One element of a run as the result in float.
inline float normalised(double x, double mean, double inverse, size_t i, const LayernormRuns &runs) {
  const auto y = static_cast<float>((x - mean) * inverse);
  return scale_and_shift(y, runs.gamma.present ? runs.gamma.value(i) : 1.0f,
                         runs.beta.present ? runs.beta.value(i) : -0.0f);
}

/// One run of floats. `out` may be `x`.
inline void normalise_one(const float *x, float *out, const LayernormRuns &runs) {
  double sum = 0.0;
  for (size_t i = 0; i < runs.length; ++i) sum = sum + static_cast<double>(load<float>(x + i));
  const double mean = sum / static_cast<double>(runs.length);
  double square_sum = 0.0;
  for (size_t i = 0; i < runs.length; ++i) {
    square_sum = add_square(square_sum, static_cast<double>(load<float>(x + i)) - mean);
  }
  const double inverse = inverse_deviation(square_sum, runs);
  TARVU_INDEPENDENT_ITERATIONS
  for (size_t i = 0; i < runs.length; ++i) {
    store(out + i, normalised(static_cast<double>(load<float>(x + i)), mean, inverse, i, runs));
  }
}

/// Statistics of `chains` times kRunLanes runs, run by run.
template <int chains>
struct RunStatistics {
  f64xn mean[chains];
  f64xn inverse[chains];
};

/// Whether products of elements of T with a multiplier are exact in float.
template <class T>
inline bool products_are_exact(float multiplier) {
  return (std::bit_cast<uint32_t>(multiplier) & ((1u << (8 * sizeof(T))) - 1)) == 0;
}

/// Calls action(chain, x, i) for the turns of all runs in order, with x the vectors of the turn from element i on of the chain's
/// runs, and then action_on_rest(run, i) for the elements behind the last turn.
template <class T, int chains, class Action, class ActionOnRest>
inline void for_each_turn(const T *first, const LayernormRuns &runs, Action action, ActionOnRest action_on_rest) {
  const size_t length = runs.length;
  size_t i = 0;
  for (; i + kTurn <= length; i += kTurn) {
    for (int chain = 0; chain < chains; ++chain) {
      f32xn x[kTurnVectors];
      load_turn<T>([=](int lane) { return first + static_cast<size_t>(chain * kRunLanes + lane) * length + i; },
                   runs.in_multiplier, x);
      action(chain, x, i);
    }
  }
  for (; i < length; ++i) {
    for (int run = 0; run < chains * kRunLanes; ++run) action_on_rest(run, i);
  }
}

/// Mean and inverse deviation of runs side by side. `tile`, if T is an integer, takes the deviations of all whole turns.
template <class T, int chains>
inline RunStatistics<chains> statistics_of(const T *first, const LayernormRuns &runs, double *tile) {
  const auto element = [=](int run, size_t i) {
    return static_cast<double>(load_as_float(first + static_cast<size_t>(run) * runs.length + i, runs.in_multiplier));
  };
  RunStatistics<chains> statistics{};
  f64xn *const mean = statistics.mean;
  bool summed = false;
  if constexpr (!std::is_same_v<T, float>) {
    // All partial sums are exact in double, so the sum of the integers gives the same.
    summed = runs.length <= kLongestIntegerSum && products_are_exact<T>(runs.in_multiplier);
    for (int run = 0; summed && run < chains * kRunLanes; ++run) {
      const int32_t sum = sum_of_integers(first + static_cast<size_t>(run) * runs.length, runs.length);
      mean[run / kRunLanes][run % kRunLanes] = 0.0 + static_cast<double>(sum) * static_cast<double>(runs.in_multiplier);
    }
  }
  if (!summed) {
    for_each_turn<T, chains>(
        first, runs,
        [&](int chain, const f32xn(&x)[kTurnVectors], size_t) {
          for (const f32xn &pair : x) {
            mean[chain] = mean[chain] + widen_low(pair);
            mean[chain] = mean[chain] + widen_high(pair);
          }
        },
        [&](int run, size_t i) { mean[run / kRunLanes][run % kRunLanes] += element(run, i); });
  }
  for (int chain = 0; chain < chains; ++chain) mean[chain] = mean[chain] / fill<f64xn>(static_cast<double>(runs.length));

  f64xn *const square_sum = statistics.inverse;
  for_each_turn<T, chains>(
      first, runs,
      [&](int chain, const f32xn(&x)[kTurnVectors], size_t i) {
        double *to = tile + (i * chains + static_cast<size_t>(chain) * kTurn) * kRunLanes;
        for (const f32xn &pair : x) {
          const f64xn low = widen_low(pair) - mean[chain];
          const f64xn high = widen_high(pair) - mean[chain];
          square_sum[chain] = add_square(square_sum[chain], low);
          square_sum[chain] = add_square(square_sum[chain], high);
          if constexpr (!std::is_same_v<T, float>) {
            store(to, low);
            store(to + kRunLanes, high);
            to += 2 * kRunLanes;
          }
        }
      },
      [&](int run, size_t i) {
        const int chain = run / kRunLanes;
        const int lane = run % kRunLanes;
        square_sum[chain][lane] = add_square(square_sum[chain][lane], element(run, i) - mean[chain][lane]);
      });
  for (int run = 0; run < chains * kRunLanes; ++run) {
    const int chain = run / kRunLanes;
    const int lane = run % kRunLanes;
    statistics.inverse[chain][lane] = inverse_deviation(square_sum[chain][lane], runs);
  }
  return statistics;
}

/// `chains` times kRunLanes runs from `first` on. For integers `tile` holds one double for each element of the runs, and `out` may
/// be `first` if the elements have the same size; so it may for floats, which use no tile.
template <class In, class Out, int chains>
void normalise_side_by_side(const In *first, Out *out, double *tile, const LayernormRuns &runs) {
  const size_t length = runs.length;
  const RunStatistics<chains> statistics = statistics_of<In, chains>(first, runs, tile);
  size_t i = 0;
  for (; i + kTurn <= length; i += kTurn) {
    f32xn gamma[kTurnVectors];
    f32xn beta[kTurnVectors];
    for (int v = 0; v < kTurnVectors; ++v) {
      gamma[v] = runs.gamma.present ? spread_pair(runs.gamma.values + i + 2 * v) : fill<f32xn>(1.0f);
      beta[v] = runs.beta.present ? spread_pair(runs.beta.values + i + 2 * v) : fill<f32xn>(-0.0f);
    }
    for (int chain = 0; chain < chains; ++chain) {
      const auto run_of = [=](int lane) { return static_cast<size_t>(chain * kRunLanes + lane) * length + i; };
      const f64xn mean = statistics.mean[chain];
      const f64xn inverse = statistics.inverse[chain];
      f32xn y[kTurnVectors];
      if constexpr (std::is_same_v<In, float>) {
        load_turn<float>([=](int lane) { return first + run_of(lane); }, 1.0f, y);
        for (f32xn &pair : y) pair = narrow((widen_low(pair) - mean) * inverse, (widen_high(pair) - mean) * inverse);
      } else {
        const double *from = tile + (i * chains + static_cast<size_t>(chain) * kTurn) * kRunLanes;
        for (f32xn &pair : y) {
          pair = narrow(load<f64xn>(from) * inverse, load<f64xn>(from + kRunLanes) * inverse);
          from += 2 * kRunLanes;
        }
      }
      for (int v = 0; v < kTurnVectors; ++v) y[v] = scale_and_shift(y[v], gamma[v], beta[v]);
      store_turn<Out>(y, runs.out_multiplier, [=](int lane) { return out + run_of(lane); });
    }
  }
  for (; i < length; ++i) {
    for (int run = 0; run < chains * kRunLanes; ++run) {
      const size_t at = static_cast<size_t>(run) * length + i;
      const auto x = static_cast<double>(load_as_float(first + at, runs.in_multiplier));
      const int chain = run / kRunLanes;
      const int lane = run % kRunLanes;
      const float y = normalised(x, statistics.mean[chain][lane], statistics.inverse[chain][lane], i, runs);
      store_rounded(y, runs.out_multiplier, out + at);
    }
  }
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_LAYERNORM_RUNS_H
