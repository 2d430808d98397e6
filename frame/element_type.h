/// \file element_type.h
/// From formats and type codes to types of the language: calls of something generic with an element of the type.
#ifndef TARVU_FRAME_ELEMENT_TYPE_H
#define TARVU_FRAME_ELEMENT_TYPE_H

#include "frame/tarvu_util.h"

namespace tarvu {

/// Calls action(T{}) with the element type of 8 or 16 bits; other widths do nothing.
template <class Action>
inline void with_element_of(int width, bool is_signed, Action action) {
  if (is_signed) {
    if (width == 8) action(int8_t{});
    if (width == 16) action(int16_t{});
  } else {
    if (width == 8) action(uint8_t{});
    if (width == 16) action(uint16_t{});
  }
}

/// The same by a format's fields. Kept: sign_bits other than 0 and 1, which the type queries call signed, do nothing.
template <class Action>
inline void with_element_type(int sign_bits, int width, Action action) {
  if (sign_bits == 0 || sign_bits == 1) with_element_of(width, sign_bits == 1, action);
}
template <class Action>
inline void with_element_type(const _NN_FMT &fmt, Action action) {
  with_element_type(fmt.sign_bits, width_bits(fmt), action);
}

/// What action(T{}) gives for the type of a code; every code but the first three stands for unsigned 16 bits.
template <class Action>
inline auto with_element_type(NN_AI_IO_TYPE type, Action action) {
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return action(int8_t{});
    case NN_AI_IO_TYPE_UINT8:
      return action(uint8_t{});
    case NN_AI_IO_TYPE_INT16:
      return action(int16_t{});
    default:
      return action(uint16_t{});
  }
}

}  // namespace tarvu

#endif  // TARVU_FRAME_ELEMENT_TYPE_H
