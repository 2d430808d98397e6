#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

enum class Layout { kPlanar, kInterleaved };

Case resample(Layout layout, const Shape &shape) {
  const bool is_planar = layout == Layout::kPlanar;
  Case what;
  what.kind = std::string(is_planar ? "planar, " : "interleaved, ") + std::to_string(shape.channels) +
              (shape.channels == 1 ? " channel" : " channels");
  what.shape = name_of(shape);
  what.extent = shape.width;
  what.unit = "output";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) {
    const auto w = u16(shape.width);
    const auto h = u16(shape.height);
    const auto c = u16(shape.channels);
    const auto n = u16(shape.batch);
    _NN_GRIDSAMPLE_PARM parm{};
    parm.in_addr = address(random_bytes(arena, 2 * shape.elements() + 32 * size_t{shape.width} * shape.channels + 64));
    parm.grid_addr = address(random_bytes(arena, 2 * shape.plane() * shape.batch + 64));
    parm.out_addr = address(zero_bytes(arena, shape.batch * (shape.channels + 8) * shape.plane() + 64));
    const uint16_t in_planes[4] = {w, h, c, n};
    const uint16_t in_pixels[4] = {c, n, w, h};
    const uint16_t grid_planes[4] = {2, w, h, n};
    const uint16_t grid_rows[4] = {2, w, n, h};
    std::copy_n(is_planar ? in_planes : in_pixels, 4, parm.in_shape);
    std::copy_n(in_planes, 4, parm.out_shape);
    std::copy_n(is_planar ? grid_planes : grid_rows, 4, parm.grid_shape);
    parm.in_fmt = parm.out_fmt = format(kS8, 4);
    parm.grid_fmt = format(kU8, 8);
    parm.row_group = 1;
    return call_of(tarvu_gridsample_process, parm);
  };
  return what;
}

}  // namespace

void add_gridsample_cases(Cases &cases) {
  for (const uint32_t channels : {1u, 2u, 3u, 4u, 8u, 16u, 21u}) {
    for (const Layout layout : {Layout::kPlanar, Layout::kInterleaved}) {
      const Case wide = resample(layout, {1, channels, 16, 56});
      add(cases, wide);
      for (const uint32_t width : {1u, 2u, 3u, 4u, 7u, 10u, 14u, 20u, 21u, 24u, 28u, 49u, 100u, 112u, 224u}) {
        Case what = resample(layout, {1, channels, 14, width});
        what.neighbour = wide.name();
        if (width < 8) {
          what.extra = (layout == Layout::kPlanar ? 1.0 : 0.5) * static_cast<double>(14 * 8 * channels);
          what.why = "and half a vector for each line";
        }
        add(cases, std::move(what));
      }
      const auto make = [&](const Shape &shape) {
        Case what = resample(layout, shape);
        what.neighbour = wide.name();
        if (shape.channels != channels) what.why = "of half the channels";
        return what;
      };
      add_doublings(cases, make, {2, channels, 14, 24});
    }
  }
}

}  // namespace sweep
