#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "tests/convert/conversion_check.h"
#include "tests/convert/conversion_runs.h"

namespace {

using convert_tests::Positions;
using convert_tests::zero_point_at;
using convert_tests::zero_point_run;
using Floats = std::vector<float>;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kBelowHalf = 0x1.fffffep-2f;

TEST(ZeroPointConversion, ZeroPointIsSubtractedOnTheWayIn) {
  EXPECT_EQ(zero_point_run(::int8tofloat_1d_neon, std::vector<int8_t>{20, 0, -128}, 10, 0, 0.5f),
            (Floats{5.0f, -5.0f, -69.0f}));
}

TEST(ZeroPointConversion, UnsignedElementsBelowTheZeroPointAreNegative) {
  EXPECT_EQ(zero_point_run(::uint8tofloat_1d_neon, std::vector<uint8_t>(9, 100), 200, 1), Floats(9, -50.0f));
  EXPECT_EQ(zero_point_run(::uint16tofloat_1d_neon, std::vector<uint16_t>(29, 100), 65535), Floats(29, -65435.0f));
}

TEST(ZeroPointConversion, DifferenceWithTheZeroPointWrapsIn32Bits) {
  EXPECT_EQ(zero_point_run(::int8tofloat_1d_neon, std::vector<int8_t>{-1, 0, 1}, INT32_MIN),
            (Floats{2147483648.0f, -2147483648.0f, -2147483648.0f}));
  EXPECT_EQ(zero_point_run(::int16tofloat_1d_neon, std::vector<int16_t>(17, -2), INT32_MAX), Floats(17, 2147483648.0f));
}

TEST(ZeroPointConversion, DifferencesOfMoreThan24SignificantBitsAreRounded) {
  EXPECT_EQ(zero_point_run(::uint8tofloat_1d_neon, std::vector<uint8_t>{1, 3}, -16777216),
            (Floats{16777216.0f, 16777220.0f}));
}

TEST(ZeroPointConversion, ThirtyOneAndMoreFractionBitsKeepTheirSign) {
  EXPECT_EQ(zero_point_run(::int16tofloat_1d_neon, std::vector<int16_t>{1}, 0, 31), (Floats{0x1p-31f}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 0x1p-30f, 0, 31), (Positions<int16_t>{2, 2}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 0x1p33f, 0, -32), (Positions<int16_t>{2, 2}));
}

TEST(ZeroPointConversion, SixtyThreeFractionBitsGiveANegativePowerAndSixtyFourCountAsNone) {
  EXPECT_EQ(zero_point_run(::int16tofloat_1d_neon, std::vector<int16_t>{1}, 0, 63), (Floats{-0x1p-63f}));
  EXPECT_EQ(zero_point_run(::int16tofloat_1d_neon, std::vector<int16_t>{1}, 0, 64), (Floats{1.0f}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 0x1p-62f, 0, 63), (Positions<int16_t>{-2, -2}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 2.0f, 0, -64), (Positions<int16_t>{2, 2}));
}

TEST(ZeroPointConversion, NegativeFractionBitsAddNoBias) {
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 5.0f, 0, -2), (Positions<int16_t>{1, 1}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 7.0f, 0, -2), (Positions<int16_t>{2, 2}));
}

TEST(ZeroPointConversion, SignedTargetsRoundHalfUpAndClamp) {
  const Floats source{1.5f, -1.5f, -2.5f, 127.6f, -129.0f, 0.49f, -0.51f};
  const std::vector<int8_t> expected{2, -1, -2, 127, -128, 0, -1};
  EXPECT_EQ(zero_point_run(::floattoint8_1d_neon, source, 0), expected);
  for (size_t i = 0; i < source.size(); ++i) {
    EXPECT_EQ(zero_point_at(::floattoint8_1d_neon, source[i], 0), (Positions<int8_t>{expected[i], expected[i]}));
  }
}

