// Layer normalisation, with the mean of the data and with a constant one.
#include "contract/floats.h"

namespace contract {
namespace {

#include "contract/layernorm_ids.inc"

constexpr uint32_t kSumBlock = 16;

/// Runs as the operators reckon them.
struct Runs {
  int64_t axis;  ///< as it is written back
  uint32_t length;
  uint64_t count;     ///< of all items
  uint32_t elements;  ///< of the tensor
  uint32_t tail;      ///< elements at the end of a run that are left over from blocks
};

Runs runs_of(const _NN_LAYERNORM_PARM &block) {
  const uint32_t extents[] = {block.batch, block.channel, block.height, block.width};
  Runs runs = {block.axis <= 0 ? int64_t{block.axis} + 4 : block.axis, 1, block.batch, 1, 0};
  uint32_t outer = 1;
  for (int axis = 0; axis < 4; ++axis) {
    runs.elements *= extents[axis];
    if (axis >= runs.axis) runs.length *= extents[axis];
    if (axis >= 1 && axis < runs.axis) outer *= extents[axis];
  }
  runs.count *= outer;
  runs.tail = runs.length % kSumBlock;
  return runs;
}

Wide true_elements_of(const _NN_LAYERNORM_PARM &block) {
  return Wide{block.batch} * block.channel * block.height * block.width;
}

bool is_in_place(const _NN_FMT &fmt) { return type_code_of(fmt) == NN_AI_IO_TYPE_32BIT; }
bool is_present(uint64_t address) { return address != TARVU_LAYERNORM_ABSENT; }

bool has_constant_mean(const Call &call) { return std::strcmp(call.info.name, "tarvu_layernorm_process_neon") == 0; }

bool leaves_tails(const Call &call, const _NN_LAYERNORM_PARM &block) {
  return has_constant_mean(call) && !is_present(block.gamma_addr) && !is_present(block.beta_addr);
}

/// Adds the elements of a tensor from `first` on in every run.
void add_runs(RangeSink &sink, Range range, const Runs &runs, uint32_t first, uint32_t count) {
  range.offset = int64_t{first} * range.element_bytes;
  extend(range, count, range.element_bytes);
  extend(range, runs.count, int64_t{runs.length} * range.element_bytes);
  add(sink, range);
}

void add_converted(RangeSink &sink, Range range, const Runs &runs) {
  extend(range, runs.elements, range.element_bytes);
  add(sink, range);
}

/// What the operators write to the block itself.
void add_block(RangeSink &sink, const Call &call) {
  Range sizes = range_of("parm", call.argument[0], TARVU_CONTRACT_WRITES, TARVU_CONTRACT_U32, 4);
  sizes.offset = offsetof(_NN_LAYERNORM_PARM, outer_size);
  extend(sizes, 2, 4);
  add(sink, sizes);
  Range axis = range_of("parm", call.argument[0], TARVU_CONTRACT_WRITES, TARVU_CONTRACT_S32, 4);
  axis.offset = offsetof(_NN_LAYERNORM_PARM, axis);
  extend(axis, 1, 4);
  add(sink, axis);
}

void layernorm_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_LAYERNORM_PARM>(call);
  const Runs runs = runs_of(block);
  const Element in = placed_element(block.in_fmt);
  const Element out = placed_element(block.out_fmt);
  Range read = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, in.type, in.bytes);
  read.exact = out.bytes != 0 ? 1 : 0;
  if (is_in_place(block.in_fmt)) {
    add_runs(sink, read, runs, 0, runs.length);
    if (has_constant_mean(call)) {
      Range tails = range_of("in_addr", block.in_addr, TARVU_CONTRACT_WRITES, TARVU_CONTRACT_F32, 4);
      add_runs(sink, tails, runs, runs.length - runs.tail, runs.tail);
    }
  } else {
    add_converted(sink, read, runs);
  }
  const uint32_t learned = runs.count == 0 ? 0 : runs.length;
  const bool is_written = out.bytes != 0;
  if (is_present(block.gamma_addr)) {
    add_floats(sink, "gamma_addr", block.gamma_addr, TARVU_CONTRACT_READS, learned, is_written);
  }
  if (is_present(block.beta_addr)) {
    add_floats(sink, "beta_addr", block.beta_addr, TARVU_CONTRACT_READS, learned, is_written);
  }
  Range written = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, out.type, out.bytes);
  if (is_in_place(block.out_fmt)) {
    add_runs(sink, written, runs, 0, leaves_tails(call, block) ? runs.length - runs.tail : runs.length);
  } else {
    add_converted(sink, written, runs);
  }
  const uint64_t floats = runs.count * runs.length;
  if (!is_in_place(block.in_fmt)) add_scratch(sink, block.work_buffer, 0, floats);
  if (!is_in_place(block.out_fmt)) add_scratch(sink, block.work_buffer, 4 * runs.elements, floats);
  add_block(sink, call);
}

