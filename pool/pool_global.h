/// \file pool_global.h
/// One maximum or average of a whole plane, for all planes.
#ifndef TARVU_POOL_POOL_GLOBAL_H
#define TARVU_POOL_POOL_GLOBAL_H

#include "tarvu.h"

namespace tarvu {

void pool_global_maximum(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out);
void pool_global_average(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out);

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_GLOBAL_H
