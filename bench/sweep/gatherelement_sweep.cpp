#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

struct Formats {
  const char *name;
  Type in;
  int in_frac_bits;
  Type out;
  int out_frac_bits;
};

constexpr Formats kSame8 = {"8 bits", kS8, 4, kS8, 4};
constexpr Formats kSame16 = {"16 bits", kS16, 4, kS16, 4};
constexpr Formats kShifted8 = {"s8 to s8, shifted", kS8, 3, kS8, 5};

/// A tensor of rank 2 (one plane) or 3, whose indices have its extents.
Case elements(const Formats &formats, const Type &index_type, uint8_t axis, const Shape &shape) {
  const bool has_planes = shape.channels > 1;
  const uint32_t extents[3] = {shape.channels, shape.height, shape.width};
  const uint32_t bound = extents[axis + (has_planes ? 0 : 1)];
  Case what;
  what.kind =
      "axis " + std::to_string(axis) + " of " + (has_planes ? "3, " : "2, ") + formats.name + " by " + index_type.name;
  what.shape = name_of(shape);
  what.extent = shape.width;
  what.unit = "output";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) {
    _NN_GATHERELEMENT_PARM parm{};
    parm.in_addr = address(random_bytes(arena, shape.elements() * formats.in.bytes()));
    parm.out_addr = address(zero_bytes(arena, shape.elements() * formats.out.bytes()));
    parm.ind_addr = address(
        random_indices(arena, shape.elements(), index_type.bits, std::min(bound, index_type.bits == 8 ? 127u : bound)));
    parm.work_buffer = address(zero_bytes(arena, 16));
    parm.in_width = parm.out_width = u16(shape.width);
    parm.in_height = parm.out_height = u16(shape.height);
    parm.in_channel = parm.out_channel = u16(has_planes ? shape.channels : 0);
    parm.in_line_ofs = shape.width * formats.in.bytes();
    parm.in_channel_ofs = shape.height * parm.in_line_ofs;
    parm.ind_line_ofs = shape.width * index_type.bytes();
    parm.ind_channel_ofs = shape.height * parm.ind_line_ofs;
    parm.in_fmt = format(formats.in, formats.in_frac_bits);
    parm.out_fmt = format(formats.out, formats.out_frac_bits);
    parm.ind_fmt = format(index_type, 0);
    parm.axis = axis;
    return call_of(tarvu_gatherelement_process, parm);
  };
  return what;
}

}  // namespace

void add_gatherelement_cases(Cases &cases) {
  for (const Formats &formats : {kSame8, kSame16, kShifted8}) {
    for (const Type &index_type : {kS16, kS8, kS32}) {
      for (const uint8_t axis : {uint8_t{0}, uint8_t{1}}) {
        const Case wide = elements(formats, index_type, axis, {1, 1, 8, 1000});
        add(cases, wide);
        for (const uint32_t width : kExtents) {
          if (width == 1000 || (index_type.bits != 16 && width != 4 && width != 28 && width != 100)) continue;
          const uint32_t height = std::clamp(4096 / width, 16u, 256u);
          Case what = elements(formats, index_type, axis, {1, 1, height, width});
          if (width < 8) {
            what.figure = 9;
            what.extra = 10.0 * height;
            what.why = "a plain loop, and 10 instructions for each line";
          } else {
            what.neighbour = wide.name();
            what.extra = 30.0 * height;
            what.why = "and 30 instructions for each line";
          }
          add(cases, std::move(what));
        }
      }
    }
    for (const uint8_t axis : {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {
      for (const uint32_t width : {4u, 7u, 14u, 56u}) {
        Case what = elements(formats, kS16, axis, {1, 8, 14, width});
        what.figure = 9;
        what.extra = 10.0 * 8 * 14;
        what.why = "a plain loop, and 10 instructions for each line";
        add(cases, std::move(what));
      }
      add_doublings(cases,
                    [&](const Shape &shape) {
                      Case what = elements(formats, kS16, axis, shape);
                      what.figure = 9;
                      what.extra = 10.0 * shape.channels * shape.height;
                      what.why = "a plain loop, and 10 instructions for each line";
                      return what;
                    },
                    {1, 4, 14, 28});
    }
  }
}

}  // namespace sweep
