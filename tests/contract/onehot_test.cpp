// One-hot: what its blocks touch, and every finding with a call that has it and one that has it not.
#include <unistd.h>

#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_onehot_process";

/// Four indices along the height, each a row of three.
_NN_ONEHOT_PARM plain_onehot() {
  _NN_ONEHOT_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.values_addr = 0x30000;
  block.width = 1;
  block.height = 4;
  block.channel = block.batch = 1;
  block.in_line_ofs = 2;
  block.in_channel_ofs = block.in_batch_ofs = 8;
  block.out_line_ofs = 6;
  block.out_channel_ofs = block.out_batch_ofs = 24;
  block.in_fmt = block.out_fmt = block.values_fmt = support::format(16, 4, 1);
  block.in_scale = support::scale(1, 0);
  block.axis = 3;
  block.depth = 3;
  return block;
}

TEST(ContractOneHot, APlainBlockReadsItsIndicesAndTheTwoValuesAndWritesEveryRow) {
  const _NN_ONEHOT_PARM block = plain_onehot();
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 8u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 4u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 24u);
  EXPECT_EQ(ranges[2].exact, 1);
}

TEST(ContractOneHot, FormatAndAxisAreRefusedAndTheValuesAreReadBeforeTheAxisIsLookedAt) {
  _NN_ONEHOT_PARM block = plain_onehot();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-01");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-02");
  block.axis = 4;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-02");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-ONEHOT-02").line, "not supported axis = 4\n");
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  ASSERT_EQ(ranges.size(), 1u);
  EXPECT_STREQ(ranges[0].field, "values_addr");
  EXPECT_EQ(ranges[0].exact, 0);
  block.out_fmt = support::format(32, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-01");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-ONEHOT-01").line, "not supported output type = 4\n");
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, block), 0).empty());
}

/// Ends the process after a second.
void run_with_an_alarm(_NN_ONEHOT_PARM block) {
  const support::GuardedMemory in(8), values(4), out(1 << 20);
  block.in_addr = in.address();
  block.values_addr = values.address();
  block.out_addr = out.address();
  alarm(1);
  tarvu_onehot_process(&block);
}

TEST(ContractOneHotDeathTest, ADepthBeyond16BitsNeverEnds) {
  _NN_ONEHOT_PARM block = plain_onehot();
  block.depth = 65535;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-03");
  block.depth = 65536;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-03");
  EXPECT_EXIT(run_with_an_alarm(block), testing::KilledBySignal(SIGALRM), "");
}

TEST(ContractOneHot, WhatIsEasilyMeantOtherwiseIsTold) {
  _NN_ONEHOT_PARM block = plain_onehot();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-04");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-06");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-07");
  block.width = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-04");
  block.in_fmt = support::format(32, 0, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-05");
  block.values_fmt = support::format(32, 0, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-06");
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), 0).size(), 1u);
  block.depth = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ONEHOT-07");
}

TEST(ContractOneHot, TheValuesMayLieInTheOutput) {
  _NN_ONEHOT_PARM block = plain_onehot();
  block.values_addr = block.out_addr;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ANY-06");
  block.in_addr = block.out_addr;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ANY-06");
}

}  // namespace
