/// \file tarvu_format_reference.h
/// Plain twin of the conversions that choose their kernel by format and scale.
#ifndef TARVU_TESTS_REFERENCE_TARVU_FORMAT_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_FORMAT_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

void tarvu_fixtofloat_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                           const _NN_SCALE *scale);
void tarvu_floattofix_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                           const _NN_SCALE *scale);
void tarvu_floattofix_rnd_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                               const _NN_SCALE *scale, uint32_t rounding_code);
void tarvu_fixtofloat_1d_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                              const _NN_SCALE *scale, int32_t zero_point);
void tarvu_floattofix_1d_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                              const _NN_SCALE *scale, int32_t zero_point);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_FORMAT_REFERENCE_H
