// Takes every element from a place along one axis that an index of its own names.
#include <algorithm>
#include <cstdio>

#include "convert/reformat.h"
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
inline const uint8_t *gather_columns(const Line &line, const uint8_t *indices, uint32_t first, uint32_t count,
                                     const uint8_t *kept, uint8_t *to) {
  const uint8_t *const start = line.start;
  const uint32_t slice_step = line.slice_step;
  const uint32_t total = line.total;
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
    // What is less than a block, or one with negative indices.
    const uint32_t singles = std::min(count, kIndexBlock);
    for (uint32_t i = 0; i < singles; ++i) {
      const int32_t index = index_at<Index>(indices, i);
      if (index >= 0) {
        kept = start + static_cast<uint32_t>(index) * slice_step;
      } else if (index != -1) {
        kept = start + (static_cast<uint32_t>(index) + total) * slice_step;
      }
      store(to + i * sizeof(T), load<T>(kept + inside + i * kColumnStep));
    }
    inside += singles * kColumnStep;
    indices += singles * sizeof(Index);
    to += singles * sizeof(T);
    count -= singles;
  }
  return kept;
}

/// The shape of one call, width first.
struct Shape {
  uint32_t rank;        // dimensions that are walked
  uint32_t dimension;   // of the axis: 0 width
  bool starts_anew;     // whether the kept slice base does so within a call
  uint32_t extents[4];  // of output and indices; 1 beyond the rank
  uint32_t in_steps[4];
  uint32_t index_steps[4];
};

/// Returns false if nothing is to be gathered.
bool shape_of(const _NN_GATHERELEMENT_PARM &parm, uint32_t in_element, Shape &shape) {
  const uint32_t rank = parm.in_batch != 0 ? 4 : parm.in_channel != 0 ? 3 : parm.in_height != 0 ? 2 : 1;
  if (rank == 1 || parm.axis >= rank) return false;
  // Kept: it does not for the slowest axis, nor on a matrix, where a line goes on with what the one before has left.
  shape = {rank,
           rank - 1 - parm.axis,
           rank != 2 && parm.axis != 0,
           {parm.out_width, parm.out_height, 1, 1},
           {in_element, parm.in_line_ofs, parm.in_channel_ofs, parm.in_batch_ofs},
           {0, parm.ind_line_ofs, parm.ind_channel_ofs, parm.ind_batch_ofs}};
  if (rank > 2) shape.extents[2] = parm.out_channel;
  if (rank > 3) shape.extents[3] = parm.out_batch;
  return std::find(shape.extents, shape.extents + rank, 0u) == shape.extents + rank;
}

/// Makes one dimension of two neighbours that input and indices walk as one, both inside or both outside the axis.
/// Kept: the slice base that a -1 takes starts anew at the same places, since those depend on the coordinates up to the axis alone.
void merge_dimensions(Shape &shape, uint32_t index_bytes) {
  shape.index_steps[0] = index_bytes;
  for (uint32_t i = 0; i + 1 < shape.rank;) {
    const bool are_inside = i + 1 < shape.dimension;
    const bool are_outside = i > shape.dimension;
    const uint64_t merged = uint64_t{shape.extents[i]} * shape.extents[i + 1];
    if ((!are_inside && !are_outside) || shape.in_steps[i + 1] != uint64_t{shape.extents[i]} * shape.in_steps[i] ||
        shape.index_steps[i + 1] != uint64_t{shape.extents[i]} * shape.index_steps[i] ||
        merged * std::max(shape.in_steps[i], shape.index_steps[i]) > UINT32_MAX) {
      ++i;
      continue;
    }
    shape.extents[i] = static_cast<uint32_t>(merged);
    for (uint32_t j = i + 1; j + 1 < 4; ++j) {
      shape.extents[j] = shape.extents[j + 1];
      shape.in_steps[j] = shape.in_steps[j + 1];
      shape.index_steps[j] = shape.index_steps[j + 1];
    }
    shape.extents[3] = 1;
    if (are_inside) --shape.dimension;
    --shape.rank;
  }
}

