/// \file bilinear.h
/// Steps of a bilinear blend of bytes in eight 16-bit lanes, which wrap: widening, shifts and the order of the lanes.
#ifndef TARVU_SIMD_BILINEAR_H
#define TARVU_SIMD_BILINEAR_H

#include <algorithm>

#include "simd/lanes.h"

namespace tarvu {

typedef int8_t s8x8 __attribute__((vector_size(8)));
typedef uint8_t u8x8 __attribute__((vector_size(8)));

/// Eight elements of type Byte (int8_t or uint8_t).
template <class Byte>
using EightBytes = std::conditional_t<std::is_signed_v<Byte>, s8x8, u8x8>;

/// Bytes widened to 16 bits by their sign; what is 16 bits wide stays as it is.
inline u16x8 widened(s8x8 a) {
#if TARVU_AVX2
  return u16x8(_mm_cvtepi8_epi16(_mm_cvtsi64_si128(int64_t(a))));
#else
  return u16x8(__builtin_convertvector(a, s16x8));
#endif
}
inline u16x8 widened(u8x8 a) {
#if TARVU_AVX2
  return u16x8(_mm_cvtepu8_epi16(_mm_cvtsi64_si128(int64_t(a))));
#else
  return __builtin_convertvector(a, u16x8);
#endif
}
inline u16x8 widened(u16x8 a) { return a; }

/// a - b, widened first.
template <class Bytes>
inline u16x8 difference(Bytes a, Bytes b) {
#if TARVU_NEON
  if constexpr (std::is_same_v<Bytes, s8x8>) return u16x8(vsubl_s8(int8x8_t(a), int8x8_t(b)));
  if constexpr (std::is_same_v<Bytes, u8x8>) return u16x8(vsubl_u8(uint8x8_t(a), uint8x8_t(b)));
#endif
  return widened(a) - widened(b);
}

/// a + b, widened first.
template <class Bytes>
inline u16x8 sum(u16x8 a, Bytes b) {
#if TARVU_NEON
  if constexpr (std::is_same_v<Bytes, s8x8>) return u16x8(vaddw_s8(int16x8_t(a), int8x8_t(b)));
  if constexpr (std::is_same_v<Bytes, u8x8>) return u16x8(vaddw_u8(uint16x8_t(a), uint8x8_t(b)));
#endif
  return a + widened(b);
}

/// A shift of all lanes by one count, any number, to the right if it is positive and to the left if it is negative.
/// 16 and more to the right leaves the sign of a signed lane and 0 of an unsigned one; 16 and more to the left gives 0.
class LaneShift {
 public:
#if TARVU_NEON
  explicit LaneShift(int right) : left_(vdupq_n_s16(static_cast<int16_t>(std::clamp(-right, -16, 16)))) {}
  u16x8 of_unsigned(u16x8 a) const { return u16x8(vshlq_u16(uint16x8_t(a), left_)); }
  u16x8 factor(u16x8 a) const { return a; }
  u16x8 of_product(u16x8 a) const { return u16x8(vshlq_s16(int16x8_t(a), left_)); }

 private:
  int16x8_t left_;
#else
  explicit LaneShift(int right)
      : right_(std::clamp(right, 0, 15)),
        power_(static_cast<uint16_t>(right > 0 ? 1 : 1 << std::min(-right, 16))),
        unsigned_power_(right > 15 ? uint16_t{0} : power_) {}
  /// Unsigned lanes.
  u16x8 of_unsigned(u16x8 a) const { return a * unsigned_power_ >> right_; }
  /// Makes `a` a factor of products that of_product() shifts: lanes wrap, so a shift to the left may come first.
  u16x8 factor(u16x8 a) const { return a * power_; }
  /// Signed lanes that are products with one factor().
  u16x8 of_product(u16x8 a) const { return u16x8(s16x8(a) >> right_); }

