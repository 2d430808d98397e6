/// \file contents.h
/// Indices, as the operators that take them read them.
#ifndef TARVU_CONTRACT_CONTENTS_H
#define TARVU_CONTRACT_CONTENTS_H

#include "contract/formats.h"

namespace contract {

/// A value of memory that need not be aligned.
template <class T>
T value_at(uint64_t address) {
  T value;
  std::memcpy(&value, reinterpret_cast<const void *>(address), sizeof value);
  return value;
}

/// Type code as the gather queries tell it: they know unsigned 32-bit elements.
inline NN_AI_IO_TYPE gather_type_code_of(const _NN_FMT &fmt) {
  const NN_AI_IO_TYPE code = type_code_of(fmt);
  return code == NN_AI_IO_TYPE_32BIT && fmt.sign_bits == 0 ? NN_AI_IO_TYPE_UINT32 : code;
}

inline bool is_index(NN_AI_IO_TYPE code) { return code != NN_AI_IO_TYPE_INVALID; }

inline uint32_t bytes_of_index(NN_AI_IO_TYPE code) { return is_small(code) ? bytes_of_small(code) : 4; }

/// Element type of a range of indices.
inline int32_t range_type_of_index(NN_AI_IO_TYPE code) { return TARVU_CONTRACT_S8 + static_cast<int32_t>(code); }

/// An index as a signed word: unsigned 32-bit ones from 2^31 on are negative.
inline int32_t index_at(NN_AI_IO_TYPE code, uint64_t address) {
  switch (code) {
    case NN_AI_IO_TYPE_INT8:
      return value_at<int8_t>(address);
    case NN_AI_IO_TYPE_UINT8:
      return value_at<uint8_t>(address);
    case NN_AI_IO_TYPE_INT16:
      return value_at<int16_t>(address);
    case NN_AI_IO_TYPE_UINT16:
      return value_at<uint16_t>(address);
    default:
      return value_at<int32_t>(address);
  }
}

/// Truncated towards zero and saturated; 0 for a NaN.
inline int32_t truncated(float value) {
  if (value != value) return 0;
  if (value >= 0x1p31f) return INT32_MAX;
  if (value < -0x1p31f) return INT32_MIN;
  return static_cast<int32_t>(value);
}

/// What an integer of `frac_bits` fraction bits is multiplied by to be a float, where the scale is 1. The power of two is made by a
/// shift, modulo 32 for up to 30 bits and modulo 64 beyond.
inline float float_of_unit(int frac_bits) {
  const uint64_t shift = static_cast<uint64_t>(frac_bits < 0 ? -frac_bits : frac_bits) % 64;
  const auto power = static_cast<float>(static_cast<int64_t>(uint64_t{1} << shift));
  return frac_bits < 0 ? power : static_cast<float>(1.0 / static_cast<double>(power));
}

static_assert(TARVU_CONTRACT_U32 - TARVU_CONTRACT_S8 == NN_AI_IO_TYPE_UINT32);

}  // namespace contract

#endif  // TARVU_CONTRACT_CONTENTS_H
