#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_convert_fmt_reference.h"
#include "tests/support/compare.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/support/stdout_capture.h"

namespace {

using support::Fault;
using support::format;
using support::GuardedMemory;
using support::Random;

/// Scales are never read, so every test passes addresses that fault.
const _NN_SCALE *unreadable_scale() { return reinterpret_cast<const _NN_SCALE *>(support::unreadable_address()); }

void convert(const void *source, void *destination, uint32_t count, const _NN_FMT &in_fmt, const _NN_FMT &out_fmt) {
  tarvu_convert_fmt_c(source, destination, count, &in_fmt, &out_fmt, unreadable_scale(), unreadable_scale());
}

void expected_convert(const void *source, void *destination, uint32_t count, const _NN_FMT &in_fmt,
                      const _NN_FMT &out_fmt) {
  reference::tarvu_convert_fmt_c(source, destination, count, &in_fmt, &out_fmt, nullptr, nullptr);
}

/// The values that come out for `values`, through exactly sized memory whose output bytes were all 0xEE.
template <class In, class Out>
std::vector<Out> converted(std::initializer_list<In> values, const _NN_FMT &in_fmt, const _NN_FMT &out_fmt) {
  const GuardedMemory in(values.size() * sizeof(In));
  const GuardedMemory out(values.size() * sizeof(Out));
  std::memcpy(in.data(), values.begin(), in.size());
  out.fill(0xEE);
  convert(in.data(), out.data(), static_cast<uint32_t>(values.size()), in_fmt, out_fmt);
  EXPECT_EQ(out.guard_damage(), "");
  std::vector<Out> results(values.size());
  std::memcpy(results.data(), out.data(), out.size());
  return results;
}

using S8 = std::vector<int8_t>;
using U8 = std::vector<uint8_t>;
using S16 = std::vector<int16_t>;
using U16 = std::vector<uint16_t>;
using U32 = std::vector<uint32_t>;

TEST(Reformat, ARightShiftOfASignedByteDropsBitsTowardsMinusInfinity) {
  EXPECT_EQ((converted<int8_t, int8_t>({-1, 5, -5, -128, 127}, format(8, 4, 1), format(8, 2, 1))),
            (S8{-1, 1, -2, -32, 31}));
}

TEST(Reformat, ALeftShiftOfASignedByteSaturatesAtBothEnds) {
  EXPECT_EQ((converted<int8_t, int8_t>({100, -100, 31, -32, 32, -33}, format(8, 2, 1), format(8, 4, 1))),
            (S8{127, -128, 124, -128, 127, -128}));
}

TEST(Reformat, ANegativeElementOfAnUnsignedOutputIsReadAsLargeAndSaturatesAtTheTop) {
  EXPECT_EQ((converted<int16_t, uint8_t>({-1, 255, 256, 0}, format(16, 4, 1), format(8, 4, 0))),
            (U8{255, 255, 255, 0}));
  EXPECT_EQ((converted<int8_t, uint8_t>({-1, 127, 100}, format(8, 4, 1), format(8, 5, 0))), (U8{255, 254, 200}));
}

TEST(Reformat, AnUnsignedElementOfASignedOutputIsReadAsSigned) {
  EXPECT_EQ((converted<uint8_t, int16_t>({200, 127, 128}, format(8, 4, 0), format(16, 4, 1))), (S16{-56, 127, -128}));
  EXPECT_EQ((converted<uint8_t, int8_t>({200}, format(8, 4, 0), format(8, 3, 1))), (S8{-28}));
}

TEST(Reformat, EqualWidthAndFractionBitsAreCopiedWhateverTheSigns) {
  EXPECT_EQ((converted<int8_t, uint8_t>({-1, -128, 5}, format(8, 4, 1), format(8, 4, 0))), (U8{255, 128, 5}));
  EXPECT_EQ((converted<uint16_t, int16_t>({65535, 32768, 5}, format(16, 4, 0), format(16, 4, 1))),
            (S16{-1, -32768, 5}));
}

TEST(Reformat, ARightShiftOfAnUnsignedElementRoundsTowardsZero) {
  EXPECT_EQ((converted<int8_t, uint8_t>({-1, 3}, format(8, 4, 1), format(8, 3, 0))), (U8{127, 1}));
  EXPECT_EQ((converted<int16_t, uint16_t>({-1, 3}, format(16, 4, 1), format(16, 3, 0))), (U16{32767, 1}));
}

TEST(Reformat, ARightShiftFromSixteenToEightBitsSaturates) {
  EXPECT_EQ((converted<int16_t, int8_t>({256, 255, -257, -256, -1}, format(16, 4, 1), format(8, 3, 1))),
            (S8{127, 127, -128, -128, -1}));
  EXPECT_EQ((converted<uint16_t, uint8_t>({512, 511, 510, 65535}, format(16, 4, 0), format(8, 3, 0))),
            (U8{255, 255, 255, 255}));
}

TEST(Reformat, ChangingTheWidthAloneSaturatesDownwardsAndExtendsUpwards) {
  EXPECT_EQ((converted<int16_t, int8_t>({128, -129, 7}, format(16, 4, 1), format(8, 4, 1))), (S8{127, -128, 7}));
  EXPECT_EQ((converted<int8_t, int16_t>({-128, 127}, format(8, 4, 1), format(16, 4, 1))), (S16{-128, 127}));
  EXPECT_EQ((converted<int8_t, uint16_t>({-1, 127}, format(8, 4, 1), format(16, 4, 0))), (U16{255, 127}));
}

TEST(Reformat, ALeftShiftToSixteenBitsSaturates) {
  EXPECT_EQ((converted<int8_t, int16_t>({127, -128, 1}, format(8, 0, 1), format(16, 9, 1))), (S16{32767, -32768, 512}));
  EXPECT_EQ((converted<uint16_t, uint16_t>({32768, 32767}, format(16, 0, 0), format(16, 1, 0))), (U16{65535, 65534}));
}

TEST(Reformat, ALeftShiftWrapsInThirtyTwoBitsBeforeItSaturates) {
  EXPECT_EQ((converted<int16_t, int16_t>({16384}, format(16, 0, 1), format(16, 17, 1))), (S16{-32768}));
  EXPECT_EQ((converted<int16_t, int16_t>({16384}, format(16, 0, 1), format(16, 18, 1))), (S16{0}));
  EXPECT_EQ((converted<int16_t, int8_t>({16384}, format(16, 0, 1), format(8, 17, 1))), (S8{-128}));
  EXPECT_EQ((converted<uint16_t, uint16_t>({32768, 32769}, format(16, 0, 0), format(16, 17, 0))), (U16{0, 65535}));
}

TEST(Reformat, ADifferenceOfThirtyTwoShiftsByNothingButStillSaturates) {
  EXPECT_EQ((converted<int16_t, int8_t>({300, -300, 5}, format(16, 32, 1), format(8, 0, 1))), (S8{127, -128, 5}));
  EXPECT_EQ((converted<int16_t, int8_t>({300, -300, 5}, format(16, 0, 1), format(8, 32, 1))), (S8{127, -128, 5}));
  EXPECT_EQ((converted<uint16_t, uint8_t>({300, 5}, format(16, 0, 0), format(8, 32, 0))), (U8{255, 5}));
  EXPECT_EQ((converted<int8_t, int8_t>({-77, 5}, format(8, 32, 1), format(8, 0, 1))), (S8{-77, 5}));
}

TEST(Reformat, TheShiftIsTheDifferenceModuloThirtyTwo) {
  EXPECT_EQ((converted<int16_t, int16_t>({-1024}, format(16, 37, 1), format(16, 2, 1))), (S16{-128}));
  EXPECT_EQ((converted<int16_t, int16_t>({-15, -16}, format(16, -128, 1), format(16, 127, 1))), (S16{-32768, 0}));
  EXPECT_EQ((converted<int16_t, int16_t>({3}, format(16, -60, 1), format(16, 39, 1))), (S16{24}));
}

TEST(Reformat, WidthsAreSumsModulo256) {
  const _NN_FMT eight = {127, 127, 10, 0};
  const _NN_FMT sixteen = {-128, -114, 2, 0};
  EXPECT_EQ((converted<int8_t, int8_t>({100, -100}, eight, format(8, 126, 1))), (S8{50, -50}));
  EXPECT_EQ((converted<int16_t, int8_t>({100, 300}, sixteen, format(8, -128, 1))), (S8{100, 127}));
  EXPECT_EQ((converted<int8_t, int8_t>({1, 2}, eight, format(8, 127, 0))), (S8{1, 2}));
}

TEST(Reformat, TheReservedByteHasNoEffect) {
  EXPECT_EQ((converted<int8_t, int8_t>({1, -2}, format(8, 4, 1, 7), format(8, 4, 1, 200))), (S8{1, -2}));
}

TEST(Reformat, AnyOtherInputOrOutputWidthLeavesTheDestinationAsItWas) {
  const U32 untouched = {0xEEEEEEEE, 0xEEEEEEEE};
  for (const int other : {-8, 0, 4, 7, 9, 12, 15, 24, 32, 127}) {
    for (const int width : {8, 16, other}) {
      for (const int frac_bits : {2, 4, 6}) {
        const U32 values = converted<uint32_t, uint32_t>({1, 2}, format(other, 4, 1), format(width, frac_bits, 1));
        EXPECT_EQ(values, untouched) << other << " to " << width;
        const U32 others = converted<uint32_t, uint32_t>({1, 2}, format(width, frac_bits, 0), format(other, 4, 0));
        EXPECT_EQ(others, untouched) << width << " to " << other;
      }
    }
  }
}

TEST(Reformat, ThirtyTwoBitElementsOfEqualFormatsAreNotCopied) {
  EXPECT_EQ((converted<uint32_t, uint32_t>({1, 2, 3}, format(32, 16, 1), format(32, 16, 1))),
            (U32{0xEEEEEEEE, 0xEEEEEEEE, 0xEEEEEEEE}));
}

TEST(Reformat, ACountOfZeroTouchesNothingInAnyCase) {
  void *nowhere = reinterpret_cast<void *>(support::unreadable_address());
  for (const int in_width : {8, 16, 24, 32}) {
    for (const int out_width : {8, 16, 24, 32}) {
      for (const int frac_bits : {2, 4, 6}) {
        for (const int sign_bits : {0, 1}) {
          convert(nowhere, static_cast<uint8_t *>(nowhere) + 64, 0, format(in_width, 4, 1),
                  format(out_width, frac_bits, sign_bits));
          convert(nowhere, nowhere, 0, format(in_width, 4, 1), format(out_width, frac_bits, sign_bits));
        }
      }
    }
  }
}

TEST(Reformat, EqualFormatsInPlaceTouchNothing) {
  void *nowhere = reinterpret_cast<void *>(support::unreadable_address());
  for (const int width : {8, 16, 32}) convert(nowhere, nowhere, 16, format(width, 4, 1), format(width, 4, 0));
}

TEST(Reformat, PrintsNothing) {
  support::StdoutCapture capture;
  int64_t from = 0;
  int64_t to = 0;
  for (const int width : {8, 16, 24, 32}) convert(&from, &to, 1, format(width, 4, 1), format(40 - width, 2, 1));
  EXPECT_EQ(capture.text(), "");
}

TEST(Reformat, InPlaceWithAWiderOutputOnlyTheFirstElementComesOutRight) {
  const GuardedMemory memory(8);
  const int8_t values[8] = {-2, 3, 5, 7, 0, 0, 0, 0};
  std::memcpy(memory.data(), values, sizeof values);
  convert(memory.data(), memory.data(), 4, format(8, 4, 1), format(16, 4, 1));
  int16_t results[4];
  std::memcpy(results, memory.data(), sizeof results);
  EXPECT_EQ(results[0], -2);
  EXPECT_EQ(results[1], -1);  // the high byte of the first result
  EXPECT_EQ(results[2], -1);
  EXPECT_EQ(results[3], -1);
}

TEST(Reformat, InPlaceWithANarrowerOutputEveryElementComesOutRight) {
  const GuardedMemory memory(8);
  const int16_t values[4] = {-2, 300, -300, 7};
  std::memcpy(memory.data(), values, sizeof values);
  convert(memory.data(), memory.data(), 4, format(16, 4, 1), format(8, 4, 1));
  int8_t results[4];
  std::memcpy(results, memory.data(), sizeof results);
  EXPECT_EQ(results[0], -2);
  EXPECT_EQ(results[1], 127);
  EXPECT_EQ(results[2], -128);
  EXPECT_EQ(results[3], 7);
}

/// Fraction bits whose difference is `difference`, -255 to 255.
struct FractionBits {
  explicit FractionBits(int difference) : in(difference / 2), out(in - difference) {}
  int in;
  int out;
};

/// Every input of the width through every pair of formats with this difference of the fraction bits.
void hold_every_input(int in_width, int difference) {
  const uint32_t count = in_width == 8 ? 256 : 65536;
  static const std::vector<uint16_t> all_halfwords = [] {
    std::vector<uint16_t> all(65536);
    for (uint32_t i = 0; i < 65536; ++i) all[i] = static_cast<uint16_t>(i);
    return all;
  }();
  static const std::vector<uint8_t> all_bytes = [] {
    std::vector<uint8_t> all(256);
    for (uint32_t i = 0; i < 256; ++i) all[i] = static_cast<uint8_t>(i);
    return all;
  }();
  const void *source = in_width == 8 ? static_cast<const void *>(all_bytes.data()) : all_halfwords.data();
  const FractionBits frac_bits(difference);
  for (const int out_width : {8, 16}) {
    for (const int sign_bits : {0, 1}) {
      const _NN_FMT in_fmt = format(in_width, frac_bits.in, 1 - sign_bits);
      const _NN_FMT out_fmt = format(out_width, frac_bits.out, sign_bits);
      static std::vector<uint8_t> ours(131072);
      static std::vector<uint8_t> expected(131072);
      const size_t bytes = size_t{count} * static_cast<size_t>(out_width) / 8;
      std::memset(ours.data(), 0xEE, bytes);
      std::memset(expected.data(), 0xEE, bytes);
      convert(source, ours.data(), count, in_fmt, out_fmt);
      expected_convert(source, expected.data(), count, in_fmt, out_fmt);
      ASSERT_TRUE(support::same_elements("output", ours.data(), expected.data(), bytes,
                                         out_width == 8 ? support::Element::k8Bit : support::Element::k16Bit))
          << in_width << " to " << out_width << " bits, sign " << sign_bits << ", difference " << difference;
    }
  }
}

TEST(Reformat, EveryByteAgreesWithTheTwinForEveryDifferenceOfFractionBits) {
  for (int difference = -255; difference <= 255; ++difference) hold_every_input(8, difference);
}

TEST(Reformat, EveryHalfwordAgreesWithTheTwinForEveryShiftToTheRight) {
  for (int difference = 0; difference <= 32; ++difference) hold_every_input(16, difference);
  for (const int difference : {33, 47, 63, 64, 65, 255}) hold_every_input(16, difference);
}

TEST(Reformat, EveryHalfwordAgreesWithTheTwinForEveryShiftToTheLeft) {
  for (int difference = -32; difference < 0; ++difference) hold_every_input(16, difference);
  for (const int difference : {-33, -47, -63, -64, -65, -255}) hold_every_input(16, difference);
}

/// Any format of 8 or 16 bits, seldom of another width; fraction bits close together, seldom anywhere.
_NN_FMT any_format(Random &random) {
  const int width = random.one_in(8) ? random.pick({0, 7, 12, 24, 32}) : random.pick({8, 16});
  const int frac_bits = random.one_in(4) ? random.between(-128, 127) : random.between(-3, 12);
  return format(width, frac_bits, random.pick({0, 1, 1, 2, -1}), static_cast<int>(random.below(256)));
}

TEST(Reformat, AgreesWithTheTwinForEveryLengthAndAlignment) {
  Random random = support::test_random(201);
  SCOPED_TRACE(random.trace());
  for (uint32_t count = 0; count <= 140; ++count) {
    for (int round = 0; round < 12; ++round) {
      const _NN_FMT in_fmt = any_format(random);
      const _NN_FMT out_fmt = random.one_in(5) ? in_fmt : any_format(random);
      const Fault fault = random.pick({Fault::kBehind, Fault::kInFront});
      const GuardedMemory in(size_t{2} * count, {fault, 16, random.below(16)});
      const GuardedMemory out(size_t{2} * count, {fault, 16, random.below(16)});
      random.fill(in.data(), in.size());
      random.fill(out.data(), out.size());
      support::Differential differential;
      differential.track(in, "input");
      differential.track(out, "output");
      EXPECT_TRUE(differential.same([&] { convert(in.data(), out.data(), count, in_fmt, out_fmt); },
                                    [&] { expected_convert(in.data(), out.data(), count, in_fmt, out_fmt); }))
          << "count " << count << ", round " << round;
    }
  }
}

TEST(Reformat, ReadsAndWritesNoByteBeyondTheElements) {
  Random random = support::test_random(202);
  SCOPED_TRACE(random.trace());
  for (uint32_t count = 0; count <= 140; ++count) {
    for (const int in_width : {8, 16}) {
      for (const int out_width : {8, 16}) {
        const _NN_FMT in_fmt = format(in_width, 4, 1);
        const _NN_FMT out_fmt = format(out_width, random.between(1, 7), random.between(0, 1));
        const GuardedMemory in(static_cast<size_t>(in_width) / 8 * count);
        const GuardedMemory out(static_cast<size_t>(out_width) / 8 * count);
        random.fill(in.data(), in.size());
        support::Differential differential;
        differential.track(in, "input");
        differential.track(out, "output");
        EXPECT_TRUE(differential.same([&] { convert(in.data(), out.data(), count, in_fmt, out_fmt); },
                                      [&] { expected_convert(in.data(), out.data(), count, in_fmt, out_fmt); }))
            << "count " << count << ", " << in_width << " to " << out_width;
      }
    }
  }
}

TEST(Reformat, AgreesWithTheTwinInPlaceForEveryLength) {
  Random random = support::test_random(203);
  SCOPED_TRACE(random.trace());
  for (uint32_t count = 0; count <= 140; ++count) {
    for (int round = 0; round < 12; ++round) {
      const _NN_FMT in_fmt = any_format(random);
      const _NN_FMT out_fmt = any_format(random);
      const GuardedMemory memory(size_t{2} * count, {Fault::kBehind, 16, random.below(16)});
      random.fill(memory.data(), memory.size());
      support::Differential differential;
      differential.track(memory, "memory");
      EXPECT_TRUE(differential.same([&] { convert(memory.data(), memory.data(), count, in_fmt, out_fmt); },
                                    [&] { expected_convert(memory.data(), memory.data(), count, in_fmt, out_fmt); }))
          << "count " << count << ", round " << round;
    }
  }
}

}  // namespace
