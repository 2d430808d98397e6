// Calls of grid sample.
#include <algorithm>

#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

void set_shape(uint16_t (&to)[4], std::initializer_list<uint32_t> extents) {
  std::transform(extents.begin(), extents.end(), to, [](uint32_t extent) { return static_cast<uint16_t>(extent); });
}

void draw_shapes(Source &source, _NN_GRIDSAMPLE_PARM &block) {
  const uint32_t channels = some_size(source, one_in(source, 4) ? 35 : 12);
  const uint32_t batches = one_of(source, {1u, 2u, 3u, 0u});
  uint32_t width = 1 + below(source, 12);
  uint32_t height = 1 + below(source, 12);
  if (one_in(source, 16)) (one_in(source, 2) ? width : height) = one_of(source, {256u, 257u, 300u});
  const uint32_t columns = one_in(source, 60) ? 0 : std::max(some_size(source, 40), 1u);
  const uint32_t rows = one_in(source, 12) ? 0 : 1 + below(source, 4);
  set_shape(block.out_shape, {columns, rows, channels, batches});
  if (one_in(source, 2)) {
    set_shape(block.in_shape, {channels, batches, width, height});
    set_shape(block.grid_shape, {below(source, 9), columns, batches, rows});
  } else {
    set_shape(block.in_shape, {width, height, channels, batches});
    set_shape(block.grid_shape, {2, columns, rows, batches});
  }
  block.row_group = 1 + below(source, 3);
  block.row_offset = one_in(source, 40) ? below(source, 5) : below(source, block.row_group);
  if (one_in(source, 16)) {
    auto &shape = one_in(source, 2) ? block.in_shape : block.grid_shape;
    shape[below(source, 4)] = static_cast<uint16_t>(word(source));
  }
}

}  // namespace

void draw_gridsample(Source &source, Case &made) {
  _NN_GRIDSAMPLE_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = block.grid_addr = 0;
  draw_shapes(source, block);
  const int grid_bits = one_in(source, 8)   ? pick(source, -1, 33)
                        : one_in(source, 3) ? pick(source, 0, 15)
                                            : pick(source, 6, 8);
  block.in_fmt = support::format(8, pick(source, -4, 8), one_of(source, {1, 0}));
  block.out_fmt = support::format(8, pick(source, -4, 12), one_of(source, {1, 0}));
  block.grid_fmt = support::format(8, grid_bits, 0);
  if (one_in(source, 24)) (one_in(source, 2) ? block.in_fmt : block.out_fmt) = some_format(source);
  // Positions within the image, its last row and column among them, and now and then one behind.
  const uint32_t one = grid_bits < 0 ? 1 : grid_bits < 8 ? 1u << grid_bits : 255;
  uint32_t pairs = block.row_group;
  for (const uint16_t extent : {block.out_shape[0], block.out_shape[1], block.out_shape[3]}) pairs *= extent;
  Contents &grid = made.contents.emplace_back("grid_addr", std::vector<uint8_t>(2 * size_t{pairs}));
  for (uint8_t &value : grid.bytes) {
    value = static_cast<uint8_t>(one_in(source, 6) ? one : below(source, one + 1));
    if (one_in(source, 5000)) value = 255;
  }
  set_block(made, "tarvu_gridsample_process", block);
}

}  // namespace cases
