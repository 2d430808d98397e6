#include <gtest/gtest.h>

#include <cstdint>

#include "tarvu.h"
#include "tests/reference/tarvu_util_reference.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace {

using support::format;

_NN_FMT bytes(int frac_bits, int int_bits, int sign_bits, int reserved = 0) {
  return {static_cast<int8_t>(frac_bits), static_cast<int8_t>(int_bits), static_cast<int8_t>(sign_bits),
          static_cast<uint8_t>(reserved)};
}

NN_AI_IO_TYPE type_of(const _NN_FMT &fmt) { return tarvu_get_fmt_type(&fmt); }
NN_AI_IO_TYPE gather_type_of(const _NN_FMT &fmt) { return tarvu_get_gather_fmt_type(&fmt); }
NN_AI_IO_TYPE gatherelement_type_of(const _NN_FMT &fmt) { return tarvu_get_gatherelement_fmt_type(&fmt); }

uint64_t address_of(const void *taken) { return reinterpret_cast<uintptr_t>(taken); }

TEST(FormatType, AWidthOfEightIsSignedOrUnsignedByItsSignBits) {
  EXPECT_EQ(type_of(bytes(4, 3, 1)), 0);
  EXPECT_EQ(type_of(bytes(4, 4, 0)), 1);
}

TEST(FormatType, AWidthOfSixteenIsSignedOrUnsignedByItsSignBits) {
  EXPECT_EQ(type_of(bytes(8, 7, 1)), 2);
  EXPECT_EQ(type_of(bytes(8, 8, 0)), 3);
}

TEST(FormatType, FractionBitsMayBeNegative) { EXPECT_EQ(type_of(bytes(-2, 10, 0)), 1); }

TEST(FormatType, AnySignBitsButZeroAreSigned) {
  EXPECT_EQ(type_of(bytes(3, 3, 2)), 0);
  EXPECT_EQ(type_of(bytes(5, 4, -1)), 0);
  EXPECT_EQ(type_of(bytes(8, 6, 2)), 2);
}

TEST(FormatType, AWidthOfThirtyTwoIsOneTypeWhateverItsSignBits) {
  EXPECT_EQ(type_of(bytes(16, 16, 0)), 4);
  EXPECT_EQ(type_of(bytes(16, 15, 1)), 4);
}

TEST(FormatType, AnyOtherWidthIsInvalid) {
  for (const int width : {-8, 0, 1, 7, 9, 15, 17, 24, 31, 33, 64}) {
    EXPECT_EQ(type_of(bytes(width / 2, width - width / 2, 0)), -1) << width;
    EXPECT_EQ(gather_type_of(bytes(width / 2, width - width / 2, 0)), -1) << width;
    EXPECT_EQ(gatherelement_type_of(bytes(width / 2, width - width / 2, 0)), -1) << width;
  }
  EXPECT_EQ(static_cast<uint32_t>(type_of(bytes(12, 11, 1))), 0xFFFFFFFFu);
}

TEST(FormatType, TheWidthIsNotTakenModulo256) {
  EXPECT_EQ(type_of(bytes(127, 127, 10)), -1);
  EXPECT_EQ(gather_type_of(bytes(-128, -128, 8)), -1);
}

TEST(FormatType, TheReservedByteHasNoMeaning) {
  for (int reserved = 0; reserved < 256; ++reserved) EXPECT_EQ(type_of(bytes(4, 3, 1, reserved)), 0);
}

TEST(GatherFormatType, TellsTheThirtyTwoBitTypesApart) {
  EXPECT_EQ(gather_type_of(bytes(16, 15, 1)), 4);
  EXPECT_EQ(gather_type_of(bytes(16, 14, 2)), 4);
  EXPECT_EQ(gather_type_of(bytes(16, 16, 0)), 5);
  EXPECT_EQ(gatherelement_type_of(bytes(16, 15, 1)), 4);
  EXPECT_EQ(gatherelement_type_of(bytes(16, 16, 0)), 5);
}

