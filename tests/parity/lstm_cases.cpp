#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

struct Shape {
  uint16_t steps, sequences, inputs;
  uint32_t units;
};

/// Rows that share a pass over the weights and single ones, units with and without a rest, and more than one range of them.
constexpr Shape kShapes[] = {{5, 1, 1, 1}, {4, 3, 7, 13}, {3, 2, 16, 32}, {3, 1, 5, 391}};

template <class T>
uint64_t address_of(const std::vector<T> &buffer) {
  return reinterpret_cast<uintptr_t>(buffer.data());
}

/// Four matrices of one kind, and their addresses in the block.
class Matrices {
 public:
  Matrices(support::Random &random, size_t count, float reach, uint64_t (&addresses)[4]) {
    for (int gate = 0; gate < 4; ++gate) {
      floats_[gate].resize(count);
      random.fill_floats(floats_[gate].data(), count, -reach, reach);
      addresses[gate] = address_of(floats_[gate]);
    }
  }

 private:
  std::vector<float> floats_[4];
};

/// The whole work area enters the digest: the states stay there for callers of float data.
void add_layer(Digest &digest, support::Random &random, const Shape &shape, int in_width, int out_width,
               bool with_static) {
  const size_t rows = size_t{shape.steps} * shape.sequences;
  const size_t cells = size_t{shape.sequences} * shape.units;
  std::vector<uint8_t> in(2 * rows * shape.inputs);
  std::vector<uint8_t> static_in(2 * size_t{shape.sequences} * shape.inputs);
  std::vector<uint8_t> flags(rows);
  random.fill(in.data(), in.size());
  random.fill(static_in.data(), static_in.size());
  for (uint8_t &flag : flags) flag = random.one_in(3) ? 0 : 1;
  const std::vector<uint8_t> out(2 * rows * shape.units, 0x5A);
  std::vector<float> work((rows + shape.sequences) * shape.inputs + cells + rows * shape.units);
  random.fill_floats(work.data(), work.size(), -4.0f, 4.0f);

  _NN_LSTM_PARM parm{};
  const float reach = random.pick({0.05f, 0.4f, 2.0f});
  const Matrices input_weights(random, size_t{shape.units} * shape.inputs, reach, parm.input_weights);
  const Matrices static_weights(random, size_t{shape.units} * shape.inputs, reach, parm.static_weights);
  const Matrices recurrent_weights(random, size_t{shape.units} * shape.units, reach, parm.recurrent_weights);
  const Matrices biases(random, shape.units, reach, parm.biases);
  parm.in_addr = address_of(in);
  parm.static_addr = address_of(static_in);
  parm.out_addr = address_of(out);
  parm.work_buffer = address_of(work);
  parm.cont_addr = address_of(flags);
  parm.width = shape.inputs;
  parm.height = 1;
  parm.channel = shape.sequences;
  parm.batch = shape.steps;
  parm.in_fmt = support::format(in_width, 6, 1);
  parm.out_fmt = support::format(out_width, out_width - 1, 1);
  parm.use_static = with_static ? 1 : 0;
  parm.hidden_size = shape.units;
  digest.result(tarvu_lstm_process(&parm));
  digest.floats(work.data(), work.size());
  digest.bytes(out.data(), out.size());
}

}  // namespace

/// Each pair of widths, floats in the work area among them, with and without a static input; first steps that continue and do not.
void add_lstm_cases(Report &report) {
  for (const int in_width : {8, 16, 32}) {
    for (const int out_width : {8, 16, 32}) {
      support::Random random(1401);
      Digest digest;
      for (const Shape &shape : kShapes) {
        if (shape.units > 100 && in_width != out_width) continue;  // its weights take most of the time
        for (const bool with_static : {false, true}) add_layer(digest, random, shape, in_width, out_width, with_static);
      }
      report.add("lstm_" + std::to_string(in_width) + "_to_" + std::to_string(out_width), digest);
    }
  }
}

}  // namespace parity
