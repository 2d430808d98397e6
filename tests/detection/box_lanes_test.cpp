// Lane operations of the detection operators against what their comments state.
#include "detection/box_lanes.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <vector>

#include "simd/doubles.h"
#include "simd/runs.h"
#include "tests/support/random.h"
#include "tests/support/special_floats.h"

namespace {

using support::Random;
using tarvu::f32x4;
using tarvu::f32xn;
using tarvu::f64x2;
using tarvu::s32x4;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

uint32_t bits(float x) { return std::bit_cast<uint32_t>(x); }

TEST(BoxLanes, FourBoxesAreTakenApartByCoordinate) {
  float boxes[16];
  for (int i = 0; i < 16; ++i) boxes[i] = static_cast<float>(i);
  const tarvu::BoxLanes lanes = tarvu::load_boxes(boxes);
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(lanes.xmin[k], boxes[4 * k]);
    EXPECT_EQ(lanes.ymin[k], boxes[4 * k + 1]);
    EXPECT_EQ(lanes.xmax[k], boxes[4 * k + 2]);
    EXPECT_EQ(lanes.ymax[k], boxes[4 * k + 3]);
  }
}

TEST(BoxLanes, PairsComeBackAsTheyWere) {
  const float pairs[8] = {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f};
  const tarvu::PairLanes lanes = tarvu::load_pairs(pairs);
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(lanes.first[k], pairs[2 * k]);
    EXPECT_EQ(lanes.second[k], pairs[2 * k + 1]);
  }
  float stored[8] = {};
  tarvu::store_pairs(stored, lanes);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(stored[i], pairs[i]);
}

TEST(BoxLanes, DoublePrecisionTakesAndGivesHalves) {
  const f32x4 lanes = {1.5f, -2.5f, 3.0f, 0x1p-149f};
  const f64x2 lower = tarvu::widen_low(lanes);
  const f64x2 upper = tarvu::widen_high(lanes);
  EXPECT_EQ(lower[0], 1.5);
  EXPECT_EQ(lower[1], -2.5);
  EXPECT_EQ(upper[0], 3.0);
  EXPECT_EQ(upper[1], 0x1p-149);
  // Ties to even, a tie below the least float to 0, and too large to infinity.
  const f32x4 narrowed = tarvu::narrow(f64x2{1.0 + 0x1p-24, 1.0 + 0x3p-24}, f64x2{0x1p-150, 0x1p128});
  EXPECT_EQ(narrowed[0], 1.0f);
  EXPECT_EQ(narrowed[1], 0x1.000004p0f);
  EXPECT_EQ(bits(narrowed[2]), bits(0.0f));
  EXPECT_EQ(narrowed[3], std::numeric_limits<float>::infinity());
}

template <class V>
float clamped(float x) {
  V lanes{};
  lanes[1] = x;
  const V result = tarvu::clamp_to_unit(lanes);
  return result[1];
}

TEST(BoxLanes, ClampingKeepsNanAndMakesNegativeZeroPositive) {
  EXPECT_NE(clamped<f32x4>(kNan), clamped<f32x4>(kNan));
  EXPECT_NE(clamped<f32xn>(kNan), clamped<f32xn>(kNan));
  for (const float x : support::kSpecialFloats) {
    if (x != x) continue;
    const float expected = x > 0.0f ? (x > 1.0f ? 1.0f : x) : 0.0f;
    EXPECT_EQ(bits(clamped<f32x4>(x)), bits(expected)) << x;
    EXPECT_EQ(bits(clamped<f32xn>(x)), bits(expected)) << x;
  }
}

TEST(BoxLanes, APositiveNumberIsNeverNanNorNegativeZero) {
  for (const uint32_t nan : {0x7FC00000u, 0xFFC00000u, 0x7F800001u, 0xFF800001u, 0x7FBFFFFFu, 0xFFFFFFFFu}) {
    EXPECT_EQ(bits(tarvu::positive_number(std::bit_cast<float>(nan))), 0u) << std::hex << nan;
    EXPECT_EQ(bits(tarvu::number_in_unit(std::bit_cast<float>(nan))), 0u) << std::hex << nan;
  }
  for (const float x : support::kSpecialFloats) {
    const float expected = x > 0.0f ? (x > 1.0f ? 1.0f : x) : 0.0f;
    EXPECT_EQ(bits(tarvu::positive_number(x)), bits(x > 0.0f ? x : 0.0f)) << x;
    EXPECT_EQ(bits(tarvu::number_in_unit(x)), bits(expected)) << x;
  }
}

TEST(BoxLanes, AnyIsTrueForEachLane) {
  EXPECT_FALSE(tarvu::any(s32x4{}));
  for (int k = 0; k < 4; ++k) {
    s32x4 mask{};
    mask[k] = -1;
    EXPECT_TRUE(tarvu::any(mask)) << k;
  }
  EXPECT_FALSE(tarvu::any(tarvu::s32xn{}));
  for (int k = 0; k < tarvu::kLanes<tarvu::s32xn>; ++k) {
    tarvu::s32xn mask{};
    mask[k] = -1;
    EXPECT_TRUE(tarvu::any(mask)) << k;
  }
}

TEST(BoxLanes, SelectTakesWholeLanes) {
  const f32x4 chosen =
      tarvu::select(s32x4{-1, 0, 0, -1}, f32x4{1.0f, 2.0f, 3.0f, -0.0f}, f32x4{5.0f, -0.0f, kNan, 8.0f});
  EXPECT_EQ(chosen[0], 1.0f);
  EXPECT_EQ(bits(chosen[1]), bits(-0.0f));
  EXPECT_NE(chosen[2], chosen[2]);
  EXPECT_EQ(bits(chosen[3]), bits(-0.0f));
}

std::vector<size_t> found(const std::vector<float> &values, float threshold) {
  std::vector<size_t> places;
  tarvu::for_each_at_least(values.data(), values.size(), threshold, [&](size_t i) { places.push_back(i); });
  return places;
}

TEST(ForEachAtLeast, FindsWhatALoopFindsInAscendingOrder) {
  Random random = support::test_random(462);
  SCOPED_TRACE(random.trace());
  for (size_t count = 0; count < 100; ++count) {
    for (const uint32_t rarity : {1u, 3u, 20u}) {
      std::vector<float> values(count);
      for (float &value : values) value = random.one_in(rarity) ? random.any_float() : -1.0f;
      for (const float threshold : {0.5f, 0.0f, -0.0f, random.any_float()}) {
        std::vector<size_t> expected;
        for (size_t i = 0; i < count; ++i) {
          if (values[i] >= threshold) expected.push_back(i);
        }
        EXPECT_EQ(found(values, threshold), expected) << count << ' ' << threshold;
      }
    }
  }
}

TEST(ForEachAtLeast, NanIsNeverFoundAndFindsNothing) {
  EXPECT_TRUE(found(std::vector<float>(40, kNan), -std::numeric_limits<float>::infinity()).empty());
  EXPECT_TRUE(found(std::vector<float>(40, 1.0f), kNan).empty());
}

}  // namespace
