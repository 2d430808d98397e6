// Product or weighted sum of two tensors, element by element.
#include <cstdio>

#include "activation/eltwise_fused.h"

namespace tarvu {
namespace {

/// A float plane, and the bytes between its lines.
struct FloatPlane {
  float *first_line;
  uint32_t line_bytes;

  float *line(uint32_t y) const {
    return reinterpret_cast<float *>(reinterpret_cast<uint8_t *>(first_line) + size_t{y} * line_bytes);
  }
};

/// Where a tensor's planes stand as floats: in the tensor itself if it is a float one, else in one scratch plane.
class FloatPlanes {
 public:
  FloatPlanes(const EltwiseTensor &tensor, void *scratch, uint32_t width)
      : tensor_(tensor),
        in_place_(tarvu_get_fmt_type(&tensor.fmt) == NN_AI_IO_TYPE_32BIT),
        scratch_{static_cast<float *>(scratch), width * 4} {}

  FloatPlane at(uint32_t item, uint32_t channel) const {
    if (!in_place_) return scratch_;
    return {reinterpret_cast<float *>(tensor_.plane(item, channel)), tensor_.line_bytes};
  }

 private:
  const EltwiseTensor &tensor_;
  bool in_place_;
  FloatPlane scratch_;
};

template <class Operation>
void combine_plane(const FloatPlane &a, const FloatPlane &b, const FloatPlane &to, uint32_t width, uint32_t height,
                   Operation operation) {
  for (uint32_t y = 0; y < height; ++y) {
    const float *from_a = a.line(y);
    const float *from_b = b.line(y);
    float *to_line = to.line(y);
    TARVU_INDEPENDENT_ITERATIONS
    for (uint32_t x = 0; x < width; ++x)
      store(to_line + x, operation(load<float>(from_a + x), load<float>(from_b + x)));
  }
}

/// Plane by plane: both inputs to float, the operation, the result from float. The conversions themselves pass over float tensors
/// and formats that they do not know.
template <class Operation>
void combine_planes(const _NN_ELTWISE_PARM &parm, const EltwiseTensors &tensors, Operation operation) {
  const auto &[first, second, result] = tensors;
  const uint32_t count = uint32_t{parm.width} * parm.height;
  uint64_t cursor = parm.work_buffer;
  const auto float_planes = [&](const EltwiseTensor &tensor) {
    return FloatPlanes(tensor, tarvu_getbuffrom(&cursor, 4 * count), parm.width);
  };
  const FloatPlanes first_floats = float_planes(first);
  const FloatPlanes second_floats = float_planes(second);
  const FloatPlanes result_floats = float_planes(result);
  for (uint32_t item = 0; item < parm.batch; ++item) {
    for (uint32_t channel = 0; channel < parm.channel; ++channel) {
      const FloatPlane a = first_floats.at(item, channel);
      const FloatPlane b = second_floats.at(item, channel);
      const FloatPlane to = result_floats.at(item, channel);
      tarvu_fixtofloat_neon(first.plane(item, channel), a.first_line, count, &first.fmt, &first.scale);
      tarvu_fixtofloat_neon(second.plane(item, channel), b.first_line, count, &second.fmt, &second.scale);
      combine_plane(a, b, to, parm.width, parm.height, operation);
      tarvu_floattofix_neon(to.first_line, result.plane(item, channel), count, &result.fmt, &result.scale);
    }
  }
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_eltwise_process(const _NN_ELTWISE_PARM *parm) {
  using namespace tarvu;
  if (parm->op != kProduct && parm->op != kSum) {
    // Kept: a message only, with a line feed alone; the sum is what callers of other codes have always been given.
    std::printf("\033[1;31mERR:%s() Eltwise layer: unsupported operation %d!\n\033[0m", "tarvu_eltwise_process",
                parm->op);
  }
  const EltwiseTensors tensors = {{pointer(parm->in0_addr), parm->in0_line_ofs, parm->in0_channel_ofs,
                                   parm->in0_batch_ofs, parm->in0_fmt, parm->in0_scale},
                                  {pointer(parm->in1_addr), parm->in1_line_ofs, parm->in1_channel_ofs,
                                   parm->in1_batch_ofs, parm->in1_fmt, parm->in1_scale},
                                  {pointer(parm->out_addr), parm->out_line_ofs, parm->out_channel_ofs,
                                   parm->out_batch_ofs, parm->out_fmt, parm->out_scale}};
  if (sweep(*parm, tensors)) return QX_OK;
  if (parm->op == kProduct) {
    combine_planes(*parm, tensors, Multiply{});
  } else if (parm->coeff0 == 1.0f && parm->coeff1 == 1.0f) {
    combine_planes(*parm, tensors, Add{});
  } else {
    combine_planes(*parm, tensors, AddWeighted{parm->coeff0, parm->coeff1});
  }
  return QX_OK;
}
