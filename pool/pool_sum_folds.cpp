// The folds of sums, by element type and width of the word.
#include "pool/pool_fold_of.h"

namespace tarvu {

const PoolFold &sum_fold(NN_AI_IO_TYPE element) {
  switch (element) {
    case NN_AI_IO_TYPE_INT8:
      return kPoolFold<SumFold<int8_t, uint32_t>>;
    case NN_AI_IO_TYPE_UINT8:
      return kPoolFold<SumFold<uint8_t, uint32_t>>;
    case NN_AI_IO_TYPE_INT16:
      return kPoolFold<SumFold<int16_t, uint32_t>>;
    default:
      return kPoolFold<SumFold<uint16_t, uint32_t>>;
  }
}

const PoolFold &narrow_sum_fold(NN_AI_IO_TYPE element) {
  static_assert(kMostNarrowElements == SumFold<int8_t, int16_t>::kMostElements);
  return element == NN_AI_IO_TYPE_INT8 ? kPoolFold<SumFold<int8_t, int16_t>> : kPoolFold<SumFold<uint8_t, uint16_t>>;
}

}  // namespace tarvu
