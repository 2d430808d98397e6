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

#include "simd/arrange.h"

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

  using Elements = Lanes;
  struct Block {
    Lanes words;
  };
  static Block first(Elements a) { return {a}; }
  static Block first_two(Elements a, Elements b) { return {both(a, b)}; }
  static Block more(Block block, Elements a) { return {both(block.words, a)}; }
  static void keep(Block block, Word *to) { store(to, block.words); }
  static void keep_halves(Block block, Word *to, Word *second) {
    const auto halves = std::bit_cast<u64x2>(block.words);
    store(to, halves[0]);
    store(second, halves[1]);
  }
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
  static Block first(Elements a) {
    if constexpr (kTwiceAsWide) {
      return {{widen_low(a), widen_high(a)}};
    } else {
      const auto low = widen_low(a);
      const auto high = widen_high(a);
      return {{widen_low(low), widen_high(low), widen_low(high), widen_high(high)}};
    }
  }
  static Block first_two(Elements a, Elements b) {
    if constexpr (kTwiceAsWide) {
      return {{add_low(a, b), add_high(a, b)}};
    } else {
      const auto low = add_low(a, b);
      const auto high = add_high(a, b);
      return {{widen_low(low), widen_high(low), widen_low(high), widen_high(high)}};
    }
  }
  static Block more(Block block, Elements a) {
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
  static void keep_halves(const Block &block, Word *to, Word *second) {
    constexpr size_t kOfHalf = sizeof(block.words) / sizeof(Lanes) / 2;
    for (size_t v = 0; v < kOfHalf; ++v) store(to + v * kLanes<Lanes>, block.words[v]);
    for (size_t v = 0; v < kOfHalf; ++v) store(second + v * kLanes<Lanes>, block.words[kOfHalf + v]);
  }
};

// ---- down the lines

/// A vector of elements.
template <class Fold>
[[gnu::always_inline]] inline typename Fold::Elements load_elements(const uint8_t *from) {
  return load<typename Fold::Elements>(from);
}
/// A line of half a vector to a whole one: its first half, and its last one, which may overlap the first.
template <class Fold>
[[gnu::always_inline]] inline typename Fold::Elements load_narrow(const uint8_t *from, size_t last_half) {
  return std::bit_cast<typename Fold::Elements>(u64x2{load<uint64_t>(from), load<uint64_t>(from + last_half)});
}

/// Columns that a block of the folds below takes at once.
template <class Fold>
inline constexpr uint32_t kColumnsOfBlock = 16 / sizeof(typename Fold::Element);

