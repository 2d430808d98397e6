#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

struct Kind {
  int32_t op;
  Type first;
  Type second;
  Type out;
};

enum class Planes { kDense, kApart, kPaddedLines };

/// Scales that are no powers of two. Planes that are apart have 16 bytes between them; padded lines, of floats, 64
/// bytes.
Case eltwise(const Kind &kind, const Shape &shape, Planes planes) {
  Case what;
  what.kind = std::string(kind.op == 0 ? "product " : "sum ") + kind.first.name + " " + kind.second.name + " to " +
              kind.out.name;
  what.shape = name_of(shape) + (planes == Planes::kApart ? " apart" : planes == Planes::kPaddedLines ? " padded" : "");
  what.extent = u32(shape.plane());
  what.unit = "output";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) {
    const size_t line_gap = planes == Planes::kPaddedLines ? 64 : 0;
    const size_t gap = planes == Planes::kApart ? 16 : line_gap * shape.height;
    const auto channel_ofs = [&](const Type &type) { return u32(shape.plane() * type.bytes() + gap); };
    const auto tensor = [&](const Type &type) {
      return address(random_elements(arena, (shape.elements() * 4 + gap * shape.channels * shape.batch) / type.bytes(),
                                     type.bits));
    };
    _NN_ELTWISE_PARM parm{};
    parm.in0_addr = tensor(kind.first);
    parm.in1_addr = tensor(kind.second);
    parm.out_addr = tensor(kind.out);
    parm.work_buffer = address(zero_bytes(arena, 12 * shape.plane()));
    parm.width = u16(shape.width);
    parm.height = u16(shape.height);
    parm.channel = u16(shape.channels);
    parm.batch = u16(shape.batch);
    parm.in0_line_ofs = u32(shape.width * kind.first.bytes() + line_gap);
    parm.in1_line_ofs = u32(shape.width * kind.second.bytes() + line_gap);
    parm.out_line_ofs = u32(shape.width * kind.out.bytes() + line_gap);
    parm.in0_channel_ofs = channel_ofs(kind.first);
    parm.in1_channel_ofs = channel_ofs(kind.second);
    parm.out_channel_ofs = channel_ofs(kind.out);
    parm.in0_batch_ofs = shape.channels * parm.in0_channel_ofs;
    parm.in1_batch_ofs = shape.channels * parm.in1_channel_ofs;
    parm.out_batch_ofs = shape.channels * parm.out_channel_ofs;
    parm.in0_fmt = format(kind.first, kind.first.bits == 32 ? 0 : 4);
    parm.in1_fmt = format(kind.second, kind.second.bits == 32 ? 0 : 6);
    parm.out_fmt = format(kind.out, kind.out.bits == 32 ? 0 : 3);
    parm.in0_scale = scale(253, 8);
    parm.in1_scale = scale(249, 8);
    parm.out_scale = scale(131, 7);
    parm.op = kind.op;
    parm.coeff0 = parm.coeff1 = 1.0f;
    return call_of(tarvu_eltwise_process, parm);
  };
  return what;
}

Shape planes_of(uint32_t height, uint32_t width) {
  return {1, std::clamp(8192 / (height * width), 1u, 512u), height, width};
}

}  // namespace

void add_eltwise_cases(Cases &cases) {
  for (const Kind &kind :
       {Kind{1, kS8, kS8, kS8}, Kind{0, kS8, kS8, kS8}, Kind{1, kU8, kU8, kU8}, Kind{1, kS16, kS16, kS16},
        Kind{0, kS16, kS16, kS16}, Kind{1, kS8, kS16, kS8}, Kind{1, kF32, kF32, kF32}, Kind{0, kF32, kF32, kF32},
        Kind{1, kS8, kF32, kS8}, Kind{0, kS8, kS8, kF32}, Kind{1, kF32, kF32, kU8}}) {
    const Case wide = eltwise(kind, {1, 1, 64, 128}, Planes::kDense);
    add(cases, wide);
    const auto make = [&](const Shape &shape, Planes planes) {
      Case what = eltwise(kind, shape, planes);
      what.neighbour = wide.name();
      return what;
    };
    for (const uint32_t side : {1u, 2u, 3u, 4u, 7u, 10u, 14u, 20u, 28u, 56u}) {
      add(cases, make(planes_of(side, side), Planes::kDense));
    }
    for (const uint32_t side : {7u, 14u, 28u}) {
      Case what = make(planes_of(side, side), Planes::kApart);
      what.extra = 40.0 * planes_of(side, side).channels;
      what.why = "and 40 instructions for each plane, which stands alone";
      add(cases, std::move(what));
    }
    if (kind.first.bits == 32 && kind.second.bits == 32 && kind.out.bits == 32) {
      for (const uint32_t side : {7u, 14u, 28u, 56u}) {
        Case what = make(planes_of(side, side), Planes::kPaddedLines);
        what.extra = 8.0 * planes_of(side, side).channels * side;
        what.why = "and 8 instructions for each line, which stands alone";
        add(cases, std::move(what));
      }
    }
    add(cases, make({512, 1, 1, 10}, Planes::kDense));
    add(cases, make({8, 16, 7, 7}, Planes::kDense));
    add(cases, make({2, 1, 1, 1000}, Planes::kDense));
    add_doublings(cases, [&](const Shape &shape) { return make(shape, Planes::kDense); }, {2, 8, 14, 14});
  }
}

}  // namespace sweep
