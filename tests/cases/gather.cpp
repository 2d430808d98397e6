// Calls of Gather and Gather element.
#include "tests/cases/gather.h"

#include <algorithm>
#include <array>

namespace cases {
namespace {

using namespace fuzz;

using Extents = std::array<uint32_t, 4>;  // width first

Extents some_shape(Source &source, uint32_t rank, uint32_t most, uint32_t most_wide) {
  Extents extents = {};
  for (uint32_t i = 0; i < rank; ++i) extents[i] = 1 + below(source, most);
  if (one_in(source, 3)) extents[0] = std::max(some_size(source, most_wide), 1u);
  return extents;
}

/// Byte steps of a tensor with `padding` bytes behind every line, channel and batch item; [0] is the element.
Extents steps_of(const Extents &extents, uint32_t element_bytes, uint32_t padding) {
  Extents steps = {element_bytes, 0, 0, 0};
  for (size_t i = 1; i < 4; ++i) steps[i] = steps[i - 1] * std::max(1u, extents[i - 1]) + padding;
  return steps;
}

/// A position of the axis, -1, one that is counted back from `total`, or seldom one outside.
int64_t some_index(Source &source, const _NN_FMT &fmt, uint32_t positions, uint32_t total) {
  const bool may_be_negative = fmt.sign_bits != 0 || width_of(fmt) == 32;
  if (one_in(source, 4000)) return pick(source, -128, 127);
  if (may_be_negative && one_in(source, 5)) return -1;
  if (may_be_negative && one_in(source, 4)) {
    const int64_t magnitude = int64_t{total} - below(source, std::min(positions, total));
    if (magnitude >= 2 && magnitude <= (width_of(fmt) == 8 ? 128 : 32768)) return -magnitude;
  }
  return below(source, positions);
}

template <class Block>
void set_shapes(Block &block, const Extents &in, const Extents &indices, const Extents &out) {
  block.in_width = static_cast<uint16_t>(in[0]);
  block.in_height = static_cast<uint16_t>(in[1]);
  block.in_channel = static_cast<uint16_t>(in[2]);
  block.in_batch = static_cast<uint16_t>(in[3]);
  block.ind_width = static_cast<uint16_t>(indices[0]);
  block.ind_height = static_cast<uint16_t>(indices[1]);
  block.ind_channel = static_cast<uint16_t>(indices[2]);
  block.ind_batch = static_cast<uint16_t>(indices[3]);
  block.out_width = static_cast<uint16_t>(out[0]);
  block.out_height = static_cast<uint16_t>(out[1]);
  block.out_channel = static_cast<uint16_t>(out[2]);
  block.out_batch = static_cast<uint16_t>(out[3]);
}

template <class Block>
void set_in_steps(Block &block, const Extents &steps) {
  block.in_line_ofs = steps[1];
  block.in_channel_ofs = steps[2];
  block.in_batch_ofs = steps[3];
}

uint32_t element_of(const _NN_FMT &fmt) { return width_of(fmt) == 16 ? 2 : 1; }

}  // namespace

_NN_FMT some_index_format(Source &source) {
  return support::format(one_of(source, {8, 16, 32}), pick(source, -3, 3), one_of(source, {1, 0}));
}

void store_index(std::vector<uint8_t> &bytes, size_t at, const _NN_FMT &fmt, int64_t index) {
  const auto size = static_cast<size_t>(width_of(fmt) / 8);
  if (bytes.size() < at + size) bytes.resize(at + size);
  std::memcpy(bytes.data() + at, &index, size);
}

void draw_gather(Source &source, Case &made) {
  _NN_GATHER_PARM block{};
  block.in_fmt = some_integer_format(source);
  block.ind_fmt = some_index_format(source);
  block.out_fmt = one_in(source, 3) ? block.in_fmt : some_format_beside(source, block.in_fmt);
  const uint32_t rank = 2 + below(source, 3);
  const uint32_t index_rank = 1 + below(source, one_in(source, 10) ? 4 : 6 - rank);
  const uint32_t axis = below(source, rank);
  const uint32_t d = rank - 1 - axis;
  const Extents in = some_shape(source, rank, 5, 70);
  const Extents indices = some_shape(source, index_rank, 3, 35);
  const uint32_t list_rank = rank == 4 ? 1 : std::min(index_rank, 5 - rank);
  Extents out = {};
  uint32_t at = 0;
  for (uint32_t i = 0; i < d; ++i) out[at++] = in[i];
  for (uint32_t i = 0; i < list_rank; ++i) out[at++] = indices[i];
  for (uint32_t i = d + 1; i < rank && at < 4; ++i) out[at++] = in[i];
  if (one_in(source, 24)) out[below(source, 4)] = 0;
  set_shapes(block, in, indices, out);
  if (one_in(source, 4)) block.in_width = 0;
  const uint32_t element = element_of(block.in_fmt);
  set_in_steps(block, steps_of(in, element, below(source, 3) * element));
  const Extents steps = steps_of(out, element_of(block.out_fmt), below(source, 3));
  block.out_line_ofs = steps[1];
  block.out_channel_ofs = steps[2];
  block.out_batch_ofs = steps[3];
  block.axis = static_cast<uint8_t>(one_in(source, 24) ? below(source, 256) : axis);
  uint32_t count = 1;
  for (uint32_t i = 0; i < list_rank; ++i) count *= indices[i];
  Contents &list = made.contents.emplace_back("ind_addr", std::vector<uint8_t>());
  for (uint32_t i = 0; i < count; ++i) {
    store_index(list.bytes, i * static_cast<size_t>(width_of(block.ind_fmt) / 8), block.ind_fmt,
                some_index(source, block.ind_fmt, in[d], count));
  }
  if (one_in(source, 16)) (one_in(source, 2) ? block.in_fmt : block.ind_fmt) = some_format(source);
  set_block(made, "tarvu_gather_process", block);
}

void draw_gatherelement(Source &source, Case &made) {
  _NN_GATHERELEMENT_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = block.ind_addr = block.work_buffer = 0;
  block.in_fmt = some_integer_format(source);
  block.ind_fmt = some_index_format(source);
  block.out_fmt = one_in(source, 3) ? block.in_fmt : some_format_beside(source, block.in_fmt);
  const uint32_t rank = 2 + below(source, 3);
  const uint32_t axis = below(source, rank);
  const uint32_t d = rank - 1 - axis;
  const Extents shape = some_shape(source, rank, 5, 70);
  Extents in = shape;
  in[d] = 1 + below(source, 6);
  set_shapes(block, in, shape, shape);
  if (one_in(source, 4)) block.in_width = 0;
  const uint32_t element = element_of(block.in_fmt);
  set_in_steps(block, steps_of(in, element, below(source, 3)));
  const Extents steps = steps_of(shape, static_cast<uint32_t>(width_of(block.ind_fmt) / 8), below(source, 3));
  block.ind_line_ofs = steps[1];
  block.ind_channel_ofs = steps[2];
  block.ind_batch_ofs = steps[3];
  block.axis = static_cast<uint8_t>(one_in(source, 24) ? below(source, 256) : axis);
  if (one_in(source, 24)) block.out_width = 0;
  uint32_t total = 1;
  for (uint32_t i = 0; i < rank; ++i) total *= shape[i];
  Contents &indices = made.contents.emplace_back("ind_addr", std::vector<uint8_t>());
  uint32_t at[4] = {};
  for (uint32_t i = 0; i < total; ++i) {
    size_t place = 0;
    for (uint32_t k = 0; k < rank; ++k) place += size_t{at[k]} * steps[k];
    // A -1 in front of all others has nothing to keep where the axis is the slowest, and on a matrix.
    const int64_t index = some_index(source, block.ind_fmt, in[d], total);
    store_index(indices.bytes, place, block.ind_fmt, i == 0 && index < 0 && !one_in(source, 10) ? 0 : index);
    for (uint32_t k = 0; k < rank && ++at[k] == shape[k]; ++k) at[k] = 0;
  }
  if (one_in(source, 16)) (one_in(source, 2) ? block.in_fmt : block.ind_fmt) = some_format(source);
  set_block(made, "tarvu_gatherelement_process", block);
}

void draw_gathernd(Source &source, Case &made) {
  _NN_GATHERND_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = block.ind_addr = block.work_buffer = 0;
  block.in_fmt = some_integer_format(source);
  block.out_fmt = one_in(source, 3) ? block.in_fmt : some_format_beside(source, block.in_fmt);
  block.ind_fmt = some_index_format(source);
  block.ind_fmt.frac_bits = static_cast<int8_t>(one_of(source, {0, 0, 2, -1, 1}));
  const int width = one_of(source, {8, 16, 32});
  block.ind_fmt.int_bits = static_cast<int8_t>(width - block.ind_fmt.frac_bits - block.ind_fmt.sign_bits);
  const uint32_t rank = 1 + below(source, 4);
  const uint32_t shared = below(source, rank + 1);
  const uint32_t coordinates = one_in(source, 8) ? below(source, 8) : below(source, rank - shared + 1);
  const uint32_t per_batch = one_in(source, 3) ? std::max(some_size(source, 70), 1u) : 1 + below(source, 6);
  uint32_t shape[4] = {};
  uint32_t batches = 1;
  uint32_t slice = 1;
  for (uint32_t i = 0; i < rank; ++i) {
    shape[i] = 1 + below(source, 5);
    if (i < shared) batches *= shape[i];
    if (i >= shared + coordinates) slice *= shape[i];
  }
  Extents in = {};
  for (uint32_t i = 0; i < rank; ++i) in[rank - 1 - i] = shape[i];
  const uint32_t tuples = batches * per_batch;
  set_shapes(block, in, {coordinates, batches, per_batch, 0}, {slice, tuples, 0, 0});
  if (one_in(source, 20)) block.out_height = static_cast<uint16_t>(block.out_height + pick(source, -1, 2));
  block.batch_dims = one_in(source, 40) ? word(source) : shared;
  const uint32_t count = tuples * std::max(coordinates, 1u);
  Contents &indices = made.contents.emplace_back("ind_addr", std::vector<uint8_t>());
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t dimension = coordinates == 0 ? 4 : shared + i % coordinates;
    int64_t coordinate = dimension < rank ? below(source, shape[dimension]) : 0;
    if (one_in(source, 300)) coordinate = pick(source, -2, 7);
    if (width == 32) {
      const float value = static_cast<float>(coordinate) + (coordinate < 0 ? 0.0f : 0.25f);
      int32_t bits;
      std::memcpy(&bits, &value, sizeof bits);
      store_index(indices.bytes, size_t{i} * 4, block.ind_fmt, bits);
    } else {
      const int frac_bits = block.ind_fmt.frac_bits;
      const int64_t stored = frac_bits < 0 ? coordinate / 2 : coordinate * (1 << frac_bits);
      store_index(indices.bytes, size_t{i} * static_cast<size_t>(width / 8), block.ind_fmt, stored);
    }
  }
  if (one_in(source, 16)) (one_in(source, 2) ? block.in_fmt : block.ind_fmt) = some_format(source);
  set_block(made, "tarvu_gathernd_process", block);
}

}  // namespace cases
