/// \file rearranging.cpp
/// Permute and Reverse on a picture, with the re-formatting that both do.

#include <stdexcept>

#include "demo.h"

namespace demo {

namespace {

constexpr Order kSwapLinesAndColumns = {0, 2, 1, 3};

Tensor reverse(Demo &demo, const std::string &name, const Tensor &in, int8_t axis, _NN_FMT out_format) {
  Tensor out(in.shape, out_format);
  auto block = block_of<_NN_REVERSE_PARM>(in, out);
  block.axis = axis;
  demo.run("reverse: " + name, tarvu_reverse_process, block, in, out);
  return out;
}

}  // namespace

Tensor permute(Demo &demo, const std::string &name, const Tensor &in, Order order, _NN_FMT out_format) {
  uint16_t const extents[4] = {in.shape.batch, in.shape.channel, in.shape.height, in.shape.width};
  auto const extent = [&](size_t axis) { return extents[order[axis]]; };
  Tensor out({extent(3), extent(2), extent(1), extent(0)}, out_format);
  auto block = block_of<_NN_PERMUTE_PARM>(in, out);
  for (size_t axis = 0; axis < order.size(); ++axis) block.order[axis] = order[axis];
  demo.run("permute: " + name, tarvu_permute_process, block, in, out);
  return out;
}

Tensor show_planes(Demo &demo, const std::string &caption, const Tensor &planes, const std::string &note) {
  Tensor interleaved = permute(demo, "show " + caption, planes, kPlanesToInterleaved, planes.format);
  demo.show(caption, interleaved, note);
  return interleaved;
}

void expect_same(const Tensor &a, const Tensor &b, const std::string &what) {
  if (a.bytes != b.bytes) throw std::runtime_error(what);
}

Tensor rearranging_stages(Demo &demo, const Tensor &picture) {
  Tensor planes = permute(demo, "to planes", picture, kInterleavedToPlanes, kByte);
  // One plane above the other is a grey picture of three times the height.
  Tensor stacked = planes;
  stacked.shape = {1, planes.shape.width, static_cast<uint16_t>(planes.shape.height * planes.shape.channel), 1};
  demo.show("planes", stacked, "red, green and blue, one above the other");
  expect_same(show_planes(demo, "picture", planes), picture, "planes and back do not give the picture again");

  Tensor const mirrored = reverse(demo, "mirror along width", planes, 3, kByte);
  show_planes(demo, "mirrored", mirrored);
  expect_same(reverse(demo, "mirror again", mirrored, 3, kByte), planes, "mirrored twice is not the picture again");

  show_planes(demo, "flipped", reverse(demo, "flip along height", planes, 2, kByte));
  show_planes(demo, "blue green red", reverse(demo, "swap colours along channel", planes, 1, kByte));
  demo.show("transposed", permute(demo, "swap lines and columns", picture, kSwapLinesAndColumns, kByte));

  // One fraction bit more in as many bits doubles every value; what is brighter than half saturates.
  Tensor const doubled = reverse(demo, "double, flip along height", planes, 2, unsigned_format(1, 8));
  show_planes(demo, "doubled and flipped", doubled, "what was brighter than half is saturated");

  // Wider and back loses nothing; three bits in between leave eight levels a colour.
  Tensor const wide = permute(demo, "8 to 16 bits", planes, kKeep, unsigned_format(8, 16));
  Tensor const narrow = permute(demo, "16 to 8 bits", wide, kKeep, kByte);
  expect_same(narrow, planes, "16 bits and back do not give the picture again");
  Tensor const coarse = permute(demo, "16 bits to 3 bits in 8", wide, kKeep, unsigned_format(-5, 8));
  show_planes(demo, "eight levels", permute(demo, "3 bits in 8 to 8 bits", coarse, kKeep, kByte),
              "three bits a colour are left");
  return planes;
}

}  // namespace demo
