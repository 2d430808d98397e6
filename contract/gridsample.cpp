// Grid sample: an image at the positions of a grid.
#include <algorithm>

#include "contract/contents.h"

namespace contract {
namespace {

#include "contract/gridsample_ids.inc"

constexpr uint32_t kBlock = 8;

/// Steps of the tensors may be longer than 64 bits hold.
int64_t step_of(Wide bytes) { return static_cast<int64_t>(std::min(bytes, Wide{INT64_MAX})); }

bool is_interleaved(const _NN_GRIDSAMPLE_PARM &block) {
  return block.in_shape[1] == block.out_shape[3] && block.in_shape[0] == block.out_shape[2] &&
         block.out_shape[1] == block.grid_shape[3] && block.out_shape[3] == block.grid_shape[2] &&
         block.out_shape[0] == block.grid_shape[1];
}

bool is_planar(const _NN_GRIDSAMPLE_PARM &block) {
  return block.in_shape[3] == block.out_shape[3] && block.in_shape[3] == block.grid_shape[3] &&
         block.in_shape[2] == block.out_shape[2] && block.out_shape[1] == block.grid_shape[2] &&
         block.out_shape[0] == block.grid_shape[1] && block.grid_shape[0] == 2;
}

/// One axis of the image.
struct ImageAxis {
  uint32_t extent;
  int64_t step;  ///< bytes from a pixel to the next
};

/// The call in numbers, steps in bytes.
struct Walk {
  bool interleaved;
  uint32_t batches;
  uint32_t channels;
  uint32_t rows;
  uint32_t columns;
  uint32_t in_blocks;  ///< columns of whole blocks, or of the one that is shorter
  uint32_t in_tail;    ///< columns behind them that are computed
  uint32_t left;       ///< columns behind them that are not
  uint32_t lanes;      ///< that a block stores
  uint32_t groups;     ///< of channels in a block
  int grid_frac_bits;
  ImageAxis x;
  ImageAxis y;
  int64_t in_channel;
  int64_t in_batch;
  int64_t out_row;
  int64_t out_channel;
  int64_t out_batch;
  int64_t out_offset;
  int64_t grid_row;
  int64_t grid_batch;
  int64_t grid_offset;
  bool has_rows;
};

void set_steps(Walk &walk, const _NN_GRIDSAMPLE_PARM &block) {
  const Wide columns = walk.columns;
  if (walk.interleaved) {
    const int64_t pixel = int64_t{walk.batches} * walk.channels;
    walk.x = {block.in_shape[2], pixel};
    walk.y = {block.in_shape[3], pixel * block.in_shape[2]};
    walk.in_channel = 1;
    walk.in_batch = walk.channels;
    const Wide group = columns * block.row_group;
    walk.out_row = step_of(group);
    walk.out_channel = step_of(group * walk.rows);
    walk.out_batch = step_of(group * walk.rows * walk.channels);
    walk.out_offset = step_of(columns * block.row_offset);
    walk.grid_batch = step_of(2 * group);
    walk.grid_row = step_of(2 * group * walk.batches);
    walk.grid_offset = step_of(2 * columns * block.row_offset);
  } else {
    walk.x = {block.in_shape[0], 1};
    walk.y = {block.in_shape[1], block.in_shape[0]};
    walk.in_channel = walk.y.step * block.in_shape[1];
    walk.in_batch = walk.in_channel * walk.channels;
    walk.out_row = walk.columns;
    walk.out_channel = walk.out_row * walk.rows;
    walk.out_batch = walk.out_channel * walk.channels;
    walk.grid_row = 2 * walk.out_row;
    walk.grid_batch = 2 * walk.out_channel;
  }
}

Walk walk_of(const _NN_GRIDSAMPLE_PARM &block) {
  Walk walk = {};
  walk.interleaved = is_interleaved(block);
  walk.batches = block.out_shape[3];
  walk.channels = block.out_shape[2];
  walk.rows = block.out_shape[1];
  walk.columns = block.out_shape[0];
  walk.in_blocks = walk.columns < kBlock ? walk.columns : walk.columns / kBlock * kBlock;
  const uint32_t behind = walk.columns - walk.in_blocks;
  walk.in_tail = walk.interleaved ? 0 : behind;
  walk.left = walk.interleaved ? behind : 0;
  walk.lanes = std::min(walk.channels, kBlock);
  walk.groups = (walk.channels + kBlock - 1) / kBlock;
  walk.grid_frac_bits = block.grid_fmt.frac_bits;
  walk.has_rows = walk.batches != 0 && walk.rows != 0;
  set_steps(walk, block);
  return walk;
}

bool has_positions(const Walk &walk) { return walk.grid_frac_bits >= 0 && walk.grid_frac_bits <= 31; }

/// Pixel of a grid value. Kept: blocks know the last pixel by its low 8 bits; the product is cut to 16 bits.
uint32_t pixel_of(const Walk &walk, const ImageAxis &axis, uint8_t value, bool in_block) {
  const uint32_t last = (axis.extent - 1) & (in_block ? 0xFF : 0xFFFF);
  return (value * last & 0xFFFF) >> walk.grid_frac_bits;
}

/// A pixel and its neighbour, which wraps in 16 bits.
struct Pair {
  uint32_t first;
  uint32_t distance;
};

Pair pair_of(uint32_t pixel) {
  const uint32_t next = (pixel + 1) & 0xFFFF;
  return next > pixel ? Pair{pixel, 1} : Pair{next, pixel - next};
}

uint32_t furthest_pixel(const Walk &walk, const ImageAxis &axis, bool in_block) {
  uint32_t furthest = 0;
  for (uint32_t value = 0; value < 256; ++value) {
    furthest = std::max(furthest, pixel_of(walk, axis, static_cast<uint8_t>(value), in_block));
  }
  return std::min(furthest + 1, 0xFFFFu);
}

/// Bytes from the input's start to behind what any grid could name.
Wide furthest_byte(const Walk &walk) {
  Wide furthest = 0;
  const auto reach = [&](bool in_block, Wide channel) {
    furthest = std::max(furthest, Wide{furthest_pixel(walk, walk.x, in_block)} * walk.x.step +
                                      Wide{furthest_pixel(walk, walk.y, in_block)} * walk.y.step + channel);
  };
  if (walk.channels == 0 || !walk.has_rows || !has_positions(walk)) return 0;
  if (walk.in_blocks != 0) reach(true, Wide{walk.groups - 1} * kBlock * walk.in_channel + kBlock);
  if (walk.in_tail != 0) reach(false, Wide{walk.channels - 1} * walk.in_channel + 1);
  return furthest + Wide{walk.batches - 1} * walk.in_batch;
}

/// Calls visit(pair, column, x, y, in_block) with the address of each grid pair that counts, and b.
template <class Visit>
void for_each_pair(const Walk &walk, uint64_t grid, Visit visit) {
  for (uint32_t b = 0; b < walk.batches; ++b) {
    for (uint32_t r = 0; r < walk.rows; ++r) {
      const uint64_t row = grid + static_cast<uint64_t>(walk.grid_offset) + b * static_cast<uint64_t>(walk.grid_batch) +
                           r * static_cast<uint64_t>(walk.grid_row);
      for (uint32_t i = 0; i < walk.in_blocks + walk.in_tail; ++i) {
        const bool in_block = i < walk.in_blocks;
        const auto x = value_at<uint8_t>(row + 2 * i);
        const auto y = value_at<uint8_t>(row + 2 * i + 1);
        visit(b, i, pixel_of(walk, walk.x, x, in_block), pixel_of(walk, walk.y, y, in_block), in_block);
      }
    }
  }
}

void add_corners(RangeSink &sink, const Walk &walk, Range in, uint32_t batch, uint32_t x, uint32_t y) {
  const Pair columns = pair_of(x);
  const Pair lines = pair_of(y);
  in.offset =
      step_of(Wide{batch} * walk.in_batch + Wide{columns.first} * walk.x.step + Wide{lines.first} * walk.y.step);
  extend(in, 2, step_of(Wide{columns.distance} * walk.x.step), TARVU_CONTRACT_AXIS_WIDTH);
  extend(in, 2, step_of(Wide{lines.distance} * walk.y.step), TARVU_CONTRACT_AXIS_HEIGHT);
  add(sink, in);
}

void add_input(RangeSink &sink, const Call &call, const _NN_GRIDSAMPLE_PARM &block, const Walk &walk) {
  const int32_t type = range_type_of(type_code_of(block.in_fmt));
  Range in = range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, type, 1);
  if (!call.reads_contents() || block.grid_addr == 0) {
    in.exact = 0;
    extend(in, static_cast<uint64_t>(step_of(furthest_byte(walk))), 1);
    return add(sink, in);
  }
  if (walk.channels == 0 || !has_positions(walk)) return;
  for_each_pair(walk, block.grid_addr, [&](uint32_t b, uint32_t, uint32_t x, uint32_t y, bool in_block) {
    Range corner = in;
    if (!in_block) {
      extend(corner, walk.channels, walk.in_channel, TARVU_CONTRACT_AXIS_CHANNEL);
      return add_corners(sink, walk, corner, b, x, y);
    }
    extend(corner, walk.lanes, 1);
    extend(corner, walk.groups, kBlock * walk.in_channel);
    add_corners(sink, walk, corner, b, x, y);
    if (walk.lanes == kBlock) return;
    corner.exact = 0;
    corner.extents[0].count = kBlock;
    add_corners(sink, walk, corner, b, x, y);
  });
}

void add_grid(RangeSink &sink, const _NN_GRIDSAMPLE_PARM &block, const Walk &walk, uint64_t pairs, bool is_exact) {
  Range grid = range_of("grid_addr", block.grid_addr, TARVU_CONTRACT_READS, TARVU_CONTRACT_U8, 1);
  grid.exact = is_exact ? 1 : 0;
  grid.offset = walk.grid_offset;
  extend(grid, 2 * pairs, 1, TARVU_CONTRACT_AXIS_WIDTH);
  extend(grid, walk.rows, walk.grid_row, TARVU_CONTRACT_AXIS_HEIGHT);
  extend(grid, walk.batches, walk.grid_batch, TARVU_CONTRACT_AXIS_BATCH);
  add(sink, grid);
}

void add_output(RangeSink &sink, const _NN_GRIDSAMPLE_PARM &block, const Walk &walk, uint32_t first, uint32_t columns,
                uint32_t channels) {
  const int32_t type = range_type_of(type_code_of(block.out_fmt));
  Range out = range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, type, 1);
  out.offset = step_of(Wide{walk.out_offset} + first);
  extend(out, columns, 1, TARVU_CONTRACT_AXIS_WIDTH);
  extend(out, walk.rows, walk.out_row, TARVU_CONTRACT_AXIS_HEIGHT);
  extend(out, channels, walk.out_channel, TARVU_CONTRACT_AXIS_CHANNEL);
  extend(out, walk.batches, walk.out_batch, TARVU_CONTRACT_AXIS_BATCH);
  add(sink, out);
}

