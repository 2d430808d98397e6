/// \file fast_pow.h
/// The approximate power: the bits of a positive float, read as an integer, are near a linear function of its logarithm.
#ifndef TARVU_SIMD_FAST_POW_H
#define TARVU_SIMD_FAST_POW_H

#include <bit>

#include "simd/convert.h"

namespace tarvu {

inline constexpr uint32_t kPowBitsOffset = 0xC0876C08;    // minus 1064866808, modulo 2^32
inline constexpr float kPowResultOffset = 1064866816.0f;  // the same to the nearest float
static_assert(std::bit_cast<uint32_t>(kPowResultOffset) == 0x4E7DE250);

/// Bits less the offset, wrapping, as a signed integer; and an integer as the bits of a float.
inline int32_t pow_exponent(float x) { return static_cast<int32_t>(std::bit_cast<uint32_t>(x) + kPowBitsOffset); }
inline float from_bits(int32_t bits) { return std::bit_cast<float>(bits); }
inline s32xn pow_exponent(f32xn x) { return s32xn(u32xn(x) + kPowBitsOffset); }
inline f32xn from_bits(s32xn bits) { return f32xn(bits); }

/// x^p for one float or for lanes: every step rounded, the last converted towards zero with saturation, NaN to 0.
template <class V>
inline V fast_pow_step(V x, float p) {
  const V scaled = to_f32(pow_exponent(x)) * p;
  const V shifted = scaled + kPowResultOffset;
  return from_bits(to_s32(shifted));
}

}  // namespace tarvu

#endif  // TARVU_SIMD_FAST_POW_H
