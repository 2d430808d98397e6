// Gather ND: slices that tuples of coordinates address.
#include "contract/contents.h"

namespace contract {
namespace {

#include "contract/gathernd_ids.inc"

constexpr uint32_t kRank = 4;

/// Product of the extents from `first` on up to `last`, those of 0 left out.
Wide true_product(const uint32_t (&dims)[kRank], uint32_t first, uint32_t last) {
  Wide product = 1;
  for (uint32_t i = first; i < last && i < kRank; ++i) product *= dims[i] != 0 ? dims[i] : 1;
  return product;
}

uint32_t product(const uint32_t (&dims)[kRank], uint32_t first, uint32_t last) {
  return static_cast<uint32_t>(true_product(dims, first, last));
}

/// The call in numbers; shapes stand slowest dimension first. Products are reckoned in 32 bits, as the operator does.
struct Walk {
  uint32_t in[kRank];
  uint32_t index[kRank];
  uint32_t out[kRank];
  uint32_t offset;       ///< leading empty places of the input
  uint32_t coordinates;  ///< of a tuple
  uint32_t first;        ///< dimension that the first coordinate addresses
  uint32_t index_count;
  uint32_t tuples;
  uint32_t slice;
  uint32_t batches;
  uint32_t batch_elements;
  uint32_t out_count;
  uint32_t element_bytes;
  bool is_inside;  ///< no dimension behind the fourth is asked for
};

Walk walk_of(const _NN_GATHERND_PARM &block) {
  Walk walk = {{block.in_batch, block.in_channel, block.in_height, block.in_width},
               {block.ind_batch, block.ind_channel, block.ind_height, block.ind_width},
               {block.out_batch, block.out_channel, block.out_height, block.out_width},
               0,
               block.ind_width,
               0,
               0,
               0,
               0,
               0,
               0,
               0,
               bytes_of_small(type_code_of(block.in_fmt)),
               false};
  walk.offset = walk.in[2] == 0 ? 3 : walk.in[1] == 0 ? 2 : walk.in[0] == 0 ? 1 : 0;
  walk.first = block.batch_dims + walk.offset;
  walk.is_inside = walk.first <= kRank && block.batch_dims <= kRank;
  walk.index_count = product(walk.index, 0, kRank);
  walk.tuples = product(walk.index, 0, kRank - 1);
  walk.slice = product(walk.in, walk.first + walk.coordinates, kRank);
  walk.batches = product(walk.in, 0, walk.first);
  walk.batch_elements = product(walk.in, walk.first, kRank);
  walk.out_count = product(walk.out, 0, kRank);
  return walk;
}

bool is_float_index(const _NN_GATHERND_PARM &block) { return type_code_of(block.ind_fmt) == NN_AI_IO_TYPE_32BIT; }

/// Kept: the conversion knows 0 and 1 as signs.
bool converts_index(const _NN_GATHERND_PARM &block) {
  return is_small(type_code_of(block.ind_fmt)) && (block.ind_fmt.sign_bits == 0 || block.ind_fmt.sign_bits == 1);
}

bool is_staged(const _NN_GATHERND_PARM &block) {
  return block.in_fmt.frac_bits != block.out_fmt.frac_bits || type_code_of(block.in_fmt) != type_code_of(block.out_fmt);
}

uint32_t written_bytes(const _NN_GATHERND_PARM &block, const Walk &walk) {
  return is_staged(block) ? reformat_of(block.in_fmt, block.out_fmt, false).out_bytes : walk.element_bytes;
}

bool knows_indices(const Call &call, const _NN_GATHERND_PARM &block) {
  return call.reads_contents() && block.ind_addr != 0 && (is_float_index(block) || converts_index(block));
}

int32_t coordinate_at(const _NN_GATHERND_PARM &block, uint64_t number) {
  if (is_float_index(block)) return truncated(value_at<float>(block.ind_addr + 4 * number));
  const NN_AI_IO_TYPE code = type_code_of(block.ind_fmt);
  const int32_t index = index_at(code, block.ind_addr + number * bytes_of_index(code));
  return truncated(static_cast<float>(index) * float_of_unit(block.ind_fmt.frac_bits));
}

/// Calls visit(tuple, offset) with the element offset of every tuple, and before see(tuple, i, coordinate, extent).
template <class See, class Visit>
void for_each_tuple(const _NN_GATHERND_PARM &block, const Walk &walk, See see, Visit visit) {
  const uint32_t tuples_per_batch = walk.batches == 0 ? 0 : walk.tuples / walk.batches;
  for (uint32_t t = 0; t < walk.tuples; ++t) {
    uint32_t offset = tuples_per_batch == 0 ? 0 : t / tuples_per_batch * walk.batch_elements;
    for (uint32_t i = 0; i < walk.coordinates; ++i) {
      const int32_t coordinate = coordinate_at(block, uint64_t{t} * walk.coordinates + i);
      const uint32_t dimension = walk.first + i;
      see(t, i, coordinate, dimension < kRank ? walk.in[dimension] : 1);
      offset += static_cast<uint32_t>(coordinate) * product(walk.in, dimension + 1, kRank);
    }
    visit(t, offset);
  }
}

void add_indices(RangeSink &sink, const _NN_GATHERND_PARM &block, const Walk &walk) {
  if (is_float_index(block)) {
    Range indices = range_of("ind_addr", block.ind_addr, TARVU_CONTRACT_READS, TARVU_CONTRACT_F32, 4);
    extend(indices, walk.index_count, 4);
    return add(sink, indices);
  }
  if (converts_index(block)) {
    const NN_AI_IO_TYPE code = type_code_of(block.ind_fmt);
    const uint32_t bytes = bytes_of_small(code);
    Range indices = range_of("ind_addr", block.ind_addr, TARVU_CONTRACT_READS, range_type_of(code), bytes);
    extend(indices, walk.index_count, bytes);
    add(sink, indices);
  }
  Range work = range_of("work_buffer", block.work_buffer, TARVU_CONTRACT_SCRATCH, TARVU_CONTRACT_F32, 4);
  work.exact = converts_index(block) ? 1 : 0;
  work.alignment = 4;
  extend(work, walk.index_count, 4);
  add(sink, work);
}

void add_input(RangeSink &sink, const Call &call, const _NN_GATHERND_PARM &block, const Walk &walk) {
  Range in = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, range_type_of(type_code_of(block.in_fmt)),
                      walk.element_bytes);
  if (knows_indices(call, block)) {
    in.exact = written_bytes(block, walk) != 0 ? 1 : 0;
    extend(in, walk.slice, walk.element_bytes);
    const auto ignore = [](uint32_t, uint32_t, int32_t, uint32_t) {};
    return for_each_tuple(block, walk, ignore, [&](uint32_t, uint32_t offset) {
      in.offset = int64_t{offset} * walk.element_bytes;
      add(sink, in);
    });
  }
  in.exact = 0;
  int64_t step = walk.element_bytes;
  for (int axis = 3; axis >= 0; --axis) {
    const uint32_t extent = walk.in[axis] != 0 ? walk.in[axis] : 1;
    extend(in, extent, step, axis);
    if (axis != 0) step *= extent;
  }
  add(sink, in);
}

void gathernd_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_GATHERND_PARM>(call);
  const Walk walk = walk_of(block);
  add_indices(sink, block, walk);
  if (!walk.is_inside) return;
  add_input(sink, call, block, walk);
  const uint32_t bytes = written_bytes(block, walk);
  Range out = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, integer_type_of(block.out_fmt, bytes), bytes);
  if (is_staged(block)) {
    extend(out, walk.out_count, bytes);
  } else {
    extend(out, walk.slice, bytes);
    extend(out, walk.tuples, int64_t{walk.slice} * bytes);
  }
  add(sink, out);
}

