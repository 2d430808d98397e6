// Small planes: as many of them side by side as a vector has lanes, or a few vectors, one plane in each lane. Every column and every
// line is then a place of its own, so that windows of any stride cost the same, and the work on a place is shared by all lanes.
//
//     plane a   a0 a1 a2    plane b   b0 b1 b2         elements   a0 b0 ..  a1 b1 ..  a2 b2 ..
//               a3 a4 a5              b3 b4 b5   ->               a3 b3 ..  a4 b4 ..  a5 b5 ..
//               a6 a7 a8              b6 b7 b8                    a6 b6 ..  a7 b7 ..  a8 b8 ..
//
// Where there are fewer planes, slices of them lie side by side: the same number of output lines each, the last one moved back to
// end where the plane does.
#include "pool/pool_plan.h"
#include "simd/side_by_side.h"

namespace tarvu {
namespace {

constexpr uint32_t kMostColumns = 32;
constexpr uint32_t kMostLanes = 64;
constexpr uint32_t kElementBytes = 2560;
constexpr uint32_t kLineBytes = 1024;
constexpr uint32_t kWindowBytes = 3584;
constexpr uint32_t kReadBehind = 16;

/// All that a group of planes needs at a time; what is on its way to or from the planes lies where nothing else is needed.
struct SideBySide {
  alignas(64) unsigned char elements[kElementBytes];  ///< some lines of the planes
  unsigned char line[kLineBytes];                     ///< words: the lines of a window, folded
  unsigned char windows[kWindowBytes];                ///< words, and the output's elements that take their place
};
constexpr uint32_t kApartBytes = kElementBytes + kLineBytes - kReadBehind;

/// Windows of a line that are alike, a stride apart.
struct Run {
  uint32_t first;   ///< output column
  uint32_t count;   ///< windows
  uint32_t begin;   ///< input column
  uint32_t window;  ///< columns of a window; 0 if it is empty
};

/// How the planes of a call go side by side.
struct Layout {
  uint32_t in_bytes;  ///< of an element
  uint32_t out_bytes;
  uint32_t word_bytes;
  uint32_t width;    ///< input columns
  uint32_t columns;  ///< output columns
  uint32_t lanes;    ///< some vectors of input elements
  bool empties;      ///< some window has no column, or no line
  uint32_t run_count;
  Run runs[kMostColumns];
};

/// Planes, or slices of them, in lanes; the lanes behind the last one repeat it.
struct Group {
  const uint8_t *in[kMostLanes];
  uint8_t *out[kMostLanes];
  uint32_t active;
  size_t in_step;  ///< bytes from one to the next, or 0 where the steps differ
  size_t out_step;
};

/// Output lines that are worked on at a time, and the input lines that they need.
struct Lines {
  uint32_t first;
  uint32_t count;
  uint32_t from;
  uint32_t from_count;
};

bool is_empty(const Window &window) { return window.end <= window.begin; }

void set_runs(const PoolPlan &plan, Layout &layout) {
  layout.empties = is_empty(plan.lines.window(0)) || is_empty(plan.lines.window(plan.line_count - 1));
  const auto stride = static_cast<uint32_t>(plan.columns.stride);
  for (uint32_t i = 0; i < layout.columns; ++i) {
    const Window window = plan.columns.window(i);
    const auto columns = static_cast<uint32_t>(std::max(window.end - window.begin, 0));
    const uint32_t begin = columns == 0 ? 0 : static_cast<uint32_t>(window.begin);
    layout.empties |= columns == 0;
    Run *last = i == 0 ? nullptr : &layout.runs[layout.run_count - 1];
    if (last != nullptr && last->window == columns && (columns == 0 || begin == last->begin + last->count * stride)) {
      ++last->count;
    } else {
      layout.runs[layout.run_count++] = {i, 1, begin, columns};
    }
  }
}

/// Output lines from `first` on, at most to `end`, that there is room for; at least one.
Lines lines_at_once(const PoolPlan &plan, const Layout &layout, uint32_t first, uint32_t end) {
  const uint32_t most_from = kElementBytes / (layout.width * layout.lanes * layout.in_bytes);
  const uint32_t of_words = kWindowBytes / std::max(layout.word_bytes, layout.out_bytes);
  const uint32_t most = std::min(of_words, kApartBytes / layout.out_bytes) / (layout.columns * layout.lanes);
  Lines lines = {first, 0, 0, 0};
  for (uint32_t l = first; l < end && lines.count < most; ++l, ++lines.count) {
    const Window window = plan.lines.window(l);
    if (is_empty(window)) continue;
    const auto begin = static_cast<uint32_t>(window.begin);
    if (lines.from_count == 0) lines.from = begin;
    const uint32_t from_count = static_cast<uint32_t>(window.end) - lines.from;
    if (from_count > most_from) break;
    lines.from_count = from_count;
  }
  return lines;
}

/// Runs of elements that one vector of places has in its lanes: one run for each lane of some planes.
struct Runs {
  const uint8_t *const *from;  ///< the planes
  size_t step;                 ///< from one to the next, or 0
  size_t offset;               ///< of the run in each
  size_t count;                ///< elements
  size_t line_step;
  uint32_t line_bytes;
  uint32_t lines;
  bool dense;  ///< its lines lie back to back
};

template <class Lanes>
void bring_runs(const Runs &runs, uint32_t active, unsigned char *copy, unsigned char *to, size_t place_bytes) {
  constexpr uint32_t kInVector = kLanes<Lanes>;
  const size_t run_bytes = runs.count * sizeof(typename LaneOf<Lanes>::type);
  if (runs.dense && runs.count >= kInVector) {
    return bring_together<Lanes>(runs.from, runs.offset, runs.count, to, place_bytes);
  }
  const bool equal_steps = runs.step != 0 && active == kInVector;
  if (runs.count <= kMostOfShortRun && runs.dense && equal_steps && runs.step == run_bytes) {
    return bring_short_runs_together<Lanes>(runs.from[0] + runs.offset, runs.count, to, place_bytes);
  }
  if (runs.dense && equal_steps) {
    copy_lines(runs.from[0] + runs.offset, runs.step, copy, run_bytes, run_bytes, kInVector);
  } else {
    for (uint32_t r = 0; r < kInVector; ++r) {
      copy_lines(runs.from[r] + runs.offset, runs.line_step, copy + r * run_bytes, runs.line_bytes, runs.line_bytes,
                 runs.lines);
    }
  }
  if (runs.count <= kMostOfShortRun) return bring_short_runs_together<Lanes>(copy, runs.count, to, place_bytes);
  const uint8_t *copies[kInVector];
  for (uint32_t r = 0; r < kInVector; ++r) copies[r] = copy + r * run_bytes;
  bring_together<Lanes>(copies, 0, std::max<size_t>(runs.count, kInVector), to, place_bytes);
}

/// Brings input lines of all planes side by side.
void bring_lines(const PoolPlan &plan, const Layout &layout, const Group &group, const Lines &lines, SideBySide &tile) {
  const size_t line_step = plan.block.in_line_ofs;
  const uint32_t line_bytes = layout.width * layout.in_bytes;
  const bool dense = line_step == line_bytes || lines.from_count == 1;
  Runs runs = {group.in,  group.in_step, lines.from * line_step, layout.width * lines.from_count,
               line_step, line_bytes,    lines.from_count,       dense};
  const size_t place_bytes = layout.lanes * layout.in_bytes;
  const uint32_t in_vector = 16 / layout.in_bytes;
  for (uint32_t first = 0; first < layout.lanes; first += in_vector, runs.from += in_vector) {
    const uint32_t active = std::min(group.active - std::min(group.active, first), in_vector);
    unsigned char *const to = tile.elements + first * layout.in_bytes;
    if (layout.in_bytes == 1) {
      bring_runs<u8x16>(runs, active, tile.windows, to, place_bytes);
    } else {
      bring_runs<u16x8>(runs, active, tile.windows, to, place_bytes);
    }
  }
}

/// The way back, for `active` runs.
template <class Lanes>
void take_runs(const Runs &runs, uint8_t *const *to, uint32_t active, const unsigned char *from, size_t place_bytes,
               unsigned char *copy) {
  constexpr uint32_t kInVector = kLanes<Lanes>;
  const size_t run_bytes = runs.count * sizeof(typename LaneOf<Lanes>::type);
  if (runs.dense && runs.count >= kInVector) {
    return take_apart<Lanes>(from, place_bytes, runs.count, to, active, runs.offset);
  }
  const uint32_t lanes = place_bytes < 16 ? kInVector / 2 : kInVector;  // of 16-bit input with an 8-bit output
  if (runs.count <= kMostOfShortRun && lanes == kInVector) {
    if (runs.dense && active == kInVector && runs.step == run_bytes) {
      return take_short_runs_apart<Lanes>(from, place_bytes, runs.count, to[0] + runs.offset);
    }
    take_short_runs_apart<Lanes>(from, place_bytes, runs.count, copy);
  } else {
    uint8_t *copies[kInVector];
    for (uint32_t r = 0; r < kInVector; ++r) copies[r] = copy + r * run_bytes;
    take_apart<Lanes>(from, place_bytes, std::max<size_t>(runs.count, kInVector), copies, lanes, 0);
  }
  if (runs.dense && runs.step != 0) {
    return copy_lines(copy, run_bytes, to[0] + runs.offset, runs.step, run_bytes, active);
  }
  for (uint32_t r = 0; r < active; ++r) {
    copy_lines(copy + r * run_bytes, runs.line_bytes, to[r] + runs.offset, runs.line_step, runs.line_bytes, runs.lines);
  }
}

/// Takes the output lines of all planes apart.
void take_lines(const PoolPlan &plan, const Layout &layout, const Group &group, const Lines &lines, SideBySide &tile) {
  const size_t line_step = plan.block.out_line_ofs;
  const uint32_t line_bytes = layout.columns * layout.out_bytes;
  const bool dense = line_step == line_bytes || lines.count == 1;
  const Runs runs = {
      nullptr,     group.out_step, lines.first * line_step, layout.columns * lines.count, line_step, line_bytes,
      lines.count, dense};
  const size_t place_bytes = layout.lanes * layout.out_bytes;
  const uint32_t in_vector = 16 / layout.out_bytes;
  for (uint32_t first = 0; first < group.active; first += in_vector) {
    const uint32_t active = std::min(group.active - first, in_vector);
    const unsigned char *const from = tile.windows + first * layout.out_bytes;
    if (layout.out_bytes == 1) {
      take_runs<u8x16>(runs, group.out + first, active, from, place_bytes, tile.elements);
    } else {
      take_runs<u16x8>(runs, group.out + first, active, from, place_bytes, tile.elements);
    }
  }
}

/// Folds the windows of some lines to words.
void fold_lines_side_by_side(const PoolPlan &plan, const Layout &layout, const Lines &lines, SideBySide &tile,
                             unsigned char *words) {
  const PoolFold &fold = *plan.fold;
  const size_t line_bytes = layout.width * layout.lanes * layout.in_bytes;
  const size_t place_bytes = layout.lanes * layout.word_bytes;
  for (uint32_t l = 0; l < lines.count; ++l, words += layout.columns * place_bytes) {
    const Window window = plan.lines.window(lines.first + l);
    const bool empty = is_empty(window);
    if (!empty) {
      const uint8_t *from = tile.elements + (static_cast<uint32_t>(window.begin) - lines.from) * line_bytes;
      const auto count = static_cast<uint32_t>(window.end - window.begin);
      fold.fold_columns(from, line_bytes, count, layout.width * layout.lanes, tile.line);
    }
    for (uint32_t r = 0; r < layout.run_count; ++r) {
      const Run &run = layout.runs[r];
      const Places places = {tile.line + run.begin * place_bytes, layout.lanes, empty ? 0 : run.window,
                             static_cast<uint32_t>(plan.columns.stride), run.count};
      fold.fold_places(places, words + run.first * place_bytes);
    }
  }
}

/// The maxima of empty windows.
void store_nothing(const PoolPlan &plan, const Layout &layout, uint8_t *to, uint32_t places) {
  for (uint32_t i = 0; i < places * layout.lanes; ++i, to += layout.out_bytes)
    store_clamped(to, plan.of_nothing, plan.out);
}

void store_maxima(const PoolPlan &plan, const Layout &layout, const Lines &lines, SideBySide &tile,
                  const unsigned char *words) {
  const uint32_t places = lines.count * layout.columns;
  const size_t place_bytes = layout.lanes * layout.out_bytes;
  plan.maximum.store(plan.maximum, tile.windows, words, places * layout.lanes);
  if (!layout.empties) return;
  uint8_t *to = tile.windows;
  for (uint32_t l = 0; l < lines.count; ++l, to += layout.columns * place_bytes) {
    const Window window = plan.lines.window(lines.first + l);
    if (is_empty(window)) {
      store_nothing(plan, layout, to, layout.columns);
      continue;
    }
    for (uint32_t r = 0; r < layout.run_count; ++r) {
      const Run &run = layout.runs[r];
      if (run.window == 0) store_nothing(plan, layout, to + run.first * place_bytes, run.count);
    }
  }
}

/// Windows of one divisor that follow one another pass through their stage together.
void store_averages(const PoolPlan &plan, const Layout &layout, const Lines &lines, SideBySide &tile,
                    const unsigned char *words) {
  const size_t word_place = layout.lanes * layout.word_bytes;
  const size_t out_place = layout.lanes * layout.out_bytes;
  uint32_t first = 0;
  uint32_t place = 0;
  int32_t divisor = 0;
  const auto store_alike = [&] {
    if (place == first) return;
    const OutputStage stage = stage_of_divisor(plan, divisor);
    stage.store(stage, tile.windows + first * out_place, words + first * word_place, (place - first) * layout.lanes);
    first = place;
  };
  for (uint32_t l = 0; l < lines.count; ++l) {
    const int32_t counted = counted_lines(plan, plan.lines.window(lines.first + l));
    for (uint32_t r = 0; r < layout.run_count; ++r) {
      const Run &run = layout.runs[r];
      for (uint32_t i = 0; i < run.count; ++i, ++place) {
        const int32_t own = divisor_at(plan, plan.columns.window(run.first + i), counted);
        if (own == divisor) continue;
        store_alike();
        divisor = own;
      }
    }
  }
  store_alike();
}

/// Output lines from `first` to `end` of a group.
void run_group(const PoolPlan &plan, const Layout &layout, const Group &group, uint32_t first, uint32_t end,
               SideBySide &tile) {
  while (first < end) {
    const Lines lines = lines_at_once(plan, layout, first, end);
    // Elements take the place of their words from the front where they are narrower, from the back where they are wider.
    const uint32_t windows = lines.count * layout.columns * layout.lanes;
    const uint32_t wider = layout.out_bytes > layout.word_bytes ? layout.out_bytes - layout.word_bytes : 0;
    unsigned char *const words = tile.windows + windows * wider;
    if (lines.from_count != 0) bring_lines(plan, layout, group, lines, tile);
    fold_lines_side_by_side(plan, layout, lines, tile, words);
    if (plan.averages) {
      store_averages(plan, layout, lines, tile, words);
    } else {
      store_maxima(plan, layout, lines, tile, words);
    }
    take_lines(plan, layout, group, lines, tile);
    first += lines.count;
  }
}

/// Output lines `first` to `end` of all planes, in slices of `of_slice` lines.
void run_planes(const PoolPlan &plan, const Layout &layout, uint32_t first, uint32_t end, uint32_t of_slice,
                SideBySide &tile) {
  const _NN_POOL_PARM &block = plan.block;
  const size_t in_line = static_cast<size_t>(plan.lines.stride) * block.in_line_ofs;
  const size_t out_line = block.out_line_ofs;
  const uint32_t slices = (end - first + of_slice - 1) / of_slice;
  const bool items_continue =
      block.batch == 1 || (block.in_batch_ofs == block.channel * size_t{block.in_channel_ofs} &&
                           block.out_batch_ofs == block.channel * size_t{block.out_channel_ofs});
  Group group;
  group.in_step = group.out_step = 0;
  group.active = 0;
  const auto run = [&] {
    for (uint32_t lane = group.active; lane < layout.lanes; ++lane) {
      group.in[lane] = group.in[group.active - 1];
      group.out[lane] = group.out[group.active - 1];
    }
    run_group(plan, layout, group, first, first + of_slice, tile);
    group.active = 0;
  };
  const uint8_t *in = pointer<const uint8_t>(block.in_addr);
  uint8_t *out = pointer(block.out_addr);
  if (slices == 1 && items_continue) {
    group.in_step = block.in_channel_ofs;
    group.out_step = block.out_channel_ofs;
    const uint32_t planes = uint32_t{block.batch} * block.channel;
    for (uint32_t p = 0; p < planes; p += layout.lanes) {
      group.active = std::min(layout.lanes, planes - p);
      for (uint32_t lane = 0; lane < group.active; ++lane) {
        group.in[lane] = in + lane * group.in_step;
        group.out[lane] = out + lane * group.out_step;
      }
      in += layout.lanes * group.in_step;
      out += layout.lanes * group.out_step;
      run();
    }
    return;
  }
  for (uint32_t b = 0; b < block.batch; ++b) {
    for (uint32_t c = 0; c < block.channel; ++c) {
      const uint8_t *in_plane = in + b * size_t{block.in_batch_ofs} + c * size_t{block.in_channel_ofs};
      uint8_t *out_plane = out + b * size_t{block.out_batch_ofs} + c * size_t{block.out_channel_ofs};
      for (uint32_t s = 0; s < slices; ++s) {
        const uint32_t line = std::min(s * of_slice, end - first - of_slice);
        group.in[group.active] = in_plane + line * in_line;
        group.out[group.active] = out_plane + line * out_line;
        if (++group.active == layout.lanes) run();
      }
    }
  }
  if (group.active != 0) run();
}

/// As many lanes as keep all lines of the planes at hand, if that is more than a vector.
void set_lanes(const PoolPlan &plan, Layout &layout, uint32_t planes) {
  const uint32_t in_vector = 16 / layout.in_bytes;
  const uint32_t places = layout.width * plan.block.height;
  const uint32_t outputs = layout.columns * plan.line_count;
  layout.lanes = in_vector;
  while (layout.lanes * 2 <= kMostLanes && layout.lanes < planes) {
    const uint32_t lanes = layout.lanes * 2;
    if (std::max(places, in_vector) * lanes * layout.in_bytes > kElementBytes) return;
    if (layout.width * lanes * layout.word_bytes > kLineBytes) return;
    if (outputs * lanes * std::max(layout.word_bytes, layout.out_bytes) > kWindowBytes) return;
    if (std::max(outputs, in_vector) * lanes * layout.out_bytes > kApartBytes) return;
    layout.lanes = lanes;
  }
}

}  // namespace

/// Whether the windows of most lines are as many and of such a kind that lines by themselves are quicker.
static bool fits_squares(const PoolPlan &plan) {
  if (plan.lines.kernel != plan.columns.kernel || plan.column_count > plan.most_of_part) return false;
  const bool alike = plan.first_passed == 0 && plan.end_passed >= plan.column_count;
  const bool direct = alike && plan.square != nullptr;
  constexpr uint32_t kLeastByWords = 64;  // outputs of a plane
  if (!direct && plan.column_count * plan.line_count < kLeastByWords) return false;
  const Part part = part_from(plan, 0, plan.column_count);
  uint32_t served = 0;
  uint32_t line = 0;
  for (uint32_t n = 0; n < 3 && line < plan.line_count; ++n) {
    const Band band = band_from(plan, line, plan.line_count);
    const bool serves = direct && plan.square(band, part) != nullptr;
    if (serves || plan.square_words(band, part) != nullptr) served += band.count;
    line += band.count;
  }
  return 2 * served >= plan.line_count;
}

static bool fits_lanes(const PoolPlan &plan) {
  const _NN_POOL_PARM &block = plan.block;
  const int64_t to_second_line = int64_t{plan.lines.stride - plan.lines.pad_near} * block.in_line_ofs;
  const uint32_t lines = std::min<uint32_t>(block.kernel_h, block.height);
  return plan.regular && plan.outputs_apart && block.width != 0 && block.width <= kMostColumns &&
         plan.column_count <= kMostColumns && plan.lines.is_regular() && to_second_line <= int64_t{UINT32_MAX} &&
         plan.extra_line_columns == plan.column_count && plan.fold->word_bytes <= 2 * plan.fold->element_bytes &&
         lines * block.width * 16 <= kElementBytes && !fits_squares(plan);
}

LinesLeft pool_side_by_side(const PoolPlan &plan) {
  const LinesLeft all = {0, 0};
  if (!fits_lanes(plan)) return all;
  const uint32_t planes = uint32_t{plan.block.channel} * plan.block.batch;
  const uint32_t in_vector = 16 / plan.fold->element_bytes;
  SideBySide tile;
  Layout layout = {};
  layout.in_bytes = plan.fold->element_bytes;
  layout.out_bytes = bytes_of(plan.out);
  layout.word_bytes = plan.fold->word_bytes;
  layout.width = plan.block.width;
  layout.columns = plan.column_count;
  if (planes >= in_vector / 2) {
    set_runs(plan, layout);
    set_lanes(plan, layout, planes);
    run_planes(plan, layout, 0, plan.line_count, plan.line_count, tile);
    return {0, plan.line_count};
  }
  // Slices of the lines whose windows are whole.
  const uint32_t first = plan.lines.pad_near == 0 ? 0 : 1;
  const auto end = static_cast<uint32_t>(plan.lines.whole);
  if (end <= first || planes * (end - first) < in_vector) return all;
  const uint32_t slices = std::min(in_vector / planes, end - first);
  set_runs(plan, layout);
  layout.lanes = in_vector;
  run_planes(plan, layout, first, end, (end - first + slices - 1) / slices, tile);
  return {first, end};
}

}  // namespace tarvu
