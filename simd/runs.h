/// \file runs.h
/// Loops of a step over a run: the caller gives the arithmetic of an element, for one and for lanes alike, and the loop gives loads,
/// stores and the end of the run. What becomes of an element depends on nothing but the element.
///
/// Blocks of a turn are loaded before one is stored, where no load can meet a store of the same run, so that their chains go side by
/// side. The end of a run, shorter than a block, has one form of three:
///
///     ... [ block ][ block ]          the last block starts early, and writes again what the one before it wrote: if the run
///                     [ block ]       is no shorter than a block and lies apart from what it is made of
///     [ elements 0 0 0 0 0 ]          one block, padded, by way of the stack
///     e e e                           one by one, for very few
#ifndef TARVU_SIMD_RUNS_H
#define TARVU_SIMD_RUNS_H

#include <tuple>

#include "frame/memory.h"
#include "simd/blocks.h"

namespace tarvu {

/// Copies 0 to 64 bytes. Everything is loaded before it is stored.
inline void copy_short(const void *source, void *destination, size_t bytes) {
  const auto *const from = static_cast<const uint8_t *>(source);
  auto *const to = static_cast<uint8_t *>(destination);
  const auto overlapping = [=](auto piece) {  // from both ends
    using Piece = decltype(piece);
    const size_t last = bytes - sizeof(Piece);
    const auto front = load<Piece>(from);
    const auto back = load<Piece>(from + last);
    store(to, front);
    store(to + last, back);
  };
  struct Two {
    u8x16 first, second;
  };
  if (bytes >= 32) return overlapping(Two{});
  if (bytes >= 16) return overlapping(u8x16{});
  if (bytes >= 8) return overlapping(uint64_t{});
  if (bytes >= 4) return overlapping(uint32_t{});
  if (bytes >= 2) return overlapping(uint16_t{});
  if (bytes == 1) *to = *from;
}

/// One element at a time is quicker than a block for fewer than these.
inline constexpr uint32_t kFewestToPad = 6;

template <class T, uint32_t elements>
struct BlockOf {
  T of[elements];
};

/// Fills a block with `count` elements and zeros, and returns its address.
template <class T, uint32_t elements>
inline const T *pad(BlockOf<T, elements> &block, const T *from, uint32_t count) {
  block = {};
  copy_short(from, block.of, count * sizeof(T));
  return block.of;
}

/// to[i] = what becomes of element i of every source, for a run of `count` elements: get(from...) makes something of a block of
/// elements of the sources, put(something, to) stores it. one(to, from...) does one element. Blocks have `elements` elements, of
/// which a turn takes `turn` blocks. Sources and destination may be at any address, and may overlap: the result then is that of
/// ascending blocks, each loaded whole before it is stored.
template <uint32_t elements, uint32_t turn, class Out, class Get, class Put, class One, class... In>
[[gnu::always_inline]] inline void for_each_block(Out *to, uint32_t count, Get get, Put put, One one,
                                                  const In *...from) {
  constexpr uint32_t kTurn = turn * elements;
  const uint32_t all = count;
  const auto bytes = [all](const auto *at) { return memory_of(at, uint64_t{all} * sizeof *at); };
  const Memory written = bytes(to);
  if (count >= kTurn && (no_store_precedes_its_load(bytes(from), written) && ...)) {
    do {
      decltype(get(from...)) blocks[turn];
      TARVU_UNROLLED
      for (uint32_t k = 0; k < turn; ++k) blocks[k] = get(from + k * elements...);
      TARVU_UNROLLED
      for (uint32_t k = 0; k < turn; ++k) put(blocks[k], to + k * elements);
      count -= kTurn;
      to += kTurn;
      ((from += kTurn), ...);
    } while (count >= kTurn);
  }
  while (count != 0) {
    std::tuple<BlockOf<In, elements>...> padded;
    BlockOf<Out, elements> result;
    std::tuple<const In *...> at{from...};
    Out *out = to;
    uint32_t done = elements;
    if (count < elements) {
      if (all >= elements && (lie_apart(bytes(from + count - all), written) && ...)) {
        at = {from - (elements - count)...};
        out = to - (elements - count);
      } else if (count >= kFewestToPad) {
        at = std::apply([=](auto &...block) { return std::tuple<const In *...>{pad(block, from, count)...}; }, padded);
        out = result.of;
      } else {
        for (; count != 0; --count, ++to, ((++from), ...)) {
          keep_scalar();
          one(to, from...);
        }
        return;
      }
      done = count;
    }
    put(std::apply(get, at), out);
    if (out == result.of) copy_short(result.of, to, done * sizeof(Out));
    count -= done;
    to += done;
    ((from += done), ...);
  }
}

/// to[i] = towards zero of step(from[i]), saturated; NaN gives 0. `step` maps floats to floats, one or f32xn at a time.
/// `turn` blocks are converted a turn.
template <class T, uint32_t turn = 4, class Step>
[[gnu::flatten]] inline void floats_to_integers(const float *from, T *to, uint32_t count, Step step) {
  for_each_block<kBlockElements, turn>(
      to, count, [=](const float *at) __attribute__((always_inline)) { return map_block(load_floats(at), step); },
      [](const FloatBlock &block, T *out) __attribute__((always_inline)) { store_truncated(block, out); },
      [=](T *out, const float *at) { store(out, to_integer<T>(step(load<float>(at)))); }, from);
}

/// to[i] = step(from[i]) saturated: `step` maps floats to words of T, one or f32xn at a time.
template <class T, class Step>
[[gnu::flatten]] inline void floats_to_words_to_integers(const float *from, T *to, uint32_t count, Step step) {
  for_each_block<kBlockElements, 2>(
      to, count, [=](const float *at) __attribute__((always_inline)) { return map_block(load_floats(at), step); },
      [](const WordBlockOf<T> &block, T *out) __attribute__((always_inline)) { store_saturated(block, out); },
      [=](T *out, const float *at) { store(out, saturate<T>(step(load<float>(at)))); }, from);
}

/// to[i] = step(word of from[i]): `step` maps words, signed or unsigned as T is, one or as many as f32xn has, to floats.
template <class T, class Step>
[[gnu::flatten]] inline void integers_to_floats(const T *from, float *to, uint32_t count, Step step) {
  for_each_block<kBlockElements, 4>(
      to, count, [=](const T *at) __attribute__((always_inline)) { return map_block(load_words(at), step); },
      [](const FloatBlock &block, float *out) __attribute__((always_inline)) { store_floats(block, out); },
      [=](float *out, const T *at) { store(out, step(WordOf<T>{load<T>(at)})); }, from);
}

/// to[i] = towards zero of step(a[i], b[i]), saturated; NaN gives 0. `step` takes two floats, or two vectors of them.
template <class T, class Out, class Step>
[[gnu::flatten]] inline void combine_integers(const T *a, const T *b, Out *to, uint32_t count, Step step) {
  for_each_block<kBlockElements, 2>(
      to, count,
      [=](const T *at_a, const T *at_b) __attribute__((always_inline)) {
        const auto words_a = load_words(at_a);
        const auto words_b = load_words(at_b);
        FloatBlock block;
        TARVU_UNROLLED
        for (int k = 0; k < kBlockVectors; ++k) block.of[k] = step(to_f32(words_a.of[k]), to_f32(words_b.of[k]));
        return block;
      },
      [](const FloatBlock &block, Out *out) __attribute__((always_inline)) { store_truncated(block, out); },
      [=](Out *out, const T *at_a, const T *at_b) {
        store(out, to_integer<Out>(step(to_f32(WordOf<T>{load<T>(at_a)}), to_f32(WordOf<T>{load<T>(at_b)}))));
      },
      a, b);
}

/// Calls action(i) for each i with values[i] >= threshold, in ascending order; NaN on either side never is. Fast where few are.
template <class Action>
inline void for_each_at_least(const float *values, size_t count, float threshold, Action action) {
  size_t i = 0;
  for (; count - i >= kBlockElements; i += kBlockElements) {
    for (Sixteen found = places_at_least(values + i, threshold); !found.empty(); found = without_first(found)) {
      action(i + first_of(found));
    }
  }
  for (; i < count; ++i) {
    if (values[i] >= threshold) action(i);
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_RUNS_H
