#include <gtest/gtest.h>

#include <cfenv>
#include <limits>

#include "tests/convert/conversion_check.h"
#include "tests/convert/conversion_runs.h"

namespace {

using convert_tests::Positions;
using convert_tests::rounded_at;
using convert_tests::rounded_run;
using Floats = std::vector<float>;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kBelowHalf = 0x1.fffffep-2f;

struct Rounding {
  float y;
  int block;
  int tail;
};

template <class To>
void expect_at(convert_tests::RoundedKernel<To> kernel, const char *name, uint32_t code, const Rounding &expected) {
  EXPECT_EQ(rounded_at(kernel, expected.y, code),
            (Positions<To>{static_cast<To>(expected.block), static_cast<To>(expected.tail)}))
      << name << " of " << expected.y << " with code " << code;
}

/// Holds the three signed kernels to the same values, block and tail.
void expect_rounding(uint32_t code, const std::vector<Rounding> &values) {
  for (const Rounding &expected : values) {
    support::StdoutCapture silence;
    const Positions<int8_t> of_8_bits = rounded_at(::floattoint8_rnd_neon, expected.y, code);
    silence.text();
    EXPECT_EQ(of_8_bits, (Positions<int8_t>{static_cast<int8_t>(expected.block), static_cast<int8_t>(expected.tail)}))
        << "floattoint8_rnd_neon of " << expected.y << " with code " << code;
    expect_at(::floattoint16_rnd_neon, "floattoint16_rnd_neon", code, expected);
    expect_at(::floattoint32_rnd_neon, "floattoint32_rnd_neon", code, expected);
  }
}

TEST(RoundedConversion, CodeZeroRoundsTowardsMinusInfinity) {
  expect_rounding(0, {{2.5f, 2, 2},
                      {-2.5f, -3, -3},
                      {2.7f, 2, 2},
                      {-2.7f, -3, -3},
                      {-0.3f, -1, -1},
                      {0.3f, 0, 0},
                      {kBelowHalf, 0, 0},
                      {-3.0f, -3, -3}});
}

TEST(RoundedConversion, CodeOneRoundsTowardsPlusInfinity) {
  expect_rounding(1, {{2.5f, 3, 3},
                      {-2.5f, -2, -2},
                      {2.7f, 3, 3},
                      {-2.7f, -2, -2},
                      {-0.3f, 0, 0},
                      {0.3f, 1, 1},
                      {kBelowHalf, 1, 1},
                      {3.0f, 3, 3}});
}

TEST(RoundedConversion, CodeTwoRoundsTowardsZero) {
  expect_rounding(2, {{2.5f, 2, 2}, {-2.5f, -2, -2}, {2.7f, 2, 2}, {-2.7f, -2, -2}, {-0.3f, 0, 0}, {0.3f, 0, 0}});
}

TEST(RoundedConversion, CodeThreeRoundsTiesAwayFromZeroAndItsTailAlsoTheNeighbourOfOneHalf) {
  expect_rounding(3, {{2.5f, 3, 3},
                      {-2.5f, -3, -3},
                      {3.5f, 4, 4},
                      {-3.5f, -4, -4},
                      {2.7f, 3, 3},
                      {-2.7f, -3, -3},
                      {0.3f, 0, 0},
                      {-0.75f, -1, -1},
                      {-3.7f, -4, -4},
                      {0.0f, 0, 0},
                      {-0.0f, 0, 0},
                      {kBelowHalf, 0, 1},
                      {-kBelowHalf, 0, -1}});
}

TEST(RoundedConversion, CodeFourRoundsTiesDown) {
  expect_rounding(4, {{2.5f, 2, 2},
                      {-2.5f, -3, -3},
                      {3.5f, 3, 3},
                      {-3.5f, -4, -4},
                      {2.7f, 3, 3},
                      {-2.7f, -3, -3},
                      {0.3f, 0, 0},
                      {-0.75f, -1, -1},
                      {kBelowHalf, 0, 0},
                      {-kBelowHalf, -1, 0}});
}

TEST(RoundedConversion, CodeFiveRoundsTiesUp) {
  expect_rounding(5, {{2.5f, 3, 3},
                      {-2.5f, -2, -2},
                      {3.5f, 4, 4},
                      {-3.5f, -3, -3},
                      {2.7f, 3, 3},
                      {-2.7f, -3, -3},
                      {0.3f, 0, 0},
                      {-0.75f, -1, -1},
                      {kBelowHalf, 1, 0},
                      {-kBelowHalf, 0, 0}});
}

TEST(RoundedConversion, CodeSixDropsTheFractionOfANegativeTailElementButNotOfABlockElement) {
  expect_rounding(6, {{2.5f, 2, 2},
                      {-2.5f, -2, -2},
                      {3.5f, 3, 3},
                      {-3.5f, -3, -3},
                      {2.7f, 3, 3},
                      {-2.7f, -3, -2},
                      {0.3f, 0, 0},
                      {-0.3f, 0, 0},
                      {-0.75f, -1, 0},
                      {-3.7f, -4, -3},
                      {kBelowHalf, 0, 0}});
}

TEST(RoundedConversion, CodeSevenDropsTheFractionOfANegativeTailElementButNotOfABlockElement) {
  expect_rounding(7, {{2.5f, 3, 3},
                      {-2.5f, -3, -2},
                      {3.5f, 4, 4},
                      {-3.5f, -4, -3},
                      {2.7f, 3, 3},
                      {-2.7f, -3, -2},
                      {0.3f, 0, 0},
                      {-0.3f, 0, 0},
                      {-0.75f, -1, 0},
                      {-3.7f, -4, -3},
                      {kBelowHalf, 1, 0},
                      {-kBelowHalf, -1, 0}});
}

TEST(RoundedConversion, CodeEightRoundsTiesToEven) {
  expect_rounding(8, {{2.5f, 2, 2},
                      {-2.5f, -2, -2},
                      {3.5f, 4, 4},
                      {-3.5f, -4, -4},
                      {2.7f, 3, 3},
                      {-2.7f, -3, -3},
                      {0.5f, 0, 0},
                      {-0.75f, -1, -1},
                      {kBelowHalf, 0, 0},
                      {-kBelowHalf, 0, 0}});
}

TEST(RoundedConversion, CodeNineRoundsTiesToOddAndItsTailDropsTheFractionOfNegativeOddNumbers) {
  expect_rounding(9, {{2.5f, 3, 3},
                      {-2.5f, -3, -3},
                      {3.5f, 3, 3},
                      {-3.5f, -3, -3},
                      {2.7f, 3, 3},
                      {-2.7f, -3, -3},
                      {3.7f, 4, 4},
                      {-3.7f, -4, -3},
                      {-1.9f, -2, -1},
                      {0.3f, 0, 0},
                      {-0.75f, -1, -1},
                      {kBelowHalf, 1, 0},
                      {-kBelowHalf, -1, 0}});
}

TEST(RoundedConversion, CodeTenRoundsTiesAwayFromZero) {
  expect_rounding(10, {{2.5f, 3, 3},
                       {-2.5f, -3, -3},
                       {3.5f, 4, 4},
                       {-3.5f, -4, -4},
                       {2.7f, 3, 3},
                       {-2.7f, -3, -3},
                       {0.3f, 0, 0},
                       {-0.75f, -1, -1},
                       {-3.7f, -4, -4},
                       {kBelowHalf, 1, 0},
                       {-kBelowHalf, -1, 0}});
}

TEST(RoundedConversion, CodeElevenRoundsTiesToEvenInTheDefaultEnvironment) {
  expect_rounding(11, {{2.5f, 2, 2}, {-2.5f, -2, -2}, {3.5f, 4, 4}, {2.7f, 3, 3}, {-2.7f, -3, -3}, {kBelowHalf, 0, 0}});
}

TEST(RoundedConversion, Signed8BitClampsAheadOfRounding) {
  EXPECT_EQ(rounded_run(::floattoint8_rnd_neon, Floats{2.5f, -2.5f, 127.6f, -129.0f}, 3),
            (std::vector<int8_t>{3, -3, 127, -128}));
  EXPECT_EQ(rounded_at(::floattoint8_rnd_neon, 127.6f, 3), (Positions<int8_t>{127, 127}));
  EXPECT_EQ(rounded_at(::floattoint8_rnd_neon, -129.0f, 3), (Positions<int8_t>{-128, -128}));
}

TEST(RoundedConversion, NegativeValuesOfUnsignedTargetsAreZeroForEveryCode) {
  for (uint32_t code = 0; code <= 11; ++code) {
    EXPECT_EQ(rounded_at(::floattouint8_rnd_neon, -7.3f, code), (Positions<uint8_t>{0, 0})) << code;
    EXPECT_EQ(rounded_at(::floattouint16_rnd_neon, -7.3f, code), (Positions<uint16_t>{0, 0})) << code;
    EXPECT_EQ(rounded_at(::floattouint32_rnd_neon, -7.3f, code), (Positions<uint32_t>{0, 0})) << code;
  }
}

TEST(RoundedConversion, GreatValuesSaturateForEveryCode) {
  for (uint32_t code = 0; code <= 11; ++code) {
    EXPECT_EQ(rounded_at(::floattouint8_rnd_neon, 255.5f, code), (Positions<uint8_t>{255, 255})) << code;
    EXPECT_EQ(rounded_at(::floattoint16_rnd_neon, 1e9f, code), (Positions<int16_t>{32767, 32767})) << code;
    EXPECT_EQ(rounded_at(::floattouint16_rnd_neon, 1e9f, code), (Positions<uint16_t>{65535, 65535})) << code;
    EXPECT_EQ(rounded_at(::floattoint32_rnd_neon, 1e20f, code), (Positions<int32_t>{INT32_MAX, INT32_MAX})) << code;
    EXPECT_EQ(rounded_at(::floattouint32_rnd_neon, 1e20f, code), (Positions<uint32_t>{UINT32_MAX, UINT32_MAX})) << code;
  }
}

TEST(RoundedConversion, NanIsZeroForEveryCode) {
  for (uint32_t code = 0; code <= 11; ++code) {
    expect_rounding(code, {{kNan, 0, 0}, {-kNan, 0, 0}});
    EXPECT_EQ(rounded_at(::floattouint8_rnd_neon, kNan, code), (Positions<uint8_t>{0, 0})) << code;
    EXPECT_EQ(rounded_at(::floattouint16_rnd_neon, kNan, code), (Positions<uint16_t>{0, 0})) << code;
    EXPECT_EQ(rounded_at(::floattouint32_rnd_neon, kNan, code), (Positions<uint32_t>{0, 0})) << code;
  }
}

TEST(RoundedConversion, OddIntegersOfTwentyFourBitsMoveWhereAHalfIsAddedInFloat) {
  EXPECT_EQ(rounded_at(::floattoint32_rnd_neon, 8388609.0f, 5), (Positions<int32_t>{8388610, 8388609}));
  EXPECT_EQ(rounded_at(::floattoint32_rnd_neon, 8388609.0f, 4), (Positions<int32_t>{8388608, 8388609}));
  EXPECT_EQ(rounded_at(::floattoint32_rnd_neon, 8388609.0f, 3), (Positions<int32_t>{8388609, 8388610}));
}

TEST(RoundedConversion, LeastIntegerTurnsIntoTheGreatestInTailsOfCodesSixAndSeven) {
  for (const uint32_t code : {6u, 7u}) {
    EXPECT_EQ(rounded_at(::floattoint32_rnd_neon, -2147483648.0f, code), (Positions<int32_t>{INT32_MIN, INT32_MAX}));
    EXPECT_EQ(rounded_at(::floattoint32_rnd_neon, -1e20f, code), (Positions<int32_t>{INT32_MIN, INT32_MAX}));
  }
}

TEST(RoundedConversion, LeastIntegerStaysInTailsOfCodeNineSinceItIsEven) {
  EXPECT_EQ(rounded_at(::floattoint32_rnd_neon, -2147483648.0f, 9), (Positions<int32_t>{INT32_MIN, INT32_MIN}));
}

TEST(RoundedConversion, NegativeFractionBitsAddNoBias) {
  EXPECT_EQ(rounded_run(::floattoint16_rnd_neon, Floats{5.0f, -5.0f, 7.0f}, 2, -2), (std::vector<int16_t>{1, -1, 1}));
}

TEST(RoundedConversion, ThirtyOneFractionBitsGiveANegativeMultiplier) {
  EXPECT_EQ(rounded_at(::floattoint16_rnd_neon, 0x1p-30f, 3, 31), (Positions<int16_t>{-2, -2}));
  EXPECT_EQ(rounded_at(::floattoint16_rnd_neon, 0x1p32f, 3, -31), (Positions<int16_t>{-2, -2}));
}

TEST(RoundedConversion, ThirtyTwoFractionBitsCountAsNone) {
  EXPECT_EQ(rounded_at(::floattoint16_rnd_neon, 5.0f, 3, 32), (Positions<int16_t>{5, 5}));
  EXPECT_EQ(rounded_at(::floattoint16_rnd_neon, 5.0f, 3, 33), (Positions<int16_t>{10, 10}));
  EXPECT_EQ(rounded_at(::floattoint16_rnd_neon, 5.0f, 3, -32), (Positions<int16_t>{5, 5}));
}

TEST(RoundedConversion, ProductIsRoundedAheadOfTheHalf) {
  // 1.5 * m is 0.5 + 2^-26 and rounds to 0.5; fused with the subtraction it would stay above and give 1.
  EXPECT_EQ(rounded_at(::floattoint8_rnd_neon, 1.5f, 4, 0, 0x1.555556p-2f), (Positions<int8_t>{0, 0}));
}

TEST(RoundedConversion, UnknownCodePrintsOnceForABlockAndLeavesItUnwritten) {
  support::StdoutCapture capture;
  const std::vector<int8_t> run = rounded_run(::floattoint8_rnd_neon, Floats(8, 5.7f), 12, 0, 1.0f, int8_t{99});
  EXPECT_EQ(capture.text(), "no rounding method!!!\r\n");
  EXPECT_EQ(run, std::vector<int8_t>(8, 99));
}

TEST(RoundedConversion, UnknownCodePrintsForEachTailElementAndStoresItTruncated) {
  support::StdoutCapture capture;
  const std::vector<int8_t> run =
      rounded_run(::floattoint8_rnd_neon, Floats{5.7f, -5.7f, 300.0f, -300.0f, kNan, 0.9f, -0.9f}, 12);
  std::string lines;
  for (int i = 0; i < 7; ++i) lines += "no rounding method!!!\r\n";
  EXPECT_EQ(capture.text(), lines);
  EXPECT_EQ(run, (std::vector<int8_t>{5, -5, 127, -128, 0, 0, 0}));
}

TEST(RoundedConversion, CodesAreUnsignedSoThatANegativeOneIsUnknown) {
  support::StdoutCapture capture;
  const std::vector<int16_t> run = rounded_run(::floattoint16_rnd_neon, Floats(17, 5.7f), static_cast<uint32_t>(-1));
  EXPECT_EQ(capture.text(), "no rounding method!!!\r\nno rounding method!!!\r\n");
  std::vector<int16_t> expected(16, 99);
  expected.push_back(5);
  EXPECT_EQ(run, expected);
}

TEST(RoundedConversion, CodeElevenOfSigned8BitPrintsOnceForEachBlockAndNeverForATail) {
  support::StdoutCapture capture;
  rounded_run(::floattoint8_rnd_neon, Floats(23, 5.7f), 11);
  EXPECT_EQ(capture.text(), "toint8 to rint\r\ntoint8 to rint\r\n");
}

TEST(RoundedConversion, CodeElevenOfTheOtherTypesPrintsNothing) {
  support::StdoutCapture capture;
  rounded_run(::floattouint8_rnd_neon, Floats(40, 5.7f), 11);
  rounded_run(::floattoint16_rnd_neon, Floats(40, 5.7f), 11);
  rounded_run(::floattouint16_rnd_neon, Floats(40, 5.7f), 11);
  rounded_run(::floattoint32_rnd_neon, Floats(40, 5.7f), 11);
  rounded_run(::floattouint32_rnd_neon, Floats(40, 5.7f), 11);
  EXPECT_EQ(capture.text(), "");
}

TEST(RoundedConversion, CountZeroTouchesNeitherRunAndPrintsNothing) {
  const void *nowhere = reinterpret_cast<const void *>(support::unreadable_address());
  support::StdoutCapture capture;
  for (const convert_tests::Kernel &kernel : convert_tests::kRounded) {
    for (uint32_t code = 0; code <= 12; ++code) {
      kernel.product(nowhere, const_cast<void *>(nowhere), 0, {0, 1.0f, code});
    }
  }
  EXPECT_EQ(capture.text(), "");
}

/// What block and tail of a signed 16-bit run hold after a call in the given rounding environment.
Positions<int16_t> in_environment(int mode, float x, uint32_t code) {
  Floats source(17, x);
  std::vector<int16_t> destination(17);
  std::fesetround(mode);
  ::floattoint16_rnd_neon(source.data(), destination.data(), 0, 17, code, 1.0f);
  std::fesetround(FE_TONEAREST);
  return convert_tests::positions(destination);
}

TEST(RoundedConversion, CodeElevenFollowsTheRoundingEnvironmentInBlockAndTail) {
  EXPECT_EQ(in_environment(FE_UPWARD, 2.3f, 11), (Positions<int16_t>{3, 3}));
  EXPECT_EQ(in_environment(FE_UPWARD, -2.7f, 11), (Positions<int16_t>{-2, -2}));
  EXPECT_EQ(in_environment(FE_DOWNWARD, 2.7f, 11), (Positions<int16_t>{2, 2}));
  EXPECT_EQ(in_environment(FE_DOWNWARD, -2.3f, 11), (Positions<int16_t>{-3, -3}));
  EXPECT_EQ(in_environment(FE_TOWARDZERO, 2.7f, 11), (Positions<int16_t>{2, 2}));
  EXPECT_EQ(in_environment(FE_TOWARDZERO, -2.7f, 11), (Positions<int16_t>{-2, -2}));
}

TEST(RoundedConversion, CodeEightFollowsTheRoundingEnvironmentInItsTailAlone) {
  EXPECT_EQ(in_environment(FE_UPWARD, 2.3f, 8), (Positions<int16_t>{2, 3}));
  EXPECT_EQ(in_environment(FE_DOWNWARD, 2.7f, 8), (Positions<int16_t>{3, 2}));
  EXPECT_EQ(in_environment(FE_TOWARDZERO, -2.7f, 8), (Positions<int16_t>{-3, -2}));
  EXPECT_EQ(in_environment(FE_DOWNWARD, -2.5f, 8), (Positions<int16_t>{-2, -3}));
}

}  // namespace
