/// \file processor_rules.h
/// The 64-bit Arm processor's integer and conversion rules in plain C++, for the reference twins: written apart from simd/.
#ifndef TARVU_TESTS_REFERENCE_PROCESSOR_RULES_H
#define TARVU_TESTS_REFERENCE_PROCESSOR_RULES_H

#include <cstdint>
#include <cstring>

namespace reference {

/// Wrapping 32-bit sum, difference and product.
inline int32_t add_32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int32_t subtract_32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
inline int32_t multiply_32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

/// Shifts whose count is taken modulo 32; the right shift of a signed word is arithmetic.
inline int32_t shift_left_32(int32_t x, int32_t count) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) << (count & 31));
}
inline int32_t shift_right_32(int32_t x, int32_t count) {
  int64_t value = x;
  for (int i = count & 31; i > 0; --i) value = value >= 0 ? value / 2 : -((-value + 1) / 2);
  return static_cast<int32_t>(value);
}
inline uint32_t shift_right_u32(uint32_t x, int32_t count) { return x >> (count & 31); }

/// Shifts of 64-bit words whose count is taken modulo 64.
inline int64_t shift_left_64(int64_t x, int32_t count) {
  return static_cast<int64_t>(static_cast<uint64_t>(x) << (count & 63));
}
inline int64_t shift_right_64(int64_t x, int32_t count) {
  const int n = count & 63;
  const uint64_t moved = static_cast<uint64_t>(x) >> n;
  return static_cast<int64_t>(x < 0 && n != 0 ? moved | ~(~uint64_t{0} >> n) : moved);
}

/// Truncating division; a division by 0 gives 0, the least integer divided by -1 gives itself.
inline int32_t divide_32(int32_t a, int32_t b) {
  return b == 0 ? 0 : static_cast<int32_t>(static_cast<int64_t>(a) / b);
}
inline uint32_t divide_u32(uint32_t a, uint32_t b) { return b == 0 ? 0 : a / b; }

/// Float to integer: truncates towards zero and saturates; NaN gives 0.
inline int32_t float_to_s32(double x) {
  if (x != x) return 0;
  if (x >= 2147483647.0) return 2147483647;
  if (x <= -2147483648.0) return -2147483647 - 1;
  return static_cast<int32_t>(x);
}
inline uint32_t float_to_u32(double x) {
  if (x != x || x <= 0.0) return 0;
  if (x >= 4294967295.0) return 4294967295u;
  return static_cast<uint32_t>(x);
}
inline int64_t float_to_s64(double x) {
  if (x != x) return 0;
  if (x >= 9223372036854775808.0) return INT64_MAX;
  if (x <= -9223372036854775808.0) return INT64_MIN;
  return static_cast<int64_t>(x);
}

/// One element at an address of any alignment.
template <class T>
T load(const void *address) {
  T value;
  std::memcpy(&value, address, sizeof value);
  return value;
}
template <class T>
void store(void *address, T value) {
  std::memcpy(address, &value, sizeof value);
}

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_PROCESSOR_RULES_H
