#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

/// `ratios` aspect ratios with their reciprocals, a square and, if `second`, a larger square.
Case prior_boxes(uint32_t height, uint32_t width, uint32_t ratios, bool second, bool clip) {
  const uint32_t boxes = 1 + (second ? 1 : 0) + 2 * ratios;
  Case what;
  what.kind = std::to_string(boxes) + " boxes a cell" + (clip ? ", clipped" : "");
  what.shape = std::to_string(height) + "x" + std::to_string(width);
  what.extent = width;
  what.unit = "box";
  what.units = static_cast<double>(height) * width * boxes;
  what.make = [=](Arena &arena) {
    _NN_PRIORBOX_PARM parm{};
    parm.out_addr = address(zero_bytes(arena, size_t{height} * width * boxes * 32));
    parm.in_width = width;
    parm.in_height = height;
    parm.img_width = parm.img_height = 300;
    parm.variance_ofs = height * width * boxes * 16;
    parm.min_sizes[0] = 30.0f;
    parm.max_sizes[0] = 60.0f;
    parm.min_size_num = 1;
    parm.max_size_num = second ? 1 : 0;
    for (uint32_t i = 0; i < 4; ++i) parm.aspect_ratios[i] = static_cast<float>(i + 2);
    if (ratios == 0) parm.aspect_ratios[0] = 1.0f;
    parm.aspect_ratios_num = std::max(ratios, 1u);
    parm.flip = 1;
    parm.clip = clip ? 1 : 0;
    const float variances[4] = {0.1f, 0.1f, 0.2f, 0.2f};
    std::copy(variances, variances + 4, parm.variances);
    parm.variance_num = 4;
    parm.offset = 0.5f;
    return call_of(tarvu_priorbox_process, parm);
  };
  return what;
}

}  // namespace

void add_priorbox_cases(Cases &cases) {
  const Case wide = prior_boxes(38, 38, 2, true, true);
  add(cases, wide);
  for (const uint32_t ratios : {0u, 1u, 2u, 3u, 4u}) {
    for (const bool second : {false, true}) {
      for (const bool clip : {false, true}) {
        for (const uint32_t side : {1u, 3u, 10u, 19u}) {
          Case what = prior_boxes(side, side, ratios, second, clip);
          what.neighbour = wide.name();
          // The centre of a cell is shared by its boxes.
          what.extra = 10.0 * side * side;
          what.why = "and 10 instructions for each cell's centre";
          add(cases, std::move(what));
        }
      }
    }
  }
  add_doublings(cases,
                [&](const Shape &shape) {
                  Case what = prior_boxes(shape.height, shape.width, 2, true, true);
                  what.neighbour = wide.name();
                  return what;
                },
                {1, 1, 10, 10});
}

}  // namespace sweep
