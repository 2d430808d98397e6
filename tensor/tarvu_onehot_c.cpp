// Expands class indices along a new axis.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "convert/format_entry.h"
#include "frame/axes.h"
#include "frame/memory.h"
#include "frame/tarvu_util.h"
#include "simd/interleave.h"
#include "simd/part.h"
#include "simd/runs.h"
#include "simd/transpose.h"

namespace tarvu {
namespace {

constexpr uint32_t kIndicesAtOnce = 64;
constexpr int32_t kGreatestDepth = 65535;

/// Bytes of the output from one position to the next of each axis of the index tensor, and of the new axis.
/// Kept: offsets are products of 32 bits, which wrap; their sum with an address does not.
struct Steps {
  uint32_t height;
  uint32_t channel;
  uint32_t batch;
  uint32_t depth;
};

template <class Element>
struct OffOn {
  Element off;
  Element on;
};

/// A run of indices of one column of the index tensor: its first line and its length, at most kIndicesAtOnce.
struct Lines {
  uint32_t first;
  uint32_t count;
};

/// Where the indices turn their rows on; below 0 or from `depth` on for nowhere. In a format that nothing converts all
/// count as index 0 and are not read.
void find_positions(const _NN_ONEHOT_PARM &parm, const void *elements, uint32_t count, int32_t *positions) {
  float indices[kIndicesAtOnce] = {};
  tarvu_fixtofloat_neon(elements, indices, count, &parm.in_fmt, &parm.in_scale);
  const auto depth = static_cast<float>(parm.depth);
  floats_to_integers<int32_t>(indices, positions, count, [=](auto x) {
    using Floats = decltype(x);
    return x < Floats{} ? x + fill<Floats>(depth) : x;
  });
}

/// The same for lines of a column.
void find_positions_of_lines(const _NN_ONEHOT_PARM &parm, const uint8_t *column, Lines lines, int32_t *positions) {
  uint16_t gathered[kIndicesAtOnce];
  const void *elements = gathered;
  with_element_type(parm.in_fmt, [&](auto element) {
    using Index = decltype(element);
    if (parm.in_line_ofs == sizeof(Index)) {
      elements = column + lines.first * parm.in_line_ofs;
      return;
    }
    for (uint32_t i = 0; i < lines.count; ++i) {
      store(reinterpret_cast<uint8_t *>(gathered) + i * sizeof(Index),
            load<Index>(column + (lines.first + i) * parm.in_line_ofs));
    }
  });
  find_positions(parm, elements, lines.count, positions);
}

/// Vectors, of which the last one ends with the run; a short run is a part of one.
template <class Element>
void fill_run(uint8_t *to, Element value, size_t count) {
  constexpr size_t kLongest = 512;  // bytes that take less than a call
  const size_t bytes = count * sizeof(Element);
  if (sizeof(Element) == 1 && bytes > kLongest) {
    std::memset(to, value, count);
    return;
  }
  const auto lanes = u8x16(fill<LanesOfElement<Element>>(value));
  if (bytes < 16) {
    if (bytes != 0) store_part(to, lanes, bytes);
    return;
  }
  for (size_t b = 0; b + 16 < bytes; b += 16) store(to + b, lanes);
  store(to + bytes - 16, lanes);
}

template <class Element>
class Rows {
 public:
  Rows(const _NN_ONEHOT_PARM &parm, const Steps &steps, OffOn<Element> values)
      : steps_(steps), depth_(parm.depth), values_(values) {
    const uint64_t row_bytes = static_cast<uint32_t>(depth_) * uint64_t{sizeof(Element)};
    is_dense_ = steps.depth == sizeof(Element) && depth_ <= kGreatestDepth;
    is_one_run_ = is_dense_ && steps.height == row_bytes && parm.height * row_bytes <= UINT32_MAX;
  }

  /// Whether each column is a long run of its own, best filled while it is in the cache.
  bool are_long_run(uint32_t lines) const { return is_one_run_ && lines >= kIndicesAtOnce; }

  /// Writes the rows of a run of indices whose column starts at `to`.
  void write(uint8_t *to, Lines lines, const int32_t *positions) const {
    if (is_one_run_) return write_one_run(row(to, lines.first), lines.count, positions);
    for (uint32_t i = 0; i < lines.count; ++i) {
      uint8_t *own = row(to, lines.first + i);
      is_dense_ ? write_one_run(own, 1, positions + i) : write_steps(own, positions[i]);
    }
  }

 private:
  uint8_t *row(uint8_t *to, uint32_t line) const { return to + line * steps_.height; }

