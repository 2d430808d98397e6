#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_eltwise_reference.h"
#include "tests/support/differential.h"
#include "tests/support/filled_memory.h"
#include "tests/support/formats.h"

namespace {

using namespace support;

/// Two inputs of one fixed-point type and an output as wide, of dense planes.
_NN_ELTWISE_PARM block_of(uint16_t width, uint16_t height, uint16_t channels, int bits) {
  _NN_ELTWISE_PARM block{};
  block.width = width;
  block.height = height;
  block.channel = channels;
  block.batch = 1;
  const uint32_t plane = uint32_t{width} * height * static_cast<uint32_t>(bits) / 8;
  block.in0_channel_ofs = block.in1_channel_ofs = block.out_channel_ofs = plane;
  block.in0_batch_ofs = block.in1_batch_ofs = block.out_batch_ofs = plane * channels;
  block.in0_fmt = block.in1_fmt = block.out_fmt = format(bits, 4, 1);
  block.in0_scale = block.in1_scale = block.out_scale = scale(1, 0);
  block.coeff0 = block.coeff1 = 1.0f;
  return block;
}

std::string text_of(const _NN_ELTWISE_PARM &block) {
  const auto tensor = [](const _NN_FMT &fmt, const _NN_SCALE &s) {
    return "{" + std::to_string(fmt.frac_bits) + ", sign " + std::to_string(fmt.sign_bits) + ", scale " +
           std::to_string(s.scale_value) + " >> " + std::to_string(s.scale_shift) + "} ";
  };
  return "operation " + std::to_string(block.op) + ", weights " + std::to_string(block.coeff0) + " and " +
         std::to_string(block.coeff1) + ", tensors " + tensor(block.in0_fmt, block.in0_scale) +
         tensor(block.in1_fmt, block.in1_scale) + tensor(block.out_fmt, block.out_scale);
}

/// Every pair of 8-bit elements, in a plane of 256 x 256.
class EveryPair {
 public:
  explicit EveryPair(Random &random) : scratch_(random, size_t{12} << 16) {
    for (size_t i = 0; i < kPairs; ++i) {
      first_.data()[i] = static_cast<uint8_t>(i >> 8);
      second_.data()[i] = static_cast<uint8_t>(i);
    }
  }

  void expect_equal(_NN_ELTWISE_PARM block) {
    Case<_NN_ELTWISE_PARM> eltwise;
    eltwise.block = block;
    eltwise.block.work_buffer = scratch_.address();
    eltwise.attach(&_NN_ELTWISE_PARM::in0_addr, first_, "first input", Element::k8Bit);
    eltwise.attach(&_NN_ELTWISE_PARM::in1_addr, second_, "second input", Element::k8Bit);
    eltwise.attach(&_NN_ELTWISE_PARM::out_addr, output_, "output", Element::k8Bit);
    EXPECT_TRUE(eltwise.same(scratch_.wrap(tarvu_eltwise_process), scratch_.wrap(reference::tarvu_eltwise_process)))
        << text_of(block);
  }

