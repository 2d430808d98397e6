/// \file tarvu_softmax_asym_reference.h
/// Plain twin of softmax with zero points.
#ifndef TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_ASYM_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_ASYM_REFERENCE_H

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_softmax_asym_process(const _NN_SOFTMAX_ASYM_PARM *parm);
_QX_RESULT tarvu_softmax_asym_process_one_batch(const _NN_SOFTMAX_ASYM_PARM *parm, const void *in, void *out);
void tarvu_softmax_asym_axis2_4vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm);
void tarvu_softmax_asym_axis3_4vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm);
void tarvu_softmax_asym_axisn_1dim_vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_ASYM_REFERENCE_H
