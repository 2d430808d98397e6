/// \file widen.h
/// Integer lanes twice as wide, and narrowed again with saturation: sums, products and shifts between the two. 8-bit lanes widen to
/// 16 bits, 16-bit ones to 32, 32-bit ones to 64; the sign of a lane type is that of its elements.
///
/// A vector's lanes twice as wide fill two vectors, a Wide. Of 16 bytes `low` has the lower lanes and `high` the upper ones. Wider
/// vectors are so in each 16 bytes on their own:
///
///     u8 x 32   0 .. 7 8 .. 15 | 16 .. 23 24 .. 31      low   0 .. 7 | 16 .. 23      high   8 .. 15 | 24 .. 31
///
/// so what stands in which half is for lane-by-lane work to ignore; narrow() puts every lane back where it was.
#ifndef TARVU_SIMD_WIDEN_H
#define TARVU_SIMD_WIDEN_H

#include "simd/arrange.h"

namespace tarvu {

/// The integer type twice as wide, and half as wide.
template <class T>
struct Wider;
template <>
struct Wider<int8_t> {
  using type = int16_t;
};
template <>
struct Wider<uint8_t> {
  using type = uint16_t;
};
template <>
struct Wider<int16_t> {
  using type = int32_t;
};
template <>
struct Wider<uint16_t> {
  using type = uint32_t;
};
template <>
struct Wider<int32_t> {
  using type = int64_t;
};
template <>
struct Wider<uint32_t> {
  using type = uint64_t;
};
template <Lanes V>
using WiderLanes = typename VectorOf<typename Wider<LaneType<V>>::type, sizeof(V)>::type;

/// Lanes of W, twice as wide as those of the vector that they come from.
template <Lanes W>
struct Wide {
  W low;
  W high;
};

/// f of every lane, or pair of lanes, of vectors of up to 32 bytes: for plain bodies.
template <Lanes W, Lanes V, class F>
inline Wide<W> map_wide(V a, V b, F f) {
  constexpr int kHalf = 8 / static_cast<int>(sizeof(LaneType<V>));  // lanes of half a part of 16 bytes
  Wide<W> out{};
  for (int k = 0; k < kLanes<V>; ++k) {
    const int place = k / (2 * kHalf) * kHalf + k % kHalf;
    (k / kHalf % 2 == 0 ? out.low : out.high)[place] = f(a[k], b[k]);
  }
  return out;
}

/// The lanes as they are.
template <Lanes V>
inline Wide<WiderLanes<V>> widen(V a) {
  using W = WiderLanes<V>;
  using T = LaneType<V>;
#if TARVU_NEON
  if constexpr (std::is_same_v<T, int8_t>)
    return {W(vmovl_s8(vget_low_s8(int8x16_t(a)))), W(vmovl_high_s8(int8x16_t(a)))};
  if constexpr (std::is_same_v<T, uint8_t>)
    return {W(vmovl_u8(vget_low_u8(uint8x16_t(a)))), W(vmovl_high_u8(uint8x16_t(a)))};
  if constexpr (std::is_same_v<T, int16_t>)
    return {W(vmovl_s16(vget_low_s16(int16x8_t(a)))), W(vmovl_high_s16(int16x8_t(a)))};
  if constexpr (std::is_same_v<T, uint16_t>)
    return {W(vmovl_u16(vget_low_u16(uint16x8_t(a)))), W(vmovl_high_u16(uint16x8_t(a)))};
  if constexpr (std::is_same_v<T, int32_t>)
    return {W(vmovl_s32(vget_low_s32(int32x4_t(a)))), W(vmovl_high_s32(int32x4_t(a)))};
  if constexpr (std::is_same_v<T, uint32_t>)
    return {W(vmovl_u32(vget_low_u32(uint32x4_t(a)))), W(vmovl_high_u32(uint32x4_t(a)))};
#elif TARVU_AVX2
  if constexpr (std::is_unsigned_v<T>) return {W(zip_low(a, V{})), W(zip_high(a, V{}))};
  if constexpr (std::is_signed_v<T> && sizeof(T) < 4) {  // to the top of a wider lane, and down with the sign
    return {W(zip_low(V{}, a)) >> 8 * static_cast<int>(sizeof(T)),
            W(zip_high(V{}, a)) >> 8 * static_cast<int>(sizeof(T))};
  }
  if constexpr (std::is_same_v<T, int32_t>) return {W(zip_low(a, V(a < 0))), W(zip_high(a, V(a < 0)))};
#else
  return map_wide<W>(a, a, [](T x, T) { return static_cast<LaneType<W>>(x); });
#endif
}

/// a + b, exact.
template <Lanes V>
inline Wide<WiderLanes<V>> add_long(V a, V b) {
#if TARVU_NEON
  using W = WiderLanes<V>;
  using T = LaneType<V>;
  if constexpr (std::is_same_v<T, int8_t>)
    return {W(vaddl_s8(vget_low_s8(int8x16_t(a)), vget_low_s8(int8x16_t(b)))),
            W(vaddl_high_s8(int8x16_t(a), int8x16_t(b)))};
  if constexpr (std::is_same_v<T, uint8_t>)
    return {W(vaddl_u8(vget_low_u8(uint8x16_t(a)), vget_low_u8(uint8x16_t(b)))),
            W(vaddl_high_u8(uint8x16_t(a), uint8x16_t(b)))};
  if constexpr (std::is_same_v<T, int16_t>)
    return {W(vaddl_s16(vget_low_s16(int16x8_t(a)), vget_low_s16(int16x8_t(b)))),
            W(vaddl_high_s16(int16x8_t(a), int16x8_t(b)))};
  if constexpr (std::is_same_v<T, uint16_t>)
    return {W(vaddl_u16(vget_low_u16(uint16x8_t(a)), vget_low_u16(uint16x8_t(b)))),
            W(vaddl_high_u16(uint16x8_t(a), uint16x8_t(b)))};
#else
  const auto wide_a = widen(a);
  const auto wide_b = widen(b);
  return {wide_a.low + wide_b.low, wide_a.high + wide_b.high};
#endif
}

/// sum + a; the sum wraps.
template <Lanes V>
inline Wide<WiderLanes<V>> add_long(const Wide<WiderLanes<V>> &sum, V a) {
  using W = WiderLanes<V>;
#if TARVU_NEON
  using T = LaneType<V>;
  if constexpr (std::is_same_v<T, int8_t>)
    return {W(vaddw_s8(int16x8_t(sum.low), vget_low_s8(int8x16_t(a)))),
            W(vaddw_high_s8(int16x8_t(sum.high), int8x16_t(a)))};
  if constexpr (std::is_same_v<T, uint8_t>)
    return {W(vaddw_u8(uint16x8_t(sum.low), vget_low_u8(uint8x16_t(a)))),
            W(vaddw_high_u8(uint16x8_t(sum.high), uint8x16_t(a)))};
  if constexpr (std::is_same_v<T, int16_t>)
    return {W(vaddw_s16(int32x4_t(sum.low), vget_low_s16(int16x8_t(a)))),
            W(vaddw_high_s16(int32x4_t(sum.high), int16x8_t(a)))};
  if constexpr (std::is_same_v<T, uint16_t>)
    return {W(vaddw_u16(uint32x4_t(sum.low), vget_low_u16(uint16x8_t(a)))),
            W(vaddw_high_u16(uint32x4_t(sum.high), uint16x8_t(a)))};
#else
  using U = typename VectorOf<std::make_unsigned_t<LaneType<W>>, sizeof(W)>::type;
  const Wide<W> wide = widen(a);
  return {W(U(sum.low) + U(wide.low)), W(U(sum.high) + U(wide.high))};
#endif
}

/// Adds the two neighbours of each pair of lanes to the lane twice as wide at their place; the sum wraps. 16 bytes alone.
template <Lanes V>
requires(sizeof(V) == 16) inline WiderLanes<V> add_pairs(WiderLanes<V> sum, V a) {
  using W = WiderLanes<V>;
  using T [[maybe_unused]] = LaneType<V>;
#if TARVU_NEON
  if constexpr (std::is_same_v<T, int8_t>) return W(vpadalq_s8(int16x8_t(sum), int8x16_t(a)));
  if constexpr (std::is_same_v<T, uint8_t>) return W(vpadalq_u8(uint16x8_t(sum), uint8x16_t(a)));
  if constexpr (std::is_same_v<T, int16_t>) return W(vpadalq_s16(int32x4_t(sum), int16x8_t(a)));
  if constexpr (std::is_same_v<T, uint16_t>) return W(vpadalq_u16(uint32x4_t(sum), uint16x8_t(a)));
#elif TARVU_AVX2
  using U = typename VectorOf<std::make_unsigned_t<LaneType<W>>, sizeof(W)>::type;
  constexpr int kBits = 8 * sizeof(T);
  const W even = W(U(a) << kBits) >> kBits;
  return W(U(sum) + U(even) + U(W(a) >> kBits));
#else
  using Sum = LaneType<W>;
  for (int k = 0; k < kLanes<W>; ++k) {
    sum[k] = static_cast<Sum>(static_cast<uint32_t>(sum[k]) + static_cast<uint32_t>(a[2 * k]) +
                              static_cast<uint32_t>(a[2 * k + 1]));
  }
  return sum;
#endif
}

/// a * b, exact. 8 and 16 bits, and signed 32 bits in 16 bytes.
template <Lanes V>
inline Wide<WiderLanes<V>> multiply_long(V a, V b) {
  using W = WiderLanes<V>;
  using T = LaneType<V>;
#if TARVU_NEON
  if constexpr (std::is_same_v<T, int8_t>)
    return {W(vmull_s8(vget_low_s8(int8x16_t(a)), vget_low_s8(int8x16_t(b)))),
            W(vmull_high_s8(int8x16_t(a), int8x16_t(b)))};
  if constexpr (std::is_same_v<T, uint8_t>)
    return {W(vmull_u8(vget_low_u8(uint8x16_t(a)), vget_low_u8(uint8x16_t(b)))),
            W(vmull_high_u8(uint8x16_t(a), uint8x16_t(b)))};
  if constexpr (std::is_same_v<T, int16_t>)
    return {W(vmull_s16(vget_low_s16(int16x8_t(a)), vget_low_s16(int16x8_t(b)))),
            W(vmull_high_s16(int16x8_t(a), int16x8_t(b)))};
  if constexpr (std::is_same_v<T, uint16_t>)
    return {W(vmull_u16(vget_low_u16(uint16x8_t(a)), vget_low_u16(uint16x8_t(b)))),
            W(vmull_high_u16(uint16x8_t(a), uint16x8_t(b)))};
  if constexpr (std::is_same_v<T, int32_t>)
    return {W(vmull_s32(vget_low_s32(int32x4_t(a)), vget_low_s32(int32x4_t(b)))),
            W(vmull_high_s32(int32x4_t(a), int32x4_t(b)))};
#elif TARVU_AVX2
  if constexpr (sizeof(V) == 32 && sizeof(T) == 1) {
    // With both factors in the upper halves of their lanes the upper half of the product is the product of the bytes.
    const V zero{};
    const auto upper = [](V x, V y) {
      return std::is_signed_v<T> ? _mm256_mulhi_epi16(__m256i(x), __m256i(y))
                                 : _mm256_mulhi_epu16(__m256i(x), __m256i(y));
    };
    return {W(upper(zip_low(zero, a), zip_low(zero, b))), W(upper(zip_high(zero, a), zip_high(zero, b)))};
  } else if constexpr (sizeof(V) == 32 && sizeof(T) == 2) {
    const V lower = V(_mm256_mullo_epi16(__m256i(a), __m256i(b)));
    const V upper = V(std::is_signed_v<T> ? _mm256_mulhi_epi16(__m256i(a), __m256i(b))
                                          : _mm256_mulhi_epu16(__m256i(a), __m256i(b)));
    return {W(zip_low(lower, upper)), W(zip_high(lower, upper))};
  } else {
    const auto wide_a = widen(a);
    const auto wide_b = widen(b);
    return {wide_a.low * wide_b.low, wide_a.high * wide_b.high};
  }
#else
  return map_wide<W>(a, b, [](T x, T y) {
    return static_cast<LaneType<W>>(static_cast<LaneType<W>>(x) * static_cast<LaneType<W>>(y));
  });
#endif
}

/// sum + a * b; the sum wraps. Lanes as in multiply_long().
template <Lanes V>
inline Wide<WiderLanes<V>> multiply_add_long(const Wide<WiderLanes<V>> &sum, V a, V b) {
  using W = WiderLanes<V>;
#if TARVU_NEON
  using T = LaneType<V>;
  if constexpr (std::is_same_v<T, int8_t>)
    return {W(vmlal_s8(int16x8_t(sum.low), vget_low_s8(int8x16_t(a)), vget_low_s8(int8x16_t(b)))),
            W(vmlal_high_s8(int16x8_t(sum.high), int8x16_t(a), int8x16_t(b)))};
  if constexpr (std::is_same_v<T, uint8_t>)
    return {W(vmlal_u8(uint16x8_t(sum.low), vget_low_u8(uint8x16_t(a)), vget_low_u8(uint8x16_t(b)))),
            W(vmlal_high_u8(uint16x8_t(sum.high), uint8x16_t(a), uint8x16_t(b)))};
  if constexpr (std::is_same_v<T, int16_t>)
    return {W(vmlal_s16(int32x4_t(sum.low), vget_low_s16(int16x8_t(a)), vget_low_s16(int16x8_t(b)))),
            W(vmlal_high_s16(int32x4_t(sum.high), int16x8_t(a), int16x8_t(b)))};
  if constexpr (std::is_same_v<T, uint16_t>)
    return {W(vmlal_u16(uint32x4_t(sum.low), vget_low_u16(uint16x8_t(a)), vget_low_u16(uint16x8_t(b)))),
            W(vmlal_high_u16(uint32x4_t(sum.high), uint16x8_t(a), uint16x8_t(b)))};
  if constexpr (std::is_same_v<T, int32_t>)
    return {W(vmlal_s32(int64x2_t(sum.low), vget_low_s32(int32x4_t(a)), vget_low_s32(int32x4_t(b)))),
            W(vmlal_high_s32(int64x2_t(sum.high), int32x4_t(a), int32x4_t(b)))};
#else
  using U = typename VectorOf<std::make_unsigned_t<LaneType<W>>, sizeof(W)>::type;
  const Wide<W> product = multiply_long(a, b);
  return {W(U(sum.low) + U(product.low)), W(U(sum.high) + U(product.high))};
#endif
}

/// Every lane saturated to Out, half as wide, signed or unsigned whatever the lanes are. 16 and 32 bits; signed 64 bits to signed 32
/// in 16 bytes.
template <class Out, Lanes W>
inline typename VectorOf<Out, sizeof(W)>::type narrow(const Wide<W> &x) {
  using T = LaneType<W>;
  using V = typename VectorOf<Out, sizeof(W)>::type;
  static_assert(sizeof(T) == 2 * sizeof(Out));
#if TARVU_NEON
  if constexpr (std::is_same_v<T, int16_t>) {
    if constexpr (std::is_signed_v<Out>) return V(vqmovn_high_s16(vqmovn_s16(int16x8_t(x.low)), int16x8_t(x.high)));
    if constexpr (std::is_unsigned_v<Out>) return V(vqmovun_high_s16(vqmovun_s16(int16x8_t(x.low)), int16x8_t(x.high)));
  } else if constexpr (std::is_same_v<T, uint16_t>) {
    const uint8x16_t bytes = vqmovn_high_u16(vqmovn_u16(uint16x8_t(x.low)), uint16x8_t(x.high));
    return V(std::is_signed_v<Out> ? vminq_u8(bytes, vdupq_n_u8(127)) : bytes);
  } else if constexpr (std::is_same_v<T, int32_t>) {
    if constexpr (std::is_signed_v<Out>) return V(vqmovn_high_s32(vqmovn_s32(int32x4_t(x.low)), int32x4_t(x.high)));
    if constexpr (std::is_unsigned_v<Out>) return V(vqmovun_high_s32(vqmovun_s32(int32x4_t(x.low)), int32x4_t(x.high)));
  } else if constexpr (std::is_same_v<T, uint32_t>) {
    const uint16x8_t halves = vqmovn_high_u32(vqmovn_u32(uint32x4_t(x.low)), uint32x4_t(x.high));
    return V(std::is_signed_v<Out> ? vminq_u16(halves, vdupq_n_u16(32767)) : halves);
  } else {
    static_assert(std::is_same_v<T, int64_t> && std::is_same_v<Out, int32_t>);
    return V(vqmovn_high_s64(vqmovn_s64(int64x2_t(x.low)), int64x2_t(x.high)));
  }
#else
#if TARVU_AVX2
  if constexpr (sizeof(T) <= 4) {
    // Packing takes its lanes for signed ones.
    const auto held = [](W half) {
      const W most = fill<W>(static_cast<T>(std::numeric_limits<Out>::max()));
      return std::is_signed_v<T> ? half : half > most ? most : half;
    };
    const W low = held(x.low);
    const W high = held(x.high);
    constexpr bool kToSigned = std::is_signed_v<Out>;
    if constexpr (sizeof(W) == 32 && sizeof(T) == 2) {
      return V(kToSigned ? _mm256_packs_epi16(__m256i(low), __m256i(high))
                         : _mm256_packus_epi16(__m256i(low), __m256i(high)));
    } else if constexpr (sizeof(W) == 32) {
      return V(kToSigned ? _mm256_packs_epi32(__m256i(low), __m256i(high))
                         : _mm256_packus_epi32(__m256i(low), __m256i(high)));
    } else if constexpr (sizeof(T) == 2) {
      return V(kToSigned ? _mm_packs_epi16(__m128i(low), __m128i(high))
                         : _mm_packus_epi16(__m128i(low), __m128i(high)));
    } else {
      return V(kToSigned ? _mm_packs_epi32(__m128i(low), __m128i(high))
                         : _mm_packus_epi32(__m128i(low), __m128i(high)));
    }
  }
#endif
  using Any =
      std::conditional_t<std::is_same_v<T, uint32_t>, uint32_t, std::conditional_t<sizeof(T) == 8, int64_t, int32_t>>;
  constexpr int kHalf = 8 / static_cast<int>(sizeof(Out));
  V out{};
  for (int k = 0; k < kLanes<V>; ++k) {
    const int place = k / (2 * kHalf) * kHalf + k % kHalf;
    out[k] = saturate<Out>(Any{(k / kHalf % 2 == 0 ? x.low : x.high)[place]});
  }
  return out;
#endif
}

/// x * 2^left if `left` is positive, else x / 2^-left rounded down, saturated to the lane; 0 stays 0 however far it is moved. 8 and 16
/// bits, counts of -31 to 31.
template <class T>
inline T shift_lane_saturated(T x, int left) {
  if (left <= 0) return static_cast<T>(x >> -left);
  return saturate<T>(int64_t{x} * (int64_t{1} << left));
}
template <Lanes V>
inline V shift_saturated(V x, int left) {
  using T = LaneType<V>;
#if TARVU_NEON
  if constexpr (std::is_same_v<T, int8_t>) return V(vqshlq_s8(int8x16_t(x), vdupq_n_s8(static_cast<int8_t>(left))));
  if constexpr (std::is_same_v<T, uint8_t>) return V(vqshlq_u8(uint8x16_t(x), vdupq_n_s8(static_cast<int8_t>(left))));
  if constexpr (std::is_same_v<T, int16_t>) return V(vqshlq_s16(int16x8_t(x), vdupq_n_s16(static_cast<int16_t>(left))));
  if constexpr (std::is_same_v<T, uint16_t>)
    return V(vqshlq_u16(uint16x8_t(x), vdupq_n_s16(static_cast<int16_t>(left))));
#elif TARVU_AVX2
  constexpr int kMost = std::numeric_limits<T>::max();
  constexpr int kLeast = std::numeric_limits<T>::min();
  constexpr int kBits = 8 * sizeof(T);
  using U = typename VectorOf<uint16_t, sizeof(V)>::type;
  using B = typename VectorOf<uint8_t, sizeof(V)>::type;
  if (left > 0) {
    // What lies beyond these limits saturates; one place further than the lane is as far as any.
    const int count = std::min(left, kBits);
    const V high = fill<V>(static_cast<T>(kMost >> count));
    const V low = fill<V>(static_cast<T>(count == kBits ? 0 : kLeast >> count));
    V moved;
    if constexpr (sizeof(T) == 1) {  // two in a lane of 16 bits, where a mask keeps them apart
      moved = V(B(U(x) << count) & fill<B>(static_cast<uint8_t>(0xFF << count)));
    } else {
      moved = V(U(x) << std::min(count, 15));
    }
    return x > high ? fill<V>(static_cast<T>(kMost)) : x < low ? fill<V>(static_cast<T>(kLeast)) : moved;
  }
  if constexpr (sizeof(T) == 2) {
    return std::is_unsigned_v<T> && left < -15 ? V{} : x >> std::min(-left, 15);
  } else {
    // The offset -kLeast makes the values non-negative, so that a logical shift does for both signs.
    const int count = std::min(-left, std::is_signed_v<T> ? 7 : 8);
    const B offset = fill<B>(static_cast<uint8_t>(-kLeast));
    const B moved = B(U(B(x) + offset) >> count) & fill<B>(static_cast<uint8_t>(0xFF >> count));
    return V(moved - fill<B>(static_cast<uint8_t>(-kLeast >> count)));
  }
#else
  return map_lanes<V>(x, [=](T lane) { return shift_lane_saturated(lane, left); });
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_WIDEN_H
