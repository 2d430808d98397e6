#include "simd/bilinear.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "tests/support/random.h"

namespace {

using namespace tarvu;

constexpr int kCounts = 300;  // more than two formats can ask for, to either side

/// A 16-bit word shifted by any count, in words that hold the whole result.
uint16_t shifted(int64_t x, int right) {
  if (right < 0) return right <= -16 ? uint16_t{0} : static_cast<uint16_t>(x * (int64_t{1} << -right));
  return static_cast<uint16_t>(x >> (right < 40 ? right : 40));
}

TEST(LaneShift, AProductKeepsItsSignToTheRightAndLosesItsBitsToTheLeftForEveryCount) {
  const s16x8 values = {0, 1, -1, 2, 12345, -12345, INT16_MAX, INT16_MIN};
  for (int right = -kCounts; right <= kCounts; ++right) {
    const LaneShift shift(right);
    const u16x8 got = shift.of_product(u16x8(values) * shift.factor(fill<u16x8>(1)));
    for (int lane = 0; lane < 8; ++lane) ASSERT_EQ(got[lane], shifted(values[lane], right)) << right << " " << lane;
  }
}

TEST(LaneShift, AnUnsignedLaneIsFilledWithZerosForEveryCount) {
  const u16x8 values = {0, 1, 2, 255, 12345, 32768, 65025, 65535};
  for (int right = -kCounts; right <= kCounts; ++right) {
    const u16x8 got = LaneShift(right).of_unsigned(values);
    for (int lane = 0; lane < 8; ++lane) ASSERT_EQ(got[lane], shifted(values[lane], right)) << right << " " << lane;
  }
}

TEST(TransposedBytes, RowsHoldTheLowByteOfTheirLaneOfEveryPoint) {
  support::Random random(0xB11);
  uint8_t bytes[8][8];
  random.fill(bytes, sizeof bytes);
  StepLanes steps[TransposedBytes::kSteps];
  for (uint32_t step = 0; step < TransposedBytes::kSteps; ++step) {
    const StepBytes<uint8_t> points = load_step<uint8_t>(bytes[step], bytes[(step + 4) % 8]);
    steps[step] = StepLanes(widened(points)) + 0xAB00;
  }
  const TransposedBytes transposed(steps);
  for (uint32_t lane = 0; lane < 8; ++lane) {
    uint8_t row[8];
    transposed.store_row(lane, row);
    for (uint32_t point = 0; point < 8; ++point) EXPECT_EQ(row[point], bytes[point][lane]) << point << " " << lane;
  }
}

template <uint32_t lane>
void expect_factor(u16x8 factors, StepLanes values) {
  const StepLanes got = values * LaneFactor<lane>{factors};
  for (int k = 0; k < kLanes<StepLanes>; ++k) {
    EXPECT_EQ(got[k], static_cast<uint16_t>(values[k] * factors[static_cast<int>(lane) + (k < 8 ? 0 : 4)]));
  }
}

TEST(LaneFactor, EachPointOfAStepIsMultipliedByItsOwnLane) {
  support::Random random(0xB12);
  u16x8 factors;
  StepLanes values;
  random.fill(&factors, sizeof factors);
  random.fill(&values, sizeof values);
  expect_factor<0>(factors, values);
  expect_factor<1>(factors, values);
  expect_factor<2>(factors, values);
  expect_factor<3>(factors, values);
}

TEST(EightSums, SumsOfProductsAreThoseOf32Bits) {
  support::Random random(0xB13);
  u16x8 a;
  u16x8 b;
  random.fill(&a, sizeof a);
  random.fill(&b, sizeof b);
  const EightSums sums = sum_of_products(a, 0x12345u, b, 0xFFFFu);
  const EightSums narrow_sums = product_and_sum(a, 0xFFFF, b);
  for (uint32_t lane = 0; lane < 8; ++lane) {
    const uint32_t wide_a = a[static_cast<int>(lane)];
    const uint32_t wide_b = b[static_cast<int>(lane)];
    EXPECT_EQ(sums[lane], wide_a * 0x12345u + wide_b * 0xFFFFu);
    EXPECT_EQ(narrow_sums[lane], wide_a * 0xFFFFu + wide_b);
  }
}

}  // namespace
