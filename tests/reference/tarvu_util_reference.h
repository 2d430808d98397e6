/// \file tarvu_util_reference.h
/// Plain twins of the scratch allocator and the type queries.
#ifndef TARVU_TESTS_REFERENCE_TARVU_UTIL_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_UTIL_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

void *tarvu_getbuffrom(uint64_t *cursor, uint32_t size);
NN_AI_IO_TYPE tarvu_get_fmt_type(const _NN_FMT *fmt);
NN_AI_IO_TYPE tarvu_get_gather_fmt_type(const _NN_FMT *fmt);
NN_AI_IO_TYPE tarvu_get_gatherelement_fmt_type(const _NN_FMT *fmt);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_UTIL_REFERENCE_H
