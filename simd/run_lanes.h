/// \file run_lanes.h
/// Runs side by side, one in each lane of doubles: a sum whose order is fixed within each run then costs no more than one whose
/// order is free.
#ifndef TARVU_SIMD_RUN_LANES_H
#define TARVU_SIMD_RUN_LANES_H

#include "simd/blocks.h"
#include "simd/doubles.h"

namespace tarvu {

inline constexpr int kRunLanes = kLanes<f64xn>;
static_assert(kLanes<f32xn> == 2 * kRunLanes);

/// Elements of each run that are taken in a turn, and the vectors of floats that they fill: vector v holds element 2v of every
/// run and then element 2v + 1 of every run.
inline constexpr uint32_t kTurn = 8;
inline constexpr int kTurnVectors = kTurn / 2;

/// Elements 2v and 2v + 1 of an array, each in the lanes of every run.
inline f32xn spread_pair(const float *pair) {
  const auto first = load<float>(pair);
  const auto second = load<float>(pair + 1);
  if constexpr (kRunLanes == 2) {
    return f32xn{first, first, second, second};
  } else {
#if TARVU_AVX2
    return f32xn(_mm256_set_m128(_mm_set1_ps(second), _mm_set1_ps(first)));
#endif
  }
}

/// out: a0 b0 a1 b1 ... of sequences of `count` vectors.
template <class Lanes, int count>
inline void interleave(const Lanes (&a)[count], const Lanes (&b)[count], Lanes (&out)[2 * count]) {
  for (int k = 0; k < count; ++k) {
    out[2 * k] = zip_low(a[k], b[k]);
    out[2 * k + 1] = zip_high(a[k], b[k]);
  }
}

/// Undoes interleave().
template <class Lanes, int count>
inline void separate(const Lanes (&in)[2 * count], Lanes (&a)[count], Lanes (&b)[count]) {
  for (int k = 0; k < count; ++k) {
    a[k] = unzip_even(in[2 * k], in[2 * k + 1]);
    b[k] = unzip_odd(in[2 * k], in[2 * k + 1]);
  }
}

/// The vectors of bytes, halves or words that hold a turn of all runs, and of one run if that is a whole vector at least.
template <class T>
using TurnLanes = std::conditional_t<sizeof(T) == 1, u8x16, std::conditional_t<sizeof(T) == 2, u16x8, u32x4>>;
template <class T>
inline constexpr int kTurnParts = static_cast<int>(kTurn *kRunLanes * sizeof(T) / 16);
template <class T>
inline constexpr int kRunParts = static_cast<int>(kTurn * sizeof(T) / 16);

/// A turn of all runs interleaved by element: `at(lane)` is the address of a run.
template <class T, class At>
inline void load_interleaved(At at, TurnLanes<T> (&turn)[kTurnParts<T>]) {
  using Lanes = TurnLanes<T>;
  if constexpr (sizeof(T) == 1) {
    const auto half = [&](int lane) { return u8x16(u64x2{load<uint64_t>(at(lane)), 0}); };
    if constexpr (kRunLanes == 2) {
      turn[0] = zip_low(half(0), half(1));
    } else {
      const u8x16 even[1] = {zip_low(half(0), half(2))};
      const u8x16 odd[1] = {zip_low(half(1), half(3))};
      interleave(even, odd, turn);
    }
  } else {
    Lanes runs[kRunLanes][kRunParts<T>];
    for (int lane = 0; lane < kRunLanes; ++lane) {
      for (int k = 0; k < kRunParts<T>; ++k) runs[lane][k] = load<Lanes>(at(lane) + k * kLanes<Lanes>);
    }
    if constexpr (kRunLanes == 2) {
      interleave(runs[0], runs[1], turn);
    } else {
      Lanes even[2 * kRunParts<T>], odd[2 * kRunParts<T>];
      interleave(runs[0], runs[2], even);
      interleave(runs[1], runs[3], odd);
      interleave(even, odd, turn);
    }
  }
}

/// Stores a turn of all runs that is interleaved by element.
template <class T, class At>
inline void store_separated(const TurnLanes<T> (&turn)[kTurnParts<T>], At at) {
  using Lanes = TurnLanes<T>;
  if constexpr (sizeof(T) == 1) {
    if constexpr (kRunLanes == 2) {
      store(at(0), u64x2(unzip_even(turn[0], turn[0]))[0]);
      store(at(1), u64x2(unzip_odd(turn[0], turn[0]))[0]);
    } else {
      // Four elements of each run together, and then eight.
      u32x4 fours[2];
      for (int k = 0; k < 2; ++k) {
        fours[k] = u32x4(take_lanes<0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15>(turn[k], turn[k]));
      }
      const auto first = u64x2(zip_low(fours[0], fours[1]));
      const auto last = u64x2(zip_high(fours[0], fours[1]));
      for (int k = 0; k < 2; ++k) {
        store(at(k), first[k]);
        store(at(k + 2), last[k]);
      }
    }
  } else {
    Lanes runs[kRunLanes][kRunParts<T>];
    if constexpr (kRunLanes == 2) {
      separate(turn, runs[0], runs[1]);
    } else {
      Lanes even[2 * kRunParts<T>], odd[2 * kRunParts<T>];
      separate(turn, even, odd);
      separate(even, runs[0], runs[2]);
      separate(odd, runs[1], runs[3]);
    }
    for (int lane = 0; lane < kRunLanes; ++lane) {
      for (int k = 0; k < kRunParts<T>; ++k) store(at(lane) + k * kLanes<Lanes>, runs[lane][k]);
    }
  }
}

/// A turn of all runs as floats, integers times `multiplier`. `at(lane)` is the address of a run.
template <class T, class At>
inline void load_turn(At at, float multiplier, f32xn (&floats)[kTurnVectors]) {
  TurnLanes<T> turn[kTurnParts<T>];
  load_interleaved<T>(at, turn);
  for (int k = 0; k < kTurnVectors; k += kBlockVectors) {
    const FloatBlock block = load_as_floats(reinterpret_cast<const T *>(turn) + k * kLanes<f32xn>, multiplier);
    for (int j = 0; j < kBlockVectors; ++j) floats[k + j] = block.of[j];
  }
}

/// Stores a turn of all runs: integers as x times `multiplier`, saturated, to nearest with ties away from 0, NaN as 0; floats as
/// they are.
template <class T, class At>
inline void store_turn(const f32xn (&floats)[kTurnVectors], float multiplier, At at) {
  TurnLanes<T> turn[kTurnParts<T>];
  for (int k = 0; k < kTurnVectors; k += kBlockVectors) {
    FloatBlock block;
    for (int j = 0; j < kBlockVectors; ++j) block.of[j] = floats[k + j];
    store_rounded(block, multiplier, reinterpret_cast<T *>(turn) + k * kLanes<f32xn>);
  }
  store_separated<T>(turn, at);
}

}  // namespace tarvu

#endif  // TARVU_SIMD_RUN_LANES_H
