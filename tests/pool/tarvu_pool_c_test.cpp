#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/pool/pool_case.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/stdout_capture.h"

namespace {

using namespace pool_test;
using support::format;
using support::GuardedMemory;
using support::unreadable_address;

struct Answer {
  _QX_RESULT result;
  std::string text;
};

Answer answer(const _NN_POOL_PARM &block) {
  support::StdoutCapture capture;
  const _QX_RESULT result = ::tarvu_pool_process(&block);
  return {result, capture.text()};
}

/// A block with elements to pool, all of whose addresses fault.
_NN_POOL_PARM block_that_must_not_be_touched() {
  _NN_POOL_PARM block = plain_block(kInt8, kInt8);
  block.width = 4;
  block.height = 4;
  block.in_line_ofs = 4;
  block.out_line_ofs = 4;
  block.out_batch_ofs = 16;
  return block;
}

TEST(Pool, AnInputTypeOtherThanTheFourPrintsItsCodeAndTouchesNothing) {
  _NN_POOL_PARM block = block_that_must_not_be_touched();
  block.in_fmt = format(32, 0, 1);
  Answer got = answer(block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_pool_process() unsupported input type 4\r\n\033[0m");
  block.in_fmt = format(24, 0, 1);
  got = answer(block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_pool_process() unsupported input type -1\r\n\033[0m");
}

TEST(Pool, AnOutputTypeOtherThanTheFourPrintsItsCodeAndTouchesNothingForEveryInputType) {
  for (const Type &in : kTypes) {
    _NN_POOL_PARM block = block_that_must_not_be_touched();
    block.in_fmt = in.fmt();
    block.out_fmt = format(32, 16, 0);
    Answer got = answer(block);
    EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
    EXPECT_EQ(got.text, "\033[1;31mERR:vendor_ai_pool_out_type() unsupported output type 4\r\n\033[0m");
    block.out_fmt = format(9, 4, 1);
    got = answer(block);
    EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
    EXPECT_EQ(got.text, "\033[1;31mERR:vendor_ai_pool_out_type() unsupported output type -1\r\n\033[0m");
  }
}

TEST(Pool, AModeAboveThreePrintsItAsASignedNumberAndTouchesNothingForEveryTypePair) {
  for (const Type &in : kTypes) {
    for (const Type &out : kTypes) {
      for (const int post_shift : {-20, 20}) {
        _NN_POOL_PARM block = block_that_must_not_be_touched();
        block.in_fmt = in.fmt();
        block.out_fmt = out.fmt();
        block.post_shift = static_cast<int8_t>(post_shift);
        block.non_count_pad = 1;
        block.mode = 4;
        Answer got = answer(block);
        EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
        EXPECT_EQ(got.text, "\033[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode 4\r\n\033[0m");
        block.mode = 4294967295u;
        got = answer(block);
        EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
        EXPECT_EQ(got.text, "\033[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode -1\r\n\033[0m");
      }
    }
  }
}

TEST(Pool, AllThirtyTwoBitsOfTheModeCount) {
  _NN_POOL_PARM block = block_that_must_not_be_touched();
  block.mode = 0x100;
  EXPECT_EQ(answer(block).text, "\033[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode 256\r\n\033[0m");
  block.mode = 0x10001;
  EXPECT_EQ(answer(block).text, "\033[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode 65537\r\n\033[0m");
}

TEST(Pool, OfSeveralFaultsTheInputTypeIsReportedFirstThenTheOutputTypeThenTheMode) {
  _NN_POOL_PARM block = block_that_must_not_be_touched();
  block.in_fmt = format(7, 0, 0);
  block.out_fmt = format(32, 0, 0);
  block.mode = 9;
  EXPECT_EQ(answer(block).text, "\033[1;31mERR:tarvu_pool_process() unsupported input type -1\r\n\033[0m");
  block.in_fmt = kUint16.fmt();
  EXPECT_EQ(answer(block).text, "\033[1;31mERR:vendor_ai_pool_out_type() unsupported output type 4\r\n\033[0m");
  block.out_fmt = kUint8.fmt();
  EXPECT_EQ(answer(block).text, "\033[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode 9\r\n\033[0m");
}

TEST(Pool, AnEmptyTensorDoesNotHideAFault) {
  _NN_POOL_PARM block = block_that_must_not_be_touched();
  block.batch = 0;
  block.channel = 0;
  block.mode = 4;
  EXPECT_EQ(answer(block).result, QX_ERR_UNSUPPORTED);
  block.mode = 0;
  block.out_fmt = format(32, 0, 0);
  EXPECT_EQ(answer(block).result, QX_ERR_UNSUPPORTED);
}

TEST(Pool, NoBatchItemOrNoChannelTouchesNothingInAnyMode) {
  for (uint32_t mode = 0; mode < 4; ++mode) {
    _NN_POOL_PARM block = block_that_must_not_be_touched();
    block.mode = mode;
    block.batch = 0;
    EXPECT_EQ(answer(block).result, QX_OK) << mode;
    EXPECT_EQ(answer(block).text, "") << mode;
    block.non_count_pad = 1;
    EXPECT_EQ(answer(block).result, QX_OK) << mode;
    block.non_count_pad = 0;
    block.batch = 1;
    block.channel = 0;
    EXPECT_EQ(answer(block).result, QX_OK) << mode;
    EXPECT_EQ(answer(block).text, "") << mode;
  }
}

TEST(Pool, AnySignBitsButZeroMakeASignedElement) {
  Plane plane(kUint8, kInt8, 2, 1, {200, 100});
  plane.mode(kGlobalMaximum);
  plane.block.in_fmt = format(8, 0, 2);
  EXPECT_EQ(plane.pooled(1, 1)[0], 100);
  plane.block.in_fmt = format(8, 0, -1);
  EXPECT_EQ(plane.pooled(1, 1)[0], 100);
  plane.block.in_fmt = format(8, -5, 0);
  EXPECT_EQ(plane.pooled(1, 1)[0], 127);
}

TEST(PoolOutput, EightToSixteenBitsWithAllShiftsZeroMovesTheValueToTheUpperByte) {
  EXPECT_EQ(requantised(kInt8, kInt16, -3, 1, 1, 0, 0), -768);
  EXPECT_EQ(requantised(kUint8, kUint16, 255, 1, 1, 0, 0), 65280);
  EXPECT_EQ(requantised(kUint8, kInt16, 255, 1, 1, 0, 0), 32767);
  EXPECT_EQ(requantised(kInt8, kUint16, -1, 1, 1, 0, 0), 0);
}

TEST(PoolOutput, SixteenToEightBitsWithAllShiftsZeroIsARoundedShiftByEight) {
  EXPECT_EQ(requantised(kInt16, kInt8, 127, 1, 1, 0, 0), 0);
  EXPECT_EQ(requantised(kInt16, kInt8, 128, 1, 1, 0, 0), 1);
  EXPECT_EQ(requantised(kInt16, kInt8, -128, 1, 1, 0, 0), 0);
  EXPECT_EQ(requantised(kInt16, kInt8, -129, 1, 1, 0, 0), -1);
  EXPECT_EQ(requantised(kUint16, kUint8, 65535, 1, 1, 0, 0), 255);
}

TEST(PoolOutput, SixteenBitsThatComeToShiftZeroWithAnEightBitOutputSaturate) {
  EXPECT_EQ(requantised(kInt16, kInt8, 300, 1, 1, 0, -8), 127);
  EXPECT_EQ(requantised(kInt16, kInt8, 100, 1, 1, 0, -8), 100);
  EXPECT_EQ(requantised(kInt16, kInt8, -300, 1, 1, 0, -3, -5), -128);
}

TEST(PoolOutput, EqualWidthsWithAllShiftsZeroChangeNothingButTheRange) {
  EXPECT_EQ(requantised(kInt8, kInt8, -128, 1, 1, 0, 0), -128);
  EXPECT_EQ(requantised(kInt8, kUint8, -128, 1, 1, 0, 0), 0);
  EXPECT_EQ(requantised(kUint8, kInt8, 255, 1, 1, 0, 0), 127);
  EXPECT_EQ(requantised(kUint16, kUint16, 65535, 1, 1, 0, 0), 65535);
  EXPECT_EQ(requantised(kUint16, kInt16, 65535, 1, 1, 0, 0), 32767);
}

TEST(PoolOutput, TheRightShiftRoundsHalfUp) {
  EXPECT_EQ(requantised(kInt8, kInt8, 5, 1, 1, 0, 1), 3);
  EXPECT_EQ(requantised(kInt8, kInt8, -5, 1, 1, 0, 1), -2);
  EXPECT_EQ(requantised(kInt8, kInt8, 5, 1, 1, 0, 0, 1), 3);
  EXPECT_EQ(requantised(kInt8, kInt8, 5, 1, 1, 1, 1), 1);
}

TEST(PoolOutput, ShiftZeroTakesTheLeftShiftWithoutRounding) {
  EXPECT_EQ(requantised(kInt8, kInt8, 5, 1, 1, 0, 1, -1), 5);
  EXPECT_EQ(requantised(kInt8, kInt8, 5, 1, 1, -2, 0), 20);
  EXPECT_EQ(requantised(kInt8, kInt8, -5, 1, 1, -2, -1), -40);
}

TEST(PoolOutput, TotalShiftZeroInTheRightFamilyFlipsTheSignBit) {
  EXPECT_EQ(requantised(kInt8, kInt8, 5, 1, 1, -1, 1), -128);
  EXPECT_EQ(requantised(kInt8, kInt8, -5, 1, 1, -1, 1), 127);
  EXPECT_EQ(requantised(kInt8, kUint8, -5, 1, 1, -7, 7), 255);
}

TEST(PoolOutput, NegativeTotalShiftInTheRightFamilyShiftsByItModuloThirtyTwo) {
  // The count -31 is 1 and the rounding bit 1 << (-32 & 31) is 1.
  EXPECT_EQ(requantised(kInt8, kInt8, 5, 1, 1, -32, 1), 3);
  // The count -1 is 31: (2^30 + 2^30) >> 31 is the sign of a wrapped sum.
  EXPECT_EQ(requantised(kInt8, kInt8, 1, 1 << 30, 1, -2, 1), -1);
}

TEST(PoolOutput, PositiveTotalShiftInTheLeftFamilyIsALargeLeftShift) {
  EXPECT_EQ(requantised(kInt8, kInt8, 1, 1, 1, 3, 0), 127);
  EXPECT_EQ(requantised(kInt8, kInt8, 4, 1, 1, 3, 0), -128);
  EXPECT_EQ(requantised(kInt8, kInt8, 8, 1, 1, 3, 0), 0);
}

TEST(PoolOutput, TheOutputMultiplierWrapsOnTheShiftedProduct) {
  EXPECT_EQ(requantised(kInt8, kInt8, 1, 1, 8, 3, 0), 0);
  EXPECT_EQ(requantised(kInt8, kInt8, 3, 2, -5, -1, 0), -60);
}

TEST(PoolOutput, TheShiftIsASignedByteSoTwoHundredIsALeftShift) {
  // 100 + 100 is -56, and 56 more gives a total of 0.
  EXPECT_EQ(requantised(kInt8, kInt8, 77, 1, 1, 56, 100, 100), 77);
  // A total of -56 shifts left by 24.
  EXPECT_EQ(requantised(kInt8, kInt8, 1, 1, 1, 0, 100, 100), 127);
  // -128 - 8 is 120: a right shift by 24.
  EXPECT_EQ(requantised(kInt8, kInt16, 100, 1 << 20, 1, 0, -128), 6);
}

TEST(PoolOutput, TheRoundingBitIsAddedWithWrapAround) {
  EXPECT_EQ(requantised(kInt8, kInt8, 1, 2147483647, 1, 0, 1), -128);
}

TEST(PoolOutput, ProductsWrapBeforeTheShiftAndAreNotSaturated) {
  EXPECT_EQ(requantised(kInt8, kInt8, 2, 2147483647, 1, 0, 0), -2);
  EXPECT_EQ(requantised(kInt8, kInt8, 2, 2147483647, -1, 0, 0), 2);
  EXPECT_EQ(requantised(kInt8, kInt8, 1, 65536, 65536, 0, 4), 0);
  // 65535 * 32769 is -2147450881 as a signed number.
  EXPECT_EQ(requantised(kUint16, kInt16, 65535, 32769, 1, 0, 17), -16384);
}

TEST(PoolGlobal, MaximumAndAverageWriteOneElementPerChannelWhateverTheWindowFieldsHold) {
  const std::vector<int32_t> elements = {-7, 3, 9, -20, 5, 6};
  Plane plane(kInt8, kInt8, 3, 2, elements);
  plane.columns(255, 0, 255, 255).rows(0, 200, 255, 255).floor_mode(0);
  plane.block.non_count_pad = 1;
  EXPECT_EQ(plane.mode(kGlobalMaximum, 1).pooled(2, 1), (std::vector<int32_t>{9, kUntouched}));
  // The sum is -4 and half of 6 elements 3: -1 / 6.
  EXPECT_EQ(plane.mode(kGlobalAverage, 1).pooled(2, 1), (std::vector<int32_t>{0, kUntouched}));
}

TEST(PoolGlobal, ElementsAreExtendedByTheirOwnSignedness) {
  const std::vector<int32_t> elements = {200, 100};
  EXPECT_EQ(Plane(kUint8, kUint8, 2, 1, elements).mode(kGlobalMaximum).pooled(1, 1)[0], 200);
  EXPECT_EQ(Plane(kInt8, kUint8, 2, 1, elements).mode(kGlobalMaximum).pooled(1, 1)[0], 100);
  EXPECT_EQ(Plane(kUint8, kInt8, 2, 1, elements).mode(kGlobalAverage).pooled(1, 1)[0], 127);
  EXPECT_EQ(Plane(kInt8, kInt8, 2, 1, elements).mode(kGlobalAverage).pooled(1, 1)[0], 22);
  const std::vector<int32_t> wide = {40000, 20000};
  EXPECT_EQ(Plane(kUint16, kUint16, 2, 1, wide).mode(kGlobalMaximum).pooled(1, 1)[0], 40000);
  EXPECT_EQ(Plane(kInt16, kUint16, 2, 1, wide).mode(kGlobalMaximum).pooled(1, 1)[0], 20000);
}

TEST(PoolGlobal, MaximumOfAnEmptyPlaneIsTheLeastWordPassedThroughTheOutput) {
  for (const int width : {0, 3}) {
    const int height = 3 - width;
    EXPECT_EQ(Plane(kInt8, kInt8, width, height, {}).mode(kGlobalMaximum).pooled(1, 1)[0], -128);
    EXPECT_EQ(Plane(kInt8, kUint8, width, height, {}).mode(kGlobalMaximum).pooled(1, 1)[0], 0);
    EXPECT_EQ(Plane(kInt8, kInt8, width, height, {}).mode(kGlobalMaximum).multipliers(2, 1).pooled(1, 1)[0], 0);
    // (2^16 - 2^31) >> 17
    EXPECT_EQ(Plane(kInt8, kInt16, width, height, {}).mode(kGlobalMaximum).shifts(0, 25).pooled(1, 1)[0], -16384);
  }
}

TEST(PoolGlobal, AverageOfAnEmptyPlaneHasTheQuotientZero) {
  for (const int width : {0, 3}) {
    const int height = 3 - width;
    EXPECT_EQ(Plane(kInt8, kInt8, width, height, {}).mode(kGlobalAverage).pooled(1, 1)[0], 0);
    EXPECT_EQ(Plane(kInt8, kInt8, width, height, {}).mode(kGlobalAverage).shifts(0, 5).pooled(1, 1)[0], 0);
    // A shift by 32 is one by 0, and the rounding bit the sign bit.
    EXPECT_EQ(Plane(kInt8, kInt8, width, height, {}).mode(kGlobalAverage).shifts(0, 32).pooled(1, 1)[0], -128);
  }
}

TEST(PoolGlobal, AverageRoundsTiesUpAndPullsNegativeSumsTowardZero) {
  EXPECT_EQ(Plane(kInt8, kInt8, 4, 1, {1, 1, 0, 0}).mode(kGlobalAverage).pooled(1, 1)[0], 1);
  EXPECT_EQ(Plane(kInt8, kInt8, 4, 1, {1, 0, 0, 0}).mode(kGlobalAverage).pooled(1, 1)[0], 0);
  EXPECT_EQ(Plane(kInt8, kInt8, 2, 2, {-1, -1, -1, -1}).mode(kGlobalAverage).pooled(1, 1)[0], 0);
  EXPECT_EQ(Plane(kInt8, kInt8, 2, 2, {-2, -2, -2, -2}).mode(kGlobalAverage).pooled(1, 1)[0], -1);
}

TEST(PoolGlobal, AverageAppliesTheInputMultiplierBeforeTheDivisionAndTheOutputMultiplierAfterIt) {
  Plane plane(kInt8, kInt8, 4, 1, {5, 0, 0, 0});
  plane.mode(kGlobalAverage).multipliers(3, 2);
  // (3 * 5 + 2) / 4 = 4, times 2
  EXPECT_EQ(plane.pooled(1, 1)[0], 8);
  // ((3 * 5 << 2) + 2) / 4 = 15, times 2
  EXPECT_EQ(plane.shifts(-2, 0).pooled(1, 1)[0], 30);
  // (1 + 4 * 2) >> 1
  EXPECT_EQ(plane.shifts(0, 1).pooled(1, 1)[0], 4);
}

TEST(PoolGlobal, TheSumWrapsAndIsDividedAsASignedNumber) {
  const std::vector<int32_t> line(257, 65535);
  // 66049 * 65535 modulo 2^32 is 33553919; (33553919 + 33024) / 66049 is 508.
  Plane wrapped(kUint16, kUint16, 257, 257, line);
  wrapped.block.in_line_ofs = 0;
  EXPECT_EQ(wrapped.mode(kGlobalAverage).pooled(1, 1)[0], 508);
  // 33000 * 65535 is -2132312296 as a signed number.
  Plane negative(kUint16, kInt16, 200, 165, line);
  negative.block.in_line_ofs = 0;
  EXPECT_EQ(negative.mode(kGlobalAverage).pooled(1, 1)[0], -32768);
}

}  // namespace
