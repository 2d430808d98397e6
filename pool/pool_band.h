/// \file pool_band.h
/// Bands of output lines whose windows are equally tall: each line of windows is folded down its lines into a tile of words, and
/// those along the windows into the output stage.
#ifndef TARVU_POOL_POOL_BAND_H
#define TARVU_POOL_POOL_BAND_H

#include <cstddef>

#include "simd/requantise.h"

namespace tarvu {

/// Output lines one after another. All steps are in bytes.
struct Band {
  const uint8_t *from;  ///< column 0 of the first line of the first windows
  size_t line_step;     ///< from a line of a window to the next one
  size_t window_step;   ///< from a window to that of the next output line
  uint32_t lines;       ///< of a window; 0 if the windows are empty
  uint8_t *to;          ///< column 0 of the first output line
  size_t out_step;
  uint32_t count;  ///< output lines
};

/// A part of every line of a band, and the tile of words that its columns are folded to. Tile positions count from the first word
/// of the first window, padding included.
struct Part {
  uint32_t window;  ///< words of a window
  uint32_t stride;  ///< words from a window to the next one
  uint32_t first;   ///< output column of the first window
  uint32_t count;   ///< windows
  uint32_t input;   ///< first input column of the tile
  uint32_t input_at;       ///< its position
  uint32_t input_columns;  ///< none if the tile is all padding
};

/// Which windows of a part pass through a stage.
struct Passed {
  uint32_t skipped;  ///< windows in front of them
  uint32_t count;
  bool others;  ///< whether there are windows in front of them or behind
};

/// Whoever writes the windows that do not pass: a reference to a function object.
class AfterLine {
 public:
  template <class F>
  AfterLine(const F &f) : object_(&f), call_([](const void *object, uint8_t *to) { (*static_cast<const F *>(object))(to); }) {}
  void operator()(uint8_t *to) const { call_(object_, to); }

