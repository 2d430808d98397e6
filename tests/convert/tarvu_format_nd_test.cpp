#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "tests/convert/conversion_check.h"
#include "tests/reference/tarvu_format_nd_reference.h"
#include "tests/support/formats.h"

namespace {

using Table = std::array<uint32_t, 6>;

using NdCall = void (*)(const void *source, void *destination, const uint32_t *shape, const uint32_t *stride,
                        int16_t frac_bits, int32_t zero_point, float scale);

struct NdKernel {
  const char *name;
  size_t source_bytes;       // of one element
  size_t destination_bytes;  // of one element
  uint32_t block;
  NdCall product;
  NdCall reference;
};

template <class From, class To,
          void (*kernel)(const From *, To *, const uint32_t *, const uint32_t *, int16_t, int32_t, float)>
void nd_call(const void *source, void *destination, const uint32_t *shape, const uint32_t *stride, int16_t frac_bits,
             int32_t zero_point, float scale) {
  kernel(static_cast<const From *>(source), static_cast<To *>(destination), shape, stride, frac_bits, zero_point,
         scale);
}

template <class From, class To, auto product, auto reference>
constexpr NdKernel nd_kernel(const char *name) {
  constexpr uint32_t block = sizeof(From) == 1 || sizeof(To) == 1 ? 8 : 16;
  return {name, sizeof(From), sizeof(To), block, nd_call<From, To, product>, nd_call<From, To, reference>};
}

constexpr NdKernel kToFloat[] = {
    nd_kernel<uint8_t, float, ::uint8tofloat_nd_neon, reference::uint8tofloat_nd_neon>("uint8tofloat_nd_neon"),
    nd_kernel<int8_t, float, ::int8tofloat_nd_neon, reference::int8tofloat_nd_neon>("int8tofloat_nd_neon"),
    nd_kernel<uint16_t, float, ::uint16tofloat_nd_neon, reference::uint16tofloat_nd_neon>("uint16tofloat_nd_neon"),
    nd_kernel<int16_t, float, ::int16tofloat_nd_neon, reference::int16tofloat_nd_neon>("int16tofloat_nd_neon"),
};

constexpr NdKernel kToInteger[] = {
    nd_kernel<float, uint8_t, ::floattouint8_nd_neon, reference::floattouint8_nd_neon>("floattouint8_nd_neon"),
    nd_kernel<float, int8_t, ::floattoint8_nd_neon, reference::floattoint8_nd_neon>("floattoint8_nd_neon"),
    nd_kernel<float, uint16_t, ::floattouint16_nd_neon, reference::floattouint16_nd_neon>("floattouint16_nd_neon"),
    nd_kernel<float, int16_t, ::floattoint16_nd_neon, reference::floattoint16_nd_neon>("floattoint16_nd_neon"),
};

std::vector<NdKernel> all_kernels() {
  std::vector<NdKernel> all(std::begin(kToFloat), std::end(kToFloat));
  all.insert(all.end(), std::begin(kToInteger), std::end(kToInteger));
  return all;
}

bool writes_floats(const NdKernel &kernel) { return kernel.destination_bytes == 4; }

/// Elements that a line of `extent` elements touches.
uint32_t reach(uint32_t extent, uint32_t block) { return extent != 0 && extent < block ? block : extent; }

/// One line between two pages that fault; every element that the line touches is a zero and gives a zero.
/// The number of elements that were written.
uint32_t elements_written(const NdKernel &kernel, uint32_t extent) {
  const uint32_t touched = reach(extent & 0xFFFF, kernel.block);
  const support::GuardedMemory source(touched * kernel.source_bytes);
  const support::GuardedMemory destination(64 * kernel.destination_bytes);
  source.fill(0);
  destination.fill(0x5A);
  const Table shape{extent, 1, 1, 1, 1, 1};
  const Table stride{};
  kernel.product(source.data(), destination.data(), shape.data(), stride.data(), 0, 0, 1.0f);
  EXPECT_EQ(destination.guard_damage(), "");
  uint32_t written = 0;
  for (size_t at = 0; at < destination.size(); at += kernel.destination_bytes) {
    if (destination.data()[at] == 0) ++written;
  }
  return written;
}

TEST(NdConversion, LineShorterThanABlockIsConvertedAsOneWholeBlock) {
  for (const NdKernel &kernel : all_kernels()) {
    for (uint32_t extent = 1; extent <= kernel.block; ++extent) {
      EXPECT_EQ(elements_written(kernel, extent), kernel.block) << kernel.name << " of " << extent;
    }
  }
}

TEST(NdConversion, LineOfABlockAndMoreWritesItsOwnElementsAlone) {
  for (const NdKernel &kernel : all_kernels()) {
    for (uint32_t extent = kernel.block; extent <= 2 * kernel.block + 3; ++extent) {
      EXPECT_EQ(elements_written(kernel, extent), extent) << kernel.name << " of " << extent;
    }
  }
}

TEST(NdConversion, Signed8BitLineOfFiveWritesEightFloatsAndOneOfTwelveTwelve) {
  EXPECT_EQ(elements_written(kToFloat[1], 5), 8u);
  EXPECT_EQ(elements_written(kToFloat[1], 12), 12u);
}

TEST(NdConversion, Signed16BitLineOfNineWritesSixteenFloats) { EXPECT_EQ(elements_written(kToFloat[3], 9), 16u); }

TEST(NdConversion, OnlyTheLowSixteenBitsOfAnExtentCount) {
  for (const NdKernel &kernel : all_kernels()) {
    EXPECT_EQ(elements_written(kernel, 0x00050000u + 20), 20u) << kernel.name;
    EXPECT_EQ(elements_written(kernel, 0xFFFF0000u), 0u) << kernel.name;
  }
}

TEST(NdConversion, OnlyTheLowSixteenBitsOfTheOuterExtentsCount) {
  float destination[64] = {};
  const int8_t source[64] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
  for (size_t dimension = 1; dimension < 6; ++dimension) {
    Table shape{8, 1, 1, 1, 1, 1};
    shape[dimension] = 0x70002;
    Table stride{};
    stride[dimension] = 8;
    std::fill(std::begin(destination), std::end(destination), 0.0f);
    ::int8tofloat_nd_neon(source, destination, shape.data(), stride.data(), 0, 0, 1.0f);
    EXPECT_EQ(destination[15], 16.0f) << "dimension " << dimension;
    EXPECT_EQ(destination[16], 0.0f) << "dimension " << dimension;
  }
}

TEST(NdConversion, ZeroExtentOfAnyDimensionTouchesNothing) {
  void *nowhere = reinterpret_cast<void *>(support::unreadable_address());
  for (const NdKernel &kernel : all_kernels()) {
    for (size_t dimension = 0; dimension < 6; ++dimension) {
      Table shape{3, 2, 3, 2, 3, 2};
      shape[dimension] = 0;
      const Table stride{1, 3, 6, 18, 36, 108};
      kernel.product(nowhere, nowhere, shape.data(), stride.data(), 0, 0, 1.0f);
    }
  }
}

TEST(NdConversion, StrideOfTheInnermostDimensionIsNotRead) {
  const support::GuardedMemory strides(5 * sizeof(uint32_t), {support::Fault::kInFront, 4, 0});
  strides.fill(0);
  const Table shape{8, 1, 1, 1, 1, 1};
  const auto *behind_the_page_that_faults = strides.as<const uint32_t>();
  const support::GuardedMemory source(16 * sizeof(float));
  const support::GuardedMemory destination(16 * sizeof(float));
  source.fill(0);
  for (const NdKernel &kernel : all_kernels()) {
    kernel.product(source.data(), destination.data(), shape.data(), behind_the_page_that_faults - 1, 0, 0, 1.0f);
  }
}

TEST(NdConversion, StridesCountElementsAndServeBothSides) {
  std::vector<int16_t> source(200);
  for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<int16_t>(i);
  std::vector<float> destination(200, -1.0f);
  const Table shape{16, 2, 2, 1, 1, 1};
  const Table stride{77, 20, 90, 0, 0, 0};
  ::int16tofloat_nd_neon(source.data(), destination.data(), shape.data(), stride.data(), 0, 0, 1.0f);
  for (size_t i = 0; i < destination.size(); ++i) {
    const size_t in_plane = i % 90;
    const bool in_a_line = i < 180 && (in_plane < 16 || (in_plane >= 20 && in_plane < 36));
    EXPECT_EQ(destination[i], in_a_line ? static_cast<float>(i) : -1.0f) << i;
  }
}

TEST(NdConversion, ShortLinesBackToBackComeOutRight) {
  const std::vector<float> source = {-3.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f, 9.0f, 0, 0, 0, 0, 0, 0, 0};
  std::vector<uint8_t> destination(source.size(), 99);
  const Table shape{5, 2, 1, 1, 1, 1};
  const Table stride{0, 5, 0, 0, 0, 0};
  ::floattouint8_nd_neon(source.data(), destination.data(), shape.data(), stride.data(), 0, 10, 1.0f);
  // The blocks end behind element 12; a negative value in a block leaves the zero point alone.
  EXPECT_EQ(destination, (std::vector<uint8_t>{10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 10, 10, 10, 99, 99, 99, 99}));
}

TEST(NdConversion, RestOfALineFollowsTheRulesOfATail) {
  const std::vector<float> source(9, -3.0f);
  std::vector<uint8_t> destination(9);
  const Table shape{9, 1, 1, 1, 1, 1};
  const Table stride{};
  ::floattouint8_nd_neon(source.data(), destination.data(), shape.data(), stride.data(), 0, 10, 1.0f);
  EXPECT_EQ(destination, (std::vector<uint8_t>{10, 10, 10, 10, 10, 10, 10, 10, 7}));
}

TEST(NdConversion, OverlappingLinesAreWalkedInAscendingOrderWithTheInnerDimensionFirst) {
  // Lines start at 0, 9, 1 and 10. The tail element of the third one, 9, was in a block of the second one.
  const std::vector<float> source(19, -3.0f);
  std::vector<uint8_t> destination(19);
  const Table shape{9, 2, 2, 1, 1, 1};
  const Table stride{0, 9, 1, 0, 0, 0};
  ::floattouint8_nd_neon(source.data(), destination.data(), shape.data(), stride.data(), 0, 10, 1.0f);
  std::vector<uint8_t> expected(19, 10);
  expected[9] = 7;
  expected[18] = 7;
  EXPECT_EQ(destination, expected);
}

/// A random tensor of up to six dimensions, its memory exactly as large as what the lines touch.
::testing::AssertionResult same_on_a_random_tensor(const NdKernel &kernel, uint32_t extent, support::Random &random) {
  Table shape{extent, 1, 1, 1, 1, 1};
  for (size_t k = 1; k < 6; ++k) {
    shape[k] = random.one_in(3) ? static_cast<uint32_t>(random.between(1, 3)) : 1;
    if (random.one_in(40)) shape[k] = 0;
  }
  Table stride{0xFFFFFFFFu, 0, 0, 0, 0, 0};
  uint32_t distance = extent;
  uint64_t last = 0;
  for (size_t k = 1; k < 6; ++k) {
    // Dense, padded, or overlapping in any way.
    stride[k] = random.one_in(3) ? random.below(2 * kernel.block) : distance + (random.one_in(2) ? 0 : random.below(5));
    distance = stride[k] * std::max(shape[k], 1u);
    if (shape[k] != 0) last += uint64_t{shape[k] - 1} * stride[k];
  }
  const size_t elements = static_cast<size_t>(last) + reach(extent, kernel.block);
  for (uint32_t &value : shape) value |= random.one_in(4) ? 0x30000u : 0u;
  const support::Fault fault = random.one_in(2) ? support::Fault::kBehind : support::Fault::kInFront;
  const size_t misalign = random.one_in(2) ? 0 : random.below(16);
  const support::GuardedMemory source(elements * kernel.source_bytes, {fault, 1, misalign});
  const support::GuardedMemory destination(elements * kernel.destination_bytes, {fault, 1, misalign});
  if (writes_floats(kernel)) {
    random.fill(source.data(), source.size());
  } else if (random.one_in(2)) {
    random.fill_any_floats(source.data(), elements);
  } else {
    random.fill_floats(source.data(), elements, -300.0f, 300.0f);
  }
  destination.fill(0x5A);
  const auto frac_bits = static_cast<int16_t>(random.between(-8, 8));
  const int32_t zero_point = random.between(-300, 300);
  const float scale = random.pick({1.0f, 0.3f, -0.75f, 40.0f});
  support::Differential differential;
  differential.track(source, "source");
  differential.track(destination, "destination",
                     writes_floats(kernel) ? support::Element::kFloat
                                           : (kernel.block == 8 ? support::Element::k8Bit : support::Element::k16Bit));
  auto call = [&](NdCall function) {
    function(source.data(), destination.data(), shape.data(), stride.data(), frac_bits, zero_point, scale);
  };
  const ::testing::AssertionResult same =
      differential.same([&] { call(kernel.product); }, [&] { call(kernel.reference); });
  if (same) return same;
  ::testing::AssertionResult failure = ::testing::AssertionFailure() << kernel.name << ", shape";
  for (const uint32_t value : shape) failure << ' ' << value;
  failure << ", stride";
  for (const uint32_t value : stride) failure << ' ' << value;
  return failure << ", frac_bits " << frac_bits << ", zero point " << zero_point << ", scale " << scale << ": "
                 << same.message();
}

TEST(NdConversionAgainstTwin, RandomTensorsOfAllLineLengthsAgreeAndTouchNothingElse) {
  support::Random random = support::test_random(331);
  SCOPED_TRACE(random.trace());
  for (const NdKernel &kernel : all_kernels()) {
    for (uint32_t extent = 0; extent <= 2 * kernel.block + 3; ++extent) {
      for (int round = 0; round < 8; ++round) ASSERT_TRUE(same_on_a_random_tensor(kernel, extent, random));
    }
  }
}

/// Calls both entry points of the product and of the twin on one tensor of two lines.
::testing::AssertionResult same_entry_points(const _NN_FMT &fmt, const _NN_SCALE &scale, support::Random &random) {
  const Table shape{19, 2, 1, 1, 1, 1};
  const Table stride{0, 40, 0, 0, 0, 0};
  const int32_t zero_point = random.between(-100, 100);
  const support::GuardedMemory integers(60 * 2);
  const support::GuardedMemory floats(60 * 4);
  random.fill(integers.data(), integers.size());
  random.fill_floats(floats.data(), 60, -300.0f, 300.0f);
  support::Differential differential;
  differential.track(integers, "integers");
  differential.track(floats, "floats", support::Element::kFloat);
  const ::testing::AssertionResult in = differential.same(
      [&] {
        ::tarvu_fixtofloat_nd_neon(integers.data(), floats.as<float>(), shape.data(), stride.data(), &fmt, &scale,
                                   zero_point);
      },
      [&] {
        reference::tarvu_fixtofloat_nd_neon(integers.data(), floats.as<float>(), shape.data(), stride.data(), &fmt,
                                            &scale, zero_point);
      });
  if (!in) return in;
  random.fill_floats(floats.data(), 60, -300.0f, 300.0f);
  return differential.same(
      [&] {
        ::tarvu_floattofix_nd_neon(floats.as<float>(), integers.data(), shape.data(), stride.data(), &fmt, &scale,
                                   zero_point);
      },
      [&] {
        reference::tarvu_floattofix_nd_neon(floats.as<float>(), integers.data(), shape.data(), stride.data(), &fmt,
                                            &scale, zero_point);
      });
}

TEST(NdConversionByFormat, AllWidthsAndSignsAgreeWithTheTwin) {
  support::Random random = support::test_random(332);
  SCOPED_TRACE(random.trace());
  for (const int width : {0, 7, 8, 9, 15, 16, 17, 24, 32}) {
    for (const int sign_bits : {-1, 0, 1, 2, 127}) {
      for (const int frac_bits : {-3, 0, 4, 9}) {
        const _NN_FMT fmt = support::format(width, frac_bits, sign_bits, random.between(0, 255));
        EXPECT_TRUE(same_entry_points(fmt, support::scale(random.between(-9, 9), random.between(-3, 8)), random))
            << "width " << width << ", sign_bits " << sign_bits << ", frac_bits " << frac_bits;
      }
    }
  }
}

TEST(NdConversionByFormat, ScaleShiftsOfAllSizesAgreeWithTheTwin) {
  support::Random random = support::test_random(333);
  SCOPED_TRACE(random.trace());
  for (int shift = -128; shift <= 127; ++shift) {
    EXPECT_TRUE(same_entry_points(support::format(8, 3, 1), support::scale(random.between(-99, 99), shift), random))
        << "shift " << shift;
  }
}

TEST(NdConversionByFormat, ThirtyTwoBitFormatTouchesNothing) {
  void *nowhere = reinterpret_cast<void *>(support::unreadable_address());
  const Table shape{8, 1, 1, 1, 1, 1};
  const Table stride{};
  const _NN_SCALE scale = support::scale(1, 0);
  for (const _NN_FMT fmt : {support::format(32, 0, 1), support::format(32, 0, 0), support::format(8, 0, 2)}) {
    ::tarvu_fixtofloat_nd_neon(nowhere, static_cast<float *>(nowhere), shape.data(), stride.data(), &fmt, &scale, 0);
    ::tarvu_floattofix_nd_neon(static_cast<float *>(nowhere), nowhere, shape.data(), stride.data(), &fmt, &scale, 0);
  }
}

}  // namespace
