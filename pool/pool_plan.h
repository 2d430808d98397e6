/// \file pool_plan.h
/// The first step of pooling: what is decided once a call. Where windows lie along an axis and what they count, how lines of output
/// go together, and which fold and which output stage serve them.
#ifndef TARVU_POOL_POOL_PLAN_H
#define TARVU_POOL_POOL_PLAN_H

#include <algorithm>

#include "pool/pool_fold.h"
#include "pool/pool_output.h"
#include "pool/pool_square.h"
#include "simd/processor.h"
#include "tarvu.h"

namespace tarvu {

enum PoolMode : uint32_t { kLocalMaximum, kLocalAverage, kGlobalMaximum, kGlobalAverage };

enum class Place { kFirst, kInner, kExtra };

/// One position of the window: the elements [begin, end) of the input. The range is empty if end does not exceed begin.
struct Window {
  Place place;
  int32_t begin;
  int32_t end;
};

/// The windows of one axis, columns along a line or lines across, and their place between the elements, 0 to extent, and the
/// padding on both sides.
struct WindowAxis {
  int32_t extent;
  int32_t kernel;
  int32_t stride;
  int32_t pad_near;
  int32_t pad_far;
  int32_t steps;  ///< inner windows; none if not positive
  int32_t last;   ///< limit of the inner windows
  bool partial;   ///< an extra window is wanted behind the inner ones
  int32_t whole;  ///< one past the last window behind the first one that the far end does not clip

  WindowAxis(int32_t extent_, int32_t kernel_, int32_t stride_, int32_t pad_near_, int32_t pad_far_, bool keeps_partial)
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

  /// All windows, where an extra one exists if it starts below the limit.
  uint32_t count(int32_t limit) const {
    return static_cast<uint32_t>(regular()) + (partial && begin_of(regular()) < limit ? 1 : 0);
  }

  /// Kept: only the far end is clipped; a window behind the first one starts in front of the input if the pad exceeds the
  /// stride.
  Window window(uint32_t i) const {
    const auto index = static_cast<int32_t>(i);
    if (index == 0) return {Place::kFirst, 0, std::min(extent, kernel - pad_near)};
    const int32_t begin = begin_of(index);
    if (index < regular()) return {Place::kInner, begin, std::min(extent, begin + kernel)};
    return {Place::kExtra, begin, extent};
  }

  /// Whether all windows, cut to the input, are runs of `kernel` elements `stride` apart, the first one from -pad_near. Only
  /// the extra window could be longer, and it is not: what it leaves over is what `steps` left over, less than a kernel.
  bool is_regular() const { return stride > 0 && pad_near <= stride; }

  /// Positions that a window counts in the divisor of an average.
  int32_t counted(const Window &window, bool padding_counts) const {
    switch (window.place) {
      case Place::kFirst:
        // Kept: without padding too it is cut at the end of the padding, so that a first window which crosses the whole line
        // counts the padding behind it.
        return padding_counts ? std::min(kernel, padded_extent())
                              : std::max(0, std::min(padded_extent(), kernel - pad_near));
      case Place::kInner:
        return padding_counts ? kernel : std::min(window.end - window.begin, kernel);
      default:
        return extent + (padding_counts ? pad_far : 0) - last;
    }
  }
};

/// A call, and what follows from its block for every plane.
struct PoolPlan {
  const _NN_POOL_PARM &block;
  NN_AI_IO_TYPE in;
  NN_AI_IO_TYPE out;
  WindowAxis columns;
  WindowAxis lines;
  bool averages = {};
  bool padding_counts = {};
  SumWord sum_word = {};
  const PoolFold *fold = nullptr;
  OutputTerms terms = {};
  MaximumWay way = {};
  uint8_t map[256] = {};
  OutputStage maximum = {};        ///< of maxima
  int32_t of_nothing = {};         ///< the maximum of an empty window, as it comes to the output
  ChooseSquare square = {};        ///< windows straight to the output, or null
  ChooseSquare square_words = {};  ///< windows to words

  bool regular = {};         ///< the windows of a line are words of a tile in regular steps
  bool outputs_apart = {};   ///< no element of the output takes the place of another one
  uint32_t line_count = {};  ///< output lines
  uint32_t column_count = {};
  uint32_t extra_line_columns = {};  ///< of the extra line, where it exists
  uint32_t most_of_part = {};        ///< windows of a part

  /// These columns pass through the stage of their line. Those in front and behind are empty windows of a maximum, or averages
  /// with a divisor of their own.
  uint32_t first_passed = {};
  uint32_t end_passed = {};
};

/// The plan of a local mode. It must stay where it is: its stage knows its map.
void plan_windows(PoolPlan &plan);

/// Bytes from the start of a plane to the first line of a window.
size_t first_line_offset(const PoolPlan &plan, uint32_t line);

/// What the windows of an output line count along their columns; 0 for maxima.
inline int32_t counted_lines(const PoolPlan &plan, const Window &line) {
  return plan.averages ? plan.lines.counted(line, plan.padding_counts) : 0;
}

/// Kept: without padding the extra column counts one element at least.
inline int32_t divisor_at(const PoolPlan &plan, const Window &column, int32_t of_lines) {
  const int32_t product = multiply(plan.columns.counted(column, plan.padding_counts), of_lines);
  return !plan.padding_counts && column.place == Place::kExtra ? std::max(product, 1) : product;
}

/// The stage of an average.
inline OutputStage stage_of_divisor(const PoolPlan &plan, int32_t divisor) {
  return average_stage(plan.terms, plan.sum_word, plan.out, divisor / 2, divisor);
}

/// The windows of a line from output column `first` on.
Part part_from(const PoolPlan &plan, uint32_t first, uint32_t columns);

/// Output lines from line `first` on, below `end`, that make a band: those whose windows lie in the plane and that count alike. Where borders
/// are blended in, a window of three lines may lack the first one in front and the last one behind.
Band band_from(const PoolPlan &plan, uint32_t first, uint32_t end);

/// Runs output lines `first` to `end` of every plane, one after another.
void pool_lines(const PoolPlan &plan, uint32_t first, uint32_t end);

/// Small planes: runs what gains by going side by side, and gives the output lines that are left: those below the first number
/// and those from the second one on.
struct LinesLeft {
  uint32_t above;
  uint32_t below;
};
LinesLeft pool_side_by_side(const PoolPlan &plan);

void pool_global(const _NN_POOL_PARM &block, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out);

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_PLAN_H
