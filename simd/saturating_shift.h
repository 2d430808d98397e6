/// \file saturating_shift.h
/// Shifts whole runs of 8-bit and 16-bit integers by a power of two and stores them saturated to 8 or 16 bits.
#ifndef TARVU_SIMD_SATURATING_SHIFT_H
#define TARVU_SIMD_SATURATING_SHIFT_H

#include <algorithm>
#include <limits>

#include "simd/part.h"

namespace tarvu {

/// One element: shifted in 32 bits by `shift` (left if positive, else right; -31 to 31), then clamped to Out. A left shift may
/// wrap before the clamp. In and Out are both signed or both unsigned.
template <class In, class Out>
inline Out shift_and_clamp(In x, int shift) {
  using Word = std::conditional_t<std::is_signed_v<In>, int32_t, uint32_t>;
  const Word word = x;
  const Word moved = shift >= 0 ? shift_left(word, shift) : shift_right(word, -shift);
  return static_cast<Out>(std::clamp<Word>(moved, std::numeric_limits<Out>::min(), std::numeric_limits<Out>::max()));
}

/// The largest left shift of an In that no element can wrap in 32 bits.
template <class In>
inline constexpr int kLongestExactShift = 32 - std::numeric_limits<std::make_unsigned_t<In>>::digits;

#if TARVU_NEON
/// 16 elements as stored: one vector of 8-bit, two of 16-bit ones.
template <class Out>
struct ShiftedBlock {
  uint8x16_t vectors[sizeof(Out)];
};

/// 16 elements shifted by a count in every lane (right if negative), saturated to Out. Of 8-bit elements `second` is not read.
template <class In, class Out>
inline ShiftedBlock<Out> shift_vectors(uint8x16_t first, [[maybe_unused]] uint8x16_t second, int8x16_t shift) {
  const int16x8_t wide_shift = vmovl_s8(vget_low_s8(shift));
  if constexpr (sizeof(In) == 1 && sizeof(Out) == 1) {
    if constexpr (std::is_signed_v<In>) {
      return {{vreinterpretq_u8_s8(vqshlq_s8(vreinterpretq_s8_u8(first), shift))}};
    } else {
      return {{vqshlq_u8(first, shift)}};
    }
  } else if constexpr (std::is_signed_v<In>) {
    int16x8_t low, high;
    if constexpr (sizeof(In) == 1) {
      const int8x16_t narrow = vreinterpretq_s8_u8(first);
      low = vmovl_s8(vget_low_s8(narrow));
      high = vmovl_high_s8(narrow);
    } else {
      low = vreinterpretq_s16_u8(first);
      high = vreinterpretq_s16_u8(second);
    }
    low = vqshlq_s16(low, wide_shift);
    high = vqshlq_s16(high, wide_shift);
    if constexpr (sizeof(Out) == 1) {
      return {{vreinterpretq_u8_s8(vqmovn_high_s16(vqmovn_s16(low), high))}};
    } else {
      return {{vreinterpretq_u8_s16(low), vreinterpretq_u8_s16(high)}};
    }
  } else {
    uint16x8_t low, high;
    if constexpr (sizeof(In) == 1) {
      low = vmovl_u8(vget_low_u8(first));
      high = vmovl_high_u8(first);
    } else {
      low = vreinterpretq_u16_u8(first);
      high = vreinterpretq_u16_u8(second);
    }
    low = vqshlq_u16(low, wide_shift);
    high = vqshlq_u16(high, wide_shift);
    if constexpr (sizeof(Out) == 1) {
      return {{vqmovn_high_u16(vqmovn_u16(low), high)}};
    } else {
      return {{vreinterpretq_u8_u16(low), vreinterpretq_u8_u16(high)}};
    }
  }
}

/// The same from memory.
template <class In, class Out>
inline ShiftedBlock<Out> shift_block(const uint8_t *from, int8x16_t shift) {
  const uint8x16_t first = vld1q_u8(from);
  return shift_vectors<In, Out>(first, sizeof(In) == 2 ? vld1q_u8(from + 16) : first, shift);
}

/// Less than 16 elements: loaded and stored as parts of vectors.
template <class In, class Out>
inline void shift_part(const uint8_t *from, uint8_t *to, uint32_t count, int8x16_t shift) {
  const size_t in_bytes = count * sizeof(In);
  const size_t out_bytes = count * sizeof(Out);
  const bool two_in = in_bytes > 16;
  const u8x16 first = two_in ? load<u8x16>(from) : load_part(from, in_bytes);
  const u8x16 second = two_in ? load_part(from + 16, in_bytes - 16) : first;
  const ShiftedBlock<Out> shifted = shift_vectors<In, Out>(first, second, shift);
  if (out_bytes <= 16) return store_part(to, shifted.vectors[0], out_bytes);
  store(to, shifted.vectors[0]);
  store_part(to + 16, shifted.vectors[sizeof(Out) - 1], out_bytes - 16);
}

template <class Out>
inline void store_block(const ShiftedBlock<Out> &block, uint8_t *to) {
  for (size_t k = 0; k < sizeof(Out); ++k) vst1q_u8(to + 16 * k, block.vectors[k]);
}
#endif

#if !TARVU_NEON
/// 16 elements of 16 bits to 8 by shift_and_clamp(), in 16-bit words. What is beyond Out before a left shift is so after it,
/// and 8 bits to the left take any value but 0 beyond Out. The shift is -15 to 16.
template <class In, class Out>
inline void narrow_block(const uint8_t *from, uint8_t *to, int shift) {
  typedef In Words __attribute__((vector_size(32)));
  typedef Out Narrow __attribute__((vector_size(16)));
  const Words least = fill<Words>(std::numeric_limits<Out>::min());
  const Words most = fill<Words>(std::numeric_limits<Out>::max());
  Words words = load<Words>(from) >> std::clamp(-shift, 0, 15);
  words = words < least ? least : words > most ? most : words;
  words *= fill<Words>(static_cast<In>(1 << std::clamp(shift, 0, 8)));
  words = words < least ? least : words > most ? most : words;
  store(to, __builtin_convertvector(words, Narrow));
}

#if TARVU_AVX2
/// narrow_block() for 32 elements: packing saturates signed words, and unsigned ones that have no sign bit.
template <class In, class Out>
inline void narrow_two_blocks(const uint8_t *from, uint8_t *to, int shift) {
  typedef In Words __attribute__((vector_size(32)));
  const Words least = fill<Words>(std::numeric_limits<Out>::min());
  const Words most = fill<Words>(std::numeric_limits<Out>::max());
  const auto shifted = [=](const uint8_t *at) {
    Words words = load<Words>(at) >> std::clamp(-shift, 0, 15);
    if (shift > 0) {
      words = words < least ? least : words > most ? most : words;
      words = words << std::min(shift, 8);
    }
    if constexpr (std::is_unsigned_v<In>) words = words > most ? most : words;
    return __m256i(words);
  };
  const __m256i low = shifted(from);
  const __m256i high = shifted(from + 32);
  const __m256i packed = std::is_signed_v<In> ? _mm256_packs_epi16(low, high) : _mm256_packus_epi16(low, high);
  constexpr int kInOrder = 0xD8;  // packing works in 128-bit halves
  store(to, _mm256_permute4x64_epi64(packed, kInOrder));
}
#endif

/// 32 elements of 8 bits by shift_and_clamp(), two in a 16-bit word, where a mask keeps them apart. The shift is -7 to 7.
template <class T>
inline void shift_bytes_block(const uint8_t *from, uint8_t *to, int shift) {
  typedef T Bytes __attribute__((vector_size(32)));
  typedef uint8_t Raw __attribute__((vector_size(32)));
  typedef uint16_t Words __attribute__((vector_size(32)));
  constexpr int kMost = std::numeric_limits<T>::max();
  constexpr int kLeast = std::numeric_limits<T>::min();
  const auto x = load<Bytes>(from);
  if (shift >= 0) {
    const Raw kept = fill<Raw>(static_cast<uint8_t>(0xFF << shift));
    const Bytes moved = Bytes(Raw(Words(x) << shift) & kept);
    const Bytes high = fill<Bytes>(static_cast<T>(kMost >> shift));
    const Bytes low = fill<Bytes>(static_cast<T>(kLeast >> shift));
    store(to, x > high ? fill<Bytes>(static_cast<T>(kMost)) : x < low ? fill<Bytes>(static_cast<T>(kLeast)) : moved);
  } else {
    // The offset -kLeast makes the values non-negative, so that a logical shift does for both signednesses.
    const Raw offset = fill<Raw>(static_cast<uint8_t>(-kLeast));
    const Raw kept = fill<Raw>(static_cast<uint8_t>(0xFF >> -shift));
    const Raw moved = Raw(Words(Raw(x) + offset) >> -shift) & kept;
    store(to, moved - fill<Raw>(static_cast<uint8_t>(-kLeast >> -shift)));
  }
}
#endif

/// shift_and_clamp() over a run, for shifts that cannot wrap: -31 to kLongestExactShift. Either the two runs lie apart, or the
/// destination neither starts nor ends behind the source.
template <class In, class Out>
inline void shift_and_clamp_run(const uint8_t *from, uint8_t *to, uint32_t count, int shift) {
#if TARVU_NEON
  const int8x16_t lanes_shift = vdupq_n_s8(static_cast<int8_t>(shift));
  if (count < 16) return shift_part<In, Out>(from, to, count, lanes_shift);
  const auto two_blocks = [=](const uint8_t *source, uint8_t *destination) {
    const ShiftedBlock<Out> first = shift_block<In, Out>(source, lanes_shift);
    const ShiftedBlock<Out> second = shift_block<In, Out>(source + 16 * sizeof(In), lanes_shift);
    store_block(first, destination);
    store_block(second, destination + 16 * sizeof(Out));
  };
  // The last block begins early enough to end with the run. It is loaded ahead of all stores, of which some may reach it.
  const ShiftedBlock<Out> last = shift_block<In, Out>(from + (count - 16) * sizeof(In), lanes_shift);
  uint8_t *const last_to = to + (count - 16) * sizeof(Out);
  for (; count > 128; count -= 128, from += 128 * sizeof(In), to += 128 * sizeof(Out)) {
    for (size_t k = 0; k < 128; k += 32) two_blocks(from + k * sizeof(In), to + k * sizeof(Out));
  }
  for (; count > 16; count -= 16, from += 16 * sizeof(In), to += 16 * sizeof(Out)) {
    store_block(shift_block<In, Out>(from, lanes_shift), to);
  }
  store_block(last, last_to);
#else
  uint32_t i = 0;
  if constexpr (sizeof(In) == 1 && sizeof(Out) == 1) {
    for (; shift >= -7 && shift <= 7 && count - i >= 32; i += 32, from += 32, to += 32) {
      shift_bytes_block<In>(from, to, shift);
    }
  } else if constexpr (sizeof(In) == 2 && sizeof(Out) == 1) {
#if TARVU_AVX2
    for (; shift >= -15 && count - i >= 32; i += 32, from += 64, to += 32) narrow_two_blocks<In, Out>(from, to, shift);
#endif
    for (; shift >= -15 && count - i >= 16; i += 16, from += 32, to += 16) narrow_block<In, Out>(from, to, shift);
  }
  const auto *source = reinterpret_cast<const Unaligned<In> *>(from);
  auto *destination = reinterpret_cast<Unaligned<Out> *>(to);
  const uint32_t rest = count - i;
  TARVU_INDEPENDENT_ITERATIONS
  for (uint32_t k = 0; k < rest; ++k) {
    destination[k].value = shift_and_clamp<In, Out>(source[k].value, shift);
  }
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_SATURATING_SHIFT_H
