/// \file gridsample_case.h
/// Blocks and memory for the tests of Grid sample.
#ifndef TARVU_TESTS_TENSOR_GRIDSAMPLE_CASE_H
#define TARVU_TESTS_TENSOR_GRIDSAMPLE_CASE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "tarvu.h"
#include "tests/support/guarded_memory.h"
#include "tests/tensor/selection_case.h"

namespace selection_test {

enum class Layout { kInterleaved, kPlanar };

struct GridShape {
  uint32_t channels, batches, in_width, in_height, out_width, out_height;
  uint32_t group = 1;   ///< interleaved only
  uint32_t offset = 0;  ///< interleaved only
};

struct GridFormats {
  Type in_type, out_type;
  int in_frac_bits, out_frac_bits, grid_frac_bits;
};

inline _NN_GRIDSAMPLE_PARM grid_block(Layout layout, const GridShape &s, const GridFormats &f) {
  _NN_GRIDSAMPLE_PARM block{};
  const auto set = [](uint16_t(&shape)[4], uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    shape[0] = static_cast<uint16_t>(a);
    shape[1] = static_cast<uint16_t>(b);
    shape[2] = static_cast<uint16_t>(c);
    shape[3] = static_cast<uint16_t>(d);
  };
  set(block.out_shape, s.out_width, s.out_height, s.channels, s.batches);
  if (layout == Layout::kInterleaved) {
    set(block.in_shape, s.channels, s.batches, s.in_width, s.in_height);
    set(block.grid_shape, 0xABC, s.out_width, s.batches, s.out_height);  // the first is not read
    block.row_group = s.group;
    block.row_offset = s.offset;
  } else {
    set(block.in_shape, s.in_width, s.in_height, s.channels, s.batches);
    set(block.grid_shape, 2, s.out_width, s.out_height, s.batches);
    block.row_group = 0xABCD;  // not read
    block.row_offset = 0xABCD;
  }
  block.in_fmt = f.in_type.fmt(f.in_frac_bits);
  block.out_fmt = f.out_type.fmt(f.out_frac_bits);
  block.grid_fmt = support::format(24, f.grid_frac_bits, 1);  // only the fraction bits are read
  return block;
}

/// Bytes of the output, with the planes that the last group of eight channels spills into.
inline size_t grid_output_bytes(Layout layout, const GridShape &s) {
  const uint32_t group = layout == Layout::kInterleaved ? s.group : 1;
  const uint32_t spill = s.channels > 8 ? (8 - s.channels % 8) % 8 : 0;
  return size_t{s.out_width} * s.out_height * group * (size_t{s.channels} * s.batches + spill);
}

/// Bytes of the grid, up to the end of the 16 bytes read for the last block of the last row.
inline size_t grid_grid_bytes(Layout layout, const GridShape &s) {
  const uint32_t group = layout == Layout::kInterleaved ? s.group : 1;
  const size_t whole = size_t{2} * s.out_width * s.out_height * group * s.batches;
  return whole + 2 * (8 - std::min(8u, s.out_width));
}

/// Bytes of the input that positions up to the last row and column reach: one row and column behind them, and the eight
/// bytes of the last corner of the last group of channels.
inline size_t grid_input_bytes(Layout layout, const GridShape &s) {
  const size_t w = s.in_width;
  const size_t h = s.in_height;
  const size_t last_group = s.channels == 0 ? 0 : (s.channels - 1) / 8 * 8;
  if (layout == Layout::kInterleaved) {
    const size_t pixel = size_t{s.batches} * s.channels;
    return h * w * pixel + w * pixel + (size_t{s.batches} - 1) * s.channels + last_group + 8;
  }
  const size_t last_plane = (size_t{s.batches} - 1) * s.channels + std::max(last_group, size_t{s.channels} - 1);
  return last_plane * h * w + h * w + w + 8;
}

}  // namespace selection_test

#endif  // TARVU_TESTS_TENSOR_GRIDSAMPLE_CASE_H
