// Turns the order of the slices along one axis round.
#include <algorithm>

#include "convert/reformat.h"
#include "frame/tarvu_util.h"
#include "tensor/move.h"

namespace tarvu {
namespace {

constexpr int kWidthAxis = 3;

/// The rounds along the axis: how many, how they advance, and the slices of each.
struct Rounds {
  uint32_t count;
  size_t in_step;   // bytes from one round to the next
  size_t out_step;  // bytes
  uint32_t slices;
  uint32_t slice_bytes;     // also from one slice of the input to the next
  uint32_t out_slice_step;  // bytes
};

/// Copies the slices of one round, the last one of the source first.
void copy_slices(const uint8_t *last_slice, uint8_t *to, const Rounds &rounds) {
  Move move{};
  move.bytes = rounds.slice_bytes;
  move.along = {rounds.slices, {-static_cast<ptrdiff_t>(rounds.slice_bytes), rounds.out_slice_step}};
  move_runs(move, last_slice, to);
}

/// Slices that are copied and then re-formatted where they lie, each on its own. Kept: elements of another width than the input's
/// are re-formatted over their neighbours, and slices that overlap over one another.
template <class Element>
void reverse_slices(const uint8_t *last_slice, uint8_t *to, const Rounds &rounds, const Reformat &reformat) {
  for (uint32_t i = 0; i < rounds.slices; ++i) {
    copy_run(last_slice, to, rounds.slice_bytes);
    last_slice -= rounds.slice_bytes;
    reformat_run(reformat, to, to, rounds.slice_bytes / sizeof(Element));
    to += rounds.out_slice_step;
  }
}

/// Every round is one line, moved in one sweep. Only for formats of equal width.
template <class Element>
void reverse_lines(const uint8_t *line, uint8_t *to, Rounds rounds, const Reformat &reformat) {
  constexpr size_t kAtOnce = 8192;  // bytes that are re-formatted while they are in the cache
  const bool reformats = reformat.in_bytes != 0 && !reformat.copies;
  const size_t line_bytes = rounds.slices * sizeof(Element);
  if (!reformats && rounds.slices == 1) {
    return copy_elements<Element>(line, rounds.in_step, to, rounds.out_step, rounds.count);
  }
  // Lines without gaps are re-formatted many at a time.
  const size_t lines_at_once = !reformats                      ? rounds.count
                               : rounds.out_step == line_bytes ? std::max(kAtOnce / line_bytes, size_t{1})
                                                               : 1;
  for (size_t left = rounds.count; left != 0;) {
    const size_t lines = std::min(left, lines_at_once);
    uint8_t *const start = to;
    for (size_t i = 0; i < lines; ++i, line += rounds.in_step, to += rounds.out_step) {
      copy_reversed<Element>(line, to, rounds.slices);
    }
    if (reformats) reformat_run(reformat, start, start, static_cast<uint32_t>(lines * rounds.slices));
    left -= lines;
  }
}

template <class Element>
_QX_RESULT reverse_axis(const _NN_REVERSE_PARM &parm) {
  const uint32_t extents[] = {parm.batch, parm.channel, parm.height, parm.width};
  const uint32_t in_steps[] = {parm.in_batch_ofs, parm.in_channel_ofs, parm.in_line_ofs, sizeof(Element)};
  const uint32_t out_steps[] = {parm.out_batch_ofs, parm.out_channel_ofs, parm.out_line_ofs, sizeof(Element)};
  const int axis = parm.axis;
  Rounds rounds{1, 1, 1, extents[axis], in_steps[axis], out_steps[axis]};
  for (int outer = 0; outer < axis; ++outer) rounds.count *= extents[outer];
  if (rounds.count == 0 || rounds.slices == 0 || rounds.slice_bytes == 0) return QX_OK;
  if (axis != 0) {
    // Kept: the rounds advance by the axis next outside alone; axes further out are taken to lie back to back.
    rounds.in_step = in_steps[axis - 1];
    rounds.out_step = out_steps[axis - 1];
  }
  const auto *from = pointer<const uint8_t>(parm.in_addr);
  uint8_t *to = pointer(parm.out_addr);
  const Reformat reformat = reformat_between(parm.in_fmt, parm.out_fmt);
  if (axis == kWidthAxis && width_bits(parm.in_fmt) == width_bits(parm.out_fmt)) {
    reverse_lines<Element>(from, to, rounds, reformat);
    return QX_OK;
  }
  const bool reformats = reformat.in_bytes != 0 && !reformat.copies;
  // Slices without gaps are re-formatted together.
  const bool together = reformats && reformat.in_bytes == reformat.out_bytes && reformat.in_bytes == sizeof(Element) &&
                        rounds.slice_bytes == rounds.out_slice_step && rounds.slice_bytes % sizeof(Element) == 0 &&
                        uint64_t{rounds.slices} * rounds.slice_bytes <= UINT32_MAX;
  const uint8_t *last_slice = from + rounds.slices * rounds.slice_bytes - rounds.slice_bytes;
  for (; rounds.count != 0; --rounds.count, last_slice += rounds.in_step, to += rounds.out_step) {
    if (reformats && !together) {
      reverse_slices<Element>(last_slice, to, rounds, reformat);
      continue;
    }
    copy_slices(last_slice, to, rounds);
    if (together) reformat_run(reformat, to, to, rounds.slices * rounds.slice_bytes / sizeof(Element));
  }
  return QX_OK;
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_reverse_process(const _NN_REVERSE_PARM *parm) {
  const NN_AI_IO_TYPE type = tarvu_get_fmt_type(&parm->in_fmt);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
    case NN_AI_IO_TYPE_UINT8:
      return tarvu::reverse_axis<uint8_t>(*parm);
    case NN_AI_IO_TYPE_INT16:
    case NN_AI_IO_TYPE_UINT16:
      return tarvu::reverse_axis<uint16_t>(*parm);
    default:
      return tarvu::unsupported_input_type("tarvu_reverse_process", type);
  }
}
