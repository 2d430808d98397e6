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

/// Reverses `vectors` whole vectors that end at `from_end`; all are loaded before one is stored.
template <class Lanes, int vectors>
inline void reverse_vectors(const uint8_t *from_end, uint8_t *to) {
  Lanes moved[vectors];
  for (int k = 0; k < vectors; ++k) moved[k] = load<Lanes>(from_end - 16 * (k + 1));
  for (int k = 0; k < vectors; ++k) moved[k] = reverse(moved[k]);
  for (int k = 0; k < vectors; ++k) store(to + 16 * k, moved[k]);
}

/// to[i] = from[count - 1 - i]. Vectors at the end overlap the ones before; both write the same bytes there.
template <class Element>
inline void copy_reversed(const uint8_t *from, uint8_t *to, uint32_t count) {
  using Lanes = LanesOfBytes<sizeof(Element)>;
  size_t bytes = count * sizeof(Element);
  const uint8_t *from_end = from + bytes;
  uint8_t *const to_end = to + bytes;
  if (bytes < 16) {
    for (size_t i = 0; i < bytes; i += sizeof(Element)) store(to + i, load<Element>(from_end - i - sizeof(Element)));
    return;
  }
  if (bytes - 33 >= 32) [[unlikely]] {  // 33 to 64 bytes, the commonest lines, skip all of this
    for (; bytes > 64; bytes -= 64, from_end -= 64, to += 64) reverse_vectors<Lanes, 4>(from_end, to);
    if (bytes <= 32) {
      if (bytes > 16) reverse_vectors<Lanes, 1>(from_end, to);
      reverse_vectors<Lanes, 1>(from + 16, to_end - 16);
      return;
    }
  }
  reverse_vectors<Lanes, 2>(from_end, to);
  reverse_vectors<Lanes, 2>(from + 32, to_end - 32);
}

/// Copies whole vectors; all are loaded before one is stored.
template <int vectors>
inline void copy_vectors(const uint8_t *from, uint8_t *to) {
  u8x16 loaded[vectors];
  for (int k = 0; k < vectors; ++k) loaded[k] = load<u8x16>(from + 16 * k);
  for (int k = 0; k < vectors; ++k) store(to + 16 * k, loaded[k]);
}

/// Copies a run whose length the compiler does not know, without a call for the lengths of common lines.
inline void copy_run(const uint8_t *from, uint8_t *to, size_t bytes) {
  if (bytes < 16 || bytes > 128) {
    std::memcpy(to, from, bytes);
  } else if (bytes > 64) {
    copy_vectors<4>(from, to);
    copy_vectors<4>(from + bytes - 64, to + bytes - 64);
  } else if (bytes > 32) {
    copy_vectors<2>(from, to);
    copy_vectors<2>(from + bytes - 32, to + bytes - 32);
  } else {
    copy_vectors<1>(from, to);
    copy_vectors<1>(from + bytes - 16, to + bytes - 16);
  }
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
inline void transpose(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step, uint32_t rows,
                      uint32_t columns) {
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
  const auto block_at = [=](uint32_t r, uint32_t c) {
    const uint32_t row = r + kSide <= rows ? r : rows - kSide;
    const uint32_t column = c + kSide <= columns ? c : columns - kSide;
    transpose_block<Lanes>(from + row * from_step + column * sizeof(Element), from_step,
                           to + column * to_step + row * sizeof(Element), to_step);
  };
  // The shorter side inside, so that the lines of both tensors are still in the cache when the next block needs their rest.
  if (columns <= rows) {
    for (uint32_t r = 0; r < rows; r += kSide) {
      for (uint32_t c = 0; c < columns; c += kSide) block_at(r, c);
    }
  } else {
    for (uint32_t c = 0; c < columns; c += kSide) {
      for (uint32_t r = 0; r < rows; r += kSide) block_at(r, c);
    }
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_REARRANGE_H
