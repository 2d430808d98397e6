#include "tests/reference/tarvu_softmax_dli_reference.h"

namespace reference {

_QX_RESULT tarvu_dli_softmax_process(void) { return QX_OK; }

}  // namespace reference
