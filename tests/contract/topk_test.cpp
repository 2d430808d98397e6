// Top-K: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_topk_process";

/// The two largest of 5 columns, in three lines of signed bytes.
_NN_TOPK_PARM plain_topk() {
  _NN_TOPK_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.out_index_addr = 0x30000;
  block.work_buffer = 0x40000;
  block.width = 5;
  block.height = 3;
  block.channel = block.batch = 1;
  block.out_line_ofs = 2;
  block.out_channel_ofs = block.out_batch_ofs = 6;
  block.out_index_line_ofs = 4;
  block.out_index_channel_ofs = block.out_index_batch_ofs = 12;
  block.in_fmt = support::format(8, 4, 1);
  block.axis = 3;
  block.largest = 1;
  block.sorted = 1;
  block.k = 2;
  return block;
}

TEST(ContractTopK, APlainBlockReadsItsInputAndWritesValuesIndicesAndFourScratchBytesForEachElementOfALine) {
  const _NN_TOPK_PARM block = plain_topk();
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 20u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 15u);
  EXPECT_EQ(ranges[0].exact, 1);
  EXPECT_STREQ(ranges[1].field, "out_addr");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 6u);
  EXPECT_STREQ(ranges[2].field, "out_index_addr");
  EXPECT_EQ(ranges[2].type, TARVU_CONTRACT_U16);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 12u);
  EXPECT_EQ(ranges[3].role, TARVU_CONTRACT_SCRATCH);
  EXPECT_EQ(ranges[3].exact, 0);
  EXPECT_EQ(ranges[3].alignment, 4u);
}

TEST(ContractTopK, AnOutputWhoseAddressIsNullIsNotWrittenUnlessThereAreNoAddressesYet) {
  _NN_TOPK_PARM block = plain_topk();
  block.out_addr = 0;
  EXPECT_EQ(contract_test::ids_of(call_of(kFunction, block)), "");
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), 0).size(), 3u);
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), TARVU_CONTRACT_WITHOUT_ADDRESSES).size(), 4u);
}

TEST(ContractTopK, FormatsLargestAndAxisAreRefusedInThisOrder) {
  _NN_TOPK_PARM block = plain_topk();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-TOPK-01");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-TOPK-02");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-TOPK-03");
  block.axis = -1;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-TOPK-03");
  block.largest = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-TOPK-02");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-TOPK-02").line,
               "\033[1;31mERR:tarvu_topk_large() wrong parameter largest: 2\n\033[0m");
  block.in_fmt = support::format(32, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-TOPK-01");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-TOPK-01").line,
               "\033[1;31mERR:tarvu_topk_process() not support in_type = 4\r\n\033[0m");
  const auto call = call_of(kFunction, block);
  EXPECT_TRUE(cases::ranges_of(call, 0).empty());
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
}

/// Calls the product with a work buffer full of large offsets.
void run_on_stale_offsets(_NN_TOPK_PARM block) {
  const support::GuardedMemory in(15), values(4096), indices(4096), work(4096);
  work.fill(0x7F);
  block.in_addr = in.address();
  block.out_addr = values.address();
  block.out_index_addr = indices.address();
  block.work_buffer = work.address();
  tarvu_topk_process(&block);
}

TEST(ContractTopKDeathTest, MoreThanALineHoldsUsesWhatTheWorkBufferHeld) {
  _NN_TOPK_PARM block = plain_topk();
  block.k = 5;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-TOPK-04");
  block.k = 6;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-TOPK-04");
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 24u);
  EXPECT_DEATH(run_on_stale_offsets(block), "");
}

TEST(ContractTopK, WhatIsEasilyMeantOtherwiseIsTold) {
  _NN_TOPK_PARM block = plain_topk();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-TOPK-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-TOPK-06");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-TOPK-07");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-TOPK-08");
  block.sorted = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-TOPK-06");
  block.k = 5;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-TOPK-07");
  block.out_addr = block.out_index_addr = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-TOPK-05");
  block.batch = block.channel = block.height = 2000;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ANY-10");
  block.batch = 200;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-TOPK-08");
}

}  // namespace
