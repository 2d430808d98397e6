#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_lstm_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/filled_memory.h"
#include "tests/support/formats.h"

namespace {

using namespace support;

enum Gate { kInputGate, kForgetGate, kOutputGate, kCellGate };

/// A layer on float data: the inputs stand in the work area already, all weights and biases are 0 at first.
class Layer {
 public:
  Layer(uint16_t steps, uint16_t sequences, uint16_t inputs, uint32_t units, bool with_static = false)
      : steps_(steps), sequences_(sequences), inputs_(inputs), units_(units), work_(work_floats()) {
    for (size_t g = 0; g < 4; ++g) {
      input_weights[g].resize(units * inputs);
      static_weights[g].resize(units * inputs);
      recurrent_weights[g].resize(units * units);
      biases[g].resize(units);
    }
    flags.resize(steps * sequences);
    block.in_addr = block.static_addr = block.out_addr = unreadable_address();
    block.width = inputs;
    block.height = 1;
    block.channel = sequences;
    block.batch = steps;
    block.in_fmt = block.out_fmt = format(32, 0, 1);
    block.use_static = with_static ? 1 : 0;
    block.hidden_size = units;
  }

  float &input(uint32_t t, uint32_t n, uint32_t k) { return work_[(t * sequences_ + n) * inputs_ + k]; }
  float &static_input(uint32_t n, uint32_t k) { return work_[input_floats() + n * inputs_ + k]; }
  float cell(uint32_t n, uint32_t j) const { return after_[input_floats() + sequences_ * inputs_ + n * units_ + j]; }
  float hidden(uint32_t t, uint32_t n, uint32_t j) const {
    return after_[input_floats() + sequences_ * (inputs_ + units_) + (t * sequences_ + n) * units_ + j];
  }

  void run() {
    const GuardedMemory work = memory_of(work_);
    const GuardedMemory flag_memory = memory_of(flags);
    std::vector<GuardedMemory> weights;
    const auto attach = [&weights](uint64_t(&addresses)[4], const std::array<std::vector<float>, 4> &matrices) {
      for (size_t g = 0; g < 4; ++g) {
        weights.push_back(memory_of(matrices[g]));
        addresses[g] = weights.back().address();
      }
    };
    attach(block.input_weights, input_weights);
    attach(block.static_weights, static_weights);
    attach(block.recurrent_weights, recurrent_weights);
    attach(block.biases, biases);
    block.work_buffer = work.address();
    block.cont_addr = flag_memory.address();
    StdoutCapture capture;
    EXPECT_EQ(QX_OK, tarvu_lstm_process(&block));
    EXPECT_EQ("", capture.text());
    EXPECT_EQ(std::string(), work.guard_damage());
    after_ = values_in<float>(work);
  }

  _NN_LSTM_PARM block{};
  std::vector<uint8_t> flags;
  std::array<std::vector<float>, 4> input_weights, static_weights, recurrent_weights, biases;

 private:
  size_t input_floats() const { return size_t{steps_} * sequences_ * inputs_; }
  size_t work_floats() const { return input_floats() + sequences_ * (inputs_ + units_ + steps_ * units_); }

  uint32_t steps_, sequences_, inputs_, units_;
  std::vector<float> work_;
  std::vector<float> after_;
};

const float kTanhOfHalf = 0.46211717f;
const float kTanhOfOne = 0.76159418f;

TEST(Lstm, SigmoidIsTheLogisticFunctionRoundedFromDouble) {
  EXPECT_EQ(0.5f, sigmoid(0.0f));
  EXPECT_EQ(0.5f, sigmoid(-0.0f));
  EXPECT_EQ(0.73105860f, sigmoid(1.0f));
  EXPECT_EQ(0.26894143f, sigmoid(-1.0f));
  EXPECT_EQ(1.0f, sigmoid(100.0f));
  EXPECT_EQ(0x1.bp-145f, sigmoid(-100.0f));
  EXPECT_EQ(0.0f, sigmoid(-std::numeric_limits<float>::infinity()));
  EXPECT_EQ(1.0f, sigmoid(std::numeric_limits<float>::infinity()));
  EXPECT_TRUE(std::isnan(sigmoid(std::numeric_limits<float>::quiet_NaN())));
}

TEST(Lstm, SigmoidEqualsItsTwin) {
  Random random = test_random(390);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 100000; ++i) {
    const float x = i % 2 == 0 ? random.any_float() : random.uniform(-105.0f, 20.0f);
    const float ours = sigmoid(x);
    const float expected = reference::sigmoid(x);
    if (std::isnan(ours) && std::isnan(expected)) continue;
    ASSERT_EQ(std::bit_cast<uint32_t>(expected), std::bit_cast<uint32_t>(ours)) << std::hexfloat << x;
  }
}

