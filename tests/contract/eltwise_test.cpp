// Eltwise: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_eltwise_process";

/// The sum of two tensors of 2 planes of 3 lines of 4 signed bytes.
_NN_ELTWISE_PARM plain_eltwise() {
  _NN_ELTWISE_PARM block = {};
  block.in0_addr = 0x10000;
  block.in1_addr = 0x20000;
  block.out_addr = 0x30000;
  block.work_buffer = 0x40000;
  block.width = 4;
  block.height = 3;
  block.channel = 2;
  block.batch = 1;
  block.in0_channel_ofs = block.in1_channel_ofs = block.out_channel_ofs = 12;
  block.in0_fmt = block.in1_fmt = block.out_fmt = support::format(8, 4, 1);
  block.in0_scale = block.in1_scale = block.out_scale = support::scale(1, 0);
  block.op = 1;
  block.coeff0 = block.coeff1 = 1.0f;
  return block;
}

TEST(ContractEltwise, APlainBlockReadsBothInputsAndTakesThreePlanesOfFloats) {
  const auto block = plain_eltwise();
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 144u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 6u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(tarvu_contract_range_bytes(&ranges[static_cast<size_t>(i)]), 24u);
  EXPECT_STREQ(ranges[2].field, "out_addr");
  EXPECT_EQ(ranges[5].offset, 96);
}

TEST(ContractEltwise, FloatsLieAtTheirLineOffsetAndTakeNoPlane) {
  auto block = plain_eltwise();
  block.in1_fmt = support::format(32, 0, 1);
  block.in1_line_ofs = 20;
  block.in1_channel_ofs = 100;
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  ASSERT_EQ(ranges.size(), 5u);
  EXPECT_EQ(ranges[1].type, TARVU_CONTRACT_F32);
  EXPECT_EQ(ranges[1].extents[1].step, 20);
  EXPECT_STREQ(ranges[1].extents[1].step_name, "in1_line_ofs");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 156u);
  EXPECT_EQ(ranges[4].offset, 96) << "the third plane stays where it is";
}

TEST(ContractEltwise, AnUnknownOperationIsToldAndGoesOn) {
  auto block = plain_eltwise();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-01");
  block.op = -7;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-01");
  const auto finding = finding_of(call_of(kFunction, block), "TARVU-ELTWISE-01");
  EXPECT_EQ(finding.kind, TARVU_CONTRACT_TOLD);
  EXPECT_STREQ(finding.line, "\033[1;31mERR:tarvu_eltwise_process() Eltwise layer: unsupported operation -7!\n\033[0m");
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), 0).size(), 6u);
  block.batch = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-01");
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, block), 0).empty());
}

TEST(ContractEltwise, WhatIsEasilyMeantOtherwiseIsTold) {
  auto block = plain_eltwise();
  block.in0_line_ofs = 4;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-02");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-03");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-04");
  block.coeff1 = 0.5f;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-05");
  block.op = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-05");
  block.in0_line_ofs = 16;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-04");
  block.in1_fmt = support::format(24, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-02");
  block.out_fmt = support::format(8, 4, 2);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ELTWISE-03");
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), 0).size(), 4u) << "one input and scratch memory";
}

TEST(ContractEltwise, TheOutputMayBeAnInputWithTheSameOffsets) {
  auto block = plain_eltwise();
  block.out_addr = block.in1_addr;
  EXPECT_EQ(contract_test::ids_of(call_of(kFunction, block)), "");
  block.out_channel_ofs = 13;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ANY-06");
}

TEST(ContractEltwise, APlaneWhoseBytesWrapIsTold) {
  auto block = plain_eltwise();
  block.width = block.height = 32768;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ANY-10");
}

}  // namespace
