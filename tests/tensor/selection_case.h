/// \file selection_case.h
/// What the tests of the selecting and gathering operators share.
#ifndef TARVU_TESTS_TENSOR_SELECTION_CASE_H
#define TARVU_TESTS_TENSOR_SELECTION_CASE_H

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tarvu.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/support/stdout_capture.h"

namespace selection_test {

/// What a caller gets back from a call.
struct Answer {
  _QX_RESULT result;
  std::string text;
};

template <class Process, class Parm>
Answer answer(Process process, const Parm &block) {
  support::StdoutCapture capture;
  const _QX_RESULT result = process(&block);
  return {result, capture.text()};
}

/// An element type by its width and sign.
struct Type {
  int width;
  int sign_bits;
  _NN_FMT fmt(int frac_bits = 0) const { return support::format(width, frac_bits, sign_bits); }
  uint32_t bytes() const { return static_cast<uint32_t>(width) / 8; }
};

inline constexpr Type kInt8 = {8, 1};
inline constexpr Type kUint8 = {8, 0};
inline constexpr Type kInt16 = {16, 1};
inline constexpr Type kUint16 = {16, 0};
inline constexpr Type kInt32 = {32, 1};
inline constexpr Type kUint32 = {32, 0};
inline constexpr Type kElementTypes[] = {kInt8, kUint8, kInt16, kUint16};
inline constexpr Type kIndexTypes[] = {kInt8, kUint8, kInt16, kUint16, kInt32, kUint32};

/// Stores the low bytes of `value` as element i of an array of the type.
inline void store_element(uint8_t *array, Type type, size_t i, int64_t value) {
  const auto bits = static_cast<uint32_t>(static_cast<uint64_t>(value));
  std::memcpy(array + i * type.bytes(), &bits, type.bytes());  // little-endian
}

template <class T>
std::vector<uint8_t> bytes_of(const std::vector<T> &values) {
  std::vector<uint8_t> bytes(values.size() * sizeof(T));
  if (!bytes.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

/// Memory that holds these values, its end at a page that faults.
template <class T>
support::GuardedMemory memory_of(const std::vector<T> &values) {
  support::GuardedMemory memory(values.size() * sizeof(T));
  if (!values.empty()) std::memcpy(memory.data(), values.data(), memory.size());
  return memory;
}

template <class T>
std::vector<T> values_in(const support::GuardedMemory &memory) {
  std::vector<T> values(memory.size() / sizeof(T));
  if (!values.empty()) std::memcpy(values.data(), memory.data(), values.size() * sizeof(T));
  return values;
}

/// `process`, with the scratch memory set to `start` ahead of the call. Scratch is not tracked by a case: what it holds
/// afterwards is no result, but what it held before is one wherever stale scratch is read.
template <class Process>
auto from_scratch(const support::GuardedMemory &scratch, const std::vector<uint8_t> &start, Process process) {
  return [&scratch, &start, process](auto *block) {
    if (!start.empty()) std::memcpy(scratch.data(), start.data(), start.size());
    return process(block);
  };
}

/// Readable zeros of which only touched pages take memory: room for reads that wrap round 2^32.
class FarRoom {
 public:
  explicit FarRoom(size_t bytes) : bytes_(bytes) {
    void *mapping = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping == MAP_FAILED) {
      std::perror("far room");
      std::abort();
    }
    data_ = static_cast<uint8_t *>(mapping);
  }
  FarRoom(const FarRoom &) = delete;
  FarRoom &operator=(const FarRoom &) = delete;
  ~FarRoom() { munmap(data_, bytes_); }
  uint8_t *data() const { return data_; }
  uint64_t address() const { return reinterpret_cast<uintptr_t>(data_); }

 private:
  uint8_t *data_ = nullptr;
  size_t bytes_;
};

}  // namespace selection_test

#endif  // TARVU_TESTS_TENSOR_SELECTION_CASE_H
