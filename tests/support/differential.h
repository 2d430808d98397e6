/// \file differential.h
/// Runs the product and its reference twin over the same memory and compares everything a caller can see: every byte of every
/// tensor and of the block, the guard bytes, the result and the printed text.
///
///   Random random = test_random(17);
///   SCOPED_TRACE(random.trace());
///   GuardedMemory input(bytes), output(bytes);
///   random.fill(input.data(), input.size());
///   Case<_NN_REVERSE_PARM> reverse;
///   reverse.block.width = 5;  // ... the other fields
///   reverse.attach(&_NN_REVERSE_PARM::in_addr, input, "input");
///   reverse.attach(&_NN_REVERSE_PARM::out_addr, output, "output", Element::k16Bit);
///   EXPECT_TRUE(reverse.same(::tarvu_reverse_process, reference::tarvu_reverse_process));
#ifndef TARVU_TESTS_SUPPORT_DIFFERENTIAL_H
#define TARVU_TESTS_SUPPORT_DIFFERENTIAL_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/compare.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/twin_run.h"

namespace support {

/// TwinRun as an assertion. For functions that take no block, use it directly with two callables that take nothing and return
/// an integer (or nothing).
class Differential {
 public:
  /// Content at the time of the call to same() is what both calls start from.
  void track(const GuardedMemory &memory, std::string name, Element element = Element::k8Bit, RunShape shape = {}) {
    run_.track(memory, std::move(name), element, shape);
  }

  template <class Product, class Reference>
  ::testing::AssertionResult same(Product product, Reference reference) {
    return no_difference(run_.difference(product, reference));
  }

  const Outcome &ours() const { return run_.ours; }

 private:
  TwinRun run_;
};

/// A differential case of an operator with a parameter block. The block's own bytes are compared too.
template <class Parm>
class Case {
 public:
  Parm block{};

  /// Sets the block's address field to `byte_offset` bytes into the memory and tracks the memory.
  void attach(uint64_t Parm::*address, const GuardedMemory &memory, std::string name, Element element = Element::k8Bit,
              RunShape shape = {}, size_t byte_offset = 0) {
    block.*address = memory.address() + byte_offset;
    differential_.track(memory, std::move(name), element, shape);
  }

  template <class Product, class Reference>
  ::testing::AssertionResult same(Product product, Reference reference) {
    Parm for_product = block;
    Parm for_reference = block;
    ::testing::AssertionResult outcome =
        differential_.same([&] { return product(&for_product); }, [&] { return reference(&for_reference); });
    if (!outcome) return outcome;
    return same_elements("block", &for_product, &for_reference, sizeof block);
  }

  const Outcome &ours() const { return differential_.ours(); }

 private:
  Differential differential_;
};

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_DIFFERENTIAL_H
