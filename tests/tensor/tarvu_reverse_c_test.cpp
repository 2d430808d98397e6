#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_reverse_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/support/stdout_capture.h"

namespace {

using support::Case;
using support::Fault;
using support::format;
using support::GuardedMemory;
using support::Placement;
using support::Random;

constexpr int kBatch = 0;
constexpr int kChannel = 1;
constexpr int kHeight = 2;
constexpr int kWidth = 3;

/// A dense block of signed bytes in equal formats. What the operator does not read is unreadable.
_NN_REVERSE_PARM dense_block(int batch, int channel, int height, int width, int axis) {
  _NN_REVERSE_PARM parm{};
  parm.work_buffer = support::unreadable_address();
  parm.batch = static_cast<uint16_t>(batch);
  parm.channel = static_cast<uint16_t>(channel);
  parm.height = static_cast<uint16_t>(height);
  parm.width = static_cast<uint16_t>(width);
  parm.in_line_ofs = parm.out_line_ofs = static_cast<uint32_t>(width);
  parm.in_channel_ofs = parm.out_channel_ofs = static_cast<uint32_t>(height * width);
  parm.in_batch_ofs = parm.out_batch_ofs = static_cast<uint32_t>(channel * height * width);
  parm.in_fmt = parm.out_fmt = format(8, 4, 1);
  parm.axis = static_cast<int8_t>(axis);
  return parm;
}

/// Runs the block over input bytes; returns `out_bytes` output bytes that were 0xEE before.
std::vector<uint8_t> reversed(_NN_REVERSE_PARM parm, const std::vector<uint8_t> &input, size_t out_bytes) {
  const GuardedMemory in(input.size());
  const GuardedMemory out(out_bytes);
  std::copy(input.begin(), input.end(), in.data());
  out.fill(0xEE);
  parm.in_addr = in.address();
  parm.out_addr = out.address();
  support::StdoutCapture capture;
  const _QX_RESULT result = tarvu_reverse_process(&parm);
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(result, QX_OK);
  EXPECT_EQ(out.guard_damage(), "");
  return {out.data(), out.data() + out_bytes};
}

std::vector<uint8_t> counting(size_t count) {
  std::vector<uint8_t> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = static_cast<uint8_t>(i);
  return values;
}

using Bytes = std::vector<uint8_t>;

TEST(Reverse, WidthTurnsEachLineRound) {
  EXPECT_EQ(reversed(dense_block(1, 1, 2, 3, kWidth), {0, 1, 2, 3, 4, 5}, 6), (Bytes{2, 1, 0, 5, 4, 3}));
}

TEST(Reverse, WidthMovesSixteenBitElementsWhole) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 1, 3, kWidth);
  parm.in_fmt = parm.out_fmt = format(16, 8, 0);
  parm.in_line_ofs = parm.out_line_ofs = 6;
  EXPECT_EQ(reversed(parm, {0, 1, 2, 3, 4, 5}, 6), (Bytes{4, 5, 2, 3, 0, 1}));
}

TEST(Reverse, HeightTurnsTheOrderOfTheLinesRound) {
  EXPECT_EQ(reversed(dense_block(1, 2, 2, 2, kHeight), counting(8), 8), (Bytes{2, 3, 0, 1, 6, 7, 4, 5}));
}

TEST(Reverse, ChannelTurnsTheOrderOfThePlanesRound) {
  EXPECT_EQ(reversed(dense_block(2, 2, 1, 2, kChannel), counting(8), 8), (Bytes{2, 3, 0, 1, 6, 7, 4, 5}));
}

TEST(Reverse, BatchTurnsTheOrderOfTheItemsRound) {
  EXPECT_EQ(reversed(dense_block(3, 1, 1, 2, kBatch), counting(6), 6), (Bytes{4, 5, 2, 3, 0, 1}));
}

TEST(Reverse, ASliceCarriesTheBytesThatPadItsLines) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 2, 2, kHeight);
  parm.in_line_ofs = parm.out_line_ofs = 3;
  EXPECT_EQ(reversed(parm, counting(6), 6), (Bytes{3, 4, 5, 0, 1, 2}));
}

TEST(Reverse, AnOutputStepLargerThanTheInputStepLeavesTheGapsAsTheyWere) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 2, 2, kHeight);
  parm.out_line_ofs = 4;
  EXPECT_EQ(reversed(parm, counting(4), 8), (Bytes{2, 3, 0xEE, 0xEE, 0, 1, 0xEE, 0xEE}));
}

