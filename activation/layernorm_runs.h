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

inline double inverse_deviation(double square_sum, size_t length, double eps) {
  return 1.0 / std::sqrt(square_sum / static_cast<double>(length) + eps);
}

/// y * gamma + beta, rounded twice. An absent gamma stands as 1, an absent beta as -0: neither changes a float.
template <class V>
inline V scale_and_shift(V y, V gamma, V beta) {
  const V scaled = y * gamma;
  return scaled + beta;
}

/// The result in float of element i of a run.
inline float normalised(double deviation, double inverse, size_t i, const LayernormRuns &runs) {
  const auto y = static_cast<float>(deviation * inverse);
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
  const double inverse = inverse_deviation(square_sum, runs.length, runs.eps);
  TARVU_INDEPENDENT_ITERATIONS
  for (size_t i = 0; i < runs.length; ++i) {
    store(out + i, normalised(static_cast<double>(load<float>(x + i)) - mean, inverse, i, runs));
  }
}

/// Runs that follow one another and are worked on side by side, kRunLanes in each of several chains: run r is lane r % kRunLanes
/// of chain r / kRunLanes.
template <class T>
struct RunSource {
  const T *first;
  size_t length;
  float multiplier;  ///< of integer elements

  /// Elements i to i + kTurn - 1 of all runs of a chain.
  void load_turn_of(int chain, size_t i, f32xn (&x)[kTurnVectors]) const {
    load_turn<T>([&](int lane) { return address(chain * kRunLanes + lane, i); }, multiplier, x);
  }
  double element(int run, size_t i) const { return static_cast<double>(load_as_float(address(run, i), multiplier)); }
  const T *address(int run, size_t i) const { return first + static_cast<size_t>(run) * length + i; }
};

template <int chains>
struct RunStatistics {
  f64xn mean[chains];
  f64xn inverse[chains];  ///< 1 / sqrt(variance + eps)
};

/// Whether products of elements of T with a multiplier are exact in float: the multiplier ends in as many zeros as an element has
/// bits, and no product is infinite.
template <class T>
inline bool products_are_exact(float multiplier) {
  constexpr uint32_t kBeyondElements = 1u << (8 * sizeof(T));
  return (std::bit_cast<uint32_t>(multiplier) & (kBeyondElements - 1)) == 0 &&
         std::isfinite(multiplier * static_cast<float>(kBeyondElements));
}

/// The sum of each run in index order.
template <class T, int chains>
void sum_runs(const RunSource<T> &source_of, f64xn (&result)[chains]) {
  const RunSource<T> source = source_of;
  if constexpr (!std::is_same_v<T, float>) {
    if (source.length <= kLongestIntegerSum && products_are_exact<T>(source.multiplier)) {
      // No partial sum is rounded, so the sum of the integers gives the same.
      for (int run = 0; run < chains * kRunLanes; ++run) {
        const int32_t sum = sum_of_integers(source.address(run, 0), source.length);
        result[run / kRunLanes][run % kRunLanes] =
            0.0 + static_cast<double>(sum) * static_cast<double>(source.multiplier);
      }
      return;
    }
  }
  f64xn sums[chains] = {};
  size_t i = 0;
  for (; i + kTurn <= source.length; i += kTurn) {
    for (int chain = 0; chain < chains; ++chain) {
      f32xn x[kTurnVectors];
      source.load_turn_of(chain, i, x);
      for (const f32xn &pair : x) {
        sums[chain] = sums[chain] + widen_low(pair);
        sums[chain] = sums[chain] + widen_high(pair);
      }
    }
  }
  for (int run = 0; run < chains * kRunLanes; ++run) {
    double sum = sums[run / kRunLanes][run % kRunLanes];
    for (size_t k = i; k < source.length; ++k) sum = sum + source.element(run, k);
    result[run / kRunLanes][run % kRunLanes] = sum;
  }
}

/// The sums of the squared deviations from `means`. For integers `tile` takes the deviations: of whole turns chain by chain,
/// interleaved by run, and behind them element by element.
template <class T, int chains>
void sum_squares(const RunSource<T> &source_of, const f64xn (&means)[chains], double *tile, f64xn (&result)[chains]) {
  const RunSource<T> source = source_of;
  f64xn mean[chains];
  f64xn sums[chains] = {};
  for (int chain = 0; chain < chains; ++chain) mean[chain] = means[chain];
  size_t i = 0;
  for (; i + kTurn <= source.length; i += kTurn) {
    for (int chain = 0; chain < chains; ++chain) {
      f32xn x[kTurnVectors];
      source.load_turn_of(chain, i, x);
      for (const f32xn &pair : x) {
        const f64xn low = widen_low(pair) - mean[chain];
        const f64xn high = widen_high(pair) - mean[chain];
        sums[chain] = add_square(sums[chain], low);
        sums[chain] = add_square(sums[chain], high);
        if constexpr (!std::is_same_v<T, float>) {
          store(tile, low);
          store(tile + kRunLanes, high);
          tile += 2 * kRunLanes;
        }
      }
    }
  }
  for (int chain = 0; chain < chains; ++chain) result[chain] = sums[chain];
  for (; i < source.length; ++i) {
    for (int run = 0; run < chains * kRunLanes; ++run) {
      const int chain = run / kRunLanes;
      const int lane = run % kRunLanes;
      const double deviation = source.element(run, i) - mean[chain][lane];
      result[chain][lane] = add_square(result[chain][lane], deviation);
      if constexpr (!std::is_same_v<T, float>) store(tile++, deviation);
    }
  }
}

