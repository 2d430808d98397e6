#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_eltwise_reference.h"
#include "tests/support/differential.h"
#include "tests/support/filled_memory.h"
#include "tests/support/formats.h"

namespace {

using namespace support;

constexpr int32_t kProduct = 0;
constexpr int32_t kSum = 1;

/// One plane of three float tensors with dense lines; scratch memory is not readable.
_NN_ELTWISE_PARM float_block(uint16_t width, uint16_t height, int32_t op, float coeff0 = 1.0f, float coeff1 = 1.0f) {
  _NN_ELTWISE_PARM block{};
  block.work_buffer = unreadable_address();
  block.width = width;
  block.height = height;
  block.channel = block.batch = 1;
  block.in0_line_ofs = block.in1_line_ofs = block.out_line_ofs = width * 4u;
  block.in0_fmt = block.in1_fmt = block.out_fmt = format(32, 0, 1);
  block.in0_scale = block.in1_scale = block.out_scale = scale(1, 0);
  block.op = op;
  block.coeff0 = coeff0;
  block.coeff1 = coeff1;
  return block;
}

/// Runs the block on one line of floats each.
std::vector<float> line_of(_NN_ELTWISE_PARM block, const std::vector<float> &a, const std::vector<float> &b) {
  const GuardedMemory first = memory_of(a);
  const GuardedMemory second = memory_of(b);
  const GuardedMemory output(a.size() * sizeof(float));
  block.in0_addr = first.address();
  block.in1_addr = second.address();
  block.out_addr = output.address();
  StdoutCapture capture;
  EXPECT_EQ(QX_OK, tarvu_eltwise_process(&block));
  EXPECT_EQ("", capture.text());
  EXPECT_EQ(std::string(), output.guard_damage());
  return values_in<float>(output);
}

TEST(Eltwise, ProductIgnoresTheWeights) {
  EXPECT_EQ((std::vector<float>{2, -6, 12, 20, 0}),
            line_of(float_block(5, 1, kProduct, 7.0f, 9.0f), {1, 2, 3, 4, 5}, {2, -3, 4, 5, 0}));
}

TEST(Eltwise, SumWeighsBothInputs) {
  const std::vector<float> a = {1, 2, 3, 4, 5};
  const std::vector<float> b = {10, 20, 30, 40, 50};
  EXPECT_EQ((std::vector<float>{11, 22, 33, 44, 55}), line_of(float_block(5, 1, kSum), a, b));
  EXPECT_EQ((std::vector<float>{-9, -18, -27, -36, -45}), line_of(float_block(5, 1, kSum, 1.0f, -1.0f), a, b));
  EXPECT_EQ((std::vector<float>{12, 24, 36, 48, 60}), line_of(float_block(5, 1, kSum, 2.0f, 1.0f), a, b));
  EXPECT_EQ((std::vector<float>{7, 14, 21, 28, 35}), line_of(float_block(5, 1, kSum, 2.0f, 0.5f), a, b));
}

TEST(Eltwise, BothProductsOfASumAreRoundedBeforeTheyAreAdded) {
  // (1 + 2^-12)^2 is 1 + 2^-11 + 2^-24; the last term is lost in rounding, a fused operation would keep it.
  const std::vector<float> a(9, 0x1.001p0f);
  const std::vector<float> b(9, 0x1.002p0f);
  EXPECT_EQ(std::vector<float>(9, 0.0f), line_of(float_block(9, 1, kSum, 0x1.001p0f, -1.0f), a, b));
  EXPECT_EQ(std::vector<float>(9, 0.0f), line_of(float_block(9, 1, kSum, -1.0f, 0x1.001p0f), b, a));
}

TEST(Eltwise, UnknownOperationPrintsItsLineAndGivesTheSum) {
  for (const int32_t op : {7, 2, -1, std::numeric_limits<int32_t>::min()}) {
    _NN_ELTWISE_PARM block = float_block(3, 1, op, 2.0f, 3.0f);
    block.channel = 2;  // one line for all planes
    const GuardedMemory first = memory_of(std::vector<float>{1, 2, 3});
    const GuardedMemory second = memory_of(std::vector<float>{10, 20, 30});
    const GuardedMemory output(12);
    block.in0_addr = first.address();
    block.in1_addr = second.address();
    block.out_addr = output.address();
    StdoutCapture capture;
    EXPECT_EQ(QX_OK, tarvu_eltwise_process(&block));
    EXPECT_EQ("\033[1;31mERR:tarvu_eltwise_process() Eltwise layer: unsupported operation " + std::to_string(op) +
                  "!\n\033[0m",
              capture.text());
    EXPECT_EQ((std::vector<float>{32, 64, 96}), values_in<float>(output));
  }
}

TEST(Eltwise, UnknownOperationIsReportedWithoutBatchItemsToo) {
  _NN_ELTWISE_PARM block = float_block(3, 1, 7);
  block.batch = 0;
  StdoutCapture capture;
  EXPECT_EQ(QX_OK, tarvu_eltwise_process(&block));
  EXPECT_EQ("\033[1;31mERR:tarvu_eltwise_process() Eltwise layer: unsupported operation 7!\n\033[0m", capture.text());
}

TEST(Eltwise, AZeroExtentTouchesNothing) {
  for (const int fixed : {0, 1}) {
    for (const int empty : {0, 1, 2, 3}) {
      _NN_ELTWISE_PARM block = float_block(empty == 0 ? 0 : 4, empty == 1 ? 0 : 3, kProduct);
      block.channel = empty == 2 ? 0 : 2;
      block.batch = empty == 3 ? 0 : 2;
      if (fixed != 0) block.in0_fmt = block.in1_fmt = block.out_fmt = format(8, 3, 1);
      block.in0_addr = block.in1_addr = block.out_addr = unreadable_address();
      EXPECT_EQ(QX_OK, tarvu_eltwise_process(&block)) << empty;
    }
  }
}

TEST(Eltwise, FloatLinesArePaddedWhereFixedLinesAreDense) {
  _NN_ELTWISE_PARM block = float_block(3, 2, kSum);
  block.in0_line_ofs = 20;
  block.in1_line_ofs = 100;  // not read, the tensor is not a float one
  block.in1_fmt = format(8, 1, 1);
  block.out_line_ofs = 16;
  const GuardedMemory first = memory_of(std::vector<float>{1, 2, 3, 99, 99, 4, 5, 6});
  const GuardedMemory second = memory_of(std::vector<int8_t>{20, 40, 60, 80, 100, 120});
  const GuardedMemory output = memory_of(std::vector<float>(7, -1.0f));
  Random random(1);
  const Scratch scratch(random, 12 * 6);
  block.in0_addr = first.address();
  block.in1_addr = second.address();
  block.out_addr = output.address();
  block.work_buffer = scratch.address();
  EXPECT_EQ(QX_OK, scratch.wrap(tarvu_eltwise_process)(&block));
  EXPECT_EQ((std::vector<float>{11, 22, 33, -1, 44, 55, 66}), values_in<float>(output));
}

TEST(Eltwise, FixedInputsAndFloatOutputWriteTheOutputPlaneItself) {
  _NN_ELTWISE_PARM block = float_block(2, 1, kProduct);
  block.in0_fmt = format(16, 2, 1);
  block.in1_fmt = format(8, 0, 0);
  block.in1_scale = scale(3, 1);
  const GuardedMemory first = memory_of(std::vector<int16_t>{-400, 10});
  const GuardedMemory second = memory_of(std::vector<uint8_t>{200, 2});
  const GuardedMemory output(8);
  Random random(1);
  const Scratch scratch(random, 24);
  block.in0_addr = first.address();
  block.in1_addr = second.address();
  block.out_addr = output.address();
  block.work_buffer = scratch.address();
  EXPECT_EQ(QX_OK, scratch.wrap(tarvu_eltwise_process)(&block));
  EXPECT_EQ((std::vector<float>{-30000.0f, 7.5f}), values_in<float>(output));
}

TEST(Eltwise, ScratchPlanesStandInTheOrderFirstInputSecondInputResult) {
  // No conversion knows these formats, so the planes hold what scratch memory held.
  _NN_ELTWISE_PARM block = float_block(2, 1, kSum, 1.0f, 100.0f);
  block.in0_fmt = block.in1_fmt = format(24, 4, 1);
  block.in0_addr = block.in1_addr = unreadable_address();
  const GuardedMemory output(8);
  const GuardedMemory scratch = memory_of(std::vector<float>{1, 2, 3, 4, 0, 0});
  block.out_addr = output.address();
  block.work_buffer = scratch.address();
  EXPECT_EQ(QX_OK, tarvu_eltwise_process(&block));
  EXPECT_EQ((std::vector<float>{301, 402}), values_in<float>(output));
}

TEST(Eltwise, AnUnknownOutputFormatKeepsTheOutput) {
  for (const _NN_FMT fmt : {format(24, 4, 1), format(8, 3, 2), format(16, 3, -1)}) {
    _NN_ELTWISE_PARM block = float_block(2, 1, kSum);
    block.out_fmt = fmt;
    const GuardedMemory input = memory_of(std::vector<float>{1, 2});
    const GuardedMemory scratch(24);
    block.in0_addr = block.in1_addr = input.address();
    block.out_addr = unreadable_address();
    block.work_buffer = scratch.address();
    EXPECT_EQ(QX_OK, tarvu_eltwise_process(&block));
    EXPECT_EQ(std::string(), scratch.guard_damage());
  }
}

/// A tensor of a random case: its memory holds exactly what the block addresses.
struct RandomTensor {
  _NN_FMT fmt;
  size_t element_bytes;
  uint32_t line_bytes, channel_bytes, batch_bytes;
  size_t bytes;

