// Softmax: what its calls touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kProcess = "tarvu_softmax_process";
constexpr const char *kTensor = "tarvu_softmax_process_0";

/// Two items of 2 planes of 3 lines of 4 signed bytes, along the width.
template <class Block = _NN_SOFTMAX_PARM>
Block plain_softmax() {
  Block block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.work_buffer = 0x30000;
  block.width = 4;
  block.height = 3;
  block.channel = block.batch = 2;
  block.in_batch_ofs = block.out_batch_ofs = 32;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.in_scale = block.out_scale = support::scale(1, 0);
  block.axis = 3;
  return block;
}

TEST(ContractSoftmax, APlainBlockReadsAndWritesItsItemsAndTakesTwoFloatsForEachElementOfOne) {
  const auto block = plain_softmax();
  const auto call = call_of(kProcess, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 192u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 56u);
  EXPECT_EQ(ranges[0].exact, 1);
  EXPECT_STREQ(ranges[1].field, "out_addr");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 56u);
  EXPECT_EQ(ranges[2].role, TARVU_CONTRACT_SCRATCH);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 96u);
  EXPECT_EQ(ranges[3].offset, 96);
  EXPECT_EQ(ranges[3].alignment, 4u);
}

TEST(ContractSoftmax, FloatsAreWrittenToTheOutputAndLeaveTheSecondScratchArrayAlone) {
  auto block = plain_softmax();
  block.out_fmt = support::format(32, 4, 1);
  block.out_batch_ofs = 96;
  const auto ranges = cases::ranges_of(call_of(kProcess, block), 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(ranges[1].type, TARVU_CONTRACT_F32);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 192u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 96u);
}

TEST(ContractSoftmax, AnAxisThatIsNotServedIsRefusedOnceForEachItemAfterTheInputWasRead) {
  auto block = plain_softmax();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-01");
  block.axis = 4;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-01");
  const auto call = call_of(kProcess, block);
  const auto finding = finding_of(call, "TARVU-SOFTMAX-01");
  EXPECT_EQ(finding.result, -1);
  EXPECT_EQ(finding.line_times, 2u);
  EXPECT_STREQ(finding.line,
               "\033[1;31mERR:tarvu_softmax_process_one_batch() Softmax cpu Layer is not support axis = 0 or axis > 3, "
               "please convert dimensions.\r\n\033[0m");
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 2u) << "the input, and scratch memory";
  EXPECT_EQ(ranges[0].exact, 0);
  auto item = call_of("tarvu_softmax_process_one_batch", block);
  EXPECT_EQ(finding_of(item, "TARVU-SOFTMAX-01").line_times, 1u);
  block.axis = 3;
  block.batch = 0;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-ANY-08");
  const auto nothing = call_of(kProcess, block);
  EXPECT_TRUE(cases::ranges_of(nothing, 0).empty());
  EXPECT_EQ(tarvu_contract_scratch_bytes(&nothing), 0u);
}

TEST(ContractSoftmax, FloatsOfTheFirstItemServeAllItems) {
  auto block = plain_softmax();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-02");
  block.in_fmt = support::format(32, 0, 1);
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-02");
  const auto ranges = cases::ranges_of(call_of(kProcess, block), 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 96u);
}

TEST(ContractSoftmax, FormatsThatNoConversionServesAreTold) {
  auto block = plain_softmax();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-03");
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-04");
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-05");
  block.in_fmt = support::format(32, 0, 0);
  block.out_fmt = support::format(8, 4, 2);
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-03");
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-04");
  EXPECT_EQ(cases::ranges_of(call_of(kProcess, block), 0).size(), 2u) << "scratch memory alone";
  block.out_fmt = support::format(24, 4, 1);
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-05");
}

TEST(ContractSoftmax, AxesAndLinesThatAreEasilyMeantOtherwiseAreTold) {
  auto block = plain_softmax();
  block.in_line_ofs = 4;
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-06");
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-07");
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-08");
  block.axis = -1;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-06");
  block.in_line_ofs = 16;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-07");
  EXPECT_STREQ(finding_of(call_of(kProcess, block), "TARVU-SOFTMAX-07").sentence,
               "in_line_ofs is 16 and is not read: lines follow one another every 4 bytes.");
  block.axis = 1;
  block.channel = 1;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-SOFTMAX-08");
}

TEST(ContractSoftmax, ItemsMayBeComputedInPlaceWithEqualWidthsAndOffsets) {
  auto block = plain_softmax();
  block.out_addr = block.in_addr;
  EXPECT_EQ(contract_test::ids_of(call_of(kProcess, block)), "");
  block.out_batch_ofs = 24;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-ANY-06");
}

