// Gather, Gather ND and Gather element.
#include <algorithm>
#include <array>
#include <vector>

#include "tests/fuzz/makers.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_gather_c_reference.h"
#include "tests/reference/tarvu_gatherelement_c_reference.h"
#include "tests/reference/tarvu_gathernd_c_reference.h"
#include "tests/tensor/gathernd_case.h"
#include "tests/tensor/selection_case.h"

namespace fuzz {
namespace {

using selection_test::kElementTypes;
using selection_test::kIndexTypes;
using selection_test::store_element;
using selection_test::Type;
using support::GuardedMemory;

using Extents = std::array<uint32_t, 4>;  // width first

Extents some_shape(Source &source, size_t rank, uint32_t most, uint32_t most_wide) {
  Extents extents = {};
  for (size_t i = 0; i < rank; ++i) extents[i] = 1 + below(source, most);
  if (one_in(source, 3)) extents[0] = std::max(some_size(source, most_wide), 1u);
  return extents;
}

/// Byte steps of a tensor with `padding` bytes behind every line, channel and batch item; [0] is the element.
Extents steps_of(const Extents &extents, uint32_t element_bytes, uint32_t padding) {
  Extents steps = {element_bytes, 0, 0, 0};
  for (size_t i = 1; i < 4; ++i) steps[i] = steps[i - 1] * std::max(1u, extents[i - 1]) + padding;
  return steps;
}

size_t span_of(const Extents &extents, const Extents &steps) {
  size_t last = steps[0];
  for (size_t i = 0; i < 4; ++i) last += size_t{steps[i]} * (std::max(1u, extents[i]) - 1);
  return last;
}

/// An output format beside an input type: equal, of another sign, of other fraction bits, of the other width, of none.
struct OutputFormat {
  _NN_FMT fmt;
  uint32_t element;     ///< bytes of an output element; the input's where the output has none
  bool is_plain;        ///< width and fraction bits are the input's
  bool is_other_width;  ///< also where the output has no element width
};

OutputFormat some_output_format(Source &source, Type in, int frac_bits) {
  const int sign = one_of(source, {1, 0});
  switch (below(source, 6)) {
    case 0:
      return {in.fmt(frac_bits), in.bytes(), true, false};
    case 1:
      return {support::format(in.width, frac_bits, 1 - in.sign_bits), in.bytes(), true, false};
    case 2:
    case 3:
      return {support::format(in.width, frac_bits + one_of(source, {1, -1, 2, -3, -9, 9}), sign), in.bytes(), false,
              false};
    case 4:
      return {support::format(24 - in.width, frac_bits + pick(source, -4, 4), sign), 3 - in.bytes(), false, true};
    default:
      return {support::format(one_of(source, {24, 32}), frac_bits, sign), in.bytes(), false, true};
  }
}

/// A position of the axis, -1, or a negative index that lands on it when counted back from `total`.
int64_t some_index(support::Random &random, Type index, uint32_t extent, uint32_t total, bool may_be_minus_one) {
  const bool may_be_negative = index.sign_bits != 0 || index.width == 32;
  if (may_be_negative && may_be_minus_one && random.one_in(5)) return -1;
  if (may_be_negative && random.one_in(4)) {
    const int64_t magnitude = int64_t{total} - random.below(std::min(extent, total));
    const int64_t most = index.width == 8 ? 128 : 32768;
    if (magnitude >= 2 && magnitude <= most) return -magnitude;
  }
  return random.below(extent);
}

_NN_FMT some_index_format(Source &source, Type index) { return index.fmt(pick(source, -3, 3)); }

/// Spoils a width, so that one of the two checks of Gather and Gather element refuses it. Leaves both formats as they were
/// and tells false if the draw is sound.
bool spoil_formats(Source &source, _NN_FMT &in, _NN_FMT &index) {
  const bool spoils_input = one_in(source, 2);
  const _NN_FMT drawn = some_format(source);
  const int32_t width = width_of(drawn);
  if (width == 8 || width == 16 || (width == 32 && !spoils_input)) return false;
  (spoils_input ? in : index) = drawn;
  return true;
}

}  // namespace

std::string run_gather_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_GATHER_PARM block{};
  const Type in = one_of(source, kElementTypes);
  const Type index = one_of(source, kIndexTypes);
  const size_t rank = 2 + below(source, 3);
  const size_t index_rank = 1 + below(source, static_cast<uint32_t>(6 - rank));
  const auto axis = below(source, static_cast<uint32_t>(rank));
  const size_t d = rank - 1 - axis;
  const Extents in_shape = some_shape(source, rank, 5, 70);
  const Extents index_shape = some_shape(source, index_rank, 3, 35);
  const size_t used_rank = rank == 4 ? 1 : std::min(index_rank, 5 - rank);

