// Softmax by table: exponentials of signed 16-bit elements.
#include <algorithm>

#include "contract/contents.h"

namespace contract {
namespace {

#include "contract/softmax_table_ids.inc"

constexpr int32_t kFracBits = 6;
constexpr int32_t kLimit = 8191;

/// Elements at the end of an item that are brought to 6 fraction bits in another way.
uint32_t single_elements(uint32_t count, int32_t shift) {
  const uint32_t tail = count % 8;
  if (shift <= 0) return 0;
  return tail <= 5 ? tail : tail - 4;
}

/// An element brought to 6 fraction bits, `shift` bits to the left.
int32_t brought(int16_t element, int32_t shift, bool is_single) {
  if (shift <= 0) return element >> std::min(-shift, 15);
  if (is_single) return element < 0 ? -1 : 0;
  return static_cast<int16_t>(static_cast<uint16_t>(element) << shift);
}

/// The first difference of an item that wraps above 0, or 0.
struct Excess {
  int32_t difference;
  uint32_t element;
};

Excess excess_of(uint64_t item, uint32_t count, int32_t shift) {
  const uint32_t in_blocks = count - single_elements(count, shift);
  const auto value = [=](uint32_t i) {
    return brought(value_at<int16_t>(item + 2 * uint64_t{i}), shift, i >= in_blocks);
  };
  int32_t most = INT16_MIN;
  for (uint32_t i = 0; i < count; ++i) most = std::max(most, value(i));
  for (uint32_t i = 0; i < count; ++i) {
    const auto difference = static_cast<int16_t>(static_cast<uint16_t>(value(i) - most));
    if (difference > 0) return {difference, i};
  }
  return {0, 0};
}

int32_t shift_of(const _NN_SOFTMAX_PARM &block) { return kFracBits - static_cast<uint8_t>(block.in_fmt.frac_bits); }

void add_elements(RangeSink &sink, const char *field, uint64_t address, int32_t role, const _NN_SOFTMAX_PARM &block) {
  Range range = range_of(field, address, role, TARVU_CONTRACT_S16, 2);
  extend(range, block.channel, 2, TARVU_CONTRACT_AXIS_CHANNEL);
  extend(range, block.batch, 2 * int64_t{block.channel}, TARVU_CONTRACT_AXIS_BATCH);
  add(sink, range);
}

void table_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_SOFTMAX_PARM>(call);
  add_elements(sink, "in_addr", block.in_addr, TARVU_CONTRACT_READS, block);
  add_elements(sink, "out_addr", block.out_addr, TARVU_CONTRACT_WRITES, block);
}

Refusal refusal_with(const Call &call, int32_t result) {
  const auto block = block_of<_NN_SOFTMAX_PARM>(call);
  constexpr const char *kChecker = "vendor_ais_checkparm";
  if (block.batch == 0) {
    return {&kNoItems, "batch", 0, {kChecker, "batch num should be positive, but input is %d\r\n\033[0m", 0}, result};
  }
  if (block.channel == 0) {
    return {
        &kNoElements, "channel", 0, {kChecker, "channel should be positive, but input is %d\r\n\033[0m", 0}, result};
  }
  return {};
}

Refusal table_refusal(const Call &call) { return refusal_with(call, QX_ERR_PARAM); }
Refusal check_refusal(const Call &call) { return refusal_with(call, 2); }

void check_contents(FindingSink &sink, const _NN_SOFTMAX_PARM &block) {
  for (uint32_t item = 0; item < block.batch; ++item) {
    const uint64_t address = block.in_addr + 2 * uint64_t{item} * block.channel;
    const Excess excess = excess_of(address, block.channel, shift_of(block));
    if (excess.difference == 0) continue;
    Line line = {"vendor_submax_s16", "idx %d over limit %d\r\n\033[0m", excess.difference + kLimit};
    line.more[0] = kLimit;
    add(sink, kOverLimit, "in_addr", static_cast<int64_t>(block.in_addr), line, QX_OK, {item, excess.element, 0});
  }
}

void table_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_SOFTMAX_PARM>(call);
  if (call.reads_contents() && block.in_addr != 0) check_contents(sink, block);
  const uint32_t single = single_elements(block.channel, shift_of(block));
  if (single != 0) add(sink, kTailCollapses, "in_fmt", block.in_fmt.frac_bits, {single, 0, 0});
  if (type_code_of(block.in_fmt) != NN_AI_IO_TYPE_INT16) add(sink, kOtherElements, "in_fmt", width_of(block.in_fmt));
  const uint32_t item_bytes = 2u * block.channel;
  const auto check_offset = [&](const char *field, uint32_t offset) {
    if (offset == 0 || offset == item_bytes || block.batch == 1) return;
    add(sink, kItemsAreDense, field, offset, {item_bytes, 0, 0});
  };
  check_offset("in_batch_ofs", block.in_batch_ofs);
  check_offset("out_batch_ofs", block.out_batch_ofs);
  if (block.width > 1) add(sink, kOnlyChannels, "width", block.width);
  if (block.height > 1) add(sink, kOnlyChannels, "height", block.height);
}

/// In place.
bool table_may_overlap(const Call &, const Range &other, const Range &written) {
  return other.address == written.address;
}

void table_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_SOFTMAX_PARM>(call);
  put(text, "  = exponentials of ");
  put_unsigned(text, block.batch);
  put(text, " items of ");
  put_unsigned(text, block.channel);
  put(text, " elements\n");
}

}  // namespace

const Description kSoftmaxTable = {table_refusal, table_ranges, table_findings,
                                   nullptr,       table_words,  table_may_overlap};
const Description kSoftmaxTableCheck = {check_refusal, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace contract
