/// \file float_columns.h
/// Matrices of floats taken by columns: products of rows with a vector, whose sums must run in the order of the columns, put the
/// rows into lanes.
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
  const f32x4 ab_low = __builtin_shufflevector(a, b, 0, 4, 1, 5);
  const f32x4 ab_high = __builtin_shufflevector(a, b, 2, 6, 3, 7);
  const f32x4 cd_low = __builtin_shufflevector(c, d, 0, 4, 1, 5);
  const f32x4 cd_high = __builtin_shufflevector(c, d, 2, 6, 3, 7);
  return {{__builtin_shufflevector(ab_low, cd_low, 0, 1, 4, 5), __builtin_shufflevector(ab_low, cd_low, 2, 3, 6, 7),
           __builtin_shufflevector(ab_high, cd_high, 0, 1, 4, 5), __builtin_shufflevector(ab_high, cd_high, 2, 3, 6, 7)}};
}

#if TARVU_AVX2
/// The lower and the upper four lanes each on their own.
inline FourColumns<f32xn> transpose_fours(f32xn a, f32xn b, f32xn c, f32xn d) {
  const f32xn ab_low = __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
  const f32xn ab_high = __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
  const f32xn cd_low = __builtin_shufflevector(c, d, 0, 8, 1, 9, 4, 12, 5, 13);
  const f32xn cd_high = __builtin_shufflevector(c, d, 2, 10, 3, 11, 6, 14, 7, 15);
  return {{__builtin_shufflevector(ab_low, cd_low, 0, 1, 8, 9, 4, 5, 12, 13),
           __builtin_shufflevector(ab_low, cd_low, 2, 3, 10, 11, 6, 7, 14, 15),
           __builtin_shufflevector(ab_high, cd_high, 0, 1, 8, 9, 4, 5, 12, 13),
           __builtin_shufflevector(ab_high, cd_high, 2, 3, 10, 11, 6, 7, 14, 15)}};
}

/// Columns 0 to 3 of as many rows as f32xn has lanes, `row_floats` apart.
inline FourColumns<f32xn> load_four_columns(const float *rows, size_t row_floats) {
  const auto two_rows = [=](size_t row) {
    const auto lower = load<f32x4>(rows + row * row_floats);
    const auto upper = load<f32x4>(rows + (row + 4) * row_floats);
    return __builtin_shufflevector(lower, upper, 0, 1, 2, 3, 4, 5, 6, 7);
  };
  return transpose_fours(two_rows(0), two_rows(1), two_rows(2), two_rows(3));
}
#else
inline FourColumns<f32xn> load_four_columns(const float *rows, size_t row_floats) {
  return transpose_fours(load<f32xn>(rows), load<f32xn>(rows + row_floats), load<f32xn>(rows + 2 * row_floats),
                         load<f32xn>(rows + 3 * row_floats));
}
#endif

/// Column 0 of as many rows as f32xn has lanes, `row_floats` apart.
inline f32xn load_column(const float *rows, size_t row_floats) {
  f32xn column{};
  for (int row = 0; row < kLanes<f32xn>; ++row) column[row] = rows[static_cast<size_t>(row) * row_floats];
  return column;
}

/// Four numbers that lanes are multiplied by, one after the other.
struct FourFactors {
#if TARVU_NEON
  explicit FourFactors(const float *from) : values(vld1q_f32(from)) {}
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
  return lanes * fill<V>(factors.values[index]);
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_FLOAT_COLUMNS_H
