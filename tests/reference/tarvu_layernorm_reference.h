/// \file tarvu_layernorm_reference.h
/// Plain twin of layer normalisation in the float form with the constant mean.
#ifndef TARVU_TESTS_REFERENCE_TARVU_LAYERNORM_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_LAYERNORM_REFERENCE_H

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_layernorm_process_neon(_NN_LAYERNORM_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_LAYERNORM_REFERENCE_H
