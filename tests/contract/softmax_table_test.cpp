// Softmax by table: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "vendor_softmax_process";

/// Two items of 8 elements.
struct Plain {
  int16_t in[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  int16_t out[16] = {};
  _NN_SOFTMAX_PARM block = {};

  Plain() {
    block.in_addr = reinterpret_cast<uintptr_t>(in);
    block.out_addr = reinterpret_cast<uintptr_t>(out);
    block.width = block.height = 1;
    block.channel = 8;
    block.batch = 2;
    block.in_fmt = support::format(16, 6, 1);
  }
};

TEST(ContractSoftmaxTable, APlainBlockReadsAndWritesItsElementsAndTakesNoScratch) {
  const Plain plain;
  const auto call = call_of(kFunction, plain.block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 32u);
  EXPECT_EQ(ranges[1].type, TARVU_CONTRACT_S16);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 32u);
}

TEST(ContractSoftmaxTable, ABatchAndThenAChannelOf0AreRefusedByTheProcessAndByTheCheckItself) {
  Plain plain;
  EXPECT_NOT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-01");
  EXPECT_NOT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-02");
  plain.block.channel = 0;
  EXPECT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-02");
  EXPECT_EQ(finding_of(call_of(kFunction, plain.block), "TARVU-TABLE-02").result, QX_ERR_PARAM);
  plain.block.batch = 0;
  EXPECT_FOUND(call_of("vendor_ais_checkparm", plain.block), "TARVU-TABLE-01");
  const auto finding = finding_of(call_of("vendor_ais_checkparm", plain.block), "TARVU-TABLE-01");
  EXPECT_EQ(finding.result, 2);
  EXPECT_STREQ(finding.line,
               "\033[1;31mERR:vendor_ais_checkparm() batch num should be positive, but input is 0\r\n\033[0m");
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, plain.block), 0).empty());
}

TEST(ContractSoftmaxTable, AnItemThatSpansTooMuchIsToldWithTheLineOfItsFirstElement) {
  Plain plain;
  EXPECT_NOT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-03");
  plain.in[9] = 32767;
  plain.in[10] = -32768;
  EXPECT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-03");
  const auto finding = finding_of(call_of(kFunction, plain.block), "TARVU-TABLE-03");
  EXPECT_STREQ(finding.line, "\033[1;31mERR:vendor_submax_s16() idx 8192 over limit 8191\r\n\033[0m");
  EXPECT_STREQ(finding.sentence,
               "Item 1 spans 32768 or more in 6 fraction bits: from element 2 on differences stand there in place of "
               "exponentials.");
}

TEST(ContractSoftmaxTable, WhatIsEasilyMeantOtherwiseIsTold) {
  Plain plain;
  EXPECT_NOT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-04");
  EXPECT_NOT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-05");
  EXPECT_NOT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-06");
  EXPECT_NOT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-07");
  plain.block.channel = 7;
  plain.block.in_fmt = support::format(16, 5, 0);
  plain.block.out_batch_ofs = 16;
  plain.block.height = 3;
  EXPECT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-04");
  EXPECT_EQ(std::string(finding_of(call_of(kFunction, plain.block), "TARVU-TABLE-04").sentence),
            "With 5 fraction bits, fewer than 6, the last 3 elements of an item count as 0 or -1.");
  EXPECT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-05");
  EXPECT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-06");
  EXPECT_FOUND(call_of(kFunction, plain.block), "TARVU-TABLE-07");
}

TEST(ContractSoftmaxTable, TheOutputMayBeTheInput) {
  Plain plain;
  plain.block.out_addr = plain.block.in_addr;
  EXPECT_EQ(contract_test::ids_of(call_of(kFunction, plain.block)), "");
  plain.block.out_addr += 2;
  EXPECT_FOUND(call_of(kFunction, plain.block), "TARVU-ANY-06");
}

}  // namespace
