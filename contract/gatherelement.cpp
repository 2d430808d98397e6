// Gather element: every output element from a place along an axis that an index of its own names.
#include "contract/contents.h"

namespace contract {
namespace {

#include "contract/gatherelement_ids.inc"

constexpr const char *kInSteps[] = {nullptr, "in_line_ofs", "in_channel_ofs", "in_batch_ofs"};
constexpr const char *kIndexSteps[] = {nullptr, "ind_line_ofs", "ind_channel_ofs", "ind_batch_ofs"};
constexpr const char *kExtents[] = {"out_width", "out_height", "out_channel", "out_batch"};

/// The call in numbers; dimension 0 is the width.
struct Walk {
  uint32_t rank;
  uint32_t dimension;  ///< of the axis
  uint32_t element_bytes;
  NN_AI_IO_TYPE index_code;
  uint32_t extents[4];  ///< of output and indices
  uint32_t in_steps[4];
  uint32_t index_steps[4];
  uint32_t total;  ///< as reckoned, in 32 bits
  Wide true_total;
  uint32_t positions;  ///< of the axis
  bool gathers;        ///< anything at all
};

Walk walk_of(const _NN_GATHERELEMENT_PARM &block) {
  const uint32_t element = bytes_of_small(type_code_of(block.in_fmt));
  const NN_AI_IO_TYPE index = gather_type_code_of(block.ind_fmt);
  const uint32_t rank = block.in_batch != 0 ? 4 : block.in_channel != 0 ? 3 : block.in_height != 0 ? 2 : 1;
  Walk walk = {rank,
               0,
               element,
               index,
               {block.out_width, block.out_height, block.out_channel, block.out_batch},
               {element, block.in_line_ofs, block.in_channel_ofs, block.in_batch_ofs},
               {bytes_of_index(index), block.ind_line_ofs, block.ind_channel_ofs, block.ind_batch_ofs},
               1,
               1,
               0,
               false};
  if (rank == 1 || block.axis >= rank) return walk;
  walk.dimension = rank - 1 - block.axis;
  for (uint32_t i = 0; i < rank; ++i) {
    walk.total *= walk.extents[i];
    walk.true_total *= walk.extents[i];
  }
  const uint32_t in_extents[] = {block.in_width, block.in_height, block.in_channel, block.in_batch};
  walk.positions = in_extents[walk.dimension];
  // The input's width is no field of the walk; where it is left at 0, a line holds what its step holds.
  if (walk.dimension == 0 && walk.positions == 0) walk.positions = block.in_line_ofs / element;
  walk.gathers = walk.true_total != 0;
  return walk;
}

bool reformats(const _NN_GATHERELEMENT_PARM &block) {
  return narrow_width_of(block.in_fmt) != narrow_width_of(block.out_fmt) ||
         block.in_fmt.frac_bits != block.out_fmt.frac_bits;
}

/// Bytes of an output element, 0 where no conversion serves the formats.
uint32_t written_bytes(const _NN_GATHERELEMENT_PARM &block, const Walk &walk) {
  return reformats(block) ? reformat_of(block.in_fmt, block.out_fmt, false).out_bytes : walk.element_bytes;
}

/// Where an element's source lies.
struct Source {
  uint64_t number;  ///< of the output element
  int32_t index;
  uint32_t position;
  bool keeps;         ///< the index is -1
  bool has_base;      ///< it does not lie near address 0
  uint64_t distance;  ///< bytes from the start of the input
};

/// Calls visit(source) for every element, as the walk meets them.
template <class Visit>
void for_each_source(const _NN_GATHERELEMENT_PARM &block, const Walk &walk, Visit visit) {
  uint32_t at[4] = {};
  uint64_t base = 0;
  bool has_base = false;
  const bool starts_anew = walk.rank != 2 && walk.dimension != walk.rank - 1;
  for (uint64_t number = 0; number < walk.true_total; ++number) {
    uint64_t index_distance = 0;
    uint64_t outside = 0;
    uint64_t inside = 0;
    bool is_first = true;  // of the slice: the coordinates up to the axis are 0
    for (uint32_t i = 0; i < walk.rank; ++i) {
      index_distance += at[i] * walk.index_steps[i];
      if (i > walk.dimension) outside += at[i] * walk.in_steps[i];
      if (i < walk.dimension) inside += at[i] * walk.in_steps[i];
      if (i <= walk.dimension) is_first &= at[i] == 0;
    }
    if (starts_anew && is_first) {
      base = outside;
      has_base = true;
    }
    const int32_t index = index_at(walk.index_code, block.ind_addr + index_distance);
    // Kept: below -1 an index counts back from the whole output.
    const uint32_t position = static_cast<uint32_t>(index) + (index < 0 ? walk.total : 0);
    if (index != -1) {
      base = outside + position * walk.in_steps[walk.dimension];
      has_base = true;
    }
    visit(Source{number, index, position, index == -1, has_base, base + inside});
    for (uint32_t i = 0; i < walk.rank && ++at[i] == walk.extents[i]; ++i) at[i] = 0;
  }
}

void add_input(RangeSink &sink, const Call &call, const _NN_GATHERELEMENT_PARM &block, const Walk &walk) {
  Range in = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, range_type_of(type_code_of(block.in_fmt)),
                      walk.element_bytes);
  if (call.reads_contents() && block.ind_addr != 0) {
    in.exact = written_bytes(block, walk) != 0 ? 1 : 0;
    extend(in, 1, walk.element_bytes);
    return for_each_source(block, walk, [&](const Source &source) {
      in.offset = static_cast<int64_t>(source.distance);
      if (source.has_base) add(sink, in);
    });
  }
  in.exact = 0;
  for (uint32_t i = 0; i < walk.rank; ++i) {
    extend(in, i == walk.dimension ? walk.positions : walk.extents[i], walk.in_steps[i], 3 - static_cast<int32_t>(i),
           kInSteps[i]);
  }
  add(sink, in);
}

void gatherelement_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_GATHERELEMENT_PARM>(call);
  const Walk walk = walk_of(block);
  if (!walk.gathers) return;
  const uint32_t written = written_bytes(block, walk);
  Range indices = range_of("ind_addr", block.ind_addr, TARVU_CONTRACT_READS, range_type_of_index(walk.index_code),
                           walk.index_steps[0]);
  indices.exact = written != 0 ? 1 : 0;
  for (uint32_t i = 0; i < walk.rank; ++i) {
    extend(indices, walk.extents[i], walk.index_steps[i], 3 - static_cast<int32_t>(i), kIndexSteps[i]);
  }
  add(sink, indices);
  add_input(sink, call, block, walk);
  Range out =
      range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, integer_type_of(block.out_fmt, written), written);
  int64_t step = written;
  for (uint32_t i = 0; i < walk.rank; ++i) {
    extend(out, walk.extents[i], step, 3 - static_cast<int32_t>(i));
    if (i != 3) step *= walk.extents[i];
  }
  add(sink, out);
  if (!reformats(block)) return;
  Range work = range_of("work_buffer", block.work_buffer, TARVU_CONTRACT_SCRATCH, TARVU_CONTRACT_BYTES, 1);
  work.exact = 0;
  extend(work, walk.element_bytes, 1);
  add(sink, work);
}

