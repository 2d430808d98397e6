#include "tests/reference/tarvu_onehot_c_reference.h"

#include <cstdio>
#include <cstring>

#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_convert_fmt_reference.h"
#include "tests/reference/tarvu_format_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {

_QX_RESULT tarvu_onehot_process(const _NN_ONEHOT_PARM *parm) {
  const NN_AI_IO_TYPE out_type = reference::tarvu_get_fmt_type(&parm->out_fmt);
  if (out_type < NN_AI_IO_TYPE_INT8 || out_type > NN_AI_IO_TYPE_UINT16) {
    std::printf("not supported output type = %d\n", static_cast<int>(out_type));
    return QX_ERR_UNSUPPORTED;
  }
  const uint32_t element_bytes = out_type <= NN_AI_IO_TYPE_UINT8 ? 1 : 2;

  uint8_t pair[4] = {0, 0, 0, 0};
  reference::tarvu_convert_fmt_c(reinterpret_cast<const void *>(parm->values_addr), pair, 2, &parm->values_fmt,
                                 &parm->out_fmt, &parm->values_scale, &parm->out_scale);
  const uint8_t *off_value = pair;
  const uint8_t *on_value = pair + element_bytes;

  uint32_t height_step = 0;
  uint32_t channel_step = 0;
  uint32_t batch_step = 0;
  uint32_t depth_step = 0;
  switch (parm->axis) {
    case 0:
      height_step = element_bytes;
      channel_step = parm->out_line_ofs;
      batch_step = parm->out_channel_ofs;
      depth_step = parm->out_batch_ofs;
      break;
    case 1:
      height_step = element_bytes;
      channel_step = parm->out_line_ofs;
      batch_step = parm->out_batch_ofs;
      depth_step = parm->out_channel_ofs;
      break;
    case 2:
      height_step = element_bytes;
      channel_step = parm->out_channel_ofs;
      batch_step = parm->out_batch_ofs;
      depth_step = parm->out_line_ofs;
      break;
    case 3:
      height_step = parm->out_line_ofs;
      channel_step = parm->out_channel_ofs;
      batch_step = parm->out_batch_ofs;
      depth_step = element_bytes;
      break;
    default:
      std::printf("not supported axis = %d\n", parm->axis);
      return QX_ERR_UNSUPPORTED;
  }
  if (parm->batch == 0 || parm->channel == 0 || parm->height == 0) return QX_OK;

  float f = 0.0f;
  for (uint32_t b = 0; b < parm->batch; ++b) {
    for (uint32_t c = 0; c < parm->channel; ++c) {
      for (uint32_t h = 0; h < parm->height; ++h) {
        const uint64_t source = parm->in_addr + b * parm->in_batch_ofs + uint64_t{c * parm->in_channel_ofs} +
                                uint64_t{h * parm->in_line_ofs};
        const uint64_t destination =
            parm->out_addr + b * batch_step + uint64_t{c * channel_step} + uint64_t{h * height_step};
        reference::tarvu_fixtofloat_neon(reinterpret_cast<const void *>(source), &f, 1, &parm->in_fmt, &parm->in_scale);
        if (f < 0.0f) f = f + static_cast<float>(parm->depth);
        const int32_t selected = float_to_s32(f);
        for (int32_t d = 0; d < parm->depth; ++d) {
          const uint32_t distance = static_cast<uint32_t>(d) * depth_step;
          std::memcpy(reinterpret_cast<void *>(destination + distance), d == selected ? on_value : off_value,
                      element_bytes);
        }
      }
    }
  }
  return QX_OK;
}

}  // namespace reference