uint64_t layernorm_scratch(const Call &call) {
  return 8 * uint64_t{runs_of(block_of<_NN_LAYERNORM_PARM>(call)).elements};
}

void check_constant_mean(FindingSink &sink, const Call &call, const _NN_LAYERNORM_PARM &block, const Runs &runs) {
  add(sink, kConstantMean, "parm", static_cast<int64_t>(call.argument[0]));
  if (runs.tail == 0) return;
  if (leaves_tails(call, block))
    add(sink, kTailNotWritten, "out_addr", static_cast<int64_t>(block.out_addr), {runs.tail, 0, 0});
  if (is_in_place(block.in_fmt)) {
    add(sink, kInputOverwritten, "in_addr", static_cast<int64_t>(block.in_addr), {runs.tail, 0, 0});
  }
}

void layernorm_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_LAYERNORM_PARM>(call);
  const Runs runs = runs_of(block);
  if (runs.axis < 0) return add(sink, kAxisInFront, "axis", block.axis);
  check_extent(sink, "width", block.width);
  check_extent(sink, "height", block.height);
  check_extent(sink, "channel", block.channel);
  check_extent(sink, "batch", block.batch);
  const Wide elements = true_elements_of(block);
  if (elements == 0) return;
  check_float_bytes(sink, "width", elements);
  if (runs.axis == 0 && block.batch > 1) add(sink, kLeavesTensor, "axis", block.axis, {block.batch, 0, 0});
  if (runs.axis > 3) add(sink, kSingleElements, "axis", block.axis, {runs.axis, 0, 0});
  const uint32_t in_bytes = placed_element(block.in_fmt).bytes;
  const uint32_t out_bytes = placed_element(block.out_fmt).bytes;
  if (in_bytes == 0) add(sink, kInputNotConverted, "in_fmt", width_of(block.in_fmt));
  if (out_bytes == 0) add(sink, kOutputNotConverted, "out_fmt", width_of(block.out_fmt));
  check_dense_lines(sink, kLinesAreDense, "in_line_ofs", block.in_line_ofs, block.height,
                    uint64_t{block.width} * in_bytes);
  check_dense_lines(sink, kLinesAreDense, "out_line_ofs", block.out_line_ofs, block.height,
                    uint64_t{block.width} * out_bytes);
  if (has_constant_mean(call)) check_constant_mean(sink, call, block, runs);
  if (block.eps == 0.0f) add(sink, kNoEpsilon, "eps", 0);
}

/// In place, with the same element width.
bool layernorm_may_overlap(const Call &, const Range &other, const Range &written) {
  return std::strcmp(other.field, "in_addr") == 0 && std::strcmp(written.field, "out_addr") == 0 &&
         other.address == written.address && other.element_bytes == written.element_bytes;
}

void layernorm_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_LAYERNORM_PARM>(call);
  const Runs runs = runs_of(block);
  if (runs.axis < 0) return;
  put(text, "  = ");
  put_unsigned(text, runs.count);
  put(text, " runs of ");
  put_unsigned(text, runs.length);
  put(text, has_constant_mean(call) ? " elements, around a constant\n" : " elements, around their means\n");
}

}  // namespace

const Description kLayernorm = {nullptr,           layernorm_ranges, layernorm_findings,
                                layernorm_scratch, layernorm_words,  layernorm_may_overlap};

}  // namespace contract