TEST(GatherFormatType, AgreesWithTheFormatTypeForEightAndSixteenBits) {
  for (const int width : {8, 16}) {
    for (const int sign_bits : {0, 1, 2}) {
      const _NN_FMT fmt = format(width, 3, sign_bits);
      EXPECT_EQ(gather_type_of(fmt), type_of(fmt));
      EXPECT_EQ(gatherelement_type_of(fmt), type_of(fmt));
    }
  }
}

TEST(FormatType, AllThreeQueriesAgreeWithTheirTwinsForEveryFractionAndSign) {
  int differences = 0;
  for (int frac_bits = -128; frac_bits < 128; ++frac_bits) {
    for (int sign_bits = -128; sign_bits < 128; ++sign_bits) {
      for (const int width : {7, 8, 9, 15, 16, 17, 31, 32, 33, 264, 288, -248, -240, -224}) {
        const int int_bits = width - frac_bits - sign_bits;
        if (int_bits < -128 || int_bits > 127) continue;
        const _NN_FMT fmt = bytes(frac_bits, int_bits, sign_bits);
        differences += type_of(fmt) != reference::tarvu_get_fmt_type(&fmt);
        differences += gather_type_of(fmt) != reference::tarvu_get_gather_fmt_type(&fmt);
        differences += gatherelement_type_of(fmt) != reference::tarvu_get_gatherelement_fmt_type(&fmt);
      }
    }
  }
  EXPECT_EQ(differences, 0);
}

TEST(ScratchAllocation, AdvancesTheCursorByWholeMultiplesOfFour) {
  struct {
    uint32_t size, advance;
  } const cases[] = {
      {0, 0}, {1, 4}, {2, 4}, {3, 4}, {4, 4}, {5, 8}, {0x7FFFFFFF, 0x80000000}, {0xFFFFFFFC, 0xFFFFFFFC}};
  for (const auto &c : cases) {
    uint64_t cursor = 0x1000;
    EXPECT_EQ(address_of(tarvu_getbuffrom(&cursor, c.size)), 0x1000u) << c.size;
    EXPECT_EQ(cursor, uint64_t{0x1000} + c.advance) << c.size;
  }
}

TEST(ScratchAllocation, ASizeWithinThreeOfTheLargestWrapsRoundToNothing) {
  for (const uint32_t size : {0xFFFFFFFDu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    uint64_t cursor = 0x1000;
    EXPECT_EQ(address_of(tarvu_getbuffrom(&cursor, size)), 0x1000u);
    EXPECT_EQ(cursor, 0x1000u) << size;
  }
}

TEST(ScratchAllocation, AnOddCursorStaysOdd) {
  uint64_t cursor = 0x1003;
  EXPECT_EQ(address_of(tarvu_getbuffrom(&cursor, 5)), 0x1003u);
  EXPECT_EQ(cursor, 0x100Bu);
}

TEST(ScratchAllocation, TheCursorCountsInSixtyFourBits) {
  uint64_t cursor = 0x7FFFFFFFFFF0u;
  EXPECT_EQ(address_of(tarvu_getbuffrom(&cursor, 0x20)), 0x7FFFFFFFFFF0u);
  EXPECT_EQ(cursor, 0x800000000010u);
  cursor = 0xFFFFFFF0u;
  EXPECT_EQ(address_of(tarvu_getbuffrom(&cursor, 0xFFFFFFF0u)), 0xFFFFFFF0u);
  EXPECT_EQ(cursor, 0x1FFFFFFE0u);
}

TEST(ScratchAllocation, AgreesWithItsTwinOnRandomCursorsAndSizes) {
  support::Random random = support::test_random(101);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 10000; ++i) {
    uint64_t ours = random.next();
    uint64_t expected = ours;
    const auto size = static_cast<uint32_t>(random.one_in(4) ? 0u - random.below(8) : random.next());
    EXPECT_EQ(tarvu_getbuffrom(&ours, size), reference::tarvu_getbuffrom(&expected, size));
    EXPECT_EQ(ours, expected) << size;
  }
}

}  // namespace
