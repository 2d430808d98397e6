#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <vector>

#include "tarvu.h"
#include "tests/support/guarded_memory.h"
#include "tests/tensor/gathernd_case.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::format;
using support::GuardedMemory;

using Shape = std::vector<uint32_t>;
using Values = std::vector<int8_t>;

TEST(GatherNdExtents, TheProductUpToADimensionSkipsZeros) {
  const uint32_t dims[4] = {0, 3, 0, 5};
  EXPECT_EQ(::size_to_dimension(dims, 0), 1u);
  EXPECT_EQ(::size_to_dimension(dims, 1), 1u);
  EXPECT_EQ(::size_to_dimension(dims, 2), 3u);
  EXPECT_EQ(::size_to_dimension(dims, 3), 3u);
  EXPECT_EQ(::size_to_dimension(dims, 4), 15u);
  const uint32_t zeros[4] = {0, 0, 0, 0};
  EXPECT_EQ(::size_to_dimension(zeros, 4), 1u);
}

TEST(GatherNdExtents, TheProductFromADimensionSkipsZerosAndIsOneBehindTheLast) {
  const uint32_t dims[4] = {2, 3, 0, 5};
  EXPECT_EQ(::size_from_dimension(dims, 0), 30u);
  EXPECT_EQ(::size_from_dimension(dims, 1), 15u);
  EXPECT_EQ(::size_from_dimension(dims, 2), 5u);
  EXPECT_EQ(::size_from_dimension(dims, 3), 5u);
  EXPECT_EQ(::size_from_dimension(dims, 4), 1u);
  EXPECT_EQ(::size_from_dimension(dims, 0xFFFFFFFFu), 1u);
}

TEST(GatherNdExtents, ProductsWrapAt32Bits) {
  const uint32_t dims[4] = {0x10001, 0x10001, 1, 1};
  EXPECT_EQ(::size_to_dimension(dims, 2), 0x20001u);
  EXPECT_EQ(::size_from_dimension(dims, 0), 0x20001u);
}

TEST(GatherNdExtents, EmptyPlacesAreCountedFromTheHeightDown) {
  const uint32_t full[4] = {1, 1, 1, 1};
  const uint32_t no_batch[4] = {0, 1, 1, 1};
  const uint32_t no_channel[4] = {1, 0, 1, 1};
  const uint32_t no_height[4] = {1, 1, 0, 1};
  const uint32_t nothing[4] = {0, 0, 0, 0};
  EXPECT_EQ(::chk_input_offset(full), 0u);
  EXPECT_EQ(::chk_input_offset(no_batch), 1u);
  EXPECT_EQ(::chk_input_offset(no_channel), 2u);
  EXPECT_EQ(::chk_input_offset(no_height), 3u);
  EXPECT_EQ(::chk_input_offset(nothing), 3u);
}

