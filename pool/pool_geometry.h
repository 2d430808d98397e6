/// \file pool_geometry.h
/// Where windows lie along one axis of a plane: columns along a line, or lines across.
#ifndef TARVU_POOL_POOL_GEOMETRY_H
#define TARVU_POOL_POOL_GEOMETRY_H

#include <algorithm>

#include "simd/processor.h"
#include "tarvu.h"

namespace tarvu {

enum class Place { kFirst, kInner, kExtra };

/// One position of the window: the elements [begin, end) of the input. The range is empty if end does not exceed begin.
struct Window {
  Place place;
  int32_t begin;
  int32_t end;
};

/// The windows of one axis, and their place between the elements, 0 to extent, and the padding on both sides.
struct Axis {
  int32_t extent;
  int32_t kernel;
  int32_t stride;
  int32_t pad_near;
  int32_t pad_far;
  int32_t steps;  ///< inner windows; none if not positive
  int32_t last;   ///< limit of the inner windows
  bool partial;   ///< an extra window is wanted behind the inner ones
  int32_t whole;  ///< one past the last window behind the first one that the far end does not clip

  Axis(int32_t extent_, int32_t kernel_, int32_t stride_, int32_t pad_near_, int32_t pad_far_, bool keeps_partial)
      : extent(extent_), kernel(kernel_), stride(stride_), pad_near(pad_near_), pad_far(pad_far_) {
    const int32_t span = padded_extent() - kernel;
    steps = divide(span, stride);
    last = (steps + 1) * stride - pad_near;
    partial = keeps_partial && span != steps * stride;
    const int32_t room = extent + pad_near - kernel;
    whole = room < 0 || stride == 0 ? 1 : std::min(room / stride + 1, regular());
  }

  int32_t padded_extent() const { return extent + pad_near + pad_far; }

  /// Windows in front of the extra one.
  int32_t regular() const { return 1 + std::max(steps, 0); }

  /// First element of any window but the first. The extra window follows the inner ones, so with negative steps it starts where
  /// they would have, and not at `last`.
  int32_t begin_of(int32_t index) const { return index * stride - pad_near; }

  bool has_extra_below(int32_t limit) const { return partial && begin_of(regular()) < limit; }

  /// Kept: only the far end is clipped; a window behind the first one starts in front of the input if the pad exceeds the
  /// stride.
  Window window(int32_t index) const {
    if (index == 0) return {Place::kFirst, 0, std::min(extent, kernel - pad_near)};
    const int32_t begin = begin_of(index);
    if (index < regular()) return {Place::kInner, begin, std::min(extent, begin + kernel)};
    return {Place::kExtra, begin, extent};
  }

  /// Whether all windows, cut to the input, are runs of `kernel` elements `stride` apart, the first one from -pad_near. Only
  /// the extra window could be longer, and it is not: what it leaves over is what `steps` left over, less than a kernel.
  bool is_regular() const { return stride > 0 && pad_near <= stride; }
};

inline Axis columns_of(const _NN_POOL_PARM &parm) {
  return {parm.width, parm.kernel_w, parm.stride_w, parm.pad_left, parm.pad_right, parm.floor_mode == 0};
}

inline Axis lines_of(const _NN_POOL_PARM &parm) {
  return {parm.height, parm.kernel_h, parm.stride_h, parm.pad_top, parm.pad_bottom, parm.floor_mode == 0};
}

/// Bytes from the start of a plane to the first line of a window.
inline size_t first_line_offset(const Axis &lines, int32_t index, uint32_t line_bytes) {
  if (index == 0) return 0;
  // Kept: the first inner window starts at a product of 32 bits, so far behind the plane where the pad exceeds the stride.
  const uint32_t first_inner = line_bytes * static_cast<uint32_t>(lines.begin_of(1));
  return first_inner + static_cast<size_t>(index - 1) * static_cast<size_t>(lines.stride) * line_bytes;
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_GEOMETRY_H
