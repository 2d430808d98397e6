// Pooling: windows over planes, and whole planes.
#include <algorithm>

#include "contract/formats.h"

namespace contract {
namespace {

#include "contract/pool_ids.inc"

constexpr uint32_t kLocalAverage = 1;
constexpr uint32_t kGlobalMaximum = 2;
constexpr uint32_t kGlobalAverage = 3;

bool is_global(const _NN_POOL_PARM &block) { return block.mode >= kGlobalMaximum; }
bool clears_output(const _NN_POOL_PARM &block) { return block.mode == kLocalAverage && block.non_count_pad != 0; }

/// Windows along one axis, in elements or lines.
struct Windows {
  int32_t extent;
  int32_t kernel;
  int32_t stride;
  int32_t pad;
  int32_t pad_behind;
  int32_t inner;       ///< windows behind the first one, without the extra one
  int32_t extra_from;  ///< where the extra window starts
  bool is_partial;     ///< what is left over makes an extra window, if it starts in front of a limit

  bool has_extra(int32_t limit) const { return is_partial && extra_from < limit; }
  uint32_t count(int32_t limit) const { return static_cast<uint32_t>(1 + inner + (has_extra(limit) ? 1 : 0)); }
};

Windows windows_of(int32_t extent, int32_t kernel, int32_t stride, int32_t pad, int32_t pad_behind, bool keeps_rest) {
  const int32_t span = extent + pad + pad_behind - kernel;
  const int32_t steps = stride == 0 ? 0 : span / stride;
  const int32_t inner = std::max(steps, 0);
  return {
      extent, kernel, stride, pad, pad_behind, inner, (inner + 1) * stride - pad, keeps_rest && span != steps * stride};
}

Windows columns_of(const _NN_POOL_PARM &block) {
  return windows_of(block.width, block.kernel_w, block.stride_w, block.pad_left, block.pad_right,
                    block.floor_mode == 0);
}

Windows lines_of(const _NN_POOL_PARM &block) {
  return windows_of(block.height, block.kernel_h, block.stride_h, block.pad_top, block.pad_bottom,
                    block.floor_mode == 0);
}

/// `windows` runs of `run` elements from `start` on, `stride` apart. Those behind the first window of an axis can be displaced by
/// some bytes.
struct Run {
  int32_t start;
  int32_t run;
  int32_t windows;
  int32_t stride;
  int64_t displaced;
};

/// What the windows of one axis hold: at most the first one, those in full, one cut at the far end, and the extra one.
struct Runs {
  Run runs[4];
  uint32_t count;
};

void add_run(Runs &to, const Run &run) {
  if (run.run <= 0 || run.windows <= 0) return;
  if (to.count != 0) {
    Run &last = to.runs[to.count - 1];
    const bool touches = run.start <= last.start + last.run && last.start <= run.start + run.run;
    if (touches && run.windows == 1 && last.windows == 1 && run.displaced == last.displaced) {
      const int32_t end = std::max(last.start + last.run, run.start + run.run);
      last.start = std::min(last.start, run.start);
      last.run = end - last.start;
      return;
    }
    const bool follows = last.start + run.stride == run.start && last.run == run.run;
    if (follows && run.stride > 0 && last.windows == 1 && run.displaced == last.displaced) {
      last.windows += run.windows;
      last.stride = run.stride;
      return;
    }
  }
  to.runs[to.count++] = run;
}

Runs runs_of(const Windows &windows, int64_t displaced) {
  Runs runs = {};
  const int32_t extent = windows.extent;
  const int32_t kernel = windows.kernel;
  const int32_t stride = windows.stride;
  add_run(runs, {0, std::min(extent, kernel - windows.pad), 1, 0, 0});
  if (windows.inner > 0) {
    const int32_t start = stride - windows.pad;
    if (stride <= kernel) {
      const int32_t end = std::min(extent, windows.inner * stride - windows.pad + kernel);
      add_run(runs, {start, end - start, 1, 0, displaced});
    } else {
      const int32_t room = extent + windows.pad - kernel;
      const int32_t whole = room < 0 ? 0 : std::min(room / stride, windows.inner);
      add_run(runs, {start, kernel, whole, stride, displaced});
      const int32_t cut = start + whole * stride;
      if (whole < windows.inner) add_run(runs, {cut, std::min(extent, cut + kernel) - cut, 1, 0, displaced});
    }
  }
  if (windows.has_extra(extent)) {
    add_run(runs, {windows.extra_from, extent - windows.extra_from, 1, 0, displaced});
  }
  return runs;
}

/// All elements of an axis.
Run whole_axis(const Windows &windows) { return {0, windows.extent, 1, 0, 0}; }

/// Whether the runs hold every element of an axis.
bool hold_all(const Runs &runs, const Windows &windows) {
  return runs.count == 1 && runs.runs[0].start <= 0 && runs.runs[0].windows == 1 &&
         runs.runs[0].start + runs.runs[0].run >= windows.extent;
}

/// Kept: the second line of windows starts at a product of 32 bits.
uint32_t second_line_of(const _NN_POOL_PARM &block) {
  return block.in_line_ofs * static_cast<uint32_t>(block.stride_h - block.pad_top);
}

int64_t true_second_line_of(const _NN_POOL_PARM &block) {
  return int64_t{block.in_line_ofs} * (block.stride_h - block.pad_top);
}

struct Elements {
  int32_t type;
  uint32_t bytes;
};

Elements elements_of(const _NN_FMT &fmt) {
  const NN_AI_IO_TYPE code = type_code_of(fmt);
  return {range_type_of(code), bytes_of_small(code)};
}

void add_input(RangeSink &sink, const _NN_POOL_PARM &block, const Run &columns, const Run &lines, bool is_exact) {
  const Elements in = elements_of(block.in_fmt);
  Range range = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, in.type, in.bytes);
  range.exact = is_exact ? 1 : 0;
  range.offset = int64_t{columns.start} * in.bytes + int64_t{lines.start} * block.in_line_ofs + lines.displaced;
  extend(range, static_cast<uint64_t>(columns.run), in.bytes, TARVU_CONTRACT_AXIS_WIDTH);
  if (columns.windows > 1) extend(range, static_cast<uint64_t>(columns.windows), int64_t{columns.stride} * in.bytes);
  extend(range, static_cast<uint64_t>(lines.run), block.in_line_ofs, TARVU_CONTRACT_AXIS_HEIGHT, "in_line_ofs");
  if (lines.windows > 1) extend(range, static_cast<uint64_t>(lines.windows), int64_t{lines.stride} * block.in_line_ofs);
  extend(range, block.channel, block.in_channel_ofs, TARVU_CONTRACT_AXIS_CHANNEL, "in_channel_ofs");
  extend(range, block.batch, block.in_batch_ofs, TARVU_CONTRACT_AXIS_BATCH, "in_batch_ofs");
  add(sink, range);
}

/// Elements of the output grid from line `first_line` on.
void add_output(RangeSink &sink, const _NN_POOL_PARM &block, uint32_t columns, uint32_t first_line, uint32_t lines) {
  const Elements out = elements_of(block.out_fmt);
  Range range = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, out.type, out.bytes);
  range.offset = int64_t{first_line} * block.out_line_ofs;
  extend(range, columns, out.bytes, TARVU_CONTRACT_AXIS_WIDTH);
  extend(range, lines, block.out_line_ofs, TARVU_CONTRACT_AXIS_HEIGHT, "out_line_ofs");
  extend(range, block.channel, block.out_channel_ofs, TARVU_CONTRACT_AXIS_CHANNEL, "out_channel_ofs");
  extend(range, block.batch, block.out_batch_ofs, TARVU_CONTRACT_AXIS_BATCH, "out_batch_ofs");
  add(sink, range);
}

