/// \file rearrange.h
/// Moves of 8-bit and 16-bit elements: reversed runs, short copies, transposed blocks. Sources and destinations lie apart.
#ifndef TARVU_SIMD_REARRANGE_H
#define TARVU_SIMD_REARRANGE_H

#include <cstddef>

#include "simd/lanes.h"

namespace tarvu {

/// The 128-bit vector of 8-bit or 16-bit elements.
template <size_t element_bytes>
using LanesOfBytes = std::conditional_t<element_bytes == 1, u8x16, u16x8>;

/// to[i] = from[count - 1 - i].
template <class Element>
inline void copy_reversed(const uint8_t *from, uint8_t *to, uint32_t count) {
  using Lanes = LanesOfBytes<sizeof(Element)>;
  constexpr size_t kLanesBytes = sizeof(Lanes);
  const size_t bytes = count * sizeof(Element);
  if (bytes < kLanesBytes) {
    for (uint32_t i = 0; i < count; ++i) {
      store(to + i * sizeof(Element), load<Element>(from + (count - 1 - i) * sizeof(Element)));
    }
    return;
  }
  const uint8_t *source = from + bytes - kLanesBytes;
  const uint8_t *const last = from;
  uint8_t *const to_last = to + bytes - kLanesBytes;
  for (; source > last; source -= kLanesBytes, to += kLanesBytes) store(to, reverse(load<Lanes>(source)));
  // The last vector overlaps the one before it: both write the same bytes there.
  store(to_last, reverse(load<Lanes>(last)));
}

/// Copies a run whose length the compiler does not know, without a call for the lengths of common lines.
inline void copy_run(const uint8_t *from, uint8_t *to, size_t bytes) {
  if (bytes < 16 || bytes > 128) {
    std::memcpy(to, from, bytes);
    return;
  }
  const u8x16 last = load<u8x16>(from + bytes - 16);
  for (size_t i = 0; i + 16 < bytes; i += 16) store(to + i, load<u8x16>(from + i));
  store(to + bytes - 16, last);
}

/// Transposes a square block of as many rows as a vector has lanes: row r of the source becomes column r of the destination.
template <class Lanes>
inline void transpose_block(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step) {
  constexpr int kRows = kLanes<Lanes>;
  Lanes rows[kRows];
  for (int r = 0; r < kRows; ++r, from += from_step) rows[r] = load<Lanes>(from);
  // Each round of zips of rows r and r + kRows / 2 rotates the bits of (row, column) by one; log2(kRows) rounds swap them.
  for (int round = 1; round < kRows; round *= 2) {
    Lanes zipped[kRows];
    for (int r = 0; r < kRows / 2; ++r) {
      zipped[2 * r] = zip_low(rows[r], rows[r + kRows / 2]);
      zipped[2 * r + 1] = zip_high(rows[r], rows[r + kRows / 2]);
    }
    for (int r = 0; r < kRows; ++r) rows[r] = zipped[r];
  }
  for (int r = 0; r < kRows; ++r, to += to_step) store(to, rows[r]);
}

/// Transposes: element (row, column) at from[row * from_step + column] goes to to[column * to_step + row]; both steps in bytes.
template <class Element>
inline void transpose(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step, uint32_t rows, uint32_t columns) {
  using Lanes = LanesOfBytes<sizeof(Element)>;
  constexpr uint32_t kSide = kLanes<Lanes>;
  if (rows < kSide || columns < kSide) {
    for (uint32_t r = 0; r < rows; ++r) {
      const uint8_t *source = from + r * from_step;
      uint8_t *destination = to + r * sizeof(Element);
      for (uint32_t c = 0; c < columns; ++c, destination += to_step) {
        store(destination, load<Element>(source + c * sizeof(Element)));
      }
    }
    return;
  }
  // Blocks at the lower and right edges are moved back to lie inside; what they write twice is the same.
  for (uint32_t r = 0; r < rows; r += kSide) {
    const uint32_t row = r + kSide <= rows ? r : rows - kSide;
    for (uint32_t c = 0; c < columns; c += kSide) {
      const uint32_t column = c + kSide <= columns ? c : columns - kSide;
      transpose_block<Lanes>(from + row * from_step + column * sizeof(Element), from_step,
                             to + column * to_step + row * sizeof(Element), to_step);
    }
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_REARRANGE_H
