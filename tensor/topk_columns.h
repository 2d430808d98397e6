/// \file topk_columns.h
/// The few best elements of many lines at once, a line in each lane.
#ifndef TARVU_TENSOR_TOPK_COLUMNS_H
#define TARVU_TENSOR_TOPK_COLUMNS_H

#include <algorithm>

#include "simd/best_keys.h"
#include "tensor/move.h"
#include "tensor/topk_line.h"

namespace tarvu {

constexpr uint32_t kMostPicksInLanes = 8;

/// The picks of a group of lines: pick j of line l of the group.
template <class T>
struct GroupPicks {
  T elements[kMostPicksInLanes][kKeyColumns<T>];
  uint16_t positions[kMostPicksInLanes][kKeyColumns<T>];
};

/// A pick of a row that is read in parts: rank above position, as in topk_line.h.
using LongKeys = uint32_t;

/// Puts the best keys of a part of the rows among those of all parts before.
template <class T, int count>
inline void keep_best(const BestKeys<T, count> &part, uint32_t first_position, uint32_t part_rows, T flip,
                      LongKeys (&kept)[count][kKeyColumns<T>]) {
  // Of fewer rows than keys the last keys are none.
  for (int j = 0; j < count && static_cast<uint32_t>(j) < part_rows; ++j) {
    const Picked<T> row = picked<T>(part.keys[j], flip);
    for (size_t l = 0; l < kKeyColumns<T>; ++l) {
      const auto rank = static_cast<T>(row.elements[l] ^ flip);
      LongKeys key = key_of(rank, first_position + row.positions[l]);
      for (int i = 0; i < count; ++i) {
        const LongKeys greater = std::max(kept[i][l], key);
        key = std::min(kept[i][l], key);
        kept[i][l] = greater;
      }
    }
  }
}

/// Where some rows of a group of lines begin, and their distance in bytes.
struct Rows {
  const uint8_t *first;
  size_t step;
};

template <class T, int count, class RowsAt>
inline void pick_group(RowsAt rows_at, uint32_t n, uint32_t part_rows, T flip, GroupPicks<T> &picks) {
  if (n <= part_rows) {
    const Rows rows = rows_at(0, n);
    const BestKeys<T, count> best = find_best_keys<T, count>(rows.first, rows.step, n, flip);
    for (int j = 0; j < count; ++j) {
      const Picked<T> row = picked<T>(best.keys[j], flip);
      store(picks.elements[j], row.elements);
      for (size_t l = 0; l < kKeyColumns<T>; ++l) picks.positions[j][l] = row.positions[l];
    }
    return;
  }
  LongKeys kept[count][kKeyColumns<T>] = {};
  for (uint32_t first = 0; first < n; first += part_rows) {
    const uint32_t part = std::min(part_rows, n - first);
    const Rows rows = rows_at(first, part);
    keep_best<T, count>(find_best_keys<T, count>(rows.first, rows.step, part, flip), first, part, flip, kept);
  }
  for (int j = 0; j < count; ++j) {
    for (size_t l = 0; l < kKeyColumns<T>; ++l) {
      picks.elements[j][l] = static_cast<T>(rank_of<T>(kept[j][l]) ^ flip);
      picks.positions[j][l] = position_of(kept[j][l]);
    }
  }
}

/// Picks the `k` best (1 to kMostPicksInLanes) of each line; spare picks behind them may be found as well.
template <class T, class RowsAt>
inline void pick_group_by_count(RowsAt rows_at, uint32_t n, uint32_t part_rows, uint32_t k, T flip,
                                GroupPicks<T> &picks) {
  switch (k) {
    case 1:
      return pick_group<T, 1>(rows_at, n, part_rows, flip, picks);
    case 2:
      return pick_group<T, 2>(rows_at, n, part_rows, flip, picks);
    case 3:
      return pick_group<T, 3>(rows_at, n, part_rows, flip, picks);
    case 4:
    case 5:
      return pick_group<T, 5>(rows_at, n, part_rows, flip, picks);
    default:
      return pick_group<T, 8>(rows_at, n, part_rows, flip, picks);
  }
}

/// A dense tensor as lines: element i of line (block, column) is element (block * n + i) * columns + column.
struct LineShape {
  uint64_t blocks;
  uint32_t n;
  uint64_t columns;
};

/// Collects rows `first` to `first + part` of so many lines (at most kKeyColumns) from line `line` on, a line in each lane.
template <class T>
inline void collect_rows(const LineShape &shape, const uint8_t *in, uint64_t line, size_t lines, uint32_t first,
                         uint32_t part, uint8_t *rows) {
  constexpr size_t kRowBytes = kKeyColumns<T> * sizeof(T);
  if (shape.columns == 1) {
    transpose<T>(in + (line * shape.n + first) * sizeof(T), shape.n * sizeof(T), rows, kRowBytes, lines, part);
    return;
  }
  for (size_t done = 0; done < lines;) {
    const uint64_t block = (line + done) / shape.columns;
    const uint64_t column = (line + done) % shape.columns;
    const size_t piece = std::min<uint64_t>(lines - done, shape.columns - column);
    Move move{};
    move.bytes = piece * sizeof(T);
    move.along = {part, {static_cast<ptrdiff_t>(shape.columns * sizeof(T)), kRowBytes}};
    move_runs(move, in + ((block * shape.n + first) * shape.columns + column) * sizeof(T), rows + done * sizeof(T));
    done += piece;
  }
}

/// Calls found(line, lines, picks) for groups of consecutive lines in ascending order, of which the last may begin within the one
/// before.
template <class T, class Found>
inline void pick_in_lanes(const LineShape &shape, const uint8_t *in, uint32_t k, T flip, Found found) {
  constexpr size_t kColumns = kKeyColumns<T>;
  GroupPicks<T> picks;
  if (shape.columns >= kColumns) {
    const size_t step = shape.columns * sizeof(T);
    for (uint64_t block = 0; block < shape.blocks; ++block) {
      for (uint64_t next = 0; next < shape.columns; next += kColumns) {
        const uint64_t column = std::min(next, shape.columns - kColumns);
        const uint8_t *start = in + (block * shape.n * shape.columns + column) * sizeof(T);
        const auto rows_at = [=](uint32_t first, uint32_t) { return Rows{start + first * step, step}; };
        pick_group_by_count<T>(rows_at, shape.n, kKeyPositions<T>, k, flip, picks);
        found(block * shape.columns + column, kColumns, picks);
      }
    }
    return;
  }
  constexpr uint32_t kPartRows = 128;
  alignas(16) uint8_t collected[kPartRows * kColumns * sizeof(T)];  // lanes without a line are not asked
  const uint64_t all = shape.blocks * shape.columns;
  for (uint64_t line = 0; line < all; line += kColumns) {
    const auto lines = static_cast<size_t>(std::min<uint64_t>(kColumns, all - line));
    const auto rows_at = [&](uint32_t first, uint32_t part) {
      collect_rows<T>(shape, in, line, lines, first, part, collected);
      return Rows{collected, kColumns * sizeof(T)};
    };
    pick_group_by_count<T>(rows_at, shape.n, kPartRows, k, flip, picks);
    found(line, lines, picks);
  }
}

}  // namespace tarvu

#endif  // TARVU_TENSOR_TOPK_COLUMNS_H
