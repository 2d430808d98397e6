/// \file boxes.h
/// What the detection operators need of lanes: boxes and pairs taken apart, floats over a threshold found, coordinates
/// in double precision.
#ifndef TARVU_SIMD_BOXES_H
#define TARVU_SIMD_BOXES_H

#include <algorithm>
#include <bit>

#include "simd/double_lanes.h"
#include "simd/rounding.h"

namespace tarvu {

/// The lower, or the upper, two lanes twice.
inline f32x4 lower_twice(f32x4 a) { return __builtin_shufflevector(a, a, 0, 1, 0, 1); }
inline f32x4 upper_twice(f32x4 a) { return __builtin_shufflevector(a, a, 2, 3, 2, 3); }

/// a0 b0 a1 b1
inline f32x4 zip_low(f32x4 a, f32x4 b) { return __builtin_shufflevector(a, b, 0, 4, 1, 5); }

/// Held to 0.0..1.0. -0.0 becomes 0.0, NaN stays.
#if TARVU_NEON
inline f32x4 clamp_to_unit(f32x4 x) { return vminq_f32(vmaxq_f32(x, f32x4{}), vdupq_n_f32(1.0f)); }
#else
template <FloatLanes F>
inline F clamp_to_unit(F x) {
  const F low = x <= 0.0f ? F{} : x;
  return low > 1.0f ? fill<F>(1.0f) : low;
}
#endif

/// x where it is greater than 0.0, infinity included; 0.0 for all else: -0.0 and every NaN, signalling or quiet. In integers, since
/// a compiler may make a maximum of a comparison of floats, and Arm's gives NaN for a signalling NaN.
inline float positive_number(float x) {
  const auto bits = std::bit_cast<int32_t>(x);  // from 0.0 to infinity in the order of the floats
  return std::bit_cast<float>(bits < 0 || bits > 0x7F800000 ? 0 : bits);
}

/// The same held to 1.0.
inline float number_in_unit(float x) {
  return std::bit_cast<float>(std::min(std::bit_cast<int32_t>(positive_number(x)), 0x3F800000));
}

/// The lanes of `a` where `mask` is set, of `b` elsewhere, bit by bit.
inline f32x4 select(s32x4 mask, f32x4 a, f32x4 b) {
#if TARVU_NEON
  return vbslq_f32(uint32x4_t(mask), a, b);
#else
  return mask ? a : b;
#endif
}

/// Whether any lane of a comparison's result is set.
inline bool any(s32x4 mask) {
#if TARVU_NEON
  return vmaxvq_u32(uint32x4_t(mask)) != 0;
#elif TARVU_AVX2
  return _mm_movemask_ps(__m128(mask)) != 0;
#else
  return (mask[0] | mask[1] | mask[2] | mask[3]) != 0;
#endif
}
#if TARVU_AVX2
inline bool any(s32xn mask) { return _mm256_movemask_ps(__m256(mask)) != 0; }
#endif

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

/// Calls action(i) for each i with values[i] >= threshold, in ascending order; NaN on either side never is. Fast where
/// few are.
template <class Action>
inline void for_each_at_least(const float *values, size_t count, float threshold, Action action) {
  size_t i = 0;
#if TARVU_NEON || TARVU_AVX2
  constexpr size_t kBlock = 16;
  for (; i + kBlock <= count; i += kBlock) {
#if TARVU_NEON
    // Four bits for each value, of which the top one is kept.
    constexpr int kBitsEach = 4;
    uint16x8_t halves[2];
    for (size_t k = 0; k < 2; ++k) {
      const u32x4 first = u32x4(load<f32x4>(values + i + 8 * k) >= threshold);
      const u32x4 second = u32x4(load<f32x4>(values + i + 8 * k + 4) >= threshold);
      halves[k] = vuzp1q_u16(uint16x8_t(first), uint16x8_t(second));
    }
    const uint8x16_t bytes = vuzp1q_u8(uint8x16_t(halves[0]), uint8x16_t(halves[1]));
    uint64_t found = vget_lane_u64(uint64x1_t(vshrn_n_u16(uint16x8_t(bytes), 4)), 0);
    if (found != 0) [[unlikely]]
      found &= 0x8888888888888888u;
#else
    constexpr int kBitsEach = 1;
    const auto bits = [&](size_t k) {
      return static_cast<uint32_t>(_mm256_movemask_ps(__m256(load<f32xn>(values + i + k) >= threshold)));
    };
    uint32_t found = bits(0) | bits(8) << 8;
#endif
    for (; found != 0; found &= found - 1) action(i + static_cast<size_t>(std::countr_zero(found) / kBitsEach));
  }
#endif
  for (; i < count; ++i) {
    if (values[i] >= threshold) action(i);
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_BOXES_H
