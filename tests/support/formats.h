/// \file formats.h
/// Number formats and scales for tests.
#ifndef TARVU_TESTS_SUPPORT_FORMATS_H
#define TARVU_TESTS_SUPPORT_FORMATS_H

#include <cstdint>

#include "tarvu.h"

namespace support {

/// A format of `width` bits: frac_bits as given, sign_bits 1 or 0, int_bits what is left. The reserved byte holds `reserved`.
inline _NN_FMT format(int width, int frac_bits, int sign_bits, int reserved = 0) {
  return {static_cast<int8_t>(frac_bits), static_cast<int8_t>(width - frac_bits - sign_bits),
          static_cast<int8_t>(sign_bits), static_cast<uint8_t>(reserved)};
}

inline _NN_SCALE scale(int32_t value, int shift) {
  _NN_SCALE record{};
  record.scale_value = value;
  record.scale_shift = static_cast<int8_t>(shift);
  return record;
}

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_FORMATS_H
