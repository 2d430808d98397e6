#include "tarvu_lstm_c_reference.h"

#include <cmath>
#include <cstdint>

#include "bit_depth_trans_reference.h"
#include "processor_rules.h"

namespace reference {
namespace {

constexpr int kInput = 0;  // gates, in the order of all weights but the static ones
constexpr int kForget = 1;
constexpr int kOutput = 2;
constexpr int kCell = 3;

float at(uint64_t floats, uint32_t index) {
  return load<float>(reinterpret_cast<const void *>(floats + 4 * uint64_t{index}));
}

void put(uint64_t floats, uint32_t index, float value) {
  store<float>(reinterpret_cast<void *>(floats + 4 * uint64_t{index}), value);
}

/// Sizes, and the addresses of the four arrays of the work area.
struct WorkArea {
  uint32_t steps, sequences, inputs, units;
  uint64_t x, s, c, hidden;

  explicit WorkArea(const _NN_LSTM_PARM *parm)
      : steps(parm->batch),
        sequences(parm->channel),
        inputs(uint32_t{parm->width} * parm->height),
        units(parm->hidden_size),
        x(parm->work_buffer),
        s(x + 4 * uint64_t{steps * sequences * inputs}),
        c(s + 4 * uint64_t{sequences * inputs}),
        hidden(c + 4 * uint64_t{sequences * units}) {}
};

/// The sum of the three bit counts modulo 256.
uint8_t width_of(const _NN_FMT &fmt) { return static_cast<uint8_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits); }

void to_float(const _NN_FMT &fmt, uint64_t source, uint64_t destination, uint32_t count) {
  const auto *from = reinterpret_cast<const void *>(source);
  auto *to = reinterpret_cast<float *>(destination);
  const uint8_t width = width_of(fmt);
  if (fmt.sign_bits == 0 && width == 16) {
    reference::uint16tofloat_neon(static_cast<const uint16_t *>(from), to, fmt.frac_bits, count, 1.0f);
  } else if (fmt.sign_bits == 0 && width == 8) {
    reference::uint8tofloat_neon(static_cast<const uint8_t *>(from), to, fmt.frac_bits, count, 1.0f);
  } else if (fmt.sign_bits == 1 && width == 16) {
    reference::int16tofloat_neon(static_cast<const int16_t *>(from), to, fmt.frac_bits, count, 1.0f);
  } else if (fmt.sign_bits == 1 && width == 8) {
    reference::int8tofloat_neon(static_cast<const int8_t *>(from), to, fmt.frac_bits, count, 1.0f);
  }
}

void to_fixed(const _NN_FMT &fmt, uint64_t source, uint64_t destination, uint32_t count) {
  const auto *from = reinterpret_cast<const float *>(source);
  auto *to = reinterpret_cast<void *>(destination);
  const uint8_t width = width_of(fmt);
  if (fmt.sign_bits == 0 && width == 16) {
    reference::floattouint16_neon(from, static_cast<uint16_t *>(to), fmt.frac_bits, count, 1.0f);
  } else if (fmt.sign_bits == 0 && width == 8) {
    reference::floattouint8_neon(from, static_cast<uint8_t *>(to), fmt.frac_bits, count, 1.0f);
  } else if (fmt.sign_bits == 1 && width == 16) {
    reference::floattoint16_neon(from, static_cast<int16_t *>(to), fmt.frac_bits, count, 1.0f);
  } else if (fmt.sign_bits == 1 && width == 8) {
    reference::floattoint8_neon(from, static_cast<int8_t *>(to), fmt.frac_bits, count, 1.0f);
  }
}

/// Adds the products of one matrix row with a vector to a gate's sum, one after the other.
float add_row(float sum, uint64_t matrix, uint32_t row, uint64_t vector, uint32_t length) {
  for (uint32_t k = 0; k < length; ++k) {
    const float product = at(vector, k) * at(matrix, row * length + k);
    sum = sum + product;
  }
  return sum;
}

void one_unit(const _NN_LSTM_PARM *parm, const WorkArea &area, uint32_t t, uint32_t n, uint32_t j) {
  const uint32_t item = t * area.sequences + n;
  const bool continues = *reinterpret_cast<const uint8_t *>(parm->cont_addr + item) != 0;
  const uint64_t x = area.x + 4 * uint64_t{item * area.inputs};
  const uint64_t s = area.s + 4 * uint64_t{n * area.inputs};
  float gate[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (int g = 0; g < 4; ++g) gate[g] = add_row(gate[g], parm->input_weights[g], j, x, area.inputs);
  if (parm->use_static != 0) {
    gate[kInput] = add_row(gate[kInput], parm->static_weights[0], j, s, area.inputs);
    gate[kOutput] = add_row(gate[kOutput], parm->static_weights[1], j, s, area.inputs);
    gate[kForget] = add_row(gate[kForget], parm->static_weights[2], j, s, area.inputs);
    gate[kCell] = add_row(gate[kCell], parm->static_weights[3], j, s, area.inputs);
  }
  if (continues) {
    // In step 0 this lies in the cell states, which end where the hidden states begin.
    const uint64_t before = area.hidden + 4 * uint64_t{item * area.units} - 4 * uint64_t{area.sequences * area.units};
    for (int g = 0; g < 4; ++g) gate[g] = add_row(gate[g], parm->recurrent_weights[g], j, before, area.units);
  }
  for (int g = 0; g < 4; ++g) gate[g] = gate[g] + at(parm->biases[g], j);

  const float i = reference::sigmoid(gate[kInput]);
  const float f = reference::sigmoid(gate[kForget]);
  const float o = reference::sigmoid(gate[kOutput]);
  const float g = static_cast<float>(std::tanh(static_cast<double>(gate[kCell])));
  const float added = i * g;
  float c = added;
  if (continues) {
    const float kept = f * at(area.c, n * area.units + j);
    c = kept + added;
  }
  put(area.c, n * area.units + j, c);
  const double hidden = static_cast<double>(o) * std::tanh(static_cast<double>(c));
  put(area.hidden, item * area.units + j, static_cast<float>(hidden));
}

}  // namespace

float sigmoid(float x) {
  const float negated = -x;
  return static_cast<float>(1.0 / (std::exp(static_cast<double>(negated)) + 1.0));
}

void lstm_process_c(const _NN_LSTM_PARM *parm) {
  const WorkArea area(parm);
  for (uint32_t i = 0; i < area.steps * area.sequences * area.units; ++i) put(area.hidden, i, 0.0f);
  for (uint32_t i = 0; i < area.sequences * area.units; ++i) put(area.c, i, 0.0f);
  for (uint32_t t = 0; t < area.steps; ++t) {
    for (uint32_t n = 0; n < area.sequences; ++n) {
      for (uint32_t j = 0; j < area.units; ++j) one_unit(parm, area, t, n, j);
    }
  }
}

_QX_RESULT tarvu_lstm_process(const _NN_LSTM_PARM *parm) {
  const WorkArea area(parm);
  to_float(parm->in_fmt, parm->in_addr, area.x, area.steps * area.sequences * area.inputs);
  if (parm->use_static != 0) to_float(parm->in_fmt, parm->static_addr, area.s, area.sequences * area.inputs);
  reference::lstm_process_c(parm);
  to_fixed(parm->out_fmt, area.hidden, parm->out_addr, area.steps * area.sequences * area.units);
  return QX_OK;
}

}  // namespace reference
