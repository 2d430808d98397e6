// Prior boxes: what their calls touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_priorbox_process";

/// Three boxes for each of 3 x 2 cells.
_NN_PRIORBOX_PARM plain_priorbox() {
  _NN_PRIORBOX_PARM block = {};
  block.out_addr = 0x10000;
  block.in_width = 3;
  block.in_height = 2;
  block.img_width = block.img_height = 300;
  block.variance_ofs = 288;
  block.min_sizes[0] = 30.0f;
  block.min_size_num = 1;
  block.aspect_ratios[0] = 2.0f;
  block.aspect_ratios_num = 1;
  block.flip = 1;
  block.variances[0] = block.variances[1] = block.variances[2] = block.variances[3] = 0.1f;
  block.variance_num = 4;
  block.offset = 0.5f;
  return block;
}

/// A working record of one box for each of 3 x 2 cells.
struct Form {
  _NN_PRIORBOX_WORK work = {};
  uint64_t regions[2] = {0x10000, 0x20000};

  Form() {
    work.in_width = 3;
    work.in_height = 2;
    work.img_width = work.img_height = 300;
    work.min_sizes[0] = 30.0f;
    work.min_size_num = 1;
    work.ratio_list[0] = 1.0f;
    work.ratio_count = 1;
    work.num_priors = 1;
  }
  tarvu_contract_call call() const {
    tarvu_contract_call call = call_of("tarvu_priorbox_c_func", work);
    call.argument[1] = reinterpret_cast<uintptr_t>(regions);
    return call;
  }
};

TEST(ContractPriorBox, APlainBlockWritesItsBoxesAndItsVariances) {
  const _NN_PRIORBOX_PARM block = plain_priorbox();
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 288u);
  EXPECT_EQ(ranges[1].offset, 288);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 288u);
}

TEST(ContractPriorBox, AFormOnAWorkingRecordWritesItsTwoRegions) {
  const Form form;
  EXPECT_EQ(contract_test::ids_of(form.call()), "");
  const auto ranges = cases::ranges_of(form.call(), 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(ranges[0].role, TARVU_CONTRACT_PARAMETER);
  EXPECT_STREQ(ranges[1].field, "regions[0]");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 96u);
  EXPECT_STREQ(ranges[2].field, "regions[1]");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 96u);
}

TEST(ContractPriorBox, AFieldOfZeroIsRefusedWithAllEightNumbers) {
  _NN_PRIORBOX_PARM block = plain_priorbox();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-01");
  block.img_height = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-01");
  const auto finding = finding_of(call_of(kFunction, block), "TARVU-PRIORBOX-01");
  EXPECT_STREQ(finding.field, "img_height");
  EXPECT_EQ(finding.result, -34);
  EXPECT_STREQ(finding.line,
               "\033[1;31mERR:tarvu_priorbox_checkparm() shape should be positive, but input is "
               "300x0x3x2(img_width x img_height x in_width x in_height),0x1x4x1(max_size_num x min_size_num x "
               "variance_num x aspect_ratios_num)\r\n\033[0m");
}

void run_on_whole_regions(_NN_PRIORBOX_PARM block) {
  const support::GuardedMemory out(576, {support::Fault::kBehind, 4, 0});
  block.out_addr = out.address();
  tarvu_priorbox_process(&block);
}

TEST(ContractPriorBoxDeathTest, MoreEntriesThanAnArrayHasUseTheMemoryBehindIt) {
  _NN_PRIORBOX_PARM block = plain_priorbox();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-02");
  block.min_size_num = 5;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-02");
  block.min_size_num = 0x10000000;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-02");
  EXPECT_DEATH(run_on_whole_regions(block), "");
  Form form;
  form.work.ratio_count = 11;
  EXPECT_FOUND(form.call(), "TARVU-PRIORBOX-02");
}

TEST(ContractPriorBox, WhatIsEasilyMeantOtherwiseIsTold) {
  _NN_PRIORBOX_PARM block = plain_priorbox();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-03");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-04");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-06");
  block.min_size_num = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-03");
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-04");
  block.variance_num = 3;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-05");
  block.variance_num = 1;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-PRIORBOX-06");
}

TEST(ContractPriorBox, AClampThatCountsMoreThanTheBoxesReachesBehindThem) {
  _NN_PRIORBOX_PARM block = plain_priorbox();
  block.clip = 1;
  block.max_size_num = 3;  // a box for the first one, and two that are counted alone
  block.max_sizes[0] = block.max_sizes[1] = block.max_sizes[2] = 40.0f;
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_LT(tarvu_contract_range_bytes(&ranges[0]), tarvu_contract_range_bytes(&ranges[1]));
}

}  // namespace
