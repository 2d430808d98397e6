#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_lstm_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/filled_memory.h"
#include "tests/support/formats.h"

namespace {

using namespace support;

struct Shape {
  uint16_t steps, sequences, width, height;
  uint32_t units;
};

/// A block on random data. The work area is compared as a whole: it holds the hidden states that a caller of float data
/// reads.
class RandomLayer {
 public:
  /// Work area, weights and biases start `misalign` bytes off a multiple of 4.
  RandomLayer(Random &random, Shape shape, size_t misalign = 0) : random_(random), shape_(shape), misalign_(misalign) {
    const uint32_t inputs = uint32_t{shape.width} * shape.height;
    _NN_LSTM_PARM &block = block_;
    random.fill(&block, sizeof block);
    block.width = shape.width;
    block.height = shape.height;
    block.channel = shape.sequences;
    block.batch = shape.steps;
    block.hidden_size = shape.units;
    block.use_static = random.one_in(2) ? 0 : static_cast<int32_t>(random.next() | 1);
    block.in_fmt = random_format();
    block.out_fmt = random_format();
    block.in_addr = tensor(size_t{shape.steps} * shape.sequences * inputs, block.in_fmt, "input");
    block.static_addr = tensor(size_t{shape.sequences} * inputs, block.in_fmt, "static input");
    if (block.use_static == 0) block.static_addr = unreadable_address();
    block.out_addr = tensor(size_t{shape.steps} * shape.sequences * shape.units, block.out_fmt, "output");
    // Ordinary data keeps the gates off their limits; now and then everything is special.
    const float reach = random.pick({0.05f, 0.4f, 2.0f});
    special_ = random.one_in(6);
    matrices(block.input_weights, size_t{shape.units} * inputs, reach);
    matrices(block.static_weights, size_t{shape.units} * inputs, reach);
    matrices(block.recurrent_weights, size_t{shape.units} * shape.units, reach);
    matrices(block.biases, shape.units, reach);
    const size_t cells = size_t{shape.sequences} * shape.units;
    block.work_buffer =
        floats(size_t{shape.steps + 1u} * shape.sequences * inputs + (shape.steps + 1u) * cells, 8.0f, "work area");
    flags_ = &memory(size_t{shape.steps} * shape.sequences, "flags", Element::k8Bit);
    block.cont_addr = flags_->address();
    for (size_t i = 0; i < flags_->size(); ++i)
      flags_->data()[i] = random.one_in(2) ? 0 : random.pick<uint8_t>({1, 255});
  }

  void set_flags(uint32_t pattern) const {
    for (size_t i = 0; i < flags_->size(); ++i) flags_->data()[i] = static_cast<uint8_t>((pattern >> i) & 1u);
  }

  void expect_equal() {
    EXPECT_TRUE(differential_.same([this] { return tarvu_lstm_process(&block_); },
                                   [this] { return reference::tarvu_lstm_process(&block_); }))
        << shape_text("tarvu_lstm_process");
    EXPECT_TRUE(differential_.same([this] { lstm_process_c(&block_); }, [this] { reference::lstm_process_c(&block_); }))
        << shape_text("lstm_process_c");
  }

 private:
  _NN_FMT random_format() {
    switch (random_.below(8)) {
      case 0:
        return format(32, random_.between(-3, 20), random_.between(0, 2));
      case 1:
        return format(random_.pick({8, 16}), 3, random_.pick({2, -1}));
      default: {
        const int width = random_.pick({8, 16});
        return format(width, random_.between(-2, width + 3), random_.between(0, 1));
      }
    }
  }

  GuardedMemory &memory(size_t bytes, const std::string &name, Element element) {
    const size_t misalign = element == Element::kFloat ? misalign_ : 0;
    memories_.push_back(std::make_unique<GuardedMemory>(
        bytes, Placement{random_.pick({Fault::kBehind, Fault::kInFront}), 1, misalign}));
    differential_.track(*memories_.back(), name, element);
    return *memories_.back();
  }

  uint64_t tensor(size_t count, const _NN_FMT &fmt, const std::string &name) {
    const size_t width = static_cast<size_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits) / 8;
    GuardedMemory &made = memory(count * width, name, width == 2 ? Element::k16Bit : Element::k8Bit);
    random_.fill(made.data(), made.size());
    return made.address();
  }

