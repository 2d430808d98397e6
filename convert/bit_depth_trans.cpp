// Flat conversion between integer runs and floats with one multiplier, and two shuffles of interleaved bytes.
#include "convert/multiplier.h"
#include "frame/memory.h"
#include "simd/runs.h"
#include "simd/transpose.h"
#include "tarvu.h"

namespace tarvu {
namespace {

template <class T>
void from_floats(const float *source, T *destination, int frac_bits, uint32_t count, float scale) {
  const float multiplier = multiplier_from_float(frac_bits, scale);
  if (frac_bits >= 0) {
    floats_to_integers<T>(source, destination, count, [=](auto x) { return x * fill<decltype(x)>(multiplier); });
    return;
  }
  // Kept: half a unit of the output is added ahead of the scale, so it is half a unit for a scale of 1.0 only.
  const float bias = power_of_two(-frac_bits - 1);
  floats_to_integers<T>(source, destination, count,
                        [=](auto x) { return (x + fill<decltype(x)>(bias)) * fill<decltype(x)>(multiplier); });
}

/// Converts with a multiplier of 2^-1 to 2^-8 folded into the conversion, the commonest formats of 8-bit elements. Returns false
/// with nothing done for any other multiplier.
template <class T, int... fraction_bits>
bool to_float_fractions(const T *source, float *destination, uint32_t count, float multiplier,
                        std::integer_sequence<int, fraction_bits...>) {
  const auto with = [=]<int bits>(std::integral_constant<int, bits>) {
    if (multiplier * static_cast<float>(1 << bits) != 1.0f) return false;
    integers_to_floats<T>(source, destination, count, [](auto x) { return to_f32_fraction<bits>(x); });
    return true;
  };
  return (with(std::integral_constant<int, fraction_bits + 1>{}) || ...);
}

template <class T>
void to_floats(const T *source, float *destination, int frac_bits, uint32_t count, float scale) {
  const float multiplier = multiplier_to_float(frac_bits, scale);
  if constexpr (kConvertsFractionsAtOnce && sizeof(T) == 1) {
    constexpr std::make_integer_sequence<int, 8> kFractions;
    if (to_float_fractions<T>(source, destination, count, multiplier, kFractions)) return;
  }
  integers_to_floats<T>(source, destination, count, [=](auto x) {
    const auto as_float = to_f32(x);
    return as_float * fill<std::remove_cv_t<decltype(as_float)>>(multiplier);
  });
}

/// Kept: bytes move one after the other, lane by lane, where the destination overlaps the source.
bool bytes_lie_apart(const uint8_t *source, const uint8_t *destination, size_t bytes) {
  return lie_apart(memory_of(source, bytes), memory_of(destination, bytes));
}

}  // namespace
}  // namespace tarvu

void floattouint32_neon(const float *source, uint32_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::from_floats(source, destination, frac_bits, count, scale);
}
void floattoint32_neon(const float *source, int32_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::from_floats(source, destination, frac_bits, count, scale);
}
void floattouint16_neon(const float *source, uint16_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::from_floats(source, destination, frac_bits, count, scale);
}
void floattoint16_neon(const float *source, int16_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::from_floats(source, destination, frac_bits, count, scale);
}
void floattouint8_neon(const float *source, uint8_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::from_floats(source, destination, frac_bits, count, scale);
}
void floattoint8_neon(const float *source, int8_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::from_floats(source, destination, frac_bits, count, scale);
}

void uint32tofloat_neon(const uint32_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::to_floats(source, destination, frac_bits, count, scale);
}
void int32tofloat_neon(const int32_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::to_floats(source, destination, frac_bits, count, scale);
}
void uint16tofloat_neon(const uint16_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::to_floats(source, destination, frac_bits, count, scale);
}
void int16tofloat_neon(const int16_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::to_floats(source, destination, frac_bits, count, scale);
}
void uint8tofloat_neon(const uint8_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::to_floats(source, destination, frac_bits, count, scale);
}
void int8tofloat_neon(const int8_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  tarvu::to_floats(source, destination, frac_bits, count, scale);
}

void permute_data_in(const uint8_t *source, uint8_t *destination, uint32_t lanes, uint32_t total_bytes) {
  const uint32_t groups = tarvu::divide(total_bytes, lanes);
  if (tarvu::bytes_lie_apart(source, destination, size_t{lanes} * groups)) {
    tarvu::transpose<uint8_t>(source, lanes, destination, groups, groups, lanes);
    return;
  }
  for (size_t lane = 0; lane < lanes; ++lane) {
    for (size_t group = 0; group < groups; ++group) destination[lane * groups + group] = source[group * lanes + lane];
  }
}

void permute_data_out(const uint8_t *source, uint8_t *destination, uint32_t lanes, uint32_t total_bytes) {
  const uint32_t groups = tarvu::divide(total_bytes, lanes);
  if (tarvu::bytes_lie_apart(source, destination, size_t{lanes} * groups)) {
    tarvu::transpose<uint8_t>(source, groups, destination, lanes, lanes, groups);
    return;
  }
  for (size_t lane = 0; lane < lanes; ++lane) {
    for (size_t group = 0; group < groups; ++group) destination[group * lanes + lane] = source[lane * groups + group];
  }
}
