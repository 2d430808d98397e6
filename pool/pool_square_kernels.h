/// \file pool_square_kernels.h
/// The loops over windows of the common kinds, made of one fold of simd/fold.h and one way to the output. A way is a struct:
/// `Out` is the output's element, store(to, block) writes a block of words, in_registers(use) calls use(way) with a copy that
/// loops keep in registers.
#ifndef TARVU_POOL_POOL_SQUARE_KERNELS_H
#define TARVU_POOL_POOL_SQUARE_KERNELS_H

#include "pool/pool_square.h"
#include "simd/fold.h"

namespace tarvu {

struct NoEdges {
  explicit NoEdges(const Edges *) {}
};

/// Words as they are: the output, or words for a stage.
template <class Word>
struct UnchangedWay {
  using Out = Word;
  explicit UnchangedWay(const OutputStage &) {}
  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
    std::memcpy(to, &block, sizeof block);
  }
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    use(*this);
  }
};

/// Windows of one line, at least a block of them, and more than one block where there are edges. Where kBlocks is not 0, so
/// many blocks are known to be enough.
template <class Fold, uint32_t kStride, uint32_t kSide, uint32_t kBlocks, class Way, class EdgesOrNone>
[[gnu::always_inline]] inline void pass_blocks(const typename Fold::Word *words, uint32_t count, const Way &way,
                                               const EdgesOrNone &edges, uint8_t *to) {
  constexpr size_t kBlock = kWordsOfBlock<typename Fold::Word>;
  constexpr bool kEdges = !std::is_same_v<EdgesOrNone, NoEdges>;
  const size_t last = count - kBlock;
  const auto pass = [&, to, words ](size_t i, const auto &...own) __attribute__((always_inline)) {
    way.store(to + i * sizeof(typename Way::Out),
              fold_block_of_windows<Fold, kStride, kSide>(words + i * kStride, kSide), own...);
  };
  size_t i = 0;
  if constexpr (kEdges) {
    pass(0, edges.first);
    i = kBlock;
  }
  if constexpr (kBlocks != 0) {
    for (; i < (kBlocks - 1) * kBlock; i += kBlock) pass(std::min(i, last));
  } else {
    for (; i < last; i += kBlock) pass(i);
  }
  // The last block overlaps the one before it: both write the same elements there, or the last one knows better.
  if constexpr (kEdges) {
    pass(last, edges.last);
  } else {
    pass(last);
  }
}

/// Stores from a block of words a first and a last piece of `count` elements, which meet or overlap.
template <class Piece, class Word, class Way>
[[gnu::always_inline]] inline void store_in_two(const Way &way, const WordBlock<Word> &block, uint32_t count,
                                                uint8_t *to) {
  uint8_t elements[kWordsOfBlock<Word> * sizeof(typename Way::Out)];
  way.store(elements, block);
  const size_t second = count * sizeof(typename Way::Out) - sizeof(Piece);
  const auto front = load<Piece>(elements);
  const auto back = load<Piece>(elements + second);
  tarvu::store(to, front);
  tarvu::store(to + second, back);
}

/// How many windows a line has. What lies between the kinds goes side by side.
enum class WindowCount {
  kMany,  ///< at least a block
  kHalf,  ///< half a block to a whole one
  kFew,   ///< a quarter of a block to half of one
};

/// The kinds of lines, by their columns and windows, that have loops of their own.
template <class Fold, LineWidth kWidth, uint32_t kStride>
constexpr WindowCount windows_of_kind() {
  if (kWidth == LineWidth::kShort) return WindowCount::kHalf;
  if (kWidth != LineWidth::kNarrow) return WindowCount::kMany;
  if (Fold::kWidens) return kStride == 1 ? WindowCount::kMany : WindowCount::kHalf;
  return kStride == 1 ? WindowCount::kHalf : WindowCount::kFew;
}
template <class Fold>
inline bool is_count(WindowCount kind, uint32_t count) {
  constexpr uint32_t kBlock = kWordsOfBlock<typename Fold::Word>;
  switch (kind) {
    case WindowCount::kHalf:
      return count >= kBlock / 2 && count <= kBlock;
    case WindowCount::kFew:
      return count >= kBlock / 4 && count <= kBlock / 2;
    default:
      return count >= kBlock;
  }
}

