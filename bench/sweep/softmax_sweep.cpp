#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

struct Types {
  Type in;
  Type out;
};

template <class Block>
Block block_of(Arena &arena, const Types &types, int8_t axis, const Shape &shape) {
  const size_t elements = shape.elements();
  Block parm{};
  parm.in_addr = address(random_elements(arena, elements, types.in.bits));
  parm.out_addr = address(zero_bytes(arena, elements * types.out.bytes()));
  parm.work_buffer = address(zero_bytes(arena, 8 * shape.item()));
  parm.width = u16(shape.width);
  parm.height = u16(shape.height);
  parm.channel = u16(shape.channels);
  parm.batch = u16(shape.batch);
  parm.in_batch_ofs = u32(shape.item() * types.in.bytes());
  parm.out_batch_ofs = u32(shape.item() * types.out.bytes());
  parm.in_fmt = format(types.in, types.in.bits == 32 ? 0 : types.in.bits == 16 ? 11 : 4);
  parm.out_fmt = format(types.out, types.out.bits == 32 ? 0 : static_cast<int>(types.out.bits - types.out.sign_bits));
  parm.in_scale = scale(31, 5);
  parm.out_scale = scale(125, 7);
  parm.axis = axis;
  return parm;
}

Case softmax(const Types &types, int8_t axis, const Shape &shape, bool zero_points = false) {
  const uint32_t lengths[4] = {0, shape.channels, shape.height, shape.width};
  Case what;
  what.kind = "axis " + std::to_string(axis) + ", " + types.in.name + " to " + types.out.name +
              (zero_points ? ", zero points" : "");
  what.shape = name_of(shape);
  what.extent = axis < 0 ? u32(shape.item()) : lengths[axis];
  what.unit = "input";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) {
    if (!zero_points) return call_of(tarvu_softmax_process, block_of<_NN_SOFTMAX_PARM>(arena, types, axis, shape));
    auto parm = block_of<_NN_SOFTMAX_ASYM_PARM>(arena, types, axis, shape);
    parm.in_zero_point = parm.out_zero_point = 3;
    return call_of(tarvu_softmax_asym_process, parm);
  };
  return what;
}

constexpr Types kTypes[] = {{kS8, kS8}, {kU8, kU8}, {kS16, kS16}, {kS8, kF32}, {kS16, kF32}, {kF32, kF32}, {kF32, kS8}};

/// Columns of many channels, the form that every other axis is held against, since groups side by side need no order.
Case columns(const Types &types, uint32_t length, bool zero_points = false) {
  return softmax(types, 1, {1, length, 1, std::max(64u, 8192 / length / 64 * 64)}, zero_points);
}

void add_axes(Cases &cases, const Types &types, bool zero_points) {
  const Case wide = columns(types, 21, zero_points);
  add(cases, wide);
  const auto against_columns = [&](Case what, size_t groups) {
    what.neighbour = wide.name();
    // Of short groups, the reciprocal and what begins and ends a group is the larger part.
    what.extra = 5.0 * static_cast<double>(groups);
    what.why = "groups as columns side by side, and 5 instructions for each group";
    return what;
  };
  for (const uint32_t length : {1u, 2u, 3u, 4u, 7u, 10u, 14u, 20u, 28u, 49u, 100u, 1000u}) {
    Case what = columns(types, length, zero_points);
    add(cases, against_columns(what, static_cast<size_t>(what.units) / length));
  }
  for (const uint32_t length : {1u, 2u, 3u, 4u, 7u, 10u, 13u, 14u, 20u, 21u, 24u, 28u, 49u, 56u, 100u, 224u, 1000u}) {
    const uint32_t rows = std::clamp(4096 / length, 4u, 512u);
    add(cases, against_columns(softmax(types, 3, {1, 1, rows, length}, zero_points), rows));
  }
}

void add_shapes(Cases &cases, const Types &types) {
  const std::string wide = columns(types, 21).name();
  const auto held = [&](Case what, size_t groups) {
    what.neighbour = wide;
    what.extra = 5.0 * static_cast<double>(groups);
    what.why = "groups as columns side by side, and 5 instructions for each group";
    add(cases, std::move(what));
  };
  for (const uint32_t width : {1u, 2u, 4u, 7u, 10u, 14u, 28u, 56u}) {
    held(softmax(types, 2, {1, 16, 21, width}), 16 * size_t{width});
    held(softmax(types, 1, {1, 100, 1, width}), width);
  }
  held(softmax(types, 1, {1, 1000, 7, 7}), 49);
  held(softmax(types, 1, {2, 21, 14, 14}), 392);
  for (const uint32_t length : {10u, 21u, 100u}) {
    // Items of one group each, as a classifier's batch has them: 50 instructions for each.
    held(softmax(types, 3, {64, 1, 1, length}), 64 * 10);
    held(softmax(types, -1, {8, 1, 1, length}), 8 * 10);
  }
  for (const int8_t axis : {int8_t{1}, int8_t{2}, int8_t{3}}) {
    const auto make = [&](const Shape &shape) {
      Case what = softmax(types, axis, shape);
      what.neighbour = wide;
      what.extra = 5.0 * what.units / what.extent;
      what.why = "groups as columns side by side, and 5 instructions for each group";
      return what;
    };
    add_doublings(cases, make,
                  axis == 2   ? Shape{2, 4, 14, 14}
                  : axis == 1 ? Shape{2, 21, 14, 14}
                              : Shape{2, 4, 14, 21});
  }
}

}  // namespace

void add_softmax_cases(Cases &cases) {
  for (const Types &types : kTypes) {
    add_axes(cases, types, false);
    if (types.in.bits == 8 || types.in.bits == 32) add_shapes(cases, types);
  }
  add_axes(cases, {kS8, kS8}, true);
  add_axes(cases, {kU8, kU8}, true);
}

}  // namespace sweep