/// Channels that blocks store: all lanes of the last group, if there are eight channels at all.
uint32_t stored_channels(const Walk &walk) { return walk.channels < kBlock ? walk.channels : walk.groups * kBlock; }

void gridsample_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_GRIDSAMPLE_PARM>(call);
  const Walk walk = walk_of(block);
  if (!walk.has_rows) return;
  add_grid(sink, block, walk, walk.in_blocks + walk.in_tail, walk.channels != 0);
  if (walk.columns < kBlock) add_grid(sink, block, walk, kBlock, false);
  add_input(sink, call, block, walk);
  add_output(sink, block, walk, 0, walk.in_blocks, stored_channels(walk));
  add_output(sink, block, walk, walk.in_blocks, walk.in_tail, walk.channels);
}

Refusal gridsample_refusal(const Call &call) {
  const auto block = block_of<_NN_GRIDSAMPLE_PARM>(call);
  const NN_AI_IO_TYPE in = type_code_of(block.in_fmt);
  if (in != NN_AI_IO_TYPE_INT8 && in != NN_AI_IO_TYPE_UINT8) {
    return {&kInputType,
            "in_fmt",
            width_of(block.in_fmt),
            {"tarvu_gridsample_process", "unsupported input type %d\r\n\033[0m", in},
            QX_ERR_UNSUPPORTED};
  }
  const NN_AI_IO_TYPE out = type_code_of(block.out_fmt);
  if (out != NN_AI_IO_TYPE_INT8 && out != NN_AI_IO_TYPE_UINT8) {
    return {&kOutputType,
            "out_fmt",
            width_of(block.out_fmt),
            {"tarvu_gridsample_out_type", "unsupported output type %d\r\n\033[0m", out},
            QX_ERR_UNSUPPORTED};
  }
  if (is_interleaved(block) || is_planar(block)) return {};
  Line line = {"tarvu_gridsample_bilinear_fix",
               "unsupported order: input %dx%dx%dx%d, output %dx%dx%dx%d, grid %dx%dx%dx%d\r\n\033[0m",
               block.in_shape[3]};
  const uint16_t *const shapes[] = {block.in_shape, block.out_shape, block.grid_shape};
  for (int i = 1; i < 12; ++i) line.more[i - 1] = shapes[i / 4][3 - i % 4];
  return {&kOrder, "in_shape", block.in_shape[0], line, QX_ERR_UNSUPPORTED};
}

