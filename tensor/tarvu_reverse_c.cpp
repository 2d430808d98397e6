// Turns the order of the slices along one axis round.
#include <cstring>

#include "frame/tarvu_util.h"
#include "simd/rearrange.h"

namespace tarvu {
namespace {

constexpr int kWidthAxis = 3;

/// One round along the axis: slices of `in_step` bytes, the last one of the source first.
template <class Element>
void reverse_slices(const _NN_REVERSE_PARM &parm, const uint8_t *last_slice, uint8_t *to, uint32_t slices,
                    uint32_t in_step, uint32_t out_step) {
  for (uint32_t i = 0; i < slices; ++i) {
    std::memcpy(to, last_slice, in_step);
    last_slice -= in_step;
    tarvu_convert_fmt_c(to, to, in_step / sizeof(Element), &parm.in_fmt, &parm.out_fmt, &parm.in_scale,
                        &parm.out_scale);
    to += out_step;
  }
}

/// What all rounds share.
struct Rounds {
  uint32_t count;
  size_t in_step;   // bytes from one round to the next
  size_t out_step;  // bytes
};

/// Every round is one line, moved in one sweep. Only for formats of equal width: elements of another width are re-formatted over
/// their neighbours, so their order counts.
template <class Element>
void reverse_lines(const _NN_REVERSE_PARM &parm, const uint8_t *first_element, uint8_t *to, uint32_t width,
                   Rounds rounds) {
  const bool reformats = parm.in_fmt.frac_bits != parm.out_fmt.frac_bits;
  for (; rounds.count != 0; --rounds.count, first_element += rounds.in_step, to += rounds.out_step) {
    copy_reversed<Element>(first_element, to, width);
    if (reformats) tarvu_convert_fmt_c(to, to, width, &parm.in_fmt, &parm.out_fmt, &parm.in_scale, &parm.out_scale);
  }
}

template <class Element>
_QX_RESULT reverse_axis(const _NN_REVERSE_PARM &parm) {
  const uint32_t extents[] = {parm.batch, parm.channel, parm.height, parm.width};
  const uint32_t in_steps[] = {parm.in_batch_ofs, parm.in_channel_ofs, parm.in_line_ofs, sizeof(Element)};
  const uint32_t out_steps[] = {parm.out_batch_ofs, parm.out_channel_ofs, parm.out_line_ofs, sizeof(Element)};
  const int axis = parm.axis;
  Rounds rounds{1, 1, 1};
  for (int outer = 0; outer < axis; ++outer) rounds.count *= extents[outer];
  const uint32_t slices = extents[axis];
  if (rounds.count == 0 || slices == 0) return QX_OK;
  const uint32_t in_step = in_steps[axis];
  const uint32_t out_step = out_steps[axis];
  if (axis != 0) {
    // Kept: the rounds advance by the axis next outside alone; axes further out are taken to lie back to back.
    rounds.in_step = in_steps[axis - 1];
    rounds.out_step = out_steps[axis - 1];
  }
  const auto *from = pointer<const uint8_t>(parm.in_addr);
  uint8_t *to = pointer(parm.out_addr);
  if (axis == kWidthAxis && width_bits(parm.in_fmt) == width_bits(parm.out_fmt)) {
    reverse_lines<Element>(parm, from, to, slices, rounds);
    return QX_OK;
  }
  const uint8_t *last_slice = from + slices * in_step - in_step;
  for (; rounds.count != 0; --rounds.count, last_slice += rounds.in_step, to += rounds.out_step) {
    reverse_slices<Element>(parm, last_slice, to, slices, in_step, out_step);
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
