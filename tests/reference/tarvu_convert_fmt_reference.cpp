#include "tests/reference/tarvu_convert_fmt_reference.h"

#include <cstddef>
#include <cstring>

#include "tests/reference/processor_rules.h"

namespace reference {
namespace {

enum class Direction { kRight, kNone, kLeft };

/// Width in bits: the sum of the three bytes modulo 256, as a signed byte.
int32_t width_bits(const _NN_FMT *fmt) {
  const uint32_t sum = static_cast<uint32_t>(fmt->frac_bits) + static_cast<uint32_t>(fmt->int_bits) +
                       static_cast<uint32_t>(fmt->sign_bits);
  return static_cast<int8_t>(static_cast<uint8_t>(sum));
}

int32_t clamp_signed(int32_t x, int32_t low, int32_t high) {
  if (x < low) return low;
  if (x > high) return high;
  return x;
}

uint32_t clamp_above(uint32_t x, uint32_t high) { return x > high ? high : x; }

int32_t signed_element(int32_t x, int32_t in_width, int32_t out_width, Direction direction, int32_t amount) {
  const int32_t low = out_width == 8 ? -128 : -32768;
  const int32_t high = out_width == 8 ? 127 : 32767;
  switch (direction) {
    case Direction::kRight:
      x = shift_right_32(x, amount);
      return out_width == 8 && in_width == 16 ? clamp_signed(x, low, high) : x;
    case Direction::kNone:
      return out_width == 8 ? clamp_signed(x, low, high) : x;
    case Direction::kLeft:
      return clamp_signed(shift_left_32(x, amount), low, high);
  }
  return x;
}

uint32_t unsigned_element(uint32_t x, int32_t in_width, int32_t out_width, Direction direction, int32_t amount) {
  const uint32_t high = out_width == 8 ? 255 : 65535;
  switch (direction) {
    case Direction::kRight:
      return clamp_above(shift_right_u32(x, amount), high);
    case Direction::kNone:
      return out_width == 16 && in_width == 8 ? x : clamp_above(x, high);
    case Direction::kLeft:
      return clamp_above(static_cast<uint32_t>(shift_left_32(static_cast<int32_t>(x), amount)), high);
  }
  return x;
}

}  // namespace

void tarvu_convert_fmt_c(const void *source, void *destination, uint32_t count, const _NN_FMT *in_fmt,
                         const _NN_FMT *out_fmt, const _NN_SCALE *, const _NN_SCALE *) {
  const int32_t in_width = width_bits(in_fmt);
  const int32_t out_width = width_bits(out_fmt);
  const int32_t in_frac_bits = in_fmt->frac_bits;
  const int32_t out_frac_bits = out_fmt->frac_bits;
  const bool out_is_signed = out_fmt->sign_bits != 0;

  if (in_width == out_width && in_frac_bits == out_frac_bits) {
    if (source == destination || count == 0) return;
    if (in_width == 8) std::memcpy(destination, source, count);
    if (in_width == 16) std::memcpy(destination, source, size_t{2} * count);
    return;
  }
  if (out_width != 8 && out_width != 16) return;

  const int32_t difference = in_frac_bits - out_frac_bits;
  const int32_t amount = difference < 0 ? -difference : difference;
  const Direction direction = difference > 0 ? Direction::kRight : difference < 0 ? Direction::kLeft : Direction::kNone;
  const auto *in = static_cast<const uint8_t *>(source);
  auto *out = static_cast<uint8_t *>(destination);

  for (uint32_t i = 0; i < count; ++i) {
    uint32_t element = 0;
    if (in_width == 8) {
      const uint8_t raw = load<uint8_t>(in + i);
      element = out_is_signed ? static_cast<uint32_t>(static_cast<int8_t>(raw)) : raw;
    } else if (in_width == 16) {
      const uint16_t raw = load<uint16_t>(in + size_t{2} * i);
      element = out_is_signed ? static_cast<uint32_t>(static_cast<int16_t>(raw)) : raw;
    } else {
      continue;
    }
    const uint32_t result = out_is_signed ? static_cast<uint32_t>(signed_element(
                                                static_cast<int32_t>(element), in_width, out_width, direction, amount))
                                          : unsigned_element(element, in_width, out_width, direction, amount);
    if (out_width == 8) {
      store<uint8_t>(out + i, static_cast<uint8_t>(result));
    } else {
      store<uint16_t>(out + size_t{2} * i, static_cast<uint16_t>(result));
    }
  }
}

}  // namespace reference
