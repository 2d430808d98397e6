/// \file zero_point.h
/// Elements with a zero point: the arithmetic that flat runs and tensor lines share.
#ifndef TARVU_CONVERT_ZERO_POINT_H
#define TARVU_CONVERT_ZERO_POINT_H

#include "simd/runs.h"

namespace tarvu {

/// Elements per block of the zero-point conversions.
template <class T>
inline constexpr uint32_t kZeroPointBlock = sizeof(T) == 1 ? 8 : 16;

/// (element - zero point) * multiplier; the difference wraps in signed 32 bits for unsigned elements too.
template <class T>
inline void zero_point_to_floats(const T *source, float *destination, uint32_t count, int32_t zero_point,
                                 float multiplier) {
  integers_to_floats<T>(source, destination, count, [=](auto word) {
    using Word = decltype(word);
    if constexpr (kLanes<Word> == 1) {
      return to_f32(subtract(static_cast<int32_t>(word), zero_point)) * multiplier;
    } else {
      const auto difference = s32xn(u32xn(word) - static_cast<uint32_t>(zero_point));
      return to_f32(difference) * fill<f32xn>(multiplier);
    }
  });
}

/// Blocks: rounds half up in float, converts to the word of T, adds the zero point with wrapping, saturates as that word.
/// Kept apart from the tail: 0x1.fffffep-2 rounds to 1 here and to 0 there, and unsigned types lose a negative value (with
/// zero point 10, -3.0 gives 10 here and 7 there) and take a negative sum for a large one (with -10, 5.0 gives 255 here and
/// 0 there).
template <class T>
inline void floats_to_zero_point_in_block(const float *source, T *destination, uint32_t count, int32_t zero_point,
                                          float multiplier) {
  floats_to_words_to_integers<T>(source, destination, count, [=](auto x) {
    using V = decltype(x);
    const V sum = x * fill<V>(multiplier) + fill<V>(0.5f);
    const auto rounded = round_down_to_word<T>(sum);
    using Word = std::remove_cv_t<decltype(rounded)>;
    if constexpr (kLanes<V> == 1) {
      return static_cast<Word>(static_cast<uint32_t>(rounded) + static_cast<uint32_t>(zero_point));
    } else {
      return Word(u32xn(rounded) + static_cast<uint32_t>(zero_point));
    }
  });
}

/// Tails: rounds half up in double, converts to a signed word for every T, adds the zero point with wrapping, clamps to T.
template <class T>
inline void floats_to_zero_point_in_tail(const float *source, T *destination, uint32_t count, int32_t zero_point,
                                         float multiplier) {
  for (uint32_t i = 0; i < count; ++i) {
    const float y = load<float>(source + i) * multiplier;
    const auto rounded = static_cast<float>(std::floor(static_cast<double>(y) + 0.5));
    const int32_t sum = add(to_s32(rounded), zero_point);
    store(destination + i,
          static_cast<T>(std::clamp<int32_t>(sum, std::numeric_limits<T>::min(), std::numeric_limits<T>::max())));
  }
}

}  // namespace tarvu

#endif  // TARVU_CONVERT_ZERO_POINT_H
