// The folds of maxima, by element type.
#include "frame/element_type.h"
#include "pool/pool_fold_functions.h"

namespace tarvu {

const PoolFold &maximum_fold(NN_AI_IO_TYPE element) {
  return *with_element_type(element, [](auto e) { return &kPoolFold<MaximumFold<decltype(e)>>; });
}

}  // namespace tarvu
