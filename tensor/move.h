/// \file move.h
/// Moves of a tensor's elements along any axes, for walks whose order nobody can tell: decided once, then made any number of
/// times from place to place.
#ifndef TARVU_TENSOR_MOVE_H
#define TARVU_TENSOR_MOVE_H

#include <algorithm>

#include "frame/axes.h"
#include "simd/byte_table.h"
#include "simd/part.h"
#include "simd/transpose.h"

namespace tarvu {

/// Tensor 0 of a move is its source, tensor 1 its destination.
using MoveAxis = Axis<2>;
using MoveAxes = Axes<2>;

struct Move {
  enum class Kind { kRuns, kElements, kTranspose, kTiles, kTable };
  Kind kind;
  bool fills_gapless;    // runs: source and destination have no gaps between them
  size_t bytes;          // of a run or an element
  MoveAxes outer;        // around the axes below
  MoveAxis around;       // elements: the next axis outside of `along`
  MoveAxis along;        // runs, elements, tables: from one to the next; else the axis that is dense in the destination
  MoveAxis across;       // transposed, tiles: the axis that is dense in the source
  MoveAxis next_along;   // tiles: goes on in the destination where `along` ends
  MoveAxis next_across;  // tiles: goes on in the source where `across` ends
  MoveAxes inside;       // tables: the axes of one
  size_t table_bytes;
  size_t table_rounds;  // tables: how many of `inside` stand in one
};

inline void remove_axis(MoveAxes &axes, int which) {
  for (int d = which; d + 1 < axes.count; ++d) axes.axis[d] = axes.axis[d + 1];
  --axes.count;
}

/// Takes the axis that moves by `bytes` in a tensor out of the others; false if there is none.
inline bool take_dense(MoveAxes &axes, int tensor, size_t bytes, MoveAxis &dense) {
  for (int d = 0; d < axes.count; ++d) {
    if (axes.axis[d].step[tensor] != static_cast<ptrdiff_t>(bytes)) continue;
    dense = axes.axis[d];
    remove_axis(axes, d);
    return true;
  }
  return false;
}

/// Takes the longest axis; one of a single place if there is none.
inline MoveAxis take_longest(MoveAxes &axes) {
  if (axes.count == 0) return {1, {0, 0}};
  int longest = 0;
  for (int d = 1; d < axes.count; ++d) {
    if (axes.axis[d].extent > axes.axis[longest].extent) longest = d;
  }
  const MoveAxis taken = axes.axis[longest];
  remove_axis(axes, longest);
  return taken;
}

/// Elements of a walk, and bytes from the first to behind the last of them in a tensor.
inline size_t count_of(const MoveAxes &axes) {
  size_t count = 1;
  for (int d = 0; d < axes.count; ++d) count *= axes.axis[d].extent;
  return count;
}
inline size_t span_of(const MoveAxes &axes, int tensor, size_t element_bytes) {
  size_t span = element_bytes;
  for (int d = 0; d < axes.count; ++d)
    span += (axes.axis[d].extent - 1) * static_cast<size_t>(axes.axis[d].step[tensor]);
  return span;
}

/// The innermost axes, as many as are dense blocks of at most `most` bytes in both tensors: how many, and of how many bytes.
/// The axes are in the order of the destination, where no two elements share a place.
struct DenseBlock {
  int axes;
  size_t bytes;
};
inline DenseBlock dense_block_of(const MoveAxes &axes, size_t element_bytes, size_t most) {
  DenseBlock found{0, 0};
  size_t bytes = element_bytes;
  for (int d = 0; d < axes.count; ++d) {
    if (axes.axis[d].step[1] != static_cast<ptrdiff_t>(bytes)) break;
    bytes *= axes.axis[d].extent;
    if (bytes > most) break;
    MoveAxes inside = axes;
    inside.count = d + 1;
    inside = sort_axes(inside, 0);
    size_t reached = element_bytes;
    for (int e = 0; e <= d && inside.axis[e].step[0] == static_cast<ptrdiff_t>(reached); ++e) {
      reached *= inside.axis[e].extent;
    }
    if (reached == bytes) found = {d + 1, bytes};
  }
  return found;
}

/// Whether small blocks of the elements move by tables, and how.
inline bool plan_table(const MoveAxes &axes, Move &move) {
  constexpr size_t kFewest = 512;  // bytes in all that pay for a table
  if (axes.axis[0].step[1] != static_cast<ptrdiff_t>(move.bytes) || count_of(axes) * move.bytes < kFewest) return false;
  const DenseBlock block = dense_block_of(axes, move.bytes, kTableBytes);
  if (block.axes == 0) return false;
  Move table = move;
  table.kind = Move::Kind::kTable;
  table.inside = axes;
  table.inside.count = block.axes;
  table.outer = axes;
  for (int d = 0; d < block.axes; ++d) remove_axis(table.outer, 0);
  table.table_rounds = 1;
  const auto step = static_cast<ptrdiff_t>(block.bytes);
  if (table.outer.count != 0 && table.outer.axis[0].step[0] == step && table.outer.axis[0].step[1] == step) {
    table.along = table.outer.axis[0];
    remove_axis(table.outer, 0);
    table.table_rounds = std::min(kTableBytes / block.bytes, table.along.extent);
  } else {
    table.along = take_longest(table.outer);
  }
  table.table_bytes = block.bytes * table.table_rounds;
  if (table.table_bytes < 16) return false;
  move = table;
  return true;
}

constexpr size_t kTileSide = 32;

/// Whether a short side of a transposed table goes on with a second axis, so that tiles of both are worth their two copies more.
inline bool plan_tiles(const MoveAxes &around, Move &move) {
  constexpr size_t kShort = 8;
  constexpr MoveAxis kNone = {1, {0, 0}};
  if (move.bytes > 2 || (move.along.extent >= kShort && move.across.extent >= kShort)) return false;
  Move tiles = move;
  MoveAxes others = around;
  tiles.next_along = tiles.next_across = kNone;
  const bool longer_along =
      move.along.extent < kShort && take_dense(others, 1, move.along.extent * move.bytes, tiles.next_along);
  const bool longer_across =
      move.across.extent < kShort && take_dense(others, 0, move.across.extent * move.bytes, tiles.next_across);
  if ((!longer_along && !longer_across) || tiles.along.extent * tiles.next_along.extent < kShort ||
      tiles.across.extent * tiles.next_across.extent < kShort) {
    return false;
  }
  tiles.kind = Move::Kind::kTiles;
  tiles.outer = others;
  move = tiles;
  return true;
}

/// Decides how elements of 1 or 2 bytes move along `axes`, of which none is empty, in the order of the destination's steps.
inline Move plan_move(const MoveAxes &in_order, size_t element_bytes) {
  MoveAxes axes = merge_axes(in_order);
  Move move{};
  move.bytes = element_bytes;
  const auto is_run = [&](const MoveAxis &axis) {
    return axis.step[0] == static_cast<ptrdiff_t>(move.bytes) && axis.step[1] == static_cast<ptrdiff_t>(move.bytes);
  };
  const bool source_is_gapless = span_of(axes, 0, element_bytes) == count_of(axes) * element_bytes;
  if (axes.count != 0 && is_run(axes.axis[0])) {
    move.bytes *= axes.axis[0].extent;
    remove_axis(axes, 0);
    const bool moves_as_element = move.bytes == 2 || move.bytes == 4 || move.bytes == 8;
    if (!moves_as_element || axes.count == 0) {
      move.kind = Move::Kind::kRuns;
      const bool follow =
          axes.count != 0 && axes.axis[0].step[1] == static_cast<ptrdiff_t>(move.bytes) && axes.axis[0].extent >= 4;
      move.fills_gapless = follow && source_is_gapless;
      if (follow) {
        move.along = axes.axis[0];
        remove_axis(axes, 0);
      } else {
        move.along = take_longest(axes);
      }
      move.outer = axes;
      return move;
    }
  }
  if (plan_table(axes, move)) return move;
  MoveAxes others = axes;
  if (move.bytes <= 4 && take_dense(others, 0, move.bytes, move.across) &&
      take_dense(others, 1, move.bytes, move.along)) {
    if (plan_tiles(others, move)) return move;
    constexpr size_t kFewestTransposed = 32;
    if (move.along.extent * move.across.extent >= kFewestTransposed) {
      move.kind = Move::Kind::kTranspose;
      move.outer = others;
      return move;
    }
  }
  move.kind = Move::Kind::kElements;
  move.along = take_longest(axes);
  move.around = take_longest(axes);
  move.outer = axes;
  return move;
}

/// Runs of less than 16 bytes, one after the other in the destination, of which each but the last is moved as a whole piece:
/// what lies behind it is overwritten by the next run.
template <class Piece>
inline void move_gapless_runs(const uint8_t *from, size_t from_step, uint8_t *to, size_t bytes, size_t count) {
  copy_elements<Piece>(from, from_step, to, bytes, count - 1);
  const u8x16 last = load_part(from + (count - 1) * from_step, bytes);
  store_part(to + (count - 1) * bytes, last, bytes);
}

/// Runs in two pieces that overlap.
template <class Piece>
inline void move_runs_in_two(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step, size_t bytes,
                             size_t count) {
  const size_t second = bytes - sizeof(Piece);
  for (; count != 0; --count, from += from_step, to += to_step) {
    const auto first_piece = load<Piece>(from);
    const auto second_piece = load<Piece>(from + second);
    store(to, first_piece);
    store(to + second, second_piece);
  }
}

inline void move_runs(const Move &move, const uint8_t *from, uint8_t *to) {
  const size_t bytes = move.bytes;
  const size_t count = move.along.extent;
  const auto from_step = static_cast<size_t>(move.along.step[0]);
  const auto to_step = static_cast<size_t>(move.along.step[1]);
  if (move.fills_gapless && bytes <= 16 && from_step >= bytes) {
    if (bytes <= 4) return move_gapless_runs<uint32_t>(from, from_step, to, bytes, count);
    if (bytes <= 8) return move_gapless_runs<uint64_t>(from, from_step, to, bytes, count);
    return move_gapless_runs<u8x16>(from, from_step, to, bytes, count);
  }
  if (bytes == 1) return copy_elements<uint8_t>(from, from_step, to, to_step, count);
  if (bytes == 2) return copy_elements<uint16_t>(from, from_step, to, to_step, count);
  if (bytes == 4) return copy_elements<uint32_t>(from, from_step, to, to_step, count);
  if (bytes == 8) return copy_elements<uint64_t>(from, from_step, to, to_step, count);
  if (bytes == 16) return copy_elements<u8x16>(from, from_step, to, to_step, count);
  if (bytes <= 4) return move_runs_in_two<uint16_t>(from, from_step, to, to_step, bytes, count);
  if (bytes <= 8) return move_runs_in_two<uint32_t>(from, from_step, to, to_step, bytes, count);
  if (bytes <= 16) return move_runs_in_two<uint64_t>(from, from_step, to, to_step, bytes, count);
  if (bytes <= 32) return move_runs_in_two<u8x16>(from, from_step, to, to_step, bytes, count);
  for (size_t i = 0; i < count; ++i, from += from_step, to += to_step) copy_run(from, to, bytes);
}

template <class Element>
inline void move_elements(const Move &move, const uint8_t *from, uint8_t *to) {
  const MoveAxis &along = move.along;
  if (move.kind == Move::Kind::kTranspose) {
    if constexpr (sizeof(Element) <= 4) {
      transpose<Element>(from, static_cast<size_t>(along.step[0]), to, static_cast<size_t>(move.across.step[1]),
                         along.extent, move.across.extent);
    }
  } else {
    for (size_t i = 0; i < move.around.extent; ++i, from += move.around.step[0], to += move.around.step[1]) {
      copy_elements<Element>(from, static_cast<size_t>(along.step[0]), to, static_cast<size_t>(along.step[1]),
                             along.extent);
    }
  }
}

/// The places in the source of the bytes of a table's destination.
inline void find_sources(const Move &move, uint8_t (&sources)[kTableBytes]) {
  const size_t block_bytes = move.table_bytes / move.table_rounds;
  for_each_place(move.inside, 0, [&](const Offsets<2> &at) {
    for (size_t b = 0; b < move.bytes; ++b) {
      sources[static_cast<size_t>(at.of[1]) + b] = static_cast<uint8_t>(static_cast<size_t>(at.of[0]) + b);
    }
  });
  for (size_t b = block_bytes; b < move.table_bytes; ++b) {
    sources[b] = static_cast<uint8_t>(sources[b - block_bytes] + block_bytes);
  }
}

inline void move_by_table(const Move &move, const uint8_t *from, uint8_t *to) {
  uint8_t sources[kTableBytes];
  find_sources(move, sources);
  const ByteTable table(sources, move.table_bytes);
  const size_t rounds = move.along.extent / move.table_rounds;
  const size_t from_step = static_cast<size_t>(move.along.step[0]) * move.table_rounds;
  const size_t to_step = static_cast<size_t>(move.along.step[1]) * move.table_rounds;
  const size_t rest = move.along.extent - rounds * move.table_rounds;
  for_each_place(move.outer, 0, [&](const Offsets<2> &at) {
    table.move(from + at.of[0], from_step, to + at.of[1], to_step, rounds);
    // The last table begins early enough to end with the last block.
    if (rest != 0) {
      const auto skipped = static_cast<ptrdiff_t>(move.along.extent - move.table_rounds);
      table.move(from + at.of[0] + skipped * move.along.step[0], 0, to + at.of[1] + skipped * move.along.step[1], 0, 1);
    }
  });
}

/// A run of at most kTileSide elements to memory of its own, where whole vectors may be stored.
inline void copy_to_tile(const uint8_t *from, uint8_t *to, size_t bytes) {
  if (bytes <= 16) return store(to, load_part(from, bytes));
  for (size_t b = 0; b + 16 < bytes; b += 16) store(to + b, load<u8x16>(from + b));
  store(to + bytes - 16, load<u8x16>(from + bytes - 16));
}

/// A part of an axis, or of the axis that goes on where it ends.
struct TilePart {
  size_t extent;
  size_t next_extent;
};

/// One tile, of which each side is an axis or several places of a second one around it: collected by rows, transposed, and
/// spread by its new rows.
template <class Element>
inline void move_tile(const Move &move, TilePart rows, TilePart columns, const uint8_t *from, uint8_t *to) {
  constexpr size_t kPitch = kTileSide * sizeof(Element);
  alignas(16) uint8_t collected[kTileSide * kPitch];
  alignas(16) uint8_t transposed[kTileSide * kPitch];
  const size_t row_count = rows.extent * rows.next_extent;
  const size_t column_count = columns.extent * columns.next_extent;
  const auto from_step = static_cast<size_t>(move.along.step[0]);
  const auto to_step = static_cast<size_t>(move.across.step[1]);
  size_t pitch = from_step;
  if (rows.next_extent != 1) {
    uint8_t *row = collected;
    for (size_t n = 0; n < rows.next_extent; ++n) {
      const uint8_t *source = from + static_cast<ptrdiff_t>(n) * move.next_along.step[0];
      for (size_t r = 0; r < rows.extent; ++r, source += from_step, row += kPitch) {
        copy_to_tile(source, row, column_count * sizeof(Element));
      }
    }
    from = collected;
    pitch = kPitch;
  }
  if (columns.next_extent == 1) return transpose<Element>(from, pitch, to, to_step, row_count, column_count);
  const size_t run = row_count * sizeof(Element);
  transpose<Element>(from, pitch, transposed, run, row_count, column_count);
  Move spread{};
  spread.bytes = run;
  spread.along = {columns.extent, {static_cast<ptrdiff_t>(run), move.across.step[1]}};
  for (size_t n = 0; n < columns.next_extent; ++n) {
    move_runs(spread, transposed + n * columns.extent * run, to + static_cast<ptrdiff_t>(n) * move.next_across.step[1]);
  }
}

template <class Element>
inline void move_tiles(const Move &move, const uint8_t *from, uint8_t *to) {
  // The side of a tile is the first axis, or as many places of the second one as there is room for.
  const auto for_each_part = [](const MoveAxis &axis, const MoveAxis &next, auto action) {
    if (next.extent == 1) {
      for (size_t first = 0; first < axis.extent; first += kTileSide) {
        action(TilePart{std::min(kTileSide, axis.extent - first), 1}, axis, static_cast<ptrdiff_t>(first));
      }
      return;
    }
    const size_t places = kTileSide / axis.extent;
    for (size_t first = 0; first < next.extent; first += places) {
      action(TilePart{axis.extent, std::min(places, next.extent - first)}, next, static_cast<ptrdiff_t>(first));
    }
  };
  for_each_part(move.along, move.next_along, [&](TilePart rows, const MoveAxis &row_axis, ptrdiff_t row) {
    for_each_part(move.across, move.next_across, [&](TilePart columns, const MoveAxis &column_axis, ptrdiff_t column) {
      move_tile<Element>(move, rows, columns, from + row * row_axis.step[0] + column * column_axis.step[0],
                         to + row * row_axis.step[1] + column * column_axis.step[1]);
    });
  });
}

/// Makes the move from and to these starts of the tensors.
inline void make_move(const Move &move, const uint8_t *from, uint8_t *to) {
  if (move.kind == Move::Kind::kTable) return move_by_table(move, from, to);
  for_each_place(move.outer, 0, [&](const Offsets<2> &at) {
    const uint8_t *source = from + at.of[0];
    uint8_t *destination = to + at.of[1];
    if (move.kind == Move::Kind::kRuns) return move_runs(move, source, destination);
    if (move.kind == Move::Kind::kTiles) {
      return move.bytes == 1 ? move_tiles<uint8_t>(move, source, destination)
                             : move_tiles<uint16_t>(move, source, destination);
    }
    switch (move.bytes) {
      case 1:
        return move_elements<uint8_t>(move, source, destination);
      case 2:
        return move_elements<uint16_t>(move, source, destination);
      case 4:
        return move_elements<uint32_t>(move, source, destination);
      default:
        return move_elements<uint64_t>(move, source, destination);
    }
  });
}

}  // namespace tarvu

#endif  // TARVU_TENSOR_MOVE_H
