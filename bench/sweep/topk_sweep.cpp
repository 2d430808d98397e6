#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

Case topk(const Type &type, int8_t axis, uint32_t k, const Shape &shape, bool sorted = true) {
  const uint32_t extents[4] = {shape.batch, shape.channels, shape.height, shape.width};
  const uint32_t length = extents[axis];
  Case what;
  what.kind = "k " + std::to_string(k) + " along axis " + std::to_string(axis) + ", " + type.name +
              (sorted ? "" : ", not sorted");
  what.shape = name_of(shape);
  what.extent = length;
  what.unit = "input";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) {
    uint32_t out[4] = {shape.batch, shape.channels, shape.height, shape.width};
    out[axis] = k;
    const size_t picks = size_t{out[0]} * out[1] * out[2] * out[3];
    _NN_TOPK_PARM parm{};
    parm.in_addr = address(random_bytes(arena, shape.elements() * type.bytes()));
    parm.out_addr = address(zero_bytes(arena, picks * type.bytes()));
    parm.out_index_addr = address(zero_bytes(arena, picks * 2));
    parm.work_buffer = address(zero_bytes(arena, 4 * size_t{length}));
    parm.out_line_ofs = out[3] * type.bytes();
    parm.out_channel_ofs = out[2] * parm.out_line_ofs;
    parm.out_batch_ofs = out[1] * parm.out_channel_ofs;
    parm.out_index_line_ofs = out[3] * 2;
    parm.out_index_channel_ofs = out[2] * parm.out_index_line_ofs;
    parm.out_index_batch_ofs = out[1] * parm.out_index_channel_ofs;
    parm.in_fmt = format(type, 4);
    parm.width = u16(shape.width);
    parm.height = u16(shape.height);
    parm.channel = u16(shape.channels);
    parm.batch = u16(shape.batch);
    parm.axis = axis;
    parm.largest = 1;
    parm.sorted = sorted ? 1 : 0;
    parm.k = k;
    return call_of(tarvu_topk_process, parm);
  };
  return what;
}

/// The largest of every line: columns side by side, and rows.
void add_largest(Cases &cases) {
  for (const Type &type : {kS8, kU8, kS16, kU16}) {
    for (const uint32_t length : {2u, 3u, 4u, 7u, 10u, 14u, 20u, 21u, 28u, 56u, 100u}) {
      for (const Shape &shape :
           {Shape{1, length, 28, 28}, Shape{1, length, 7, 7}, Shape{2, length, 14, 14}, Shape{1, length, 1, 1000}}) {
        Case what = topk(type, 1, 1, shape);
        // Indices and values are stored for each column.
        what.extra = 1.0 * static_cast<double>(shape.batch * shape.plane());
        what.figure = type.bits == 8 ? 0.7 : 1.4;
        if (length == 10 || length == 21) what.limit = 1;
        what.why = "columns in lanes, and one instruction for each column's two stores";
        if (shape.plane() < 64) {
          what.figure *= 64.0 / static_cast<double>(shape.plane());
          what.why += "; planes of 49 take what 64 take";
        }
        add(cases, std::move(what));
      }
      for (const uint32_t lines : {256u, 16u}) {
        Case what = topk(type, 3, 1, {1, 1, lines, length});
        what.figure = length < 8 ? 12 : length < 32 ? 9 : 4;
        what.why = "a plain loop over short lines";
        add(cases, std::move(what));
      }
    }
    Case wide = topk(type, 3, 1, {1, 1, 8, 1000});
    wide.figure = 2;
    wide.why = "as k 5 of the workloads";
    add(cases, std::move(wide));
  }
}

void add_more(Cases &cases) {
  for (const Type &type : {kS16, kS8}) {
    for (const uint32_t k : {2u, 5u}) {
      for (const uint32_t length : {10u, 21u, 100u, 1000u}) {
        for (const bool sorted : {true, false}) {
          const uint32_t lines = std::max(8u, 2000 / length);
          Case what = topk(type, 3, k, {1, 1, lines, length}, sorted);
          what.extra = 25.0 * k * lines;
          what.figure = length <= 21 ? 9 : length <= 100 ? 4 : 2;
          what.why = "a plain loop over the line, and 25 instructions for each pick";
          add(cases, std::move(what));
        }
      }
    }
    for (const uint32_t length : {4u, 10u, 21u, 100u}) {
      Case what = topk(type, 3, length, {1, 1, 64, length}, false);
      what.figure = 4;
      what.why = "lines as they are, and indices that count up";
      add(cases, std::move(what));
    }
    for (const int8_t axis : {int8_t{0}, int8_t{2}}) {
      Case what = topk(type, axis, 1, axis == 0 ? Shape{8, 4, 14, 14} : Shape{2, 4, 21, 56});
      what.extra = static_cast<double>(axis == 0 ? 4 * 14 * 14 : 2 * 4 * 56);
      what.figure = type.bits == 8 ? 0.7 : 1.4;
      what.why = "columns in lanes, and one instruction for each column's two stores";
      add(cases, std::move(what));
    }
    const auto rows = [&](const Shape &shape, uint32_t k) {
      Case what = topk(type, 3, k, shape);
      what.figure = shape.width < 32 ? 9 : 4;
      what.extra = k == 1 ? 0 : 25.0 * k * shape.channels * shape.height;
      what.why = "a plain loop over the line, and 25 instructions for each of several picks";
      return what;
    };
    const auto columns = [&](const Shape &shape) {
      Case what = topk(type, 1, 1, shape);
      what.figure = type.bits == 8 ? 0.7 : 1.4;
      what.extra = static_cast<double>(shape.batch * shape.plane());
      what.why = "columns in lanes, and one instruction for each column's two stores";
      return what;
    };
    add_doublings(cases, [&](const Shape &shape) { return rows(shape, 1); }, {1, 4, 16, 20});
    add_doublings(cases, [&](const Shape &shape) { return rows(shape, 5); }, {1, 1, 16, 100});
    add_doublings(cases, columns, {2, 10, 14, 14});
  }
}

}  // namespace

void add_topk_cases(Cases &cases) {
  add_largest(cases);
  add_more(cases);
}

}  // namespace sweep
