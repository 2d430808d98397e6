#include <gtest/gtest.h>

#include <vector>

#include "tests/convert/conversion_check.h"
#include "tests/reference/tarvu_format_reference.h"
#include "tests/support/formats.h"

namespace {

using Floats = std::vector<float>;
using support::format;
using support::scale;

Floats to_floats(const std::vector<int8_t> &source, const _NN_SCALE &record) {
  Floats destination(source.size());
  const _NN_FMT fmt = format(8, 0, 1);
  ::tarvu_fixtofloat_neon(source.data(), destination.data(), static_cast<uint32_t>(source.size()), &fmt, &record);
  return destination;
}

TEST(ConversionByFormat, PositiveScaleShiftDivides) {
  EXPECT_EQ(to_floats({1, -2}, scale(3, 1)), (Floats{1.5f, -3.0f}));
}

TEST(ConversionByFormat, NegativeScaleShiftMultiplies) {
  EXPECT_EQ(to_floats({1, -2}, scale(3, -1)), (Floats{6.0f, -12.0f}));
}

TEST(ConversionByFormat, ZeroScaleValueGivesZeros) {
  EXPECT_EQ(to_floats({1, 127}, scale(0, 5)), (Floats{0.0f, 0.0f}));
}

TEST(ConversionByFormat, NegativeScaleValueChangesAllSigns) {
  EXPECT_EQ(to_floats({1, -7}, scale(-1, 0)), (Floats{-1.0f, 7.0f}));
}

TEST(ConversionByFormat, ScaleShiftOf31IsANegativePower) {
  EXPECT_EQ(to_floats({1}, scale(1, 31)), (Floats{-0x1p-31f}));
  EXPECT_EQ(to_floats({1}, scale(1, -31)), (Floats{-0x1p31f}));
}

TEST(ConversionByFormat, ScaleShiftsWrapModulo32) {
  EXPECT_EQ(to_floats({1}, scale(5, 32)), (Floats{5.0f}));
  EXPECT_EQ(to_floats({1}, scale(5, 33)), (Floats{2.5f}));
  EXPECT_EQ(to_floats({1}, scale(5, -33)), (Floats{10.0f}));
  EXPECT_EQ(to_floats({1}, scale(5, -128)), (Floats{5.0f}));
  EXPECT_EQ(to_floats({1}, scale(5, 127)), (Floats{-5.0f * 0x1p-31f}));
}

TEST(ConversionByFormat, ScaleValueOfMoreThan24BitsIsRoundedToAFloat) {
  EXPECT_EQ(to_floats({1}, scale(16777217, 0)), (Floats{16777216.0f}));
  EXPECT_EQ(to_floats({1}, scale(INT32_MIN, 0)), (Floats{-2147483648.0f}));
}

TEST(ConversionByFormat, WayOutMultipliesByTheScaleToo) {
  const Floats source{10.0f, -10.0f};
  std::vector<int16_t> destination(2);
  const _NN_FMT fmt = format(16, 0, 1);
  const _NN_SCALE half = scale(1, 1);
  ::tarvu_floattofix_neon(source.data(), destination.data(), 2, &fmt, &half);
  EXPECT_EQ(destination, (std::vector<int16_t>{5, -5}));
}

TEST(ConversionByFormat, ReservedBytesOfTheRecordsHaveNoEffect) {
  _NN_SCALE record = scale(3, 1);
  for (uint8_t &byte : record.reserved_0) byte = 0xFF;
  const _NN_FMT fmt = format(8, 0, 1, 0xFF);
  const int8_t source = 1;
  float destination = 0.0f;
  ::tarvu_fixtofloat_neon(&source, &destination, 1, &fmt, &record);
  EXPECT_EQ(destination, 1.5f);
}

TEST(ConversionByFormat, RoundingCodeReachesTheKernel) {
  const Floats source{2.5f};
  int8_t destination = 0;
  const _NN_FMT fmt = format(8, 0, 1);
  const _NN_SCALE one = scale(1, 0);
  ::tarvu_floattofix_rnd_neon(source.data(), &destination, 1, &fmt, &one, 3);
  EXPECT_EQ(destination, 3);
  ::tarvu_floattofix_rnd_neon(source.data(), &destination, 1, &fmt, &one, 8);
  EXPECT_EQ(destination, 2);
}

/// Formats that no kernel serves: the arguments are addresses whose access faults.
void expect_nothing_touched(const _NN_FMT &fmt) {
  void *nowhere = reinterpret_cast<void *>(support::unreadable_address());
  const _NN_SCALE one = scale(1, 0);
  support::StdoutCapture capture;
  ::tarvu_fixtofloat_neon(nowhere, static_cast<float *>(nowhere), 20, &fmt, &one);
  ::tarvu_floattofix_neon(static_cast<float *>(nowhere), nowhere, 20, &fmt, &one);
  ::tarvu_floattofix_rnd_neon(static_cast<float *>(nowhere), nowhere, 20, &fmt, &one, 12);
  ::tarvu_fixtofloat_1d_neon(nowhere, static_cast<float *>(nowhere), 20, &fmt, &one, 1);
  ::tarvu_floattofix_1d_neon(static_cast<float *>(nowhere), nowhere, 20, &fmt, &one, 1);
  EXPECT_EQ(capture.text(), "");
}

TEST(ConversionByFormat, ThirtyTwoBitFormatsTouchNothing) {
  expect_nothing_touched(format(32, 0, 1));
  expect_nothing_touched(format(32, 16, 0));
}

TEST(ConversionByFormat, OtherWidthsTouchNothing) {
  for (const int width : {0, 1, 7, 9, 15, 17, 24, 31, 64}) expect_nothing_touched(format(width, 2, 1));
}

TEST(ConversionByFormat, SignBitsOtherThanZeroAndOneTouchNothing) {
  for (const int sign_bits : {2, 3, 127, -1, -128}) {
    for (const int width : {8, 16}) expect_nothing_touched(format(width, 4, sign_bits));
  }
}

TEST(ConversionByFormat, WidthIsNoSumModulo256) {
  expect_nothing_touched({-128, -120, 0, 0});  // -248, which is 8 modulo 256
  expect_nothing_touched({-128, -113, 1, 0});  // -240, which is 16 modulo 256
}

/// All five entry points of product and twin on one run, the formats' own kernels chosen or not.
::testing::AssertionResult same_entry_points(const _NN_FMT &fmt, const _NN_SCALE &record, support::Random &random) {
  const uint32_t count = random.below(40);
  const uint32_t code = random.below(13);
  const int32_t zero_point = random.between(-300, 300);
  const support::GuardedMemory integers(count * 2);
  const support::GuardedMemory floats(count * 4);
  const void *from = integers.data();
  void *to = integers.data();
  float *values = floats.as<float>();
  support::Differential differential;
  differential.track(integers, "integers");
  differential.track(floats, "floats", support::Element::kFloat);
  ::testing::AssertionResult same = ::testing::AssertionSuccess();
  auto step = [&](const char *name, auto product, auto reference) {
    if (!same) return;
    random.fill(integers.data(), integers.size());
    random.fill_floats(floats.data(), count, -300.0f, 300.0f);
    same = differential.same(product, reference);
    if (!same) same << " in " << name;
  };
  step(
      "tarvu_fixtofloat_neon", [&] { ::tarvu_fixtofloat_neon(from, values, count, &fmt, &record); },
      [&] { reference::tarvu_fixtofloat_neon(from, values, count, &fmt, &record); });
  step(
      "tarvu_floattofix_neon", [&] { ::tarvu_floattofix_neon(values, to, count, &fmt, &record); },
      [&] { reference::tarvu_floattofix_neon(values, to, count, &fmt, &record); });
  step(
      "tarvu_floattofix_rnd_neon", [&] { ::tarvu_floattofix_rnd_neon(values, to, count, &fmt, &record, code); },
      [&] { reference::tarvu_floattofix_rnd_neon(values, to, count, &fmt, &record, code); });
  step(
      "tarvu_fixtofloat_1d_neon", [&] { ::tarvu_fixtofloat_1d_neon(from, values, count, &fmt, &record, zero_point); },
      [&] { reference::tarvu_fixtofloat_1d_neon(from, values, count, &fmt, &record, zero_point); });
  step(
      "tarvu_floattofix_1d_neon", [&] { ::tarvu_floattofix_1d_neon(values, to, count, &fmt, &record, zero_point); },
      [&] { reference::tarvu_floattofix_1d_neon(values, to, count, &fmt, &record, zero_point); });
  return same;
}

TEST(ConversionByFormatAgainstTwin, AllWidthsSignsAndFractionBitsAgree) {
  support::Random random = support::test_random(341);
  SCOPED_TRACE(random.trace());
  for (const int width : {8, 16}) {
    for (const int sign_bits : {0, 1}) {
      for (int frac_bits = -128; frac_bits <= 127; ++frac_bits) {
        const int int_bits = width - frac_bits - sign_bits;
        if (int_bits < -128 || int_bits > 127) continue;
        const _NN_SCALE record = scale(random.between(-20, 20), random.between(-4, 6));
        EXPECT_TRUE(same_entry_points(format(width, frac_bits, sign_bits), record, random))
            << "width " << width << ", sign_bits " << sign_bits << ", frac_bits " << frac_bits;
      }
    }
  }
}

TEST(ConversionByFormatAgainstTwin, AllScaleShiftsAgree) {
  support::Random random = support::test_random(342);
  SCOPED_TRACE(random.trace());
  for (int shift = -128; shift <= 127; ++shift) {
    for (const int32_t value : {1, -3, INT32_MAX, INT32_MIN, 16777217, random.between(-100000, 100000)}) {
      EXPECT_TRUE(same_entry_points(format(random.pick({8, 16}), random.between(-4, 8), random.between(0, 1)),
                                    scale(value, shift), random))
          << "scale " << value << ", shift " << shift;
    }
  }
}

TEST(ConversionByFormatAgainstTwin, RandomRecordsAgree) {
  support::Random random = support::test_random(343);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 500; ++i) {
    _NN_FMT fmt;
    _NN_SCALE record;
    random.fill(&fmt, sizeof fmt);
    random.fill(&record, sizeof record);
    if (random.one_in(2)) fmt = format(random.pick({8, 16, 32}), random.between(-20, 20), random.between(-1, 3));
    EXPECT_TRUE(same_entry_points(fmt, record, random))
        << "format " << +fmt.frac_bits << ' ' << +fmt.int_bits << ' ' << +fmt.sign_bits << ", scale "
        << record.scale_value << ", shift " << +record.scale_shift;
  }
}

}  // namespace
