// LRN: what its calls touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_lrn_process";

/// An item of 5 planes of 2 lines of 3 signed bytes, in windows of 3 channels.
_NN_LRN_PARM plain_lrn() {
  _NN_LRN_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.work_buffer = 0x30000;
  block.width = 3;
  block.height = 2;
  block.channel = 5;
  block.batch = 1;
  block.in_batch_ofs = block.out_batch_ofs = 30;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.in_scale = block.out_scale = support::scale(1, 0);
  block.local_size = 3;
  block.lrn_k = 1;
  block.alpha = 0.5f;
  block.beta = 0.75f;
  return block;
}

TEST(ContractLrn, APlainBlockReadsAndWritesAnItemAndTakesFourArrays) {
  const auto block = plain_lrn();
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 4u * (30 + 42 + 30 + 30));
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 6u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 30u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 30u);
  EXPECT_EQ(ranges[3].offset, 120);
  EXPECT_EQ(ranges[4].offset, 288);
  EXPECT_EQ(ranges[5].offset, 408);
}

TEST(ContractLrn, WithSeveralItemsEachOneIsConvertedAsLongAsTheWholeTensor) {
  auto block = plain_lrn();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-LRN-03");
  block.batch = 3;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-LRN-03");
  const auto call = call_of(kFunction, block);
  const auto ranges = cases::ranges_of(call, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 150u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 150u);
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 4u * (90 + 42 + 30 + 90));
  block.in_fmt = block.out_fmt = support::format(32, 0, 1);
  block.in_batch_ofs = block.out_batch_ofs = 120;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-LRN-03");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 4u * (90 + 42 + 30 + 30));
}

TEST(ContractLrn, AnEvenWindowIsRefusedAheadOfAllElse) {
  auto block = plain_lrn();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-LRN-01");
  block.local_size = 4;
  block.width = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-LRN-01");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-LRN-01").line,
               "\033[1;31mERR:tarvu_lrn_process() LRN only supports odd values for local_size!\r\n\033[0m");
}

std::string line_with(float beta, float alpha) {
  auto block = plain_lrn();
  block.width = 0;
  block.beta = beta;
  block.alpha = alpha;
  return finding_of(call_of(kFunction, block), "TARVU-LRN-02").line;
}

TEST(ContractLrn, WhatIsNotAboveZeroIsRefusedWithFloatsAsPrintfWritesThem) {
  auto block = plain_lrn();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-LRN-02");
  block.beta = -0.0f;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-LRN-02");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-LRN-02").field, "beta");
  const std::string head =
      "\033[1;31mERR:tarvu_lrn_checkparm() shape should be positive, but input is 1x5x0x2(num x channels x width x "
      "height),3x";
  const std::string tail = "(size x beta x alpha)\r\n\033[0m";
  const float values[] = {0.0f,     -0.0f,   1e-4f,          0.75f,      -2.5f,  0.0000005f,     1.0000005f, 0x1p-20f,
                          0x1p-21f, 3.4e38f, -3.4028235e38f, 16777217.f, 1e-45f, 0x1.fffffep-1f, 123456.789f};
  for (const float value : values) {
    char text[64];
    std::snprintf(text, sizeof text, "%f", static_cast<double>(value));
    EXPECT_EQ(line_with(value, 0.5f), head + text + "x0.500000" + tail);
  }
  EXPECT_EQ(line_with(__builtin_inff(), -__builtin_inff()), head + "infx-inf" + tail);
  EXPECT_EQ(line_with(__builtin_nanf(""), -__builtin_nanf("")), head + "nanx-nan" + tail);
}

TEST(ContractLrn, WhatIsEasilyMeantOtherwiseIsTold) {
  auto block = plain_lrn();
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-LRN-04");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-LRN-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-LRN-06");
  block.in_line_ofs = 4;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-LRN-05");
  block.out_fmt = support::format(24, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-LRN-04");
  block.local_size = 11;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-LRN-06");
  block.local_size = 0x7FFFFFFF;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ANY-10");
}

TEST(ContractLrn, TheOutputMayBeTheInputOfASingleItem) {
  auto block = plain_lrn();
  block.out_addr = block.in_addr;
  EXPECT_EQ(contract_test::ids_of(call_of(kFunction, block)), "");
  block.batch = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-ANY-06");
}

tarvu_contract_call kernel_call(uint32_t local_size, uint32_t half) {
  return {tarvu_contract_function("tarvu_lrn_c_func"),
          0,
          {0x10000, 0x20000, 0x30000, 0x40000, 1, 2, local_size, 5, cases::argument_of(0.5f), cases::argument_of(0.75f),
           3, 2, half}};
}

TEST(ContractLrn, AKernelTakesSumsOfAllItemsAndSquaresOfOne) {
  const auto call = kernel_call(3, 1);
  EXPECT_EQ(contract_test::ids_of(call), "");
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 240u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 240u);
  EXPECT_STREQ(ranges[3].field, "squares");
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[3]), 168u);
}

/// Calls the kernel with an array of exactly the squares' size.
void run_with_half(uint32_t half) {
  const support::GuardedMemory in(4096), out(4096), sums(4096), squares(size_t{4} * 7 * 128);
  in.fill(0);
  tarvu_lrn_c_func(in.as<float>(), out.as<float>(), sums.as<float>(), squares.as<float>(), 1, 1, 3, 5, 0.5f, 0.75f, 128,
                   1, half);
}

TEST(ContractLrnDeathTest, SquaresTooFarBehindLeaveTheirArray) {
  EXPECT_NOT_FOUND(kernel_call(3, 2), "TARVU-LRN-07");
  EXPECT_FOUND(kernel_call(3, 3), "TARVU-LRN-07");
  EXPECT_DEATH(run_with_half(3), "");
}

}  // namespace
