/// \file tarvu_onehot_c_reference.h
/// Plain twin of the expansion of class indices.
#ifndef TARVU_TESTS_REFERENCE_TARVU_ONEHOT_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_ONEHOT_C_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_onehot_process(const _NN_ONEHOT_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_ONEHOT_C_REFERENCE_H
