// The walk of a window over all planes. Lines of windows are planned in bands, once a call where that is possible; each line is
// folded into a tile of words and stored through the output stage, but for windows of the common kinds, which run band by band.
#include "pool/pool_local.h"

#include "pool/pool_common_windows.h"
#include "pool/pool_counting.h"
#include "pool/pool_fold.h"

namespace tarvu {
namespace {

/// A line of output comes in parts: as many windows as a tile holds.
struct Parts {
  uint32_t columns;  ///< output columns of the line
  uint32_t most;     ///< windows of a part
};

/// What all lines of a call have in common.
struct LocalPool {
  Axis columns;
  Axis lines;
  NN_AI_IO_TYPE out;
  OutputTerms terms;
  const PoolFold &fold;
  RunCommonWindows run_common;  ///< or null

  bool averages = false;
  bool padding_counts = false;
  SumWord sum_word = SumWord::kUint32;
  OutputStage maximum = {};  ///< of maxima
  int32_t of_no_window = 0;  ///< the maximum of an empty window, as it comes to the output

  /// These columns pass through the stage of their line. Those in front and behind are empty windows of a maximum, or averages
  /// with a divisor of their own.
  uint32_t first_passed = 0;
  uint32_t end_passed = 0;

  bool regular = false;  ///< the windows of a line are words of a tile in regular steps
  uint32_t line_count = 0;
  Parts parts = {};        ///< of every line but the extra one
  Parts extra_parts = {};  ///< of the extra line
};

/// The part whose first window is that of output column `first`.
Part part_of(const Axis &axis, const Parts &parts, uint32_t first) {
  const auto kernel = static_cast<uint32_t>(axis.kernel);
  const auto stride = static_cast<uint32_t>(axis.stride);
  const auto pad = static_cast<uint32_t>(axis.pad_near);
  const uint32_t count = std::min(parts.most, parts.columns - first);
  const uint32_t position = first * stride;
  const uint32_t begin = std::max(position, pad);
  const uint32_t end = std::min(position + (count - 1) * stride + kernel, pad + static_cast<uint32_t>(axis.extent));
  return {kernel, stride, first, count, begin - pad, begin - position, std::max(begin, end) - begin};
}

/// Which windows of a part pass through the stage: `count` from window `first`.
struct Passed {
  uint32_t first;
  uint32_t count;
};

/// A band of any plane: what does not depend on where the plane lies.
struct PlannedBand {
  Band band;           ///< its addresses are those of the plane at hand
  size_t from_offset;  ///< bytes from the start of the input plane
  size_t to_offset;    ///< bytes from the start of the output plane
  uint32_t next;       ///< output line behind the band
  Parts parts;
  Part part;              ///< the first one
  Passed passed;          ///< of the first part
  int32_t counted_lines;  ///< of an average
  OutputStage stage;
  bool has_edges;
  Edges edges;
};

int32_t divisor_at(const LocalPool &pool, int32_t counted_lines, const Window &column) {
  return divisor_of(counted(pool.columns, column, pool.padding_counts), counted_lines, column.place,
                    pool.padding_counts);
}

/// Stores one window that was folded to `folded`.
void store_one(const LocalPool &pool, const PlannedBand &planned, const Window &column, int32_t folded, uint8_t *to) {
  if (!pool.averages) return store_clamped(to, requantised_maximum(pool.terms, folded), pool.out);
  const int32_t divisor = divisor_at(pool, planned.counted_lines, column);
  store_clamped(to, requantised_sum(pool.terms, folded, divisor / 2, divisor), pool.out);
}

/// Stores the windows `begin` to `end` of a part, which do not pass through the stage. Kept: an empty window is written too, as
/// the maximum of nothing.
void store_others(const LocalPool &pool, const PlannedBand &planned, const Part &part, const Tile &tile, uint32_t begin,
                  uint32_t end, uint8_t *to) {
  const uint32_t out_bytes = bytes_of(pool.out);
  for (uint32_t i = begin; i < end; ++i) {
    if (!pool.averages) {
      store_clamped(to + i * out_bytes, pool.of_no_window, pool.out);
    } else {
      const Window column = pool.columns.window(static_cast<int32_t>(part.first + i));
      store_one(pool, planned, column, pool.fold.word_at(tile.windows, i), to + i * out_bytes);
    }
  }
}

Passed passed_of(const LocalPool &pool, const PlannedBand &planned, const Part &part) {
  const bool none = pool.averages ? planned.stage.divisor < 2 : planned.band.lines == 0;
  const uint32_t first = std::max(part.first, pool.first_passed);
  const uint32_t end = std::min(part.first + part.count, pool.end_passed);
  if (none || first >= end) return {0, 0};
  return {first - part.first, end - first};
}

/// Output lines of a band, or a part of each.
void run_lines(const LocalPool &pool, const PlannedBand &planned, const Band &band, const Part &part,
               const Passed &passed, Tile &tile) {
  const PoolFold &fold = pool.fold;
  const OutputStage &stage = planned.stage;
  const uint32_t out_bytes = bytes_of(pool.out);
  for (uint32_t n = 0; n < band.count; ++n) {
    const Band line = line_of(band, n);
    uint8_t *to = line.to + part.first * out_bytes;
    if (pool.averages || passed.count != 0) {
      fold.fold_columns(line.from + part.input * fold.element_bytes, line.line_step, line.lines, part.input_columns,
                        tile.columns + part.input_at * fold.word_bytes);
      fold.fold_windows(tile, part.window, part.stride, part.count);
    }
    if (passed.first != 0) store_others(pool, planned, part, tile, 0, passed.first, to);
    if (passed.count != 0) {
      stage.store_line(stage, to + passed.first * out_bytes, tile.windows + passed.first * fold.word_bytes,
                       passed.count);
    }
    const uint32_t behind = passed.first + passed.count;
    if (behind != part.count) store_others(pool, planned, part, tile, behind, part.count, to);
  }
}

/// Whether the windows of a part are of a common kind and all pass, but for those at the edges of a whole line; then it runs
/// them.
bool run_if_common(const LocalPool &pool, const PlannedBand &planned, const Band &band, const Part &part,
                   const Passed &passed, Tile &tile) {
  if (pool.run_common == nullptr) return false;
  if (passed.count == part.count) return pool.run_common(planned.stage, band, part, nullptr, tile);
  return planned.has_edges && pool.run_common(planned.stage, band, part, &planned.edges, tile);
}

/// The tile for windows from a position of the line: all padding.
void clear_columns(const LocalPool &pool, Tile &tile) {
  pool.fold.fold_columns(nullptr, 0, 0, kTileBytes / pool.fold.word_bytes, tile.columns);
  pool.fold.fold_columns(nullptr, 0, 0, kTileBytes / pool.fold.word_bytes, tile.more);
}

/// Where windows do not lie in regular steps: each by itself.
void run_irregular_line(const LocalPool &pool, const PlannedBand &planned, const Band &line) {
  for (uint32_t i = 0; i < planned.parts.columns; ++i) {
    const Window column = pool.columns.window(static_cast<int32_t>(i));
    const auto offset = static_cast<ptrdiff_t>(column.begin) * static_cast<ptrdiff_t>(pool.fold.element_bytes);
    const int32_t folded =
        pool.fold.fold_one_window(line.from + offset, line.line_step, line.lines, column.end - column.begin);
    store_one(pool, planned, column, folded, line.to + i * bytes_of(pool.out));
  }
}

uint32_t count_of(const Axis &axis, int32_t limit) {
  return static_cast<uint32_t>(axis.regular()) + (axis.has_extra_below(limit) ? 1 : 0);
}

/// Kept: in the extra line the extra column starts inside the input or does not exist, whatever is counted.
uint32_t columns_in(const LocalPool &pool, bool extra_line) {
  return count_of(pool.columns,
                  pool.averages && !extra_line ? extra_limit(pool.columns, pool.padding_counts) : pool.columns.extent);
}

int32_t counted_lines_of(const LocalPool &pool, const Window &line) {
  return pool.averages ? counted(pool.lines, line, pool.padding_counts) : 0;
}

/// Output lines from line `first` that make a band, and the lines that their windows lack: those whose windows lie in the plane
/// and that count alike. Where borders are blended in (a line of nothing is long enough for the input's lines), a window of
/// three lines may lack the first one in front and the last one behind.
struct Lines {
  uint32_t count;
  uint32_t cut_front;
  uint32_t cut_behind;
};
Lines lines_from(const LocalPool &pool, uint32_t first, uint32_t in_line_ofs) {
  const Axis &axis = pool.lines;
  const auto window = [&](uint32_t i) { return axis.window(static_cast<int32_t>(i)); };
  const auto alike = [&](const Window &a, const Window &b) {
    return counted_lines_of(pool, a) == counted_lines_of(pool, b);
  };
  const bool blended = pool.run_common != nullptr && axis.kernel == 3 &&
                       static_cast<uint32_t>(pool.columns.extent) * pool.fold.element_bytes <= kNothingBytes;
  const Window start = window(first);
  const int32_t lacking = axis.kernel - (start.end - start.begin);
  const auto whole = static_cast<uint32_t>(axis.whole);
  Lines lines = {1, 0, 0};
  if (lacking != 0) {
    if (!blended || lacking != 1) return lines;
    if (first != 0 || axis.pad_near != 1) return {1, 0, first != 0 ? 1u : 0u};
    lines.cut_front = 1;
  }
  // Kept: the second line starts at a 32-bit product, so a band from the first line on must not be led past 4 GiB.
  const int64_t to_second_line = int64_t{axis.stride - axis.pad_near} * in_line_ofs;
  if (first == 0 && (to_second_line < 0 || to_second_line > int64_t{UINT32_MAX})) return lines;
  if (first + 1 < whole && alike(start, window(first + 1))) lines.count = whole - first;
  const uint32_t next = first + lines.count;
  if (!blended || next < whole || next >= pool.line_count) return lines;
  const Window end = window(next);
  if (end.end - end.begin == 2 && end.place == Place::kInner && alike(start, end)) {
    ++lines.count;
    lines.cut_behind = 1;
  }
  return lines;
}

/// False if there is a divisor below 2.
bool set_divisors(const LocalPool &pool, int32_t counted_lines, uint32_t first_column, BlockDivisors &divisors) {
  for (uint32_t i = 0; i < 8; ++i) {
    const int32_t divisor =
        divisor_at(pool, counted_lines, pool.columns.window(static_cast<int32_t>(first_column + i)));
    if (divisor < 2) return false;
    const Reciprocal<int32_t> reciprocal = reciprocal_of(divisor);
    divisors.half[i] = divisor / 2;
    divisors.multiplier[i] = reciprocal.multiplier;
    divisors.shift[i] = reciprocal.shift;
  }
  return true;
}

/// Where the windows with divisors of their own lie in the first and in the last eight of a line, those have a divisor each.
bool set_edges(const LocalPool &pool, int32_t counted_lines, uint32_t columns, Edges &edges) {
  return columns > 8 && pool.first_passed <= 1 && columns - std::min(pool.end_passed, columns) <= 8 &&
         set_divisors(pool, counted_lines, 0, edges.first) &&
         set_divisors(pool, counted_lines, columns - 8, edges.last);
}

PlannedBand plan(const LocalPool &pool, const _NN_POOL_PARM &parm, uint32_t first) {
  const auto index = static_cast<int32_t>(first);
  const Window window = pool.lines.window(index);
  const Lines lines = lines_from(pool, first, parm.in_line_ofs);
  const auto of_first = static_cast<uint32_t>(std::max(window.end - window.begin, 0));
  PlannedBand planned = {};
  planned.band.line_step = parm.in_line_ofs;
  planned.band.window_step = parm.stride_h * size_t{parm.in_line_ofs};
  planned.band.lines = of_first + lines.cut_front + (lines.count == 1 ? lines.cut_behind : 0);
  planned.band.cut_front = lines.cut_front;
  planned.band.cut_behind = lines.cut_behind;
  planned.band.out_step = parm.out_line_ofs;
  planned.band.count = lines.count;
  planned.from_offset = first_line_offset(pool.lines, index, parm.in_line_ofs);
  planned.to_offset = first * size_t{parm.out_line_ofs};
  planned.next = first + lines.count;
  planned.parts = window.place == Place::kExtra ? pool.extra_parts : pool.parts;
  planned.part = part_of(pool.columns, planned.parts, 0);
  if (pool.averages) {
    planned.counted_lines = counted_lines_of(pool, window);
    const int32_t divisor = multiply(pool.columns.kernel, planned.counted_lines);
    planned.stage = average_stage(pool.terms, pool.sum_word, pool.out, divisor / 2, divisor);
    planned.has_edges = pool.run_common != nullptr && divisor >= 2 && planned.parts.columns <= planned.parts.most &&
                        set_edges(pool, planned.counted_lines, planned.parts.columns, planned.edges);
  } else {
    planned.stage = pool.maximum;
  }
  planned.passed = passed_of(pool, planned, planned.part);
  return planned;
}

/// Kept: lines and columns in ascending order, so that of output lines that overlap the later one wins.
void run_band(const LocalPool &pool, PlannedBand &planned, const uint8_t *plane, uint8_t *to, Tile &tile) {
  Band &band = planned.band;
  band.from = plane + planned.from_offset;
  band.to = to + planned.to_offset;
  const Parts &parts = planned.parts;
  if (pool.regular && parts.columns <= parts.most) {
    if (run_if_common(pool, planned, band, planned.part, planned.passed, tile)) return;
    return run_lines(pool, planned, band, planned.part, planned.passed, tile);
  }
  for (uint32_t n = 0; n < band.count; ++n) {
    const Band line = line_of(band, n);
    if (!pool.regular) {
      run_irregular_line(pool, planned, line);
      continue;
    }
    for (uint32_t first = 0; first < parts.columns; first += parts.most) {
      const Part part = part_of(pool.columns, parts, first);
      const Passed passed = passed_of(pool, planned, part);
      clear_columns(pool, tile);
      if (!run_if_common(pool, planned, line, part, passed, tile)) run_lines(pool, planned, line, part, passed, tile);
    }
  }
}

void pool_planes(const LocalPool &pool, const _NN_POOL_PARM &parm) {
  Tile tile = {};
  clear_columns(pool, tile);
  constexpr uint32_t kPlanned = 3;
  PlannedBand planned[kPlanned];  // the others are planned for each plane anew
  uint32_t planned_count = 0;
  for (uint32_t first = 0; first < pool.line_count && planned_count < kPlanned; ++planned_count) {
    planned[planned_count] = plan(pool, parm, first);
    first = planned[planned_count].next;
  }
  for (uint32_t b = 0; b < parm.batch; ++b) {
    const uint8_t *plane = pointer<const uint8_t>(parm.in_addr) + b * size_t{parm.in_batch_ofs};
    uint8_t *to = pointer(parm.out_addr) + b * size_t{parm.out_batch_ofs};
    for (uint32_t c = 0; c < parm.channel; ++c, plane += parm.in_channel_ofs, to += parm.out_channel_ofs) {
      uint32_t first = 0;
      for (uint32_t i = 0; i < planned_count; ++i) {
        run_band(pool, planned[i], plane, to, tile);
        first = planned[i].next;
      }
      while (first < pool.line_count) {
        PlannedBand next = plan(pool, parm, first);
        run_band(pool, next, plane, to, tile);
        first = next.next;
      }
    }
  }
}

/// Sets what follows from the rest, and pools.
void pool_windows(LocalPool &pool, const _NN_POOL_PARM &parm) {
  const Axis &columns = pool.columns;
  // Without steps across the lines a window may be taller than the kernel, and too tall for the words of a tile.
  pool.regular = columns.kernel > 0 && columns.is_regular() && pool.lines.stride > 0;
  pool.line_count =
      count_of(pool.lines, pool.averages ? extra_limit(pool.lines, pool.padding_counts) : pool.lines.extent);
  constexpr uint32_t kReadBehind = 64;  // whole blocks are folded and written
  const uint32_t room = kTileBytes / pool.fold.word_bytes - kReadBehind - static_cast<uint32_t>(columns.kernel);
  const uint32_t most = room / std::max(static_cast<uint32_t>(columns.stride), 1u) + 1;
  pool.parts = {columns_in(pool, false), most};
  pool.extra_parts = {columns_in(pool, true), most};
  pool_planes(pool, parm);
}

}  // namespace

void pool_local_maximum(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  const Axis columns = columns_of(parm);
  const OutputTerms terms = output_terms(parm, in, out);
  const MaximumWay way = maximum_way(terms, in, out);
  uint8_t map[256];
  LocalPool pool = {columns, lines_of(parm), out, terms, maximum_fold(in), common_maximum_windows(in, out, way)};
  pool.maximum = maximum_stage(terms, way, in, out, map);
  pool.of_no_window = requantised_maximum(terms, kMaximumOfNothing);
  // Windows end behind column 0 from the first or from the second one on, and start inside the input up to the last passed.
  pool.first_passed = columns.window(0).end > 0 ? 0 : 1;
  if (columns.is_regular() && columns.kernel > 0) {
    pool.end_passed = static_cast<uint32_t>((columns.extent + columns.pad_near + columns.stride - 1) / columns.stride);
  }
  pool_windows(pool, parm);
}

void pool_local_average(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  const Axis columns = columns_of(parm);
  const OutputTerms terms = output_terms(parm, in, out);
  const bool narrow = bytes_of(in) == 1 && static_cast<uint32_t>(parm.kernel_w * parm.kernel_h) <= kMostNarrowElements;
  LocalPool pool = {columns,
                    lines_of(parm),
                    out,
                    terms,
                    narrow ? narrow_sum_fold(in) : sum_fold(in),
                    narrow ? common_average_windows(in, out) : nullptr};
  pool.averages = true;
  pool.padding_counts = parm.non_count_pad == 0;
  pool.sum_word = !narrow ? SumWord::kUint32 : in == NN_AI_IO_TYPE_INT8 ? SumWord::kInt16 : SumWord::kUint16;
  const auto is_full = [&](int32_t i) {
    return counted(columns, columns.window(i), pool.padding_counts) == columns.kernel;
  };
  pool.first_passed = is_full(0) ? 0 : 1;
  const int32_t last = columns.regular() - 1;
  pool.end_passed = static_cast<uint32_t>(last > 0 && is_full(last) ? columns.regular() : columns.whole);
  pool_windows(pool, parm);
}

}  // namespace tarvu
