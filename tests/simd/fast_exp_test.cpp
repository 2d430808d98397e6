// The approximate exponential: one float, four lanes and the widest lanes against its formula.
#include "simd/fast_exp.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>

#include "tests/support/random.h"
#include "tests/support/special_floats.h"

namespace {

using support::Random;

uint32_t bits(float x) { return std::bit_cast<uint32_t>(x); }

/// 2^23 times a float is exact in double.
uint32_t expected_bits(float x) {
  const float scaled = x * 1.442695f;
  const float exponent = scaled + 126.934906f;
  const double fixed = static_cast<double>(exponent) * 8388608.0;
  if (!(fixed > 0.0)) return 0;
  return fixed >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<uint32_t>(fixed);
}

template <class V>
uint32_t last_lane_bits(float x) {
  V lanes{};
  lanes[tarvu::kLanes<V> - 1] = x;
  const V result = tarvu::fast_exp_step(lanes);
  return bits(result[tarvu::kLanes<V> - 1]);
}

void expect_formula(float x) {
  const uint32_t expected = expected_bits(x);
  EXPECT_EQ(bits(tarvu::fast_exp_step(x)), expected) << x;
  EXPECT_EQ(last_lane_bits<tarvu::f32x4>(x), expected) << x;
  EXPECT_EQ(last_lane_bits<tarvu::f32xn>(x), expected) << x;
}

TEST(FastExpStep, HasTheStatedBits) {
  EXPECT_EQ(bits(tarvu::fast_exp_step(0.0f)), 0x3F77AB00u);
  EXPECT_EQ(bits(tarvu::fast_exp_step(-1.0f)), 0x3EBF00C0u);
  EXPECT_EQ(bits(tarvu::fast_exp_step(-87.0f)), 0x00B5D100u);
}

TEST(FastExpStep, FollowsItsFormulaForSpecialFloats) {
  for (const float x : support::kSpecialFloats) expect_formula(x);
}

TEST(FastExpStep, FollowsItsFormulaBelowAndAboveItsRange) {
  for (const float x : {-87.9f, -87.98f, -87.99f, -88.0f, -1000.0f, 88.7f, 88.75f, 88.8f, 89.0f, 177.4f, 177.5f, 266.0f,
                        267.0f, 1000.0f}) {
    expect_formula(x);
  }
}

TEST(FastExpStep, FollowsItsFormulaForRandomFloats) {
  Random random = support::test_random(461);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 20000; ++i)
    expect_formula(random.one_in(2) ? random.any_float() : random.uniform(-90.0f, 270.0f));
}

}  // namespace
