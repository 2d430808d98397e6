/// \file arrange.h
/// Lanes brought into another order: zipped, unzipped, reversed, transposed, dealt out as they are loaded and gathered as they are
/// stored. Letters are lanes, the first one on the left:
///
///     a  a0 a1 a2 a3      zip_low(a, b)   a0 b0 a1 b1      unzip_even(a, b)  a0 a2 b0 b2      reverse(a)  a3 a2 a1 a0
///     b  b0 b1 b2 b3      zip_high(a, b)  a2 b2 a3 b3      unzip_odd(a, b)   a1 a3 b1 b3
#ifndef TARVU_SIMD_ARRANGE_H
#define TARVU_SIMD_ARRANGE_H

#include "simd/lanes.h"

namespace tarvu {

/// Lane k of the result is lane place(k) of the 2 * kLanes<V> lanes of a and b.
template <Lanes V, class Place, int... k>
inline V shuffle(V a, V b, Place, std::integer_sequence<int, k...>) {
  return take_lanes<Place::of(k)...>(a, b);
}
template <class Place, Lanes V>
inline V shuffle(V a, V b) {
  return shuffle(a, b, Place{}, std::make_integer_sequence<int, kLanes<V>>{});
}

/// Zips work on each 16 bytes of a vector on their own; wider vectors hold several such parts.
template <class V, int half>
struct ZipPlaces {
  static constexpr int kPart = 16 / static_cast<int>(sizeof(LaneType<V>));
  static constexpr int of(int k) {
    return k / kPart * kPart + half * (kPart / 2) + k % kPart / 2 + (k % 2 == 0 ? 0 : kLanes<V>);
  }
};
template <class V, int first>
struct UnzipPlaces {
  static constexpr int of(int k) { return 2 * k + first; }
};
template <class V>
struct ReversePlaces {
  static constexpr int of(int k) { return kLanes<V> - 1 - k; }
};

/// The lower, or the upper, lanes of each 16 bytes of two vectors in turn: a0 b0 a1 b1 ...
template <Lanes V>
inline V zip_low(V a, V b) {
  return shuffle<ZipPlaces<V, 0>>(a, b);
}
template <Lanes V>
inline V zip_high(V a, V b) {
  return shuffle<ZipPlaces<V, 1>>(a, b);
}

/// The lanes of even, or of odd, number of two vectors that follow one another: undoes zip_low() and zip_high() of 16 bytes.
template <Lanes V>
inline V unzip_even(V a, V b) {
  return shuffle<UnzipPlaces<V, 0>>(a, b);
}
template <Lanes V>
inline V unzip_odd(V a, V b) {
  return shuffle<UnzipPlaces<V, 1>>(a, b);
}

/// The lanes in the opposite order.
template <Lanes V>
inline V reverse(V a) {
#if TARVU_NEON
  if constexpr (sizeof(LaneType<V>) == 1) {
    return V(vqtbl1q_u8(uint8x16_t(a), u8x16{15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0}));
  } else if constexpr (sizeof(LaneType<V>) == 2) {
    return V(vqtbl1q_u8(uint8x16_t(a), u8x16{14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1}));
  }
#endif
  return shuffle<ReversePlaces<V>>(a, a);
}

/// The lower, or the upper, two of four lanes twice.
inline f32x4 lower_twice(f32x4 a) { return take_lanes<0, 1, 0, 1>(a, a); }
inline f32x4 upper_twice(f32x4 a) { return take_lanes<2, 3, 2, 3>(a, a); }

/// Several vectors.
template <class V, int count>
struct Several {
  V of[count];
};

/// Loads count * kLanes<V> neighbours and deals them out: lane k of vector j is element count * k + j.
template <Lanes V, int count>
requires(sizeof(V) == 16 && sizeof(LaneType<V>) <= 4 && count >= 2 &&
         count <= 4) inline Several<V, count> load_dealt(const void *from) {
  Several<V, count> dealt;
#if TARVU_NEON
  const auto take = [&](const auto &loaded) {
    for (int j = 0; j < count; ++j) dealt.of[j] = V(loaded.val[j]);
  };
  if constexpr (sizeof(LaneType<V>) == 1) {
    const auto *at = static_cast<const uint8_t *>(from);
    if constexpr (count == 2) take(vld2q_u8(at));
    if constexpr (count == 3) take(vld3q_u8(at));
    if constexpr (count == 4) take(vld4q_u8(at));
  } else if constexpr (sizeof(LaneType<V>) == 2) {
    const auto *at = static_cast<const uint16_t *>(from);
    if constexpr (count == 2) take(vld2q_u16(at));
    if constexpr (count == 3) take(vld3q_u16(at));
    if constexpr (count == 4) take(vld4q_u16(at));
  } else {
    const auto *at = static_cast<const float *>(from);
    if constexpr (count == 2) take(vld2q_f32(at));
    if constexpr (count == 3) take(vld3q_f32(at));
    if constexpr (count == 4) take(vld4q_f32(at));
  }
#elif TARVU_AVX2
  const auto *at = static_cast<const uint8_t *>(from);
  V runs[count];
  for (int j = 0; j < count; ++j) runs[j] = load<V>(at + 16 * j);
  if constexpr (count == 2) {
    dealt = {{unzip_even(runs[0], runs[1]), unzip_odd(runs[0], runs[1])}};
  } else if constexpr (count == 4) {
    const V even_low = unzip_even(runs[0], runs[1]), even_high = unzip_even(runs[2], runs[3]);
    const V odd_low = unzip_odd(runs[0], runs[1]), odd_high = unzip_odd(runs[2], runs[3]);
    dealt = {{unzip_even(even_low, even_high), unzip_even(odd_low, odd_high), unzip_odd(even_low, even_high),
              unzip_odd(odd_low, odd_high)}};
  } else {
    constexpr int kCount = kLanes<V>;
    const auto third = [&]<int j>(std::integral_constant<int, j>) {
      struct OfTwo {
        static constexpr int of(int k) { return std::min(3 * k + j, 2 * kCount - 1); }
      };
      struct WithThird {
        static constexpr int of(int k) { return 3 * k + j < 2 * kCount ? k : 3 * k + j - kCount; }
      };
      dealt.of[j] = shuffle<WithThird>(shuffle<OfTwo>(runs[0], runs[1]), runs[2]);
    };
    third(std::integral_constant<int, 0>{});
    third(std::integral_constant<int, 1>{});
    third(std::integral_constant<int, 2>{});
  }
#else
  const auto *at = static_cast<const uint8_t *>(from);
  for (int i = 0; i < count * kLanes<V>; ++i) {
    dealt.of[i % count][i / count] = load<LaneType<V>>(at + i * static_cast<int>(sizeof(LaneType<V>)));
  }
#endif
  return dealt;
}

/// Stores vectors lane by lane in turn: undoes load_dealt().
template <Lanes V, int count>
requires(sizeof(V) == 16 && sizeof(LaneType<V>) <= 4 && count >= 2 &&
         count <= 4) inline void store_in_turn(void *to, const Several<V, count> &dealt) {
#if TARVU_NEON
  const auto with = [&](auto registers) {
    for (int j = 0; j < count; ++j) registers.val[j] = decltype(+registers.val[0])(dealt.of[j]);
    return registers;
  };
  if constexpr (sizeof(LaneType<V>) == 1) {
    auto *const at = static_cast<uint8_t *>(to);
    if constexpr (count == 2) vst2q_u8(at, with(uint8x16x2_t{}));
    if constexpr (count == 3) vst3q_u8(at, with(uint8x16x3_t{}));
    if constexpr (count == 4) vst4q_u8(at, with(uint8x16x4_t{}));
  } else if constexpr (sizeof(LaneType<V>) == 2) {
    auto *const at = static_cast<uint16_t *>(to);
    if constexpr (count == 2) vst2q_u16(at, with(uint16x8x2_t{}));
    if constexpr (count == 3) vst3q_u16(at, with(uint16x8x3_t{}));
    if constexpr (count == 4) vst4q_u16(at, with(uint16x8x4_t{}));
  } else {
    auto *const at = static_cast<float *>(to);
    if constexpr (count == 2) vst2q_f32(at, with(float32x4x2_t{}));
    if constexpr (count == 3) vst3q_f32(at, with(float32x4x3_t{}));
    if constexpr (count == 4) vst4q_f32(at, with(float32x4x4_t{}));
  }
#elif TARVU_AVX2
  auto *const at = static_cast<uint8_t *>(to);
  if constexpr (count == 2) {
    store(at, zip_low(dealt.of[0], dealt.of[1]));
    store(at + 16, zip_high(dealt.of[0], dealt.of[1]));
  } else if constexpr (count == 4) {
    const V even_low = zip_low(dealt.of[0], dealt.of[2]), even_high = zip_high(dealt.of[0], dealt.of[2]);
    const V odd_low = zip_low(dealt.of[1], dealt.of[3]), odd_high = zip_high(dealt.of[1], dealt.of[3]);
    store(at, zip_low(even_low, odd_low));
    store(at + 16, zip_high(even_low, odd_low));
    store(at + 32, zip_low(even_high, odd_high));
    store(at + 48, zip_high(even_high, odd_high));
  } else {
    constexpr int kCount = kLanes<V>;
    const auto run = [&]<int r>(std::integral_constant<int, r>) {
      struct OfTwo {
        static constexpr int of(int k) { return (r * kCount + k) / 3 + ((r * kCount + k) % 3 == 1 ? kCount : 0); }
      };
      struct WithThird {
        static constexpr int of(int k) { return (r * kCount + k) % 3 == 2 ? kCount + (r * kCount + k) / 3 : k; }
      };
      store(at + 16 * r, shuffle<WithThird>(shuffle<OfTwo>(dealt.of[0], dealt.of[1]), dealt.of[2]));
    };
    run(std::integral_constant<int, 0>{});
    run(std::integral_constant<int, 1>{});
    run(std::integral_constant<int, 2>{});
  }
#else
  auto *const at = static_cast<uint8_t *>(to);
  for (int i = 0; i < count * kLanes<V>; ++i) {
    store(at + i * static_cast<int>(sizeof(LaneType<V>)), LaneType<V>{dealt.of[i % count][i / count]});
  }
#endif
}

/// Transposes 4 x 4 floats, in each 16 bytes on their own: lane c of vector r becomes lane r of vector c.
///
///     a0 a1 a2 a3      a0 b0 c0 d0
///     b0 b1 b2 b3      a1 b1 c1 d1
///     c0 c1 c2 c3      a2 b2 c2 d2
///     d0 d1 d2 d3      a3 b3 c3 d3
template <FloatLanes F>
inline Several<F, 4> transpose(const Several<F, 4> &rows) {
  typedef typename VectorOf<uint64_t, sizeof(F)>::type Pairs;
  const F ab_low = zip_low(rows.of[0], rows.of[1]), ab_high = zip_high(rows.of[0], rows.of[1]);
  const F cd_low = zip_low(rows.of[2], rows.of[3]), cd_high = zip_high(rows.of[2], rows.of[3]);
  return {{F(zip_low(Pairs(ab_low), Pairs(cd_low))), F(zip_high(Pairs(ab_low), Pairs(cd_low))),
           F(zip_low(Pairs(ab_high), Pairs(cd_high))), F(zip_high(Pairs(ab_high), Pairs(cd_high)))}};
}

}  // namespace tarvu

#endif  // TARVU_SIMD_ARRANGE_H
