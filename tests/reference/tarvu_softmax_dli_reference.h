/// \file tarvu_softmax_dli_reference.h
/// Plain twin of the entry point that does nothing.
#ifndef TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_DLI_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_DLI_REFERENCE_H

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_dli_softmax_process(void);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_DLI_REFERENCE_H