/// One block of columns; kLines is `lines`, or 0 for any from 2.
template <class Fold, uint32_t kLines>
[[gnu::always_inline]] inline typename Fold::Block fold_block_of_lines(const uint8_t *from, size_t line_bytes,
                                                                       uint32_t lines) {
  if constexpr (kLines == 1) {
    return Fold::first(load_elements<Fold>(from));
  } else {
    const uint8_t *line = from + line_bytes;
    typename Fold::Block block = Fold::first_two(load_elements<Fold>(from), load_elements<Fold>(line));
    if constexpr (kLines != 0) {
      for (uint32_t l = 2; l < kLines; ++l) {
        line += line_bytes;
        block = Fold::more(block, load_elements<Fold>(line));
      }
    } else {
      uint32_t l = 2;
      for (; l + 4 <= lines; l += 4, line += 4 * line_bytes) {
        block = Fold::more(block, load_elements<Fold>(line + line_bytes));
        block = Fold::more(block, load_elements<Fold>(line + 2 * line_bytes));
        block = Fold::more(block, load_elements<Fold>(line + 3 * line_bytes));
        block = Fold::more(block, load_elements<Fold>(line + 4 * line_bytes));
      }
      for (; l < lines; ++l) {
        line += line_bytes;
        block = Fold::more(block, load_elements<Fold>(line));
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
      typename Fold::Block one = Fold::first_two(load_elements<Fold>(left), load_elements<Fold>(left + line_bytes));
      typename Fold::Block two = Fold::first_two(load_elements<Fold>(right), load_elements<Fold>(right + line_bytes));
      for (uint32_t l = 2; l < lines; ++l) {
        one = Fold::more(one, load_elements<Fold>(left + l * line_bytes));
        two = Fold::more(two, load_elements<Fold>(right + l * line_bytes));
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

/// Three lines, wherever each lies, of at least a block of columns, or of half a block to one where kNarrow is set.
template <class Fold, bool kNarrow>
[[gnu::always_inline]] inline void fold_three_lines(const uint8_t *first, const uint8_t *second, const uint8_t *third,
                                                    uint32_t columns, typename Fold::Word *to) {
  constexpr size_t kStep = kColumnsOfBlock<Fold>;
  if constexpr (kNarrow) {
    const size_t half = columns - kStep / 2;
    const auto elements = [=](const uint8_t *from) __attribute__((always_inline)) {
      return load_narrow<Fold>(from, half * sizeof(typename Fold::Element));
    };
    return Fold::keep_halves(Fold::more(Fold::first_two(elements(first), elements(second)), elements(third)), to,
                             to + half);
  }
  const auto fold_at = [=](size_t c) __attribute__((always_inline)) {
    const size_t at = c * sizeof(typename Fold::Element);
    return Fold::more(Fold::first_two(load_elements<Fold>(first + at), load_elements<Fold>(second + at)),
                      load_elements<Fold>(third + at));
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

/// How many columns a line has, as far as a loop knows it.
enum class LineWidth {
  kNarrow,     ///< from half a block, less than one
  kShort,      ///< from a block to two of them, with less windows than a block
  kTwoBlocks,  ///< from a block to two of them
  kAny,        ///< from a block
};

/// The folds of three lines for two windows at once, the second one kApart lines (1 or 2) further on, to words that lie kSecond
/// words behind those of the first one. The lines behind `second` are line_bytes apart but for the last one, which lies at
/// `last` as the first one lies at `first`.
template <class Fold, uint32_t kApart, LineWidth kWidth, size_t kSecond>
[[gnu::always_inline]] inline void fold_three_lines_twice(const uint8_t *first, const uint8_t *second,
                                                          size_t line_bytes, const uint8_t *last, uint32_t columns,
                                                          typename Fold::Word *to) {
  const uint8_t *third = second + line_bytes;
  const uint8_t *fourth = third + line_bytes;
  using Block = typename Fold::Block;
  constexpr size_t kStep = kColumnsOfBlock<Fold>;
  struct Two {
    Block one;
    Block two;
  };
  const auto fold_two = [=](const auto &elements) __attribute__((always_inline)) {
    const auto of_third = elements(third);
    const Block middle = Fold::first_two(elements(second), of_third);
    const Block next = kApart == 1 ? middle : Fold::first_two(of_third, elements(fourth));
    return Two{Fold::more(middle, elements(first)), Fold::more(next, elements(last))};
  };
  if constexpr (kWidth == LineWidth::kNarrow) {
    const size_t half = columns - kStep / 2;
    const Two folded = fold_two([=](const uint8_t *from) __attribute__((always_inline)) {
      return load_narrow<Fold>(from, half * sizeof(typename Fold::Element));
    });
    Fold::keep_halves(folded.one, to, to + half);
    Fold::keep_halves(folded.two, to + kSecond, to + kSecond + half);
    return;
  }
  // Some blocks side by side, all folded before any is kept: words may overlay elements, for all that the compiler knows.
  const auto fold_at = [=](size_t c, auto blocks) __attribute__((always_inline)) {
    Two folded[blocks];
    for (size_t i = 0; i < blocks; ++i) {
      const size_t at = (c + i * kStep) * sizeof(typename Fold::Element);
      folded[i] =
          fold_two([=](const uint8_t *from) __attribute__((always_inline)) { return load_elements<Fold>(from + at); });
    }
    typename Fold::Word *words = to + c;
    for (size_t i = 0; i < blocks; ++i, words += kStep) {
      Fold::keep(folded[i].one, words);
      Fold::keep(folded[i].two, words + kSecond);
    }
  };
  constexpr std::integral_constant<size_t, 1> kOne;
  constexpr std::integral_constant<size_t, kColumnsOfBlock<Fold> == 8 ? 2 : 1> kSome;
  const size_t last_block = columns - kStep;
  if constexpr (kWidth == LineWidth::kTwoBlocks || kWidth == LineWidth::kShort) {
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

/// The 1 to 8 bytes from an address on, in the lower bytes of the result. Reads nothing else.
inline uint64_t load_few_bytes(const uint8_t *from, size_t bytes) {
  const auto in_two = [=](auto piece) {
    const uint64_t front = load<decltype(piece)>(from);
    const uint64_t back = load<decltype(piece)>(from + bytes - sizeof piece);
    return front | back << (8 * (bytes - sizeof piece));
  };
  if (bytes >= 8) return load<uint64_t>(from);
  if (bytes >= 4) return in_two(uint32_t{});
  if (bytes >= 2) return in_two(uint16_t{});
  return *from;
}

/// Any lines of less than half a block of columns.
template <class Fold>
[[gnu::always_inline]] inline void fold_few_columns(const uint8_t *from, size_t line_bytes, uint32_t lines,
                                                    uint32_t columns, typename Fold::Word *to) {
  const size_t bytes = columns * sizeof(typename Fold::Element);
  const auto elements = [=](const uint8_t *line) {
    return std::bit_cast<typename Fold::Elements>(u64x2{load_few_bytes(line, bytes)});
  };
  typename Fold::Block block = Fold::first(elements(from));
  for (uint32_t l = 1; l < lines; ++l) block = Fold::more(block, elements(from + l * line_bytes));
  typename Fold::Word words[kColumnsOfBlock<Fold>];
  Fold::keep(block, words);
  for (uint32_t c = 0; c < columns; ++c) to[c] = words[c];
}

/// Any lines of less than a block of columns, and of at least half of one.
template <class Fold>
[[gnu::always_inline]] inline void fold_narrow_lines(const uint8_t *from, size_t line_bytes, uint32_t lines,
                                                     uint32_t columns, typename Fold::Word *to) {
  const size_t half = columns - kColumnsOfBlock<Fold> / 2;
  const size_t half_bytes = half * sizeof(typename Fold::Element);
  typename Fold::Block block = Fold::first(load_narrow<Fold>(from, half_bytes));
  for (uint32_t l = 1; l < lines; ++l) block = Fold::more(block, load_narrow<Fold>(from + l * line_bytes, half_bytes));
  Fold::keep_halves(block, to, to + half);
}

/// to[c] = the fold of column c over `lines` lines, at least one, that lie `line_bytes` apart. Reads nothing but those
/// elements, writes nothing but those words.
template <class Fold>
[[gnu::noinline]] void fold_lines(const uint8_t *from, size_t line_bytes, uint32_t lines, uint32_t columns,
                                  typename Fold::Word *to) {
  constexpr uint32_t kBlock = kColumnsOfBlock<Fold>;
  if (columns < kBlock) {
    if (columns >= kBlock / 2) return fold_narrow_lines<Fold>(from, line_bytes, lines, columns, to);
    if (columns != 0) fold_few_columns<Fold>(from, line_bytes, lines, columns, to);
    return;
  }
  if (lines == 1) return fold_blocks_of_lines<Fold, 1>(from, line_bytes, lines, columns, to);
  if (lines == 2) return fold_blocks_of_lines<Fold, 2>(from, line_bytes, lines, columns, to);
  if (lines == 3) return fold_blocks_of_lines<Fold, 3>(from, line_bytes, lines, columns, to);
  if (lines == 5) return fold_blocks_of_lines<Fold, 5>(from, line_bytes, lines, columns, to);
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
[[gnu::always_inline]] inline Pairs<Lanes> split_pairs(Lanes low, Lanes high) {
  if constexpr (sizeof(Lanes{}[0]) == 1) {
    return {take_lanes<0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30>(low, high),
            take_lanes<1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31>(low, high)};
  } else if constexpr (sizeof(Lanes{}[0]) == 2) {
    return {take_lanes<0, 2, 4, 6, 8, 10, 12, 14>(low, high), take_lanes<1, 3, 5, 7, 9, 11, 13, 15>(low, high)};
  } else {
    return {take_lanes<0, 2, 4, 6>(low, high), take_lanes<1, 3, 5, 7>(low, high)};
  }
}
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
  return split_pairs(load<Lanes>(from), load<Lanes>(static_cast<const uint8_t *>(from) + sizeof(Lanes)));
#endif
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
inline void fold_quads(const typename Fold::Word *from, size_t count, typename Fold::Word *to) {
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

/// The fold of a window of at least four words from what fold_quads() makes of them.
template <class Fold>
[[gnu::always_inline]] inline typename Fold::Word fold_window_by_quads(const typename Fold::Word *from,
                                                                       const typename Fold::Word *quads,
                                                                       uint32_t window) {
  const uint32_t whole = window / 4 * 4;
  typename Fold::Word word = quads[0];
  for (uint32_t k = 4; k < whole; k += 4) word = Fold::both(word, quads[k]);
  if constexpr (Fold::kWidens) {
    for (uint32_t k = whole; k < window; ++k) word = Fold::both(word, from[k]);
    return word;
  } else {
    return Fold::both(word, quads[window - 4]);  // which changes no maximum where it overlaps
  }
}

/// to[i] = the fold of `window` words from `from + i * stride`, both at least 1, for `count` windows. Whole blocks are read and
/// written: up to 15 windows more. `spare` has room for as many words as the windows cover, and for a block more.
template <class Fold>
inline void fold_windows(const typename Fold::Word *from, uint32_t window, uint32_t stride, uint32_t count,
                         typename Fold::Word *spare, typename Fold::Word *to) {
  constexpr size_t kBlock = kWordsOfBlock<typename Fold::Word>;
  const size_t covered = size_t{count - 1} * stride + window;
  if (stride == 1 && window >= 8) {
    fold_quads<Fold>(from, count + window - 1, spare);
    for (size_t i = 0; i < count; i += kBlock) store(to + i, fold_block_by_quads<Fold>(from + i, spare + i, window));
  } else if (stride == 1) {
    const auto fold_all = [=](auto width) __attribute__((always_inline)) {
      for (size_t i = 0; i < count; i += kBlock) store(to + i, fold_block_of_windows<Fold, 1, width>(from + i, window));
    };
    if (window == 2) return fold_all(std::integral_constant<uint32_t, 2>{});
    if (window == 3) return fold_all(std::integral_constant<uint32_t, 3>{});
    if (window == 5) return fold_all(std::integral_constant<uint32_t, 5>{});
    fold_all(std::integral_constant<uint32_t, 0>{});
  } else if (stride == 2) {
    for (size_t i = 0; i < count; i += kBlock) store(to + i, fold_block_of_windows<Fold, 2, 0>(from + 2 * i, window));
  } else if (window >= 8) {
    fold_quads<Fold>(from, covered, spare);
    for (size_t i = 0; i < count; ++i) {
      to[i] = fold_window_by_quads<Fold>(from + i * stride, spare + i * stride, window);
    }
  } else {
    // The windows of every word, of which some are wanted.
    const size_t words = covered - window + 1;
    for (size_t i = 0; i < words; i += kBlock) store(spare + i, fold_block_of_windows<Fold, 1, 0>(from + i, window));
    for (size_t i = 0; i < count; ++i) to[i] = spare[i * stride];
  }
}

/// The fold of neighbouring lanes: those of `a` in the first half of the result, those of `b` in the second one.
#if TARVU_NEON
inline u8x16 fold_neighbours(MaximumFold<uint8_t>, u8x16 a, u8x16 b) { return vpmaxq_u8(a, b); }
inline s8x16 fold_neighbours(MaximumFold<int8_t>, s8x16 a, s8x16 b) { return vpmaxq_s8(a, b); }
inline u16x8 fold_neighbours(MaximumFold<uint16_t>, u16x8 a, u16x8 b) { return vpmaxq_u16(a, b); }
inline s16x8 fold_neighbours(MaximumFold<int16_t>, s16x8 a, s16x8 b) { return vpmaxq_s16(a, b); }
#else
template <class Fold>
inline typename Fold::Lanes fold_neighbours(Fold, typename Fold::Lanes a, typename Fold::Lanes b) {
  const Pairs<typename Fold::Lanes> pairs = split_pairs(a, b);
  return Fold::both(pairs.even, pairs.odd);
}
#endif

/// The greatest words of windows of two lines and two columns, side by side: a block of elements of two lines for each.
template <class Fold>
[[gnu::always_inline]] inline WordBlock<typename Fold::Word> fold_two_by_two(const uint8_t *from, size_t line_bytes) {
  const auto lines = [=](size_t at) __attribute__((always_inline)) {
    return Fold::both(load_elements<Fold>(from + at), load_elements<Fold>(from + line_bytes + at));
  };
  const auto first = lines(0);
  const auto second = lines(16);
  return {{fold_neighbours(Fold{}, first, second)}};
}
/// The same for the first windows of a line in the first half of the block and the last ones, `last` bytes of input further on,
/// in the second half; where kFew is set, in its first two quarters.
template <class Fold, bool kFew>
[[gnu::always_inline]] inline WordBlock<typename Fold::Word> fold_two_pieces(const uint8_t *from, size_t line_bytes,
                                                                             size_t last) {
  if constexpr (kFew) {
    const auto both = Fold::both(load_narrow<Fold>(from, last), load_narrow<Fold>(from + line_bytes, last));
    return {{fold_neighbours(Fold{}, both, both)}};
  } else {
    const auto first = Fold::both(load_elements<Fold>(from), load_elements<Fold>(from + line_bytes));
    const auto second = Fold::both(load_elements<Fold>(from + last), load_elements<Fold>(from + line_bytes + last));
    return {{fold_neighbours(Fold{}, first, second)}};
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_FOLD_H
