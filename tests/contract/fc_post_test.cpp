// Fully-connected post-processing: every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_fc_post_process";

/// 2 items of 10 outputs, each of 4 partial results in lines of 10 words; signed bytes come out.
_NN_FC_POST_PARM plain_block() {
  _NN_FC_POST_PARM block = {};
  block.in_addr = 0x1000000000;
  block.out_addr = 0x20000;
  block.bias_addr = 0x30000;
  block.width = 10;
  block.height = 4;
  block.batch = 2;
  block.in_line_ofs = 40;
  block.in_batch_ofs = 160;
  block.out_batch_ofs = 10;
  block.in_fmt = support::format(32, 8, 1);
  block.out_fmt = support::format(8, 4, 1);
  block.mul_a = support::scale(3, 1);
  block.mul_b = support::scale(5, 2);
  block.neg_mul = support::scale(1, 3);
  return block;
}

TEST(ContractFcPost, APlainBlockReadsPartsAndCorrectionsAndWritesOutputs) {
  const _NN_FC_POST_PARM block = plain_block();
  EXPECT_EQ(contract_test::ids_of(call_of(kFunction, block)), "");
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 320u);
  EXPECT_STREQ(ranges[1].field, "bias_addr");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 40u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 20u);
}

TEST(ContractFcPost, ItemsThatStepBackwardsLieInFrontOfTheirAddress) {
  _NN_FC_POST_PARM block = plain_block();
  block.in_batch_ofs = -160;
  block.out_batch_ofs = -12;
  EXPECT_EQ(contract_test::ids_of(call_of(kFunction, block)), "");
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(ranges[0].offset, -160);
  EXPECT_EQ(ranges[2].offset, -12);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 22u);
}

TEST(ContractFcPost, AnEmptyTensorTouchesNothing) {
  _NN_FC_POST_PARM block = plain_block();
  block.batch = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ANY-08");
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, block), 0).empty());
}

TEST(ContractFcPost, AFormatWithoutATypeHasWordsAsFarApartAsItsWidth) {
  _NN_FC_POST_PARM block = plain_block();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-01");
  block.out_fmt = support::format(24, 4, 1);
  block.out_batch_ofs = 31;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-01");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-FCPOST-01").sentence,
               "The bits of out_fmt add up to 24 with sign_bits of 1, which is no type of its own: elements are signed "
               "32-bit, 3 bytes apart.");
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 62u);
  block.out_fmt = support::format(32, 4, 0);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-01");
}

TEST(ContractFcPost, OffsetsThatWrapMayLieAnywhereBehindTheAddress) {
  _NN_FC_POST_PARM block = plain_block();
  block.in_line_ofs = (0xFFFFFFFF - 36) / 3;
  block.in_batch_ofs = INT32_MIN;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-02");
  block.in_line_ofs += 1;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-02");
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), 0)[0].exact, 0);
}

TEST(ContractFcPost, ItemsThatLieOverEachOtherAreTold) {
  _NN_FC_POST_PARM block = plain_block();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-03");
  block.out_batch_ofs = -9;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-03");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-FCPOST-03").field, "out_batch_ofs");
  block.out_batch_ofs = 10;
  block.in_batch_ofs = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-03");
  block.batch = 1;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-03");
}

TEST(ContractFcPost, ShiftsThatLeaveASignedByteAreTold) {
  _NN_FC_POST_PARM block = plain_block();
  block.mul_a.scale_shift = 125;
  block.neg_mul.scale_shift = 0;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-04");
  block.mul_a.scale_shift = 126;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-04");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-FCPOST-04").sentence,
               "The shifts up to mul_b add up to 128, and are taken as the signed byte -128.");
}

TEST(ContractFcPost, ADistanceOf64IsReduced) {
  _NN_FC_POST_PARM block = plain_block();
  block.mul_a.scale_shift = 58;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-05");
  block.mul_a.scale_shift = 59;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-05");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-FCPOST-05").field, "neg_mul");
}

TEST(ContractFcPost, AMultiplierOfZeroLeavesNothing) {
  _NN_FC_POST_PARM block = plain_block();
  block.neg_mul.scale_value = 0;  // a plain rectifier
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-06");
  block.mul_b.scale_value = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-06");
}

TEST(ContractFcPost, MultipliersThatTakeMoreThan64BitsWrap) {
  _NN_FC_POST_PARM block = plain_block();
  block.mul_a.scale_value = block.mul_b.scale_value = 1 << 30;
  block.neg_mul.scale_value = 7;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-07");
  block.neg_mul.scale_value = 8;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-07");
}

TEST(ContractFcPost, WithoutPartsTheInputIsNotRead) {
  _NN_FC_POST_PARM block = plain_block();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-08");
  block.height = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-FCPOST-08");
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), 0).size(), 2u);
}

}  // namespace
