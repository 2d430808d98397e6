/// \file tarvu_topk_c_reference.h
/// Plain twin of the selection of the best elements of each line.
#ifndef TARVU_TESTS_REFERENCE_TARVU_TOPK_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_TOPK_C_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_topk_process(const _NN_TOPK_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_TOPK_C_REFERENCE_H
