// Turns the order of the slices along one axis round.
#include <cstring>

#include "frame/tarvu_util.h"
#include "simd/rearrange.h"

namespace tarvu {
namespace {

constexpr int kWidthAxis = 3;

/// One round along the axis: slices of `in_step` bytes, the last one of the source first.
template <class Element>
void reverse_slices(const _NN_REVERSE_PARM &parm, const uint8_t *last_slice, uint8_t *to, uint32_t slices, uint32_t in_step,
                    uint32_t out_step) {
  for (uint32_t i = 0; i < slices; ++i) {
    std::memcpy(to, last_slice, in_step);
    last_slice -= in_step;
    tarvu_convert_fmt_c(to, to, in_step / sizeof(Element), &parm.in_fmt, &parm.out_fmt, &parm.in_scale, &parm.out_scale);
    to += out_step;
  }
}

/// One line, element by element in one sweep. Only for formats of equal width: elements of another width are re-formatted
/// over their neighbours, so their order counts.
template <class Element>
void reverse_line(const _NN_REVERSE_PARM &parm, const uint8_t *last_element, uint8_t *to, uint32_t count) {
  copy_reversed<Element>(last_element - (count - 1) * sizeof(Element), to, count);
  tarvu_convert_fmt_c(to, to, count, &parm.in_fmt, &parm.out_fmt, &parm.in_scale, &parm.out_scale);
}

template <class Element>
_QX_RESULT reverse_axis(const _NN_REVERSE_PARM &parm) {
  const uint32_t extents[] = {parm.batch, parm.channel, parm.height, parm.width};
  const uint32_t in_steps[] = {parm.in_batch_ofs, parm.in_channel_ofs, parm.in_line_ofs, sizeof(Element)};
  const uint32_t out_steps[] = {parm.out_batch_ofs, parm.out_channel_ofs, parm.out_line_ofs, sizeof(Element)};
  const int axis = parm.axis;
  uint32_t rounds = 1;
  for (int outer = 0; outer < axis; ++outer) rounds *= extents[outer];
  const uint32_t slices = extents[axis];
  if (rounds == 0 || slices == 0) return QX_OK;
  const uint32_t in_step = in_steps[axis];
  const uint32_t out_step = out_steps[axis];
  // Kept: the rounds advance by the axis next outside alone; axes further out are taken to lie back to back.
  const uint32_t in_round_step = axis == 0 ? 1 : in_steps[axis - 1];
  const uint32_t out_round_step = axis == 0 ? 1 : out_steps[axis - 1];
  const bool whole_lines = axis == kWidthAxis && width_bits(parm.in_fmt) == width_bits(parm.out_fmt);
  const uint8_t *last_slice = pointer<const uint8_t>(parm.in_addr) + slices * in_step - in_step;
  uint8_t *to = pointer(parm.out_addr);
  for (; rounds != 0; --rounds, last_slice += in_round_step, to += out_round_step) {
    if (whole_lines) {
      reverse_line<Element>(parm, last_slice, to, slices);
    } else {
      reverse_slices<Element>(parm, last_slice, to, slices, in_step, out_step);
    }
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
