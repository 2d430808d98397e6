// Copies slices of a tensor, chosen along one axis by a list of positions.
#include <cstdio>
#include <cstring>

#include "convert/reformat.h"
#include "frame/memory.h"
#include "simd/copy.h"
#include "simd/index_block.h"
#include "simd/lanes.h"
#include "simd/transpose.h"
#include "tensor/gather_types.h"

namespace tarvu {
namespace {

constexpr uint32_t kMostRank = 4;

/// One dimension outside the axis.
struct Outer {
  uint32_t count;
  size_t in_step;   // bytes
  size_t out_step;  // bytes
};

/// How the tensors are walked, all steps in bytes.
struct Walk {
  Outer outer[kMostRank - 1];  // the slowest first, of count 1 where there are fewer
  uint32_t indices;
  uint32_t position_step;   // from one position of the axis to the next
  size_t run_bytes;         // what moves for one index
  size_t out_step;          // from one index to the next
  uint32_t reformat_count;  // elements
};

uint32_t product(const uint32_t *extents, uint32_t count) {
  uint32_t result = 1;
  for (uint32_t i = 0; i < count; ++i) result *= extents[i];
  return result;
}

/// Ranks are read from the extents, width first.
uint32_t input_rank(const _NN_GATHER_PARM &parm) {
  return parm.in_batch != 0 ? 4 : parm.in_channel != 0 ? 3 : parm.in_height != 0 ? 2 : 1;
}
uint32_t index_rank(const _NN_GATHER_PARM &parm) {
  return parm.ind_batch != 0 ? 4 : parm.ind_channel != 0 ? 3 : parm.ind_height != 0 ? 2 : 1;
}

/// Bytes of an output element where single ones move; no step at all for a format without elements of 8 or 16 bits.
size_t out_element_bytes(const _NN_GATHER_PARM &parm, size_t in_element) {
  const uint8_t width = width_modulo_256(parm.out_fmt);
  if (width == width_modulo_256(parm.in_fmt)) return in_element;
  return width == 8 ? 1 : width == 16 ? 2 : 0;
}

/// Dimensions that memory walks as one become one.
void merge_outer(Walk &walk) {
  for (uint32_t merges = 0; merges + 1 < kMostRank - 1; ++merges) {
    const Outer &inner = walk.outer[2];
    const Outer &outer = walk.outer[1];
    const bool is_one = outer.in_step == inner.count * inner.in_step &&
                        outer.out_step == inner.count * inner.out_step &&
                        uint64_t{inner.count} * outer.count <= UINT32_MAX;
    if (inner.count != 1 && outer.count != 1 && !is_one) return;
    const Outer merged = inner.count == 1 ? outer : inner;
    walk.outer[2] = {inner.count * outer.count, merged.in_step, merged.out_step};
    walk.outer[1] = walk.outer[0];
    walk.outer[0] = {1, 0, 0};
  }
}

/// Returns false if nothing is to be gathered.
bool walk_of(const _NN_GATHER_PARM &parm, size_t in_element, Walk &walk) {
  const uint32_t rank = input_rank(parm);
  // Kept: of the index tensor of a rank-4 input the first line alone counts.
  const uint32_t list_rank = rank == 4 ? 1 : index_rank(parm);
  const uint32_t out_rank = rank + list_rank - 1;
  const uint32_t axis = parm.axis;
  if (rank == 1 || out_rank > kMostRank || axis >= rank) return false;
  const uint32_t ind_extents[] = {parm.ind_width, parm.ind_height, parm.ind_channel, parm.ind_batch};
  const uint32_t out_extents[] = {parm.out_width, parm.out_height, parm.out_channel, parm.out_batch};
  const uint32_t in_steps[] = {static_cast<uint32_t>(in_element), parm.in_line_ofs, parm.in_channel_ofs,
                               parm.in_batch_ofs};
  const size_t out_steps[] = {out_element_bytes(parm, in_element), parm.out_line_ofs, parm.out_channel_ofs,
                              parm.out_batch_ofs};
  for (Outer &outer : walk.outer) outer = {1, 0, 0};
  for (uint32_t t = 0; t < axis; ++t) {
    Outer &outer = walk.outer[kMostRank - 1 - axis + t];
    outer = {out_extents[out_rank - 1 - t], in_steps[rank - 1 - t], out_steps[out_rank - 1 - t]};
    if (outer.count == 0) return false;
  }
  merge_outer(walk);
  const uint32_t dimension = rank - 1 - axis;
  walk.indices = product(ind_extents, list_rank);
  walk.position_step = in_steps[dimension];
  walk.run_bytes = in_steps[dimension];
  walk.out_step = out_steps[dimension];
  // Kept: for a list of rank above 1 this counts more than one slice. Each re-formatting spills over the slices behind
  // it, which their own indices then overwrite; the last spill stays behind the output.
  walk.reformat_count = product(out_extents, out_rank - 1 - axis);
  return walk.indices != 0;
}

/// Kept: -1 is the first slice, and what is below counts back from the number of indices, not from the axis.
template <class Index>
uint32_t position_of(Index index, uint32_t indices) {
  if constexpr (std::is_unsigned_v<Index>) {
    return index;
  } else {
    if (index >= 0) return static_cast<uint32_t>(index);
    return index == -1 ? 0 : indices + static_cast<uint32_t>(int32_t{index});
  }
}

/// The slices for a list of indices; `from` is where position 0 lies.
template <class Index>
struct Slices {
  const uint8_t *from;
  const uint8_t *list;
  uint32_t indices;
  uint32_t position_step;  // bytes

