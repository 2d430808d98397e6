/// \file tarvu_nms_c_reference.h
/// Plain twin of the standalone non-maximum suppression.
#ifndef TARVU_TESTS_REFERENCE_TARVU_NMS_C_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_NMS_C_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_nms_process(const _NN_NMS_PARM *parm);
int32_t nms_process_c(_NN_NMS_OBJ *objs, int32_t obj_num, int32_t max_obj_num, float threshold);
void q_sort(_NN_NMS_OBJ *objs, int32_t left, int32_t right);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_NMS_C_REFERENCE_H
