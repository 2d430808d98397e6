/// \file part.h
/// Loads and stores of less than a vector: exactly these bytes are touched, in a few pieces that overlap.
#ifndef TARVU_SIMD_PART_H
#define TARVU_SIMD_PART_H

#include <cstddef>

#include "simd/lanes.h"

namespace tarvu {

/// The `bytes` (1 to 16) bytes at `from` in the first lanes; the others hold anything.
inline u8x16 load_part(const uint8_t *from, size_t bytes) {
  const auto shifted = [](uint64_t piece, size_t by) { return piece << (8 * by & 63); };
  if (bytes >= 8) {
    const uint64_t last = load<uint64_t>(from + bytes - 8);
    return u8x16(u64x2{load<uint64_t>(from), last >> (8 * (16 - bytes) & 63)});
  }
  if (bytes >= 4) {
    const uint64_t last = load<uint32_t>(from + bytes - 4);
    return u8x16(u64x2{load<uint32_t>(from) | shifted(last, bytes - 4)});
  }
  const size_t middle = bytes / 2;
  return u8x16(u64x2{from[0] | shifted(from[middle], middle) | shifted(from[bytes - 1], bytes - 1)});
}

/// Stores the first `bytes` (1 to 16) lanes.
inline void store_part(uint8_t *to, u8x16 lanes, size_t bytes) {
  uint8_t whole[16];
  store(whole, lanes);
  if (bytes >= 8) {
    store(to, uint64_t{u64x2(lanes)[0]});
    store(to + bytes - 8, load<uint64_t>(whole + bytes - 8));
  } else if (bytes >= 4) {
    store(to, uint32_t{u32x4(lanes)[0]});
    store(to + bytes - 4, load<uint32_t>(whole + bytes - 4));
  } else {
    const uint8_t last = whole[bytes - 1];
    const uint8_t middle = whole[bytes / 2];
    to[0] = whole[0];
    to[bytes / 2] = middle;
    to[bytes - 1] = last;
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_PART_H
