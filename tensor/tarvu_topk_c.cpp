// Picks the best elements of every line along one axis.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "frame/memory.h"
#include "frame/tarvu_util.h"
#include "tensor/topk_columns.h"
#include "tensor/topk_line.h"

namespace tarvu {
namespace {

/// One axis of the walk.
struct Axis {
  uint32_t extent;
  uint64_t in_step;   // elements
  size_t value_step;  // bytes
  size_t index_step;  // bytes
};

/// The axis of the lines, and the others from the slowest.
struct Walk {
  Axis along;
  Axis across[3];
};

Walk walk_of(const _NN_TOPK_PARM &parm, size_t element_bytes) {
  const uint64_t plane = uint64_t{parm.width} * parm.height;
  const Axis axes[] = {
      {parm.batch, plane * parm.channel, parm.out_batch_ofs, parm.out_index_batch_ofs},
      {parm.channel, plane, parm.out_channel_ofs, parm.out_index_channel_ofs},
      {parm.height, parm.width, parm.out_line_ofs, parm.out_index_line_ofs},
      {parm.width, 1, element_bytes, sizeof(uint16_t)},
  };
  Walk walk{axes[parm.axis], {}};
  Axis *across = walk.across;
  for (int axis = 0; axis < 4; ++axis) {
    if (axis != parm.axis) *across++ = axes[axis];
  }
  return walk;
}

/// Where one line lies in all tensors. An output that is not wanted starts at null.
struct Place {
  uint64_t first_element;
  uint8_t *values;
  uint8_t *indices;
};

/// Calls pick(place) for every line.
template <class Pick>
void for_each_line(const _NN_TOPK_PARM &parm, const Walk &walk, Pick pick) {
  const auto advance = [&](const Place &place, const Axis &axis, uint32_t i) {
    return Place{place.first_element + i * axis.in_step,
                 parm.out_addr != 0 ? place.values + i * axis.value_step : nullptr,
                 parm.out_index_addr != 0 ? place.indices + i * axis.index_step : nullptr};
  };
  const Place start{0, pointer(parm.out_addr), pointer(parm.out_index_addr)};
  for (uint32_t i = 0; i < walk.across[0].extent; ++i) {
    for (uint32_t j = 0; j < walk.across[1].extent; ++j) {
      const Place middle = advance(advance(start, walk.across[0], i), walk.across[1], j);
      for (uint32_t k = 0; k < walk.across[2].extent; ++k) pick(advance(middle, walk.across[2], k));
    }
  }
}

/// Stores the picks of one line: entry i of the scratch gives position_of(i) and value_of(i).
template <class PositionOf, class ValueOf>
void store_picks(const Place &place, const Axis &along, uint32_t k, PositionOf position_of, ValueOf value_of) {
  if (place.indices != nullptr) {
    for (uint32_t i = 0; i < k; ++i) store(place.indices + i * along.index_step, position_of(i));
  }
  if (place.values != nullptr) {
    for (uint32_t i = 0; i < k; ++i) store(place.values + i * along.value_step, value_of(i));
  }
}

/// Lines of which at most all elements are picked.
template <class T>
void pick_by_keys(const _NN_TOPK_PARM &parm, const Walk &walk, T flip) {
  auto *keys = pointer<uint32_t>(parm.work_buffer);
  for_each_line(parm, walk, [&](const Place &place) {
    const uint8_t *first = pointer<const uint8_t>(parm.in_addr) + place.first_element * sizeof(T);
    if (walk.along.in_step == 1) {
      pick_from_line(DenseLine<T>{first, flip}, walk.along.extent, parm.k, parm.sorted != 0, keys);
    } else {
      pick_from_line(SteppedLine<T>{first, walk.along.in_step * sizeof(T), flip}, walk.along.extent, parm.k,
                     parm.sorted != 0, keys);
    }
    store_picks(
        place, walk.along, parm.k, [=](uint32_t i) { return position_of(keys[i]); },
        [=](uint32_t i) { return static_cast<T>(rank_of<T>(keys[i]) ^ flip); });
  });
}

/// Lines shorter than the number of picks, or of a tensor whose offsets do not fit a signed word.
/// Kept: the scratch holds 32-bit element offsets, and what it held behind the line is ranked as if it belonged to it;
/// what is left there takes part in the next line.
template <class T>
void pick_by_offsets(const _NN_TOPK_PARM &parm, const Walk &walk, T flip) {
  const auto *in = pointer<const uint8_t>(parm.in_addr);
  auto *offsets = pointer<uint32_t>(parm.work_buffer);
  const auto stride = static_cast<uint32_t>(walk.along.in_step);
  const uint32_t n = walk.along.extent;
  const uint32_t k = parm.k;
  const auto element = [=](uint32_t offset) { return load<T>(in + size_t{offset} * sizeof(T)); };
  const auto ranks_first = [=](uint32_t a, uint32_t b) {
    const T rank_a = element(a) ^ flip;
    const T rank_b = element(b) ^ flip;
    return rank_a != rank_b ? rank_a > rank_b : static_cast<int32_t>(a) < static_cast<int32_t>(b);
  };
  for_each_line(parm, walk, [&](const Place &place) {
    const uint64_t base = place.first_element;
    for (uint32_t i = 0; i < n; ++i) offsets[i] = static_cast<uint32_t>(base) + stride * i;
    if (k < n) std::nth_element(offsets, offsets + k, offsets + n, ranks_first);
    if (parm.sorted != 0) std::sort(offsets, offsets + k, ranks_first);
    store_picks(
        place, walk.along, k,
        [=](uint32_t i) { return static_cast<uint16_t>(stride == 0 ? 0 : (offsets[i] - base) / stride); },
        [=](uint32_t i) { return element(offsets[i]); });
  });
}

/// Bytes that an output reaches with these steps.
Memory output_memory(uint64_t address, const Walk &walk, uint32_t k, size_t Axis::*step, size_t element_bytes) {
  if (address == 0) return {0, 0};
  uint64_t bytes = element_bytes + uint64_t{k - 1} * (walk.along.*step);
  for (const Axis &axis : walk.across) bytes += uint64_t{axis.extent - 1} * (axis.*step);
  return {address, bytes};
}

/// Whether nobody can tell if some lines are picked from before the picks of others are stored.
bool lines_are_apart(const _NN_TOPK_PARM &parm, const Walk &walk, uint64_t elements, size_t element_bytes) {
  const Memory in = {parm.in_addr, elements * element_bytes};
  const Memory values = output_memory(parm.out_addr, walk, parm.k, &Axis::value_step, element_bytes);
  const Memory indices = output_memory(parm.out_index_addr, walk, parm.k, &Axis::index_step, sizeof(uint16_t));
  return lie_apart(in, values) && lie_apart(in, indices) && lie_apart(values, indices);
}

/// Lines whose picks follow one another in an output, counted from any multiple of it; and whether those of the next pick lie
/// behind all of them.
uint64_t lines_in_a_row(const Walk &walk, uint32_t k, size_t Axis::*step, size_t element_bytes) {
  uint64_t lines = 1;
  for (int i = 2; i >= 0 && walk.across[i].*step == lines * element_bytes; --i) lines *= walk.across[i].extent;
  return k == 1 || walk.along.*step >= lines * element_bytes ? lines : 1;
}

/// Goes through the lines in the order of the walk.
struct LineCursor {
  uint32_t at[3];
  uint8_t *values;   // null if not wanted
  uint8_t *indices;  // null if not wanted
};

LineCursor cursor_at(const _NN_TOPK_PARM &parm, const Walk &walk, uint64_t line) {
  LineCursor cursor{{}, pointer(parm.out_addr), pointer(parm.out_index_addr)};
  for (int i = 2; i >= 0; --i) {
    const Axis &axis = walk.across[i];
    cursor.at[i] = static_cast<uint32_t>(line % axis.extent);
    line /= axis.extent;
    if (cursor.values != nullptr) cursor.values += cursor.at[i] * axis.value_step;
    if (cursor.indices != nullptr) cursor.indices += cursor.at[i] * axis.index_step;
  }
  return cursor;
}

void advance(LineCursor &cursor, const _NN_TOPK_PARM &parm, const Walk &walk, uint64_t next_line) {
  const Axis &axis = walk.across[2];
  if (++cursor.at[2] == axis.extent) {
    cursor = cursor_at(parm, walk, next_line);
    return;
  }
  if (cursor.values != nullptr) cursor.values += axis.value_step;
  if (cursor.indices != nullptr) cursor.indices += axis.index_step;
}

/// Few picks of each line, several lines at a time.
template <class T>
void pick_few(const _NN_TOPK_PARM &parm, const Walk &walk, T flip) {
  LineShape shape{1, walk.along.extent, 1};
  for (int i = 0; i < 3; ++i) (i < parm.axis ? shape.blocks : shape.columns) *= walk.across[i].extent;
  const uint64_t values_in_a_row = lines_in_a_row(walk, parm.k, &Axis::value_step, sizeof(T));
  const uint64_t indices_in_a_row = lines_in_a_row(walk, parm.k, &Axis::index_step, sizeof(uint16_t));
  const uint64_t in_a_row = std::min(parm.out_addr != 0 ? values_in_a_row : indices_in_a_row,
                                     parm.out_index_addr != 0 ? indices_in_a_row : values_in_a_row);
  constexpr size_t kColumns = kKeyColumns<T>;
  LineCursor row{};  // the first line of a row of lines whose picks follow one another
  uint64_t first_of_row = 0;
  uint64_t end_of_row = 0;
  const auto store_group = [&](uint64_t line, size_t lines, const GroupPicks<T> &picks) {
    if (in_a_row >= kColumns && (line < first_of_row || line >= end_of_row)) {
      first_of_row = line - line % in_a_row;
      end_of_row = first_of_row + in_a_row;
      row = cursor_at(parm, walk, first_of_row);
    }
    if (lines == kColumns && in_a_row >= kColumns && line + kColumns <= end_of_row) {
      const size_t in_row = line - first_of_row;
      for (uint32_t i = 0; i < parm.k; ++i) {
        if (row.indices != nullptr) {
          std::memcpy(row.indices + in_row * sizeof(uint16_t) + i * walk.along.index_step, picks.positions[i],
                      sizeof picks.positions[i]);
        }
        if (row.values != nullptr) {
          std::memcpy(row.values + in_row * sizeof(T) + i * walk.along.value_step, picks.elements[i],
                      sizeof picks.elements[i]);
        }
      }
      return;
    }
    LineCursor cursor = cursor_at(parm, walk, line);
    for (size_t l = 0; l < lines; ++l) {
      store_picks(
          Place{0, cursor.values, cursor.indices}, walk.along, parm.k,
          [&](uint32_t i) { return picks.positions[i][l]; }, [&](uint32_t i) { return picks.elements[i][l]; });
      advance(cursor, parm, walk, line + l + 1);
    }
  };
  pick_in_lanes<T>(shape, pointer<const uint8_t>(parm.in_addr), parm.k, flip, store_group);
}

/// Whether lines side by side are the faster way. Lines along the width have to be turned into columns first, which pays for
/// short ones.
template <class T>
bool pays_in_lanes(const _NN_TOPK_PARM &parm, const Walk &walk) {
  if (parm.k == 0 || parm.k > kMostPicksInLanes) return false;
  if (parm.k == walk.along.extent && parm.sorted == 0) return false;  // these keep the order of the line
  const uint32_t longest_dense = sizeof(T) == 1 ? 128 * parm.k + 128 : 96 * parm.k + 32;
  return parm.axis != 3 || walk.along.extent <= longest_dense;
}

template <class T>
_QX_RESULT topk_general(const _NN_TOPK_PARM &parm, T flip) {
  if (parm.axis < 0 || parm.axis > 3) {
    std::printf("\033[1;31mERR:%s() not support axis = %d\r\n\033[0m", "tarvu_topk_general", parm.axis);
    return QX_ERR_UNSUPPORTED;
  }
  const Walk walk = walk_of(parm, sizeof(T));
  const uint64_t lines = uint64_t{walk.across[0].extent} * walk.across[1].extent * walk.across[2].extent;
  if (lines == 0) return QX_OK;
  constexpr uint64_t kMostElements = uint64_t{1} << 31;
  const uint64_t elements = lines * walk.along.extent;
  if (parm.k > walk.along.extent || elements > kMostElements) {
    pick_by_offsets<T>(parm, walk, flip);
  } else if (pays_in_lanes<T>(parm, walk) && lines_are_apart(parm, walk, elements, sizeof(T))) {
    pick_few<T>(parm, walk, flip);
  } else {
    pick_by_keys<T>(parm, walk, flip);
  }
  return QX_OK;
}

/// Elements of T with their bits flipped by `flip_for_largest` rank by their unsigned value.
template <class T>
_QX_RESULT topk_large(const _NN_TOPK_PARM &parm, T flip_for_largest) {
  switch (parm.largest) {
    case 0:
      return topk_general<T>(parm, static_cast<T>(~flip_for_largest));
    case 1:
      return topk_general<T>(parm, flip_for_largest);
    default:
      std::printf("\033[1;31mERR:%s() wrong parameter largest: %d\n\033[0m", "tarvu_topk_large", parm.largest);
      return QX_ERR_UNSUPPORTED;
  }
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_topk_process(const _NN_TOPK_PARM *parm) {
  const NN_AI_IO_TYPE type = tarvu_get_fmt_type(&parm->in_fmt);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return tarvu::topk_large<uint8_t>(*parm, 0x80);
    case NN_AI_IO_TYPE_UINT8:
      return tarvu::topk_large<uint8_t>(*parm, 0);
    case NN_AI_IO_TYPE_INT16:
      return tarvu::topk_large<uint16_t>(*parm, 0x8000);
    case NN_AI_IO_TYPE_UINT16:
      return tarvu::topk_large<uint16_t>(*parm, 0);
    default:
      std::printf("\033[1;31mERR:%s() not support in_type = %d\r\n\033[0m", "tarvu_topk_process", type);
      return QX_ERR_UNSUPPORTED;
  }
}
