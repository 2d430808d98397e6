// Long short-term memory over a whole sequence, in float.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "activation/lstm_gates.h"
#include "activation/lstm_products.h"
#include "convert/format_entry.h"

namespace tarvu {
namespace {

enum Gate { kInputGate, kForgetGate, kOutputGate, kCellGate };

constexpr uint32_t kMostRows = 4;     // that share a pass over the weights
constexpr uint32_t kGateSums = 1536;  // floats on the stack

/// Sizes of the layer and the arrays in its work area, which may start at any address. All sizes are 32-bit products.
struct Layer {
  explicit Layer(const _NN_LSTM_PARM &parm)
      : steps(parm.batch),
        sequences(parm.channel),
        inputs(uint32_t{parm.width} * parm.height),
        units(parm.hidden_size) {
    input = pointer<float>(parm.work_buffer);
    static_input = input + steps * sequences * inputs;
    cells = static_input + sequences * inputs;
    hidden = cells + sequences * units;
  }

  uint32_t steps;
  uint32_t sequences;
  uint32_t inputs;
  uint32_t units;
  float *input;         // [step][sequence][input]
  float *static_input;  // [sequence][input]
  float *cells;         // [sequence][unit]
  float *hidden;        // [step][sequence][unit]
};

GateMatrices matrices_of(const uint64_t (&addresses)[4], uint32_t row_floats) {
  GateMatrices matrices{{}, row_floats};
  for (int gate = 0; gate < kGates; ++gate) matrices.gate[gate] = pointer<const float>(addresses[gate]);
  return matrices;
}

/// Kept: static matrices stand in the order input, output, forget, cell, unlike all others; it is part of the weight format.
GateMatrices static_matrices_of(const _NN_LSTM_PARM &parm, uint32_t row_floats) {
  GateMatrices matrices = matrices_of(parm.static_weights, row_floats);
  std::swap(matrices.gate[kForgetGate], matrices.gate[kOutputGate]);
  return matrices;
}

/// What of a block the recurrence reads.
struct Recurrence {
  explicit Recurrence(const _NN_LSTM_PARM &parm)
      : layer(parm),
        input_weights(matrices_of(parm.input_weights, layer.inputs)),
        static_weights(static_matrices_of(parm, layer.inputs)),
        recurrent_weights(matrices_of(parm.recurrent_weights, layer.units)),
        biases(matrices_of(parm.biases, 1)),
        continues(pointer<const uint8_t>(parm.cont_addr)),
        uses_static(parm.use_static != 0) {}

