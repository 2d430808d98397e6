/// \file blocks.h
/// A block: sixteen neighbours of a run, as words or floats in the target's widest lanes. Loads widen elements, stores bring what
/// was computed back to elements of 8, 16 or 32 bits.
#ifndef TARVU_SIMD_BLOCKS_H
#define TARVU_SIMD_BLOCKS_H

#include "simd/convert.h"
#include "simd/widen.h"

namespace tarvu {

inline constexpr uint32_t kBlockElements = 16;
inline constexpr int kBlockVectors = static_cast<int>(kBlockElements) / kLanes<f32xn>;

/// Sixteen floats, and sixteen words of elements of T, in order.
using FloatBlock = Several<f32xn, kBlockVectors>;
template <class T>
using WordBlockOf = Several<WordLanesOf<T>, kBlockVectors>;

/// step of each vector of a block.
template <class V, class Step>
inline auto map_block(const Several<V, kBlockVectors> &block, Step step) {
  Several<decltype(step(block.of[0])), kBlockVectors> out;
  TARVU_UNROLLED
  for (int k = 0; k < kBlockVectors; ++k) out.of[k] = step(block.of[k]);
  return out;
}

inline FloatBlock load_floats(const float *from) {
  FloatBlock block;
  for (int k = 0; k < kBlockVectors; ++k) block.of[k] = load<f32xn>(from + kLanes<f32xn> * k);
  return block;
}

inline void store_floats(const FloatBlock &block, float *to) {
#if TARVU_NEON
  const float32x4x4_t all = {{block.of[0], block.of[1], block.of[2], block.of[3]}};
  vst1q_f32_x4(to, all);
#else
  for (int k = 0; k < kBlockVectors; ++k) store(to + kLanes<f32xn> * k, block.of[k]);
#endif
}

/// Elements widened to words.
template <class T>
inline WordBlockOf<T> load_words(const T *from) {
  WordBlockOf<T> words;
#if TARVU_NEON
  if constexpr (sizeof(T) == 4) {
    for (int k = 0; k < 4; ++k) words.of[k] = load<WordLanesOf<T>>(from + 4 * k);
  } else {
    using Half = std::conditional_t<std::is_signed_v<T>, s16x8, u16x8>;
    Wide<Half> halves;
    if constexpr (sizeof(T) == 1) {
      halves = widen(load<LanesOf<T>>(from));
    } else {
      halves = {load<Half>(from), load<Half>(from + 8)};
    }
    const auto front = widen(halves.low);
    const auto back = widen(halves.high);
    words = {{front.low, front.high, back.low, back.high}};
  }
#elif TARVU_AVX2
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
    words.of[k] = WordLanesOf<T>(wide);
  }
#else
  WordOf<T> all[kBlockElements];
  for (uint32_t i = 0; i < kBlockElements; ++i) all[i] = load<T>(from + i);
  for (int k = 0; k < kBlockVectors; ++k) words.of[k] = load<WordLanesOf<T>>(all + kLanes<f32xn> * k);
#endif
  return words;
}

#if TARVU_AVX2
/// Stores signed words, none above the largest T, raised to the least T where they are below it.
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
#endif

