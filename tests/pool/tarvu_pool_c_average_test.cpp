#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/pool/pool_case.h"
#include "tests/support/guarded_memory.h"

namespace {

using namespace pool_test;
using support::GuardedMemory;
using support::unreadable_address;

using Elements = std::vector<int32_t>;

constexpr uint32_t kCountPad = 0;
constexpr uint32_t kNonCountPad = 1;

/// A right shift by this much adds the sign bit to the quotient and shifts by 0, so that a written element is never 0.
constexpr int kMarkWrittenElements = 32;
constexpr int32_t kWritten = -128;

Plane line_of(const Elements &elements, uint32_t non_count_pad) {
  Plane plane(kInt8, kInt8, static_cast<int>(elements.size()), 1, elements);
  plane.mode(kLocalAverage, non_count_pad);
  return plane;
}

TEST(PoolAverage, PaddingCountsAtEveryBorderOrNowhere) {
  Plane plane(kInt8, kInt8, 5, 5, Elements(25, 36));
  plane.columns(3, 2, 1, 1).rows(3, 2, 1, 1);
  EXPECT_EQ(plane.mode(kLocalAverage, kCountPad).pooled(3, 3), (Elements{16, 24, 16, 24, 36, 24, 16, 24, 16}));
  for (const uint32_t any_other : {1u, 0x100u, 0x80000000u}) {
    EXPECT_EQ(plane.mode(kLocalAverage, any_other).pooled(3, 3), Elements(9, 36));
  }
}

TEST(PoolAverage, TheExtraColumnCountsUpToTheEndOfTheRightPadding) {
  const Elements elements = {3, 3, 3, 3, 3, 3, 10};
  EXPECT_EQ(line_of(elements, kCountPad).columns(3, 2, 0, 1).pooled(4, 1), (Elements{3, 3, 5, 5}));
  EXPECT_EQ(line_of(elements, kNonCountPad).columns(3, 2, 0, 1).pooled(4, 1), (Elements{3, 3, 5, 10}));
}

TEST(PoolAverage, AnExtraColumnInTheRightPaddingIsWrittenOnlyWherePaddingIsNotCounted) {
  const Elements elements = {3, 6, 9, 4, 8};
  EXPECT_EQ(line_of(elements, kCountPad).columns(3, 3, 0, 2).pooled(3, 1), (Elements{6, 4, kUntouched}));
  EXPECT_EQ(line_of(elements, kNonCountPad).columns(3, 3, 0, 2).pooled(3, 1), (Elements{6, 6, 0}));
  EXPECT_EQ(line_of(elements, kNonCountPad).columns(3, 3, 0, 2).shifts(0, kMarkWrittenElements).pooled(3, 1),
            (Elements{kWritten, kWritten, kWritten}));
}

TEST(PoolAverage, InTheExtraLineTheExtraColumnInTheRightPaddingDoesNotExist) {
  Plane plane(kInt8, kInt8, 5, 4, Elements(20, 6));
  plane.columns(3, 3, 0, 2).rows(3, 3).mode(kLocalAverage, kNonCountPad);
  plane.block.out_batch_ofs = 6;
  EXPECT_EQ(plane.shifts(0, kMarkWrittenElements).pooled(3, 2),
            (Elements{kWritten, kWritten, kWritten, kWritten, kWritten, 0}));
  EXPECT_EQ(plane.shifts(0, 0).pooled(3, 2), (Elements{6, 6, 0, 6, 6, 0}));
}

TEST(PoolAverage, AnExtraColumnInsideTheInputExistsInTheExtraLineToo) {
  Plane plane(kInt8, kInt8, 4, 4, Elements(16, 6));
  plane.columns(3, 3, 0, 0).rows(3, 3).mode(kLocalAverage, kNonCountPad);
  EXPECT_EQ(plane.pooled(2, 2), (Elements{6, 6, 6, 6}));
}

TEST(PoolAverage, AnExtraLineInTheBottomPaddingIsWrittenOnlyWherePaddingIsNotCounted) {
  Plane plane(kInt8, kInt8, 4, 5, Elements(20, 6));
  plane.columns(2, 2).rows(3, 3, 0, 2);
  EXPECT_EQ(plane.mode(kLocalAverage, kCountPad).pooled(2, 3), (Elements{6, 6, 4, 4, kUntouched, kUntouched}));
  EXPECT_EQ(plane.mode(kLocalAverage, kNonCountPad).pooled(2, 3), (Elements{6, 6, 6, 6, 0, 0}));
  EXPECT_EQ(plane.shifts(0, kMarkWrittenElements).pooled(2, 3), Elements(6, kWritten));
}

TEST(PoolAverage, AnExtraLineInTheBottomPaddingHasTheExtraColumnThatStartsInsideTheInput) {
  Plane plane(kInt8, kInt8, 5, 5, Elements(25, 6));
  plane.columns(2, 2).rows(3, 3, 0, 2).mode(kLocalAverage, kNonCountPad).shifts(0, kMarkWrittenElements);
  EXPECT_EQ(plane.pooled(3, 3), Elements(9, kWritten));
}

TEST(PoolAverage, AFirstLineWithoutInputHasTheQuotientZero) {
  Plane plane(kInt8, kInt8, 2, 4, Elements(8, 6));
  plane.columns(1, 1).rows(2, 2, 2);
  for (const uint32_t non_count_pad : {kCountPad, kNonCountPad}) {
    plane.mode(kLocalAverage, non_count_pad);
    EXPECT_EQ(plane.shifts(0, 0).pooled(2, 3), (Elements{0, 0, 6, 6, 6, 6}));
    EXPECT_EQ(plane.shifts(0, kMarkWrittenElements).pooled(2, 3), Elements(6, kWritten));
  }
}

TEST(PoolAverage, AnInnerWindowBehindTheInputHasTheQuotientZero) {
  for (const uint32_t non_count_pad : {kCountPad, kNonCountPad}) {
    EXPECT_EQ(line_of({1, 3}, non_count_pad).columns(2, 2, 0, 5).floor_mode(1).pooled(3, 1), (Elements{2, 0, 0}));
  }
}

TEST(PoolAverage, ThePositiveSumRoundsTiesUpAndTheNegativeOneIsPulledTowardZero) {
  for (const uint32_t non_count_pad : {kCountPad, kNonCountPad}) {
    // Sums of 3, 1, -3, -2 and -1 over 2.
    EXPECT_EQ(line_of({1, 2, 0, 1, -1, -2, -1, -1, 0, -1}, non_count_pad).columns(2, 2).pooled(5, 1),
              (Elements{2, 1, -1, 0, 0}));
    EXPECT_EQ(Plane(kInt8, kInt8, 2, 2, {-1, -1, -1, -1})
                  .mode(kLocalAverage, non_count_pad)
                  .columns(2, 1)
                  .rows(2, 1)
                  .pooled(1, 1),
              Elements{0});
  }
}

TEST(PoolAverage, ANegativeSumIsPulledTowardZeroBeforeTheRightShiftToo) {
  for (const uint32_t non_count_pad : {kCountPad, kNonCountPad}) {
    // (-3 + 1) / 2 is -1, times 2, rounded half up over 2.
    EXPECT_EQ(line_of({-1, -2}, non_count_pad).columns(2, 1).multipliers(1, 2).shifts(0, 1).pooled(1, 1), Elements{-1});
  }
}

TEST(PoolAverage, AWindowWiderThanThePaddedLineDividesByThePaddedWidth) {
  EXPECT_EQ(line_of({8, 8}, kCountPad).columns(5, 1, 1, 1).pooled(1, 1), Elements{4});
  EXPECT_EQ(line_of({8, 8}, kNonCountPad).columns(5, 1, 1, 1).pooled(1, 1), Elements{4});
  EXPECT_EQ(line_of({8, 8}, kNonCountPad).columns(4, 1, 1, 1).pooled(1, 1), Elements{5});
}

TEST(PoolAverage, TheFirstWindowDividesByTheRightPaddingThatItCrossesEvenWherePaddingIsNotCounted) {
  // The window holds 2 elements, its divisor is 4 - 1.
  EXPECT_EQ(line_of({8, 8}, kNonCountPad).columns(4, 1, 1, 3).pooled(3, 1)[0], 5);
  Plane column(kInt8, kInt8, 1, 2, {8, 8});
  EXPECT_EQ(column.mode(kLocalAverage, kNonCountPad).rows(4, 1, 1, 3).pooled(1, 3)[0], 5);
}

TEST(PoolAverage, WithNegativeStepsTheExtraDivisorFollowsTheFormulaAndNotTheWindow) {
  // The extra window holds the last element alone, its divisor is 4.
  EXPECT_EQ(line_of({1, 1, 1, 8}, kCountPad).columns(9, 3).pooled(2, 1), (Elements{3, 2}));
  EXPECT_EQ(line_of({1, 1, 1, 8}, kNonCountPad).columns(9, 3).pooled(2, 1), (Elements{3, 2}));
  EXPECT_EQ(Plane(kInt8, kInt8, 1, 4, {1, 1, 1, 8}).mode(kLocalAverage, kNonCountPad).rows(9, 3).pooled(1, 2),
            (Elements{3, 2}));
}

TEST(PoolAverage, TheLeftShiftComesBeforeHalfAndTheDivision) {
  // (3 * 3 << 1) + 1 over 2 is 9, times 5; a shift after the division would give (10 / 2 << 1) * 5.
  for (const uint32_t non_count_pad : {kCountPad, kNonCountPad}) {
    EXPECT_EQ(line_of({1, 2}, non_count_pad).columns(2, 1).multipliers(3, 5).shifts(-1, 0).pooled(1, 1), Elements{45});
  }
}

TEST(PoolAverage, TheRightShiftComesAfterTheOutputMultiplier) {
  // (3 * 3 + 1) / 2 is 5, times 5, rounded over 4.
  for (const uint32_t non_count_pad : {kCountPad, kNonCountPad}) {
    EXPECT_EQ(line_of({1, 2}, non_count_pad).columns(2, 1).multipliers(3, 5).shifts(1, 1).pooled(1, 1), Elements{6});
  }
}

TEST(PoolAverage, ASumAboveTheSignedRangeIsDividedAsANegativeNumber) {
  Plane plane(kUint16, kInt16, 255, 255, Elements(255, 65535));
  plane.block.in_line_ofs = 0;
  plane.columns(255, 1).rows(255, 1);
  // 65025 * 65535 is -33553921 as a signed number; with 32512 added it is -33521409.
  EXPECT_EQ(plane.mode(kLocalAverage, kCountPad).pooled(1, 1), Elements{-515});
  EXPECT_EQ(plane.mode(kLocalAverage, kNonCountPad).pooled(1, 1), Elements{-515});
}

TEST(PoolAverage, TheZeroFillCoversWholeBatchItemsBytesBetweenLinesIncluded) {
  Plane plane(kInt8, kInt8, 2, 2, {1, 2, 3, 4});
  plane.mode(kLocalAverage, kNonCountPad);
  plane.block.out_line_ofs = 3;
  plane.block.out_batch_ofs = 8;
  const GuardedMemory output(10);
  output.fill(kUntouchedByte);
  plane.block.out_addr = output.address();
  ASSERT_EQ(::tarvu_pool_process(&plane.block), QX_OK);
  EXPECT_EQ(std::vector<uint8_t>(output.data(), output.data() + output.size()),
            (std::vector<uint8_t>{1, 2, 0, 3, 4, 0, 0, 0, kUntouchedByte, kUntouchedByte}));

  plane.mode(kLocalAverage, kCountPad);
  output.fill(kUntouchedByte);
  ASSERT_EQ(::tarvu_pool_process(&plane.block), QX_OK);
  EXPECT_EQ(std::vector<uint8_t>(output.data(), output.data() + output.size()),
            (std::vector<uint8_t>{1, 2, kUntouchedByte, 3, 4, kUntouchedByte, kUntouchedByte, kUntouchedByte,
                                  kUntouchedByte, kUntouchedByte}));
}

TEST(PoolAverage, TheZeroFillComesBeforeTheFirstElementOfEveryBatchItem) {
  Plane plane(kInt8, kInt8, 2, 1, {1, 2, 3, 4});
  plane.mode(kLocalAverage, kNonCountPad);
  plane.block.batch = 2;
  plane.block.in_batch_ofs = 2;
  plane.block.out_batch_ofs = 3;
  EXPECT_EQ(plane.pooled(6, 1), (Elements{1, 2, 0, 3, 4, 0}));
}

TEST(PoolAverage, WithoutAChannelTheZeroFillAloneIsDone) {
  _NN_POOL_PARM block = plain_block(kInt16, kInt16);
  block.width = 4;
  block.height = 4;
  block.channel = 0;
  block.batch = 3;
  block.out_batch_ofs = 5;
  block.mode = kLocalAverage;
  block.non_count_pad = 1;
  const GuardedMemory output(17);
  output.fill(kUntouchedByte);
  block.out_addr = output.address();
  EXPECT_EQ(::tarvu_pool_process(&block), QX_OK);
  std::vector<uint8_t> expected(17, 0);
  expected[15] = kUntouchedByte;
  expected[16] = kUntouchedByte;
  EXPECT_EQ(std::vector<uint8_t>(output.data(), output.data() + output.size()), expected);
}

TEST(PoolAverage, TheZeroFillsByteCountIsAProductOf32Bits) {
  _NN_POOL_PARM block = plain_block(kInt8, kInt8);
  block.channel = 0;
  block.batch = 2;
  block.out_batch_ofs = 0x80000008u;
  block.mode = kLocalAverage;
  block.non_count_pad = 1;
  const GuardedMemory output(17);
  output.fill(kUntouchedByte);
  block.out_addr = output.address();
  EXPECT_EQ(::tarvu_pool_process(&block), QX_OK);
  std::vector<uint8_t> expected(17, 0);
  expected[16] = kUntouchedByte;
  EXPECT_EQ(std::vector<uint8_t>(output.data(), output.data() + output.size()), expected);
}

TEST(PoolAverage, WithoutABatchItemNothingIsFilled) {
  _NN_POOL_PARM block = plain_block(kInt8, kInt8);
  block.batch = 0;
  block.out_batch_ofs = 16;
  block.mode = kLocalAverage;
  block.non_count_pad = 1;
  block.out_addr = unreadable_address();
  EXPECT_EQ(::tarvu_pool_process(&block), QX_OK);
}

}  // namespace
