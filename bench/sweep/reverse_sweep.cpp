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
constexpr Formats kShifted16 = {"s16 to s16, shifted", kS16, 3, kS16, 5};

enum class Lines { kDense, kPadded };

/// Padded lines are apart by the next multiple of 64 bytes, at least one byte more; the padding moves with what lies
/// within a slice.
Case reverse(const Formats &formats, int8_t axis, const Shape &shape, Lines lines = Lines::kDense) {
  const size_t line = shape.width * formats.in.bytes();
  const size_t line_ofs = lines == Lines::kPadded ? round_up(line + 1, 64) : line;
  const size_t all_bytes = size_t{shape.batch} * shape.channels * shape.height * line_ofs;
  Case what;
  what.kind = "axis " + std::to_string(axis) + ", " + formats.name;
  what.shape = name_of(shape) + (lines == Lines::kPadded ? " padded" : "");
  what.extent = shape.width;
  what.unit = "element";
  what.units = axis == 3 ? static_cast<double>(shape.elements()) : static_cast<double>(all_bytes / formats.in.bytes());
  what.make = [=](Arena &arena) {
    _NN_REVERSE_PARM parm{};
    parm.in_addr = address(random_bytes(arena, all_bytes));
    parm.out_addr = address(zero_bytes(arena, all_bytes));
    parm.width = u16(shape.width);
    parm.height = u16(shape.height);
    parm.channel = u16(shape.channels);
    parm.batch = u16(shape.batch);
    parm.in_line_ofs = parm.out_line_ofs = u32(line_ofs);
    parm.in_channel_ofs = parm.out_channel_ofs = shape.height * parm.in_line_ofs;
    parm.in_batch_ofs = parm.out_batch_ofs = shape.channels * parm.in_channel_ofs;
    parm.in_fmt = format(formats.in, formats.in_frac_bits);
    parm.out_fmt = format(formats.out, formats.out_frac_bits);
    parm.axis = axis;
    return call_of(tarvu_reverse_process, parm);
  };
  return what;
}

}  // namespace

void add_reverse_cases(Cases &cases) {
  for (const Formats &formats : {kSame8, kSame16, kShifted8, kShifted16}) {
    for (const int8_t axis : {int8_t{0}, int8_t{1}, int8_t{2}, int8_t{3}}) {
      const auto make = [&](const Shape &shape) { return reverse(formats, axis, shape); };
      const Case wide = make({4, 8, 16, 112});
      add(cases, wide);
      for (const uint32_t width : kExtents) {
        if (width == 1000 || width == 21 || width == 49) continue;
        const uint32_t height = std::clamp(256 / width, 2u, 16u);
        const bool is_padded = width == 3 || width == 13 || width == 24;
        Case what = reverse(formats, axis, {4, 4, height, width}, is_padded ? Lines::kPadded : Lines::kDense);
        // The slices that change places hold a line, a plane or an item: each takes some instructions of its own.
        const double slices = axis == 3 ? 0 : axis == 2 ? 16.0 * height : axis == 1 ? 16.0 : 4.0;
        what.extra = std::min(10 * slices, 1.5 * what.units);
        what.why = "and 10 instructions for each slice, or 1.5 for each element";
        if (axis == 3) {
          what.extra = std::min(5.0 * 16 * height, 1.5 * what.units);
          what.why = "and 5 instructions for each line, or 1.5 for each element";
        }
        what.neighbour = wide.name();
        add(cases, std::move(what));
      }
      add_doublings(cases, make, {2, 8, 14, 14});
    }
  }
}

}  // namespace sweep
