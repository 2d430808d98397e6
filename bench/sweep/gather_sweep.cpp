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
constexpr Formats kNarrowed = {"s16 to s8", kS16, 8, kS8, 4};

/// Slices of a matrix of `rows` rows: whole rows along axis 0, elements of every row along axis 1.
Case matrix(const Formats &formats, uint8_t axis, uint32_t rows, uint32_t width, uint32_t index_rows, uint32_t indices,
            uint32_t index_bits) {
  const uint32_t list = indices * std::max(index_rows, 1u);
  const uint32_t extent = axis == 0 ? rows : width;
  const size_t outputs = axis == 0 ? size_t{list} * width : size_t{rows} * list;
  Case what;
  what.kind = std::string(axis == 0 ? "rows" : "columns") + (index_rows != 0 ? " by a matrix of indices, " : ", ") +
              formats.name;
  what.shape = std::to_string(rows) + "x" + std::to_string(width) + " by " +
               (index_rows != 0 ? std::to_string(index_rows) + "x" : "") + std::to_string(indices) + " of " +
               std::to_string(index_bits) + " bits";
  what.extent = axis == 0 ? width : indices;
  what.unit = axis == 0 ? "byte" : "element";
  what.units = static_cast<double>(outputs * (axis == 0 ? formats.out.bytes() : 1));
  const bool is_copy = formats.in_frac_bits == formats.out_frac_bits && formats.in.bits == formats.out.bits;
  what.extra = axis == 0 ? (is_copy ? 7.0 : 40.0) * list : 20.0 * rows;
  what.figure = axis == 0 ? (is_copy ? 0.17 : 0.5) : (is_copy ? 6 : 8);
  what.why = axis == 1 ? "a plain loop over the indices, and 20 instructions for each row"
             : is_copy ? "a copy of the bytes, and 7 instructions for each index"
                       : "a re-formatting of the bytes, and 40 instructions for each index";
  if (axis == 0 && index_rows != 0 && !is_copy) {
    // The last index of the list leaves what it re-formats behind the output's last run.
    what.figure = 0.8;
    what.extra += 0.8 * width * indices;
    what.why = "a re-formatting of the bytes and of what spills past the end; 40 instructions for each index";
  }
  what.make = [=](Arena &arena) {
    _NN_GATHER_PARM parm{};
    const size_t behind = size_t{list} * width * 4;  // a re-formatting by a matrix of indices goes past the last run
    parm.in_addr = address(random_bytes(arena, size_t{rows} * width * formats.in.bytes() + behind));
    parm.out_addr = address(zero_bytes(arena, outputs * 2 + behind));
    parm.ind_addr = address(random_indices(arena, list, index_bits, std::min(extent, index_bits == 8 ? 127u : extent)));
    parm.work_buffer = address(zero_bytes(arena, behind));
    parm.in_width = u16(width);
    parm.in_height = u16(rows);
    parm.ind_width = u16(indices);
    parm.ind_height = u16(index_rows);
    const uint32_t out_inner = axis == 0 ? width : indices;
    parm.out_width = u16(out_inner);
    parm.out_height = u16(axis == 0 ? indices : index_rows != 0 ? index_rows : rows);
    if (index_rows != 0) parm.out_channel = u16(axis == 0 ? index_rows : rows);
    parm.in_line_ofs = width * formats.in.bytes();
    parm.out_line_ofs = out_inner * formats.out.bytes();
    if (axis == 1 && index_rows != 0) parm.out_line_ofs = list * formats.out.bytes();
    parm.out_channel_ofs = parm.out_line_ofs * indices;
    parm.in_fmt = format(formats.in, formats.in_frac_bits);
    parm.out_fmt = format(formats.out, formats.out_frac_bits);
    parm.ind_fmt = format({"", index_bits, 1}, 0);
    parm.axis = axis;
    return call_of(tarvu_gather_process, parm);
  };
  return what;
}

}  // namespace

void add_gather_cases(Cases &cases) {
  for (const Formats &formats : {kSame8, kSame16, kShifted8, kNarrowed}) {
    const bool is_copy = formats.in_frac_bits == formats.out_frac_bits && formats.in.bits == formats.out.bits;
    for (const uint32_t index_bits : {16u, 8u, 32u}) {
      for (const uint32_t width : kExtents) {
        if (index_bits != 16 && width != 4 && width != 28 && width != 100) continue;
        const uint32_t indices = std::clamp(8192 / width, 8u, 256u);
        add(cases, matrix(formats, 0, 100, width, 0, indices, index_bits));
      }
    }
    for (const uint32_t indices : {1u, 2u, 4u, 7u, 10u, 14u, 28u, 56u, 100u}) {
      add(cases, matrix(formats, 1, 56, 64, 0, indices, 16));
    }
    for (const uint32_t indices : {4u, 16u, 64u, 256u}) {
      for (const uint32_t index_rows : {2u, 4u}) {
        if (!is_copy && index_rows == 4 && indices == 256) continue;
        add(cases, matrix(formats, 0, 100, 64, index_rows, indices, 16));
      }
    }
  }
  add_doublings(cases, [](const Shape &shape) { return matrix(kSame8, 0, 50, shape.width, 0, shape.height, 16); },
                {1, 1, 50, 28});
  add_doublings(cases, [](const Shape &shape) { return matrix(kSame8, 1, shape.height, 64, 0, shape.width, 16); },
                {1, 1, 50, 28});
  add_doublings(cases,
                [](const Shape &shape) { return matrix(kSame8, 0, 50, shape.width, shape.channels, shape.height, 16); },
                {1, 2, 50, 28});
}

}  // namespace sweep
