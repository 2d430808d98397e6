/// \file tarvu_priorbox_reference.h
/// Plain twin of the prior boxes.
#ifndef TARVU_TESTS_REFERENCE_TARVU_PRIORBOX_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_PRIORBOX_REFERENCE_H

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_priorbox_process(const _NN_PRIORBOX_PARM *parm);
_QX_RESULT tarvu_priorbox_neon_func(const _NN_PRIORBOX_WORK *work, float *const regions[2]);
_QX_RESULT tarvu_priorbox_c_func(const _NN_PRIORBOX_WORK *work, float *const regions[2]);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_PRIORBOX_REFERENCE_H
