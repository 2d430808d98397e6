/// \file memory.h
/// Whether arrays of the caller lie apart, which is what allows a kernel to write results before it has read all inputs.
#ifndef TARVU_FRAME_MEMORY_H
#define TARVU_FRAME_MEMORY_H

#include <cstdint>

namespace tarvu {

/// So many bytes from an address on.
struct Memory {
  uint64_t address;
  uint64_t bytes;
};

inline Memory memory_of(const void *address, uint64_t bytes) { return {reinterpret_cast<uintptr_t>(address), bytes}; }

/// Whether no byte of one is a byte of the other. Distances are taken modulo 2^64, so ranges that reach beyond the last address
/// go on from address 0.
inline bool lie_apart(const Memory &a, const Memory &b) {
  const bool one_ends_first = b.address - a.address >= a.bytes && a.address - b.address >= b.bytes;
  return one_ends_first || a.bytes == 0 || b.bytes == 0;
}

/// Whether they are the same bytes.
inline bool are_same(const Memory &a, const Memory &b) { return a.address == b.address && a.bytes == b.bytes; }

/// Whether ascending work on blocks, each loaded whole before it is stored, reads nothing that it has written: the two lie apart,
/// or the destination, with the same number of elements, neither starts nor ends behind the source.
inline bool no_store_precedes_its_load(const Memory &source, const Memory &destination) {
  return lie_apart(source, destination) || (destination.address <= source.address &&
                                            destination.address + destination.bytes <= source.address + source.bytes);
}

}  // namespace tarvu

#endif  // TARVU_FRAME_MEMORY_H
