/// \file elementwise.h
/// Two runs of integers combined element by element into a third one: in float, or in 16-bit lanes where 8-bit elements, weights
/// and shifts leave nothing to round. The destination may be one of the sources; otherwise the runs lie apart.
#ifndef TARVU_SIMD_ELEMENTWISE_H
#define TARVU_SIMD_ELEMENTWISE_H

#include "simd/runs.h"

namespace tarvu {

/// x / 2^count towards zero, for a count of 0 to 16.
inline int32_t shift_towards_zero(int32_t x, int count) {
  return shift_right(x < 0 ? x + ((1 << count) - 1) : x, count);
}

#if TARVU_NEON
/// Sixteen 8-bit lanes, and sixteen 16-bit lanes.
template <class T>
using Bytes = std::conditional_t<std::is_signed_v<T>, int8x16_t, uint8x16_t>;
template <class T>
struct Halves;
template <>
struct Halves<int8_t> {
  int16x8_t low, high;
};
template <>
struct Halves<uint8_t> {
  uint16x8_t low, high;
};

template <class T>
inline Bytes<T> load_bytes(const T *from) {
  return load<Bytes<T>>(from);
}

/// a * b of sixteen elements each; the 16 bits hold every product.
inline Halves<int8_t> multiply_long(int8x16_t a, int8x16_t b) {
  return {vmull_s8(vget_low_s8(a), vget_low_s8(b)), vmull_high_s8(a, b)};
}
inline Halves<uint8_t> multiply_long(uint8x16_t a, uint8x16_t b) {
  return {vmull_u8(vget_low_u8(a), vget_low_u8(b)), vmull_high_u8(a, b)};
}
/// sum + a * b.
inline Halves<int8_t> multiply_add_long(Halves<int8_t> sum, int8x16_t a, int8x16_t b) {
  return {vmlal_s8(sum.low, vget_low_s8(a), vget_low_s8(b)), vmlal_high_s8(sum.high, a, b)};
}
inline Halves<uint8_t> multiply_add_long(Halves<uint8_t> sum, uint8x16_t a, uint8x16_t b) {
  return {vmlal_u8(sum.low, vget_low_u8(a), vget_low_u8(b)), vmlal_high_u8(sum.high, a, b)};
}

template <class T>
inline auto fill_bytes(T x) {
  if constexpr (std::is_signed_v<T>) {
    return vdupq_n_s8(x);
  } else {
    return vdupq_n_u8(x);
  }
}

/// Shifts right by 0 to 15, towards zero, and stores saturated.
template <class Out>
inline void store_shifted(Halves<int8_t> x, int count, Out *to) {
  const int16x8_t bias = vdupq_n_s16(static_cast<int16_t>((1 << count) - 1));
  const int16x8_t shift = vdupq_n_s16(static_cast<int16_t>(-count));
  const auto shifted = [=](int16x8_t half) {
    return vshlq_s16(vaddq_s16(half, vandq_s16(vshrq_n_s16(half, 15), bias)), shift);
  };
  if constexpr (std::is_signed_v<Out>) {
    store(to, vqmovn_high_s16(vqmovn_s16(shifted(x.low)), shifted(x.high)));
  } else {
    store(to, vqmovun_high_s16(vqmovun_s16(shifted(x.low)), shifted(x.high)));
  }
}
/// As above, for a count of 0 to 16.
template <class Out>
inline void store_shifted(Halves<uint8_t> x, int count, Out *to) {
  const int16x8_t shift = vdupq_n_s16(static_cast<int16_t>(-count));
  const uint8x16_t bytes = vqmovn_high_u16(vqmovn_u16(vshlq_u16(x.low, shift)), vshlq_u16(x.high, shift));
  store(to, std::is_signed_v<Out> ? vminq_u8(bytes, vdupq_n_u8(127)) : bytes);
}
#elif TARVU_AVX2
/// Thirty-two 8-bit lanes, and as many 16-bit lanes: of each 128 bits of the former the lower half, and the upper half.
template <class T>
struct Bytes {
  __m256i all;
};
template <class T>
struct Halves {
  __m256i low, high;
};

template <class T>
inline Bytes<T> load_bytes(const T *from) {
  return {load<__m256i>(from)};
}

/// Elements times 2^8: the upper 16 bits of a product of two are the product of the elements.
template <class T>
inline Halves<T> widen_upwards(Bytes<T> x) {
  const __m256i zero = _mm256_setzero_si256();
  return {_mm256_unpacklo_epi8(zero, x.all), _mm256_unpackhi_epi8(zero, x.all)};
}
template <class T>
inline Halves<T> multiply_long(Bytes<T> a, Bytes<T> b) {
  const Halves<T> wide_a = widen_upwards(a);
  const Halves<T> wide_b = widen_upwards(b);
  if constexpr (std::is_signed_v<T>) {
    return {_mm256_mulhi_epi16(wide_a.low, wide_b.low), _mm256_mulhi_epi16(wide_a.high, wide_b.high)};
  } else {
    return {_mm256_mulhi_epu16(wide_a.low, wide_b.low), _mm256_mulhi_epu16(wide_a.high, wide_b.high)};
  }
}
template <class T>
inline Halves<T> multiply_add_long(Halves<T> sum, Bytes<T> a, Bytes<T> b) {
  const Halves<T> product = multiply_long(a, b);
  return {_mm256_add_epi16(sum.low, product.low), _mm256_add_epi16(sum.high, product.high)};
}

template <class T>
inline Bytes<T> fill_bytes(T x) {
  return {_mm256_set1_epi8(static_cast<char>(x))};
}

template <class Out>
inline void store_shifted(Halves<int8_t> x, int count, Out *to) {
  const __m256i bias = _mm256_set1_epi16(static_cast<int16_t>((1 << count) - 1));
  const __m128i shift = _mm_cvtsi32_si128(count);
  const auto shifted = [=](__m256i half) {
    const __m256i raised = _mm256_add_epi16(half, _mm256_and_si256(_mm256_srai_epi16(half, 15), bias));
    return _mm256_sra_epi16(raised, shift);
  };
  const __m256i low = shifted(x.low);
  const __m256i high = shifted(x.high);
  store(to, std::is_signed_v<Out> ? _mm256_packs_epi16(low, high) : _mm256_packus_epi16(low, high));
}
template <class Out>
inline void store_shifted(Halves<uint8_t> x, int count, Out *to) {
  const __m256i most = _mm256_set1_epi16(std::numeric_limits<Out>::max());
  const __m128i shift = _mm_cvtsi32_si128(count);
  const __m256i low = _mm256_min_epu16(_mm256_srl_epi16(x.low, shift), most);
  const __m256i high = _mm256_min_epu16(_mm256_srl_epi16(x.high, shift), most);
  store(to, _mm256_packus_epi16(low, high));
}
#endif

#if TARVU_NEON || TARVU_AVX2
/// Elements of a block.
inline constexpr int kByteBlock = static_cast<int>(sizeof(Bytes<int8_t>));
#endif

/// to[i] = a[i] * b[i] / 2^right_shift towards zero, saturated. 8-bit elements, shifts of 0 to 15, or 16 for unsigned ones.
template <class T, class Out>
inline void multiply_and_shift(const T *a, const T *b, Out *to, uint32_t count, int right_shift) {
#if TARVU_NEON || TARVU_AVX2
  const auto block = [&](int at) {
    store_shifted(multiply_long(load_bytes(a + at), load_bytes(b + at)), right_shift, to + at);
  };
  for (; count >= 32; count -= 32, a += 32, b += 32, to += 32) {
    block(0);
    if constexpr (kByteBlock == 16) block(16);
  }
#endif
  for (uint32_t i = 0; i < count; ++i) {
    keep_scalar();
    store(to + i, saturate<Out>(shift_towards_zero(load<T>(a + i) * load<T>(b + i), right_shift)));
  }
}

/// to[i] = (a[i] * weight_a + b[i] * weight_b) / 2^right_shift towards zero, saturated. 8-bit elements, shifts of 0 to 15;
/// the weighted sum must fit a signed 16-bit integer, whatever the elements.
template <class T, class Out>
inline void weigh_and_shift(const T *a, const T *b, Out *to, uint32_t count, T weight_a, T weight_b, int right_shift) {
#if TARVU_NEON || TARVU_AVX2
  const Bytes<T> weights_a = fill_bytes(weight_a);
  const Bytes<T> weights_b = fill_bytes(weight_b);
  const auto block = [&](int at) {
    const Halves<T> product = multiply_long(load_bytes(a + at), weights_a);
    store_shifted(multiply_add_long(product, load_bytes(b + at), weights_b), right_shift, to + at);
  };
  for (; count >= 32; count -= 32, a += 32, b += 32, to += 32) {
    block(0);
    if constexpr (kByteBlock == 16) block(16);
  }
#endif
  for (uint32_t i = 0; i < count; ++i) {
    keep_scalar();
    const int32_t sum = load<T>(a + i) * weight_a + load<T>(b + i) * weight_b;
    store(to + i, saturate<Out>(shift_towards_zero(sum, right_shift)));
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_ELEMENTWISE_H
