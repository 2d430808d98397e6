/// \file pool_common_windows_of.h
/// The loops over windows of the common kinds, made of one fold of simd/fold.h and one way to the output. A way is a struct:
/// `Out` is the output's element, store(to, block) writes a block of words, in_registers(use) calls use(way) with a copy that
/// loops keep in registers.
#ifndef TARVU_POOL_POOL_COMMON_WINDOWS_OF_H
#define TARVU_POOL_POOL_COMMON_WINDOWS_OF_H

#include "pool/pool_common_windows.h"
#include "simd/fold.h"

namespace tarvu {

struct NoEdges {};

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

/// Windows of kSide columns and lines, kStride apart: nothing is left to be decided inside a line. Where kNarrow is set, there
/// are at most 32 of them in a line, of at most 32 bytes.
template <class Fold, uint32_t kStride, uint32_t kSide, bool kNarrow, class Way, class EdgesOrNone>
[[gnu::noinline]] void run_square_windows(const Band &band, const Part &part, const Way &given_way,
                                          const EdgesOrNone &edges, Tile &tile) {
  using Word = typename Fold::Word;
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
      constexpr uint32_t kBlocks = kNarrow ? 32 / kWordsOfBlock<Word> : 0;
      pass_blocks<Fold, kStride, kSide, kBlocks>(folded, count, way, edges, line_to);
    };
    uint32_t n = band.count;
    if constexpr (kSide == 3) {
      const auto *nothing = reinterpret_cast<const uint8_t *>(kLineOfNothing<Fold, kNothingBytes>.elements);
      const uint8_t *const behind_last = band.cut_behind != 0 ? nothing : nullptr;
      const uint8_t *first = band.cut_front != 0 ? nothing : from;
      from += band.cut_front != 0 ? 0 : line_step;  // the second line of the windows
      const auto pass_two = [&](const uint8_t *last) __attribute__((always_inline)) {
        constexpr size_t kSecond = sizeof tile.columns / sizeof(Word);  // those of tile.more
        fold_three_lines_twice<Fold, kStride, kNarrow ? 2 : 0, kSecond>(first, from, line_step, last, columns, input);
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
        fold_three_lines<Fold>(first, from, behind_last != nullptr ? behind_last : from + line_step, columns, input);
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

/// Maxima of windows of two columns and two lines, side by side and wholly inside the input: straight from there. At least a
/// block.
template <class Fold, class Way>
[[gnu::noinline]] void run_two_by_two(const Band &band, const Part &part, const Way &given_way) {
  given_way.in_registers([&](const auto &way) __attribute__((always_inline)) {
    constexpr size_t kBlock = kWordsOfBlock<typename Fold::Word>;
    constexpr size_t kOutBytes = sizeof(typename Way::Out);
    constexpr size_t kInBytes = 2 * sizeof(typename Fold::Element);
    const size_t line_step = band.line_step;
    const size_t window_step = band.window_step;
    const size_t out_step = band.out_step;
    const size_t last = part.count - kBlock;
    const uint8_t *line = band.from + part.input * sizeof(typename Fold::Element);
    uint8_t *line_to = band.to + part.first * kOutBytes;
    for (uint32_t n = band.count; n != 0; --n, line += window_step, line_to += out_step) {
      const uint8_t *from = line;
      uint8_t *const last_to = line_to + last * kOutBytes;
      for (uint8_t *to = line_to; to < last_to; to += kBlock * kOutBytes, from += kBlock * kInBytes) {
        way.store(to, fold_two_by_two<Fold>(from, line_step));
      }
      way.store(last_to, fold_two_by_two<Fold>(line + last * kInBytes, line_step));
    }
  });
}

/// Whether the windows of a part are of a common kind, at least a block of them over at least a block of columns; then it runs
/// them.
template <class Fold, class Way, class EdgesOrNone>
bool run_if_square(const Band &band, const Part &part, const Way &way, const EdgesOrNone &edges, Tile &tile) {
  constexpr uint32_t kBlock = kWordsOfBlock<typename Fold::Word>;
  constexpr uint32_t kColumns = kColumnsOfBlock<Fold>;
  if (part.input_columns < kColumns || part.count < kBlock || part.window != band.lines) return false;
  if (band.count > 1 && band.window_step != part.stride * band.line_step) return false;
  if (part.window == 3 && part.stride == 1) {
    if constexpr (kColumns == 16) {
      if (part.input_columns <= 2 * kColumns && part.count <= 32 && part.count > 16) {
        run_square_windows<Fold, 1, 3, true>(band, part, way, edges, tile);
        return true;
      }
    }
    run_square_windows<Fold, 1, 3, false>(band, part, way, edges, tile);
    return true;
  }
  if (part.window == 3 && part.stride == 2) {
    run_square_windows<Fold, 2, 3, false>(band, part, way, edges, tile);
    return true;
  }
  if (part.window == 2 && part.stride == 2) {
    if constexpr (!Fold::kWidens) {
      if (part.input_at == 0 && part.input_columns == 2 * part.count) {
        run_two_by_two<Fold>(band, part, way);
        return true;
      }
    }
    run_square_windows<Fold, 2, 2, false>(band, part, way, edges, tile);
    return true;
  }
  return false;
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_COMMON_WINDOWS_OF_H
