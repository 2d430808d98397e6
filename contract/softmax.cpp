// Softmax along an axis, with and without zero points: batches, single items, the whole tensor, and runs of floats.
#include "contract/floats.h"

namespace contract {
namespace {

#include "contract/softmax_ids.inc"

/// Where a form of softmax has its item or items.
struct Forms {
  const char *in;
  const char *out;
  bool is_batch;  ///< of `batch` items, `in_batch_ofs` and `out_batch_ofs` apart
};

constexpr Forms kBatch = {"in_addr", "out_addr", true};
constexpr Forms kOneItem = {"in", "out", false};

/// A call in numbers.
struct Softmax {
  Forms form;
  uint64_t in_addr;
  uint64_t out_addr;
  uint32_t items;
  uint32_t in_item_bytes;  ///< bytes between items
  uint32_t out_item_bytes;
  Extents extents;
  Element in;
  Element out;
  bool takes_floats;
};

bool takes_floats(const _NN_FMT &fmt) { return fmt.sign_bits == 1 && width_of(fmt) == 32; }

bool gives_floats(const _NN_FMT &fmt) { return width_of(fmt) != 8 && width_of(fmt) != 16; }

template <class Block>
Softmax softmax_of(const Call &call, const Block &block, const Forms &form) {
  Softmax softmax = {form,
                     form.is_batch ? block.in_addr : call.argument[1],
                     form.is_batch ? block.out_addr : call.argument[2],
                     form.is_batch ? block.batch : 1u,
                     block.in_batch_ofs,
                     block.out_batch_ofs,
                     {block.width, block.height, block.channel},
                     converted_element(block.in_fmt),
                     gives_floats(block.out_fmt) ? kFloatElement : converted_element(block.out_fmt),
                     takes_floats(block.in_fmt)};
  if (softmax.takes_floats) {
    // Kept: floats come from the block's address and are those of the first item for every item.
    softmax.form.in = "in_addr";
    softmax.in_addr = block.in_addr;
    softmax.in = kFloatElement;
  }
  return softmax;
}

void add_input(RangeSink &sink, const Softmax &softmax, bool is_exact) {
  if (softmax.items == 0) return;
  Range range = range_of(softmax.form.in, softmax.in_addr, TARVU_CONTRACT_READS, softmax.in.type, softmax.in.bytes);
  range.exact = is_exact ? 1 : 0;
  extend_dense(range, softmax.extents);
  if (softmax.form.is_batch && !softmax.takes_floats) {
    extend(range, softmax.items, softmax.in_item_bytes, TARVU_CONTRACT_AXIS_BATCH, "in_batch_ofs");
  }
  add(sink, range);
}

bool is_served(int32_t axis) { return axis != 0 && axis <= 3; }

template <class Block, const Forms &form>
void softmax_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<Block>(call);
  const Softmax softmax = softmax_of(call, block, form);
  if (softmax.items == 0) return;
  add_input(sink, softmax, softmax.out.bytes != 0);
  Range out = range_of(form.out, softmax.out_addr, TARVU_CONTRACT_WRITES, softmax.out.type, softmax.out.bytes);
  extend_dense(out, softmax.extents);
  if (form.is_batch) {
    extend(out, softmax.items, softmax.out_item_bytes, TARVU_CONTRACT_AXIS_BATCH, "out_batch_ofs");
  }
  add(sink, out);
  const uint32_t floats = softmax.extents.count();
  add_scratch(sink, block.work_buffer, 0, floats);
  if (!gives_floats(block.out_fmt)) add_scratch(sink, block.work_buffer, 4 * floats, floats);
}

/// The input is converted before the axis is looked at.
template <class Block, const Forms &form>
void softmax_ranges_before_refusal(const Call &call, RangeSink &sink) {
  const auto block = block_of<Block>(call);
  const Softmax softmax = softmax_of(call, block, form);
  add_input(sink, softmax, false);
  if (softmax.in.bytes != 0) add_scratch(sink, block.work_buffer, 0, softmax.extents.count());
}

template <class Block, const Forms &form>
uint64_t softmax_scratch(const Call &call) {
  const auto block = block_of<Block>(call);
  const Extents extents = {block.width, block.height, block.channel};
  return form.is_batch && block.batch == 0 ? 0 : 8 * uint64_t{extents.count()};
}

constexpr bool has_zero_points(const _NN_SOFTMAX_PARM &) { return false; }
constexpr bool has_zero_points(const _NN_SOFTMAX_ASYM_PARM &) { return true; }

template <class Block, const Forms &form>
Refusal softmax_refusal(const Call &call) {
  const auto block = block_of<Block>(call);
  const uint32_t items = form.is_batch ? block.batch : 1u;
  if (is_served(block.axis) || items == 0) return {};
  Line line = {has_zero_points(block) ? "tarvu_softmax_asym_process_one_batch" : "tarvu_softmax_process_one_batch",
               "Softmax cpu Layer is not support axis = 0 or axis > 3, please convert dimensions.\r\n\033[0m",
               static_cast<int32_t>(items)};
  line.times = items;
  return {&kAxis, "axis", block.axis, line, QX_ERR_UNSUPPORTED};
}

/// What is to be said of extents and formats, whatever the form is.
template <class Block>
void check_item(FindingSink &sink, const Block &block) {
  check_extent(sink, "width", block.width);
  check_extent(sink, "height", block.height);
  check_extent(sink, "channel", block.channel);
  const uint32_t in_bytes = takes_floats(block.in_fmt) ? 4 : converted_bytes(block.in_fmt);
  const uint32_t out_bytes = gives_floats(block.out_fmt) ? 4 : converted_bytes(block.out_fmt);
  const int32_t out_width = width_of(block.out_fmt);
  if (in_bytes == 0) add(sink, kNotConverted, "in_fmt", width_of(block.in_fmt));
  if (out_bytes == 0) add(sink, kDropped, "out_fmt", block.out_fmt.sign_bits);
  if (gives_floats(block.out_fmt) && out_width != 32) add(sink, kWrittenAsFloats, "out_fmt", out_width);
  check_dense_lines(sink, kLinesAreDense, "in_line_ofs", block.in_line_ofs, block.height,
                    uint64_t{block.width} * in_bytes);
  check_dense_lines(sink, kLinesAreDense, "out_line_ofs", block.out_line_ofs, block.height,
                    uint64_t{block.width} * out_bytes);
  if constexpr (requires { block.in_zero_point; }) {
    const bool takes_input_zero = converted_bytes(block.out_fmt) == 1 && block.out_fmt.sign_bits == 1;
    if (takes_input_zero && block.in_zero_point != block.out_zero_point) {
      add(sink, kInputZeroPoint, "out_zero_point", block.out_zero_point, {block.in_zero_point, 0, 0});
    }
  }
}

template <class Block, const Forms &form>
void softmax_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<Block>(call);
  const Extents extents = {block.width, block.height, block.channel};
  if (form.is_batch) {
    check_extent(sink, "batch", block.batch);
    if (block.batch == 0) return;
    const uint32_t further = block.batch - 1u;
    if (takes_floats(block.in_fmt)) {
      if (further != 0) add(sink, kFirstItem, "batch", block.batch);
    } else {
      check_wrap(sink, "in_batch_ofs", further * block.in_batch_ofs, Wide{further} * block.in_batch_ofs);
    }
    check_wrap(sink, "out_batch_ofs", further * block.out_batch_ofs, Wide{further} * block.out_batch_ofs);
  }
  check_float_bytes(sink, "width", extents.true_count());
  check_item(sink, block);
  if (block.axis < 0) add(sink, kWholeItem, "axis", block.axis);
  const uint16_t lengths[] = {0, block.channel, block.height, block.width};
  if (block.axis > 0 && lengths[block.axis] == 1) add(sink, kSingleElements, "axis", block.axis);
}

