/// \file interleave.h
/// Zips and unzips of vectors of 8-bit, 16-bit and 32-bit elements, and loads and stores of elements that go round between two,
/// three or four vectors.
#ifndef TARVU_SIMD_INTERLEAVE_H
#define TARVU_SIMD_INTERLEAVE_H

#include <cstddef>

#include "simd/lanes.h"

namespace tarvu {

/// The 128-bit vector of an unsigned element type.
template <class Element>
using LanesOfElement =
    std::conditional_t<sizeof(Element) == 1, u8x16, std::conditional_t<sizeof(Element) == 2, u16x8, u32x4>>;

/// Lanes `first`, `first` + 1, ... of two vectors in turn, half a vector of each.
template <int first, class V, int... k>
inline V zip_from(V a, V b, std::integer_sequence<int, k...>) {
  return take_lanes<(first + k / 2 + k % 2 * kLanes<V>)...>(a, b);
}

/// Every second lane of two vectors from lane `first` on, those of `a` ahead of those of `b`.
template <int first, class V, int... k>
inline V unzip_from(V a, V b, std::integer_sequence<int, k...>) {
  return take_lanes<(first + 2 * k)...>(a, b);
}

/// Zips vectors k and k + half of them for every k: the lanes of both, in turn, become vectors 2k and 2k + 1. A lone vector zips
/// its halves.
template <class V, int vectors>
inline void zip_round(V (&lanes)[vectors]) {
  constexpr std::make_integer_sequence<int, kLanes<V>> kAll;
  if constexpr (vectors == 1) {
    lanes[0] = [&]<int... k>(std::integer_sequence<int, k...>) {
      return take_lanes<(k / 2 + k % 2 * (kLanes<V> / 2))...>(lanes[0], lanes[0]);
    }
    (kAll);
  } else {
    V zipped[vectors];
    for (int k = 0; k < vectors / 2; ++k) {
      zipped[2 * k] = zip_from<0>(lanes[k], lanes[k + vectors / 2], kAll);
      zipped[2 * k + 1] = zip_from<kLanes<V> / 2>(lanes[k], lanes[k + vectors / 2], kAll);
    }
    for (int k = 0; k < vectors; ++k) lanes[k] = zipped[k];
  }
}

/// Takes zip_round() back.
template <class V, int vectors>
inline void unzip_round(V (&lanes)[vectors]) {
  constexpr std::make_integer_sequence<int, kLanes<V>> kAll;
  if constexpr (vectors == 1) {
    lanes[0] = [&]<int... k>(std::integer_sequence<int, k...>) {
      return take_lanes<(2 * k % kLanes<V> + 2 * k / kLanes<V>)...>(lanes[0], lanes[0]);
    }
    (kAll);
  } else {
    V apart[vectors];
    for (int k = 0; k < vectors / 2; ++k) {
      apart[k] = unzip_from<0>(lanes[2 * k], lanes[2 * k + 1], kAll);
      apart[k + vectors / 2] = unzip_from<1>(lanes[2 * k], lanes[2 * k + 1], kAll);
    }
    for (int k = 0; k < vectors; ++k) lanes[k] = apart[k];
  }
}

/// Loads `vectors` (2 to 4) vectors whose elements go round in memory: element i of vector k is element i * vectors + k there.
template <class V, int vectors>
inline void load_interleaved(const uint8_t *from, V (&lanes)[vectors]) {
#if TARVU_NEON
  const auto keep = [&](auto loaded) {
    for (int k = 0; k < vectors; ++k) lanes[k] = V(loaded.val[k]);
  };
  const auto *halves = reinterpret_cast<const uint16_t *>(from);
  const auto *words = reinterpret_cast<const uint32_t *>(from);
  if constexpr (kLanes<V> == 16) {
    if constexpr (vectors == 2) keep(vld2q_u8(from));
    if constexpr (vectors == 3) keep(vld3q_u8(from));
    if constexpr (vectors == 4) keep(vld4q_u8(from));
  } else if constexpr (kLanes<V> == 8) {
    if constexpr (vectors == 2) keep(vld2q_u16(halves));
    if constexpr (vectors == 3) keep(vld3q_u16(halves));
    if constexpr (vectors == 4) keep(vld4q_u16(halves));
  } else {
    if constexpr (vectors == 2) keep(vld2q_u32(words));
    if constexpr (vectors == 3) keep(vld3q_u32(words));
    if constexpr (vectors == 4) keep(vld4q_u32(words));
  }
#else
  if constexpr (vectors == 3) {
    using Element = typename LaneOf<V>::type;
    Element apart[3][kLanes<V>];
    for (int i = 0; i < kLanes<V>; ++i) {
      for (int k = 0; k < 3; ++k) apart[k][i] = load<Element>(from + (3 * i + k) * sizeof(Element));
    }
    for (int k = 0; k < 3; ++k) lanes[k] = load<V>(apart[k]);
  } else {
    for (int k = 0; k < vectors; ++k) lanes[k] = load<V>(from + 16 * k);
    for (int round = 1; round < vectors; round *= 2) unzip_round(lanes);
  }
#endif
}

/// Stores what load_interleaved() loads.
template <class V, int vectors>
inline void store_interleaved(uint8_t *to, const V (&lanes)[vectors]) {
#if TARVU_NEON
  auto *halves = reinterpret_cast<uint16_t *>(to);
  auto *words = reinterpret_cast<uint32_t *>(to);
  if constexpr (kLanes<V> == 16) {
    if constexpr (vectors == 2) vst2q_u8(to, (uint8x16x2_t{{lanes[0], lanes[1]}}));
    if constexpr (vectors == 3) vst3q_u8(to, (uint8x16x3_t{{lanes[0], lanes[1], lanes[2]}}));
    if constexpr (vectors == 4) vst4q_u8(to, (uint8x16x4_t{{lanes[0], lanes[1], lanes[2], lanes[3]}}));
  } else if constexpr (kLanes<V> == 8) {
    if constexpr (vectors == 2) vst2q_u16(halves, (uint16x8x2_t{{lanes[0], lanes[1]}}));
    if constexpr (vectors == 3) vst3q_u16(halves, (uint16x8x3_t{{lanes[0], lanes[1], lanes[2]}}));
    if constexpr (vectors == 4) vst4q_u16(halves, (uint16x8x4_t{{lanes[0], lanes[1], lanes[2], lanes[3]}}));
  } else {
    if constexpr (vectors == 2) vst2q_u32(words, (uint32x4x2_t{{lanes[0], lanes[1]}}));
    if constexpr (vectors == 3) vst3q_u32(words, (uint32x4x3_t{{lanes[0], lanes[1], lanes[2]}}));
    if constexpr (vectors == 4) vst4q_u32(words, (uint32x4x4_t{{lanes[0], lanes[1], lanes[2], lanes[3]}}));
  }
#else
  if constexpr (vectors == 3) {
    using Element = typename LaneOf<V>::type;
    Element together[3 * kLanes<V>];
    for (int i = 0; i < kLanes<V>; ++i) {
      for (int k = 0; k < 3; ++k) together[3 * i + k] = lanes[k][i];
    }
    std::memcpy(to, together, sizeof together);
  } else {
    V zipped[vectors];
    for (int k = 0; k < vectors; ++k) zipped[k] = lanes[k];
    for (int round = 1; round < vectors; round *= 2) zip_round(zipped);
    for (int k = 0; k < vectors; ++k) store(to + 16 * k, zipped[k]);
  }
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_INTERLEAVE_H
