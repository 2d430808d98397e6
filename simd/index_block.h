/// \file index_block.h
/// Blocks of eight integer indices at any address.
#ifndef TARVU_SIMD_INDEX_BLOCK_H
#define TARVU_SIMD_INDEX_BLOCK_H

#include <cstddef>
#include <type_traits>

#include "simd/processor.h"

namespace tarvu {

constexpr uint32_t kIndexBlock = 8;

/// Whether one of the block is negative.
template <class Index>
inline bool has_negative(const uint8_t *indices) {
  if constexpr (std::is_unsigned_v<Index>) {
    return false;
  } else {
    constexpr uint64_t kSigns = sizeof(Index) == 1   ? 0x8080808080808080
                                : sizeof(Index) == 2 ? 0x8000800080008000
                                                     : 0x8000000080000000;
    uint64_t bits = 0;
    for (size_t i = 0; i < sizeof(Index); ++i) bits |= load<uint64_t>(indices + 8 * i);
    return (bits & kSigns) != 0;
  }
}

/// distances[i] = index i * step modulo 2^32, for a block without negative indices.
template <class Index>
inline void multiply_indices(const uint8_t *indices, uint32_t step, uint32_t (&distances)[kIndexBlock]) {
#if TARVU_NEON
  uint32x4_t low, high;
  if constexpr (sizeof(Index) == 4) {
    low = vreinterpretq_u32_u8(vld1q_u8(indices));
    high = vreinterpretq_u32_u8(vld1q_u8(indices + 16));
  } else {
    uint16x8_t narrow;
    if constexpr (sizeof(Index) == 1) {
      narrow = vmovl_u8(vld1_u8(indices));
    } else {
      narrow = vreinterpretq_u16_u8(vld1q_u8(indices));
    }
    low = vmovl_u16(vget_low_u16(narrow));
    high = vmovl_high_u16(narrow);
  }
  low = vmulq_n_u32(low, step);
  high = vmulq_n_u32(high, step);
  // Two lanes leave the vector at once.
  const uint64x2_t pairs[] = {vreinterpretq_u64_u32(low), vreinterpretq_u64_u32(high)};
  for (uint32_t i = 0; i < kIndexBlock; i += 4) {
    const uint64_t first = vgetq_lane_u64(pairs[i / 4], 0);
    const uint64_t second = vgetq_lane_u64(pairs[i / 4], 1);
    distances[i] = static_cast<uint32_t>(first);
    distances[i + 1] = static_cast<uint32_t>(first >> 32);
    distances[i + 2] = static_cast<uint32_t>(second);
    distances[i + 3] = static_cast<uint32_t>(second >> 32);
  }
#else
  for (uint32_t i = 0; i < kIndexBlock; ++i) {
    distances[i] = static_cast<uint32_t>(load<Index>(indices + i * sizeof(Index))) * step;
  }
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_INDEX_BLOCK_H
