#include "tarvu_eltwise_reference.h"

#include <cstdint>
#include <cstdio>

#include "processor_rules.h"
#include "tarvu_format_reference.h"
#include "tarvu_util_reference.h"

namespace reference {
namespace {

float at(uint64_t line, uint32_t index) {
  return load<float>(reinterpret_cast<const void *>(line + 4 * uint64_t{index}));
}

void put(uint64_t line, uint32_t index, float value) {
  store<float>(reinterpret_cast<void *>(line + 4 * uint64_t{index}), value);
}

using Operation = _QX_RESULT (*)(const _NN_ELTWISE_PARM *parm, uint64_t a, uint64_t b, uint64_t o, uint32_t a_line,
                                 uint32_t b_line, uint32_t o_line);

_QX_RESULT product(const _NN_ELTWISE_PARM *parm, uint64_t a, uint64_t b, uint64_t o, uint32_t a_line, uint32_t b_line,
                   uint32_t o_line) {
  for (uint32_t h = 0; h < parm->height; ++h) {
    for (uint32_t i = 0; i < parm->width; ++i) put(o, i, at(a, i) * at(b, i));
    a += a_line;
    b += b_line;
    o += o_line;
  }
  return QX_OK;
}

_QX_RESULT sum(const _NN_ELTWISE_PARM *parm, uint64_t a, uint64_t b, uint64_t o, uint32_t a_line, uint32_t b_line,
               uint32_t o_line) {
  for (uint32_t h = 0; h < parm->height; ++h) {
    for (uint32_t i = 0; i < parm->width; ++i) {
      const float first = parm->coeff0 * at(a, i);
      const float second = parm->coeff1 * at(b, i);
      put(o, i, first + second);
    }
    a += a_line;
    b += b_line;
    o += o_line;
  }
  return QX_OK;
}

/// One tensor: where its planes lie in memory, and where its float plane lies.
struct Tensor {
  uint64_t address;
  uint32_t line_bytes;
  uint32_t channel_bytes;
  uint32_t batch_bytes;
  bool is_float;
  uint64_t scratch;

  uint64_t plane(uint32_t b, uint32_t c) const {
    return address + uint64_t{b} * batch_bytes + uint64_t{c} * channel_bytes;
  }
  uint64_t float_plane(uint32_t b, uint32_t c) const { return is_float ? plane(b, c) : scratch; }
  uint32_t float_line(uint32_t width) const { return is_float ? line_bytes : width * 4; }
};

}  // namespace

_QX_RESULT tarvu_eltwise_process(const _NN_ELTWISE_PARM *parm) {
  const uint32_t count = uint32_t{parm->width} * parm->height;
  uint64_t cursor = parm->work_buffer;
  const auto take = [&] {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(reference::tarvu_getbuffrom(&cursor, 4 * count)));
  };
  const auto is_float = [](const _NN_FMT &fmt) { return reference::tarvu_get_fmt_type(&fmt) == NN_AI_IO_TYPE_32BIT; };
  const Tensor in0 = {parm->in0_addr,      parm->in0_line_ofs,      parm->in0_channel_ofs,
                      parm->in0_batch_ofs, is_float(parm->in0_fmt), take()};
  const Tensor in1 = {parm->in1_addr,      parm->in1_line_ofs,      parm->in1_channel_ofs,
                      parm->in1_batch_ofs, is_float(parm->in1_fmt), take()};
  const Tensor out = {parm->out_addr,      parm->out_line_ofs,      parm->out_channel_ofs,
                      parm->out_batch_ofs, is_float(parm->out_fmt), take()};

  Operation operation = sum;
  if (parm->op == 0) {
    operation = product;
  } else if (parm->op != 1) {
    std::printf("\033[1;31mERR:%s() Eltwise layer: unsupported operation %d!\n\033[0m", "tarvu_eltwise_process",
                parm->op);
  }

  _QX_RESULT result = QX_OK;
  for (uint32_t b = 0; b < parm->batch; ++b) {
    for (uint32_t c = 0; c < parm->channel; ++c) {
      reference::tarvu_fixtofloat_neon(reinterpret_cast<const void *>(in0.plane(b, c)),
                                       reinterpret_cast<float *>(in0.float_plane(b, c)), count, &parm->in0_fmt,
                                       &parm->in0_scale);
      reference::tarvu_fixtofloat_neon(reinterpret_cast<const void *>(in1.plane(b, c)),
                                       reinterpret_cast<float *>(in1.float_plane(b, c)), count, &parm->in1_fmt,
                                       &parm->in1_scale);
      result = operation(parm, in0.float_plane(b, c), in1.float_plane(b, c), out.float_plane(b, c),
                         in0.float_line(parm->width), in1.float_line(parm->width), out.float_line(parm->width));
      reference::tarvu_floattofix_neon(reinterpret_cast<const float *>(out.float_plane(b, c)),
                                       reinterpret_cast<void *>(out.plane(b, c)), count, &parm->out_fmt,
                                       &parm->out_scale);
    }
  }
  return result;
}

}  // namespace reference
