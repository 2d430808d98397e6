/// \file pool_fold.h
/// The second step of pooling: maxima and sums of windows, of lines side by side and of whole planes, without a type in sight.
#ifndef TARVU_POOL_POOL_FOLD_H
#define TARVU_POOL_POOL_FOLD_H

#include "pool/pool_tile.h"
#include "tarvu.h"

namespace tarvu {

/// Places side by side (see simd/side_by_side.h): of `words` words each, as many as there are lanes.
struct Places {
  const void *from;  ///< the first place of the first window
  uint32_t words;
  uint32_t window;  ///< places
  uint32_t stride;  ///< places from a window to the next one
  uint32_t count;   ///< windows
};

/// One fold over elements of one type. The words of a maximum are elements, those of a sum are wider.
struct PoolFold {
  uint32_t element_bytes;
  uint32_t word_bytes;
  /// The tile of a line that is all padding.
  void (*clear)(Tile &tile);
  /// tile.windows = the windows of a part of every line of a band, line after line without gaps.
  void (*fold_band)(const Band &band, const Part &part, Tile &tile);
  /// words[c] = the fold of column c over `lines` lines, at least one, line_step bytes apart.
  void (*fold_columns)(const uint8_t *from, size_t line_step, uint32_t lines, uint32_t columns, void *words);
  /// words[i] = the fold of the places of window i, word by word. Of no places: the fold of nothing.
  void (*fold_places)(const Places &places, void *words);
  /// One window by itself, of any extent.
  int32_t (*fold_one_window)(const uint8_t *from, size_t line_step, uint32_t lines, int32_t columns);
  /// words[p] = the fold of plane p, for 1 to kPlanesAtOnce planes of at least one element.
  void (*fold_planes)(const _NN_POOL_PARM &parm, const uint8_t *from, uint32_t planes, void *words);
  int32_t (*word_at)(const void *words, uint32_t i);
};

inline constexpr uint32_t kPlanesAtOnce = 128;

/// The maximum of no element.
inline constexpr int32_t kMaximumOfNothing = -0x7FFFFFFF - 1;

/// The greatest of elements of an 8-bit or 16-bit type.
const PoolFold &maximum_fold(NN_AI_IO_TYPE element);

/// Their sum, in words of 16 bits only for windows of at most kMostNarrowElements elements of 8 bits.
const PoolFold &sum_fold(SumWord word, NN_AI_IO_TYPE element);
inline constexpr uint32_t kMostNarrowElements = 256;

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_FOLD_H
