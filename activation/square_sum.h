/// \file square_sum.h
/// The sum of squares of a run of floats, in the order that the whole-item norm and the float form of layer normalisation share.
#ifndef TARVU_ACTIVATION_SQUARE_SUM_H
#define TARVU_ACTIVATION_SQUARE_SUM_H

#include "simd/blocks.h"

namespace tarvu {

/// Elements of a run that are summed in blocks; the rest follows one at a time.
inline constexpr uint32_t kSumBlock = 16;

/// The sum of step(x)^2 in float, nothing fused. Blocks of 16 go to four lanes, a block adding ((a + b) + c) + d of the squares
/// of its elements 4k, 4k + 1, 4k + 2 and 4k + 3 to lane k; then ((lane 0 + lane 1) + lane 2) + lane 3; then the last
/// `count & 15` squares in index order. `step` works on one float and on f32x4.
/// The lanes show in the result: with -2^24 to come, 4096 in element 0 and ones in 5 and 6 leave 2, one at a time 0.
template <class Step>
inline float sum_of_squares(const float *x, uint32_t count, Step step) {
  const uint32_t in_blocks = count / kSumBlock * kSumBlock;
  f32x4 lanes{};
  for (uint32_t i = 0; i < in_blocks; i += kSumBlock) {
    Several<f32x4, 4> fours = load_dealt<f32x4, 4>(x + i);
    for (f32x4 &four : fours.of) {
      const f32x4 value = step(four);
      four = value * value;
    }
    lanes = lanes + (((fours.of[0] + fours.of[1]) + fours.of[2]) + fours.of[3]);
  }
  float sum = sum_in_order(lanes);
  for (uint32_t i = in_blocks; i < count; ++i) {
    const float value = step(load<float>(x + i));
    const float square = value * value;
    sum = sum + square;
  }
  return sum;
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_SQUARE_SUM_H
