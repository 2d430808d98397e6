/// \file tarvu_permute_c_reference.h
/// Plain twin of Permute.
#ifndef TARVU_TESTS_REFERENCE_TARVU_PERMUTE_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_PERMUTE_C_REFERENCE_H

#include "tarvu.h"

namespace reference {

/// Every entry of `order` has to be 0 to 3; on the line path (`order[3]` is 3) the first three have to be 0 to 2.
_QX_RESULT tarvu_permute_process(const _NN_PERMUTE_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_PERMUTE_C_REFERENCE_H
