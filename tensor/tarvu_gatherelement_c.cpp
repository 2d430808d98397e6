// Takes every element from a place along one axis that an index of its own names.
#include <cstdio>

#include "simd/index_block.h"
#include "tensor/gather_types.h"

namespace tarvu {
namespace {

/// One output line's way through the input. An element lies at its slice base + `inside` + its column * `column_step`.
struct Line {
  const uint8_t *start;  // where slice 0 lies
  size_t inside;         // bytes: the coordinates between axis and width
  uint32_t column_step;  // bytes; 0 where the axis is the width
  uint32_t slice_step;   // bytes
  uint32_t total;        // elements of the whole output
};

/// Kept: distances are taken modulo 2^32, and a negative index counts back from the whole output, not from the axis.
inline const uint8_t *slice_base(const Line &line, int32_t index) {
  const uint32_t position = static_cast<uint32_t>(index) + (index < 0 ? line.total : 0);
  return line.start + position * line.slice_step;
}

template <class Index>
inline int32_t index_at(const uint8_t *indices, uint32_t i) {
  return static_cast<int32_t>(load<Index>(indices + i * sizeof(Index)));
}

/// A block of columns whose indices are not negative; `from` is where slice 0 has the first of them.
template <class T, class Index>
inline void gather_block(const uint8_t *from, uint32_t slice_step, uint32_t column_step, const uint8_t *indices,
                         uint8_t *to) {
  uint32_t distances[kIndexBlock];
  multiply_indices<Index>(indices, slice_step, distances);
  for (uint32_t i = 0; i < kIndexBlock; ++i) {
    store(to + i * sizeof(T), load<T>(from + distances[i] + i * column_step));
  }
}

/// `count` columns of one line from `first` on, stored densely. `kept` is the slice base of the element before; returns
/// that of the last one.
/// Kept: an index of -1 goes on with that slice base, whichever line it belonged to.
template <class T, class Index, uint32_t kColumnStep>
const uint8_t *gather_columns(const Line &line, const uint8_t *indices, uint32_t first, uint32_t count,
                              const uint8_t *kept, uint8_t *to) {
  const uint8_t *const start = line.start;
  const uint32_t slice_step = line.slice_step;
  size_t inside = line.inside + size_t{first} * kColumnStep;
  indices += first * sizeof(Index);
  while (count != 0) {
    const uint32_t count_before = count;
    for (; count >= kIndexBlock && !has_negative<Index>(indices); count -= kIndexBlock) {
      gather_block<T, Index>(start + inside, slice_step, kColumnStep, indices, to);
      inside += kIndexBlock * kColumnStep;
      indices += kIndexBlock * sizeof(Index);
      to += kIndexBlock * sizeof(T);
    }
    if (count != count_before) kept = slice_base(line, index_at<Index>(indices - sizeof(Index), 0));
    if (count == 0) break;
    const int32_t index = index_at<Index>(indices, 0);
    if (index != -1) kept = slice_base(line, index);
    store(to, load<T>(kept + inside));
    inside += kColumnStep;
    indices += sizeof(Index);
    to += sizeof(T);
    --count;
  }
  return kept;
}

/// The shape of one call, width first.
struct Shape {
  uint32_t rank;
  uint32_t dimension;   // of the axis: 0 width
  uint32_t extents[4];  // of output and indices; 1 beyond the rank
  uint32_t in_steps[4];
  uint32_t index_steps[4];
};

/// Returns false if nothing is to be gathered.
bool shape_of(const _NN_GATHERELEMENT_PARM &parm, uint32_t in_element, Shape &shape) {
  const uint32_t rank = parm.in_batch != 0 ? 4 : parm.in_channel != 0 ? 3 : parm.in_height != 0 ? 2 : 1;
  if (rank == 1 || parm.axis >= rank) return false;
  shape = {rank,
           rank - 1 - parm.axis,
           {parm.out_width, parm.out_height, 1, 1},
           {in_element, parm.in_line_ofs, parm.in_channel_ofs, parm.in_batch_ofs},
           {0, parm.ind_line_ofs, parm.ind_channel_ofs, parm.ind_batch_ofs}};
  if (rank > 2) shape.extents[2] = parm.out_channel;
  if (rank > 3) shape.extents[3] = parm.out_batch;
  return std::find(shape.extents, shape.extents + rank, 0u) == shape.extents + rank;
}

/// The line at these coordinates.
Line line_at(const _NN_GATHERELEMENT_PARM &parm, const Shape &shape, const uint32_t (&at)[4]) {
  Line line{pointer<const uint8_t>(parm.in_addr), 0, shape.dimension == 0 ? 0 : shape.in_steps[0],
            shape.in_steps[shape.dimension], 1};
  for (uint32_t i = 1; i < shape.rank; ++i) {
    const uint32_t distance = at[i] * shape.in_steps[i];
    if (i > shape.dimension) line.start += distance;
    if (i < shape.dimension) line.inside += distance;
  }
  for (const uint32_t extent : shape.extents) line.total *= extent;
  return line;
}

/// Where a -1 is met first: the kept slice base starts anew whenever a coordinate slower than the axis advances.
/// Kept: but not at all for the slowest axis, nor on a matrix, where a line goes on with what the one before has left.
bool starts_anew(const Shape &shape, const uint32_t (&at)[4]) {
  if (shape.rank == 2 || shape.dimension == shape.rank - 1) return false;
  return std::all_of(at + 1, at + shape.dimension + 1, [](uint32_t coordinate) { return coordinate == 0; });
}

template <class T, class Index>
void gather_elements(const _NN_GATHERELEMENT_PARM &parm) {
  Shape shape;
  if (!shape_of(parm, sizeof(T), shape)) return;
  const uint8_t out_width = width_modulo_256(parm.out_fmt);
  const size_t out_element = out_width == 8 ? 1 : out_width == 16 ? 2 : sizeof(T);
  const bool reformats = out_width != width_modulo_256(parm.in_fmt) || parm.in_fmt.frac_bits != parm.out_fmt.frac_bits;
  const uint32_t width = shape.extents[0];
  const uint8_t *kept = nullptr;
  uint8_t *to = pointer(parm.out_addr);
  uint32_t at[4] = {};
  const auto gather_line = [&] {
    const Line line = line_at(parm, shape, at);
    const auto *indices = pointer<const uint8_t>(parm.ind_addr);
    for (uint32_t i = 1; i < shape.rank; ++i) indices += at[i] * shape.index_steps[i];
    if (starts_anew(shape, at)) kept = line.start;
    const auto gather = [&](uint32_t first, uint32_t count, uint8_t *elements) {
      kept = line.column_step == 0 ? gather_columns<T, Index, 0>(line, indices, first, count, kept, elements)
                                   : gather_columns<T, Index, sizeof(T)>(line, indices, first, count, kept, elements);
    };
    if (reformats) {
      gather_and_reformat<T>(to, out_element, width, parm.in_fmt, parm.out_fmt, gather);
    } else {
      gather(0, width, to);
    }
    to += width * out_element;
  };
  for (at[3] = 0; at[3] < shape.extents[3]; ++at[3]) {
    for (at[2] = 0; at[2] < shape.extents[2]; ++at[2]) {
      for (at[1] = 0; at[1] < shape.extents[1]; ++at[1]) gather_line();
    }
  }
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_gatherelement_process(const _NN_GATHERELEMENT_PARM *parm) {
  const NN_AI_IO_TYPE in_type = tarvu_get_gatherelement_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE index_type = tarvu_get_gatherelement_fmt_type(&parm->ind_fmt);
  if (!tarvu::is_element_type(in_type)) {
    std::printf("\033[1;31mERR:%s() unsupported gatherelement input type %d\r\n\033[0m", "tarvu_gatherelement_process",
                in_type);
    return QX_ERR_UNSUPPORTED;
  }
  if (!tarvu::is_index_type(index_type)) {
    std::printf("\033[1;31mERR:%s() unsupported ind type %d\r\n\033[0m", "tarvu_gatherelement_process", index_type);
    return QX_ERR_UNSUPPORTED;
  }
  tarvu::with_gather_types(in_type, index_type, [=](auto element, auto index) {
    tarvu::gather_elements<decltype(element), decltype(index)>(*parm);
  });
  return QX_OK;
}
