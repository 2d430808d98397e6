#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/pool/pool_case.h"
#include "tests/support/guarded_memory.h"

namespace {

using namespace pool_test;
using support::GuardedMemory;

using Elements = std::vector<int32_t>;

constexpr uint32_t kCountPad = 0;
constexpr uint32_t kNonCountPad = 1;

Plane line_of(const Elements &elements) { return Plane(kInt8, kInt8, static_cast<int>(elements.size()), 1, elements); }

TEST(PoolWindow, TheCeilRuleKeepsAPartialWindowAtTheEndOfALine) {
  EXPECT_EQ(line_of({9, 8, 7, 1, 2, 3}).columns(3, 2).pooled(3, 1), (Elements{9, 7, 3}));
}

TEST(PoolWindow, TheFloorRuleDropsThePartialWindow) {
  for (const uint32_t floor_mode : {1u, 0x100u, 0x80000000u}) {
    EXPECT_EQ(line_of({1, 2, 3, 4, 5, 99}).columns(3, 2).floor_mode(floor_mode).pooled(3, 1),
              (Elements{3, 5, kUntouched}));
  }
}

TEST(PoolWindow, TheCeilRuleAddsALineOfWindowsTheSameWay) {
  Plane plane(kInt8, kInt8, 1, 6, {9, 8, 7, 1, 2, 3});
  EXPECT_EQ(plane.rows(3, 2).pooled(1, 3), (Elements{9, 7, 3}));
  EXPECT_EQ(plane.floor_mode(1).pooled(1, 3), (Elements{9, 7, kUntouched}));
}

TEST(PoolWindow, AWindowInTheRightPaddingAloneIsNotWritten) {
  EXPECT_EQ(line_of({5, 4, 3, 2, 1}).columns(3, 3, 0, 2).pooled(3, 1), (Elements{5, 2, kUntouched}));
}

TEST(PoolWindow, AWindowInTheBottomPaddingAloneIsNotWritten) {
  Plane plane(kInt8, kInt8, 1, 5, {5, 4, 3, 2, 1});
  EXPECT_EQ(plane.rows(3, 3, 0, 2).pooled(1, 3), (Elements{5, 2, kUntouched}));
}

TEST(PoolWindow, AWindowWiderThanThePaddedLineStillHasAnExtraColumnUnderTheCeilRule) {
  EXPECT_EQ(line_of({4, 3, 2, 1}).columns(9, 3).pooled(2, 1), (Elements{4, 1}));
  EXPECT_EQ(line_of({4, 3, 2, 1}).columns(9, 3).floor_mode(1).pooled(2, 1), (Elements{4, kUntouched}));
  EXPECT_EQ(Plane(kInt8, kInt8, 1, 4, {4, 3, 2, 1}).rows(9, 3).pooled(1, 2), (Elements{4, 1}));
}

TEST(PoolWindow, TheSecondLineOfWindowsStartsAtA32BitProduct) {
  constexpr size_t kBytes = (size_t{1} << 32) + (size_t{1} << 28);
  void *const mapping =
      mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(mapping, MAP_FAILED);
  auto *const plane = static_cast<uint8_t *>(mapping);
  plane[0] = 11;
  plane[size_t{1} << 32] = 99;
  for (const uint32_t mode : {0u, 1u}) {
    uint8_t out[2] = {};
    _NN_POOL_PARM parm{};
    parm.in_addr = reinterpret_cast<uintptr_t>(plane);
    parm.out_addr = reinterpret_cast<uintptr_t>(out);
    parm.width = 1;
    parm.height = 17;
    parm.channel = parm.batch = 1;
    parm.in_line_ofs = 0x10000000;
    parm.out_line_ofs = 1;
    parm.in_fmt = parm.out_fmt = {0, 8, 0, 0};
    parm.in_scale.scale_value = parm.out_scale.scale_value = 1;
    parm.mode = mode;
    parm.kernel_w = parm.kernel_h = parm.stride_w = 1;
    parm.stride_h = 16;
    EXPECT_EQ(tarvu_pool_process(&parm), QX_OK);
    EXPECT_EQ(out[0], 11) << mode;
    EXPECT_EQ(out[1], 11) << mode << ": 16 lines of 2^28 bytes are no distance at all";
  }
  munmap(mapping, kBytes);
}

TEST(PoolWindow, AStrideOfZeroHasNoColumnBetweenTheFirstAndTheExtraOne) {
  EXPECT_EQ(line_of({1, 2, 3, 9, 5}).columns(3, 0).pooled(3, 1), (Elements{3, 9, kUntouched}));
  EXPECT_EQ(line_of({1, 2, 3, 9, 5}).columns(3, 0).floor_mode(1).pooled(2, 1), (Elements{3, kUntouched}));
  EXPECT_EQ(line_of({1, 2, 3}).columns(3, 0).pooled(2, 1), (Elements{3, kUntouched}));
  EXPECT_EQ(Plane(kInt8, kInt8, 1, 5, {1, 2, 3, 9, 5}).rows(3, 0).pooled(1, 3), (Elements{3, 9, kUntouched}));
}

TEST(PoolWindow, AStrideAboveTheKernelSkipsElements) {
  EXPECT_EQ(line_of({1, 99, 99, 2, 99, 99, 3}).columns(1, 3).pooled(3, 1), (Elements{1, 2, 3}));
}

TEST(PoolWindow, AFirstLineWithoutInputIsTheOutputOfTheLeastWord) {
  Plane plane(kInt8, kInt8, 2, 4, {1, 2, 3, 4, 5, 6, 7, 8});
  EXPECT_EQ(plane.columns(1, 1).rows(2, 2, 2).pooled(2, 3), (Elements{-128, -128, 3, 4, 7, 8}));
  EXPECT_EQ(plane.multipliers(2, 1).pooled(2, 3), (Elements{0, 0, 6, 8, 14, 16}));
}

TEST(PoolWindow, AFirstColumnWithoutInputIsTheOutputOfTheLeastWord) {
  EXPECT_EQ(line_of({1, 2, 3, 4}).columns(2, 2, 2).pooled(3, 1), (Elements{-128, 2, 4}));
}

TEST(PoolWindow, AnInnerWindowBehindTheInputIsTheOutputOfTheLeastWord) {
  EXPECT_EQ(line_of({1, 2}).columns(2, 2, 0, 4).pooled(3, 1), (Elements{2, -128, -128}));
}

TEST(PoolWindow, AWindowWithoutExtentIsEmptyEverywhere) {
  EXPECT_EQ(line_of({1, 2, 3}).columns(0, 1).pooled(4, 1), (Elements{-128, -128, -128, -128}));
  EXPECT_EQ(line_of({1, 2, 3}).columns(0, 1).mode(kLocalAverage).pooled(4, 1), (Elements{0, 0, 0, 0}));
  EXPECT_EQ(line_of({1, 2, 3}).columns(0, 1).mode(kLocalAverage, kNonCountPad).pooled(4, 1), (Elements{0, 0, 0, 0}));
}

TEST(PoolWindow, APlaneWithoutElementsStillHasItsGrid) {
  EXPECT_EQ(Plane(kInt8, kInt8, 0, 2, {}).columns(1, 1, 1, 1).rows(1, 1).pooled(2, 2),
            (Elements{-128, -128, -128, -128}));
  EXPECT_EQ(Plane(kInt8, kInt8, 2, 0, {}).columns(1, 1).rows(1, 1, 1, 0).mode(kLocalAverage).pooled(2, 1),
            (Elements{0, 0}));
}

/// Columns 0 to 1, 1 to 3, 3 to 5 and 5 to 6, and rows alike.
Plane plane_of_nine_regions(const Elements &elements) {
  Plane plane(kInt8, kInt8, 7, 7, elements);
  plane.columns(3, 2, 1).rows(3, 2, 1);
  return plane;
}

TEST(PoolWindow, NineRegionsCoverTheirOwnElements) {
  Elements ascending;
  Elements descending;
  for (int32_t i = 0; i < 49; ++i) {
    ascending.push_back(i);
    descending.push_back(-i);
  }
  EXPECT_EQ(plane_of_nine_regions(ascending).pooled(4, 4),
            (Elements{8, 10, 12, 13, 22, 24, 26, 27, 36, 38, 40, 41, 43, 45, 47, 48}));
  EXPECT_EQ(plane_of_nine_regions(descending).pooled(4, 4),
            (Elements{0, -1, -3, -5, -7, -8, -10, -12, -21, -22, -24, -26, -35, -36, -38, -40}));
}

TEST(PoolWindow, NineRegionsHaveTheirOwnDivisors) {
  const Elements elements(49, 36);
  // 36 times the elements of a window over 9, 6 or 4.
  EXPECT_EQ(plane_of_nine_regions(elements).mode(kLocalAverage, kCountPad).pooled(4, 4),
            (Elements{16, 24, 24, 24, 24, 36, 36, 36, 24, 36, 36, 36, 24, 36, 36, 36}));
  EXPECT_EQ(plane_of_nine_regions(elements).mode(kLocalAverage, kNonCountPad).pooled(4, 4), Elements(16, 36));
}

TEST(PoolWindow, APadAboveTheStrideReadsTheElementsInFrontOfTheLine) {
  Plane plane(kInt8, kInt8, 4, 3, {0, 0, 0, 70, 1, 2, 3, 60, 5, 6, 7, 8});
  plane.block.height = 2;
  plane.block.in_addr += 4;
  plane.columns(2, 1, 2).rows(1, 1);
  EXPECT_EQ(plane.pooled(5, 2), (Elements{-128, 70, 2, 3, 60, -128, 60, 6, 7, 8}));
  EXPECT_EQ(plane.mode(kLocalAverage, kNonCountPad).pooled(5, 2), (Elements{0, 36, 2, 3, 32, 0, 33, 6, 7, 8}));
}

TEST(PoolWindow, APadAboveTheStrideFormsTheStartOfTheLinesAsAnUnsignedProductOf32Bits) {
  Plane plane(kInt8, kInt8, 4, 5, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4});
  plane.block.height = 0;
  plane.block.in_line_ofs = 0xFFFFFFF0u;  // one line up is 16 bytes on
  EXPECT_EQ(plane.rows(1, 1, 2).pooled(4, 2), (Elements{-128, -128, -128, -128, 1, 2, 3, 4}));
}