TEST(Lstm, SecondStaticMatrixReachesTheOutputGate) {
  Layer layer(1, 1, 1, 1, true);
  layer.static_weights[1][0] = 100.0f;
  layer.static_input(0, 0) = 1.0f;
  layer.biases[kCellGate][0] = 100.0f;
  layer.run();
  EXPECT_EQ(0.5f, layer.cell(0, 0));
  EXPECT_EQ(kTanhOfHalf, layer.hidden(0, 0, 0));
}

TEST(Lstm, ThirdStaticMatrixReachesTheForgetGate) {
  Layer layer(2, 1, 1, 1, true);
  layer.flags = {0, 1};
  layer.static_weights[2][0] = 100.0f;
  layer.static_input(0, 0) = 1.0f;
  layer.biases[kCellGate][0] = 100.0f;
  layer.run();
  EXPECT_EQ(1.0f, layer.cell(0, 0));
  EXPECT_EQ(0.5f * kTanhOfOne, layer.hidden(1, 0, 0));
}

TEST(Lstm, SecondInputMatrixReachesTheForgetGate) {
  Layer layer(2, 1, 1, 1);
  layer.flags = {0, 255};
  layer.input_weights[1][0] = 100.0f;
  layer.input(0, 0, 0) = layer.input(1, 0, 0) = 1.0f;
  layer.biases[kCellGate][0] = 100.0f;
  layer.run();
  EXPECT_EQ(0.5f * kTanhOfHalf, layer.hidden(0, 0, 0));
  EXPECT_EQ(1.0f, layer.cell(0, 0));
  EXPECT_EQ(0.5f * kTanhOfOne, layer.hidden(1, 0, 0));
}

TEST(Lstm, ThirdInputMatrixReachesTheOutputGate) {
  Layer layer(1, 1, 1, 1);
  layer.input_weights[2][0] = 100.0f;
  layer.input(0, 0, 0) = 1.0f;
  layer.biases[kCellGate][0] = 100.0f;
  layer.run();
  EXPECT_EQ(kTanhOfHalf, layer.hidden(0, 0, 0));
}

TEST(Lstm, AFirstStepThatContinuesReadsTheNewCellStatesOfLowerUnits) {
  // Units 0 and 2 have a cell state of 1/2; unit 1 sees that of unit 0 but not that of unit 2.
  for (const uint32_t seen : {0u, 2u}) {
    Layer layer(1, 2, 1, 3);
    layer.flags = {0, 1};
    layer.biases[kCellGate][0] = layer.biases[kCellGate][2] = 100.0f;
    layer.recurrent_weights[kCellGate][1 * 3 + seen] = 100.0f;
    layer.run();
    EXPECT_EQ(0.0f, layer.cell(0, 1)) << seen;
    EXPECT_EQ(0.5f, layer.cell(1, 0)) << seen;
    EXPECT_EQ(seen == 0 ? 0.5f : 0.0f, layer.cell(1, 1)) << seen;
  }
}

TEST(Lstm, AClearFlagForgetsTheSequenceAtThatStepOnly) {
  Layer layer(4, 2, 1, 1);
  layer.flags = {0, 0, 1, 1, 0, 1, 1, 1};
  layer.biases[kCellGate][0] = 100.0f;    // g = 1
  layer.biases[kForgetGate][0] = 100.0f;  // f = 1, i = 1/2: each step that continues adds 1/2
  layer.run();
  EXPECT_EQ(1.0f, layer.cell(0, 0));
  EXPECT_EQ(2.0f, layer.cell(1, 0));
  EXPECT_EQ(layer.hidden(0, 0, 0), layer.hidden(2, 0, 0));
  EXPECT_EQ(layer.hidden(1, 0, 0), layer.hidden(3, 0, 0));
  EXPECT_NE(layer.hidden(0, 1, 0), layer.hidden(2, 1, 0));
}

TEST(Lstm, WithAllFlagsClearEveryStepDependsOnItsInputOnly) {
  Layer layer(3, 1, 2, 2);
  for (size_t g = 0; g < 4; ++g) {
    layer.input_weights[g] = {0.5f, -0.25f, 1.0f, 0.75f};
    layer.recurrent_weights[g] = {9.0f, -7.0f, 3.0f, 5.0f};
  }
  for (uint32_t t = 0; t < 3; ++t) {
    layer.input(t, 0, 0) = t == 1 ? -2.0f : 1.0f;
    layer.input(t, 0, 1) = 0.5f;
  }
  layer.run();
  for (uint32_t j = 0; j < 2; ++j) {
    EXPECT_EQ(layer.hidden(0, 0, j), layer.hidden(2, 0, j));
    EXPECT_NE(layer.hidden(0, 0, j), layer.hidden(1, 0, j));
  }
}

