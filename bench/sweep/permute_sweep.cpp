#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

using Order = std::array<int8_t, 4>;

/// Formats of input and output: equal, or what takes a shift as well.
struct Formats {
  const char *name;
  Type in;
  int in_frac_bits;
  Type out;
  int out_frac_bits;

  bool are_equal() const { return in.bits == out.bits && in_frac_bits == out_frac_bits; }
};

constexpr Formats kSame8 = {"8 bits", kS8, 4, kS8, 4};
constexpr Formats kSame16 = {"16 bits", kS16, 4, kS16, 4};

enum class Lines { kDense, kPadded };

/// Padded lines are apart by the next multiple of 64 bytes, at least one byte more, on both sides.
_NN_PERMUTE_PARM block(const Formats &formats, const Order &order, const Shape &shape, Lines lines) {
  const uint32_t extents[4] = {shape.batch, shape.channels, shape.height, shape.width};
  const auto out_extent = [&](size_t axis) { return extents[static_cast<size_t>(order[axis])]; };
  _NN_PERMUTE_PARM parm{};
  parm.batch = u16(shape.batch);
  parm.channel = u16(shape.channels);
  parm.height = u16(shape.height);
  parm.width = u16(shape.width);
  const auto apart = [&](uint32_t line) { return lines == Lines::kPadded ? u32(round_up(line + 1, 64)) : line; };
  parm.in_line_ofs = apart(shape.width * formats.in.bytes());
  parm.in_channel_ofs = shape.height * parm.in_line_ofs;
  parm.in_batch_ofs = shape.channels * parm.in_channel_ofs;
  parm.out_line_ofs = apart(out_extent(3) * formats.out.bytes());
  parm.out_channel_ofs = out_extent(2) * parm.out_line_ofs;
  parm.out_batch_ofs = out_extent(1) * parm.out_channel_ofs;
  parm.in_fmt = format(formats.in, formats.in_frac_bits);
  parm.out_fmt = format(formats.out, formats.out_frac_bits);
  std::copy(order.begin(), order.end(), parm.order);
  return parm;
}

std::string digits(const Order &order) {
  std::string text;
  for (const int8_t axis : order) text += std::to_string(axis);
  return text;
}

Case permute(const Formats &formats, const Order &order, const Shape &shape, Lines lines = Lines::kDense) {
  Case what;
  what.kind = "order " + digits(order) + ", " + formats.name;
  what.shape = name_of(shape) + (lines == Lines::kPadded ? " padded" : "");
  what.extent = shape.width;
  what.unit = "element";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) {
    _NN_PERMUTE_PARM parm = block(formats, order, shape, lines);
    parm.in_addr = address(random_bytes(arena, size_t{shape.batch} * parm.in_batch_ofs));
    const uint32_t out_batch =
        std::array{shape.batch, shape.channels, shape.height, shape.width}[static_cast<size_t>(order[0])];
    parm.out_addr = address(zero_bytes(arena, size_t{out_batch} * parm.out_batch_ofs));
    return call_of(tarvu_permute_process, parm);
  };
  return what;
}

/// Re-formats the whole tensor, then moves its elements.
Maker two_passes(const Formats &formats, const Order &order, const Shape &shape) {
  return [=](Arena &arena) -> Call {
    const size_t count = shape.elements();
    const Formats same = {"", formats.out, formats.out_frac_bits, formats.out, formats.out_frac_bits};
    _NN_PERMUTE_PARM parm = block(same, order, shape, Lines::kDense);
    const uint8_t *in = random_bytes(arena, count * formats.in.bytes());
    uint8_t *between = zero_bytes(arena, count * formats.out.bytes());
    parm.in_addr = address(between);
    parm.out_addr = address(zero_bytes(arena, count * formats.out.bytes()));
    const _NN_FMT from = format(formats.in, formats.in_frac_bits);
    const _NN_FMT to = format(formats.out, formats.out_frac_bits);
    return [=] {
      tarvu_convert_fmt_c(in, between, u32(count), &from, &to, nullptr, nullptr);
      bench::expect_ok(tarvu_permute_process(&parm));
    };
  };
}

/// Whether runs of whole lines move: a few instructions for each line, apart from the copy.
bool moves_lines(const Order &order) { return order[3] == 3; }

/// Whether no single transpose of merged axes does it: three groups of axes or more change places, or two whose planes are
/// smaller than a block.
bool needs_two_passes(const Order &order, const Shape &shape) {
  constexpr size_t kBlock = 256;
  const uint32_t extents[4] = {shape.batch, shape.channels, shape.height, shape.width};
  std::vector<int> places(4, 0);
  for (size_t axis = 1; axis < 4; ++axis) places[axis] = places[axis - 1] + (extents[axis - 1] > 1 ? 1 : 0);
  std::vector<int> moved;
  for (const int8_t axis : order) {
    const auto i = static_cast<size_t>(axis);
    if (extents[i] > 1) moved.push_back(places[i]);
  }
  size_t first = 0;
  while (first < moved.size() && moved[first] == static_cast<int>(first)) ++first;
  int groups = 1;
  for (size_t i = first; i + 1 < moved.size(); ++i) groups += moved[i + 1] != moved[i] + 1 ? 1 : 0;
  size_t elements = 1;
  for (size_t i = 0; i < 4; ++i) {
    if (extents[i] > 1 && places[i] >= static_cast<int>(first)) elements *= extents[i];
  }
  return groups > 2 || elements < kBlock;
}