/// Stores words, signed or unsigned ones, saturated to T.
template <class T, class W>
inline void store_saturated(const Several<W, kBlockVectors> &words, T *to) {
  using Word = LaneType<W>;
#if TARVU_NEON
  if constexpr (std::is_same_v<T, int32_t> && std::is_same_v<Word, int32_t>) {
    const int32x4x4_t block = {{words.of[0], words.of[1], words.of[2], words.of[3]}};
    vst1q_s32_x4(to, block);
  } else if constexpr (std::is_same_v<T, uint32_t> && std::is_same_v<Word, uint32_t>) {
    const uint32x4x4_t block = {{words.of[0], words.of[1], words.of[2], words.of[3]}};
    vst1q_u32_x4(to, block);
  } else {
    static_assert(sizeof(T) < 4);
    using Half = std::conditional_t<sizeof(T) == 2, T, Word>;
    using Halves = std::conditional_t<std::is_signed_v<Half>, int16_t, uint16_t>;
    const auto low = narrow<Halves>(Wide<W>{words.of[0], words.of[1]});
    const auto high = narrow<Halves>(Wide<W>{words.of[2], words.of[3]});
    if constexpr (sizeof(T) == 1) {
      store(to, narrow<T>(Wide<LanesOf<Halves>>{low, high}));
    } else {
      store(to, low);
      store(to + 8, high);
    }
  }
#elif TARVU_AVX2
  if constexpr (sizeof(T) == 4) {
    static_assert(std::is_same_v<T, Word>);
    store(to, words.of[0]);
    store(to + 8, words.of[1]);
  } else if constexpr (std::is_signed_v<Word>) {
    store_packed<T>(__m256i(words.of[0]), __m256i(words.of[1]), to);
  } else {
    const __m256i most = _mm256_set1_epi32(std::numeric_limits<T>::max());
    store_packed<T>(_mm256_min_epu32(__m256i(words.of[0]), most), _mm256_min_epu32(__m256i(words.of[1]), most), to);
  }
#else
  for (int i = 0; i < 16; ++i) store(to + i, saturate<T>(Word{words.of[i / kLanes<f32xn>][i % kLanes<f32xn>]}));
#endif
}

/// Stores floats as T: towards zero with saturation, NaN as 0.
template <class T>
inline void store_truncated(const FloatBlock &floats, T *to) {
#if TARVU_AVX2
  if constexpr (sizeof(T) < 4) {
    // NaN becomes 0, what is too large the largest T; what is too small is left to the packing, since the conversion gives the
    // least integer for all that it cannot hold.
    const auto words = [](f32xn x) {
      const auto number = f32xn(s32xn(x) & s32xn(x == x));
      return _mm256_cvttps_epi32(__m256(at_most(number, fill<f32xn>(std::numeric_limits<T>::max()))));
    };
    store_packed<T>(words(floats.of[0]), words(floats.of[1]), to);
    return;
  }
#endif
  store_saturated<T>(map_block(floats, [](f32xn x) { return to_word<T>(x); }), to);
}

// ---- Elements of a format as floats, and back: an integer stands for itself times a multiplier, a float for itself

/// One element as a float, and a block of them.
template <class T>
inline float load_as_float(const T *from, float multiplier) {
  if constexpr (std::is_same_v<T, float>) {
    return load<float>(from);
  } else {
    return to_f32(WordOf<T>{load<T>(from)}) * multiplier;
  }
}
template <class T>
inline FloatBlock load_as_floats(const T *from, float multiplier) {
  if constexpr (std::is_same_v<T, float>) {
#if TARVU_NEON
    const float32x4x4_t block = vld1q_f32_x4(from);
    return {{block.val[0], block.val[1], block.val[2], block.val[3]}};
#else
    return load_floats(from);
#endif
  } else {
    return map_block(load_words(from), [=](auto words) { return to_f32(words) * fill<f32xn>(multiplier); });
  }
}

/// Floats times `multiplier` towards zero with saturation, NaN as 0; to floats as they are.
template <class T>
inline void store_converted(float x, float multiplier, T *to) {
  if constexpr (std::is_same_v<T, float>) {
    store(to, x);
  } else {
    store(to, to_integer<T>(x * multiplier));
  }
}
template <class T>
inline void store_converted(const FloatBlock &floats, float multiplier, T *to) {
  if constexpr (std::is_same_v<T, float>) {
    for (int k = 0; k < kBlockVectors; ++k) store(to + kLanes<f32xn> * k, floats.of[k]);
  } else {
    store_truncated(map_block(floats, [=](f32xn x) { return x * fill<f32xn>(multiplier); }), to);
  }
}

