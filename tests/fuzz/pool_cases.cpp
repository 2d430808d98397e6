// Pooling, all modes.
#include <algorithm>

#include "tests/fuzz/operators.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_pool_c_reference.h"

namespace fuzz {
namespace {

using support::GuardedMemory;

constexpr uint32_t kLocalMaximum = 0;
constexpr uint32_t kLocalAverage = 1;
constexpr uint32_t kGlobalMaximum = 2;
constexpr uint32_t kGlobalAverage = 3;

/// Multipliers and shifts: plain, sensible for a network, or anything. The direction follows from the sum of the shifts.
void draw_output_stage(Source &source, _NN_POOL_PARM &block, int32_t width_delta) {
  int32_t total = 0;
  switch (below(source, 4)) {
    case 0:
      block.in_scale.scale_value = block.out_scale.scale_value = 1;
      total = pick(source, -3, 4);
      break;
    case 1:
      block.in_scale.scale_value = pick(source, -40, 40);
      block.out_scale.scale_value = pick(source, -40, 40);
      total = pick(source, 0, 12);
      break;
    case 2:
      block.in_scale.scale_value = pick(source, 1, 127);
      block.out_scale.scale_value = pick(source, 1, 32767);
      total = pick(source, 10, 24);
      break;
    default:
      block.in_scale.scale_value = static_cast<int32_t>(word(source));
      block.out_scale.scale_value = static_cast<int32_t>(word(source));
      total = pick(source, -300, 300);
  }
  const int32_t in_shift = one_in(source, 3) ? pick(source, -128, 127) : pick(source, -2, 4);
  const int32_t post_shift = one_in(source, 3) ? pick(source, -128, 127) : pick(source, -2, 4);
  block.in_scale.scale_shift = static_cast<int8_t>(in_shift);
  block.post_shift = static_cast<int8_t>(post_shift);
  block.out_scale.scale_shift = static_cast<int8_t>(total - in_shift - post_shift - width_delta);
}

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

/// In front of a line or above a plane: at most the stride, beyond which the input's own memory would be left.
uint8_t some_near_pad(Source &source, uint8_t stride) { return static_cast<uint8_t>(below(source, stride + 1u)); }

uint8_t some_far_pad(Source &source) {
  return static_cast<uint8_t>(one_in(source, 8) ? pick(source, 0, 255) : pick(source, 0, 4));
}

/// The most output positions along one axis.
uint32_t most_positions(int extent, int kernel, int stride, int pad_near, int pad_far) {
  const int span = extent + pad_near + pad_far - kernel;
  return static_cast<uint32_t>(stride == 0 || span < 0 ? 2 : span / stride + 2);
}

void draw_extents(Source &source, _NN_POOL_PARM &block) {
  block.width = some_extent(source, 140);
  block.height = some_extent(source, block.width > 48 ? 8 : 33);
  if (one_in(source, 16)) block.width = static_cast<uint16_t>(pick(source, 200, 2500));
  if (one_in(source, 16)) {
    block.height = static_cast<uint16_t>(pick(source, 40, 400));
    block.width = static_cast<uint16_t>(std::min<uint32_t>(block.width, 40));
  }
  block.channel = static_cast<uint16_t>(one_of(source, {1, 2, 3, 1, 2, 0}));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 0}));
  if (size_t{block.width} * block.height > 4000) block.channel = block.batch = 1;
  if (!one_in(source, 3)) return;
  // Small planes, as many as go side by side and a few more.
  block.width = static_cast<uint16_t>(pick(source, 1, one_in(source, 4) ? 33 : 16));
  block.height = static_cast<uint16_t>(pick(source, 1, one_in(source, 8) ? 90 : 16));
  block.channel = static_cast<uint16_t>(block.height > 16 ? pick(source, 1, 4) : pick(source, 1, 40));
}

std::string run_pool_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_POOL_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_fmt = some_integer_format(source);
  block.out_fmt = some_integer_format(source);
  const auto in_element = static_cast<uint32_t>(width_of(block.in_fmt)) / 8;
  const auto out_element = static_cast<uint32_t>(width_of(block.out_fmt)) / 8;
  block.mode =
      one_of(source, {kLocalMaximum, kLocalAverage, kLocalMaximum, kLocalAverage, kGlobalMaximum, kGlobalAverage});
  block.floor_mode = one_of(source, {0u, 1u, 0u, 0x10000u});
  block.non_count_pad = one_of(source, {0u, 1u, 0u, 0x100u});
  draw_output_stage(source, block, width_of(block.in_fmt) - width_of(block.out_fmt));
  draw_extents(source, block);
  block.kernel_w = some_kernel(source);
  block.kernel_h = some_kernel(source);
  block.stride_w = some_stride(source);
  block.stride_h = some_stride(source);
  block.pad_left = some_near_pad(source, block.stride_w);
  block.pad_top = some_near_pad(source, block.stride_h);
  block.pad_right = some_far_pad(source);
  block.pad_bottom = some_far_pad(source);
  const bool global = block.mode >= kGlobalMaximum;
  const uint32_t columns =
      global ? 1 : most_positions(block.width, block.kernel_w, block.stride_w, block.pad_left, block.pad_right);
  const uint32_t rows =
      global ? 1 : most_positions(block.height, block.kernel_h, block.stride_h, block.pad_top, block.pad_bottom);
  const auto padding = [&] { return one_in(source, 3) ? below(source, 5) : 0; };
  block.in_line_ofs = block.width * in_element + padding();
  block.in_channel_ofs = block.height * block.in_line_ofs + padding();
  block.in_batch_ofs = block.channel * block.in_channel_ofs + padding();
  const uint32_t line_bytes = columns * out_element + padding();
  if (!global) block.out_line_ofs = line_bytes;
  block.out_channel_ofs = rows * line_bytes + padding();
  block.out_batch_ofs = block.channel * block.out_channel_ofs + padding();

  bool runs = true;
  if (one_in(source, 16)) {
    const _NN_FMT spoilt = support::format(one_of(source, {32, 24, 0, 4, -8}), pick(source, -2, 9), pick(source, 0, 1));
    switch (below(source, 3)) {
      case 0:
        block.in_fmt = spoilt;
        break;
      case 1:
        block.out_fmt = spoilt;
        break;
      default:
        block.mode = word(source) | 4;
    }
    runs = false;
  }
  size_t in_bytes = 0;
  if (runs && block.batch != 0 && block.channel != 0 && block.height != 0) {
    in_bytes = size_t{block.in_batch_ofs} * (block.batch - 1u) + size_t{block.in_channel_ofs} * (block.channel - 1u) +
               size_t{block.in_line_ofs} * (block.height - 1u) + block.width * in_element;
  }
  const size_t out_bytes = runs ? size_t{block.batch} * block.out_batch_ofs : 0;
  block.in_addr = make_tensor(trial, "input", in_bytes).address();
  block.out_addr = make_tensor(trial, "output", out_bytes, out_element).address();
  block.work_buffer = support::unreadable_address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_pool_process));
}

}  // namespace

std::span<const Operator> pool_operators() {
  static const Operator operators[] = {{"pool", run_pool_case, {"tarvu_pool_process"}}};
  return operators;
}

}  // namespace fuzz
