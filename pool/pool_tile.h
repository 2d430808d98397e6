/// \file pool_tile.h
/// What the steps of pooling hand on: bands of output lines, parts of lines, and the tile of words that these are folded to.
#ifndef TARVU_POOL_POOL_TILE_H
#define TARVU_POOL_POOL_TILE_H

#include <cstddef>
#include <cstdint>

#include "pool/pool_output.h"

namespace tarvu {

/// Divisors of a block of eight columns: half of each divisor, and its reciprocal.
struct BlockDivisors {
  int32_t half[8];
  int32_t multiplier[8];
  int32_t shift[8];
};

/// Divisors of the first and of the last block of a line, where they differ from those between.
struct Edges {
  BlockDivisors first;
  BlockDivisors last;
};

/// As many windows of a line as a tile holds. Tile positions count from the first word of the first window, padding included.
struct Part {
  uint32_t window;         ///< words of a window
  uint32_t stride;         ///< words from a window to the next one
  uint32_t first;          ///< output column of the first window
  uint32_t count;          ///< windows
  uint32_t input;          ///< first input column of the tile
  uint32_t input_at;       ///< its position
  uint32_t input_columns;  ///< none if the tile is all padding
};

struct Band;
struct Tile;
/// Runs all windows of a part of a band, through the band's stage or to words in place of the output's elements.
using SquareWindows = void (*)(const Band &band, const Part &part, Tile &tile);

/// Output lines one after another whose windows are equally tall and count alike. All steps are in bytes.
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

  uint32_t first;      ///< the first of them
  uint32_t columns;    ///< windows of each
  size_t from_offset;  ///< bytes from the start of an input plane to `from`
  size_t to_offset;    ///< bytes from the start of an output plane to `to`
  int32_t counted;     ///< lines that count in the divisor of an average
  OutputStage stage;   ///< of the columns that pass through one
  Part part;           ///< the first one of each line
  uint32_t passed_at;  ///< the windows of it that pass through the stage: the first one
  uint32_t passed;     ///< and their number
  const Edges *edges;  ///< of lines whose first and last columns have divisors of their own, or null
  SquareWindows run;   ///< runs the part on a plane, or null
  SquareWindows fold;  ///< folds it to words, or null
};

/// `count` output lines of a band from its line `first` on.
inline Band lines_of(const Band &band, uint32_t first, uint32_t count) {
  Band some = band;
  some.count = count;
  some.to += first * band.out_step;
  if (first != 0) {
    some.from += first * band.window_step - band.cut_front * band.line_step;
    some.cut_front = 0;
  }
  if (first + count != band.count) some.cut_behind = 0;
  return some;
}

/// Not a power of two: processors that compare the lower bits of addresses would take a word of one area for one of another.
inline constexpr uint32_t kTileBytes = 1792 + 64;

/// Words in three areas; where a window covers padding, they are the fold of nothing. What the words are, the fold knows.
struct Tile {
  alignas(64) unsigned char columns
      [kTileBytes];  ///< input columns folded down the lines of the windows; padding is the fold of nothing
  unsigned char more[kTileBytes];     ///< those of the next output line, or other words on the way to the windows
  unsigned char windows[kTileBytes];  ///< folded windows, line after line
};

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_TILE_H
