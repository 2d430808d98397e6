// The folds of sums, by element type and width of the word.
#include "frame/element_type.h"
#include "pool/pool_fold_functions.h"

namespace tarvu {

const PoolFold &sum_fold(SumWord word, NN_AI_IO_TYPE element) {
  static_assert(kMostNarrowElements == SumFold<int8_t, int16_t>::kMostElements);
  if (word == SumWord::kInt16) return kPoolFold<SumFold<int8_t, int16_t>>;
  if (word == SumWord::kUint16) return kPoolFold<SumFold<uint8_t, uint16_t>>;
  return *with_element_type(element, [](auto e) { return &kPoolFold<SumFold<decltype(e), uint32_t>>; });
}

}  // namespace tarvu