/// Global modes load what lies between two lines, if it is less.
constexpr uint32_t kMostBetweenLines = 4096;

void global_ranges(const _NN_POOL_PARM &block, RangeSink &sink) {
  add_input(sink, block, {0, block.width, 1, 0, 0}, {0, block.height, 1, 0, 0}, true);
  // Lines less than a page apart are loaded with what lies between them, but for what lies behind the last one.
  const uint32_t line_bytes = block.width * elements_of(block.in_fmt).bytes;
  if (block.width > 0 && block.height > 1 && block.in_line_ofs > line_bytes &&
      block.in_line_ofs - line_bytes < kMostBetweenLines) {
    Range between = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, TARVU_CONTRACT_BYTES, 1);
    between.exact = 0;
    between.offset = line_bytes;
    extend(between, block.in_line_ofs - line_bytes, 1);
    extend(between, block.height - 1u, block.in_line_ofs);
    extend(between, block.channel, block.in_channel_ofs, TARVU_CONTRACT_AXIS_CHANNEL, "in_channel_ofs");
    extend(between, block.batch, block.in_batch_ofs, TARVU_CONTRACT_AXIS_BATCH, "in_batch_ofs");
    add(sink, between);
  }
  add_output(sink, block, 1, 0, 1);
}

void local_ranges(const _NN_POOL_PARM &block, RangeSink &sink) {
  const Windows columns = columns_of(block);
  const Windows lines = lines_of(block);
  const Runs column_runs = runs_of(columns, 0);
  const Runs line_runs = runs_of(lines, int64_t{second_line_of(block)} - true_second_line_of(block));
  const bool clears = clears_output(block);
  const int32_t column_limit = clears ? block.width + block.pad_right : block.width;
  for (uint32_t k = 0; k < line_runs.count; ++k) {
    for (uint32_t i = 0; i < column_runs.count; ++i) {
      add_input(sink, block, column_runs.runs[i], line_runs.runs[k], true);
    }
  }
  // Several lines or planes are loaded at a time, with the elements that no window holds.
  if (columns.extent > 0 && lines.extent > 0 && !(hold_all(column_runs, columns) && hold_all(line_runs, lines))) {
    add_input(sink, block, whole_axis(columns), whole_axis(lines), false);
  }
  const int32_t line_limit = clears ? block.height + block.pad_bottom : block.height;
  const uint32_t column_count = columns.count(column_limit);
  const uint32_t line_count = lines.count(line_limit);
  // Kept: in the extra line an extra column has to start inside the input.
  const uint32_t last_columns = lines.has_extra(line_limit) ? columns.count(block.width) : column_count;
  const uint32_t shorter = last_columns == column_count ? 0 : 1;
  add_output(sink, block, column_count, 0, line_count - shorter);
  if (shorter != 0) add_output(sink, block, last_columns, line_count - 1, 1);
  if (clears) {
    Range cleared = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, TARVU_CONTRACT_BYTES, 1);
    extend(cleared, uint32_t{block.batch} * block.out_batch_ofs, 1);
    add(sink, cleared);
  }
}

