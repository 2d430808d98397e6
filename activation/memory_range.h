/// \file memory_range.h
/// Whether arrays of the caller lie apart, which is what allows a kernel to write results before it has read all inputs.
#ifndef TARVU_ACTIVATION_MEMORY_RANGE_H
#define TARVU_ACTIVATION_MEMORY_RANGE_H

#include <cstdint>

namespace tarvu {

struct MemoryRange {
  uint64_t address;
  uint64_t bytes;

  bool apart_from(const MemoryRange &other) const {
    return address + bytes <= other.address || other.address + other.bytes <= address;
  }
  bool same_as(const MemoryRange &other) const { return address == other.address && bytes == other.bytes; }
};

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_MEMORY_RANGE_H