  // The output: dimensions inside the axis, those of the index, those outside the axis.
  Extents out_shape = {};
  size_t at = 0;
  for (size_t i = 0; i < d; ++i) out_shape[at++] = in_shape[i];
  for (size_t i = 0; i < used_rank; ++i) out_shape[at++] = index_shape[i];
  for (size_t i = d + 1; i < rank && at < 4; ++i) out_shape[at++] = in_shape[i];
  const int frac_bits = pick(source, -2, 6);
  const OutputFormat out = some_output_format(source, in, frac_bits);
  const Extents in_steps = steps_of(in_shape, in.bytes(), below(source, 3) * in.bytes());
  const Extents out_steps = steps_of(out_shape, out.element, below(source, 3) * out.element);
  block.in_fmt = in.fmt(frac_bits);
  block.ind_fmt = some_index_format(source, index);
  block.out_fmt = out.fmt;
  block.in_width = static_cast<uint16_t>(unread(source));
  block.in_height = static_cast<uint16_t>(in_shape[1]);
  block.in_channel = static_cast<uint16_t>(in_shape[2]);
  block.in_batch = static_cast<uint16_t>(in_shape[3]);
  block.ind_width = static_cast<uint16_t>(index_shape[0]);
  block.ind_height = static_cast<uint16_t>(index_shape[1]);
  block.ind_channel = static_cast<uint16_t>(index_shape[2]);
  block.ind_batch = static_cast<uint16_t>(index_shape[3]);
  block.out_width = static_cast<uint16_t>(out_shape[0]);
  block.out_height = static_cast<uint16_t>(out_shape[1]);
  block.out_channel = static_cast<uint16_t>(out_shape[2]);
  block.out_batch = static_cast<uint16_t>(out_shape[3]);
  block.in_line_ofs = in_steps[1];
  block.in_channel_ofs = in_steps[2];
  block.in_batch_ofs = in_steps[3];
  block.out_line_ofs = out_steps[1];
  block.out_channel_ofs = out_steps[2];
  block.out_batch_ofs = out_steps[3];
  block.axis = static_cast<uint8_t>(axis);

  bool runs = true;
  if (one_in(source, 16)) block.axis = one_of<uint8_t>(source, {4, 255});
  if (one_in(source, 16)) runs = !spoil_formats(source, block.in_fmt, block.ind_fmt);
  if (block.axis != axis) runs = false;

  uint32_t index_count = 1;
  for (size_t i = 0; i < used_rank; ++i) index_count *= index_shape[i];
  uint32_t all_indices = 1;
  for (size_t i = 0; i < index_rank; ++i) all_indices *= index_shape[i];
  const uint32_t run_bytes = d == 0 ? in.bytes() : in_steps[d];
  uint32_t count = 1;  // elements of a re-formatting
  for (int k = 0; k <= static_cast<int>(rank + used_rank) - 3 - static_cast<int>(axis); ++k) {
    count *= out_shape[static_cast<size_t>(k)];
  }
  const size_t in_bytes = size_t{in_steps[3]} * std::max(1u, in_shape[3]);
  const size_t written = std::max(run_bytes, count * std::max(in.bytes(), out.element));
  size_t last = 0;
  for (size_t i = 0; i < 4; ++i) last += size_t{out_steps[i]} * (std::max(1u, out_shape[i]) - 1);
  last += size_t{out_steps[d]} * index_count;
  const size_t work_bytes = out.is_other_width ? std::max(run_bytes, count * in.bytes()) : 0;

  block.in_addr = make_tensor(trial, "input", runs ? in_bytes : 0).address();
  const GuardedMemory &indices = make_memory(trial, runs ? size_t{all_indices} * index.bytes() : 0);
  support::Random random(word(source));
  for (size_t i = 0; runs && i < all_indices; ++i) {
    store_element(indices.data(), index, i, some_index(random, index, in_shape[d], index_count, true));
  }
  trial.run.track(indices, "indices");
  block.ind_addr = indices.address();
  block.out_addr = make_tensor(trial, "output", runs ? last + written : 0).address();
  block.work_buffer = make_scratch(trial, runs ? work_bytes : 0).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_gather_process));
}

