/// \file resampling.cpp
/// Grid sample and Gather: a picture bent by a lens, and a picture with a strip of its lines in another order.

#include <algorithm>
#include <cmath>

#include "demo.h"

namespace demo {

namespace {

constexpr int kGridBits = 8;  // fraction bits of a grid value: 256 would be the last pixel

/// Grid values by the pixel that they take, for one axis. Nearest to whole pixel p is values[p].
///
/// Between two lines the operator blends from the lower one upwards, so a value's place has to be searched for.
std::vector<uint8_t> nearest_values(int extent, bool is_blended_upwards) {
  std::vector<uint8_t> values(static_cast<size_t>(extent));
  for (int pixel = 0; pixel < extent; ++pixel) {
    double least = extent;
    for (int value = 0; value < 1 << kGridBits; ++value) {
      double const at = value * (extent - 1) / double{1 << kGridBits};
      double const whole = std::floor(at);
      double const distance = std::fabs((is_blended_upwards ? 2 * whole + 1 - at : at) - pixel);
      if (distance < least) {
        least = distance;
        values[static_cast<size_t>(pixel)] = static_cast<uint8_t>(value);
      }
    }
  }
  return values;
}

/// A grid, in the order of the output's pixels, that magnifies what lies around the centre.
Tensor lens(uint16_t width, uint16_t height, uint16_t in_width, uint16_t in_height) {
  constexpr size_t kReadBehind = 16;
  Tensor grid({2, width, 1, height}, unsigned_format(kGridBits, 8));
  grid.bytes.resize(grid.bytes.size() + kReadBehind);
  auto const columns = nearest_values(in_width, false), lines = nearest_values(in_height, true);
  auto const pick = [](const std::vector<uint8_t> &values, double at) {
    auto const last = static_cast<double>(values.size() - 1);
    return values[static_cast<size_t>(std::clamp((at + 1) / 2 * last + 0.5, 0.0, last))];
  };
  double const radius = std::min(width, height) * 0.48;
  uint8_t *pair = grid.bytes.data();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x, pair += 2) {
      double const dx = x + 0.5 - width / 2.0, dy = y + 0.5 - height / 2.0;
      double const distance = std::sqrt(dx * dx + dy * dy) / radius;
      double const bend = distance < 1 ? 0.35 + 0.65 * distance * distance : 1;
      pair[0] = pick(columns, dx * bend / (width / 2.0));
      pair[1] = pick(lines, dy * bend / (height / 2.0));
    }
  }
  return grid;
}

/// Takes an interleaved picture through a grid, to planes.
Tensor sample(Demo &demo, const std::string &name, const Tensor &in, const Tensor &grid) {
  Tensor out({grid.shape.height, grid.shape.batch, in.shape.width, 1}, in.format);
  // Eight bytes are read at each corner, in the line and column behind the last ones too.
  Tensor padded = in;
  padded.bytes.resize(in.bytes.size() + in.channel_bytes() + in.line_bytes() + 8);

  _NN_GRIDSAMPLE_PARM block = {};
  block.in_addr = padded.address();
  block.out_addr = out.address();
  block.grid_addr = grid.address();
  auto const fill = [](uint16_t(&shape)[4], std::array<uint16_t, 4> extents) {
    std::copy(extents.begin(), extents.end(), shape);
  };
  fill(block.in_shape, {in.shape.width, 1, in.shape.height, in.shape.channel});
  fill(block.out_shape, {out.shape.width, out.shape.height, out.shape.channel, 1});
  fill(block.grid_shape, {grid.shape.width, grid.shape.height, 1, grid.shape.batch});
  block.in_fmt = in.format;
  block.out_fmt = out.format;
  block.grid_fmt = grid.format;
  block.row_group = 1;
  demo.run("grid sample: " + name, tarvu_gridsample_process, block, in, out);
  return out;
}

/// A blend in 16 bits holds differences of 7-bit pixels, and an extent less one has to fit in a byte.
Tensor small_picture(Demo &demo, const Tensor &planes) {
  constexpr int kMost = 256;
  int const side = (std::max(planes.shape.width, planes.shape.height) + kMost - 1) / kMost;
  Tensor const small = pool_tiles(demo, "for the lens", planes, Pooling::kAverage, side, side, 1);
  return permute(demo, "for the lens", small, kPlanesToInterleaved, small.format);
}

}  // namespace

Tensor gather(Demo &demo, const std::string &name, const Tensor &in, Axis axis,
              const std::vector<uint16_t> &positions) {
  Tensor indices({static_cast<uint16_t>(positions.size()), 1, 1, 1}, unsigned_format(0, 16));
  std::copy_n(reinterpret_cast<const uint8_t *>(positions.data()), indices.bytes.size(), indices.bytes.begin());
  Shape shape = in.shape;
  (axis == Axis::kChannel ? shape.channel : shape.height) = indices.shape.width;
  Tensor out(shape, in.format);

  _NN_GATHER_PARM block = {};
  block.in_addr = in.address();
  block.out_addr = out.address();
  block.ind_addr = indices.address();
  block.in_width = in.shape.width;
  block.in_height = in.shape.height;
  block.in_channel = in.shape.channel;
  block.ind_width = indices.shape.width;
  block.out_width = out.shape.width;
  block.out_height = out.shape.height;
  block.out_channel = out.shape.channel;
  block.in_line_ofs = in.line_bytes();
  block.in_channel_ofs = in.channel_bytes();
  block.out_line_ofs = out.line_bytes();
  block.out_channel_ofs = out.channel_bytes();
  block.in_fmt = in.format;
  block.ind_fmt = indices.format;
  block.out_fmt = out.format;
  block.axis = static_cast<uint8_t>(axis);
  demo.run("gather: " + name, tarvu_gather_process, block, in, out);
  return out;
}

void resampling_stages(Demo &demo, const Tensor &planes) {
  Tensor const small = small_picture(demo, planes);
  // Columns come in whole blocks of eight, or in one block of fewer.
  auto const width =
      static_cast<uint16_t>(small.shape.height > 8 ? (small.shape.height + 7) / 8 * 8 : small.shape.height);
  Tensor const grid = lens(width, small.shape.channel, small.shape.height, small.shape.channel);
  Tensor const bent = sample(demo, "lens", small, grid);
  demo.show("lens", permute(demo, "show lens, in 8 bits", bent, kPlanesToInterleaved, kByte));

  // The middle third of the lines: every eighth of them, then every eighth from the second on, and so forth.
  std::vector<uint16_t> order;
  uint16_t const first = planes.shape.height / 3, last = static_cast<uint16_t>(2 * planes.shape.height / 3);
  for (uint16_t y = 0; y < first; ++y) order.push_back(y);
  for (int start = 0; start < 8; ++start) {
    for (int y = first + start; y < last; y += 8) order.push_back(static_cast<uint16_t>(y));
  }
  for (uint16_t y = last; y < planes.shape.height; ++y) order.push_back(y);
  show_planes(demo, "lines in another order", gather(demo, "lines in another order", planes, Axis::kHeight, order));
}

}  // namespace demo
