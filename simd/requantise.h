/// \file requantise.h
/// From words to elements: 32-bit integer steps over blocks of words, truncating division by a fixed divisor, saturating stores,
/// and maps of bytes. A step is a function object that works on one Words at a time.
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
/// One lane: loops of it go into as many lanes as the processor has.
using Words = int32_t;
#endif
constexpr int32_t multiply_add(int32_t a, int32_t b, int32_t c) { return add(multiply(a, b), c); }

/// Truncating division of every 32-bit numerator n by one divisor d of at least 2, as a multiplication. With s the least number
/// such that d <= 2^s and E = 2^32 + 2 * multiplier:
///
///     E is the even number with 0 < E * d - 2^(32 + s) <= 2 * d <= 2^(s + 1)
///
/// Then n * E / 2^(32 + s) exceeds n / d by n * (E * d - 2^(32 + s)) / (d * 2^(32 + s)): for n from 0 by less than 1 / d, so its
/// floor is that of n / d; for negative n it lies below n / d by more than 0 and at most 1 / d, so its floor is one less than
/// n / d rounded toward zero.
template <class V>
struct Reciprocal {
  V multiplier;
  V shift;  // s - 1

};

inline Reciprocal<int32_t> reciprocal_of(int32_t divisor) {
  const int s = 32 - std::countl_zero(static_cast<uint32_t>(divisor) - 1u);
  const uint64_t half_of_e = (uint64_t{1} << (31 + s)) / static_cast<uint64_t>(divisor) + 1;
  return {static_cast<int32_t>(half_of_e - (uint64_t{1} << 31)), s - 1};
}

