// Expands class indices along a new axis.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "convert/format_entry.h"
#include "frame/tarvu_util.h"
#include "simd/conversion.h"

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
void find_positions(const _NN_ONEHOT_PARM &parm, const uint8_t *column, Lines lines, int32_t *positions) {
  float indices[kIndicesAtOnce] = {};
  with_element_type(parm.in_fmt, [&](auto element) {
    using Index = decltype(element);
    Index gathered[kIndicesAtOnce];
    const void *elements = column + lines.first * parm.in_line_ofs;
    if (parm.in_line_ofs != sizeof(Index)) {
      for (uint32_t i = 0; i < lines.count; ++i)
        gathered[i] = load<Index>(column + (lines.first + i) * parm.in_line_ofs);
      elements = gathered;
    }
    tarvu_fixtofloat_neon(elements, indices, lines.count, &parm.in_fmt, &parm.in_scale);
  });
  const auto depth = static_cast<float>(parm.depth);
  floats_to_integers<int32_t>(indices, positions, lines.count, [=](auto x) {
    using Floats = decltype(x);
    return x < Floats{} ? x + fill<Floats>(depth) : x;
  });
}

template <class Element>
void fill_run(uint8_t *to, Element value, size_t count) {
  if constexpr (sizeof(Element) == 1) {
    std::memset(to, value, count);
  } else {
    auto *elements = reinterpret_cast<Unaligned<Element> *>(to);
    for (size_t i = 0; i < count; ++i) elements[i].value = value;
  }
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
  if (parm.depth <= 0) return QX_OK;
  const Rows<Element> rows(parm, steps, values);
  const auto *from = pointer<const uint8_t>(parm.in_addr);
  uint8_t *to = pointer(parm.out_addr);
  for (uint32_t b = 0; b < parm.batch; ++b) {
    for (uint32_t c = 0; c < parm.channel; ++c) {
      const uint8_t *column = from + b * parm.in_batch_ofs + c * parm.in_channel_ofs;
      uint8_t *out_column = to + b * steps.batch + c * steps.channel;
      for (uint32_t h = 0; h < parm.height; h += kIndicesAtOnce) {
        const Lines lines = {h, std::min(parm.height - h, kIndicesAtOnce)};
        int32_t positions[kIndicesAtOnce];
        find_positions(parm, column, lines, positions);
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
