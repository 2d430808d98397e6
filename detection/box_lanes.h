/// \file box_lanes.h
/// Four boxes, or pairs of floats, taken apart: lane k is the box or pair k.
#ifndef TARVU_DETECTION_BOX_LANES_H
#define TARVU_DETECTION_BOX_LANES_H

#include "simd/arrange.h"

namespace tarvu {

struct BoxLanes {
  f32x4 xmin, ymin, xmax, ymax;
};
inline BoxLanes load_boxes(const float *boxes) {
  const Several<f32x4, 4> lanes = load_dealt<f32x4, 4>(boxes);
  return {lanes.of[0], lanes.of[1], lanes.of[2], lanes.of[3]};
}

struct PairLanes {
  f32x4 first, second;
};
inline PairLanes load_pairs(const float *pairs) {
  const Several<f32x4, 2> lanes = load_dealt<f32x4, 2>(pairs);
  return {lanes.of[0], lanes.of[1]};
}
inline void store_pairs(float *pairs, const PairLanes &lanes) {
  store_in_turn(pairs, Several<f32x4, 2>{{lanes.first, lanes.second}});
}

}  // namespace tarvu

#endif  // TARVU_DETECTION_BOX_LANES_H
