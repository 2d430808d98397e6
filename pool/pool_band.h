/// \file pool_band.h
/// Bands of output lines whose windows are equally tall: each line of windows is folded down its lines into a tile of words, and
/// those along the windows into the output stage.
#ifndef TARVU_POOL_POOL_BAND_H
#define TARVU_POOL_POOL_BAND_H

#include "simd/requantise.h"

namespace tarvu {

/// Output lines one after another. All steps are in bytes.
struct Band {
  const uint8_t *from;  ///< column 0 of the first line that the first windows have
  size_t line_step;     ///< from a line of a window to the next one
  size_t window_step;   ///< from a window to that of the next output line
  uint32_t lines;       ///< of a window; 0 if the windows are empty
  uint32_t cut_front;   ///< 1 if the first windows lack their first line, else 0
  uint32_t cut_behind;  ///< 1 if the last windows lack their last line, else 0
  uint8_t *to;          ///< column 0 of the first output line
  size_t out_step;
  uint32_t count;  ///< output lines
};

/// One output line of a band by itself, with windows of the lines that they have.
inline Band line_of(const Band &band, uint32_t i) {
  Band line = band;
  line.lines -= (i == 0 ? band.cut_front : 0) + (i == band.count - 1 ? band.cut_behind : 0);
  if (i != 0) line.from += i * band.window_step - band.cut_front * band.line_step;
  line.to += i * band.out_step;
  line.cut_front = line.cut_behind = 0;
  line.count = 1;
  return line;
}

/// A part of every line of a band, and the tile of words that its columns are folded to. Tile positions count from the first word
/// of the first window, padding included.
struct Part {
  uint32_t window;         ///< words of a window
  uint32_t stride;         ///< words from a window to the next one
  uint32_t first;          ///< output column of the first window
  uint32_t count;          ///< windows
  uint32_t input;          ///< first input column of the tile
  uint32_t input_at;       ///< its position
  uint32_t input_columns;  ///< none if the tile is all padding
};

/// A tile of words, and how far behind it another one of the same kind lies. Behind both is room for one more line. Not a power of
/// two: processors that compare the lower bits of addresses would take one for another.
inline constexpr uint32_t kTileBytes = 2048 + 64;
template <class Word>
inline constexpr uint32_t kTileWords = kTileBytes / sizeof(Word);

/// Which windows of a part pass through a stage: `count` of them from window `first`.
struct Passed {
  uint32_t first;
  uint32_t count;
};

/// Divisors of the first and of the last block of a line where they differ from those between.
template <class Divisors>
struct Edges {
  Divisors first;
  Divisors last;
};
struct NoEdges {};

/// Whoever writes the windows that do not pass: a reference to a function object.
class AfterLine {
 public:
  template <class F>
  explicit AfterLine(const F &f)
      : object_(&f), call_([](const void *object, uint8_t *to) { (*static_cast<const F *>(object))(to); }) {}
  void operator()(uint8_t *to) const { call_(object_, to); }

