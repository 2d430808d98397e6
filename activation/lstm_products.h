/// \file lstm_products.h
/// The products of LSTM's weight matrices with inputs and hidden states. The terms of a gate's sum come in the order of the inputs,
/// each product rounded and then added: units, or the gates of one unit, stand in lanes, so that no sum is split.
#ifndef TARVU_ACTIVATION_LSTM_PRODUCTS_H
#define TARVU_ACTIVATION_LSTM_PRODUCTS_H

#include "simd/float_columns.h"

namespace tarvu {

inline constexpr int kGates = 4;
inline constexpr uint32_t kUnitLanes = kLanes<f32xn>;

/// A matrix for each gate, of one row a unit. Matrices and inputs may stand at any address.
struct GateMatrices {
  const float *gate[kGates];
  uint32_t row_floats;
};

/// The gate sums of several rows (a row is one sequence at one time step) and a range of units.
struct GateSums {
  float *sums;  // [row][gate][unit]
  uint32_t first_unit;
  uint32_t units;

  float *at(uint32_t row, int gate) const { return sums + (row * kGates + static_cast<uint32_t>(gate)) * units; }
};

/// Adds the products for kUnitLanes units from `unit` (counted from the first of the range) on, for `rows` rows and `gates` gates at
/// once.
template <int rows, int gates>
inline void add_products_of_lanes(const GateMatrices &matrices, const float *const *inputs, const GateSums &to,
                                  uint32_t first_row, int first_gate, uint32_t unit) {
  const uint32_t length = matrices.row_floats;
  ColumnReader weights[gates];
  float *stored[rows][gates];
  f32xn sums[rows][gates];
  for (int gate = 0; gate < gates; ++gate) {
    weights[gate] = ColumnReader(matrices.gate[first_gate + gate] + size_t{to.first_unit + unit} * length, length);
    for (int row = 0; row < rows; ++row) {
      stored[row][gate] = to.at(first_row + static_cast<uint32_t>(row), first_gate + gate) + unit;
      sums[row][gate] = load<f32xn>(stored[row][gate]);
    }
  }
  size_t k = 0;
  for (; k + 4 <= length; k += 4) {
    for (int gate = 0; gate < gates; ++gate) {
      const FourColumns<f32xn> columns = weights[gate].next_four();
      for (int row = 0; row < rows; ++row) {
        const FourFactors factors(inputs[row] + k);
        f32xn sum = sums[row][gate];
        sum = sum + multiply_by<0>(columns.column[0], factors);
        sum = sum + multiply_by<1>(columns.column[1], factors);
        sum = sum + multiply_by<2>(columns.column[2], factors);
        sum = sum + multiply_by<3>(columns.column[3], factors);
        sums[row][gate] = sum;
      }
    }
  }
  for (; k < length; ++k) {
    for (int gate = 0; gate < gates; ++gate) {
      const f32xn column = weights[gate].next();
      for (int row = 0; row < rows; ++row) {
        sums[row][gate] = sums[row][gate] + column * fill<f32xn>(load<float>(inputs[row] + k));
      }
    }
  }
  for (int gate = 0; gate < gates; ++gate) {
    for (int row = 0; row < rows; ++row) store(stored[row][gate], sums[row][gate]);
  }
}

/// Adds the products for one unit and one row, its gates in lanes.
inline void add_products_of_unit(const GateMatrices &matrices, const float *input, const GateSums &to, uint32_t row,
                                 uint32_t unit) {
  const uint32_t length = matrices.row_floats;
  const float *weights[kGates];
  f32x4 sum{};
  for (int gate = 0; gate < kGates; ++gate) {
    weights[gate] = matrices.gate[gate] + size_t{to.first_unit + unit} * length;
    sum[gate] = to.at(row, gate)[unit];
  }
  uint32_t k = 0;
  for (; k + 4 <= length; k += 4) {
    const FourColumns<f32x4> columns = transpose_fours(load<f32x4>(weights[0] + k), load<f32x4>(weights[1] + k),
                                                       load<f32x4>(weights[2] + k), load<f32x4>(weights[3] + k));
    const FourFactors factors(input + k);
    sum = sum + multiply_by<0>(columns.column[0], factors);
    sum = sum + multiply_by<1>(columns.column[1], factors);
    sum = sum + multiply_by<2>(columns.column[2], factors);
    sum = sum + multiply_by<3>(columns.column[3], factors);
  }
  for (; k < length; ++k) {
    const f32x4 column = {load<float>(weights[0] + k), load<float>(weights[1] + k), load<float>(weights[2] + k),
                          load<float>(weights[3] + k)};
    sum = sum + column * fill<f32x4>(load<float>(input + k));
  }
  for (int gate = 0; gate < kGates; ++gate) to.at(row, gate)[unit] = sum[gate];
}

/// Adds the products for all units of the range and `rows` rows from `first_row` on.
template <int rows>
inline void add_products(const GateMatrices &matrices, const float *const *inputs, const GateSums &to,
                         uint32_t first_row) {
  constexpr int kGatesAtOnce = rows > 1 ? kGates / 2 : kGates;  // as many sums as the registers hold
  uint32_t unit = 0;
  for (; unit + kUnitLanes <= to.units; unit += kUnitLanes) {
    for (int gate = 0; gate < kGates; gate += kGatesAtOnce) {
      add_products_of_lanes<rows, kGatesAtOnce>(matrices, inputs, to, first_row, gate, unit);
    }
  }
  for (; unit < to.units; ++unit) {
    for (uint32_t row = 0; row < rows; ++row) add_products_of_unit(matrices, inputs[row], to, first_row + row, unit);
  }
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_LSTM_PRODUCTS_H
