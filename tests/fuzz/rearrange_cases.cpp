// Reverse, Permute, One-hot, and the table of the family.
#include <algorithm>
#include <array>

#include "tests/fuzz/makers.h"
#include "tests/fuzz/operators.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_onehot_c_reference.h"
#include "tests/reference/tarvu_permute_c_reference.h"
#include "tests/reference/tarvu_reverse_c_reference.h"

namespace fuzz {
namespace {

using support::GuardedMemory;

/// Now and then the formats differ in what has no effect on the width, or in everything.
_NN_FMT format_beside(Source &source, const _NN_FMT &in) {
  _NN_FMT out = in;
  switch (below(source, 6)) {
    case 0:
      return out;
    case 1:
      out.fmt_reserved = static_cast<uint8_t>(out.fmt_reserved + 1);
      return out;
    case 2:
      out.frac_bits = static_cast<int8_t>(out.frac_bits + 3);
      out.int_bits = static_cast<int8_t>(out.int_bits - 3);
      return out;
    case 3:
      return some_format(source);
    default:
      return some_integer_format(source);
  }
}

uint32_t some_padding(Source &source) { return one_of(source, {0u, 0u, 1u, below(source, 17)}); }

/// Extents slowest first, most of them small, and one or two that may be long.
std::array<uint16_t, 4> some_extents(Source &source) {
  std::array<uint16_t, 4> extents{};
  const uint32_t longest = below(source, 4);
  for (uint32_t i = 0; i < 4; ++i) {
    extents[i] = i == longest ? some_extent(source, 140) : static_cast<uint16_t>(1 + below(source, 4));
    if (one_in(source, 24)) extents[i] = 0;
  }
  if (one_in(source, 2)) {
    extents[longest] = some_extent(source, 40);
    extents[below(source, 4)] = some_extent(source, 40);
  }
  return extents;
}

// ---- Reverse

std::string run_reverse_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_REVERSE_PARM block{};
  const std::array<uint16_t, 4> extents = some_extents(source);
  block.batch = extents[0];
  block.channel = extents[1];
  block.height = extents[2];
  block.width = extents[3];
  block.axis = static_cast<int8_t>(pick(source, 0, 3));
  const bool is_refused = one_in(source, 12);
  block.in_fmt = is_refused ? some_format(source) : some_integer_format(source);
  if (one_in(source, 6)) block.in_fmt.fmt_reserved = 7;
  block.out_fmt = format_beside(source, block.in_fmt);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  const int32_t in_width = width_of(block.in_fmt);
  const bool runs = in_width == 8 || in_width == 16;
  if (!runs) block.axis = one_of<int8_t>(source, {0, 3, 4, -1, 127});
  const uint32_t element = in_width == 16 ? 2 : 1;
  if (one_in(source, 3)) {  // any steps at all, as long as the caller owns what they reach
    block.in_line_ofs = below(source, 140);
    block.in_channel_ofs = below(source, 140);
    block.in_batch_ofs = below(source, 140);
    block.out_line_ofs = below(source, 140);
    block.out_channel_ofs = below(source, 140);
    block.out_batch_ofs = below(source, 140);
  } else {
    block.in_line_ofs = block.width * element + some_padding(source);
    block.in_channel_ofs = block.height * block.in_line_ofs + some_padding(source);
    block.in_batch_ofs = block.channel * block.in_channel_ofs + some_padding(source);
    block.out_line_ofs = block.width * element + some_padding(source);
    block.out_channel_ofs = block.height * block.out_line_ofs + some_padding(source);
    block.out_batch_ofs = block.channel * block.out_channel_ofs + some_padding(source);
  }
  size_t in_bytes = 0;
  size_t out_bytes = 0;
  if (runs) {
    const size_t in_steps[4] = {block.in_batch_ofs, block.in_channel_ofs, block.in_line_ofs, element};
    const size_t out_steps[4] = {block.out_batch_ofs, block.out_channel_ofs, block.out_line_ofs, element};
    const auto axis = static_cast<size_t>(block.axis);
    size_t rounds = 1;
    for (size_t i = 0; i < axis; ++i) rounds *= extents[i];
    const size_t slice = in_steps[axis];
    // A wider output takes twice the slice in place.
    const size_t written = in_width == 8 && narrow_width_of(block.out_fmt) == 16 ? 2 * slice : slice;
    if (rounds != 0 && extents[axis] != 0) {
      in_bytes = extents[axis] * slice;
      out_bytes = (extents[axis] - 1) * out_steps[axis] + written;
      if (axis != 0) {
        in_bytes += (rounds - 1) * in_steps[axis - 1];
        out_bytes += (rounds - 1) * out_steps[axis - 1];
      }
    }
  }
  block.in_addr = make_tensor(trial, "input", in_bytes).address();
  block.out_addr = make_tensor(trial, "output", out_bytes).address();
  block.work_buffer = support::unreadable_address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_reverse_process));
}

