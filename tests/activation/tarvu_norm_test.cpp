#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_norm_reference.h"
#include "tests/support/differential.h"
#include "tests/support/filled_memory.h"
#include "tests/support/formats.h"

namespace {

using namespace support;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// A dense float tensor in, a dense float tensor out; nothing else is readable.
_NN_NORM_PARM float_block(uint16_t width, uint16_t height, uint16_t channel) {
  _NN_NORM_PARM block{};
  block.work_buffer = unreadable_address();
  block.width = width;
  block.height = height;
  block.channel = channel;
  block.batch = 1;
  block.in_fmt = format(32, 0, 1);
  block.out_fmt = format(32, 0, 1);
  block.in_scale = scale(1, 0);
  block.out_scale = scale(1, 0);
  return block;
}

std::vector<float> result_of(_NN_NORM_PARM block, const std::vector<float> &in, const std::vector<float> &scales) {
  const GuardedMemory input = memory_of(in);
  const GuardedMemory learned = memory_of(scales);
  const GuardedMemory output(in.size() * sizeof(float));
  block.in_addr = input.address();
  block.out_addr = output.address();
  block.scale_addr = learned.address();
  EXPECT_EQ(QX_OK, tarvu_norm_process(&block));
  EXPECT_EQ(std::string(), output.guard_damage());
  return values_in<float>(output);
}

TEST(Norm, APlaneOfAHundredPositionsIsCoarseInNinetySixAndExactInTheLastFour) {
  _NN_NORM_PARM block = float_block(10, 10, 1);
  for (const uint8_t shared : std::initializer_list<uint8_t>{0, 1}) {
    block.shared_scale = shared;
    const std::vector<float> out = result_of(block, std::vector<float>(100, 3.0f), {1.0f});
    for (size_t p = 0; p < 96; ++p) EXPECT_EQ(0.9990234375f, out[p]) << p;
    for (size_t p = 96; p < 100; ++p) EXPECT_EQ(1.0f, out[p]) << p;
  }
}

TEST(Norm, APlaneOfFewerThanSixteenPositionsIsExactThroughout) {
  const std::vector<float> out = result_of(float_block(15, 1, 1), std::vector<float>(15, -3.0f), {0.5f});
  EXPECT_EQ(std::vector<float>(15, -0.5f), out);
}

TEST(Norm, PositionSumStartsFromEpsInABlockAndTakesItLastInTheTail) {
  // (-1 + 1) + 2^-30 is 2^-30, but (1 + 2^-30) - 1 is 0.
  _NN_NORM_PARM block = float_block(17, 1, 2);
  block.eps = -1.0f;
  std::vector<float> in(34, 1.0f);
  for (size_t p = 17; p < 34; ++p) in[p] = 0x1p-15f;
  const std::vector<float> out = result_of(block, in, {1.0f, 1.0f});
  for (size_t p = 0; p < 16; ++p) {
    EXPECT_EQ(32704.0f, out[p]) << p;
    EXPECT_EQ(0.998046875f, out[17 + p]) << p;
  }
  EXPECT_EQ(kInfinity, out[16]);
  EXPECT_EQ(kInfinity, out[33]);
}

TEST(Norm, SquaresOfAWholeItemAreSummedFourToALane) {
  // 2^24 swallows each 1 that joins it alone; elements 5 and 6 share lane 1, so they join as 2.
  _NN_NORM_PARM block = float_block(16, 1, 1);
  block.norm_whole_item = 1;
  block.eps = -16777216.0f;
  std::vector<float> in(16, 0.0f);
  in[0] = 4096.0f;
  in[5] = 1.0f;
  in[6] = 1.0f;
  const std::vector<float> out = result_of(block, in, {1.0f});
  EXPECT_EQ(0.70710678f, out[5]);
  EXPECT_EQ(0.70710678f, out[6]);
  EXPECT_EQ(2896.3093f, out[0]);
}

TEST(Norm, SquaresBehindTheLastBlockOfAnItemJoinTheSumOneAtATime) {
  _NN_NORM_PARM block = float_block(18, 1, 1);
  block.norm_whole_item = 1;
  block.eps = -16777216.0f;
  std::vector<float> in(18, 0.0f);
  in[0] = 4096.0f;
  in[16] = 1.0f;
  in[17] = 1.0f;
  const std::vector<float> out = result_of(block, in, {1.0f});
  EXPECT_EQ(kInfinity, out[16]);
  EXPECT_EQ(kInfinity, out[17]);
  EXPECT_TRUE(std::isnan(out[1]));
}

TEST(Norm, AllZeroPositionWithoutEpsIsNanOnEveryPath) {
  for (const uint8_t whole : std::initializer_list<uint8_t>{0, 1}) {
    for (const uint8_t shared : std::initializer_list<uint8_t>{0, 1}) {
      _NN_NORM_PARM block = float_block(17, 1, 2);
      block.norm_whole_item = whole;
      block.shared_scale = shared;
      const std::vector<float> out = result_of(block, std::vector<float>(34, 0.0f), {1.0f, 1.0f});
      for (size_t i = 0; i < 34; ++i) EXPECT_TRUE(std::isnan(out[i])) << i;
    }
  }
}

TEST(Norm, ASharedScaleReadsOneFloatOnly) {
  for (const uint8_t whole : std::initializer_list<uint8_t>{0, 1}) {
    _NN_NORM_PARM block = float_block(9, 2, 3);
    block.norm_whole_item = whole;
    block.shared_scale = 255;
    block.eps = 1.0f;
    const std::vector<float> twice = result_of(block, std::vector<float>(54, 1.0f), {2.0f});  // a page behind it faults
    const std::vector<float> once = result_of(block, std::vector<float>(54, 1.0f), {1.0f});
    for (size_t i = 0; i < 54; ++i) EXPECT_EQ(2.0f * once[i], twice[i]) << i;
  }
}

TEST(Norm, AFloatTensorAdvancesByItsBatchOffset) {
  _NN_NORM_PARM block = float_block(1, 1, 2);
  block.batch = 3;
  block.in_batch_ofs = 12;
  block.out_batch_ofs = 16;
  const GuardedMemory input = memory_of(std::vector<float>{3, 4, 99, 6, 8, 99, 5, 12});
  const GuardedMemory learned = memory_of(std::vector<float>{1, 2});
  const GuardedMemory output = memory_of(std::vector<float>(10, -1.0f));
  block.in_addr = input.address();
  block.out_addr = output.address();
  block.scale_addr = learned.address();
  EXPECT_EQ(QX_OK, tarvu_norm_process(&block));
  const float thirteenth = 1.0f / 13.0f;
  EXPECT_EQ(
      (std::vector<float>{0.2f * 3, 0.4f * 4, -1, -1, 0.1f * 6, 0.2f * 8, -1, -1, thirteenth * 5, 2 * thirteenth * 12}),
      values_in<float>(output));
}

TEST(Norm, NoChannelsNoBatchOrNoPositionsWriteNothing) {
  Random random = test_random(361);
  SCOPED_TRACE(random.trace());
  for (const uint8_t whole : std::initializer_list<uint8_t>{0, 1}) {
    for (const int empty : {0, 1, 2, 3}) {
      Case<_NN_NORM_PARM> norm;
      const uint16_t extents[4] = {empty == 0 ? uint16_t{0} : uint16_t{20}, empty == 1 ? uint16_t{0} : uint16_t{1},
                                   empty == 2 ? uint16_t{0} : uint16_t{2}, empty == 3 ? uint16_t{0} : uint16_t{2}};
      norm.block = float_block(extents[0], extents[1], extents[2]);
      norm.block.batch = extents[3];
      norm.block.norm_whole_item = whole;
      norm.block.in_fmt = format(8, 2, 1);
      norm.block.in_addr = unreadable_address();
      const GuardedMemory learned = memory_of(std::vector<float>{1.0f, 2.0f});
      const GuardedMemory output(160);
      random.fill(output.data(), output.size());
      const std::vector<uint8_t> before = values_in<uint8_t>(output);
      norm.attach(&_NN_NORM_PARM::scale_addr, learned, "scales");
      norm.attach(&_NN_NORM_PARM::out_addr, output, "output");
      EXPECT_TRUE(norm.same(tarvu_norm_process, reference::tarvu_norm_process)) << empty;
      EXPECT_EQ(before, values_in<uint8_t>(output)) << empty;
    }
  }
}

TEST(Norm, AnElementCountThatWrapsToZeroTouchesNothing) {
  _NN_NORM_PARM block = float_block(32768, 32768, 4);
  block.norm_whole_item = 1;
  block.shared_scale = 1;
  block.in_addr = unreadable_address();
  block.out_addr = unreadable_address();
  const GuardedMemory learned = memory_of(std::vector<float>{1.0f});
  block.scale_addr = learned.address();
  EXPECT_EQ(QX_OK, tarvu_norm_process(&block));
}

_NN_FMT random_format(Random &random) {
  switch (random.below(8)) {
    case 0:
    case 1:
      return format(32, random.between(-3, 20), random.between(0, 2));
    case 2:
      return format(24, 4, 1);  // no conversion knows it
    case 3:
      return format(random.pick({8, 16}), 3, 2);  // a type that the conversions pass over
    default: {
      const int width = random.pick({8, 16});
      return format(width, random.between(-4, width + 3), random.between(0, 1));
    }
  }
}

size_t element_bytes(const _NN_FMT &fmt) {
  return static_cast<size_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits) / 8;
}

