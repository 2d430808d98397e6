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
    const auto copy_block = [](const uint8_t *source, uint8_t *destination) {
      const uint8x16x4_t first = vld1q_u8_x4(source);
      const uint8x16x4_t second = vld1q_u8_x4(source + 64);
      vst1q_u8_x4(destination, first);
      vst1q_u8_x4(destination + 64, second);
    };
    size_t left = bytes;
    for (; left > kBlock; left -= kBlock, from += kBlock, to += kBlock) copy_block(from, to);
    copy_block(from + left - kBlock, to + left - kBlock);
    return;
  }
#endif
  copy_run(from, to, bytes);
}

}  // namespace tarvu

#endif  // TARVU_SIMD_COPY_H