// ---- Permute

/// Bytes that the walk spans with these steps along the output's axes.
size_t span_of(const std::array<size_t, 4> &counts, const std::array<size_t, 4> &steps, size_t element_bytes) {
  size_t last = 0;
  for (size_t i = 0; i < 4; ++i) {
    if (counts[i] == 0) return 0;
    last += (counts[i] - 1) * steps[i];
  }
  return last + element_bytes;
}

bool moves(const _NN_FMT &fmt) { return width_of(fmt) == 8 || width_of(fmt) == 16; }

std::string run_permute_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_PERMUTE_PARM block{};
  const std::array<uint16_t, 4> extents = some_extents(source);
  block.batch = extents[0];
  block.channel = extents[1];
  block.height = extents[2];
  block.width = extents[3];
  int8_t order[4] = {0, 1, 2, 3};
  for (uint32_t i = 0; i < 3; ++i) std::swap(order[i], order[i + below(source, 4 - i)]);
  // A repeated axis; where lines move, axis 3 stands in no other place.
  if (one_in(source, 12)) order[below(source, 3)] = static_cast<int8_t>(below(source, order[3] == 3 ? 3 : 4));
  std::copy_n(order, 4, block.order);
  block.in_fmt = one_in(source, 8) ? some_format(source) : some_integer_format(source);
  block.out_fmt = format_beside(source, block.in_fmt);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  // Lines of any width are copied if the formats are equal; a width below 0 has no bytes to count.
  const bool lines = order[3] == 3;
  if (lines && width_of(block.in_fmt) < 0) block.in_fmt = block.out_fmt = support::format(24, 4, 1);
  if (lines && width_of(block.out_fmt) < 0) block.out_fmt = support::format(24, 4, 1);
  const bool runs = lines || (moves(block.in_fmt) && moves(block.out_fmt));
  const auto in_element = static_cast<uint32_t>(runs ? width_of(block.in_fmt) / 8 : 1);
  const auto out_element = static_cast<uint32_t>(runs ? width_of(block.out_fmt) / 8 : 1);
  block.in_line_ofs = extents[3] * in_element + some_padding(source);
  block.in_channel_ofs = extents[2] * block.in_line_ofs + some_padding(source);
  block.in_batch_ofs = extents[1] * block.in_channel_ofs + some_padding(source);
  block.out_line_ofs = extents[static_cast<size_t>(order[3])] * out_element + some_padding(source);
  block.out_channel_ofs = extents[static_cast<size_t>(order[2])] * block.out_line_ofs + some_padding(source);
  block.out_batch_ofs = extents[static_cast<size_t>(order[1])] * block.out_channel_ofs + some_padding(source);
  const bool is_identity = order[0] == 0 && order[1] == 1 && order[2] == 2 && order[3] == 3;
  const bool in_place = is_identity && one_in(source, 4);
  if (in_place) {
    block.out_fmt = block.in_fmt;
    block.out_line_ofs = block.in_line_ofs;
    block.out_channel_ofs = block.in_channel_ofs;
    block.out_batch_ofs = block.in_batch_ofs;
  }
  const size_t in_steps[4] = {block.in_batch_ofs, block.in_channel_ofs, block.in_line_ofs, in_element};
  std::array<size_t, 4> counts{};
  std::array<size_t, 4> from{};
  for (size_t i = 0; i < 4; ++i) {
    counts[i] = extents[static_cast<size_t>(order[i])];
    from[i] = in_steps[static_cast<size_t>(order[i])];
  }
  const std::array<size_t, 4> to = {block.out_batch_ofs, block.out_channel_ofs, block.out_line_ofs, out_element};
  const GuardedMemory &in = make_tensor(trial, "input", runs ? span_of(counts, from, in_element) : 0);
  block.in_addr = block.out_addr = in.address();
  if (!in_place) {
    block.out_addr = make_tensor(trial, "output", runs ? span_of(counts, to, out_element) : 0).address();
  }
  block.work_buffer = support::unreadable_address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_permute_process));
}

// ---- One-hot

