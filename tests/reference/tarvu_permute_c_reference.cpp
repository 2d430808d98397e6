#include "tests/reference/tarvu_permute_c_reference.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_convert_fmt_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

/// One run of `count` elements: a line of the line path, one element of the general path. Equal records are copied,
/// but not onto themselves; other records are re-formatted.
void move_run(const _NN_PERMUTE_PARM *parm, uint64_t source, uint64_t destination, uint32_t count) {
  const void *in = reinterpret_cast<const void *>(source);
  void *out = reinterpret_cast<void *>(destination);
  if (std::memcmp(&parm->in_fmt, &parm->out_fmt, 4) == 0) {
    if (in == out) return;
    const int32_t sum =
        int32_t{parm->in_fmt.frac_bits} + int32_t{parm->in_fmt.int_bits} + int32_t{parm->in_fmt.sign_bits};
    const int32_t element_bytes = shift_right_32(sum, 3);
    std::memmove(out, in, static_cast<size_t>(element_bytes) * count);
  } else {
    reference::tarvu_convert_fmt_c(in, out, count, &parm->in_fmt, &parm->out_fmt, &parm->in_scale, &parm->out_scale);
  }
}

_QX_RESULT permute_lines(const _NN_PERMUTE_PARM *parm) {
  const uint32_t extent[3] = {parm->batch, parm->channel, parm->height};
  const uint32_t in_step[3] = {parm->in_batch_ofs, parm->in_channel_ofs, parm->in_line_ofs};
  const uint32_t n0 = extent[parm->order[0]];
  const uint32_t n1 = extent[parm->order[1]];
  const uint32_t n2 = extent[parm->order[2]];
  const uint32_t s0 = in_step[parm->order[0]];
  const uint32_t s1 = in_step[parm->order[1]];
  const uint32_t s2 = in_step[parm->order[2]];
  if (n0 == 0 || n1 == 0 || n2 == 0) return QX_OK;

  uint64_t source_0 = parm->in_addr;
  uint64_t destination_0 = parm->out_addr;
  for (uint32_t i0 = 0; i0 < n0; ++i0) {
    uint64_t source_1 = source_0;
    uint64_t destination_1 = destination_0;
    for (uint32_t i1 = 0; i1 < n1; ++i1) {
      uint64_t source_2 = source_1;
      uint64_t destination_2 = destination_1;
      for (uint32_t i2 = 0; i2 < n2; ++i2) {
        move_run(parm, source_2, destination_2, parm->width);
        source_2 += s2;
        destination_2 += parm->out_line_ofs;
      }
      source_1 += s1;
      destination_1 += parm->out_channel_ofs;
    }
    source_0 += s0;
    destination_0 += parm->out_batch_ofs;
  }
  return QX_OK;
}

_QX_RESULT permute_elements(const _NN_PERMUTE_PARM *parm, uint32_t in_element_bytes, uint32_t out_element_bytes) {
  const uint32_t extent[4] = {parm->batch, parm->channel, parm->height, parm->width};
  const uint32_t in_step[4] = {parm->in_batch_ofs, parm->in_channel_ofs, parm->in_line_ofs, in_element_bytes};
  uint32_t n[4];
  uint32_t s[4];
  for (int32_t i = 0; i < 4; ++i) {
    n[i] = extent[parm->order[i]];
    s[i] = in_step[parm->order[i]];
  }
  if (n[0] == 0 || n[1] == 0 || n[2] == 0 || n[3] == 0) return QX_OK;

  for (uint32_t i0 = 0; i0 < n[0]; ++i0) {
    for (uint32_t i1 = 0; i1 < n[1]; ++i1) {
      for (uint32_t i2 = 0; i2 < n[2]; ++i2) {
        uint64_t source = parm->in_addr + uint64_t{i0} * s[0] + uint64_t{i1} * s[1] + uint64_t{i2} * s[2];
        uint64_t destination = parm->out_addr + uint64_t{i0} * parm->out_batch_ofs +
                               uint64_t{i1} * parm->out_channel_ofs + uint64_t{i2} * parm->out_line_ofs;
        for (uint32_t i3 = 0; i3 < n[3]; ++i3) {
          move_run(parm, source, destination, 1);
          source += s[3];
          destination += out_element_bytes;
        }
      }
    }
  }
  return QX_OK;
}

}  // namespace

_QX_RESULT tarvu_permute_process(const _NN_PERMUTE_PARM *parm) {
  const NN_AI_IO_TYPE in_type = reference::tarvu_get_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE out_type = reference::tarvu_get_fmt_type(&parm->out_fmt);
  if (parm->order[3] == 3) return permute_lines(parm);

  uint32_t in_element_bytes = 0;
  if (in_type == NN_AI_IO_TYPE_INT8 || in_type == NN_AI_IO_TYPE_UINT8) {
    in_element_bytes = 1;
  } else if (in_type == NN_AI_IO_TYPE_INT16 || in_type == NN_AI_IO_TYPE_UINT16) {
    in_element_bytes = 2;
  } else {
    std::printf("\033[1;31mERR:%s() unsupported input type %d\r\n\033[0m", "tarvu_permute_process",
                static_cast<int>(in_type));
    return QX_ERR_UNSUPPORTED;
  }
  uint32_t out_element_bytes = 0;
  if (out_type == NN_AI_IO_TYPE_INT8 || out_type == NN_AI_IO_TYPE_UINT8) {
    out_element_bytes = 1;
  } else if (out_type == NN_AI_IO_TYPE_INT16 || out_type == NN_AI_IO_TYPE_UINT16) {
    out_element_bytes = 2;
  } else {
    std::printf("\033[1;31mERR:%s() unsupported output type %d\r\n\033[0m", "tarvu_permute_process",
                static_cast<int>(out_type));
    return QX_ERR_UNSUPPORTED;
  }
  return permute_elements(parm, in_element_bytes, out_element_bytes);
}

}  // namespace reference
