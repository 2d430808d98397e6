#include "bit_depth_trans_rnd_reference.h"

#include <cmath>
#include <cstdio>

#include "processor_rules.h"

namespace reference {
namespace {

int32_t truncated_word(float y) { return float_to_s32(static_cast<double>(y)); }

/// The least integer stays as it is.
int32_t absolute(int32_t t) { return t < 0 ? subtract_32(0, t) : t; }

/// Ties to even whatever the rounding environment; the difference is exact in double wherever it comes near one half.
float nearest_even(float y) {
  if (!std::isfinite(y)) return y;
  const double below = std::floor(static_cast<double>(y));
  const double part = static_cast<double>(y) - below;
  if (part < 0.5) return static_cast<float>(below);
  if (part > 0.5) return static_cast<float>(below + 1.0);
  return static_cast<float>(std::floor(below * 0.5) * 2.0 == below ? below : below + 1.0);
}

float rounded_in_block(float y, uint32_t code) {
  switch (code) {
    case 0:
      return std::floor(y);
    case 1:
      return std::ceil(y);
    case 2:
      return std::trunc(y);
    case 3:
      return std::round(y);
    case 4:
      return std::ceil(y - 0.5f);
    case 5:
      return std::floor(y + 0.5f);
    case 6:
      if (y > 0.0f) return std::ceil(y - 0.5f);
      return -std::ceil(std::fabs(y) - 0.5f);
    case 7:
      if (y > 0.0f) return std::floor(y + 0.5f);
      return -std::floor(std::fabs(y) + 0.5f);
    case 8:
      return nearest_even(y);
    case 9:
      if (truncated_word(y) % 2 == 0) return y > 0.0f ? std::floor(y + 0.5f) : std::ceil(y - 0.5f);
      return y > 0.0f ? std::ceil(y - 0.5f) : -std::ceil(std::fabs(y) - 0.5f);
    case 10:
      return y > 0.0f ? std::floor(y + 0.5f) : std::ceil(y - 0.5f);
    default:
      return std::rint(y);
  }
}

float rounded_in_tail(float y, uint32_t code) {
  const double wide = static_cast<double>(y);
  const int32_t t = truncated_word(y);
  const double t_size = static_cast<double>(absolute(t));
  switch (code) {
    case 0:
      return static_cast<float>(std::floor(wide));
    case 1:
      return static_cast<float>(std::ceil(wide));
    case 2:
      return static_cast<float>(y > 0.0f ? std::floor(wide) : std::ceil(wide));
    case 3:
      if (y > 0.0f) return y + 0.5f;
      if (y < 0.0f) return y - 0.5f;
      return 0.0f;
    case 4:
      return static_cast<float>(std::ceil(wide - 0.5));
    case 5:
      return static_cast<float>(std::floor(wide + 0.5));
    case 6:
      return static_cast<float>(y > 0.0f ? std::ceil(wide - 0.5) : -std::ceil(t_size - 0.5));
    case 7:
      return static_cast<float>(y > 0.0f ? std::floor(wide + 0.5) : -std::floor(t_size + 0.5));
    case 8:
      return static_cast<float>(std::nearbyint(wide));
    case 9:
      if (t % 2 == 0) return static_cast<float>(y > 0.0f ? std::floor(wide + 0.5) : std::ceil(wide - 0.5));
      return static_cast<float>(y > 0.0f ? std::ceil(wide - 0.5) : -std::ceil(t_size - 0.5));
    case 10:
      return static_cast<float>(y > 0.0f ? std::floor(wide + 0.5) : std::ceil(wide - 0.5));
    case 11:
      return static_cast<float>(std::rint(wide));
    default:
      return y;
  }
}

float clamped(float y, float lower, float upper) {
  if (y > upper) return upper;
  if (y < lower) return lower;
  return y;
}

uint32_t truncated(float y, uint32_t) { return float_to_u32(static_cast<double>(y)); }
int32_t truncated(float y, int32_t) { return float_to_s32(static_cast<double>(y)); }

/// `Word` is the 32-bit integer that a float is converted to before it is narrowed to T.
template <class Word, class T>
void float_to_integer(const float *source, T *destination, int16_t frac_bits, uint32_t count, uint32_t code,
                      float scale, float lower, float upper, uint32_t block, const char *line_of_code_11) {
  float multiplier;
  if (frac_bits >= 0) {
    multiplier = static_cast<float>(shift_left_32(1, frac_bits)) * scale;
  } else {
    const float power = static_cast<float>(shift_left_32(1, -int32_t{frac_bits}));
    multiplier = static_cast<float>(1.0 / static_cast<double>(power) * static_cast<double>(scale));
  }
  uint32_t i = 0;
  while (count - i >= block) {
    if (code > 11) std::printf("no rounding method!!!\r\n");
    if (code == 11) std::printf("%s", line_of_code_11);
    for (uint32_t lane = 0; lane < block && code <= 11; ++lane) {
      const float y = clamped(multiplier * load<float>(source + i + lane), lower, upper);
      store<T>(destination + i + lane, static_cast<T>(truncated(rounded_in_block(y, code), Word{})));
    }
    i += block;
  }
  for (; i < count; ++i) {
    const float y = clamped(multiplier * load<float>(source + i), lower, upper);
    if (code > 11) std::printf("no rounding method!!!\r\n");
    store<T>(destination + i, static_cast<T>(truncated(rounded_in_tail(y, code), Word{})));
  }
}

}  // namespace

void floattouint32_rnd_neon(const float *source, uint32_t *destination, int16_t frac_bits, uint32_t count,
                            uint32_t rounding_code, float scale) {
  float_to_integer<uint32_t, uint32_t>(source, destination, frac_bits, count, rounding_code, scale, 0.0f, 4294967296.0f,
                                       16, "");
}

void floattoint32_rnd_neon(const float *source, int32_t *destination, int16_t frac_bits, uint32_t count,
                           uint32_t rounding_code, float scale) {
  float_to_integer<int32_t, int32_t>(source, destination, frac_bits, count, rounding_code, scale, -2147483648.0f,
                                     2147483648.0f, 16, "");
}

void floattouint16_rnd_neon(const float *source, uint16_t *destination, int16_t frac_bits, uint32_t count,
                            uint32_t rounding_code, float scale) {
  float_to_integer<uint32_t, uint16_t>(source, destination, frac_bits, count, rounding_code, scale, 0.0f, 65535.0f, 16,
                                       "");
}

void floattoint16_rnd_neon(const float *source, int16_t *destination, int16_t frac_bits, uint32_t count,
                           uint32_t rounding_code, float scale) {
  float_to_integer<int32_t, int16_t>(source, destination, frac_bits, count, rounding_code, scale, -32768.0f, 32767.0f,
                                     16, "");
}

void floattouint8_rnd_neon(const float *source, uint8_t *destination, int16_t frac_bits, uint32_t count,
                           uint32_t rounding_code, float scale) {
  float_to_integer<uint32_t, uint8_t>(source, destination, frac_bits, count, rounding_code, scale, 0.0f, 255.0f, 8, "");
}

void floattoint8_rnd_neon(const float *source, int8_t *destination, int16_t frac_bits, uint32_t count,
                          uint32_t rounding_code, float scale) {
  float_to_integer<int32_t, int8_t>(source, destination, frac_bits, count, rounding_code, scale, -128.0f, 127.0f, 8,
                                    "toint8 to rint\r\n");
}

}  // namespace reference
