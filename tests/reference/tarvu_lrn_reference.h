/// \file tarvu_lrn_reference.h
/// Plain twin of LRN, of its two kernels and of the power.
#ifndef TARVU_TESTS_REFERENCE_TARVU_LRN_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_LRN_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_lrn_process(const _NN_LRN_PARM *parm);
int32_t tarvu_lrn_neon_func(const float *in, float *out, float *sums, float *squares, int32_t lrn_k, uint32_t num,
                            uint32_t local_size, uint32_t channels, float alpha_n, float beta, uint32_t width,
                            uint32_t height, uint32_t half);
int32_t tarvu_lrn_c_func(const float *in, float *out, float *sums, float *squares, int32_t lrn_k, uint32_t num,
                         uint32_t local_size, uint32_t channels, float alpha_n, float beta, uint32_t width,
                         uint32_t height, uint32_t half);
float fast_Pow(float x, float p);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_LRN_REFERENCE_H
