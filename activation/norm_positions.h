/// \file norm_positions.h
/// Norm by position: each of the P offsets within a plane has a norm of its own across the channels.
#ifndef TARVU_ACTIVATION_NORM_POSITIONS_H
#define TARVU_ACTIVATION_NORM_POSITIONS_H

#include <cmath>
#include <cstddef>

#include "simd/float_blocks.h"
#include "simd/rsqrt_estimate.h"

namespace tarvu {

/// One batch item of `channels` planes.
struct NormItem {
  size_t plane;  ///< elements
  uint32_t channels;
  const float *scales;
  bool shared_scale;
  float eps;
  float in_multiplier;   ///< of integer elements
  float out_multiplier;  ///< of integer elements
};

/// Positions of a block have estimated roots, those behind the last block exact ones.
inline constexpr uint32_t kPositionBlock = 16;

/// The factors of positions in a block.
/// Kept apart from the tail: a position of one 3 with eps 0 and scale 1 gives 0.9990234375 here and 1.0 there.
inline f32xn factor_in_block(f32xn sum) { return reciprocal_root_estimate(sum); }

/// The factor of a position behind the last block. `eps` joins last, in float.
inline float factor_in_tail(float sum, float eps) {
  const float radicand = eps + sum;
  return static_cast<float>(1.0 / std::sqrt(static_cast<double>(radicand)));
}

/// `blocks` blocks of positions side by side, from `in` and `out` on. `tile` takes `channels` rows of the positions as floats, so
/// that integers are converted once; a float tensor is read again instead.
template <class In, class Out, int blocks>
void norm_columns(const In *in, Out *out, float *tile, const NormItem &item) {
  constexpr uint32_t kPositions = blocks * kPositionBlock;
  f32xn factors[blocks][kFloatBlockVectors];
  for (auto &block : factors) {
    for (f32xn &sum : block) sum = fill<f32xn>(item.eps);
  }
  float *row = tile;
  for (uint32_t c = 0; c < item.channels; ++c, row += kPositions) {
    for (int b = 0; b < blocks; ++b) {
      f32xn x[kFloatBlockVectors];
      load_as_floats(in + c * item.plane + b * kPositionBlock, item.in_multiplier, x);
      for (uint32_t k = 0; k < kFloatBlockVectors; ++k) {
        const f32xn square = x[k] * x[k];
        factors[b][k] = factors[b][k] + square;
        if constexpr (!std::is_same_v<In, float>) store(row + b * kPositionBlock + k * kLanes<f32xn>, x[k]);
      }
    }
  }
  const float shared = item.shared_scale ? load<float>(item.scales) : 1.0f;
  for (auto &block : factors) {
    for (f32xn &factor : block) factor = fill<f32xn>(shared) * factor_in_block(factor);
  }
  const auto scale_rows = [&](auto scaled_by_channel) {
    for (uint32_t c = 0; c < item.channels; ++c) {
      const f32xn scale = fill<f32xn>(scaled_by_channel ? load<float>(item.scales + c) : 1.0f);
      const float *from = tile + size_t{c} * kPositions;
      if constexpr (std::is_same_v<In, float>) from = in + c * item.plane;
      for (int b = 0; b < blocks; ++b) {
        f32xn y[kFloatBlockVectors];
        load_as_floats(from + b * kPositionBlock, 1.0f, y);
        for (uint32_t k = 0; k < kFloatBlockVectors; ++k) {
          y[k] = y[k] * (scaled_by_channel ? scale * factors[b][k] : factors[b][k]);
        }
        store_converted(y, item.out_multiplier, out + c * item.plane + b * kPositionBlock);
      }
    }
  };
  item.shared_scale ? scale_rows(std::false_type{}) : scale_rows(std::true_type{});
}

/// The `positions` last ones, fewer than a block.
template <class In, class Out>
void norm_tail(const In *in, Out *out, uint32_t positions, const NormItem &item) {
  float factors[kPositionBlock] = {};
  for (uint32_t c = 0; c < item.channels; ++c) {
    for (uint32_t p = 0; p < positions; ++p) {
      const float x = load_as_float(in + c * item.plane + p, item.in_multiplier);
      const float square = x * x;
      factors[p] = factors[p] + square;
    }
  }
  for (uint32_t p = 0; p < positions; ++p) factors[p] = factor_in_tail(factors[p], item.eps);
  for (uint32_t c = 0; c < item.channels; ++c) {
    const float scale = load<float>(item.scales + (item.shared_scale ? 0 : c));
    for (uint32_t p = 0; p < positions; ++p) {
      const float x = load_as_float(in + c * item.plane + p, item.in_multiplier);
      store_converted(x * (factors[p] * scale), item.out_multiplier, out + c * item.plane + p);
    }
  }
}

/// A whole item. `out` may be `in` if their elements have the same size; `tile` lies apart from both.
template <class In, class Out>
void norm_by_position(const In *in, Out *out, float *tile, const NormItem &item) {
  const size_t in_blocks = item.plane / kPositionBlock * kPositionBlock;
  size_t p = 0;
  for (; p + 2 * kPositionBlock <= in_blocks; p += 2 * kPositionBlock) {
    norm_columns<In, Out, 2>(in + p, out + p, tile, item);
  }
  if (p < in_blocks) norm_columns<In, Out, 1>(in + p, out + p, tile, item);
  const auto rest = static_cast<uint32_t>(item.plane - in_blocks);
  if (rest != 0) norm_tail(in + in_blocks, out + in_blocks, rest, item);
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_NORM_POSITIONS_H
