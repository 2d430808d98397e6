#include "tests/reference/tarvu_softmax_reference.h"

#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "tests/reference/bit_depth_trans_reference.h"
#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

constexpr float kMaximumSeed = -10000000.0f;
constexpr float kLeastDifference = -87.0f;
constexpr float kLog2OfE = 1.442695f;
constexpr float kExponentOffset = 126.934906f;
static_assert(std::bit_cast<uint32_t>(kMaximumSeed) == 0xCB189680);
static_assert(std::bit_cast<uint32_t>(kLeastDifference) == 0xC2AE0000);
static_assert(std::bit_cast<uint32_t>(kLog2OfE) == 0x3FB8AA3B);
static_assert(std::bit_cast<uint32_t>(kExponentOffset) == 0x42FDDEAC);

/// As the processor's vector maximum: NaN if either is.
float larger(float a, float b) {
  if (a != a) return a;
  if (b != b) return b;
  return a > b ? a : b;
}

/// A group of `count` floats, the first at index `first`, the others `step` floats apart.
struct Group {
  size_t first;
  size_t step;
  uint32_t count;

  size_t at(size_t i) const { return first + i * step; }
};

/// Everything but the sum: maximum, differences and exponentials.
void exponentials(const float *in, float *out, const Group &group) {
  float m = kMaximumSeed;
  for (uint32_t i = 0; i < group.count; ++i) m = larger(m, load<float>(in + group.at(i)));
  for (uint32_t i = 0; i < group.count; ++i) {
    const float d = load<float>(in + group.at(i)) - m;
    store<float>(out + group.at(i), d);
  }
  for (uint32_t i = 0; i < group.count; ++i) {
    const float d = larger(load<float>(out + group.at(i)), kLeastDifference);
    store<float>(out + group.at(i), reference::fast_exp(d));
  }
}

void normalise(float *out, const Group &group, float sum) {
  const float r = 1.0f / sum;
  for (uint32_t i = 0; i < group.count; ++i) store<float>(out + group.at(i), load<float>(out + group.at(i)) * r);
}

void column(const float *in, float *out, const Group &group) {
  exponentials(in, out, group);
  float sum = 0.0f;
  for (uint32_t i = 0; i < group.count; ++i) sum += load<float>(out + group.at(i));
  normalise(out, group, sum);
}

void row(const float *in, float *out, size_t first, uint32_t length) {
  const Group group = {first, 1, length};
  exponentials(in, out, group);
  const float *e = out + first;
  float lanes[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  uint32_t i = 0;
  for (; i < (length & ~15u); i += 16) {
    for (uint32_t follower = 0; follower < 4; ++follower) {
      for (uint32_t k = 0; k < 4; ++k) lanes[k] += load<float>(e + i + 4 * k + follower);
    }
  }
  for (; i < (length & ~3u); i += 4) {
    for (uint32_t k = 0; k < 4; ++k) lanes[k] += load<float>(e + i + k);
  }
  float sum = lanes[0] + 0.0f;
  sum += lanes[1];
  sum += lanes[2];
  sum += lanes[3];
  for (; i < length; ++i) sum += load<float>(e + i);
  normalise(out, group, sum);
}

template <class T>
T *pointer(uint64_t address) {
  return reinterpret_cast<T *>(address);
}

int32_t width_in_bits(const _NN_FMT &format) { return format.frac_bits + format.int_bits + format.sign_bits; }

bool goes_through_scratch(const _NN_FMT &out_fmt) {
  return width_in_bits(out_fmt) == 8 || width_in_bits(out_fmt) == 16;
}

void convert_in(const _NN_SOFTMAX_PARM *parm, const void *in, float *floats, uint32_t count) {
  const _NN_FMT &format = parm->in_fmt;
  const float scale = scale_as_float(parm->in_scale);
  const int32_t in_total = width_in_bits(format);
  if (format.sign_bits == 0 && in_total == 16) {
    reference::uint16tofloat_neon(static_cast<const uint16_t *>(in), floats, format.frac_bits, count, scale);
  } else if (format.sign_bits == 0 && in_total == 8) {
    reference::uint8tofloat_neon(static_cast<const uint8_t *>(in), floats, format.frac_bits, count, scale);
  } else if (format.sign_bits == 1 && in_total == 16) {
    reference::int16tofloat_neon(static_cast<const int16_t *>(in), floats, format.frac_bits, count, scale);
  } else if (format.sign_bits == 1 && in_total == 8) {
    reference::int8tofloat_neon(static_cast<const int8_t *>(in), floats, format.frac_bits, count, scale);
  } else if (format.sign_bits == 1 && in_total == 32) {
    std::memcpy(static_cast<void *>(floats), pointer<const void>(parm->in_addr), uint32_t{4} * count);
  }
}

void convert_out(const _NN_SOFTMAX_PARM *parm, const float *floats, void *out, uint32_t count) {
  const _NN_FMT &format = parm->out_fmt;
  const float scale = scale_as_float(parm->out_scale);
  const int32_t out_total = width_in_bits(format);
  if (format.sign_bits == 0 && out_total == 16) {
    reference::floattouint16_neon(floats, static_cast<uint16_t *>(out), format.frac_bits, count, scale);
  } else if (format.sign_bits == 0 && out_total == 8) {
    reference::floattouint8_neon(floats, static_cast<uint8_t *>(out), format.frac_bits, count, scale);
  } else if (format.sign_bits == 1 && out_total == 16) {
    reference::floattoint16_neon(floats, static_cast<int16_t *>(out), format.frac_bits, count, scale);
  } else if (format.sign_bits == 1 && out_total == 8) {
    reference::floattoint8_neon(floats, static_cast<int8_t *>(out), format.frac_bits, count, scale);
  }
}

}  // namespace

