// Gather ND: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/tensor/heap_watch.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_gathernd_process";

const int8_t kTuples[] = {2, 0, 0, 1, 3, 1};

/// Three single elements of a matrix of 4 x 2.
_NN_GATHERND_PARM block_with(const int8_t *tuples) {
  _NN_GATHERND_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.ind_addr = reinterpret_cast<uintptr_t>(tuples);
  block.work_buffer = 0x40000;
  block.in_width = 2;
  block.in_height = 4;
  block.ind_width = 2;
  block.ind_height = 3;
  block.out_width = 3;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.ind_fmt = support::format(8, 0, 1);
  return block;
}

TEST(ContractGatherND, APlainBlockTellsItsTensorsItsScratchAndTheHeapThatItLeaves) {
  const _NN_GATHERND_PARM block = block_with(kTuples);
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "TARVU-GATHERND-06");
  EXPECT_FOUND(call, "TARVU-GATHERND-06");
  EXPECT_STREQ(finding_of(call, "TARVU-GATHERND-06").sentence,
               "Every such call leaves 32 bytes on the heap, which nothing gives back.");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 24u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 6u);
  EXPECT_EQ(ranges[1].role, TARVU_CONTRACT_SCRATCH);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 24u);
  EXPECT_EQ(ranges[2].exact, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 8u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[3]), 3u);
}

TEST(ContractGatherND, WithContentsReadEveryTupleHasItsSlice) {
  const auto ranges = cases::ranges_of(call_of(kFunction, block_with(kTuples)), TARVU_CONTRACT_READ_CONTENTS);
  ASSERT_EQ(ranges.size(), 6u);
  EXPECT_EQ(ranges[2].offset, 4);
  EXPECT_EQ(ranges[3].offset, 1);
  EXPECT_EQ(ranges[4].offset, 7);
}

TEST(ContractGatherND, ARefusedCallHasItsIndicesConvertedAllTheSame) {
  _NN_GATHERND_PARM block = block_with(kTuples);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-01");
  block.in_fmt = support::format(32, 4, 1);
  const auto call = call_of(kFunction, block);
  EXPECT_FOUND(call, "TARVU-GATHERND-01");
  EXPECT_NOT_FOUND(call, "TARVU-GATHERND-06");
  EXPECT_STREQ(finding_of(call, "TARVU-GATHERND-01").line, "unsupported input type 4\r\n");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 24u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_STREQ(ranges[0].field, "ind_addr");
  EXPECT_STREQ(ranges[1].field, "work_buffer");
  block.ind_fmt = support::format(32, 0, 1);
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, block), 0).empty());
}

void run_on_whole_tensors(_NN_GATHERND_PARM block) {
  const selection_test::HeapWatch watch;
  const support::GuardedMemory in(8), out(3), work(24, {support::Fault::kBehind, 4, 0});
  work.fill(0x4F);
  block.in_addr = in.address();
  block.out_addr = out.address();
  block.work_buffer = work.address();
  tarvu_gathernd_process(&block);
}

TEST(ContractGatherNDDeathTest, ATupleOutsideTheInputReadsOutsideIt) {
  static const int8_t kBehind[] = {2, 0, 4, 0, 3, 1};
  static const int8_t kNegative[] = {2, 0, 0, -1, 3, 1};
  EXPECT_NOT_FOUND(call_of(kFunction, block_with(kTuples)), "TARVU-GATHERND-02");
  EXPECT_FOUND(call_of(kFunction, block_with(kNegative)), "TARVU-GATHERND-02");
  EXPECT_FOUND(call_of(kFunction, block_with(kBehind)), "TARVU-GATHERND-02");
  EXPECT_DEATH(run_on_whole_tensors(block_with(kBehind)), "");
}

TEST(ContractGatherNDDeathTest, IndicesThatNothingConvertsAreWhatTheWorkBufferHeld) {
  _NN_GATHERND_PARM block = block_with(kTuples);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-03");
  block.ind_fmt.sign_bits = 2;
  block.ind_fmt.int_bits = 6;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-03");
  EXPECT_DEATH(run_on_whole_tensors(block), "");
}

TEST(ContractGatherNDDeathTest, AnOutputTooSmallForTheSlicesIsWrittenPast) {
  _NN_GATHERND_PARM block = block_with(kTuples);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-04");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-08");
  block.out_width = 4;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-08");
  block.out_width = 3;
  block.ind_width = 1;  // whole lines of 2
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-04");
  EXPECT_DEATH(run_on_whole_tensors(block), "");
}

TEST(ContractGatherNDDeathTest, MoreSharedDimensionsThanFourReadBehindTheExtents) {
  _NN_GATHERND_PARM block = block_with(kTuples);
  block.batch_dims = 2;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-05");
  block.batch_dims = 3;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-05");
  block.batch_dims = 0x7FFFFFFF;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-05");
  EXPECT_DEATH(run_on_whole_tensors(block), "");
}

TEST(ContractGatherND, WhatIsEasilyMeantOtherwiseIsTold) {
  static const int8_t kOther[] = {2, 0, 0, 2, 3, 1};
  _NN_GATHERND_PARM block = block_with(kTuples);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-07");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-09");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-10");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-11");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-12");
  EXPECT_FOUND(call_of(kFunction, block_with(kOther)), "TARVU-GATHERND-07");
  block.out_fmt = support::format(8, 4, 0);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-12");
  EXPECT_EQ(finding_of(call_of(kFunction, block), "TARVU-GATHERND-06").sentence,
            std::string("Every such call leaves 35 bytes on the heap, which nothing gives back."));
  block.ind_fmt = support::format(8, 1, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-11");
  block.batch_dims = 1;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-10");
  block.ind_fmt = support::format(32, 0, 1);
  block.ind_addr = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERND-09");
}

}  // namespace
