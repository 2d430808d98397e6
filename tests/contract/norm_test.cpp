// Norm: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_norm_process";

/// Two items of 3 planes of 2 lines of 4 signed bytes, a norm for each position.
_NN_NORM_PARM plain_norm() {
  _NN_NORM_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.work_buffer = 0x30000;
  block.scale_addr = 0x40000;
  block.width = 4;
  block.height = 2;
  block.channel = 3;
  block.batch = 2;
  block.in_batch_ofs = block.out_batch_ofs = 32;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.in_scale = block.out_scale = support::scale(1, 0);
  block.eps = 1e-5f;
  return block;
}

TEST(ContractNorm, APlainBlockReadsItsItemsAndAScaleForEachChannel) {
  const auto block = plain_norm();
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 192u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 5u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 56u);
  EXPECT_STREQ(ranges[1].field, "scale_addr");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 12u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 56u);
  EXPECT_EQ(ranges[4].offset, 96);
}

TEST(ContractNorm, OneSharedScaleIsReadAndFloatsTakeNoArray) {
  auto block = plain_norm();
  block.shared_scale = 1;
  block.in_fmt = support::format(32, 0, 0);
  block.in_batch_ofs = 96;
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 192u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 4u);
  EXPECT_EQ(ranges[3].offset, 96) << "the second array stays where it is";
}

TEST(ContractNorm, WhatIsEasilyMeantOtherwiseIsTold) {
  auto block = plain_norm();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NORM-01");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NORM-02");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NORM-03");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NORM-04");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NORM-05");
  block.in_line_ofs = 8;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NORM-03");
  block.eps = 0.0f;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NORM-05");
  block.width = block.height = 10;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NORM-04");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-NORM-04").sentence,
               "96 positions of each plane are divided by an estimate of 8 bits, and the last 4 exactly.");
  block.in_fmt = support::format(8, 4, 2);
  block.out_fmt = support::format(24, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NORM-01");
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NORM-02");
}

TEST(ContractNorm, TheOutputMayBeTheInputWithTheSameBatchOffset) {
  auto block = plain_norm();
  block.out_addr = block.in_addr;
  EXPECT_EQ(contract_test::ids_of(call_of(kFunction, block)), "");
  block.out_batch_ofs = 24;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ANY-06");
}

}  // namespace