  RandomTensor(Random &random, const _NN_ELTWISE_PARM &block, bool may_repeat) {
    switch (random.below(8)) {
      case 0:
        fmt = format(24, 4, 1);
        break;
      case 1:
        fmt = format(random.pick({8, 16}), 3, 2);
        break;
      case 2:
      case 3:
      case 4:
        fmt = format(32, random.between(-3, 20), random.between(0, 2));
        break;
      default: {
        const int width = random.pick({8, 16});
        fmt = format(width, random.between(-4, width + 3), random.between(0, 1));
      }
    }
    element_bytes = static_cast<size_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits) / 8;
    const bool is_float = element_bytes == 4;
    const uint32_t unit = is_float ? 4 : 1;
    const uint32_t dense_line = block.width * static_cast<uint32_t>(element_bytes);
    line_bytes = is_float ? dense_line + 4 * random.below(4) : static_cast<uint32_t>(random.next());
    if (is_float && may_repeat && random.one_in(6)) line_bytes = 0;
    const uint32_t further_lines = block.height == 0 ? 0u : block.height - 1u;
    const uint32_t plane = is_float ? further_lines * line_bytes + dense_line : block.height * dense_line;
    channel_bytes = may_repeat && random.one_in(6) ? 0 : plane + unit * random.below(6);
    batch_bytes = may_repeat && random.one_in(6) ? 0 : block.channel * channel_bytes + unit * random.below(6);
    const uint32_t further_channels = block.channel == 0 ? 0u : block.channel - 1u;
    const uint32_t further_items = block.batch == 0 ? 0u : block.batch - 1u;
    const bool empty = block.height == 0 || block.channel == 0 || block.batch == 0;
    bytes = empty ? 0 : further_items * batch_bytes + further_channels * channel_bytes + plane;
  }