uint64_t gatherelement_scratch(const Call &call) {
  const auto block = block_of<_NN_GATHERELEMENT_PARM>(call);
  const Walk walk = walk_of(block);
  return walk.gathers && reformats(block) ? walk.element_bytes : 0;
}

Refusal gatherelement_refusal(const Call &call) {
  const auto block = block_of<_NN_GATHERELEMENT_PARM>(call);
  const NN_AI_IO_TYPE in = gather_type_code_of(block.in_fmt);
  if (!is_small(in)) {
    return {&kInputType,
            "in_fmt",
            width_of(block.in_fmt),
            {"tarvu_gatherelement_process", "unsupported gatherelement input type %d\r\n\033[0m", in},
            QX_ERR_UNSUPPORTED};
  }
  const NN_AI_IO_TYPE index = gather_type_code_of(block.ind_fmt);
  if (is_index(index)) return {};
  return {&kIndexType,
          "ind_fmt",
          width_of(block.ind_fmt),
          {"tarvu_gatherelement_process", "unsupported ind type %d\r\n\033[0m", index},
          QX_ERR_UNSUPPORTED};
}

/// The first index of each kind.
void check_indices(FindingSink &sink, const _NN_GATHERELEMENT_PARM &block, const Walk &walk) {
  const bool is_signed = walk.index_code != NN_AI_IO_TYPE_UINT8 && walk.index_code != NN_AI_IO_TYPE_UINT16;
  bool has_outside = false;
  bool has_nothing = false;
  bool has_kept = false;
  bool has_back = false;
  for_each_source(block, walk, [&](const Source &source) {
    const auto number = static_cast<int64_t>(source.number);
    if (!source.has_base && !has_nothing) {
      has_nothing = true;
      add(sink, kNothingToKeep, "ind_addr", source.index, {number, 0, 0});
    } else if (source.keeps && source.has_base && !has_kept) {
      has_kept = true;
      add(sink, kMinusOne, "ind_addr", source.index, {number, 0, 0});
    } else if (!source.keeps && source.position >= walk.positions && !has_outside) {
      has_outside = true;
      add(sink, kOutside, "ind_addr", source.index, {number, source.position, walk.positions});
    } else if (!source.keeps && is_signed && source.index < 0 && !has_back) {
      has_back = true;
      add(sink, kCountedBack, "ind_addr", source.index, {number, walk.total, 0});
    }
  });
}

