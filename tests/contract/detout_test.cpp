// Detection output: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_detout_process";

/// Ten priors, three classes of which one is the background, float locations.
_NN_DETOUT_PARM plain_detout() {
  _NN_DETOUT_PARM block = {};
  block.loc_addr = 0x10000;
  block.conf_addr = 0;
  block.prior_addr = 0x30000;
  block.out_addr = 0x40000;
  block.work_buffer = 0x50000;
  block.batch = 1;
  block.loc_fmt = support::format(32, 0, 1);
  block.loc_scale = support::scale(1, 0);
  block.num_classes = 3;
  block.num_priors = 10;
  block.share_location = 1;
  block.keep_top_k = 8;
  block.confidence_threshold = 0.5f;
  block.nms_threshold = 0.45f;
  return block;
}

/// The block with candidates of class 1.
struct WithScores {
  float scores[30] = {};
  _NN_DETOUT_PARM block = plain_detout();

  explicit WithScores(int candidates) {
    for (int p = 0; p < candidates; ++p) scores[3 * p + 1] = 0.75f;
    block.conf_addr = reinterpret_cast<uintptr_t>(scores);
  }
};

TEST(ContractDetout, APlainBlockReadsItsTensorsClearsItsOutputAndTakesAllScratchAreas) {
  const WithScores with(0);
  const auto call = call_of(kFunction, with.block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), (40u + 12 + 88) * 10 + 24 * 12);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 9u);
  EXPECT_STREQ(ranges[0].field, "loc_addr");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 160u);
  EXPECT_STREQ(ranges[3].field, "conf_addr");
  EXPECT_EQ(ranges[3].exact, 1);
  EXPECT_EQ(ranges[3].offset, 4);
  EXPECT_STREQ(ranges[5].field, "out_addr");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[5]), 2u * 5 * 20);
  EXPECT_EQ(ranges[5].exact, 1);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[6]), 8u * 3 * 20) << "cleared";
  EXPECT_EQ(ranges[7].exact, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[7]), 2u * 3 * 20) << "at most eight records a class";
}

TEST(ContractDetout, WithScoresReadAClassOfUpToFiveCandidatesHasFiveRecords) {
  const WithScores five(5);
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, five.block), TARVU_CONTRACT_READ_CONTENTS).size(), 8u);
  const WithScores seven(7);
  const auto ranges = cases::ranges_of(call_of(kFunction, seven.block), TARVU_CONTRACT_READ_CONTENTS);
  ASSERT_EQ(ranges.size(), 9u);
  EXPECT_EQ(ranges[7].exact, 0);
  EXPECT_EQ(ranges[7].offset, 200);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[7]), 40u);
}

TEST(ContractDetout, AnUnknownCodeTypeIsToldForEveryBox) {
  _NN_DETOUT_PARM block = plain_detout();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-01");
  block.code_type = 3;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-01");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-DETOUT-01").line, "Unknown code type.");
}

TEST(ContractDetout, SeveralSetsStretchThePriorsAndTheConvertedLocations) {
  _NN_DETOUT_PARM block = plain_detout();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-03");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-07");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-11");
  block.share_location = 0;
  block.loc_fmt = support::format(8, 4, 0);
  const auto call = call_of(kFunction, block);
  EXPECT_FOUND(call, "TARVU-DETOUT-03");
  EXPECT_FOUND(call, "TARVU-DETOUT-07");
  EXPECT_FOUND(call, "TARVU-DETOUT-11");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), (120u + 12 + 88) * 10 + 24 * 12 + 16 * 2 * 10);
  const auto ranges = cases::ranges_of(call, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 40u);
  EXPECT_EQ(ranges[1].extents[1].step, 48);
}

void run_on_whole_tensors(_NN_DETOUT_PARM block) {
  const support::Placement placement{support::Fault::kBehind, 4, 0};
  const support::GuardedMemory locations(40, placement), priors(320, placement), work(1688, placement);
  block.loc_addr = locations.address();
  block.prior_addr = priors.address();
  block.work_buffer = work.address();
  tarvu_detout_process(&block);
}

TEST(ContractDetoutDeathTest, ANegativeNumberOfClassesPutsScratchAreasFarBehindTheWorkBuffer) {
  _NN_DETOUT_PARM block = plain_detout();
  block.loc_fmt = support::format(8, 4, 1);
  block.num_classes = 0;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-12");
  block.num_classes = -3;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-12");
  EXPECT_DEATH(run_on_whole_tensors(block), "");
}

TEST(ContractDetout, WhatIsEasilyMeantOtherwiseIsTold) {
  _NN_DETOUT_PARM block = plain_detout();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-02");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-04");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-06");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-08");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-09");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-10");
  block.batch = 2;
  block.keep_top_k = 21;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-02");
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-04");
  block.keep_top_k = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-05");
  block.loc_fmt = support::format(16, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-06");
  block.background_label_id = 3;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-08");
  block.num_priors = -1;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-09");
  block.num_classes = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-DETOUT-10");
}

}  // namespace
