// Eltwise: the product or the weighted sum of two tensors.
#include "contract/floats.h"

namespace contract {
namespace {

#include "contract/eltwise_ids.inc"

/// One of the three tensors, with the names of its fields.
struct Tensor {
  const char *field;
  uint64_t address;
  uint32_t line_bytes;
  uint32_t channel_bytes;
  uint32_t batch_bytes;
  _NN_FMT fmt;
  const char *line_name;
  const char *channel_name;
  const char *batch_name;
  const char *fmt_name;
};

struct Tensors {
  Tensor all[3];  ///< both inputs, then the output
};

Tensors tensors_of(const _NN_ELTWISE_PARM &block) {
  return {{{"in0_addr", block.in0_addr, block.in0_line_ofs, block.in0_channel_ofs, block.in0_batch_ofs, block.in0_fmt,
            "in0_line_ofs", "in0_channel_ofs", "in0_batch_ofs", "in0_fmt"},
           {"in1_addr", block.in1_addr, block.in1_line_ofs, block.in1_channel_ofs, block.in1_batch_ofs, block.in1_fmt,
            "in1_line_ofs", "in1_channel_ofs", "in1_batch_ofs", "in1_fmt"},
           {"out_addr", block.out_addr, block.out_line_ofs, block.out_channel_ofs, block.out_batch_ofs, block.out_fmt,
            "out_line_ofs", "out_channel_ofs", "out_batch_ofs", "out_fmt"}}};
}

bool is_in_place(const Tensor &tensor) { return type_code_of(tensor.fmt) == NN_AI_IO_TYPE_32BIT; }

bool has_elements(const _NN_ELTWISE_PARM &block) {
  return block.width != 0 && block.height != 0 && block.channel != 0 && block.batch != 0;
}

void add_tensor(RangeSink &sink, const _NN_ELTWISE_PARM &block, const Tensor &tensor, int32_t role, bool is_exact) {
  const Element element = placed_element(tensor.fmt);
  Range range = range_of(tensor.field, tensor.address, role, element.type, element.bytes);
  range.exact = is_exact ? 1 : 0;
  extend(range, block.width, element.bytes, TARVU_CONTRACT_AXIS_WIDTH);
  if (is_in_place(tensor)) {
    extend(range, block.height, tensor.line_bytes, TARVU_CONTRACT_AXIS_HEIGHT, tensor.line_name);
  } else {
    extend(range, block.height, int64_t{block.width} * element.bytes, TARVU_CONTRACT_AXIS_HEIGHT);
  }
  extend(range, block.channel, tensor.channel_bytes, TARVU_CONTRACT_AXIS_CHANNEL, tensor.channel_name);
  extend(range, block.batch, tensor.batch_bytes, TARVU_CONTRACT_AXIS_BATCH, tensor.batch_name);
  add(sink, range);
}

void eltwise_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_ELTWISE_PARM>(call);
  if (!has_elements(block)) return;
  const Tensors tensors = tensors_of(block);
  const bool is_written = placed_element(block.out_fmt).bytes != 0;
  add_tensor(sink, block, tensors.all[0], TARVU_CONTRACT_READS, is_written);
  add_tensor(sink, block, tensors.all[1], TARVU_CONTRACT_READS, is_written);
  add_tensor(sink, block, tensors.all[2], TARVU_CONTRACT_WRITES, true);
  const uint32_t plane = uint32_t{block.width} * block.height;
  for (uint32_t i = 0; i < 3; ++i) {
    if (!is_in_place(tensors.all[i])) add_scratch(sink, block.work_buffer, uint64_t{i} * (4 * plane), plane);
  }
}

uint64_t eltwise_scratch(const Call &call) {
  const auto block = block_of<_NN_ELTWISE_PARM>(call);
  return has_elements(block) ? 3 * uint64_t{4 * uint32_t{block.width} * block.height} : 0;
}

void check_weight(FindingSink &sink, const char *field, float weight) {
  if (weight == 0.0f || weight == 1.0f) return;
  uint32_t bits;
  std::memcpy(&bits, &weight, sizeof bits);
  add(sink, kNoWeights, field, bits);
}

void eltwise_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_ELTWISE_PARM>(call);
  if (block.op != 0 && block.op != 1) {
    const Line line = {"tarvu_eltwise_process", "Eltwise layer: unsupported operation %d!\n\033[0m", block.op};
    add(sink, kOperation, "op", block.op, line, QX_OK);
  }
  check_extent(sink, "width", block.width);
  check_extent(sink, "height", block.height);
  check_extent(sink, "channel", block.channel);
  check_extent(sink, "batch", block.batch);
  if (!has_elements(block)) return;
  check_float_bytes(sink, "width", Wide{block.width} * block.height);
  const Tensors tensors = tensors_of(block);
  for (uint32_t i = 0; i < 3; ++i) {
    const Tensor &tensor = tensors.all[i];
    const uint32_t bytes = placed_element(tensor.fmt).bytes;
    if (bytes == 0) add(sink, i < 2 ? kInputNotConverted : kOutputNotConverted, tensor.fmt_name, width_of(tensor.fmt));
    if (is_in_place(tensor)) continue;
    check_dense_lines(sink, kLinesAreDense, tensor.line_name, tensor.line_bytes, block.height,
                      uint64_t{block.width} * bytes);
  }
  if (block.op == 0) {
    check_weight(sink, "coeff0", block.coeff0);
    check_weight(sink, "coeff1", block.coeff1);
  }
}

/// Over an input of the same element width and offsets.
bool eltwise_may_overlap(const Call &call, const Range &other, const Range &written) {
  if (other.role != TARVU_CONTRACT_READS || written.role != TARVU_CONTRACT_WRITES) return false;
  if (other.address != written.address || other.element_bytes != written.element_bytes) return false;
  const auto block = block_of<_NN_ELTWISE_PARM>(call);
  const Tensors tensors = tensors_of(block);
  const Tensor &out = tensors.all[2];
  const Tensor &in = tensors.all[std::strcmp(other.field, "in0_addr") == 0 ? 0 : 1];
  const bool same_lines = block.height == 1 || !is_in_place(out) || in.line_bytes == out.line_bytes;
  const bool same_channels = block.channel == 1 || in.channel_bytes == out.channel_bytes;
  const bool same_items = block.batch == 1 || in.batch_bytes == out.batch_bytes;
  return same_lines && same_channels && same_items;
}

void eltwise_words(const Call &call, Text &text) {
  put(text, block_of<_NN_ELTWISE_PARM>(call).op == 0 ? "  = in0 * in1\n" : "  = coeff0 * in0 + coeff1 * in1\n");
}

}  // namespace

const Description kEltwise = {nullptr,         eltwise_ranges, eltwise_findings,
                              eltwise_scratch, eltwise_words,  eltwise_may_overlap};

}  // namespace contract