/// The 8-bit elements that a block gathers from `values`.
template <class Index>
Values gathered(_NN_GATHERND_PARM block, const Values &values, const std::vector<Index> &indices, size_t count) {
  const GuardedMemory in = memory_of(values);
  const GuardedMemory index = memory_of(indices);
  const GuardedMemory out(count);
  const GuardedMemory work(4 * indices.size());
  out.fill(0x77);
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  if (block.ind_fmt.frac_bits + block.ind_fmt.int_bits + block.ind_fmt.sign_bits != 32) {
    block.work_buffer = work.address();
  }
  const Answer got = answer(gathernd_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
  EXPECT_EQ(out.guard_damage() + work.guard_damage(), "");
  return values_in<int8_t>(out);
}

/// 0 to n - 1.
Values counting(int n) {
  Values values;
  for (int i = 0; i < n; ++i) values.push_back(static_cast<int8_t>(i));
  return values;
}

TEST(GatherNd, TuplesOfTwoCoordinatesPickSinglesOfAMatrix) {
  const auto block = nd_block({{3, 4}, {3, 2}, {3}}, 0);
  EXPECT_EQ(gathered<int8_t>(block, counting(12), {2, 3, 0, 1, 1, 0}, 3), (Values{11, 1, 4}));
}

TEST(GatherNd, OneCoordinatePicksLinesOfAMatrix) {
  const auto block = nd_block({{3, 4}, {2, 1}, {2, 4}}, 0);
  EXPECT_EQ(gathered<int8_t>(block, counting(12), {2, 0}, 8), (Values{8, 9, 10, 11, 0, 1, 2, 3}));
}

TEST(GatherNd, SharedDimensionsDivideTheTuplesAmongThem) {
  const auto block = nd_block({{2, 3, 2}, {2, 2, 1}, {2, 2, 2}}, 1);
  EXPECT_EQ(gathered<int8_t>(block, counting(12), {2, 0, 1, 1}, 8), (Values{4, 5, 0, 1, 8, 9, 8, 9}));
}

TEST(GatherNd, ThreeCoordinatesInABatchItemPickSingles) {
  const auto block = nd_block({{2, 2, 2, 2}, {2, 1, 3}, {2, 1}}, 1);
  EXPECT_EQ(gathered<int8_t>(block, counting(16), {1, 0, 1, 0, 1, 0}, 2), (Values{5, 10}));
}

TEST(GatherNd, AVectorOfSharedDimensionsOnlyCopiesFromTheStartOfEachBatch) {
  // No coordinates: index extents 4 tuples and ind_width 0.
  auto block = nd_block({{2, 3}, {4, 0}, {4, 3}}, 1);
  EXPECT_EQ(gathered<int8_t>(block, counting(6), {9, 9, 9, 9}, 12), (Values{0, 1, 2, 0, 1, 2, 3, 4, 5, 3, 4, 5}));
}

TEST(GatherNd, WithFewerTuplesThanBatchesAllFallIntoTheFirst) {
  const auto block = nd_block({{3, 2, 2}, {2, 1}, {2, 2}}, 1);
  EXPECT_EQ(gathered<int8_t>(block, counting(12), {1, 0}, 4), (Values{2, 3, 0, 1}));
}

TEST(GatherNd, ARemainderOfTuplesFallsIntoTheBatchesBehind) {
  // Five tuples for two batches: two each, so the fifth is counted to a third batch behind the second.
  const auto block = nd_block({{2, 2}, {5, 1}, {5}}, 1);
  EXPECT_EQ(gathered<int8_t>(block, counting(6), {0, 1, 0, 1, 1}, 5), (Values{0, 1, 2, 3, 5}));
}

TEST(GatherNd, MoreCoordinatesThanDimensionsMoveSingles) {
  // The third coordinate has no dimension: it steps by one element.
  const auto block = nd_block({{3, 4}, {2, 3}, {2}}, 0);
  EXPECT_EQ(gathered<int8_t>(block, counting(12), {1, 1, 1, 0, 0, 2}, 2), (Values{6, 2}));
}

TEST(GatherNd, SixCoordinatesAddUpLikeTwo) {
  const auto block = nd_block({{3, 4}, {2, 6}, {2}}, 0);
  EXPECT_EQ(gathered<int8_t>(block, counting(12), {1, 1, 1, 1, 1, 1, 2, 0, 0, 0, 0, 3}, 2), (Values{9, 11}));
}

TEST(GatherNd, TheFractionBitsOfAnIndexCountAndItsFractionIsDropped) {
  auto block = nd_block({{6}, {3, 1}, {3}}, 0);
  block.ind_fmt = kInt8.fmt(1);
  EXPECT_EQ(gathered<int8_t>(block, counting(6), {7, 10, -1}, 3), (Values{3, 5, 0}));
  block.ind_fmt = kInt16.fmt(2);
  EXPECT_EQ(gathered<int16_t>(block, counting(6), {10, 20, 3}, 3), (Values{2, 5, 0}));
  block.ind_fmt = kUint8.fmt(-1);
  EXPECT_EQ(gathered<uint8_t>(block, counting(6), {0, 1, 2}, 3), (Values{0, 2, 4}));
}

TEST(GatherNd, A32BitIndexIsAFloatWhateverItsFractionBits) {
  auto block = nd_block({{6}, {4, 1}, {4}}, 0);
  block.ind_fmt = kInt32.fmt(3);
  EXPECT_EQ(gathered<float>(block, counting(6), {3.9f, 5.0f, -0.9f, std::bit_cast<float>(1u)}, 4),
            (Values{3, 5, 0, 0}));
}

TEST(GatherNd, AFloatIndexOutOfRangeSaturatesAndNanIsZero) {
  auto block = nd_block({{4}, {3, 2}, {3}}, 0);
  block.ind_fmt = kInt32.fmt();
  // Both coordinates step by one element: the greatest integer and the least add up to -1, so each tuple adds up to 3.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(gathered<float>(block, counting(4), {nan, 3.0f, 2.0f, nan, -0.0f, 1.0f}, 3), (Values{3, 2, 1}));
  block = nd_block({{4}, {1, 4}, {1}}, 0);
  block.ind_fmt = kInt32.fmt();
  EXPECT_EQ(gathered<float>(block, counting(4), {1e20f, -1e20f, 2.0f, 1.0f}, 1), (Values{2}));
}

TEST(GatherNd, ANegativeCoordinateReadsFarPastTheInput) {
  const FarRoom room(size_t{1} << 32);
  room.data()[0xFFFFFFFFu] = 99;  // -1.5 is -1
  room.data()[1] = 11;
  const GuardedMemory index = memory_of<int8_t>({-3, 2});
  const GuardedMemory out(2);
  const GuardedMemory work(8);
  auto block = nd_block({{6}, {2, 1}, {2}}, 0);
  block.ind_fmt = kInt8.fmt(1);
  block.in_addr = room.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  block.work_buffer = work.address();
  EXPECT_EQ(gathernd_process(&block), QX_OK);
  EXPECT_EQ(values_in<int8_t>(out), (Values{99, 11}));
}

TEST(GatherNd, TheByteDistanceOf16BitElementsDoesNotWrap) {
  const FarRoom room((size_t{1} << 33) + 16);
  room.data()[0x1FFFFFFFCu] = 0x34;  // element 2^32 - 2
  room.data()[0x1FFFFFFFDu] = 0x12;
  const GuardedMemory index = memory_of<int8_t>({-2});
  const GuardedMemory out(2);
  const GuardedMemory work(4);
  auto block = nd_block({{6}, {1, 1}, {1}}, 0);
  block.in_fmt = block.out_fmt = kInt16.fmt();
  block.in_addr = room.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  block.work_buffer = work.address();
  EXPECT_EQ(gathernd_process(&block), QX_OK);
  EXPECT_EQ(values_in<int16_t>(out), (std::vector<int16_t>{0x1234}));
}

TEST(GatherNd, AnIndexFormatThatNothingConvertsReadsScratchAsItStands) {
  const GuardedMemory in = memory_of(counting(6));
  const GuardedMemory out(2);
  const GuardedMemory work = memory_of<float>({4.0f, 1.0f});
  for (const _NN_FMT ind_fmt : {format(8, 0, 2), format(24, 0, 1)}) {
    auto block = nd_block({{6}, {2, 1}, {2}}, 0);
    block.ind_fmt = ind_fmt;
    block.in_addr = in.address();
    block.out_addr = out.address();
    block.work_buffer = work.address();
    EXPECT_EQ(gathernd_process(&block), QX_OK);
    EXPECT_EQ(values_in<int8_t>(out), (Values{4, 1}));
  }
}

TEST(GatherNd, ReformattingCoversTheWholeOutputAtTheEnd) {
  auto block = nd_block({{2, 2}, {2, 1}, {2, 2}}, 0);
  block.out_fmt = kInt8.fmt(1);
  EXPECT_EQ(gathered<int8_t>(block, {1, -2, 100, 5}, {1, 0}, 4), (Values{127, 10, 2, -4}));
}

TEST(GatherNd, AnOutputOf32BitsStaysUntouched) {
  auto block = nd_block({{2, 2}, {2, 1}, {2, 2}}, 0);
  block.out_fmt = kInt32.fmt();
  EXPECT_EQ(gathered<int8_t>(block, {1, -2, 100, 5}, {1, 0}, 4), (Values{0x77, 0x77, 0x77, 0x77}));
}

TEST(GatherNd, AnInputTypeOtherThanTheFourPrintsAPlainLineAfterScratchWasWritten) {
  const GuardedMemory index = memory_of<int8_t>({5, -3});
  const GuardedMemory work(8);
  auto block = nd_block({{6}, {2, 1}, {2}}, 0);
  block.ind_addr = index.address();
  block.work_buffer = work.address();
  block.in_fmt = format(32, 0, 0);
  Answer got = answer(gathernd_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "unsupported input type 4\r\n");
  EXPECT_EQ(values_in<float>(work), (std::vector<float>{5.0f, -3.0f}));
  block.in_fmt = format(24, 0, 0);
  got = answer(gathernd_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "unsupported input type -1\r\n");
}

}  // namespace
