/// \file integer_sum.h
/// Sums of runs of integers.
#ifndef TARVU_SIMD_INTEGER_SUM_H
#define TARVU_SIMD_INTEGER_SUM_H

#include <cstddef>
#include <type_traits>

#include "simd/lanes.h"

namespace tarvu {

/// Elements whose sum cannot leave 32 bits, for 8-bit and 16-bit types.
inline constexpr size_t kLongestIntegerSum = size_t{1} << 15;

/// The sum of up to kLongestIntegerSum elements.
template <class T>
inline int32_t sum_of_integers(const T *from, size_t count) {
  int32_t sum = 0;
  size_t i = 0;
#if TARVU_NEON
  if constexpr (std::is_same_v<T, int8_t>) {
    int32x4_t lanes = vdupq_n_s32(0);
    for (; i + 16 <= count; i += 16) lanes = vpadalq_s16(lanes, vpaddlq_s8(load<int8x16_t>(from + i)));
    sum = vaddvq_s32(lanes);
  } else if constexpr (std::is_same_v<T, uint8_t>) {
    uint32x4_t lanes = vdupq_n_u32(0);
    for (; i + 16 <= count; i += 16) lanes = vpadalq_u16(lanes, vpaddlq_u8(load<uint8x16_t>(from + i)));
    sum = static_cast<int32_t>(vaddvq_u32(lanes));
  } else if constexpr (std::is_same_v<T, int16_t>) {
    int32x4_t lanes = vdupq_n_s32(0);
    for (; i + 8 <= count; i += 8) lanes = vpadalq_s16(lanes, load<int16x8_t>(from + i));
    sum = vaddvq_s32(lanes);
  } else {
    uint32x4_t lanes = vdupq_n_u32(0);
    for (; i + 8 <= count; i += 8) lanes = vpadalq_u16(lanes, load<uint16x8_t>(from + i));
    sum = static_cast<int32_t>(vaddvq_u32(lanes));
  }
#elif TARVU_AVX2
  if constexpr (sizeof(T) == 1) {
    // Absolute differences to the least element, summed in eights.
    const __m256i least = _mm256_set1_epi8(std::is_signed_v<T> ? -128 : 0);
    __m256i lanes = _mm256_setzero_si256();
    for (; i + 32 <= count; i += 32) {
      const __m256i above = _mm256_xor_si256(load<__m256i>(from + i), least);
      lanes = _mm256_add_epi64(lanes, _mm256_sad_epu8(above, _mm256_setzero_si256()));
    }
    const auto totals = u64x2(_mm256_castsi256_si128(lanes)) + u64x2(_mm256_extracti128_si256(lanes, 1));
    sum = static_cast<int32_t>(totals[0] + totals[1]) - static_cast<int32_t>(i) * (std::is_signed_v<T> ? 128 : 0);
  }
#endif
  for (; i < count; ++i) sum += load<T>(from + i);
  return sum;
}

}  // namespace tarvu

#endif  // TARVU_SIMD_INTEGER_SUM_H
