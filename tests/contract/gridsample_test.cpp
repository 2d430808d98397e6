// Grid sample: what its blocks touch, and every finding with a call that has it and one that has it not.
#include <unistd.h>

#include <algorithm>

#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kFunction = "tarvu_gridsample_process";

/// 16 x 2 pixels of 8 channels, from 10 x 6, channels side by side.
_NN_GRIDSAMPLE_PARM plain_gridsample() {
  _NN_GRIDSAMPLE_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.grid_addr = 0x30000;
  std::ranges::copy(std::initializer_list<uint16_t>{8, 1, 10, 6}, block.in_shape);
  std::ranges::copy(std::initializer_list<uint16_t>{16, 2, 8, 1}, block.out_shape);
  std::ranges::copy(std::initializer_list<uint16_t>{9, 16, 1, 2}, block.grid_shape);
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.grid_fmt = support::format(8, 8, 0);
  block.row_group = 1;
  return block;
}

/// One plane of 10 x 6.
_NN_GRIDSAMPLE_PARM planar_gridsample() {
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  std::ranges::copy(std::initializer_list<uint16_t>{10, 6, 1, 1}, block.in_shape);
  std::ranges::copy(std::initializer_list<uint16_t>{16, 2, 1, 1}, block.out_shape);
  std::ranges::copy(std::initializer_list<uint16_t>{2, 16, 2, 1}, block.grid_shape);
  return block;
}

uint64_t address_of(const std::vector<uint8_t> &bytes) { return reinterpret_cast<uintptr_t>(bytes.data()); }

TEST(ContractGridSample, APlainBlockReadsItsGridAndAtMostItsImageAndWritesItsOutput) {
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  block.grid_addr = 0;
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "TARVU-ANY-01");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 64u);
  EXPECT_EQ(ranges[1].exact, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 480u);
  EXPECT_EQ(ranges[2].exact, 1);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 256u);
}

TEST(ContractGridSample, WithContentsReadEveryColumnHasItsFourCorners) {
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  std::vector<uint8_t> grid(64, 255);
  grid[2] = 0;
  block.grid_addr = address_of(grid);
  const auto call = call_of(kFunction, block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  const auto ranges = cases::ranges_of(call, TARVU_CONTRACT_READ_CONTENTS);
  ASSERT_EQ(ranges.size(), 34u);
  EXPECT_EQ(ranges[1].offset, 8 * (10 * 4 + 8));
  EXPECT_EQ(ranges[2].offset, 8 * 10 * 4);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 8u * 12);
}

TEST(ContractGridSample, FormatsAndShapesAreRefusedInThisOrder) {
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  block.grid_addr = 0;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-01");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-02");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-03");
  block.grid_shape[1] = 15;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-03");
  EXPECT_STREQ(finding_of(call_of(kFunction, block), "TARVU-GRIDSAMPLE-03").line,
               "\033[1;31mERR:tarvu_gridsample_bilinear_fix() unsupported order: input 6x10x1x8, output 1x8x2x16, grid "
               "2x1x15x9\r\n\033[0m");
  block.out_fmt = support::format(16, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-02");
  block.in_fmt = support::format(16, 4, 1);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-01");
}

/// Calls the product with tensors of their own size; ends the process after a second.
void run_on_whole_tensors(_NN_GRIDSAMPLE_PARM block, const std::vector<uint8_t> &values) {
  const support::GuardedMemory in(size_t{48} * block.in_shape[2]), grid(64), out(256);
  std::copy(values.begin(), values.end(), grid.data());
  block.in_addr = in.address();
  block.grid_addr = grid.address();
  block.out_addr = out.address();
  alarm(1);
  tarvu_gridsample_process(&block);
  alarm(0);
}

TEST(ContractGridSampleDeathTest, AnOutputWidthOfZeroNeverEnds) {
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  block.grid_addr = 0;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-04");
  block.out_shape[0] = block.grid_shape[1] = 0;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-04");
  EXPECT_EXIT(run_on_whole_tensors(block, {}), testing::KilledBySignal(SIGALRM), "");
}

TEST(ContractGridSampleDeathTest, GridFractionBitsThatAreNoneReadAnywhere) {
  const std::vector<uint8_t> grid(64, 255);
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  block.grid_addr = address_of(grid);
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-05");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-16");
  block.grid_fmt.frac_bits = 16;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-16");
  block.grid_fmt.frac_bits = -8;
  block.in_shape[2] = 60000;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-05");
  EXPECT_DEATH(run_on_whole_tensors(block, grid), "");
}

TEST(ContractGridSampleDeathTest, AGridValueAboveOneReadsBehindTheImage) {
  std::vector<uint8_t> grid(64, 128);
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  block.grid_addr = address_of(grid);
  block.grid_fmt.frac_bits = 7;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-06");
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-07") << "1.0 is the last pixel, whose neighbours are read";
  grid[5] = 255;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-06");
  EXPECT_STREQ(
      finding_of(call_of(kFunction, block), "TARVU-GRIDSAMPLE-06").sentence,
      "A grid value for column 2 means position 9, but the input has 6 there: memory far behind the image is read.");
  EXPECT_DEATH(run_on_whole_tensors(block, grid), "");
}

TEST(ContractGridSampleDeathTest, ARowOutsideItsGroupIsWrittenBehindTheOutput) {
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  block.grid_addr = 0;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-07");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-08");
  block.row_offset = 1;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-08");
  EXPECT_DEATH(run_on_whole_tensors(block, {}), "");
}

TEST(ContractGridSample, WhatIsEasilyMeantOtherwiseIsTold) {
  _NN_GRIDSAMPLE_PARM block = plain_gridsample();
  block.grid_addr = 0;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-09");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-10");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-11");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-12");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-13");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-14");
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-15");
  block.in_shape[2] = 257;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-09");
  block.in_shape[0] = block.out_shape[2] = 9;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-10");
  EXPECT_EQ(cases::ranges_of(call_of(kFunction, block), 0)[2].extents[2].count, 16u);
  block.out_shape[0] = block.grid_shape[1] = 17;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-11");
  block.out_fmt.frac_bits = 13;
  block.out_fmt.int_bits = -6;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-13");
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-14");
}

TEST(ContractGridSample, PlanesHoldSamplesOfOtherColumnsAndColumnsBehindTheBlocksDoNot) {
  _NN_GRIDSAMPLE_PARM block = planar_gridsample();
  block.grid_addr = 0;
  EXPECT_NOT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-12");
  block.in_shape[2] = block.out_shape[2] = 2;
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-12");
  block.out_shape[0] = block.grid_shape[1] = 17;
  const auto ranges = cases::ranges_of(call_of(kFunction, block), 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(ranges[3].offset, 16);
  EXPECT_EQ(ranges[3].extents[0].count, 1u);
}

TEST(ContractGridSample, ShapesOfBothLayoutsAreInterleaved) {
  _NN_GRIDSAMPLE_PARM block = planar_gridsample();
  block.grid_addr = 0;
  for (uint16_t *shape : {block.in_shape, block.out_shape, block.grid_shape}) std::fill(shape, shape + 4, 2);
  EXPECT_FOUND(call_of(kFunction, block), "TARVU-GRIDSAMPLE-15");
}

}  // namespace
