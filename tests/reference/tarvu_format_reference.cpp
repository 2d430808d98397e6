#include "tarvu_format_reference.h"

#include "bit_depth_trans_reference.h"
#include "bit_depth_trans_rnd_reference.h"
#include "processor_rules.h"
#include "tarvu_type_convert_reference.h"

namespace reference {
namespace {

float scale_of(const _NN_SCALE &record) {
  const float value = static_cast<float>(record.scale_value);
  if (record.scale_shift >= 0) return value / static_cast<float>(shift_left_32(1, record.scale_shift));
  return static_cast<float>(shift_left_32(1, -int32_t{record.scale_shift})) * value;
}

}  // namespace

void tarvu_fixtofloat_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                           const _NN_SCALE *scale) {
  const _NN_FMT format = load<_NN_FMT>(fmt);
  const int32_t width = int32_t{format.frac_bits} + int32_t{format.int_bits} + int32_t{format.sign_bits};
  const float s = scale_of(load<_NN_SCALE>(scale));
  if (format.sign_bits == 0 && width == 8) {
    reference::uint8tofloat_neon(static_cast<const uint8_t *>(source), destination, format.frac_bits, count, s);
  }
  if (format.sign_bits == 0 && width == 16) {
    reference::uint16tofloat_neon(static_cast<const uint16_t *>(source), destination, format.frac_bits, count, s);
  }
  if (format.sign_bits == 1 && width == 8) {
    reference::int8tofloat_neon(static_cast<const int8_t *>(source), destination, format.frac_bits, count, s);
  }
  if (format.sign_bits == 1 && width == 16) {
    reference::int16tofloat_neon(static_cast<const int16_t *>(source), destination, format.frac_bits, count, s);
  }
}

void tarvu_floattofix_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                           const _NN_SCALE *scale) {
  const _NN_FMT format = load<_NN_FMT>(fmt);
  const int32_t width = int32_t{format.frac_bits} + int32_t{format.int_bits} + int32_t{format.sign_bits};
  const float s = scale_of(load<_NN_SCALE>(scale));
  if (format.sign_bits == 0 && width == 8) {
    reference::floattouint8_neon(source, static_cast<uint8_t *>(destination), format.frac_bits, count, s);
  }
  if (format.sign_bits == 0 && width == 16) {
    reference::floattouint16_neon(source, static_cast<uint16_t *>(destination), format.frac_bits, count, s);
  }
  if (format.sign_bits == 1 && width == 8) {
    reference::floattoint8_neon(source, static_cast<int8_t *>(destination), format.frac_bits, count, s);
  }
  if (format.sign_bits == 1 && width == 16) {
    reference::floattoint16_neon(source, static_cast<int16_t *>(destination), format.frac_bits, count, s);
  }
}

void tarvu_floattofix_rnd_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                               const _NN_SCALE *scale, uint32_t rounding_code) {
  const _NN_FMT format = load<_NN_FMT>(fmt);
  const int32_t width = int32_t{format.frac_bits} + int32_t{format.int_bits} + int32_t{format.sign_bits};
  const float s = scale_of(load<_NN_SCALE>(scale));
  if (format.sign_bits == 0 && width == 8) {
    reference::floattouint8_rnd_neon(source, static_cast<uint8_t *>(destination), format.frac_bits, count,
                                     rounding_code, s);
  }
  if (format.sign_bits == 0 && width == 16) {
    reference::floattouint16_rnd_neon(source, static_cast<uint16_t *>(destination), format.frac_bits, count,
                                      rounding_code, s);
  }
  if (format.sign_bits == 1 && width == 8) {
    reference::floattoint8_rnd_neon(source, static_cast<int8_t *>(destination), format.frac_bits, count, rounding_code,
                                    s);
  }
  if (format.sign_bits == 1 && width == 16) {
    reference::floattoint16_rnd_neon(source, static_cast<int16_t *>(destination), format.frac_bits, count,
                                     rounding_code, s);
  }
}

void tarvu_fixtofloat_1d_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                              const _NN_SCALE *scale, int32_t zero_point) {
  const _NN_FMT format = load<_NN_FMT>(fmt);
  const int32_t width = int32_t{format.frac_bits} + int32_t{format.int_bits} + int32_t{format.sign_bits};
  const float s = scale_of(load<_NN_SCALE>(scale));
  if (format.sign_bits == 0 && width == 8) {
    reference::uint8tofloat_1d_neon(static_cast<const uint8_t *>(source), destination, count, format.frac_bits,
                                    zero_point, s);
  }
  if (format.sign_bits == 0 && width == 16) {
    reference::uint16tofloat_1d_neon(static_cast<const uint16_t *>(source), destination, count, format.frac_bits,
                                     zero_point, s);
  }
  if (format.sign_bits == 1 && width == 8) {
    reference::int8tofloat_1d_neon(static_cast<const int8_t *>(source), destination, count, format.frac_bits,
                                   zero_point, s);
  }
  if (format.sign_bits == 1 && width == 16) {
    reference::int16tofloat_1d_neon(static_cast<const int16_t *>(source), destination, count, format.frac_bits,
                                    zero_point, s);
  }
}

void tarvu_floattofix_1d_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                              const _NN_SCALE *scale, int32_t zero_point) {
  const _NN_FMT format = load<_NN_FMT>(fmt);
  const int32_t width = int32_t{format.frac_bits} + int32_t{format.int_bits} + int32_t{format.sign_bits};
  const float s = scale_of(load<_NN_SCALE>(scale));
  if (format.sign_bits == 0 && width == 8) {
    reference::floattouint8_1d_neon(source, static_cast<uint8_t *>(destination), count, format.frac_bits, zero_point,
                                    s);
  }
  if (format.sign_bits == 0 && width == 16) {
    reference::floattouint16_1d_neon(source, static_cast<uint16_t *>(destination), count, format.frac_bits, zero_point,
                                     s);
  }
  if (format.sign_bits == 1 && width == 8) {
    reference::floattoint8_1d_neon(source, static_cast<int8_t *>(destination), count, format.frac_bits, zero_point, s);
  }
  if (format.sign_bits == 1 && width == 16) {
    reference::floattoint16_1d_neon(source, static_cast<int16_t *>(destination), count, format.frac_bits, zero_point,
                                    s);
  }
}

}  // namespace reference
