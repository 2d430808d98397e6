/// \file leaky_slope.h
/// Whole blocks of a rectifier with an integer slope: elements from 0 on stay, negative ones become
/// saturate((x * slope) >> shift), the product held in lanes twice as wide as the element.
#ifndef TARVU_SIMD_LEAKY_SLOPE_H
#define TARVU_SIMD_LEAKY_SLOPE_H

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "simd/lanes.h"

namespace tarvu {

/// Elements of the smallest block: one vector.
template <class T>
inline constexpr uint32_t kSlopeBlock = 16 / sizeof(T);

/// Bits that a lane of a product is moved to the left, or to the right if negative: from all of the lane to the right, which
/// leaves the sign, to all of it to the left, which leaves 0.
template <class T>
inline int lane_shift(int right) {
  constexpr int kLaneBits = 16 * sizeof(T);
  return std::clamp(-right, -kLaneBits, kLaneBits);
}

#if TARVU_NEON
inline int8x16_t slope_block(int8x16_t x, int8_t slope, int left) {
  const int8x8_t slopes = vdup_n_s8(slope);
  const int16x8_t shift = vdupq_n_s16(static_cast<int16_t>(left));
  const int16x8_t low = vshlq_s16(vmull_s8(vget_low_s8(x), slopes), shift);
  const int16x8_t high = vshlq_s16(vmull_s8(vget_high_s8(x), slopes), shift);
  const int8x16_t negative = vqmovn_high_s16(vqmovn_s16(low), high);
  return vbslq_s8(vcltzq_s8(x), negative, x);
}
inline int16x8_t slope_block(int16x8_t x, int8_t slope, int left) {
  const int16x4_t slopes = vdup_n_s16(slope);
  const int32x4_t shift = vdupq_n_s32(left);
  const int32x4_t low = vshlq_s32(vmull_s16(vget_low_s16(x), slopes), shift);
  const int32x4_t high = vshlq_s32(vmull_high_s16(x, vcombine_s16(slopes, slopes)), shift);
  const int16x8_t negative = vqmovn_high_s32(vqmovn_s32(low), high);
  return vbslq_s16(vcltzq_s16(x), negative, x);
}

/// 64 bytes of elements. All are loaded before one is stored.
template <class T>
inline void slope_blocks(const T *from, T *to, int8_t slope, int left) {
  using Lanes = std::conditional_t<sizeof(T) == 1, int8x16_t, int16x8_t>;
  const uint8x16x4_t x = vld1q_u8_x4(reinterpret_cast<const uint8_t *>(from));
  const Lanes a = slope_block(Lanes(x.val[0]), slope, left);
  const Lanes b = slope_block(Lanes(x.val[1]), slope, left);
  const Lanes c = slope_block(Lanes(x.val[2]), slope, left);
  const Lanes d = slope_block(Lanes(x.val[3]), slope, left);
  auto *bytes = reinterpret_cast<uint8_t *>(to);
  vst1q_u8(bytes, uint8x16_t(a));
  vst1q_u8(bytes + 16, uint8x16_t(b));
  vst1q_u8(bytes + 32, uint8x16_t(c));
  vst1q_u8(bytes + 48, uint8x16_t(d));
}
#else
/// Compiler vectors of 256 bits of products, for one block of bytes or two of half-words.
template <class T>
inline void slope_vector(const T *from, T *to, int8_t slope, int left) {
  using Product = std::conditional_t<sizeof(T) == 1, int16_t, int32_t>;
  typedef Product Products __attribute__((vector_size(sizeof(Product) * kSlopeBlock<T>)));
  typedef T Elements __attribute__((vector_size(16)));
  const Products x = __builtin_convertvector(load<Elements>(from), Products);
  Products moved = x * fill<Products>(slope);
  constexpr int kLastBit = 8 * sizeof(Product) - 1;
  if (left > kLastBit) {
    moved = Products{};
  } else if (left >= 0) {
    moved = moved << left;
  } else {
    moved = moved >> std::min(-left, kLastBit);
  }
  const Products least = fill<Products>(std::numeric_limits<T>::min());
  const Products most = fill<Products>(std::numeric_limits<T>::max());
  moved = moved < least ? least : moved > most ? most : moved;
  const Products result = x < Products{} ? moved : x;
  store(to, __builtin_convertvector(result, Elements));
}
#endif

#if TARVU_AVX2
/// Moves lanes of 16 or 32 bits. Counts from a whole lane on leave the sign to the right, and 0 to the left.
template <class Product>
inline __m256i move_lanes(__m256i products, int left) {
  const __m128i count = _mm_cvtsi32_si128(std::abs(left));
  if constexpr (sizeof(Product) == 2)
    return left < 0 ? _mm256_sra_epi16(products, count) : _mm256_sll_epi16(products, count);
  return left < 0 ? _mm256_sra_epi32(products, count) : _mm256_sll_epi32(products, count);
}

/// 32 bytes of elements; `slope` is in all lanes of 16 bits, for bytes in their upper halves.
template <class T>
inline void slope_two_blocks(const T *from, T *to, __m256i slope, int left) {
  const __m256i x = load<__m256i>(from);
  __m256i result;
  if constexpr (sizeof(T) == 1) {
    // Both factors in the upper halves of their lanes: the upper half of the product is the product of the bytes.
    const __m256i low = _mm256_mulhi_epi16(_mm256_unpacklo_epi8(__m256i{}, x), slope);
    const __m256i high = _mm256_mulhi_epi16(_mm256_unpackhi_epi8(__m256i{}, x), slope);
    const __m256i negative = _mm256_packs_epi16(move_lanes<int16_t>(low, left), move_lanes<int16_t>(high, left));
    result = _mm256_blendv_epi8(x, negative, x);
  } else {
    const __m256i lower = _mm256_mullo_epi16(x, slope);
    const __m256i upper = _mm256_mulhi_epi16(x, slope);
    const __m256i low = move_lanes<int32_t>(_mm256_unpacklo_epi16(lower, upper), left);
    const __m256i high = move_lanes<int32_t>(_mm256_unpackhi_epi16(lower, upper), left);
    result = _mm256_blendv_epi8(x, _mm256_packs_epi32(low, high), _mm256_srai_epi16(x, 15));
  }
  store(to, result);
}
#endif

/// Blocks of kSlopeBlock elements; `count` is a multiple of it. `to` may be `from`.
template <class T>
inline void slope_run(const T *from, T *to, uint32_t count, int8_t slope, int right) {
  const int left = lane_shift<T>(right);
#if TARVU_NEON
  constexpr uint32_t kTurn = 4 * kSlopeBlock<T>;
  for (; count >= 2 * kTurn; count -= 2 * kTurn, from += 2 * kTurn, to += 2 * kTurn) {
    slope_blocks(from, to, slope, left);
    slope_blocks(from + kTurn, to + kTurn, slope, left);
  }
  using Lanes = std::conditional_t<sizeof(T) == 1, int8x16_t, int16x8_t>;
  for (; count != 0; count -= kSlopeBlock<T>, from += kSlopeBlock<T>, to += kSlopeBlock<T>) {
    store(to, slope_block(load<Lanes>(from), slope, left));
  }
#else
#if TARVU_AVX2
  const __m256i slopes = _mm256_set1_epi16(static_cast<int16_t>(sizeof(T) == 1 ? slope * 256 : slope));
  constexpr uint32_t kTurn = 2 * kSlopeBlock<T>;
  for (; count >= kTurn; count -= kTurn, from += kTurn, to += kTurn) slope_two_blocks(from, to, slopes, left);
#endif
  for (; count != 0; count -= kSlopeBlock<T>, from += kSlopeBlock<T>, to += kSlopeBlock<T>) {
    slope_vector(from, to, slope, left);
  }
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_LEAKY_SLOPE_H