/// One random block on random data; `plane` positions, of ordinary size or with every kind of float.
void random_case(Random &random, uint32_t plane, bool whole, bool shared) {
  Case<_NN_NORM_PARM> norm;
  norm.block = float_block(static_cast<uint16_t>(plane), 1, static_cast<uint16_t>(random.below(7)));
  if (plane % 3 == 0 && random.one_in(2)) {
    norm.block.width = static_cast<uint16_t>(plane / 3);
    norm.block.height = 3;
  }
  norm.block.batch = static_cast<uint16_t>(random.below(4));
  norm.block.in_fmt = random_format(random);
  norm.block.out_fmt = random_format(random);
  norm.block.in_scale = scale(random.between(-3, 9), random.between(-2, 6));
  norm.block.out_scale = scale(random.between(1, 99), random.between(-3, 5));
  norm.block.norm_whole_item = static_cast<uint8_t>(whole ? random.between(1, 255) : 0);
  norm.block.shared_scale = static_cast<uint8_t>(shared ? random.between(1, 255) : 0);
  norm.block.eps = random.one_in(4) ? random.any_float() : random.pick({0.0f, 1e-10f, 1e-3f, 1.0f, 300.0f});
  norm.block.reserved_0 = static_cast<uint32_t>(random.next());
  norm.block.in_line_ofs = norm.block.in_channel_ofs = norm.block.out_line_ofs = static_cast<uint32_t>(random.next());
  norm.block.out_channel_ofs = static_cast<uint32_t>(random.next());

  const uint32_t n = plane * norm.block.channel;
  const bool float_in = element_bytes(norm.block.in_fmt) == 4;
  const bool float_out = element_bytes(norm.block.out_fmt) == 4;
  const auto item_in = static_cast<uint32_t>(n * element_bytes(norm.block.in_fmt));
  const auto item_out = static_cast<uint32_t>(n * element_bytes(norm.block.out_fmt));
  norm.block.in_batch_ofs = random.one_in(8) ? 0 : item_in + random.below(7) * (float_in ? 4 : 1);
  norm.block.out_batch_ofs = item_out + random.below(7) * (float_out ? 4 : 1);
  const uint32_t further = norm.block.batch == 0 ? 0u : norm.block.batch - 1u;
  const GuardedMemory input(further * norm.block.in_batch_ofs + item_in);
  const GuardedMemory output(further * norm.block.out_batch_ofs + item_out,
                             {random.pick({Fault::kBehind, Fault::kInFront}), 1, float_out ? 0 : random.below(4)});
  const GuardedMemory learned((shared ? 1 : norm.block.channel) * sizeof(float));
  random.fill(output.data(), output.size());
  random.fill(input.data(), input.size());
  random.fill_floats(learned.data(), learned.size() / sizeof(float), -4.0f, 4.0f);
  if (float_in) {
    if (random.one_in(3)) {
      random.fill_any_floats(input.data(), input.size() / sizeof(float));
    } else {
      random.fill_floats(input.data(), input.size() / sizeof(float), -20.0f, 20.0f);
    }
  }
  const Scratch scratch(random, 8 * size_t{n});
  norm.block.work_buffer = scratch.address();
  // In place the input holds results, whose NaNs compare as one.
  norm.attach(&_NN_NORM_PARM::in_addr, input, "input", float_in ? Element::kFloat : Element::k8Bit, {plane, 16});
  norm.attach(&_NN_NORM_PARM::scale_addr, learned, "scales");
  const Element element = float_out ? Element::kFloat : item_out == 2 * n ? Element::k16Bit : Element::k8Bit;
  if (float_in && float_out && norm.block.in_batch_ofs == norm.block.out_batch_ofs && random.one_in(2)) {
    norm.block.out_addr = norm.block.in_addr;
  } else {
    norm.attach(&_NN_NORM_PARM::out_addr, output, "output", element, {plane, 16});
  }
  EXPECT_TRUE(norm.same(scratch.wrap(tarvu_norm_process), scratch.wrap(reference::tarvu_norm_process)))
      << plane << " positions, " << norm.block.channel << " channels, " << norm.block.batch << " items, types "
      << tarvu_get_fmt_type(&norm.block.in_fmt) << " to " << tarvu_get_fmt_type(&norm.block.out_fmt) << ", eps "
      << norm.block.eps;
}