void gathernd_ranges_before_refusal(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_GATHERND_PARM>(call);
  if (!is_float_index(block)) add_indices(sink, block, walk_of(block));
}

uint64_t gathernd_scratch(const Call &call) {
  const auto block = block_of<_NN_GATHERND_PARM>(call);
  return is_float_index(block) ? 0 : 4 * uint64_t{walk_of(block).index_count};
}

Refusal gathernd_refusal(const Call &call) {
  const auto block = block_of<_NN_GATHERND_PARM>(call);
  const NN_AI_IO_TYPE in = type_code_of(block.in_fmt);
  if (is_small(in)) return {};
  return {&kInputType,
          "in_fmt",
          width_of(block.in_fmt),
          {nullptr, "unsupported input type %d\r\n", in},
          QX_ERR_UNSUPPORTED};
}

/// The first tuple of each kind.
void check_tuples(FindingSink &sink, const _NN_GATHERND_PARM &block, const Walk &walk) {
  const Wide elements = true_product(walk.in, 0, kRank);
  bool has_outside = false;
  bool has_other = false;
  struct {
    bool is_there;
    int32_t value;
    Numbers numbers;
  } other = {};
  for_each_tuple(
      block, walk,
      [&](uint32_t t, uint32_t i, int32_t coordinate, uint32_t extent) {
        if (coordinate >= 0 && static_cast<uint32_t>(coordinate) < (extent == 0 ? 1 : extent)) return;
        if (!other.is_there) other = {true, coordinate, {t, i, extent}};
      },
      [&](uint32_t t, uint32_t offset) {
        if (Wide{offset} + walk.slice > elements) {
          if (!has_outside) add(sink, kOutside, "ind_addr", offset, {t, static_cast<int64_t>(elements), walk.slice});
          has_outside = true;
        } else if (other.is_there && !has_other) {
          has_other = true;
          add(sink, kOtherExtent, "ind_addr", other.value, other.numbers);
        }
        other.is_there = false;
      });
}