inline int32_t divide(int32_t n, const Reciprocal<int32_t> &d) {
  const auto above = static_cast<int32_t>(static_cast<uint64_t>(int64_t{n} * d.multiplier) >> 31);  // n * (E - 2^32) / 2^32
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
#endif

/// The nearest value that T holds.
template <class T>
constexpr T clamped(int32_t x) {
  return static_cast<T>(std::clamp<int32_t>(x, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

#if TARVU_NEON
/// Eight words extended to 32 bits, as two vectors.
struct EightWords {
  s32x4 low;
  s32x4 high;
};
inline EightWords extended(u16x8 a) { return {std::bit_cast<s32x4>(widen_low(a)), std::bit_cast<s32x4>(widen_high(a))}; }
inline EightWords extended(s16x8 a) { return {std::bit_cast<s32x4>(widen_low(a)), std::bit_cast<s32x4>(widen_high(a))}; }

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
template <class Out>
inline void store_eight(uint8_t *to, EightWords words) {
  const u8x16 elements = narrowed<Out>(words);
  if constexpr (sizeof(Out) == 1) {
    vst1_u8(to, vget_low_u8(elements));
  } else {
    vst1q_u8(to, elements);
  }
}
#endif

/// Passes every word of a block, extended to 32 bits, through `step` and stores the results clamped to Out.
template <class Out, class Word, class Step>
[[gnu::always_inline]] inline void store_block(uint8_t *to, const WordBlock<Word> &block, const Step &step) {
#if TARVU_NEON
  const auto eight = [&](EightWords words) { return EightWords{step(words.low), step(words.high)}; };
  if constexpr (sizeof(Word) == 4) {
    store_eight<Out>(to, eight({std::bit_cast<s32x4>(block.lanes[0]), std::bit_cast<s32x4>(block.lanes[1])}));
  } else if constexpr (sizeof(Word) == 2) {
    store_eight<Out>(to, eight(extended(block.lanes[0])));
  } else {
    store_eight<Out>(to, eight(extended(widen_low(block.lanes[0]))));
    store_eight<Out>(to + 8 * sizeof(Out), eight(extended(widen_high(block.lanes[0]))));
  }
#else
  constexpr uint32_t kCount = kWordsOfBlock<Word>;
  Word words[kCount];
  std::memcpy(words, &block, sizeof words);
  Out elements[kCount];
  for (uint32_t i = 0; i < kCount; ++i) elements[i] = clamped<Out>(step(static_cast<int32_t>(words[i])));
  std::memcpy(to, elements, sizeof elements);
#endif
}

/// The same with a step for each Words of the block in turn: step_of(i).
template <class Word>
inline constexpr uint32_t kStepsOfBlock = kWordsOfBlock<Word> / kLanes<Words>;
template <class Out, class Word, class StepOf>
[[gnu::always_inline]] inline void store_block_by_steps(uint8_t *to, const WordBlock<Word> &block, const StepOf &step_of) {
#if TARVU_NEON
  static_assert(sizeof(Word) == 2);
  const EightWords words = extended(block.lanes[0]);
  store_eight<Out>(to, {step_of(0)(words.low), step_of(1)(words.high)});
#else
  constexpr uint32_t kCount = kWordsOfBlock<Word>;
  Word words[kCount];
  std::memcpy(words, &block, sizeof words);
  Out elements[kCount];
  for (uint32_t i = 0; i < kCount; ++i) elements[i] = clamped<Out>(step_of(i)(static_cast<int32_t>(words[i])));
  std::memcpy(to, elements, sizeof elements);
#endif
}

/// Whether 16-bit words have a quicker way to the output where nothing wraps: (x * multiplier + 2^(right - 1)) >> right with a
/// multiplier of 16 bits and of the words' signedness. Without a shift (right is 0) nothing is added.
inline constexpr bool kMultipliesHalves = TARVU_NEON != 0;
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
  store_eight<Out>(to, {vrshlq_s32(vreinterpretq_s32_u32(low), terms.left), vrshlq_s32(vreinterpretq_s32_u32(high), terms.left)});
}
template <class Word>
inline HalvesTerms<Word> halves_terms(int32_t multiplier, int32_t right) {
  return {fill<typename LanesOfType<Word>::type>(static_cast<Word>(multiplier)), fill<s32x4>(-right)};
}
#else
template <class Word>
struct HalvesTerms {
  int32_t multiplier;
  int32_t right;
};
template <class Out, class Lanes, class Word>
inline void store_multiplied(uint8_t *to, Lanes lanes, const HalvesTerms<Word> &terms) {
  const int32_t round = terms.right == 0 ? 0 : shift_left(1, terms.right - 1);
  Out elements[kLanes<Lanes>];
  for (int i = 0; i < kLanes<Lanes>; ++i) {
    elements[i] = clamped<Out>(shift_right(multiply_add(lanes[i], terms.multiplier, round), terms.right));
  }
  std::memcpy(to, elements, sizeof elements);
}
template <class Word>
inline HalvesTerms<Word> halves_terms(int32_t multiplier, int32_t right) {
  return {multiplier, right};
}
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

/// store_block() over `count` words: exactly so many elements are written. At least 32 words are read.
template <class Out, class Word, class Step>
[[gnu::noinline]] void store_words(uint8_t *to, const Word *words, uint32_t count, const Step &given_step) {
#if TARVU_NEON
  const Step step = given_step;
  constexpr uint32_t kBlock = kWordsOfBlock<Word>;
  uint32_t i = 0;
  for (; i + kBlock <= count; i += kBlock) store_block<Out>(to + i * sizeof(Out), load<WordBlock<Word>>(words + i), step);
  if (i == count) return;
  uint8_t part[32];
  store_block<Out>(part, load<WordBlock<Word>>(words + i), step);
  store_part(to + i * sizeof(Out), part, (count - i) * static_cast<uint32_t>(sizeof(Out)));
#else
  const Step step = given_step;
  constexpr uint32_t kBlock = 32;
  const auto store_at = [=](uint8_t *block_to, uint32_t from) __attribute__((always_inline)) {
    auto *__restrict out = reinterpret_cast<Unaligned<Out> *>(block_to);
    for (uint32_t i = 0; i < kBlock; ++i) out[i].value = clamped<Out>(step(static_cast<int32_t>(words[from + i])));
  };
  if (count < kBlock) {
    uint8_t part[kBlock * sizeof(Out)];
    store_at(part, 0);
    std::memcpy(to, part, count * sizeof(Out));
    return;
  }
  // The last block overlaps the one before it: both write the same elements there.
  const uint32_t last = count - kBlock;
  for (uint32_t i = 0; i < last; i += kBlock) store_at(to + i * sizeof(Out), i);
  store_at(to + last * sizeof(Out), last);
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_REQUANTISE_H