float scale_as_float(const _NN_SCALE &scale) {
  const float value = static_cast<float>(scale.scale_value);
  if (scale.scale_shift < 0) return static_cast<float>(shift_left_32(1, -scale.scale_shift)) * value;
  return value / static_cast<float>(shift_left_32(1, scale.scale_shift));
}

float fast_exp(float x) {
  float t = x * kLog2OfE;
  t = t + kExponentOffset;
  const uint32_t u = float_to_u32(static_cast<double>(t) * 8388608.0);
  return std::bit_cast<float>(u);
}

void softmax_of_channel_columns(const float *in, float *out, const _NN_SOFTMAX_PARM *parm) {
  const uint32_t total = uint32_t{parm->channel} * parm->height * parm->width;
  const uint32_t columns = divide_u32(total, parm->channel);
  const uint32_t step = uint32_t{parm->width} * parm->height;
  for (uint32_t i = 0; i < columns; ++i) column(in, out, {i, step, parm->channel});
}

void tarvu_softmax_axis2_4vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm) {
  const uint32_t plane = uint32_t{parm->width} * parm->height;
  for (uint32_t c = 0; c < parm->channel; ++c) {
    for (uint32_t w = 0; w < parm->width; ++w) column(in, out, {size_t{c} * plane + w, parm->width, parm->height});
  }
}

void tarvu_softmax_axis3_4vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm) {
  const uint32_t length = parm->axis == 2 ? parm->height : parm->width;
  const uint32_t rows = uint32_t{parm->channel} * (parm->axis == 2 ? parm->width : parm->height);
  for (uint32_t i = 0; i < rows; ++i) row(in, out, size_t{i} * length, length);
}

void tarvu_softmax_axisn_1dim_vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm) {
  row(in, out, 0, uint32_t{parm->width} * parm->height * parm->channel);
}

