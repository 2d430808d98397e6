// Reverse and permute: every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kReverse = "tarvu_reverse_process";
constexpr const char *kPermute = "tarvu_permute_process";

/// 2 x 3 x 4 x 5 signed bytes, dense.
template <class Block>
Block plain_block() {
  Block block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.width = 5;
  block.height = 4;
  block.channel = 3;
  block.batch = 2;
  block.in_line_ofs = block.out_line_ofs = 5;
  block.in_channel_ofs = block.out_channel_ofs = 20;
  block.in_batch_ofs = block.out_batch_ofs = 60;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  return block;
}

_NN_REVERSE_PARM plain_reverse() {
  auto block = plain_block<_NN_REVERSE_PARM>();
  block.axis = 2;
  return block;
}

_NN_PERMUTE_PARM plain_permute() {
  auto block = plain_block<_NN_PERMUTE_PARM>();
  for (int8_t i = 0; i < 4; ++i) block.order[i] = i;
  return block;
}

TEST(ContractReverse, APlainBlockMovesItsSlicesWithNothingToSay) {
  const _NN_REVERSE_PARM block = plain_reverse();
  EXPECT_EQ(contract_test::ids_of(call_of(kReverse, block)), "");
  const auto ranges = cases::ranges_of(call_of(kReverse, block), 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(ranges[0].offset, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 120u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 120u);
}

TEST(ContractReverse, AnInputThatIsNotOf8Or16BitsIsRefused) {
  _NN_REVERSE_PARM block = plain_reverse();
  EXPECT_NOT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-01");
  block.in_fmt = support::format(32, 4, 1);
  EXPECT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-01");
  EXPECT_STREQ(finding_of(call_of(kReverse, block), "TARVU-REVERSE-01").line,
               "\033[1;31mERR:tarvu_reverse_process() unsupported input type 4\r\n\033[0m");
}

TEST(ContractReverse, AnAxisOutsideZeroToThreeIsUndefinedAndHasNoRanges) {
  _NN_REVERSE_PARM block = plain_reverse();
  EXPECT_NOT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-02");
  block.axis = 4;
  EXPECT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-02");
  EXPECT_TRUE(cases::ranges_of(call_of(kReverse, block), 0).empty());
}

void run_on_output(_NN_REVERSE_PARM block, size_t bytes) {
  const support::GuardedMemory input(4096);
  const support::GuardedMemory output(bytes);
  block.in_addr = input.address();
  block.out_addr = output.address();
  tarvu_reverse_process(&block);
}

TEST(ContractReverseDeathTest, AWiderOutputIsWrittenBehindItsLastSlice) {
  _NN_REVERSE_PARM block = plain_reverse();
  EXPECT_NOT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-03");
  block.out_fmt = support::format(16, 4, 1);
  EXPECT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-03");
  EXPECT_DEATH(run_on_output(block, 120), "");
}

TEST(ContractReverseDeathTest, OuterAxesThatDoNotLieBackToBackAreWalkedWrongly) {
  _NN_REVERSE_PARM block = plain_reverse();
  EXPECT_NOT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-04");
  block.out_batch_ofs = 40;  // items that overlap would take 100 bytes
  EXPECT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-04");
  EXPECT_STREQ(finding_of(call_of(kReverse, block), "TARVU-REVERSE-04").field, "out_batch_ofs");
  EXPECT_DEATH(run_on_output(block, 100), "");
}

TEST(ContractReverse, HalfAnElementAtTheEndOfASliceIsTold) {
  _NN_REVERSE_PARM block = plain_reverse();
  block.width = 2;
  block.in_fmt = support::format(16, 4, 1);
  block.out_fmt = support::format(16, 3, 1);
  block.in_line_ofs = 4;
  EXPECT_NOT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-05");
  block.in_line_ofs = 5;
  EXPECT_FOUND(call_of(kReverse, block), "TARVU-REVERSE-05");
}

TEST(ContractPermute, TypesAreRefusedWhereElementsMoveOneByOneAlone) {
  _NN_PERMUTE_PARM block = plain_permute();
  block.in_fmt = block.out_fmt = support::format(32, 4, 1);
  block.width = 1;
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-01");
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-02");
  block.order[3] = 2;
  block.order[2] = 3;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-01");
  block.in_fmt = support::format(16, 4, 1);
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-02");
  EXPECT_STREQ(finding_of(call_of(kPermute, block), "TARVU-PERMUTE-02").line,
               "\033[1;31mERR:tarvu_permute_process() unsupported output type 4\r\n\033[0m");
}

TEST(ContractPermute, AnOrderThatHoldsNoAxisIsUndefinedAndHasNoRanges) {
  _NN_PERMUTE_PARM block = plain_permute();
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-03");
  block.order[1] = -1;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-03");
  EXPECT_TRUE(cases::ranges_of(call_of(kPermute, block), 0).empty());
  block.order[1] = 3;  // of lines, the width is no axis
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-03");
}

void run_permute(_NN_PERMUTE_PARM block) {
  const support::GuardedMemory input(120);
  const support::GuardedMemory output(120);
  block.in_addr = input.address();
  block.out_addr = output.address();
  tarvu_permute_process(&block);
}

TEST(ContractPermuteDeathTest, ANegativeWidthCopiesANegativeNumberOfBytes) {
  _NN_PERMUTE_PARM block = plain_permute();
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-04");
  block.in_fmt = block.out_fmt = support::format(-8, 4, 1);
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-04");
  EXPECT_DEATH(run_permute(block), "");
}

TEST(ContractPermute, AnAxisThatStandsTwiceInTheOrderIsTold) {
  _NN_PERMUTE_PARM block = plain_permute();
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-05");
  block.order[0] = 1;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-PERMUTE-05");
}

TEST(ContractPermute, TheIdentityInPlaceTouchesNothingAndMayOverlap) {
  _NN_PERMUTE_PARM block = plain_permute();
  block.out_addr = block.in_addr;
  EXPECT_EQ(contract_test::ids_of(call_of(kPermute, block)), "");
  EXPECT_TRUE(cases::ranges_of(call_of(kPermute, block), 0).empty());
}

}  // namespace
