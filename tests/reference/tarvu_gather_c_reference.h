/// \file tarvu_gather_c_reference.h
/// Plain twin of the gathering of slices by a list of positions.
#ifndef TARVU_TESTS_REFERENCE_TARVU_GATHER_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_GATHER_C_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_gather_process(const _NN_GATHER_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_GATHER_C_REFERENCE_H
