// Layer normalisation: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kProcess = "tarvu_layernorm_process";
constexpr const char *kConstant = "tarvu_layernorm_process_neon";

/// Two items of 3 lines of 20 signed bytes, with gamma and beta.
_NN_LAYERNORM_PARM plain_layernorm() {
  _NN_LAYERNORM_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.work_buffer = 0x30000;
  block.gamma_addr = 0x40000;
  block.beta_addr = 0x50000;
  block.width = 20;
  block.height = 3;
  block.channel = 1;
  block.batch = 2;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.in_scale = block.out_scale = support::scale(1, 0);
  block.eps = 1e-5f;
  block.axis = 3;
  return block;
}

TEST(ContractLayernorm, APlainBlockReadsTensorGammaAndBetaAndWritesThreeFieldsOfTheBlock) {
  const auto block = plain_layernorm();
  const auto call = call_of(kProcess, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 960u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 8u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 120u);
  EXPECT_STREQ(ranges[1].field, "gamma_addr");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 80u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[3]), 120u);
  EXPECT_EQ(ranges[5].offset, 480);
  EXPECT_STREQ(ranges[6].field, "parm");
  EXPECT_EQ(ranges[6].role, TARVU_CONTRACT_WRITES);
  EXPECT_EQ(ranges[6].offset, static_cast<int64_t>(offsetof(_NN_LAYERNORM_PARM, outer_size)));
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[6]), 8u);
  EXPECT_EQ(ranges[7].offset, static_cast<int64_t>(offsetof(_NN_LAYERNORM_PARM, axis)));
}

TEST(ContractLayernorm, TheMarkOfAbsenceIsNoAddressAndNullIsOne) {
  auto block = plain_layernorm();
  block.gamma_addr = TARVU_LAYERNORM_ABSENT;
  EXPECT_EQ(contract_test::ids_of(call_of(kProcess, block)), "");
  EXPECT_EQ(cases::ranges_of(call_of(kProcess, block), 0).size(), 7u);
  block.gamma_addr = 0;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-ANY-01");
}

/// Calls the product on floats of exactly the tensor's size.
void run_on_tensor(_NN_LAYERNORM_PARM block) {
  const size_t bytes = size_t{block.width} * block.height * block.channel * block.batch * 4;
  const support::GuardedMemory in(bytes), out(bytes);
  in.fill(0);
  block.in_addr = in.address();
  block.out_addr = out.address();
  block.gamma_addr = block.beta_addr = TARVU_LAYERNORM_ABSENT;
  block.in_fmt = block.out_fmt = support::format(32, 0, 1);
  tarvu_layernorm_process(&block);
}

TEST(ContractLayernormDeathTest, AnAxisFarInFrontOfTheTableReadsThere) {
  auto block = plain_layernorm();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-01");
  block.axis = -5;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-01");
  block.axis = INT32_MIN;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-01");
  EXPECT_DEATH(run_on_tensor(block), "");
}

TEST(ContractLayernormDeathTest, RunsOfTheWholeTensorLeaveItFromTheSecondOn) {
  auto block = plain_layernorm();
  block.axis = -4;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-02");
  EXPECT_DEATH(run_on_tensor(block), "");
  block.batch = 1;
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-02");
}

TEST(ContractLayernorm, WhatIsEasilyMeantOtherwiseIsTold) {
  auto block = plain_layernorm();
  block.out_line_ofs = 20;
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-03");
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-04");
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-05");
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-09");
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-10");
  block.axis = 0;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-03");
  block.out_line_ofs = 24;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-09");
  block.eps = 0.0f;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-10");
  block.in_fmt = support::format(8, 4, 2);
  block.out_fmt = support::format(24, 4, 1);
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-04");
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-05");
}

TEST(ContractLayernorm, TheFormWithAConstantMeanOverwritesTheTailsOfFloatsAndLeavesThoseOfTheOutput) {
  auto block = plain_layernorm();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-LAYERNORM-06");
  EXPECT_FOUND(call_of(kConstant, block), "TARVU-LAYERNORM-06");
  EXPECT_NOT_FOUND(call_of(kConstant, block), "TARVU-LAYERNORM-07");
  EXPECT_NOT_FOUND(call_of(kConstant, block), "TARVU-LAYERNORM-08");
  block.in_fmt = block.out_fmt = support::format(32, 0, 1);
  block.gamma_addr = block.beta_addr = TARVU_LAYERNORM_ABSENT;
  EXPECT_FOUND(call_of(kConstant, block), "TARVU-LAYERNORM-07");
  EXPECT_FOUND(call_of(kConstant, block), "TARVU-LAYERNORM-08");
  const auto ranges = cases::ranges_of(call_of(kConstant, block), 0);
  ASSERT_EQ(ranges.size(), 5u);
  EXPECT_EQ(ranges[1].role, TARVU_CONTRACT_WRITES);
  EXPECT_STREQ(ranges[1].field, "in_addr");
  EXPECT_EQ(ranges[1].offset, 64);
  EXPECT_EQ(ranges[1].extents[0].count, 4u);
  EXPECT_EQ(ranges[2].extents[0].count, 16u);
  EXPECT_EQ(ranges[2].extents[1].count, 6u);
}

TEST(ContractLayernorm, TheOutputMayBeTheInput) {
  auto block = plain_layernorm();
  block.out_addr = block.in_addr;
  EXPECT_EQ(contract_test::ids_of(call_of(kProcess, block)), "");
  block.out_addr = block.in_addr + 1;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-ANY-06");
}

}  // namespace