  /// Kept: the distance is taken modulo 2^32 and not checked.
  const uint8_t *operator[](uint32_t i) const {
    return from + position_of(load<Index>(list + i * sizeof(Index)), indices) * position_step;
  }
};

/// What happens to the elements of a slice on their way.
struct Formats {
  bool same_width;
  bool reformats;
  Reformat reformat;
};

Formats formats_of(const _NN_GATHER_PARM &parm) {
  const bool same_width = width_modulo_256(parm.in_fmt) == width_modulo_256(parm.out_fmt);
  return {same_width, !same_width || parm.in_fmt.frac_bits != parm.out_fmt.frac_bits,
          reformat_between(parm.in_fmt, parm.out_fmt)};
}

/// The runs for all indices at one outer position, one after the other, as the general case has it.
template <class Index>
void gather_in_order(const _NN_GATHER_PARM &parm, const Walk &walk, const Formats &formats, const Slices<Index> &slices,
                     uint8_t *to) {
  for (uint32_t i = 0; i < walk.indices; ++i, to += walk.out_step) {
    uint8_t *const staged = formats.same_width ? to : pointer(parm.work_buffer);
    copy_bytes(slices[i], staged, walk.run_bytes);
    if (formats.reformats) reformat_run(formats.reformat, staged, to, walk.reformat_count);
  }
}

constexpr uint32_t kIndicesAtOnce = 256;

/// Where the slices of some indices lie, in bytes from that of position 0.
struct Distances {
  uint32_t bytes[kIndicesAtOnce];
};

template <class Index>
void find_distances(const Slices<Index> &slices, uint32_t first, uint32_t count, Distances &distances) {
  const uint8_t *list = slices.list + first * sizeof(Index);
  uint32_t i = 0;
  for (; count - i >= kIndexBlock && !has_negative<Index>(list);
       i += kIndexBlock, list += kIndexBlock * sizeof(Index)) {
    uint32_t block[kIndexBlock];
    multiply_indices<Index>(list, slices.position_step, block);
    std::memcpy(distances.bytes + i, block, sizeof block);
  }
  for (; i < count; ++i, list += sizeof(Index)) {
    distances.bytes[i] = position_of(load<Index>(list), slices.indices) * slices.position_step;
  }
}

template <class Piece>
inline void copy_pieces(const uint8_t *from, const uint32_t *distances, uint32_t count, uint8_t *to, size_t out_step) {
  for (; count >= 4; count -= 4, distances += 4) {
    Piece pieces[4];
    for (int k = 0; k < 4; ++k) pieces[k] = load<Piece>(from + distances[k]);
    for (int k = 0; k < 4; ++k, to += out_step) store(to, pieces[k]);
  }
  for (; count != 0; --count, ++distances, to += out_step) store(to, load<Piece>(from + *distances));
}

/// Runs of one to two pieces, which then overlap.
template <class Piece>
inline void copy_pairs(const uint8_t *from, const uint32_t *distances, uint32_t count, size_t bytes, uint8_t *to,
                       size_t out_step) {
  const size_t second = bytes - sizeof(Piece);
  for (; count != 0; --count, ++distances, to += out_step) {
    const uint8_t *run = from + *distances;
    const auto first_piece = load<Piece>(run);
    const auto second_piece = load<Piece>(run + second);
    store(to, first_piece);
    store(to + second, second_piece);
  }
}

void copy_slices(const uint8_t *from, const uint32_t *distances, uint32_t count, size_t bytes, uint8_t *to,
                 size_t out_step) {
  switch (bytes) {
    case 0:
      return;
    case 1:
      return copy_pieces<uint8_t>(from, distances, count, to, out_step);
    case 2:
      return copy_pieces<uint16_t>(from, distances, count, to, out_step);
    case 4:
      return copy_pieces<uint32_t>(from, distances, count, to, out_step);
    case 8:
      return copy_pieces<uint64_t>(from, distances, count, to, out_step);
    case 16:
      return copy_pieces<u8x16>(from, distances, count, to, out_step);
    default:
      break;
  }
  if (bytes < 4) return copy_pairs<uint16_t>(from, distances, count, bytes, to, out_step);
  if (bytes < 8) return copy_pairs<uint32_t>(from, distances, count, bytes, to, out_step);
  if (bytes < 16) return copy_pairs<uint64_t>(from, distances, count, bytes, to, out_step);
  if (bytes < 32) return copy_pairs<u8x16>(from, distances, count, bytes, to, out_step);
  for (; count != 0; --count, ++distances, to += out_step) copy_bytes(from + *distances, to, bytes);
}

/// Calls action(distances, first, count) for all indices.
template <class Index, class Action>
void for_each_part(const Slices<Index> &slices, Distances &distances, bool are_found, uint32_t most, Action action) {
  const uint32_t at_once = std::clamp(most, 1u, kIndicesAtOnce);
  for (uint32_t first = 0; first < slices.indices; first += at_once) {
    const uint32_t count = std::min(at_once, slices.indices - first);
    if (are_found) {
      action(distances.bytes + first, first, count);
    } else {
      find_distances(slices, first, count, distances);
      action(distances.bytes, first, count);
    }
  }
}

/// Slices that are re-formatted in place at one outer position.
///
/// Each index re-formats so many elements from the start of its slice on, also what lies behind the slice: that of the next ones,
/// which they then replace, gaps between slices and what lies behind the last one. So a place of a slice is re-formatted once, and
/// all others once for each index that reaches them: at once, since shifts add up, and what is once saturated stays so.
struct InPlace {
  const Reformat &reformat;
  uint8_t *to;
  size_t element_bytes;
  size_t step;   // from one slice to the next
  size_t reach;  // bytes that an index re-formats

