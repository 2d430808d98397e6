#include "tests/reference/tarvu_softmax_asym_reference.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_softmax_reference.h"
#include "tests/reference/tarvu_type_convert_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

/// What the axis kernels read of a block.
_NN_SOFTMAX_PARM shape_of(const _NN_SOFTMAX_ASYM_PARM *parm) {
  _NN_SOFTMAX_PARM shape{};
  shape.width = parm->width;
  shape.height = parm->height;
  shape.channel = parm->channel;
  shape.axis = parm->axis;
  return shape;
}

int32_t width_in_bits(const _NN_FMT &format) { return format.frac_bits + format.int_bits + format.sign_bits; }

void convert_in(const _NN_SOFTMAX_ASYM_PARM *parm, const void *in, float *floats, uint32_t count) {
  const _NN_FMT &format = parm->in_fmt;
  const float scale = scale_as_float(parm->in_scale);
  const int32_t in_total = width_in_bits(format);
  if (format.sign_bits == 0 && in_total == 16) {
    reference::uint16tofloat_1d_neon(static_cast<const uint16_t *>(in), floats, count, format.frac_bits,
                                     parm->in_zero_point, scale);
  } else if (format.sign_bits == 0 && in_total == 8) {
    reference::uint8tofloat_1d_neon(static_cast<const uint8_t *>(in), floats, count, format.frac_bits,
                                    parm->in_zero_point, scale);
  } else if (format.sign_bits == 1 && in_total == 16) {
    reference::int16tofloat_1d_neon(static_cast<const int16_t *>(in), floats, count, format.frac_bits,
                                    parm->in_zero_point, scale);
  } else if (format.sign_bits == 1 && in_total == 8) {
    reference::int8tofloat_1d_neon(static_cast<const int8_t *>(in), floats, count, format.frac_bits,
                                   parm->in_zero_point, scale);
  } else if (format.sign_bits == 1 && in_total == 32) {
    std::memcpy(static_cast<void *>(floats), reinterpret_cast<const void *>(parm->in_addr), uint32_t{4} * count);
  }
}

void convert_out(const _NN_SOFTMAX_ASYM_PARM *parm, const float *floats, void *out, uint32_t count) {
  const _NN_FMT &format = parm->out_fmt;
  const float scale = scale_as_float(parm->out_scale);
  const int32_t out_total = width_in_bits(format);
  if (format.sign_bits == 0 && out_total == 16) {
    reference::floattouint16_1d_neon(floats, static_cast<uint16_t *>(out), count, format.frac_bits,
                                     parm->out_zero_point, scale);
  } else if (format.sign_bits == 0 && out_total == 8) {
    reference::floattouint8_1d_neon(floats, static_cast<uint8_t *>(out), count, format.frac_bits, parm->out_zero_point,
                                    scale);
  } else if (format.sign_bits == 1 && out_total == 16) {
    reference::floattoint16_1d_neon(floats, static_cast<int16_t *>(out), count, format.frac_bits, parm->out_zero_point,
                                    scale);
  } else if (format.sign_bits == 1 && out_total == 8) {
    // Kept: the signed 8-bit output takes the input's zero point.
    reference::floattoint8_1d_neon(floats, static_cast<int8_t *>(out), count, format.frac_bits, parm->in_zero_point,
                                   scale);
  }
}

}  // namespace

void tarvu_softmax_asym_axis2_4vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm) {
  const _NN_SOFTMAX_PARM shape = shape_of(parm);
  reference::tarvu_softmax_axis2_4vec(in, out, &shape);
}

void tarvu_softmax_asym_axis3_4vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm) {
  const _NN_SOFTMAX_PARM shape = shape_of(parm);
  reference::tarvu_softmax_axis3_4vec(in, out, &shape);
}

void tarvu_softmax_asym_axisn_1dim_vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm) {
  const _NN_SOFTMAX_PARM shape = shape_of(parm);
  reference::tarvu_softmax_axisn_1dim_vec(in, out, &shape);
}

_QX_RESULT tarvu_softmax_asym_process_one_batch(const _NN_SOFTMAX_ASYM_PARM *parm, const void *in, void *out) {
  const uint32_t count = uint32_t{parm->width} * parm->height * parm->channel;
  uint64_t cursor = parm->work_buffer;
  float *floats = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * count));
  float *result = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * count));
  convert_in(parm, in, floats, count);
  const int32_t out_total = width_in_bits(parm->out_fmt);
  if (out_total != 8 && out_total != 16) result = static_cast<float *>(out);

  const int32_t height_width = multiply_32(parm->height, parm->width);
  const int32_t channel_width = multiply_32(parm->channel, parm->width);
  const int32_t channel_height = multiply_32(parm->channel, parm->height);
  if (parm->axis == 1) {
    if (height_width > 1) {
      const _NN_SOFTMAX_PARM shape = shape_of(parm);
      reference::softmax_of_channel_columns(floats, result, &shape);
    } else {
      reference::tarvu_softmax_asym_axisn_1dim_vec(floats, result, parm);
    }
  } else if (parm->axis == 2) {
    if (channel_width <= 1) {
      reference::tarvu_softmax_asym_axisn_1dim_vec(floats, result, parm);
    } else if (parm->width == 1) {
      reference::tarvu_softmax_asym_axis3_4vec(floats, result, parm);
    } else {
      reference::tarvu_softmax_asym_axis2_4vec(floats, result, parm);
    }
  } else if (parm->axis == 3) {
    if (channel_height > 1) {
      reference::tarvu_softmax_asym_axis3_4vec(floats, result, parm);
    } else {
      reference::tarvu_softmax_asym_axisn_1dim_vec(floats, result, parm);
    }
  } else if (parm->axis < 0) {
    reference::tarvu_softmax_asym_axisn_1dim_vec(floats, result, parm);
  } else {
    std::printf(
        "\033[1;31mERR:%s() Softmax cpu Layer is not support axis = 0 or axis > 3, please convert dimensions.\r\n"
        "\033[0m",
        "tarvu_softmax_asym_process_one_batch");
    return QX_ERR_UNSUPPORTED;
  }
  convert_out(parm, result, out, count);
  return QX_OK;
}

_QX_RESULT tarvu_softmax_asym_process(const _NN_SOFTMAX_ASYM_PARM *parm) {
  _QX_RESULT result = QX_OK;
  for (uint32_t b = 0; b < parm->batch; ++b) {
    const uint32_t in_offset = b * parm->in_batch_ofs;
    const uint32_t out_offset = b * parm->out_batch_ofs;
    const void *in = reinterpret_cast<const void *>(parm->in_addr + in_offset);
    void *out = reinterpret_cast<void *>(parm->out_addr + out_offset);
    result = reference::tarvu_softmax_asym_process_one_batch(parm, in, out);
  }
  return result;
}

}  // namespace reference