/// In place, item by item.
template <class Block, const Forms &form>
bool softmax_may_overlap(const Call &call, const Range &other, const Range &written) {
  const auto block = block_of<Block>(call);
  const bool one_item = !form.is_batch || block.batch == 1;
  const bool same_items = one_item || (block.in_batch_ofs == block.out_batch_ofs && !takes_floats(block.in_fmt));
  return other.role == TARVU_CONTRACT_READS && written.role == TARVU_CONTRACT_WRITES &&
         other.address == written.address && other.element_bytes == written.element_bytes && same_items;
}

void put_axis(Text &text, int32_t axis) {
  static constexpr const char *kAxes[] = {"consecutive elements", "the channels", "the height", "the width"};
  put(text, "  = softmax along ");
  put(text, axis < 0 || axis > 3 ? "all elements of an item" : kAxes[axis]);
  put(text, "\n");
}

template <class Block>
void softmax_words(const Call &call, Text &text) {
  const auto block = block_of<Block>(call);
  if (is_served(block.axis)) put_axis(text, block.axis);
}

// ---- The whole tensor in one

/// Groups of tarvu_softmax_process_0().
struct Groups {
  bool columns;       ///< along the channels of the first item
  uint32_t length;    ///< of consecutive elements
  uint32_t computed;  ///< elements from the start
};

Groups groups_of(const _NN_SOFTMAX_PARM &block) {
  const uint32_t item = uint32_t{block.channel} * block.height * block.width;
  if (block.axis == 1 && static_cast<int32_t>(uint32_t{block.height} * block.width) > 1) {
    return {true, block.channel, block.channel == 0 ? 0 : item};
  }
  const uint16_t extents[] = {block.batch, block.channel, block.height, block.width};
  const uint32_t length = block.axis >= 0 && block.axis <= 3 ? extents[block.axis] : 1;
  return {false, length, length == 0 ? 0 : item / length * length};
}

Wide true_count_of(const _NN_SOFTMAX_PARM &block) {
  return Wide{block.batch} * block.channel * block.height * block.width;
}

