/// \file conversion.h
/// Runs of floats to integers and back. The caller gives the arithmetic of one element as a step that works on one float and
/// on the target's lanes alike; loads, saturating conversion, narrowing and stores are here.
#ifndef TARVU_SIMD_CONVERSION_H
#define TARVU_SIMD_CONVERSION_H

#include <algorithm>
#include <limits>

#include "simd/rounding.h"

namespace tarvu {

/// A 32-bit integer saturated to T, signed for the signed types and unsigned for the unsigned ones.
template <class T>
using WordOf = std::conditional_t<std::is_signed_v<T>, int32_t, uint32_t>;
template <class T>
inline T saturate(WordOf<T> x) {
  return static_cast<T>(std::clamp<WordOf<T>>(x, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

/// A signed integer saturated to T, whether T is signed or not.
template <class T>
inline T saturate_signed(int64_t x) {
  return static_cast<T>(std::clamp<int64_t>(x, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

/// A float to the word of T, towards zero with saturation; NaN gives 0.
template <class T>
inline WordOf<T> to_word(float x) {
  if constexpr (std::is_signed_v<T>) {
    return to_s32(x);
  } else {
    return to_u32(x);
  }
}

/// A float rounded down to the word of T with saturation; NaN gives 0.
template <class T>
inline WordOf<T> round_down_to_word(float x) {
  return to_word<T>(round_down(x));
}

/// A float to T, towards zero with saturation; NaN gives 0.
template <class T>
inline T to_integer(float x) {
  return saturate<T>(to_word<T>(x));
}

#if TARVU_NEON || TARVU_AVX2
template <class T>
using WordLanesOf = std::conditional_t<std::is_signed_v<T>, s32xn, u32xn>;

/// Elements of a block, and the vectors of floats or words that hold them.
inline constexpr int kConversionBlock = 16;
inline constexpr int kBlockVectors = kConversionBlock / kLanes<f32xn>;

template <class T>
inline WordLanesOf<T> to_word(f32xn x) {
  if constexpr (std::is_signed_v<T>) {
    return to_s32(x);
  } else {
    return to_u32(x);
  }
}

template <class T>
inline WordLanesOf<T> round_down_to_word(f32xn x) {
  if constexpr (std::is_signed_v<T>) {
    return round_down_to_s32(x);
  } else {
    return round_down_to_u32(x);
  }
}
#endif

#if TARVU_NEON
/// Stores a block of words saturated to T.
template <class T>
inline void store_saturated(const WordLanesOf<T> (&words)[4], T *to) {
  if constexpr (sizeof(T) == 4 && std::is_signed_v<T>) {
    const int32x4x4_t block = {{words[0], words[1], words[2], words[3]}};
    vst1q_s32_x4(to, block);
  } else if constexpr (sizeof(T) == 4) {
    const uint32x4x4_t block = {{words[0], words[1], words[2], words[3]}};
    vst1q_u32_x4(to, block);
  } else if constexpr (std::is_signed_v<T>) {
    const int16x8_t low = vqmovn_high_s32(vqmovn_s32(words[0]), words[1]);
    const int16x8_t high = vqmovn_high_s32(vqmovn_s32(words[2]), words[3]);
    if constexpr (sizeof(T) == 1) {
      store(to, vqmovn_high_s16(vqmovn_s16(low), high));
    } else {
      store(to, low);
      store(to + 8, high);
    }
  } else {
    const uint16x8_t low = vqmovn_high_u32(vqmovn_u32(words[0]), words[1]);
    const uint16x8_t high = vqmovn_high_u32(vqmovn_u32(words[2]), words[3]);
    if constexpr (sizeof(T) == 1) {
      store(to, vqmovn_high_u16(vqmovn_u16(low), high));
    } else {
      store(to, low);
      store(to + 8, high);
    }
  }
}

/// Stores a block of floats as T: towards zero, saturated, NaN as 0.
template <class T>
inline void store_converted(const f32x4 (&floats)[4], T *to) {
  WordLanesOf<T> words[4];
  for (int k = 0; k < 4; ++k) words[k] = to_word<T>(floats[k]);
  store_saturated<T>(words, to);
}

inline void store_floats(const f32x4 (&floats)[4], float *to) {
  const float32x4x4_t block = {{floats[0], floats[1], floats[2], floats[3]}};
  vst1q_f32_x4(to, block);
}

/// Loads a block of elements widened to words.
template <class T>
inline void load_words(const T *from, WordLanesOf<T> (&words)[4]) {
  if constexpr (sizeof(T) == 4) {
    for (int k = 0; k < 4; ++k) words[k] = load<WordLanesOf<T>>(from + 4 * k);
  } else if constexpr (std::is_signed_v<T>) {
    int16x8_t low, high;
    if constexpr (sizeof(T) == 1) {
      const auto narrow = load<int8x16_t>(from);
      low = vmovl_s8(vget_low_s8(narrow));
      high = vmovl_high_s8(narrow);
    } else {
      low = load<int16x8_t>(from);
      high = load<int16x8_t>(from + 8);
    }
    words[0] = vmovl_s16(vget_low_s16(low));
    words[1] = vmovl_high_s16(low);
    words[2] = vmovl_s16(vget_low_s16(high));
    words[3] = vmovl_high_s16(high);
  } else {
    uint16x8_t low, high;
    if constexpr (sizeof(T) == 1) {
      const auto narrow = load<uint8x16_t>(from);
      low = vmovl_u8(vget_low_u8(narrow));
      high = vmovl_high_u8(narrow);
    } else {
      low = load<uint16x8_t>(from);
      high = load<uint16x8_t>(from + 8);
    }
    words[0] = vmovl_u16(vget_low_u16(low));
    words[1] = vmovl_high_u16(low);
    words[2] = vmovl_u16(vget_low_u16(high));
    words[3] = vmovl_high_u16(high);
  }
}
#elif TARVU_AVX2
/// Stores a block of signed words, none above the largest T, raised to the least T where they are below it.
template <class T>
inline void store_packed(__m256i low, __m256i high, T *to) {
  constexpr int kInOrder = 0xD8;  // packing works in 128-bit halves
  if constexpr (sizeof(T) == 2 && std::is_unsigned_v<T>) {
    store(to, _mm256_permute4x64_epi64(_mm256_packus_epi32(low, high), kInOrder));
  } else {
    const __m256i halves = _mm256_permute4x64_epi64(_mm256_packs_epi32(low, high), kInOrder);
    if constexpr (sizeof(T) == 2) {
      store(to, halves);
    } else {
      const __m128i first = _mm256_castsi256_si128(halves);
      const __m128i last = _mm256_extracti128_si256(halves, 1);
      store(to, std::is_signed_v<T> ? _mm_packs_epi16(first, last) : _mm_packus_epi16(first, last));
    }
  }
}

template <class T>
inline void store_saturated(const WordLanesOf<T> (&words)[2], T *to) {
  if constexpr (sizeof(T) == 4) {
    store(to, words[0]);
    store(to + 8, words[1]);
  } else if constexpr (std::is_signed_v<T>) {
    store_packed<T>(__m256i(words[0]), __m256i(words[1]), to);
  } else {
    const __m256i most = _mm256_set1_epi32(std::numeric_limits<T>::max());
    store_packed<T>(_mm256_min_epu32(__m256i(words[0]), most), _mm256_min_epu32(__m256i(words[1]), most), to);
  }
}

/// Narrow types: NaN becomes 0, what is too large the largest T; what is too small is left to the packing, since the
/// conversion gives the least integer for all that it cannot hold.
template <class T>
inline void store_converted(const f32xn (&floats)[2], T *to) {
  if constexpr (sizeof(T) == 4) {
    for (int k = 0; k < 2; ++k) store(to + 8 * k, to_word<T>(floats[k]));
  } else {
    const auto words = [](f32xn x) {
      const auto number = f32xn(s32xn(x) & s32xn(x == x));
      return _mm256_cvttps_epi32(__m256(smaller(number, fill<f32xn>(std::numeric_limits<T>::max()))));
    };
    store_packed<T>(words(floats[0]), words(floats[1]), to);
  }
}

inline void store_floats(const f32xn (&floats)[2], float *to) {
  store(to, floats[0]);
  store(to + 8, floats[1]);
}

template <class T>
inline void load_words(const T *from, WordLanesOf<T> (&words)[2]) {
  for (int k = 0; k < 2; ++k, from += 8) {
    __m256i wide;
    if constexpr (sizeof(T) == 4) {
      wide = load<__m256i>(from);
    } else if constexpr (sizeof(T) == 2) {
      const auto narrow = load<__m128i>(from);
      wide = std::is_signed_v<T> ? _mm256_cvtepi16_epi32(narrow) : _mm256_cvtepu16_epi32(narrow);
    } else {
      const __m128i narrow = _mm_cvtsi64_si128(load<int64_t>(from));
      wide = std::is_signed_v<T> ? _mm256_cvtepi8_epi32(narrow) : _mm256_cvtepu8_epi32(narrow);
    }
    words[k] = WordLanesOf<T>(wide);
  }
}
#endif

/// to[i] = towards zero of step(from[i]), saturated; NaN gives 0. `step` maps floats to floats, one or f32xn at a time.
/// `unrolled` blocks are converted a turn.
template <class T, int unrolled = 4, class Step>
inline void floats_to_integers(const float *from, T *to, uint32_t count, Step step) {
#if TARVU_NEON || TARVU_AVX2
  const auto block = [&](const float *source, T *destination) {
    f32xn floats[kBlockVectors];
    for (int k = 0; k < kBlockVectors; ++k) floats[k] = step(load<f32xn>(source + kLanes<f32xn> * k));
    store_converted<T>(floats, destination);
  };
  constexpr int kTurn = unrolled * kConversionBlock;
  for (; unrolled > 1 && count >= kTurn; count -= kTurn, from += kTurn, to += kTurn) {
    for (int k = 0; k < kTurn; k += kConversionBlock) block(from + k, to + k);
  }
  for (; count >= 16; count -= 16, from += 16, to += 16) block(from, to);
#endif
  for (uint32_t k = 0; k < count; ++k) {
    keep_scalar();
    store(to + k, to_integer<T>(step(load<float>(from + k))));
  }
}

/// to[i] = step(from[i]) saturated: `step` maps floats to words of T (one or f32xn at a time).
template <class T, class Step>
inline void floats_to_words_to_integers(const float *from, T *to, uint32_t count, Step step) {
#if TARVU_NEON || TARVU_AVX2
  const auto block = [&](const float *source, T *destination) {
    WordLanesOf<T> words[kBlockVectors];
    for (int k = 0; k < kBlockVectors; ++k) words[k] = step(load<f32xn>(source + kLanes<f32xn> * k));
    store_saturated<T>(words, destination);
  };
  for (; count >= 32; count -= 32, from += 32, to += 32) {
    block(from, to);
    block(from + 16, to + 16);
  }
  for (; count >= 16; count -= 16, from += 16, to += 16) block(from, to);
#endif
  for (uint32_t k = 0; k < count; ++k) {
    keep_scalar();
    store(to + k, saturate<T>(step(load<float>(from + k))));
  }
}

/// to[i] = step(word of from[i]): `step` maps words (signed or unsigned as T is, one or as many as f32xn has) to floats.
template <class T, class Step>
inline void integers_to_floats(const T *from, float *to, uint32_t count, Step step) {
#if TARVU_NEON || TARVU_AVX2
  const auto block = [&](const T *source, float *destination) {
    WordLanesOf<T> words[kBlockVectors];
    load_words<T>(source, words);
    f32xn floats[kBlockVectors];
    for (int k = 0; k < kBlockVectors; ++k) floats[k] = step(words[k]);
    store_floats(floats, destination);
  };
  for (; count >= 64; count -= 64, from += 64, to += 64) {
    for (int k = 0; k < 64; k += kConversionBlock) block(from + k, to + k);
  }
  for (; count >= 16; count -= 16, from += 16, to += 16) block(from, to);
#endif
  for (uint32_t k = 0; k < count; ++k) {
    keep_scalar();
    store(to + k, step(static_cast<WordOf<T>>(load<T>(from + k))));
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_CONVERSION_H
