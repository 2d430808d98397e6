#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

/// The first step starts anew, the others continue.
Case lstm(const Type &type, uint32_t steps, uint32_t sequences, uint32_t inputs, uint32_t units, bool with_static) {
  Case what;
  what.kind = std::string(type.name) + (with_static ? ", static input" : "");
  what.shape = std::to_string(steps) + " steps of " + std::to_string(sequences) + "x" + std::to_string(inputs) +
               " to " + std::to_string(units);
  what.extent = units;
  what.unit = "multiply-add";
  const size_t cells = size_t{steps} * sequences * units;
  what.units = static_cast<double>(cells * 4 * (inputs * (with_static ? 2 : 1) + units));
  what.make = [=](Arena &arena) {
    const size_t rows = size_t{steps} * sequences;
    _NN_LSTM_PARM parm{};
    parm.in_addr = address(random_bytes(arena, rows * inputs * type.bytes()));
    parm.static_addr = address(random_bytes(arena, sequences * inputs * type.bytes()));
    parm.out_addr = address(zero_bytes(arena, rows * units * type.bytes()));
    parm.work_buffer = address(zero_bytes(arena, 4 * ((rows + sequences) * (inputs + units))));
    uint8_t *continues = zero_bytes(arena, rows);
    std::fill(continues + sequences, continues + rows, uint8_t{1});
    parm.cont_addr = address(continues);
    for (size_t gate = 0; gate < 4; ++gate) {
      parm.input_weights[gate] = address(random_floats(arena, size_t{units} * inputs, 0.1f));
      parm.static_weights[gate] = address(random_floats(arena, size_t{units} * inputs, 0.1f));
      parm.recurrent_weights[gate] = address(random_floats(arena, size_t{units} * units, 0.1f));
      parm.biases[gate] = address(random_floats(arena, units, 0.1f));
    }
    parm.width = u16(inputs);
    parm.height = 1;
    parm.channel = u16(sequences);
    parm.batch = u16(steps);
    parm.in_fmt = format(type, type.bits == 8 ? 5 : 13);
    parm.out_fmt = format(type, type.bits == 8 ? 6 : 14);
    parm.use_static = with_static ? 1 : 0;
    parm.hidden_size = units;
    return call_of(tarvu_lstm_process, parm);
  };
  // Three sigmoids and two hyperbolic tangents, with the mathematics library's bits.
  what.extra = 250.0 * static_cast<double>(cells);
  what.figure = 0.95;
  what.why = "the workload's multiply-adds, and 250 instructions for each cell's five functions";
  return what;
}

}  // namespace

void add_lstm_cases(Cases &cases) {
  for (const uint32_t units : {1u, 2u, 3u, 4u, 7u, 8u, 10u, 13u, 16u, 20u, 28u, 32u, 49u, 64u}) {
    for (const uint32_t inputs : {7u, 32u}) {
      Case what = lstm(kS16, 8, 1, inputs, units, false);
      // Of fewer units than a vector has lanes the whole vector is worked on.
      what.figure *= static_cast<double>(round_up(units, 4)) / units;
      what.extra *= static_cast<double>(round_up(units, 2)) / units;
      add(cases, std::move(what));
    }
  }
  for (const uint32_t inputs : {1u, 4u, 14u, 100u}) add(cases, lstm(kS16, 8, 1, inputs, 32, false));
  for (const uint32_t steps : {1u, 2u, 3u, 4u, 20u}) add(cases, lstm(kS16, steps, 1, 32, 32, false));
  for (const uint32_t sequences : {2u, 8u}) add(cases, lstm(kS8, 4, sequences, 32, 32, false));
  add(cases, lstm(kS16, 8, 1, 32, 32, true));
  add_doublings(
      cases,
      [](const Shape &shape) { return lstm(kS16, shape.batch, shape.channels, shape.height, shape.width, false); },
      {4, 2, 24, 24});
}

}  // namespace sweep
