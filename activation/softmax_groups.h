/// \file softmax_groups.h
/// Softmax of floats over the groups of elements along an axis: rows of neighbours, and columns whose elements lie a step
/// apart. Every function may write over its input.
#ifndef TARVU_ACTIVATION_SOFTMAX_GROUPS_H
#define TARVU_ACTIVATION_SOFTMAX_GROUPS_H

#include <cstddef>

#include "simd/softmax_lanes.h"

namespace tarvu {

constexpr float kMaximumSeed = -10000000.0f;
static_assert(std::bit_cast<uint32_t>(kMaximumSeed) == 0xCB189680);
constexpr float kLeastDifference = -87.0f;  // below it the exponent field would reach 0
static_assert(std::bit_cast<uint32_t>(kLeastDifference) == 0xC2AE0000);

/// The exponential of the distance to the group's maximum. NaN passes the clamp.
template <class V>
inline V exponential_step(V x, V maximum) {
  const V difference = x - maximum;
  return fast_exp_of_difference(larger(difference, fill<V>(kLeastDifference)));
}

/// The largest of a row and of the seed, in any order: a maximum does not depend on it.
inline float maximum_of_row(const float *in, uint32_t length) {
  f32xn largest = fill<f32xn>(kMaximumSeed);
  uint32_t i = 0;
  for (; i + kRowBlock <= length; i += kRowBlock) {
    f32xn block[kRowBlockParts];
    for (uint32_t k = 0; k < kRowBlockParts; ++k) block[k] = load<f32xn>(in + i + kLanes<f32xn> * k);
    for (uint32_t half = kRowBlockParts / 2; half != 0; half /= 2) {
      for (uint32_t k = 0; k < half; ++k) block[k] = larger_or_nan(block[k], block[k + half]);
    }
    largest = larger_or_nan(largest, block[0]);
  }
  f32x4 of_fours = fill<f32x4>(kMaximumSeed);
  for (; i + 4 <= length; i += 4) of_fours = larger_or_nan(of_fours, load<f32x4>(in + i));
  float maximum = larger(largest_lane(largest), largest_lane(of_fours));
  for (; i < length; ++i) maximum = larger(maximum, load<float>(in + i));
  return maximum;
}

/// The exponentials of rows that follow one another, and the reciprocals of their sums. A sum has one accumulator of four lanes:
/// its chains of additions go side by side.
template <int kRows>
inline void exponentials_of_rows(const float *in, float *out, uint32_t length, const float (&maximum)[kRows],
                                 float (&reciprocal)[kRows]) {
  f32x4 lanes[kRows] = {};
  uint32_t i = 0;
  for (; i + kRowBlock <= length; i += kRowBlock) {
    for (int row = 0; row < kRows; ++row) {
      const size_t at = size_t{length} * row + i;
      RowBlock block = load_row_block(in + at);
      for (f32xn &part : block.part) part = exponential_step(part, fill<f32xn>(maximum[row]));
      lanes[row] = add_row_block(lanes[row], block);
      store_row_block(block, out + at);
    }
  }
  for (; i + 4 <= length; i += 4) {
    for (int row = 0; row < kRows; ++row) {
      const size_t at = size_t{length} * row + i;
      const f32x4 e = exponential_step(load<f32x4>(in + at), fill<f32x4>(maximum[row]));
      lanes[row] = lanes[row] + e;
      store(out + at, e);
    }
  }
  float sum[kRows];
  for (int row = 0; row < kRows; ++row) {
    sum[row] = 0.0f;
    for (int k = 0; k < 4; ++k) sum[row] = sum[row] + lanes[row][k];
  }
  for (; i < length; ++i) {
    for (int row = 0; row < kRows; ++row) {
      const size_t at = size_t{length} * row + i;
      const float e = exponential_step(load<float>(in + at), maximum[row]);
      sum[row] = sum[row] + e;
      store(out + at, e);
    }
  }
  for (int row = 0; row < kRows; ++row) reciprocal[row] = 1.0f / sum[row];
}

inline void multiply_row(float *row, uint32_t length, float factor) {
  uint32_t i = 0;
  for (; i + kRowBlock <= length; i += kRowBlock) {
    for (uint32_t k = i; k < i + kRowBlock; k += kLanes<f32xn>) store(row + k, load<f32xn>(row + k) * fill<f32xn>(factor));
  }
  for (; i + 4 <= length; i += 4) store(row + i, load<f32x4>(row + i) * fill<f32x4>(factor));
  for (; i < length; ++i) store(row + i, load<float>(row + i) * factor);
}

template <int kRows>
inline void softmax_of_rows_together(const float *in, float *out, uint32_t length) {
  float maximum[kRows];
  float reciprocal[kRows];
  for (int row = 0; row < kRows; ++row) maximum[row] = maximum_of_row(in + size_t{length} * row, length);
  exponentials_of_rows(in, out, length, maximum, reciprocal);
  for (int row = 0; row < kRows; ++row) multiply_row(out + size_t{length} * row, length, reciprocal[row]);
}

/// `rows` groups of `length` neighbours, one behind the other.
inline void softmax_of_rows(const float *in, float *out, uint32_t rows, uint32_t length) {
  if (length == 0) return;
  constexpr int kTogether = 2;
  for (; rows >= kTogether; rows -= kTogether) {
    softmax_of_rows_together<kTogether>(in, out, length);
    in += size_t{kTogether} * length;
    out += size_t{kTogether} * length;
  }
  if (rows != 0) softmax_of_rows_together<1>(in, out, length);
}

/// Neighbouring columns in `kVectors` vectors (or single floats). Each has its own maximum, sum (in the order of the axis) and
/// reciprocal, so nothing depends on how many go together.
template <class V, int kVectors>
inline void softmax_of_columns_together(const float *in, size_t in_step, float *out, size_t out_step, uint32_t length) {
  V maximum[kVectors];
  V sum[kVectors];
  for (int k = 0; k < kVectors; ++k) {
    maximum[k] = fill<V>(kMaximumSeed);
    sum[k] = V{};
  }
  const float *from = in;
  for (uint32_t i = 0; i < length; ++i, from += in_step) {
    for (int k = 0; k < kVectors; ++k) maximum[k] = larger_or_nan(maximum[k], load<V>(from + kLanes<V> * k));
  }
  from = in;
  float *to = out;
  for (uint32_t i = 0; i < length; ++i, from += in_step, to += out_step) {
    V e[kVectors];
    for (int k = 0; k < kVectors; ++k) e[k] = exponential_step(load<V>(from + kLanes<V> * k), maximum[k]);
    for (int k = 0; k < kVectors; ++k) {
      sum[k] = sum[k] + e[k];
      store(to + kLanes<V> * k, e[k]);
    }
  }
  for (int k = 0; k < kVectors; ++k) sum[k] = fill<V>(1.0f) / sum[k];
  to = out;
  for (uint32_t i = 0; i < length; ++i, to += out_step) {
    for (int k = 0; k < kVectors; ++k) store(to + kLanes<V> * k, load<V>(to + kLanes<V> * k) * sum[k]);
  }
}

/// `columns` groups of `length` elements that lie a step apart.
inline void softmax_of_columns(const float *in, size_t in_step, float *out, size_t out_step, uint32_t length, uint32_t columns) {
  if (length == 0) return;
  constexpr int kWide = 16;
  uint32_t i = 0;
  for (; columns - i >= kWide; i += kWide) {
    softmax_of_columns_together<f32xn, kWide / kLanes<f32xn>>(in + i, in_step, out + i, out_step, length);
  }
  for (; columns - i >= 4; i += 4) softmax_of_columns_together<f32x4, 1>(in + i, in_step, out + i, out_step, length);
  for (; i < columns; ++i) softmax_of_columns_together<float, 1>(in + i, in_step, out + i, out_step, length);
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_SOFTMAX_GROUPS_H