TEST(ZeroPointConversion, ZeroPointIsAddedAheadOfTheClamp) {
  EXPECT_EQ(zero_point_at(::floattoint8_1d_neon, 150.0f, -100), (Positions<int8_t>{50, 50}));
  EXPECT_EQ(zero_point_at(::floattoint8_1d_neon, 100.0f, 100), (Positions<int8_t>{127, 127}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 40000.0f, -10000), (Positions<int16_t>{30000, 30000}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, -30000.0f, -10000), (Positions<int16_t>{-32768, -32768}));
}

TEST(ZeroPointConversion, NeighbourOfOneHalfRoundsUpInABlockAndDownInATail) {
  EXPECT_EQ(zero_point_at(::floattoint8_1d_neon, kBelowHalf, 0), (Positions<int8_t>{1, 0}));
  EXPECT_EQ(zero_point_at(::floattouint8_1d_neon, kBelowHalf, 0), (Positions<uint8_t>{1, 0}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, kBelowHalf, 0), (Positions<int16_t>{1, 0}));
  EXPECT_EQ(zero_point_at(::floattouint16_1d_neon, kBelowHalf, 0), (Positions<uint16_t>{1, 0}));
}

TEST(ZeroPointConversion, OddIntegersOfTwentyFourBitsMoveInABlockAlone) {
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 8388609.0f, -8388600), (Positions<int16_t>{10, 9}));
}

TEST(ZeroPointConversion, NegativeValuesLeaveTheZeroPointInUnsignedBlocksAndCountInTails) {
  EXPECT_EQ(zero_point_at(::floattouint8_1d_neon, -3.0f, 10), (Positions<uint8_t>{10, 7}));
  EXPECT_EQ(zero_point_at(::floattouint16_1d_neon, -3.0f, 10), (Positions<uint16_t>{10, 7}));
  EXPECT_EQ(zero_point_at(::floattouint16_1d_neon, -300.0f, 10), (Positions<uint16_t>{10, 0}));
}

TEST(ZeroPointConversion, NegativeSumsSaturateAtTheTopInUnsignedBlocksAndAtZeroInTails) {
  EXPECT_EQ(zero_point_at(::floattouint8_1d_neon, 5.0f, -10), (Positions<uint8_t>{255, 0}));
  EXPECT_EQ(zero_point_at(::floattouint16_1d_neon, 5.0f, -10), (Positions<uint16_t>{65535, 0}));
}

TEST(ZeroPointConversion, SumOfASaturatedValueAndTheZeroPointWraps) {
  EXPECT_EQ(zero_point_at(::floattoint8_1d_neon, kInfinity, 10), (Positions<int8_t>{-128, -128}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, 1e20f, 10), (Positions<int16_t>{-32768, -32768}));
  EXPECT_EQ(zero_point_at(::floattoint8_1d_neon, -kInfinity, -10), (Positions<int8_t>{127, 127}));
  EXPECT_EQ(zero_point_at(::floattouint8_1d_neon, kInfinity, 10), (Positions<uint8_t>{9, 0}));
  EXPECT_EQ(zero_point_at(::floattouint16_1d_neon, kInfinity, 10), (Positions<uint16_t>{9, 0}));
}

TEST(ZeroPointConversion, ValuesAboveTheSigned32BitRangeDifferBetweenUnsignedBlockAndTail) {
  // 3000000000 - 2999999000 is 1000 in a block; the tail saturates at 2147483647 ahead of the sum.
  EXPECT_EQ(zero_point_at(::floattouint16_1d_neon, 3e9f, static_cast<int32_t>(0u - 2999999000u)),
            (Positions<uint16_t>{1000, 0}));
}

TEST(ZeroPointConversion, NanStoresTheClampedZeroPoint) {
  EXPECT_EQ(zero_point_at(::floattoint8_1d_neon, kNan, 10), (Positions<int8_t>{10, 10}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, kNan, 100000), (Positions<int16_t>{32767, 32767}));
  EXPECT_EQ(zero_point_at(::floattouint8_1d_neon, kNan, 10), (Positions<uint8_t>{10, 10}));
  EXPECT_EQ(zero_point_at(::floattouint16_1d_neon, kNan, -10), (Positions<uint16_t>{65535, 0}));
}

