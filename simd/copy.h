/// \file copy.h
/// Copies of runs whose lengths the compiler does not know.
#ifndef TARVU_SIMD_COPY_H
#define TARVU_SIMD_COPY_H

#include "simd/rearrange.h"

namespace tarvu {

/// Copies a run of any length. Source and destination lie apart.
inline void copy_bytes(const uint8_t *from, uint8_t *to, size_t bytes) {
#if TARVU_NEON
  // For slices of common lengths a call costs more than it saves. The last block overlaps the one before.
  constexpr size_t kBlock = 128;
  constexpr size_t kLongest = 4096;
  if (bytes > kBlock && bytes <= kLongest) {
    const uint8_t *const last = from + (bytes - kBlock);
    uint8_t *const to_last = to + (bytes - kBlock);
    for (; from < last; from += kBlock, to += kBlock) copy_vectors<8>(from, to);
    copy_vectors<8>(last, to_last);
    return;
  }
#endif
  copy_run(from, to, bytes);
}

}  // namespace tarvu

#endif  // TARVU_SIMD_COPY_H
