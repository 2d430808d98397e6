/// \file gather_types.h
/// What the operators share that read positions from an index tensor: selection by type and by format.
#ifndef TARVU_TENSOR_GATHER_TYPES_H
#define TARVU_TENSOR_GATHER_TYPES_H

#include <type_traits>

#include "simd/processor.h"
#include "tarvu.h"

namespace tarvu {

/// Width of a format's elements as the gathers compare it.
/// Kept: modulo 256, unlike the type queries, which take the whole sum.
inline uint8_t width_modulo_256(const _NN_FMT &fmt) {
  return static_cast<uint8_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits);
}

inline bool is_element_type(NN_AI_IO_TYPE type) { return type >= NN_AI_IO_TYPE_INT8 && type <= NN_AI_IO_TYPE_UINT16; }
inline bool is_index_type(NN_AI_IO_TYPE type) { return type >= NN_AI_IO_TYPE_INT8 && type <= NN_AI_IO_TYPE_UINT32; }

/// Calls f(element, index) with zeros of the two types. Elements are only moved, so their sign does not count.
template <class F>
inline void with_gather_types(NN_AI_IO_TYPE element_type, NN_AI_IO_TYPE index_type, F f) {
  const auto with_index = [=](auto element) {
    switch (index_type) {
      case NN_AI_IO_TYPE_INT8:
        return f(element, int8_t{});
      case NN_AI_IO_TYPE_UINT8:
        return f(element, uint8_t{});
      case NN_AI_IO_TYPE_INT16:
        return f(element, int16_t{});
      case NN_AI_IO_TYPE_UINT16:
        return f(element, uint16_t{});
      default:
        // Kept: unsigned 32-bit indices are tested as signed numbers, so both types are one.
        return f(element, int32_t{});
    }
  };
  const bool narrow = element_type == NN_AI_IO_TYPE_INT8 || element_type == NN_AI_IO_TYPE_UINT8;
  narrow ? with_index(uint8_t{}) : with_index(uint16_t{});
}

}  // namespace tarvu

#endif  // TARVU_TENSOR_GATHER_TYPES_H
