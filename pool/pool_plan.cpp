// What a block comes to for all of its planes.
#include "pool/pool_plan.h"

namespace tarvu {
namespace {

/// An extra window that starts in the padding exists where the padding does not count.
int32_t extra_limit(const PoolPlan &plan, const WindowAxis &axis) {
  return axis.extent + (plan.averages && !plan.padding_counts ? axis.pad_far : 0);
}

/// Whether the elements of the output lie apart: lines, planes and batch items behind one another.
bool lie_apart(const PoolPlan &plan) {
  const _NN_POOL_PARM &block = plan.block;
  const size_t line = size_t{plan.column_count} * bytes_of(plan.out);
  const size_t plane = (plan.line_count - 1) * size_t{block.out_line_ofs} + line;
  const size_t item = (block.channel - size_t{1}) * block.out_channel_ofs + plane;
  return (plan.line_count <= 1 || block.out_line_ofs >= line) &&
         (block.channel <= 1 || block.out_channel_ofs >= plane) && (block.batch <= 1 || block.out_batch_ofs >= item);
}

/// What depends on maxima or averages: the columns that pass, and the stages and kernels.
void plan_maxima(PoolPlan &plan, uint64_t outputs) {
  const WindowAxis &columns = plan.columns;
  plan.way = maximum_way(plan.terms, plan.in, plan.out, outputs);
  plan.maximum = maximum_stage(plan.terms, plan.way, plan.in, plan.out, plan.map);
  plan.of_nothing = requantised_maximum(plan.terms, kMaximumOfNothing);
  plan.square = square_maxima(plan.in, plan.way);
  plan.square_words = square_maximum_words(plan.in);
  // Windows end behind column 0 from the first or from the second one on, and start inside the input up to the last passed.
  plan.first_passed = columns.window(0).end > 0 ? 0 : 1;
  plan.end_passed =
      plan.regular ? static_cast<uint32_t>((columns.extent + columns.pad_near + columns.stride - 1) / columns.stride)
                   : 0;
}

void plan_averages(PoolPlan &plan) {
  const WindowAxis &columns = plan.columns;
  plan.square = square_averages(plan.sum_word, plan.in, plan.out);
  plan.square_words = square_sum_words(plan.sum_word, plan.in);
  const auto is_full = [&](uint32_t i) {
    return columns.counted(columns.window(i), plan.padding_counts) == columns.kernel;
  };
  plan.first_passed = is_full(0) ? 0 : 1;
  const auto last = static_cast<uint32_t>(columns.regular() - 1);
  plan.end_passed = static_cast<uint32_t>(last > 0 && is_full(last) ? columns.regular() : columns.whole);
}

}  // namespace

void plan_windows(PoolPlan &plan) {
  const _NN_POOL_PARM &block = plan.block;
  const WindowAxis &columns = plan.columns;
  plan.averages = block.mode == kLocalAverage;
  plan.padding_counts = block.non_count_pad == 0;
  plan.sum_word = SumWord::kUint32;
  if (bytes_of(plan.in) == 1 && static_cast<uint32_t>(block.kernel_w * block.kernel_h) <= kMostNarrowElements) {
    plan.sum_word = plan.in == NN_AI_IO_TYPE_INT8 ? SumWord::kInt16 : SumWord::kUint16;
  }
  plan.fold = plan.averages ? &sum_fold(plan.sum_word, plan.in) : &maximum_fold(plan.in);
  plan.terms = output_terms(block, plan.in, plan.out);
  // Without steps across the lines a window may be taller than the kernel, and too tall for the words of a tile.
  plan.regular = columns.kernel > 0 && columns.is_regular() && plan.lines.stride > 0;
  plan.line_count = plan.lines.count(extra_limit(plan, plan.lines));
  plan.column_count = columns.count(extra_limit(plan, columns));
  // Kept: in the extra line the extra column starts inside the input or does not exist, whatever is counted.
  plan.extra_line_columns = columns.count(columns.extent);
  plan.outputs_apart = lie_apart(plan);
  constexpr uint32_t kReadBehind = 64;  // whole blocks are folded and written
  const uint32_t room = kTileBytes / plan.fold->word_bytes - kReadBehind - static_cast<uint32_t>(columns.kernel);
  plan.most_of_part = room / std::max(static_cast<uint32_t>(columns.stride), 1u) + 1;
  if (plan.averages) {
    plan_averages(plan);
  } else {
    plan_maxima(plan, uint64_t{plan.line_count} * plan.column_count * block.channel * block.batch);
  }
}

size_t first_line_offset(const PoolPlan &plan, uint32_t line) {
  if (line == 0) return 0;
  // Kept: the first inner window starts at a product of 32 bits, so far behind the plane where the pad exceeds the stride.
  const uint32_t first_inner = plan.block.in_line_ofs * static_cast<uint32_t>(plan.lines.begin_of(1));
  return first_inner + (line - 1) * static_cast<size_t>(plan.lines.stride) * plan.block.in_line_ofs;
}

Part part_from(const PoolPlan &plan, uint32_t first, uint32_t columns) {
  const auto kernel = static_cast<uint32_t>(plan.columns.kernel);
  const auto stride = static_cast<uint32_t>(plan.columns.stride);
  const auto pad = static_cast<uint32_t>(plan.columns.pad_near);
  const uint32_t count = std::min(plan.most_of_part, columns - first);
  const uint32_t position = first * stride;
  const uint32_t begin = std::max(position, pad);
  const uint32_t end =
      std::min(position + (count - 1) * stride + kernel, pad + static_cast<uint32_t>(plan.columns.extent));
  return {kernel, stride, first, count, begin - pad, begin - position, std::max(begin, end) - begin};
}

namespace {

/// How many output lines from `first` on make a band, and the lines that their windows lack.
void set_lines(const PoolPlan &plan, uint32_t first, Band &band) {
  const WindowAxis &axis = plan.lines;
  const auto alike = [&](const Window &a, const Window &b) { return counted_lines(plan, a) == counted_lines(plan, b); };
  const bool blended = plan.square_words != nullptr && axis.kernel == 3 &&
                       static_cast<uint32_t>(plan.columns.extent) * plan.fold->element_bytes <= kNothingBytes;
  const Window start = axis.window(first);
  const int32_t lacking = axis.kernel - (start.end - start.begin);
  const auto whole = static_cast<uint32_t>(axis.whole);
  band.count = 1;
  if (lacking != 0) {
    if (!blended || lacking != 1) return;
    if (first != 0 || axis.pad_near != 1) {
      band.cut_behind = first != 0 ? 1 : 0;
      return;
    }
    band.cut_front = 1;
  }
  // Kept: the second line starts at a 32-bit product, so a band from the first line on must not be led past 4 GiB.
  const int64_t to_second_line = int64_t{axis.stride - axis.pad_near} * plan.block.in_line_ofs;
  if (first == 0 && (to_second_line < 0 || to_second_line > int64_t{UINT32_MAX})) return;
  if (first + 1 < whole && alike(start, axis.window(first + 1))) band.count = whole - first;
  const uint32_t next = first + band.count;
  if (!blended || next < whole || next >= plan.line_count) return;
  const Window end = axis.window(next);
  if (end.end - end.begin == 2 && end.place == Place::kInner && alike(start, end)) {
    ++band.count;
    band.cut_behind = 1;
  }
}

}  // namespace

Band band_from(const PoolPlan &plan, uint32_t first, uint32_t end) {
  const _NN_POOL_PARM &block = plan.block;
  const Window window = plan.lines.window(first);
  Band band = {};
  band.first = first;
  set_lines(plan, first, band);
  if (band.count > end - first) {
    band.count = end - first;
    band.cut_behind = 0;
  }
  band.line_step = block.in_line_ofs;
  band.window_step = block.stride_h * size_t{block.in_line_ofs};
  band.lines = static_cast<uint32_t>(std::max(window.end - window.begin, 0)) + band.cut_front +
               (band.count == 1 ? band.cut_behind : 0);
  band.out_step = block.out_line_ofs;
  band.from_offset = first_line_offset(plan, first);
  band.to_offset = first * size_t{block.out_line_ofs};
  band.columns = window.place == Place::kExtra ? plan.extra_line_columns : plan.column_count;
  band.counted = counted_lines(plan, window);
  band.stage = plan.averages ? stage_of_divisor(plan, multiply(plan.columns.kernel, band.counted)) : plan.maximum;
  return band;
}

}  // namespace tarvu
