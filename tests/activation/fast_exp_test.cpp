#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "tarvu.h"
#include "tests/reference/tarvu_softmax_reference.h"

namespace {

uint32_t exp_bits(float x) { return std::bit_cast<uint32_t>(::fast_exp(x)); }

/// About 430,000 bit patterns, evenly spread over all floats, with every low-order part.
template <class Step>
void for_a_sample_of_all_floats(Step step) {
  constexpr uint64_t kStride = 9973;
  for (uint64_t bits = 0; bits < (uint64_t{1} << 32); bits += kStride) step(static_cast<uint32_t>(bits));
}

TEST(FastExp, GivesItsDocumentedBits) {
  EXPECT_EQ(exp_bits(0.0f), 0x3F77AB00u);
  EXPECT_EQ(exp_bits(-0.0f), 0x3F77AB00u);
  EXPECT_EQ(exp_bits(-1.0f), 0x3EBF00C0u);
  EXPECT_EQ(exp_bits(-87.0f), 0x00B5D100u);
}

TEST(FastExp, SaturatesAsAnUnsignedBitPattern) {
  EXPECT_EQ(exp_bits(-88.0f), 0u);
  EXPECT_EQ(exp_bits(-std::numeric_limits<float>::infinity()), 0u);
  EXPECT_EQ(exp_bits(std::numeric_limits<float>::infinity()), 0xFFFFFFFFu);
  EXPECT_EQ(exp_bits(300.0f), 0xFFFFFFFFu);
  EXPECT_EQ(exp_bits(std::numeric_limits<float>::quiet_NaN()), 0u);
  EXPECT_EQ(exp_bits(-std::numeric_limits<float>::quiet_NaN()), 0u);
}

TEST(FastExp, StaysWithinItsBandAroundTheExponential) {
  for (float x = -87.0f; x <= 0.0f; x += 0.001f) {
    const double ratio = static_cast<double>(::fast_exp(x)) / std::exp(static_cast<double>(x));
    ASSERT_GT(ratio, 0.9558) << x;
    ASSERT_LT(ratio, 1.0148) << x;
  }
}

TEST(FastExp, ASampleOfAllFloatsMatchesTheReference) {
  for_a_sample_of_all_floats([](uint32_t bits) {
    const float x = std::bit_cast<float>(bits);
    ASSERT_EQ(exp_bits(x), std::bit_cast<uint32_t>(reference::fast_exp(x))) << std::hex << bits;
  });
}

TEST(FastExp, AllFloatsAroundTheClampAndTheEndsMatchTheReference) {
  for (float centre : {-87.0f, -87.9851f, -88.0f, 88.7228f, 266.9f, 0.0f, -1.0f, -0x1p-24f, 0x1p-24f}) {
    const uint32_t first = std::bit_cast<uint32_t>(centre) - 500;
    for (uint32_t bits = first; bits != first + 1000; ++bits) {
      const float x = std::bit_cast<float>(bits);
      ASSERT_EQ(exp_bits(x), std::bit_cast<uint32_t>(reference::fast_exp(x))) << std::hex << bits;
    }
  }
}

}  // namespace
