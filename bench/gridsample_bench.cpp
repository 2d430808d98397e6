#include <algorithm>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

/// An image of `pixels` bytes a position, whose channels are apart by one byte. The output has a plane for each.
struct Image {
  uint32_t channels;
  uint32_t width;
  uint32_t height;
};

constexpr int kGridFracBits = 8;

/// The block form of every point, written for each element anew; formats of input and output are equal.
void plain_grid_sample(const int8_t *in, const uint8_t *grid, int8_t *__restrict out, const Image &image) {
  const size_t plane = size_t{image.width} * image.height;
  const size_t row = size_t{image.width} * image.channels;
  for (size_t i = 0; i < plane; ++i) {
    const uint32_t px = grid[2 * i] * ((image.width - 1) & 255);
    const uint32_t py = grid[2 * i + 1] * ((image.height - 1) & 255);
    const auto fx = static_cast<int>(px & 255);
    const auto fy = static_cast<int>(py & 255);
    const int8_t *top = in + (py >> kGridFracBits) * row + (px >> kGridFracBits) * image.channels;
    const int8_t *bottom = top + row;
    const auto across = [&](const int8_t *left, size_t c) {
      const int a = left[c];
      const int b = left[c + image.channels];
      return static_cast<int16_t>(a + (static_cast<int16_t>((b - a) * fx) >> kGridFracBits));
    };
    for (size_t c = 0; c < image.channels; ++c) {
      const int upper = across(top, c);
      const int lower = across(bottom, c);
      out[c * plane + i] = static_cast<int8_t>(lower + (static_cast<int16_t>((upper - lower) * fy) >> kGridFracBits));
    }
  }
}

/// The image turned a little, each point up to two grid units away from where it would be.
std::shared_ptr<uint8_t[]> bent_grid(const Image &image, uint64_t seed) {
  const std::shared_ptr<uint8_t[]> grid = make_buffer<uint8_t>(size_t{2} * image.width * image.height);
  support::Random random(seed);
  const auto in_range = [](int value) { return static_cast<uint8_t>(std::clamp(value, 0, 255)); };
  for (uint32_t r = 0; r < image.height; ++r) {
    for (uint32_t i = 0; i < image.width; ++i) {
      const auto x = static_cast<int>(256 * i / image.width);
      const auto y = static_cast<int>(256 * r / image.height);
      uint8_t *pair = &grid[size_t{2} * (r * image.width + i)];
      pair[0] = in_range(x + (y - 128) / 8 + random.between(-2, 2));
      pair[1] = in_range(y - (x - 128) / 8 + random.between(-2, 2));
    }
  }
  return grid;
}

Workload grid_sample(const char *name, const Image &image, bool is_planar) {
  const size_t plane = size_t{image.width} * image.height;
  const size_t outputs = plane * image.channels;
  const auto prepare = [=] {
    const size_t row = size_t{image.width} * image.channels;
    const std::shared_ptr<int8_t[]> in = random_buffer<int8_t>(outputs + row + 16, 44);
    const std::shared_ptr<uint8_t[]> grid = bent_grid(image, 45);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(outputs);
    const auto w = static_cast<uint16_t>(image.width);
    const auto h = static_cast<uint16_t>(image.height);
    const auto c = static_cast<uint16_t>(image.channels);
    _NN_GRIDSAMPLE_PARM parm{};
    parm.in_addr = address_of(in);
    parm.grid_addr = address_of(grid);
    parm.out_addr = address_of(out);
    const uint16_t in_planes[4] = {w, h, c, 1};
    const uint16_t in_pixels[4] = {c, 1, w, h};
    const uint16_t out_planes[4] = {w, h, c, 1};
    const uint16_t grid_planes[4] = {2, w, h, 1};
    const uint16_t grid_rows[4] = {2, w, 1, h};
    std::copy_n(is_planar ? in_planes : in_pixels, 4, parm.in_shape);
    std::copy_n(out_planes, 4, parm.out_shape);
    std::copy_n(is_planar ? grid_planes : grid_rows, 4, parm.grid_shape);
    parm.in_fmt = parm.out_fmt = support::format(8, 4, 1);
    parm.grid_fmt = support::format(8, kGridFracBits, 0);
    parm.row_group = 1;
    const auto plain = [in, grid, out, image] { plain_grid_sample(in.get(), grid.get(), out.get(), image); };
    return Calls{[in, grid, out, parm] { expect_ok(tarvu_gridsample_process(&parm)); }, plain};
  };
  return {name, "default", "output", outputs, outputs + 2 * plane, prepare};
}

}  // namespace

void add_gridsample_workloads(std::vector<Workload> &suite) {
  suite.push_back(grid_sample("gridsample_8b_c1_640x480", {1, 640, 480}, true));
  suite.push_back(grid_sample("gridsample_8b_c8_160x160", {8, 160, 160}, false));
}

}  // namespace bench