void pool_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_POOL_PARM>(call);
  if (is_global(block)) {
    global_ranges(block, sink);
  } else {
    local_ranges(block, sink);
  }
}

Refusal pool_refusal(const Call &call) {
  const auto block = block_of<_NN_POOL_PARM>(call);
  const NN_AI_IO_TYPE in = type_code_of(block.in_fmt);
  if (!is_small(in)) {
    return {&kInputType,
            "in_fmt",
            width_of(block.in_fmt),
            {"tarvu_pool_process", "unsupported input type %d\r\n\033[0m", in},
            QX_ERR_UNSUPPORTED};
  }
  const NN_AI_IO_TYPE out = type_code_of(block.out_fmt);
  if (!is_small(out)) {
    return {&kOutputType,
            "out_fmt",
            width_of(block.out_fmt),
            {"vendor_ai_pool_out_type", "unsupported output type %d\r\n\033[0m", out},
            QX_ERR_UNSUPPORTED};
  }
  if (block.mode > kGlobalAverage) {
    return {&kMode,
            "mode",
            block.mode,
            {"vendor_ai_pool_mode", "unsupported pooling mode %d\r\n\033[0m", static_cast<int32_t>(block.mode)},
            QX_ERR_UNSUPPORTED};
  }
  return {};
}

