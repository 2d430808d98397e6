/// \file fold.h
/// Maxima and sums of 8-bit and 16-bit integers: down the lines of a plane, along the windows of a line, over whole runs.
///
/// A fold is a type that tells what becomes of elements:
///
///     Element   what is read, at any address
///     Word      what elements are folded to
///     kIdentity the fold of no element: a word that changes no other
///     kWidens   whether words are wider than elements
///     of(e)     the word of one element
///     both(a, b), and the same for Lanes (16 bytes of words)
///     Block     the words of 16 bytes of elements
#ifndef TARVU_SIMD_FOLD_H
#define TARVU_SIMD_FOLD_H

#include <bit>
#include <cstddef>
#include <limits>

#include "simd/lanes.h"

namespace tarvu {

template <class T>
struct LanesOfType;
template <>
struct LanesOfType<int8_t> {
  using type = s8x16;
};
template <>
struct LanesOfType<uint8_t> {
  using type = u8x16;
};
template <>
struct LanesOfType<int16_t> {
  using type = s16x8;
};
template <>
struct LanesOfType<uint16_t> {
  using type = u16x8;
};
template <>
struct LanesOfType<uint32_t> {
  using type = u32x4;
};

/// The greatest element. Of no element: the least of the type.
template <class In>
struct MaximumFold {
  using Element = In;
  using Word = In;
  using Lanes = typename LanesOfType<Word>::type;
  static constexpr Word kIdentity = std::numeric_limits<Word>::min();
  static constexpr bool kWidens = false;

  static Word of(Element e) { return e; }
  static Word both(Word a, Word b) { return a > b ? a : b; }
  static Lanes both(Lanes a, Lanes b) { return a > b ? a : b; }

