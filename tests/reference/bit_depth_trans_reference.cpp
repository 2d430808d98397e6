#include "bit_depth_trans_reference.h"

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

uint32_t truncated(float y, uint32_t) { return float_to_u32(static_cast<double>(y)); }
int32_t truncated(float y, int32_t) { return float_to_s32(static_cast<double>(y)); }

/// `Word` is the 32-bit integer that a float is converted to before it is narrowed to T.
template <class Word, class T>
void float_to_integer(const float *source, T *destination, int16_t frac_bits, uint32_t count, float scale, float lower,
                      float upper, T lower_value, T upper_value) {
  float bias;
  float multiplier;
  if (frac_bits >= 0) {
    bias = 0.0f;
    multiplier = power_of_two(frac_bits) * scale;
  } else {
    const int32_t n = -int32_t{frac_bits};
    bias = power_of_two(n - 1);
    multiplier = narrowed_quotient(n, scale);
  }
  for (uint32_t i = 0; i < count; ++i) {
    const float x = load<float>(source + i);
    const float sum = x + bias;
    const float y = sum * multiplier;
    T stored;
    if (y > upper) {
      stored = upper_value;
    } else if (y < lower) {
      stored = lower_value;
    } else {
      stored = static_cast<T>(truncated(y, Word{}));
    }
    store<T>(destination + i, stored);
  }
}

template <class T>
void integer_to_float(const T *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  const int32_t n = -int32_t{frac_bits};
  const float multiplier = frac_bits >= 0 ? narrowed_quotient(frac_bits, scale) : power_of_two(n) * scale;
  for (uint32_t i = 0; i < count; ++i) {
    const float x = static_cast<float>(load<T>(source + i));
    store<float>(destination + i, x * multiplier);
  }
}

}  // namespace

void floattouint32_neon(const float *source, uint32_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  float_to_integer<uint32_t, uint32_t>(source, destination, frac_bits, count, scale, 0.0f, 4294967296.0f, 0u,
                                       4294967295u);
}

void floattoint32_neon(const float *source, int32_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  float_to_integer<int32_t, int32_t>(source, destination, frac_bits, count, scale, -2147483648.0f, 2147483648.0f,
                                     INT32_MIN, INT32_MAX);
}

void floattouint16_neon(const float *source, uint16_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  float_to_integer<uint32_t, uint16_t>(source, destination, frac_bits, count, scale, 0.0f, 65535.0f, 0, 65535);
}

void floattoint16_neon(const float *source, int16_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  float_to_integer<int32_t, int16_t>(source, destination, frac_bits, count, scale, -32768.0f, 32767.0f, -32768, 32767);
}

void floattouint8_neon(const float *source, uint8_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  float_to_integer<uint32_t, uint8_t>(source, destination, frac_bits, count, scale, 0.0f, 255.0f, 0, 255);
}

void floattoint8_neon(const float *source, int8_t *destination, int16_t frac_bits, uint32_t count, float scale) {
  float_to_integer<int32_t, int8_t>(source, destination, frac_bits, count, scale, -128.0f, 127.0f, -128, 127);
}

void uint32tofloat_neon(const uint32_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  integer_to_float(source, destination, frac_bits, count, scale);
}

void int32tofloat_neon(const int32_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  integer_to_float(source, destination, frac_bits, count, scale);
}

void uint16tofloat_neon(const uint16_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  integer_to_float(source, destination, frac_bits, count, scale);
}

void int16tofloat_neon(const int16_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  integer_to_float(source, destination, frac_bits, count, scale);
}

void uint8tofloat_neon(const uint8_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  integer_to_float(source, destination, frac_bits, count, scale);
}

void int8tofloat_neon(const int8_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale) {
  integer_to_float(source, destination, frac_bits, count, scale);
}

void permute_data_in(const uint8_t *source, uint8_t *destination, uint32_t lanes, uint32_t total_bytes) {
  if (lanes == 0) return;
  const uint32_t q = total_bytes / lanes;
  for (uint32_t i = 0; i < lanes; ++i) {
    for (uint32_t j = 0; j < q; ++j) destination[i * q + j] = source[j * lanes + i];
  }
}

void permute_data_out(const uint8_t *source, uint8_t *destination, uint32_t lanes, uint32_t total_bytes) {
  if (lanes == 0) return;
  const uint32_t q = total_bytes / lanes;
  for (uint32_t i = 0; i < lanes; ++i) {
    for (uint32_t j = 0; j < q; ++j) destination[j * lanes + i] = source[i * q + j];
  }
}

}  // namespace reference
