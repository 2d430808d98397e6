/// \file tarvu_gridsample_reference.h
/// Plain twin of the resampling of an image at the positions of a grid.
#ifndef TARVU_TESTS_REFERENCE_TARVU_GRIDSAMPLE_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_GRIDSAMPLE_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_gridsample_process(const _NN_GRIDSAMPLE_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_GRIDSAMPLE_REFERENCE_H
