/// \file tarvu_convert_fmt_reference.h
/// Plain twin of the integer re-formatting routine.
#ifndef TARVU_TESTS_REFERENCE_TARVU_CONVERT_FMT_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_CONVERT_FMT_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

void tarvu_convert_fmt_c(const void *source, void *destination, uint32_t count, const _NN_FMT *in_fmt,
                         const _NN_FMT *out_fmt, const _NN_SCALE *in_scale, const _NN_SCALE *out_scale);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_CONVERT_FMT_REFERENCE_H
