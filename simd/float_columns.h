/// \file float_columns.h
/// Matrices of floats taken by columns: products of rows with a vector, whose sums must run in the order of the columns, put the
/// rows into lanes. The floats may stand at any address.
#ifndef TARVU_SIMD_FLOAT_COLUMNS_H
#define TARVU_SIMD_FLOAT_COLUMNS_H

#include "simd/lanes.h"

namespace tarvu {

/// Four columns of a matrix, a row in each lane.
template <class V>
struct FourColumns {
  V column[4];
};

/// Transposes 4 x 4 floats.
inline FourColumns<f32x4> transpose_fours(f32x4 a, f32x4 b, f32x4 c, f32x4 d) {
  const f32x4 ab_low = take_lanes<0, 4, 1, 5>(a, b);
  const f32x4 ab_high = take_lanes<2, 6, 3, 7>(a, b);
  const f32x4 cd_low = take_lanes<0, 4, 1, 5>(c, d);
  const f32x4 cd_high = take_lanes<2, 6, 3, 7>(c, d);
  return {{take_lanes<0, 1, 4, 5>(ab_low, cd_low), take_lanes<2, 3, 6, 7>(ab_low, cd_low),
           take_lanes<0, 1, 4, 5>(ab_high, cd_high), take_lanes<2, 3, 6, 7>(ab_high, cd_high)}};
}

#if TARVU_AVX2
/// The lower and the upper four lanes each on their own.
inline FourColumns<f32xn> transpose_fours(f32xn a, f32xn b, f32xn c, f32xn d) {
  const f32xn ab_low = take_lanes<0, 8, 1, 9, 4, 12, 5, 13>(a, b);
  const f32xn ab_high = take_lanes<2, 10, 3, 11, 6, 14, 7, 15>(a, b);
  const f32xn cd_low = take_lanes<0, 8, 1, 9, 4, 12, 5, 13>(c, d);
  const f32xn cd_high = take_lanes<2, 10, 3, 11, 6, 14, 7, 15>(c, d);
  return {{take_lanes<0, 1, 8, 9, 4, 5, 12, 13>(ab_low, cd_low), take_lanes<2, 3, 10, 11, 6, 7, 14, 15>(ab_low, cd_low),
           take_lanes<0, 1, 8, 9, 4, 5, 12, 13>(ab_high, cd_high),
           take_lanes<2, 3, 10, 11, 6, 7, 14, 15>(ab_high, cd_high)}};
}
#endif

#if TARVU_NEON
/// Loads four floats of each row, those of row r to lane r of the four vectors, and moves the rows on behind them. The rows are
/// constant while the caller runs.
inline FourColumns<f32x4> load_four_columns(const float *&row0, const float *&row1, const float *&row2,
                                            const float *&row3) {
  float32x4x4_t columns;
#if defined(__clang__)
  columns = vld4q_dup_f32(row0);
  columns = vld4q_lane_f32(row1, columns, 1);
  columns = vld4q_lane_f32(row2, columns, 2);
  columns = vld4q_lane_f32(row3, columns, 3);
  row0 += 4;
  row1 += 4;
  row2 += 4;
  row3 += 4;
#else
  // GCC's intrinsics leave each step to an instruction of its own.
  const float *a = row0, *b = row1, *c = row2, *d = row3;
  __asm__(
      "ld4 {%S0.s - %V0.s}[0], [%1], #16\n\t"
      "ld4 {%S0.s - %V0.s}[1], [%2], #16\n\t"
      "ld4 {%S0.s - %V0.s}[2], [%3], #16\n\t"
      "ld4 {%S0.s - %V0.s}[3], [%4], #16"
      : "=&w"(columns), "+r"(a), "+r"(b), "+r"(c), "+r"(d));
  row0 = a;
  row1 = b;
  row2 = c;
  row3 = d;
#endif
  return {{columns.val[0], columns.val[1], columns.val[2], columns.val[3]}};
}
#endif

/// Goes through the columns of a matrix, as many rows of it as f32xn has lanes.
class ColumnReader {
 public:
  ColumnReader() = default;
#if TARVU_NEON
  ColumnReader(const float *first_row, size_t row_floats)
      : row_{first_row, first_row + row_floats, first_row + 2 * row_floats, first_row + 3 * row_floats} {}

  FourColumns<f32xn> next_four() { return load_four_columns(row_[0], row_[1], row_[2], row_[3]); }

  /// The next column.
  f32xn next() {
    const f32xn column = {load<float>(row_[0]), load<float>(row_[1]), load<float>(row_[2]), load<float>(row_[3])};
    for (const float *&row : row_) ++row;
    return column;
  }

 private:
  const float *row_[4];
#else
  ColumnReader(const float *first_row, size_t row_floats) : next_(first_row), row_floats_(row_floats) {}

  FourColumns<f32xn> next_four() {
    const auto lanes_of = [this](size_t r) {
      const auto row = load<f32x4>(next_ + r * row_floats_);
#if TARVU_AVX2
      const auto upper = load<f32x4>(next_ + (r + 4) * row_floats_);
      return f32xn(_mm256_insertf128_ps(_mm256_castps128_ps256(__m128(row)), __m128(upper), 1));
#else
      return row;
#endif
    };
    const auto columns = transpose_fours(lanes_of(0), lanes_of(1), lanes_of(2), lanes_of(3));
    next_ += 4;
    return columns;
  }

  /// The next column.
  f32xn next() {
    f32xn column{};
    for (int r = 0; r < kLanes<f32xn>; ++r) column[r] = load<float>(next_ + static_cast<size_t>(r) * row_floats_);
    ++next_;
    return column;
  }

 private:
  const float *next_;  // of row 0
  size_t row_floats_;
#endif
};

/// Four numbers that lanes are multiplied by, one after the other.
struct FourFactors {
#if TARVU_NEON
  explicit FourFactors(const float *from) : values(load<float32x4_t>(from)) {}
  float32x4_t values;
#else
  explicit FourFactors(const float *from) : values(from) {}
  const float *values;
#endif
};

/// lanes * factors[index].
template <int index, class V>
inline V multiply_by(V lanes, const FourFactors &factors) {
#if TARVU_NEON
  return vmulq_laneq_f32(lanes, factors.values, index);
#else
  return lanes * fill<V>(load<float>(factors.values + index));
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_FLOAT_COLUMNS_H
