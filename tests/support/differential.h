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

namespace support {

/// What one call left behind.
struct Outcome {
  int64_t result = 0;
  std::string text;                         ///< printed on standard output
  std::vector<std::vector<uint8_t>> bytes;  ///< of each tracked memory, in the order of track()
};

/// Holds a product call against a reference call over tracked memories. For functions that take no block, use it directly with
/// two callables that take nothing and return an integer (or nothing).
class Differential {
 public:
  /// Content at the time of the call to same() is what both calls start from.
  void track(const GuardedMemory &memory, std::string name, Element element = Element::k8Bit, RunShape shape = {}) {
    tracked_.push_back({&memory, std::move(name), element, shape});
  }

  template <class Product, class Reference>
  ::testing::AssertionResult same(Product product, Reference reference) {
    std::vector<std::vector<uint8_t>> start = contents();
    ours = run(product);
    std::string damage = guard_damage();
    if (!damage.empty()) return ::testing::AssertionFailure() << "product: " << damage;
    restore(start);
    expected = run(reference);
    damage = guard_damage();
    if (!damage.empty()) return ::testing::AssertionFailure() << "reference: " << damage;
    restore(ours.bytes);
    return compare();
  }

  Outcome ours;      ///< of the last call to same(); the memories hold the product's bytes afterwards
  Outcome expected;  ///< of the last call to same()

 private:
  struct Tracked {
    const GuardedMemory *memory;
    std::string name;
    Element element;
    RunShape shape;
  };

  template <class Call>
  Outcome run(Call call) {
    Outcome outcome;
    StdoutCapture capture;
    if constexpr (std::is_void_v<decltype(call())>) {
      call();
    } else {
      outcome.result = static_cast<int64_t>(call());
    }
    outcome.text = capture.text();
    outcome.bytes = contents();
    return outcome;
  }

  std::vector<std::vector<uint8_t>> contents() const {
    std::vector<std::vector<uint8_t>> all;
    for (const Tracked &t : tracked_) all.emplace_back(t.memory->data(), t.memory->data() + t.memory->size());
    return all;
  }

  void restore(const std::vector<std::vector<uint8_t>> &all) const {
    for (size_t i = 0; i < tracked_.size(); ++i) {
      if (!all[i].empty()) std::memcpy(tracked_[i].memory->data(), all[i].data(), all[i].size());
    }
  }

  std::string guard_damage() const {
    for (const Tracked &t : tracked_) {
      const std::string damage = t.memory->guard_damage();
      if (!damage.empty()) return t.name + ": " + damage;
    }
    return {};
  }

  ::testing::AssertionResult compare() const {
    if (ours.result != expected.result) {
      return ::testing::AssertionFailure() << "result: product " << ours.result << ", reference " << expected.result;
    }
    if (ours.text != expected.text) {
      return ::testing::AssertionFailure() << "printed: product \"" << ours.text << "\", reference \"" << expected.text << "\"";
    }
    for (size_t i = 0; i < tracked_.size(); ++i) {
      const Tracked &t = tracked_[i];
      ::testing::AssertionResult same = same_elements(t.name, ours.bytes[i].data(), expected.bytes[i].data(),
                                                      ours.bytes[i].size(), t.element, t.shape);
      if (!same) return same;
    }
    return ::testing::AssertionSuccess();
  }

  std::vector<Tracked> tracked_;
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

  const Outcome &ours() const { return differential_.ours; }

 private:
  Differential differential_;
};

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_DIFFERENTIAL_H
