// Permute: the axes of a tensor in another order.
#include <algorithm>

#include "contract/formats.h"
#include "contract/overlap.h"

namespace contract {
namespace {

#include "contract/rearrange_ids.inc"

constexpr const char *kExtents[] = {"batch", "channel", "height", "width"};
constexpr const char *kInSteps[] = {"in_batch_ofs", "in_channel_ofs", "in_line_ofs", nullptr};
constexpr const char *kOutSteps[] = {"out_batch_ofs", "out_channel_ofs", "out_line_ofs", nullptr};

bool moves_lines(const _NN_PERMUTE_PARM &block) { return block.order[3] == 3; }

/// Places of `order` that are walked as axes: of lines the first three, which have no width among them.
int axes_of(const _NN_PERMUTE_PARM &block) { return moves_lines(block) ? 3 : 4; }

/// First place of `order` that holds no axis, or -1.
int place_of_no_axis(const _NN_PERMUTE_PARM &block) {
  const int axes = axes_of(block);
  for (int i = 0; i < axes; ++i) {
    if (block.order[i] < 0 || block.order[i] >= axes) return i;
  }
  return -1;
}

/// Bytes of a copied element: kept, the bits divided by 8 without their rest.
int32_t copied_bytes(const _NN_PERMUTE_PARM &block) { return width_of(block.in_fmt) >> 3; }

/// Bytes of an element read and written, 0 for nothing.
Reformat moved_bytes(const _NN_PERMUTE_PARM &block) {
  if (!equal_records(block.in_fmt, block.out_fmt)) return reformat_of(block.in_fmt, block.out_fmt, false);
  const auto bytes = static_cast<uint32_t>(std::max(copied_bytes(block), 0));
  return {bytes, bytes};
}

/// Bytes that the walk of elements steps by along the width.
uint32_t in_element_of(const _NN_PERMUTE_PARM &block) { return bytes_of_small(type_code_of(block.in_fmt)); }

Refusal permute_refusal(const Call &call) {
  const auto block = block_of<_NN_PERMUTE_PARM>(call);
  if (moves_lines(block)) return {};
  const NN_AI_IO_TYPE in = type_code_of(block.in_fmt);
  if (!is_small(in)) {
    return {&kPermuteInput,
            "in_fmt",
            width_of(block.in_fmt),
            {"tarvu_permute_process", "unsupported input type %d\r\n\033[0m", in},
            QX_ERR_UNSUPPORTED};
  }
  const NN_AI_IO_TYPE out = type_code_of(block.out_fmt);
  if (!is_small(out)) {
    return {&kPermuteOutput,
            "out_fmt",
            width_of(block.out_fmt),
            {"tarvu_permute_process", "unsupported output type %d\r\n\033[0m", out},
            QX_ERR_UNSUPPORTED};
  }
  return {};
}

/// Runs or elements that come to lie where they lay are not moved, so where the tensors meet not every byte is touched.
bool leaves_some(const _NN_PERMUTE_PARM &block, const Range &in, const Range &out) {
  const bool same_place =
      equal_records(block.in_fmt, block.out_fmt) || reformat_of(block.in_fmt, block.out_fmt, true).out_bytes == 0;
  return same_place && block.in_addr != 0 && block.out_addr != 0 && overlap_of(in, out) != Overlap::kNone;
}

/// Every element stays where it is.
bool is_in_place(const Range &in, const Range &out) {
  if (in.address == 0 || in.address != out.address || in.extent_count != out.extent_count) return false;
  for (uint32_t i = 0; i < in.extent_count; ++i) {
    if (in.extents[i].count != 1 && in.extents[i].step != out.extents[i].step) return false;
  }
  return true;
}

void permute_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_PERMUTE_PARM>(call);
  if (place_of_no_axis(block) >= 0) return;
  const Reformat moved = moved_bytes(block);
  const bool lines = moves_lines(block);
  const uint32_t extents[] = {block.batch, block.channel, block.height, block.width};
  const uint32_t in_steps[] = {block.in_batch_ofs, block.in_channel_ofs, block.in_line_ofs,
                               lines ? moved.in_bytes : in_element_of(block)};
  const uint32_t out_steps[] = {block.out_batch_ofs, block.out_channel_ofs, block.out_line_ofs, moved.out_bytes};
  Range in = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, integer_type_of(block.in_fmt, moved.in_bytes),
                      moved.in_bytes);
  Range out = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES,
                       integer_type_of(block.out_fmt, moved.out_bytes), moved.out_bytes);
  for (int i = 3; i >= 0; --i) {
    const int axis = block.order[i];
    extend(in, extents[axis], in_steps[axis], axis, kInSteps[axis]);
    extend(out, extents[axis], out_steps[i], i, kOutSteps[i]);
  }
  const bool some = leaves_some(block, in, out);
  if (some && is_in_place(in, out)) return;
  in.exact = out.exact = some ? 0 : 1;
  add(sink, in);
  add(sink, out);
}

void permute_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_PERMUTE_PARM>(call);
  const int place = place_of_no_axis(block);
  if (place >= 0) return add(sink, kPermuteOrder, "order", block.order[place], {place, 0, 0});
  const uint32_t extents[] = {block.batch, block.channel, block.height, block.width};
  const int axes = axes_of(block);
  for (int i = 0; i < 4; ++i) check_extent(sink, kExtents[block.order[i]], extents[block.order[i]]);
  for (int i = 0; i < axes; ++i) {
    if (std::find(block.order, block.order + i, block.order[i]) != block.order + i) {
      add(sink, kSameAxisTwice, "order", block.order[i]);
      break;
    }
  }
  if (equal_records(block.in_fmt, block.out_fmt) && copied_bytes(block) < 0) {
    add(sink, kNegativeWidth, "in_fmt", width_of(block.in_fmt));
  }
  check_reformat(sink, block.in_fmt, block.out_fmt);
}

/// The identity of one tensor with equal formats moves nothing.
bool permute_may_overlap(const Call &, const Range &in, const Range &out) { return is_in_place(in, out); }

void permute_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_PERMUTE_PARM>(call);
  if (place_of_no_axis(block) >= 0) return;
  put(text, "  = output of");
  for (int i = 0; i < 4; ++i) {
    put(text, " ");
    put(text, kExtents[block.order[i]]);
  }
  put(text, moves_lines(block) ? ", moved by lines\n" : ", moved by elements\n");
}

}  // namespace

const Description kPermute = {permute_refusal, permute_ranges, permute_findings,
                              nullptr,         permute_words,  permute_may_overlap};

}  // namespace contract
