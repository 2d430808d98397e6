/// \file difference.h
/// Exact comparison of tensors: by bits, but NaN as a class. Needs no test framework.
#ifndef TARVU_TESTS_SUPPORT_DIFFERENCE_H
#define TARVU_TESTS_SUPPORT_DIFFERENCE_H

#include <cstddef>
#include <string>

namespace support {

/// How a tensor's bytes are compared and reported.
enum class Element { k8Bit, k16Bit, k32Bit, kFloat };

/// How a run of elements is cut by a vector kernel, for the report: elements from the last whole block on are the tail.
struct RunShape {
  size_t run = 0;    ///< elements per run; 0 if unknown
  size_t block = 0;  ///< elements per block
};

/// Empty if all elements agree; otherwise names tensor, first index that differs, both bit patterns, and block or tail.
/// Bytes behind the last whole element are compared as bytes.
std::string element_difference(const std::string &name, const void *product, const void *reference, size_t bytes,
                               Element element = Element::k8Bit, RunShape shape = {});

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_DIFFERENCE_H