  /// Bytes `begin` to `end`, which are no slice's; `last` is the last index that starts ahead of them.
  void convert_rest(size_t begin, size_t end, size_t last) const {
    const auto shift_once = static_cast<size_t>(reformat.shift < 0 ? -reformat.shift : reformat.shift);
    const size_t most_shift = element_bytes == 1 ? 24 : 16;  // nothing is left of any element, or it is saturated
    while (begin < end) {
      const size_t first = begin < reach ? 0 : (begin - reach) / step + 1;
      if (first > last || shift_once == 0) return;
      const size_t times = last - first + 1;
      const size_t enough = (most_shift + shift_once - 1) / shift_once;
      // What one index less reaches is shifted once less, which no longer counts if it is enough.
      const size_t first_that_counts = times > enough ? last - enough + 1 : first;
      const size_t piece_end = std::min(end, reach + first_that_counts * step);
      const auto shift = static_cast<int>(std::min(times * shift_once, most_shift));
      reformat.run(to + begin, to + begin, static_cast<uint32_t>((piece_end - begin) / element_bytes),
                   reformat.shift < 0 ? -shift : shift);
      begin = piece_end;
    }
  }
};

template <class T, class Index>
void gather_in_place(const Walk &walk, const Formats &formats, const Slices<Index> &slices, Distances &distances,
                     bool are_found, uint8_t *to) {
  const size_t reach = size_t{walk.reformat_count} * sizeof(T);
  const size_t step = walk.out_step;
  const size_t run = walk.run_bytes;
  const InPlace rest{formats.reformat, to, sizeof(T), step, reach};
  const bool is_one_run = run == step && reach >= step;
  constexpr size_t kBytesAtOnce = 8192;
  const auto most = static_cast<uint32_t>(std::min<size_t>(kBytesAtOnce / step, kIndicesAtOnce));
  for_each_part(slices, distances, are_found, most, [&](const uint32_t *part, uint32_t first, uint32_t count) {
    uint8_t *const start = to + first * step;
    copy_slices(slices.from, part, count, run, start, step);
    if (is_one_run) {
      reformat_run(formats.reformat, start, start, static_cast<uint32_t>(count * step / sizeof(T)));
      return;
    }
    for (size_t i = first; i < first + count; ++i) {
      const bool is_last = i + 1 == walk.indices;
      const size_t own = is_last ? run : std::min(run, step);
      reformat_run(formats.reformat, to + i * step, to + i * step,
                   static_cast<uint32_t>(std::min(own, reach) / sizeof(T)));
      if (!is_last) rest.convert_rest(i * step + own, (i + 1) * step, i);
    }
  });
  const size_t last = walk.indices - size_t{1};
  if (reach > run) rest.convert_rest(last * step + run, last * step + reach, last);
}

/// Slices that change their width at one outer position. What an index re-formats behind its slice comes from stale scratch memory,
/// and all of it that lies ahead of the next slice is replaced; so only the last index takes all elements.
template <class T, class Index>
void gather_to_other_width(const _NN_GATHER_PARM &parm, const Walk &walk, const Formats &formats,
                           const Slices<Index> &slices, Distances &distances, bool are_found, uint8_t *to) {
  constexpr size_t kTileBytes = 2048;
  const size_t step = walk.out_step;
  const size_t run = walk.run_bytes;
  const size_t out_element = formats.reformat.out_bytes;
  const size_t ahead = (step + out_element - 1) / out_element;
  const auto own = static_cast<uint32_t>(std::min<size_t>(walk.reformat_count, ahead));
  const bool is_in_slice = own * sizeof(T) <= run;
  const bool is_one_run = is_in_slice && own * out_element == step && own * sizeof(T) <= kTileBytes;
  const auto most = static_cast<uint32_t>(std::min<size_t>(kTileBytes / (own * sizeof(T)), kIndicesAtOnce));
  auto *const staged = pointer(parm.work_buffer);
  for_each_part(slices, distances, are_found, is_one_run ? most : kIndicesAtOnce,
                [&](const uint32_t *part, uint32_t first, uint32_t count) {
                  uint8_t *start = to + first * step;
                  if (is_one_run) {
                    alignas(16) uint8_t tile[kTileBytes];
                    copy_slices(slices.from, part, count, own * sizeof(T), tile, own * sizeof(T));
                    reformat_run(formats.reformat, tile, start, count * own);
                    return;
                  }
                  for (uint32_t i = 0; i < count; ++i, start += step) {
                    const uint8_t *source = slices.from + part[i];
                    if (!is_in_slice) {
                      copy_bytes(source, staged, run);
                      source = staged;
                    }
                    reformat_run(formats.reformat, source, start, own);
                  }
                });
  if (walk.reformat_count == own && is_in_slice) return;
  const uint32_t last = walk.indices - 1;
  copy_bytes(slices[last], staged, run);
  reformat_run(formats.reformat, staged, to + last * step, walk.reformat_count);
}

/// Few slices a row, of rows without gaps: several rows are collected before they are re-formatted as one run.
template <class T>
void gather_short_rows(const Walk &walk, const Formats &formats, const Distances &distances, const Outer &rows,
                       const uint8_t *from, uint8_t *to) {
  constexpr size_t kTileBytes = 2048;
  alignas(16) uint8_t tile[kTileBytes];
  const size_t slice_bytes = walk.reformat_count * sizeof(T);
  const size_t row_bytes = walk.indices * slice_bytes;
  const size_t at_once = kTileBytes / row_bytes;
  for (size_t first = 0; first < rows.count; first += at_once) {
    const size_t count = std::min(at_once, rows.count - first);
    if (slice_bytes == sizeof(T) && walk.indices < count) {
      for (uint32_t i = 0; i < walk.indices; ++i) {
        copy_elements<T>(from + distances.bytes[i], rows.in_step, tile + i * sizeof(T), row_bytes, count);
      }
    } else {
      for (size_t r = 0; r < count; ++r) {
        copy_slices(from + r * rows.in_step, distances.bytes, walk.indices, slice_bytes, tile + r * row_bytes,
                    slice_bytes);
      }
    }
    reformat_run(formats.reformat, tile, to, static_cast<uint32_t>(count * walk.indices * walk.reformat_count));
    from += count * rows.in_step;
    to += count * rows.out_step;
  }
}

/// Whether gather_short_rows() may be used: slices fill their places and rows follow one another.
template <class T>
bool are_short_rows(const Walk &walk, const Formats &formats, const Outer &rows) {
  constexpr size_t kLongestRow = 512;
  const size_t slice_bytes = walk.reformat_count * sizeof(T);
  const bool fills = formats.same_width ? slice_bytes == walk.run_bytes : slice_bytes <= walk.run_bytes;
  return rows.count > 1 && fills && slice_bytes * walk.indices <= kLongestRow &&
         walk.out_step == walk.reformat_count * formats.reformat.out_bytes &&
         rows.out_step == walk.indices * walk.out_step;
}

/// Bytes that a call writes, from the start of the output on.
uint64_t written_bytes(const Walk &walk, const Formats &formats) {
  uint64_t bytes = std::max<uint64_t>(walk.run_bytes, uint64_t{walk.reformat_count} * sizeof(uint16_t));
  if (!formats.reformats) bytes = walk.run_bytes;
  bytes += uint64_t{walk.indices - 1} * walk.out_step;
  for (const Outer &outer : walk.outer) bytes += uint64_t{outer.count - 1} * outer.out_step;
  return bytes;
}

/// Whether the indices may be read before slices are written.
bool list_is_apart(const _NN_GATHER_PARM &parm, const Walk &walk, const Formats &formats, size_t index_bytes) {
  return lie_apart({parm.ind_addr, walk.indices * index_bytes}, {parm.out_addr, written_bytes(walk, formats)});
}

/// Whether slices may be read before others are written, and the scratch memory is part of no tensor.
template <class Index>
bool slices_are_apart(const _NN_GATHER_PARM &parm, const Walk &walk, const Formats &formats,
                      const Slices<Index> &slices) {
  uint64_t outer_bytes = 0;
  for (const Outer &outer : walk.outer) outer_bytes += uint64_t{outer.count - 1} * outer.in_step;
  uint32_t nearest = UINT32_MAX;
  uint32_t furthest = 0;
  for (uint32_t i = 0; i < walk.indices; ++i) {
    const auto distance = static_cast<uint32_t>(slices[i] - slices.from);
    nearest = std::min(nearest, distance);
    furthest = std::max(furthest, distance);
  }
  const Memory in = {parm.in_addr + nearest, uint64_t{furthest} - nearest + outer_bytes + walk.run_bytes};
  const Memory out = {parm.out_addr, written_bytes(walk, formats)};
  if (formats.same_width || !formats.reformats) return lie_apart(in, out);
  const Memory list = {parm.ind_addr, uint64_t{walk.indices} * sizeof(Index)};
  const Memory scratch = {parm.work_buffer,
                          std::max<uint64_t>(walk.run_bytes, uint64_t{walk.reformat_count} * sizeof(uint16_t))};
  return lie_apart(in, out) && lie_apart(scratch, out) && lie_apart(scratch, in) && lie_apart(scratch, list);
}

/// Calls action(from, to) for all positions outside the axis.
template <class Action>
void for_each_outer(const _NN_GATHER_PARM &parm, const Walk &walk, Action action) {
  for (uint32_t i = 0; i < walk.outer[0].count; ++i) {
    for (uint32_t j = 0; j < walk.outer[1].count; ++j) {
      const uint8_t *from =
          pointer<const uint8_t>(parm.in_addr) + i * walk.outer[0].in_step + j * walk.outer[1].in_step;
      uint8_t *to = pointer(parm.out_addr) + i * walk.outer[0].out_step + j * walk.outer[1].out_step;
      for (uint32_t k = 0; k < walk.outer[2].count; ++k, from += walk.outer[2].in_step, to += walk.outer[2].out_step) {
        action(from, to);
      }
    }
  }
}

template <class T, class Index>
void gather(const _NN_GATHER_PARM &parm) {
  Walk walk;
  if (!walk_of(parm, sizeof(T), walk)) return;
  const Formats formats = formats_of(parm);
  Slices<Index> slices{pointer<const uint8_t>(parm.in_addr), pointer<const uint8_t>(parm.ind_addr), walk.indices,
                       walk.position_step};
  const bool copies = !formats.reformats || (formats.same_width && walk.reformat_count == 0);
  constexpr uint32_t kFewIndices = 8;
  const bool may_go_by_index = copies && walk.run_bytes == sizeof(T) && walk.indices <= kFewIndices;
  const bool list_apart = list_is_apart(parm, walk, formats, sizeof(Index));
  const bool all_apart = list_apart && (!copies || may_go_by_index) && slices_are_apart(parm, walk, formats, slices);
  // Kept for elements that straddle slices, slices in one place, and shifts so long that they wrap.
  const bool is_regular =
      walk.out_step != 0 && (!formats.same_width || (walk.run_bytes != 0 && walk.run_bytes % sizeof(T) == 0 &&
                                                     walk.out_step % sizeof(T) == 0 && formats.reformat.shift <= 16));
  if (!list_apart || (!copies && !(all_apart && is_regular))) {
    for_each_outer(parm, walk, [&](const uint8_t *from, uint8_t *to) {
      slices.from = from;
      gather_in_order(parm, walk, formats, slices, to);
    });
    return;
  }
  if (!formats.same_width && (formats.reformat.in_bytes == 0 || walk.reformat_count == 0)) return;
  Distances distances;
  const bool are_found = walk.indices <= kIndicesAtOnce;
  if (are_found) find_distances(slices, 0, walk.indices, distances);
  if (may_go_by_index && all_apart && walk.outer[2].count > walk.indices &&
      walk.outer[2].out_step >= walk.indices * walk.out_step) {
    Outer &rows = walk.outer[2];
    const Outer inner = rows;
    rows.count = 1;
    for_each_outer(parm, walk, [&](const uint8_t *from, uint8_t *to) {
      for (uint32_t i = 0; i < walk.indices; ++i) {
        copy_elements<T>(from + distances.bytes[i], inner.in_step, to + i * walk.out_step, inner.out_step, inner.count);
      }
    });
    return;
  }
  if (!copies && are_found && are_short_rows<T>(walk, formats, walk.outer[2])) {
    const Outer rows = walk.outer[2];
    walk.outer[2].count = 1;
    for_each_outer(parm, walk, [&](const uint8_t *from, uint8_t *to) {
      gather_short_rows<T>(walk, formats, distances, rows, from, to);
    });
    return;
  }
  const auto gather_position = [&](const uint8_t *from, uint8_t *to) {
    slices.from = from;
    if (copies) {
      for_each_part(slices, distances, are_found, kIndicesAtOnce,
                    [&](const uint32_t *part, uint32_t first, uint32_t count) {
                      copy_slices(from, part, count, walk.run_bytes, to + first * walk.out_step, walk.out_step);
                    });
    } else if (formats.same_width) {
      gather_in_place<T>(walk, formats, slices, distances, are_found, to);
    } else {
      gather_to_other_width<T>(parm, walk, formats, slices, distances, are_found, to);
    }
  };
  for_each_outer(parm, walk, gather_position);
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_gather_process(const _NN_GATHER_PARM *parm) {
  const NN_AI_IO_TYPE in_type = tarvu_get_gather_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE index_type = tarvu_get_gather_fmt_type(&parm->ind_fmt);
  if (!tarvu::is_element_type(in_type)) {
    std::printf("\033[1;31mERR:%s() unsupported gather input type %d\r\n\033[0m", "tarvu_gather_process", in_type);
    return QX_ERR_UNSUPPORTED;
  }
  if (!tarvu::is_index_type(index_type)) {
    std::printf("\033[1;31mERR:%s() unsupported ind type %d\r\n\033[0m", "tarvu_gather_process", index_type);
    return QX_ERR_UNSUPPORTED;
  }
  tarvu::with_gather_types(in_type, index_type,
                           [=](auto element, auto index) { tarvu::gather<decltype(element), decltype(index)>(*parm); });
  return QX_OK;
}