void tensor_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_SOFTMAX_PARM>(call);
  const auto count = static_cast<uint32_t>(true_count_of(block));
  const Groups groups = groups_of(block);
  const Element in = takes_floats(block.in_fmt) ? kFloatElement : converted_element(block.in_fmt);
  const bool as_floats = gives_floats(block.out_fmt);
  const Element out = as_floats ? kFloatElement : converted_element(block.out_fmt);
  const uint32_t computed = out.bytes == 0 ? 0 : groups.computed;
  Range read = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, in.type, in.bytes);
  extend(read, computed < count ? computed : count, in.bytes);
  add(sink, read);
  read.exact = 0;  // items that are converted and not computed
  read.extents[0].count = count;
  if (computed < count) add(sink, read);
  Range written = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, out.type, out.bytes);
  extend(written, as_floats ? groups.computed : count, out.bytes);
  add(sink, written);
  add_scratch(sink, block.work_buffer, 0, count);
  if (!as_floats) add_scratch(sink, block.work_buffer, 4 * count, count);
}

uint64_t tensor_scratch(const Call &call) {
  return 8 * uint64_t{static_cast<uint32_t>(true_count_of(block_of<_NN_SOFTMAX_PARM>(call)))};
}

void tensor_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_SOFTMAX_PARM>(call);
  const Groups groups = groups_of(block);
  check_float_bytes(sink, "batch", true_count_of(block));
  check_item(sink, block);
  if (groups.length == 0 || block.width == 0 || block.height == 0 || block.channel == 0) return;
  if (block.batch == 0) return add(sink, kNoItemSized, "batch", 0);
  if (block.batch > 1) add(sink, kOneItemComputed, "batch", block.batch);
  if (block.axis < 0 || block.axis > 3) return add(sink, kNoSuchAxis, "axis", block.axis);
  const bool lies_apart = block.axis == 0 || (block.axis == 2 && block.width > 1);
  if (!groups.columns && lies_apart && groups.length > 1) {
    add(sink, kConsecutive, "axis", block.axis, {groups.length, 0, 0});
  }
}

/// In place: all of the input is converted before anything is written.
bool tensor_may_overlap(const Call &, const Range &other, const Range &written) {
  return other.role == TARVU_CONTRACT_READS && written.role == TARVU_CONTRACT_WRITES &&
         other.address == written.address && other.element_bytes == written.element_bytes;
}

void tensor_words(const Call &call, Text &text) { put_axis(text, block_of<_NN_SOFTMAX_PARM>(call).axis); }

// ---- Floats of one item

template <class Block>
void floats_ranges(const Call &call, RangeSink &sink) {
  const auto block = record_at<Block>(call, 2);
  const Extents extents = {block.width, block.height, block.channel};
  Range in = range_of("in", call.argument[0], TARVU_CONTRACT_READS, TARVU_CONTRACT_F32, 4);
  extend_dense(in, extents);
  add(sink, in);
  Range out = range_of("out", call.argument[1], TARVU_CONTRACT_WRITES, TARVU_CONTRACT_F32, 4);
  extend_dense(out, extents);
  add(sink, out);
  Range parm = range_of("parm", call.argument[2], TARVU_CONTRACT_PARAMETER, TARVU_CONTRACT_BYTES, 1);
  parm.exact = 0;  // the extents and the axis
  extend(parm, sizeof(Block), 1);
  add(sink, parm);
}

template <class Block>
void floats_findings(const Call &call, FindingSink &sink) {
  if (call.argument[2] == 0) return;
  const auto block = record_at<Block>(call, 2);
  const Extents extents = {block.width, block.height, block.channel};
  check_extent(sink, "parm", extents.true_count() == 0 ? 0 : 1);
  check_wrap(sink, "parm", extents.count(), extents.true_count());
}

}  // namespace

#define DESCRIBE(name, block, form)                           \
  const Description name = {softmax_refusal<block, form>,     \
                            softmax_ranges<block, form>,      \
                            softmax_findings<block, form>,    \
                            softmax_scratch<block, form>,     \
                            softmax_words<block>,             \
                            softmax_may_overlap<block, form>, \
                            softmax_ranges_before_refusal<block, form>};
DESCRIBE(kSoftmax, _NN_SOFTMAX_PARM, kBatch)
DESCRIBE(kSoftmaxItem, _NN_SOFTMAX_PARM, kOneItem)
DESCRIBE(kSoftmaxAsym, _NN_SOFTMAX_ASYM_PARM, kBatch)
DESCRIBE(kSoftmaxAsymItem, _NN_SOFTMAX_ASYM_PARM, kOneItem)
#undef DESCRIBE
const Description kSoftmaxTensor = {nullptr,        tensor_ranges, tensor_findings,
                                    tensor_scratch, tensor_words,  tensor_may_overlap};
const Description kSoftmaxFloats = {
    nullptr, floats_ranges<_NN_SOFTMAX_PARM>, floats_findings<_NN_SOFTMAX_PARM>, nullptr, nullptr, nullptr};
const Description kSoftmaxAsymFloats = {
    nullptr, floats_ranges<_NN_SOFTMAX_ASYM_PARM>, floats_findings<_NN_SOFTMAX_ASYM_PARM>, nullptr, nullptr, nullptr};
/// Reads and writes nothing.
const Description kTouchesNothing = {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace contract
