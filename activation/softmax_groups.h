/// \file softmax_groups.h
/// Softmax of floats over the groups of elements along an axis: rows of neighbours, and columns whose elements lie a
/// step apart. Every function may write over its input.
#ifndef TARVU_ACTIVATION_SOFTMAX_GROUPS_H
#define TARVU_ACTIVATION_SOFTMAX_GROUPS_H

#include <cstddef>
#include <type_traits>

#include "simd/blocks.h"
#include "simd/fast_exp.h"

namespace tarvu {

constexpr float kMaximumSeed = -10000000.0f;
static_assert(std::bit_cast<uint32_t>(kMaximumSeed) == 0xCB189680);
constexpr float kLeastDifference = -87.0f;  // below it the exponent field would reach 0
static_assert(std::bit_cast<uint32_t>(kLeastDifference) == 0xC2AE0000);

/// The exponential of the distance to the group's maximum. NaN passes the clamp.
template <class V>
inline V exponential_step(V x, V largest) {
  const V difference = x - largest;
  return fast_exp_of_difference(at_least(difference, fill<V>(kLeastDifference)));
}

/// The largest of each lane's share of a block.
inline f32xn largest_in_block(const float *from) {
  FloatBlock x = load_floats(from);
  for (int half = kBlockVectors / 2; half != 0; half /= 2) {
    for (int k = 0; k < half; ++k) x.of[k] = maximum(x.of[k], x.of[k + half]);
  }
  return x.of[0];
}

/// The largest elements of rows that follow one another, and of the seed; the order does not matter to a maximum.
template <size_t kRows>
inline void maxima_of_rows(const float *in, size_t length, float (&largest)[kRows]) {
  f32xn blocks[kRows];
  for (f32xn &x : blocks) x = fill<f32xn>(kMaximumSeed);
  size_t rest = length;
  for (; rest >= kBlockElements; rest -= kBlockElements, in += kBlockElements) {
    for (size_t row = 0; row < kRows; ++row) blocks[row] = maximum(blocks[row], largest_in_block(in + length * row));
  }
  f32x4 lanes[kRows];
  for (size_t row = 0; row < kRows; ++row) lanes[row] = largest_of_fours(blocks[row]);
  for (; rest >= 4; rest -= 4, in += 4) {
    for (size_t row = 0; row < kRows; ++row) lanes[row] = maximum(lanes[row], load<f32x4>(in + length * row));
  }
  for (size_t row = 0; row < kRows; ++row) largest[row] = largest_lane(lanes[row]);
  for (; rest != 0; --rest, ++in) {
    for (size_t row = 0; row < kRows; ++row) largest[row] = maximum(largest[row], load<float>(in + length * row));
  }
}

/// Their exponentials, and the reciprocals of the sums. A sum has one accumulator of four lanes: several rows go side
/// by side so that their chains of additions do.
template <size_t kRows>
inline void exponentials_of_rows(const float *in, float *out, size_t length, const float (&largest)[kRows],
                                 float (&reciprocal)[kRows]) {
  f32x4 lanes[kRows] = {};
  size_t rest = length;
  for (; rest >= kBlockElements; rest -= kBlockElements, in += kBlockElements, out += kBlockElements) {
    for (size_t row = 0; row < kRows; ++row) {
      const auto step = [&](f32xn x) { return exponential_step(x, fill<f32xn>(largest[row])); };
      const RowBlock block = map_row(load_row(in + length * row), step);
      lanes[row] = add_fours(lanes[row], block);
      store_row(block, out + length * row);
    }
  }
  for (; rest >= 4; rest -= 4, in += 4, out += 4) {
    for (size_t row = 0; row < kRows; ++row) {
      const f32x4 e = exponential_step(load<f32x4>(in + length * row), fill<f32x4>(largest[row]));
      lanes[row] = lanes[row] + e;
      store(out + length * row, e);
    }
  }
  float sum[kRows];
  for (size_t row = 0; row < kRows; ++row) {
    // Lane 0 is not negative: it stays what it is when 0.0f is added.
    sum[row] = sum_in_order(lanes[row]);
  }
  for (; rest != 0; --rest, ++in, ++out) {
    for (size_t row = 0; row < kRows; ++row) {
      const float e = exponential_step(load<float>(in + length * row), largest[row]);
      sum[row] = sum[row] + e;
      store(out + length * row, e);
    }
  }
  for (size_t row = 0; row < kRows; ++row) reciprocal[row] = 1.0f / sum[row];
}

inline void multiply_block(float *at, float factor) {
  const FloatBlock x = map_block(load_floats(at), [=](f32xn lanes) { return lanes * fill<f32xn>(factor); });
  for (int k = 0; k < kBlockVectors; ++k) store(at + kLanes<f32xn> * k, x.of[k]);
}

template <size_t kRows>
inline void multiply_rows(float *rows, size_t length, const float (&factor)[kRows]) {
  size_t rest = length;
  for (; rest >= kBlockElements; rest -= kBlockElements, rows += kBlockElements) {
    for (size_t row = 0; row < kRows; ++row) multiply_block(rows + length * row, factor[row]);
  }
  for (; rest >= 4; rest -= 4, rows += 4) {
    for (size_t row = 0; row < kRows; ++row) {
      float *at = rows + length * row;
      store(at, load<f32x4>(at) * fill<f32x4>(factor[row]));
    }
  }
  for (; rest != 0; --rest, ++rows) {
    for (size_t row = 0; row < kRows; ++row) store(rows + length * row, load<float>(rows + length * row) * factor[row]);
  }
}

/// Writes the exponentials of `rows` groups of `length` neighbours, one behind the other; finish(row, reciprocals) then
/// has to multiply those of the rows from `row` on, one or more, by the reciprocals of their sums.
template <class Finish>
inline void exponentials_of_all_rows(const float *in, float *out, uint32_t rows, size_t length, Finish finish) {
  constexpr uint32_t kTogether = 2;
  const auto some_rows = [&](uint32_t row, auto &reciprocal) {
    constexpr size_t kRows = std::extent_v<std::remove_reference_t<decltype(reciprocal)>>;
    float largest[kRows];
    maxima_of_rows(in + length * row, length, largest);
    exponentials_of_rows(in + length * row, out + length * row, length, largest, reciprocal);
    finish(row, reciprocal);
  };
  uint32_t row = 0;
  for (; rows - row >= kTogether; row += kTogether) {
    float reciprocal[kTogether];
    some_rows(row, reciprocal);
  }
  for (; row < rows; ++row) {
    float reciprocal[1];
    some_rows(row, reciprocal);
  }
}

inline void softmax_of_rows(const float *in, float *out, uint32_t rows, size_t length) {
  if (length == 0) return;
  exponentials_of_all_rows(in, out, rows, length, [&](uint32_t row, const auto &reciprocal) {
    multiply_rows(out + length * row, length, reciprocal);
  });
}

/// Neighbouring columns in `kVectors` vectors (or single floats). Each has its own maximum, sum (in the order of the
/// axis) and reciprocal, so nothing depends on how many go together.
template <class V, int kVectors>
inline void softmax_of_columns_together(const float *in, size_t in_step, float *out, size_t out_step, uint32_t length) {
  V largest[kVectors];
  V sum[kVectors];
  for (int k = 0; k < kVectors; ++k) {
    largest[k] = fill<V>(kMaximumSeed);
    sum[k] = V{};
  }
  const float *from = in;
  for (uint32_t i = 0; i < length; ++i, from += in_step) {
    for (int k = 0; k < kVectors; ++k) largest[k] = maximum(largest[k], load<V>(from + kLanes<V> * k));
  }
  from = in;
  float *to = out;
  for (uint32_t i = 0; i < length; ++i, from += in_step, to += out_step) {
    V e[kVectors];
    for (int k = 0; k < kVectors; ++k) e[k] = exponential_step(load<V>(from + kLanes<V> * k), largest[k]);
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
inline void softmax_of_columns(const float *in, size_t in_step, float *out, size_t out_step, uint32_t length,
                               uint32_t columns) {
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
