/// \file topk_line.h
/// The best elements of one line, ranked by keys that hold value and position in one word.
#ifndef TARVU_TENSOR_TOPK_LINE_H
#define TARVU_TENSOR_TOPK_LINE_H

#include <algorithm>
#include <bit>
#include <functional>

#include "simd/processor.h"

namespace tarvu {

/// The greater key ranks first: by the greater rank, and of equal ranks by the earlier position.
/// Positions along a line, of an extent of 16 bits, are all below 65535.
inline uint32_t key_of(uint32_t rank, uint32_t position) { return rank << 16 | (0xFFFF - position); }
inline uint16_t position_of(uint32_t key) { return static_cast<uint16_t>(~key); }
template <class T>
inline T rank_of(uint32_t key) {
  return static_cast<T>(key >> 16);
}

/// The ranks of a line whose elements lie side by side: the elements, with their bits flipped so that the best is the
/// greatest unsigned number.
template <class T>
struct DenseLine {
  using Rank = T;
  const uint8_t *first;
  T flip;
  T operator[](uint32_t i) const { return load<T>(first + i * sizeof(T)) ^ flip; }
  DenseLine from(uint32_t i) const { return {first + i * sizeof(T), flip}; }
};

/// The same for elements that lie `step` bytes apart.
template <class T>
struct SteppedLine {
  using Rank = T;
  const uint8_t *first;
  size_t step;
  T flip;
  T operator[](uint32_t i) const { return load<T>(first + i * step) ^ flip; }
  SteppedLine from(uint32_t i) const { return {first + i * step, step, flip}; }
};

/// Brings the `k` greatest keys to the front.
inline void select_keys(uint32_t *keys, uint32_t count, uint32_t k) {
  if (k < count) std::nth_element(keys, keys + k, keys + count, std::greater<uint32_t>());
}

template <class Line>
inline uint32_t best_rank(const Line &line, uint32_t count) {
  typename Line::Rank best = 0;
  for (uint32_t i = 0; i < count; ++i) best = std::max(best, line[i]);
  return best;
}

/// Appends the keys of the elements that reach `least`; `position` is that of the first.
template <class Line>
inline uint32_t *append_elements(const Line &line, uint32_t position, uint32_t count, uint32_t least, uint32_t *keys) {
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t rank = line[i];
    if (rank >= least) *keys++ = key_of(rank, position + i);
  }
  return keys;
}

/// As append_elements() for a whole block, in no particular order: hits are marked in lanes, one byte an element, and
/// gathered into one word.
template <uint32_t kBlock, class Line>
inline uint32_t *append_block(const Line &line, uint32_t position, uint32_t least, uint32_t *keys) {
  uint8_t marks[kBlock];
  for (uint32_t i = 0; i < kBlock; ++i) marks[i] = line[i] >= static_cast<typename Line::Rank>(least) ? 1 : 0;
  uint64_t hits = 0;
  for (uint32_t i = 0; i < kBlock / 8; ++i) hits |= load<uint64_t>(marks + 8 * i) << i;
  for (; hits != 0; hits &= hits - 1) {
    const auto bit = static_cast<uint32_t>(std::countr_zero(hits));  // mark bit / 8 of the word bit % 8
    const uint32_t i = bit % 8 * 8 + bit / 8;
    *keys++ = key_of(line[i], position + i);
  }
  return keys;
}

/// Keys of candidates in front of `work`, among them the k best of the line; returns how many. For k * kBlock up to n.
///
/// The k blocks whose best elements rank first hold all of the k best elements: each element of another block has k
/// elements ahead of it. Nor can one be picked that ranks behind the best of the last of these blocks.
template <uint32_t kBlock, class Line>
uint32_t collect_candidates(const Line &line, uint32_t n, uint32_t k, uint32_t *work) {
  const uint32_t blocks = n / kBlock;
  const uint32_t rest = n % kBlock;
  const uint32_t all = blocks + (rest != 0 ? 1 : 0);
  uint32_t *const bests = work + (n - all);
  for (uint32_t b = 0; b < blocks; ++b) bests[b] = key_of(best_rank(line.from(b * kBlock), kBlock), b);
  if (rest != 0) bests[blocks] = key_of(best_rank(line.from(blocks * kBlock), rest), blocks);
  select_keys(bests, all, k);
  const uint32_t least = *std::min_element(bests, bests + k) >> 16;
  // The candidates of i blocks end at or ahead of the block keys that are left, now at the end of the scratch.
  uint32_t *const chosen = work + (n - k);
  std::copy_backward(bests, bests + k, chosen + k);
  uint32_t *end = work;
  for (uint32_t i = 0; i < k; ++i) {
    const uint32_t b = position_of(chosen[i]);
    const uint32_t position = b * kBlock;
    end = b < blocks ? append_block<kBlock>(line.from(position), position, least, end)
                     : append_elements(line.from(position), position, rest, least, end);
  }
  return static_cast<uint32_t>(end - work);
}

/// Leaves the keys of the k best of n elements in front of `work`, which has room for n, best first if `sorted`.
/// Unsorted picks of a whole line stay in its order.
template <class Line>
void pick_from_line(const Line &line, uint32_t n, uint32_t k, bool sorted, uint32_t *work) {
  if (k == 0) return;
  // With fewer than twice as many blocks as picks, most blocks would be looked at twice.
  const uint32_t longest_block = n / k / 2;
  uint32_t candidates = n;
  if (longest_block >= 64) {
    candidates = collect_candidates<64>(line, n, k, work);
  } else if (longest_block >= 32) {
    candidates = collect_candidates<32>(line, n, k, work);
  } else if (longest_block >= 8) {
    candidates = collect_candidates<8>(line, n, k, work);
  } else {
    for (uint32_t i = 0; i < n; ++i) work[i] = key_of(line[i], i);
  }
  select_keys(work, candidates, k);
  if (sorted) std::sort(work, work + k, std::greater<uint32_t>());
}

}  // namespace tarvu

#endif  // TARVU_TENSOR_TOPK_LINE_H