  Element element() const {
    return element_bytes == 4 ? Element::kFloat : element_bytes == 2 ? Element::k16Bit : Element::k8Bit;
  }

  void fill(Random &random, const GuardedMemory &memory) const {
    random.fill(memory.data(), memory.size());
    if (element_bytes != 4) return;
    if (random.one_in(2)) {
      random.fill_any_floats(memory.data(), memory.size() / 4);
    } else {
      random.fill_floats(memory.data(), memory.size() / 4, -60.0f, 60.0f);
    }
  }
};

void random_case(Random &random, uint32_t width) {
  Case<_NN_ELTWISE_PARM> eltwise;
  _NN_ELTWISE_PARM &block = eltwise.block;
  block.width = static_cast<uint16_t>(width);
  block.height = static_cast<uint16_t>(random.between(random.one_in(9) ? 0 : 1, 5));
  block.channel = static_cast<uint16_t>(random.between(random.one_in(9) ? 0 : 1, 3));
  block.batch = static_cast<uint16_t>(random.between(random.one_in(9) ? 0 : 1, 3));
  block.op = random.one_in(16) ? static_cast<int32_t>(random.next()) : random.between(kProduct, kSum);
  const auto coefficient = [&random] {
    return random.one_in(6) ? random.any_float() : random.pick({1.0f, 1.0f, -1.0f, 0.3f, 0.0f, 0x1.000002p0f});
  };
  block.coeff0 = coefficient();
  block.coeff1 = coefficient();
  const RandomTensor first(random, block, true);
  const RandomTensor second(random, block, true);
  RandomTensor out(random, block, false);
  const bool in_place = random.one_in(4) && first.line_bytes != 0 && first.channel_bytes != 0 && first.batch_bytes != 0;
  if (in_place) out = first;
  block.in0_fmt = first.fmt;
  block.in0_line_ofs = first.line_bytes;
  block.in0_channel_ofs = first.channel_bytes;
  block.in0_batch_ofs = first.batch_bytes;
  block.in1_fmt = second.fmt;
  block.in1_line_ofs = second.line_bytes;
  block.in1_channel_ofs = second.channel_bytes;
  block.in1_batch_ofs = second.batch_bytes;
  block.out_fmt = out.fmt;
  block.out_line_ofs = out.line_bytes;
  block.out_channel_ofs = out.channel_bytes;
  block.out_batch_ofs = out.batch_bytes;
  block.in0_scale = scale(random.between(-3, 99), random.between(-2, 6));
  block.in1_scale = scale(random.between(-3, 99), random.between(-2, 6));
  block.out_scale = scale(random.between(1, 99), random.between(-3, 5));

  // Floats stand at any address, too.
  const GuardedMemory first_memory(first.bytes, {Fault::kBehind, 1, random.below(4)});
  const GuardedMemory second_memory(second.bytes, {Fault::kInFront, 1, random.below(4)});
  const GuardedMemory out_memory(out.bytes, {random.pick({Fault::kBehind, Fault::kInFront}), 1, random.below(4)});
  first.fill(random, first_memory);
  second.fill(random, second_memory);
  random.fill(out_memory.data(), out_memory.size());
  // It ends at a page: up to 3 bytes more let it start at any address.
  const Scratch scratch(random, 12 * size_t{width} * block.height + random.below(4));
  block.work_buffer = scratch.address();
  eltwise.attach(&_NN_ELTWISE_PARM::in0_addr, first_memory, "first input", first.element());
  eltwise.attach(&_NN_ELTWISE_PARM::in1_addr, second_memory, "second input", second.element());
  if (in_place) {
    block.out_addr = block.in0_addr;
  } else {
    eltwise.attach(&_NN_ELTWISE_PARM::out_addr, out_memory, "output", out.element());
  }
  EXPECT_TRUE(eltwise.same(scratch.wrap(tarvu_eltwise_process), scratch.wrap(reference::tarvu_eltwise_process)))
      << width << " x " << block.height << " x " << block.channel << " x " << block.batch << ", operation " << block.op
      << ", widths " << 8 * first.element_bytes << ", " << 8 * second.element_bytes << " to " << 8 * out.element_bytes
      << (in_place ? ", in place" : "");
}

TEST(Eltwise, EqualsItsTwinOnRandomBlocks) {
  Random random = test_random(380);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 40; ++round) {
    for (uint32_t width = 0; width <= 35; ++width) {
      random_case(random, width);
      if (HasFailure()) return;
    }
  }
}

}  // namespace
