/// \file float_blocks.h
/// Sixteen neighbours of a tensor as lanes of floats, and back.
#ifndef TARVU_SIMD_FLOAT_BLOCKS_H
#define TARVU_SIMD_FLOAT_BLOCKS_H

#include "simd/conversion.h"

namespace tarvu {

inline constexpr uint32_t kFloatBlock = 16;
inline constexpr uint32_t kFloatBlockVectors = kFloatBlock / kLanes<f32xn>;

/// One element as a float: an integer times `multiplier`; a float as it is.
template <class T>
inline float load_as_float(const T *from, float multiplier) {
  if constexpr (std::is_same_v<T, float>) {
    return load<float>(from);
  } else {
    return to_f32(static_cast<WordOf<T>>(load<T>(from))) * multiplier;
  }
}

/// As load_as_float(), for a block.
template <class T>
inline void load_as_floats(const T *from, float multiplier, f32xn *floats) {
  if constexpr (std::is_same_v<T, float>) {
#if TARVU_NEON
    const float32x4x4_t block = vld1q_f32_x4(from);
    for (uint32_t k = 0; k < kFloatBlockVectors; ++k) floats[k] = block.val[k];
#else
    for (uint32_t k = 0; k < kFloatBlockVectors; ++k) floats[k] = load<f32xn>(from + kLanes<f32xn> * k);
#endif
  } else {
#if TARVU_NEON || TARVU_AVX2
    WordLanesOf<T> words[kFloatBlockVectors];
    load_words<T>(from, words);
    for (uint32_t k = 0; k < kFloatBlockVectors; ++k) floats[k] = to_f32(words[k]) * fill<f32xn>(multiplier);
#else
    float elements[kFloatBlock];
    for (uint32_t i = 0; i < kFloatBlock; ++i) elements[i] = load_as_float(from + i, multiplier);
    for (uint32_t k = 0; k < kFloatBlockVectors; ++k) floats[k] = load<f32xn>(elements + kLanes<f32xn> * k);
#endif
  }
}

/// One element: x times `multiplier` towards zero with saturation, NaN as 0; a float as it is.
template <class T>
inline void store_converted(float x, float multiplier, T *to) {
  if constexpr (std::is_same_v<T, float>) {
    store(to, x);
  } else {
    store(to, to_integer<T>(x * multiplier));
  }
}

/// As store_converted() of one element, for a block.
template <class T>
inline void store_converted(const f32xn (&floats)[kFloatBlockVectors], float multiplier, T *to) {
  if constexpr (std::is_same_v<T, float>) {
    for (uint32_t k = 0; k < kFloatBlockVectors; ++k) store(to + kLanes<f32xn> * k, floats[k]);
  } else {
#if TARVU_NEON || TARVU_AVX2
    f32xn products[kFloatBlockVectors];
    for (uint32_t k = 0; k < kFloatBlockVectors; ++k) products[k] = floats[k] * fill<f32xn>(multiplier);
    store_converted<T>(products, to);
#else
    for (uint32_t i = 0; i < kFloatBlock; ++i) {
      store_converted(floats[i / kLanes<f32xn>][i % kLanes<f32xn>], multiplier, to + i);
    }
#endif
  }
}

/// One element: x times `multiplier` to nearest, ties away from 0, with saturation, NaN as 0; a float as it is.
template <class T>
inline void store_rounded(float x, float multiplier, T *to) {
  if constexpr (std::is_same_v<T, float>) {
    store(to, x);
  } else {
    store(to, to_integer<T>(round_half_away(x * multiplier)));
  }
}

/// As store_rounded() of one element, for a block of integers.
template <class T>
inline void store_rounded(const f32xn (&floats)[kFloatBlockVectors], float multiplier, T *to) {
#if TARVU_NEON
  WordLanesOf<T> words[kFloatBlockVectors];
  for (uint32_t k = 0; k < kFloatBlockVectors; ++k) {
    const f32xn product = floats[k] * fill<f32xn>(multiplier);
    if constexpr (std::is_signed_v<T>) {
      words[k] = vcvtaq_s32_f32(product);
    } else {
      words[k] = vcvtaq_u32_f32(product);
    }
  }
  store_saturated<T>(words, to);
#elif TARVU_AVX2
  // Twice the value, cut to an integer t, gives (t + 1) / 2 rounded down for t >= 0 and t / 2 rounded down below. The conversion
  // makes the least integer of what is too small.
  constexpr float kMost = 2.0f * std::numeric_limits<T>::max() + 1.0f;
  __m256i twice[kFloatBlockVectors];
  for (uint32_t k = 0; k < kFloatBlockVectors; ++k) {
    const f32xn product = floats[k] * fill<f32xn>(2.0f * multiplier);
    const auto number = f32xn(s32xn(product) & s32xn(product == product));
    twice[k] = _mm256_cvttps_epi32(__m256(smaller(number, fill<f32xn>(kMost))));
  }
  if constexpr (sizeof(T) == 1) {
    const __m256i both = _mm256_packs_epi32(twice[0], twice[1]);
    const __m256i up = _mm256_add_epi16(_mm256_srai_epi16(both, 15), _mm256_set1_epi16(1));
    const __m256i halves = _mm256_permute4x64_epi64(_mm256_srai_epi16(_mm256_add_epi16(both, up), 1), 0xD8);
    const __m128i first = _mm256_castsi256_si128(halves);
    const __m128i last = _mm256_extracti128_si256(halves, 1);
    store(to, std::is_signed_v<T> ? _mm_packs_epi16(first, last) : _mm_packus_epi16(first, last));
  } else {
    for (__m256i &word : twice) {
      const __m256i up = _mm256_add_epi32(_mm256_srai_epi32(word, 31), _mm256_set1_epi32(1));
      word = _mm256_srai_epi32(_mm256_add_epi32(word, up), 1);
    }
    store_packed<T>(twice[0], twice[1], to);
  }
#else
  for (uint32_t i = 0; i < kFloatBlock; ++i) {
    store_rounded(floats[i / kLanes<f32xn>][i % kLanes<f32xn>], multiplier, to + i);
  }
#endif
}

/// Sixteen neighbours dealt out to four vectors: lane k of fours[j] is from[4k + j].
inline void load_fours(const float *from, f32x4 (&fours)[4]) {
#if TARVU_NEON
  const float32x4x4_t dealt = vld4q_f32(from);
  for (int j = 0; j < 4; ++j) fours[j] = dealt.val[j];
#else
  f32x4 runs[4];
  for (int k = 0; k < 4; ++k) runs[k] = load<f32x4>(from + 4 * k);
  const f32x4 low_01 = __builtin_shufflevector(runs[0], runs[1], 0, 4, 1, 5);
  const f32x4 low_23 = __builtin_shufflevector(runs[2], runs[3], 0, 4, 1, 5);
  const f32x4 high_01 = __builtin_shufflevector(runs[0], runs[1], 2, 6, 3, 7);
  const f32x4 high_23 = __builtin_shufflevector(runs[2], runs[3], 2, 6, 3, 7);
  fours[0] = __builtin_shufflevector(low_01, low_23, 0, 1, 4, 5);
  fours[1] = __builtin_shufflevector(low_01, low_23, 2, 3, 6, 7);
  fours[2] = __builtin_shufflevector(high_01, high_23, 0, 1, 4, 5);
  fours[3] = __builtin_shufflevector(high_01, high_23, 2, 3, 6, 7);
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_FLOAT_BLOCKS_H
