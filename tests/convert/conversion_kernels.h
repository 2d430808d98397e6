/// \file conversion_kernels.h
/// The conversion kernels of flat runs, one table a group: product and twin behind one signature.
#ifndef TARVU_TESTS_CONVERT_CONVERSION_KERNELS_H
#define TARVU_TESTS_CONVERT_CONVERSION_KERNELS_H

#include <cfenv>
#include <cstddef>
#include <cstdint>

#include "tarvu.h"
#include "tests/reference/bit_depth_trans_reference.h"
#include "tests/reference/bit_depth_trans_rnd_reference.h"
#include "tests/reference/tarvu_type_convert_reference.h"

namespace convert_tests {

/// Arguments of a kernel beside the run; a kernel that has no such argument ignores its field.
struct Settings {
  int16_t frac_bits = 0;
  float scale = 1.0f;
  uint32_t rounding_code = 0;
  int32_t zero_point = 0;
  int rounding_mode = FE_TONEAREST;  ///< of the environment during the call
};

using Call = void (*)(const void *source, void *destination, uint32_t count, const Settings &settings);

struct Kernel {
  const char *name;
  size_t source_bytes;       ///< of one element
  size_t destination_bytes;  ///< of one element
  bool to_float;
  uint32_t block;  ///< elements
  Call product;
  Call reference;
};

template <class From, class To, void (*kernel)(const From *, To *, int16_t, uint32_t, float)>
void flat_call(const void *source, void *destination, uint32_t count, const Settings &s) {
  kernel(static_cast<const From *>(source), static_cast<To *>(destination), s.frac_bits, count, s.scale);
}

template <class To, void (*kernel)(const float *, To *, int16_t, uint32_t, uint32_t, float)>
void rounded_call(const void *source, void *destination, uint32_t count, const Settings &s) {
  kernel(static_cast<const float *>(source), static_cast<To *>(destination), s.frac_bits, count, s.rounding_code,
         s.scale);
}

template <class From, class To, void (*kernel)(const From *, To *, uint32_t, int16_t, int32_t, float)>
void zero_point_call(const void *source, void *destination, uint32_t count, const Settings &s) {
  kernel(static_cast<const From *>(source), static_cast<To *>(destination), count, s.frac_bits, s.zero_point, s.scale);
}

template <class To, auto product, auto reference>
constexpr Kernel flat_to_integer(const char *name, uint32_t block) {
  return {name, 4, sizeof(To), false, block, flat_call<float, To, product>, flat_call<float, To, reference>};
}

template <class From, auto product, auto reference>
constexpr Kernel flat_to_float(const char *name, uint32_t block) {
  return {name, sizeof(From), 4, true, block, flat_call<From, float, product>, flat_call<From, float, reference>};
}

template <class To, auto product, auto reference>
constexpr Kernel rounded(const char *name, uint32_t block) {
  return {name, 4, sizeof(To), false, block, rounded_call<To, product>, rounded_call<To, reference>};
}

template <class To, auto product, auto reference>
constexpr Kernel zero_point_to_integer(const char *name, uint32_t block) {
  return {
      name, 4, sizeof(To), false, block, zero_point_call<float, To, product>, zero_point_call<float, To, reference>};
}

template <class From, auto product, auto reference>
constexpr Kernel zero_point_to_float(const char *name, uint32_t block) {
  return {name,
          sizeof(From),
          4,
          true,
          block,
          zero_point_call<From, float, product>,
          zero_point_call<From, float, reference>};
}

inline constexpr Kernel kFlatToInteger[] = {
    flat_to_integer<uint32_t, ::floattouint32_neon, reference::floattouint32_neon>("floattouint32_neon", 16),
    flat_to_integer<int32_t, ::floattoint32_neon, reference::floattoint32_neon>("floattoint32_neon", 16),
    flat_to_integer<uint16_t, ::floattouint16_neon, reference::floattouint16_neon>("floattouint16_neon", 16),
    flat_to_integer<int16_t, ::floattoint16_neon, reference::floattoint16_neon>("floattoint16_neon", 16),
    flat_to_integer<uint8_t, ::floattouint8_neon, reference::floattouint8_neon>("floattouint8_neon", 8),
    flat_to_integer<int8_t, ::floattoint8_neon, reference::floattoint8_neon>("floattoint8_neon", 8),
};

inline constexpr Kernel kFlatToFloat[] = {
    flat_to_float<uint32_t, ::uint32tofloat_neon, reference::uint32tofloat_neon>("uint32tofloat_neon", 16),
    flat_to_float<int32_t, ::int32tofloat_neon, reference::int32tofloat_neon>("int32tofloat_neon", 16),
    flat_to_float<uint16_t, ::uint16tofloat_neon, reference::uint16tofloat_neon>("uint16tofloat_neon", 16),
    flat_to_float<int16_t, ::int16tofloat_neon, reference::int16tofloat_neon>("int16tofloat_neon", 16),
    flat_to_float<uint8_t, ::uint8tofloat_neon, reference::uint8tofloat_neon>("uint8tofloat_neon", 8),
    flat_to_float<int8_t, ::int8tofloat_neon, reference::int8tofloat_neon>("int8tofloat_neon", 8),
};

inline constexpr Kernel kRounded[] = {
    rounded<uint32_t, ::floattouint32_rnd_neon, reference::floattouint32_rnd_neon>("floattouint32_rnd_neon", 16),
    rounded<int32_t, ::floattoint32_rnd_neon, reference::floattoint32_rnd_neon>("floattoint32_rnd_neon", 16),
    rounded<uint16_t, ::floattouint16_rnd_neon, reference::floattouint16_rnd_neon>("floattouint16_rnd_neon", 16),
    rounded<int16_t, ::floattoint16_rnd_neon, reference::floattoint16_rnd_neon>("floattoint16_rnd_neon", 16),
    rounded<uint8_t, ::floattouint8_rnd_neon, reference::floattouint8_rnd_neon>("floattouint8_rnd_neon", 8),
    rounded<int8_t, ::floattoint8_rnd_neon, reference::floattoint8_rnd_neon>("floattoint8_rnd_neon", 8),
};

inline constexpr Kernel kZeroPointToInteger[] = {
    zero_point_to_integer<uint8_t, ::floattouint8_1d_neon, reference::floattouint8_1d_neon>("floattouint8_1d_neon", 8),
    zero_point_to_integer<int8_t, ::floattoint8_1d_neon, reference::floattoint8_1d_neon>("floattoint8_1d_neon", 8),
    zero_point_to_integer<uint16_t, ::floattouint16_1d_neon, reference::floattouint16_1d_neon>("floattouint16_1d_neon",
                                                                                               16),
    zero_point_to_integer<int16_t, ::floattoint16_1d_neon, reference::floattoint16_1d_neon>("floattoint16_1d_neon", 16),
};

inline constexpr Kernel kZeroPointToFloat[] = {
    zero_point_to_float<uint8_t, ::uint8tofloat_1d_neon, reference::uint8tofloat_1d_neon>("uint8tofloat_1d_neon", 8),
    zero_point_to_float<int8_t, ::int8tofloat_1d_neon, reference::int8tofloat_1d_neon>("int8tofloat_1d_neon", 8),
    zero_point_to_float<uint16_t, ::uint16tofloat_1d_neon, reference::uint16tofloat_1d_neon>("uint16tofloat_1d_neon",
                                                                                             16),
    zero_point_to_float<int16_t, ::int16tofloat_1d_neon, reference::int16tofloat_1d_neon>("int16tofloat_1d_neon", 16),
};

}  // namespace convert_tests

#endif  // TARVU_TESTS_CONVERT_CONVERSION_KERNELS_H
