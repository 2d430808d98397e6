#include <gtest/gtest.h>

#include <cmath>

#include "tests/frame/fused_multiply_add_probe.h"

// (1 + 2^-12)^2 = 1 + 2^-11 + 2^-24 in full; a float product loses the last term, so that adding -(1 + 2^-11) gives
// 0, where a fused step, which rounds once, gives 2^-24. Likewise for double with 2^-27 and 2^-54.

namespace {

constexpr float kFactor = 1.0f + 0x1p-12f;
constexpr float kAddend = -(1.0f + 0x1p-11f);
constexpr double kDoubleFactor = 1.0 + 0x1p-27;
constexpr double kDoubleAddend = -(1.0 + 0x1p-26);

TEST(FusedMultiplyAdd, TheOperandsOfTheseTestsTellItFromTwoSteps) {
  EXPECT_EQ(std::fma(kFactor, kFactor, kAddend), 0x1p-24f);
  EXPECT_EQ(std::fma(kDoubleFactor, kDoubleFactor, kDoubleAddend), 0x1p-54);
}

TEST(FusedMultiplyAdd, DoesNotReplaceTwoStepsOnFloats) {
  EXPECT_EQ(probe::multiply_then_add(kFactor, kFactor, kAddend), 0.0f);
}

TEST(FusedMultiplyAdd, DoesNotReplaceTwoStepsOnDoubles) {
  EXPECT_EQ(probe::multiply_then_add(kDoubleFactor, kDoubleFactor, kDoubleAddend), 0.0);
}

TEST(FusedMultiplyAdd, DoesNotReplaceTwoStepsInLanes) {
  const auto factor = tarvu::fill<tarvu::f32x4>(kFactor);
  const tarvu::f32x4 result = probe::multiply_then_add(factor, factor, tarvu::fill<tarvu::f32x4>(kAddend));
  for (int lane = 0; lane < 4; ++lane) EXPECT_EQ(result[lane], 0.0f);
}

TEST(FusedMultiplyAdd, DoesNotReplaceTwoStepsInALoopThatTheCompilerVectorises) {
  constexpr int kCount = 37;
  float factors[kCount];
  float addends[kCount];
  float results[kCount];
  for (int i = 0; i < kCount; ++i) {
    factors[i] = kFactor;
    addends[i] = kAddend;
    results[i] = 1.0f;
  }
  probe::multiply_then_add(factors, factors, addends, results, kCount);
  for (const float result : results) EXPECT_EQ(result, 0.0f);
}

}  // namespace
