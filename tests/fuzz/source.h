/// \file source.h
/// What the case makers draw their values from: a seeded generator, or the bytes of a fuzzer. Drawn from bytes, a case is a
/// function of its file: the n-th draw takes the next byte (two or four for wide ranges), and zeros once they are used up.
/// So every maker puts its plainest choice first.
#ifndef TARVU_TESTS_FUZZ_SOURCE_H
#define TARVU_TESTS_FUZZ_SOURCE_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>

#include "tarvu.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"
#include "tests/support/special_floats.h"

namespace fuzz {

struct Source {
  const uint8_t *next;  ///< first byte not yet drawn; null where the generator is drawn from
  const uint8_t *end;
  support::Random random;
};

inline Source source_of_seed(uint64_t seed) { return {nullptr, nullptr, support::Random(seed)}; }
inline Source source_of_bytes(const uint8_t *bytes, size_t count) { return {bytes, bytes + count, support::Random(0)}; }

/// `bytes` bytes, little-endian.
inline uint32_t draw_bytes(Source &source, int bytes) {
  if (source.next == nullptr) return static_cast<uint32_t>(source.random.next() >> (64 - 8 * bytes));
  uint32_t value = 0;
  for (int i = 0; i < bytes && source.next != source.end; ++i) value |= uint32_t{*source.next++} << (8 * i);
  return value;
}

/// Any 32 bits.
inline uint32_t word(Source &source) { return draw_bytes(source, 4); }

/// 0 to bound - 1; a bound of 0 or 1 draws nothing.
inline uint32_t below(Source &source, uint32_t bound) {
  if (bound <= 1) return 0;
  if (source.next == nullptr) return source.random.below(bound);
  return draw_bytes(source, bound <= 0x100 ? 1 : bound <= 0x10000 ? 2 : 4) % bound;
}

/// low to high, both included.
inline int32_t pick(Source &source, int32_t low, int32_t high) {
  const auto span = static_cast<uint32_t>(int64_t{high} - low + 1);
  return static_cast<int32_t>(low + static_cast<int64_t>(span == 0 ? word(source) : below(source, span)));
}

/// True once in `n` times, and never once the bytes are used up.
inline bool one_in(Source &source, uint32_t n) { return below(source, n) == n - 1; }

template <class T>
T one_of(Source &source, std::initializer_list<T> choices) {
  return choices.begin()[below(source, static_cast<uint32_t>(choices.size()))];
}

template <class T, size_t count>
const T &one_of(Source &source, const T (&choices)[count]) {
  return choices[below(source, static_cast<uint32_t>(count))];
}

/// A small size, most often at the bound of a block of 4, 8, 16 or 32, at most `most`.
inline uint32_t some_size(Source &source, uint32_t most) {
  const uint32_t size =
      one_in(source, 4) ? below(source, 72) : one_of(source, {1u,  3u,  4u, 5u, 7u,  8u,  9u,  15u, 16u, 17u, 31u,
                                                              32u, 33u, 2u, 0u, 12u, 20u, 47u, 48u, 63u, 65u});
  return size <= most ? size : size % (most + 1);
}

/// As some_size(), but seldom 0, so that most tensors of four extents are not empty.
inline uint16_t some_extent(Source &source, uint32_t most) {
  const uint32_t size = some_size(source, most);
  return static_cast<uint16_t>(size != 0 || one_in(source, 6) || most == 0 ? size : 1);
}

/// Any bits, or one of the special floats, or a number of ordinary size.
inline float some_float(Source &source, float reach = 8.0f) {
  switch (below(source, 6)) {
    case 4:
      return std::bit_cast<float>(word(source));
    case 5:
      return one_of(source, support::kSpecialFloats);
    default:
      return reach * static_cast<float>(pick(source, -128, 127)) / 128.0f;
  }
}

/// Integers that are random, all the same, the extremes of their types, small, or the source's own bytes. But for the last,
/// a fuzzer pays five bytes for any number of them.
inline void fill_bytes(Source &source, void *address, size_t count) {
  auto *to = static_cast<uint8_t *>(address);
  const uint32_t kind = below(source, 8);
  support::Random random(kind == 7 ? 0 : word(source));
  const auto constant = static_cast<uint8_t>(random.next());
  for (size_t i = 0; i < count; ++i) {
    switch (kind) {
      case 7:
        to[i] = static_cast<uint8_t>(draw_bytes(source, 1));
        break;
      case 6:
        to[i] = constant;
        break;
      case 5:
        to[i] = random.pick<uint8_t>({0x00, 0x7F, 0x80, 0xFF});
        break;
      case 4:
        to[i] = static_cast<uint8_t>(random.between(-2, 2));
        break;
      default:
        to[i] = static_cast<uint8_t>(random.next() >> 24);
    }
  }
}

/// Floats that are spread over -reach to reach, ties of rounding, special, any bits, all the same but for one, or the
/// source's own bytes.
inline void fill_floats(Source &source, void *address, size_t count, float reach) {
  auto *to = static_cast<uint8_t *>(address);
  const uint32_t kind = below(source, 10);
  support::Random random(kind == 9 ? 0 : word(source));
  const float constant = random.pick({0.0f, 3.5f, -2e7f, -1e7f, 1e30f, -100.0f, 187.03314f, reach});
  const size_t spike = kind == 8 && count != 0 ? random.below(static_cast<uint32_t>(count)) : count;
  for (size_t i = 0; i < count; ++i) {
    float value = random.uniform(-reach, reach);
    switch (kind) {
      case 9:
        value = std::bit_cast<float>(word(source));
        break;
      case 8:
        value = i == spike ? random.any_float() : constant;
        break;
      case 7:
        value = random.any_float();
        break;
      case 6:
        value = support::kSpecialFloats[random.below(static_cast<uint32_t>(std::size(support::kSpecialFloats)))];
        break;
      case 5:
        value = 0.5f * static_cast<float>(random.between(-600, 600));
        break;
      default:
        break;
    }
    std::memcpy(to + 4 * i, &value, 4);
  }
}

/// Mostly a format of 8 or 16 bits, signed or unsigned; sometimes floats; sometimes one that no conversion knows. Three of
/// its bytes make the width, the fourth has no meaning.
inline _NN_FMT some_format(Source &source) {
  const int reserved = one_in(source, 6) ? static_cast<int>(below(source, 256)) : 0;
  const int reach = one_in(source, 8) ? 90 : 18;
  switch (below(source, 12)) {
    case 8:
    case 9:
      return support::format(32, pick(source, -2, reach), one_of(source, {1, 0, 2}), reserved);
    case 10:
      return support::format(one_of(source, {24, 0, 9, -8}), pick(source, -2, 12), one_of(source, {1, 0, 2}), reserved);
    case 11:
      return support::format(one_of(source, {8, 16}), pick(source, -2, 12), one_of(source, {2, -1, 127}), reserved);
    default: {
      const int width = one_of(source, {8, 16});
      const int frac_bits = reach == 90 ? pick(source, -90, 90) : pick(source, -4, width + 3);
      return support::format(width, frac_bits, one_of(source, {1, 0}), reserved);
    }
  }
}

/// One of the four integer types, with ordinary fraction bits.
inline _NN_FMT some_integer_format(Source &source) {
  const int width = one_of(source, {8, 16});
  return support::format(width, pick(source, -2, width + 1), one_of(source, {1, 0}));
}

inline int32_t width_of(const _NN_FMT &fmt) { return fmt.frac_bits + fmt.int_bits + fmt.sign_bits; }

/// Ordinary scales, and the ends of the shift.
inline _NN_SCALE some_scale(Source &source) {
  switch (below(source, 6)) {
    case 0:
    case 1:
      return support::scale(1, 0);
    case 5:
      return support::scale(one_of(source, {1, -1, 0, 2147483647, -2147483647 - 1, 16777217}),
                            one_of(source, {0, 31, 32, 33, 63, -31, -32, -33, 127, -128}));
    default:
      return support::scale(pick(source, -20, 99), pick(source, -3, 7));
  }
}

/// As tarvu_convert_fmt_c() reads a width: modulo 256.
inline int32_t narrow_width_of(const _NN_FMT &fmt) { return static_cast<int8_t>(width_of(fmt)); }

/// For fields that are not read.
inline uint32_t unread(Source &source) { return one_in(source, 4) ? word(source) : 0; }

}  // namespace fuzz

#endif  // TARVU_TESTS_FUZZ_SOURCE_H
