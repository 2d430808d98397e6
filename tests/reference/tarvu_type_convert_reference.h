/// \file tarvu_type_convert_reference.h
/// Plain twin of the zero-point conversions of flat runs.
#ifndef TARVU_TESTS_REFERENCE_TARVU_TYPE_CONVERT_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_TYPE_CONVERT_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

void uint16tofloat_1d_neon(const uint16_t *source, float *destination, uint32_t count, int16_t frac_bits,
                           int32_t zero_point, float scale);
void int16tofloat_1d_neon(const int16_t *source, float *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale);
void uint8tofloat_1d_neon(const uint8_t *source, float *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale);
void int8tofloat_1d_neon(const int8_t *source, float *destination, uint32_t count, int16_t frac_bits,
                         int32_t zero_point, float scale);
void floattouint16_1d_neon(const float *source, uint16_t *destination, uint32_t count, int16_t frac_bits,
                           int32_t zero_point, float scale);
void floattoint16_1d_neon(const float *source, int16_t *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale);
void floattouint8_1d_neon(const float *source, uint8_t *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale);
void floattoint8_1d_neon(const float *source, int8_t *destination, uint32_t count, int16_t frac_bits,
                         int32_t zero_point, float scale);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_TYPE_CONVERT_REFERENCE_H
