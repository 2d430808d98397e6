// Gather element: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_gatherelement_process";

/// Two lines of three elements, each from one of four lines.
_NN_GATHERELEMENT_PARM block_with(const int8_t *indices) {
  _NN_GATHERELEMENT_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.ind_addr = reinterpret_cast<uintptr_t>(indices);
  block.work_buffer = 0x40000;
  block.in_width = 3;
  block.in_height = 4;
  block.out_width = 3;
  block.out_height = 2;
  block.in_line_ofs = 4;
  block.in_channel_ofs = 16;
  block.ind_line_ofs = 3;
  block.ind_channel_ofs = 6;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.ind_fmt = support::format(8, 0, 1);
  return block;
}

const int8_t kPlain[] = {3, 0, 2, 1, 1, 0};

TEST(ContractGatherElement, APlainBlockReadsItsIndicesAndAtMostItsInputAndWritesItsOutput) {
  const _NN_GATHERELEMENT_PARM block = block_with(kPlain);
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 6u);
  EXPECT_EQ(ranges[1].exact, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 15u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 6u);
}

TEST(ContractGatherElement, WithContentsReadEveryElementHasItsPlace) {
  const _NN_GATHERELEMENT_PARM block = block_with(kPlain);
  const auto ranges = cases::ranges_of(call_of(kFunction, block), TARVU_CONTRACT_READ_CONTENTS);
  ASSERT_EQ(ranges.size(), 8u);
  EXPECT_EQ(ranges[1].offset, 12);
  EXPECT_EQ(ranges[2].offset, 1);
  EXPECT_EQ(ranges[4].offset, 4);
  EXPECT_EQ(ranges[1].exact, 1);
}

TEST(ContractGatherElement, ReformattingTakesOneElementOfScratch) {
  _NN_GATHERELEMENT_PARM block = block_with(kPlain);
  block.in_fmt = support::format(16, 4, 1);
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 2u);
}

TEST(ContractGatherElement, FormatsWithoutElementsAreRefused) {
  _NN_GATHERELEMENT_PARM block = block_with(kPlain);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERELEMENT-01");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERELEMENT-02");
  block.ind_fmt = support::format(24, 0, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERELEMENT-02");
  block.in_fmt = support::format(24, 0, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERELEMENT-01");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-GATHERELEMENT-01").line,
               "\033[1;31mERR:tarvu_gatherelement_process() unsupported gatherelement input type -1\r\n\033[0m");
}

void run_on_whole_tensors(_NN_GATHERELEMENT_PARM block) {
  const support::GuardedMemory in(16), out(6);
  block.in_addr = in.address();
  block.out_addr = out.address();
  tarvu_gatherelement_process(&block);
}

TEST(ContractGatherElementDeathTest, AnIndexOutsideTheAxisReadsBehindTheInput) {
  static const int8_t kOutside[] = {3, 0, 2, 4, 1, 0};
  EXPECT_NOT_FOUND(call_of(kFunction, block_with(kPlain)), "TARVU-GATHERELEMENT-03");
  EXPECT_FOUND(call_of(kFunction, block_with(kOutside)), "TARVU-GATHERELEMENT-03");
  EXPECT_DEATH(run_on_whole_tensors(block_with(kOutside)), "");
}

TEST(ContractGatherElementDeathTest, AMinusOneInFrontOfAllOthersReadsNearAddressZero) {
  static const int8_t kFirst[] = {-1, 0, 2, 1, 1, 0};
  EXPECT_NOT_FOUND(call_of(kFunction, block_with(kPlain)), "TARVU-GATHERELEMENT-04");
  EXPECT_FOUND(call_of(kFunction, block_with(kFirst)), "TARVU-GATHERELEMENT-04");
  EXPECT_DEATH(run_on_whole_tensors(block_with(kFirst)), "");
}

TEST(ContractGatherElement, ShapesThatGatherNothingAreTold) {
  _NN_GATHERELEMENT_PARM block = block_with(kPlain);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERELEMENT-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GATHERELEMENT-06");
  block.axis = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERELEMENT-06");
  block.in_height = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GATHERELEMENT-05");
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, block), 0).empty());
}

TEST(ContractGatherElement, NegativeIndicesThatMeanSomethingElseAreTold) {
  static const int8_t kNegative[] = {3, -1, -5, 1, 1, 0};
  EXPECT_NOT_FOUND(call_of(kFunction, block_with(kPlain)), "TARVU-GATHERELEMENT-07");
  EXPECT_NOT_FOUND(call_of(kFunction, block_with(kPlain)), "TARVU-GATHERELEMENT-08");
  EXPECT_FOUND(call_of(kFunction, block_with(kNegative)), "TARVU-GATHERELEMENT-07");
  EXPECT_FOUND(call_of(kFunction, block_with(kNegative)), "TARVU-GATHERELEMENT-08");
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block_with(kNegative)), TARVU_CONTRACT_READ_CONTENTS)[2].offset, 13);
}

}  // namespace
