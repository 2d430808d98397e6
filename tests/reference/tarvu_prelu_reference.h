/// \file tarvu_prelu_reference.h
/// Plain twin of PReLU and of its kernels.
#ifndef TARVU_TESTS_REFERENCE_TARVU_PRELU_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_PRELU_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_prelu_process(const _NN_PRELU_PARM *parm);
int32_t tarvu_prelu_neon_func_int8(const int8_t *in, int8_t *out, int8_t weight, uint32_t count, int8_t shift);
int32_t tarvu_prelu_neon_func_int16(const int16_t *in, int16_t *out, int8_t weight, uint32_t count, int8_t shift);
int32_t tarvu_prelu_c_func_int8(const int8_t *in, const int8_t *weights, int8_t *out, uint32_t modulus, int8_t shift,
                                int32_t count, int32_t divisor_a, uint32_t divisor_b);
int32_t tarvu_prelu_c_func_int16(const int16_t *in, const int8_t *weights, int16_t *out, uint32_t modulus, int8_t shift,
                                 int32_t count, int32_t divisor_a, uint32_t divisor_b);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_PRELU_REFERENCE_H
