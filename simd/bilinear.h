/// \file bilinear.h
/// Steps of a bilinear blend of bytes in 16-bit lanes, which wrap: widening, shifts and the order of the lanes.
#ifndef TARVU_SIMD_BILINEAR_H
#define TARVU_SIMD_BILINEAR_H

#include <algorithm>

#include "simd/arrange.h"

namespace tarvu {

typedef int8_t s8x8 __attribute__((vector_size(8)));
typedef uint8_t u8x8 __attribute__((vector_size(8)));

/// What one step over a group of eight channels computes: eight lanes of a point, or of point k and then of point k + 4
/// where the target's lanes are wide enough for two.
#if TARVU_AVX2
inline constexpr int kPointsOfStep = 2;
typedef uint16_t StepLanes __attribute__((vector_size(32)));
#else
inline constexpr int kPointsOfStep = 1;
typedef u16x8 StepLanes;
#endif

/// Eight elements of type Byte (int8_t or uint8_t), and eight for each point of a step.
template <class Byte>
using EightBytes = std::conditional_t<std::is_signed_v<Byte>, s8x8, u8x8>;
template <class Byte>
using StepBytes [[gnu::vector_size(8 * kPointsOfStep)]] = Byte;

/// The bytes of a step from the places of its points; `second` counts only where a step has two.
template <class Byte>
inline StepBytes<Byte> load_step(const uint8_t *first, [[maybe_unused]] const uint8_t *second) {
#if TARVU_AVX2
  // A blend with a broadcast leaves the port of the shuffles to the widening.
  const __m128i lower = _mm_cvtsi64_si128(load<int64_t>(first));
  return StepBytes<Byte>(_mm_blend_epi32(lower, _mm_set1_epi64x(load<int64_t>(second)), 0xC));
#else
  return load<StepBytes<Byte>>(first);
#endif
}

/// Bytes widened to 16 bits by their sign; what is 16 bits wide stays as it is.
inline u16x8 widened(u16x8 a) { return a; }
#if TARVU_AVX2
inline u16x8 widened(s8x8 a) { return u16x8(_mm_cvtepi8_epi16(_mm_cvtsi64_si128(int64_t(a)))); }
inline u16x8 widened(u8x8 a) { return u16x8(_mm_cvtepu8_epi16(_mm_cvtsi64_si128(int64_t(a)))); }
inline StepLanes widened(s8x16 a) { return StepLanes(_mm256_cvtepi8_epi16(__m128i(a))); }
inline StepLanes widened(u8x16 a) { return StepLanes(_mm256_cvtepu8_epi16(__m128i(a))); }
#else
inline u16x8 widened(s8x8 a) { return u16x8(__builtin_convertvector(a, s16x8)); }
inline u16x8 widened(u8x8 a) { return __builtin_convertvector(a, u16x8); }
#endif

/// a - b, widened first.
template <class Bytes>
inline auto difference(Bytes a, Bytes b) {
#if TARVU_NEON
  if constexpr (std::is_same_v<Bytes, s8x8>) return u16x8(vsubl_s8(int8x8_t(a), int8x8_t(b)));
  if constexpr (std::is_same_v<Bytes, u8x8>) return u16x8(vsubl_u8(uint8x8_t(a), uint8x8_t(b)));
#endif
  return widened(a) - widened(b);
}

/// a + b, b widened first.
template <class Lanes, class Bytes>
inline Lanes sum(Lanes a, Bytes b) {
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
  template <class Lanes>
  Lanes of_product(Lanes a) const {
    typedef int16_t SignedLanes __attribute__((vector_size(sizeof(Lanes))));
    return Lanes(SignedLanes(a) >> right_);
  }

 private:
  int right_;
  uint16_t power_;  // 2^-count of a shift to the left, or 0
  uint16_t unsigned_power_;
#endif
};

/// One lane of eight as a factor of all lanes of a point; in the second point of a step, the lane four further on.
template <uint32_t lane>
struct LaneFactor {
  u16x8 lanes;
};
template <uint32_t lane>
inline StepLanes operator*(StepLanes a, LaneFactor<lane> factor) {
#if TARVU_NEON
  return u16x8(vmulq_laneq_u16(uint16x8_t(a), uint16x8_t(factor.lanes), lane));
#elif TARVU_AVX2
  constexpr auto kBytesOfLane = static_cast<int16_t>(0x0100 + 0x0202 * lane);
  const __m256i places = _mm256_setr_m128i(_mm_set1_epi16(kBytesOfLane), _mm_set1_epi16(kBytesOfLane + 0x0808));
  return a * StepLanes(_mm256_shuffle_epi8(_mm256_broadcastsi128_si256(__m128i(factor.lanes)), places));
#else
  return a * factor.lanes[lane];
#endif
}

/// Low bytes of the lanes of `first` and `second` in turn.
inline StepLanes zip_low_bytes(StepLanes first, StepLanes second) {
#if TARVU_NEON
  return u16x8(vsliq_n_u16(uint16x8_t(first), uint16x8_t(second), 8));
#else
  return (first & 0xFF) | (second << 8);
#endif
}

/// The low bytes of the lanes of eight points, transposed: row l holds lane l of points 0 to 7.
class TransposedBytes {
 public:
  static constexpr uint32_t kSteps = 8 / kPointsOfStep;