template <class T, int chains>
RunStatistics<chains> statistics_of(const RunSource<T> &source, double eps, double *tile) {
  RunStatistics<chains> statistics;
  sum_runs(source, statistics.mean);
  for (f64xn &mean : statistics.mean) mean = mean / fill<f64xn>(static_cast<double>(source.length));
  sum_squares(source, statistics.mean, tile, statistics.inverse);
  for (f64xn &inverse : statistics.inverse) {
    for (int lane = 0; lane < kRunLanes; ++lane) inverse[lane] = inverse_deviation(inverse[lane], source.length, eps);
  }
  return statistics;
}

/// Gamma and beta for a turn.
struct LearnedTurn {
  f32xn gamma[kTurnVectors];
  f32xn beta[kTurnVectors];

  LearnedTurn(const LayernormRuns &runs, size_t i) {
    for (int v = 0; v < kTurnVectors; ++v) {
      gamma[v] = runs.gamma.present ? spread_pair(runs.gamma.values + i + 2 * v) : fill<f32xn>(1.0f);
      beta[v] = runs.beta.present ? spread_pair(runs.beta.values + i + 2 * v) : fill<f32xn>(-0.0f);
    }
  }
};

/// The results of runs from the tile of their deviations.
template <class Out, int chains>
void normalise_tile(const double *tile, Out *out, const f64xn (&inverses)[chains], const LayernormRuns &runs_of) {
  const LayernormRuns runs = runs_of;
  f64xn inverse[chains];
  for (int chain = 0; chain < chains; ++chain) inverse[chain] = inverses[chain];
  size_t i = 0;
  for (; i + kTurn <= runs.length; i += kTurn) {
    const LearnedTurn learned(runs, i);
    for (int chain = 0; chain < chains; ++chain) {
      f32xn y[kTurnVectors];
      for (int v = 0; v < kTurnVectors; ++v, tile += 2 * kRunLanes) {
        const f32xn normalised =
            narrow(load<f64xn>(tile) * inverse[chain], load<f64xn>(tile + kRunLanes) * inverse[chain]);
        y[v] = scale_and_shift(normalised, learned.gamma[v], learned.beta[v]);
      }
      store_turn<Out>(y, runs.out_multiplier,
                      [=](int lane) { return out + static_cast<size_t>(chain * kRunLanes + lane) * runs.length + i; });
    }
  }
  for (; i < runs.length; ++i) {
    for (int run = 0; run < chains * kRunLanes; ++run, ++tile) {
      const float y = normalised(load<double>(tile), inverse[run / kRunLanes][run % kRunLanes], i, runs);
      store_rounded(y, runs.out_multiplier, out + static_cast<size_t>(run) * runs.length + i);
    }
  }
}

/// `chains` times kRunLanes runs of integers. `tile` holds one double for each of their elements. `out` may be `first` if the
/// elements have the same size.
template <class In, class Out, int chains>
void normalise_integers_side_by_side(const In *first, Out *out, double *tile, const LayernormRuns &runs) {
  const RunSource<In> source{first, runs.length, runs.in_multiplier};
  const RunStatistics<chains> statistics = statistics_of<In, chains>(source, runs.eps, tile);
  normalise_tile<Out, chains>(tile, out, statistics.inverse, runs);
}

/// `chains` times kRunLanes runs of floats. `out` may be `first`.
template <int chains>
void normalise_floats_side_by_side(const float *first, float *out, const LayernormRuns &runs) {
  const RunSource<float> source{first, runs.length, 1.0f};
  const RunStatistics<chains> statistics = statistics_of<float, chains>(source, runs.eps, nullptr);
  size_t i = 0;
  for (; i + kTurn <= runs.length; i += kTurn) {
    const LearnedTurn learned(runs, i);
    for (int chain = 0; chain < chains; ++chain) {
      const f64xn mean = statistics.mean[chain];
      const f64xn inverse = statistics.inverse[chain];
      f32xn y[kTurnVectors];
      source.load_turn_of(chain, i, y);
      for (int v = 0; v < kTurnVectors; ++v) {
        const f32xn normalised = narrow((widen_low(y[v]) - mean) * inverse, (widen_high(y[v]) - mean) * inverse);
        y[v] = scale_and_shift(normalised, learned.gamma[v], learned.beta[v]);
      }
      store_turn<float>(
          y, 1.0f, [=](int lane) { return out + static_cast<size_t>(chain * kRunLanes + lane) * runs.length + i; });
    }
  }
  for (; i < runs.length; ++i) {
    for (int run = 0; run < chains * kRunLanes; ++run) {
      const int chain = run / kRunLanes;
      const int lane = run % kRunLanes;
      const double deviation = source.element(run, i) - statistics.mean[chain][lane];
      store(out + static_cast<size_t>(run) * runs.length + i,
            normalised(deviation, statistics.inverse[chain][lane], i, runs));
    }
  }
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_LAYERNORM_RUNS_H
