#include "tests/reference/tarvu_gather_c_reference.h"

#include <cstddef>
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

/// Element i of the index tensor, as a signed 32-bit number.
int32_t index_at(uint64_t address, NN_AI_IO_TYPE type, uint32_t i) {
  const auto *indices = reinterpret_cast<const uint8_t *>(address);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return load<int8_t>(indices + i);
    case NN_AI_IO_TYPE_UINT8:
      return load<uint8_t>(indices + i);
    case NN_AI_IO_TYPE_INT16:
      return load<int16_t>(indices + uint64_t{2} * i);
    case NN_AI_IO_TYPE_UINT16:
      return load<uint16_t>(indices + uint64_t{2} * i);
    default:
      return load<int32_t>(indices + uint64_t{4} * i);
  }
}

uint32_t position_of(int32_t v, uint32_t index_count) {
  if (v >= 0) return static_cast<uint32_t>(v);
  if (v == -1) return 0;
  const uint32_t magnitude = 0u - static_cast<uint32_t>(v);
  return index_count - magnitude;
}

_QX_RESULT gather(const _NN_GATHER_PARM *parm, uint32_t element_bytes, NN_AI_IO_TYPE index_type, int32_t rank) {
  const uint32_t out_extent[4] = {parm->out_width, parm->out_height, parm->out_channel, parm->out_batch};
  const uint32_t in_step[4] = {0, parm->in_line_ofs, parm->in_channel_ofs, parm->in_batch_ofs};
  const uint32_t out_step[4] = {0, parm->out_line_ofs, parm->out_channel_ofs, parm->out_batch_ofs};
  const uint32_t index_extent[4] = {parm->ind_width, parm->ind_height, parm->ind_channel, parm->ind_batch};

  int32_t index_rank = 1;
  if (parm->ind_batch != 0) {
    index_rank = 4;
  } else if (parm->ind_channel != 0) {
    index_rank = 3;
  } else if (parm->ind_height != 0) {
    index_rank = 2;
  }
  if (rank == 2 && index_rank == 4) return QX_OK;
  if (rank == 3 && index_rank >= 3) return QX_OK;
  if (rank == 4) index_rank = 1;
  uint32_t index_count = 1;
  for (int32_t i = 0; i < index_rank; ++i) index_count *= index_extent[i];

  const int32_t axis = parm->axis;
  const int32_t out_rank = rank + index_rank - 1;
  const int32_t d = rank - 1 - axis;
  if (axis >= rank) return QX_OK;
  if (index_count == 0) return QX_OK;
  uint64_t outer_positions = 1;
  for (int32_t t = 0; t < axis; ++t) outer_positions *= out_extent[out_rank - 1 - t];
  if (outer_positions == 0) return QX_OK;

  const int32_t in_width = width_bits(parm->in_fmt);
  const int32_t out_width = width_bits(parm->out_fmt);
  uint32_t out_element_bytes = element_bytes;
  if (in_width != out_width) out_element_bytes = out_width == 8 ? 1 : out_width == 16 ? 2 : 0;
  const uint32_t run_bytes = d >= 1 ? in_step[d] : element_bytes;
  const uint32_t out_advance = d >= 1 ? out_step[d] : out_element_bytes;
  uint32_t count = 1;
  for (int32_t k = 0; k <= out_rank - 2 - axis; ++k) count *= out_extent[k];

  for (uint64_t outer = 0; outer < outer_positions; ++outer) {
    uint64_t in_start = parm->in_addr;
    uint64_t destination = parm->out_addr;
    uint64_t rest = outer;
    for (int32_t t = axis - 1; t >= 0; --t) {
      const uint64_t position = rest % out_extent[out_rank - 1 - t];
      rest /= out_extent[out_rank - 1 - t];
      in_start += position * in_step[rank - 1 - t];
      destination += position * out_step[out_rank - 1 - t];
    }
    for (uint32_t i = 0; i < index_count; ++i) {
      const uint32_t p = position_of(index_at(parm->ind_addr, index_type, i), index_count);
      const uint32_t distance = p * run_bytes;
      const void *source = reinterpret_cast<const void *>(in_start + distance);
      void *to = reinterpret_cast<void *>(destination);
      if (in_width != out_width) {
        void *staging = reinterpret_cast<void *>(parm->work_buffer);
        std::memcpy(staging, source, run_bytes);
        reference::tarvu_convert_fmt_c(staging, to, count, &parm->in_fmt, &parm->out_fmt, &parm->in_scale,
                                       &parm->out_scale);
      } else if (parm->in_fmt.frac_bits == parm->out_fmt.frac_bits) {
        std::memcpy(to, source, run_bytes);
      } else {
        std::memcpy(to, source, run_bytes);
        reference::tarvu_convert_fmt_c(to, to, count, &parm->in_fmt, &parm->out_fmt, &parm->in_scale, &parm->out_scale);
      }
      destination += out_advance;
    }
  }
  return QX_OK;
}

}  // namespace

_QX_RESULT tarvu_gather_process(const _NN_GATHER_PARM *parm) {
  const NN_AI_IO_TYPE in_type = reference::tarvu_get_gather_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE index_type = reference::tarvu_get_gather_fmt_type(&parm->ind_fmt);
  if (in_type < NN_AI_IO_TYPE_INT8 || in_type > NN_AI_IO_TYPE_UINT16) {
    std::printf("\033[1;31mERR:%s() unsupported gather input type %d\r\n\033[0m", "tarvu_gather_process",
                static_cast<int>(in_type));
    return QX_ERR_UNSUPPORTED;
  }
  if (index_type < NN_AI_IO_TYPE_INT8 || index_type > NN_AI_IO_TYPE_UINT32) {
    std::printf("\033[1;31mERR:%s() unsupported ind type %d\r\n\033[0m", "tarvu_gather_process",
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