  Layer layer;
  GateMatrices input_weights;
  GateMatrices static_weights;
  GateMatrices recurrent_weights;
  GateMatrices biases;
  const uint8_t *continues;  // [step][sequence]
  bool uses_static;
};

/// Gates, cell states and hidden states of `count` units from `first` (counted from the first of the range) on.
void update_units(const Recurrence &lstm, const GateSums &sums, uint32_t row, uint32_t first, uint32_t count,
                  float *cells, float *hidden, bool continues) {
  for (int gate = 0; gate < kGates; ++gate) {
    float *sum = sums.at(row, gate) + first;
    const float *bias = lstm.biases.gate[gate] + sums.first_unit + first;
    for (uint32_t j = 0; j < count; ++j) sum[j] += load<float>(bias + j);
  }
  float *const in = sums.at(row, kInputGate) + first;
  float *const forget = sums.at(row, kForgetGate) + first;
  float *const out = sums.at(row, kOutputGate) + first;
  float *const candidate = sums.at(row, kCellGate) + first;
  logistic_run(in, count);
  logistic_run(forget, count);
  logistic_run(out, count);
  tanh_run(candidate, count);
  cells += sums.first_unit + first;
  if (continues) {
    TARVU_INDEPENDENT_ITERATIONS
    for (uint32_t j = 0; j < count; ++j) {
      const float kept = forget[j] * load<float>(cells + j);
      const float fresh = in[j] * candidate[j];
      store(cells + j, kept + fresh);
    }
  } else {
    TARVU_INDEPENDENT_ITERATIONS
    for (uint32_t j = 0; j < count; ++j) store(cells + j, in[j] * candidate[j]);
  }
  scaled_tanh_run(out, cells, hidden + sums.first_unit + first, count);
}

/// Recurrent products and new states of one row, from the sums of its inputs.
void finish_row(const Recurrence &lstm, const GateSums &sums, uint32_t row, uint32_t row_in_sequence) {
  const Layer &layer = lstm.layer;
  const uint32_t sequence = row_in_sequence % layer.sequences;
  const bool continues = lstm.continues[row_in_sequence] != 0;
  float *const cells = layer.cells + size_t{sequence} * layer.units;
  float *const hidden = layer.hidden + size_t{row_in_sequence} * layer.units;
  if (continues && row_in_sequence < layer.sequences) {
    // Kept: before the hidden states of the first step stand the cell states, so each unit sees the new ones of the units below it.
    for (uint32_t j = 0; j < sums.units; ++j) {
      add_products_of_unit(lstm.recurrent_weights, cells, sums, row, j);
      update_units(lstm, sums, row, j, 1, cells, hidden, continues);
    }
    return;
  }
  if (continues) {
    const float *previous = hidden - size_t{layer.sequences} * layer.units;
    add_products<1>(lstm.recurrent_weights, &previous, sums, row);
  }
  update_units(lstm, sums, row, 0, sums.units, cells, hidden, continues);
}

void add_input_products(const GateMatrices &matrices, const float *const *inputs, const GateSums &to, uint32_t rows) {
  switch (rows) {
    case 4:
      return add_products<4>(matrices, inputs, to, 0);
    case 3:
      return add_products<3>(matrices, inputs, to, 0);
    case 2:
      return add_products<2>(matrices, inputs, to, 0);
    default:
      return add_products<1>(matrices, inputs, to, 0);
  }
}

/// Several rows from `first_row` on, for a range of units. Only a single row may come in ranges: the next row needs all units.
void process_rows(const Recurrence &lstm, const GateSums &sums, uint32_t first_row, uint32_t rows) {
  const Layer &layer = lstm.layer;
  const float *inputs[kMostRows];
  const float *static_inputs[kMostRows];
  for (uint32_t row = 0; row < rows; ++row) {
    inputs[row] = layer.input + size_t{first_row + row} * layer.inputs;
    static_inputs[row] = layer.static_input + size_t{(first_row + row) % layer.sequences} * layer.inputs;
  }
  std::memset(sums.sums, 0, size_t{rows} * kGates * sums.units * sizeof(float));
  add_input_products(lstm.input_weights, inputs, sums, rows);
  if (lstm.uses_static) add_input_products(lstm.static_weights, static_inputs, sums, rows);
  for (uint32_t row = 0; row < rows; ++row) finish_row(lstm, sums, row, first_row + row);
}

}  // namespace
}  // namespace tarvu

float sigmoid(float x) { return static_cast<float>(1.0 / (std::exp(static_cast<double>(-x)) + 1.0)); }

void lstm_process_c(const _NN_LSTM_PARM *parm) {
  using namespace tarvu;
  const Recurrence lstm(*parm);
  const Layer &layer = lstm.layer;
  const uint32_t all_rows = layer.steps * layer.sequences;
  for (uint32_t i = 0; i < all_rows * layer.units; ++i) store(layer.hidden + i, 0.0f);
  for (uint32_t i = 0; i < layer.sequences * layer.units; ++i) store(layer.cells + i, 0.0f);
  if (layer.units == 0) return;
  float stack[kGateSums];
  const uint32_t range = std::min(layer.units, kGateSums / kGates);
  const uint32_t rows_at_once = range < layer.units ? 1 : std::min(kMostRows, kGateSums / (kGates * range));
  for (uint32_t row = 0; row < all_rows; row += rows_at_once) {
    for (uint32_t unit = 0; unit < layer.units; unit += range) {
      const GateSums sums = {stack, unit, std::min(range, layer.units - unit)};
      process_rows(lstm, sums, row, std::min(rows_at_once, all_rows - row));
    }
  }
}

_QX_RESULT tarvu_lstm_process(const _NN_LSTM_PARM *parm) {
  using namespace tarvu;
  constexpr float kNoScale = 1.0f;
  const Layer layer(*parm);
  const uint32_t rows = layer.steps * layer.sequences;
  with_element_type(parm->in_fmt.sign_bits, width_bits_in_byte(parm->in_fmt), [&](auto element) {
    using T = decltype(element);
    const int16_t frac_bits = parm->in_fmt.frac_bits;
    Kernels<T>::to_floats(pointer<const T>(parm->in_addr), layer.input, frac_bits, rows * layer.inputs, kNoScale);
    if (parm->use_static == 0) return;
    Kernels<T>::to_floats(pointer<const T>(parm->static_addr), layer.static_input, frac_bits,
                          layer.sequences * layer.inputs, kNoScale);
  });
  lstm_process_c(parm);
  with_element_type(parm->out_fmt.sign_bits, width_bits_in_byte(parm->out_fmt), [&](auto element) {
    using T = decltype(element);
    Kernels<T>::from_floats(layer.hidden, pointer<T>(parm->out_addr), parm->out_fmt.frac_bits, rows * layer.units,
                            kNoScale);
  });
  return QX_OK;
}
