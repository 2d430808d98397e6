/// \file tarvu_fc_post_c_reference.h
/// Plain twin of the requantisation behind a fully-connected layer.
#ifndef TARVU_TESTS_REFERENCE_TARVU_FC_POST_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_FC_POST_C_REFERENCE_H

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_fc_post_process(const _NN_FC_POST_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_FC_POST_C_REFERENCE_H