std::string run_gatherelement_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_GATHERELEMENT_PARM block{};
  const Type in = one_of(source, kElementTypes);
  const Type index = one_of(source, kIndexTypes);
  const size_t rank = 2 + below(source, 3);
  const auto axis = below(source, static_cast<uint32_t>(rank));
  const size_t d = rank - 1 - axis;
  const Extents shape = some_shape(source, rank, 5, 70);
  Extents in_shape = shape;
  in_shape[d] = 1 + below(source, 6);
  const Extents index_steps = steps_of(shape, index.bytes(), below(source, 3));
  const Extents in_steps = steps_of(in_shape, in.bytes(), below(source, 3));
  const int frac_bits = pick(source, -2, 6);
  const OutputFormat out = some_output_format(source, in, frac_bits);
  block.in_fmt = in.fmt(frac_bits);
  block.ind_fmt = some_index_format(source, index);
  block.out_fmt = out.fmt;
  block.axis = static_cast<uint8_t>(axis);
  block.in_width = block.ind_width = block.ind_height = static_cast<uint16_t>(unread(source));
  block.ind_channel = block.ind_batch = static_cast<uint16_t>(unread(source));
  block.in_height = static_cast<uint16_t>(in_shape[1]);
  block.in_channel = static_cast<uint16_t>(in_shape[2]);
  block.in_batch = static_cast<uint16_t>(in_shape[3]);
  block.out_width = static_cast<uint16_t>(shape[0]);
  block.out_height = static_cast<uint16_t>(shape[1]);
  block.out_channel = static_cast<uint16_t>(shape[2]);
  block.out_batch = static_cast<uint16_t>(shape[3]);
  block.in_line_ofs = in_steps[1];
  block.in_channel_ofs = in_steps[2];
  block.in_batch_ofs = in_steps[3];
  block.ind_line_ofs = index_steps[1];
  block.ind_channel_ofs = index_steps[2];
  block.ind_batch_ofs = index_steps[3];
  bool runs = true;
  if (one_in(source, 16)) runs = !spoil_formats(source, block.in_fmt, block.ind_fmt);
  if (one_in(source, 24)) {
    block.axis = one_of<uint8_t>(source, {4, 255});
    runs = false;
  }
  if (one_in(source, 24)) {
    block.out_width = 0;
    runs = false;
  }

  uint32_t total = 1;
  for (size_t i = 0; i < rank; ++i) total *= shape[i];
  block.in_addr = make_tensor(trial, "input", runs ? span_of(in_shape, in_steps) : 0).address();
  const GuardedMemory &indices = make_memory(trial, runs ? span_of(shape, index_steps) : 0);
  fill_bytes(source, indices.data(), indices.size());
  support::Random random(word(source));
  // A -1 at the very first place of the slowest axis would read from address 0.
  const bool starts_at_address_zero = axis == 0 || rank == 2;
  const bool has_negatives = !one_in(source, 3);
  bool is_first = true;
  uint32_t at[4];
  for (at[3] = 0; runs && at[3] < std::max(1u, shape[3]); ++at[3])
    for (at[2] = 0; at[2] < std::max(1u, shape[2]); ++at[2])
      for (at[1] = 0; at[1] < std::max(1u, shape[1]); ++at[1])
        for (at[0] = 0; at[0] < shape[0]; ++at[0]) {
          uint8_t *to = indices.data();
          for (size_t i = 0; i < 4; ++i) to += size_t{at[i]} * index_steps[i];
          const int64_t value =
              has_negatives ? some_index(random, index, in_shape[d], total, !(is_first && starts_at_address_zero))
                            : random.below(in_shape[d]);
          store_element(to, index, 0, value);
          is_first = false;
        }
  trial.run.track(indices, "indices");
  block.ind_addr = indices.address();
  block.out_addr = make_tensor(trial, "output", runs ? size_t{total} * out.element : 0).address();
  block.work_buffer = make_scratch(trial, runs && !out.is_plain ? in.bytes() : 0).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_gatherelement_process));
}

