// Pooling: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_pool_process";

/// Two items of three planes of 6 x 4 signed bytes, windows of 2 x 2 beside each other, tensors far apart.
_NN_POOL_PARM plain_pool() {
  _NN_POOL_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.width = 6;
  block.height = 4;
  block.channel = 3;
  block.batch = 2;
  block.in_line_ofs = 6;
  block.in_channel_ofs = 24;
  block.in_batch_ofs = 72;
  block.out_line_ofs = 3;
  block.out_channel_ofs = 6;
  block.out_batch_ofs = 18;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.in_scale = block.out_scale = support::scale(1, 0);
  block.kernel_w = block.kernel_h = block.stride_w = block.stride_h = 2;
  return block;
}

tarvu_contract_range range_of(const _NN_POOL_PARM &block, size_t number) {
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  EXPECT_LT(number, ranges.size());
  return ranges[number];
}

TEST(ContractPool, APlainBlockReadsItsPlanesAndWritesItsGridWithNothingToSay) {
  const _NN_POOL_PARM block = plain_pool();
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_STREQ(ranges[0].field, "in_addr");
  EXPECT_EQ(ranges[0].role, TARVU_CONTRACT_READS);
  EXPECT_EQ(ranges[0].type, TARVU_CONTRACT_S8);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 144u);
  EXPECT_STREQ(ranges[1].field, "out_addr");
  EXPECT_EQ(ranges[1].extents[0].count, 3u);
  EXPECT_EQ(ranges[1].extents[1].count, 2u);
  EXPECT_EQ(ranges[1].extents[1].axis, TARVU_CONTRACT_AXIS_HEIGHT);
  EXPECT_STREQ(ranges[1].extents[1].step_name, "out_line_ofs");
  EXPECT_EQ(ranges[1].extents[2].count, 3u);
  EXPECT_EQ(ranges[1].extents[3].count, 2u);
}

TEST(ContractPool, RangesComePageByPage) {
  _NN_POOL_PARM block = plain_pool();
  block.stride_w = 4;
  const auto call = call_of(kFunction, block);
  const auto all = cases::ranges_of(call, 0);
  ASSERT_EQ(all.size(), 3u);
  tarvu_contract_range last;
  EXPECT_EQ(tarvu_contract_ranges(&call, 0, 2, &last, 1), 3u);
  EXPECT_STREQ(last.field, "out_addr");
  EXPECT_EQ(tarvu_contract_ranges(&call, 0, 3, &last, 1), 3u);
}

TEST(ContractPool, ElementsOfThePlaneThatNoWindowHoldsAreReadAtMost) {
  _NN_POOL_PARM block = plain_pool();
  block.stride_w = block.stride_h = 4;
  block.width = 10;
  block.in_line_ofs = 10;
  block.height = 10;
  const auto windows = range_of(block, 0);
  EXPECT_EQ(windows.exact, 1);
  EXPECT_EQ(windows.extent_count, 6u);
  EXPECT_EQ(windows.extents[0].count, 2u);
  EXPECT_EQ(windows.extents[1].count, 3u);
  EXPECT_EQ(windows.extents[3].count, 3u);
  const auto loaded = range_of(block, 1);
  EXPECT_EQ(loaded.exact, 0);
  EXPECT_EQ(loaded.extents[0].count, 10u);
  EXPECT_EQ(loaded.extents[0].step, 1);
  EXPECT_EQ(loaded.extents[1].count, 10u);
  EXPECT_EQ(loaded.extents[1].step, 10);
  block.in_line_ofs = 12;
  EXPECT_EQ(range_of(block, 1).extents[1].step, 12) << "the bytes behind a line are never read";
}

TEST(ContractPool, FormatsThatAreNotOf8Or16BitsAreRefused) {
  _NN_POOL_PARM block = plain_pool();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-01");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-02");
  block.out_fmt = support::format(32, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-02");
  block.in_fmt = support::format(24, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-01");
  const auto finding = finding_of(call_of(kFunction, block), "TARVU-POOL-01");
  EXPECT_EQ(finding.kind, TARVU_CONTRACT_REFUSED);
  EXPECT_EQ(finding.result, -1);
  EXPECT_EQ(finding.value, 24);
  EXPECT_STREQ(finding.line, "\033[1;31mERR:tarvu_pool_process() unsupported input type -1\r\n\033[0m");
  EXPECT_STREQ(finding.sentence, "Pooling reads elements of 8 or 16 bits; the bits of in_fmt add up to 24.");
  EXPECT_TRUE(cases::ranges_of(call_of(kFunction, block), 0).empty());
}

TEST(ContractPool, AModeAboveThreeIsRefused) {
  _NN_POOL_PARM block = plain_pool();
  block.mode = 3;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-03");
  block.mode = 4294967295u;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-03");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-POOL-03").line,
               "\033[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode -1\r\n\033[0m");
}

