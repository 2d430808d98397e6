/// \file requantise.h
/// From words to elements: 32-bit integer steps over blocks of words, truncating division by a fixed divisor, saturating
/// stores, and maps of bytes. A step is a function object that works on one Words at a time.
#ifndef TARVU_SIMD_REQUANTISE_H
#define TARVU_SIMD_REQUANTISE_H

#include <algorithm>
#include <bit>

#include "simd/fold.h"

namespace tarvu {

/// Wrapping 32-bit arithmetic in lanes, with the counts of shift_right(): 0 to 31.
#if TARVU_NEON
using Words = s32x4;
inline s32x4 multiply_add(s32x4 a, s32x4 b, s32x4 c) { return vmlaq_s32(c, a, b); }
inline s32x4 shift_right(s32x4 x, s32x4 count) { return vshlq_s32(x, vnegq_s32(count)); }
#else
typedef int32_t s32x8 __attribute__((vector_size(32)));
typedef uint32_t u32x8 __attribute__((vector_size(32)));
using Words = s32x8;
inline s32x8 multiply_add(s32x8 a, s32x8 b, s32x8 c) { return s32x8(u32x8(a) * u32x8(b) + u32x8(c)); }
inline s32x8 shift_right(s32x8 x, s32x8 count) { return x >> count; }
#endif
constexpr int32_t multiply_add(int32_t a, int32_t b, int32_t c) { return add(multiply(a, b), c); }

/// Truncating division of every 32-bit numerator n by one divisor d from 2 to 2^31, as a multiplication. With s the least number
/// such that d <= 2^s and E = 2^32 + 2 * multiplier:
///
///     E is the even number with 0 < E * d - 2^(32 + s) <= 2 * d <= 2^(s + 1)
///
/// Then n * E / 2^(32 + s) exceeds n / d by n * (E * d - 2^(32 + s)) / (d * 2^(32 + s)): for n from 0 by less than 1 / d, so
/// its floor is that of n / d; for negative n it lies below n / d by more than 0 and at most 1 / d, so its floor is one less
/// than n / d rounded toward zero.
template <class V>
struct Reciprocal {
  V multiplier;
  V shift;  // s - 1
};

inline Reciprocal<int32_t> reciprocal_of(uint32_t divisor) {
  const int s = 32 - std::countl_zero(divisor - 1u);
  const uint64_t half_of_e = (uint64_t{1} << (31 + s)) / divisor + 1;
  return {static_cast<int32_t>(half_of_e - (uint64_t{1} << 31)), s - 1};
}

inline int32_t divide(int32_t n, const Reciprocal<int32_t> &d) {
  const auto above =
      static_cast<int32_t>(static_cast<uint64_t>(int64_t{n} * d.multiplier) >> 31);  // n * (E - 2^32) / 2^32
  // Both together, halved: without a carry out of 32 bits.
  const int32_t half = add(n & above, shift_right(n ^ above, 1));
  return add(shift_right(half, d.shift), static_cast<int32_t>(static_cast<uint32_t>(n) >> 31));
}
#if TARVU_NEON
inline s32x4 divide(s32x4 n, const Reciprocal<s32x4> &d) {
  const s32x4 half = vhaddq_s32(n, vqdmulhq_s32(n, d.multiplier));
  const s32x4 floor = shift_right(half, d.shift);
  return vreinterpretq_s32_u32(vsraq_n_u32(vreinterpretq_u32_s32(floor), vreinterpretq_u32_s32(n), 31));
}
#else
/// n * m / 2^31 in every lane, rounded down.
inline s32x8 multiply_high(s32x8 n, s32x8 m) {
#if TARVU_AVX2
  const auto a = std::bit_cast<__m256i>(n);
  const auto b = std::bit_cast<__m256i>(m);
  const __m256i even = _mm256_slli_epi64(_mm256_mul_epi32(a, b), 1);
  const __m256i odd = _mm256_slli_epi64(_mm256_mul_epi32(_mm256_srli_epi64(a, 32), _mm256_srli_epi64(b, 32)), 1);
  return std::bit_cast<s32x8>(_mm256_blend_epi32(_mm256_srli_epi64(even, 32), odd, 0xAA));
#else
  return map_lanes<s32x8>(s32x8{0, 1, 2, 3, 4, 5, 6, 7}, [=](int32_t i) {
    return static_cast<int32_t>(static_cast<uint64_t>(int64_t{n[i]} * m[i]) >> 31);
  });
#endif
}
inline s32x8 divide(s32x8 n, const Reciprocal<s32x8> &d) {
  const s32x8 above = multiply_high(n, d.multiplier);
  const s32x8 half = s32x8(u32x8(n & above) + u32x8((n ^ above) >> 1));
  return s32x8(u32x8(half >> d.shift) + (u32x8(n) >> 31));
}
#endif

/// The nearest value that T holds.
template <class T>
constexpr T clamped(int32_t x) {
  return static_cast<T>(std::clamp<int32_t>(x, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

/// Eight words extended to 32 bits.
#if TARVU_NEON
struct EightWords {
  s32x4 low;
  s32x4 high;
};
inline EightWords extended(u16x8 a) {
  return {std::bit_cast<s32x4>(widen_low(a)), std::bit_cast<s32x4>(widen_high(a))};
}
inline EightWords extended(s16x8 a) {
  return {std::bit_cast<s32x4>(widen_low(a)), std::bit_cast<s32x4>(widen_high(a))};
}

/// Eight words clamped to Out, in the lower eight bytes or in all of the result.
template <class Out>
inline u8x16 narrowed(EightWords words) {
  if constexpr (std::is_signed_v<Out>) {
    const int16x8_t half = vqmovn_high_s32(vqmovn_s32(words.low), words.high);
    if constexpr (sizeof(Out) == 2) return vreinterpretq_u8_s16(half);
    return vreinterpretq_u8_s8(vcombine_s8(vqmovn_s16(half), vdup_n_s8(0)));
  } else {
    const uint16x8_t half = vqmovun_high_s32(vqmovun_s32(words.low), words.high);
    if constexpr (sizeof(Out) == 2) return vreinterpretq_u8_u16(half);
    return vcombine_u8(vqmovn_u16(half), vdup_n_u8(0));
  }
}
#else
struct EightWords {
  s32x8 all;
};
inline EightWords extended(u16x8 a) { return {__builtin_convertvector(a, s32x8)}; }
inline EightWords extended(s16x8 a) { return {__builtin_convertvector(a, s32x8)}; }

template <class Out>
inline u8x16 narrowed(EightWords words) {
#if TARVU_AVX2
  const auto all = std::bit_cast<__m256i>(words.all);
  const __m128i low = _mm256_castsi256_si128(all);
  const __m128i high = _mm256_extracti128_si256(all, 1);
  if constexpr (std::is_same_v<Out, uint16_t>) return std::bit_cast<u8x16>(_mm_packus_epi32(low, high));
  const __m128i half = _mm_packs_epi32(low, high);
  if constexpr (std::is_same_v<Out, int16_t>) return std::bit_cast<u8x16>(half);
  return std::bit_cast<u8x16>(std::is_same_v<Out, int8_t> ? _mm_packs_epi16(half, half) : _mm_packus_epi16(half, half));
#else
  Out elements[16 / sizeof(Out)] = {};
  for (int i = 0; i < 8; ++i) elements[i] = clamped<Out>(words.all[i]);
  return load<u8x16>(elements);
#endif
}
#endif

template <class Out>
inline void store_eight(uint8_t *to, EightWords words) {
  const u8x16 elements = narrowed<Out>(words);
  std::memcpy(to, &elements, 8 * sizeof(Out));
}

/// step_of(i) of the Words of eight words in turn.
template <class StepOf>
[[gnu::always_inline]] inline EightWords stepped(EightWords words, const StepOf &step_of) {
#if TARVU_NEON
  return {step_of(0)(words.low), step_of(1)(words.high)};
#else
  return {step_of(0)(words.all)};
#endif
}

/// Passes every word of a block, extended to 32 bits, through `step` and stores the results clamped to Out.
template <class Out, class Word, class Step>
[[gnu::always_inline]] inline void store_block(uint8_t *to, const WordBlock<Word> &block, const Step &step) {
  const auto same = [&](uint32_t) -> const Step & { return step; };
  if constexpr (sizeof(Word) == 4) {
    store_eight<Out>(to, stepped(std::bit_cast<EightWords>(block), same));
  } else if constexpr (sizeof(Word) == 2) {
    store_eight<Out>(to, stepped(extended(block.lanes[0]), same));
  } else {
    store_eight<Out>(to, stepped(extended(widen_low(block.lanes[0])), same));
    store_eight<Out>(to + 8 * sizeof(Out), stepped(extended(widen_high(block.lanes[0])), same));
  }
}

/// The same with a step for each Words of a block of 16-bit words in turn: step_of(i).
inline constexpr uint32_t kStepsOfBlock = 8 / kLanes<Words>;
template <class Out, class Word, class StepOf>
[[gnu::always_inline]] inline void store_block_by_steps(uint8_t *to, const WordBlock<Word> &block,
                                                        const StepOf &step_of) {
  static_assert(sizeof(Word) == 2);
  store_eight<Out>(to, stepped(extended(block.lanes[0]), step_of));
}

/// What elements have as a quicker way to the output where nothing wraps: (x * multiplier + 2^(right - 1)) >> right with a
/// multiplier of 16 bits and of the words' signedness. Without a shift (right is 0) nothing is added.
#if TARVU_NEON
template <class Word>
struct HalvesTerms {
  typename LanesOfType<Word>::type multiplier;
  s32x4 left;  // -right
};
template <class Out>
[[gnu::always_inline]] inline void store_multiplied(uint8_t *to, s16x8 words, const HalvesTerms<int16_t> &terms) {
  const s32x4 low = vmull_s16(vget_low_s16(words), vget_low_s16(terms.multiplier));
  const s32x4 high = vmull_high_s16(words, terms.multiplier);
  store_eight<Out>(to, {vrshlq_s32(low, terms.left), vrshlq_s32(high, terms.left)});
}
template <class Out>
[[gnu::always_inline]] inline void store_multiplied(uint8_t *to, u16x8 words, const HalvesTerms<uint16_t> &terms) {
  const u32x4 low = vmull_u16(vget_low_u16(words), vget_low_u16(terms.multiplier));
  const u32x4 high = vmull_high_u16(words, terms.multiplier);
  store_eight<Out>(
      to, {vrshlq_s32(vreinterpretq_s32_u32(low), terms.left), vrshlq_s32(vreinterpretq_s32_u32(high), terms.left)});
}
template <class Word>
inline HalvesTerms<Word> halves_terms(int32_t multiplier, int32_t right) {
  return {fill<typename LanesOfType<Word>::type>(static_cast<Word>(multiplier)), fill<s32x4>(-right)};
}
#else
template <class Word>
struct HalvesTerms {
  s32x8 multiplier;
  s32x8 round;
  s32x8 right;
};
template <class Out, class Lanes, class Word>
[[gnu::always_inline]] inline void store_multiplied(uint8_t *to, Lanes words, const HalvesTerms<Word> &terms) {
  store_eight<Out>(to, {shift_right(multiply_add(extended(words).all, terms.multiplier, terms.round), terms.right)});
}
template <class Word>
inline HalvesTerms<Word> halves_terms(int32_t multiplier, int32_t right) {
  return {fill<s32x8>(multiplier), fill<s32x8>(right == 0 ? 0 : shift_left(1, right - 1)), fill<s32x8>(right)};
}
#endif

/// Whether bytes have such a way too: with a shift of 8 to 15, products of 16-bit lanes are enough.
inline constexpr bool kMultipliesBytes = TARVU_AVX2 != 0;
#if TARVU_AVX2
struct BytesTerms {
  s16x8 multiplier;
  __m128i down;  // right - 7
};
inline BytesTerms bytes_terms(int32_t multiplier, int32_t right) {
  return {fill<s16x8>(static_cast<int16_t>(multiplier)), _mm_cvtsi32_si128(right - 7)};
}
/// The multiplication takes the upper half of 2 * x * y, rounded: with a byte in the upper half of x, shifted down, that is
/// all.
inline __m128i multiply_halves(u16x8 x, const BytesTerms &terms, bool is_signed) {
  const auto lanes = std::bit_cast<__m128i>(x);
  return _mm_mulhrs_epi16(is_signed ? _mm_sra_epi16(lanes, terms.down) : _mm_srl_epi16(lanes, terms.down),
                          std::bit_cast<__m128i>(terms.multiplier));
}
template <class Out, class Lanes>
[[gnu::always_inline]] inline void store_multiplied(uint8_t *to, Lanes bytes, const BytesTerms &terms) {
  constexpr bool kSigned = std::is_same_v<Lanes, s8x16>;
  const __m128i low = multiply_halves(u16x8(zip_low(u8x16{}, u8x16(bytes))), terms, kSigned);
  const __m128i high = multiply_halves(u16x8(zip_high(u8x16{}, u8x16(bytes))), terms, kSigned);
  store(to, std::is_signed_v<Out> ? _mm_packs_epi16(low, high) : _mm_packus_epi16(low, high));
}
#else
struct BytesTerms {};
inline BytesTerms bytes_terms(int32_t, int32_t) { return {}; }
template <class Out, class Lanes>
inline void store_multiplied(uint8_t *, Lanes, const BytesTerms &) {}
#endif

/// Whether a map of all 256 bytes is the quicker way from bytes to bytes.
inline constexpr bool kMapsBytes = TARVU_NEON != 0;

/// map[x] for every byte x of a block.
#if TARVU_NEON
/// Refers to vectors that are variables of their own: so they stay in registers.
struct ByteMap {
  const uint8x16x4_t &first;
  const uint8x16x4_t &second;
  const uint8x16x4_t &third;
  const uint8x16x4_t &fourth;
  [[gnu::always_inline]] u8x16 operator()(u8x16 x) const {
    // A look-up outside its quarter leaves what the others found.
    uint8x16_t found = vqtbl4q_u8(first, x);
    found = vqtbx4q_u8(found, second, vsubq_u8(x, vdupq_n_u8(64)));
    found = vqtbx4q_u8(found, third, vsubq_u8(x, vdupq_n_u8(128)));
    return vqtbx4q_u8(found, fourth, vsubq_u8(x, vdupq_n_u8(192)));
  }
};
template <class Use>
[[gnu::always_inline]] inline void with_byte_map(const uint8_t *map, Use use) {
  const uint8x16x4_t first = vld1q_u8_x4(map);
  const uint8x16x4_t second = vld1q_u8_x4(map + 64);
  const uint8x16x4_t third = vld1q_u8_x4(map + 128);
  const uint8x16x4_t fourth = vld1q_u8_x4(map + 192);
  use(ByteMap{first, second, third, fourth});
}
#else
struct ByteMap {
  const uint8_t *map;
  u8x16 operator()(u8x16 x) const {
    return map_lanes<u8x16>(x, [this](uint8_t byte) { return map[byte]; });
  }
};
template <class Use>
inline void with_byte_map(const uint8_t *map, Use use) {
  use(ByteMap{map});
}
#endif

/// Copies `bytes` bytes, 1 to 32.
[[gnu::noinline]] inline void store_part(uint8_t *to, const uint8_t *part, uint32_t bytes) {
  const auto overlapping = [=](auto piece) {
    using Piece = decltype(piece);
    const uint32_t last = bytes - static_cast<uint32_t>(sizeof(Piece));
    const Piece front = load<Piece>(part);
    const Piece back = load<Piece>(part + last);
    store(to, front);
    store(to + last, back);
  };
  if (bytes >= 16) return overlapping(u8x16{});
  if (bytes >= 8) return overlapping(uint64_t{});
  if (bytes >= 4) return overlapping(uint32_t{});
  if (bytes >= 2) return overlapping(uint16_t{});
  *to = *part;
}

/// Calls store_at(to, i) for blocks of kBlock elements from index i such that `count` elements are written and no more. At
/// least a block of words is to be read from any index.
template <uint32_t kBlock, uint32_t kBytes, class StoreAt>
[[gnu::always_inline]] inline void store_in_blocks(uint8_t *to, uint32_t count, const StoreAt &store_at) {
  if (count < kBlock) {
    uint8_t part[kBlock * kBytes];
    store_at(part, 0);
    if (count != 0) store_part(to, part, count * kBytes);
    return;
  }
  // The last block overlaps the one before it: both write the same elements there.
  const size_t last = count - kBlock;
  for (size_t i = 0; i < last; i += kBlock) store_at(to + i * kBytes, i);
  store_at(to + last * kBytes, last);
}

/// store_block() over `count` words: exactly so many elements are written. At least a block of words is read.
template <class Out, class Word, class Step>
inline void store_words(uint8_t *to, const Word *words, uint32_t count, const Step &given_step) {
  const Step step = given_step;
  store_in_blocks<kWordsOfBlock<Word>, sizeof(Out)>(
      to, count, [=](uint8_t * block_to, size_t i) __attribute__((always_inline)) {
        store_block<Out>(block_to, load<WordBlock<Word>>(words + i), step);
      });
}

/// to[i] = map[bytes[i]], in the same way.
inline void map_bytes(const uint8_t *map, uint8_t *to, const uint8_t *bytes, uint32_t count) {
  with_byte_map(
      map, [=](const ByteMap &ready) __attribute__((always_inline)) {
        store_in_blocks<16, 1>(
            to, count, [&](uint8_t * block_to, size_t i) __attribute__((always_inline)) {
              store(block_to, ready(load<u8x16>(bytes + i)));
            });
      });
}

}  // namespace tarvu

#endif  // TARVU_SIMD_REQUANTISE_H
