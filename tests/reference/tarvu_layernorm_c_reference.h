/// \file tarvu_layernorm_c_reference.h
/// Plain twin of layer normalisation in the form with double statistics, and the flow that both forms share.
#ifndef TARVU_TESTS_REFERENCE_TARVU_LAYERNORM_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_LAYERNORM_C_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_layernorm_process(_NN_LAYERNORM_PARM *parm);

/// One run of `length` floats at the address `in`, to the address `out`; both may be odd.
using LayernormRun = void (*)(const _NN_LAYERNORM_PARM *parm, uint64_t in, uint64_t out, uint32_t length);

/// The steps around the runs: sizes and axis of the block, scratch, both conversions, the walk over all runs.
_QX_RESULT normalise_all_runs(_NN_LAYERNORM_PARM *parm, LayernormRun run);

/// gamma and beta on one normalised value, each where it is present.
float with_gamma_and_beta(const _NN_LAYERNORM_PARM *parm, uint32_t index, float y);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_LAYERNORM_C_REFERENCE_H
