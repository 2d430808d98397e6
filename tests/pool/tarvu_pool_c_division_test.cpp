#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "tarvu.h"
#include "tests/pool/pool_case.h"
#include "tests/support/random.h"

namespace {

using namespace pool_test;
using support::Random;
using support::test_random;

/// A plane that is one window: every element is 0 but the last one, which is 1. So the sum is 1 and the input
/// multiplier alone chooses the numerator.
class Quotient {
 public:
  Quotient(int width, int height)
      : divisor_(width * height), plane_(kUint8, kInt16, width, height, elements(divisor_)) {
    plane_.columns(width, 1).rows(height, 1);
  }

  void mode(Mode mode, uint32_t non_count_pad) { plane_.mode(mode, non_count_pad); }
  int32_t divisor() const { return divisor_; }

  /// Both halves of the quotient, as the output shows them: the low half moved up and down again, the high half
  /// rounded.
  std::vector<int32_t> halves_of(int32_t numerator) {
    const auto multiplier = static_cast<uint32_t>(numerator) - static_cast<uint32_t>(divisor_ / 2);
    // The output is wider than the input, so that 24 comes to a right shift by 16.
    plane_.shifts(0, 24).multipliers(static_cast<int32_t>(multiplier), 65536);
    const int32_t low = plane_.pooled(1, 1)[0];
    plane_.multipliers(static_cast<int32_t>(multiplier), 1);
    return {low, plane_.pooled(1, 1)[0]};
  }

  static std::vector<int32_t> expected(int32_t numerator, int32_t divisor) {
    const int64_t quotient = int64_t{numerator} / divisor;
    const auto low = static_cast<int16_t>(static_cast<uint64_t>(quotient));
    // With 32768 added, the greatest quotients wrap to a negative sum.
    const auto sum = static_cast<int32_t>(static_cast<uint32_t>(quotient) + 32768u);
    const int64_t floor_of_high = (int64_t{sum} - (sum % 65536 + 65536) % 65536) / 65536;
    return {low, static_cast<int32_t>(floor_of_high)};
  }

 private:
  static std::vector<int32_t> elements(int count) {
    std::vector<int32_t> all(static_cast<size_t>(count), 0);
    all.back() = 1;
    return all;
  }

  int32_t divisor_;
  Plane plane_;
};

std::vector<int32_t> numerators(Random &random, int32_t divisor) {
  const int32_t least = std::numeric_limits<int32_t>::min();
  const int32_t greatest = std::numeric_limits<int32_t>::max();
  std::vector<int32_t> all = {least, least + 1, -1, 0, 1, greatest - 1, greatest};
  const int32_t most = greatest / divisor;
  for (const int32_t multiple : {1, 2, most, most - 1, random.between(0, most), random.between(0, most)}) {
    const int32_t whole = multiple * divisor;
    all.insert(all.end(), {whole, -whole, whole - 1, 1 - whole});
    if (whole < greatest) all.insert(all.end(), {whole + 1, -whole - 1});
  }
  for (int i = 0; i < 8; ++i) all.push_back(static_cast<int32_t>(random.next()));
  return all;
}

void expect_true_quotients(Random &random, int width, int height) {
  Quotient quotient(width, height);
  for (const int32_t numerator : numerators(random, quotient.divisor())) {
    const std::vector<int32_t> expected = Quotient::expected(numerator, quotient.divisor());
    quotient.mode(kLocalAverage, 0);
    ASSERT_EQ(quotient.halves_of(numerator), expected) << numerator << " / " << quotient.divisor();
    quotient.mode(kLocalAverage, 1);
    ASSERT_EQ(quotient.halves_of(numerator), expected) << numerator << " / " << quotient.divisor();
    quotient.mode(kGlobalAverage, 0);
    ASSERT_EQ(quotient.halves_of(numerator), expected) << numerator << " / " << quotient.divisor();
  }
}

TEST(PoolDivision, EveryWindowOfOneLineDividesTruncatingTowardZero) {
  Random random = test_random(61);
  SCOPED_TRACE(random.trace());
  for (int width = 1; width <= 255; ++width) expect_true_quotients(random, width, 1);
}

TEST(PoolDivision, WindowsOfSeveralLinesDivideTruncatingTowardZero) {
  Random random = test_random(62);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 60; ++i) expect_true_quotients(random, random.between(2, 40), random.between(2, 40));
  expect_true_quotients(random, 13, 13);
  expect_true_quotients(random, 128, 128);
  expect_true_quotients(random, 255, 255);
}

}  // namespace
