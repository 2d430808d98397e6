/// \file best_keys.h
/// The greatest keys of several columns at once, one column a lane. A key holds a rank in its upper half and the distance of a
/// position from the last one below it, so that of equal ranks the first position counts as the greatest.
#ifndef TARVU_SIMD_BEST_KEYS_H
#define TARVU_SIMD_BEST_KEYS_H

#include <cstddef>

#include "simd/interleave.h"

namespace tarvu {

inline u16x8 greater_of(u16x8 a, u16x8 b) {
#if TARVU_NEON
  return vmaxq_u16(a, b);
#elif TARVU_AVX2
  return u16x8(_mm_max_epu16(__m128i(a), __m128i(b)));
#else
  return a > b ? a : b;
#endif
}
inline u16x8 lesser_of(u16x8 a, u16x8 b) {
#if TARVU_NEON
  return vminq_u16(a, b);
#elif TARVU_AVX2
  return u16x8(_mm_min_epu16(__m128i(a), __m128i(b)));
#else
  return a < b ? a : b;
#endif
}
inline u32x4 greater_of(u32x4 a, u32x4 b) {
#if TARVU_NEON
  return vmaxq_u32(a, b);
#elif TARVU_AVX2
  return u32x4(_mm_max_epu32(__m128i(a), __m128i(b)));
#else
  return a > b ? a : b;
#endif
}
inline u32x4 lesser_of(u32x4 a, u32x4 b) {
#if TARVU_NEON
  return vminq_u32(a, b);
#elif TARVU_AVX2
  return u32x4(_mm_min_epu32(__m128i(a), __m128i(b)));
#else
  return a < b ? a : b;
#endif
}

/// Lanes of ranks, and of the keys that they make.
template <class Rank>
using RankLanes = LanesOfElement<Rank>;
template <class Rank>
using KeyLanes = std::conditional_t<sizeof(Rank) == 1, u16x8, u32x4>;

/// How many columns stand side by side, and how many positions a key can tell apart.
template <class Rank>
inline constexpr size_t kKeyColumns = 16 / sizeof(Rank);
template <class Rank>
inline constexpr uint32_t kKeyPositions = sizeof(Rank) == 1 ? 256 : 65536;

/// The `count` greatest keys of every column in descending order; [1] are those of the upper columns.
template <class Rank, int count>
struct BestKeys {
  KeyLanes<Rank> keys[count][2];
};

/// Finds the best keys of so many rows (1 to kKeyPositions), `step` bytes apart. `flip` makes the best element the greatest
/// unsigned number.
template <class Rank, int count>
inline BestKeys<Rank, count> find_best_keys(const uint8_t *rows, size_t step, uint32_t row_count, Rank flip) {
  using Ranks = RankLanes<Rank>;
  using Keys = KeyLanes<Rank>;
  constexpr std::make_integer_sequence<int, kLanes<Ranks>> kAll;
  BestKeys<Rank, count> best{};
  const Ranks flips = fill<Ranks>(flip);
  Ranks positions = fill<Ranks>(static_cast<Rank>(~Rank{0}));
  const Ranks one = fill<Ranks>(1);
  const auto take_row = [&] {
    const Ranks ranks = load<Ranks>(rows) ^ flips;
    Keys keys[2] = {Keys(zip_from<0>(positions, ranks, kAll)),
                    Keys(zip_from<kLanes<Ranks> / 2>(positions, ranks, kAll))};
    for (int j = 0; j < count; ++j) {
      for (int half = 0; half < 2; ++half) {
        Keys &kept = best.keys[j][half];
        const Keys greater = greater_of(kept, keys[half]);
        keys[half] = lesser_of(kept, keys[half]);
        kept = greater;
      }
    }
    rows += step;
    positions -= one;
  };
  constexpr uint32_t kRowsAtOnce = count <= 2 ? 4 : 1;
  for (; row_count >= kRowsAtOnce; row_count -= kRowsAtOnce) {
    for (uint32_t r = 0; r < kRowsAtOnce; ++r) take_row();
  }
  for (; row_count != 0; --row_count) take_row();
  return best;
}

/// The ranks of a row of keys as elements again, and their positions, which fit the width of an element.
template <class Rank>
struct Picked {
  RankLanes<Rank> elements;
  RankLanes<Rank> positions;
};
template <class Rank>
inline Picked<Rank> picked(const KeyLanes<Rank> (&keys)[2], Rank flip) {
  using Ranks = RankLanes<Rank>;
  constexpr std::make_integer_sequence<int, kLanes<Ranks>> kAll;
  const auto low = Ranks(keys[0]);
  const auto high = Ranks(keys[1]);
  return {unzip_from<1>(low, high, kAll) ^ fill<Ranks>(flip), ~unzip_from<0>(low, high, kAll)};
}

}  // namespace tarvu

#endif  // TARVU_SIMD_BEST_KEYS_H