TEST(Reverse, AnOutputStepSmallerThanTheInputStepStillWritesWholeSlices) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 3, 3, kHeight);
  parm.out_line_ofs = 1;
  EXPECT_EQ(reversed(parm, counting(9), 6), (Bytes{6, 3, 0, 1, 2, 0xEE}));
}

TEST(Reverse, OutputStepsOfZeroLeaveTheLastSliceOfTheLastRound) {
  _NN_REVERSE_PARM parm = dense_block(1, 2, 2, 2, kHeight);
  parm.out_line_ofs = parm.out_channel_ofs = 0;
  EXPECT_EQ(reversed(parm, counting(8), 3), (Bytes{4, 5, 0xEE}));
}

TEST(Reverse, InputStepsOfZeroMoveNothing) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 2, 2, kHeight);
  parm.in_line_ofs = 0;
  EXPECT_EQ(reversed(parm, counting(4), 4), (Bytes{0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST(Reverse, RoundsAdvanceByTheStepOfTheNextOuterAxisOnly) {
  _NN_REVERSE_PARM parm = dense_block(2, 2, 2, 2, kWidth);
  parm.in_channel_ofs = parm.out_channel_ofs = 5;
  parm.in_batch_ofs = parm.out_batch_ofs = 100;
  EXPECT_EQ(reversed(parm, counting(16), 16), (Bytes{1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14}));
}

TEST(Reverse, AnExtentOfOneOnTheAxisGivesAPlainCopy) {
  for (const int axis : {kBatch, kChannel, kHeight, kWidth}) {
    EXPECT_EQ(reversed(dense_block(1, 1, 1, 1, axis), {7}, 1), (Bytes{7})) << axis;
  }
}

TEST(Reverse, AnExtentOfZeroOnTheAxisOrOutsideItWritesNothing) {
  for (const int axis : {kBatch, kChannel, kHeight, kWidth}) {
    for (int zero = kBatch; zero <= axis; ++zero) {
      _NN_REVERSE_PARM parm = dense_block(zero == kBatch ? 0 : 2, zero == kChannel ? 0 : 2, zero == kHeight ? 0 : 2,
                                          zero == kWidth ? 0 : 2, axis);
      parm.in_line_ofs = parm.out_line_ofs = 2;
      parm.in_channel_ofs = parm.out_channel_ofs = 4;
      parm.in_batch_ofs = parm.out_batch_ofs = 8;
      EXPECT_EQ(reversed(parm, counting(16), 16), Bytes(16, 0xEE)) << "axis " << axis << ", zero extent " << zero;
    }
  }
}

TEST(Reverse, AWidthOfZeroStillMovesWholeLinesAlongHeight) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 2, 0, kHeight);
  parm.in_line_ofs = parm.out_line_ofs = 2;
  EXPECT_EQ(reversed(parm, counting(4), 4), (Bytes{2, 3, 0, 1}));
}

TEST(Reverse, AnExtentOfZeroInsideTheAxisChangesNothing) {
  _NN_REVERSE_PARM parm = dense_block(2, 0, 0, 0, kBatch);
  parm.in_batch_ofs = parm.out_batch_ofs = 2;
  EXPECT_EQ(reversed(parm, counting(4), 4), (Bytes{2, 3, 0, 1}));
}

TEST(Reverse, ChangesTheFractionBitsWithSaturation) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 1, 4, kWidth);
  parm.in_fmt = format(8, 2, 1);
  parm.out_fmt = format(8, 4, 1);
  EXPECT_EQ(reversed(parm, {100, 0x9C, 1, 0xFF}, 4), (Bytes{0xFC, 4, 0x80, 127}));
}

TEST(Reverse, ANarrowerOutputKeepsTheStepsOfTheInput) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 1, 2, kWidth);
  parm.in_fmt = format(16, 4, 1);
  parm.out_fmt = format(8, 4, 1);
  parm.in_line_ofs = 4;
  EXPECT_EQ(reversed(parm, {0x2C, 0x01, 0xFE, 0xFF}, 4), (Bytes{0xFE, 0xFF, 127, 0x01}));
}

TEST(Reverse, AWiderOutputReformatsOverDataThatItHasNotReadYet) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 2, 2, kHeight);
  parm.out_fmt = format(16, 4, 1);
  parm.out_line_ofs = 4;
  EXPECT_EQ(reversed(parm, {1, 2, 0xFE, 4}, 8), (Bytes{0xFE, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0}));
}

