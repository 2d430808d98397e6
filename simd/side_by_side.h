/// \file side_by_side.h
/// Runs that lie apart, brought side by side and back: element k of sixteen runs of bytes (eight of 16-bit elements) becomes
/// vector k, a run in each lane.
///
///     runs   a0 a1 a2 a3 ...        side by side   a0 b0 c0 ... p0
///            b0 b1 b2 b3 ...                       a1 b1 c1 ... p1
///            ...                                   a2 b2 c2 ... p2
///            p0 p1 p2 p3 ...                       ...
#ifndef TARVU_SIMD_SIDE_BY_SIDE_H
#define TARVU_SIMD_SIDE_BY_SIDE_H

#include <cstddef>

#include "simd/interleave.h"

namespace tarvu {

/// Rows become columns, in as many rows as a vector has lanes. Each round of zips of rows r and r + half rotates the bits of
/// (row, column) by one; after log2(rows) rounds they have changed places.
template <class Lanes>
[[gnu::always_inline]] inline void swap_rows_and_columns(Lanes (&rows)[kLanes<Lanes>]) {
  for (int round = 1; round < kLanes<Lanes>; round *= 2) zip_round(rows);
}

/// Brings `count` elements of the runs, `offset` bytes behind the start of each, side by side: at least as many as a vector has
/// lanes, to places `place_bytes` apart. The last vectors of the runs overlap the ones before them.
template <class Lanes>
[[gnu::always_inline]] inline void bring_whole_vectors(const uint8_t *const *runs, size_t offset, size_t count,
                                                       uint8_t *to, size_t place_bytes) {
  constexpr size_t kSide = kLanes<Lanes>;
  const size_t last = count - kSide;
  for (size_t at = 0;; at = at + kSide < last ? at + kSide : last) {
    Lanes rows[kSide];
    const size_t behind = offset + at * (16 / kSide);
    for (size_t r = 0; r < kSide; ++r) rows[r] = load<Lanes>(runs[r] + behind);
    swap_rows_and_columns(rows);
    uint8_t *place = to + at * place_bytes;
    for (size_t r = 0; r < kSide; ++r, place += place_bytes) store(place, rows[r]);
    if (at == last) return;
  }
}
template <class Lanes>
[[gnu::noinline]] void bring_together(const uint8_t *const *runs, size_t offset, size_t count, uint8_t *to,
                                      size_t place_bytes) {
  // Places of one vector lie back to back, at steps that the compiler knows.
  if (place_bytes == 16) return bring_whole_vectors<Lanes>(runs, offset, count, to, 16);
  bring_whole_vectors<Lanes>(runs, offset, count, to, place_bytes);
}

/// The way back: `count` places, at least as many as a vector has lanes, to the first `runs_count` runs.
template <class Lanes>
[[gnu::always_inline]] inline void take_whole_vectors(const uint8_t *from, size_t place_bytes, size_t count,
                                                      uint8_t *const *runs, size_t runs_count, size_t offset) {
  constexpr size_t kSide = kLanes<Lanes>;
  const size_t last = count - kSide;
  for (size_t at = 0;; at = at + kSide < last ? at + kSide : last) {
    Lanes rows[kSide];
    const uint8_t *place = from + at * place_bytes;
    for (size_t r = 0; r < kSide; ++r, place += place_bytes) rows[r] = load<Lanes>(place);
    swap_rows_and_columns(rows);
    const size_t behind = offset + at * (16 / kSide);
    if (runs_count == kSide) {
      for (size_t r = 0; r < kSide; ++r) store(runs[r] + behind, rows[r]);
    } else {
      Lanes kept[kSide];
      for (size_t r = 0; r < kSide; ++r) kept[r] = rows[r];
      for (size_t r = 0; r < runs_count; ++r) store(runs[r] + behind, kept[r]);
    }
    if (at == last) return;
  }
}
template <class Lanes>
[[gnu::noinline]] void take_apart(const uint8_t *from, size_t place_bytes, size_t count, uint8_t *const *runs,
                                  size_t runs_count, size_t offset) {
  if (place_bytes == 16) return take_whole_vectors<Lanes>(from, 16, count, runs, runs_count, offset);
  take_whole_vectors<Lanes>(from, place_bytes, count, runs, runs_count, offset);
}

/// As many runs as a vector has lanes that lie back to back, of kCount elements each: 1 to 4.
template <class Lanes, size_t kCount>
[[gnu::always_inline]] inline void bring_short_runs(const uint8_t *from, uint8_t *to, size_t place_bytes) {
  Lanes places[kCount];
  if constexpr (kCount == 1) {
    places[0] = load<Lanes>(from);
  } else {
    load_interleaved(from, places);
  }
  for (size_t k = 0; k < kCount; ++k) store(to + k * place_bytes, places[k]);
}
template <class Lanes, size_t kCount>
[[gnu::always_inline]] inline void take_short_runs(const uint8_t *from, size_t place_bytes, uint8_t *to) {
  Lanes places[kCount];
  for (size_t k = 0; k < kCount; ++k) places[k] = load<Lanes>(from + k * place_bytes);
  if constexpr (kCount == 1) {
    store(to, places[0]);
  } else {
    store_interleaved(to, places);
  }
}
inline constexpr size_t kMostOfShortRun = 4;
template <class Lanes>
[[gnu::noinline]] void bring_short_runs_together(const uint8_t *from, size_t count, uint8_t *to, size_t place_bytes) {
  if (count == 1) bring_short_runs<Lanes, 1>(from, to, place_bytes);
  if (count == 2) bring_short_runs<Lanes, 2>(from, to, place_bytes);
  if (count == 3) bring_short_runs<Lanes, 3>(from, to, place_bytes);
  if (count == 4) bring_short_runs<Lanes, 4>(from, to, place_bytes);
}
template <class Lanes>
[[gnu::noinline]] void take_short_runs_apart(const uint8_t *from, size_t place_bytes, size_t count, uint8_t *to) {
  if (count == 1) take_short_runs<Lanes, 1>(from, place_bytes, to);
  if (count == 2) take_short_runs<Lanes, 2>(from, place_bytes, to);
  if (count == 3) take_short_runs<Lanes, 3>(from, place_bytes, to);
  if (count == 4) take_short_runs<Lanes, 4>(from, place_bytes, to);
}

/// Copies lines of equal length that lie in equal steps, each as two pieces that meet or overlap: nothing else is read or
/// written.
template <class Piece>
inline void copy_lines_in_two(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step, size_t bytes,
                              size_t lines) {
  const size_t second = bytes - sizeof(Piece);
  for (; lines != 0; --lines, from += from_step, to += to_step) {
    const Piece front = load<Piece>(from);
    const Piece back = load<Piece>(from + second);
    store(to, front);
    store(to + second, back);
  }
}
[[gnu::noinline]] inline void copy_lines(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step,
                                         size_t bytes, size_t lines) {
  if (bytes > 32) {
    for (; lines != 0; --lines, from += from_step, to += to_step) {
      const size_t last = bytes - 16;
      for (size_t at = 0; at < last; at += 16) store(to + at, load<u8x16>(from + at));
      store(to + last, load<u8x16>(from + last));
    }
    return;
  }
  if (bytes >= 16) return copy_lines_in_two<u8x16>(from, from_step, to, to_step, bytes, lines);
  if (bytes >= 8) return copy_lines_in_two<uint64_t>(from, from_step, to, to_step, bytes, lines);
  if (bytes >= 4) return copy_lines_in_two<uint32_t>(from, from_step, to, to_step, bytes, lines);
  if (bytes >= 2) return copy_lines_in_two<uint16_t>(from, from_step, to, to_step, bytes, lines);
  if (bytes == 1) return copy_lines_in_two<uint8_t>(from, from_step, to, to_step, bytes, lines);
}

}  // namespace tarvu

#endif  // TARVU_SIMD_SIDE_BY_SIDE_H
