/// \file tarvu_softmax_table_reference.h
/// Plain twin of the softmax by table, which computes its entries.
#ifndef TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_TABLE_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_TABLE_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT vendor_softmax_process(const _NN_SOFTMAX_PARM *parm);
_QX_RESULT vendor_submax_s16(const int16_t *in, int16_t *out, uint32_t count, uint8_t frac_bits);
int32_t vendor_ais_checkparm(const _NN_SOFTMAX_PARM *parm);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_SOFTMAX_TABLE_REFERENCE_H