TEST(Reverse, AnOutputFormatThatNoReformattingServesIsCopied) {
  for (const int width : {12, 24, 32}) {
    _NN_REVERSE_PARM parm = dense_block(1, 1, 1, 3, kWidth);
    parm.out_fmt = format(width, 2, 1);
    EXPECT_EQ(reversed(parm, {1, 2, 3}, 3), (Bytes{3, 2, 1})) << width;
  }
}

TEST(Reverse, TheScalesHaveNoEffect) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 1, 3, kWidth);
  parm.in_scale = support::scale(3, 7);
  parm.out_scale = support::scale(-1000, -2);
  EXPECT_EQ(reversed(parm, {1, 2, 3}, 3), (Bytes{3, 2, 1}));
  parm.out_fmt = format(8, 5, 1);
  EXPECT_EQ(reversed(parm, {1, 2, 3}, 3), (Bytes{6, 4, 2}));
}

TEST(Reverse, OffsetsAreUnsigned) {
  // One line at each end of a range of addresses that no 31-bit offset spans.
  constexpr size_t kRange = 0xA0000000u;
  constexpr uint32_t kFarItem = 0x90000000u;
  const auto map = [] {
    return static_cast<uint8_t *>(
        mmap(nullptr, kRange, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  };
  uint8_t *in = map();
  uint8_t *out = map();
  ASSERT_NE(in, MAP_FAILED);
  ASSERT_NE(out, MAP_FAILED);
  std::memcpy(in, "abcd", 4);
  std::memcpy(in + kFarItem, "efgh", 4);
  _NN_REVERSE_PARM parm = dense_block(2, 2, 1, 2, kChannel);
  parm.in_addr = reinterpret_cast<uintptr_t>(in);
  parm.out_addr = reinterpret_cast<uintptr_t>(out);
  parm.in_batch_ofs = parm.out_batch_ofs = kFarItem;
  EXPECT_EQ(tarvu_reverse_process(&parm), QX_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 4), "cdab");
  EXPECT_EQ(std::string(reinterpret_cast<char *>(out) + kFarItem, 4), "ghef");
  munmap(in, kRange);
  munmap(out, kRange);
}

TEST(Reverse, TheProductOfTheOuterExtentsWrapsInThirtyTwoBits) {
  // 32768 * 32768 * 4 is 2^32, so there is no round at all.
  _NN_REVERSE_PARM parm = dense_block(32768, 32768, 4, 2, kWidth);
  EXPECT_EQ(reversed(parm, counting(8), 8), Bytes(8, 0xEE));
  // 2132 * 1321 * 1525 is 2^32 + 4, so there are four rounds.
  parm = dense_block(2132, 1321, 1525, 2, kWidth);
  EXPECT_EQ(reversed(parm, counting(12), 12), (Bytes{1, 0, 3, 2, 5, 4, 7, 6, 0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST(Reverse, AnUnsupportedInputFormatPrintsItsLineAndTouchesNoTensor) {
  const struct {
    _NN_FMT fmt;
    int type;
  } cases[] = {{format(32, 16, 1), 4},
               {format(32, 16, 0), 4},
               {format(24, 4, 1), -1},
               {format(0, 0, 0), -1},
               {{127, 127, 10, 0}, -1}};
  for (const auto &c : cases) {
    for (const int axis : {kBatch, kChannel, kHeight, kWidth, 7, -1}) {
      _NN_REVERSE_PARM parm = dense_block(2, 2, 2, 2, axis);
      parm.in_fmt = c.fmt;
      parm.in_addr = parm.out_addr = support::unreadable_address();
      support::StdoutCapture capture;
      const _QX_RESULT result = tarvu_reverse_process(&parm);
      EXPECT_EQ(capture.text(), "\033[1;31mERR:tarvu_reverse_process() unsupported input type " +
                                    std::to_string(c.type) + "\r\n\033[0m");
      EXPECT_EQ(result, QX_ERR_UNSUPPORTED);
    }
  }
}

TEST(Reverse, AnEmptyTensorOfAnUnsupportedFormatIsStillAFailure) {
  _NN_REVERSE_PARM parm = dense_block(0, 0, 0, 0, kWidth);
  parm.in_fmt = format(32, 16, 1);
  support::StdoutCapture capture;
  const _QX_RESULT result = tarvu_reverse_process(&parm);
  EXPECT_EQ(capture.text(), "\033[1;31mERR:tarvu_reverse_process() unsupported input type 4\r\n\033[0m");
  EXPECT_EQ(result, QX_ERR_UNSUPPORTED);
}

TEST(Reverse, ItsLineKeepsItsPlaceAmongTheCallersOwnOutput) {
  _NN_REVERSE_PARM parm = dense_block(1, 1, 1, 1, kWidth);
  parm.in_fmt = format(32, 16, 1);
  support::StdoutCapture capture;
  std::printf("before,");
  tarvu_reverse_process(&parm);
  std::printf("after");
  EXPECT_EQ(capture.text(), "before,\033[1;31mERR:tarvu_reverse_process() unsupported input type 4\r\n\033[0mafter");
}

/// Formats of one input width, with an output of any width that keeps what the kernel does defined.
struct Formats {
  _NN_FMT in;
  _NN_FMT out;
};

Formats any_formats(Random &random) {
  const int in_width = random.pick({8, 16});
  Formats formats;
  formats.in = format(in_width, random.between(-2, 10), random.pick({0, 1, 1, 2}), static_cast<int>(random.below(3)));
  if (random.one_in(3)) {
    formats.out = formats.in;
  } else {
    const int out_width = random.pick({in_width, in_width, 8, 16, 24, 32});
    const int frac_bits = random.one_in(3) ? formats.in.frac_bits : random.between(-2, 10);
    formats.out = format(out_width, frac_bits, random.pick({0, 1, 1, 2}));
  }
  return formats;
}

/// Fills the block, makes memory of exactly the size that the walk touches, and holds the product against its twin.
testing::AssertionResult agrees(_NN_REVERSE_PARM parm, Random &random, const std::string &what) {
  const uint32_t element = parm.in_fmt.frac_bits + parm.in_fmt.int_bits + parm.in_fmt.sign_bits == 8 ? 1 : 2;
  const size_t extent[4] = {parm.batch, parm.channel, parm.height, parm.width};
  const size_t in_step[4] = {parm.in_batch_ofs, parm.in_channel_ofs, parm.in_line_ofs, element};
  const size_t out_step[4] = {parm.out_batch_ofs, parm.out_channel_ofs, parm.out_line_ofs, element};
  const auto axis = static_cast<size_t>(parm.axis);
  size_t rounds = 1;
  for (size_t i = 0; i < axis; ++i) rounds *= extent[i];
  const size_t slice = in_step[axis];
  const size_t written = element == 1 ? 2 * slice : slice;  // a wider output writes twice the slice
  size_t in_bytes = 0;
  size_t out_bytes = 0;
  if (rounds != 0 && extent[axis] != 0) {
    in_bytes = extent[axis] * slice + (axis == 0 ? 0 : (rounds - 1) * in_step[axis - 1]);
    out_bytes = (extent[axis] - 1) * out_step[axis] + written + (axis == 0 ? 0 : (rounds - 1) * out_step[axis - 1]);
  }
  const Fault fault = random.pick({Fault::kBehind, Fault::kInFront});
  const GuardedMemory in(in_bytes, {fault, 16, random.one_in(2) ? 0 : random.below(16)});
  const GuardedMemory out(out_bytes, {fault, 16, random.one_in(2) ? 0 : random.below(16)});
  random.fill(in.data(), in.size());
  random.fill(out.data(), out.size());
  Case<_NN_REVERSE_PARM> reverse;
  reverse.block = parm;
  reverse.attach(&_NN_REVERSE_PARM::in_addr, in, "input");
  reverse.attach(&_NN_REVERSE_PARM::out_addr, out, "output");
  testing::AssertionResult outcome = reverse.same(tarvu_reverse_process, reference::tarvu_reverse_process);
  if (!outcome) {
    outcome << "; " << what << ", axis " << axis << ", batch " << extent[0] << ", channel " << extent[1] << ", height "
            << extent[2] << ", width " << extent[3] << ", element " << element << ", input step " << slice
            << ", output step " << out_step[axis];
  }
  return outcome;
}

TEST(Reverse, AgreesWithTheTwinForRandomShapesStepsAndFormats) {
  Random random = support::test_random(301);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 3000; ++round) {
    const Formats formats = any_formats(random);
    const uint32_t element = formats.in.frac_bits + formats.in.int_bits + formats.in.sign_bits == 8 ? 1 : 2;
    const auto extent = [&] { return static_cast<int>(random.one_in(12) ? 0 : 1 + random.below(5)); };
    _NN_REVERSE_PARM parm = dense_block(extent(), extent(), extent(),
                                        random.one_in(4) ? random.between(0, 70) : extent(), random.between(0, 3));
    parm.in_fmt = formats.in;
    parm.out_fmt = formats.out;
    const auto padding = [&] { return random.one_in(2) ? 0 : random.below(9); };
    parm.in_line_ofs = parm.width * element + padding();
    parm.in_channel_ofs = parm.height * parm.in_line_ofs + padding();
    parm.in_batch_ofs = parm.channel * parm.in_channel_ofs + padding();
    parm.out_line_ofs = parm.width * element + padding();
    parm.out_channel_ofs = parm.height * parm.out_line_ofs + padding();
    parm.out_batch_ofs = parm.channel * parm.out_channel_ofs + padding();
    EXPECT_TRUE(agrees(parm, random, "round " + std::to_string(round)));
  }
}

TEST(Reverse, AgreesWithTheTwinForAnySteps) {
  Random random = support::test_random(302);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 3000; ++round) {
    const Formats formats = any_formats(random);
    _NN_REVERSE_PARM parm =
        dense_block(random.between(1, 4), random.between(1, 4), random.between(1, 5),
                    random.one_in(3) ? random.between(1, 80) : random.between(1, 5), random.between(0, 3));
    parm.in_fmt = formats.in;
    parm.out_fmt = formats.out;
    const auto step = [&] { return random.pick({random.below(4), random.below(20), random.below(140)}); };
    parm.in_line_ofs = step();
    parm.in_channel_ofs = step();
    parm.in_batch_ofs = step();
    parm.out_line_ofs = step();
    parm.out_channel_ofs = step();
    parm.out_batch_ofs = step();
    EXPECT_TRUE(agrees(parm, random, "round " + std::to_string(round)));
  }
}

TEST(Reverse, WidthAgreesWithTheTwinForEveryLineLength) {
  Random random = support::test_random(303);
  SCOPED_TRACE(random.trace());
  for (int width = 1; width <= 140; ++width) {
    for (const int bits : {8, 16}) {
      for (const int out_frac_bits : {4, 3, 6}) {
        _NN_REVERSE_PARM parm = dense_block(1, 2, 3, width, kWidth);
        parm.in_fmt = format(bits, 4, 1);
        parm.out_fmt = format(bits, out_frac_bits, 1);
        const uint32_t line = static_cast<uint32_t>(width * bits / 8);
        parm.in_line_ofs = line + random.pick({0u, 1u, 16u});
        parm.out_line_ofs = line + random.pick({0u, 1u, 16u});
        EXPECT_TRUE(agrees(parm, random, "line of " + std::to_string(width)));
      }
    }
  }
}

TEST(Reverse, AgreesWithTheTwinForLargeTensors) {
  Random random = support::test_random(304);
  SCOPED_TRACE(random.trace());
  for (const int axis : {kBatch, kChannel, kHeight, kWidth}) {
    for (const int bits : {8, 16}) {
      for (const int out_frac_bits : {4, 6}) {
        const uint32_t element = static_cast<uint32_t>(bits) / 8;
        _NN_REVERSE_PARM parm = dense_block(2, 3, 19, 1037, axis);
        parm.in_fmt = format(bits, 4, 1);
        parm.out_fmt = format(bits, out_frac_bits, 1);
        parm.in_line_ofs = parm.out_line_ofs = 1037 * element;
        parm.in_channel_ofs = parm.out_channel_ofs = 19 * parm.in_line_ofs;
        parm.in_batch_ofs = parm.out_batch_ofs = 3 * parm.in_channel_ofs;
        EXPECT_TRUE(agrees(parm, random, "large"));
      }
    }
  }
}

TEST(Reverse, OutputLinesThatShareBytesHoldWhatWasWrittenLast) {
  Random random = support::test_random(305);
  SCOPED_TRACE(random.trace());
  for (int width = 2; width <= 70; ++width) {
    for (const int bits : {8, 16}) {
      for (const uint32_t out_line_ofs : {0u, 1u, 2u, static_cast<uint32_t>(width * bits / 8) - 1}) {
        _NN_REVERSE_PARM parm = dense_block(1, 1, 4, width, kWidth);
        parm.in_fmt = parm.out_fmt = format(bits, 4, 1);
        if (random.one_in(2)) parm.out_fmt = format(bits, 5, 1);
        parm.in_line_ofs = static_cast<uint32_t>(width * bits / 8);
        parm.out_line_ofs = out_line_ofs;
        EXPECT_TRUE(agrees(parm, random,
                           "line of " + std::to_string(width) + ", lines " + std::to_string(out_line_ofs) + " apart"));
      }
    }
  }
}

}  // namespace
