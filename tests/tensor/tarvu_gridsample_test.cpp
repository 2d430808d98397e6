#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/support/guarded_memory.h"
#include "tests/tensor/gridsample_case.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::format;
using support::GuardedMemory;
using support::unreadable_address;

using Bytes = std::vector<uint8_t>;
using Signed = std::vector<int8_t>;

constexpr uint8_t kUnwritten = 0x77;

GridFormats formats(int in_frac_bits, int grid_frac_bits, int out_frac_bits, Type type = kInt8) {
  return {type, type, in_frac_bits, out_frac_bits, grid_frac_bits};
}

/// The output of a call. `image` and `grid` are what the tensors hold at their start; zeros follow.
template <class T>
std::vector<T> sampled(Layout layout, const GridShape &shape, const GridFormats &f, const std::vector<T> &image,
                       const Bytes &grid) {
  const GuardedMemory in(grid_input_bytes(layout, shape));
  const GuardedMemory positions(grid_grid_bytes(layout, shape));
  const GuardedMemory out(grid_output_bytes(layout, shape));
  in.fill(0);
  positions.fill(0);
  out.fill(kUnwritten);
  EXPECT_LE(image.size(), in.size());
  EXPECT_LE(grid.size(), positions.size());
  for (size_t i = 0; i < image.size(); ++i) in.as<T>()[i] = image[i];
  for (size_t i = 0; i < grid.size(); ++i) positions.data()[i] = grid[i];
  _NN_GRIDSAMPLE_PARM block = grid_block(layout, shape, f);
  block.in_addr = in.address();
  block.grid_addr = positions.address();
  block.out_addr = out.address();
  const Answer got = answer(::tarvu_gridsample_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
  EXPECT_EQ(out.guard_damage(), "");
  return values_in<T>(out);
}

TEST(GridSample, APositionOnARowTakesTheRowBelowIt) {
  const GridShape shape = {1, 1, 2, 2, 1, 1};
  for (const Layout layout : {Layout::kInterleaved, Layout::kPlanar}) {
    EXPECT_EQ(sampled<int8_t>(layout, shape, formats(0, 8, 0), {1, 2, 30, 40}, {0, 0}), (Signed{30}));
  }
}

TEST(GridSample, APositionOnTheLastPixelReadsOneRowPastTheImage) {
  const GridShape shape = {1, 1, 2, 2, 1, 1};
  // 1.0 with 7 fraction bits: column 1, row 1, blended from the row behind.
  EXPECT_EQ(sampled<int8_t>(Layout::kPlanar, shape, formats(0, 7, 0), {1, 2, 3, 4, 50, 60, 70}, {128, 128}),
            (Signed{60}));
}

TEST(GridSample, BetweenPixelsTheFourNeighboursBlendWithTruncation) {
  const GridShape shape = {1, 1, 2, 2, 1, 1};
  // Half way: R0 = 10 + (3 >> 1) = 11, R1 = 31 + (-5 >> 1) = 28, 28 + (-17 >> 1) = 19.
  EXPECT_EQ(sampled<int8_t>(Layout::kPlanar, shape, formats(0, 7, 0), {10, 13, 31, 26}, {64, 64}), (Signed{19}));
}

TEST(GridSample, OnlyTheVerticalTermIsScaledToTheOutput) {
  const GridShape shape = {1, 1, 2, 2, 1, 1};
  // R0 = 80, R1 = 40, fy = 64 of 128: 40 * 64 shifted right by 7 - 2 is 80, added to the base in the input's scale.
  EXPECT_EQ(sampled<int8_t>(Layout::kPlanar, shape, formats(0, 7, 2), {80, 80, 40, 40}, {0, 64}), (Signed{120}));
}

TEST(GridSample, InputElementsAreReadByTheSignOfTheirOwnFormat) {
  const GridShape shape = {1, 1, 2, 2, 1, 1};
  const Bytes image = {0x80, 0x7F, 0x80, 0x7F};
  GridFormats f = formats(0, 7, 0);
  f.out_type = kUint8;
  EXPECT_EQ(sampled<uint8_t>(Layout::kPlanar, shape, f, image, {64, 0}), (Bytes{0xFF}));  // -128 + (255 >> 1)
  f = formats(0, 7, 0, kUint8);
  f.out_type = kInt8;
  EXPECT_EQ(sampled<uint8_t>(Layout::kPlanar, shape, f, image, {64, 0}), (Bytes{0x7F}));  // 128 + (-1 >> 1)
}

TEST(GridSample, TheResultsLowByteIsStoredWithoutSaturation) {
  const GridShape shape = {1, 1, 1, 2, 1, 1};
  // R0 = 100, R1 = -100, fy = 127 of 128 with the term doubled: 200 * 127 >> 6 = 396, 296 in a byte is 40.
  EXPECT_EQ(sampled<int8_t>(Layout::kPlanar, shape, formats(0, 7, 1), {100, -100}, {0, 127}), (Signed{40}));
}

/// Nine columns of a planar channel: the first eight go through the block form and the last through the tail form.
Signed nine_columns(const GridShape &shape, const GridFormats &f, const Signed &image, uint8_t x, uint8_t y) {
  Bytes grid;
  for (int i = 0; i < 9; ++i) grid.insert(grid.end(), {x, y});
  return sampled<int8_t>(Layout::kPlanar, shape, f, image, grid);
}

TEST(GridSample, ABlockWrapsAt16BitsWhereTheTailDoesNot) {
  const GridShape shape = {1, 1, 2, 2, 9, 1};
  // R0: 255 * 255 is -511 in 16 bits, -130 after the shift and the base; 126 in full. R1 is 0, fy 128 of 256.
  const Signed got = nine_columns(shape, formats(0, 8, 0), {-128, 127, 0, 0}, 255, 128);
  EXPECT_EQ(got, (Signed{-65, -65, -65, -65, -65, -65, -65, -65, 63}));
}

TEST(GridSample, ABlockMultipliesByTheLowEightBitsOfTheLastColumn) {
  const GridShape shape = {1, 1, 300, 1, 9, 1};
  Signed image(600);  // two rows, the lower of which is taken
  for (size_t i = 0; i < 300; ++i) image[300 + i] = static_cast<int8_t>(i / 4);
  // 128 * 43 >> 7 is column 43, 128 * 299 >> 7 column 299.
  const Signed got = nine_columns(shape, formats(0, 7, 0), image, 128, 0);
  EXPECT_EQ(got, (Signed{10, 10, 10, 10, 10, 10, 10, 10, 74}));
}

TEST(GridSample, ABlockMultipliesByTheLowEightBitsOfTheLastRow) {
  const GridShape shape = {1, 1, 1, 300, 9, 1};
  Signed image(301);
  for (size_t i = 0; i < 301; ++i) image[i] = static_cast<int8_t>(i / 4);
  const Signed got = nine_columns(shape, formats(0, 7, 0), image, 0, 128);
  EXPECT_EQ(got, (Signed{11, 11, 11, 11, 11, 11, 11, 11, 75}));
}

TEST(GridSample, AnOutputOfMoreFractionBitsShiftsABlockLeftAndLeavesTheBaseAloneInTheTail) {
  const GridShape shape = {1, 1, 1, 2, 9, 1};
  // s = 0 + 2 - 3 = -1. R0 = 7, R1 = 5, fy = 1: 5 + (2 << 1), and 5 + (2 << 31).
  EXPECT_EQ(nine_columns(shape, formats(0, 2, 3), {7, 5}, 0, 1), (Signed{9, 9, 9, 9, 9, 9, 9, 9, 5}));
}

TEST(GridSample, FarEnoughLeftTheTailShiftsAgain) {
  const GridShape shape = {1, 1, 1, 2, 9, 1};
  // s = 0 + 2 - 32 = -30: the block shifts everything out, the tail shifts by 2.
  EXPECT_EQ(nine_columns(shape, formats(0, 2, 32), {7, 5}, 0, 1), (Signed{5, 5, 5, 5, 5, 5, 5, 5, 13}));
}

TEST(GridSample, PlanarBlocksStoreNeighbouringColumnsAsTheChannelsBehind) {
  // Three channels of a 32 x 2 image; the lower row, which a position on the upper one takes, counts up in channel 0.
  const GridShape shape = {3, 1, 32, 2, 16, 1};
  Signed image(size_t{3} * 64, 99);
  for (size_t i = 0; i < 32; ++i) image[32 + i] = static_cast<int8_t>(i);
  Bytes grid;
  for (uint8_t i = 0; i < 16; ++i) grid.insert(grid.end(), {static_cast<uint8_t>(4 * i), 0});
  Signed expected;
  for (int lane = 0; lane < 3; ++lane) {
    for (int i = 0; i < 16; ++i) expected.push_back(static_cast<int8_t>(4 * i * 31 / 128 + lane));
  }
  EXPECT_EQ(sampled<int8_t>(Layout::kPlanar, shape, formats(0, 7, 0), image, grid), expected);
}

TEST(GridSample, TheColumnsBehindThePlanarBlocksAreExactInEveryChannel) {
  const GridShape shape = {3, 1, 2, 2, 9, 1};
  const Signed got = sampled<int8_t>(Layout::kPlanar, shape, formats(0, 8, 0),
                                     {0, 0, 10, 11, 0, 0, 20, 21, 0, 0, 30, 31}, Bytes(18, 0));
  EXPECT_EQ((Signed{got[8], got[17], got[26]}), (Signed{10, 20, 30}));
  EXPECT_EQ((Signed{got[0], got[9], got[18]}), (Signed{10, 11, 0}));
}

TEST(GridSample, InterleavedBlocksHoldEveryChannelExactly) {
  const GridShape shape = {3, 1, 2, 2, 1, 1};
  const Signed got = sampled<int8_t>(Layout::kInterleaved, shape, formats(0, 8, 0),
                                     {0, 0, 0, 0, 0, 0, 10, 20, 30, 11, 21, 31}, {0, 0});
  EXPECT_EQ(got, (Signed{10, 20, 30}));
}

TEST(GridSample, TheLastColumnsOfAnInterleavedOutputStayAsTheyWere) {
  const GridShape shape = {1, 1, 1, 1, 20, 2};
  const Bytes got = sampled<uint8_t>(Layout::kInterleaved, shape, formats(0, 7, 0, kUint8), {1, 2, 3}, {});
  for (size_t i = 0; i < 40; ++i) EXPECT_EQ(got[i], i % 20 < 16 ? 2 : kUnwritten) << i;
}

TEST(GridSample, ChannelsThatAreNoMultipleOfEightSpillIntoThePlanesBehindTheTensor) {
  const GridShape shape = {9, 1, 1, 1, 2, 1};
  Bytes image(9, 0);
  for (uint8_t c = 0; c < 16; ++c) image.push_back(static_cast<uint8_t>(c + 1));  // the row behind the only one
  const Bytes got = sampled<uint8_t>(Layout::kInterleaved, shape, formats(0, 7, 0, kUint8), image, {});
  ASSERT_EQ(got.size(), 32u);
  for (size_t c = 0; c < 16; ++c) EXPECT_EQ(got[2 * c], c + 1);
}

TEST(GridSample, ACallFillsItsOwnRowOfEachGroup) {
  const GridShape shape = {1, 1, 1, 1, 2, 2, 3, 1};
  const Bytes got = sampled<uint8_t>(Layout::kInterleaved, shape, formats(0, 7, 0, kUint8), {1, 2, 3}, {});
  const uint8_t u = kUnwritten;
  EXPECT_EQ(got, (Bytes{u, u, 2, 2, u, u, u, u, 2, 2, u, u}));
}

TEST(GridSample, ShapesThatFitBothLayoutsAreInterleaved) {
  // Input 2, 1, 2, 1: two interleaved channels of a 2 x 1 image, or two planes of one of the same size.
  _NN_GRIDSAMPLE_PARM block{};
  for (size_t i = 0; i < 4; ++i) {
    block.in_shape[i] = i == 0 || i == 2 ? 2 : 1;
    block.out_shape[i] = block.in_shape[i];
    block.grid_shape[i] = 1;
  }
  block.out_shape[0] = 1;
  block.grid_shape[0] = 2;
  block.in_fmt = block.out_fmt = kUint8.fmt();
  block.grid_fmt = kUint8.fmt(7);
  block.row_group = 1;
  const GuardedMemory in(32);
  const GuardedMemory grid(16);
  const GuardedMemory out(2);
  grid.fill(0);
  for (size_t i = 0; i < 32; ++i) in.data()[i] = static_cast<uint8_t>(i);
  block.in_addr = in.address();
  block.grid_addr = grid.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gridsample_process(&block), QX_OK);
  EXPECT_EQ(values_in<uint8_t>(out), (Bytes{4, 5}));  // a planar image would give 2 and 3
}

