/// \file plain_layers.cpp
/// The layers of the example by their plain scalar twins. Linked in place of the library, it gives the digests that the tests
/// expect of the library.

#include "tarvu.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/reference/tarvu_eltwise_reference.h"
#include "tests/reference/tarvu_format_reference.h"
#include "tests/reference/tarvu_gather_c_reference.h"
#include "tests/reference/tarvu_gridsample_reference.h"
#include "tests/reference/tarvu_nms_c_reference.h"
#include "tests/reference/tarvu_permute_c_reference.h"
#include "tests/reference/tarvu_pool_c_reference.h"
#include "tests/reference/tarvu_priorbox_reference.h"
#include "tests/reference/tarvu_reverse_c_reference.h"
#include "tests/reference/tarvu_softmax_reference.h"
#include "tests/reference/tarvu_softmax_table_reference.h"
#include "tests/reference/tarvu_topk_c_reference.h"

const char *prebuilt_ai_get_lib_version() { return "of plain layers"; }

_QX_RESULT tarvu_detout_process(const _NN_DETOUT_PARM *parm) { return reference::tarvu_detout_process(parm); }

_QX_RESULT tarvu_eltwise_process(const _NN_ELTWISE_PARM *parm) { return reference::tarvu_eltwise_process(parm); }

_QX_RESULT tarvu_gather_process(const _NN_GATHER_PARM *parm) { return reference::tarvu_gather_process(parm); }

_QX_RESULT tarvu_gridsample_process(const _NN_GRIDSAMPLE_PARM *parm) {
  return reference::tarvu_gridsample_process(parm);
}

_QX_RESULT tarvu_nms_process(const _NN_NMS_PARM *parm) { return reference::tarvu_nms_process(parm); }

_QX_RESULT tarvu_permute_process(const _NN_PERMUTE_PARM *parm) { return reference::tarvu_permute_process(parm); }

_QX_RESULT tarvu_pool_process(const _NN_POOL_PARM *parm) { return reference::tarvu_pool_process(parm); }

_QX_RESULT tarvu_priorbox_process(const _NN_PRIORBOX_PARM *parm) { return reference::tarvu_priorbox_process(parm); }

_QX_RESULT tarvu_reverse_process(const _NN_REVERSE_PARM *parm) { return reference::tarvu_reverse_process(parm); }

_QX_RESULT tarvu_softmax_process(const _NN_SOFTMAX_PARM *parm) { return reference::tarvu_softmax_process(parm); }

_QX_RESULT tarvu_topk_process(const _NN_TOPK_PARM *parm) { return reference::tarvu_topk_process(parm); }

_QX_RESULT vendor_softmax_process(const _NN_SOFTMAX_PARM *parm) { return reference::vendor_softmax_process(parm); }

void tarvu_fixtofloat_1d_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                              const _NN_SCALE *scale, int32_t zero_point) {
  reference::tarvu_fixtofloat_1d_neon(source, destination, count, fmt, scale, zero_point);
}

void tarvu_floattofix_1d_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                              const _NN_SCALE *scale, int32_t zero_point) {
  reference::tarvu_floattofix_1d_neon(source, destination, count, fmt, scale, zero_point);
}

void tarvu_floattofix_rnd_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                               const _NN_SCALE *scale, uint32_t rounding_code) {
  reference::tarvu_floattofix_rnd_neon(source, destination, count, fmt, scale, rounding_code);
}
