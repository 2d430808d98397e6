// Fully-connected post-processing: partial results, corrections and outputs.
#include "contract/formats.h"
#include "contract/overlap.h"

namespace contract {
namespace {

#include "contract/fc_post_ids.inc"

/// Elements as this operator reads a format.
struct Elements {
  int32_t type;
  uint32_t bytes;
  uint32_t step;  ///< bytes from one to the next, the width over 8 whatever the type
};

Elements elements_of(const _NN_FMT &fmt) {
  const auto width = static_cast<uint8_t>(width_of(fmt));
  const bool has_sign = fmt.sign_bits == 1;
  const bool has_type = (has_sign || fmt.sign_bits == 0) && (width == 8 || width == 16);
  const uint32_t bytes = has_type ? width / 8u : 4u;
  if (!has_type) return {TARVU_CONTRACT_S32, bytes, width / 8u};
  if (bytes == 1) return {has_sign ? TARVU_CONTRACT_S8 : TARVU_CONTRACT_U8, bytes, width / 8u};
  return {has_sign ? TARVU_CONTRACT_S16 : TARVU_CONTRACT_U16, bytes, width / 8u};
}

/// Adds batch items that may step backwards.
void extend_by_items(Range &range, uint32_t items, int32_t item_bytes) {
  const int64_t step = item_bytes;
  if (step < 0 && items > 1) range.offset += step * (items - 1);
  extend(range, items, step < 0 ? -step : step, TARVU_CONTRACT_AXIS_BATCH);
}

/// Bytes from the first partial result of an item to its last one, which may be more than offsets hold.
uint64_t last_offset(const _NN_FC_POST_PARM &block, const Elements &in) {
  if (block.width == 0 || block.height == 0) return 0;
  return uint64_t{block.width - 1u} * in.step + uint64_t{block.height - 1u} * block.in_line_ofs;
}

/// The partial results of one item. Where offsets wrap they can lie anywhere within 2^32 bytes.
Range parts_of(const _NN_FC_POST_PARM &block) {
  const Elements in = elements_of(block.in_fmt);
  if (last_offset(block, in) > UINT32_MAX) {
    Range range = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, TARVU_CONTRACT_BYTES, 1);
    range.exact = 0;
    extend(range, uint64_t{UINT32_MAX} + in.bytes, 1);
    return range;
  }
  Range range = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, in.type, in.bytes);
  extend(range, block.width, in.step, TARVU_CONTRACT_AXIS_WIDTH);
  extend(range, block.height, block.in_line_ofs, TARVU_CONTRACT_AXIS_HEIGHT);
  return range;
}

Range outputs_of(const _NN_FC_POST_PARM &block) {
  const Elements out = elements_of(block.out_fmt);
  Range range = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, out.type, out.bytes);
  extend(range, block.width, out.step, TARVU_CONTRACT_AXIS_WIDTH);
  return range;
}

bool is_empty(const _NN_FC_POST_PARM &block) { return block.batch == 0 || block.width == 0; }

void fc_post_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_FC_POST_PARM>(call);
  if (is_empty(block)) return;
  if (block.height != 0) {
    Range in = parts_of(block);
    extend_by_items(in, block.batch, block.in_batch_ofs);
    add(sink, in);
  }
  Range bias = range_of("bias_addr", block.bias_addr, TARVU_CONTRACT_READS, TARVU_CONTRACT_S32, 4);
  extend(bias, block.width, 4, TARVU_CONTRACT_AXIS_WIDTH);
  add(sink, bias);
  Range out = outputs_of(block);
  extend_by_items(out, block.batch, block.out_batch_ofs);
  add(sink, out);
}

void check_format(FindingSink &sink, const char *field, const _NN_FMT &fmt) {
  const Elements elements = elements_of(fmt);
  if (elements.bytes != 4) return;
  const auto width = static_cast<uint8_t>(width_of(fmt));
  if (width == 32 && fmt.sign_bits == 1) return;
  add(sink, kWordElements, field, width, {elements.step, fmt.sign_bits, 0});
}

void check_items(FindingSink &sink, const char *field, const Range &item, uint32_t items, int32_t item_bytes) {
  const Wide bytes = span_of(item);
  const Wide step = item_bytes < 0 ? -Wide{item_bytes} : Wide{item_bytes};
  if (items > 1 && step < bytes) add(sink, kItemsFold, field, item_bytes, {static_cast<int64_t>(bytes), 0, 0});
}

/// Returns the shift as it is taken.
int32_t check_shift(FindingSink &sink, const char *field, int32_t sum) {
  const auto taken = static_cast<int8_t>(static_cast<uint32_t>(sum));
  if (taken != sum) add(sink, kShiftsWrap, field, sum, {sum, taken, 0});
  if (taken >= 64 || taken <= -64) add(sink, kLongShift, field, taken, {taken, 0, 0});
  return taken;
}

void check_multipliers(const _NN_FC_POST_PARM &block, FindingSink &sink) {
  if (block.mul_a.scale_value == 0) add(sink, kMultiplierOfZero, "mul_a", 0);
  if (block.mul_b.scale_value == 0) add(sink, kMultiplierOfZero, "mul_b", 0);
  const int32_t positive = check_shift(sink, "mul_b", block.mul_a.scale_shift + block.mul_b.scale_shift);
  check_shift(sink, "neg_mul", positive + block.neg_mul.scale_shift);
  const Wide product = Wide{block.mul_a.scale_value} * block.mul_b.scale_value * block.neg_mul.scale_value;
  const auto wrapped = static_cast<int64_t>(static_cast<uint64_t>(product));
  if (wrapped != product) add(sink, kMultiplierWraps, "neg_mul", block.neg_mul.scale_value, {wrapped, 0, 0});
}

void fc_post_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_FC_POST_PARM>(call);
  check_extent(sink, "batch", block.batch);
  check_extent(sink, "width", block.width);
  if (is_empty(block)) return;
  check_format(sink, "out_fmt", block.out_fmt);
  check_items(sink, "out_batch_ofs", outputs_of(block), block.batch, block.out_batch_ofs);
  check_multipliers(block, sink);
  if (block.height == 0) return add(sink, kNoParts, "height", 0);
  check_format(sink, "in_fmt", block.in_fmt);
  const uint64_t last = last_offset(block, elements_of(block.in_fmt));
  if (last > UINT32_MAX)
    return add(sink, kOffsetsWrap, "in_line_ofs", block.in_line_ofs, {static_cast<int64_t>(last), 0, 0});
  check_items(sink, "in_batch_ofs", parts_of(block), block.batch, block.in_batch_ofs);
}

}  // namespace

const Description kFcPost = {nullptr, fc_post_ranges, fc_post_findings, nullptr, nullptr, nullptr};

}  // namespace contract
