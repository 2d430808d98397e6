#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "tarvu.h"
#include "tests/reference/tarvu_norm_reference.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace {

using namespace support;

/// The estimate as a caller can see it: with inputs whose squares vanish the sum of a position is `eps` alone, and
/// powers of two carry the estimate to the output without a rounding. Holds one block of 16 positions.
class Estimator {
 public:
  Estimator() {
    for (float &x : input_) x = 0x1p-80f;
    block_.in_addr = reinterpret_cast<uintptr_t>(input_);
    block_.out_addr = reinterpret_cast<uintptr_t>(output_);
    block_.scale_addr = reinterpret_cast<uintptr_t>(&learned_);
    block_.width = 16;
    block_.height = block_.channel = block_.batch = 1;
    block_.in_fmt = block_.out_fmt = format(32, 0, 1);
  }
  Estimator(const Estimator &) = delete;
  Estimator &operator=(const Estimator &) = delete;

  /// True if all 16 positions hold what the plain estimate of `sum` gives.
  bool agrees(float sum) {
    block_.eps = sum;
    tarvu_norm_process(&block_);
    const float expected = 0x1p-80f * (0x1p20f * reference::reciprocal_square_root_estimate(sum + 0.0f));
    for (const float out : output_) {
      const bool both_nan = std::isnan(expected) && std::isnan(out);
      if (!both_nan && std::bit_cast<uint32_t>(expected) != std::bit_cast<uint32_t>(out)) return false;
    }
    return true;
  }

  float of(float sum) {
    block_.eps = sum;
    tarvu_norm_process(&block_);
    return std::ldexp(output_[5], 60);
  }

 private:
  alignas(16) float input_[16];
  alignas(16) float output_[16] = {};
  float learned_ = 0x1p20f;
  _NN_NORM_PARM block_{};
};

TEST(NormEstimate, HasTheProcessorsValuesForKnownArguments) {
  Estimator estimate;
  EXPECT_EQ(0.998046875f, estimate.of(1.0f));
  EXPECT_EQ(0.705078125f, estimate.of(2.0f));
  EXPECT_EQ(0.4990234375f, estimate.of(4.0f));
  EXPECT_EQ(0.3330078125f, estimate.of(9.0f));
  EXPECT_EQ(1.99609375f, estimate.of(0.25f));
}

TEST(NormEstimate, CountsSubnormalSumsInFull) {
  Estimator estimate;
  EXPECT_EQ(0x1.69p74f, estimate.of(std::numeric_limits<float>::denorm_min()));
  EXPECT_EQ(0x1.ffp63f, estimate.of(0x1p-128f));
}

TEST(NormEstimate, OfZeroIsInfinityOfInfinityZeroAndOfNegativeSumsNan) {
  Estimator estimate;
  EXPECT_EQ(std::numeric_limits<float>::infinity(), estimate.of(0.0f));
  EXPECT_EQ(0.0f, estimate.of(std::numeric_limits<float>::infinity()));
  EXPECT_TRUE(std::isnan(estimate.of(-1.0f)));
  EXPECT_TRUE(std::isnan(estimate.of(-std::numeric_limits<float>::denorm_min())));
  EXPECT_TRUE(std::isnan(estimate.of(-std::numeric_limits<float>::infinity())));
  EXPECT_TRUE(std::isnan(estimate.of(std::numeric_limits<float>::quiet_NaN())));
}

TEST(NormEstimate, DoesNotChangeWithinEachExponentAndLeadingEightBits) {
  Estimator estimate;
  for (uint32_t leading = 0; leading < 65536; ++leading) {
    for (const uint32_t low : {0u, 0x7FFFu}) {
      const float sum = std::bit_cast<float>((leading << 15) | low);
      ASSERT_TRUE(estimate.agrees(sum)) << std::hexfloat << sum;
    }
  }
}

TEST(NormEstimate, EqualsItsTwinForRandomSums) {
  Random random = test_random(3650);
  SCOPED_TRACE(random.trace());
  Estimator estimate;
  for (int i = 0; i < 30000; ++i) {
    const float sum = random.any_float();
    ASSERT_TRUE(estimate.agrees(sum)) << std::hexfloat << sum;
  }
}

}  // namespace