/// Windows of kSide columns and lines, kStride apart: nothing is left to be decided inside a line. Lines of two blocks have at
/// most 32 windows.
template <class Fold, class Way, class EdgesOrNone, uint32_t kStride, uint32_t kSide, LineWidth kWidth>
void run_square_windows(const Band &band, const Part &part, Tile &tile) {
  using Word = typename Fold::Word;
  constexpr WindowCount kCount = windows_of_kind<Fold, kWidth, kStride>();
  constexpr size_t kOutBytes = kWordsOfBlock<Word> * sizeof(typename Way::Out);
  constexpr size_t kPiece = kCount == WindowCount::kHalf ? kOutBytes / 2 : kOutBytes / 4;
  using Piece = std::conditional_t<kPiece == 8, uint64_t, std::conditional_t<kPiece == 4, uint32_t, uint16_t>>;
  const Way given_way(band.stage);
  const EdgesOrNone edges(band.edges);
  given_way.in_registers([&](const auto &way) __attribute__((always_inline)) {
    const size_t line_step = band.line_step;
    const size_t out_step = band.out_step;
    const uint32_t columns = part.input_columns;
    const uint32_t count = part.count;
    Word *const words = reinterpret_cast<Word *>(&tile);
    Word *const input = words + part.input_at;
    const uint8_t *from = band.from + part.input * sizeof(typename Fold::Element);
    uint8_t *to = band.to + part.first * sizeof(typename Way::Out);
    const auto pass = [&](const Word *folded, uint8_t *line_to) __attribute__((always_inline)) {
      if constexpr (kCount != WindowCount::kMany) {
        store_in_two<Piece, Word>(way, fold_block_of_windows<Fold, kStride, kSide>(folded, kSide), count, line_to);
      } else {
        constexpr uint32_t kBlocks = kWidth == LineWidth::kTwoBlocks ? 32 / kWordsOfBlock<Word> : 0;
        pass_blocks<Fold, kStride, kSide, kBlocks>(folded, count, way, edges, line_to);
      }
    };
    uint32_t n = band.count;
    if constexpr (kSide == 3) {
      const auto *nothing = reinterpret_cast<const uint8_t *>(kLineOfNothing<Fold, kNothingBytes>.elements);
      const uint8_t *const behind_last = band.cut_behind != 0 ? nothing : nullptr;
      const uint8_t *first = band.cut_front != 0 ? nothing : from;
      from += band.cut_front != 0 ? 0 : line_step;  // the second line of the windows
      const auto pass_two = [&](const uint8_t *last) __attribute__((always_inline)) {
        constexpr size_t kSecond = sizeof tile.columns / sizeof(Word);  // those of tile.more
        fold_three_lines_twice<Fold, kStride, kWidth, kSecond>(first, from, line_step, last, columns, input);
        pass(words, to);
        pass(words + kSecond, to + out_step);
      };
      const auto pass_next = [&](const uint8_t *last) __attribute__((always_inline)) {
        pass_two(last);
        from = opaque(from + 2 * kStride * line_step);
        first = from - line_step;
        to += 2 * out_step;
      };
      if constexpr (sizeof(Word) == 1) {
        // Without the decision below, which counts where so little is done for a line.
        for (; n > 2; n -= 2) pass_next(from + (kStride + 1) * line_step);
      }
      for (; n >= 2; n -= 2) {
        pass_next(n == 2 && behind_last != nullptr ? behind_last : from + (kStride + 1) * line_step);
      }
      if (n == 1) {
        fold_three_lines<Fold, kWidth == LineWidth::kNarrow>(
            first, from, behind_last != nullptr ? behind_last : from + line_step, columns, input);
        pass(words, to);
      }
    } else {
      for (; n != 0; --n, from += kStride * line_step, to += out_step) {
        fold_blocks_of_lines<Fold, kSide>(from, line_step, kSide, columns, input);
        pass(words, to);
      }
    }
  });
}

