/// \file boxes.h
/// What the detection operators need of lanes: boxes and pairs taken apart, floats over a threshold found, coordinates
/// in double precision.
#ifndef TARVU_SIMD_BOXES_H
#define TARVU_SIMD_BOXES_H

#include <algorithm>
#include <bit>

#include "simd/doubles.h"
#include "simd/runs.h"

namespace tarvu {

/// Four boxes of four floats, lane k the box k.
struct BoxLanes {
  f32x4 xmin, ymin, xmax, ymax;
};
inline BoxLanes load_boxes(const float *boxes) {
#if TARVU_NEON
  const float32x4x4_t lanes = vld4q_f32(boxes);
  return {lanes.val[0], lanes.val[1], lanes.val[2], lanes.val[3]};
#else
  const auto first = load<f32x4>(boxes);
  const auto second = load<f32x4>(boxes + 4);
  const auto third = load<f32x4>(boxes + 8);
  const auto fourth = load<f32x4>(boxes + 12);
  const f32x4 x_front = __builtin_shufflevector(first, second, 0, 4, 2, 6);
  const f32x4 x_back = __builtin_shufflevector(third, fourth, 0, 4, 2, 6);
  const f32x4 y_front = __builtin_shufflevector(first, second, 1, 5, 3, 7);
  const f32x4 y_back = __builtin_shufflevector(third, fourth, 1, 5, 3, 7);
  return {__builtin_shufflevector(x_front, x_back, 0, 1, 4, 5), __builtin_shufflevector(y_front, y_back, 0, 1, 4, 5),
          __builtin_shufflevector(x_front, x_back, 2, 3, 6, 7), __builtin_shufflevector(y_front, y_back, 2, 3, 6, 7)};
#endif
}

/// Four pairs of floats, lane k the pair k.
struct PairLanes {
  f32x4 first, second;
};
inline PairLanes load_pairs(const float *pairs) {
#if TARVU_NEON
  const float32x4x2_t lanes = vld2q_f32(pairs);
  return {lanes.val[0], lanes.val[1]};
#else
  const auto front = load<f32x4>(pairs);
  const auto back = load<f32x4>(pairs + 4);
  return {__builtin_shufflevector(front, back, 0, 2, 4, 6), __builtin_shufflevector(front, back, 1, 3, 5, 7)};
#endif
}
inline void store_pairs(float *pairs, const PairLanes &lanes) {
#if TARVU_NEON
  const float32x4x2_t both = {{lanes.first, lanes.second}};
  vst2q_f32(pairs, both);
#else
  store(pairs, __builtin_shufflevector(lanes.first, lanes.second, 0, 4, 1, 5));
  store(pairs + 4, __builtin_shufflevector(lanes.first, lanes.second, 2, 6, 3, 7));
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_BOXES_H