  /// Rows back to back.
  void write_one_run(uint8_t *to, uint32_t rows, const int32_t *positions) const {
    const auto depth = static_cast<uint32_t>(depth_);
    fill_run(to, values_.off, size_t{rows} * depth);
    for (uint32_t i = 0; i < rows; ++i, to += depth * sizeof(Element)) {
      const auto position = static_cast<uint32_t>(positions[i]);
      if (position < depth) store(to + position * sizeof(Element), values_.on);
    }
  }

  /// Kept: the position is counted in 16 bits, so that a depth beyond them never ends.
  void write_steps(uint8_t *to, int32_t position) const {
    for (uint16_t d = 0; d < depth_; ++d) store(to + d * steps_.depth, d == position ? values_.on : values_.off);
  }

  Steps steps_;
  int32_t depth_;
  OffOn<Element> values_;
  bool is_dense_;    // a row's elements lie back to back
  bool is_one_run_;  // so do the rows of a column
};

bool find_steps(const _NN_ONEHOT_PARM &parm, uint32_t element_bytes, Steps &steps) {
  switch (parm.axis) {
    case 0:
      steps = {element_bytes, parm.out_line_ofs, parm.out_channel_ofs, parm.out_batch_ofs};
      return true;
    case 1:
      steps = {element_bytes, parm.out_line_ofs, parm.out_batch_ofs, parm.out_channel_ofs};
      return true;
    case 2:
      steps = {element_bytes, parm.out_channel_ofs, parm.out_batch_ofs, parm.out_line_ofs};
      return true;
    case 3:
      steps = {parm.out_line_ofs, parm.out_channel_ofs, parm.out_batch_ofs, element_bytes};
      return true;
    default:
      return false;
  }
}

/// The axes of the index tensor (tensor 0) in the output (tensor 1), and those of the output with the new one.
struct FlatWalk {
  Axes<2> indices;
  Axes<1> output;
};

FlatWalk flat_walk_of(const _NN_ONEHOT_PARM &parm, const Steps &steps) {
  FlatWalk walk{};
  const auto add = [&](uint32_t extent, uint32_t in_step, uint32_t out_step) {
    add_axis(walk.indices, Axis<2>{extent, {static_cast<ptrdiff_t>(in_step), static_cast<ptrdiff_t>(out_step)}});
    if (extent != 1) add_axis(walk.output, Axis<1>{extent, {static_cast<ptrdiff_t>(out_step)}});
  };
  add(parm.height, parm.in_line_ofs, steps.height);
  add(parm.channel, parm.in_channel_ofs, steps.channel);
  add(parm.batch, parm.in_batch_ofs, steps.batch);
  const auto depth = static_cast<uint32_t>(parm.depth);
  if (depth != 1) add_axis(walk.output, Axis<1>{depth, {static_cast<ptrdiff_t>(steps.depth)}});
  walk.output = sort_axes(walk.output, 0);
  return walk;
}

/// Whether nobody can tell if the whole output is filled before the first index is read: no offset wraps, no two elements share a
/// place, and the tensors lie apart.
bool may_fill_first(const _NN_ONEHOT_PARM &parm, const FlatWalk &walk, size_t element_bytes) {
  if (parm.depth > kGreatestDepth) return false;
  uint64_t in_bytes = sizeof(uint16_t);
  for (int d = 0; d < walk.indices.count; ++d) {
    const uint64_t reached = (walk.indices.axis[d].extent - 1) * static_cast<uint64_t>(walk.indices.axis[d].step[0]);
    if (reached > UINT32_MAX) return false;
    in_bytes += reached;
  }
  uint64_t out_bytes = element_bytes;
  for (int d = 0; d < walk.output.count; ++d) {
    const auto step = static_cast<uint64_t>(walk.output.axis[d].step[0]);
    const uint64_t reached = (walk.output.axis[d].extent - 1) * step;
    if (reached > UINT32_MAX || step < out_bytes) return false;
    out_bytes += reached;
  }
  return lie_apart({parm.in_addr, in_bytes}, {parm.out_addr, out_bytes});
}

template <class Element>
void fill_output(const FlatWalk &walk, uint8_t *to, Element value) {
  const Axes<1> axes = merge_axes(walk.output);
  const bool is_dense = axes.axis[0].step[0] == sizeof(Element);
  const size_t run = is_dense ? axes.axis[0].extent : 1;
  for_each_place(axes, is_dense ? 1 : 0, [&](const Offsets<1> &at) { fill_run(to + at.of[0], value, run); });
}

/// The elements of an output that hold the value for on. An index format that nothing converts stands for index 0.
template <class Element>
void set_ones(const _NN_ONEHOT_PARM &parm, const Steps &steps, const FlatWalk &walk, Element on) {
  uint8_t gathered[kIndicesAtOnce * sizeof(uint16_t)];
  uint8_t *rows[kIndicesAtOnce];
  uint32_t count = 0;
  const auto *from = pointer<const uint8_t>(parm.in_addr);
  uint8_t *to = pointer(parm.out_addr);
  const auto depth = static_cast<uint32_t>(parm.depth);
  const uint32_t depth_step = steps.depth;
  const auto set_rows = [&] {
    int32_t positions[kIndicesAtOnce];
    find_positions(parm, gathered, count, positions);
    const uint32_t found = count;
    for (uint32_t i = 0; i < found; ++i) {
      const auto position = static_cast<uint32_t>(positions[i]);
      if (position < depth) store(rows[i] + position * depth_step, on);
    }
    count = 0;
  };
  const Axes<2> axes = merge_axes(walk.indices);
  const Axis<2> run = axes.axis[0];
  // Calls gather(index, place, n) for n indices of a run at a time.
  const auto gather_all = [&](auto gather) {
    for_each_place(axes, 1, [&](const Offsets<2> &at) {
      const uint8_t *index = from + at.of[0];
      uint8_t *row = to + at.of[1];
      for (size_t left = run.extent; left != 0;) {
        const auto n = static_cast<uint32_t>(std::min<size_t>(left, kIndicesAtOnce - count));
        gather(index, count, n);
        for (uint32_t i = 0; i < n; ++i, row += run.step[1]) rows[count + i] = row;
        index += static_cast<ptrdiff_t>(n) * run.step[0];
        count += n;
        left -= n;
        if (count == kIndicesAtOnce) set_rows();
      }
    });
    if (count != 0) set_rows();
  };
  bool are_read = false;
  with_element_type(parm.in_fmt, [&](auto element) {
    using Index = decltype(element);
    are_read = true;
    gather_all([&](const uint8_t *index, uint32_t place, uint32_t n) {
      copy_elements<Index>(index, static_cast<size_t>(run.step[0]), gathered + place * sizeof(Index), sizeof(Index), n);
    });
  });
  if (!are_read) gather_all([](const uint8_t *, uint32_t, uint32_t) {});
}

template <class Element>
_QX_RESULT expand(const _NN_ONEHOT_PARM &parm) {
  OffOn<Element> values{};
  tarvu_convert_fmt_c(pointer<const void>(parm.values_addr), &values, 2, &parm.values_fmt, &parm.out_fmt,
                      &parm.values_scale, &parm.out_scale);
  Steps steps{};
  if (!find_steps(parm, sizeof(Element), steps)) {
    std::printf("not supported axis = %d\n", static_cast<int>(parm.axis));
    return QX_ERR_UNSUPPORTED;
  }
  if (parm.depth <= 0 || parm.height == 0 || parm.channel == 0 || parm.batch == 0) return QX_OK;
  const Rows<Element> rows(parm, steps, values);
  if (!rows.are_long_run(parm.height)) {
    const FlatWalk walk = flat_walk_of(parm, steps);
    if (may_fill_first(parm, walk, sizeof(Element))) {
      fill_output(walk, pointer(parm.out_addr), values.off);
      set_ones(parm, steps, walk, values.on);
      return QX_OK;
    }
  }
  const auto *from = pointer<const uint8_t>(parm.in_addr);
  uint8_t *to = pointer(parm.out_addr);
  for (uint32_t b = 0; b < parm.batch; ++b) {
    for (uint32_t c = 0; c < parm.channel; ++c) {
      const uint8_t *column = from + b * parm.in_batch_ofs + c * parm.in_channel_ofs;
      uint8_t *out_column = to + b * steps.batch + c * steps.channel;
      for (uint32_t h = 0; h < parm.height; h += kIndicesAtOnce) {
        const Lines lines = {h, std::min(parm.height - h, kIndicesAtOnce)};
        int32_t positions[kIndicesAtOnce];
        find_positions_of_lines(parm, column, lines, positions);
        rows.write(out_column, lines, positions);
      }
    }
  }
  return QX_OK;
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_onehot_process(const _NN_ONEHOT_PARM *parm) {
  const NN_AI_IO_TYPE out_type = tarvu_get_fmt_type(&parm->out_fmt);
  switch (out_type) {
    case NN_AI_IO_TYPE_INT8:
    case NN_AI_IO_TYPE_UINT8:
      return tarvu::expand<uint8_t>(*parm);
    case NN_AI_IO_TYPE_INT16:
    case NN_AI_IO_TYPE_UINT16:
      return tarvu::expand<uint16_t>(*parm);
    default:
      std::printf("not supported output type = %d\n", static_cast<int>(out_type));
      return QX_ERR_UNSUPPORTED;
  }
}
