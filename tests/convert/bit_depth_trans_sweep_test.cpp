#include <gtest/gtest.h>

#include "tests/convert/conversion_check.h"

namespace {

using convert_tests::Kernel;

TEST(FlatConversionAgainstTwin, FloatsOfEveryExponentAgreeForTheWholeLadderOfFractionBits) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const Kernel &kernel : convert_tests::kFlatToInteger) {
    for (const int16_t frac_bits : convert_tests::kFracBitsLadder) {
      for (const float scale : {1.0f, 0.75f, -1.0f}) {
        ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {frac_bits, scale}));
      }
    }
  }
}

TEST(FlatConversionAgainstTwin, FloatsOfEveryExponentAgreeForTheWholeLadderOfScales) {
  const std::vector<uint8_t> floats = convert_tests::bytes_of(convert_tests::sweep_floats());
  for (const Kernel &kernel : convert_tests::kFlatToInteger) {
    for (const float scale : convert_tests::kScaleLadder) {
      for (const int16_t frac_bits : {int16_t{-3}, int16_t{0}, int16_t{5}}) {
        ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, floats, {frac_bits, scale}));
      }
    }
  }
}

TEST(FlatConversionAgainstTwin, AllIntegersAgreeForTheWholeLadderOfFractionBits) {
  for (const Kernel &kernel : convert_tests::kFlatToFloat) {
    if (kernel.source_bytes == 4) continue;
    const std::vector<uint8_t> integers = convert_tests::all_integers(kernel.source_bytes);
    for (const int16_t frac_bits : convert_tests::kFracBitsLadder) {
      ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, integers, {frac_bits, 1.0f / 3.0f}));
    }
  }
}

TEST(FlatConversionAgainstTwin, AllIntegersAgreeForTheWholeLadderOfScales) {
  for (const Kernel &kernel : convert_tests::kFlatToFloat) {
    if (kernel.source_bytes == 4) continue;
    const std::vector<uint8_t> integers = convert_tests::all_integers(kernel.source_bytes);
    for (const float scale : convert_tests::kScaleLadder) {
      for (const int16_t frac_bits : {int16_t{-2}, int16_t{0}, int16_t{7}}) {
        ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, integers, {frac_bits, scale}));
      }
    }
  }
}

TEST(FlatConversionAgainstTwin, ThirtyTwoBitIntegersAgreeAtEveryBitLength) {
  std::vector<uint8_t> integers;
  support::Random random = support::test_random(302);
  SCOPED_TRACE(random.trace());
  auto append = [&](uint32_t value) {
    for (int i = 0; i < 4; ++i) integers.push_back(static_cast<uint8_t>(value >> (8 * i)));
  };
  for (int bit = 0; bit < 32; ++bit) {
    for (uint32_t near = 0; near < 5; ++near) append((1u << bit) + near - 2);
    for (int i = 0; i < 64; ++i) append(static_cast<uint32_t>(random.next()) >> bit);
    // Halfway between two floats, and one beside it.
    for (int i = 0; i < 8; ++i) append((0x80000080u | (static_cast<uint32_t>(random.next()) << 8)) >> bit);
    for (int i = 0; i < 8; ++i) append((0x80000081u | (static_cast<uint32_t>(random.next()) << 8)) >> bit);
  }
  for (const Kernel &kernel : convert_tests::kFlatToFloat) {
    if (kernel.source_bytes != 4) continue;
    for (const int16_t frac_bits : convert_tests::kFracBitsLadder) {
      for (const float scale : {1.0f, 0.3f}) {
        ASSERT_TRUE(convert_tests::same_in_blocks_and_tails(kernel, integers, {frac_bits, scale}));
      }
    }
  }
}

TEST(FlatConversionAgainstTwin, AllRunLengthsOfFloatsAgreeAndTouchNothingElse) {
  support::Random random = support::test_random(303);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(convert_tests::same_for_all_run_lengths(convert_tests::kFlatToInteger, random));
  }
}

TEST(FlatConversionAgainstTwin, AllRunLengthsOfIntegersAgreeAndTouchNothingElse) {
  support::Random random = support::test_random(304);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(convert_tests::same_for_all_run_lengths(convert_tests::kFlatToFloat, random));
  }
}

}  // namespace
