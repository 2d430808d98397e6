/// \file pool_local.h
/// Maxima and averages of windows that move over a plane, for all planes.
#ifndef TARVU_POOL_POOL_LOCAL_H
#define TARVU_POOL_POOL_LOCAL_H

#include "tarvu.h"

namespace tarvu {

void pool_local_maximum(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out);
/// With the padding counted or not, as the block says.
void pool_local_average(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out);

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_LOCAL_H
