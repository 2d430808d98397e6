/// \file transpose.h
/// Transposed copies of tables of 8-bit, 16-bit and 32-bit elements, of any shape: in blocks whose sides are powers of two, of
/// which the last ones start early enough to end where the table ends. Sources and destinations lie apart.
#ifndef TARVU_SIMD_TRANSPOSE_H
#define TARVU_SIMD_TRANSPOSE_H

#include <algorithm>
#include <bit>
#include <cstddef>

#include "simd/interleave.h"
#include "simd/rearrange.h"
#include "simd/walking.h"

namespace tarvu {

/// Copies one element after the other, steps in bytes.
template <class Element>
inline void copy_elements(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step, size_t count) {
  for (; count >= 4; count -= 4) {
    const auto first = load<Element>(from);
    const auto second = load<Element>(from + from_step);
    from += 2 * from_step;
    const auto third = load<Element>(from);
    const auto fourth = load<Element>(from + from_step);
    from += 2 * from_step;
    store(to, first);
    store(to + to_step, second);
    to += 2 * to_step;
    store(to, third);
    store(to + to_step, fourth);
    to += 2 * to_step;
  }
  for (; count != 0; --count, from += from_step, to += to_step) store(to, load<Element>(from));
}

/// Transposes `blocks` blocks of so many rows and columns, of which each begins `from_next` bytes and `to_next` bytes behind the
/// one before. Row r of a block is at from + r * from_step, its column c goes to to + c * to_step.
///
/// The bits of an element's place in the vectors of a block, row bits above column bits, are rotated: each round of zips of vector
/// k and k + half of them rotates to the left by one, each round of unzips of neighbours to the right.
template <class Element, int rows, int columns>
inline void transpose_blocks(const uint8_t *from, size_t from_step, size_t from_next, uint8_t *to, size_t to_step,
                             size_t to_next, size_t blocks) {
  using Lanes = LanesOfElement<Element>;
  constexpr int kElements = kLanes<Lanes>;
  if constexpr (rows * columns < kElements) {
    for (; blocks != 0; --blocks, from += from_next, to += to_next) {
      for (size_t r = 0; r < rows; ++r) {
        for (size_t c = 0; c < columns; ++c) {
          store(to + c * to_step + r * sizeof(Element), load<Element>(from + r * from_step + c * sizeof(Element)));
        }
      }
    }
  } else {
    constexpr int kVectors = rows * columns / kElements;
    for (; blocks != 0; --blocks, from += from_next, to += to_next) {
      Lanes lanes[kVectors];
      const uint8_t *row = from;
      for (int k = 0; k < kVectors; ++k) lanes[k] = load_pieces<Lanes, columns * sizeof(Element)>(row, from_step);
      if constexpr (rows <= columns) {
        for (int round = 1; round < rows; round *= 2) zip_round(lanes);
      } else {
        for (int round = 1; round < columns; round *= 2) unzip_round(lanes);
      }
      uint8_t *column = to;
      for (int k = 0; k < kVectors; ++k) store_pieces<rows * sizeof(Element)>(column, to_step, lanes[k]);
    }
  }
}

/// How one side of a table is cut into blocks: `count` of 2^log elements, then one of 2^tail_log that ends with the side; none
/// if tail_log is 0.
struct SideBlocks {
  uint32_t log;
  uint32_t count;
  uint32_t tail_log;
};

/// For a side of at least 2 elements.
inline SideBlocks blocks_of_side(size_t side, uint32_t greatest_log) {
  const uint32_t log = std::min(static_cast<uint32_t>(std::bit_width(side)) - 1, greatest_log);
  const size_t rest = side & ((size_t{1} << log) - 1);
  const uint32_t tail_log = rest == 0 ? 0 : std::max(static_cast<uint32_t>(std::bit_width(rest - 1)), 1u);
  return {log, static_cast<uint32_t>(side >> log), tail_log};
}

using TransposeBlocks = void (*)(const uint8_t *from, size_t from_step, size_t from_next, uint8_t *to, size_t to_step,
                                 size_t to_next, size_t blocks);

/// transpose_blocks() by the logarithms of its sides, from 1 to log2 of the lanes.
template <class Element>
inline TransposeBlocks transpose_blocks_of(uint32_t log_rows, uint32_t log_columns) {
  if constexpr (sizeof(Element) == 1) {
    static constexpr TransposeBlocks kBySides[4][4] = {
        {transpose_blocks<Element, 2, 2>, transpose_blocks<Element, 2, 4>, transpose_blocks<Element, 2, 8>,
         transpose_blocks<Element, 2, 16>},
        {transpose_blocks<Element, 4, 2>, transpose_blocks<Element, 4, 4>, transpose_blocks<Element, 4, 8>,
         transpose_blocks<Element, 4, 16>},
        {transpose_blocks<Element, 8, 2>, transpose_blocks<Element, 8, 4>, transpose_blocks<Element, 8, 8>,
         transpose_blocks<Element, 8, 16>},
        {transpose_blocks<Element, 16, 2>, transpose_blocks<Element, 16, 4>, transpose_blocks<Element, 16, 8>,
         transpose_blocks<Element, 16, 16>}};
    return kBySides[log_rows - 1][log_columns - 1];
  } else if constexpr (sizeof(Element) == 2) {
    static constexpr TransposeBlocks kBySides[3][3] = {
        {transpose_blocks<Element, 2, 2>, transpose_blocks<Element, 2, 4>, transpose_blocks<Element, 2, 8>},
        {transpose_blocks<Element, 4, 2>, transpose_blocks<Element, 4, 4>, transpose_blocks<Element, 4, 8>},
        {transpose_blocks<Element, 8, 2>, transpose_blocks<Element, 8, 4>, transpose_blocks<Element, 8, 8>}};
    return kBySides[log_rows - 1][log_columns - 1];
  } else {
    static constexpr TransposeBlocks kBySides[2][2] = {
        {transpose_blocks<Element, 2, 2>, transpose_blocks<Element, 2, 4>},
        {transpose_blocks<Element, 4, 2>, transpose_blocks<Element, 4, 4>}};
    return kBySides[log_rows - 1][log_columns - 1];
  }
}

/// Rows of `columns` elements without gaps come apart into columns. At least a vector of rows.
template <class Element, int columns>
inline void split_columns(const uint8_t *from, uint8_t *to, size_t to_step, size_t rows) {
  using Lanes = LanesOfElement<Element>;
  constexpr size_t kElements = kLanes<Lanes>;
  const auto split_block = [=](size_t row) {
    Lanes lanes[columns];
    load_interleaved(from + row * columns * sizeof(Element), lanes);
    for (size_t c = 0; c < columns; ++c) store(to + c * to_step + row * sizeof(Element), lanes[c]);
  };
  size_t row = 0;
  for (; row + kElements <= rows; row += kElements) split_block(row);
  if (row != rows) split_block(rows - kElements);
}

/// Few rows become columns without gaps. At least a vector of columns.
template <class Element, int rows>
inline void join_rows(const uint8_t *from, size_t from_step, uint8_t *to, size_t columns) {
  using Lanes = LanesOfElement<Element>;
  constexpr size_t kElements = kLanes<Lanes>;
  const auto join_block = [=](size_t column) {
    Lanes lanes[rows];
    for (size_t r = 0; r < rows; ++r) lanes[r] = load<Lanes>(from + r * from_step + column * sizeof(Element));
    store_interleaved(to + column * rows * sizeof(Element), lanes);
  };
  size_t column = 0;
  for (; column + kElements <= columns; column += kElements) join_block(column);
  if (column != columns) join_block(columns - kElements);
}

/// Element (row, column) at from[row * from_step + column] goes to to[column * to_step + row]; both steps in bytes.
template <class Element>
inline void transpose(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step, size_t rows, size_t columns) {
  constexpr size_t kBytes = sizeof(Element);
  constexpr size_t kSide = 16 / kBytes;
  constexpr uint32_t kGreatestLog = std::bit_width(kSide) - 1;
  if (rows <= 1 || columns <= 1) {
    const bool down = columns == 1;
    copy_elements<Element>(from, down ? from_step : kBytes, to, down ? kBytes : to_step, rows * columns);
    return;
  }
  if (columns <= 4 && from_step == columns * kBytes && rows >= kSide) {
    if (columns == 2) return split_columns<Element, 2>(from, to, to_step, rows);
    if (columns == 3) return split_columns<Element, 3>(from, to, to_step, rows);
    return split_columns<Element, 4>(from, to, to_step, rows);
  }
  if (rows <= 4 && to_step == rows * kBytes && columns >= kSide) {
    if (rows == 2) return join_rows<Element, 2>(from, from_step, to, columns);
    if (rows == 3) return join_rows<Element, 3>(from, from_step, to, columns);
    return join_rows<Element, 4>(from, from_step, to, columns);
  }
  const SideBlocks down = blocks_of_side(rows, kGreatestLog);
  const SideBlocks across = blocks_of_side(columns, kGreatestLog);
  // The shorter side inside, so that the lines of both tensors are still in the cache when the next block needs their rest.
  if (columns <= rows) {
    const auto row_of_blocks = [=](size_t row, uint32_t log) {
      const uint8_t *source = from + row * from_step;
      uint8_t *destination = to + row * kBytes;
      const size_t side = size_t{1} << across.log;
      transpose_blocks_of<Element>(log, across.log)(source, from_step, side * kBytes, destination, to_step,
                                                    side * to_step, across.count);
      if (across.tail_log == 0) return;
      const size_t column = columns - (size_t{1} << across.tail_log);
      transpose_blocks_of<Element>(log, across.tail_log)(source + column * kBytes, from_step, 0,
                                                         destination + column * to_step, to_step, 0, 1);
    };
    for (size_t k = 0; k < down.count; ++k) row_of_blocks(k << down.log, down.log);
    if (down.tail_log != 0) row_of_blocks(rows - (size_t{1} << down.tail_log), down.tail_log);
  } else {
    const auto column_of_blocks = [=](size_t column, uint32_t log) {
      const uint8_t *source = from + column * kBytes;
      uint8_t *destination = to + column * to_step;
      const size_t side = size_t{1} << down.log;
      transpose_blocks_of<Element>(down.log, log)(source, from_step, side * from_step, destination, to_step,
                                                  side * kBytes, down.count);
      if (down.tail_log == 0) return;
      const size_t row = rows - (size_t{1} << down.tail_log);
      transpose_blocks_of<Element>(down.tail_log, log)(source + row * from_step, from_step, 0,
                                                       destination + row * kBytes, to_step, 0, 1);
    };
    for (size_t k = 0; k < across.count; ++k) column_of_blocks(k << across.log, across.log);
    if (across.tail_log != 0) column_of_blocks(columns - (size_t{1} << across.tail_log), across.tail_log);
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_TRANSPOSE_H
