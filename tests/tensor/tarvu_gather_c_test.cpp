#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "tarvu.h"
#include "tests/support/guarded_memory.h"
#include "tests/tensor/gather_case.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::format;
using support::GuardedMemory;
using support::Random;
using support::test_random;
using support::unreadable_address;

/// Rank 2, axis 0: lines of a dense 8-bit matrix by a list of signed 8-bit indices.
_NN_GATHER_PARM lines_block(uint32_t lines, uint32_t width, uint32_t indices) {
  _NN_GATHER_PARM block{};
  block.in_fmt = kInt8.fmt();
  block.ind_fmt = kInt8.fmt();
  block.out_fmt = kInt8.fmt();
  block.in_width = static_cast<uint16_t>(width);
  block.in_height = static_cast<uint16_t>(lines);
  block.ind_width = static_cast<uint16_t>(indices);
  block.out_width = static_cast<uint16_t>(width);
  block.out_height = static_cast<uint16_t>(indices);
  block.in_line_ofs = width;
  block.in_channel_ofs = width * lines;
  block.in_batch_ofs = width * lines;
  block.out_line_ofs = width;
  block.out_channel_ofs = width * indices;
  block.out_batch_ofs = width * indices;
  block.work_buffer = unreadable_address();
  return block;
}

/// Six lines of two elements: 0 1, 10 11, .. 50 51.
std::vector<int8_t> six_lines() { return {0, 1, 10, 11, 20, 21, 30, 31, 40, 41, 50, 51}; }

template <class Index>
std::vector<int8_t> lines_at(const std::vector<Index> &indices, _NN_FMT index_format,
                             const std::vector<int8_t> &lines = six_lines()) {
  const GuardedMemory in = memory_of(lines);
  const GuardedMemory index = memory_of(indices);
  const GuardedMemory out(2 * indices.size());
  // The number of lines is not read, only whether there are any.
  _NN_GATHER_PARM block = lines_block(lines.empty() ? 0 : 1, 2, static_cast<uint32_t>(indices.size()));
  block.ind_fmt = index_format;
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  const Answer got = answer(::tarvu_gather_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
  EXPECT_EQ(out.guard_damage(), "");
  return values_in<int8_t>(out);
}

using Lines = std::vector<int8_t>;

TEST(Gather, SlicesFollowTheOrderOfTheIndices) {
  EXPECT_EQ(lines_at<int8_t>({5, 0, 5}, kInt8.fmt()), (Lines{50, 51, 0, 1, 50, 51}));
}

TEST(Gather, MinusOneIsTheFirstSlice) {
  EXPECT_EQ(lines_at<int8_t>({4, -1}, kInt8.fmt()), (Lines{40, 41, 0, 1}));
  EXPECT_EQ(lines_at<int16_t>({4, -1}, kInt16.fmt()), (Lines{40, 41, 0, 1}));
  EXPECT_EQ(lines_at<int32_t>({4, -1}, kInt32.fmt()), (Lines{40, 41, 0, 1}));
}

TEST(Gather, BelowMinusOneAnIndexCountsBackFromTheNumberOfIndices) {
  EXPECT_EQ(lines_at<int8_t>({-2, 0, 0, 0, 0}, kInt8.fmt()), (Lines{30, 31, 0, 1, 0, 1, 0, 1, 0, 1}));
  EXPECT_EQ(lines_at<int16_t>({-5, -4, -3, -2, -1}, kInt16.fmt()), (Lines{0, 1, 10, 11, 20, 21, 30, 31, 0, 1}));
}

TEST(Gather, AnUnsigned32BitIndexWithItsTopBitSetCountsAsNegative) {
  EXPECT_EQ(lines_at<uint32_t>({0xFFFFFFFFu, 0xFFFFFFFEu, 3}, kUint32.fmt()), (Lines{0, 1, 10, 11, 30, 31}));
}

TEST(Gather, ASmallUnsignedIndexWithItsTopBitSetIsAPosition) {
  Lines lines(2 * 256);
  lines[2 * 255] = 77;
  lines[2 * 255 + 1] = 78;
  EXPECT_EQ(lines_at<uint8_t>({255}, kUint8.fmt(), lines), (Lines{77, 78}));
  lines.resize(2 * 65536);
  lines[2 * 65535] = 79;
  EXPECT_EQ(lines_at<uint16_t>({65535}, kUint16.fmt(), lines), (Lines{79, 0}));
}

TEST(Gather, TheFractionBitsOfTheIndicesScaleNothing) {
  EXPECT_EQ(lines_at<int8_t>({2}, kInt8.fmt(1)), (Lines{20, 21}));
  EXPECT_EQ(lines_at<int8_t>({2}, kInt8.fmt(-1)), (Lines{20, 21}));
}

TEST(Gather, AnIndexBehindTheAxisReadsBehindTheSlices) {
  const GuardedMemory in = memory_of(six_lines());
  const GuardedMemory index = memory_of<int8_t>({5});
  const GuardedMemory out(2);
  _NN_GATHER_PARM block = lines_block(3, 2, 1);  // a tensor of three lines, with three more behind it
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<int8_t>(out), (Lines{50, 51}));
}

