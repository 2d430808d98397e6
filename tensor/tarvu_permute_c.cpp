// Reorders the axes of a tensor: lines, elements, and blocks where no caller can tell the difference.
#include <algorithm>
#include <cstring>

#include "frame/tarvu_util.h"
#include "simd/rearrange.h"

namespace tarvu {
namespace {

/// One output axis: how far source and destination move from one position to the next.
struct Axis {
  uint32_t extent;
  size_t in_step;   // bytes
  size_t out_step;  // bytes
};

/// The whole walk, output axis 0 outermost. Elements are `element_bytes` wide in both tensors.
struct Walk {
  const uint8_t *from;
  uint8_t *to;
  Axis axes[4];
  size_t element_bytes;
};

bool same_records(const _NN_PERMUTE_PARM &parm) {
  return std::memcmp(&parm.in_fmt, &parm.out_fmt, sizeof parm.in_fmt) == 0;
}

/// Output axis i in terms of the input; axis 3 is the element of the kernel.
Walk walk_of(const _NN_PERMUTE_PARM &parm, size_t in_element, size_t out_element) {
  const uint32_t extents[] = {parm.batch, parm.channel, parm.height, parm.width};
  const size_t in_steps[] = {parm.in_batch_ofs, parm.in_channel_ofs, parm.in_line_ofs, in_element};
  const size_t out_steps[] = {parm.out_batch_ofs, parm.out_channel_ofs, parm.out_line_ofs, out_element};
  Walk walk{pointer<const uint8_t>(parm.in_addr), pointer(parm.out_addr), {}, out_element};
  for (int i = 0; i < 4; ++i) walk.axes[i] = {extents[parm.order[i]], in_steps[parm.order[i]], out_steps[i]};
  return walk;
}

bool is_empty(const Walk &walk) {
  return std::any_of(walk.axes, walk.axes + 4, [](const Axis &axis) { return axis.extent == 0; });
}

/// Bytes from the first to behind the last element reached by the given steps.
size_t span_bytes(const Walk &walk, size_t Axis::*step) {
  size_t last = 0;
  for (const Axis &axis : walk.axes) last += (axis.extent - 1) * axis.*step;
  return last + walk.element_bytes;
}

/// Whether the order of the moves cannot be told: the tensors lie apart and no two elements are written to one place.
/// Each axis then steps over all that the axes of smaller steps reach.
bool order_is_free(const Walk &walk) {
  const size_t in_span = span_bytes(walk, &Axis::in_step);
  const size_t out_span = span_bytes(walk, &Axis::out_step);
  const auto from = reinterpret_cast<uintptr_t>(walk.from);
  const auto to = reinterpret_cast<uintptr_t>(walk.to);
  if (from < to + out_span && to < from + in_span) return false;
  Axis sorted[4];
  std::copy(walk.axes, walk.axes + 4, sorted);
  std::sort(sorted, sorted + 4, [](const Axis &a, const Axis &b) { return a.out_step < b.out_step; });
  size_t reached = walk.element_bytes;
  for (const Axis &axis : sorted) {
    if (axis.extent == 1) continue;
    if (axis.out_step < reached) return false;
    reached += (axis.extent - 1) * axis.out_step;
  }
  return true;
}

/// Merges axes that both tensors walk as one and drops those of extent 1. Returns how many are left in front of `axes`.
int merge_axes(Axis *axes) {
  int count = 4;
  for (bool merged = true; merged;) {
    merged = false;
    for (int outer = 0; outer < count && !merged; ++outer) {
      for (int inner = 0; inner < count && !merged; ++inner) {
        if (outer == inner) continue;
        const Axis &slow = axes[outer];
        const Axis &fast = axes[inner];
        const bool one_walk = slow.in_step == fast.extent * fast.in_step &&
                              slow.out_step == fast.extent * fast.out_step &&
                              uint64_t{slow.extent} * fast.extent <= UINT32_MAX;
        if (slow.extent != 1 && !one_walk) continue;
        if (slow.extent != 1) axes[inner].extent *= slow.extent;
        std::copy(axes + outer + 1, axes + count, axes + outer);
        --count;
        merged = true;
      }
    }
  }
  return count;
}

/// Moves the axis that steps by one element in the input (or the output) out of `axes`; false if there is none.
bool take_dense(Axis *axes, int &count, size_t Axis::*step, size_t element_bytes, Axis &dense) {
  for (int i = 0; i < count; ++i) {
    if (axes[i].*step != element_bytes) continue;
    dense = axes[i];
    std::copy(axes + i + 1, axes + count, axes + i);
    --count;
    return true;
  }
  return false;
}

/// Calls move(from, to) for every position of up to three axes.
template <class Move>
void for_each_position(const Walk &walk, const Axis *axes, int count, Move move) {
  Axis outer[3] = {{1, 0, 0}, {1, 0, 0}, {1, 0, 0}};
  std::copy(axes, axes + count, outer + 3 - count);
  for (uint32_t i = 0; i < outer[0].extent; ++i) {
    for (uint32_t j = 0; j < outer[1].extent; ++j) {
      const uint8_t *from = walk.from + i * outer[0].in_step + j * outer[1].in_step;
      uint8_t *to = walk.to + i * outer[0].out_step + j * outer[1].out_step;
      for (uint32_t k = 0; k < outer[2].extent; ++k, from += outer[2].in_step, to += outer[2].out_step) move(from, to);
    }
  }
}

/// The common case in blocks: runs where one axis is dense in both tensors, transposed blocks where each tensor has a dense
/// axis of its own. Returns false with nothing written if neither holds or the order of the moves could be told.
bool move_in_blocks(const Walk &walk) {
  if (!order_is_free(walk)) return false;
  Axis axes[4];
  std::copy(walk.axes, walk.axes + 4, axes);
  int count = merge_axes(axes);
  Axis in_dense;
  if (!take_dense(axes, count, &Axis::in_step, walk.element_bytes, in_dense)) return false;
  if (in_dense.out_step == walk.element_bytes) {
    const size_t run_bytes = in_dense.extent * walk.element_bytes;
    for_each_position(walk, axes, count, [=](const uint8_t *from, uint8_t *to) { copy_run(from, to, run_bytes); });
    return true;
  }
  Axis out_dense;
  if (!take_dense(axes, count, &Axis::out_step, walk.element_bytes, out_dense)) return false;
  for_each_position(walk, axes, count, [&](const uint8_t *from, uint8_t *to) {
    if (walk.element_bytes == 1) {
      transpose<uint8_t>(from, out_dense.in_step, to, in_dense.out_step, out_dense.extent, in_dense.extent);
    } else {
      transpose<uint16_t>(from, out_dense.in_step, to, in_dense.out_step, out_dense.extent, in_dense.extent);
    }
  });
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

/// Whole lines, whatever the formats.
_QX_RESULT permute_lines(const _NN_PERMUTE_PARM &parm) {
  const int element_bytes = shift_right(width_bits(parm.in_fmt), 3);
  Walk walk = walk_of(parm, static_cast<size_t>(element_bytes), static_cast<size_t>(element_bytes));
  const uint32_t width = parm.width;
  walk.axes[3].extent = 1;  // the line moves as one
  if (is_empty(walk)) return QX_OK;
  const bool whole_bytes = element_bytes > 0 && width != 0;
  if (whole_bytes && same_records(parm)) {
    Walk bytes = walk;
    bytes.element_bytes = 1;
    bytes.axes[3] = {width * static_cast<uint32_t>(element_bytes), 1, 1};
    if (move_in_blocks(bytes)) return QX_OK;
  }
  for_each_position(walk, walk.axes, 3, [&](const uint8_t *from, uint8_t *to) { move_run(parm, from, to, width); });
  return QX_OK;
}

template <class In, class Out>
_QX_RESULT permute(const _NN_PERMUTE_PARM &parm) {
  const Walk walk = walk_of(parm, sizeof(In), sizeof(Out));
  if (is_empty(walk)) return QX_OK;
  if (same_records(parm) && move_in_blocks(walk)) return QX_OK;
  const Axis &innermost = walk.axes[3];
  for_each_position(walk, walk.axes, 3, [&](const uint8_t *from, uint8_t *to) {
    for (uint32_t i = 0; i < innermost.extent; ++i, from += innermost.in_step, to += innermost.out_step) {
      move_run(parm, from, to, 1);
    }
  });
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
