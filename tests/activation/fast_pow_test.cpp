#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "tarvu.h"
#include "tests/reference/tarvu_lrn_reference.h"

namespace {

uint32_t pow_bits(float x, float p) { return std::bit_cast<uint32_t>(::fast_Pow(x, p)); }

/// About 430,000 bit patterns, evenly spread over all floats, with every low-order part.
template <class Step>
void for_a_sample_of_all_floats(Step step) {
  constexpr uint64_t kStride = 9973;
  for (uint64_t bits = 0; bits < (uint64_t{1} << 32); bits += kStride) step(static_cast<uint32_t>(bits));
}

TEST(FastPow, GivesItsDocumentedBits) {
  EXPECT_EQ(pow_bits(1.0f, -0.75f), 0x3F730300u);
  EXPECT_EQ(pow_bits(2.0f, -0.75f), 0x3F130300u);
  EXPECT_EQ(pow_bits(1.5f, -0.75f), 0x3F430300u);
}

TEST(FastPow, WrapsItsSubtractionAndSaturatesItsConversion) {
  EXPECT_EQ(pow_bits(std::bit_cast<float>(0x3F7893F8u), -0.75f), 0x3F789400u) << "0 times the power";
  // -0.0f less 0x3F7893F8 is 0x40876C08, a positive integer.
  EXPECT_EQ(pow_bits(-0.0f, 1.0f), 0x7FFFFFFFu) << "0x40876C08 and the offset reach past 2^31";
  EXPECT_EQ(pow_bits(0.0f, 4.0f), 0x80000000u);
  EXPECT_EQ(pow_bits(2.0f, std::numeric_limits<float>::quiet_NaN()), 0u);
  EXPECT_EQ(pow_bits(2.0f, std::numeric_limits<float>::infinity()), 0x7FFFFFFFu);
}

TEST(FastPow, StaysWithinItsBandAroundThePower) {
  for (float x = 0.001f; x < 1000.0f; x *= 1.001f) {
    const double ratio = static_cast<double>(::fast_Pow(x, -0.75f)) / std::pow(static_cast<double>(x), -0.75);
    ASSERT_GT(ratio, 0.9487) << x;
    ASSERT_LT(ratio, 1.0327) << x;
  }
}

TEST(FastPow, ASampleOfAllFloatsMatchesTheReferenceForFivePowers) {
  for (float p : {-0.75f, -0.5f, -1.0f, -0.1f, 2.0f}) {
    for_a_sample_of_all_floats([p](uint32_t bits) {
      const float x = std::bit_cast<float>(bits);
      ASSERT_EQ(pow_bits(x, p), std::bit_cast<uint32_t>(reference::fast_Pow(x, p)))
          << std::hex << bits << ", power " << p;
    });
  }
}

}  // namespace
