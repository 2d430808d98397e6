// Grid sample.
#include <algorithm>

#include "tests/fuzz/makers.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_gridsample_reference.h"
#include "tests/tensor/gridsample_case.h"

namespace fuzz {
namespace {

using selection_test::GridFormats;
using selection_test::GridShape;
using selection_test::Layout;
using support::GuardedMemory;

GridShape some_shape(Source &source, Layout layout) {
  GridShape shape{};
  shape.channels = some_size(source, one_in(source, 4) ? 35 : 12);
  shape.batches = one_of(source, {1u, 2u, 3u, 0u});
  shape.in_width = 1 + below(source, 12);
  shape.in_height = 1 + below(source, 12);
  if (one_in(source, 16)) {
    (one_in(source, 2) ? shape.in_width : shape.in_height) = one_of(source, {256u, 257u, 300u});
    shape.channels = std::min(shape.channels, 2u);
  }
  shape.out_width = std::max(some_size(source, 40), 1u);  // a width of 0 never ends
  shape.out_height = one_in(source, 12) ? 0 : 1 + below(source, 4);
  if (layout == Layout::kInterleaved) {
    shape.group = 1 + below(source, 3);
    shape.offset = below(source, shape.group);
  }
  return shape;
}

/// Fraction bits with a scaling of -31 to 31 bits.
GridFormats some_formats(Source &source) {
  using selection_test::kInt8;
  using selection_test::kUint8;
  GridFormats f = {one_of(source, {kInt8, kUint8}), one_of(source, {kInt8, kUint8}), pick(source, -4, 8), 0, 0};
  f.grid_frac_bits = one_in(source, 3) ? pick(source, 0, 15) : pick(source, 6, 8);
  const int scaling = one_in(source, 3) ? pick(source, -31, 31) : pick(source, -2, f.grid_frac_bits + 2);
  f.out_frac_bits = f.in_frac_bits + f.grid_frac_bits - scaling;
  return f;
}

bool fits_interleaved(const _NN_GRIDSAMPLE_PARM &b) {
  return b.in_shape[0] == b.out_shape[2] && b.in_shape[1] == b.out_shape[3] && b.grid_shape[1] == b.out_shape[0] &&
         b.grid_shape[2] == b.out_shape[3] && b.grid_shape[3] == b.out_shape[1];
}

bool fits_planar(const _NN_GRIDSAMPLE_PARM &b) {
  return b.in_shape[2] == b.out_shape[2] && b.in_shape[3] == b.out_shape[3] && b.grid_shape[0] == 2 &&
         b.grid_shape[1] == b.out_shape[0] && b.grid_shape[2] == b.out_shape[1] && b.grid_shape[3] == b.out_shape[3];
}

/// Spoils the block so that it is refused; false if it still would run.
bool spoil(Source &source, _NN_GRIDSAMPLE_PARM &block) {
  switch (below(source, 4)) {
    case 0:
      block.in_fmt = some_format(source);
      break;
    case 1:
      block.out_fmt = some_format(source);
      break;
    case 2:
      block.in_shape[below(source, 4)] = static_cast<uint16_t>(word(source));
      break;
    default:
      block.grid_shape[below(source, 4)] = static_cast<uint16_t>(word(source));
  }
  return width_of(block.in_fmt) != 8 || width_of(block.out_fmt) != 8 ||
         (!fits_interleaved(block) && !fits_planar(block));
}

}  // namespace

std::string run_gridsample_case(Source &source) {
  Trial trial{source, {}, {}};
  const Layout layout = one_of(source, {Layout::kInterleaved, Layout::kPlanar});
  const GridShape shape = some_shape(source, layout);
  const GridFormats formats = some_formats(source);
  _NN_GRIDSAMPLE_PARM block = selection_test::grid_block(layout, shape, formats);
  size_t in_bytes = shape.batches == 0 ? 0 : grid_input_bytes(layout, shape);
  size_t grid_bytes = grid_grid_bytes(layout, shape);
  size_t out_bytes = grid_output_bytes(layout, shape);
  if (layout == Layout::kPlanar && fits_interleaved(block)) {
    // Shapes that fit both are interleaved: of one row to a group then, on the memory that the other reading needs.
    block.row_group = 1;
    block.row_offset = 0;
    const GridShape other = {
        shape.channels, shape.batches, block.in_shape[2], block.in_shape[3], shape.out_width, shape.out_height, 1, 0};
    in_bytes = shape.batches == 0 ? 0 : grid_input_bytes(Layout::kInterleaved, other);
    grid_bytes = grid_grid_bytes(Layout::kInterleaved, other);
    out_bytes = grid_output_bytes(Layout::kInterleaved, other);
  }
  if (one_in(source, 12)) {
    const _NN_GRIDSAMPLE_PARM sound = block;
    if (spoil(source, block)) {
      in_bytes = grid_bytes = out_bytes = 0;
    } else {
      block = sound;
    }
  }
  const GuardedMemory &in = make_tensor(trial, "input", in_bytes);
  const GuardedMemory &grid = make_memory(trial, grid_bytes);
  // Positions within the image, and its last row and column.
  support::Random random(word(source));
  const uint32_t one = formats.grid_frac_bits < 8 ? 1u << formats.grid_frac_bits : 255;
  for (size_t i = 0; i < grid.size(); ++i) {
    grid.data()[i] = static_cast<uint8_t>(random.one_in(6) ? one : random.below(one + 1));
  }
  trial.run.track(grid, "grid");
  const GuardedMemory &out = make_tensor(trial, "output", out_bytes);
  block.in_addr = in.address();
  block.grid_addr = grid.address();
  block.out_addr = out.address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_gridsample_process));
}

}  // namespace fuzz