TEST(Gather, TheDistanceToASliceWrapsAt32Bits) {
  // 2^31 + 3 lines of 2 bytes are 6 bytes, modulo 2^32; so is the least integer counted back from three indices.
  EXPECT_EQ(lines_at<int32_t>({INT32_MIN, 0, 0}, kInt32.fmt()), (Lines{30, 31, 0, 1, 0, 1}));
  EXPECT_EQ(lines_at<int32_t>({INT32_MIN + 1, 0, 0}, kInt32.fmt()), (Lines{40, 41, 0, 1, 0, 1}));
  const GuardedMemory in = memory_of<uint8_t>({1, 2, 3, 4, 5, 6, 7, 8});
  const GuardedMemory index = memory_of<int32_t>({0x40000001});
  const GuardedMemory out(4);
  _NN_GATHER_PARM block = lines_block(2, 4, 1);
  block.ind_fmt = kInt32.fmt();
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint8_t>(out), (std::vector<uint8_t>{5, 6, 7, 8}));
}

TEST(Gather, FarBelowZeroAnIndexReadsFarPastTheTensor) {
  // -7 with five indices is position 2^32 - 2.
  const FarRoom room((size_t{1} << 32) + 64);
  room.data()[0] = 11;
  room.data()[0xFFFFFFFEu] = 99;
  const GuardedMemory index = memory_of<int8_t>({0, -7, 0, 0, 0});
  const GuardedMemory out(5);
  _NN_GATHER_PARM block = lines_block(1, 4, 5);
  block.axis = 1;
  block.out_width = 5;
  block.out_height = 1;
  block.in_addr = room.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint8_t>(out), (std::vector<uint8_t>{11, 99, 11, 11, 11}));
}

TEST(Gather, ARunCarriesThePaddingOfTheInput) {
  const GuardedMemory in = memory_of<uint8_t>({1, 2, 0xA1, 3, 4, 0xA2});
  const GuardedMemory index = memory_of<uint8_t>({1, 0});
  const GuardedMemory out(2 + 3);
  _NN_GATHER_PARM block = lines_block(2, 2, 2);
  block.ind_fmt = kUint8.fmt();
  block.in_line_ofs = 3;
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint8_t>(out), (std::vector<uint8_t>{3, 4, 1, 2, 0xA1}));
}

TEST(Gather, TheFastestAxisMovesSingleElements) {
  const GuardedMemory in = memory_of<int16_t>({1, 2, 3, 4, 5, 6});
  const GuardedMemory index = memory_of<int8_t>({2, 0});
  const GuardedMemory out(8);
  _NN_GATHER_PARM block = lines_block(2, 3, 2);
  block.in_fmt = block.out_fmt = kInt16.fmt();
  block.in_line_ofs = 6;
  block.axis = 1;
  block.out_width = 2;
  block.out_height = 2;
  block.out_line_ofs = 4;
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<int16_t>(out), (std::vector<int16_t>{3, 1, 6, 4}));
}

