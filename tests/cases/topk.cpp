// Calls of Top-K.
#include <algorithm>

#include "tests/cases/cases.h"

namespace cases {

using namespace fuzz;

void draw_topk(Source &source, Case &made) {
  _NN_TOPK_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.axis = one_of<int8_t>(source, {3, 0, 1, 2});
  uint32_t extents[4];
  for (uint32_t &extent : extents) extent = one_in(source, 24) ? 0 : 1 + below(source, 4);
  extents[block.axis] = one_in(source, 12) ? 60 + below(source, 300) : some_extent(source, 140);
  block.batch = static_cast<uint16_t>(extents[0]);
  block.channel = static_cast<uint16_t>(extents[1]);
  block.height = static_cast<uint16_t>(extents[2]);
  block.width = static_cast<uint16_t>(extents[3]);
  const uint32_t length = extents[block.axis];
  block.k = one_in(source, 3) ? below(source, length + 1) : std::min(length, one_of(source, {1u, 2u, 5u, length, 0u}));
  if (one_in(source, 40)) block.k = word(source);
  block.largest = static_cast<int8_t>(below(source, 2));
  block.sorted = one_of<int8_t>(source, {1, 0, -1});
  block.in_fmt = one_in(source, 12) ? some_format(source) : some_integer_format(source);
  uint32_t counts[] = {extents[0], extents[1], extents[2], extents[3]};
  counts[block.axis] = block.k;
  const uint32_t element = width_of(block.in_fmt) == 16 ? 2 : 1;
  const Steps values = some_steps(source, counts[3] * element, counts[2], counts[1]);
  const Steps indices = some_steps(source, counts[3] * 2, counts[2], counts[1]);
  block.out_line_ofs = values.line;
  block.out_channel_ofs = values.channel;
  block.out_batch_ofs = values.batch;
  block.out_index_line_ofs = indices.line;
  block.out_index_channel_ofs = indices.channel;
  block.out_index_batch_ofs = indices.batch;
  if (one_in(source, 16)) block.largest = one_of<int8_t>(source, {2, -1, 127});
  if (one_in(source, 16)) block.axis = one_of<int8_t>(source, {4, -1, -128});
  block.in_addr = block.work_buffer = 0;
  block.out_addr = block.out_index_addr = 16;
  const uint32_t wanted = below(source, 8);  // 7: none of them
  if (wanted == 5 || wanted == 7) {
    block.out_addr = 0;
    made.null_fields.push_back("out_addr");
  }
  if (wanted == 6 || wanted == 7) {
    block.out_index_addr = 0;
    made.null_fields.push_back("out_index_addr");
  }
  set_block(made, "tarvu_topk_process", block);
}

}  // namespace cases
