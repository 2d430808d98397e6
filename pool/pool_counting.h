/// \file pool_counting.h
/// What an average divides by.
#ifndef TARVU_POOL_POOL_COUNTING_H
#define TARVU_POOL_POOL_COUNTING_H

#include "pool/pool_geometry.h"

namespace tarvu {

/// Positions that a window counts along one axis.
inline int32_t counted(const Axis &axis, const Window &window, bool padding_counts) {
  const int32_t kernel = axis.kernel;
  switch (window.place) {
    case Place::kFirst:
      // Kept: without padding too it is cut at the end of the padding, so that a first window which crosses the whole line
      // counts the padding behind it.
      return padding_counts ? std::min(kernel, axis.padded_extent())
                            : std::max(0, std::min(axis.padded_extent(), kernel - axis.pad_near));
    case Place::kInner:
      return padding_counts ? kernel : std::min(window.end - window.begin, kernel);
    default:
      return axis.extent + (padding_counts ? axis.pad_far : 0) - axis.last;
  }
}

/// Kept: without padding the extra column counts one element at least.
inline int32_t divisor_of(int32_t columns, int32_t lines, Place column, bool padding_counts) {
  const int32_t product = multiply(columns, lines);
  return !padding_counts && column == Place::kExtra ? std::max(product, 1) : product;
}

/// An extra window that starts in the padding exists where the padding does not count.
inline int32_t extra_limit(const Axis &axis, bool padding_counts) {
  return axis.extent + (padding_counts ? 0 : axis.pad_far);
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_COUNTING_H
