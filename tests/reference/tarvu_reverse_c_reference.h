/// \file tarvu_reverse_c_reference.h
/// Plain twin of Reverse.
#ifndef TARVU_TESTS_REFERENCE_TARVU_REVERSE_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_REVERSE_C_REFERENCE_H

#include "tarvu.h"

namespace reference {

/// `axis` has to be 0 to 3.
_QX_RESULT tarvu_reverse_process(const _NN_REVERSE_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_REVERSE_C_REFERENCE_H