 private:
  const void *object_;
  void (*call_)(const void *object, uint8_t *to);
};

/// Windows of one line, at least a block of them, and more than one where there are edges. kStride and kWindow as
/// fold_block_of_windows() has them. Where kBlocks is not 0, so many blocks are known to be enough. `spare` has room for a line.
template <class Fold, uint32_t kStride, uint32_t kWindow, uint32_t kBlocks, class Stage, class EdgesOrNone>
[[gnu::always_inline]] inline void pass_blocks(const typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count,
                                               const Stage &stage, const EdgesOrNone &edges, uint8_t *to,
                                               [[maybe_unused]] typename Fold::Word *spare) {
  constexpr size_t kBlock = kWordsOfBlock<typename Fold::Word>;
  constexpr size_t kOutBytes = sizeof(typename Stage::Out);
  constexpr bool kEdges = !std::is_same_v<EdgesOrNone, NoEdges>;
  if constexpr (!kFoldsInBlocks) {
    fold_windows<Fold, kStride, kWindow>(words, window, stride, count, spare);
    stage.store_line(to, spare, count);
    if constexpr (kEdges) {
      using Block = WordBlock<typename Fold::Word>;
      stage.store(to, load<Block>(spare), edges.first);
      stage.store(to + (count - kBlock) * kOutBytes, load<Block>(spare + count - kBlock), edges.last);
    }
    return;
  }
  const size_t step = kStride != 0 ? kStride : stride;
  const size_t last = count - kBlock;
  const auto pass = [&, to, words](size_t i, const auto &...own) __attribute__((always_inline)) {
    stage.store(to + i * kOutBytes, fold_block_of_windows<Fold, kStride, kWindow>(words + i * step, window, stride, kBlock), own...);
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

template <class Fold, uint32_t kStride, class Stage>
inline void pass_any_count(typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count, const Stage &given_stage,
                           uint8_t *to) {
  using Word = typename Fold::Word;
  if constexpr (!kFoldsInBlocks) {
    Word *spare = words + kTileWords<Word>;
    fold_windows<Fold, kStride, 0>(words, window, stride, count, spare);
    given_stage.store_line(to, spare, count);
  } else if (count >= kWordsOfBlock<Word>) {
    given_stage.in_registers([&](const auto &stage) {
      pass_blocks<Fold, kStride, 0, 0>(words, window, stride, count, stage, NoEdges{}, to, nullptr);
    });
  } else {
    uint8_t part[32];
    given_stage.store(part, fold_block_of_windows<Fold, kStride, 0>(words, window, stride, count));
    store_part(to, part, count * static_cast<uint32_t>(sizeof(typename Stage::Out)));
  }
}

/// At least a block of windows one word apart and of at least four words: the quads of all words are folded first.
template <class Fold, class Stage>
inline void pass_long_windows(typename Fold::Word *words, uint32_t window, uint32_t count, const Stage &given_stage, uint8_t *to) {
  using Word = typename Fold::Word;
  constexpr size_t kBlock = kWordsOfBlock<Word>;
  Word *const quads = words + kTileWords<Word>;
  fold_quads<Fold>(words, count + window - 1, quads);
  given_stage.in_registers([&](const auto &stage) {
    const size_t last = count - kBlock;
    const auto pass = [&](size_t i) {
      stage.store(to + i * sizeof(typename Stage::Out), fold_block_by_quads<Fold>(words + i, quads + i, window));
    };
    for (size_t i = 0; i < last; i += kBlock) pass(i);
    pass(last);
  });
}

/// Folds `count` windows of `window` words, `stride` words apart (each at least 1), and stores them through the stage. `words` is a
/// tile, the one behind it is free.
template <class Fold, class Stage>
[[gnu::noinline]] void pass_windows(typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count,
                                    const Stage &stage, uint8_t *to) {
  if (stride == 1) {
    if (kFoldsInBlocks && window >= 8 && count >= kWordsOfBlock<typename Fold::Word>) {
      return pass_long_windows<Fold>(words, window, count, stage, to);
    }
    return pass_any_count<Fold, 1>(words, window, stride, count, stage, to);
  }
  if (stride == 2) return pass_any_count<Fold, 2>(words, window, stride, count, stage, to);
  return pass_any_count<Fold, 0>(words, window, stride, count, stage, to);
}

/// Windows of kSide columns and lines, the common case: nothing is left to be decided inside a line. All windows of the part pass,
/// at least a block of them, and there is at least a block of input columns. The windows of neighbouring output lines are kStride
/// lines apart. Where kNarrow is set, the windows are at most 32, and so are the input's bytes.
template <class Fold, uint32_t kStride, uint32_t kSide, bool kNarrow, class Stage, class EdgesOrNone>
[[gnu::noinline]] void run_square_windows(const Band &band, const Part &part, const Stage &given_stage, const EdgesOrNone &edges,
                                          typename Fold::Word *words) {
  given_stage.in_registers([&](const auto &stage) __attribute__((always_inline)) {
    using Word = typename Fold::Word;
    const size_t line_step = band.line_step;
    const size_t out_step = band.out_step;
    const uint32_t columns = part.input_columns;
    const uint32_t count = part.count;
    Word *const input = words + part.input_at;
    const uint8_t *from = band.from + part.input * sizeof(typename Fold::Element);
    uint8_t *to = band.to + part.first * sizeof(typename Stage::Out);
    const auto pass = [&](const Word *folded, uint8_t *line_to) __attribute__((always_inline)) {
      constexpr uint32_t kBlocks = kNarrow ? 32 / kWordsOfBlock<Word> : 0;
      pass_blocks<Fold, kStride, kSide, kBlocks>(folded, kSide, kStride, count, stage, edges, line_to,
                                                 words + 2 * kTileWords<Word>);
    };
    uint32_t n = band.count;
    if constexpr (kSide == 3) {
      const auto *nothing = reinterpret_cast<const uint8_t *>(kLineOfNothing<Fold>.elements);
      const uint8_t *const behind_last = band.cut_behind != 0 ? nothing : nullptr;
      const uint8_t *first = band.cut_front != 0 ? nothing : from;
      from += band.cut_front != 0 ? 0 : line_step;  // the second line of the windows
      const auto pass_two = [&](const uint8_t *last) __attribute__((always_inline)) {
        constexpr size_t kSecond = kTileWords<Word>;
        fold_three_lines_twice<Fold, kStride, kNarrow ? 2 : 0, kSecond>(first, from, line_step, last, columns, input);
        pass(words, to);
        pass(words + kSecond, to + out_step);
      };
      for (; n > 2; n -= 2, to += 2 * out_step) {
        pass_two(from + (kStride + 1) * line_step);
        from += 2 * kStride * line_step;
        first = from - line_step;
      }
      if (n == 2) pass_two(behind_last != nullptr ? behind_last : from + (kStride + 1) * line_step);
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

/// Maxima of windows of two columns and two lines, side by side and wholly inside the input: straight from there. At least a block.
template <class Fold, class Stage>
[[gnu::noinline]] void run_two_by_two(const Band &band, const Part &part, const Stage &given_stage) {
  given_stage.in_registers([&](const auto &stage) __attribute__((always_inline)) {
    constexpr size_t kBlock = kWordsOfBlock<typename Fold::Word>;
    constexpr size_t kOutBytes = sizeof(typename Stage::Out);
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
        stage.store(to, fold_two_by_two<Fold>(from, line_step));
      }
      stage.store(last_to, fold_two_by_two<Fold>(line + last * kInBytes, line_step));
    }
  });
}

template <class Fold, class Stage, class EdgesOrNone>
bool run_if_common(const Band &band, const Part &part, const Stage &stage, const EdgesOrNone &edges, typename Fold::Word *words) {
  constexpr uint32_t kBlock = kWordsOfBlock<typename Fold::Word>;
  constexpr uint32_t kColumns = kColumnsOfBlock<Fold>;
  if (part.input_columns < kColumns || part.count < kBlock) return false;
  if (band.count > 1 && band.window_step != part.stride * band.line_step) return false;
  if (part.window != band.lines) return false;
  if (part.window == 3 && part.stride == 1) {
    if constexpr (kColumns == 16 && kFoldsInBlocks) {
      if (part.input_columns <= 2 * kColumns && part.count <= 32 && part.count > 16) {
        run_square_windows<Fold, 1, 3, true>(band, part, stage, edges, words);
        return true;
      }
    }
    run_square_windows<Fold, 1, 3, false>(band, part, stage, edges, words);
    return true;
  }
  if (part.window == 3 && part.stride == 2) {
    run_square_windows<Fold, 2, 3, false>(band, part, stage, edges, words);
    return true;
  }
  if (part.window == 2 && part.stride == 2) {
    if constexpr (!Fold::kWidens && kFoldsInBlocks) {
      if (part.input_at == 0 && part.input_columns == 2 * part.count) {
        run_two_by_two<Fold>(band, part, stage);
        return true;
      }
    }
    run_square_windows<Fold, 2, 2, false>(band, part, stage, edges, words);
    return true;
  }
  return false;
}

/// Runs a part whose windows all pass if they are of a common kind, else gives false. Only pairs of types of one width are worth
/// the code.
template <class Fold, class Stage, class EdgesOrNone>
bool run_if_square(const Band &band, const Part &part, const Stage &stage, const EdgesOrNone &edges,
                   typename Fold::Word *words) {
  if constexpr (sizeof(typename Fold::Element) == sizeof(typename Stage::Out) && sizeof(typename Fold::Word) < 4) {
    return run_if_common<Fold>(band, part, stage, edges, words);
  } else {
    return false;
  }
}

/// Folds the windows of a part of a band and stores those that are `passed` through the stage. Where there are others,
/// after_line(to) is called when the words and the output `to` of a line stand. `words` is the tile, which holds the fold of nothing
/// wherever there is padding.
template <class Fold, class Stage>
[[gnu::noinline]] void run_windows(const Band &band, const Part &part, const Passed &passed, const Stage &stage,
                                   typename Fold::Word *words, AfterLine after_line) {
  typename Fold::Word *input = words + part.input_at;
  for (uint32_t i = 0; i < band.count; ++i) {
    const Band line = line_of(band, i);
    uint8_t *to = line.to + part.first * sizeof(typename Stage::Out);
    if (line.lines != 0) {
      const uint8_t *from = line.from + part.input * sizeof(typename Fold::Element);
      fold_lines<Fold>(from, line.line_step, line.lines, part.input_columns, input);
    } else {
      std::fill(input, input + part.input_columns, Fold::kIdentity);
    }
    if (passed.count != 0) {
      pass_windows<Fold>(words + passed.first * part.stride, part.window, part.stride, passed.count, stage,
                         to + passed.first * sizeof(typename Stage::Out));
    }
    if (passed.count != part.count) after_line(to);
  }
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_BAND_H
