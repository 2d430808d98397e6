/// \file conversion.h
/// Runs of floats to integers and back. The caller gives the arithmetic of one element as a step that works on one float and
/// on four lanes alike; loads, saturating conversion, narrowing and stores are here.
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

/// A float to T, towards zero with saturation; NaN gives 0. Clamped as a float where T is narrow: the result is the same, and a
/// loop of it goes into lanes on processors whose conversion does not saturate.
template <class T>
inline T to_integer(float x) {
#if TARVU_NEON
  return saturate<T>(to_word<T>(x));
#else
  if constexpr (sizeof(T) == 4) {
    return to_word<T>(x);
  } else {
    constexpr auto kLeast = static_cast<float>(std::numeric_limits<T>::min());
    constexpr auto kMost = static_cast<float>(std::numeric_limits<T>::max());
    float clamped = x < kMost ? x : kMost;
    clamped = clamped > kLeast ? clamped : kLeast;
    clamped = x == x ? clamped : 0.0f;
    return static_cast<T>(static_cast<int32_t>(clamped));
  }
#endif
}

#if TARVU_NEON
template <class T>
using WordLanesOf = std::conditional_t<std::is_signed_v<T>, s32x4, u32x4>;

template <class T>
inline WordLanesOf<T> to_word(f32x4 x) {
  if constexpr (std::is_signed_v<T>) {
    return to_s32(x);
  } else {
    return to_u32(x);
  }
}

template <class T>
inline WordLanesOf<T> round_down_to_word(f32x4 x) {
  if constexpr (std::is_signed_v<T>) {
    return vcvtmq_s32_f32(x);
  } else {
    return vcvtmq_u32_f32(x);
  }
}

/// Stores 16 words saturated to T.
template <class T>
inline void store_saturated(const WordLanesOf<T> (&words)[4], T *to) {
  if constexpr (sizeof(T) == 4) {
    for (int k = 0; k < 4; ++k) store(to + 4 * k, words[k]);
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

/// Loads 16 elements widened to words.
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
#endif

/// to[i] = saturate(finish(to_word(step(from[i])))): `step` maps floats (one or four lanes) to floats; the word is signed or
/// unsigned as T is.
template <class T, class Step>
inline void floats_to_integers(const float *from, T *to, uint32_t count, Step step) {
  uint32_t i = 0;
#if TARVU_NEON
  const auto block = [&](const float *source, T *destination) {
    WordLanesOf<T> words[4];
    for (int k = 0; k < 4; ++k) words[k] = to_word<T>(step(load<f32x4>(source + 4 * k)));
    store_saturated<T>(words, destination);
  };
  for (; count - i >= 32; i += 32) {
    block(from + i, to + i);
    block(from + i + 16, to + i + 16);
  }
  if (count - i >= 16) {
    block(from + i, to + i);
    i += 16;
  }
#endif
  const auto *source = reinterpret_cast<const Unaligned<float> *>(from + i);
  auto *destination = reinterpret_cast<Unaligned<T> *>(to + i);
  const uint32_t rest = count - i;
  TARVU_INDEPENDENT_ITERATIONS
  for (uint32_t k = 0; k < rest; ++k) destination[k].value = to_integer<T>(step(float{source[k].value}));
}

/// As floats_to_integers(), with words in between: `step` maps floats to words of T (one or four lanes, unsigned lanes for
/// wrapping sums), which are saturated to T.
template <class T, class Step>
inline void floats_to_words_to_integers(const float *from, T *to, uint32_t count, Step step) {
  uint32_t i = 0;
#if TARVU_NEON
  for (; count - i >= 16; i += 16) {
    WordLanesOf<T> words[4];
    for (uint32_t k = 0; k < 4; ++k) words[k] = step(load<f32x4>(from + i + 4 * k));
    store_saturated<T>(words, to + i);
  }
#endif
  const auto *source = reinterpret_cast<const Unaligned<float> *>(from + i);
  auto *destination = reinterpret_cast<Unaligned<T> *>(to + i);
  const uint32_t rest = count - i;
  TARVU_INDEPENDENT_ITERATIONS
  for (uint32_t k = 0; k < rest; ++k) destination[k].value = saturate<T>(step(float{source[k].value}));
}

/// to[i] = step(word of from[i]): `step` maps words (one or four lanes, signed or unsigned as T is) to floats.
template <class T, class Step>
inline void integers_to_floats(const T *from, float *to, uint32_t count, Step step) {
  uint32_t i = 0;
#if TARVU_NEON
  const auto block = [&](const T *source, float *destination) {
    WordLanesOf<T> words[4];
    load_words<T>(source, words);
    for (int k = 0; k < 4; ++k) store(destination + 4 * k, step(words[k]));
  };
  for (; count - i >= 32; i += 32) {
    block(from + i, to + i);
    block(from + i + 16, to + i + 16);
  }
  if (count - i >= 16) {
    block(from + i, to + i);
    i += 16;
  }
#endif
  const auto *source = reinterpret_cast<const Unaligned<T> *>(from + i);
  auto *destination = reinterpret_cast<Unaligned<float> *>(to + i);
  const uint32_t rest = count - i;
  TARVU_INDEPENDENT_ITERATIONS
  for (uint32_t k = 0; k < rest; ++k) destination[k].value = step(static_cast<WordOf<T>>(source[k].value));
}

}  // namespace tarvu

#endif  // TARVU_SIMD_CONVERSION_H
