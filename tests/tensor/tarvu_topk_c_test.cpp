#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_topk_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::Case;
using support::Element;
using support::GuardedMemory;
using support::Random;
using support::test_random;
using support::unreadable_address;

/// Picks from one line along the width.
_NN_TOPK_PARM line_block(Type type, size_t n, uint32_t k, int largest, int sorted) {
  _NN_TOPK_PARM block{};
  block.in_fmt = type.fmt();
  block.width = static_cast<uint16_t>(n);
  block.height = 1;
  block.channel = 1;
  block.batch = 1;
  block.axis = 3;
  block.largest = static_cast<int8_t>(largest);
  block.sorted = static_cast<int8_t>(sorted);
  block.k = k;
  return block;
}

template <class T>
struct Picks {
  std::vector<T> values;
  std::vector<uint16_t> indices;
};

/// The picks of one line; scratch starts as `stale`, or as 0xEE bytes, and outputs hold k elements each.
template <class T>
Picks<T> picks_of(Type type, const std::vector<T> &line, uint32_t k, int largest, int sorted,
                  std::vector<uint32_t> stale = {}) {
  const GuardedMemory in = memory_of(line);
  const GuardedMemory values(k * sizeof(T));
  const GuardedMemory indices(k * sizeof(uint16_t));
  if (stale.empty()) stale.assign(std::max<size_t>(k, line.size()), 0xEEEEEEEEu);
  const GuardedMemory work = memory_of(stale);
  _NN_TOPK_PARM block = line_block(type, line.size(), k, largest, sorted);
  block.in_addr = in.address();
  block.out_addr = values.address();
  block.out_index_addr = indices.address();
  block.work_buffer = work.address();
  const Answer got = answer(::tarvu_topk_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
  EXPECT_EQ(values.guard_damage() + indices.guard_damage() + work.guard_damage(), "");
  return {values_in<T>(values), values_in<uint16_t>(indices)};
}

using Indices = std::vector<uint16_t>;

TEST(TopK, OfEqualElementsTheEarlierRanksFirstAmongTheLargest) {
  const auto got = picks_of<int8_t>(kInt8, {3, 1, 3, -5, 7, 3}, 3, 1, 1);
  EXPECT_EQ(got.values, (std::vector<int8_t>{7, 3, 3}));
  EXPECT_EQ(got.indices, (Indices{4, 0, 2}));
}

TEST(TopK, OfEqualElementsTheEarlierRanksFirstAmongTheSmallestToo) {
  const auto got = picks_of<int8_t>(kInt8, {3, 1, 3, -5, 7, 3}, 4, 0, 1);
  EXPECT_EQ(got.values, (std::vector<int8_t>{-5, 1, 3, 3}));
  EXPECT_EQ(got.indices, (Indices{3, 1, 0, 2}));
}

TEST(TopK, ElementsCompareInTheirOwnSignedness) {
  EXPECT_EQ(picks_of<uint8_t>(kInt8, {0x80, 0x7F, 0x00}, 1, 1, 1).indices, (Indices{1}));
  EXPECT_EQ(picks_of<uint8_t>(kUint8, {0x80, 0x7F, 0x00}, 1, 1, 1).indices, (Indices{0}));
  EXPECT_EQ(picks_of<uint16_t>(kInt16, {0x8000, 0x7FFF, 0x0000}, 1, 0, 1).indices, (Indices{0}));
  EXPECT_EQ(picks_of<uint16_t>(kUint16, {0x8000, 0x7FFF, 0x0000}, 1, 0, 1).indices, (Indices{2}));
}

TEST(TopK, AnySignBitsButZeroMeanSignedElements) {
  Type odd_sign = {8, 1};
  const GuardedMemory in = memory_of<uint8_t>({0x80, 0x7F});
  const GuardedMemory index(2);
  const GuardedMemory work(8);
  _NN_TOPK_PARM block = line_block(odd_sign, 2, 1, 1, 1);
  block.in_fmt = support::format(8, 2, 2);
  block.in_addr = in.address();
  block.out_index_addr = index.address();
  block.work_buffer = work.address();
  EXPECT_EQ(::tarvu_topk_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint16_t>(index), (Indices{1}));
}

TEST(TopK, NoPicksStoreNothing) {
  const auto got = picks_of<int8_t>(kInt8, {3, 1, 3}, 0, 1, 1);
  EXPECT_TRUE(got.values.empty());
  EXPECT_TRUE(got.indices.empty());
}

TEST(TopK, AWholeLineUnsortedStaysInItsOwnOrderAtEveryLength) {
  Random random = test_random(301);
  SCOPED_TRACE(random.trace());
  for (size_t n = 1; n <= 67; ++n) {
    std::vector<int16_t> line(n);
    random.fill(line.data(), 2 * n);
    Indices ascending(n);
    for (size_t i = 0; i < n; ++i) ascending[i] = static_cast<uint16_t>(i);
    const auto got = picks_of<int16_t>(kInt16, line, static_cast<uint32_t>(n), static_cast<int>(n & 1), 0);
    ASSERT_EQ(got.values, line) << n;
    ASSERT_EQ(got.indices, ascending) << n;
  }
}

TEST(TopK, ALineOfEqualElementsYieldsAscendingPositions) {
  for (int largest : {0, 1}) {
    const auto got = picks_of<uint8_t>(kUint8, std::vector<uint8_t>(40, 9), 5, largest, 1);
    EXPECT_EQ(got.indices, (Indices{0, 1, 2, 3, 4}));
  }
}

TEST(TopK, IndicesOfEightBitElementsGoPast255) {
  std::vector<uint8_t> line(65535, 0);
  line[299] = 1;
  line[65534] = 2;
  EXPECT_EQ(picks_of<uint8_t>(kUint8, line, 3, 1, 1).indices, (Indices{65534, 299, 0}));
}

TEST(TopK, ANegativeSortedFlagSorts) {
  EXPECT_EQ(picks_of<int8_t>(kInt8, {1, 5, 3, 4}, 4, 1, -128).indices, (Indices{1, 3, 2, 0}));
}

TEST(TopK, PicksAboveTheLineLengthRankStaleScratchAmongTheOthers) {
  // Entries 3 and 4 of the scratch name the elements 5 and 4, which lie behind the line in the tensor's memory.
  const GuardedMemory in = memory_of<int8_t>({1, 8, 2, 0, 9, 5});
  const GuardedMemory values(5);
  const GuardedMemory indices(10);
  const GuardedMemory work = memory_of<uint32_t>({77, 77, 77, 5, 4});
  _NN_TOPK_PARM block = line_block(kInt8, 3, 5, 1, 1);
  block.in_addr = in.address();
  block.out_addr = values.address();
  block.out_index_addr = indices.address();
  block.work_buffer = work.address();
  EXPECT_EQ(::tarvu_topk_process(&block), QX_OK);
  EXPECT_EQ(values_in<int8_t>(values), (std::vector<int8_t>{9, 8, 5, 2, 1}));
  EXPECT_EQ(values_in<uint16_t>(indices), (Indices{4, 1, 5, 2, 0}));
}

TEST(TopK, OfEqualElementsTheEarlierRanksFirstAmongStaleScratchToo) {
  const GuardedMemory in = memory_of<int8_t>({8, 1, 2, 0, 8, 8});
  const GuardedMemory indices(10);
  const GuardedMemory work = memory_of<uint32_t>({77, 77, 77, 5, 4});
  _NN_TOPK_PARM block = line_block(kInt8, 3, 5, 1, 1);
  block.in_addr = in.address();
  block.out_index_addr = indices.address();
  block.work_buffer = work.address();
  EXPECT_EQ(::tarvu_topk_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint16_t>(indices), (Indices{0, 4, 5, 2, 1}));
}

TEST(TopK, PicksAboveTheLineLengthUnsortedStoreStaleScratchBehindTheLine) {
  const GuardedMemory in = memory_of<int8_t>({1, 8, 2, 0, 9, 5});
  const GuardedMemory values(5);
  const GuardedMemory indices(10);
  const GuardedMemory work = memory_of<uint32_t>({77, 77, 77, 5, 4});
  _NN_TOPK_PARM block = line_block(kInt8, 3, 5, 1, 0);
  block.in_addr = in.address();
  block.out_addr = values.address();
  block.out_index_addr = indices.address();
  block.work_buffer = work.address();
  EXPECT_EQ(::tarvu_topk_process(&block), QX_OK);
  Indices got = values_in<uint16_t>(indices);
  EXPECT_EQ((Indices{got[3], got[4]}), (Indices{5, 4}));
  std::sort(got.begin(), got.begin() + 3);
  EXPECT_EQ((Indices{got[0], got[1], got[2]}), (Indices{0, 1, 2}));
  EXPECT_EQ(values.data()[3], 5);
  EXPECT_EQ(values.data()[4], 9);
}

TEST(TopK, ALineOfLengthZeroStoresStaleScratch) {
  const GuardedMemory in = memory_of<int16_t>({10, 20, 30});
  const GuardedMemory values(4);
  const GuardedMemory indices(4);
  const GuardedMemory work = memory_of<uint32_t>({1, 2});
  _NN_TOPK_PARM block = line_block(kInt16, 0, 2, 1, 1);
  block.in_addr = in.address();
  block.out_addr = values.address();
  block.out_index_addr = indices.address();
  block.work_buffer = work.address();
  EXPECT_EQ(::tarvu_topk_process(&block), QX_OK);
  EXPECT_EQ(values_in<int16_t>(values), (std::vector<int16_t>{30, 20}));
  EXPECT_EQ(values_in<uint16_t>(indices), (Indices{2, 1}));
}

TEST(TopK, WithoutOutputAddressesTheCallSucceedsAndStoresNothing) {
  const GuardedMemory in = memory_of<int8_t>({1, 2, 3});
  const GuardedMemory work(12);
  _NN_TOPK_PARM block = line_block(kInt8, 3, 2, 1, 1);
  block.in_addr = in.address();
  block.work_buffer = work.address();
  const Answer got = answer(::tarvu_topk_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
}

TEST(TopK, EachOutputIsWrittenWithoutTheOther) {
  const GuardedMemory in = memory_of<int8_t>({1, 7, 3});
  const GuardedMemory work(12);
  const GuardedMemory out(4);
  _NN_TOPK_PARM block = line_block(kInt8, 3, 2, 1, 1);
  block.in_addr = in.address();
  block.work_buffer = work.address();
  block.out_addr = out.address();
  out.fill(0x55);
  EXPECT_EQ(::tarvu_topk_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint8_t>(out), (std::vector<uint8_t>{7, 3, 0x55, 0x55}));
  block.out_addr = 0;
  block.out_index_addr = out.address();
  EXPECT_EQ(::tarvu_topk_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint16_t>(out), (Indices{1, 2}));
}

/// A block with elements to rank, all of whose addresses fault.
_NN_TOPK_PARM block_that_must_not_be_touched() {
  _NN_TOPK_PARM block = line_block(kInt8, 4, 2, 1, 1);
  block.in_addr = unreadable_address();
  block.out_addr = unreadable_address();
  block.out_index_addr = unreadable_address();
  block.work_buffer = unreadable_address();
  return block;
}

TEST(TopK, AnInputTypeOtherThanTheFourPrintsItsCodeAndTouchesNothing) {
  _NN_TOPK_PARM block = block_that_must_not_be_touched();
  block.largest = 7;  // checked later
  block.axis = 9;
  block.in_fmt = support::format(32, 0, 0);
  Answer got = answer(::tarvu_topk_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_topk_process() not support in_type = 4\r\n\033[0m");
  block.in_fmt = support::format(24, 0, 1);
  got = answer(::tarvu_topk_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_topk_process() not support in_type = -1\r\n\033[0m");
}

TEST(TopK, ADirectionOtherThanZeroAndOnePrintsALineThatEndsInABareNewline) {
  for (const Type &type : kElementTypes) {
    _NN_TOPK_PARM block = block_that_must_not_be_touched();
    block.in_fmt = type.fmt();
    block.axis = 9;  // checked later
    block.largest = 2;
    Answer got = answer(::tarvu_topk_process, block);
    EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
    EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_topk_large() wrong parameter largest: 2\n\033[0m");
    block.largest = -1;
    got = answer(::tarvu_topk_process, block);
    EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_topk_large() wrong parameter largest: -1\n\033[0m");
  }
}

TEST(TopK, AnAxisOutsideTheFourPrintsItsValueEvenForAnEmptyTensor) {
  for (const Type &type : kElementTypes) {
    for (int largest : {0, 1}) {
      _NN_TOPK_PARM block = block_that_must_not_be_touched();
      block.in_fmt = type.fmt();
      block.largest = static_cast<int8_t>(largest);
      block.axis = 4;
      Answer got = answer(::tarvu_topk_process, block);
      EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
      EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_topk_general() not support axis = 4\r\n\033[0m");
      block.axis = -1;
      block.height = 0;
      got = answer(::tarvu_topk_process, block);
      EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
      EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_topk_general() not support axis = -1\r\n\033[0m");
    }
  }
}

TEST(TopK, AZeroExtentAcrossTheLinesTouchesNothing) {
  for (int axis = 0; axis < 4; ++axis) {
    for (int empty = 0; empty < 4; ++empty) {
      if (empty == axis) continue;
      _NN_TOPK_PARM block = block_that_must_not_be_touched();
      uint16_t extents[4] = {3, 3, 3, 3};
      extents[empty] = 0;
      block.batch = extents[0];
      block.channel = extents[1];
      block.height = extents[2];
      block.width = extents[3];
      block.axis = static_cast<int8_t>(axis);
      const Answer got = answer(::tarvu_topk_process, block);
      EXPECT_EQ(got.result, QX_OK) << axis << empty;
      EXPECT_EQ(got.text, "");
    }
  }
}

}  // namespace
