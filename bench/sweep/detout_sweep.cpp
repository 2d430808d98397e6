#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

/// Priors all over the image; one score of an object in `rarity` is above the threshold.
Case detout(uint32_t priors, uint32_t classes, uint32_t rarity, bool floats) {
  Case what;
  what.kind = std::to_string(classes) + " classes, one candidate in " + std::to_string(rarity) +
              (floats ? ", float locations" : "");
  what.shape = std::to_string(priors) + " priors";
  what.extent = priors;
  what.unit = "score";
  what.units = static_cast<double>(priors) * classes;
  what.figure = 4.5;
  // The lists of records are set to nothing first; a candidate is decoded, sorted, held against those kept, and
  // written.
  const double candidates = static_cast<double>(priors) * (classes - 1) / rarity;
  what.fixed = 400 + 150 * classes;
  what.extra = 300 * candidates;
  what.why = "the workload's scan; 300 instructions for each candidate and 150 for each class";
  what.make = [=](Arena &arena) {
    float *scores = random_floats(arena, size_t{priors} * classes, 0.25f);
    const uint8_t *chosen = random_indices(arena, size_t{priors} * classes, 16, rarity);
    for (size_t i = 0; i < size_t{priors} * classes; ++i) {
      if (chosen[2 * i] == 0 && chosen[2 * i + 1] == 0) scores[i] = 0.5f + scores[i];
    }
    float *boxes = random_floats(arena, size_t{8} * priors, 0.5f);
    for (size_t p = 0; p < priors; ++p) {
      float *box = boxes + 4 * p;
      box[0] += 0.4f;
      box[1] += 0.4f;
      box[2] = box[0] + 0.2f;
      box[3] = box[1] + 0.2f;
      std::fill(boxes + 4 * (priors + p), boxes + 4 * (priors + p) + 4, 0.1f);
    }
    _NN_DETOUT_PARM parm{};
    parm.loc_addr = address(random_elements(arena, size_t{4} * priors, floats ? 32 : 8));
    parm.conf_addr = address(scores);
    parm.prior_addr = address(boxes);
    parm.out_addr = address(zero_bytes(arena, size_t{classes} * 20 * 5 * 4));
    parm.work_buffer = address(zero_bytes(arena, size_t{128 + 4 * classes} * priors + size_t{24} * (priors + 3)));
    parm.batch = 1;
    parm.loc_fmt = format(floats ? kF32 : kS8, floats ? 0 : 5);
    parm.loc_scale = scale(3, 2);
    parm.num_classes = static_cast<int32_t>(classes);
    parm.num_priors = static_cast<int32_t>(priors);
    parm.share_location = 1;
    parm.keep_top_k = 20;
    parm.confidence_threshold = 0.3f;
    parm.nms_threshold = 0.45f;
    return call_of(tarvu_detout_process, parm);
  };
  return what;
}

}  // namespace

void add_detout_cases(Cases &cases) {
  for (const uint32_t classes : {2u, 3u, 4u, 7u, 10u, 14u, 21u, 100u}) {
    for (const uint32_t priors : {10u, 49u, 100u, 600u}) {
      for (const uint32_t rarity : {100u, 10u}) {
        if (size_t{classes} * priors > 21000) continue;
        add(cases, detout(priors, classes, rarity, false));
      }
    }
    add(cases, detout(100, classes, 100, true));
  }
  add_doublings(cases, [](const Shape &shape) { return detout(shape.height, shape.width, 100, false); },
                {1, 1, 300, 21});
}

}  // namespace sweep
