/// \file pool_fold_functions.h
/// The functions of a PoolFold, made of one fold of simd/fold.h.
#ifndef TARVU_POOL_POOL_FOLD_FUNCTIONS_H
#define TARVU_POOL_POOL_FOLD_FUNCTIONS_H

#include <algorithm>

#include "pool/pool_fold.h"
#include "simd/fold_runs.h"

namespace tarvu {

template <class Fold>
void clear(Tile &tile) {
  constexpr uint32_t kWords = kTileBytes / sizeof(typename Fold::Word);
  auto *columns = reinterpret_cast<typename Fold::Word *>(tile.columns);
  auto *more = reinterpret_cast<typename Fold::Word *>(tile.more);
  std::fill(columns, columns + kWords, Fold::kIdentity);
  std::fill(more, more + kWords, Fold::kIdentity);
}

template <class Fold>
void fold_band(const Band &band, const Part &part, Tile &tile) {
  using Word = typename Fold::Word;
  auto *const columns = reinterpret_cast<Word *>(tile.columns);
  auto *const spare = reinterpret_cast<Word *>(tile.more);
  auto *windows = reinterpret_cast<Word *>(tile.windows);
  const uint8_t *from = band.from + part.input * sizeof(typename Fold::Element);
  for (uint32_t n = 0; n < band.count; ++n, windows += part.count) {
    const uint32_t cut_front = n == 0 ? band.cut_front : 0;
    const uint32_t lines = band.lines - cut_front - (n + 1 == band.count ? band.cut_behind : 0);
    if (lines == 0) {
      std::fill_n(columns + part.input_at, part.input_columns, Fold::kIdentity);
    } else {
      fold_lines<Fold>(from, band.line_step, lines, part.input_columns, columns + part.input_at);
    }
    from += band.window_step - cut_front * band.line_step;
    fold_windows<Fold>(columns, part.window, part.stride, part.count, spare, windows);
  }
}

template <class Fold>
void fold_columns(const uint8_t *from, size_t line_step, uint32_t lines, uint32_t columns, void *words) {
  fold_lines<Fold>(from, line_step, lines, columns, static_cast<typename Fold::Word *>(words));
}

/// The fold of kWindow vectors, or of `window` ones where it is 0, that lie `step` words apart.
template <class Fold, uint32_t kWindow>
[[gnu::always_inline]] inline typename Fold::Lanes fold_vectors(const typename Fold::Word *from, size_t step,
                                                                uint32_t window) {
  using Lanes = typename Fold::Lanes;
  Lanes folded = load<Lanes>(from);
  for (uint32_t k = 1; k < (kWindow != 0 ? kWindow : window); ++k) {
    from += step;
    folded = Fold::both(folded, load<Lanes>(from));
  }
  return folded;
}

/// Windows of kWindow places, or of any number of them where it is 0.
template <class Fold, uint32_t kWindow>
[[gnu::always_inline]] inline void fold_windows_of_places(const Places &places, typename Fold::Word *to) {
  constexpr size_t kVector = kLanes<typename Fold::Lanes>;
  const size_t words = places.words;
  const uint32_t window = places.window;
  const auto *from = static_cast<const typename Fold::Word *>(places.from);
  const auto pass = [=](size_t from_word, size_t to_word, auto vectors) __attribute__((always_inline)) {
    typename Fold::Lanes folded[vectors];
    for (size_t v = 0; v < vectors; ++v) {
      folded[v] = fold_vectors<Fold, kWindow>(from + from_word + v * kVector, words, window);
    }
    for (size_t v = 0; v < vectors; ++v) store(to + to_word + v * kVector, folded[v]);
  };
  constexpr std::integral_constant<size_t, 1> kOne;
  constexpr std::integral_constant<size_t, 2> kTwo;
  // Windows one place apart are one run of words; others are a run each.
  const size_t run = places.stride == 1 ? words * places.count : words;
  const size_t runs = places.stride == 1 ? 1 : places.count;
  const size_t from_step = places.stride * words;
  if (run == kVector) {
    for (size_t i = 0; i < runs; ++i) pass(i * from_step, i * words, kOne);
    return;
  }
  for (size_t i = 0; i < runs; ++i) {
    size_t w = 0;
    for (; w + 2 * kVector <= run; w += 2 * kVector) pass(i * from_step + w, i * words + w, kTwo);
    if (w < run) pass(i * from_step + w, i * words + w, kOne);
  }
}

template <class Fold>
void fold_places(const Places &places, void *words) {
  using Word = typename Fold::Word;
  auto *to = static_cast<Word *>(words);
  if (places.window == 0) {
    std::fill_n(to, size_t{places.count} * places.words, Fold::kIdentity);
  } else if (places.window == 2) {
    fold_windows_of_places<Fold, 2>(places, to);
  } else if (places.window == 3) {
    fold_windows_of_places<Fold, 3>(places, to);
  } else {
    fold_windows_of_places<Fold, 0>(places, to);
  }
}

template <class Fold>
int32_t fold_one_window(const uint8_t *from, size_t line_step, uint32_t lines, int32_t columns) {
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
[[gnu::noinline]] void fold_dense_planes(const uint8_t *from, size_t run_bytes, uint32_t runs, size_t count,
                                         typename Fold::Word *to) {
  fold_runs<Fold>(from, run_bytes, runs, count, to);
}

/// Planes whose lines lie back to back are one run each.
template <class Fold>
void fold_planes(const _NN_POOL_PARM &parm, const uint8_t *from, uint32_t planes, void *words) {
  auto *to = static_cast<typename Fold::Word *>(words);
  const size_t width = parm.width;
  const size_t line_bytes = parm.in_line_ofs;
  const size_t dense_bytes = width * sizeof(typename Fold::Element);
  if (line_bytes == dense_bytes || parm.height <= 1 || width == 0) {
    return fold_dense_planes<Fold>(from, parm.in_channel_ofs, planes, width * parm.height, to);
  }
  constexpr size_t kMostBetweenLines = 4096;
  if (line_bytes > dense_bytes && line_bytes - dense_bytes < kMostBetweenLines && dense_bytes <= kMostLineApart) {
    for (uint32_t p = 0; p < planes; ++p, from += parm.in_channel_ofs) {
      to[p] = fold_lines_apart<Fold>(from, line_bytes, parm.height, width);
    }
    return;
  }
  typename Fold::Word of_line[kPlanesAtOnce];
  std::fill(to, to + planes, Fold::kIdentity);
  for (uint32_t y = 0; y < parm.height; ++y, from += line_bytes) {
    fold_dense_planes<Fold>(from, parm.in_channel_ofs, planes, width, of_line);
    for (uint32_t p = 0; p < planes; ++p) to[p] = Fold::both(to[p], of_line[p]);
  }
}

template <class Fold>
int32_t word_at(const void *words, uint32_t i) {
  return static_cast<int32_t>(static_cast<const typename Fold::Word *>(words)[i]);
}

/// Sums of whole planes need words of 32 bits.
template <class Fold>
constexpr auto fold_planes_or_null() -> decltype(PoolFold::fold_planes) {
  if constexpr (Fold::kWidens && sizeof(typename Fold::Word) == 2)
    return nullptr;
  else
    return fold_planes<Fold>;
}

template <class Fold>
inline constexpr PoolFold kPoolFold = {sizeof(typename Fold::Element),
                                       sizeof(typename Fold::Word),
                                       clear<Fold>,
                                       fold_band<Fold>,
                                       fold_columns<Fold>,
                                       fold_places<Fold>,
                                       fold_one_window<Fold>,
                                       fold_planes_or_null<Fold>(),
                                       word_at<Fold>};

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_FOLD_FUNCTIONS_H
