// Reverse: slices of an axis in the opposite order.
#include "contract/formats.h"

namespace contract {
namespace {

#include "contract/rearrange_ids.inc"

constexpr const char *kInSteps[] = {"in_batch_ofs", "in_channel_ofs", "in_line_ofs", nullptr};
constexpr const char *kOutSteps[] = {"out_batch_ofs", "out_channel_ofs", "out_line_ofs", nullptr};
constexpr const char *kExtents[] = {"batch", "channel", "height", "width"};

/// The call in numbers, indexed by axis.
struct Walk {
  int axis;
  uint32_t element_bytes;
  uint32_t extents[4];
  uint32_t in_steps[4];
  uint32_t out_steps[4];
  uint32_t rounds;  ///< as reckoned, in 32 bits
  Wide true_rounds;
  uint32_t slices;
  uint32_t slice_bytes;
};

bool has_axis(const _NN_REVERSE_PARM &block) { return block.axis >= 0 && block.axis <= 3; }

Walk walk_of(const _NN_REVERSE_PARM &block) {
  const uint32_t element = bytes_of_small(type_code_of(block.in_fmt));
  Walk walk = {block.axis,
               element,
               {block.batch, block.channel, block.height, block.width},
               {block.in_batch_ofs, block.in_channel_ofs, block.in_line_ofs, element},
               {block.out_batch_ofs, block.out_channel_ofs, block.out_line_ofs, element},
               1,
               1,
               0,
               0};
  for (int outer = 0; outer < walk.axis; ++outer) {
    walk.rounds *= walk.extents[outer];
    walk.true_rounds *= walk.extents[outer];
  }
  walk.slices = walk.extents[walk.axis];
  walk.slice_bytes = walk.in_steps[walk.axis];
  return walk;
}

/// Bytes that one slice takes at the output, where it may be re-formatted to wider elements in place.
uint64_t written_bytes(const _NN_REVERSE_PARM &block, const Walk &walk) {
  const Reformat reformat = reformat_of(block.in_fmt, block.out_fmt, true);
  const uint64_t reformatted = uint64_t{walk.slice_bytes} / walk.element_bytes * reformat.out_bytes;
  return reformatted > walk.slice_bytes ? reformatted : walk.slice_bytes;
}

void add_slices(RangeSink &sink, Range &range, const Walk &walk, uint64_t bytes, const uint32_t *steps,
                const char *const *names) {
  const uint64_t elements = bytes / range.element_bytes;
  if (elements != 1) extend(range, elements, range.element_bytes);
  extend(range, walk.slices, steps[walk.axis], walk.axis, names[walk.axis]);
  if (walk.axis > 0) {
    const int32_t outer = walk.axis == 1 ? TARVU_CONTRACT_AXIS_BATCH : TARVU_CONTRACT_AXIS_OTHER;
    extend(range, walk.rounds, steps[walk.axis - 1], outer, names[walk.axis - 1]);
  }
  add(sink, range);
}

void reverse_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_REVERSE_PARM>(call);
  if (!has_axis(block)) return;
  const Walk walk = walk_of(block);
  const uint32_t tail = walk.slice_bytes % walk.element_bytes;
  const int32_t in_type = tail == 0 ? range_type_of(type_code_of(block.in_fmt)) : TARVU_CONTRACT_BYTES;
  Range in = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, in_type, tail == 0 ? walk.element_bytes : 1);
  // Kept: the last slice starts at a product of 32 bits.
  in.offset = int64_t{walk.slices * walk.slice_bytes} - int64_t{walk.slices} * walk.slice_bytes;
  add_slices(sink, in, walk, walk.slice_bytes, walk.in_steps, kInSteps);
  const uint64_t bytes = written_bytes(block, walk);
  const uint32_t out_element = reformat_of(block.in_fmt, block.out_fmt, false).out_bytes;
  const bool is_typed = tail == 0 && out_element == walk.element_bytes;
  Range out = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES,
                       is_typed ? integer_type_of(block.out_fmt, out_element) : TARVU_CONTRACT_BYTES,
                       is_typed ? out_element : 1);
  add_slices(sink, out, walk, bytes, walk.out_steps, kOutSteps);
}

Refusal reverse_refusal(const Call &call) {
  const auto block = block_of<_NN_REVERSE_PARM>(call);
  const NN_AI_IO_TYPE in = type_code_of(block.in_fmt);
  if (is_small(in)) return {};
  return {&kReverseType,
          "in_fmt",
          width_of(block.in_fmt),
          {"tarvu_reverse_process", "unsupported input type %d\r\n\033[0m", in},
          QX_ERR_UNSUPPORTED};
}

/// The rounds advance by the step of the axis next outside alone; what lies further out has to follow from it.
void check_outer_axes(FindingSink &sink, const Walk &walk, const uint32_t *steps, const char *const *names) {
  Wide covered = walk.axis > 0 ? Wide{steps[walk.axis - 1]} : 0;
  for (int axis = walk.axis - 2; axis >= 0; --axis) {
    covered *= walk.extents[axis + 1];
    if (walk.extents[axis] > 1 && steps[axis] != covered) {
      add(sink, kNotBackToBack, names[axis], steps[axis], {static_cast<int64_t>(covered), 0, 0});
    }
  }
}

void reverse_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_REVERSE_PARM>(call);
  if (!has_axis(block)) return add(sink, kReverseAxis, "axis", block.axis);
  const Walk walk = walk_of(block);
  for (int axis = 0; axis <= walk.axis; ++axis) check_extent(sink, kExtents[axis], walk.extents[axis]);
  check_wrap(sink, kExtents[0], walk.rounds, walk.true_rounds);
  if (walk.rounds == 0 || walk.slices == 0) return;
  if (kInSteps[walk.axis] != nullptr) {
    check_wrap(sink, kInSteps[walk.axis], walk.slices * walk.slice_bytes, Wide{walk.slices} * walk.slice_bytes);
  }
  check_outer_axes(sink, walk, walk.in_steps, kInSteps);
  check_outer_axes(sink, walk, walk.out_steps, kOutSteps);
  check_reformat(sink, block.in_fmt, block.out_fmt);
  const Reformat reformat = reformat_of(block.in_fmt, block.out_fmt, true);
  if (reformat.out_bytes > walk.element_bytes) {
    add(sink, kReverseWider, "out_fmt", width_of(block.out_fmt), {16, 8, 0});
  }
  if (reformat.out_bytes != 0 && walk.slice_bytes % walk.element_bytes != 0) {
    add(sink, kHalfElement, kInSteps[walk.axis], walk.slice_bytes);
  }
}

void reverse_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_REVERSE_PARM>(call);
  if (!has_axis(block)) return;
  put(text, "  = the order along the ");
  put(text, kExtents[block.axis]);
  put(text, " turned round\n");
}

}  // namespace

const Description kReverse = {reverse_refusal, reverse_ranges, reverse_findings, nullptr, reverse_words, nullptr};

}  // namespace contract
