#include "tests/reference/tarvu_reverse_c_reference.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tests/reference/tarvu_convert_fmt_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

_QX_RESULT reverse(const _NN_REVERSE_PARM *parm, uint32_t element_bytes) {
  const uint32_t extent[4] = {parm->batch, parm->channel, parm->height, parm->width};
  const uint32_t in_step[4] = {parm->in_batch_ofs, parm->in_channel_ofs, parm->in_line_ofs, element_bytes};
  const uint32_t out_step[4] = {parm->out_batch_ofs, parm->out_channel_ofs, parm->out_line_ofs, element_bytes};
  const int32_t axis = parm->axis;

  uint32_t rounds = 1;
  for (int32_t i = 0; i < axis; ++i) rounds *= extent[i];
  const uint32_t n = extent[axis];
  const uint32_t s = in_step[axis];
  const uint32_t t = out_step[axis];
  const uint32_t in_outer_step = axis == 0 ? 1 : in_step[axis - 1];
  const uint32_t out_outer_step = axis == 0 ? 1 : out_step[axis - 1];
  const uint32_t slices_bytes = n * s;
  uint64_t last_slice = parm->in_addr + slices_bytes - s;
  uint64_t out_start = parm->out_addr;
  if (rounds == 0 || n == 0) return QX_OK;

  for (uint32_t round = 0; round < rounds; ++round) {
    uint64_t source = last_slice;
    uint64_t destination = out_start;
    for (uint32_t i = 0; i < n; ++i) {
      void *slice = reinterpret_cast<void *>(destination);
      std::memcpy(slice, reinterpret_cast<const void *>(source), s);
      source -= s;
      reference::tarvu_convert_fmt_c(slice, slice, element_bytes == 1 ? s : s >> 1, &parm->in_fmt, &parm->out_fmt,
                                     &parm->in_scale, &parm->out_scale);
      destination += t;
    }
    last_slice += in_outer_step;
    out_start += out_outer_step;
  }
  return QX_OK;
}

}  // namespace

_QX_RESULT tarvu_reverse_process(const _NN_REVERSE_PARM *parm) {
  const NN_AI_IO_TYPE type = reference::tarvu_get_fmt_type(&parm->in_fmt);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
    case NN_AI_IO_TYPE_UINT8:
      return reverse(parm, 1);
    case NN_AI_IO_TYPE_INT16:
    case NN_AI_IO_TYPE_UINT16:
      return reverse(parm, 2);
    default:
      std::printf("\033[1;31mERR:%s() unsupported input type %d\r\n\033[0m", "tarvu_reverse_process",
                  static_cast<int>(type));
      return QX_ERR_UNSUPPORTED;
  }
}

}  // namespace reference
