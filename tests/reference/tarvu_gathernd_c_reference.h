/// \file tarvu_gathernd_c_reference.h
/// Plain twins of the gathering of slices by tuples of coordinates and of its extent helpers.
#ifndef TARVU_TESTS_REFERENCE_TARVU_GATHERND_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_GATHERND_C_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

uint32_t size_to_dimension(const uint32_t *dims, uint32_t n);
uint32_t size_from_dimension(const uint32_t *dims, uint32_t n);
uint32_t chk_input_offset(const uint32_t *dims);
_QX_RESULT tarvu_gathernd_process(const _NN_GATHERND_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_GATHERND_C_REFERENCE_H