TEST(Gather, OfARankFourInputsIndexTensorOnlyTheFirstLineIsUsed) {
  const GuardedMemory in = memory_of<uint8_t>({1, 2, 3});
  const GuardedMemory index = memory_of<uint8_t>({2, 0, 9, 9, 9, 9});
  const GuardedMemory out(2);
  _NN_GATHER_PARM block{};
  block.in_fmt = block.out_fmt = block.ind_fmt = kUint8.fmt();
  block.in_height = block.in_channel = 1;
  block.in_batch = 3;
  block.in_line_ofs = block.in_channel_ofs = block.in_batch_ofs = 1;
  block.ind_width = 2;
  block.ind_height = 3;
  block.out_width = block.out_height = block.out_channel = 1;
  block.out_batch = 2;
  block.out_line_ofs = block.out_channel_ofs = block.out_batch_ofs = 1;
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  block.work_buffer = unreadable_address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint8_t>(out), (std::vector<uint8_t>{3, 1}));
}

TEST(Gather, ASignAloneIsNoReasonToReformat) {
  const GuardedMemory in = memory_of<uint8_t>({0xFF, 0x80});
  const GuardedMemory index = memory_of<uint8_t>({0});
  const GuardedMemory out(2);
  _NN_GATHER_PARM block = lines_block(1, 2, 1);
  block.ind_fmt = kUint8.fmt();
  block.out_fmt = kUint8.fmt();
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint8_t>(out), (std::vector<uint8_t>{0xFF, 0x80}));
}

TEST(Gather, WidthsAreSumsModulo256) {
  const GuardedMemory in = memory_of<uint8_t>({0xFF, 0x80});
  const GuardedMemory index = memory_of<uint8_t>({0});
  const GuardedMemory out(2);
  _NN_GATHER_PARM block = lines_block(1, 2, 1);
  block.ind_fmt = kUint8.fmt();
  block.in_fmt = format(8, 127, 1);
  block.out_fmt = format(264, 127, 10);
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint8_t>(out), (std::vector<uint8_t>{0xFF, 0x80}));
}

TEST(Gather, AnOutputOf32BitsStaysUntouched) {
  for (int axis : {0, 1}) {
    const GuardedMemory in = memory_of(six_lines());
    const GuardedMemory index = memory_of<uint8_t>({1, 2});
    const GuardedMemory out(16);
    const GuardedMemory work(2);
    out.fill(0x5A);
    _NN_GATHER_PARM block = lines_block(6, 2, 2);
    block.axis = static_cast<uint8_t>(axis);
    block.ind_fmt = kUint8.fmt();
    block.out_fmt = kInt32.fmt();
    block.in_addr = in.address();
    block.ind_addr = index.address();
    block.out_addr = out.address();
    block.work_buffer = work.address();
    EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
    EXPECT_EQ(values_in<uint8_t>(out), std::vector<uint8_t>(16, 0x5A));
    EXPECT_EQ(work.guard_damage(), "");
  }
}

TEST(Gather, AnIndexTensorOfRankTwoReformatsPastEachRunAndLeavesTheSpillBehindTheLast) {
  // Runs of two elements; the re-format count is output width * height = 2 * 2, so each index re-formats four elements
  // ahead in place: the first touches the second's run before it is written, the last the two bytes behind the output.
  const GuardedMemory in = memory_of<int8_t>({1, 2, 3, 4, 5, 6});
  const GuardedMemory index = memory_of<uint8_t>({2, 0, 1, 1});
  const GuardedMemory out(8 + 2);
  out.fill(7);
  _NN_GATHER_PARM block = lines_block(3, 2, 2);
  block.ind_fmt = kUint8.fmt();
  block.ind_height = 2;
  block.out_fmt = kInt8.fmt(1);
  block.out_width = 2;
  block.out_height = 2;
  block.out_channel = 2;
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gather_process(&block), QX_OK);
  EXPECT_EQ(values_in<int8_t>(out), (std::vector<int8_t>{10, 12, 2, 4, 6, 8, 6, 8, 14, 14}));
}

