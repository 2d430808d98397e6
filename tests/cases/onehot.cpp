// Calls of One-hot.
#include <algorithm>

#include "tests/cases/cases.h"

namespace cases {

using namespace fuzz;

void draw_onehot(Source &source, Case &made) {
  _NN_ONEHOT_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = block.values_addr = 0;
  block.in_fmt = one_in(source, 8) ? some_format(source) : some_integer_format(source);
  block.out_fmt = one_in(source, 16) ? some_format(source) : some_integer_format(source);
  block.values_fmt = some_format_beside(source, block.out_fmt);
  block.in_scale = some_scale(source);
  block.height = some_extent(source, 140);
  block.channel = static_cast<uint16_t>(one_in(source, 24) ? 0 : 1 + below(source, 4));
  block.batch = static_cast<uint16_t>(one_in(source, 24) ? 0 : 1 + below(source, 3));
  block.axis = one_in(source, 16) ? pick(source, -2, 9) : pick(source, 0, 3);
  block.depth = one_in(source, 12) ? pick(source, -3, 300) : pick(source, 1, 40);
  const uint32_t in_element = width_of(block.in_fmt) == 16 ? 2 : 1;
  const uint32_t out_element = width_of(block.out_fmt) == 16 ? 2 : 1;
  const Steps in = some_steps(source, in_element, block.height, block.channel);
  block.in_line_ofs = in.line;
  block.in_channel_ofs = in.channel;
  block.in_batch_ofs = in.batch;
  const uint32_t indices[] = {block.batch, block.channel, block.height};
  uint32_t counts[4];
  for (int32_t axis = 0, next = 0; axis < 4; ++axis) {
    const uint32_t depth = static_cast<uint32_t>(std::max(block.depth, 0));
    counts[axis] = axis == block.axis || next == 3 ? depth : indices[next++];
  }
  const Steps out = some_steps(source, counts[3] * out_element, counts[2], counts[1]);
  block.out_line_ofs = out.line;
  block.out_channel_ofs = out.channel;
  block.out_batch_ofs = out.batch;
  set_block(made, "tarvu_onehot_process", block);
}

}  // namespace cases
