/// \file pool_fold.h
/// The folds behind function pointers: what a walk over planes asks of maxima and sums without knowing their words.
#ifndef TARVU_POOL_POOL_FOLD_H
#define TARVU_POOL_POOL_FOLD_H

#include <cstddef>
#include <cstdint>

#include "pool/pool_band.h"
#include "tarvu.h"

namespace tarvu {

/// The words of a maximum are elements, those of a sum are wider.
struct PoolFold {
  uint32_t element_bytes;
  uint32_t word_bytes;
  /// words[c] = the fold of column c over `lines` lines, line_step bytes apart. Of no lines: the fold of nothing.
  void (*fold_columns)(const uint8_t *from, size_t line_step, uint32_t lines, uint32_t columns, void *words);
  /// tile.windows[i] = the fold of `window` words from tile.columns[i * stride], each at least 1, for `count` windows, with
  /// tile.more as room for words on the way.
  void (*fold_windows)(Tile &tile, uint32_t window, uint32_t stride, uint32_t count);
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

/// Their sum, modulo 2^32.
const PoolFold &sum_fold(NN_AI_IO_TYPE element);

/// The sum of 8-bit elements in words of 16 bits, for windows of at most kMostNarrowElements.
const PoolFold &narrow_sum_fold(NN_AI_IO_TYPE element);
inline constexpr uint32_t kMostNarrowElements = 256;

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_FOLD_H
