// One-hot: class indices expanded along a new axis.
#include <algorithm>

#include "contract/formats.h"

namespace contract {
namespace {

#include "contract/onehot_ids.inc"

constexpr int32_t kGreatestDepth = 65535;
constexpr const char *kOutSteps[] = {"out_batch_ofs", "out_channel_ofs", "out_line_ofs", nullptr};

/// The output's axes, 0 the outermost.
struct Walk {
  uint32_t counts[4];
  uint32_t steps[4];
  uint32_t element_bytes;
  bool has_rows;  ///< anything is written
};

Walk walk_of(const _NN_ONEHOT_PARM &block) {
  const uint32_t element = bytes_of_small(type_code_of(block.out_fmt));
  Walk walk = {{}, {block.out_batch_ofs, block.out_channel_ofs, block.out_line_ofs, element}, element, false};
  const uint32_t depth = block.depth <= 0 ? 0 : static_cast<uint32_t>(std::min(block.depth, kGreatestDepth + 1));
  const uint32_t indices[] = {block.batch, block.channel, block.height};
  for (int32_t axis = 0, next = 0; axis < 4; ++axis) {
    walk.counts[axis] = axis == block.axis ? depth : indices[next++];
  }
  walk.has_rows = std::find(walk.counts, walk.counts + 4, 0u) == walk.counts + 4;
  return walk;
}

/// Kept: the conversion knows 0 and 1 as signs.
bool converts_index(const _NN_ONEHOT_PARM &block) {
  return is_small(type_code_of(block.in_fmt)) && (block.in_fmt.sign_bits == 0 || block.in_fmt.sign_bits == 1);
}

void add_values(RangeSink &sink, const _NN_ONEHOT_PARM &block, bool is_exact) {
  const uint32_t bytes = reformat_of(block.values_fmt, block.out_fmt, false).in_bytes;
  Range values =
      range_of("values_addr", block.values_addr, TARVU_CONTRACT_READS, integer_type_of(block.values_fmt, bytes), bytes);
  values.exact = is_exact ? 1 : 0;
  extend(values, 2, bytes);
  add(sink, values);
}

void onehot_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_ONEHOT_PARM>(call);
  const Walk walk = walk_of(block);
  if (converts_index(block)) {
    const NN_AI_IO_TYPE code = type_code_of(block.in_fmt);
    Range in = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, range_type_of(code), bytes_of_small(code));
    in.exact = walk.has_rows ? 1 : 0;
    extend(in, block.height, block.in_line_ofs, TARVU_CONTRACT_AXIS_HEIGHT, "in_line_ofs");
    extend(in, block.channel, block.in_channel_ofs, TARVU_CONTRACT_AXIS_CHANNEL, "in_channel_ofs");
    extend(in, block.batch, block.in_batch_ofs, TARVU_CONTRACT_AXIS_BATCH, "in_batch_ofs");
    add(sink, in);
  }
  add_values(sink, block, walk.has_rows);
  Range out = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, range_type_of(type_code_of(block.out_fmt)),
                       walk.element_bytes);
  for (int axis = 3; axis >= 0; --axis) extend(out, walk.counts[axis], walk.steps[axis], axis, kOutSteps[axis]);
  add(sink, out);
}

/// The values are converted before the axis is looked at.
void onehot_ranges_before_refusal(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_ONEHOT_PARM>(call);
  if (is_small(type_code_of(block.out_fmt))) add_values(sink, block, false);
}

Refusal onehot_refusal(const Call &call) {
  const auto block = block_of<_NN_ONEHOT_PARM>(call);
  const NN_AI_IO_TYPE out = type_code_of(block.out_fmt);
  if (!is_small(out)) {
    return {&kOutputType,
            "out_fmt",
            width_of(block.out_fmt),
            {nullptr, "not supported output type = %d\n", out},
            QX_ERR_UNSUPPORTED};
  }
  if (block.axis >= 0 && block.axis <= 3) return {};
  return {&kAxis, "axis", block.axis, {nullptr, "not supported axis = %d\n", block.axis}, QX_ERR_UNSUPPORTED};
}

void check_step(FindingSink &sink, const char *name, uint32_t count, uint32_t step) {
  if (count == 0 || name == nullptr) return;
  check_wrap(sink, name, (count - 1) * step, Wide{count - 1} * step);
}

void onehot_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_ONEHOT_PARM>(call);
  const Walk walk = walk_of(block);
  check_extent(sink, "batch", block.batch);
  check_extent(sink, "channel", block.channel);
  check_extent(sink, "height", block.height);
  if (block.depth <= 0) add(sink, kNoDepth, "depth", block.depth);
  if (!walk.has_rows) return;
  if (block.depth > kGreatestDepth) add(sink, kNeverEnds, "depth", block.depth);
  if (block.width > 1) add(sink, kOneColumn, "width", block.width);
  if (!converts_index(block)) {
    add(sink, kAllZero, "in_fmt", width_of(block.in_fmt), {width_of(block.in_fmt), block.in_fmt.sign_bits, 0});
  }
  if (reformat_of(block.values_fmt, block.out_fmt, false).out_bytes == 0) {
    add(sink, kNoValues, "values_fmt", width_of(block.values_fmt),
        {narrow_width_of(block.values_fmt), width_of(block.out_fmt), 0});
  } else {
    check_reformat(sink, block.values_fmt, block.out_fmt);
  }
  check_step(sink, "in_line_ofs", block.height, block.in_line_ofs);
  check_step(sink, "in_channel_ofs", block.channel, block.in_channel_ofs);
  check_step(sink, "in_batch_ofs", block.batch, block.in_batch_ofs);
  for (int axis = 0; axis < 4; ++axis) check_step(sink, kOutSteps[axis], walk.counts[axis], walk.steps[axis]);
}

/// The pair of values is read before anything is written.
bool onehot_may_overlap(const Call &call, const Range &other, const Range &written) {
  (void)call;
  (void)written;
  return std::strcmp(other.field, "values_addr") == 0;
}

void onehot_words(const Call &call, Text &text) {
  static constexpr const char *kAxes[] = {"batch items", "channels", "lines", "columns"};
  const auto block = block_of<_NN_ONEHOT_PARM>(call);
  if (block.axis < 0 || block.axis > 3) return;
  put(text, "  = each index turns one of ");
  put(text, int64_t{block.depth});
  put(text, " ");
  put(text, kAxes[block.axis]);
  put(text, " on\n");
}

}  // namespace

const Description kOneHot = {onehot_refusal,
                             onehot_ranges,
                             onehot_findings,
                             nullptr,
                             onehot_words,
                             onehot_may_overlap,
                             onehot_ranges_before_refusal};

}  // namespace contract
