/// \file guarded_memory.h
/// Memory for one tensor of a test: guard bytes on both sides, and a page that faults where an over-run would go unseen.
#ifndef TARVU_TESTS_SUPPORT_GUARDED_MEMORY_H
#define TARVU_TESTS_SUPPORT_GUARDED_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace support {

/// Which end of the data touches a page that faults; the other end has a page that faults further off, too.
enum class Fault { kBehind, kInFront };

struct Placement {
  Fault fault = Fault::kBehind;
  size_t alignment =
      1;  ///< of the first byte before `misalign` is added; up to alignment - 1 guard bytes lie before the page
  size_t misalign = 0;  ///< bytes added to (kInFront) or taken from (kBehind) an aligned start
};

/// A mapping of its own. Move only.
class GuardedMemory {
 public:
  explicit GuardedMemory(size_t bytes, Placement placement = {});
  GuardedMemory(GuardedMemory &&other) noexcept;
  GuardedMemory(const GuardedMemory &) = delete;
  GuardedMemory &operator=(const GuardedMemory &) = delete;
  GuardedMemory &operator=(GuardedMemory &&) = delete;
  ~GuardedMemory();

  uint8_t *data() const { return data_; }
  size_t size() const { return size_; }
  /// As a parameter block wants it.
  uint64_t address() const { return reinterpret_cast<uintptr_t>(data_); }
  template <class T>
  T *as() const {
    return reinterpret_cast<T *>(data_);
  }
  void fill(uint8_t value) const;

  /// Empty if every guard byte is as it was set, else what was found where.
  std::string guard_damage() const;

 private:
  uint8_t *mapping_ = nullptr;
  size_t mapping_bytes_ = 0;
  uint8_t *data_ = nullptr;
  size_t size_ = 0;
};

/// An address whose every access faults: for arguments that are never read.
uint64_t unreadable_address();

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_GUARDED_MEMORY_H
