#include <algorithm>

#include "bench/bench.h"
#include "tests/reference/tarvu_priorbox_reference.h"

namespace bench {
namespace {

/// Six boxes a cell: a square, a larger square and the ratios 2 and 3 with their reciprocals.
_NN_PRIORBOX_PARM prior_boxes(uint32_t side, bool clip) {
  _NN_PRIORBOX_PARM parm{};
  parm.in_width = parm.in_height = side;
  parm.img_width = parm.img_height = 300;
  parm.variance_ofs = side * side * 6 * 16;
  parm.min_sizes[0] = 30.0f;
  parm.max_sizes[0] = 60.0f;
  parm.min_size_num = parm.max_size_num = 1;
  parm.aspect_ratios[0] = 2.0f;
  parm.aspect_ratios[1] = 3.0f;
  parm.aspect_ratios_num = 2;
  parm.flip = 1;
  parm.clip = clip ? 1 : 0;
  const float variances[4] = {0.1f, 0.1f, 0.2f, 0.2f};
  std::copy(variances, variances + 4, parm.variances);
  parm.variance_num = 4;
  parm.offset = 0.5f;
  return parm;
}

Workload prior_box(const char *name) {
  constexpr uint32_t kSide = 38;
  constexpr size_t kBoxes = size_t{kSide} * kSide * 6;
  const auto prepare = [] {
    const std::shared_ptr<float[]> out = make_buffer<float>(kBoxes * 8);
    _NN_PRIORBOX_PARM parm = prior_boxes(kSide, true);
    parm.out_addr = address_of(out);
    return Calls{[out, parm] { expect_ok(tarvu_priorbox_process(&parm)); },
                 [out, parm] { expect_ok(reference::tarvu_priorbox_process(&parm)); }};
  };
  return {name, "default", "box", kBoxes, kBoxes * 32, prepare};
}

}  // namespace

void add_priorbox_workloads(std::vector<Workload> &suite) { suite.push_back(prior_box("priorbox_38x38x6")); }

}  // namespace bench
