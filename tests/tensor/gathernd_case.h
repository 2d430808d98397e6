/// \file gathernd_case.h
/// Blocks and memory for the tests of Gather ND.
#ifndef TARVU_TESTS_TENSOR_GATHERND_CASE_H
#define TARVU_TESTS_TENSOR_GATHERND_CASE_H

#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/support/guarded_memory.h"
#include "tests/tensor/heap_watch.h"
#include "tests/tensor/selection_case.h"

namespace selection_test {

/// The product's call. The heap blocks that it leaves behind are freed afterwards.
inline _QX_RESULT gathernd_process(const _NN_GATHERND_PARM *block) {
  const HeapWatch watch;
  return ::tarvu_gathernd_process(block);
}

/// Extents of the three tensors, slowest dimension first, 0 for a dimension that is lacking.
struct NdShapes {
  std::vector<uint32_t> in, index, out;
};

inline void set_shapes(_NN_GATHERND_PARM &block, const NdShapes &shapes) {
  const auto extent = [](const std::vector<uint32_t> &shape, size_t from_fastest) {
    return static_cast<uint16_t>(from_fastest < shape.size() ? shape[shape.size() - 1 - from_fastest] : 0);
  };
  block.in_width = extent(shapes.in, 0);
  block.in_height = extent(shapes.in, 1);
  block.in_channel = extent(shapes.in, 2);
  block.in_batch = extent(shapes.in, 3);
  block.ind_width = extent(shapes.index, 0);
  block.ind_height = extent(shapes.index, 1);
  block.ind_channel = extent(shapes.index, 2);
  block.ind_batch = extent(shapes.index, 3);
  block.out_width = extent(shapes.out, 0);
  block.out_height = extent(shapes.out, 1);
  block.out_channel = extent(shapes.out, 2);
  block.out_batch = extent(shapes.out, 3);
}

/// 8-bit tensors with 8-bit signed whole indices and no scratch memory yet.
inline _NN_GATHERND_PARM nd_block(const NdShapes &shapes, uint32_t batch_dims) {
  _NN_GATHERND_PARM block{};
  set_shapes(block, shapes);
  block.in_fmt = block.ind_fmt = block.out_fmt = kInt8.fmt();
  block.batch_dims = batch_dims;
  block.in_addr = block.ind_addr = block.out_addr = block.work_buffer = support::unreadable_address();
  return block;
}

}  // namespace selection_test

#endif  // TARVU_TESTS_TENSOR_GATHERND_CASE_H