  struct Block {
    Lanes words;
  };
  static Block first(const uint8_t *from) { return {load<Lanes>(from)}; }
  static Block first_two(const uint8_t *from, const uint8_t *next) {
    return {both(load<Lanes>(from), load<Lanes>(next))};
  }
  static Block more(Block block, const uint8_t *next) { return {both(block.words, load<Lanes>(next))}; }
  static void keep(Block block, Word *to) { store(to, block.words); }
};

/// The widening steps that sums are made of: a vector's lower or upper lanes alone, or added to those of another vector, or to
/// wider lanes.
#if TARVU_NEON
inline u16x8 widen_low(u8x16 a) { return vmovl_u8(vget_low_u8(a)); }
inline s16x8 widen_low(s8x16 a) { return vmovl_s8(vget_low_s8(a)); }
inline u32x4 widen_low(u16x8 a) { return vmovl_u16(vget_low_u16(a)); }
inline u32x4 widen_low(s16x8 a) { return vreinterpretq_u32_s32(vmovl_s16(vget_low_s16(a))); }
inline u16x8 widen_high(u8x16 a) { return vmovl_high_u8(a); }
inline s16x8 widen_high(s8x16 a) { return vmovl_high_s8(a); }
inline u32x4 widen_high(u16x8 a) { return vmovl_high_u16(a); }
inline u32x4 widen_high(s16x8 a) { return vreinterpretq_u32_s32(vmovl_high_s16(a)); }
inline u16x8 add_low(u8x16 a, u8x16 b) { return vaddl_u8(vget_low_u8(a), vget_low_u8(b)); }
inline s16x8 add_low(s8x16 a, s8x16 b) { return vaddl_s8(vget_low_s8(a), vget_low_s8(b)); }
inline u32x4 add_low(u16x8 a, u16x8 b) { return vaddl_u16(vget_low_u16(a), vget_low_u16(b)); }
inline u32x4 add_low(s16x8 a, s16x8 b) { return vreinterpretq_u32_s32(vaddl_s16(vget_low_s16(a), vget_low_s16(b))); }
inline u16x8 add_high(u8x16 a, u8x16 b) { return vaddl_high_u8(a, b); }
inline s16x8 add_high(s8x16 a, s8x16 b) { return vaddl_high_s8(a, b); }
inline u32x4 add_high(u16x8 a, u16x8 b) { return vaddl_high_u16(a, b); }
inline u32x4 add_high(s16x8 a, s16x8 b) { return vreinterpretq_u32_s32(vaddl_high_s16(a, b)); }
inline u16x8 add_low(u16x8 sum, u8x16 a) { return vaddw_u8(sum, vget_low_u8(a)); }
inline s16x8 add_low(s16x8 sum, s8x16 a) { return vaddw_s8(sum, vget_low_s8(a)); }
inline u32x4 add_low(u32x4 sum, u16x8 a) { return vaddw_u16(sum, vget_low_u16(a)); }
inline u32x4 add_low(u32x4 sum, s16x8 a) {
  return vreinterpretq_u32_s32(vaddw_s16(vreinterpretq_s32_u32(sum), vget_low_s16(a)));
}
inline u16x8 add_high(u16x8 sum, u8x16 a) { return vaddw_high_u8(sum, a); }
inline s16x8 add_high(s16x8 sum, s8x16 a) { return vaddw_high_s8(sum, a); }
inline u32x4 add_high(u32x4 sum, u16x8 a) { return vaddw_high_u16(sum, a); }
inline u32x4 add_high(u32x4 sum, s16x8 a) {
  return vreinterpretq_u32_s32(vaddw_high_s16(vreinterpretq_s32_u32(sum), a));
}
#else
inline u16x8 widen_low(u8x16 a) { return u16x8(zip_low(a, u8x16{})); }
inline s16x8 widen_low(s8x16 a) { return s16x8(zip_low(u8x16{}, u8x16(a))) >> 8; }
inline u32x4 widen_low(u16x8 a) { return u32x4(zip_low(a, u16x8{})); }
inline u32x4 widen_low(s16x8 a) { return u32x4(s32x4(zip_low(u16x8{}, u16x8(a))) >> 16); }
inline u16x8 widen_high(u8x16 a) { return u16x8(zip_high(a, u8x16{})); }
inline s16x8 widen_high(s8x16 a) { return s16x8(zip_high(u8x16{}, u8x16(a))) >> 8; }
inline u32x4 widen_high(u16x8 a) { return u32x4(zip_high(a, u16x8{})); }
inline u32x4 widen_high(s16x8 a) { return u32x4(s32x4(zip_high(u16x8{}, u16x8(a))) >> 16); }
template <class Lanes>
inline auto add_low(Lanes a, Lanes b) {
  return widen_low(a) + widen_low(b);
}
template <class Lanes>
inline auto add_high(Lanes a, Lanes b) {
  return widen_high(a) + widen_high(b);
}
template <class Wide, class Lanes>
inline Wide add_low(Wide sum, Lanes a) {
  return sum + widen_low(a);
}
template <class Wide, class Lanes>
inline Wide add_high(Wide sum, Lanes a) {
  return sum + widen_high(a);
}
#endif

/// The sum. A Word of 16 bits has the signedness of the elements, and holds at most kMostElements of them; one of 32 bits
/// wraps.
template <class In, class SumWord>
struct SumFold {
  using Element = In;
  using Word = SumWord;
  using Lanes = typename LanesOfType<Word>::type;
  static constexpr Word kIdentity = 0;
  static constexpr bool kWidens = true;
  static constexpr int32_t kMostElements = 256;  // 256 * 255 and 256 * -128 fit into 16 bits of either sign

  static Word of(Element e) { return static_cast<Word>(e); }
  static Word both(Word a, Word b) { return static_cast<Word>(a + b); }
  static Lanes both(Lanes a, Lanes b) { return a + b; }