/// A rank-3 block with something to gather, all of whose addresses fault.
_NN_GATHER_PARM block_that_must_not_be_touched() {
  _NN_GATHER_PARM block = lines_block(2, 2, 2);
  block.in_channel = 2;
  block.out_channel = 2;
  block.in_addr = unreadable_address();
  block.ind_addr = unreadable_address();
  block.out_addr = unreadable_address();
  return block;
}

TEST(Gather, AnInputTypeOtherThanTheFourPrintsItsCodeAheadOfTheIndexType) {
  _NN_GATHER_PARM block = block_that_must_not_be_touched();
  block.ind_fmt = format(24, 0, 0);  // checked later
  block.in_fmt = format(32, 0, 1);
  Answer got = answer(::tarvu_gather_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gather_process() unsupported gather input type 4\r\n\033[0m");
  block.in_fmt = format(32, 0, 0);
  got = answer(::tarvu_gather_process, block);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gather_process() unsupported gather input type 5\r\n\033[0m");
  block.in_fmt = format(12, 0, 0);
  got = answer(::tarvu_gather_process, block);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gather_process() unsupported gather input type -1\r\n\033[0m");
}

TEST(Gather, AnIndexTypeOfNoElementWidthPrintsItsCode) {
  for (const Type &type : kElementTypes) {
    _NN_GATHER_PARM block = block_that_must_not_be_touched();
    block.in_fmt = type.fmt();
    block.ind_fmt = format(24, 0, 1);
    const Answer got = answer(::tarvu_gather_process, block);
    EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
    EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gather_process() unsupported ind type -1\r\n\033[0m");
  }
}

void expect_silence(const _NN_GATHER_PARM &block) {
  const Answer got = answer(::tarvu_gather_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
}

TEST(Gather, AOneDimensionalInputIsNotGathered) {
  _NN_GATHER_PARM block = block_that_must_not_be_touched();
  block.in_channel = block.in_height = 0;
  expect_silence(block);
}

TEST(Gather, AnAxisBeyondTheRankTouchesNothing) {
  _NN_GATHER_PARM block = block_that_must_not_be_touched();
  for (int axis : {3, 4, 255}) {
    block.axis = static_cast<uint8_t>(axis);
    expect_silence(block);
  }
  block.in_channel = 0;
  block.axis = 2;
  expect_silence(block);
  block.in_batch = 1;
  block.axis = 4;
  expect_silence(block);
}

TEST(Gather, AnIndexTensorOfTooHighARankTouchesNothing) {
  _NN_GATHER_PARM block = block_that_must_not_be_touched();
  block.ind_height = block.ind_channel = 1;
  expect_silence(block);  // rank 3 takes one and two
  block.ind_batch = 1;
  expect_silence(block);
  block.in_channel = 0;
  expect_silence(block);  // rank 2 takes one to three
}

TEST(Gather, NoIndicesTouchNothing) {
  _NN_GATHER_PARM block = block_that_must_not_be_touched();
  block.ind_width = 0;
  expect_silence(block);
  block.ind_height = 3;
  expect_silence(block);
}

TEST(Gather, AnOuterOutputExtentOfZeroTouchesNothing) {
  _NN_GATHER_PARM block = block_that_must_not_be_touched();
  block.axis = 1;
  block.out_channel = 0;
  expect_silence(block);
  block.axis = 2;
  block.out_channel = 2;
  block.out_height = 0;
  expect_silence(block);
}

}  // namespace