/// Re-formats elements that are gathered one after the other, as many at once as the tile holds: the output has no gaps.
template <class T>
struct ReformatTile {
  static constexpr uint32_t kElements = 256;
  Reformat reformat;
  size_t out_element;
  uint8_t *to;
  uint32_t used;
  T elements[kElements];

  void flush() {
    reformat_run(reformat, reinterpret_cast<const uint8_t *>(elements), to, used);
    to += used * out_element;
    used = 0;
  }
};

template <class T, class Index>
void gather_elements(const _NN_GATHERELEMENT_PARM &parm) {
  Shape shape;
  if (!shape_of(parm, sizeof(T), shape)) return;
  const uint32_t total = shape.extents[0] * shape.extents[1] * shape.extents[2] * shape.extents[3];
  merge_dimensions(shape, sizeof(Index));
  const uint8_t out_width = width_modulo_256(parm.out_fmt);
  const size_t out_element = out_width == 8 ? 1 : out_width == 16 ? 2 : sizeof(T);
  const bool reformats = out_width != width_modulo_256(parm.in_fmt) || parm.in_fmt.frac_bits != parm.out_fmt.frac_bits;
  const uint32_t width = shape.extents[0];
  const uint8_t *kept = nullptr;
  uint8_t *to = pointer(parm.out_addr);
  ReformatTile<T> tile;
  tile.used = 0;
  if (reformats) {
    tile.reformat = reformat_between(parm.in_fmt, parm.out_fmt);
    tile.out_element = out_element;
    tile.to = to;
  }
  // What a step along a dimension adds to the place of slice 0 and to the place inside a slice.
  uint32_t start_steps[4] = {};
  uint32_t inside_steps[4] = {};
  for (uint32_t i = 1; i < 4; ++i) {
    if (i > shape.dimension) start_steps[i] = shape.in_steps[i];
    if (i < shape.dimension) inside_steps[i] = shape.in_steps[i];
  }
  uint32_t at[4] = {};
  const auto gather_line = [&](const Line &line, const uint8_t *indices) {
    const auto gather = [&](uint32_t first, uint32_t count, uint8_t *elements) {
      kept = line.column_step == 0 ? gather_columns<T, Index, 0>(line, indices, first, count, kept, elements)
                                   : gather_columns<T, Index, sizeof(T)>(line, indices, first, count, kept, elements);
    };
    if (!reformats) {
      gather(0, width, to);
      to += width * sizeof(T);
      return;
    }
    for (uint32_t first = 0; first < width;) {
      const uint32_t part = std::min(width - first, ReformatTile<T>::kElements - tile.used);
      gather(first, part, reinterpret_cast<uint8_t *>(tile.elements + tile.used));
      tile.used += part;
      first += part;
      if (tile.used == ReformatTile<T>::kElements) tile.flush();
    }
  };
  for (at[3] = 0; at[3] < shape.extents[3]; ++at[3]) {
    for (at[2] = 0; at[2] < shape.extents[2]; ++at[2]) {
      Line line{pointer<const uint8_t>(parm.in_addr) + at[3] * start_steps[3] + at[2] * start_steps[2],
                size_t{at[3] * inside_steps[3]} + at[2] * inside_steps[2], shape.dimension == 0 ? 0 : shape.in_steps[0],
                shape.in_steps[shape.dimension], total};
      const uint8_t *indices =
          pointer<const uint8_t>(parm.ind_addr) + at[3] * shape.index_steps[3] + at[2] * shape.index_steps[2];
      const Line first_line = line;
      const bool is_first =
          shape.starts_anew && (shape.dimension < 2 || at[2] == 0) && (shape.dimension < 3 || at[3] == 0);
      for (at[1] = 0; at[1] < shape.extents[1]; ++at[1]) {
        line.start = first_line.start + at[1] * start_steps[1];
        line.inside = first_line.inside + at[1] * inside_steps[1];
        // Where a -1 is met first: the kept slice base starts anew whenever a coordinate slower than the axis advances.
        if (is_first && (at[1] == 0 || shape.dimension == 0)) kept = line.start;
        gather_line(line, indices + at[1] * shape.index_steps[1]);
      }
    }
  }
  if (tile.used != 0) tile.flush();
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
