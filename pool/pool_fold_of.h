/// \file pool_fold_of.h
/// The functions of a PoolFold, made of one fold of simd/fold.h.
#ifndef TARVU_POOL_POOL_FOLD_OF_H
#define TARVU_POOL_POOL_FOLD_OF_H

#include <algorithm>

#include "pool/pool_fold.h"
#include "simd/fold_runs.h"

namespace tarvu {

template <class Fold>
void fold_columns_of(const uint8_t *from, size_t line_step, uint32_t lines, uint32_t columns, void *words) {
  auto *to = static_cast<typename Fold::Word *>(words);
  if (lines == 0) {
    std::fill(to, to + columns, Fold::kIdentity);
  } else {
    fold_lines<Fold>(from, line_step, lines, columns, to);
  }
}

template <class Fold>
void fold_windows_of(Tile &tile, uint32_t window, uint32_t stride, uint32_t count) {
  using Word = typename Fold::Word;
  fold_windows<Fold>(reinterpret_cast<const Word *>(tile.columns), window, stride, count,
                     reinterpret_cast<Word *>(tile.more), reinterpret_cast<Word *>(tile.windows));
}

template <class Fold>
int32_t fold_one_window_of(const uint8_t *from, size_t line_step, uint32_t lines, int32_t columns) {
  using Element = typename Fold::Element;
  int32_t folded = Fold::kWidens ? 0 : kMaximumOfNothing;
  for (uint32_t l = 0; l < lines; ++l, from += line_step) {
    for (int32_t x = 0; x < columns; ++x) {
      const int32_t element = load<Element>(from + static_cast<size_t>(x) * sizeof(Element));
      folded = Fold::kWidens ? add(folded, element) : std::max(folded, element);
    }
  }
  return folded;
}

template <class Fold>
[[gnu::noinline]] void fold_runs_of(const uint8_t *from, size_t run_bytes, uint32_t runs, size_t count,
                                    typename Fold::Word *to) {
  fold_runs<Fold>(from, run_bytes, runs, count, to);
}

/// Planes whose lines lie back to back are one run each.
template <class Fold>
void fold_planes_of(const _NN_POOL_PARM &parm, const uint8_t *from, uint32_t planes, void *words) {
  auto *to = static_cast<typename Fold::Word *>(words);
  const size_t width = parm.width;
  const size_t line_bytes = parm.in_line_ofs;
  if (line_bytes == width * sizeof(typename Fold::Element) || parm.height == 1) {
    return fold_runs_of<Fold>(from, parm.in_channel_ofs, planes, width * parm.height, to);
  }
  typename Fold::Word of_line[kPlanesAtOnce];
  std::fill(to, to + planes, Fold::kIdentity);
  for (uint32_t y = 0; y < parm.height; ++y, from += line_bytes) {
    fold_runs_of<Fold>(from, parm.in_channel_ofs, planes, width, of_line);
    for (uint32_t p = 0; p < planes; ++p) to[p] = Fold::both(to[p], of_line[p]);
  }
}

template <class Fold>
int32_t word_of(const void *words, uint32_t i) {
  return static_cast<int32_t>(static_cast<const typename Fold::Word *>(words)[i]);
}

/// Sums of whole planes need words of 32 bits.
template <class Fold>
constexpr auto planes_of() -> decltype(PoolFold::fold_planes) {
  if constexpr (Fold::kWidens && sizeof(typename Fold::Word) == 2)
    return nullptr;
  else
    return fold_planes_of<Fold>;
}

template <class Fold>
inline constexpr PoolFold kPoolFold = {
    sizeof(typename Fold::Element), sizeof(typename Fold::Word), fold_columns_of<Fold>, fold_windows_of<Fold>,
    fold_one_window_of<Fold>,       planes_of<Fold>(),           word_of<Fold>};

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_FOLD_OF_H
