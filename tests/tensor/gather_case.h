/// \file gather_case.h
/// Blocks and memory for the tests of Gather: shapes with padding, and memory that ends where the call may not go on.
#ifndef TARVU_TESTS_TENSOR_GATHER_CASE_H
#define TARVU_TESTS_TENSOR_GATHER_CASE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_gather_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/tensor/selection_case.h"

namespace selection_test {

using Extents = std::array<uint32_t, 4>;  // width first

/// A shape of `rank` dimensions; the others are absent.
inline Extents shape_of(int rank, support::Random &random, uint32_t most) {
  Extents extents = {};
  for (int i = 0; i < rank; ++i) extents[static_cast<size_t>(i)] = 1 + random.below(most);
  return extents;
}

/// Byte steps of a tensor with `padding` bytes behind every line, channel and batch item; [0] is the element.
inline Extents steps_of(const Extents &extents, uint32_t element_bytes, uint32_t padding) {
  Extents steps = {element_bytes, 0, 0, 0};
  for (size_t i = 1; i < 4; ++i) steps[i] = steps[i - 1] * std::max(1u, extents[i - 1]) + padding;
  return steps;
}

enum class Formats { kEqual, kOtherSign, kOtherFraction, kOtherWidth, kNoOutputElement };
inline constexpr Formats kAllFormats[] = {Formats::kEqual, Formats::kOtherSign, Formats::kOtherFraction,
                                          Formats::kOtherWidth, Formats::kNoOutputElement};

/// The output format of an input type in that relation. An output of no element width is one of 32 or 24 bits.
inline _NN_FMT output_format(Formats formats, Type in, int in_frac_bits, support::Random &random) {
  switch (formats) {
    case Formats::kEqual:
      return in.fmt(in_frac_bits);
    case Formats::kOtherSign:
      return support::format(in.width, in_frac_bits, 1 - in.sign_bits);
    case Formats::kOtherFraction:
      return support::format(in.width, in_frac_bits + random.pick({-9, -3, -1, 1, 2, 9}), random.between(0, 1));
    case Formats::kOtherWidth:
      return support::format(24 - in.width, in_frac_bits + random.between(-4, 4), random.between(0, 1));
    case Formats::kNoOutputElement:
      return support::format(random.pick({24, 32}), in_frac_bits, random.between(0, 1));
  }
  return in.fmt(in_frac_bits);
}

/// One differential call of Gather.
class GatherCase {
 public:
  GatherCase(Type in, Type index, int rank, int index_rank, int axis, Formats formats, support::Random &random) {
    const uint32_t padding = random.below(3) * in.bytes();
    Extents in_shape = shape_of(rank, random, 5);
    Extents index_shape = shape_of(index_rank, random, 3);
    const size_t d = static_cast<size_t>(std::max(0, rank - 1 - axis));
    const int used_rank = rank == 4 ? 1 : std::min(index_rank, 5 - rank);

    // The output: dimensions inside the axis, those of the index, those outside the axis.
    Extents out_shape = {};
    size_t at = 0;
    for (size_t i = 0; i < d; ++i) out_shape[at++] = in_shape[i];
    for (int i = 0; i < used_rank; ++i) out_shape[at++] = index_shape[static_cast<size_t>(i)];
    for (size_t i = d + 1; i < static_cast<size_t>(rank) && at < 4; ++i) out_shape[at++] = in_shape[i];

    const Extents in_steps = steps_of(in_shape, in.bytes(), padding);
    const int in_frac_bits = random.between(-2, 6);
    block().in_fmt = in.fmt(in_frac_bits);
    block().ind_fmt = index.fmt(random.between(-3, 3));
    block().out_fmt = output_format(formats, in, in_frac_bits, random);
    const uint32_t out_bytes = formats == Formats::kOtherWidth ? 3 - in.bytes() : in.bytes();
    const Extents out_steps = steps_of(out_shape, out_bytes, random.below(3) * out_bytes);
    set_shapes(in_shape, index_shape, out_shape, in_steps, out_steps);
    block().in_width = 0xABCD;  // not read
    block().axis = static_cast<uint8_t>(axis);

    // Counts as the memory's size needs them: indices of a position, runs, elements of a re-formatting.
    uint32_t index_count = 1;
    for (int i = 0; i < used_rank; ++i) index_count *= index_shape[static_cast<size_t>(i)];
    uint32_t all_indices = 1;
    for (int i = 0; i < index_rank; ++i) all_indices *= index_shape[static_cast<size_t>(i)];
    const uint32_t run_bytes = d == 0 ? in.bytes() : in_steps[d];
    uint32_t count = 1;
    for (int k = 0; k <= rank + used_rank - 3 - axis; ++k) count *= out_shape[static_cast<size_t>(k)];

    const size_t in_bytes = size_t{in_steps[3]} * std::max(1u, in_shape[3]);
    const size_t written = std::max(run_bytes, count * std::max(in.bytes(), out_bytes));
    size_t last = 0;
    for (size_t i = 0; i < 4; ++i) last += size_t{out_steps[i]} * (std::max(1u, out_shape[i]) - 1);
    last += size_t{out_steps[d]} * index_count;
    const support::Placement placement = {support::Fault::kBehind, 16, random.below(2)};
    in_ = std::make_unique<support::GuardedMemory>(in_bytes, placement);
    index_ = std::make_unique<support::GuardedMemory>(size_t{all_indices} * index.bytes(), placement);
    out_ = std::make_unique<support::GuardedMemory>(last + written, placement);
    work_ = std::make_unique<support::GuardedMemory>(std::max(run_bytes, count * in.bytes()), placement);
    random.fill(in_->data(), in_->size());
    random.fill(out_->data(), out_->size());
    stale_.resize(work_->size());
    random.fill(stale_.data(), stale_.size());
    fill_indices(index, all_indices, index_count, in_shape[d], random);

    case_.attach(&_NN_GATHER_PARM::in_addr, *in_, "input");
    case_.attach(&_NN_GATHER_PARM::ind_addr, *index_, "indices");
    case_.attach(&_NN_GATHER_PARM::out_addr, *out_, "output");
    block().work_buffer = formats == Formats::kOtherWidth || formats == Formats::kNoOutputElement
                              ? work_->address()
                              : support::unreadable_address();
  }