  using Elements = typename LanesOfType<Element>::type;
  static constexpr bool kTwiceAsWide = sizeof(Word) == 2 * sizeof(Element);
  struct Block {
    Lanes words[sizeof(Word) / sizeof(Element)];
  };
  static Block first(const uint8_t *from) {
    const auto a = load<Elements>(from);
    if constexpr (kTwiceAsWide) {
      return {{widen_low(a), widen_high(a)}};
    } else {
      const auto low = widen_low(a);
      const auto high = widen_high(a);
      return {{widen_low(low), widen_high(low), widen_low(high), widen_high(high)}};
    }
  }
  static Block first_two(const uint8_t *from, const uint8_t *next) {
    const auto a = load<Elements>(from);
    const auto b = load<Elements>(next);
    if constexpr (kTwiceAsWide) {
      return {{add_low(a, b), add_high(a, b)}};
    } else {
      const auto low = add_low(a, b);
      const auto high = add_high(a, b);
      return {{widen_low(low), widen_high(low), widen_low(high), widen_high(high)}};
    }
  }
  static Block more(Block block, const uint8_t *next) {
    const auto a = load<Elements>(next);
    if constexpr (kTwiceAsWide) {
      return {{add_low(block.words[0], a), add_high(block.words[1], a)}};
    } else {
      const auto low = widen_low(a);
      const auto high = widen_high(a);
      return {{add_low(block.words[0], low), add_high(block.words[1], low), add_low(block.words[2], high),
               add_high(block.words[3], high)}};
    }
  }
  static void keep(const Block &block, Word *to) {
    for (const Lanes &lanes : block.words) {
      store(to, lanes);
      to += kLanes<Lanes>;
    }
  }
};

// ---- down the lines

/// Columns that a block of the folds below takes at once.
template <class Fold>
inline constexpr uint32_t kColumnsOfBlock = 16 / sizeof(typename Fold::Element);

/// One column of `lines` lines, at least one.
template <class Fold>
[[gnu::noinline]] typename Fold::Word fold_column(const uint8_t *from, size_t line_bytes, uint32_t lines) {
  typename Fold::Word word = Fold::of(load<typename Fold::Element>(from));
  for (uint32_t l = 1; l < lines; ++l) {
    word = Fold::both(word, Fold::of(load<typename Fold::Element>(from + l * line_bytes)));
  }
  return word;
}

/// One block of columns; kLines is `lines`, or 0 for any from 2.
template <class Fold, uint32_t kLines>
[[gnu::always_inline]] inline typename Fold::Block fold_block_of_lines(const uint8_t *from, size_t line_bytes,
                                                                       uint32_t lines) {
  if constexpr (kLines == 1) {
    return Fold::first(from);
  } else {
    const uint8_t *line = from + line_bytes;
    typename Fold::Block block = Fold::first_two(from, line);
    if constexpr (kLines == 0) {
      uint32_t l = 2;
      for (; l + 4 <= lines; l += 4, line += 4 * line_bytes) {
        block = Fold::more(block, line + line_bytes);
        block = Fold::more(block, line + 2 * line_bytes);
        block = Fold::more(block, line + 3 * line_bytes);
        block = Fold::more(block, line + 4 * line_bytes);
      }
      for (; l < lines; ++l) {
        line += line_bytes;
        block = Fold::more(block, line);
      }
    }
    return block;
  }
}

/// The same for at least kColumnsOfBlock columns; kLines is `lines`, or 0 for any.
template <class Fold, uint32_t kLines>
[[gnu::always_inline]] inline void fold_blocks_of_lines(const uint8_t *from, size_t line_bytes, uint32_t lines,
                                                        uint32_t columns, typename Fold::Word *to) {
  constexpr size_t kStep = kColumnsOfBlock<Fold>;
  const auto fold_at = [=](size_t c) __attribute__((always_inline)) {
    return fold_block_of_lines<Fold, kLines>(from + c * sizeof(typename Fold::Element), line_bytes, lines);
  };
  const size_t last = columns - kStep;
  size_t c = 0;
  for (; c + kStep < last; c += 2 * kStep) {
    const uint8_t *left = from + c * sizeof(typename Fold::Element);
    const uint8_t *right = left + 16;
    if constexpr (kLines == 0) {
      // Two blocks side by side: one loop over the lines for both.
      typename Fold::Block one = Fold::first_two(left, left + line_bytes);
      typename Fold::Block two = Fold::first_two(right, right + line_bytes);
      for (uint32_t l = 2; l < lines; ++l) {
        one = Fold::more(one, left + l * line_bytes);
        two = Fold::more(two, right + l * line_bytes);
      }
      Fold::keep(one, to + c);
      Fold::keep(two, to + c + kStep);
    } else {
      const typename Fold::Block one = fold_at(c);
      const typename Fold::Block two = fold_at(c + kStep);
      Fold::keep(one, to + c);
      Fold::keep(two, to + c + kStep);
    }
  }
  if (c < last) Fold::keep(fold_at(c), to + c);
  // The last block overlaps the one before it: both write the same words there.
  Fold::keep(fold_at(last), to + last);
}

/// Three lines, wherever each lies, of at least kColumnsOfBlock columns.
template <class Fold>
[[gnu::always_inline]] inline void fold_three_lines(const uint8_t *first, const uint8_t *second, const uint8_t *third,
                                                    uint32_t columns, typename Fold::Word *to) {
  constexpr size_t kStep = kColumnsOfBlock<Fold>;
  const auto fold_at = [=](size_t c) __attribute__((always_inline)) {
    const size_t at = c * sizeof(typename Fold::Element);
    return Fold::more(Fold::first_two(first + at, second + at), third + at);
  };
  const size_t last = columns - kStep;
  size_t c = 0;
  for (; c + kStep < last; c += 2 * kStep) {
    const typename Fold::Block one = fold_at(c);
    const typename Fold::Block two = fold_at(c + kStep);
    Fold::keep(one, to + c);
    Fold::keep(two, to + c + kStep);
  }
  if (c < last) Fold::keep(fold_at(c), to + c);
  Fold::keep(fold_at(last), to + last);
}

/// The same address. The compiler does not know that, and so computes others from it where they are used, instead of keeping a
/// register for each of them through a loop.
template <class T>
inline T *opaque(T *address) {
  __asm__("" : "+r"(address));
  return address;
}

/// The folds of three lines for two windows at once, the second one kApart lines (1 or 2) further on, to words that lie kSecond
/// words behind those of the first one: of at least kColumnsOfBlock columns. The lines behind `second` are line_bytes apart but
/// for the last one, which lies at `last` as the first one lies at `first`. Where kBlocks is 2, so many blocks of columns are
/// enough.
template <class Fold, uint32_t kApart, uint32_t kBlocks, size_t kSecond>
[[gnu::always_inline]] inline void fold_three_lines_twice(const uint8_t *first, const uint8_t *second,
                                                          size_t line_bytes, const uint8_t *last, uint32_t columns,
                                                          typename Fold::Word *to) {
  const uint8_t *third = second + line_bytes;
  const uint8_t *fourth = third + line_bytes;
  using Block = typename Fold::Block;
  // Some blocks side by side, all folded before any is kept: words may overlay elements, for all that the compiler knows.
  const auto fold_at = [=](size_t c, auto blocks) __attribute__((always_inline)) {
    constexpr size_t kStep = kColumnsOfBlock<Fold>;
    Block one[blocks];
    Block two[blocks];
    for (size_t i = 0; i < blocks; ++i) {
      const size_t at = (c + i * kStep) * sizeof(typename Fold::Element);
      const Block middle = Fold::first_two(second + at, third + at);
      const Block next = kApart == 1 ? middle : Fold::first_two(third + at, fourth + at);
      one[i] = Fold::more(middle, first + at);
      two[i] = Fold::more(next, last + at);
    }
    typename Fold::Word *words = to + c;
    for (size_t i = 0; i < blocks; ++i, words += kStep) {
      Fold::keep(one[i], words);
      Fold::keep(two[i], words + kSecond);
    }
  };
  constexpr std::integral_constant<size_t, 1> kOne;
  constexpr std::integral_constant<size_t, kColumnsOfBlock<Fold> == 8 ? 2 : 1> kSome;
  constexpr size_t kStep = kColumnsOfBlock<Fold>;
  const size_t last_block = columns - kStep;
  if constexpr (kBlocks == 2) {
    fold_at(0, kOne);
  } else {
    size_t c = 0;
    for (; c + (kSome - 1) * kStep < last_block; c += kSome * kStep) fold_at(c, kSome);
    if (kSome != 1 && c < last_block) fold_at(c, kOne);
  }
  fold_at(last_block, kOne);
}

/// A line of elements that change no fold.
template <class Fold, size_t kBytes>
struct LineOfNothing {
  typename Fold::Element elements[kBytes / sizeof(typename Fold::Element)];
  constexpr LineOfNothing() : elements() {
    for (auto &element : elements) element = static_cast<typename Fold::Element>(Fold::kIdentity);
  }
};
template <class Fold, size_t kBytes>
alignas(16) inline constexpr LineOfNothing<Fold, kBytes> kLineOfNothing;

/// to[c] = the fold of column c over `lines` lines, at least one, that lie `line_bytes` apart. Reads nothing but those
/// elements, writes nothing but those words.
template <class Fold>
[[gnu::noinline]] void fold_lines(const uint8_t *from, size_t line_bytes, uint32_t lines, uint32_t columns,
                                  typename Fold::Word *to) {
  if (columns < kColumnsOfBlock<Fold>) {
    for (uint32_t c = 0; c < columns; ++c) {
      to[c] = fold_column<Fold>(from + c * sizeof(typename Fold::Element), line_bytes, lines);
    }
    return;
  }
  if (lines == 1) return fold_blocks_of_lines<Fold, 1>(from, line_bytes, lines, columns, to);
  fold_blocks_of_lines<Fold, 0>(from, line_bytes, lines, columns, to);
}

// ---- along a line of words

/// Words of 8, 16 and 32 bits are folded and passed on 16, 8 and 8 at a time.
template <class Word>
inline constexpr uint32_t kWordsOfBlock = sizeof(Word) == 1 ? 16 : 8;

template <class Word>
struct WordBlock {
  typename LanesOfType<Word>::type lanes[kWordsOfBlock<Word> * sizeof(Word) / 16];
};

/// Every second word from an address, and every second one from the word behind it.
template <class Lanes>
struct Pairs {
  Lanes even;
  Lanes odd;
};
template <class Lanes>
[[gnu::always_inline]] inline Pairs<Lanes> load_pairs(const void *from) {
#if TARVU_NEON
  if constexpr (sizeof(Lanes{}[0]) == 1) {
    const uint8x16x2_t both = vld2q_u8(static_cast<const uint8_t *>(from));
    return {std::bit_cast<Lanes>(both.val[0]), std::bit_cast<Lanes>(both.val[1])};
  } else if constexpr (sizeof(Lanes{}[0]) == 2) {
    const uint16x8x2_t both = vld2q_u16(static_cast<const uint16_t *>(from));
    return {std::bit_cast<Lanes>(both.val[0]), std::bit_cast<Lanes>(both.val[1])};
  } else {
    const uint32x4x2_t both = vld2q_u32(static_cast<const uint32_t *>(from));
    return {std::bit_cast<Lanes>(both.val[0]), std::bit_cast<Lanes>(both.val[1])};
  }
#else
  const Lanes low = load<Lanes>(from);
  const Lanes high = load<Lanes>(static_cast<const uint8_t *>(from) + sizeof(Lanes));
  if constexpr (sizeof(Lanes{}[0]) == 1) {
    return {__builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30),
            __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31)};
  } else if constexpr (sizeof(Lanes{}[0]) == 2) {
    return {__builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14),
            __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15)};
  } else {
    return {__builtin_shufflevector(low, high, 0, 2, 4, 6), __builtin_shufflevector(low, high, 1, 3, 5, 7)};
  }