  explicit TransposedBytes(const StepLanes (&steps)[kSteps]) {
#if TARVU_AVX2
    typedef uint32_t Words __attribute__((vector_size(32)));
    const StepLanes points0145 = zip_low_bytes(steps[0], steps[1]);
    const StepLanes points2367 = zip_low_bytes(steps[2], steps[3]);
    const auto low = Words(_mm256_unpacklo_epi16(__m256i(points0145), __m256i(points2367)));
    const auto high = Words(_mm256_unpackhi_epi16(__m256i(points0145), __m256i(points2367)));
    rows_[0] = Rows(take_lanes<0, 4, 1, 5, 2, 6, 3, 7>(low, low));
    rows_[1] = Rows(take_lanes<0, 4, 1, 5, 2, 6, 3, 7>(high, high));
#else
    const u16x8 points01 = zip_low_bytes(steps[0], steps[1]);
    const u16x8 points23 = zip_low_bytes(steps[2], steps[3]);
    const u16x8 points45 = zip_low_bytes(steps[4], steps[5]);
    const u16x8 points67 = zip_low_bytes(steps[6], steps[7]);
    const auto zip_words = [](u16x8 a, u16x8 b, Rows &low, Rows &high) {
      low = Rows(take_lanes<0, 4, 1, 5>(u32x4(a), u32x4(b)));
      high = Rows(take_lanes<2, 6, 3, 7>(u32x4(a), u32x4(b)));
    };
    zip_words(zip_low(points01, points23), zip_low(points45, points67), rows_[0], rows_[1]);
    zip_words(zip_high(points01, points23), zip_high(points45, points67), rows_[2], rows_[3]);
#endif
  }

  /// Stores the eight bytes of a row.
  void store_row(uint32_t row, uint8_t *to) const {
#if TARVU_AVX2
    const __m256i both = __m256i(rows_[row / 4]);
    const __m128 pair = __m128(row % 4 < 2 ? _mm256_castsi256_si128(both) : _mm256_extracti128_si256(both, 1));
    row % 2 == 0 ? _mm_storel_pi(reinterpret_cast<__m64 *>(to), pair)
                 : _mm_storeh_pi(reinterpret_cast<__m64 *>(to), pair);
#else
    store(to, uint64_t{rows_[row / 2][row % 2]});
#endif
  }

 private:
  typedef uint64_t Rows __attribute__((vector_size(16 * kPointsOfStep)));
  Rows rows_[8 / kLanes<Rows>];
};

/// The lower, and the upper, bytes of the lanes as elements of type Byte, in the form that the target subtracts
/// fastest: as bytes or widened to 16 bits.
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

/// Eight sums of 32 bits.
struct EightSums {
  u32x4 low;   // lanes 0 to 3
  u32x4 high;  // lanes 4 to 7

  uint32_t operator[](uint32_t lane) const {
    const uint64_t pair = u64x2(lane < 4 ? low : high)[lane / 2 % 2];
    return static_cast<uint32_t>(lane % 2 == 0 ? pair : pair >> 32);
  }
};

/// a * a_factor + b * b_factor of each lane in 32 bits, modulo 2^32.
inline EightSums sum_of_products(u16x8 a, uint32_t a_factor, u16x8 b, uint32_t b_factor) {
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
inline EightSums product_and_sum(u16x8 a, uint16_t factor, u16x8 b) {
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
