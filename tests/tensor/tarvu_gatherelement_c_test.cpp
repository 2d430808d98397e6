#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/support/guarded_memory.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::format;
using support::GuardedMemory;
using support::unreadable_address;

/// Dense 8-bit input and indices of the output's shape; extents of 0 are absent.
_NN_GATHERELEMENT_PARM dense_block(uint32_t width, uint32_t height, uint32_t channel, uint32_t batch, int axis) {
  _NN_GATHERELEMENT_PARM block{};
  block.in_fmt = block.ind_fmt = block.out_fmt = kInt8.fmt();
  block.in_height = block.out_height = static_cast<uint16_t>(height);
  block.in_channel = block.out_channel = static_cast<uint16_t>(channel);
  block.in_batch = block.out_batch = static_cast<uint16_t>(batch);
  block.out_width = static_cast<uint16_t>(width);
  block.in_line_ofs = block.ind_line_ofs = width;
  block.in_channel_ofs = block.ind_channel_ofs = width * height;
  block.in_batch_ofs = block.ind_batch_ofs = width * height * channel;
  block.work_buffer = unreadable_address();
  block.axis = static_cast<uint8_t>(axis);
  return block;
}

using Values = std::vector<int8_t>;

/// The elements gathered from the 8-bit values, one for each index.
template <class Index>
Values gathered(_NN_GATHERELEMENT_PARM block, const Values &values, const std::vector<Index> &indices) {
  const GuardedMemory in = memory_of(values);
  const GuardedMemory index = memory_of(indices);
  const GuardedMemory out(indices.size());
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  const Answer got = answer(::tarvu_gatherelement_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
  EXPECT_EQ(out.guard_damage(), "");
  return values_in<int8_t>(out);
}

/// 0 to n - 1.
Values counting(int n) {
  Values values;
  for (int i = 0; i < n; ++i) values.push_back(static_cast<int8_t>(i));
  return values;
}

TEST(GatherElement, OnTheSlowerAxisOfAMatrixTheIndexNamesTheLine) {
  EXPECT_EQ(gathered<int8_t>(dense_block(3, 2, 0, 0, 0), counting(9), {2, 0, 1, 1, 2, 0}), (Values{6, 1, 5, 3, 7, 2}));
}

TEST(GatherElement, OnTheFastestAxisTheIndexNamesTheColumn) {
  EXPECT_EQ(gathered<int8_t>(dense_block(3, 2, 0, 0, 1), counting(6), {2, 0, 1, 1, 1, 2}), (Values{2, 0, 1, 4, 4, 5}));
}

TEST(GatherElement, BelowMinusOneAnIndexCountsBackFromTheWholeTensor) {
  // -2 with 3 lines of 4 is position 10, far behind the three lines.
  Values values(4 * 11, 0);
  values[41] = 55;
  const Values got = gathered<int8_t>(dense_block(4, 3, 0, 0, 0), values, {0, -2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(got[1], 55);
}

TEST(GatherElement, MinusOneOnTheFastestAxisRepeatsTheElementBefore) {
  EXPECT_EQ(gathered<int8_t>(dense_block(3, 1, 0, 0, 1), counting(3), {1, -1, -1}), (Values{1, 1, 1}));
}

TEST(GatherElement, MinusOneOnTheFastestAxisOfAMatrixCarriesOverFromTheLineBefore) {
  EXPECT_EQ(gathered<int8_t>(dense_block(2, 2, 0, 0, 1), counting(4), {0, 1, -1, -1}), (Values{0, 1, 1, 1}));
}

TEST(GatherElement, MinusOneOnASlowerAxisKeepsTheSliceAndMovesAlongIt) {
  // Line 2 at column 0, kept for columns 1 and 2, and carried over to the next line.
  EXPECT_EQ(gathered<int8_t>(dense_block(3, 2, 0, 0, 0), counting(9), {2, -1, -1, -1, 0, -1}),
            (Values{6, 7, 8, 6, 1, 2}));
}

TEST(GatherElement, MinusOneAtTheStartOfAChannelIsItsFirstLineForTheMiddleAxisOfRankThree) {
  EXPECT_EQ(gathered<int8_t>(dense_block(2, 2, 2, 0, 1), counting(8), {-1, -1, 1, 1, -1, 1, -1, -1}),
            (Values{0, 1, 2, 3, 4, 7, 6, 7}));
}

TEST(GatherElement, MinusOneAtTheStartOfALineIsItsFirstElementForTheFastestAxisOfRankThree) {
  EXPECT_EQ(gathered<int8_t>(dense_block(2, 2, 2, 0, 2), counting(8), {-1, 1, -1, -1, 1, -1, -1, 1}),
            (Values{0, 1, 2, 2, 5, 5, 6, 7}));
}

TEST(GatherElement, MinusOneOnTheSlowestAxisOfRankThreeCarriesOverThroughTheWholeCall) {
  EXPECT_EQ(gathered<int8_t>(dense_block(2, 1, 2, 0, 0), counting(6), {2, -1, -1, 0}), (Values{4, 5, 4, 1}));
}

TEST(GatherElement, MinusOneStartsAtTheBatchItemTheChannelAndTheLineForTheAxesOfRankFour) {
  EXPECT_EQ(gathered<int8_t>(dense_block(1, 1, 2, 2, 1), counting(4), {-1, 1, -1, -1}), (Values{0, 1, 2, 2}));
  EXPECT_EQ(gathered<int8_t>(dense_block(1, 2, 2, 1, 2), counting(4), {-1, 1, -1, -1}), (Values{0, 1, 2, 2}));
  EXPECT_EQ(gathered<int8_t>(dense_block(2, 2, 1, 1, 3), counting(4), {-1, 1, -1, -1}), (Values{0, 1, 2, 2}));
  EXPECT_EQ(gathered<int8_t>(dense_block(1, 1, 1, 4, 0), counting(4), {3, -1, -1, 0}), (Values{3, 3, 3, 0}));
}

TEST(GatherElement, AnUnsigned32BitIndexWithItsTopBitSetCountsAsNegative) {
  _NN_GATHERELEMENT_PARM block = dense_block(3, 1, 0, 0, 1);
  block.ind_fmt = kUint32.fmt();
  EXPECT_EQ(gathered<uint32_t>(block, counting(3), {2, 0xFFFFFFFFu, 0xFFFFFFFEu}), (Values{2, 2, 1}));
}

TEST(GatherElement, ASmallUnsignedIndexWithItsTopBitSetIsAPosition) {
  _NN_GATHERELEMENT_PARM block = dense_block(1, 1, 0, 0, 1);
  block.ind_fmt = kUint8.fmt();
  Values values(65536, 0);
  values[255] = 55;
  values[65535] = 66;
  EXPECT_EQ(gathered<uint8_t>(block, values, {255}), (Values{55}));
  block.ind_fmt = kUint16.fmt();
  const GuardedMemory in = memory_of(values);
  const GuardedMemory index = memory_of<uint16_t>({65535});
  const GuardedMemory out(1);
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gatherelement_process(&block), QX_OK);
  EXPECT_EQ(out.data()[0], 66);
}

TEST(GatherElement, TheDistanceToASliceWrapsAt32Bits) {
  // Lines of 4 bytes: 2^30 + 1 lines are 4 bytes, and 4 - 2^31 lines 16, modulo 2^32.
  _NN_GATHERELEMENT_PARM block = dense_block(4, 1, 0, 0, 0);
  block.ind_fmt = kInt32.fmt();
  EXPECT_EQ(gathered<int32_t>(block, counting(20), {0x40000001, INT32_MIN, 0, 0}), (Values{4, 17, 2, 3}));
}

TEST(GatherElement, TheStridesOfTheIndicesCountAndTheOutputIsDense) {
  _NN_GATHERELEMENT_PARM block = dense_block(2, 2, 0, 0, 1);
  block.ind_line_ofs = 5;
  const GuardedMemory in = memory_of(counting(4));
  const GuardedMemory index = memory_of<int8_t>({1, 0, 99, 99, 99, 0, 0});
  const GuardedMemory out(4);
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gatherelement_process(&block), QX_OK);
  EXPECT_EQ(values_in<int8_t>(out), (Values{1, 0, 2, 2}));
}

TEST(GatherElement, AnOutputOf32BitsStaysUntouched) {
  for (const Type &type : kElementTypes) {
    _NN_GATHERELEMENT_PARM block = dense_block(2, 2, 0, 0, 1);
    block.in_fmt = type.fmt();
    block.in_line_ofs = 2 * type.bytes();
    block.out_fmt = kInt32.fmt();
    const GuardedMemory in(4 * type.bytes());
    const GuardedMemory index = memory_of<int8_t>({1, 0, 1, 1});
    const GuardedMemory out(16);
    const GuardedMemory work(type.bytes());
    out.fill(0x5A);
    block.in_addr = in.address();
    block.ind_addr = index.address();
    block.out_addr = out.address();
    block.work_buffer = work.address();
    EXPECT_EQ(::tarvu_gatherelement_process(&block), QX_OK);
    EXPECT_EQ(values_in<uint8_t>(out), std::vector<uint8_t>(16, 0x5A));
    EXPECT_EQ(work.guard_damage(), "");
  }
}

TEST(GatherElement, AChangeOfFractionOrWidthGoesThroughTheScratchElement) {
  const GuardedMemory in = memory_of<int8_t>({100, -3});
  const GuardedMemory index = memory_of<int8_t>({1, 0});
  const GuardedMemory work(1);
  _NN_GATHERELEMENT_PARM block = dense_block(2, 1, 0, 0, 1);
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.work_buffer = work.address();
  const GuardedMemory narrow(2);
  block.out_addr = narrow.address();
  block.out_fmt = kInt8.fmt(1);
  EXPECT_EQ(::tarvu_gatherelement_process(&block), QX_OK);
  EXPECT_EQ(values_in<int8_t>(narrow), (Values{-6, 127}));
  const GuardedMemory wide(4);
  block.out_addr = wide.address();
  block.out_fmt = kInt16.fmt(1);
  EXPECT_EQ(::tarvu_gatherelement_process(&block), QX_OK);
  EXPECT_EQ(values_in<int16_t>(wide), (std::vector<int16_t>{-6, 200}));
  EXPECT_EQ(work.guard_damage(), "");
}

TEST(GatherElement, ASignAloneIsNoReasonToReformat) {
  _NN_GATHERELEMENT_PARM block = dense_block(2, 1, 0, 0, 1);
  block.out_fmt = kUint8.fmt();
  EXPECT_EQ(gathered<int8_t>(block, {-1, -128}, {0, 1}), (Values{-1, -128}));
}

TEST(GatherElement, WidthsAreSumsModulo256) {
  _NN_GATHERELEMENT_PARM block = dense_block(2, 1, 0, 0, 1);
  block.in_fmt = format(8, 127, 1);
  block.out_fmt = format(264, 127, 10);
  EXPECT_EQ(gathered<int8_t>(block, {-1, -128}, {1, 0}), (Values{-128, -1}));
}

/// A rank-4 block with something to gather, all of whose addresses fault.
_NN_GATHERELEMENT_PARM block_that_must_not_be_touched() {
  _NN_GATHERELEMENT_PARM block = dense_block(2, 2, 2, 2, 1);
  block.in_addr = unreadable_address();
  block.ind_addr = unreadable_address();
  block.out_addr = unreadable_address();
  return block;
}

TEST(GatherElement, AnInputTypeOtherThanTheFourPrintsItsCodeAheadOfTheIndexType) {
  _NN_GATHERELEMENT_PARM block = block_that_must_not_be_touched();
  block.ind_fmt = format(24, 0, 0);  // checked later
  block.in_fmt = format(32, 0, 1);
  Answer got = answer(::tarvu_gatherelement_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gatherelement_process() unsupported gatherelement input type 4\r\n\033[0m");
  block.in_fmt = format(32, 0, 0);
  got = answer(::tarvu_gatherelement_process, block);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gatherelement_process() unsupported gatherelement input type 5\r\n\033[0m");
  block.in_fmt = format(12, 0, 0);
  got = answer(::tarvu_gatherelement_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gatherelement_process() unsupported gatherelement input type -1\r\n\033[0m");
}

TEST(GatherElement, AnIndexTypeOfNoElementWidthPrintsItsCode) {
  for (const Type &type : kElementTypes) {
    _NN_GATHERELEMENT_PARM block = block_that_must_not_be_touched();
    block.in_fmt = type.fmt();
    block.ind_fmt = format(24, 0, 1);
    const Answer got = answer(::tarvu_gatherelement_process, block);
    EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
    EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gatherelement_process() unsupported ind type -1\r\n\033[0m");
  }
}

void expect_silence(const _NN_GATHERELEMENT_PARM &block) {
  const Answer got = answer(::tarvu_gatherelement_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
}

TEST(GatherElement, AOneDimensionalInputIsNotGathered) {
  _NN_GATHERELEMENT_PARM block = block_that_must_not_be_touched();
  block.in_batch = block.in_channel = block.in_height = 0;
  block.axis = 0;
  expect_silence(block);
}

TEST(GatherElement, AnAxisBeyondTheRankTouchesNothing) {
  _NN_GATHERELEMENT_PARM block = block_that_must_not_be_touched();
  block.axis = 4;
  expect_silence(block);
  block.axis = 255;
  expect_silence(block);
  block.in_batch = 0;
  block.axis = 3;
  expect_silence(block);
  block.in_channel = 0;
  block.axis = 2;
  expect_silence(block);
}

TEST(GatherElement, AZeroExtentOfTheRankTouchesNothing) {
  for (uint16_t _NN_GATHERELEMENT_PARM::*extent :
       {&_NN_GATHERELEMENT_PARM::out_width, &_NN_GATHERELEMENT_PARM::out_height, &_NN_GATHERELEMENT_PARM::out_channel,
        &_NN_GATHERELEMENT_PARM::out_batch}) {
    _NN_GATHERELEMENT_PARM block = block_that_must_not_be_touched();
    block.*extent = 0;
    expect_silence(block);
  }
}

TEST(GatherElement, ExtentsAboveTheRankAreNotLookedAt) {
  _NN_GATHERELEMENT_PARM block = dense_block(2, 1, 0, 0, 1);  // channel and batch of the output are 0
  EXPECT_EQ(gathered<int8_t>(block, counting(2), {1, 0}), (Values{1, 0}));
  block.out_channel = block.out_batch = 7;
  EXPECT_EQ(gathered<int8_t>(block, counting(2), {1, 0}), (Values{1, 0}));
}

}  // namespace
