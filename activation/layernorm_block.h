/// \file layernorm_block.h
/// What both forms of layer normalisation do around the arithmetic of a run: sizes, scratch, conversions, gamma and beta.
#ifndef TARVU_ACTIVATION_LAYERNORM_BLOCK_H
#define TARVU_ACTIVATION_LAYERNORM_BLOCK_H

#include <cstddef>

#include "simd/processor.h"
#include "tarvu.h"

namespace tarvu {

/// Writes `axis`, `outer_size` and `inner_size` of the block.
inline void write_run_sizes(_NN_LAYERNORM_PARM &parm) {
  const uint32_t extents[4] = {parm.batch, parm.channel, parm.height, parm.width};
  if (parm.axis <= 0) parm.axis += 4;  // Kept: 0 too, so the batch axis is reached as -4 only
  parm.outer_size = 1;
  parm.inner_size = 1;
  for (int32_t i = parm.axis; i <= 3; ++i) parm.inner_size *= extents[i];
  for (int32_t i = 1; i < parm.axis && i <= 3; ++i) parm.outer_size *= extents[i];
}

/// Gamma or beta.
/// Kept: the address 0 is not the mark of absence, so an array at 0 is read like any other.
struct LearnedArray {
  explicit LearnedArray(uint64_t address)
      : values(pointer<const float>(address)), present(address != TARVU_LAYERNORM_ABSENT) {}

  float value(size_t i) const { return load<float>(values + i); }

  const float *values;
  bool present;
};

/// The tensors as floats: where they lie, or the two scratch arrays.
struct LayernormFloats {
  explicit LayernormFloats(const _NN_LAYERNORM_PARM &parm) {
    count = uint32_t{parm.width} * parm.height * parm.channel * parm.batch;
    uint64_t cursor = parm.work_buffer;
    in = static_cast<float *>(tarvu_getbuffrom(&cursor, 4 * count));
    out = static_cast<float *>(tarvu_getbuffrom(&cursor, 4 * count));
    in_converted = tarvu_get_fmt_type(&parm.in_fmt) != NN_AI_IO_TYPE_32BIT;
    out_converted = tarvu_get_fmt_type(&parm.out_fmt) != NN_AI_IO_TYPE_32BIT;
    if (!in_converted) in = pointer<float>(parm.in_addr);
    if (!out_converted) out = pointer<float>(parm.out_addr);
  }

  uint32_t count;  ///< elements of the tensor
  float *in;
  float *out;
  bool in_converted;
  bool out_converted;
};

inline constexpr uint32_t kLayernormRoundingCode = 3;  // to nearest, ties away from zero

/// Calls action(scale_and_shift), where scale_and_shift(y, i) is y * gamma[i] + beta[i], rounded twice, with what is present.
template <class Action>
inline void with_learned_arrays(const LearnedArray &gamma, const LearnedArray &beta, Action action) {
  if (gamma.present && beta.present) {
    action([=](float y, size_t i) {
      const float scaled = y * gamma.value(i);
      return scaled + beta.value(i);
    });
  } else if (gamma.present) {
    action([=](float y, size_t i) { return y * gamma.value(i); });
  } else if (beta.present) {
    action([=](float y, size_t i) { return y + beta.value(i); });
  } else {
    action([](float y, size_t) { return y; });
  }
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_LAYERNORM_BLOCK_H
