// Standalone suppression: what its calls touch, and every finding with a call that has it and one that has it not.
#include <unistd.h>

#include <cmath>

#include "tests/contract/findings.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_nms_process";

struct Boxes {
  _NN_NMS_OBJ boxes[3];
};

Boxes with_scores(float first, float second, float third) {
  return {{{0, 0, 1, 1, first, 1}, {0, 0, 1, 1, second, 2}, {2, 2, 3, 3, third, 3}}};
}

_NN_NMS_PARM block_of(const Boxes &boxes) {
  _NN_NMS_PARM block = {};
  block.nms_threshold = 0.5f;
  block.obj_num = 3;
  block.max_obj_num = 10;
  block.obj_addr = reinterpret_cast<uintptr_t>(boxes.boxes);
  return block;
}

TEST(ContractNms, APlainBlockReadsAllScoresAndMayRewriteItsRecords) {
  const Boxes boxes = with_scores(0.5f, 0.25f, 0.75f);
  const _NN_NMS_PARM block = block_of(boxes);
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "TARVU-NMS-01");
  EXPECT_STREQ(finding_of(call, "TARVU-NMS-01").line, "obj_final_num is %d\r\n");
  EXPECT_EQ(finding_of(call, "TARVU-NMS-01").kind, TARVU_CONTRACT_TOLD);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(ranges[0].role, TARVU_CONTRACT_WRITES);
  EXPECT_EQ(ranges[0].exact, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 72u);
  EXPECT_EQ(ranges[1].exact, 1);
  EXPECT_EQ(ranges[1].offset, 16);
}

TEST(ContractNms, TheFunctionBehindItPrintsNothing) {
  const Boxes boxes = with_scores(0.5f, 0.25f, 0.75f);
  tarvu_contract_call call = {tarvu_contract_function("nms_process_c"), 0, {}};
  call.argument[0] = reinterpret_cast<uintptr_t>(boxes.boxes);
  call.argument[1] = 3;
  call.argument[2] = 10;
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_NOT_FOUND(call, "TARVU-NMS-01");
  EXPECT_STREQ(cases::ranges_of(call, 0)[0].field, "objs");
}

TEST(ContractNms, ACountThatNoBoxDecidesIsTold) {
  const Boxes boxes = with_scores(0.5f, 0.25f, 0.75f);
  _NN_NMS_PARM block = block_of(boxes);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NMS-03");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NMS-04");
  block.max_obj_num = 1;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NMS-01");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-NMS-01").line, "obj_final_num is 1\r\n");
  block.max_obj_num = -2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NMS-03");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-NMS-01").line, "obj_final_num is -2\r\n");
  block.obj_num = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NMS-04");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-NMS-01").line, "obj_final_num is 0\r\n");
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, block), 0).empty());
}

TEST(ContractNmsDeathTest, AScoreThatIsNoNumberNeverSorts) {
  Boxes boxes = with_scores(0.5f, NAN, 0.75f);
  const _NN_NMS_PARM block = block_of(boxes);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NMS-02");
  EXPECT_DEATH((alarm(1), tarvu_nms_process(&block)), "");
  boxes = with_scores(0.5f, 0.25f, 0.75f);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NMS-02");
}

TEST(ContractNms, ScoresThatAreZeroOrNegativeAreTold) {
  Boxes boxes = with_scores(0.5f, 0.25f, 0.75f);
  const _NN_NMS_PARM block = block_of(boxes);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NMS-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-NMS-06");
  boxes = with_scores(0.5f, 0.0f, -0.5f);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NMS-05");
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-NMS-06");
}

}  // namespace
