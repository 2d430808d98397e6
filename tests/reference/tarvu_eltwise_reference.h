/// \file tarvu_eltwise_reference.h
/// Plain twin of the element-wise product and weighted sum.
#ifndef TARVU_TESTS_REFERENCE_TARVU_ELTWISE_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_ELTWISE_REFERENCE_H

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_eltwise_process(const _NN_ELTWISE_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_ELTWISE_REFERENCE_H