void check_sizes(FindingSink &sink, const Walk &walk) {
  check_wrap(sink, kExtents[0], walk.total, walk.true_total);
  for (uint32_t i = 1; i < walk.rank; ++i) {
    const uint32_t in_last = i == walk.dimension ? walk.positions - 1 : walk.extents[i] - 1;
    check_wrap(sink, kInSteps[i], in_last * walk.in_steps[i], Wide{in_last} * walk.in_steps[i]);
    const uint32_t last = walk.extents[i] - 1;
    check_wrap(sink, kIndexSteps[i], last * walk.index_steps[i], Wide{last} * walk.index_steps[i]);
  }
}

void gatherelement_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_GATHERELEMENT_PARM>(call);
  const Walk walk = walk_of(block);
  if (walk.rank == 1) return add(sink, kNoRank, "in_height", 0);
  if (block.axis >= walk.rank) return add(sink, kNoAxis, "axis", block.axis, {walk.rank, 0, 0});
  for (uint32_t i = 0; i < walk.rank; ++i) check_extent(sink, kExtents[i], walk.extents[i]);
  if (!walk.gathers) return;
  check_sizes(sink, walk);
  check_reformat(sink, block.in_fmt, block.out_fmt);
  if (call.reads_contents() && block.ind_addr != 0) check_indices(sink, block, walk);
}

void gatherelement_words(const Call &call, Text &text) {
  static constexpr const char *kAxes[] = {"columns", "lines", "planes", "items"};
  const auto block = block_of<_NN_GATHERELEMENT_PARM>(call);
  const Walk walk = walk_of(block);
  put(text, "  = ");
  if (!walk.gathers) return put(text, "nothing\n");
  put(text, static_cast<int64_t>(walk.true_total));
  put(text, " indices choose among the ");
  put(text, kAxes[walk.dimension]);
  put(text, reformats(block) ? ", re-formatted\n" : "\n");
}

}  // namespace

const Description kGatherElement = {gatherelement_refusal, gatherelement_ranges, gatherelement_findings,
                                    gatherelement_scratch, gatherelement_words,  nullptr};

}  // namespace contract
