/// \file tarvu_format_nd_reference.h
/// Plain twin of the zero-point conversions of tensors of up to six dimensions and of their entry points.
#ifndef TARVU_TESTS_REFERENCE_TARVU_FORMAT_ND_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_FORMAT_ND_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

void uint16tofloat_nd_neon(const uint16_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                           int16_t frac_bits, int32_t zero_point, float scale);
void int16tofloat_nd_neon(const int16_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale);
void uint8tofloat_nd_neon(const uint8_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale);
void int8tofloat_nd_neon(const int8_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                         int16_t frac_bits, int32_t zero_point, float scale);
void floattouint16_nd_neon(const float *source, uint16_t *destination, const uint32_t *shape, const uint32_t *stride,
                           int16_t frac_bits, int32_t zero_point, float scale);
void floattoint16_nd_neon(const float *source, int16_t *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale);
void floattouint8_nd_neon(const float *source, uint8_t *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale);
void floattoint8_nd_neon(const float *source, int8_t *destination, const uint32_t *shape, const uint32_t *stride,
                         int16_t frac_bits, int32_t zero_point, float scale);
void tarvu_fixtofloat_nd_neon(const void *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                              const _NN_FMT *fmt, const _NN_SCALE *scale, int32_t zero_point);
void tarvu_floattofix_nd_neon(const float *source, void *destination, const uint32_t *shape, const uint32_t *stride,
                              const _NN_FMT *fmt, const _NN_SCALE *scale, int32_t zero_point);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_FORMAT_ND_REFERENCE_H
