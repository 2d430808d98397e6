// Calls of pooling.
#include <algorithm>

#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

uint8_t some_kernel(Source &source) {
  switch (below(source, 8)) {
    case 6:
      return static_cast<uint8_t>(pick(source, 5, 40));
    case 7:
      return static_cast<uint8_t>(one_of(source, {0, 1, 63, 64, 127, 128, 255, pick(source, 0, 255)}));
    default:
      return static_cast<uint8_t>(pick(source, 1, 5));
  }
}

uint8_t some_stride(Source &source) {
  if (!one_in(source, 8)) return static_cast<uint8_t>(pick(source, 1, 4));
  return static_cast<uint8_t>(one_of(source, {0, 5, 8, 16, 255, pick(source, 0, 255)}));
}

/// At most the stride, beyond which memory in front of the lines is read; seldom more.
uint8_t some_near_pad(Source &source, uint8_t stride) {
  return static_cast<uint8_t>(one_in(source, 30) ? pick(source, 0, 255)
                                                 : static_cast<int32_t>(below(source, stride + 1u)));
}

uint8_t some_far_pad(Source &source) {
  return static_cast<uint8_t>(one_in(source, 8) ? pick(source, 0, 255) : pick(source, 0, 4));
}

uint32_t most_positions(int extent, int kernel, int stride, int pad_near, int pad_far) {
  const int span = extent + pad_near + pad_far - kernel;
  return static_cast<uint32_t>(stride == 0 || span < 0 ? 2 : span / stride + 2);
}

}  // namespace

void draw_pool(Source &source, Case &made) {
  _NN_POOL_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = block.work_buffer = 0;
  block.in_fmt = one_in(source, 20) ? some_format(source) : some_integer_format(source);
  block.out_fmt = one_in(source, 20) ? some_format(source) : some_integer_format(source);
  block.mode = one_in(source, 30) ? word(source) : one_of(source, {0u, 1u, 0u, 1u, 2u, 3u});
  block.floor_mode = one_of(source, {0u, 1u, 0u, 0x10000u});
  block.non_count_pad = one_of(source, {0u, 1u, 0u, 0x100u});
  block.width = some_extent(source, 80);
  block.height = some_extent(source, block.width > 48 ? 8 : 33);
  if (one_in(source, 30)) block.width = static_cast<uint16_t>(pick(source, 200, 600));
  block.channel = static_cast<uint16_t>(one_of(source, {1, 2, 3, 1, 2, 0}));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 1, 0}));
  block.kernel_w = some_kernel(source);
  block.kernel_h = some_kernel(source);
  block.stride_w = some_stride(source);
  block.stride_h = some_stride(source);
  block.pad_left = some_near_pad(source, block.stride_w);
  block.pad_top = some_near_pad(source, block.stride_h);
  block.pad_right = some_far_pad(source);
  block.pad_bottom = some_far_pad(source);
  const uint32_t in_element = width_of(block.in_fmt) == 16 ? 2 : 1;
  const uint32_t out_element = width_of(block.out_fmt) == 16 ? 2 : 1;
  const Steps in = some_steps(source, block.width * in_element, block.height, block.channel);
  block.in_line_ofs = in.line;
  block.in_channel_ofs = in.channel;
  block.in_batch_ofs = in.batch;
  const bool global = block.mode >= 2;
  const uint32_t columns =
      global ? 1 : most_positions(block.width, block.kernel_w, block.stride_w, block.pad_left, block.pad_right);
  const uint32_t lines =
      global ? 1 : most_positions(block.height, block.kernel_h, block.stride_h, block.pad_top, block.pad_bottom);
  const Steps out = some_steps(source, columns * out_element, lines, block.channel);
  if (!global) block.out_line_ofs = out.line;
  block.out_channel_ofs = out.channel;
  block.out_batch_ofs = out.batch;
  set_block(made, "tarvu_pool_process", block);
}

}  // namespace cases
