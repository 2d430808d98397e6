#include "tarvu_type_convert_reference.h"

#include <algorithm>
#include <cmath>

#include "processor_rules.h"

namespace reference {
namespace {

/// 2 to the power n as a float, from a 32-bit shift up to 30 and a 64-bit shift beyond.
float power_of_two(int32_t n) {
  if (n <= 30) return static_cast<float>(shift_left_32(1, n));
  return static_cast<float>(shift_left_64(1, n));
}

float narrowed_quotient(int32_t n, float scale) {
  return static_cast<float>(1.0 / static_cast<double>(power_of_two(n)) * static_cast<double>(scale));
}

template <class T>
void integer_to_float(const T *source, float *destination, uint32_t count, int16_t frac_bits, int32_t zero_point,
                      float scale) {
  const int32_t n = -int32_t{frac_bits};
  const float multiplier = frac_bits >= 0 ? narrowed_quotient(frac_bits, scale) : power_of_two(n) * scale;
  for (uint32_t i = 0; i < count; ++i) {
    const int32_t wide = static_cast<int32_t>(load<T>(source + i));
    const int32_t difference = subtract_32(wide, zero_point);
    store<float>(destination + i, static_cast<float>(difference) * multiplier);
  }
}

float half_up_in_block(float y) {
  const float sum = y + 0.5f;
  return std::floor(sum);
}

float half_up_in_tail(float y) {
  const double sum = static_cast<double>(y) + 0.5;
  return static_cast<float>(std::floor(sum));
}

int32_t signed_sum(float r, int32_t zero_point) { return add_32(float_to_s32(static_cast<double>(r)), zero_point); }

template <class T>
T signed_result(float r, int32_t zero_point, int32_t least, int32_t greatest) {
  return static_cast<T>(std::max(std::min(signed_sum(r, zero_point), greatest), least));
}

template <class T>
T unsigned_result_in_block(float r, int32_t zero_point, uint32_t greatest) {
  const uint32_t sum = float_to_u32(static_cast<double>(r)) + static_cast<uint32_t>(zero_point);
  return static_cast<T>(std::min(sum, greatest));
}

template <class T>
T unsigned_result_in_tail(float r, int32_t zero_point, int32_t greatest) {
  const int32_t sum = signed_sum(r, zero_point);
  if (sum < 0) return 0;
  return static_cast<T>(std::min(sum, greatest));
}

uint8_t in_block(float r, int32_t zero_point, uint8_t) { return unsigned_result_in_block<uint8_t>(r, zero_point, 255); }
uint16_t in_block(float r, int32_t zero_point, uint16_t) {
  return unsigned_result_in_block<uint16_t>(r, zero_point, 65535);
}
int8_t in_block(float r, int32_t zero_point, int8_t) { return signed_result<int8_t>(r, zero_point, -128, 127); }
int16_t in_block(float r, int32_t zero_point, int16_t) { return signed_result<int16_t>(r, zero_point, -32768, 32767); }

uint8_t in_tail(float r, int32_t zero_point, uint8_t) { return unsigned_result_in_tail<uint8_t>(r, zero_point, 255); }
uint16_t in_tail(float r, int32_t zero_point, uint16_t) {
  return unsigned_result_in_tail<uint16_t>(r, zero_point, 65535);
}
int8_t in_tail(float r, int32_t zero_point, int8_t) { return signed_result<int8_t>(r, zero_point, -128, 127); }
int16_t in_tail(float r, int32_t zero_point, int16_t) { return signed_result<int16_t>(r, zero_point, -32768, 32767); }

template <class T>
void float_to_integer(const float *source, T *destination, uint32_t count, int16_t frac_bits, int32_t zero_point,
                      float scale, uint32_t block) {
  const int32_t n = -int32_t{frac_bits};
  const float multiplier = frac_bits >= 0 ? power_of_two(frac_bits) * scale : narrowed_quotient(n, scale);
  uint32_t i = 0;
  while (count - i >= block) {
    for (uint32_t lane = 0; lane < block; ++lane) {
      const float y = multiplier * load<float>(source + i + lane);
      store<T>(destination + i + lane, in_block(half_up_in_block(y), zero_point, T{}));
    }
    i += block;
  }
  for (; i < count; ++i) {
    const float y = multiplier * load<float>(source + i);
    store<T>(destination + i, in_tail(half_up_in_tail(y), zero_point, T{}));
  }
}

}  // namespace

void uint16tofloat_1d_neon(const uint16_t *source, float *destination, uint32_t count, int16_t frac_bits,
                           int32_t zero_point, float scale) {
  integer_to_float(source, destination, count, frac_bits, zero_point, scale);
}

void int16tofloat_1d_neon(const int16_t *source, float *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale) {
  integer_to_float(source, destination, count, frac_bits, zero_point, scale);
}

void uint8tofloat_1d_neon(const uint8_t *source, float *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale) {
  integer_to_float(source, destination, count, frac_bits, zero_point, scale);
}

void int8tofloat_1d_neon(const int8_t *source, float *destination, uint32_t count, int16_t frac_bits,
                         int32_t zero_point, float scale) {
  integer_to_float(source, destination, count, frac_bits, zero_point, scale);
}

void floattouint16_1d_neon(const float *source, uint16_t *destination, uint32_t count, int16_t frac_bits,
                           int32_t zero_point, float scale) {
  float_to_integer(source, destination, count, frac_bits, zero_point, scale, 16);
}

void floattoint16_1d_neon(const float *source, int16_t *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale) {
  float_to_integer(source, destination, count, frac_bits, zero_point, scale, 16);
}

void floattouint8_1d_neon(const float *source, uint8_t *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale) {
  float_to_integer(source, destination, count, frac_bits, zero_point, scale, 8);
}

void floattoint8_1d_neon(const float *source, int8_t *destination, uint32_t count, int16_t frac_bits,
                         int32_t zero_point, float scale) {
  float_to_integer(source, destination, count, frac_bits, zero_point, scale, 8);
}

}  // namespace reference
