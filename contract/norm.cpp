// Norm: division by an L2 norm and a learned scale.
#include "contract/floats.h"

namespace contract {
namespace {

#include "contract/norm_ids.inc"

Extents extents_of(const _NN_NORM_PARM &block) { return {block.width, block.height, block.channel}; }

bool is_in_place(const _NN_FMT &fmt) { return type_code_of(fmt) == NN_AI_IO_TYPE_32BIT; }

void norm_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_NORM_PARM>(call);
  if (block.batch == 0) return;
  const Extents extents = extents_of(block);
  const uint32_t count = extents.count();
  const Element in = placed_element(block.in_fmt);
  const Element out = placed_element(block.out_fmt);
  Range read = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, in.type, in.bytes);
  read.exact = out.bytes != 0 ? 1 : 0;
  extend_dense(read, extents);
  extend(read, block.batch, block.in_batch_ofs, TARVU_CONTRACT_AXIS_BATCH, "in_batch_ofs");
  add(sink, read);
  const bool needs_scales = count != 0 && out.bytes != 0;
  add_floats(sink, "scale_addr", block.scale_addr, TARVU_CONTRACT_READS, block.shared_scale != 0 ? 1 : block.channel,
             needs_scales);
  Range written = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, out.type, out.bytes);
  extend_dense(written, extents);
  extend(written, block.batch, block.out_batch_ofs, TARVU_CONTRACT_AXIS_BATCH, "out_batch_ofs");
  add(sink, written);
  if (!is_in_place(block.in_fmt)) add_scratch(sink, block.work_buffer, 0, count);
  if (!is_in_place(block.out_fmt)) add_scratch(sink, block.work_buffer, 4 * count, count);
}

uint64_t norm_scratch(const Call &call) {
  const auto block = block_of<_NN_NORM_PARM>(call);
  return block.batch == 0 ? 0 : 8 * uint64_t{extents_of(block).count()};
}

void norm_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_NORM_PARM>(call);
  check_extent(sink, "width", block.width);
  check_extent(sink, "height", block.height);
  check_extent(sink, "channel", block.channel);
  check_extent(sink, "batch", block.batch);
  const Extents extents = extents_of(block);
  if (block.batch == 0 || extents.true_count() == 0) return;
  check_float_bytes(sink, "width", extents.true_count());
  const uint32_t in_bytes = placed_element(block.in_fmt).bytes;
  const uint32_t out_bytes = placed_element(block.out_fmt).bytes;
  if (in_bytes == 0) add(sink, kInputNotConverted, "in_fmt", width_of(block.in_fmt));
  if (out_bytes == 0) add(sink, kOutputNotConverted, "out_fmt", width_of(block.out_fmt));
  check_dense_lines(sink, kLinesAreDense, "in_line_ofs", block.in_line_ofs, block.height,
                    uint64_t{block.width} * in_bytes);
  check_dense_lines(sink, kLinesAreDense, "out_line_ofs", block.out_line_ofs, block.height,
                    uint64_t{block.width} * out_bytes);
  const uint32_t plane = extents.width * extents.height;
  if (block.norm_whole_item == 0 && plane > 15 && plane % 16 != 0) {
    add(sink, kEstimates, "norm_whole_item", 0, {plane - plane % 16, plane % 16, 0});
  }
  if (block.eps == 0.0f) add(sink, kNoEpsilon, "eps", 0);
}

/// In place, with the same element width and batch offset.
bool norm_may_overlap(const Call &call, const Range &other, const Range &written) {
  const auto block = block_of<_NN_NORM_PARM>(call);
  return std::strcmp(other.field, "in_addr") == 0 && written.role == TARVU_CONTRACT_WRITES &&
         other.address == written.address && other.element_bytes == written.element_bytes &&
         (block.batch == 1 || block.in_batch_ofs == block.out_batch_ofs);
}

void norm_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_NORM_PARM>(call);
  put(text, block.norm_whole_item != 0 ? "  = one norm for each item" : "  = one norm for each position");
  put(text, block.shared_scale != 0 ? ", one scale\n" : ", a scale for each channel\n");
}

}  // namespace

const Description kNorm = {nullptr, norm_ranges, norm_findings, norm_scratch, norm_words, norm_may_overlap};

}  // namespace contract