#endif
}

/// The fold of `window` words.
template <class Fold>
inline typename Fold::Word fold_window(const typename Fold::Word *from, uint32_t window) {
  typename Fold::Word word = Fold::kIdentity;
  for (uint32_t k = 0; k < window; ++k) word = Fold::both(word, from[k]);
  return word;
}

/// One vector of windows of at least one word, the first at `from`; kWindow is `window`, or 0 for any.
template <class Fold, uint32_t kStride, uint32_t kWindow>
[[gnu::always_inline]] inline typename Fold::Lanes fold_vector_of_windows(const typename Fold::Word *from,
                                                                          uint32_t window) {
  using Word = typename Fold::Word;
  using Lanes = typename Fold::Lanes;
  const uint32_t count = kWindow != 0 ? kWindow : window;
  if constexpr (kStride == 1) {
    const Word *const end = from + count;
    Lanes folded = load<Lanes>(from);
    ++from;
    if constexpr (kWindow == 0) {
      for (; end - from >= 4; from += 4) {
        const Lanes two = Fold::both(load<Lanes>(from), load<Lanes>(from + 1));
        folded = Fold::both(folded, Fold::both(two, Fold::both(load<Lanes>(from + 2), load<Lanes>(from + 3))));
      }
    }
    for (; from != end; ++from) folded = Fold::both(folded, load<Lanes>(from));
    return folded;
  } else {
    static_assert(kStride == 2);
    const Pairs<Lanes> first = load_pairs<Lanes>(from);
    if (count == 1) return first.even;
    Lanes folded = Fold::both(first.even, first.odd);
    uint32_t k = 2;
    for (; k + 2 <= count; k += 2) {
      const Pairs<Lanes> next = load_pairs<Lanes>(from + k);
      folded = Fold::both(folded, Fold::both(next.even, next.odd));
    }
    return k < count ? Fold::both(folded, load_pairs<Lanes>(from + k).even) : folded;
  }
}