/// The first position behind the last pixel of its axis.
void check_positions(FindingSink &sink, const _NN_GRIDSAMPLE_PARM &block, const Walk &walk) {
  bool has_outside = false;
  for_each_pair(walk, block.grid_addr, [&](uint32_t, uint32_t column, uint32_t x, uint32_t y, bool) {
    if (has_outside || (x < walk.x.extent && y < walk.y.extent)) return;
    has_outside = true;
    const bool is_x = x >= walk.x.extent;
    add(sink, kOutside, "grid_addr", is_x ? x : y, {column, is_x ? walk.x.extent : walk.y.extent, 0});
  });
}

void check_channels(FindingSink &sink, const Walk &walk) {
  if (walk.in_blocks == 0) return;
  const uint32_t stored = stored_channels(walk);
  if (stored > walk.channels) {
    add(sink, kPlanesBehind, "out_shape", walk.channels, {stored - walk.channels, 0, 0});
  }
  if (!walk.interleaved && walk.channels > 1) {
    add(sink, kOtherColumns, "out_shape", walk.channels, {walk.in_blocks, 0, 0});
  }
}

void check_formats(FindingSink &sink, const _NN_GRIDSAMPLE_PARM &block, const Walk &walk) {
  const int scaling = block.in_fmt.frac_bits + walk.grid_frac_bits - block.out_fmt.frac_bits;
  if (!has_positions(walk)) add(sink, kGridFormat, "grid_fmt", walk.grid_frac_bits);
  if (walk.grid_frac_bits >= 16 && walk.grid_frac_bits <= 31) add(sink, kCoarseGrid, "grid_fmt", walk.grid_frac_bits);
  if (scaling < 0) add(sink, kNegativeScaling, "out_fmt", block.out_fmt.frac_bits, {-scaling, 0, 0});
  if (block.in_fmt.frac_bits != block.out_fmt.frac_bits) {
    add(sink, kBaseUnscaled, "out_fmt", block.out_fmt.frac_bits);
  }
}

