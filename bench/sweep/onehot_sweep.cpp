#include <algorithm>
#include <cstring>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

/// Indices of `shape` (width 1); the new axis takes its place in the output.
Case one_hot(const Type &type, int32_t axis, uint32_t depth, const Shape &shape) {
  const size_t indices = shape.elements();
  Case what;
  what.kind = "axis " + std::to_string(axis) + ", " + type.name;
  what.shape = name_of(shape) + " of " + std::to_string(depth);
  what.extent = depth;
  what.unit = "output";
  what.units = static_cast<double>(indices * depth);
  what.extra = 12.0 * static_cast<double>(indices);
  what.figure = type.bits == 8 ? 0.1 : 0.2;
  what.why = "a fill, and 12 instructions for each one that is set";
  what.make = [=](Arena &arena) {
    uint32_t out[4];
    const uint32_t rest[3] = {shape.batch, shape.channels, shape.height};
    for (int32_t i = 0, next = 0; i < 4; ++i) out[i] = i == axis ? depth : rest[next++];
    _NN_ONEHOT_PARM parm{};
    parm.in_addr = address(random_indices(arena, indices, 16, depth));
    parm.out_addr = address(zero_bytes(arena, indices * depth * type.bytes()));
    parm.values_addr = address(random_bytes(arena, 4));
    parm.height = u16(shape.height);
    parm.channel = u16(shape.channels);
    parm.batch = u16(shape.batch);
    parm.in_line_ofs = 2;
    parm.in_channel_ofs = 2 * shape.height;
    parm.in_batch_ofs = shape.channels * parm.in_channel_ofs;
    parm.out_line_ofs = out[3] * type.bytes();
    parm.out_channel_ofs = out[2] * parm.out_line_ofs;
    parm.out_batch_ofs = out[1] * parm.out_channel_ofs;
    parm.in_fmt = format(kS16, 0);
    parm.out_fmt = parm.values_fmt = format(type, 4);
    parm.in_scale = scale(1, 0);
    parm.axis = axis;
    parm.depth = static_cast<int32_t>(depth);
    return call_of(tarvu_onehot_process, parm);
  };
  return what;
}

}  // namespace

void add_onehot_cases(Cases &cases) {
  for (const Type &type : {kS8, kS16}) {
    for (const int32_t axis : {0, 1, 2, 3}) {
      for (const uint32_t depth : {1u, 2u, 4u, 7u, 10u, 21u, 56u, 100u, 1000u}) {
        const uint32_t indices = std::clamp(8192 / depth, 16u, 512u);
        add(cases, one_hot(type, axis, depth, {1, 1, indices, 1}));
        add(cases, one_hot(type, axis, depth, {2, 4, indices / 8, 1}));
      }
      add_doublings(cases, [&](const Shape &shape) { return one_hot(type, axis, 21, shape); }, {2, 4, 14, 1});
    }
  }
}

}  // namespace sweep