 private:
  const void *object_;
  void (*call_)(const void *object, uint8_t *to);
};

/// At least a block of windows; kStride and kWindow as fold_block_of_windows() has them.
template <class Fold, uint32_t kStride, uint32_t kWindow, class Stage>
[[gnu::always_inline]] inline void pass_blocks(const typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count,
                                               const Stage &stage, uint8_t *to) {
  constexpr uint32_t kBlock = kWordsOfBlock<typename Fold::Word>;
  constexpr size_t kOutBytes = sizeof(typename Stage::Out);
  const size_t step = kStride != 0 ? kStride : stride;
  const size_t last = count - kBlock;
  const auto pass = [&](const typename Fold::Word *at, uint8_t *out) {
    stage.store(out, fold_block_of_windows<Fold, kStride, kWindow>(at, window, stride, kBlock));
  };
  const typename Fold::Word *at = words;
  uint8_t *const last_to = to + last * kOutBytes;
  for (; to < last_to; to += kBlock * kOutBytes, at += kBlock * step) pass(at, to);
  // The last block overlaps the one before it: both write the same elements there.
  pass(words + last * step, last_to);
}

template <class Fold, uint32_t kStride, uint32_t kWindow, class Stage>
inline void pass_any_count(const typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count,
                           const Stage &stage, uint8_t *to) {
  constexpr uint32_t kBlock = kWordsOfBlock<typename Fold::Word>;
  if (count >= kBlock) return pass_blocks<Fold, kStride, kWindow>(words, window, stride, count, stage, to);
  uint8_t part[32];
  stage.store(part, fold_block_of_windows<Fold, kStride, kWindow>(words, window, stride, count));
  store_part(to, part, count * static_cast<uint32_t>(sizeof(typename Stage::Out)));
}

/// Folds `count` windows of `window` words, `stride` words apart (each at least 1), and stores them through the stage.
template <class Fold, class Stage>
[[gnu::noinline]] void pass_windows(const typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count,
                                    const Stage &stage, uint8_t *to) {
  if (stride == 1) return pass_any_count<Fold, 1, 0>(words, window, stride, count, stage, to);
  if (stride == 2) return pass_any_count<Fold, 2, 0>(words, window, stride, count, stage, to);
  return pass_any_count<Fold, 0, 0>(words, window, stride, count, stage, to);
}

/// Windows of kSide columns and lines, the common case: nothing is left to be decided inside a line. At least a block of columns
/// and of windows. `After` is AfterLine, or nullptr_t where all windows pass.
template <class Fold, uint32_t kStride, uint32_t kSide, class Stage, class After>
[[gnu::noinline]] void run_square_windows(const Band &band, const Part &part, const Passed &passed, const Stage &given_stage,
                                          typename Fold::Word *words, After after_line) {
  const Stage stage = given_stage;  // copies that no store can change
  const size_t line_step = band.line_step;
  const size_t window_step = band.window_step;
  const size_t out_step = band.out_step;
  const uint32_t columns = part.input_columns;
  const uint32_t count = passed.count;
  const size_t skipped_bytes = passed.skipped * sizeof(typename Stage::Out);
  typename Fold::Word *const input = words + part.input_at;
  const typename Fold::Word *const windows = words + passed.skipped * kStride;
  const uint8_t *from = band.from + part.input * sizeof(typename Fold::Element);
  uint8_t *to = band.to + part.first * sizeof(typename Stage::Out);
  for (uint32_t n = band.count; n != 0; --n, from += window_step, to += out_step) {
    fold_blocks_of_lines<Fold, kSide>(from, line_step, kSide, columns, input);
    pass_blocks<Fold, kStride, kSide>(windows, kSide, kStride, count, stage, to + skipped_bytes);
    if constexpr (!std::is_same_v<After, std::nullptr_t>) after_line(to);
  }
}

/// run_square_windows() for the windows that it serves, else false.
template <class Fold, class Stage, class After>
bool run_if_square(const Band &band, const Part &part, const Passed &passed, const Stage &stage, typename Fold::Word *words,
                   After after_line) {
  const bool in_blocks = part.input_columns >= kColumnsOfBlock<Fold> && passed.count >= kWordsOfBlock<typename Fold::Word>;
  if (!in_blocks || part.window != band.lines) return false;
  if (part.window == 3 && part.stride == 1) {
    run_square_windows<Fold, 1, 3>(band, part, passed, stage, words, after_line);
  } else if (part.window == 3 && part.stride == 2) {
    run_square_windows<Fold, 2, 3>(band, part, passed, stage, words, after_line);
  } else if (part.window == 2 && part.stride == 2) {
    run_square_windows<Fold, 2, 2>(band, part, passed, stage, words, after_line);
  } else {
    return false;
  }
  return true;
}

/// Folds the windows of a part of a band and stores those that are `passed` through the stage; where there are others,
/// after_line(to) is called when the words and the output `to` of a line stand. `words` is the tile, which holds the fold of nothing
/// wherever there is padding.
template <class Fold, class Stage>
void run_windows(const Band &band, const Part &part, const Passed &passed, const Stage &stage, typename Fold::Word *words,
                 AfterLine after_line) {
  using Word = typename Fold::Word;
  if constexpr (sizeof(Word) < 4) {
    if (!passed.others && run_if_square<Fold>(band, part, passed, stage, words, nullptr)) return;
    if constexpr (Fold::kWidens) {
      if (run_if_square<Fold>(band, part, passed, stage, words, after_line)) return;
    }
  }
  const uint8_t *from = band.from + part.input * sizeof(typename Fold::Element);
  uint8_t *to = band.to + part.first * sizeof(typename Stage::Out);
  Word *input = words + part.input_at;
  if (band.lines == 0) std::fill(input, input + part.input_columns, Fold::kIdentity);
  for (uint32_t n = band.count; n != 0; --n, from += band.window_step, to += band.out_step) {
    if (band.lines != 0) fold_lines<Fold>(from, band.line_step, band.lines, part.input_columns, input);
    if (passed.count != 0) {
      pass_windows<Fold>(words + passed.skipped * part.stride, part.window, part.stride, passed.count, stage,
                         to + passed.skipped * sizeof(typename Stage::Out));
    }
    if (passed.others) after_line(to);
  }
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_BAND_H