/// One axis of a local mode.
struct AxisNames {
  const char *kernel;
  const char *stride;
};

void check_axis(FindingSink &sink, const Windows &windows, const AxisNames &names) {
  const int32_t padded = windows.extent + windows.pad + windows.pad_behind;
  if (windows.kernel > padded) add(sink, kKernelOverPlane, names.kernel, windows.kernel, {padded, 0, 0});
  if (windows.kernel <= windows.pad) add(sink, kEmptyFirst, names.kernel, windows.kernel);
  if (windows.stride == 0 && windows.kernel < padded) add(sink, kNoStride, names.stride, 0);
}

void check_local(const _NN_POOL_PARM &block, FindingSink &sink) {
  const Windows columns = columns_of(block);
  const Windows lines = lines_of(block);
  const bool has_more_columns = columns.inner > 0 || columns.has_extra(block.width);
  const bool has_more_lines = lines.inner > 0 || lines.has_extra(block.height);
  if (has_more_columns && block.pad_left > block.stride_w) {
    add(sink, kPadLeft, "pad_left", block.pad_left, {block.stride_w, 0, 0});
  }
  if (has_more_lines && block.pad_top > block.stride_h) {
    add(sink, kPadTop, "pad_top", block.pad_top, {block.stride_h, 0, 0});
  } else if (has_more_lines && second_line_of(block) != true_second_line_of(block)) {
    add(sink, kSecondLine, "in_line_ofs", second_line_of(block), {true_second_line_of(block), 0, 0});
  }
  if (clears_output(block)) {
    const uint32_t bytes = uint32_t{block.batch} * block.out_batch_ofs;
    add(sink, kCleared, "non_count_pad", block.non_count_pad, {bytes, 0, 0});
    check_wrap(sink, "out_batch_ofs", bytes, Wide{block.batch} * block.out_batch_ofs);
  }
  check_axis(sink, columns, {"kernel_w", "stride_w"});
  check_axis(sink, lines, {"kernel_h", "stride_h"});
  const bool is_whole = columns.pad + columns.pad_behind + lines.pad + lines.pad_behind == 0 &&
                        block.kernel_w == block.width && block.kernel_h == block.height;
  if (is_whole && block.width != 0 && block.height != 0)
    add(sink, kGlobalWouldDo, "mode", block.mode, {block.mode + 2, 0, 0});
}

void pool_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_POOL_PARM>(call);
  check_extent(sink, "batch", block.batch);
  check_extent(sink, "channel", block.channel);
  const bool has_planes = block.batch != 0 && block.channel != 0;
  if (has_planes && block.width == 0) add(sink, kEmptyPlane, "width", 0);
  if (has_planes && block.height == 0) add(sink, kEmptyPlane, "height", 0);
  if (!is_global(block)) check_local(block, sink);
}

void pool_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_POOL_PARM>(call);
  static constexpr const char *kModes[] = {"local maximum", "local average", "global maximum", "global average"};
  if (block.mode > kGlobalAverage) return;
  put(text, "  = ");
  put(text, kModes[block.mode]);
  if (!is_global(block)) {
    const bool clears = clears_output(block);
    put(text, clears ? " without the padding, " : ", ");
    put(text, int64_t{columns_of(block).count(clears ? block.width + block.pad_right : block.width)});
    put(text, " columns and ");
    put(text, int64_t{lines_of(block).count(clears ? block.height + block.pad_bottom : block.height)});
    put(text, " lines of windows");
  }
  put(text, "\n");
}

}  // namespace

const Description kPool = {pool_refusal, pool_ranges, pool_findings, nullptr, pool_words, nullptr};

}  // namespace contract
