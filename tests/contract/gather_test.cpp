// Gather: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_gather_process";

const uint8_t kList[] = {3, 0, 2, 1, 1, 0};

/// Three of four lines of 5 signed bytes each.
_NN_GATHER_PARM plain_gather() {
  _NN_GATHER_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.ind_addr = reinterpret_cast<uintptr_t>(kList);
  block.work_buffer = 0x40000;
  block.in_width = 5;
  block.in_height = 4;
  block.ind_width = 3;
  block.out_width = 5;
  block.out_height = 3;
  block.in_line_ofs = block.out_line_ofs = 5;
  block.in_channel_ofs = 20;
  block.out_channel_ofs = 15;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.ind_fmt = support::format(8, 0, 0);
  return block;
}

_NN_GATHER_PARM signed_gather(const int8_t *list) {
  _NN_GATHER_PARM block = plain_gather();
  block.ind_fmt = support::format(8, 0, 1);
  block.ind_addr = reinterpret_cast<uintptr_t>(list);
  return block;
}

TEST(ContractGather, APlainBlockReadsItsIndicesAndAtMostItsInputAndWritesItsOutput) {
  const _NN_GATHER_PARM block = plain_gather();
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_STREQ(ranges[0].field, "ind_addr");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 3u);
  EXPECT_EQ(ranges[1].exact, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 20u);
  EXPECT_EQ(ranges[2].exact, 1);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 15u);
}

TEST(ContractGather, WithContentsReadEveryIndexHasItsSlice) {
  const _NN_GATHER_PARM block = plain_gather();
  const auto ranges = cases::ranges_of(call_of(kFunction, block), TARVU_CONTRACT_READ_CONTENTS);
  ASSERT_EQ(ranges.size(), 5u);
  EXPECT_EQ(ranges[1].offset, 15);
  EXPECT_EQ(ranges[2].offset, 0);
  EXPECT_EQ(ranges[3].offset, 10);
  EXPECT_EQ(ranges[3].exact, 1);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[3]), 5u);
}

TEST(ContractGather, AnotherWidthTakesARunOfScratch) {
  _NN_GATHER_PARM block = plain_gather();
  block.out_fmt = support::format(16, 4, 1);
  block.out_line_ofs = 10;
  block.in_line_ofs = 8;
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 8u);
}

TEST(ContractGather, FormatsWithoutElementsAreRefused) {
  _NN_GATHER_PARM block = plain_gather();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-01");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-02");
  block.ind_fmt = support::format(24, 0, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-02");
  block.in_fmt = support::format(32, 0, 0);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-01");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-GATHER-01").line,
               "\033[1;31mERR:tarvu_gather_process() unsupported gather input type 5\r\n\033[0m");
}

void run_on_whole_tensors(_NN_GATHER_PARM block) {
  const support::GuardedMemory in(20), out(15), work(64);
  block.in_addr = in.address();
  block.out_addr = out.address();
  block.work_buffer = work.address();
  tarvu_gather_process(&block);
}

TEST(ContractGatherDeathTest, AnIndexOutsideTheAxisReadsBehindTheInput) {
  static const int8_t kInside[] = {3, 0, -2};
  static const int8_t kOutside[] = {3, 0, -9};
  EXPECT_NOT_FOUND(call_of(kFunction, signed_gather(kInside)), "TARVU-GATHER-03");
  EXPECT_FOUND(call_of(kFunction, signed_gather(kOutside)), "TARVU-GATHER-03");
  EXPECT_STREQ(finding_of(call_of(kFunction, signed_gather(kOutside)), "TARVU-GATHER-03").sentence,
               "Index 2 of the list is -9 and means position 4294967290, but the axis has 4 positions: memory outside "
               "the input is read.");
  static const uint8_t kBehind[] = {3, 0, 4};
  _NN_GATHER_PARM block = plain_gather();
  block.ind_addr = reinterpret_cast<uintptr_t>(kBehind);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-03");
  EXPECT_DEATH(run_on_whole_tensors(block), "");
}

TEST(ContractGather, ShapesThatGatherNothingAreTold) {
  _NN_GATHER_PARM block = plain_gather();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-04");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-06");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-07");
  block.axis = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-05");
  block.axis = 0;
  block.ind_batch = block.ind_channel = block.ind_height = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-06");
  block.in_height = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-04");
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, block), 0).empty());
  block.in_height = block.in_channel = block.in_batch = 4;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-07");
}

TEST(ContractGather, NegativeIndicesThatMeanSomethingElseAreTold) {
  static const int8_t kNegative[] = {0, -1, -2};
  _NN_GATHER_PARM block = signed_gather(kNegative);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-08");
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-09");
  static const int8_t kPlain[] = {0, 1, 2};
  block = signed_gather(kPlain);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-08");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-09");
}

TEST(ContractGather, AListOfTwoDimensionsReformatsMoreThanASlice) {
  _NN_GATHER_PARM block = plain_gather();
  block.ind_height = 2;
  block.out_height = 3;
  block.out_channel = 2;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHER-10");
  block.out_fmt = support::format(8, 5, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHER-10");
  const auto out = cases::ranges_of(call_of(kFunction, block), 0)[2];
  EXPECT_EQ(tarvu_contract_range_bytes(&out), 25u + 15u) << "the last of six slices re-formats a plane";
}

}  // namespace
