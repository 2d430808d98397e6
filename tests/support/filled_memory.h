/// \file filled_memory.h
/// Guarded memory with given values, and scratch memory that starts every call with the same content.
#ifndef TARVU_TESTS_SUPPORT_FILLED_MEMORY_H
#define TARVU_TESTS_SUPPORT_FILLED_MEMORY_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace support {

template <class T>
void put_values(const GuardedMemory &memory, const std::vector<T> &values) {
  ASSERT_LE(values.size() * sizeof(T), memory.size());
  if (!values.empty()) std::memcpy(memory.data(), values.data(), values.size() * sizeof(T));
}

/// Exactly as large as the values.
template <class T>
GuardedMemory memory_of(const std::vector<T> &values, Placement placement = {}) {
  GuardedMemory memory(values.size() * sizeof(T), placement);
  put_values(memory, values);
  return memory;
}

/// All whole elements of a memory, at any alignment.
template <class T>
std::vector<T> values_in(const GuardedMemory &memory) {
  std::vector<T> values(memory.size() / sizeof(T));
  if (!values.empty()) std::memcpy(values.data(), memory.data(), values.size() * sizeof(T));
  return values;
}

/// Scratch memory of exactly the bytes that an operator may use. Every wrapped call starts from the same random floats,
/// as a call that reads its scratch before it writes it can tell; what a call leaves there is its own affair.
class Scratch {
 public:
  Scratch(Random &random, size_t bytes) : memory_(bytes), start_(bytes) {
    random.fill(start_.data(), bytes);
    random.fill_floats(start_.data(), bytes / sizeof(float), -300.0f, 300.0f);
  }

  uint64_t address() const { return memory_.address(); }

  template <class Call>
  auto wrap(Call call) const {
    return [this, call](auto *parm) {
      if (!start_.empty()) std::memcpy(memory_.data(), start_.data(), start_.size());
      const auto result = call(parm);
      EXPECT_EQ(std::string(), memory_.guard_damage()) << "scratch memory";
      return result;
    };
  }

 private:
  GuardedMemory memory_;
  std::vector<uint8_t> start_;
};

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_FILLED_MEMORY_H