std::string run_onehot_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_ONEHOT_PARM block{};
  const std::array<uint16_t, 4> extents = some_extents(source);
  block.width = static_cast<uint16_t>(unread(source));
  block.height = std::min<uint16_t>(extents[2], 40);
  block.channel = std::min<uint16_t>(extents[1], 12);
  block.batch = std::min<uint16_t>(extents[0], 6);
  block.axis = pick(source, 0, 3);
  block.depth = one_in(source, 12) ? -pick(source, 0, 3) : static_cast<int32_t>(some_size(source, 70));
  block.in_fmt = some_format(source);
  block.out_fmt = one_in(source, 8) ? some_format(source) : some_integer_format(source);
  block.values_fmt = format_beside(source, block.out_fmt);
  block.in_scale = one_in(source, 3) ? some_scale(source) : support::scale(1, 0);
  block.out_scale = some_scale(source);
  block.values_scale = some_scale(source);
  if (one_in(source, 12)) block.axis = one_of(source, {4, -1, -128, 2147483647});
  const int32_t out_width = width_of(block.out_fmt);
  const bool runs = (out_width == 8 || out_width == 16) && block.axis >= 0 && block.axis <= 3;
  const int32_t in_width = width_of(block.in_fmt);
  const bool converts =
      (in_width == 8 || in_width == 16) && (block.in_fmt.sign_bits == 0 || block.in_fmt.sign_bits == 1);
  const uint32_t in_element = converts ? static_cast<uint32_t>(in_width) / 8 : 1;
  const uint32_t out_element = out_width == 16 ? 2 : 1;

  const uint32_t length = block.depth < 0 ? 0 : static_cast<uint32_t>(block.depth);
  uint32_t axes[4] = {};  // the output's, from the dense one up
  const uint32_t others[3] = {block.height, block.channel, block.batch};
  const auto place = static_cast<uint32_t>(runs ? 3 - block.axis : 0);
  for (uint32_t i = 0, other = 0; i < 4; ++i) axes[i] = i == place ? length : others[other++];
  const bool is_empty = !runs || std::count(axes, axes + 4, 0u) != 0;
  uint32_t steps[4] = {out_element, 0, 0, 0};
  size_t out_bytes = out_element;
  for (size_t i = 0; i < 4; ++i) {
    if (i != 0) steps[i] = steps[i - 1] * axes[i - 1] + some_padding(source);
    out_bytes += size_t{steps[i]} * (std::max(axes[i], 1u) - 1);
  }
  block.out_line_ofs = steps[1];
  block.out_channel_ofs = steps[2];
  block.out_batch_ofs = steps[3];
  block.in_line_ofs = in_element * (1 + below(source, 3)) + below(source, 2);
  block.in_channel_ofs = block.in_line_ofs * block.height + below(source, 3);
  block.in_batch_ofs = block.in_channel_ofs * block.channel + below(source, 3);
  // The indices are there to be read even where no position is written.
  const bool has_indices = runs && converts && block.height != 0 && block.channel != 0 && block.batch != 0;
  size_t in_bytes = 0;
  if (has_indices) {
    in_bytes = in_element + size_t{block.in_line_ofs} * (block.height - 1u) +
               size_t{block.in_channel_ofs} * (block.channel - 1u) + size_t{block.in_batch_ofs} * (block.batch - 1u);
  }
  const GuardedMemory &in = make_tensor(trial, "indices", in_bytes);
  // Whole indices around the depth, not only what the random bytes of 16 bits give.
  if (one_in(source, 2)) {
    for (size_t i = 0; i < in.size(); ++i) in.data()[i] = static_cast<uint8_t>(i * 7 % (length + 3)) - 2;
  }
  block.in_addr = in.address();
  // The values are converted ahead of the check of the axis.
  const int32_t values_width = narrow_width_of(block.values_fmt);
  const bool has_values = (out_width == 8 || out_width == 16) && (values_width == 8 || values_width == 16);
  const size_t values_bytes = has_values ? static_cast<size_t>(values_width) / 4 : 0;
  block.values_addr = make_tensor(trial, "values", values_bytes).address();
  block.out_addr = make_tensor(trial, "output", is_empty ? 0 : out_bytes).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_onehot_process));
}

}  // namespace

std::span<const Operator> rearrange_operators() {
  static const Operator operators[] = {{"reverse", run_reverse_case, {"tarvu_reverse_process"}},
                                       {"permute", run_permute_case, {"tarvu_permute_process"}},
                                       {"onehot", run_onehot_case, {"tarvu_onehot_process"}},
                                       {"gridsample", run_gridsample_case, {"tarvu_gridsample_process"}}};
  return operators;
}

}  // namespace fuzz