TEST(Lstm, GateSumsAreNeitherFusedNorRegrouped) {
  // x * w is 1 + 2^-11 + 2^-24, whose last term rounding loses; then 1 is swallowed by 2^24 twice over.
  Layer layer(1, 1, 4, 1);
  layer.biases[kCellGate][0] = 0.0f;
  layer.input_weights[kCellGate] = {0x1.001p0f, 0x1.002p0f, 0.0f, 0.0f};
  layer.input(0, 0, 0) = 0x1.001p0f;
  layer.input(0, 0, 1) = -1.0f;
  layer.run();
  EXPECT_EQ(0.0f, layer.cell(0, 0));
  layer.input_weights[kCellGate] = {16777216.0f, 1.0f, 1.0f, -16777216.0f};
  for (uint32_t k = 0; k < 4; ++k) layer.input(0, 0, k) = 1.0f;
  layer.run();
  EXPECT_EQ(0.0f, layer.cell(0, 0));
}

TEST(Lstm, FloatOutputIsNotCopiedOutAndFloatInputIsNotRead) {
  for (const _NN_FMT fmt : {format(32, 0, 1), format(32, 4, 0), format(8, 3, 2), format(16, 3, -1), format(24, 3, 1)}) {
    Layer layer(1, 1, 1, 1, true);
    layer.block.in_fmt = layer.block.out_fmt = fmt;  // input, static input and output addresses fault
    layer.input(0, 0, 0) = 100.0f;
    layer.input_weights[kCellGate][0] = 1.0f;
    layer.run();
    EXPECT_EQ(0.5f * kTanhOfHalf, layer.hidden(0, 0, 0));
  }
}

TEST(Lstm, BitCountsAreAddedUpModulo256) {
  // -120 - 128 is 8 and -120 - 120 is 16 there, though the type query knows neither. A zero stays zero in any format.
  Layer layer(1, 1, 1, 1);
  const GuardedMemory input = memory_of(std::vector<uint8_t>{0});
  const GuardedMemory output = memory_of(std::vector<int16_t>{-1});
  layer.block.in_fmt = {-120, -128, 0, 0};
  layer.block.out_fmt = {-120, -120, 0, 0};
  layer.block.in_addr = input.address();
  layer.block.out_addr = output.address();
  layer.input(0, 0, 0) = 100.0f;
  layer.input_weights[kCellGate][0] = 1.0f;
  layer.run();
  EXPECT_EQ(0.0f, layer.hidden(0, 0, 0));
  EXPECT_EQ(0, values_in<int16_t>(output)[0]);
}

TEST(Lstm, WithoutStepsOnlyTheCellStatesAreClearedAndTheStaticInputConverted) {
  Layer layer(0, 2, 3, 4, true);
  _NN_LSTM_PARM block = layer.block;
  const GuardedMemory statics = memory_of(std::vector<uint8_t>{2, 4, 6, 8, 10, 255});
  const GuardedMemory work = memory_of(std::vector<float>(14, 7.0f));
  block.in_fmt = format(8, 1, 0);
  block.out_fmt = format(8, 3, 1);
  block.static_addr = statics.address();
  block.work_buffer = work.address();
  block.cont_addr = unreadable_address();
  EXPECT_EQ(QX_OK, tarvu_lstm_process(&block));
  EXPECT_EQ((std::vector<float>{1, 2, 3, 4, 5, 127.5f, 0, 0, 0, 0, 0, 0, 0, 0}), values_in<float>(work));
}

TEST(Lstm, WithoutUnitsOnlyTheInputIsConverted) {
  Layer layer(2, 1, 2, 0);
  _NN_LSTM_PARM block = layer.block;
  const GuardedMemory input = memory_of(std::vector<int16_t>{-3, 5, 32767, -32768});
  const GuardedMemory flags = memory_of(std::vector<uint8_t>{1, 1});
  const GuardedMemory work = memory_of(std::vector<float>(6, 7.0f));
  block.in_fmt = format(16, -1, 1);
  block.out_fmt = format(8, 3, 1);
  block.in_addr = input.address();
  block.cont_addr = flags.address();
  block.work_buffer = work.address();
  EXPECT_EQ(QX_OK, tarvu_lstm_process(&block));
  EXPECT_EQ((std::vector<float>{-6, 10, 65534, -65536, 7, 7}), values_in<float>(work));
}

}  // namespace