namespace {

/// Coordinates are held as floats, or as integers with fraction bits that are dropped.
void store_coordinate(uint8_t *array, Type type, int frac_bits, size_t i, uint32_t coordinate,
                      support::Random &random) {
  if (type.width == 32) {
    const float value = static_cast<float>(coordinate) + random.uniform(0.0f, 0.99f);
    std::memcpy(array + 4 * i, &value, 4);
    return;
  }
  const uint32_t fraction = random.below(1u << frac_bits);
  store_element(array, type, i, (int64_t{coordinate} << frac_bits) + fraction);
}

std::string run_dimensions(Source &source) {
  Trial trial{source, {}, {}};
  uint32_t dims[4];
  for (uint32_t &extent : dims) extent = one_in(source, 3) ? 0 : one_of(source, {below(source, 70), word(source)});
  const uint32_t n = below(source, 5);
  const auto call = [&](auto function) { return [&, function] { return function(dims, n); }; };
  switch (below(source, 3)) {
    case 0:
      return compare_calls(trial, "size_to_dimension", call(::size_to_dimension), call(reference::size_to_dimension));
    case 1: {
      const uint32_t from = one_in(source, 8) ? word(source) : n;
      return compare_calls(
          trial, "size_from_dimension", [&] { return ::size_from_dimension(dims, from); },
          [&] { return reference::size_from_dimension(dims, from); });
    }
    default:
      return compare_calls(
          trial, "chk_input_offset", [&] { return ::chk_input_offset(dims); },
          [&] { return reference::chk_input_offset(dims); });
  }
}

}  // namespace

std::string run_gathernd_case(Source &source) {
  if (one_in(source, 8)) return run_dimensions(source);
  Trial trial{source, {}, {}};
  const Type in = one_of(source, kElementTypes);
  const Type index = one_of(source, kIndexTypes);
  const int index_frac_bits = index.width == 32 ? pick(source, -3, 9) : pick(source, 0, index.width == 8 ? 3 : 8);
  const uint32_t rank = 1 + below(source, 4);
  const uint32_t shared = below(source, rank + 1);
  const uint32_t coordinates = one_in(source, 8) ? below(source, 8) : below(source, rank - shared + 1);
  const uint32_t tuples_per_batch = one_in(source, 3) ? std::max(some_size(source, 70), 1u) : 1 + below(source, 6);
  std::vector<uint32_t> shape(rank);
  uint32_t total = 1;
  for (uint32_t &extent : shape) total *= extent = 1 + below(source, 5);
  uint32_t batches = 1;
  for (uint32_t i = 0; i < shared; ++i) batches *= shape[i];
  uint32_t slice = 1;
  for (uint32_t i = shared + coordinates; i < rank; ++i) slice *= shape[i];
  const uint32_t tuples = batches * tuples_per_batch;
  const int frac_bits = pick(source, -2, 6);
  const OutputFormat out = some_output_format(source, in, frac_bits);
  _NN_GATHERND_PARM block{};
  selection_test::set_shapes(block, {shape, {tuples_per_batch, batches, coordinates}, {tuples, slice}});
  block.in_fmt = in.fmt(frac_bits);
  block.ind_fmt = index.fmt(index_frac_bits);
  block.out_fmt = out.fmt;
  block.batch_dims = shared;
  const bool is_refused = one_in(source, 16);
  if (is_refused) block.in_fmt = support::format(one_of(source, {32, 24, 0, 7}), 0, one_of(source, {1, 0}));

  const size_t index_count = size_t{tuples} * std::max(1u, coordinates);
  // Coordinates without a dimension step by one element and are 0 or 1: so many elements lie behind the tensor.
  block.in_addr = make_tensor(trial, "input", is_refused ? 0 : size_t{total + coordinates} * in.bytes()).address();
  const GuardedMemory &indices =
      make_memory(trial, index_count * index.bytes(), index.width == 32 ? Address::kFloats : Address::kAny);
  support::Random random(word(source));
  random.fill(indices.data(), indices.size());
  for (size_t i = 0; coordinates != 0 && i < index_count; ++i) {
    const size_t dimension = shared + i % coordinates;
    const uint32_t coordinate = dimension < rank ? random.below(shape[dimension]) : random.below(2);
    // Values that the format does not hold would name other elements.
    const uint32_t most = index.width == 32 ? 1000u : (1u << (index.width - index.sign_bits - index_frac_bits)) - 1;
    store_coordinate(indices.data(), index, index_frac_bits, i, std::min(coordinate, most), random);
  }
  trial.run.track(indices, "indices");
  block.ind_addr = indices.address();
  block.out_addr = make_tensor(trial, "output", is_refused ? 0 : size_t{tuples} * slice * out.element).address();
  // The scratch is written even by a call that is refused.
  block.work_buffer = make_scratch(trial, index.width == 32 ? 0 : 4 * index_count).address();
  return compare_blocks(trial, block, "tarvu_gathernd_process", selection_test::gathernd_process,
                        reference::tarvu_gathernd_process);
}

}  // namespace fuzz