TEST(PoolWindow, APadAboveTheStrideCountsTheLinesAboveThePlane) {
  Plane plane(kInt8, kInt8, 2, 2, {10, 20});
  plane.block.in_line_ofs = 0;
  plane.rows(3, 1, 2, 1).mode(kLocalAverage, kCountPad);
  // One line over 3, then the lines -1 to 1 and 0 to 1.
  EXPECT_EQ(plane.pooled(2, 3), (Elements{3, 7, 10, 20, 7, 13}));
}

TEST(PoolWindow, LinesChannelsAndBatchItemsLieAtTheirOffsetsAndTheBytesBetweenAreKept) {
  _NN_POOL_PARM block = plain_block(kInt8, kInt16);
  block.width = 2;
  block.height = 2;
  block.channel = 2;
  block.batch = 2;
  block.in_line_ofs = 3;
  block.in_channel_ofs = 7;
  block.in_batch_ofs = 16;
  block.out_line_ofs = 5;
  block.out_channel_ofs = 11;
  block.out_batch_ofs = 24;
  block.out_scale = support::scale(1, 8);
  const GuardedMemory input(16 + 7 + 3 + 2);
  for (size_t i = 0; i < input.size(); ++i) input.data()[i] = static_cast<uint8_t>(i);
  const GuardedMemory output(24 + 11 + 5 + 4);
  output.fill(kUntouchedByte);
  block.in_addr = input.address();
  block.out_addr = output.address();
  ASSERT_EQ(::tarvu_pool_process(&block), QX_OK);

  std::vector<uint8_t> expected(output.size(), kUntouchedByte);
  for (size_t item = 0; item < 2; ++item) {
    for (size_t channel = 0; channel < 2; ++channel) {
      for (size_t line = 0; line < 2; ++line) {
        for (size_t column = 0; column < 2; ++column) {
          const size_t at = item * 24 + channel * 11 + line * 5 + column * 2;
          expected[at] = static_cast<uint8_t>(item * 16 + channel * 7 + line * 3 + column);
          expected[at + 1] = 0;
        }
      }
    }
  }
  EXPECT_EQ(std::vector<uint8_t>(output.data(), output.data() + output.size()), expected);
  EXPECT_EQ(output.guard_damage(), "");
}

