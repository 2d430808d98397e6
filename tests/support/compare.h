/// \file compare.h
/// Exact comparison of tensors as an assertion. The report names the element and where it lies.
#ifndef TARVU_TESTS_SUPPORT_COMPARE_H
#define TARVU_TESTS_SUPPORT_COMPARE_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/support/difference.h"

namespace support {

/// Success for an empty text, else a failure that says it.
inline ::testing::AssertionResult no_difference(const std::string &difference) {
  if (difference.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << difference;
}

/// As element_difference().
inline ::testing::AssertionResult same_elements(const std::string &name, const void *product, const void *reference,
                                                size_t bytes, Element element = Element::k8Bit, RunShape shape = {}) {
  return no_difference(element_difference(name, product, reference, bytes, element, shape));
}

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_COMPARE_H