  uint64_t floats(size_t count, float reach, const std::string &name) {
    GuardedMemory &made = memory(count * sizeof(float), name, Element::kFloat);
    if (special_) {
      random_.fill_any_floats(made.data(), count);
    } else {
      random_.fill_floats(made.data(), count, -reach, reach);
    }
    return made.address();
  }

  void matrices(uint64_t (&addresses)[4], size_t count, float reach) {
    for (uint64_t &address : addresses) address = floats(count, reach, "weights");
  }

  std::string shape_text(const std::string &name) const {
    return name + ": " + std::to_string(shape_.steps) + " steps, " + std::to_string(shape_.sequences) + " sequences, " +
           std::to_string(shape_.width) + " x " + std::to_string(shape_.height) + " inputs, " +
           std::to_string(shape_.units) + " units, flags " + ::testing::PrintToString(values_in<uint8_t>(*flags_));
  }

  Random &random_;
  Shape shape_;
  size_t misalign_;
  bool special_ = false;
  _NN_LSTM_PARM block_;
  Differential differential_;
  std::vector<std::unique_ptr<GuardedMemory>> memories_;
  GuardedMemory *flags_ = nullptr;
};

TEST(LstmOnRandomLayers, EqualsItsTwinForEveryFlagPatternOfThreeStepsAndTwoSequences) {
  Random random = test_random(391);
  SCOPED_TRACE(random.trace());
  for (uint32_t pattern = 0; pattern < 64; ++pattern) {
    RandomLayer layer(random, {3, 2, 3, 1, 5});
    layer.set_flags(pattern);
    layer.expect_equal();
    if (HasFailure()) return;
  }
}

TEST(LstmOnRandomLayers, EqualsItsTwinForEveryNumberOfUnits) {
  Random random = test_random(392);
  SCOPED_TRACE(random.trace());
  for (uint32_t units = 0; units <= 35; ++units) {
    for (int round = 0; round < 3; ++round) {
      RandomLayer layer(
          random, {static_cast<uint16_t>(random.between(1, 4)), static_cast<uint16_t>(random.between(1, 3)),
                   static_cast<uint16_t>(random.between(1, 6)), static_cast<uint16_t>(random.between(1, 2)), units});
      layer.expect_equal();
      if (HasFailure()) return;
    }
  }
}

TEST(LstmOnRandomLayers, EqualsItsTwinForEveryNumberOfSequencesAndInputs) {
  Random random = test_random(393);
  SCOPED_TRACE(random.trace());
  for (uint16_t count = 0; count <= 19; ++count) {
    for (int round = 0; round < 3; ++round) {
      RandomLayer many_sequences(random, {static_cast<uint16_t>(random.between(0, 3)), count, 2, 2, 5});
      many_sequences.expect_equal();
      RandomLayer many_inputs(random, {static_cast<uint16_t>(random.between(0, 3)), 2, count, 1, 6});
      many_inputs.expect_equal();
      if (HasFailure()) return;
    }
  }
}

TEST(LstmOnRandomLayers, EqualsItsTwinWithFloatsAtAnyAddress) {
  Random random = test_random(395);
  SCOPED_TRACE(random.trace());
  for (size_t misalign = 1; misalign <= 3; ++misalign) {
    for (const uint16_t inputs : {uint16_t{3}, uint16_t{4}, uint16_t{11}}) {
      for (const uint32_t units : {1u, 8u, 13u, 390u}) {
        RandomLayer layer(random, {3, 2, inputs, 1, units}, misalign);
        layer.set_flags(0b110101);
        layer.expect_equal();
        if (HasFailure()) return;
      }
    }
  }
}

TEST(LstmOnRandomLayers, EqualsItsTwinForManyUnits) {
  Random random = test_random(394);
  SCOPED_TRACE(random.trace());
  for (const uint32_t units : {95u, 97u, 128u, 193u, 384u, 385u, 391u}) {
    RandomLayer layer(random, {static_cast<uint16_t>(random.between(3, 4)), static_cast<uint16_t>(random.between(1, 2)),
                               5, 1, units});
    layer.expect_equal();
    if (HasFailure()) return;
  }
}

}  // namespace