void gridsample_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_GRIDSAMPLE_PARM>(call);
  const Walk walk = walk_of(block);
  check_extent(sink, "out_shape", walk.has_rows ? 1 : 0);
  if (!walk.has_rows) return;
  if (walk.columns == 0) return add(sink, kNeverEnds, "out_shape", 0);
  if (walk.interleaved && is_planar(block)) add(sink, kBothLayouts, "in_shape", block.in_shape[0]);
  if (walk.interleaved && block.row_offset >= block.row_group) {
    add(sink, kRowOutside, "row_offset", block.row_offset, {block.row_group, 0, 0});
  }
  check_channels(sink, walk);
  if (walk.left != 0) add(sink, kColumnsLeft, "out_shape", walk.columns, {walk.left, 0, 0});
  for (const ImageAxis &axis : {walk.x, walk.y}) {
    if (axis.extent > 256) add(sink, kLowBits, "in_shape", axis.extent, {(axis.extent - 1) & 0xFF, 0, 0});
  }
  check_formats(sink, block, walk);
  const Wide bytes = Wide{walk.x.extent} * walk.y.extent * walk.batches * walk.channels;
  const Wide furthest = furthest_byte(walk);
  if (furthest > bytes)
    add(sink, kReadsBehind, "in_addr", static_cast<int64_t>(block.in_addr), {step_of(furthest - bytes), 0, 0});
  if (walk.channels == 0 || !has_positions(walk)) return;
  if (call.reads_contents() && block.grid_addr != 0) check_positions(sink, block, walk);
}

void gridsample_words(const Call &call, Text &text) {
  const auto block = block_of<_NN_GRIDSAMPLE_PARM>(call);
  if (!is_interleaved(block) && !is_planar(block)) return;
  const Walk walk = walk_of(block);
  put(text, walk.interleaved ? "  = interleaved, " : "  = planar, ");
  put_unsigned(text, walk.in_blocks);
  put(text, " columns in blocks and ");
  put_unsigned(text, walk.in_tail);
  put(text, " behind them\n");
}

}  // namespace

const Description kGridSample = {
    gridsample_refusal, gridsample_ranges, gridsample_findings, nullptr, gridsample_words, nullptr};

}  // namespace contract
