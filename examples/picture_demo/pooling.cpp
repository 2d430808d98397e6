/// \file pooling.cpp
/// A picture's planes at halved sizes by maximum and by average, and the average of each plane.

#include "demo.h"
#include "picture.h"

namespace demo {

namespace {

enum Mode : uint32_t { kMaximum = 0, kAverage = 1, kGlobalAverage = 3 };

/// The window of a layer that halves width and height.
struct Window {
  uint8_t side;
  uint8_t pad;
  bool counts_padding;
};

constexpr Window kTwoByTwo = {2, 0, true};
constexpr Window kThreeByThree = {3, 1, true};
constexpr Window kThreeByThreeInside = {3, 1, false};

_NN_POOL_PARM block_of(const Tensor &in, const Tensor &out, Mode mode) {
  _NN_POOL_PARM block = {};
  block.in_addr = in.address();
  block.out_addr = out.address();
  block.width = in.shape.width;
  block.height = in.shape.height;
  block.channel = in.shape.channel;
  block.batch = in.shape.batch;
  block.in_line_ofs = in.line_bytes();
  block.in_channel_ofs = in.channel_bytes();
  block.in_batch_ofs = in.batch_bytes();
  block.out_line_ofs = out.line_bytes();
  block.out_channel_ofs = out.channel_bytes();
  block.out_batch_ofs = out.batch_bytes();
  block.in_fmt = in.format;
  block.out_fmt = out.format;
  block.in_scale.scale_value = 1;
  block.out_scale.scale_value = 1;
  block.mode = mode;
  return block;
}

uint16_t half_of(uint16_t extent) { return static_cast<uint16_t>((extent + 1) / 2); }

Tensor halve(Demo &demo, const std::string &name, const Tensor &in, Mode mode, Window window) {
  Tensor out({half_of(in.shape.width), half_of(in.shape.height), in.shape.channel, in.shape.batch}, in.format);
  _NN_POOL_PARM block = block_of(in, out, mode);
  block.kernel_w = block.kernel_h = window.side;
  block.stride_w = block.stride_h = 2;
  block.pad_left = block.pad_right = block.pad_top = block.pad_bottom = window.pad;
  block.floor_mode = window.pad != 0;  // without padding, a last column of one element is kept
  block.non_count_pad = !window.counts_padding;
  demo.run("pool: " + name, tarvu_pool_process, block, in, out);
  return out;
}

void pyramid(Demo &demo, const std::string &name, const Tensor &planes, Mode mode, Window window) {
  Tensor level = planes;
  for (const char *size : {"1/2", "1/4", "1/8"}) level = halve(demo, name + " " + size, level, mode, window);
  std::string file_name = name;
  for (char &letter : file_name) letter = letter == ' ' ? '_' : letter;
  show_planes(demo, file_name, level);
}

}  // namespace

void pooling_stages(Demo &demo, const Tensor &planes) {
  pyramid(demo, "maximum", planes, kMaximum, kTwoByTwo);
  pyramid(demo, "average", planes, kAverage, kThreeByThree);
  pyramid(demo, "average without padding", planes, kAverage, kThreeByThreeInside);

  Tensor const means({1, 1, planes.shape.channel, planes.shape.batch}, planes.format);
  demo.run("pool: average of each plane", tarvu_pool_process, block_of(planes, means, kGlobalAverage), planes, means);
}

}  // namespace demo
