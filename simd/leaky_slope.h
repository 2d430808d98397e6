/// \file leaky_slope.h
/// Whole blocks of a rectifier with an integer slope: elements from 0 on stay, negative ones become
/// saturate((x * slope) >> shift), the product held in lanes twice as wide as the element.
#ifndef TARVU_SIMD_LEAKY_SLOPE_H
#define TARVU_SIMD_LEAKY_SLOPE_H

#include <algorithm>
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
  for (; count != 0; count -= kSlopeBlock<T>, from += kSlopeBlock<T>, to += kSlopeBlock<T>) {
    slope_vector(from, to, slope, left);
  }
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_LEAKY_SLOPE_H
