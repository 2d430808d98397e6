/// \file gather.h
/// What the makers of the operators that take indices have in common.
#ifndef TARVU_TESTS_CASES_GATHER_H
#define TARVU_TESTS_CASES_GATHER_H

#include "tests/cases/cases.h"

namespace cases {

/// Integers of 8, 16 or 32 bits.
_NN_FMT some_index_format(Source &source);

/// Stores an index at byte `at`.
void store_index(std::vector<uint8_t> &bytes, size_t at, const _NN_FMT &fmt, int64_t index);

}  // namespace cases

#endif  // TARVU_TESTS_CASES_GATHER_H