 private:
  int right_;
  uint16_t power_;  // 2^-count of a shift to the left, or 0
  uint16_t unsigned_power_;
#endif
};

/// One lane of a vector as a factor of all lanes of another.
template <int lane>
struct LaneFactor {
  u16x8 lanes;
};
template <int lane>
inline u16x8 operator*(u16x8 a, LaneFactor<lane> factor) {
#if TARVU_NEON
  return u16x8(vmulq_laneq_u16(uint16x8_t(a), uint16x8_t(factor.lanes), lane));
#else
  return a * __builtin_shufflevector(factor.lanes, factor.lanes, lane, lane, lane, lane, lane, lane, lane, lane);
#endif
}

/// Low bytes of the lanes of `first` and `second` in turn.
inline u16x8 zip_low_bytes(u16x8 first, u16x8 second) {
#if TARVU_NEON
  return u16x8(vsliq_n_u16(uint16x8_t(first), uint16x8_t(second), 8));
#else
  return (first & 0xFF) | (second << 8);
#endif
}

/// Transposes the low bytes: byte k of row l is the low byte of lane l of columns[k]. Rows 2k and 2k + 1 are the halves
/// of rows[k].
inline void transpose_low_bytes(const u16x8 (&columns)[8], u64x2 (&rows)[4]) {
  const u16x8 columns01 = zip_low_bytes(columns[0], columns[1]);
  const u16x8 columns23 = zip_low_bytes(columns[2], columns[3]);
  const u16x8 columns45 = zip_low_bytes(columns[4], columns[5]);
  const u16x8 columns67 = zip_low_bytes(columns[6], columns[7]);
  const auto zip_words = [](u16x8 a, u16x8 b, u64x2 &low, u64x2 &high) {
    low = u64x2(__builtin_shufflevector(u32x4(a), u32x4(b), 0, 4, 1, 5));
    high = u64x2(__builtin_shufflevector(u32x4(a), u32x4(b), 2, 6, 3, 7));
  };
  zip_words(zip_low(columns01, columns23), zip_low(columns45, columns67), rows[0], rows[1]);
  zip_words(zip_high(columns01, columns23), zip_high(columns45, columns67), rows[2], rows[3]);
}

/// The lower, and the upper, bytes of the lanes as elements of type Byte, in the form that the target subtracts fastest:
/// as bytes or widened to 16 bits.
template <class Byte>
inline auto lower_bytes(u16x8 pairs) {
#if TARVU_NEON
  return EightBytes<Byte>(vmovn_u16(uint16x8_t(pairs)));
#else
  if constexpr (std::is_signed_v<Byte>) {
    return u16x8(s16x8(pairs << 8) >> 8);
  } else {
    return pairs & 0xFF;
  }
#endif
}
template <class Byte>
inline auto upper_bytes(u16x8 pairs) {
#if TARVU_NEON
  return EightBytes<Byte>(vshrn_n_u16(uint16x8_t(pairs), 8));
#else
  if constexpr (std::is_signed_v<Byte>) {
    return u16x8(s16x8(pairs) >> 8);
  } else {
    return pairs >> 8;
  }
#endif
}

/// The low bytes of the lanes.
inline u8x8 narrowed(u16x8 a) {
#if TARVU_NEON
  return u8x8(vmovn_u16(uint16x8_t(a)));
#else
  return __builtin_convertvector(a, u8x8);
#endif
}

/// Products of eight pairs of bytes with a factor for the first and one for the second of each pair.
struct PairProducts {
  u16x8 first;
  u16x8 second;
};
inline PairProducts multiply_pairs(const uint8_t *pairs, uint8_t first_factor, uint8_t second_factor) {
#if TARVU_NEON
  const uint8x8x2_t apart = vld2_u8(pairs);
  return {u16x8(vmull_u8(apart.val[0], vdup_n_u8(first_factor))),
          u16x8(vmull_u8(apart.val[1], vdup_n_u8(second_factor)))};
#else
  const auto words = load<u16x8>(pairs);
  return {(words & 0xFF) * uint16_t{first_factor}, (words >> 8) * uint16_t{second_factor}};
#endif
}

/// Eight 32-bit words, taken out two at a time.
struct EightWords {
  u32x4 low;   // lanes 0 to 3
  u32x4 high;  // lanes 4 to 7

  uint32_t operator[](int lane) const {
    const uint64_t pair = u64x2(lane < 4 ? low : high)[lane / 2 % 2];
    return static_cast<uint32_t>(lane % 2 == 0 ? pair : pair >> 32);
  }
};

/// a * a_factor + b * b_factor of each lane in 32 bits, modulo 2^32.
inline EightWords sum_of_products(u16x8 a, uint32_t a_factor, u16x8 b, uint32_t b_factor) {
#if TARVU_NEON
  const uint32x4_t low = vmulq_n_u32(vmovl_u16(vget_low_u16(uint16x8_t(a))), a_factor);
  const uint32x4_t high = vmulq_n_u32(vmovl_high_u16(uint16x8_t(a)), a_factor);
  return {u32x4(vmlaq_n_u32(low, vmovl_u16(vget_low_u16(uint16x8_t(b))), b_factor)),
          u32x4(vmlaq_n_u32(high, vmovl_high_u16(uint16x8_t(b)), b_factor))};
#else
  const u16x8 zero{};
  return {u32x4(zip_low(a, zero)) * a_factor + u32x4(zip_low(b, zero)) * b_factor,
          u32x4(zip_high(a, zero)) * a_factor + u32x4(zip_high(b, zero)) * b_factor};
#endif
}

/// a * factor + b of each lane in 32 bits.
inline EightWords product_and_sum(u16x8 a, uint16_t factor, u16x8 b) {
#if TARVU_NEON
  const uint32x4_t low = vmull_n_u16(vget_low_u16(uint16x8_t(a)), factor);
  const uint32x4_t high = vmull_high_n_u16(uint16x8_t(a), factor);
  return {u32x4(vaddw_u16(low, vget_low_u16(uint16x8_t(b)))), u32x4(vaddw_high_u16(high, uint16x8_t(b)))};
#else
  return sum_of_products(a, factor, b, 1);
#endif
}

}  // namespace tarvu

#endif  // TARVU_SIMD_BILINEAR_H
