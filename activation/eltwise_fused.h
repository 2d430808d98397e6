/// \file eltwise_fused.h
/// Product and weighted sum of fixed-point tensors in one sweep, without scratch memory: conversion, operation and conversion back
/// for a few elements at a time. Every element has the bits that conversions of whole planes give it.
#ifndef TARVU_ACTIVATION_ELTWISE_FUSED_H
#define TARVU_ACTIVATION_ELTWISE_FUSED_H

#include <bit>
#include <cstdlib>
#include <optional>

#include "convert/format_entry.h"
#include "frame/memory.h"
#include "simd/elementwise.h"

namespace tarvu {

inline constexpr int32_t kProduct = 0;  // operation codes
inline constexpr int32_t kSum = 1;

/// One of the three tensors of an Eltwise block.
struct EltwiseTensor {
  uint8_t *address;
  uint32_t line_bytes;
  uint32_t channel_bytes;
  uint32_t batch_bytes;
  _NN_FMT fmt;
  _NN_SCALE scale;

  uint8_t *plane(uint32_t item, uint32_t channel) const {
    return address + size_t{item} * batch_bytes + size_t{channel} * channel_bytes;
  }
};

struct EltwiseTensors {
  EltwiseTensor first, second, result;
};

struct Multiply {
  template <class V>
  V operator()(V a, V b) const {
    return a * b;
  }
};
struct Add {
  template <class V>
  V operator()(V a, V b) const {
    return a + b;
  }
};
struct AddWeighted {
  float weight_a, weight_b;
  template <class V>
  V operator()(V a, V b) const {
    const V weighted_a = a * fill<V>(weight_a);
    const V weighted_b = b * fill<V>(weight_b);
    return weighted_a + weighted_b;
  }
};

/// Planes that the sweep takes one after the other.
struct EltwiseRuns {
  uint32_t items;
  uint32_t channels;
  uint32_t count;  // elements of a run
};

/// Calls sweep(a, b, to) for the runs of all three tensors.
template <class T, class Out, class Sweep>
inline void for_each_run(const EltwiseTensors &tensors, const EltwiseRuns &runs, Sweep sweep) {
  for (uint32_t item = 0; item < runs.items; ++item) {
    for (uint32_t channel = 0; channel < runs.channels; ++channel) {
      sweep(reinterpret_cast<const T *>(tensors.first.plane(item, channel)),
            reinterpret_cast<const T *>(tensors.second.plane(item, channel)),
            reinterpret_cast<Out *>(tensors.result.plane(item, channel)));
    }
  }
}

/// The multipliers of the three conversions.
struct EltwiseMultipliers {
  float first, second, result;
};

/// Sweeps through float lanes.
template <class T, class Out, class Operation>
inline void sweep_in_float(const EltwiseTensors &tensors, const EltwiseRuns &runs,
                           const EltwiseMultipliers &multipliers, Operation operation) {
  for_each_run<T, Out>(tensors, runs, [=](const T *a, const T *b, Out *to) {
    combine_integers<T, Out>(a, b, to, runs.count, [=](auto x, auto y) {
      using V = decltype(x);
      const V converted_a = x * fill<V>(multipliers.first);
      const V converted_b = y * fill<V>(multipliers.second);
      return operation(converted_a, converted_b) * fill<V>(multipliers.result);
    });
  });
}

/// x as sign * 2^exponent, if it is one of -2^30 to -2^-30 or 2^-30 to 2^30.
struct SignedPower {
  bool negative;
  int exponent;
};
inline std::optional<SignedPower> signed_power(float x) {
  const auto bits = std::bit_cast<uint32_t>(x);
  const int exponent = static_cast<int>((bits >> 23) & 0xFF) - 127;
  if ((bits & 0x7FFFFF) != 0 || std::abs(exponent) > 30) return std::nullopt;
  return SignedPower{bits >> 31 != 0, exponent};
}

/// The product of 8-bit elements in 16-bit lanes, where all multipliers are powers of two: nothing is rounded on the way, so that
/// only the truncation at the end counts. Returns false with nothing done where the lanes do not hold it.
template <class T, class Out>
inline bool multiply_exactly(const EltwiseTensors &tensors, const EltwiseRuns &runs,
                             const EltwiseMultipliers &multipliers) {
  const auto first = signed_power(multipliers.first);
  const auto second = signed_power(multipliers.second);
  const auto result = signed_power(multipliers.result);
  if (!first || !second || !result) return false;
  const int right_shift = -(first->exponent + second->exponent + result->exponent);
  if (right_shift < 0 || (first->negative ^ second->negative ^ result->negative)) return false;
  const int longest = std::is_signed_v<T> ? 15 : 16;  // beyond, every product gives 0 too
  for_each_run<T, Out>(tensors, runs, [=](const T *a, const T *b, Out *to) {
    multiply_and_shift(a, b, to, runs.count, std::min(right_shift, longest));
  });
  return true;
}

/// The sum of 8-bit elements likewise; the multipliers of the inputs hold the weights.
template <class T, class Out>
inline bool add_exactly(const EltwiseTensors &tensors, const EltwiseRuns &runs, const EltwiseMultipliers &multipliers) {
  const auto first = signed_power(multipliers.first);
  const auto second = signed_power(multipliers.second);
  const auto result = signed_power(multipliers.result);
  if (!first || !second || !result) return false;
  const int lower = std::min(first->exponent, second->exponent);
  const int right_shift = -(lower + result->exponent);
  constexpr int kLargestWeight = 6;  // 2^6 is an 8-bit element, and 255 * (2^6 + 1) a 16-bit one
  if (right_shift < 0 || std::max(first->exponent, second->exponent) - lower > kLargestWeight) return false;
  const bool negative_a = first->negative ^ result->negative;
  const bool negative_b = second->negative ^ result->negative;
  if (std::is_unsigned_v<T> && (negative_a || negative_b)) return false;
  const int weight_a = 1 << (first->exponent - lower);
  const int weight_b = 1 << (second->exponent - lower);
  for_each_run<T, Out>(tensors, runs, [=](const T *a, const T *b, Out *to) {
    weigh_and_shift(a, b, to, runs.count, static_cast<T>(negative_a ? -weight_a : weight_a),
                    static_cast<T>(negative_b ? -weight_b : weight_b), std::min(right_shift, 15));
  });
  return true;
}

/// Takes a weight into the multiplier of its input if that changes no product: a power of two, far from the limits of floats.
inline bool take_in_weight(float weight, float &multiplier) {
  if (!signed_power(weight) || std::abs(multiplier) < 0x1p-60f || !(std::abs(multiplier) < 0x1p60f)) return false;
  multiplier *= weight;
  return true;
}

template <class T, class Out>
inline void sweep_product(const EltwiseTensors &tensors, const EltwiseRuns &runs,
                          const EltwiseMultipliers &multipliers) {
  if constexpr (sizeof(T) == 1) {
    if (multiply_exactly<T, Out>(tensors, runs, multipliers)) return;
  }
  sweep_in_float<T, Out>(tensors, runs, multipliers, Multiply{});
}

template <class T, class Out>
inline void sweep_sum(const EltwiseTensors &tensors, const EltwiseRuns &runs, const EltwiseMultipliers &multipliers,
                      float weight_a, float weight_b) {
  EltwiseMultipliers weighted = multipliers;
  if (!take_in_weight(weight_a, weighted.first) || !take_in_weight(weight_b, weighted.second)) {
    sweep_in_float<T, Out>(tensors, runs, multipliers, AddWeighted{weight_a, weight_b});
    return;
  }
  if constexpr (sizeof(T) == 1) {
    if (add_exactly<T, Out>(tensors, runs, weighted)) return;
  }
  sweep_in_float<T, Out>(tensors, runs, weighted, Add{});
}

/// The tensor to the end of its last plane; none of the extents is 0.
inline Memory memory_of(const EltwiseTensor &tensor, const _NN_ELTWISE_PARM &parm, uint64_t plane_bytes) {
  return memory_of(tensor.address, (parm.batch - uint64_t{1}) * tensor.batch_bytes +
                                       (parm.channel - uint64_t{1}) * tensor.channel_bytes + plane_bytes);
}

/// Whether planes as they come may be swept in place of passes over whole planes: the passes keep apart what a sweep would not.
inline bool may_sweep(const EltwiseTensors &tensors, const _NN_ELTWISE_PARM &parm, uint32_t plane_bytes) {
  const EltwiseTensor &result = tensors.result;
  const Memory written = memory_of(result, parm, plane_bytes);
  const Memory scratch{parm.work_buffer, uint64_t{12} * parm.width * parm.height};
  for (const EltwiseTensor *input : {&tensors.first, &tensors.second}) {
    const Memory read = memory_of(*input, parm, plane_bytes);
    const bool same = input->address == result.address && input->channel_bytes == result.channel_bytes &&
                      input->batch_bytes == result.batch_bytes;
    if (!same && !lie_apart(read, written)) return false;
    if (!lie_apart(read, scratch)) return false;
  }
  return lie_apart(written, scratch);
}

/// One run for all planes of an item that lie back to back in all three tensors.
inline EltwiseRuns runs_of(const EltwiseTensors &tensors, const _NN_ELTWISE_PARM &parm, uint32_t plane,
                           uint32_t plane_bytes) {
  const bool dense = tensors.first.channel_bytes == plane_bytes && tensors.second.channel_bytes == plane_bytes &&
                     tensors.result.channel_bytes == plane_bytes;
  if (dense && uint64_t{plane} * parm.channel <= 0x3FFFFFFF) return {parm.batch, 1, plane * parm.channel};
  return {parm.batch, parm.channel, plane};
}

inline EltwiseMultipliers multipliers_of(const EltwiseTensors &tensors) {
  const auto to_float = [](const EltwiseTensor &tensor) {
    return multiplier_to_float(tensor.fmt.frac_bits, scale_of(tensor.scale));
  };
  const EltwiseTensor &result = tensors.result;
  return {to_float(tensors.first), to_float(tensors.second),
          multiplier_from_float(result.fmt.frac_bits, scale_of(result.scale))};
}

/// Does the whole work in one sweep if the inputs are of one fixed-point type and the output as wide, and returns whether it did.
inline bool sweep(const _NN_ELTWISE_PARM &parm, const EltwiseTensors &tensors) {
  const _NN_FMT &fmt = tensors.first.fmt;
  const _NN_FMT &second = tensors.second.fmt;
  const _NN_FMT &result = tensors.result.fmt;
  const int width = width_bits(fmt);
  if (fmt.sign_bits != second.sign_bits || width_bits(second) != width || width_bits(result) != width) return false;
  if (result.frac_bits < 0) return false;  // the conversion then has a bias of its own
  const uint64_t plane = uint64_t{parm.width} * parm.height;
  if (plane == 0 || parm.channel == 0 || parm.batch == 0 || plane > 0x3FFFFFFF) return false;
  const auto count = static_cast<uint32_t>(plane);
  const uint32_t plane_bytes = count * static_cast<uint32_t>(width) / 8;
  if (!may_sweep(tensors, parm, plane_bytes)) return false;
  const EltwiseRuns runs = runs_of(tensors, parm, count, plane_bytes);
  const EltwiseMultipliers multipliers = multipliers_of(tensors);
  bool done = false;
  with_element_type(fmt, [&](auto input) {
    using T = decltype(input);
    with_element_type(result, [&](auto output) {
      using Out = decltype(output);
      if constexpr (sizeof(T) == sizeof(Out)) {
        if (parm.op == kProduct) {
          sweep_product<T, Out>(tensors, runs, multipliers);
        } else {
          sweep_sum<T, Out>(tensors, runs, multipliers, parm.coeff0, parm.coeff1);
        }
        done = true;
      }
    });
  });
  return done;
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_ELTWISE_FUSED_H