/// Maxima of windows of two columns and two lines, side by side and wholly inside the input: straight from there.
template <class Fold, class Way, WindowCount kCount>
void run_two_by_two(const Band &band, const Part &part, Tile &) {
  using Word = typename Fold::Word;
  static_assert(sizeof(typename Way::Out) == sizeof(Word));
  const Way given_way(band.stage);
  given_way.in_registers([&](const auto &way) __attribute__((always_inline)) {
    constexpr size_t kBlock = kWordsOfBlock<Word>;
    constexpr size_t kOutBytes = sizeof(typename Way::Out);
    constexpr size_t kInBytes = 2 * sizeof(typename Fold::Element);
    const size_t line_step = band.line_step;
    const size_t window_step = band.window_step;
    const size_t out_step = band.out_step;
    const uint8_t *line = band.from + part.input * sizeof(typename Fold::Element);
    uint8_t *line_to = band.to + part.first * kOutBytes;
    const size_t count = part.count;
    if constexpr (kCount != WindowCount::kMany) {
      // The first and the last windows of a line, half a block of both or a quarter, that meet or overlap.
      using Piece = std::conditional_t<kCount == WindowCount::kHalf, uint64_t, uint32_t>;
      const size_t second = (count - sizeof(Piece) / kOutBytes) * kOutBytes;
      const size_t last = second / kOutBytes * kInBytes;
      for (uint32_t n = band.count; n != 0; --n, line += window_step, line_to += out_step) {
        uint8_t elements[16];
        way.store(elements, fold_two_pieces<Fold, kCount == WindowCount::kFew>(line, line_step, last));
        const auto front = load<Piece>(elements);
        const auto back = load<Piece>(elements + sizeof(Piece));
        tarvu::store(line_to, front);
        tarvu::store(line_to + second, back);
      }
    } else {
      // The last block overlaps the one before it: both write the same elements there.
      const size_t last = count - kBlock;
      const auto pass = [&](size_t at) __attribute__((always_inline)) {
        way.store(line_to + at * kOutBytes, fold_two_by_two<Fold>(line + at * kInBytes, line_step));
      };
      const auto pass_lines = [&](auto blocks) __attribute__((always_inline)) {
        for (uint32_t n = band.count; n != 0; --n, line += window_step, line_to += out_step) {
          for (size_t i = 0; i + 1 < blocks; ++i) pass(i * kBlock);
          pass(last);
        }
      };
      // Lines of few blocks need no loop.
      if (count <= 2 * kBlock) return pass_lines(std::integral_constant<size_t, 2>{});
      if (count <= 3 * kBlock) return pass_lines(std::integral_constant<size_t, 3>{});
      if (count <= 4 * kBlock) return pass_lines(std::integral_constant<size_t, 4>{});
      for (uint32_t n = band.count; n != 0; --n, line += window_step, line_to += out_step) {
        size_t i = 0;
        for (; i + kBlock < last; i += 2 * kBlock) {
          pass(i);
          pass(i + kBlock);
        }
        if (i < last) pass(i);
        pass(last);
      }
    }
  });
}

/// Which of these runs the windows of a part, if any. Where kShortLines is not set, none of the loops for short lines.
template <class Fold, class Way, class EdgesOrNone, bool kShortLines>
SquareWindows choose_square(const Band &band, const Part &part) {
  constexpr uint32_t kBlock = kWordsOfBlock<typename Fold::Word>;
  constexpr uint32_t kColumns = kColumnsOfBlock<Fold>;
  const uint32_t columns = part.input_columns;
  const uint32_t count = part.count;
  if (part.window != band.lines) return nullptr;
  if (band.count > 1 && band.window_step != part.stride * band.line_step) return nullptr;
  const bool many = count >= kBlock && columns >= kColumns;
  if (part.window == 2 && part.stride == 2) {
    if constexpr (!Fold::kWidens) {
      if (part.input_at == 0 && columns == 2 * count) {
        if (count >= kBlock) return run_two_by_two<Fold, Way, WindowCount::kMany>;
        if (is_count<Fold>(WindowCount::kHalf, count)) return run_two_by_two<Fold, Way, WindowCount::kHalf>;
        if (is_count<Fold>(WindowCount::kFew, count)) return run_two_by_two<Fold, Way, WindowCount::kFew>;
      }
    }
    return many ? run_square_windows<Fold, Way, EdgesOrNone, 2, 2, LineWidth::kAny> : nullptr;
  }
  if (part.window != 3 || part.stride > 2) return nullptr;
  if (part.stride == 1) {
    if constexpr (kColumns == 16) {
      if (many && columns <= 2 * kColumns && count <= 32 && count > 16) {
        return run_square_windows<Fold, Way, EdgesOrNone, 1, 3, LineWidth::kTwoBlocks>;
      }
    }
    if (many) return run_square_windows<Fold, Way, EdgesOrNone, 1, 3, LineWidth::kAny>;
    if constexpr (kShortLines) {
      constexpr WindowCount kCount = windows_of_kind<Fold, LineWidth::kNarrow, 1>();
      if (columns >= kColumns / 2 && columns < kColumns && is_count<Fold>(kCount, count)) {
        return run_square_windows<Fold, Way, EdgesOrNone, 1, 3, LineWidth::kNarrow>;
      }
    }
    return nullptr;
  }
  if (many) return run_square_windows<Fold, Way, EdgesOrNone, 2, 3, LineWidth::kAny>;
  if constexpr (kShortLines) {
    constexpr WindowCount kCount = windows_of_kind<Fold, LineWidth::kNarrow, 2>();
    if (columns >= kColumns / 2 && columns < kColumns && is_count<Fold>(kCount, count)) {
      return run_square_windows<Fold, Way, EdgesOrNone, 2, 3, LineWidth::kNarrow>;
    }
    if constexpr (!Fold::kWidens) {
      if (columns >= kColumns && is_count<Fold>(WindowCount::kHalf, count)) {
        return run_square_windows<Fold, Way, EdgesOrNone, 2, 3, LineWidth::kShort>;
      }
    }
  }
  return nullptr;
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_SQUARE_KERNELS_H