TEST(ZeroPointConversion, ProductIsRoundedAheadOfTheHalf) {
  // -1.5 * m is -0.5 - 2^-26 and rounds to -0.5; fused with the addition it would stay below and give -1.
  EXPECT_EQ(zero_point_at(::floattoint8_1d_neon, -1.5f, 0, 0, 0x1.555556p-2f), (Positions<int8_t>{0, 0}));
  EXPECT_EQ(zero_point_at(::floattoint16_1d_neon, -1.5f, 0, 0, 0x1.555556p-2f), (Positions<int16_t>{0, 0}));
}

TEST(ZeroPointConversion, CountZeroTouchesNeitherRun) {
  const void *nowhere = reinterpret_cast<const void *>(support::unreadable_address());
  for (const convert_tests::Kernel &kernel : convert_tests::kZeroPointToInteger) {
    kernel.product(nowhere, const_cast<void *>(nowhere), 0, {});
  }
  for (const convert_tests::Kernel &kernel : convert_tests::kZeroPointToFloat) {
    kernel.product(nowhere, const_cast<void *>(nowhere), 0, {});
  }
}

TEST(ZeroPointConversionAgainstTwin, FloatsOfEveryExponentAgreeForTheWholeLadderOfZeroPoints) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const convert_tests::Kernel &kernel : convert_tests::kZeroPointToInteger) {
    for (const int32_t zero_point : convert_tests::kZeroPointLadder) {
      for (const float scale : {1.0f, 0.3f, -1.0f}) {
        ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {0, scale, 0, zero_point}));
      }
    }
  }
}

TEST(ZeroPointConversionAgainstTwin, FloatsOfEveryExponentAgreeForTheWholeLadderOfFractionBits) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const convert_tests::Kernel &kernel : convert_tests::kZeroPointToInteger) {
    for (const int16_t frac_bits : convert_tests::kFracBitsLadder) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {frac_bits, 1.0f, 0, 3}));
    }
  }
}

TEST(ZeroPointConversionAgainstTwin, FloatsOfEveryExponentAgreeForTheWholeLadderOfScales) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const convert_tests::Kernel &kernel : convert_tests::kZeroPointToInteger) {
    for (const float scale : convert_tests::kScaleLadder) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {4, scale, 0, -3}));
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {-4, scale, 0, 77}));
    }
  }
}

TEST(ZeroPointConversionAgainstTwin, AllIntegersAgreeForTheWholeLadderOfZeroPoints) {
  for (const convert_tests::Kernel &kernel : convert_tests::kZeroPointToFloat) {
    const std::vector<uint8_t> integers = convert_tests::all_integers(kernel.source_bytes);
    for (const int32_t zero_point : convert_tests::kZeroPointLadder) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, integers, {3, 0.3f, 0, zero_point}));
    }
  }
}

TEST(ZeroPointConversionAgainstTwin, AllIntegersAgreeForTheLaddersOfFractionBitsAndScales) {
  for (const convert_tests::Kernel &kernel : convert_tests::kZeroPointToFloat) {
    const std::vector<uint8_t> integers = convert_tests::all_integers(kernel.source_bytes);
    for (const int16_t frac_bits : convert_tests::kFracBitsLadder) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, integers, {frac_bits, 0.75f, 0, 100}));
    }
    for (const float scale : convert_tests::kScaleLadder) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, integers, {-5, scale, 0, -100}));
    }
  }
}

TEST(ZeroPointConversionAgainstTwin, AllRunLengthsAgreeAndTouchNothingElse) {
  support::Random random = support::test_random(321);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(convert_tests::same_for_all_run_lengths(convert_tests::kZeroPointToInteger, random));
    ASSERT_TRUE(convert_tests::same_for_all_run_lengths(convert_tests::kZeroPointToFloat, random));
  }
}

}  // namespace
