/// \file pool_band.h
/// Bands of output lines whose windows are equally tall: each line of windows is folded down its lines into a tile of words, and
/// those along the windows into the output stage.
#ifndef TARVU_POOL_POOL_BAND_H
#define TARVU_POOL_POOL_BAND_H

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

template <class Fold, uint32_t kStride, uint32_t kWindow, class Stage>
inline void pass_windows_of(const typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count,
                            const Stage &stage, uint8_t *to) {
  using Out = typename Stage::Out;
  constexpr uint32_t kBlock = kWordsOfBlock<typename Fold::Word>;
  const uint32_t step = kStride != 0 ? kStride : stride;
  const auto folded = [=](uint32_t i, uint32_t wanted) {
    return fold_block_of_windows<Fold, kStride, kWindow>(words + i * step, window, step, wanted);
  };
  if (count < kBlock) {
    uint8_t part[kBlock * sizeof(Out)];
    stage.store(part, folded(0, count));
    store_part(to, part, count * static_cast<uint32_t>(sizeof(Out)));
    return;
  }
  const uint32_t last = count - kBlock;
  for (uint32_t i = 0; i < last; i += kBlock) stage.store(to + i * sizeof(Out), folded(i, kBlock));
  // The last block overlaps the one before it: both write the same elements there.
  stage.store(to + last * sizeof(Out), folded(last, kBlock));
}

/// Folds `count` windows of `window` words, `stride` words apart (each at least 1), and stores them through the stage.
template <class Fold, class Stage>
[[gnu::noinline]] void pass_windows(const typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count,
                                    const Stage &stage, uint8_t *to) {
  if (stride == 1) return pass_windows_of<Fold, 1, 0>(words, window, stride, count, stage, to);
  if (stride == 2) return pass_windows_of<Fold, 2, 0>(words, window, stride, count, stage, to);
  return pass_windows_of<Fold, 0, 0>(words, window, stride, count, stage, to);
}

/// Windows of kSide columns and lines, the common case: nothing is left to be decided inside a line.
template <class Fold, uint32_t kStride, uint32_t kSide, class Stage, class AfterLine>
[[gnu::noinline]] void run_square_windows(const Band &band, const Part &part, uint32_t skipped, uint32_t passed,
                                          const Stage &given_stage, typename Fold::Word *words, const AfterLine &after_line) {
  const Stage stage = given_stage;  // a copy that no store can change
  const uint8_t *from = band.from + part.input * sizeof(typename Fold::Element);
  uint8_t *to = band.to + part.first * sizeof(typename Stage::Out);
  for (uint32_t n = band.count; n != 0; --n, from += band.window_step, to += band.out_step) {
    fold_lines_of<Fold, kSide>(from, band.line_step, kSide, part.input_columns, words + part.input_at);
    pass_windows_of<Fold, kStride, kSide>(words + skipped * kStride, kSide, kStride, passed, stage,
                                          to + skipped * sizeof(typename Stage::Out));
    after_line(to);
  }
}

/// Folds the windows of a part of a band. All but `skipped` ones in front and those behind the next `passed` ones are stored
/// through the stage; after_line(to) is called when the words and the output `to` of a line stand. `words` is the tile, which holds
/// the fold of nothing wherever there is padding.
template <class Fold, class Stage, class AfterLine>
void run_windows(const Band &band, const Part &part, uint32_t skipped, uint32_t passed, const Stage &stage,
                 typename Fold::Word *words, const AfterLine &after_line) {
  if (part.window == band.lines && passed != 0) {
    if (part.window == 3 && part.stride == 1) {
      return run_square_windows<Fold, 1, 3>(band, part, skipped, passed, stage, words, after_line);
    }
    if (part.window == 3 && part.stride == 2) {
      return run_square_windows<Fold, 2, 3>(band, part, skipped, passed, stage, words, after_line);
    }
    if (part.window == 2 && part.stride == 2) {
      return run_square_windows<Fold, 2, 2>(band, part, skipped, passed, stage, words, after_line);
    }
  }
  const uint8_t *from = band.from + part.input * sizeof(typename Fold::Element);
  uint8_t *to = band.to + part.first * sizeof(typename Stage::Out);
  typename Fold::Word *input = words + part.input_at;
  if (band.lines == 0) std::fill(input, input + part.input_columns, Fold::kIdentity);
  for (uint32_t n = band.count; n != 0; --n, from += band.window_step, to += band.out_step) {
    if (band.lines != 0) fold_lines<Fold>(from, band.line_step, band.lines, part.input_columns, input);
    if (passed != 0) {
      pass_windows<Fold>(words + skipped * part.stride, part.window, part.stride, passed, stage,
                         to + skipped * sizeof(typename Stage::Out));
    }
    after_line(to);
  }
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_BAND_H
