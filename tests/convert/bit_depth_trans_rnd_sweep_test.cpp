#include <gtest/gtest.h>

#include <cfenv>

#include "tests/convert/conversion_check.h"

namespace {

using convert_tests::Kernel;

TEST(RoundedConversionAgainstTwin, FloatsOfEveryExponentAgreeForAllCodes) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const Kernel &kernel : convert_tests::kRounded) {
    for (uint32_t code = 0; code <= 13; ++code) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {0, 1.0f, code, 0}));
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {-2, 0.3f, code, 0}));
    }
  }
}

TEST(RoundedConversionAgainstTwin, FloatsOfEveryExponentAgreeForTheWholeLadderOfFractionBits) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const Kernel &kernel : convert_tests::kRounded) {
    for (const int16_t frac_bits : convert_tests::kFracBitsLadder) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {frac_bits, 1.0f, 3, 0}));
    }
  }
}

TEST(RoundedConversionAgainstTwin, FloatsOfEveryExponentAgreeForTheWholeLadderOfScales) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const Kernel &kernel : convert_tests::kRounded) {
    for (const float scale : convert_tests::kScaleLadder) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {5, scale, 3, 0}));
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {-31, scale, 9, 0}));
    }
  }
}

TEST(RoundedConversionAgainstTwin, AllRunLengthsAgreeAndTouchNothingElse) {
  support::Random random = support::test_random(311);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 8; ++round) {
    ASSERT_TRUE(convert_tests::same_for_all_run_lengths(convert_tests::kRounded, random));
  }
}

void expect_codes_of_the_environment_to_agree(int rounding_mode) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const Kernel &kernel : convert_tests::kRounded) {
    for (const uint32_t code : {8u, 11u}) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {0, 1.0f, code, 0, rounding_mode}));
    }
  }
}

TEST(RoundedConversionAgainstTwin, CodesEightAndElevenAgreeRoundingUpwards) {
  expect_codes_of_the_environment_to_agree(FE_UPWARD);
}

TEST(RoundedConversionAgainstTwin, CodesEightAndElevenAgreeRoundingDownwards) {
  expect_codes_of_the_environment_to_agree(FE_DOWNWARD);
}

TEST(RoundedConversionAgainstTwin, CodesEightAndElevenAgreeRoundingTowardsZero) {
  expect_codes_of_the_environment_to_agree(FE_TOWARDZERO);
}

}  // namespace