TEST(PoolWindow, OfOutputLinesThatOverlapTheLaterOneWins) {
  Plane plane(kInt8, kInt8, 3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
  const GuardedMemory output(5);
  for (const uint32_t line_bytes : {0u, 1u}) {
    output.fill(kUntouchedByte);
    plane.block.out_addr = output.address();
    plane.block.out_line_ofs = line_bytes;
    ASSERT_EQ(::tarvu_pool_process(&plane.block), QX_OK);
    const std::vector<uint8_t> got(output.data(), output.data() + output.size());
    const std::vector<uint8_t> same_line = {7, 8, 9, kUntouchedByte, kUntouchedByte};
    const std::vector<uint8_t> one_on = {1, 4, 7, 8, 9};
    EXPECT_EQ(got, line_bytes == 0 ? same_line : one_on);
  }
}

TEST(PoolMaximum, ElementsAreComparedByTheirOwnSignedness) {
  EXPECT_EQ(Plane(kUint8, kUint8, 2, 1, {200, 100}).columns(2, 1).pooled(1, 1)[0], 200);
  EXPECT_EQ(Plane(kInt8, kUint8, 2, 1, {200, 100}).columns(2, 1).pooled(1, 1)[0], 100);
  EXPECT_EQ(Plane(kUint16, kUint16, 2, 1, {40000, 20000}).columns(2, 1).pooled(1, 1)[0], 40000);
  EXPECT_EQ(Plane(kInt16, kUint16, 2, 1, {40000, 20000}).columns(2, 1).pooled(1, 1)[0], 20000);
}

TEST(PoolMaximum, ANegativeMultiplierMakesTheGreatestElementTheLeast) {
  EXPECT_EQ(line_of({3, 9, -4}).columns(2, 1).multipliers(-1, 1).pooled(2, 1), (Elements{-9, -9}));
  EXPECT_EQ(line_of({3, 9, -4}).columns(2, 1).multipliers(3, -2).shifts(0, 2).pooled(2, 1), (Elements{-13, -13}));
}

TEST(PoolMaximum, TheNonCountPadFieldHasNoEffect) {
  Plane plane(kInt8, kInt8, 5, 1, {5, 4, 3, 2, 1});
  plane.columns(3, 3, 0, 2);
  plane.block.non_count_pad = 1;
  plane.block.out_batch_ofs = 3;
  EXPECT_EQ(plane.pooled(3, 1), (Elements{5, 2, kUntouched}));
}

}  // namespace