/// Calls the product on an input of exactly `bytes` bytes with a page that faults at one end.
void run_on_input(_NN_POOL_PARM block, size_t bytes, support::Fault fault) {
  const support::GuardedMemory input(bytes, {fault, 1, 0});
  const support::GuardedMemory output(4096);
  block.in_addr = input.address();
  block.out_addr = output.address();
  tarvu_pool_process(&block);
}

TEST(ContractPoolDeathTest, PaddingInFrontAboveTheStrideReadsInFrontOfTheLines) {
  _NN_POOL_PARM block = plain_pool();
  block.kernel_w = 5;
  block.pad_left = 2;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-04");
  block.pad_left = 3;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-04");
  EXPECT_EQ(range_of(block, 0).offset, -1);
  EXPECT_DEATH(run_on_input(block, 144, support::Fault::kInFront), "");
}

TEST(ContractPoolDeathTest, PaddingAboveBeyondTheStrideReadsFarBehindThePlane) {
  _NN_POOL_PARM block = plain_pool();
  block.kernel_h = 5;
  block.pad_top = 2;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-05");
  block.pad_top = 3;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-05");
  EXPECT_DEATH(run_on_input(block, 144, support::Fault::kBehind), "");
}

TEST(ContractPoolDeathTest, ALineSoLongThatTheSecondLineOfWindowsWrapsReadsElsewhere) {
  _NN_POOL_PARM block = plain_pool();
  block.width = 2;
  block.kernel_h = 1;
  block.height = 3;
  block.channel = block.batch = 1;
  block.in_line_ofs = 0x40000000;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-06");
  block.in_line_ofs = 0x80000001;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-06");
  EXPECT_DEATH(run_on_input(block, 2, support::Fault::kBehind), "");
}

TEST(ContractPool, AnAverageWithoutThePaddingClearsItsWholeOutput) {
  _NN_POOL_PARM block = plain_pool();
  block.mode = 1;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-07");
  block.non_count_pad = 1;
  block.out_batch_ofs = 100;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-07");
  const auto cleared = range_of(block, 2);
  EXPECT_EQ(cleared.type, TARVU_CONTRACT_BYTES);
  EXPECT_EQ(tarvu_contract_range_bytes(&cleared), 200u);
  block.channel = 0;
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), 0).size(), 1u);
}

TEST(ContractPool, SurprisingWindowsAreTold) {
  _NN_POOL_PARM block = plain_pool();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-08");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-09");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-10");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-11");
  block.kernel_w = 7;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-08");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-POOL-08").sentence,
               "kernel_w is 7, but the plane with its padding is only 6 long: the first window holds all of it.");
  block = plain_pool();
  block.pad_top = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-09");
  block = plain_pool();
  block.stride_h = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-10");
  block = plain_pool();
  block.height = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-11");
}

TEST(ContractPool, OneWindowOverThePlaneIsWaste) {
  _NN_POOL_PARM block = plain_pool();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-POOL-12");
  block.mode = 1;
  block.kernel_w = 6;
  block.kernel_h = 4;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-POOL-12");
}

TEST(ContractPool, TheDescriptionSaysFormatsAndWindowsInWords) {
  _NN_POOL_PARM block = plain_pool();
  block.in_scale = support::scale(3, 1);
  const auto call = call_of(kFunction, block);
  char text[2048];
  tarvu_contract_describe(&call, text, sizeof text);
  const std::string all = text;
  EXPECT_NE(all.find("  in_fmt s3.4, 8 bits\n"), std::string::npos) << all;
  EXPECT_NE(all.find("  in_scale 3/2^1\n"), std::string::npos) << all;
  EXPECT_NE(all.find("  = local maximum, 3 columns and 2 lines of windows\n"), std::string::npos) << all;
  EXPECT_EQ(all.find("reserved"), std::string::npos) << all;
}

}  // namespace
