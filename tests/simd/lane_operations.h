/// \file lane_operations.h
/// Every operation of the vocabulary as a function from bytes to bytes, compiled twice: with the target's own bodies, and with the
/// plain ones that define them.
#ifndef TARVU_TESTS_SIMD_LANE_OPERATIONS_H
#define TARVU_TESTS_SIMD_LANE_OPERATIONS_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace lane_test {

/// What the bytes of an operand are, which decides what values it is tried with.
enum class Operand { kBytes, kHalves, kWords, kLongs, kFloats };

/// How results are compared: by bits; as floats or doubles, where all NaN are one; or as floats where also both zeros are.
enum class Result { kBits, kFloats, kFloatsButForZeros, kDoubles };

/// Three operands of kOperandBytes each, and a number for counts.
inline constexpr size_t kOperandBytes = 64;
struct Input {
  const uint8_t *a;
  const uint8_t *b;
  const uint8_t *c;
  int number;  ///< -128 to 127
};
inline constexpr size_t kResultBytes = 256;

struct Operation {
  const char *name;
  Operand operand;
  Result result;
  void (*run)(const Input &input, uint8_t *result);
};

std::span<const Operation> operations_of_the_target();
std::span<const Operation> plain_operations();

}  // namespace lane_test

#endif  // TARVU_TESTS_SIMD_LANE_OPERATIONS_H