/// Floats times `multiplier` to nearest, ties away from 0, with saturation, NaN as 0; to floats as they are.
template <class T>
inline void store_rounded(float x, float multiplier, T *to) {
  if constexpr (std::is_same_v<T, float>) {
    store(to, x);
  } else {
    store(to, to_integer<T>(round_half_away(x * multiplier)));
  }
}
template <class T>
inline void store_rounded(const FloatBlock &floats, float multiplier, T *to) {
  if constexpr (std::is_same_v<T, float>) {
    for (int k = 0; k < kBlockVectors; ++k) store(to + kLanes<f32xn> * k, floats.of[k]);
    return;
  } else {
#if TARVU_NEON
    const auto round = [=](f32x4 x) {
      const f32x4 product = x * fill<f32x4>(multiplier);
      if constexpr (std::is_signed_v<T>) return s32x4(vcvtaq_s32_f32(product));
      if constexpr (std::is_unsigned_v<T>) return u32x4(vcvtaq_u32_f32(product));
    };
    store_saturated(map_block(floats, round), to);
#elif TARVU_AVX2
    // Twice the value, cut to an integer t, gives (t + 1) / 2 rounded down for t >= 0 and t / 2 rounded down below. The conversion
    // makes the least integer of what is too small.
    static_assert(sizeof(T) < 4);
    constexpr float kMost = 2.0f * std::numeric_limits<T>::max() + 1.0f;
    __m256i twice[kBlockVectors];
    for (int k = 0; k < kBlockVectors; ++k) {
      const f32xn product = floats.of[k] * fill<f32xn>(2.0f * multiplier);
      const auto number = f32xn(s32xn(product) & s32xn(product == product));
      twice[k] = _mm256_cvttps_epi32(__m256(at_most(number, fill<f32xn>(kMost))));
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
    for (int i = 0; i < 16; ++i) store_rounded(floats.of[i / kLanes<f32xn>][i % kLanes<f32xn>], multiplier, to + i);
#endif
  }
}

// ---- A block for sums in order

/// A block whose vectors stand in the order that the target sums soonest, and in the registers that it loads and stores them with.
#if TARVU_NEON
typedef float32x4x4_t RowBlock;
inline RowBlock load_row(const float *from) { return vld4q_f32(from); }
inline void store_row(const RowBlock &block, float *to) { vst4q_f32(to, block); }
#else
struct RowBlock {
  f32xn val[kBlockVectors];
};
inline RowBlock load_row(const float *from) {
  RowBlock block;
  for (int k = 0; k < kBlockVectors; ++k) block.val[k] = load<f32xn>(from + kLanes<f32xn> * k);
  return block;
}
inline void store_row(const RowBlock &block, float *to) {
  for (int k = 0; k < kBlockVectors; ++k) store(to + kLanes<f32xn> * k, block.val[k]);
}
#endif

/// step of each vector of a block.
template <class Step>
inline RowBlock map_row(RowBlock block, Step step) {
  for (auto &part : block.val) part = step(part);
  return block;
}

/// To lane k of `sum` adds the elements 4k, 4k + 1, 4k + 2 and 4k + 3 of the block, in this order, each sum rounded.
inline f32x4 add_fours(f32x4 sum, const RowBlock &block) {
#if TARVU_NEON
  for (const f32x4 part : block.val) sum = sum + part;
#elif TARVU_AVX2
  const __m256 low = _mm256_unpacklo_ps(__m256(block.val[0]), __m256(block.val[1]));   // 0 8 1 9, 4 12 5 13
  const __m256 high = _mm256_unpackhi_ps(__m256(block.val[0]), __m256(block.val[1]));  // 2 10 3 11, 6 14 7 15
  const __m128 low_0 = _mm256_castps256_ps128(low);
  const __m128 low_4 = _mm256_extractf128_ps(low, 1);
  const __m128 high_2 = _mm256_castps256_ps128(high);
  const __m128 high_6 = _mm256_extractf128_ps(high, 1);
  sum = sum + f32x4(_mm_unpacklo_ps(low_0, low_4));
  sum = sum + f32x4(_mm_unpackhi_ps(low_0, low_4));
  sum = sum + f32x4(_mm_unpacklo_ps(high_2, high_6));
  sum = sum + f32x4(_mm_unpackhi_ps(high_2, high_6));
#else
  for (int element = 0; element < 4; ++element) {
    for (int k = 0; k < 4; ++k) sum[k] = sum[k] + block.val[k][element];
  }
#endif
  return sum;
}

}  // namespace tarvu

#endif  // TARVU_SIMD_BLOCKS_H
