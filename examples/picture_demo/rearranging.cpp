/// \file rearranging.cpp
/// Permute and Reverse on a picture, with the re-formatting that both do.

#include <array>
#include <stdexcept>

#include "demo.h"
#include "picture.h"

namespace demo {

namespace {

/// order[i] is the input axis that becomes output axis i: 0 batch, 1 channel, 2 height, 3 width.
using Order = std::array<int8_t, 4>;

constexpr Order kInterleavedToPlanes = {0, 3, 1, 2};
constexpr Order kPlanesToInterleaved = {0, 2, 3, 1};
constexpr Order kSwapLinesAndColumns = {0, 2, 1, 3};
constexpr Order kKeep = {0, 1, 2, 3};

/// The fields that the blocks of both operators share.
template <class Block>
Block block_of(const Tensor &in, const Tensor &out) {
  Block block = {};
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
  return block;
}

Tensor permute(Demo &demo, const std::string &name, const Tensor &in, Order order, _NN_FMT out_format) {
  uint16_t const extents[4] = {in.shape.batch, in.shape.channel, in.shape.height, in.shape.width};
  auto const extent = [&](size_t axis) { return extents[order[axis]]; };
  Tensor out({extent(3), extent(2), extent(1), extent(0)}, out_format);
  auto block = block_of<_NN_PERMUTE_PARM>(in, out);
  for (size_t axis = 0; axis < order.size(); ++axis) block.order[axis] = order[axis];
  demo.run("permute: " + name, tarvu_permute_process, block, in, out);
  return out;
}

Tensor reverse(Demo &demo, const std::string &name, const Tensor &in, int8_t axis, _NN_FMT out_format) {
  Tensor out(in.shape, out_format);
  auto block = block_of<_NN_REVERSE_PARM>(in, out);
  block.axis = axis;
  demo.run("reverse: " + name, tarvu_reverse_process, block, in, out);
  return out;
}

}  // namespace

Tensor show_planes(Demo &demo, const std::string &name, const Tensor &planes) {
  Tensor interleaved = permute(demo, name + " to interleaved", planes, kPlanesToInterleaved, planes.format);
  save_picture(demo.path(name + ".png"), interleaved);
  return interleaved;
}

void expect_same(const Tensor &a, const Tensor &b, const std::string &what) {
  if (a.bytes != b.bytes) throw std::runtime_error(what);
}

Tensor rearranging_stages(Demo &demo, const Tensor &picture) {
  _NN_FMT const byte = unsigned_format(0, 8);

  Tensor const planes = permute(demo, "to planes", picture, kInterleavedToPlanes, byte);
  save_planes(demo.path("planes.png"), planes);
  expect_same(show_planes(demo, "picture", planes), picture, "planes and back do not give the picture again");

  Tensor const mirrored = reverse(demo, "mirror along width", planes, 3, byte);
  show_planes(demo, "mirrored", mirrored);
  expect_same(reverse(demo, "mirror again", mirrored, 3, byte), planes, "mirrored twice is not the picture again");

  show_planes(demo, "flipped", reverse(demo, "flip along height", planes, 2, byte));
  show_planes(demo, "blue_green_red", reverse(demo, "swap colours along channel", planes, 1, byte));
  save_picture(demo.path("transposed.png"),
               permute(demo, "swap lines and columns", picture, kSwapLinesAndColumns, byte));

  // One fraction bit more in as many bits doubles every value; what is brighter than half saturates.
  Tensor const doubled = reverse(demo, "double, flip along height", planes, 2, unsigned_format(1, 8));
  show_planes(demo, "doubled_and_flipped", doubled);

  // Wider and back loses nothing; three bits in between leave eight levels a colour.
  Tensor const wide = permute(demo, "8 to 16 bits", planes, kKeep, unsigned_format(8, 16));
  Tensor const narrow = permute(demo, "16 to 8 bits", wide, kKeep, byte);
  expect_same(narrow, planes, "16 bits and back do not give the picture again");
  Tensor const coarse = permute(demo, "16 bits to 3 bits in 8", wide, kKeep, unsigned_format(-5, 8));
  show_planes(demo, "eight_levels", permute(demo, "3 bits in 8 to 8 bits", coarse, kKeep, byte));
  return planes;
}

}  // namespace demo