_QX_RESULT tarvu_softmax_process_one_batch(const _NN_SOFTMAX_PARM *parm, const void *in, void *out) {
  const uint32_t count = uint32_t{parm->width} * parm->height * parm->channel;
  uint64_t cursor = parm->work_buffer;
  float *floats = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * count));
  float *result = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * count));
  convert_in(parm, in, floats, count);
  if (!goes_through_scratch(parm->out_fmt)) result = static_cast<float *>(out);

  const int32_t height_width = multiply_32(parm->height, parm->width);
  const int32_t channel_width = multiply_32(parm->channel, parm->width);
  const int32_t channel_height = multiply_32(parm->channel, parm->height);
  if (parm->axis == 1) {
    if (height_width > 1) {
      reference::softmax_of_channel_columns(floats, result, parm);
    } else {
      reference::tarvu_softmax_axisn_1dim_vec(floats, result, parm);
    }
  } else if (parm->axis == 2) {
    if (channel_width <= 1) {
      reference::tarvu_softmax_axisn_1dim_vec(floats, result, parm);
    } else if (parm->width == 1) {
      reference::tarvu_softmax_axis3_4vec(floats, result, parm);
    } else {
      reference::tarvu_softmax_axis2_4vec(floats, result, parm);
    }
  } else if (parm->axis == 3) {
    if (channel_height > 1) {
      reference::tarvu_softmax_axis3_4vec(floats, result, parm);
    } else {
      reference::tarvu_softmax_axisn_1dim_vec(floats, result, parm);
    }
  } else if (parm->axis < 0) {
    reference::tarvu_softmax_axisn_1dim_vec(floats, result, parm);
  } else {
    std::printf(
        "\033[1;31mERR:%s() Softmax cpu Layer is not support axis = 0 or axis > 3, please convert dimensions.\r\n"
        "\033[0m",
        "tarvu_softmax_process_one_batch");
    return QX_ERR_UNSUPPORTED;
  }
  convert_out(parm, result, out, count);
  return QX_OK;
}

_QX_RESULT tarvu_softmax_process(const _NN_SOFTMAX_PARM *parm) {
  _QX_RESULT result = QX_OK;
  for (uint32_t b = 0; b < parm->batch; ++b) {
    const uint32_t in_offset = b * parm->in_batch_ofs;
    const uint32_t out_offset = b * parm->out_batch_ofs;
    result = reference::tarvu_softmax_process_one_batch(parm, pointer<const void>(parm->in_addr + in_offset),
                                                        pointer<void>(parm->out_addr + out_offset));
  }
  return result;
}

_QX_RESULT tarvu_softmax_process_0(const _NN_SOFTMAX_PARM *parm) {
  const uint32_t item = uint32_t{parm->channel} * parm->height * parm->width;
  const uint32_t count = parm->batch * item;
  uint64_t cursor = parm->work_buffer;
  float *floats = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * count));
  float *result = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 4 * count));
  void *out = pointer<void>(parm->out_addr);
  convert_in(parm, pointer<const void>(parm->in_addr), floats, count);
  if (!goes_through_scratch(parm->out_fmt)) result = static_cast<float *>(out);
  if (parm->axis == 1 && multiply_32(parm->height, parm->width) > 1) {
    reference::softmax_of_channel_columns(floats, result, parm);
  } else {
    uint32_t length = 1;
    if (parm->axis == 0) length = parm->batch;
    if (parm->axis == 1) length = parm->channel;
    if (parm->axis == 2) length = parm->height;
    if (parm->axis == 3) length = parm->width;
    const uint32_t groups = divide_u32(item, length);
    for (uint32_t i = 0; i < groups; ++i) row(floats, result, size_t{i} * length, length);
  }
  convert_out(parm, result, out, count);
  return QX_OK;
}

int32_t dataTransform_u16tofloat(const int16_t *in, float *out, int8_t shift, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    const float value = static_cast<float>(load<int16_t>(in + i));
    if (shift < 0) {
      store<float>(out + i, value * static_cast<float>(shift_left_32(1, -shift)));
    } else {
      store<float>(out + i, value / static_cast<float>(shift_left_32(1, shift)));
    }
  }
  return 0;
}

int32_t write_file(const char *path, const float *values, int32_t count) {
  std::FILE *file = std::fopen(path, "w");
  if (file == nullptr) return -1;
  for (int32_t i = 0; i < count; ++i) std::fprintf(file, "%.8f\n", static_cast<double>(load<float>(values + i)));
  std::fclose(file);
  return 0;
}

}  // namespace reference
