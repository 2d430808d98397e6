/// \file pooling.cpp
/// A picture's planes at halved sizes by maximum and by average, and the average of each plane.

#include "demo.h"

namespace demo {

namespace {

/// The window of a layer that halves width and height.
struct Window {
  uint8_t side;
  uint8_t pad;
  bool counts_padding;
};

constexpr Window kTwoByTwo = {2, 0, true};
constexpr Window kThreeByThree = {3, 1, true};
constexpr Window kThreeByThreeInside = {3, 1, false};

_NN_POOL_PARM pool_block_of(const Tensor &in, const Tensor &out, Pooling mode) {
  auto block = block_of<_NN_POOL_PARM>(in, out);
  block.in_scale.scale_value = 1;
  block.out_scale.scale_value = 1;
  block.mode = static_cast<uint32_t>(mode);
  return block;
}

uint16_t half_of(uint16_t extent) { return static_cast<uint16_t>((extent + 1) / 2); }

Tensor halve(Demo &demo, const std::string &name, const Tensor &in, Pooling mode, Window window) {
  Tensor out({half_of(in.shape.width), half_of(in.shape.height), in.shape.channel, in.shape.batch}, in.format);
  _NN_POOL_PARM block = pool_block_of(in, out, mode);
  block.kernel_w = block.kernel_h = window.side;
  block.stride_w = block.stride_h = 2;
  block.pad_left = block.pad_right = block.pad_top = block.pad_bottom = window.pad;
  block.floor_mode = window.pad != 0;  // without padding, a last column of one element is kept
  block.non_count_pad = !window.counts_padding;
  demo.run("pool: " + name, tarvu_pool_process, block, in, out);
  return out;
}

void pyramid(Demo &demo, const std::string &name, const Tensor &planes, Pooling mode, Window window,
             const std::string &note) {
  Tensor level = planes;
  for (const char *size : {"1/2", "1/4", "1/8"}) level = halve(demo, name + " " + size, level, mode, window);
  show_planes(demo, name, level, note);
}

}  // namespace

Tensor pool_tiles(Demo &demo, const std::string &name, const Tensor &in, Pooling mode, int width, int height,
                  int post_shift) {
  auto const tiles = [](int extent, int side) { return static_cast<uint16_t>((extent + side - 1) / side); };
  _NN_FMT format = in.format;
  format.frac_bits = static_cast<int8_t>(format.frac_bits - post_shift);
  format.int_bits = static_cast<int8_t>(format.int_bits + post_shift);
  Tensor out({tiles(in.shape.width, width), tiles(in.shape.height, height), in.shape.channel, in.shape.batch}, format);
  _NN_POOL_PARM block = pool_block_of(in, out, mode);
  block.kernel_w = block.stride_w = static_cast<uint8_t>(width);
  block.kernel_h = block.stride_h = static_cast<uint8_t>(height);
  block.post_shift = static_cast<int8_t>(post_shift);
  demo.run("pool: " + name, tarvu_pool_process, block, in, out);
  return out;
}

void pooling_stages(Demo &demo, const Tensor &planes) {
  pyramid(demo, "maximum", planes, Pooling::kMaximum, kTwoByTwo, "an eighth of the size");
  pyramid(demo, "average", planes, Pooling::kAverage, kThreeByThree, "dark edge: padding counts, as zeros");
  pyramid(demo, "average without padding", planes, Pooling::kAverage, kThreeByThreeInside, "padding does not count");
  demo.report(
      "the dark edge of \"average\" is right: at the top and on the left its windows reach over the picture, and the");
  demo.report("zeros of the padding count; in \"average without padding\" (non_count_pad) they do not");

  Tensor const means({1, 1, planes.shape.channel, planes.shape.batch}, planes.format);
  demo.run("pool: average of each plane", tarvu_pool_process, pool_block_of(planes, means, Pooling::kGlobalAverage),
           planes, means);
}

}  // namespace demo
