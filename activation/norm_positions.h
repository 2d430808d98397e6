/// \file norm_positions.h
/// Norm by position: each of the P offsets within a plane has a norm of its own across the channels.
#ifndef TARVU_ACTIVATION_NORM_POSITIONS_H
#define TARVU_ACTIVATION_NORM_POSITIONS_H

#include <cmath>
#include <cstddef>

#include "simd/blocks.h"
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

/// A value for each position of some blocks side by side.
template <int blocks>
struct ByPosition {
  static constexpr size_t kPositions = size_t{blocks} * kPositionBlock;
  f32xn of[blocks][kBlockVectors];
};

/// The sums of the squares of some blocks of positions, from `in` on, with `eps` first. For integers `tile` takes `channels` dense
/// rows of the positions as floats, so that they are converted once.
template <class In, int blocks>
void sum_columns(const In *in, float *tile, const NormItem &item, ByPosition<blocks> &result) {
  const float multiplier = item.in_multiplier;
  const size_t plane = item.plane;
  f32xn sums[blocks][kBlockVectors];
  for (auto &block : sums) {
    for (f32xn &sum : block) sum = fill<f32xn>(item.eps);
  }
  for (uint32_t left = item.channels; left > 0; --left, in += plane) {
    for (uint32_t b = 0; b < blocks; ++b) {
      const FloatBlock x = load_as_floats(in + b * kPositionBlock, multiplier);
      for (int k = 0; k < kBlockVectors; ++k) {
        const f32xn square = x.of[k] * x.of[k];
        sums[b][k] = sums[b][k] + square;
      }
      if constexpr (!std::is_same_v<In, float>) store_converted(x, 1.0f, tile + b * kPositionBlock);
    }
    if constexpr (!std::is_same_v<In, float>) tile += result.kPositions;
  }
  for (uint32_t b = 0; b < blocks; ++b) {
    for (int k = 0; k < kBlockVectors; ++k) result.of[b][k] = sums[b][k];
  }
}

/// out = x * (scale of the channel * factor), or x * factor with a shared scale, which is in the factor then. Rows of `x` are
/// `step` elements apart.
template <class Out, int blocks, bool shared_scale>
void scale_columns(const float *x, size_t step, Out *out, const NormItem &item, const ByPosition<blocks> &factors_of) {
  const ByPosition<blocks> factors = factors_of;
  const float multiplier = item.out_multiplier;
  const size_t plane = item.plane;
  const float *scales = item.scales;
  for (uint32_t left = item.channels; left > 0; --left, x += step, out += plane) {
    f32xn scale{};
    if constexpr (!shared_scale) scale = fill<f32xn>(load<float>(scales++));
    for (uint32_t b = 0; b < blocks; ++b) {
      FloatBlock y = load_as_floats(x + b * kPositionBlock, 1.0f);
      for (int k = 0; k < kBlockVectors; ++k) {
        y.of[k] = y.of[k] * (shared_scale ? factors.of[b][k] : scale * factors.of[b][k]);
      }
      store_converted(y, multiplier, out + b * kPositionBlock);
    }
  }
}

template <class In, class Out, int blocks>
void norm_columns(const In *in, Out *out, float *tile, const NormItem &item) {
  ByPosition<blocks> factors;
  sum_columns<In, blocks>(in, tile, item, factors);
  const float *x = tile;
  size_t step = factors.kPositions;
  if constexpr (std::is_same_v<In, float>) {
    x = in;
    step = item.plane;
  }
  for (auto &block : factors.of) {
    for (f32xn &factor : block) {
      factor = factor_in_block(factor);
      if (item.shared_scale) factor = fill<f32xn>(load<float>(item.scales)) * factor;
    }
  }
  if (item.shared_scale) {
    scale_columns<Out, blocks, true>(x, step, out, item, factors);
  } else {
    scale_columns<Out, blocks, false>(x, step, out, item, factors);
  }
}

/// The factors of the `positions` last ones, fewer than a block. For integers `tile` takes dense rows as in sum_columns().
template <class In>
void factors_of_tail(const In *in, float *tile, uint32_t positions, const NormItem &item, float *factors) {
  for (uint32_t p = 0; p < positions; ++p) factors[p] = 0.0f;
  for (uint32_t c = 0; c < item.channels; ++c, in += item.plane) {
    for (uint32_t p = 0; p < positions; ++p) {
      keep_scalar();
      const float x = load_as_float(in + p, item.in_multiplier);
      const float square = x * x;
      factors[p] = factors[p] + square;
      if constexpr (!std::is_same_v<In, float>) store(tile + p, x);
    }
    if constexpr (!std::is_same_v<In, float>) tile += positions;
  }
  for (uint32_t p = 0; p < positions; ++p) factors[p] = factor_in_tail(factors[p], item.eps);
}

/// As scale_columns(), for the last positions.
template <class Out>
void scale_tail(const float *x, size_t step, Out *out, uint32_t positions, const NormItem &item, const float *factors) {
  for (uint32_t c = 0; c < item.channels; ++c, x += step, out += item.plane) {
    const float scale = load<float>(item.scales + (item.shared_scale ? 0 : c));
    for (uint32_t p = 0; p < positions; ++p) {
      keep_scalar();
      store_converted(load<float>(x + p) * (factors[p] * scale), item.out_multiplier, out + p);
    }
  }
}

template <class In, class Out>
void norm_tail(const In *in, Out *out, float *tile, uint32_t positions, const NormItem &item) {
  float factors[kPositionBlock];
  factors_of_tail(in, tile, positions, item, factors);
  if constexpr (std::is_same_v<In, float>) {
    scale_tail(in, item.plane, out, positions, item, factors);
  } else {
    scale_tail(tile, positions, out, positions, item, factors);
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
  if (rest != 0) norm_tail(in + in_blocks, out + in_blocks, tile, rest, item);
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_NORM_POSITIONS_H
