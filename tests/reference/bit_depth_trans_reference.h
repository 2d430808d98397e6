/// \file bit_depth_trans_reference.h
/// Plain twin of the flat conversions and of the two byte shuffles.
#ifndef TARVU_TESTS_REFERENCE_BIT_DEPTH_TRANS_REFERENCE_H
#define TARVU_TESTS_REFERENCE_BIT_DEPTH_TRANS_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

void floattouint32_neon(const float *source, uint32_t *destination, int16_t frac_bits, uint32_t count, float scale);
void floattoint32_neon(const float *source, int32_t *destination, int16_t frac_bits, uint32_t count, float scale);
void floattouint16_neon(const float *source, uint16_t *destination, int16_t frac_bits, uint32_t count, float scale);
void floattoint16_neon(const float *source, int16_t *destination, int16_t frac_bits, uint32_t count, float scale);
void floattouint8_neon(const float *source, uint8_t *destination, int16_t frac_bits, uint32_t count, float scale);
void floattoint8_neon(const float *source, int8_t *destination, int16_t frac_bits, uint32_t count, float scale);
void uint32tofloat_neon(const uint32_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale);
void int32tofloat_neon(const int32_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale);
void uint16tofloat_neon(const uint16_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale);
void int16tofloat_neon(const int16_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale);
void uint8tofloat_neon(const uint8_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale);
void int8tofloat_neon(const int8_t *source, float *destination, int16_t frac_bits, uint32_t count, float scale);
void permute_data_in(const uint8_t *source, uint8_t *destination, uint32_t lanes, uint32_t total_bytes);
void permute_data_out(const uint8_t *source, uint8_t *destination, uint32_t lanes, uint32_t total_bytes);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_BIT_DEPTH_TRANS_REFERENCE_H
