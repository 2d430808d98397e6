// Gather: slices along one axis by a list of positions.
#include <algorithm>

#include "contract/contents.h"

namespace contract {
namespace {

#include "contract/gather_ids.inc"

constexpr const char *kInSteps[] = {nullptr, "in_line_ofs", "in_channel_ofs", "in_batch_ofs"};
constexpr const char *kOutSteps[] = {nullptr, "out_line_ofs", "out_channel_ofs", "out_batch_ofs"};
constexpr const char *kOutExtents[] = {"out_width", "out_height", "out_channel", "out_batch"};
constexpr const char *kIndexExtents[] = {"ind_width", "ind_height", "ind_channel", "ind_batch"};

/// The call in numbers; dimension 0 is the width.
struct Walk {
  uint32_t rank;        ///< of the input
  uint32_t index_rank;  ///< as the extents say it
  uint32_t list_rank;   ///< as it counts
  uint32_t out_rank;
  uint32_t dimension;  ///< of the axis
  uint32_t element_bytes;
  uint32_t in_extents[4];
  uint32_t index_extents[4];
  uint32_t out_extents[4];
  uint32_t in_steps[4];
  uint32_t out_steps[4];
  uint32_t indices;  ///< as reckoned, in 32 bits
  Wide true_indices;
  uint32_t run_bytes;
  uint32_t reformat_count;  ///< as reckoned, in 32 bits
  Wide true_reformat_count;
  uint32_t positions;  ///< of the axis
  bool gathers;        ///< anything at all
};

uint32_t rank_of(const uint32_t (&extents)[4]) {
  return extents[3] != 0 ? 4 : extents[2] != 0 ? 3 : extents[1] != 0 ? 2 : 1;
}

bool same_width(const _NN_GATHER_PARM &block) {
  return narrow_width_of(block.in_fmt) == narrow_width_of(block.out_fmt);
}

bool reformats(const _NN_GATHER_PARM &block) {
  return !same_width(block) || block.in_fmt.frac_bits != block.out_fmt.frac_bits;
}

uint32_t out_element_of(const _NN_GATHER_PARM &block, uint32_t in_element) {
  if (same_width(block)) return in_element;
  return reformat_of(block.in_fmt, block.out_fmt, false).out_bytes;
}

void count_walk(Walk &walk) {
  for (uint32_t i = 0; i < walk.list_rank; ++i) {
    walk.indices *= walk.index_extents[i];
    walk.true_indices *= walk.index_extents[i];
  }
  for (uint32_t i = 0; i + 1 < walk.out_rank - (walk.rank - 1 - walk.dimension); ++i) {
    walk.reformat_count *= walk.out_extents[i];
    walk.true_reformat_count *= walk.out_extents[i];
  }
  walk.gathers = walk.indices != 0;
  for (uint32_t i = walk.dimension + walk.list_rank; i < walk.out_rank; ++i) {
    walk.gathers &= walk.out_extents[i] != 0;
  }
}

Walk walk_of(const _NN_GATHER_PARM &block) {
  const uint32_t element = bytes_of_small(type_code_of(block.in_fmt));
  Walk walk = {1,
               1,
               1,
               0,
               0,
               element,
               {block.in_width, block.in_height, block.in_channel, block.in_batch},
               {block.ind_width, block.ind_height, block.ind_channel, block.ind_batch},
               {block.out_width, block.out_height, block.out_channel, block.out_batch},
               {element, block.in_line_ofs, block.in_channel_ofs, block.in_batch_ofs},
               {out_element_of(block, element), block.out_line_ofs, block.out_channel_ofs, block.out_batch_ofs},
               1,
               1,
               0,
               1,
               1,
               0,
               false};
  walk.rank = rank_of(walk.in_extents);
  walk.index_rank = rank_of(walk.index_extents);
  walk.list_rank = walk.rank == 4 ? 1 : walk.index_rank;
  walk.out_rank = walk.rank + walk.list_rank - 1;
  if (walk.rank == 1 || walk.out_rank > 4 || block.axis >= walk.rank) return walk;
  walk.dimension = walk.rank - 1 - block.axis;
  walk.run_bytes = walk.in_steps[walk.dimension];
  walk.positions = walk.in_extents[walk.dimension];
  // The input's width is no field of the walk; where it is left at 0, a line holds what its step holds.
  if (walk.dimension == 0 && walk.positions == 0) walk.positions = block.in_line_ofs / element;
  count_walk(walk);
  return walk;
}

/// Bytes that re-formatting reads from the run's copy, and bytes that it writes.
struct Reformatted {
  uint64_t in_bytes;
  uint64_t out_bytes;
};

Reformatted reformatted_of(const _NN_GATHER_PARM &block, const Walk &walk) {
  if (!reformats(block)) return {0, 0};
  const Reformat bytes = reformat_of(block.in_fmt, block.out_fmt, same_width(block));
  return {uint64_t{walk.reformat_count} * bytes.in_bytes, uint64_t{walk.reformat_count} * bytes.out_bytes};
}

/// Bytes at the output for one index.
uint64_t written_bytes(const _NN_GATHER_PARM &block, const Walk &walk) {
  const uint64_t copied = same_width(block) ? walk.run_bytes : 0;
  return std::max(copied, reformatted_of(block, walk).out_bytes);
}

uint64_t work_bytes(const _NN_GATHER_PARM &block, const Walk &walk) {
  if (!walk.gathers || same_width(block)) return 0;
  return std::max<uint64_t>(walk.run_bytes, reformatted_of(block, walk).in_bytes);
}

/// Position of an index: kept, -1 is the first slice, and what is below counts back from the number of indices.
uint32_t position_of(int32_t index, uint32_t indices) {
  if (index >= 0) return static_cast<uint32_t>(index);
  return index == -1 ? 0 : indices + static_cast<uint32_t>(index);
}

/// `bytes` bytes as elements, if they are whole ones.
Range run_range(const char *field, uint64_t address, int32_t role, int32_t type, uint32_t element, uint64_t bytes) {
  const bool is_whole = element != 0 && bytes % element == 0;
  Range range = is_whole ? range_of(field, address, role, type, element)
                         : range_of(field, address, role, TARVU_CONTRACT_BYTES, 1);
  extend(range, bytes / range.element_bytes, range.element_bytes);
  return range;
}

/// The dimensions outside the axis, the fastest first.
void extend_outer(Range &range, const Walk &walk, const uint32_t (&steps)[4], uint32_t rank,
                  const char *const (&names)[4]) {
  for (uint32_t i = walk.dimension + 1; i < walk.rank; ++i) {
    const uint32_t out = walk.out_rank - walk.rank + i;
    const uint32_t at = rank - walk.rank + i;
    extend(range, walk.out_extents[out], steps[at], 3 - static_cast<int32_t>(at), names[at]);
  }
}

/// Bytes of a run that the result needs. With `overwritten` the next index writes over what reaches beyond its step; the input's
/// padding is not needed where elements are re-formatted from a copy.
uint64_t needed_bytes(const _NN_GATHER_PARM &block, const Walk &walk, bool overwritten) {
  const uint64_t step = walk.out_steps[walk.dimension];
  const Reformat bytes = reformat_of(block.in_fmt, block.out_fmt, false);
  if (written_bytes(block, walk) == 0) return 0;
  uint64_t needed = same_width(block) ? walk.run_bytes : reformatted_of(block, walk).in_bytes;
  if (overwritten && same_width(block)) needed = std::min(needed, step);
  if (overwritten && !same_width(block)) {
    needed = std::min(needed, (step + bytes.out_bytes - 1) / bytes.out_bytes * bytes.in_bytes);
  }
  return std::min<uint64_t>(needed, walk.run_bytes);
}

bool has_outer(const Walk &walk) {
  for (uint32_t i = walk.dimension + walk.list_rank; i < walk.out_rank; ++i) {
    if (walk.out_extents[i] > 1) return true;
  }
  return false;
}

void add_input(RangeSink &sink, const Call &call, const _NN_GATHER_PARM &block, const Walk &walk) {
  const NN_AI_IO_TYPE code = gather_type_code_of(block.ind_fmt);
  const int32_t type = range_type_of(type_code_of(block.in_fmt));
  const Range run = run_range("in_addr", block.in_addr, TARVU_CONTRACT_READS, type, walk.element_bytes, walk.run_bytes);
  if (!call.reads_contents() || block.ind_addr == 0) {
    Range in = run;
    in.exact = 0;
    extend(in, walk.positions, walk.run_bytes, 3 - static_cast<int32_t>(walk.dimension), kInSteps[walk.dimension]);
    extend_outer(in, walk, walk.in_steps, walk.rank, kInSteps);
    return add(sink, in);
  }
  const uint64_t all = needed_bytes(block, walk, false);
  const uint64_t own = needed_bytes(block, walk, true);
  const bool is_alone = !has_outer(walk);
  for (uint32_t i = 0; i < walk.indices; ++i) {
    const int32_t index = index_at(code, block.ind_addr + uint64_t{i} * bytes_of_index(code));
    const auto add_run = [&](uint64_t bytes, bool is_exact) {
      Range in = run_range("in_addr", block.in_addr, TARVU_CONTRACT_READS, type, walk.element_bytes, bytes);
      in.exact = is_exact ? 1 : 0;
      in.offset = position_of(index, walk.indices) * walk.run_bytes;
      extend_outer(in, walk, walk.in_steps, walk.rank, kInSteps);
      add(sink, in);
    };
    const uint64_t exact = i + 1 == walk.indices && is_alone ? all : own;
    add_run(exact, true);
    if (exact < walk.run_bytes) add_run(walk.run_bytes, false);
  }
}

void gather_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_GATHER_PARM>(call);
  const Walk walk = walk_of(block);
  if (!walk.gathers) return;
  const uint64_t written = written_bytes(block, walk);
  const NN_AI_IO_TYPE code = gather_type_code_of(block.ind_fmt);
  const uint32_t index_bytes = bytes_of_index(code);
  Range indices = range_of("ind_addr", block.ind_addr, TARVU_CONTRACT_READS, range_type_of_index(code), index_bytes);
  indices.exact = needed_bytes(block, walk, true) != 0 ? 1 : 0;
  extend(indices, walk.indices, index_bytes);
  add(sink, indices);
  add_input(sink, call, block, walk);
  const uint32_t out_element = out_element_of(block, walk.element_bytes);
  Range out = run_range("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, integer_type_of(block.out_fmt, out_element),
                        out_element, written);
  extend(out, walk.indices, walk.out_steps[walk.dimension], TARVU_CONTRACT_AXIS_OTHER, kOutSteps[walk.dimension]);
  extend_outer(out, walk, walk.out_steps, walk.out_rank, kOutSteps);
  add(sink, out);
  Range work = range_of("work_buffer", block.work_buffer, TARVU_CONTRACT_SCRATCH, TARVU_CONTRACT_BYTES, 1);
  work.exact = 0;
  extend(work, work_bytes(block, walk), 1);
  add(sink, work);
}

uint64_t gather_scratch(const Call &call) {
  const auto block = block_of<_NN_GATHER_PARM>(call);
  return work_bytes(block, walk_of(block));
}

Refusal gather_refusal(const Call &call) {
  const auto block = block_of<_NN_GATHER_PARM>(call);
  const NN_AI_IO_TYPE in = gather_type_code_of(block.in_fmt);
  if (!is_small(in)) {
    return {&kInputType,
            "in_fmt",
            width_of(block.in_fmt),
            {"tarvu_gather_process", "unsupported gather input type %d\r\n\033[0m", in},
            QX_ERR_UNSUPPORTED};
  }
  const NN_AI_IO_TYPE index = gather_type_code_of(block.ind_fmt);
  if (is_index(index)) return {};
  return {&kIndexType,
          "ind_fmt",
          width_of(block.ind_fmt),
          {"tarvu_gather_process", "unsupported ind type %d\r\n\033[0m", index},
          QX_ERR_UNSUPPORTED};
}

/// The first index of each kind.
void check_indices(FindingSink &sink, const _NN_GATHER_PARM &block, const Walk &walk) {
  const NN_AI_IO_TYPE code = gather_type_code_of(block.ind_fmt);
  const bool is_signed = code != NN_AI_IO_TYPE_UINT8 && code != NN_AI_IO_TYPE_UINT16;
  bool has_outside = false;
  bool has_first = false;
  bool has_back = false;
  for (uint32_t i = 0; i < walk.indices; ++i) {
    const int32_t index = index_at(code, block.ind_addr + uint64_t{i} * bytes_of_index(code));
    const uint32_t position = position_of(index, walk.indices);
    if (position >= walk.positions && !has_outside) {
      has_outside = true;
      add(sink, kOutside, "ind_addr", index, {i, position, walk.positions});
    } else if (is_signed && index == -1 && !has_first) {
      has_first = true;
      add(sink, kMinusOne, "ind_addr", index, {i, 0, 0});
    } else if (is_signed && index < -1 && walk.indices != walk.positions && !has_back) {
      has_back = true;
      add(sink, kCountedBack, "ind_addr", index, {i, walk.indices, walk.positions});
    }
  }
}

/// Says why nothing is gathered; true if so.
bool check_shape(FindingSink &sink, const _NN_GATHER_PARM &block, const Walk &walk) {
  if (walk.rank == 1) {
    add(sink, kNoRank, "in_height", 0);
  } else if (block.axis >= walk.rank) {
    add(sink, kNoAxis, "axis", block.axis, {walk.rank, 0, 0});
  } else if (walk.out_rank > 4) {
    add(sink, kIndexRank, kIndexExtents[walk.index_rank - 1], walk.index_extents[walk.index_rank - 1],
        {walk.rank, walk.index_rank, 0});
  } else {
    return false;
  }
  return true;
}

void check_sizes(FindingSink &sink, const _NN_GATHER_PARM &block, const Walk &walk) {
  const uint32_t d = walk.dimension;
  check_wrap(sink, kIndexExtents[0], walk.indices, walk.true_indices);
  const uint32_t last = walk.positions == 0 ? 0 : walk.positions - 1;
  if (d != 0) check_wrap(sink, kInSteps[d], last * walk.run_bytes, Wide{last} * walk.run_bytes);
  if (!reformats(block)) return;
  check_wrap(sink, kOutExtents[0], walk.reformat_count, walk.true_reformat_count);
  Wide slice = 1;
  for (uint32_t i = 0; i < d; ++i) slice *= walk.out_extents[i];
  if (walk.list_rank > 1 && walk.true_reformat_count > slice) {
    add(sink, kSpill, kOutExtents[0], walk.reformat_count, {static_cast<int64_t>(slice), 0, 0});
  }
}

void gather_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_GATHER_PARM>(call);
  const Walk walk = walk_of(block);
  if (check_shape(sink, block, walk)) return;
  for (uint32_t i = 0; i < walk.list_rank; ++i) check_extent(sink, kIndexExtents[i], walk.index_extents[i]);
  for (uint32_t i = walk.dimension + walk.list_rank; i < walk.out_rank; ++i) {
    check_extent(sink, kOutExtents[i], walk.out_extents[i]);
  }
  if (!walk.gathers) return;
  if (walk.index_rank > walk.list_rank) {
    add(sink, kFirstLineOnly, kIndexExtents[walk.index_rank - 1], walk.index_extents[walk.index_rank - 1],
        {walk.indices, 0, 0});
  }
  check_sizes(sink, block, walk);
  check_reformat(sink, block.in_fmt, block.out_fmt);
  if (call.reads_contents() && block.ind_addr != 0) check_indices(sink, block, walk);
}

void gather_words(const Call &call, Text &text) {
  static constexpr const char *kAxes[] = {"columns", "lines", "planes", "items"};
  const auto block = block_of<_NN_GATHER_PARM>(call);
  const Walk walk = walk_of(block);
  put(text, "  = ");
  if (!walk.gathers) return put(text, "nothing\n");
  put_unsigned(text, walk.indices);
  put(text, " indices choose among the ");
  put(text, kAxes[walk.dimension]);
  put(text, reformats(block) ? ", re-formatted\n" : "\n");
}

}  // namespace

const Description kGather = {gather_refusal, gather_ranges, gather_findings, gather_scratch, gather_words, nullptr};

}  // namespace contract
