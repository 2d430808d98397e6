/// \file tarvu_softmax_reference.h
/// Plain twin of softmax in floats, of its axis kernels and of the exponential.
#ifndef TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_softmax_process(const _NN_SOFTMAX_PARM *parm);
_QX_RESULT tarvu_softmax_process_one_batch(const _NN_SOFTMAX_PARM *parm, const void *in, void *out);
_QX_RESULT tarvu_softmax_process_0(const _NN_SOFTMAX_PARM *parm);
void tarvu_softmax_axis2_4vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm);
void tarvu_softmax_axis3_4vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm);
void tarvu_softmax_axisn_1dim_vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm);
float fast_exp(float x);
int32_t dataTransform_u16tofloat(const int16_t *in, float *out, int8_t shift, int32_t count);
int32_t write_file(const char *path, const float *values, int32_t count);

/// Axis 1: the columns along the channels. The product exports no such kernel.
void softmax_of_channel_columns(const float *in, float *out, const _NN_SOFTMAX_PARM *parm);

/// The number that a scale record stands for, as softmax and LRN read it.
float scale_as_float(const _NN_SCALE &scale);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_REFERENCE_H