class NormOfRandomBlocks : public ::testing::TestWithParam<int> {};

TEST_P(NormOfRandomBlocks, EqualsItsTwinForEveryPlaneAroundTheBlockSize) {
  const bool whole = (GetParam() & 2) != 0;
  const bool shared = (GetParam() & 1) != 0;
  Random random = test_random(360 + static_cast<uint64_t>(GetParam()));
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 14; ++round) {
    for (uint32_t plane = 0; plane <= 35; ++plane) {
      random_case(random, plane, whole, shared);
      if (HasFailure()) return;
    }
    random_case(random, 100 + random.below(200), whole, shared);
  }
}

INSTANTIATE_TEST_SUITE_P(AllPaths, NormOfRandomBlocks, ::testing::Range(0, 4));

TEST(Norm, IntegersByPositionEqualTheirTwinForEveryPairOfFormatsApartAndInPlace) {
  Random random = test_random(364);
  SCOPED_TRACE(random.trace());
  for (const uint32_t plane : {63u, 64u, 79u, 80u, 97u, 133u}) {
    for (int formats = 0; formats < 16; ++formats) {
      const int in_width = (formats & 1) != 0 ? 16 : 8;
      const int out_width = (formats & 2) != 0 ? 16 : 8;
      Case<_NN_NORM_PARM> norm;
      norm.block = float_block(static_cast<uint16_t>(plane), 1, static_cast<uint16_t>(random.between(1, 40)));
      norm.block.batch = 2;
      norm.block.shared_scale = static_cast<uint8_t>(random.between(0, 1));
      norm.block.in_fmt = format(in_width, random.between(-3, in_width), (formats & 4) != 0 ? 1 : 0);
      norm.block.out_fmt = format(out_width, random.between(-1, out_width), (formats & 8) != 0 ? 1 : 0);
      norm.block.in_scale = scale(random.between(1, 99), random.between(-2, 6));
      norm.block.out_scale = scale(random.between(1, 99), random.between(-3, 5));
      norm.block.eps = random.pick({0.0f, 1e-10f, 1.0f});
      const uint32_t n = plane * norm.block.channel;
      norm.block.in_batch_ofs = n * static_cast<uint32_t>(in_width / 8) + 3;
      norm.block.out_batch_ofs = n * static_cast<uint32_t>(out_width / 8) + 3;
      const GuardedMemory input(size_t{2} * norm.block.in_batch_ofs - 3);
      const GuardedMemory output(size_t{2} * norm.block.out_batch_ofs - 3);
      const GuardedMemory learned(norm.block.channel * sizeof(float));
      random.fill(input.data(), input.size());
      random.fill(output.data(), output.size());
      random.fill_floats(learned.data(), norm.block.channel, -9.0f, 9.0f);
      const Scratch scratch(random, 8 * size_t{n});
      norm.block.work_buffer = scratch.address();
      norm.attach(&_NN_NORM_PARM::in_addr, input, "input");
      norm.attach(&_NN_NORM_PARM::scale_addr, learned, "scales");
      const bool in_place = in_width == out_width && random.one_in(2);
      if (in_place) {
        norm.block.out_addr = norm.block.in_addr;
      } else {
        norm.attach(&_NN_NORM_PARM::out_addr, output, "output", out_width == 16 ? Element::k16Bit : Element::k8Bit,
                    {plane, 16});
      }
      ASSERT_TRUE(norm.same(scratch.wrap(tarvu_norm_process), scratch.wrap(reference::tarvu_norm_process)))
          << plane << " positions, " << in_width << " to " << out_width << " bits" << (in_place ? ", in place" : "");
    }
  }
}

TEST(Norm, AnOutputOverAnotherPartOfTheInputIsWrittenAfterTheWholeInputHasBeenRead) {
  Random random = test_random(365);
  SCOPED_TRACE(random.trace());
  Case<_NN_NORM_PARM> norm;
  norm.block = float_block(80, 1, 5);
  norm.block.in_fmt = format(8, 4, 1);
  norm.block.out_fmt = format(16, 12, 1);
  const GuardedMemory tensors(1000);
  random.fill(tensors.data(), tensors.size());
  const GuardedMemory learned = memory_of(std::vector<float>{1, 2, 3, 4, 5});
  const Scratch scratch(random, 8 * 400);
  norm.block.work_buffer = scratch.address();
  norm.attach(&_NN_NORM_PARM::in_addr, tensors, "tensors", Element::k8Bit, {}, 200);
  norm.attach(&_NN_NORM_PARM::scale_addr, learned, "scales");
  norm.block.out_addr = tensors.address();
  EXPECT_TRUE(norm.same(scratch.wrap(tarvu_norm_process), scratch.wrap(reference::tarvu_norm_process)));
}

}  // namespace
