/// \file byte_table.h
/// Short blocks whose bytes change places, by a table of places.
#ifndef TARVU_SIMD_BYTE_TABLE_H
#define TARVU_SIMD_BYTE_TABLE_H

#include <cstddef>

#include "simd/lanes.h"

namespace tarvu {

inline constexpr size_t kTableBytes = 64;

/// Byte i of a block comes from byte sources[i] of its source. A block has 16 to kTableBytes bytes; its last vector begins early
/// enough to end with it.
struct ByteTable {
  u8x16 places[4];  // in the loaded vectors, as if they were one array
  size_t starts[4];
  size_t bytes;

  ByteTable(const uint8_t *sources, size_t block_bytes) : places{}, starts{}, bytes(block_bytes) {
    for (size_t k = 0; k < 4; ++k) {
      starts[k] = 16 * k + 16 <= bytes ? 16 * k : bytes - 16;
      uint8_t found[16];
      for (size_t i = 0; i < 16; ++i) {
        const size_t source = sources[starts[k] + i];
        const size_t vector = source / 16;
        const size_t start = 16 * vector + 16 <= bytes ? 16 * vector : bytes - 16;
        found[i] = static_cast<uint8_t>(16 * vector + source - start);
      }
      places[k] = load<u8x16>(found);
    }
  }

  /// Moves `count` blocks. Sources and destinations lie apart.
  void move(const uint8_t *from, size_t from_step, uint8_t *to, size_t to_step, size_t count) const {
    const u8x16 own[4] = {places[0], places[1], places[2], places[3]};
    const size_t at[4] = {starts[0], starts[1], starts[2], starts[3]};
    for (; count != 0; --count, from += from_step, to += to_step) {
#if TARVU_NEON
      const uint8x16x4_t table = {
          {vld1q_u8(from + at[0]), vld1q_u8(from + at[1]), vld1q_u8(from + at[2]), vld1q_u8(from + at[3])}};
      for (int k = 0; k < 4; ++k) store(to + at[k], u8x16(vqtbl4q_u8(table, own[k])));
#else
      uint8_t table[kTableBytes];
      for (int k = 0; k < 4; ++k) store(table + 16 * k, load<u8x16>(from + at[k]));
      for (int k = 0; k < 4; ++k) {
        uint8_t moved[16];
        for (int i = 0; i < 16; ++i) moved[i] = table[own[k][i]];
        store(to + at[k], load<u8x16>(moved));
      }
#endif
    }
  }
};

}  // namespace tarvu

#endif  // TARVU_SIMD_BYTE_TABLE_H
