/// \file processor.h
/// The target processor, and the 64-bit Arm rules for scalar integers and conversions as named functions: one instruction each
/// on Arm, the same results in software elsewhere.
#ifndef TARVU_SIMD_PROCESSOR_H
#define TARVU_SIMD_PROCESSOR_H

#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#if defined(TARVU_PLAIN_LANES)  // tests hold the other bodies to the plain ones
#define TARVU_NEON 0
#define TARVU_AVX2 0
#elif defined(__aarch64__)
#define TARVU_NEON 1
#define TARVU_AVX2 0
#include <arm_neon.h>
#elif defined(__AVX2__)
#define TARVU_NEON 0
#define TARVU_AVX2 1
#include <immintrin.h>
#else
#define TARVU_NEON 0
#define TARVU_AVX2 0
#endif

#if defined(__clang__)
/// In front of a loop: no iteration reads what an earlier one writes, so the loop may go into lanes.
#define TARVU_INDEPENDENT_ITERATIONS _Pragma("clang loop vectorize(assume_safety)")
/// In front of a loop over some vectors, a number that the compiler knows: they are to stand in registers, without a loop.
#define TARVU_UNROLLED _Pragma("clang loop unroll(full)")
#else
#define TARVU_INDEPENDENT_ITERATIONS _Pragma("GCC ivdep")
#define TARVU_UNROLLED _Pragma("GCC unroll 16")
#endif

namespace tarvu {

/// In the body of a loop over less than a block: keeps the compiler from building lanes for it, which would never run.
inline void keep_scalar() { __asm__ volatile(""); }

/// An element at any address, of any effective type: tensors are the caller's bytes.
template <class T>
struct [[gnu::packed, gnu::may_alias]] Unaligned {
  T value;
};

template <class T>
inline T load(const void *address) {
  T value;
  std::memcpy(&value, address, sizeof value);
  return value;
}

template <class T>
inline void store(void *address, T value) {
  std::memcpy(address, &value, sizeof value);
}

/// A tensor address of a parameter block.
template <class T = uint8_t>
inline T *pointer(uint64_t address) {
  return reinterpret_cast<T *>(address);
}

/// Wrapping 32-bit arithmetic.
constexpr int32_t add(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
constexpr int32_t subtract(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
constexpr int32_t multiply(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

/// Wrapping 64-bit arithmetic.
constexpr int64_t add(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
constexpr int64_t subtract(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}
constexpr int64_t multiply(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

/// Shifts of a 32-bit word by a variable: the count is taken modulo 32. A right shift of a signed word is arithmetic.
constexpr int32_t shift_left(int32_t x, int32_t count) {
  return static_cast<int32_t>(static_cast<uint32_t>(x) << (count & 31));
}
constexpr uint32_t shift_left(uint32_t x, int32_t count) { return x << (count & 31); }
constexpr int32_t shift_right(int32_t x, int32_t count) { return x >> (count & 31); }
constexpr uint32_t shift_right(uint32_t x, int32_t count) { return x >> (count & 31); }

/// Shifts of a 64-bit word: the count is taken modulo 64.
constexpr int64_t shift_left(int64_t x, int32_t count) {
  return static_cast<int64_t>(static_cast<uint64_t>(x) << (count & 63));
}
constexpr int64_t shift_right(int64_t x, int32_t count) { return x >> (count & 63); }

/// The nearest value that T holds.
template <class T>
constexpr T saturate(int64_t x) {
  constexpr int64_t kLeast = std::numeric_limits<T>::min();
  constexpr int64_t kMost = std::numeric_limits<T>::max();
  return static_cast<T>(x < kLeast ? kLeast : x > kMost ? kMost : x);
}
template <class T>
constexpr T saturate(int32_t x) {
  if constexpr (sizeof(T) == 4) {
    return static_cast<T>(std::is_unsigned_v<T> && x < 0 ? 0 : x);
  } else {
    constexpr int32_t kLeast = std::numeric_limits<T>::min();
    constexpr int32_t kMost = std::numeric_limits<T>::max();
    return static_cast<T>(x < kLeast ? kLeast : x > kMost ? kMost : x);
  }
}
template <class T>
constexpr T saturate(uint32_t x) {
  constexpr uint32_t kMost = std::numeric_limits<T>::max();
  return static_cast<T>(x > kMost ? kMost : x);
}

/// Truncating division. A division by 0 gives 0; the least integer divided by -1 gives itself.
inline int32_t divide(int32_t numerator, int32_t divisor) {
#if TARVU_NEON
  int32_t quotient;
  __asm__("sdiv %w0, %w1, %w2" : "=r"(quotient) : "r"(numerator), "r"(divisor));
  return quotient;
#else
  return divisor == 0 ? 0 : static_cast<int32_t>(int64_t{numerator} / divisor);
#endif
}
inline uint32_t divide(uint32_t numerator, uint32_t divisor) {
#if TARVU_NEON
  uint32_t quotient;
  __asm__("udiv %w0, %w1, %w2" : "=r"(quotient) : "r"(numerator), "r"(divisor));
  return quotient;
#else
  return divisor == 0 ? 0 : numerator / divisor;
#endif
}

/// Float to integer: truncates towards zero, saturates at the limits of the integer, NaN gives 0.
inline int32_t to_s32(float x) {
#if TARVU_NEON
  return vcvts_s32_f32(x);
#else
  // Selections without branches: loops of it go into lanes.
  float within = x < 0x1.fffffep30f ? x : 0x1.fffffep30f;
  within = within > -0x1p31f ? within : -0x1p31f;
  int32_t result = static_cast<int32_t>(within);
  result = x >= 0x1p31f ? std::numeric_limits<int32_t>::max() : result;
  return x == x ? result : 0;
#endif
}
inline uint32_t to_u32(float x) {
#if TARVU_NEON
  return vcvts_u32_f32(x);
#else
  const uint32_t top = x >= 0x1p31f ? 0x80000000u : 0u;
  float rest = x >= 0x1p31f ? x - 0x1p31f : x;
  rest = rest < 0x1.fffffep30f ? rest : 0x1.fffffep30f;
  rest = rest > 0.0f ? rest : 0.0f;
  uint32_t result = static_cast<uint32_t>(static_cast<int32_t>(rest)) | top;
  result = x >= 0x1p32f ? std::numeric_limits<uint32_t>::max() : result;
  return x == x ? result : 0;
#endif
}
inline int32_t to_s32(double x) {
#if TARVU_NEON
  int32_t result;
  __asm__("fcvtzs %w0, %d1" : "=r"(result) : "w"(x));
  return result;
#else
  if (!(x < 0x1p31)) return x != x ? 0 : std::numeric_limits<int32_t>::max();
  return x < -0x1p31 ? std::numeric_limits<int32_t>::min() : static_cast<int32_t>(x);
#endif
}
inline uint32_t to_u32(double x) {
#if TARVU_NEON
  uint32_t result;
  __asm__("fcvtzu %w0, %d1" : "=r"(result) : "w"(x));
  return result;
#else
  if (!(x < 0x1p32)) return x != x ? 0 : std::numeric_limits<uint32_t>::max();
  return x > 0.0 ? static_cast<uint32_t>(x) : 0;
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_PROCESSOR_H
