#include "tests/reference/tarvu_gatherelement_c_reference.h"

#include <cstdio>
#include <cstring>

#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_convert_fmt_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

int32_t width_bits(const _NN_FMT &fmt) {
  return static_cast<int8_t>(static_cast<uint8_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits));
}

int32_t index_at(uint64_t address, NN_AI_IO_TYPE type) {
  const void *index = reinterpret_cast<const void *>(address);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return load<int8_t>(index);
    case NN_AI_IO_TYPE_UINT8:
      return load<uint8_t>(index);
    case NN_AI_IO_TYPE_INT16:
      return load<int16_t>(index);
    case NN_AI_IO_TYPE_UINT16:
      return load<uint16_t>(index);
    default:
      return load<int32_t>(index);
  }
}

/// Dimensions are numbered from the fastest here: 0 width, 1 height, 2 channel, 3 batch.
_QX_RESULT gather(const _NN_GATHERELEMENT_PARM *parm, uint32_t element_bytes, NN_AI_IO_TYPE index_type, int32_t rank) {
  const int32_t axis = parm->axis;
  if (axis >= rank) return QX_OK;
  const int32_t axis_dimension = rank - 1 - axis;
  const uint32_t index_bytes = index_type <= NN_AI_IO_TYPE_UINT8 ? 1 : index_type <= NN_AI_IO_TYPE_UINT16 ? 2 : 4;
  uint32_t extent[4] = {parm->out_width, parm->out_height, parm->out_channel, parm->out_batch};
  const uint32_t in_step[4] = {element_bytes, parm->in_line_ofs, parm->in_channel_ofs, parm->in_batch_ofs};
  const uint32_t index_step[4] = {index_bytes, parm->ind_line_ofs, parm->ind_channel_ofs, parm->ind_batch_ofs};
  uint32_t total = 1;
  for (int32_t i = 0; i < rank; ++i) {
    if (extent[i] == 0) return QX_OK;
    total *= extent[i];
  }
  for (int32_t i = rank; i < 4; ++i) extent[i] = 1;

  const int32_t in_width = width_bits(parm->in_fmt);
  const int32_t out_width = width_bits(parm->out_fmt);
  const uint32_t out_element_bytes = out_width == 8 ? 1 : out_width == 16 ? 2 : element_bytes;
  const bool plain_copy = in_width == out_width && parm->in_fmt.frac_bits == parm->out_fmt.frac_bits;

  uint64_t slice_base = 0;
  uint64_t destination = parm->out_addr;
  uint32_t at[4];
  for (at[3] = 0; at[3] < extent[3]; ++at[3]) {
    for (at[2] = 0; at[2] < extent[2]; ++at[2]) {
      for (at[1] = 0; at[1] < extent[1]; ++at[1]) {
        for (at[0] = 0; at[0] < extent[0]; ++at[0]) {
          uint64_t index_address = parm->ind_addr;
          for (int32_t i = 0; i < rank; ++i) index_address += at[i] * index_step[i];
          const int32_t v = index_at(index_address, index_type);

          uint64_t slower = parm->in_addr;  // input offsets of the coordinates slower than the axis
          for (int32_t i = axis_dimension + 1; i < rank; ++i) slower += at[i] * in_step[i];

          // Axes that have a start value of their own get it where a coordinate slower than the axis has just advanced.
          bool at_start = true;
          for (int32_t i = 0; i <= axis_dimension; ++i) at_start = at_start && at[i] == 0;
          if (rank >= 3 && axis >= 1 && at_start) slice_base = slower;

          if (v >= 0) {
            slice_base = slower + static_cast<uint32_t>(v) * in_step[axis_dimension];
          } else if (v < -1) {
            const uint32_t magnitude = 0u - static_cast<uint32_t>(v);
            slice_base = slower + (total - magnitude) * in_step[axis_dimension];
          }
          uint64_t source = slice_base;
          for (int32_t i = 0; i < axis_dimension; ++i) source += at[i] * in_step[i];

          if (plain_copy) {
            std::memcpy(reinterpret_cast<void *>(destination), reinterpret_cast<const void *>(source), element_bytes);
          } else {
            void *staging = reinterpret_cast<void *>(parm->work_buffer);
            std::memcpy(staging, reinterpret_cast<const void *>(source), element_bytes);
            reference::tarvu_convert_fmt_c(staging, reinterpret_cast<void *>(destination), 1, &parm->in_fmt,
                                           &parm->out_fmt, &parm->in_scale, &parm->out_scale);
          }
          destination += out_element_bytes;
        }
      }
    }
  }
  return QX_OK;
}

}  // namespace

_QX_RESULT tarvu_gatherelement_process(const _NN_GATHERELEMENT_PARM *parm) {
  const NN_AI_IO_TYPE in_type = reference::tarvu_get_gatherelement_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE index_type = reference::tarvu_get_gatherelement_fmt_type(&parm->ind_fmt);
  if (in_type < NN_AI_IO_TYPE_INT8 || in_type > NN_AI_IO_TYPE_UINT16) {
    std::printf("\033[1;31mERR:%s() unsupported gatherelement input type %d\r\n\033[0m", "tarvu_gatherelement_process",
                static_cast<int>(in_type));
    return QX_ERR_UNSUPPORTED;
  }
  if (index_type < NN_AI_IO_TYPE_INT8 || index_type > NN_AI_IO_TYPE_UINT32) {
    std::printf("\033[1;31mERR:%s() unsupported ind type %d\r\n\033[0m", "tarvu_gatherelement_process",
                static_cast<int>(index_type));
    return QX_ERR_UNSUPPORTED;
  }
  const uint32_t element_bytes = in_type <= NN_AI_IO_TYPE_UINT8 ? 1 : 2;
  if (parm->in_batch != 0) return gather(parm, element_bytes, index_type, 4);
  if (parm->in_channel != 0) return gather(parm, element_bytes, index_type, 3);
  if (parm->in_height != 0) return gather(parm, element_bytes, index_type, 2);
  return QX_OK;
}

}  // namespace reference
