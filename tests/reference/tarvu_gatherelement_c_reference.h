/// \file tarvu_gatherelement_c_reference.h
/// Plain twin of the gathering of single elements.
#ifndef TARVU_TESTS_REFERENCE_TARVU_GATHERELEMENT_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_GATHERELEMENT_C_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_gatherelement_process(const _NN_GATHERELEMENT_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_GATHERELEMENT_C_REFERENCE_H