  _NN_GATHER_PARM &block() { return case_.block; }

  ::testing::AssertionResult same() {
    ::testing::AssertionResult outcome = case_.same(from_scratch(*work_, stale_, ::tarvu_gather_process),
                                                    from_scratch(*work_, stale_, reference::tarvu_gather_process));
    if (outcome && !work_->guard_damage().empty()) return ::testing::AssertionFailure() << work_->guard_damage();
    return outcome;
  }

 private:
  /// Positions of the axis, -1, and negative ones that land on it when counted back from the number of indices.
  void fill_indices(Type index, uint32_t all_indices, uint32_t index_count, uint32_t extent, support::Random &random) {
    for (uint32_t i = 0; i < all_indices; ++i) {
      int64_t value = random.below(extent);
      const bool may_be_negative = index.sign_bits != 0 || index.width == 32;
      if (may_be_negative && random.one_in(5)) value = -1;
      if (may_be_negative && random.one_in(4)) {
        const int64_t magnitude = int64_t{index_count} - random.below(std::min(extent, index_count));
        if (magnitude >= 2) value = -magnitude;
      }
      store_element(index_->data(), index, i, value);
    }
  }

  void set_shapes(const Extents &in, const Extents &index, const Extents &out, const Extents &in_steps,
                  const Extents &out_steps) {
    block().in_height = static_cast<uint16_t>(in[1]);
    block().in_channel = static_cast<uint16_t>(in[2]);
    block().in_batch = static_cast<uint16_t>(in[3]);
    block().ind_width = static_cast<uint16_t>(index[0]);
    block().ind_height = static_cast<uint16_t>(index[1]);
    block().ind_channel = static_cast<uint16_t>(index[2]);
    block().ind_batch = static_cast<uint16_t>(index[3]);
    block().out_width = static_cast<uint16_t>(out[0]);
    block().out_height = static_cast<uint16_t>(out[1]);
    block().out_channel = static_cast<uint16_t>(out[2]);
    block().out_batch = static_cast<uint16_t>(out[3]);
    block().in_line_ofs = in_steps[1];
    block().in_channel_ofs = in_steps[2];
    block().in_batch_ofs = in_steps[3];
    block().out_line_ofs = out_steps[1];
    block().out_channel_ofs = out_steps[2];
    block().out_batch_ofs = out_steps[3];
  }

  support::Case<_NN_GATHER_PARM> case_;
  std::unique_ptr<support::GuardedMemory> in_, index_, out_, work_;
  std::vector<uint8_t> stale_;
};

}  // namespace selection_test

#endif  // TARVU_TESTS_TENSOR_GATHER_CASE_H