 private:
  static constexpr size_t kPairs = size_t{1} << 16;
  GuardedMemory first_{kPairs};
  GuardedMemory second_{kPairs};
  GuardedMemory output_{kPairs};
  Scratch scratch_;
};

/// 1, 2, 4 ... or its negative, over some power of two.
_NN_SCALE power_of_two(Random &random) {
  const int32_t value = 1 << random.below(5);
  return scale(random.one_in(5) ? -value : value, random.between(-2, 8));
}

TEST(EltwiseOfOneType, EqualsItsTwinForEveryPairOfElementsWherePowersOfTwoMakeAllExact) {
  Random random = test_random(381);
  SCOPED_TRACE(random.trace());
  EveryPair pairs(random);
  for (int round = 0; round < 96; ++round) {
    _NN_ELTWISE_PARM block = block_of(256, 256, 1, 8);
    const int sign_bits = round & 1;
    block.in0_fmt = format(8, random.between(0, 8), sign_bits);
    block.in1_fmt = format(8, random.between(0, 8), sign_bits);
    block.out_fmt = format(8, random.between(0, 6), (round >> 1) & 1);
    block.op = (round >> 2) & 1;
    if (random.one_in(2)) block.in0_scale = power_of_two(random);
    if (random.one_in(2)) block.in1_scale = power_of_two(random);
    if (random.one_in(2)) block.out_scale = power_of_two(random);
    if (random.one_in(2)) block.coeff0 = random.pick({-1.0f, 0.5f, 2.0f, -4.0f});
    if (random.one_in(2)) block.coeff1 = random.pick({-1.0f, 0.25f, 8.0f, 64.0f});
    pairs.expect_equal(block);
    if (HasFailure()) return;
  }
}

TEST(EltwiseOfOneType, EqualsItsTwinForEveryPairOfElementsAtTheLimitsOfExactLanes) {
  Random random = test_random(382);
  EveryPair pairs(random);
  for (const int sign_bits : {0, 1}) {
    for (const int32_t op : {0, 1}) {
      // Shifts of the result from 1 to the left to 20 to the right, and weights up to 2^8 apart.
      for (const int places : {-1, 0, 1, 7, 8, 14, 15, 16, 17, 20}) {
        _NN_ELTWISE_PARM block = block_of(256, 256, 1, 8);
        block.in0_fmt = block.in1_fmt = format(8, 0, sign_bits);
        block.out_fmt = format(8, 0, 1 - sign_bits);
        block.out_scale = scale(1, places);
        block.op = op;
        pairs.expect_equal(block);
      }
      for (const int apart : {5, 6, 7, 8}) {
        _NN_ELTWISE_PARM block = block_of(256, 256, 1, 8);
        block.in0_fmt = format(8, 0, sign_bits);
        block.in1_fmt = format(8, apart, sign_bits);
        block.out_fmt = format(8, 0, sign_bits);
        block.out_scale = scale(1, 4);
        block.op = op;
        pairs.expect_equal(block);
      }
    }
  }
}

TEST(EltwiseOfOneType, EqualsItsTwinForEveryPairOfElementsWhereEveryProductIsRounded) {
  Random random = test_random(383);
  SCOPED_TRACE(random.trace());
  EveryPair pairs(random);
  for (int round = 0; round < 48; ++round) {
    _NN_ELTWISE_PARM block = block_of(256, 256, 1, 8);
    const int sign_bits = round & 1;
    block.in0_fmt = format(8, random.between(-3, 9), sign_bits);
    block.in1_fmt = format(8, random.between(-3, 9), sign_bits);
    block.out_fmt = format(8, random.between(-3, 6), (round >> 1) & 1);
    block.op = (round >> 2) & 1;
    block.in0_scale = scale(random.between(-300, 300), 8);
    block.in1_scale = scale(random.between(-300, 300), 8);
    block.out_scale = scale(random.between(-300, 300), 8);
    block.coeff0 = random.pick({1.0f, -1.0f, 0.3f, 0x1.000002p0f, 0x1p-140f, 0x1p120f});
    block.coeff1 = random.pick({1.0f, 2.0f, -0.7f, 0.0f});
    pairs.expect_equal(block);
    if (HasFailure()) return;
  }
}

TEST(EltwiseOfOneType, ASumOfHalvesIsTruncatedTowardsZeroOnBothSides) {
  // One fraction bit is lost: 1/2 and -1/2 give 0, 3/2 and -3/2 give 1 and -1.
  _NN_ELTWISE_PARM block = block_of(8, 4, 1, 8);
  block.in0_fmt = block.in1_fmt = format(8, 1, 1);
  block.out_fmt = format(8, 0, 1);
  block.op = 1;
  std::vector<int8_t> first, second, expected;
  for (int i = 0; i < 32; ++i) {
    first.push_back(static_cast<int8_t>(i - 16));
    second.push_back(1);
    expected.push_back(static_cast<int8_t>((i - 15) / 2));
  }
  const GuardedMemory first_memory = memory_of(first);
  const GuardedMemory second_memory = memory_of(second);
  const GuardedMemory output(32);
  const GuardedMemory scratch(12 * 32);
  block.in0_addr = first_memory.address();
  block.in1_addr = second_memory.address();
  block.out_addr = output.address();
  block.work_buffer = scratch.address();
  EXPECT_EQ(QX_OK, tarvu_eltwise_process(&block));
  EXPECT_EQ(expected, values_in<int8_t>(output));
}

/// Planes of any size, dense or apart, at any address; the output elsewhere or one of the inputs.
void random_case(Random &random, uint16_t width) {
  Case<_NN_ELTWISE_PARM> eltwise;
  _NN_ELTWISE_PARM &block = eltwise.block;
  const int bits = random.pick({8, 16});
  block =
      block_of(width, static_cast<uint16_t>(random.between(1, 4)), static_cast<uint16_t>(random.between(1, 3)), bits);
  block.batch = static_cast<uint16_t>(random.between(1, 3));
  const int sign_bits = random.between(0, 1);
  block.in0_fmt = format(bits, random.between(-2, bits), sign_bits);
  block.in1_fmt = format(bits, random.between(-2, bits), sign_bits);
  block.out_fmt = format(bits, random.between(random.one_in(5) ? -3 : 0, bits - 2), random.between(0, 1));
  block.op = random.between(0, 1);
  const bool exact = random.one_in(2);
  if (!exact) block.in0_scale = scale(random.between(1, 99), random.between(-2, 6));
  if (!exact) block.out_scale = scale(random.between(1, 99), random.between(-2, 6));
  block.coeff0 = random.pick({1.0f, 1.0f, -1.0f, 0.5f, 0.3f});
  block.coeff1 = random.pick({1.0f, 1.0f, -1.0f, 0.5f, 0.3f});
  const uint32_t gap = random.one_in(2) ? 0 : random.below(7);
  const uint32_t item_gap = random.one_in(2) ? 0 : random.below(7);
  block.in0_channel_ofs = block.in1_channel_ofs = block.out_channel_ofs = block.in0_channel_ofs + gap;
  block.in0_batch_ofs = block.in1_batch_ofs = block.out_batch_ofs = block.channel * block.in0_channel_ofs + item_gap;
  const size_t bytes =
      (block.batch - size_t{1}) * block.in0_batch_ofs + block.channel * size_t{block.in0_channel_ofs} - gap;

  const GuardedMemory first(bytes, {random.pick({Fault::kBehind, Fault::kInFront}), 1, random.below(4)});
  const GuardedMemory second(bytes, {random.pick({Fault::kBehind, Fault::kInFront}), 1, random.below(4)});
  const GuardedMemory output(bytes, {random.pick({Fault::kBehind, Fault::kInFront}), 1, random.below(4)});
  random.fill(first.data(), bytes);
  random.fill(second.data(), bytes);
  random.fill(output.data(), bytes);
  const Scratch scratch(random, size_t{12} * width * block.height);
  block.work_buffer = scratch.address();
  const Element element = bits == 16 ? Element::k16Bit : Element::k8Bit;
  eltwise.attach(&_NN_ELTWISE_PARM::in0_addr, first, "first input", element);
  eltwise.attach(&_NN_ELTWISE_PARM::in1_addr, second, "second input", element);
  const int in_place = random.between(0, 3);
  if (in_place == 2) {
    block.out_addr = block.in0_addr;
  } else if (in_place == 3) {
    block.out_addr = block.in1_addr;
  } else {
    eltwise.attach(&_NN_ELTWISE_PARM::out_addr, output, "output", element);
  }
  EXPECT_TRUE(eltwise.same(scratch.wrap(tarvu_eltwise_process), scratch.wrap(reference::tarvu_eltwise_process)))
      << width << " x " << block.height << " x " << block.channel << " x " << block.batch << ", " << text_of(block);
}

TEST(EltwiseOfOneType, EqualsItsTwinForEveryWidthAndInPlace) {
  Random random = test_random(384);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 24; ++round) {
    for (uint16_t width = 1; width <= 67; ++width) {
      random_case(random, width);
      if (HasFailure()) return;
    }
  }
}

TEST(EltwiseOfOneType, ScratchThatOverlapsAnInputIsWrittenBeforeTheInputIsRead) {
  // Nobody should do this; the result is that of whole planes all the same: the first conversion overwrites the second input.
  _NN_ELTWISE_PARM block = block_of(4, 1, 1, 8);
  block.in0_fmt = block.in1_fmt = block.out_fmt = format(8, 0, 1);
  block.op = 1;
  const GuardedMemory first = memory_of(std::vector<int8_t>{1, 2, 3, 4});
  const GuardedMemory scratch(48);
  const GuardedMemory output(4);
  block.in0_addr = first.address();
  block.in1_addr = block.work_buffer = scratch.address();
  block.out_addr = output.address();
  EXPECT_EQ(QX_OK, tarvu_eltwise_process(&block));
  // The bytes of 1.0f are 0, 0, -128, 63.
  EXPECT_EQ((std::vector<int8_t>{1, 2, -125, 67}), values_in<int8_t>(output));
}

}  // namespace
