// Calls of the fully-connected post-processing.
#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

_NN_SCALE some_multiplier(Source &source) {
  if (one_in(source, 3)) return some_scale(source);
  return support::scale(pick(source, -300, 300), pick(source, -3, 20));
}

uint32_t step_of(const _NN_FMT &fmt) { return static_cast<uint8_t>(width_of(fmt)) / 8u; }

/// Forwards or backwards.
int32_t some_item_bytes(Source &source, uint32_t bytes) {
  const auto item = static_cast<int32_t>(one_in(source, 8) ? below(source, bytes + 6) : bytes + below(source, 6));
  return one_in(source, 3) ? -item : item;
}

}  // namespace

void draw_fc_post(Source &source, Case &made) {
  _NN_FC_POST_PARM block = {};
  block.width = some_extent(source, 300);
  block.height = static_cast<uint16_t>(one_in(source, 4) ? some_size(source, 70) : below(source, 10));
  block.batch = one_of<uint16_t>(source, {1, 2, 3, 0});
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  if (one_in(source, 16)) fill_bytes(source, &block.in_fmt, sizeof block.in_fmt);
  if (one_in(source, 16)) fill_bytes(source, &block.out_fmt, sizeof block.out_fmt);
  block.mul_a = some_multiplier(source);
  block.mul_b = some_multiplier(source);
  block.neg_mul = some_multiplier(source);
  block.in_line_ofs = one_of(source, {block.width * step_of(block.in_fmt), 1u, 0u, below(source, 9)});
  if (one_in(source, 30)) block.in_line_ofs = word(source);
  block.in_batch_ofs =
      some_item_bytes(source, block.width * step_of(block.in_fmt) + block.height * block.in_line_ofs % 50000 + 4);
  block.out_batch_ofs = some_item_bytes(source, block.width * step_of(block.out_fmt) + 4);
  block.channel = static_cast<uint16_t>(unread(source));
  block.in_channel_ofs = unread(source);
  block.out_line_ofs = unread(source);
  block.out_channel_ofs = unread(source);
  set_block(made, "tarvu_fc_post_process", block);
}

}  // namespace cases
