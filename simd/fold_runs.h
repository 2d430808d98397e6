/// \file fold_runs.h
/// Maxima and sums of whole runs of elements.
#ifndef TARVU_SIMD_FOLD_RUNS_H
#define TARVU_SIMD_FOLD_RUNS_H

#include <algorithm>
#include <cstring>

#include "simd/fold.h"

namespace tarvu {

/// The last vector of a run overlaps the one before it. From byte n on, 0 for what both hold, ones for n bytes behind.
alignas(16) inline constexpr uint8_t kBehindOverlap[32] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

/// Adds up neighbouring lanes of a vector of elements.
#if TARVU_NEON
inline u16x8 add_pairs(u16x8 sum, u8x16 a) { return vpadalq_u8(sum, a); }
inline s16x8 add_pairs(s16x8 sum, s8x16 a) { return vpadalq_s8(sum, a); }
inline u32x4 add_pairs(u32x4 sum, u16x8 a) { return vpadalq_u16(sum, a); }
inline u32x4 add_pairs(u32x4 sum, s16x8 a) { return vreinterpretq_u32_s32(vpadalq_s16(vreinterpretq_s32_u32(sum), a)); }
#else
inline u16x8 add_pairs(u16x8 sum, u8x16 a) { return sum + (u16x8(a) & 0xFF) + (u16x8(a) >> 8); }
inline s16x8 add_pairs(s16x8 sum, s8x16 a) { return sum + (s16x8(u16x8(a) << 8) >> 8) + (s16x8(a) >> 8); }
inline u32x4 add_pairs(u32x4 sum, u16x8 a) { return sum + (u32x4(a) & 0xFFFF) + (u32x4(a) >> 16); }
inline u32x4 add_pairs(u32x4 sum, s16x8 a) { return sum + u32x4(s32x4(u32x4(a) << 16) >> 16) + u32x4(s32x4(a) >> 16); }
#endif

/// What becomes of the vectors of a plane, and of all lanes at its end.
template <class Fold>
struct PlaneFold;
template <class In>
struct PlaneFold<MaximumFold<In>> {
  using Fold = MaximumFold<In>;
  using Lanes = typename Fold::Lanes;
  static constexpr uint32_t kMost = UINT32_MAX;
  Lanes all = fill<Lanes>(Fold::kIdentity);
  void more(Lanes a) { all = Fold::both(all, a); }
  void flush() {}
  In folded() const {
    Lanes lanes = all;
    for (int of_each = kLanes<Lanes>; of_each > 1; of_each /= 2) lanes = fold_neighbours(Fold{}, lanes, lanes);
    return lanes[0];
  }
};
template <class In>
struct PlaneFold<SumFold<In, uint32_t>> {
  using Elements = typename SumFold<In, uint32_t>::Elements;
  using Halves = std::conditional_t<sizeof(In) == 2, u32x4, std::conditional_t<std::is_signed_v<In>, s16x8, u16x8>>;
  static constexpr uint32_t kMost =
      sizeof(In) == 2 ? UINT32_MAX : 128;  // sums of so many pairs of bytes fit into 16 bits
  Halves halves{};
  u32x4 all{};
  void more(Elements a) { halves = add_pairs(halves, a); }
  void flush() {
    if constexpr (sizeof(In) == 1) {
      all = add_pairs(all, halves);
    } else {
      all += halves;
    }
    halves = Halves{};
  }
  uint32_t folded() const { return all[0] + all[1] + all[2] + all[3]; }
};

/// The longest lines of planes whose lines lie apart, bytes.
inline constexpr size_t kMostLineApart = 2048;

/// The fold of a plane of `lines` lines of `count` elements, both at least 1, that lie `line_bytes` apart, at least their own
/// length and not so far that memory between them could be missing. What lies between the lines may be read, nothing else.
template <class Fold>
[[gnu::noinline]] typename Fold::Word fold_lines_apart(const uint8_t *from, size_t line_bytes, uint32_t lines,
                                                       size_t count) {
  using Element = typename Fold::Element;
  using Elements = typename Fold::Elements;
  const size_t bytes = count * sizeof(Element);
  const Elements nothing = fill<Elements>(static_cast<Element>(Fold::kIdentity));
  PlaneFold<Fold> fold;
  // As many lines at a time as the fold takes vectors.
  const auto fold_all = [&](uint32_t wanted, uint32_t vectors, const auto &fold_line) __attribute__((always_inline)) {
    const uint32_t most = PlaneFold<Fold>::kMost / vectors;
    while (wanted != 0) {
      const uint32_t some = std::min(wanted, most);
      for (uint32_t l = 0; l < some; ++l, from += line_bytes) fold_line(from);
      fold.flush();
      wanted -= some;
    }
  };
  if (bytes >= 16) {
    const size_t whole = bytes / 16 * 16;
    const auto behind = load<Elements>(kBehindOverlap + (whole == bytes ? 16 : bytes - whole)) != Elements{};
    const auto vectors = static_cast<uint32_t>((bytes + 15) / 16);
    if (vectors == 2) {
      fold_all(
          lines, 2, [&](const uint8_t *line) __attribute__((always_inline)) {
            const auto back = load<Elements>(line + bytes - 16);
            fold.more(load<Elements>(line));
            fold.more(behind ? back : nothing);
          });
    } else {
      fold_all(
          lines, vectors, [&](const uint8_t *line) __attribute__((always_inline)) {
            for (size_t at = 0; at < whole; at += 16) fold.more(load<Elements>(line + at));
            if (whole != bytes) fold.more(behind ? load<Elements>(line + bytes - 16) : nothing);
          });
    }
    return fold.folded();
  }
  // Of a vector the elements of the line; the last line of the plane by itself.
  const auto own = load<Elements>(kBehindOverlap + 16 - bytes) == Elements{};
  const auto exactly = [=](const uint8_t *line) __attribute__((always_inline)) {
    const uint64_t first = load_few_bytes(line, bytes);
    const uint64_t rest = bytes > 8 ? load_few_bytes(line + 8, bytes - 8) : 0;
    return std::bit_cast<Elements>(u64x2{first, rest});
  };
  if (bytes > 8) {
    fold_all(
        lines - 1, 1, [&](const uint8_t *line) __attribute__((always_inline)) {
          fold.more(own ? load<Elements>(line) : nothing);
        });
  } else if (bytes >= 4) {
    fold_all(
        lines - 1, 1, [&](const uint8_t *line) __attribute__((always_inline)) {
          fold.more(own ? std::bit_cast<Elements>(u64x2{load<uint64_t>(line)}) : nothing);
        });
  } else {
    fold_all(
        lines - 1,
        1, [&](const uint8_t *line) __attribute__((always_inline)) { fold.more(own ? exactly(line) : nothing); });
  }
  fold.more(own ? exactly(from) : nothing);
  fold.flush();
  return fold.folded();
}

#if TARVU_NEON
/// Four runs at once, each of at least one vector: their folds in the lower bytes of the result, or in all of it.
template <class In>
inline typename MaximumFold<In>::Lanes fold_four_runs(MaximumFold<In>, const uint8_t *from, size_t run_bytes,
                                                      size_t count) {
  using Fold = MaximumFold<In>;
  using Lanes = typename Fold::Lanes;
  const size_t last = count * sizeof(In) - sizeof(Lanes);
  const uint8_t *runs[4] = {from, from + run_bytes, from + 2 * run_bytes, from + 3 * run_bytes};
  Lanes folded[4];
  for (int r = 0; r < 4; ++r)
    folded[r] = load<Lanes>(runs[r] + last);  // overlaps the one before it, which changes no maximum
  for (size_t at = 0; at < last; at += sizeof(Lanes)) {
    for (int r = 0; r < 4; ++r) folded[r] = Fold::both(folded[r], load<Lanes>(runs[r] + at));
  }
  const auto pairs = [](Lanes a, Lanes b) {
    if constexpr (std::is_same_v<In, uint8_t>) return Lanes(vpmaxq_u8(a, b));
    if constexpr (std::is_same_v<In, int8_t>) return Lanes(vpmaxq_s8(a, b));
    if constexpr (std::is_same_v<In, uint16_t>) return Lanes(vpmaxq_u16(a, b));
    if constexpr (std::is_same_v<In, int16_t>) return Lanes(vpmaxq_s16(a, b));
  };
  Lanes all = pairs(pairs(folded[0], folded[1]), pairs(folded[2], folded[3]));
  for (size_t of_each = kLanes<Lanes> / 4; of_each > 1; of_each /= 2) all = pairs(all, all);
  return all;
}

template <class In>
inline u32x4 fold_four_runs(SumFold<In, uint32_t>, const uint8_t *from, size_t run_bytes, size_t count) {
  using Elements = typename LanesOfType<In>::type;
  constexpr size_t kVector = sizeof(Elements);
  const size_t bytes = count * sizeof(In);
  const size_t whole = bytes / kVector * kVector;
  const uint8_t *runs[4] = {from, from + run_bytes, from + 2 * run_bytes, from + 3 * run_bytes};
  const auto mask = load<Elements>(kBehindOverlap + (bytes - whole));
  u32x4 sums[4] = {};
  if constexpr (sizeof(In) == 2) {
    for (size_t at = 0; at < whole; at += kVector) {
      for (int r = 0; r < 4; ++r) sums[r] = add_pairs(sums[r], load<Elements>(runs[r] + at));
    }
    for (int r = 0; r < 4; ++r) sums[r] = add_pairs(sums[r], load<Elements>(runs[r] + bytes - kVector) & mask);
  } else {
    using Halves = std::conditional_t<std::is_signed_v<In>, s16x8, u16x8>;
    constexpr size_t kPart = 64 * kVector;  // sums of so many pairs, and of one more, fit into 16 bits
    for (size_t at = 0; at < whole;) {
      const size_t end = std::min(whole, at + kPart);
      Halves halves[4] = {};
      for (; at < end; at += kVector) {
        for (int r = 0; r < 4; ++r) halves[r] = add_pairs(halves[r], load<Elements>(runs[r] + at));
      }
      if (at == whole) {
        for (int r = 0; r < 4; ++r) halves[r] = add_pairs(halves[r], load<Elements>(runs[r] + bytes - kVector) & mask);
      }
      for (int r = 0; r < 4; ++r) sums[r] = add_pairs(sums[r], halves[r]);
    }
  }
  return vpaddq_u32(vpaddq_u32(sums[0], sums[1]), vpaddq_u32(sums[2], sums[3]));
}
#endif

#if TARVU_AVX2
/// The sum of a run of at least 16 bytes, modulo 2^32. The processor adds up unsigned bytes: signed ones go offset by 128.
template <class In>
inline uint32_t sum_of_bytes(const uint8_t *from, size_t count) {
  constexpr size_t kVector = sizeof(__m128i);
  constexpr uint8_t kOffset = std::is_signed_v<In> ? 128 : 0;
  const __m128i offset = _mm_set1_epi8(static_cast<char>(kOffset));
  const size_t whole = count / kVector * kVector;
  const auto add_up = [](__m128i bytes) { return _mm_sad_epu8(bytes, __m128i{}); };
  const __m128i last = _mm_xor_si128(load<__m128i>(from + count - kVector), offset);
  __m128i sums = add_up(_mm_and_si128(last, load<__m128i>(kBehindOverlap + (count - whole))));
  for (size_t at = 0; at < whole; at += kVector) {
    sums = _mm_add_epi64(sums, add_up(_mm_xor_si128(load<__m128i>(from + at), offset)));
  }
  const __m128i sum = _mm_add_epi64(sums, _mm_unpackhi_epi64(sums, sums));
  return static_cast<uint32_t>(_mm_cvtsi128_si32(sum)) - static_cast<uint32_t>(kOffset * count);
}
#endif

/// to[r] = the fold of `count` elements from `from + r * run_bytes`.
template <class Fold>
inline void fold_runs(const uint8_t *from, size_t run_bytes, uint32_t runs, size_t count, typename Fold::Word *to) {
  using Element = typename Fold::Element;
  using Word = typename Fold::Word;
  uint32_t r = 0;
#if TARVU_NEON
  if (count >= kColumnsOfBlock<Fold>) {
    for (; runs - r >= 4; r += 4, from += 4 * run_bytes) {
      const auto folded = fold_four_runs(Fold{}, from, run_bytes, count);
      std::memcpy(to + r, &folded, 4 * sizeof(Word));
    }
  }
#elif TARVU_AVX2
  if constexpr (std::is_same_v<Fold, SumFold<Element, uint32_t>> && sizeof(Element) == 1) {
    for (; count >= 16 && r < runs; ++r, from += run_bytes) to[r] = sum_of_bytes<Element>(from, count);
  }
#endif
  for (; r < runs; ++r, from += run_bytes) {
    const auto *elements = reinterpret_cast<const Unaligned<Element> *>(from);
    Word word = Fold::kIdentity;
    for (size_t i = 0; i < count; ++i) word = Fold::both(word, Fold::of(elements[i].value));
    to[r] = word;
  }
}

}  // namespace tarvu

#endif  // TARVU_SIMD_FOLD_RUNS_H
