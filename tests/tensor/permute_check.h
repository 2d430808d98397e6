/// \file permute_check.h
/// Blocks of Permute for its tests, and the comparison of a block with the twin.
#ifndef TARVU_TESTS_TENSOR_PERMUTE_CHECK_H
#define TARVU_TESTS_TENSOR_PERMUTE_CHECK_H

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "tarvu.h"
#include "tests/reference/tarvu_permute_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace permute_check {

using Order = std::array<int8_t, 4>;
using Extents = std::array<uint32_t, 4>;  ///< by axis: batch, channel, height, width

inline int32_t width_bits(const _NN_FMT &fmt) { return fmt.frac_bits + fmt.int_bits + fmt.sign_bits; }

/// Offsets without padding on both sides for the formats in the block.
inline void make_dense(_NN_PERMUTE_PARM &parm) {
  const auto in_bytes = static_cast<uint32_t>(width_bits(parm.in_fmt) / 8);
  const auto out_bytes = static_cast<uint32_t>(width_bits(parm.out_fmt) / 8);
  const Extents extents = {parm.batch, parm.channel, parm.height, parm.width};
  parm.in_line_ofs = extents[3] * in_bytes;
  parm.in_channel_ofs = extents[2] * parm.in_line_ofs;
  parm.in_batch_ofs = extents[1] * parm.in_channel_ofs;
  parm.out_line_ofs = extents[static_cast<size_t>(parm.order[3])] * out_bytes;
  parm.out_channel_ofs = extents[static_cast<size_t>(parm.order[2])] * parm.out_line_ofs;
  parm.out_batch_ofs = extents[static_cast<size_t>(parm.order[1])] * parm.out_channel_ofs;
}

/// A dense block in equal formats. What the operator does not read is unreadable.
inline _NN_PERMUTE_PARM dense_block(const Extents &extents, const Order &order, const _NN_FMT &in_fmt,
                                    const _NN_FMT &out_fmt) {
  _NN_PERMUTE_PARM parm{};
  parm.work_buffer = support::unreadable_address();
  parm.batch = static_cast<uint16_t>(extents[0]);
  parm.channel = static_cast<uint16_t>(extents[1]);
  parm.height = static_cast<uint16_t>(extents[2]);
  parm.width = static_cast<uint16_t>(extents[3]);
  parm.in_fmt = in_fmt;
  parm.out_fmt = out_fmt;
  for (size_t i = 0; i < 4; ++i) parm.order[i] = order[i];
  make_dense(parm);
  return parm;
}
inline _NN_PERMUTE_PARM dense_block(const Extents &extents, const Order &order,
                                    const _NN_FMT &fmt = support::format(8, 4, 1)) {
  return dense_block(extents, order, fmt, fmt);
}

/// Bytes that the walk spans in a tensor with these steps along the output's axes.
inline size_t span_of(const std::array<size_t, 4> &counts, const std::array<size_t, 4> &steps, size_t element_bytes) {
  size_t last = 0;
  for (size_t i = 0; i < 4; ++i) {
    if (counts[i] == 0) return 0;
    last += (counts[i] - 1) * steps[i];
  }
  return last + element_bytes;
}

/// Makes memory of exactly the size that the walk touches, filled at random, and holds the product against its twin.
inline testing::AssertionResult agrees(const _NN_PERMUTE_PARM &parm, support::Random &random) {
  const auto in_element = static_cast<size_t>(width_bits(parm.in_fmt)) / 8;
  const auto out_element = static_cast<size_t>(width_bits(parm.out_fmt)) / 8;
  const size_t extents[4] = {parm.batch, parm.channel, parm.height, parm.width};
  const size_t in_steps[4] = {parm.in_batch_ofs, parm.in_channel_ofs, parm.in_line_ofs, in_element};
  std::array<size_t, 4> counts{};
  std::array<size_t, 4> from{};
  for (size_t i = 0; i < 4; ++i) {
    counts[i] = extents[static_cast<size_t>(parm.order[i])];
    from[i] = in_steps[static_cast<size_t>(parm.order[i])];
  }
  const std::array<size_t, 4> to = {parm.out_batch_ofs, parm.out_channel_ofs, parm.out_line_ofs, out_element};

  const support::Fault fault = random.pick({support::Fault::kBehind, support::Fault::kInFront});
  const auto misalign = [&] { return size_t{random.one_in(2) ? 0 : random.below(16)}; };
  const support::GuardedMemory in(span_of(counts, from, in_element), {fault, 16, misalign()});
  const support::GuardedMemory out(span_of(counts, to, out_element), {fault, 16, misalign()});
  random.fill(in.data(), in.size());
  random.fill(out.data(), out.size());
  support::Case<_NN_PERMUTE_PARM> permute;
  permute.block = parm;
  permute.attach(&_NN_PERMUTE_PARM::in_addr, in, "input");
  permute.attach(&_NN_PERMUTE_PARM::out_addr, out, "output");
  testing::AssertionResult outcome = permute.same(tarvu_permute_process, reference::tarvu_permute_process);
  if (!outcome) {
    outcome << "; batch " << extents[0] << ", channel " << extents[1] << ", height " << extents[2] << ", width "
            << extents[3] << ", order " << int{parm.order[0]} << int{parm.order[1]} << int{parm.order[2]}
            << int{parm.order[3]} << ", " << width_bits(parm.in_fmt) << " to " << width_bits(parm.out_fmt)
            << " bits, input steps " << from[0] << " " << from[1] << " " << from[2] << " " << from[3]
            << ", output steps " << to[0] << " " << to[1] << " " << to[2];
  }
  return outcome;
}

}  // namespace permute_check

#endif  // TARVU_TESTS_TENSOR_PERMUTE_CHECK_H