void check_sizes(FindingSink &sink, const _NN_GATHERND_PARM &block, const Walk &walk) {
  check_wrap(sink, "ind_batch", walk.index_count, true_product(walk.index, 0, kRank));
  check_wrap(sink, "in_batch", product(walk.in, 0, kRank), true_product(walk.in, 0, kRank));
  check_wrap(sink, "out_batch", walk.out_count, true_product(walk.out, 0, kRank));
  const Wide gathered = Wide{walk.tuples} * walk.slice;
  const Numbers numbers = {static_cast<int64_t>(gathered), walk.out_count, 0};
  if (gathered > walk.out_count) add(sink, kTooSmall, "out_width", block.out_width, numbers);
  if (gathered < walk.out_count) add(sink, kNotFilled, "out_width", block.out_width, numbers);
  if (walk.batches != 0 && walk.tuples % walk.batches != 0) {
    add(sink, kUneven, "batch_dims", block.batch_dims, {walk.tuples, walk.batches, 0});
  }
}

void gathernd_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_GATHERND_PARM>(call);
  const Walk walk = walk_of(block);
  if (!walk.is_inside) add(sink, kTooManyDims, "batch_dims", block.batch_dims, {walk.offset, 0, 0});
  if (is_float_index(block)) {
    add(sink, kFloatIndices, "ind_fmt", 32);
  } else if (!converts_index(block)) {
    add(sink, kNotConverted, "ind_fmt", width_of(block.ind_fmt), {width_of(block.ind_fmt), block.ind_fmt.sign_bits, 0});
  } else if (block.ind_fmt.frac_bits != 0) {
    add(sink, kFractions, "ind_fmt", block.ind_fmt.frac_bits);
  }
  if (!walk.is_inside) return;
  check_sizes(sink, block, walk);
  int64_t heap = 4 * (int64_t{walk.coordinates} + walk.index_count);
  if (is_staged(block)) {
    heap += int64_t{walk.out_count} * walk.element_bytes;
    check_reformat(sink, block.in_fmt, block.out_fmt);
    const bool same_width = width_of(block.in_fmt) == width_of(block.out_fmt);
    if (same_width && block.in_fmt.frac_bits == block.out_fmt.frac_bits) {
      add(sink, kOtherSign, "out_fmt", block.out_fmt.sign_bits);
    }
  }
  add(sink, kHeap, "ind_width", block.ind_width, {heap, 0, 0});
  if (knows_indices(call, block)) check_tuples(sink, block, walk);
}

void gathernd_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_GATHERND_PARM>(call);
  const Walk walk = walk_of(block);
  if (!is_small(type_code_of(block.in_fmt)) || !walk.is_inside) return;
  put(text, "  = ");
  put_unsigned(text, walk.tuples);
  put(text, " tuples of ");
  put_unsigned(text, walk.coordinates);
  put(text, " coordinates choose slices of ");
  put_unsigned(text, walk.slice);
  put(text, is_staged(block) ? " elements, re-formatted\n" : " elements\n");
}

}  // namespace

const Description kGatherND = {gathernd_refusal,
                               gathernd_ranges,
                               gathernd_findings,
                               gathernd_scratch,
                               gathernd_words,
                               nullptr,
                               gathernd_ranges_before_refusal};

}  // namespace contract