/// to[i] = the fold of the four words from `from + i`, for at least `count` of them: whole vectors are read and written, which
/// may be up to a vector and three words further.
template <class Fold>
inline void fold_quads(const typename Fold::Word *from, uint32_t count, typename Fold::Word *to) {
  using Lanes = typename Fold::Lanes;
  for (size_t i = 0; i < count; i += kLanes<Lanes>) {
    const typename Fold::Word *at = from + i;
    const Lanes two = Fold::both(load<Lanes>(at), load<Lanes>(at + 1));
    store(to + i, Fold::both(two, Fold::both(load<Lanes>(at + 2), load<Lanes>(at + 3))));
  }
}

/// A block of windows one word apart, of at least four words, from the words and from what fold_quads() makes of them.
template <class Fold>
[[gnu::always_inline]] inline WordBlock<typename Fold::Word> fold_block_by_quads(const typename Fold::Word *from,
                                                                                 const typename Fold::Word *quads,
                                                                                 uint32_t window) {
  using Word = typename Fold::Word;
  using Lanes = typename Fold::Lanes;
  WordBlock<Word> block;
  const size_t whole = window / 4 * 4;
  for (auto &lanes : block.lanes) {
    lanes = load<Lanes>(quads);
    for (const Word *at = quads + 4; at != quads + whole; at += 4) lanes = Fold::both(lanes, load<Lanes>(at));
    if constexpr (Fold::kWidens) {
      for (const Word *at = from + whole; at != from + window; ++at) lanes = Fold::both(lanes, load<Lanes>(at));
    } else {
      lanes = Fold::both(lanes, load<Lanes>(quads + window - 4));  // which changes no maximum where it overlaps
    }
    from += kLanes<Lanes>;
    quads += kLanes<Lanes>;
  }
  return block;
}

