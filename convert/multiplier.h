/// \file multiplier.h
/// The one number by which a conversion multiplies a whole run, from the fraction bits and the scale.
#ifndef TARVU_CONVERT_MULTIPLIER_H
#define TARVU_CONVERT_MULTIPLIER_H

#include <cstdint>

#include "simd/processor.h"

namespace tarvu {

/// 2^distance as a float, made by shifting 1: in 32 bits for a distance up to 30, in signed 64 bits beyond (modulo 64, and
/// negative for 63).
inline float power_of_two(int distance) {
  return distance <= 30 ? static_cast<float>(shift_left(int32_t{1}, distance))
                        : static_cast<float>(shift_left(int64_t{1}, distance));
}

/// 2^distance as a float, made in signed 32 bits alone: negative for 31, and wrapping from 32 on.
inline float power_of_two_in_word(int distance) { return static_cast<float>(shift_left(int32_t{1}, distance)); }

/// power * scale as a product of two floats.
inline float scaled_up(float power, float scale) { return power * scale; }

/// scale / power, formed in double and narrowed.
inline float scaled_down(float power, float scale) {
  const double reciprocal = 1.0 / static_cast<double>(power);
  return static_cast<float>(reciprocal * static_cast<double>(scale));
}

/// Multiplier of the conversions from float.
inline float multiplier_from_float(int frac_bits, float scale) {
  return frac_bits >= 0 ? scaled_up(power_of_two(frac_bits), scale) : scaled_down(power_of_two(-frac_bits), scale);
}

/// Multiplier of the conversions from float by a rounding code.
/// Kept: a shift of one 32-bit word, so 31 fraction bits change the sign and 32 count as none.
inline float rounded_multiplier_from_float(int frac_bits, float scale) {
  return frac_bits >= 0 ? scaled_up(power_of_two_in_word(frac_bits), scale)
                        : scaled_down(power_of_two_in_word(-frac_bits), scale);
}

/// Multiplier of the conversions to float.
inline float multiplier_to_float(int frac_bits, float scale) {
  return frac_bits >= 0 ? scaled_down(power_of_two(frac_bits), scale) : scaled_up(power_of_two(-frac_bits), scale);
}

}  // namespace tarvu

#endif  // TARVU_CONVERT_MULTIPLIER_H
