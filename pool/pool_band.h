/// \file pool_band.h
/// Bands of output lines whose windows are equally tall, and the tiles of words that their lines are folded to.
#ifndef TARVU_POOL_POOL_BAND_H
#define TARVU_POOL_POOL_BAND_H

#include <cstddef>
#include <cstdint>

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

/// A part of every line of a band, and the tile of words that its columns are folded to. Tile positions count from the first
/// word of the first window, padding included.
struct Part {
  uint32_t window;         ///< words of a window
  uint32_t stride;         ///< words from a window to the next one
  uint32_t first;          ///< output column of the first window
  uint32_t count;          ///< windows
  uint32_t input;          ///< first input column of the tile
  uint32_t input_at;       ///< its position
  uint32_t input_columns;  ///< none if the tile is all padding
};

/// Not a power of two: processors that compare the lower bits of addresses would take a word of one area for one of another.
inline constexpr uint32_t kTileBytes = 1792 + 64;

/// Words in three areas; where a window covers padding, they are the fold of nothing. What the words are, the fold knows.
struct Tile {
  alignas(64) unsigned char columns
      [kTileBytes];  ///< input columns folded down the lines of the windows; padding is the fold of nothing
  unsigned char more[kTileBytes];     ///< those of the next output line, or other words on the way to the windows
  unsigned char windows[kTileBytes];  ///< a line of folded windows
};

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

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_BAND_H
