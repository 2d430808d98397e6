// Reorders the axes of a tensor: lines, elements, and blocks where no caller can tell the difference.
#include <algorithm>
#include <cstring>

#include "convert/reformat.h"
#include "frame/memory.h"
#include "frame/tarvu_util.h"
#include "tensor/move.h"

namespace tarvu {
namespace {

/// The whole walk, output axis 0 outermost.
struct Walk {
  const uint8_t *from;
  uint8_t *to;
  MoveAxes axes;
};

bool same_records(const _NN_PERMUTE_PARM &parm) {
  return std::memcmp(&parm.in_fmt, &parm.out_fmt, sizeof parm.in_fmt) == 0;
}

/// Output axis i in terms of the input; axis 3 is the element of the kernel.
Walk walk_of(const _NN_PERMUTE_PARM &parm, size_t in_element, size_t out_element) {
  const uint32_t extents[] = {parm.batch, parm.channel, parm.height, parm.width};
  const size_t in_steps[] = {parm.in_batch_ofs, parm.in_channel_ofs, parm.in_line_ofs, in_element};
  const size_t out_steps[] = {parm.out_batch_ofs, parm.out_channel_ofs, parm.out_line_ofs, out_element};
  Walk walk{pointer<const uint8_t>(parm.in_addr), pointer(parm.out_addr), {}};
  for (int i = 3; i >= 0; --i) {
    const auto axis = static_cast<size_t>(parm.order[i]);
    if (extents[axis] == 1 && i != 3) continue;
    add_axis(walk.axes,
             MoveAxis{extents[axis], {static_cast<ptrdiff_t>(in_steps[axis]), static_cast<ptrdiff_t>(out_steps[i])}});
  }
  return walk;
}

bool is_empty(const Walk &walk) { return count_of(walk.axes) == 0; }

/// Whether the order of the moves cannot be told: the tensors lie apart and no two elements are written to one place.
/// Each axis then steps over all that the axes of smaller steps reach. The axes are in the order of the destination.
bool order_is_free(const Walk &walk, size_t in_element, size_t out_element) {
  if (!lie_apart(memory_of(walk.from, span_of(walk.axes, 0, in_element)),
                 memory_of(walk.to, span_of(walk.axes, 1, out_element)))) {
    return false;
  }
  size_t reached = out_element;
  for (int d = 0; d < walk.axes.count; ++d) {
    const MoveAxis &axis = walk.axes.axis[d];
    if (static_cast<size_t>(axis.step[1]) < reached) return false;
    reached += (axis.extent - 1) * static_cast<size_t>(axis.step[1]);
  }
  return true;
}

constexpr size_t kTileElements = 1024;
constexpr size_t kReformattedTileBytes = 4096;

/// A part of a walk that is re-formatted at once: so many places of each axis.
struct Tile {
  size_t extents[kMostAxes];
  size_t elements;
  size_t most_elements;
};

/// Makes a tile longer along an axis, up to `most` places.
void grow_tile(Tile &tile, const MoveAxes &axes, int d, size_t most) {
  tile.elements /= tile.extents[d];
  tile.extents[d] = std::min({axes.axis[d].extent, tile.most_elements / tile.elements, most});
  tile.elements *= tile.extents[d];
}

/// The tile covers the axis that moves by `bytes` in one tensor first, so that both tensors are walked along lines, then the others
/// from the innermost on. `axes` are in the order of the other tensor.
Tile tile_of(const MoveAxes &axes, int tensor, size_t bytes, size_t most_elements) {
  constexpr size_t kLine = 32;
  Tile tile{{}, 1, most_elements};
  for (size_t &extent : tile.extents) extent = 1;
  int dense = 0;
  for (int d = 1; d < axes.count; ++d) {
    if (axes.axis[d].step[tensor] == static_cast<ptrdiff_t>(bytes)) dense = d;
  }
  if (dense != 0) grow_tile(tile, axes, dense, kLine);
  for (int d = 0; d < axes.count; ++d) {
    if (d != dense || dense == 0) grow_tile(tile, axes, d, most_elements);
  }
  if (dense != 0) grow_tile(tile, axes, dense, most_elements);
  return tile;
}

/// Calls action(part, from, to) for every tile of the axes; `part` are the axes of the tile, `whole` tells if it has all places.
template <class Action>
void for_each_tile(const MoveAxes &axes, const Tile &tile, const uint8_t *from, uint8_t *to, Action action) {
  MoveAxes grid = axes;
  MoveAxes whole = axes;
  for (int d = 0; d < axes.count; ++d) {
    const auto places = static_cast<ptrdiff_t>(tile.extents[d]);
    whole.axis[d].extent = tile.extents[d];
    grid.axis[d] = {(axes.axis[d].extent + tile.extents[d] - 1) / tile.extents[d],
                    {axes.axis[d].step[0] * places, axes.axis[d].step[1] * places}};
  }
  size_t position[kMostAxes] = {};
  for_each_place(grid, 0, [&](const Offsets<2> &at) {
    MoveAxes part = whole;
    bool is_whole = true;
    for (int d = 0; d < axes.count; ++d) {
      const size_t left = axes.axis[d].extent - position[d] * tile.extents[d];
      if (left >= tile.extents[d]) continue;
      part.axis[d].extent = left;
      is_whole = false;
    }
    action(part, is_whole, from + at.of[0], to + at.of[1]);
    for (int d = 0; d < axes.count && ++position[d] == grid.axis[d].extent; ++d) position[d] = 0;
  });
}

/// How a tile of certain extents moves: into memory of its own, re-formatted there as one run, and from there to the
/// destination; without the last way where the destination is one run itself.
struct TileMoves {
  Move in;
  Move out;
  uint32_t elements;
  bool is_one_run;
};

TileMoves plan_tile(const MoveAxes &axes, const Reformat &reformat) {
  TileMoves moves{};
  MoveAxes in = axes;
  MoveAxes out = axes;
  size_t count = 1;
  moves.is_one_run = true;
  for (int d = 0; d < axes.count; ++d) {
    in.axis[d].step[1] = static_cast<ptrdiff_t>(count * reformat.in_bytes);
    out.axis[d].step[0] = static_cast<ptrdiff_t>(count * reformat.out_bytes);
    if (axes.axis[d].extent != 1 && out.axis[d].step[0] != out.axis[d].step[1]) moves.is_one_run = false;
    count *= axes.axis[d].extent;
  }
  moves.elements = static_cast<uint32_t>(count);
  moves.in = plan_move(in, reformat.in_bytes);
  if (!moves.is_one_run) moves.out = plan_move(out, reformat.out_bytes);
  return moves;
}

void move_tile(const TileMoves &moves, const Reformat &reformat, const uint8_t *from, uint8_t *to) {
  alignas(16) uint8_t moved[kTileElements * 2];
  make_move(moves.in, from, moved);
  if (moves.is_one_run) return reformat_run(reformat, moved, to, moves.elements);
  alignas(16) uint8_t reformatted[kTileElements * 2];
  reformat_run(reformat, moved, reformatted, moves.elements);
  make_move(moves.out, reformatted, to);
}

/// For any tensors. Not in line, nor the one below: both take much of a small stack.
[[gnu::noinline]] void move_by_tiles(const MoveAxes &axes, const Reformat &reformat, const uint8_t *from, uint8_t *to) {
  TileMoves moves{};
  bool are_of_whole = false;
  for_each_tile(axes, tile_of(axes, 0, reformat.in_bytes, kTileElements), from, to,
                [&](const MoveAxes &part, bool is_whole, const uint8_t *source, uint8_t *destination) {
                  if (!is_whole || !are_of_whole) moves = plan_tile(part, reformat);
                  are_of_whole = is_whole;
                  move_tile(moves, reformat, source, destination);
                });
}

/// For a source that has long runs: they are re-formatted into a tile, whose elements then move.
[[gnu::noinline]] void reformat_and_move_by_tiles(const MoveAxes &in_order_of_destination, const Reformat &reformat,
                                                  const uint8_t *from, uint8_t *to) {
  const MoveAxes axes = merge_axes(sort_axes(in_order_of_destination, 0));
  Move move{};
  bool is_of_whole = false;
  for_each_tile(axes, tile_of(axes, 1, reformat.out_bytes, kReformattedTileBytes / reformat.out_bytes), from, to,
                [&](const MoveAxes &part, bool is_whole, const uint8_t *source, uint8_t *destination) {
                  alignas(16) uint8_t reformatted[kReformattedTileBytes];
                  MoveAxes in = part;
                  MoveAxes out = part;
                  size_t count = 1;
                  size_t run = 1;
                  for (int d = 0; d < part.count; ++d) {
                    if (count == run && part.axis[d].step[0] == static_cast<ptrdiff_t>(run * reformat.in_bytes)) {
                      run *= part.axis[d].extent;
                      in.axis[d].extent = 1;
                    }
                    in.axis[d].step[1] = out.axis[d].step[0] = static_cast<ptrdiff_t>(count * reformat.out_bytes);
                    count *= part.axis[d].extent;
                  }
                  for_each_place(merge_axes(in), 0, [&](const Offsets<2> &at) {
                    reformat_run(reformat, source + at.of[0], reformatted + at.of[1], static_cast<uint32_t>(run));
                  });
                  if (!is_whole || !is_of_whole) move = plan_move(sort_axes(out, 1), reformat.out_bytes);
                  is_of_whole = is_whole;
                  make_move(move, reformatted, destination);
                });
}

/// Moves some places of the outermost axis after the others and re-formats them where they then lie: as long as the destination
/// has no gaps. Elements that grow move to the end of their place first.
void move_and_reformat_in_place(MoveAxes axes, const Reformat &reformat, const uint8_t *from, uint8_t *to) {
  constexpr size_t kAtOnce = 65536;  // elements
  for (int d = 0; d < axes.count; ++d) {
    axes.axis[d].step[1] /= static_cast<ptrdiff_t>(reformat.out_bytes / reformat.in_bytes);
  }
  MoveAxis &outermost = axes.axis[axes.count - 1];
  const size_t places = outermost.extent;
  const size_t elements = count_of(axes) / places;
  const size_t at_once = std::min(std::max(kAtOnce / elements, size_t{1}), places);
  outermost.extent = at_once;
  Move move = plan_move(axes, reformat.in_bytes);
  for (size_t first = 0; first < places; first += at_once) {
    if (places - first < at_once) {
      outermost.extent = places - first;
      move = plan_move(axes, reformat.in_bytes);
    }
    const size_t count = outermost.extent * elements;
    uint8_t *const place = to + first * elements * reformat.out_bytes;
    uint8_t *const moved = place + count * (reformat.out_bytes - reformat.in_bytes);
    make_move(move, from + static_cast<ptrdiff_t>(first) * outermost.step[0], moved);
    reformat_run(reformat, moved, place, static_cast<uint32_t>(count));
  }
}

/// Runs that are long in both tensors are re-formatted on their way, all others before or after it.
void move_and_reformat(const Walk &walk, const Reformat &reformat) {
  const MoveAxes axes = merge_axes(walk.axes);
  constexpr size_t kLongRun = 64;
  const MoveAxis &innermost = axes.axis[0];
  const bool are_runs = innermost.step[0] == static_cast<ptrdiff_t>(reformat.in_bytes) &&
                        innermost.step[1] == static_cast<ptrdiff_t>(reformat.out_bytes);
  if (are_runs && (innermost.extent >= kLongRun || axes.count == 1)) {
    for_each_place(axes, 1, [&](const Offsets<2> &at) {
      reformat_run(reformat, walk.from + at.of[0], walk.to + at.of[1], static_cast<uint32_t>(innermost.extent));
    });
    return;
  }
  const size_t elements = count_of(axes);
  const bool out_is_gapless = span_of(axes, 1, reformat.out_bytes) == elements * reformat.out_bytes;
  const bool in_is_gapless = span_of(axes, 0, reformat.in_bytes) == elements * reformat.in_bytes;
  if (out_is_gapless && reformat.in_bytes <= reformat.out_bytes) {
    move_and_reformat_in_place(axes, reformat, walk.from, walk.to);
  } else if (in_is_gapless) {
    reformat_and_move_by_tiles(axes, reformat, walk.from, walk.to);
  } else {
    move_by_tiles(axes, reformat, walk.from, walk.to);
  }
}

/// The common case, where nobody can tell the order of the moves; false with nothing written otherwise.
bool move_in_any_order(const Walk &any_walk, const Reformat &reformat) {
  Walk walk = any_walk;
  walk.axes = sort_axes(walk.axes, 1);
  if (!order_is_free(walk, reformat.in_bytes, reformat.out_bytes)) return false;
  if (reformat.copies) {
    make_move(plan_move(walk.axes, reformat.in_bytes), walk.from, walk.to);
  } else {
    move_and_reformat(walk, reformat);
  }
  return true;
}

/// Kept: the records are compared for every run, also those that differ in the reserved byte alone and then copy all the same.
void move_run(const _NN_PERMUTE_PARM &parm, const uint8_t *from, uint8_t *to, uint32_t count) {
  if (!same_records(parm)) {
    tarvu_convert_fmt_c(from, to, count, &parm.in_fmt, &parm.out_fmt, &parm.in_scale, &parm.out_scale);
  } else if (from != to) {
    const int element_bytes = shift_right(width_bits(parm.in_fmt), 3);
    // The identity within one tensor may move lines onto each other.
    std::memmove(to, from, static_cast<size_t>(element_bytes) * count);
  }
}

/// Calls move(from, to) for every place of the axes from `first` on, in the order of the walk.
template <class Move>
void for_each_place_of(const Walk &walk, int first, Move move) {
  for_each_place(walk.axes, first, [&](const Offsets<2> &at) { move(walk.from + at.of[0], walk.to + at.of[1]); });
}

/// Whole lines, whatever the formats.
_QX_RESULT permute_lines(const _NN_PERMUTE_PARM &parm) {
  const int element_bytes = shift_right(width_bits(parm.in_fmt), 3);
  const uint32_t width = parm.width;
  Walk walk = walk_of(parm, 0, 0);
  walk.axes.axis[0] = {1, {0, 0}};  // the line moves as one
  if (is_empty(walk)) return QX_OK;
  const Reformat reformat = reformat_between(parm.in_fmt, parm.out_fmt);
  if (width != 0 && same_records(parm) && element_bytes > 0) {
    Walk bytes = walk;
    bytes.axes.axis[0] = {width * static_cast<size_t>(element_bytes), {1, 1}};
    bytes.axes = sort_axes(bytes.axes, 1);
    if (order_is_free(bytes, 1, 1)) {
      make_move(plan_move(bytes.axes, 1), bytes.from, bytes.to);
      return QX_OK;
    }
  } else if (width != 0 && reformat.in_bytes != 0) {
    Walk elements = walk;
    elements.axes.axis[0] = {width,
                             {static_cast<ptrdiff_t>(reformat.in_bytes), static_cast<ptrdiff_t>(reformat.out_bytes)}};
    if (move_in_any_order(elements, reformat)) return QX_OK;
  }
  for_each_place_of(walk, 1, [&](const uint8_t *from, uint8_t *to) { move_run(parm, from, to, width); });
  return QX_OK;
}

template <class In, class Out>
_QX_RESULT permute(const _NN_PERMUTE_PARM &parm) {
  const Walk walk = walk_of(parm, sizeof(In), sizeof(Out));
  if (is_empty(walk)) return QX_OK;
  if (move_in_any_order(walk, reformat_between(parm.in_fmt, parm.out_fmt))) return QX_OK;
  for_each_place_of(walk, 0, [&](const uint8_t *from, uint8_t *to) { move_run(parm, from, to, 1); });
  return QX_OK;
}

template <class In>
_QX_RESULT permute_to(const _NN_PERMUTE_PARM &parm, NN_AI_IO_TYPE out_type) {
  switch (out_type) {
    case NN_AI_IO_TYPE_INT8:
    case NN_AI_IO_TYPE_UINT8:
      return permute<In, uint8_t>(parm);
    case NN_AI_IO_TYPE_INT16:
    case NN_AI_IO_TYPE_UINT16:
      return permute<In, uint16_t>(parm);
    default:
      return unsupported_output_type("tarvu_permute_process", out_type);
  }
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_permute_process(const _NN_PERMUTE_PARM *parm) {
  const NN_AI_IO_TYPE in_type = tarvu_get_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE out_type = tarvu_get_fmt_type(&parm->out_fmt);
  if (parm->order[3] == 3) return tarvu::permute_lines(*parm);
  switch (in_type) {
    case NN_AI_IO_TYPE_INT8:
    case NN_AI_IO_TYPE_UINT8:
      return tarvu::permute_to<uint8_t>(*parm, out_type);
    case NN_AI_IO_TYPE_INT16:
    case NN_AI_IO_TYPE_UINT16:
      return tarvu::permute_to<uint16_t>(*parm, out_type);
    default:
      return tarvu::unsupported_input_type("tarvu_permute_process", in_type);
  }
}