TEST(GridSample, PixelsBeyondFourGibibytesAreReached) {
  // Without fraction bits grid value 255 is row 255 * 255, of 90000 bytes each.
  const GridShape shape = {3, 1, 30000, 256, 8, 1};
  const FarRoom room(size_t{90000} * 65027 + 16);
  const size_t pixel = size_t{90000} * (65025 + 1) + 3 * 47;  // the low 8 bits of 29999 are 47
  const uint8_t values[3] = {11, 22, 33};
  std::copy(values, values + 3, room.data() + pixel);
  const GuardedMemory grid(grid_grid_bytes(Layout::kInterleaved, shape));
  const GuardedMemory out(grid_output_bytes(Layout::kInterleaved, shape));
  for (size_t i = 0; i < grid.size(); ++i) grid.data()[i] = i % 2 == 0 ? 1 : 255;
  _NN_GRIDSAMPLE_PARM block = grid_block(Layout::kInterleaved, shape, formats(0, 0, 0, kUint8));
  block.in_addr = room.address();
  block.grid_addr = grid.address();
  block.out_addr = out.address();
  EXPECT_EQ(::tarvu_gridsample_process(&block), QX_OK);
  const Bytes got = values_in<uint8_t>(out);
  EXPECT_EQ((Bytes{got[0], got[8], got[16]}), (Bytes{11, 22, 33}));
  EXPECT_EQ((Bytes{got[7], got[15], got[23]}), (Bytes{11, 22, 33}));
}

