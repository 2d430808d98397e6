// Calls of reverse and permute.
#include <algorithm>
#include <utility>

#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

/// Formats, extents and steps of a block that opens like most.
template <class Block>
void draw_head(Source &source, Block &block) {
  const uint32_t longest = below(source, 4);
  uint16_t extents[4];
  for (uint32_t i = 0; i < 4; ++i) {
    extents[i] = i == longest ? some_extent(source, 70) : static_cast<uint16_t>(1 + below(source, 4));
    if (one_in(source, 24)) extents[i] = 0;
  }
  block.batch = extents[0];
  block.channel = extents[1];
  block.height = extents[2];
  block.width = extents[3];
  block.in_fmt = one_in(source, 12) ? some_format(source) : some_integer_format(source);
  if (one_in(source, 6)) block.in_fmt.fmt_reserved = 7;
  block.out_fmt = some_format_beside(source, block.in_fmt);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  const uint32_t in_element = static_cast<uint32_t>(std::max(width_of(block.in_fmt) / 8, 1));
  const Steps in = some_steps(source, block.width * in_element, block.height, block.channel);
  block.in_line_ofs = in.line;
  block.in_channel_ofs = in.channel;
  block.in_batch_ofs = in.batch;
}

template <class Block>
void draw_output(Source &source, Block &block, uint32_t width, uint32_t height, uint32_t channel) {
  const uint32_t out_element = static_cast<uint32_t>(std::max(width_of(block.out_fmt) / 8, 1));
  const Steps out = some_steps(source, width * out_element, height, channel);
  block.out_line_ofs = out.line;
  block.out_channel_ofs = out.channel;
  block.out_batch_ofs = out.batch;
}

}  // namespace

void draw_reverse(Source &source, Case &made) {
  _NN_REVERSE_PARM block{};
  draw_head(source, block);
  draw_output(source, block, block.width, block.height, block.channel);
  block.axis = static_cast<int8_t>(one_in(source, 30) ? pick(source, -128, 127) : pick(source, 0, 3));
  set_block(made, "tarvu_reverse_process", block);
}

void draw_permute(Source &source, Case &made) {
  _NN_PERMUTE_PARM block{};
  draw_head(source, block);
  int8_t order[] = {0, 1, 2, 3};
  for (uint32_t i = 3; i != 0; --i) std::swap(order[i], order[below(source, i + 1)]);
  if (one_in(source, 8)) std::swap(order[3], *std::find(order, order + 4, 3));
  if (one_in(source, 10)) order[below(source, 4)] = static_cast<int8_t>(pick(source, 0, 3));
  if (one_in(source, 40)) order[below(source, 4)] = static_cast<int8_t>(pick(source, -128, 127));
  std::copy(order, order + 4, block.order);
  const uint32_t extents[] = {block.batch, block.channel, block.height, block.width};
  const auto extent = [&](int i) { return order[i] >= 0 && order[i] < 4 ? extents[order[i]] : 1u; };
  draw_output(source, block, extent(3), extent(2), extent(1));
  if (one_in(source, 12)) {
    block.out_line_ofs = block.in_line_ofs;
    block.out_channel_ofs = block.in_channel_ofs;
    block.out_batch_ofs = block.in_batch_ofs;
    made.in_place = "out_addr";
    made.in_place_of = "in_addr";
  }
  set_block(made, "tarvu_permute_process", block);
}

}  // namespace cases
