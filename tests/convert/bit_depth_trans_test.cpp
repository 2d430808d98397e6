#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/convert/conversion_check.h"
#include "tests/convert/conversion_runs.h"

namespace {

using convert_tests::flat;
using Floats = std::vector<float>;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

TEST(FlatConversion, Signed8BitTruncatesTowardsZeroSaturatesAndStoresZeroForNan) {
  EXPECT_EQ(flat(::floattoint8_neon, Floats{1.9f, -1.9f, 127.5f, -128.5f, kNan}),
            (std::vector<int8_t>{1, -1, 127, -128, 0}));
}

TEST(FlatConversion, Unsigned8BitSaturatesAtZeroAnd255) {
  EXPECT_EQ(flat(::floattouint8_neon, Floats{-0.5f, 255.5f, -kInfinity, kInfinity}),
            (std::vector<uint8_t>{0, 255, 0, 255}));
}

TEST(FlatConversion, Signed16BitSaturatesAtItsLimits) {
  EXPECT_EQ(flat(::floattoint16_neon, Floats{32767.0f, 32768.0f, -32768.0f, -32769.0f, 32766.9f}),
            (std::vector<int16_t>{32767, 32767, -32768, -32768, 32766}));
}

TEST(FlatConversion, Unsigned16BitSaturatesAtZeroAnd65535) {
  EXPECT_EQ(flat(::floattouint16_neon, Floats{65535.0f, 65536.0f, -1.0f, 65534.5f}),
            (std::vector<uint16_t>{65535, 65535, 0, 65534}));
}

TEST(FlatConversion, Signed32BitStoresTheGreatestIntegerForTwoToThe31) {
  EXPECT_EQ(flat(::floattoint32_neon, Floats{2147483648.0f, 1e20f, -2147483648.0f, -1e20f, 2147483520.0f, kNan}),
            (std::vector<int32_t>{2147483647, 2147483647, INT32_MIN, INT32_MIN, 2147483520, 0}));
}

TEST(FlatConversion, Unsigned32BitStoresTheGreatestIntegerForTwoToThe32) {
  EXPECT_EQ(flat(::floattouint32_neon, Floats{4294967296.0f, 1e20f, 4294967040.0f, -1.0f, 2147483648.0f, kNan}),
            (std::vector<uint32_t>{4294967295u, 4294967295u, 4294967040u, 0u, 2147483648u, 0u}));
}

TEST(FlatConversion, NegativeFractionBitsAddHalfAUnitAheadOfTruncation) {
  EXPECT_EQ(flat(::floattoint16_neon, Floats{4.0f, -4.0f, 5.0f, -5.0f}, -1), (std::vector<int16_t>{2, -1, 3, -2}));
}

TEST(FlatConversion, BiasOfNegativeFractionBitsIsAddedAheadOfTheScale) {
  // (6 + 2) * (3 / 4) is 6; half a unit added behind the scale would give 5.
  EXPECT_EQ(flat(::floattoint16_neon, Floats{6.0f}, -2, 3.0f), (std::vector<int16_t>{6}));
}

TEST(FlatConversion, PositiveFractionBitsAddNoBias) {
  EXPECT_EQ(flat(::floattoint16_neon, Floats{1.24f, 1.25f, -1.24f}, 2), (std::vector<int16_t>{4, 5, -4}));
}

TEST(FlatConversion, ScaleMultipliesOnTheWayOutToo) {
  EXPECT_EQ(flat(::floattoint16_neon, Floats{10.0f, -10.0f}, 0, 0.25f), (std::vector<int16_t>{2, -2}));
}

TEST(FlatConversion, SumWithTheBiasIsRoundedAheadOfTheMultiplication) {
  // 2^25 - 2 plus the bias 2^25 rounds to 2^26, one whole unit; the exact sum would stay below it and give 0.
  EXPECT_EQ(flat(::floattoint16_neon, Floats{33554430.0f}, -26), (std::vector<int16_t>{1}));
}

TEST(FlatConversion, SameByteIsReadAsUnsignedOrSigned) {
  EXPECT_EQ(flat(::uint8tofloat_neon, std::vector<uint8_t>{0xFF}, 1), (Floats{127.5f}));
  EXPECT_EQ(flat(::int8tofloat_neon, std::vector<int8_t>{-1}, 1), (Floats{-0.5f}));
}

TEST(FlatConversion, IntegersOfMoreThan24SignificantBitsAreRoundedToEven) {
  EXPECT_EQ(flat(::int32tofloat_neon, std::vector<int32_t>{16777217, 16777219, -16777217, INT32_MIN, INT32_MAX}),
            (Floats{16777216.0f, 16777220.0f, -16777216.0f, -2147483648.0f, 2147483648.0f}));
  EXPECT_EQ(flat(::uint32tofloat_neon, std::vector<uint32_t>{16777217u, 4294967295u, 2147483648u}),
            (Floats{16777216.0f, 4294967296.0f, 2147483648.0f}));
}

TEST(FlatConversion, NegativeFractionBitsMultiplyOnTheWayIn) {
  EXPECT_EQ(flat(::int16tofloat_neon, std::vector<int16_t>{3, -3}, -4, 0.5f), (Floats{24.0f, -24.0f}));
}

TEST(FlatConversion, ThirtyOneAndMoreFractionBitsKeepTheirSignOnTheWayIn) {
  EXPECT_EQ(flat(::int16tofloat_neon, std::vector<int16_t>{1}, 31), (Floats{0x1p-31f}));
  EXPECT_EQ(flat(::int16tofloat_neon, std::vector<int16_t>{1}, 40), (Floats{0x1p-40f}));
  EXPECT_EQ(flat(::int16tofloat_neon, std::vector<int16_t>{1}, -31), (Floats{0x1p31f}));
}

TEST(FlatConversion, ThirtyOneAndMoreFractionBitsKeepTheirSignOnTheWayOut) {
  EXPECT_EQ(flat(::floattoint16_neon, Floats{0x1p-30f}, 31), (std::vector<int16_t>{2}));
  EXPECT_EQ(flat(::floattoint16_neon, Floats{0x1p-39f}, 40), (std::vector<int16_t>{2}));
  EXPECT_EQ(flat(::floattoint16_neon, Floats{0x1p33f}, -32), (std::vector<int16_t>{2}));
}

TEST(FlatConversion, SixtyThreeFractionBitsGiveANegativePower) {
  EXPECT_EQ(flat(::int16tofloat_neon, std::vector<int16_t>{1}, 63), (Floats{-0x1p-63f}));
  EXPECT_EQ(flat(::int16tofloat_neon, std::vector<int16_t>{1}, -63), (Floats{-0x1p63f}));
  EXPECT_EQ(flat(::floattoint16_neon, Floats{-0x1p-62f}, 63), (std::vector<int16_t>{2}));
  // The bias is still 2^62: (x + 2^62) * -2^-63.
  EXPECT_EQ(flat(::floattoint16_neon, Floats{0.0f, -0x1p65f}, -63), (std::vector<int16_t>{0, 3}));
}

TEST(FlatConversion, SixtyFourFractionBitsCountAsNone) {
  EXPECT_EQ(flat(::int16tofloat_neon, std::vector<int16_t>{3}, 64), (Floats{3.0f}));
  EXPECT_EQ(flat(::int16tofloat_neon, std::vector<int16_t>{3}, -64), (Floats{3.0f}));
  EXPECT_EQ(flat(::floattoint16_neon, Floats{3.5f}, 64), (std::vector<int16_t>{3}));
}

TEST(FlatConversion, BiasOfSixtyFourNegativeFractionBitsIsTheNegativePower) {
  EXPECT_EQ(flat(::floattoint16_neon, Floats{3.0f, 0x1p63f}, -64), (std::vector<int16_t>{-32768, 0}));
}

TEST(FlatConversion, SixtyFiveNegativeFractionBitsCountAsOne) {
  EXPECT_EQ(flat(::floattoint16_neon, Floats{4.0f, -4.0f}, -65), (std::vector<int16_t>{2, -1}));
}

TEST(FlatConversion, NanScaleStoresZero) {
  EXPECT_EQ(flat(::floattouint8_neon, Floats(11, 5.0f), 0, kNan), std::vector<uint8_t>(11, 0));
}

TEST(FlatConversion, InfinityTimesAZeroScaleStoresZero) {
  EXPECT_EQ(flat(::floattoint16_neon, Floats(19, kInfinity), 0, 0.0f), std::vector<int16_t>(19, 0));
}

TEST(FlatConversion, CountZeroTouchesNeitherRun) {
  const void *nowhere = reinterpret_cast<const void *>(support::unreadable_address());
  for (const convert_tests::Kernel &kernel : convert_tests::kFlatToInteger) {
    kernel.product(nowhere, const_cast<void *>(nowhere), 0, {});
  }
  for (const convert_tests::Kernel &kernel : convert_tests::kFlatToFloat) {
    kernel.product(nowhere, const_cast<void *>(nowhere), 0, {});
  }
}

TEST(BytePermutation, InterleavedBytesBecomePlanes) {
  const uint8_t source[] = {'a', 'b', 'c', 'd', 'e', 'f'};
  uint8_t planes[6];
  ::permute_data_in(source, planes, 2, 6);
  EXPECT_EQ(std::string(planes, planes + 6), "acebdf");
}

TEST(BytePermutation, PlanesBecomeInterleavedBytes) {
  const uint8_t source[] = {'a', 'c', 'e', 'b', 'd', 'f'};
  uint8_t interleaved[6];
  ::permute_data_out(source, interleaved, 2, 6);
  EXPECT_EQ(std::string(interleaved, interleaved + 6), "abcdef");
}

TEST(BytePermutation, BytesBehindTheLastWholeGroupAreNotTouched) {
  const uint8_t source[] = {1, 2, 3, 4, 5, 6, 7, 8};
  uint8_t to[8] = {90, 91, 92, 93, 94, 95, 96, 97};
  ::permute_data_in(source, to, 3, 8);
  EXPECT_EQ(std::vector<int>(to, to + 8), (std::vector<int>{1, 4, 2, 5, 3, 6, 96, 97}));
  uint8_t back[8] = {90, 91, 92, 93, 94, 95, 96, 97};
  ::permute_data_out(to, back, 3, 8);
  EXPECT_EQ(std::vector<int>(back, back + 8), (std::vector<int>{1, 2, 3, 4, 5, 6, 96, 97}));
}

TEST(BytePermutation, NoLanesOrFewerBytesThanLanesMoveNothing) {
  auto *nowhere = reinterpret_cast<uint8_t *>(support::unreadable_address());
  for (const auto permute : {::permute_data_in, ::permute_data_out}) {
    permute(nowhere, nowhere, 0, 100);
    permute(nowhere, nowhere, 8, 7);
    permute(nowhere, nowhere, 70000, 69999);
    permute(nowhere, nowhere, 0, 0);
  }
}

TEST(BytePermutation, AgreesWithTheTwinForAllLanesAndLengths) {
  support::Random random = support::test_random(301);
  SCOPED_TRACE(random.trace());
  for (uint32_t lanes = 0; lanes <= 20; ++lanes) {
    for (uint32_t total = 0; total <= 70; ++total) {
      const support::GuardedMemory source(total);
      const support::GuardedMemory destination(total);
      random.fill(source.data(), total);
      destination.fill(0x5A);
      support::Differential differential;
      differential.track(source, "source");
      differential.track(destination, "destination");
      EXPECT_TRUE(
          differential.same([&] { ::permute_data_in(source.data(), destination.data(), lanes, total); },
                            [&] { reference::permute_data_in(source.data(), destination.data(), lanes, total); }))
          << "in, lanes " << lanes << ", bytes " << total;
      EXPECT_TRUE(
          differential.same([&] { ::permute_data_out(source.data(), destination.data(), lanes, total); },
                            [&] { reference::permute_data_out(source.data(), destination.data(), lanes, total); }))
          << "out, lanes " << lanes << ", bytes " << total;
    }
  }
}

}  // namespace