/// A block with pixels to sample, all of whose addresses fault.
_NN_GRIDSAMPLE_PARM block_that_must_not_be_touched(Layout layout = Layout::kPlanar) {
  _NN_GRIDSAMPLE_PARM block = grid_block(layout, {3, 1, 4, 5, 6, 7}, formats(0, 7, 0));
  block.in_addr = block.grid_addr = block.out_addr = unreadable_address();
  return block;
}

TEST(GridSample, AnInputTypeOtherThanEightBitsPrintsItsCodeFirst) {
  _NN_GRIDSAMPLE_PARM block = block_that_must_not_be_touched();
  block.out_fmt = format(32, 0, 1);  // checked later
  block.in_fmt = format(16, 0, 1);
  Answer got = answer(::tarvu_gridsample_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gridsample_process() unsupported input type 2\r\n\033[0m");
  block.in_fmt = format(24, 0, 1);
  got = answer(::tarvu_gridsample_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gridsample_process() unsupported input type -1\r\n\033[0m");
}

TEST(GridSample, AnOutputTypeOtherThanEightBitsPrintsItsCodeAheadOfTheShapes) {
  for (const Type &type : {kInt8, kUint8}) {
    _NN_GRIDSAMPLE_PARM block = block_that_must_not_be_touched();
    block.in_fmt = type.fmt();
    block.in_shape[2] = 99;  // checked later
    block.out_fmt = format(32, 0, 1);
    const Answer got = answer(::tarvu_gridsample_process, block);
    EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
    EXPECT_EQ(got.text, "\033[1;31mERR:tarvu_gridsample_out_type() unsupported output type 4\r\n\033[0m");
  }
}

TEST(GridSample, ShapesOfNeitherLayoutArePrintedSlowestDimensionFirst) {
  _NN_GRIDSAMPLE_PARM block = block_that_must_not_be_touched();
  block.grid_shape[0] = 3;
  const Answer got = answer(::tarvu_gridsample_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text,
            "\033[1;31mERR:tarvu_gridsample_bilinear_fix() unsupported order: input 1x3x5x4, output 1x3x7x6, "
            "grid 1x7x6x3\r\n\033[0m");
}

TEST(GridSample, EveryExtentThatALayoutComparesIsComparedInIt) {
  for (const Layout layout : {Layout::kInterleaved, Layout::kPlanar}) {
    const bool interleaved = layout == Layout::kInterleaved;
    for (size_t i = 0; i < 12; ++i) {
      _NN_GRIDSAMPLE_PARM block = block_that_must_not_be_touched(layout);
      uint16_t *shapes[3] = {block.in_shape, block.out_shape, block.grid_shape};
      shapes[i / 4][i % 4] = 60000;
      // The image's width and height are free, and the first grid extent of the interleaved layout.
      const bool is_free = interleaved ? i == 2 || i == 3 || i == 8 : i == 0 || i == 1;
      if (is_free) block.out_shape[1] = block.grid_shape[interleaved ? 3 : 2] = 0;  // so that nothing is touched
      EXPECT_EQ(answer(::tarvu_gridsample_process, block).result, is_free ? QX_OK : QX_ERR_UNSUPPORTED) << i;
    }
  }
}

TEST(GridSample, NoBatchAndNoRowsTouchNothing) {
  for (const Layout layout : {Layout::kInterleaved, Layout::kPlanar}) {
    for (const GridShape &shape : {GridShape{3, 0, 4, 5, 6, 7}, GridShape{3, 1, 4, 5, 6, 0}}) {
      _NN_GRIDSAMPLE_PARM block = grid_block(layout, shape, formats(0, 7, 0));
      block.in_addr = block.grid_addr = block.out_addr = unreadable_address();
      const Answer got = answer(::tarvu_gridsample_process, block);
      EXPECT_EQ(got.result, QX_OK);
      EXPECT_EQ(got.text, "");
    }
  }
}

TEST(GridSample, NoChannelsStoreNothing) {
  for (const Layout layout : {Layout::kInterleaved, Layout::kPlanar}) {
    const GridShape shape = {0, 1, 4, 5, 9, 2};
    const GuardedMemory grid(grid_grid_bytes(layout, shape));
    _NN_GRIDSAMPLE_PARM block = grid_block(layout, shape, formats(0, 7, 0));
    block.in_addr = block.out_addr = unreadable_address();
    block.grid_addr = grid.address();
    EXPECT_EQ(::tarvu_gridsample_process(&block), QX_OK);
  }
}

}  // namespace
