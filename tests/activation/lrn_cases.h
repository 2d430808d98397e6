/// \file lrn_cases.h
/// What the tests of LRN share.
#ifndef TARVU_TESTS_ACTIVATION_LRN_CASES_H
#define TARVU_TESTS_ACTIVATION_LRN_CASES_H

#include <cstddef>
#include <cstdint>

#include "tarvu.h"
#include "tests/support/formats.h"

namespace lrn_cases {

struct Shape {
  uint32_t width, height, channels, num;

  uint32_t plane() const { return width * height; }
  uint32_t item() const { return channels * plane(); }
};

/// Floats in and out; the addresses are still to be set.
inline _NN_LRN_PARM float_block(const Shape &shape, uint32_t local_size) {
  _NN_LRN_PARM block{};
  block.width = static_cast<uint16_t>(shape.width);
  block.height = static_cast<uint16_t>(shape.height);
  block.channel = static_cast<uint16_t>(shape.channels);
  block.batch = static_cast<uint16_t>(shape.num);
  block.in_batch_ofs = 4 * shape.item();
  block.out_batch_ofs = 4 * shape.item();
  block.in_fmt = support::format(32, 0, 1);
  block.out_fmt = support::format(32, 0, 1);
  block.in_scale = support::scale(1, 0);
  block.out_scale = support::scale(1, 0);
  block.local_size = local_size;
  block.lrn_k = 1;
  block.alpha = 1.0f;
  block.beta = 0.75f;
  return block;
}

/// Bytes of the four scratch arrays; the last is as long as the conversions take it to be.
inline size_t scratch_bytes(const Shape &shape, uint32_t local_size) {
  const size_t total = size_t{shape.num} * shape.item();
  const size_t squares = (size_t{shape.channels} + local_size - 1) * shape.plane();
  return 4 * (total + squares + shape.item() + total);
}

}  // namespace lrn_cases

#endif  // TARVU_TESTS_ACTIVATION_LRN_CASES_H
