// Every operation of the vocabulary: the target's body against the plain one, which defines it.
#include "tests/simd/lane_operations.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "tests/support/random.h"
#include "tests/support/special_floats.h"

namespace {

using lane_test::Input;
using lane_test::kOperandBytes;
using lane_test::kResultBytes;
using lane_test::Operand;
using lane_test::Operation;
using lane_test::Result;
using support::Random;

/// Integers near the limits of all widths and near their halves, or anything.
template <class T>
T any_integer(Random &random) {
  if (random.one_in(3)) return static_cast<T>(random.next());
  const int bits = static_cast<int>(random.below(8 * sizeof(T) + 1));
  const uint64_t power = bits == 64 ? 0 : uint64_t{1} << bits;
  const uint64_t near = power + random.below(5) - 2;
  return static_cast<T>(random.one_in(2) ? near : uint64_t{0} - near);
}

template <class T, class Make>
void fill_with(uint8_t *to, Make make) {
  for (size_t at = 0; at < kOperandBytes; at += sizeof(T)) {
    const T value = make();
    std::memcpy(to + at, &value, sizeof value);
  }
}

void fill(Random &random, Operand operand, uint8_t *to) {
  switch (operand) {
    case Operand::kBytes:
      return fill_with<uint8_t>(to, [&] { return any_integer<uint8_t>(random); });
    case Operand::kHalves:
      return fill_with<uint16_t>(to, [&] { return any_integer<uint16_t>(random); });
    case Operand::kWords:
      return fill_with<uint32_t>(to, [&] { return any_integer<uint32_t>(random); });
    case Operand::kLongs:
      return fill_with<uint64_t>(to, [&] { return any_integer<uint64_t>(random); });
    case Operand::kFloats:
      break;
  }
  // Signalling NaN are left out: only what moves elements keeps them as they are.
  const uint32_t kind = random.below(3);
  fill_with<float>(to, [&] {
    if (kind == 0) return support::kSpecialFloats[random.below(std::size(support::kSpecialFloats))];
    if (kind == 1) return random.uniform(-300.0f, 300.0f);
    const float x = random.any_float();
    return x == x ? x : std::bit_cast<float>(std::bit_cast<uint32_t>(x) | 0x400000u);
  });
}

template <class F, class Bits>
bool same_numbers(const uint8_t *got, const uint8_t *expected, bool zeros_are_one) {
  for (size_t at = 0; at < kResultBytes; at += sizeof(F)) {
    F a, b;
    std::memcpy(&a, got + at, sizeof a);
    std::memcpy(&b, expected + at, sizeof b);
    if (std::isnan(a) && std::isnan(b)) continue;
    if (zeros_are_one && a == 0 && b == 0) continue;
    if (std::bit_cast<Bits>(a) != std::bit_cast<Bits>(b)) return false;
  }
  return true;
}

bool same(Result result, const uint8_t *got, const uint8_t *expected) {
  switch (result) {
    case Result::kBits:
      return std::memcmp(got, expected, kResultBytes) == 0;
    case Result::kFloats:
      return same_numbers<float, uint32_t>(got, expected, false);
    case Result::kFloatsButForZeros:
      return same_numbers<float, uint32_t>(got, expected, true);
    case Result::kDoubles:
      return same_numbers<double, uint64_t>(got, expected, false);
  }
  return false;
}

std::string hex(const uint8_t *bytes, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
    if (i % 4 == 3) text += ' ';
  }
  return text;
}

TEST(LaneOperations, GiveWhatTheirPlainBodiesGive) {
  const auto operations = lane_test::operations_of_the_target();
  const auto definitions = lane_test::plain_operations();
  ASSERT_EQ(operations.size(), definitions.size());
  Random random = support::test_random(471);
  SCOPED_TRACE(random.trace());
  constexpr int kCases = 400;
  for (size_t n = 0; n < operations.size(); ++n) {
    ASSERT_STREQ(operations[n].name, definitions[n].name);
    SCOPED_TRACE(operations[n].name);
    for (int i = 0; i < kCases; ++i) {
      uint8_t operands[3][kOperandBytes + 1];
      for (auto &operand : operands) fill(random, operations[n].operand, operand + i % 2);
      if (random.one_in(4)) std::memcpy(operands[1], operands[0], sizeof operands[0]);
      const Input input{operands[0] + i % 2, operands[1] + i % 2, operands[2] + i % 2, random.between(-128, 127)};
      uint8_t got[kResultBytes] = {};
      uint8_t expected[kResultBytes] = {};
      operations[n].run(input, got);
      definitions[n].run(input, expected);
      if (same(operations[n].result, got, expected)) continue;
      ADD_FAILURE() << "number " << input.number << "\na        " << hex(input.a, kOperandBytes) << "\nb        "
                    << hex(input.b, kOperandBytes) << "\nc        " << hex(input.c, kOperandBytes) << "\ngot      "
                    << hex(got, kResultBytes) << "\nexpected " << hex(expected, kResultBytes);
      break;
    }
  }
}

}  // namespace
