/// \file plain_layers.cpp
/// The layers of the example by their plain scalar twins. Linked in place of the library, it gives the digests that the tests
/// expect of the library.

#include "tarvu.h"
#include "tests/reference/tarvu_format_reference.h"
#include "tests/reference/tarvu_permute_c_reference.h"
#include "tests/reference/tarvu_pool_c_reference.h"
#include "tests/reference/tarvu_reverse_c_reference.h"

const char *prebuilt_ai_get_lib_version() { return "of plain layers"; }

_QX_RESULT tarvu_permute_process(const _NN_PERMUTE_PARM *parm) { return reference::tarvu_permute_process(parm); }

_QX_RESULT tarvu_pool_process(const _NN_POOL_PARM *parm) { return reference::tarvu_pool_process(parm); }

_QX_RESULT tarvu_reverse_process(const _NN_REVERSE_PARM *parm) { return reference::tarvu_reverse_process(parm); }

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
