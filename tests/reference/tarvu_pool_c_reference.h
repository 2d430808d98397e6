/// \file tarvu_pool_c_reference.h
/// Plain twin of pooling.
#ifndef TARVU_TESTS_REFERENCE_TARVU_POOL_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_POOL_C_REFERENCE_H

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_pool_process(const _NN_POOL_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_POOL_C_REFERENCE_H