/// A block of windows that start kStride words (1 or 2) apart; kWindow is `window`, or 0 for any. With stride 2 it may read one
/// word behind the last window.
template <class Fold, uint32_t kStride, uint32_t kWindow>
[[gnu::always_inline]] inline WordBlock<typename Fold::Word> fold_block_of_windows(const typename Fold::Word *from,
                                                                                   uint32_t window) {
  WordBlock<typename Fold::Word> block;
  for (auto &lanes : block.lanes) {
    lanes = fold_vector_of_windows<Fold, kStride, kWindow>(from, window);
    from += kStride * kLanes<typename Fold::Lanes>;
  }
  return block;
}

/// to[i] = the fold of `window` words from `from + i * stride`, both at least 1, for `count` windows. Whole blocks are read and
/// written: up to 15 windows more. `spare` has room for as many words as the windows cover, and for a block more.
template <class Fold>
inline void fold_windows(const typename Fold::Word *from, uint32_t window, uint32_t stride, uint32_t count,
                         typename Fold::Word *spare, typename Fold::Word *to) {
  constexpr size_t kBlock = kWordsOfBlock<typename Fold::Word>;
  if (stride == 1 && window >= 8) {
    fold_quads<Fold>(from, count + window - 1, spare);
    for (size_t i = 0; i < count; i += kBlock) store(to + i, fold_block_by_quads<Fold>(from + i, spare + i, window));
  } else if (stride == 1) {
    for (size_t i = 0; i < count; i += kBlock) store(to + i, fold_block_of_windows<Fold, 1, 0>(from + i, window));
  } else if (stride == 2) {
    for (size_t i = 0; i < count; i += kBlock) store(to + i, fold_block_of_windows<Fold, 2, 0>(from + 2 * i, window));
  } else {
    for (size_t i = 0; i < count; ++i) to[i] = fold_window<Fold>(from + i * stride, window);
  }
}

/// The greatest words of windows of two lines and two columns, side by side: a block of elements of two lines for each.
template <class Fold>
[[gnu::always_inline]] inline WordBlock<typename Fold::Word> fold_two_by_two(const uint8_t *from, size_t line_bytes) {
  using Lanes = typename Fold::Lanes;
  static_assert(!Fold::kWidens);
  const Pairs<Lanes> upper = load_pairs<Lanes>(from);
  const Pairs<Lanes> lower = load_pairs<Lanes>(from + line_bytes);
  return {{Fold::both(Fold::both(upper.even, upper.odd), Fold::both(lower.even, lower.odd))}};
}

}  // namespace tarvu

#endif  // TARVU_SIMD_FOLD_H
