/// \file rearrange.h
/// Moves of 8-bit and 16-bit elements: reversed runs and short copies. Sources and destinations lie apart.
#ifndef TARVU_SIMD_REARRANGE_H
#define TARVU_SIMD_REARRANGE_H

#include <cstddef>

#include "simd/arrange.h"

namespace tarvu {

/// The 128-bit vector of 8-bit or 16-bit elements.
template <size_t element_bytes>
using LanesOfBytes = std::conditional_t<element_bytes == 1, u8x16, u16x8>;

/// Reverses `vectors` whole vectors that end at `from_end`; all are loaded before one is stored.
template <class Lanes, int vectors>
inline void reverse_vectors(const uint8_t *from_end, uint8_t *to) {
  Lanes moved[vectors];
  for (int k = 0; k < vectors; ++k) moved[k] = load<Lanes>(from_end - 16 * (k + 1));
  for (int k = 0; k < vectors; ++k) moved[k] = reverse(moved[k]);
  for (int k = 0; k < vectors; ++k) store(to + 16 * k, moved[k]);
}

/// The elements of a word in the opposite order.
template <class Element>
inline uint64_t reverse_word(uint64_t word) {
  const uint64_t bytes = __builtin_bswap64(word);
  if constexpr (sizeof(Element) == 1) return bytes;
  return (bytes >> 8 & 0x00FF00FF00FF00FF) | (bytes & 0x00FF00FF00FF00FF) << 8;
}
template <class Element>
inline uint32_t reverse_word(uint32_t word) {
  return static_cast<uint32_t>(reverse_word<Element>(uint64_t{word}) >> 32);
}

/// copy_reversed() of words that overlap, `bytes` being one to two of them.
template <class Element, class Word>
inline void copy_reversed_words(const uint8_t *from, uint8_t *to, size_t bytes) {
  const auto first = load<Word>(from);
  const auto last = load<Word>(from + bytes - sizeof(Word));
  store(to, reverse_word<Element>(last));
  store(to + bytes - sizeof(Word), reverse_word<Element>(first));
}

/// to[i] = from[count - 1 - i]. Vectors at the end overlap the ones before; both write the same bytes there.
template <class Element>
inline void copy_reversed(const uint8_t *from, uint8_t *to, uint32_t count) {
  using Lanes = LanesOfBytes<sizeof(Element)>;
  size_t bytes = count * sizeof(Element);
  const uint8_t *from_end = from + bytes;
  uint8_t *const to_end = to + bytes;
  if (bytes < 16) {
    if (bytes >= 8) return copy_reversed_words<Element, uint64_t>(from, to, bytes);
    if (bytes >= 4) return copy_reversed_words<Element, uint32_t>(from, to, bytes);
    for (size_t i = 0; i < bytes; i += sizeof(Element)) store(to + i, load<Element>(from_end - i - sizeof(Element)));
    return;
  }
  if (bytes - 33 >= 32) [[unlikely]] {  // 33 to 64 bytes, the commonest lines, skip all of this
    for (; bytes > 64; bytes -= 64, from_end -= 64, to += 64) reverse_vectors<Lanes, 4>(from_end, to);
    if (bytes <= 32) {
      if (bytes > 16) reverse_vectors<Lanes, 1>(from_end, to);
      reverse_vectors<Lanes, 1>(from + 16, to_end - 16);
      return;
    }
  }
  reverse_vectors<Lanes, 2>(from_end, to);
  reverse_vectors<Lanes, 2>(from + 32, to_end - 32);
}

/// Copies whole vectors; all are loaded before one is stored.
template <int vectors>
inline void copy_vectors(const uint8_t *from, uint8_t *to) {
  u8x16 loaded[vectors];
  for (int k = 0; k < vectors; ++k) loaded[k] = load<u8x16>(from + 16 * k);
  for (int k = 0; k < vectors; ++k) store(to + 16 * k, loaded[k]);
}

/// Copies a run whose length the compiler does not know, without a call for the lengths of common lines.
inline void copy_run(const uint8_t *from, uint8_t *to, size_t bytes) {
  if (bytes < 16 || bytes > 128) {
    std::memcpy(to, from, bytes);
  } else if (bytes > 64) {
    copy_vectors<4>(from, to);
    copy_vectors<4>(from + bytes - 64, to + bytes - 64);
  } else if (bytes > 32) {
    copy_vectors<2>(from, to);
    copy_vectors<2>(from + bytes - 32, to + bytes - 32);
  } else {
    copy_vectors<1>(from, to);
    copy_vectors<1>(from + bytes - 16, to + bytes - 16);
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_REARRANGE_H
