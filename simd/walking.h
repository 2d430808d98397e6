/// \file walking.h
/// Loads and stores of whole vectors and of pieces of them at an address that then moves on by any number of bytes: one
/// instruction each on Arm.
#ifndef TARVU_SIMD_WALKING_H
#define TARVU_SIMD_WALKING_H

#include <cstddef>

#include "simd/lanes.h"

// The sanitizers do not see into these instructions.
#if TARVU_NEON && !defined(__SANITIZE_ADDRESS__)
#define TARVU_POST_INDEXED 1
#else
#define TARVU_POST_INDEXED 0
#endif

namespace tarvu {

/// The unsigned integer of 2, 4 or 8 bytes, and the vector of them.
template <int bytes>
using Piece = std::conditional_t<bytes == 8, uint64_t, std::conditional_t<bytes == 4, uint32_t, uint16_t>>;
template <int bytes>
using Pieces = std::conditional_t<bytes == 8, u64x2, std::conditional_t<bytes == 4, u32x4, u16x8>>;

#if TARVU_POST_INDEXED
/// Memory that an instruction reads or writes. Clang writes to none whose type is not yet instantiated, hence the assertions.
template <int bytes>
struct [[gnu::packed, gnu::may_alias]] Bytes {
  uint8_t byte[bytes];
};

/// Lane `lane` of pieces of so many bytes, and the ones behind it.
template <int bytes, int lane>
inline void load_lanes(u64x2 &lanes, const uint8_t *&from, size_t step) {
  const auto &memory = *reinterpret_cast<const Bytes<bytes> *>(from);
  if constexpr (bytes == 8) {
    __asm__("ld1 {%0.d}[%4], [%1], %2" : "+w"(lanes), "+r"(from) : "r"(step), "m"(memory), "i"(lane));
  } else if constexpr (bytes == 4) {
    __asm__("ld1 {%0.s}[%4], [%1], %2" : "+w"(lanes), "+r"(from) : "r"(step), "m"(memory), "i"(lane));
  } else {
    __asm__("ld1 {%0.h}[%4], [%1], %2" : "+w"(lanes), "+r"(from) : "r"(step), "m"(memory), "i"(lane));
  }
  if constexpr (lane + 1 < 16 / bytes) load_lanes<bytes, lane + 1>(lanes, from, step);
}
template <int bytes, int lane>
inline void store_lanes(u64x2 lanes, uint8_t *&to, size_t step) {
  static_assert(sizeof(Bytes<bytes>) == bytes);
  auto &memory = *reinterpret_cast<Bytes<bytes> *>(to);
  if constexpr (bytes == 8) {
    __asm__("st1 {%3.d}[%4], [%1], %2" : "=m"(memory), "+r"(to) : "r"(step), "w"(lanes), "i"(lane));
  } else if constexpr (bytes == 4) {
    __asm__("st1 {%3.s}[%4], [%1], %2" : "=m"(memory), "+r"(to) : "r"(step), "w"(lanes), "i"(lane));
  } else {
    __asm__("st1 {%3.h}[%4], [%1], %2" : "=m"(memory), "+r"(to) : "r"(step), "w"(lanes), "i"(lane));
  }
  if constexpr (lane + 1 < 16 / bytes) store_lanes<bytes, lane + 1>(lanes, to, step);
}
#endif

/// A vector of pieces of 2, 4, 8 or 16 bytes that lie `step` bytes apart; `from` moves on behind them.
template <class V, int bytes>
inline V load_pieces(const uint8_t *&from, size_t step) {
#if TARVU_POST_INDEXED
  u64x2 lanes;
  if constexpr (bytes == 16) {
    const auto &memory = *reinterpret_cast<const Bytes<16> *>(from);
    __asm__("ld1 {%0.16b}, [%1], %2" : "=w"(lanes), "+r"(from) : "r"(step), "m"(memory));
  } else {
    lanes = u64x2(Pieces<bytes>{load<Piece<bytes>>(from)});
    from += step;
    load_lanes<bytes, 1>(lanes, from, step);
  }
  return V(lanes);
#else
  if constexpr (bytes == 16) {
    const V lanes = load<V>(from);
    from += step;
    return lanes;
  } else {
    Pieces<bytes> pieces{};
    for (int k = 0; k < 16 / bytes; ++k, from += step) pieces[k] = load<Piece<bytes>>(from);
    return V(pieces);
  }
#endif
}

/// Stores what load_pieces() loads.
template <int bytes, class V>
inline void store_pieces(uint8_t *&to, size_t step, V lanes) {
#if TARVU_POST_INDEXED
  if constexpr (bytes == 16) {
    static_assert(sizeof(Bytes<16>) == 16);
    auto &memory = *reinterpret_cast<Bytes<16> *>(to);
    __asm__("st1 {%3.16b}, [%1], %2" : "=m"(memory), "+r"(to) : "r"(step), "w"(lanes));
  } else {
    store_lanes<bytes, 0>(u64x2(lanes), to, step);
  }
#else
  if constexpr (bytes == 16) {
    store(to, lanes);
    to += step;
  } else {
    for (int k = 0; k < 16 / bytes; ++k, to += step) store(to, Piece<bytes>{Pieces<bytes>(lanes)[k]});
  }
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_WALKING_H
