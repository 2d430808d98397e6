/// \file tarvu_norm_reference.h
/// Plain twin of the L2 norm with learned scales, and of the reciprocal square root estimate that it needs.
#ifndef TARVU_TESTS_REFERENCE_TARVU_NORM_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_NORM_REFERENCE_H

#include "tarvu.h"

namespace reference {

/// The Arm instruction FRSQRTE for one float, as the architecture publishes it: some 8 significant bits. Zeros give
/// infinity of their sign, negative numbers NaN, infinity 0; subnormal numbers count in full.
float reciprocal_square_root_estimate(float x);

_QX_RESULT tarvu_norm_process(const _NN_NORM_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_NORM_REFERENCE_H
