/// \file bit_depth_trans_rnd_reference.h
/// Plain twin of the rounded conversions. Built with -frounding-math: two codes follow the rounding environment.
#ifndef TARVU_TESTS_REFERENCE_BIT_DEPTH_TRANS_RND_REFERENCE_H
#define TARVU_TESTS_REFERENCE_BIT_DEPTH_TRANS_RND_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

void floattouint32_rnd_neon(const float *source, uint32_t *destination, int16_t frac_bits, uint32_t count,
                            uint32_t rounding_code, float scale);
void floattoint32_rnd_neon(const float *source, int32_t *destination, int16_t frac_bits, uint32_t count,
                           uint32_t rounding_code, float scale);
void floattouint16_rnd_neon(const float *source, uint16_t *destination, int16_t frac_bits, uint32_t count,
                            uint32_t rounding_code, float scale);
void floattoint16_rnd_neon(const float *source, int16_t *destination, int16_t frac_bits, uint32_t count,
                           uint32_t rounding_code, float scale);
void floattouint8_rnd_neon(const float *source, uint8_t *destination, int16_t frac_bits, uint32_t count,
                           uint32_t rounding_code, float scale);
void floattoint8_rnd_neon(const float *source, int8_t *destination, int16_t frac_bits, uint32_t count,
                          uint32_t rounding_code, float scale);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_BIT_DEPTH_TRANS_RND_REFERENCE_H
