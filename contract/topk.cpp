// Top-K: the best elements of every line along an axis.
#include <algorithm>

#include "contract/formats.h"

namespace contract {
namespace {

#include "contract/topk_ids.inc"

constexpr const char *kExtents[] = {"batch", "channel", "height", "width"};

/// The call in numbers, indexed by axis.
struct Lines {
  uint32_t element_bytes;
  uint32_t extents[4];
  uint32_t length;  ///< of a line
  Wide elements;    ///< of the input
  bool has_lines;
  bool wants_values;
  bool wants_indices;
};

bool has_value(const Call &call, uint64_t address) {
  return address != 0 || (call.options & TARVU_CONTRACT_WITHOUT_ADDRESSES) != 0;
}

Lines lines_of(const Call &call, const _NN_TOPK_PARM &block) {
  Lines lines = {bytes_of_small(type_code_of(block.in_fmt)),
                 {block.batch, block.channel, block.height, block.width},
                 0,
                 1,
                 true,
                 has_value(call, block.out_addr),
                 has_value(call, block.out_index_addr)};
  lines.length = lines.extents[block.axis];
  for (int axis = 0; axis < 4; ++axis) {
    lines.elements *= lines.extents[axis];
    if (axis != block.axis && lines.extents[axis] == 0) lines.has_lines = false;
  }
  return lines;
}

/// Whether the result cannot be told without comparing or storing every element.
bool needs_input(const _NN_TOPK_PARM &block, const Lines &lines) {
  const bool ranks = block.k < lines.length || (block.sorted != 0 && lines.length > 1);
  return block.k != 0 && (lines.wants_values || (lines.wants_indices && ranks));
}

void add_output(RangeSink &sink, const _NN_TOPK_PARM &block, const Lines &lines, Range range,
                const uint32_t (&steps)[4], const char *const (&names)[4]) {
  for (int axis = 3; axis >= 0; --axis) {
    extend(range, axis == block.axis ? block.k : lines.extents[axis], steps[axis], axis, names[axis]);
  }
  add(sink, range);
}

uint64_t work_bytes(const _NN_TOPK_PARM &block, const Lines &lines) {
  return lines.has_lines ? 4 * uint64_t{std::max(block.k, lines.length)} : 0;
}

void topk_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_TOPK_PARM>(call);
  const Lines lines = lines_of(call, block);
  if (!lines.has_lines) return;
  const int32_t type = range_type_of(type_code_of(block.in_fmt));
  const uint32_t bytes = lines.element_bytes;
  Range in = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, type, bytes);
  in.exact = needs_input(block, lines) ? 1 : 0;
  int64_t step = bytes;
  for (int axis = 3; axis >= 0; --axis) {
    extend(in, lines.extents[axis], step, axis);
    if (axis != 0) step *= lines.extents[axis];
  }
  add(sink, in);
  if (lines.wants_values) {
    Range out = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, type, bytes);
    add_output(sink, block, lines, out, {block.out_batch_ofs, block.out_channel_ofs, block.out_line_ofs, bytes},
               {"out_batch_ofs", "out_channel_ofs", "out_line_ofs", nullptr});
  }
  if (lines.wants_indices) {
    Range out = range_of("out_index_addr", block.out_index_addr, TARVU_CONTRACT_WRITES, TARVU_CONTRACT_U16, 2);
    add_output(sink, block, lines, out,
               {block.out_index_batch_ofs, block.out_index_channel_ofs, block.out_index_line_ofs, 2},
               {"out_index_batch_ofs", "out_index_channel_ofs", "out_index_line_ofs", nullptr});
  }
  Range work = range_of("work_buffer", block.work_buffer, TARVU_CONTRACT_SCRATCH, TARVU_CONTRACT_U32, 4);
  work.exact = 0;  // how much of it a selection uses is left open
  work.alignment = 4;
  extend(work, work_bytes(block, lines) / 4, 4);
  add(sink, work);
}

uint64_t topk_scratch(const Call &call) {
  const auto block = block_of<_NN_TOPK_PARM>(call);
  return work_bytes(block, lines_of(call, block));
}

Refusal topk_refusal(const Call &call) {
  const auto block = block_of<_NN_TOPK_PARM>(call);
  const NN_AI_IO_TYPE in = type_code_of(block.in_fmt);
  if (!is_small(in)) {
    return {&kInputType,
            "in_fmt",
            width_of(block.in_fmt),
            {"tarvu_topk_process", "not support in_type = %d\r\n\033[0m", in},
            QX_ERR_UNSUPPORTED};
  }
  if (block.largest != 0 && block.largest != 1) {
    return {&kLargest,
            "largest",
            block.largest,
            {"tarvu_topk_large", "wrong parameter largest: %d\n\033[0m", block.largest},
            QX_ERR_UNSUPPORTED};
  }
  if (block.axis < 0 || block.axis > 3) {
    return {&kAxis,
            "axis",
            block.axis,
            {"tarvu_topk_general", "not support axis = %d\r\n\033[0m", block.axis},
            QX_ERR_UNSUPPORTED};
  }
  return {};
}

void topk_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_TOPK_PARM>(call);
  const Lines lines = lines_of(call, block);
  for (int axis = 0; axis < 4; ++axis) {
    if (axis != block.axis) check_extent(sink, kExtents[axis], lines.extents[axis]);
  }
  if (!lines.has_lines) return;
  check_extent(sink, "k", block.k);
  if (block.k > lines.length) add(sink, kTooMany, "k", block.k, {lines.length, 0, 0});
  check_wrap(sink, kExtents[0], static_cast<uint32_t>(lines.elements), lines.elements);
  if (lines.elements > Wide{INT32_MAX} + 1 && lines.elements <= Wide{UINT32_MAX}) {
    add(sink, kSignedOffsets, kExtents[0], lines.extents[0], {static_cast<int64_t>(lines.elements), 0, 0});
  }
  if (!lines.wants_values && !lines.wants_indices) add(sink, kNoOutput, "out_addr", 0);
  if (block.sorted == 0 && block.k > 1) {
    if (block.k == lines.length) add(sink, kOwnOrder, "k", block.k);
    if (block.k < lines.length) add(sink, kNoOrder, "sorted", 0, {block.k, 0, 0});
  }
}

void topk_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_TOPK_PARM>(call);
  if (block.axis < 0 || block.axis > 3 || (block.largest != 0 && block.largest != 1)) return;
  put(text, "  = the ");
  put_unsigned(text, block.k);
  put(text, block.largest == 1 ? " largest of every line along the " : " smallest of every line along the ");
  put(text, kExtents[block.axis]);
  put(text, block.sorted != 0 ? ", best first\n" : ", in no order\n");
}

}  // namespace

const Description kTopK = {topk_refusal, topk_ranges, topk_findings, topk_scratch, topk_words, nullptr};

}  // namespace contract
