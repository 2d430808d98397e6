/// \file total_scaling.h
/// Totals of up to 64 bits times a multiplier, over a power of two with halves away from zero. Totals below 0 have a multiplier and
/// a shift of their own.
#ifndef TARVU_SIMD_TOTAL_SCALING_H
#define TARVU_SIMD_TOTAL_SCALING_H

#include "simd/runs.h"

namespace tarvu {

/// For the totals of one sign. A shift of 1 to 127 is one to the right, one of 0 to -128 to the left, both modulo 64.
struct TotalScale {
  int64_t multiplier;
  int shift;

  /// Half a unit of the result, for shifts to the right. 64 and 128 have the least integer.
  int64_t half() const { return shift_left(int64_t{1}, shift - 1); }
};
struct TotalScales {
  TotalScale positive;  // and of 0
  TotalScale negative;
};

/// One total. Everything wraps: the product, the sum with one half, and a shift to the left.
inline int64_t scale_total(int64_t total, const TotalScales &scales) {
  const TotalScale &scale = total < 0 ? scales.negative : scales.positive;
  const int64_t product = multiply(scale.multiplier, total);
  if (scale.shift <= 0) return shift_left(product, -scale.shift);
  if (product >= 0) return shift_right(add(product, scale.half()), scale.shift);
  return subtract(int64_t{0}, shift_right(subtract(scale.half(), product), scale.shift));
}

/// Whether scale_total() is one multiplication, one addition and one shift for every total of 33 bits: the multiplier is a 32-bit
/// one, the shift goes to the right, and nothing wraps.
inline bool scales_in_words(const TotalScale &scale) {
  if (scale.shift < 1 || scale.shift > 63) return false;
  if (scale.multiplier < -std::numeric_limits<int32_t>::max() || scale.multiplier > std::numeric_limits<int32_t>::max())
    return false;
  const auto magnitude = static_cast<uint64_t>(scale.multiplier < 0 ? -scale.multiplier : scale.multiplier);
  return (magnitude << 32) + static_cast<uint64_t>(scale.half()) <= uint64_t{std::numeric_limits<int64_t>::max()};
}

/// What is added to a product before its shift: one half, less the least unit if the product is negative, which rounds its halves
/// downwards. A product of 0 may take either.
inline int64_t rounding_term(const TotalScale &scale, bool total_is_negative) {
  return scale.half() - ((scale.multiplier < 0) != total_is_negative ? 1 : 0);
}

#if TARVU_NEON
/// Stores sixteen 32-bit integers saturated to T.
template <class T>
inline void store_saturated_signed(const int32x4_t (&words)[4], T *to) {
  if constexpr (sizeof(T) == 4) {
    const int32x4x4_t block = {{words[0], words[1], words[2], words[3]}};
    vst1q_s32_x4(to, block);
  } else if constexpr (std::is_same_v<T, uint16_t>) {
    store(to, vqmovun_high_s32(vqmovun_s32(words[0]), words[1]));
    store(to + 8, vqmovun_high_s32(vqmovun_s32(words[2]), words[3]));
  } else {
    const int16x8_t low = vqmovn_high_s32(vqmovn_s32(words[0]), words[1]);
    const int16x8_t high = vqmovn_high_s32(vqmovn_s32(words[2]), words[3]);
    if constexpr (sizeof(T) == 2) {
      store(to, low);
      store(to + 8, high);
    } else if constexpr (std::is_signed_v<T>) {
      store(to, vqmovn_high_s16(vqmovn_s16(low), high));
    } else {
      store(to, vqmovun_high_s16(vqmovun_s16(low), high));
    }
  }
}
#endif

/// to[i] = scale_total(sums[i] - corrections[i]) saturated, where -corrections[i] is formed in 32 bits and the total in 33. Both
/// scales must be scales_in_words(). Sources at any address.
template <class T>
inline void scale_word_totals(const int32_t *sums, const int32_t *corrections, T *to, uint32_t count,
                              const TotalScales &scales) {
  const int64_t positive_term = rounding_term(scales.positive, false);
  const int64_t negative_term = rounding_term(scales.negative, true);
#if TARVU_NEON
  const int32x4_t positive_multiplier = vdupq_n_s32(static_cast<int32_t>(scales.positive.multiplier));
  const int32x4_t negative_multiplier = vdupq_n_s32(static_cast<int32_t>(scales.negative.multiplier));
  const int64x2_t positive_shift = vdupq_n_s64(-scales.positive.shift);
  const int64x2_t negative_shift = vdupq_n_s64(-scales.negative.shift);
  const int64x2_t positive_terms = vdupq_n_s64(positive_term);
  const int64x2_t negative_terms = vdupq_n_s64(negative_term);
  const auto scaled = [=](int32x4_t sum, int32x4_t correction) {
    const auto negated = vreinterpretq_s32_u32(vsubq_u32(vdupq_n_u32(0), vreinterpretq_u32_s32(correction)));  // wraps
    const uint32x4_t below = vcltzq_s32(vhaddq_s32(sum, negated));  // the sign of the total
    const auto below_low = vreinterpretq_u64_u32(vzip1q_u32(below, below));
    const auto below_high = vreinterpretq_u64_u32(vzip2q_u32(below, below));
    const int32x4_t multiplier = vbslq_s32(below, negative_multiplier, positive_multiplier);
    int64x2_t low = vbslq_s64(below_low, negative_terms, positive_terms);
    int64x2_t high = vbslq_s64(below_high, negative_terms, positive_terms);
    low = vmlal_s32(low, vget_low_s32(sum), vget_low_s32(multiplier));
    high = vmlal_high_s32(high, sum, multiplier);
    low = vmlal_s32(low, vget_low_s32(negated), vget_low_s32(multiplier));
    high = vmlal_high_s32(high, negated, multiplier);
    low = vshlq_s64(low, vbslq_s64(below_low, negative_shift, positive_shift));
    high = vshlq_s64(high, vbslq_s64(below_high, negative_shift, positive_shift));
    return vqmovn_high_s64(vqmovn_s64(low), high);
  };
  for (; count >= 16; count -= 16, sums += 16, corrections += 16, to += 16) {
    int32x4_t words[4];
    for (int k = 0; k < 4; ++k) words[k] = scaled(load<int32x4_t>(sums + 4 * k), load<int32x4_t>(corrections + 4 * k));
    store_saturated_signed(words, to);
  }
#endif
  for (uint32_t i = 0; i < count; ++i) {
    const int64_t total = int64_t{load<int32_t>(sums + i)} + subtract(0, load<int32_t>(corrections + i));
    const bool below = total < 0;
    const int64_t product = total * (below ? scales.negative.multiplier : scales.positive.multiplier);
    const int64_t raised = product + (below ? negative_term : positive_term);
    store(to + i, saturate<T>(shift_right(raised, below ? scales.negative.shift : scales.positive.shift)));
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_TOTAL_SCALING_H
