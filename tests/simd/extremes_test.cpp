// Maxima and minima of floats, and sums and products of NaNs, for one float and in lanes: no compiler may exchange what the
// operations make of a NaN, signalling or quiet.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>

#include "simd/default_nan.h"
#include "simd/lanes.h"
#include "tests/support/special_floats.h"

namespace {

using tarvu::f32x4;
using tarvu::f32xn;

constexpr uint32_t kNans[] = {0x7FC00000, 0xFFC00000, 0x7FC01234, 0xFFFFFFFF,   // quiet
                              0x7F800001, 0xFF800001, 0x7FBFFFFF, 0xFFBFFFFF};  // signalling

uint32_t bits(float x) { return std::bit_cast<uint32_t>(x); }

/// All lanes with the bits of x, which no arithmetic has made quiet.
template <class V>
V copies(uint32_t x) {
  float elements[tarvu::kLanes<V>];
  std::fill(std::begin(elements), std::end(elements), std::bit_cast<float>(x));
  return tarvu::load<V>(elements);
}

template <class V>
float last(V x) {
  if constexpr (tarvu::kLanes<V> == 1) {
    return x;
  } else {
    return x[tarvu::kLanes<V> - 1];
  }
}

template <class V>
void expect_nan_of_nan() {
  for (const uint32_t nan : kNans) {
    for (const float x : support::kSpecialFloats) {
      if (x != x) continue;
      const V a = copies<V>(nan), b = copies<V>(bits(x));
      EXPECT_TRUE(std::isnan(last(tarvu::at_least(a, b)))) << std::hex << nan << ' ' << x;
      EXPECT_TRUE(std::isnan(last(tarvu::at_most(a, b)))) << std::hex << nan << ' ' << x;
      EXPECT_TRUE(std::isnan(last(tarvu::maximum(a, b)))) << std::hex << nan << ' ' << x;
      EXPECT_TRUE(std::isnan(last(tarvu::maximum(b, a)))) << std::hex << nan << ' ' << x;
      EXPECT_TRUE(std::isnan(last(tarvu::minimum(a, b)))) << std::hex << nan << ' ' << x;
      EXPECT_TRUE(std::isnan(last(tarvu::minimum(b, a)))) << std::hex << nan << ' ' << x;
    }
  }
}
TEST(Extremes, OfANanAreNan) {
  expect_nan_of_nan<float>();
  expect_nan_of_nan<f32x4>();
  expect_nan_of_nan<f32xn>();
}

template <class V>
void expect_extremes_of_numbers() {
  for (const float x : support::kSpecialFloats) {
    for (const float y : support::kSpecialFloats) {
      if (x != x || y != y) continue;
      const V a = copies<V>(bits(x)), b = copies<V>(bits(y));
      EXPECT_EQ(last(tarvu::at_least(a, b)), x > y ? x : y) << x << ' ' << y;
      EXPECT_EQ(last(tarvu::maximum(a, b)), x > y ? x : y) << x << ' ' << y;
      EXPECT_EQ(last(tarvu::at_most(a, b)), x < y ? x : y) << x << ' ' << y;
      EXPECT_EQ(last(tarvu::minimum(a, b)), x < y ? x : y) << x << ' ' << y;
    }
  }
}
TEST(Extremes, OfNumbersAreTheLargerAndTheSmaller) {
  expect_extremes_of_numbers<float>();
  expect_extremes_of_numbers<f32x4>();
  expect_extremes_of_numbers<f32xn>();
}

template <class V>
void expect_first_nan() {
  const V first = copies<V>(0x7FC01234), second = copies<V>(0xFFC05678), number = copies<V>(bits(2.0f));
  for (const auto operation :
       {tarvu::add_default_nan<V>, tarvu::subtract_default_nan<V>, tarvu::multiply_default_nan<V>}) {
    EXPECT_EQ(bits(last(operation(first, second))), 0x7FC01234u);
    EXPECT_EQ(bits(last(operation(second, first))), 0xFFC05678u);
    EXPECT_EQ(bits(last(operation(number, second))), 0xFFC05678u);
    EXPECT_EQ(bits(last(operation(first, number))), 0x7FC01234u);
  }
  const V infinity = copies<V>(0x7F800000), zero = copies<V>(0);
  EXPECT_EQ(bits(last(tarvu::subtract_default_nan(infinity, infinity))), tarvu::kDefaultNan);
  EXPECT_EQ(bits(last(tarvu::add_default_nan(infinity, copies<V>(0xFF800000)))), tarvu::kDefaultNan);
  EXPECT_EQ(bits(last(tarvu::multiply_default_nan(infinity, zero))), tarvu::kDefaultNan);
}
TEST(DefaultNan, TheFirstOfTwoNansCounts) {
  expect_first_nan<float>();
  expect_first_nan<f32x4>();
  expect_first_nan<f32xn>();
}

}  // namespace
