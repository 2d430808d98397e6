/// \file axes.h
/// The axes of a walk over one to three tensors, which memory often walks as fewer: dense lines are one run, dense planes too.
///
///     extents   4      3       2            4 elements a line, lines 4 elements apart, planes 16 elements apart:
///     steps     1      4      16
///
///     xxxx xxxx xxxx ....  xxxx xxxx xxxx ....        merged:   extents  12     2
///     |    |               |                                    steps     1    16
#ifndef TARVU_FRAME_AXES_H
#define TARVU_FRAME_AXES_H

#include <cstddef>
#include <cstdint>
#include <utility>

namespace tarvu {

inline constexpr int kMostAxes = 6;

/// One axis: how many places it has, and how many bytes each tensor moves on from one of them to the next; 0 for a tensor that
/// the axis goes over again and again.
template <int tensors>
struct Axis {
  size_t extent;
  ptrdiff_t step[tensors];
};

/// The axes of a walk, the innermost one first: `axis[0]` runs fastest. Only the first `count` stand for something.
template <int tensors>
struct Axes {
  static_assert(tensors >= 1 && tensors <= 3);
  Axis<tensors> axis[kMostAxes];
  int count;
};

/// Adds an axis outside of all that are there. There must be room.
template <int tensors>
constexpr void add_axis(Axes<tensors> &axes, const Axis<tensors> &axis) {
  axes.axis[axes.count++] = axis;
}

/// Whether a walk along `outer` goes on where one along `inner` ends, in every tensor.
template <int tensors>
constexpr bool continues(const Axis<tensors> &inner, const Axis<tensors> &outer) {
  for (int t = 0; t < tensors; ++t) {
    if (outer.step[t] != static_cast<ptrdiff_t>(inner.extent) * inner.step[t]) return false;
  }
  return true;
}

/// The same walk, place by place in the same order, with as few axes as memory needs: those of one place go, and neighbours that
/// continue one another become one. At least one axis is left. Where the walk has no place it is an axis of extent 0. No merged
/// extent passes `most`.
template <int tensors>
constexpr Axes<tensors> merge_axes(const Axes<tensors> &axes, size_t most = PTRDIFF_MAX) {
  Axes<tensors> merged{};
  for (int d = 0; d < axes.count; ++d) {
    const Axis<tensors> &next = axes.axis[d];
    if (next.extent == 0) {
      merged.axis[0] = next;
      merged.count = 1;
      return merged;
    }
    if (next.extent == 1) continue;
    if (merged.count != 0) {
      Axis<tensors> &last = merged.axis[merged.count - 1];
      if (continues(last, next) && next.extent <= most / last.extent) {
        last.extent *= next.extent;
        continue;
      }
    }
    add_axis(merged, next);
  }
  if (merged.count == 0) add_axis(merged, Axis<tensors>{1, {}});
  return merged;
}

/// Brings the axes into the ascending order of one tensor's steps, for walks whose order nobody sees; then those that continue one
/// another are neighbours. Axes of equal steps keep their order.
template <int tensors>
constexpr Axes<tensors> sort_axes(Axes<tensors> axes, int tensor) {
  for (int d = 1; d < axes.count; ++d) {
    for (int e = d; e > 0 && axes.axis[e].step[tensor] < axes.axis[e - 1].step[tensor]; --e) {
      std::swap(axes.axis[e], axes.axis[e - 1]);
    }
  }
  return axes;
}

/// Bytes from the start of each tensor to a place of a walk.
template <int tensors>
struct Offsets {
  ptrdiff_t of[tensors];
};

/// Calls action(offsets) for every place of the axes from `first` on, in the order of the walk: with 1 for every line of a walk,
/// with 0 for every element. Axes below `first` stay at their first place. A walk without places has no lines either.
template <int tensors, class Action>
inline void for_each_place(const Axes<tensors> &axes, int first, Action action) {
  size_t position[kMostAxes] = {};
  for (int d = 0; d < axes.count; ++d) {
    if (axes.axis[d].extent == 0) return;
  }
  Offsets<tensors> at{};
  for (;;) {
    action(at);
    int d = first;
    for (; d < axes.count; ++d) {
      const Axis<tensors> &axis = axes.axis[d];
      if (++position[d] < axis.extent) {
        for (int t = 0; t < tensors; ++t) at.of[t] += axis.step[t];
        break;
      }
      position[d] = 0;
      for (int t = 0; t < tensors; ++t) at.of[t] -= static_cast<ptrdiff_t>(axis.extent - 1) * axis.step[t];
    }
    if (d >= axes.count) return;
  }
}

}  // namespace tarvu

#endif  // TARVU_FRAME_AXES_H