TEST(ContractSoftmax, ADistanceOfItemsThatWrapsIsTold) {
  auto block = plain_softmax();
  block.in_batch_ofs = 0x40000000;
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-ANY-10");
  block.batch = 5;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-ANY-10");
}

TEST(ContractSoftmax, TheWholeTensorFormComputesConsecutiveElementsOfOneItem) {
  auto block = plain_softmax();
  block.batch = 1;
  EXPECT_NOT_FOUND(call_of(kTensor, block), "TARVU-SOFTMAX-09");
  EXPECT_NOT_FOUND(call_of(kTensor, block), "TARVU-SOFTMAX-10");
  EXPECT_NOT_FOUND(call_of(kTensor, block), "TARVU-SOFTMAX-12");
  block.batch = 2;
  block.axis = 2;
  EXPECT_FOUND(call_of(kTensor, block), "TARVU-SOFTMAX-09");
  EXPECT_FOUND(call_of(kTensor, block), "TARVU-SOFTMAX-10");
  block.axis = -1;
  EXPECT_FOUND(call_of(kTensor, block), "TARVU-SOFTMAX-12");
  const auto call = call_of(kTensor, block);
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 384u);
  const auto ranges = cases::ranges_of(call, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 24u) << "of the item that is computed";
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 48u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 48u);
}

/// Calls the product with scratch memory of the bytes that are taken.
void run_without_items(_NN_SOFTMAX_PARM block) {
  const support::GuardedMemory work(0), out(4096);
  block.work_buffer = work.address();
  block.out_addr = out.address();
  block.width = 4096;
  tarvu_softmax_process_0(&block);
}

TEST(ContractSoftmaxDeathTest, TheWholeTensorFormWithoutItemsComputesOneInMemoryThatNobodySized) {
  auto block = plain_softmax();
  EXPECT_NOT_FOUND(call_of(kTensor, block), "TARVU-SOFTMAX-11");
  block.batch = 0;
  EXPECT_FOUND(call_of(kTensor, block), "TARVU-SOFTMAX-11");
  const auto call = call_of(kTensor, block);
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  EXPECT_DEATH(run_without_items(block), "");
}

TEST(ContractSoftmax, ASignedByteOutputTakesTheZeroPointOfTheInput) {
  auto block = plain_softmax<_NN_SOFTMAX_ASYM_PARM>();
  block.in_zero_point = block.out_zero_point = 3;
  EXPECT_EQ(contract_test::ids_of(call_of("tarvu_softmax_asym_process", block)), "");
  EXPECT_NOT_FOUND(call_of("tarvu_softmax_asym_process", block), "TARVU-SOFTMAX-13");
  block.out_zero_point = -128;
  EXPECT_FOUND(call_of("tarvu_softmax_asym_process", block), "TARVU-SOFTMAX-13");
  block.axis = 0;
  EXPECT_EQ(std::string(finding_of(call_of("tarvu_softmax_asym_process", block), "TARVU-SOFTMAX-01").line)
                .find("\033[1;31mERR:tarvu_softmax_asym_process_one_batch() Softmax cpu"),
            0u);
}

TEST(ContractSoftmax, OneItemIsReadAndWrittenWhereTheArgumentsPointAndFloatsWhereTheBlockDoes) {
  auto block = plain_softmax();
  auto call = call_of("tarvu_softmax_process_one_batch", block);
  call.argument[1] = 0x40000;
  call.argument[2] = 0x50000;
  EXPECT_EQ(contract_test::ids_of(call), "");
  const auto ranges = cases::ranges_of(call, 0);
  EXPECT_STREQ(ranges[0].field, "in");
  EXPECT_EQ(ranges[0].address, 0x40000u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 24u);
  EXPECT_STREQ(ranges[1].field, "out");
  block.in_fmt = support::format(32, 0, 1);
  EXPECT_STREQ(cases::ranges_of(call, 0)[0].field, "in_addr");
}

TEST(ContractSoftmax, TheKernelsOfFloatsReadAndWriteOneItemAndTheStubNothing) {
  const auto block = plain_softmax();
  tarvu_contract_call call = {tarvu_contract_function("tarvu_softmax_axis3_4vec"), 0, {0x10000, 0x20000}};
  call.argument[2] = reinterpret_cast<uintptr_t>(&block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 96u);
  EXPECT_EQ(ranges[2].role, TARVU_CONTRACT_PARAMETER);
  call.argument[1] = 0x10004;
  EXPECT_FOUND(call, "TARVU-ANY-06");
  call.argument[2] = 0;
  EXPECT_FOUND(call, "TARVU-ANY-01");
  const tarvu_contract_call stub = {tarvu_contract_function("tarvu_dli_softmax_process"), 0, {}};
  EXPECT_EQ(contract_test::ids_of(stub), "");
  EXPECT_TRUE(cases::ranges_of(stub, 0).empty());
}

}  // namespace
