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
size_t line_offset(const Formats &formats, const Shape &shape, Lines lines) {
  const size_t line = shape.width * formats.in.bytes();
  return lines == Lines::kPadded ? round_up(line + 1, 64) : line;
}

size_t bytes_of(const Formats &formats, const Shape &shape, Lines lines) {
  return size_t{shape.batch} * shape.channels * shape.height * line_offset(formats, shape, lines);
}

_NN_REVERSE_PARM block(Arena &arena, const Formats &formats, int8_t axis, const Shape &shape, Lines lines) {
  const size_t all_bytes = bytes_of(formats, shape, lines);
  const size_t line_ofs = line_offset(formats, shape, lines);
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
  return parm;
}

Case reverse(const Formats &formats, int8_t axis, const Shape &shape, Lines lines = Lines::kDense) {
  const size_t all_bytes = bytes_of(formats, shape, lines);
  Case what;
  what.kind = "axis " + std::to_string(axis) + ", " + formats.name;
  what.shape = name_of(shape) + (lines == Lines::kPadded ? " padded" : "");
  what.extent = shape.width;
  what.unit = "element";
  what.units = axis == 3 ? static_cast<double>(shape.elements()) : static_cast<double>(all_bytes / formats.in.bytes());
  what.make = [=](Arena &arena) { return call_of(tarvu_reverse_process, block(arena, formats, axis, shape, lines)); };
  return what;
}

constexpr Shape kWide = {4, 8, 16, 112};

/// The same format, then the whole output from one to the other in place.
Maker two_passes(const Formats &formats, int8_t axis, const Shape &shape, Lines lines) {
  return [=](Arena &arena) -> Call {
    const Formats same = {"", formats.in, formats.in_frac_bits, formats.in, formats.in_frac_bits};
    const _NN_REVERSE_PARM parm = block(arena, same, axis, shape, lines);
    const _NN_FMT from = format(formats.in, formats.in_frac_bits);
    const _NN_FMT to = format(formats.out, formats.out_frac_bits);
    const auto count = u32(bytes_of(formats, shape, lines) / formats.in.bytes());
    return [=] {
      bench::expect_ok(tarvu_reverse_process(&parm));
      auto *out = reinterpret_cast<void *>(static_cast<uintptr_t>(parm.out_addr));
      tarvu_convert_fmt_c(out, out, count, &from, &to, nullptr, nullptr);
    };
  };
}

/// What a slice that changes places takes beside its elements: the wide case of the axis has none that are short.
Case held(const Formats &formats, int8_t axis, const Shape &shape, Lines lines) {
  Case what = reverse(formats, axis, shape, lines);
  if (formats.in_frac_bits != formats.out_frac_bits) {
    what.calls = two_passes(formats, axis, shape, lines);
    what.why = "turning the tensor round, then re-formatting it";
    return what;
  }
  const uint32_t extents[4] = {shape.batch, shape.channels, shape.height, shape.width};
  double slices = 1;
  for (int8_t i = 0; i < std::min(axis + 1, 3); ++i) slices *= extents[i];
  what.extra = std::min((axis == 3 ? 5 : 10) * slices, 1.5 * what.units);
  what.why = axis == 3 ? "and 5 instructions for each line, or 1.5 for each element"
                       : "and 10 instructions for each slice, or 1.5 for each element";
  what.neighbour = reverse(formats, axis, kWide).name();
  return what;
}

}  // namespace

void add_reverse_cases(Cases &cases) {
  for (const Formats &formats : {kSame8, kSame16, kShifted8, kShifted16}) {
    for (const int8_t axis : {int8_t{0}, int8_t{1}, int8_t{2}, int8_t{3}}) {
      if (formats.in_frac_bits == formats.out_frac_bits) add(cases, reverse(formats, axis, kWide));
      for (const uint32_t width : kExtents) {
        if (width == 1000 || width == 21 || width == 49) continue;
        const uint32_t height = std::clamp(256 / width, 2u, 16u);
        const bool is_padded = width == 3 || width == 13 || width == 24;
        add(cases, held(formats, axis, {4, 4, height, width}, is_padded ? Lines::kPadded : Lines::kDense));
      }
      const auto make = [&](const Shape &shape) { return held(formats, axis, shape, Lines::kDense); };
      add_doublings(cases, make, {2, 8, 14, 14});
    }
  }
}

}  // namespace sweep
