// The folds of maxima, by element type.
#include "pool/pool_fold_of.h"

namespace tarvu {

const PoolFold &maximum_fold(NN_AI_IO_TYPE element) {
  switch (element) {
    case NN_AI_IO_TYPE_INT8:
      return kPoolFold<MaximumFold<int8_t>>;
    case NN_AI_IO_TYPE_UINT8:
      return kPoolFold<MaximumFold<uint8_t>>;
    case NN_AI_IO_TYPE_INT16:
      return kPoolFold<MaximumFold<int16_t>>;
    default:
      return kPoolFold<MaximumFold<uint16_t>>;
  }
}

}  // namespace tarvu