/// Held against a transpose or a swap of wide tensors where the formats are equal, else against two passes.
Case held(const Formats &formats, const Order &order, const Shape &shape, Lines lines) {
  Case what = permute(formats, order, shape, lines);
  if (!formats.are_equal()) {
    what.calls = two_passes(formats, order, shape);
    what.why = "re-formatting the tensor, then moving its elements";
    return what;
  }
  const Formats &plain = formats.out.bits == 8 ? kSame8 : kSame16;
  if (!moves_lines(order) && (lines == Lines::kPadded || needs_two_passes(order, shape))) {
    what.factor = 2;
    what.why =
        lines == Lines::kPadded ? "a copy that makes them dense, and a transpose" : "two passes over merged axes";
  }
  what.neighbour = std::string("order ") + (moves_lines(order) ? "0213, " : "0231, ") + plain.name + ", 1x64x56x56";
  if (moves_lines(order)) {
    what.extra = std::min(4.0 * static_cast<double>(shape.elements() / shape.width), 0.6 * what.units);
    what.why = "and 4 instructions for each line, or 0.6 for each element";
  }
  return what;
}

/// All orders, over tensors whose every side is short somewhere.
constexpr Shape kShapes[] = {{2, 3, 28, 56}, {1, 3, 56, 56},  {1, 56, 56, 3}, {2, 21, 14, 14}, {4, 10, 7, 20},
                             {1, 64, 7, 7},  {1, 16, 28, 24}, {8, 4, 14, 2},  {1, 49, 10, 8},  {2, 32, 13, 4}};

void add_orders(Cases &cases, const Formats &formats) {
  Order order = {0, 1, 2, 3};
  while (std::next_permutation(order.begin(), order.end())) {
    for (const Shape &shape : kShapes) add(cases, held(formats, order, shape, Lines::kDense));
  }
}

/// Lines that an accelerator has aligned.
void add_padded(Cases &cases, const Formats &formats) {
  for (const Order &order :
       {Order{0, 2, 3, 1}, Order{0, 3, 1, 2}, Order{0, 2, 1, 3}, Order{1, 0, 2, 3}, Order{0, 1, 3, 2}}) {
    for (const Shape &shape : {Shape{1, 3, 56, 56}, Shape{2, 16, 14, 14}, Shape{1, 64, 7, 7}, Shape{8, 4, 10, 28}}) {
      add(cases, held(formats, order, shape, Lines::kPadded));
    }
  }
}

/// Sides of a plain transpose.
void add_transposes(Cases &cases, const Formats &formats) {
  for (const uint32_t side : kExtents) {
    if (side == 1000) continue;
    const uint32_t other = std::max(1u, 8192 / side);
    for (const Order &order : {Order{0, 2, 3, 1}, Order{0, 3, 1, 2}}) {
      const bool to_pixels = order[3] == 1;
      Case what = permute(formats, order, to_pixels ? Shape{1, side, 1, other} : Shape{1, 1, other, side});
      what.kind = (to_pixels ? "planes to pixels, " : "pixels to planes, ") + std::string(formats.name);
      what.extent = side;
      if (side == 3 && formats.in.bits == 8) {
        what.figure = to_pixels ? 0.38 : 0.31;
        what.limit = 1;
        what.why = "loads and stores that split three ways";
      } else {
        what.neighbour = "order 0231, " + std::string(formats.name) + ", 1x64x56x56";
      }
      add(cases, std::move(what));
    }
  }
}

}  // namespace

void add_permute_cases(Cases &cases) {
  for (const Formats &formats : {kSame8, kSame16}) {
    add(cases, permute(formats, {0, 2, 3, 1}, {1, 64, 56, 56}));
    add(cases, permute(formats, {0, 2, 1, 3}, {1, 64, 56, 56}));
  }
  add_orders(cases, kSame8);
  add_orders(cases, kSame16);
  add_orders(cases, {"s8 to s8, shifted", kS8, 3, kS8, 5});
  add_orders(cases, {"u8 to s8, equal fraction bits", kU8, 4, kS8, 4});
  add_orders(cases, {"s16 to s8", kS16, 8, kS8, 4});
  add_orders(cases, {"u8 to u16", kU8, 4, kU16, 8});
  add_padded(cases, kSame8);
  add_padded(cases, kSame16);
  add_transposes(cases, kSame8);
  add_transposes(cases, kSame16);
  for (const Order &order : {Order{0, 2, 3, 1}, Order{0, 3, 1, 2}, Order{0, 2, 1, 3}, Order{1, 2, 3, 0}}) {
    add_doublings(cases, [&](const Shape &shape) { return held(kSame8, order, shape, Lines::kDense); }, {2, 8, 14, 28});
  }
}

}  // namespace sweep
