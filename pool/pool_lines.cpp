// The walk of a window over all planes, line after line. Lines of windows are planned in bands, once a call where that is possible;
// a band is folded to windows in a tile and stored through its stage, or runs straight to the output where the processor gains by
// it.
#include "pool/pool_plan.h"

namespace tarvu {
namespace {

/// Sets which windows of a part pass through the stage.
void set_passed(const PoolPlan &plan, Band &band) {
  const Part &part = band.part;
  const uint32_t first = std::max(part.first, plan.first_passed);
  const uint32_t end = std::min(part.first + part.count, plan.end_passed);
  const bool none = (!plan.averages && band.lines == 0) || first >= end;
  band.passed_at = none ? 0 : first - part.first;
  band.passed = none ? 0 : end - first;
}

/// Chooses what runs the part of a band that it has.
void choose_kernels(const PoolPlan &plan, Band &band) {
  set_passed(plan, band);
  Band plain = band;
  plain.edges = nullptr;
  band.fold = plan.square_words(plain, band.part);
  band.run = nullptr;
  if (plan.square == nullptr) return;
  if (band.passed == band.part.count) {
    band.run = plan.square(plain, band.part);
  } else if (band.edges != nullptr) {
    band.run = plan.square(band, band.part);
  }
}

/// Stores one window that was folded to `folded`.
void store_one(const PoolPlan &plan, int32_t counted, const Window &column, int32_t folded, uint8_t *to) {
  if (!plan.averages) return store_clamped(to, requantised_maximum(plan.terms, folded), plan.out);
  const OutputStage stage = stage_of_divisor(plan, divisor_at(plan, column, counted));
  store_clamped(to, requantised_sum(stage, folded), plan.out);
}

/// Stores the windows `begin` to `end` of a part, which do not pass through the stage. Kept: an empty window is written too, as
/// the maximum of nothing.
void store_others(const PoolPlan &plan, const Band &band, const unsigned char *words, uint32_t begin, uint32_t end,
                  uint8_t *to) {
  const uint32_t out_bytes = bytes_of(plan.out);
  for (uint32_t i = begin; i < end; ++i) {
    if (!plan.averages) {
      store_clamped(to + i * out_bytes, plan.of_nothing, plan.out);
    } else {
      store_one(plan, band.counted, plan.columns.window(band.part.first + i), plan.fold->word_at(words, i),
                to + i * out_bytes);
    }
  }
}

/// Stores the folded windows of a part of every line of a band.
void store_windows(const PoolPlan &plan, const Band &band, const Tile &tile) {
  const OutputStage &stage = band.stage;
  const Part &part = band.part;
  const uint32_t out_bytes = bytes_of(plan.out);
  uint8_t *to = band.to + part.first * out_bytes;
  if (band.passed == part.count && band.out_step == part.count * out_bytes) {
    return stage.store(stage, to, tile.windows, band.count * part.count);
  }
  const unsigned char *words = tile.windows;
  const uint32_t behind = band.passed_at + band.passed;
  for (uint32_t n = 0; n < band.count; ++n, to += band.out_step, words += part.count * plan.fold->word_bytes) {
    if (band.passed_at != 0) store_others(plan, band, words, 0, band.passed_at, to);
    if (band.passed != 0) {
      stage.store(stage, to + band.passed_at * out_bytes, words + band.passed_at * plan.fold->word_bytes, band.passed);
    }
    if (behind != part.count) store_others(plan, band, words, behind, part.count, to);
  }
}

/// The windows of a part of every line of a band, as many lines at once as the tile holds.
void run_by_tiles(const PoolPlan &plan, const Band &band, Tile &tile) {
  constexpr uint32_t kWrittenBehind = 32;
  const uint32_t at_once = std::max((kTileBytes / plan.fold->word_bytes - kWrittenBehind) / band.part.count, 1u);
  for (uint32_t n = 0; n < band.count; n += at_once) {
    const Band some = lines_of(band, n, std::min(at_once, band.count - n));
    if (plan.averages || band.passed != 0) {
      if (band.fold != nullptr) {
        Band to_tile = some;
        Part part = band.part;
        part.first = 0;
        to_tile.to = tile.windows;
        to_tile.out_step = part.count * plan.fold->word_bytes;
        band.fold(to_tile, part, tile);
      } else {
        plan.fold->fold_band(some, band.part, tile);
      }
    }
    store_windows(plan, some, tile);
  }
}

void run_part(const PoolPlan &plan, const Band &band, Tile &tile) {
  if (band.run != nullptr) return band.run(band, band.part, tile);
  run_by_tiles(plan, band, tile);
}

/// Where windows do not lie in regular steps: each by itself.
void run_irregular_line(const PoolPlan &plan, const Band &line) {
  for (uint32_t i = 0; i < line.columns; ++i) {
    const Window column = plan.columns.window(i);
    const auto offset = static_cast<ptrdiff_t>(column.begin) * static_cast<ptrdiff_t>(plan.fold->element_bytes);
    const int32_t folded =
        plan.fold->fold_one_window(line.from + offset, line.line_step, line.lines, column.end - column.begin);
    store_one(plan, line.counted, column, folded, line.to + i * bytes_of(plan.out));
  }
}

/// Kept: lines and columns in ascending order, so that of output lines that overlap the later one wins.
void run_line_by_line(const PoolPlan &plan, const Band &band, Tile &tile) {
  for (uint32_t n = 0; n < band.count; ++n) {
    Band line = lines_of(band, n, 1);
    if (!plan.regular) {
      line.lines -= line.cut_front + line.cut_behind;
      run_irregular_line(plan, line);
      continue;
    }
    for (uint32_t first = 0; first < band.columns; first += plan.most_of_part) {
      plan.fold->clear(tile);
      line.part = part_from(plan, first, band.columns);
      choose_kernels(plan, line);
      run_part(plan, line, tile);
    }
  }
}

/// False if there is a divisor that is no division.
bool set_divisors(const PoolPlan &plan, int32_t counted, uint32_t first_column, BlockDivisors &divisors) {
  for (uint32_t i = 0; i < 8; ++i) {
    const int32_t divisor = divisor_at(plan, plan.columns.window(first_column + i), counted);
    if (divisor < 2) return false;
    const Reciprocal<int32_t> reciprocal = reciprocal_of(static_cast<uint32_t>(divisor));
    divisors.half[i] = divisor / 2;
    divisors.multiplier[i] = reciprocal.multiplier;
    divisors.shift[i] = reciprocal.shift;
  }
  return true;
}

/// Where the windows with divisors of their own lie in the first and in the last eight of a line, those have a divisor each.
void set_edges(const PoolPlan &plan, Band &band, Edges &edges) {
  const uint32_t columns = band.columns;
  if (!plan.averages || plan.square == nullptr || !band.stage.divides || columns <= 8 || columns > plan.most_of_part)
    return;
  if (plan.first_passed > 1 || columns - std::min(plan.end_passed, columns) > 8) return;
  if (set_divisors(plan, band.counted, 0, edges.first) && set_divisors(plan, band.counted, columns - 8, edges.last)) {
    band.edges = &edges;
  }
}

/// What follows for a band from the columns.
void set_columns(const PoolPlan &plan, Band &band, Edges &edges) {
  if (!plan.regular || band.columns > plan.most_of_part) return;
  band.part = part_from(plan, 0, band.columns);
  set_edges(plan, band, edges);
  choose_kernels(plan, band);
}

void run_on_plane(const PoolPlan &plan, Band &band, const uint8_t *from, uint8_t *to, Tile &tile) {
  band.from = from + band.from_offset;
  band.to = to + band.to_offset;
  if (band.part.count != 0) return run_part(plan, band, tile);
  run_line_by_line(plan, band, tile);
}

}  // namespace

void pool_lines(const PoolPlan &plan, uint32_t first, uint32_t end) {
  const _NN_POOL_PARM &block = plan.block;
  Tile tile;
  plan.fold->clear(tile);
  constexpr uint32_t kPlanned = 3;
  Band bands[kPlanned];  // the others are planned for each plane anew
  Edges edges[kPlanned];
  uint32_t planned = 0;
  uint32_t line = first;
  for (; line < end && planned < kPlanned; ++planned) {
    bands[planned] = band_from(plan, line, end);
    set_columns(plan, bands[planned], edges[planned]);
    line += bands[planned].count;
  }
  for (uint32_t b = 0; b < block.batch; ++b) {
    const uint8_t *from = pointer<const uint8_t>(block.in_addr) + b * size_t{block.in_batch_ofs};
    uint8_t *to = pointer(block.out_addr) + b * size_t{block.out_batch_ofs};
    for (uint32_t c = 0; c < block.channel; ++c, from += block.in_channel_ofs, to += block.out_channel_ofs) {
      for (uint32_t i = 0; i < planned; ++i) run_on_plane(plan, bands[i], from, to, tile);
      for (uint32_t next = line; next < end;) {
        Band band = band_from(plan, next, end);
        Edges own;
        set_columns(plan, band, own);
        run_on_plane(plan, band, from, to, tile);
        next += band.count;
      }
    }
  }
}

}  // namespace tarvu
