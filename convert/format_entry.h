/// \file format_entry.h
/// What the entry points that convert by format and scale share: the scale as a number and the kernels by element type.
#ifndef TARVU_CONVERT_FORMAT_ENTRY_H
#define TARVU_CONVERT_FORMAT_ENTRY_H

#include "convert/multiplier.h"
#include "frame/element_type.h"

namespace tarvu {

/// scale_value / 2^scale_shift in float. The power is a shift of a 32-bit 1: it wraps modulo 32 and is negative for 31.
inline float scale_of(const _NN_SCALE &scale) {
  const auto value = static_cast<float>(scale.scale_value);
  const int shift = scale.scale_shift;
  return shift >= 0 ? value / power_of_two_in_word(shift) : power_of_two_in_word(-shift) * value;
}

/// The conversion kernels of one element type.
template <class T>
struct Kernels;
template <>
struct Kernels<uint8_t> {
  static constexpr auto to_floats = uint8tofloat_neon;
  static constexpr auto from_floats = floattouint8_neon;
  static constexpr auto from_floats_rounded = floattouint8_rnd_neon;
  static constexpr auto to_floats_1d = uint8tofloat_1d_neon;
  static constexpr auto from_floats_1d = floattouint8_1d_neon;
  static constexpr auto to_floats_nd = uint8tofloat_nd_neon;
  static constexpr auto from_floats_nd = floattouint8_nd_neon;
};
template <>
struct Kernels<int8_t> {
  static constexpr auto to_floats = int8tofloat_neon;
  static constexpr auto from_floats = floattoint8_neon;
  static constexpr auto from_floats_rounded = floattoint8_rnd_neon;
  static constexpr auto to_floats_1d = int8tofloat_1d_neon;
  static constexpr auto from_floats_1d = floattoint8_1d_neon;
  static constexpr auto to_floats_nd = int8tofloat_nd_neon;
  static constexpr auto from_floats_nd = floattoint8_nd_neon;
};
template <>
struct Kernels<uint16_t> {
  static constexpr auto to_floats = uint16tofloat_neon;
  static constexpr auto from_floats = floattouint16_neon;
  static constexpr auto from_floats_rounded = floattouint16_rnd_neon;
  static constexpr auto to_floats_1d = uint16tofloat_1d_neon;
  static constexpr auto from_floats_1d = floattouint16_1d_neon;
  static constexpr auto to_floats_nd = uint16tofloat_nd_neon;
  static constexpr auto from_floats_nd = floattouint16_nd_neon;
};
template <>
struct Kernels<int16_t> {
  static constexpr auto to_floats = int16tofloat_neon;
  static constexpr auto from_floats = floattoint16_neon;
  static constexpr auto from_floats_rounded = floattoint16_rnd_neon;
  static constexpr auto to_floats_1d = int16tofloat_1d_neon;
  static constexpr auto from_floats_1d = floattoint16_1d_neon;
  static constexpr auto to_floats_nd = int16tofloat_nd_neon;
  static constexpr auto from_floats_nd = floattoint16_nd_neon;
};

}  // namespace tarvu

#endif  // TARVU_CONVERT_FORMAT_ENTRY_H
