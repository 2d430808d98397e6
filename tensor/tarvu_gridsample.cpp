// Resamples an image at the positions of a grid: bilinear, in integers.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <type_traits>
#include <utility>

#include "frame/memory.h"
#include "frame/tarvu_util.h"
#include "simd/bilinear.h"

namespace tarvu {
namespace {

constexpr uint32_t kBlock = 8;          // points of a block, and channels of a group
constexpr uint32_t kPlacedBlocks = 16;  // whose positions are kept for all groups

/// How far the image steps, in bytes.
struct ImageSteps {
  size_t pixel;
  size_t row;
};

/// What both layouts share: where the tensors start and how far they step, in bytes.
struct Walk {
  const uint8_t *in;
  uint8_t *out;
  const uint8_t *grid;
  uint32_t batches;
  uint32_t rows;
  uint32_t columns;
  uint32_t channels;
  uint32_t last_column;  // of the input, modulo 2^16
  uint32_t last_row;     // of the input, modulo 2^16
  size_t in_batch;
  size_t in_channel;
  ImageSteps in_steps;
  size_t out_batch;
  size_t out_channel;
  size_t out_row;
  size_t grid_batch;
  size_t grid_row;
  bool has_tail;
};

/// The formats' part in the arithmetic.
struct Formats {
  int grid_frac_bits;
  int scaling;             // bits by which the vertical term is shifted right to the output
  uint16_t fraction_mask;  // of a position
};

Formats formats_of(const _NN_GRIDSAMPLE_PARM &parm) {
  const int grid = parm.grid_fmt.frac_bits;
  const auto mask = static_cast<uint16_t>(shift_left(uint32_t{1}, grid) - 1);
  return {grid, parm.in_fmt.frac_bits + grid - parm.out_fmt.frac_bits, mask};
}

/// Positions of eight points: the pixel to the upper left of each, and how far they lie behind it, as factors of the
/// terms that are shifted.
struct Positions {
  u16x8 x;
  u16x8 y;
  u16x8 x_fraction;
  u16x8 y_fraction;
};

/// Where the four neighbours of a point are.
struct Corners {
  const uint8_t *top_left;
  ptrdiff_t right;  // bytes to the neighbour
  ptrdiff_t down;   // bytes to the neighbour
};

/// The corners of any point.
/// Kept: positions count in 16 bits, so that the neighbour of the last pixel that they reach is the first one.
Corners corners_of(const ImageSteps &steps, const uint8_t *image, uint16_t x, uint16_t y) {
  const auto next = [](uint16_t position) { return ptrdiff_t{static_cast<uint16_t>(position + 1)}; };
  const auto pixel = static_cast<ptrdiff_t>(steps.pixel);
  const auto row = static_cast<ptrdiff_t>(steps.row);
  return {image + y * row + x * pixel, (next(x) - x) * pixel, (next(y) - y) * row};
}

/// The arithmetic of a block: 16-bit lanes that wrap.
class BlendInBlock {
 public:
  BlendInBlock(const Walk &walk, const Formats &formats)
      // Kept: a block knows the low 8 bits of the image's size only.
      : last_column_(static_cast<uint8_t>(walk.last_column)),
        last_row_(static_cast<uint8_t>(walk.last_row)),
        fraction_mask_(formats.fraction_mask),
        to_whole_(formats.grid_frac_bits),
        scaling_(formats.scaling) {}

  Positions positions(const uint8_t *grid) const {
    const auto [x, y] = multiply_pairs(grid, last_column_, last_row_);
    return {to_whole_.of_unsigned(x), to_whole_.of_unsigned(y), to_whole_.factor(x & fraction_mask_),
            scaling_.factor(y & fraction_mask_)};
  }

  /// Between two neighbours of a row. `Bytes` are eight bytes, or eight bytes widened already; `Fraction` is that of
  /// each lane, or one for all.
  template <class Bytes, class Fraction>
  auto across(Bytes left, Bytes right, Fraction x_fraction) const {
    return sum(to_whole_.of_product(difference(right, left) * x_fraction), left);
  }

  /// Between two rows.
  /// Kept: the lower row is the base, which a fraction of 0 leaves as it is and which is not scaled to the output.
  template <class Lanes, class Fraction>
  Lanes down(Lanes upper, Lanes lower, Fraction y_fraction) const {
    return lower + scaling_.of_product((upper - lower) * y_fraction);
  }

 private:
  uint8_t last_column_;
  uint8_t last_row_;
  uint16_t fraction_mask_;
  LaneShift to_whole_;
  LaneShift scaling_;
};

/// A blend of what `corner` gives for a distance in bytes from the upper left corner.
template <class Corner, class Fraction>
auto blend_corners(const BlendInBlock &blend, Corner corner, ptrdiff_t right, ptrdiff_t down, Fraction x_fraction,
                   Fraction y_fraction) {
  const auto upper = blend.across(corner(ptrdiff_t{0}), corner(right), x_fraction);
  const auto lower = blend.across(corner(down), corner(down + right), x_fraction);
  return blend.down(upper, lower, y_fraction);
}

/// The blocks of a row of a lone plane, whose points stand in the lanes. `row_bytes` are the image's.
template <class Byte>
void sample_plane_row(const BlendInBlock &blend, uint16_t row_bytes, const uint8_t *image, const uint8_t *grid,
                      uint8_t *out, uint32_t blocks) {
  const BlendInBlock own = blend;  // in registers, whatever the stores reach
  for (; blocks != 0; --blocks, grid += 2 * kBlock, out += kBlock) {
    const Positions positions = own.positions(grid);
    const EightSums offsets = product_and_sum(positions.y, row_bytes, positions.x);
    u16x8 top{};
    u16x8 bottom{};
    for (uint32_t k = 0; k < kBlock; ++k) {
      const uint8_t *top_left = image + offsets[k];
      top[k] = load<uint16_t>(top_left);
      bottom[k] = load<uint16_t>(top_left + row_bytes);
    }
    const u16x8 upper = own.across(lower_bytes<Byte>(top), upper_bytes<Byte>(top), positions.x_fraction);
    const u16x8 lower = own.across(lower_bytes<Byte>(bottom), upper_bytes<Byte>(bottom), positions.x_fraction);
    store(out, narrowed(own.down(upper, lower, positions.y_fraction)));
  }
}

/// Where the lanes of a group go: lane l of each point to plane l.
struct Planes {
  size_t bytes;    // of one plane
  uint32_t count;  // 1 to 8
};

/// What the positions of whole blocks come to, kept for all groups of channels: offsets in the image, which fit 32
/// bits, and the factors of Positions.
struct PlacedBlocks {
  uint32_t offsets[kPlacedBlocks * kBlock];
  u16x8 x_fractions[kPlacedBlocks];
  u16x8 y_fractions[kPlacedBlocks];

  void place(uint32_t block, const Positions &positions, ImageSteps steps) {
    store(offsets + block * kBlock, sum_of_products(positions.y, static_cast<uint32_t>(steps.row), positions.x,
                                                    static_cast<uint32_t>(steps.pixel)));
    x_fractions[block] = positions.x_fraction;
    y_fractions[block] = positions.y_fraction;
  }
};

/// A block of a group of eight channels.
template <class Byte, uint32_t... steps>
TransposedBytes blend_block(const BlendInBlock &blend, ImageSteps image_steps, const uint8_t *image,
                            const uint32_t *offsets, u16x8 x_fractions, u16x8 y_fractions,
                            std::integer_sequence<uint32_t, steps...>) {
  const auto corners_of_step = [&](uint32_t step) {
    const uint8_t *first = image + offsets[step];
    const uint8_t *second = image + offsets[(step + 4) % 8];
    return [=](ptrdiff_t distance) { return load_step<Byte>(first + distance, second + distance); };
  };
  const auto right = static_cast<ptrdiff_t>(image_steps.pixel);
  const auto down = static_cast<ptrdiff_t>(image_steps.row);
  return TransposedBytes({blend_corners(blend, corners_of_step(steps), right, down, LaneFactor<steps>{x_fractions},
                                        LaneFactor<steps>{y_fractions})...});
}

/// Placed blocks of a group of eight channels.
template <class Byte>
void sample_placed_blocks(ImageSteps steps, const BlendInBlock &shared_blend, const uint8_t *image,
                          const PlacedBlocks &placed, uint32_t blocks, uint8_t *out, Planes planes) {
  const BlendInBlock blend = shared_blend;
  for (uint32_t i = 0; i < blocks; ++i, out += kBlock) {
    const TransposedBytes lanes =
        blend_block<Byte>(blend, steps, image, placed.offsets + i * kBlock, placed.x_fractions[i],
                          placed.y_fractions[i], std::make_integer_sequence<uint32_t, TransposedBytes::kSteps>{});
    if (planes.count == kBlock) {
      for (uint32_t lane = 0; lane < kBlock; ++lane) lanes.store_row(lane, out + lane * planes.bytes);
    } else {
      uint8_t *to = out;
      for (uint32_t lane = 0; lane < kBlock && lane < planes.count; ++lane, to += planes.bytes) {
        lanes.store_row(lane, to);
      }
    }
  }
}

/// As sample_placed_blocks(), for blocks of up to eight points anywhere.
template <class Byte>
void sample_any_blocks(ImageSteps steps, const BlendInBlock &blend, const uint8_t *image, const uint8_t *grid,
                       uint8_t *out, Planes planes, uint32_t limit, uint32_t points) {
  for (uint32_t i = 0; i < limit; i += points) {
    const Positions positions = blend.positions(grid + 2 * i);
    for (uint32_t k = 0; k < points; ++k) {
      const Corners corners = corners_of(steps, image, positions.x[k], positions.y[k]);
      const auto corner = [&](ptrdiff_t distance) { return load<EightBytes<Byte>>(corners.top_left + distance); };
      const u16x8 sample = blend_corners(blend, corner, corners.right, corners.down,
                                         fill<u16x8>(positions.x_fraction[k]), fill<u16x8>(positions.y_fraction[k]));
      uint8_t *to = out + i + k;
      for (uint32_t lane = 0; lane < planes.count; ++lane, to += planes.bytes) *to = static_cast<uint8_t>(sample[lane]);
    }
  }
}

/// The blocks of a row, in groups of eight channels.
/// Kept: eight bytes at a corner are stored as eight channels also where they are columns of one, and all eight of the
/// last group are stored if there are eight channels at all.
template <class Byte>
void sample_row(const Walk &walk, const BlendInBlock &blend, bool near, const uint8_t *image, const uint8_t *grid,
                uint8_t *out) {
  const Planes planes = {walk.out_channel, std::min(walk.channels, kBlock)};
  const auto for_each_group = [&](uint8_t *to, auto sample_group) {
    const uint8_t *group = image;
    for (uint32_t c = 0; c < walk.channels; c += kBlock) {
      sample_group(group, to);
      group += kBlock * walk.in_channel;
      to += kBlock * walk.out_channel;
    }
  };
  if (!near || walk.columns < kBlock) {
    const uint32_t points = std::min(walk.columns, kBlock);
    for_each_group(out, [&](const uint8_t *group, uint8_t *to) {
      sample_any_blocks<Byte>(walk.in_steps, blend, group, grid, to, planes, walk.columns + 1 - points, points);
    });
    return;
  }
  PlacedBlocks placed;
  for (uint32_t left = walk.columns / kBlock; left != 0;) {
    const uint32_t blocks = std::min(left, kPlacedBlocks);
    for (uint32_t i = 0; i < blocks; ++i, grid += 2 * kBlock) placed.place(i, blend.positions(grid), walk.in_steps);
    for_each_group(out, [&](const uint8_t *group, uint8_t *to) {
      sample_placed_blocks<Byte>(walk.in_steps, blend, group, placed, blocks, to, planes);
    });
    left -= blocks;
    out += blocks * kBlock;
  }
}

/// One element behind the blocks: 32-bit products, rows cut to 16 bits.
/// Kept apart from the block form: with 8 grid fraction bits, a = -128, b = 127 and fx = 255 the upper row is 126 here
/// and -130 in a block; a scaling of -1 shifts left by 31 here and by 1 in a block.
template <class Byte>
uint8_t blend_in_tail(const Formats &formats, Corners corners, uint16_t x_fraction, uint16_t y_fraction) {
  const auto across = [&](const uint8_t *left) {
    const int32_t base = load<Byte>(left);
    const int32_t term = multiply(load<Byte>(left + corners.right) - base, x_fraction);
    return static_cast<int16_t>(base + shift_right(term, formats.grid_frac_bits));
  };
  const int32_t upper = across(corners.top_left);
  const int32_t lower = across(corners.top_left + corners.down);
  const int32_t term = multiply(upper - lower, y_fraction);
  const int32_t scaled = formats.scaling >= 0 ? shift_right(term, formats.scaling) : shift_left(term, formats.scaling);
  return static_cast<uint8_t>(add(lower, scaled));
}

/// One point behind the blocks, all channels.
template <class Byte>
void sample_in_tail(const Walk &walk, const Formats &formats, const uint8_t *grid, const uint8_t *image, uint8_t *out) {
  const auto x = static_cast<uint16_t>(grid[0] * walk.last_column);
  const auto y = static_cast<uint16_t>(grid[1] * walk.last_row);
  const auto whole = [&](uint32_t position) {
    return static_cast<uint16_t>(shift_right(position, formats.grid_frac_bits));
  };
  Corners corners = corners_of(walk.in_steps, image, whole(x), whole(y));
  const auto x_fraction = static_cast<uint16_t>(x & formats.fraction_mask);
  const auto y_fraction = static_cast<uint16_t>(y & formats.fraction_mask);
  for (uint32_t c = 0; c < walk.channels; ++c) {
    out[c * walk.out_channel] = blend_in_tail<Byte>(formats, corners, x_fraction, y_fraction);
    corners.top_left += walk.in_channel;
  }
}

/// Whether every position that a block can compute has a byte offset of 32 bits and neighbours behind it.
bool all_corners_are_near(const Walk &walk, const Formats &formats) {
  if (formats.grid_frac_bits < 0) return false;
  const auto furthest = [&](uint32_t last_pixel) {
    return uint64_t{255 * static_cast<uint32_t>(static_cast<uint8_t>(last_pixel))} >>
           std::min(formats.grid_frac_bits, 63);
  };
  return furthest(walk.last_row) * walk.in_steps.row + furthest(walk.last_column) * walk.in_steps.pixel <= UINT32_MAX;
}

/// The greatest position along a side that grid values reach; a block, which knows 8 bits of the size, stays below it.
uint64_t furthest_position(const Formats &formats, uint32_t last_pixel) {
  return std::min(255 * last_pixel, 65535u) >> formats.grid_frac_bits;
}

/// Whether nobody can tell in which order the points of an item are sampled: no byte that they read is one that they write, and
/// every position has a neighbour behind it.
bool points_are_free(const Walk &walk, const Formats &formats) {
  if (formats.grid_frac_bits < 1 || formats.grid_frac_bits > 15) return false;
  const uint64_t corner = (furthest_position(formats, walk.last_row) + 1) * walk.in_steps.row +
                          (furthest_position(formats, walk.last_column) + 1) * walk.in_steps.pixel + kBlock;
  const uint64_t last_item = walk.batches - 1;
  const uint64_t groups = (walk.channels + kBlock - 1) / kBlock * kBlock;
  const Memory in = memory_of(walk.in, last_item * walk.in_batch + groups * walk.in_channel + corner);
  const Memory out = memory_of(walk.out, last_item * walk.out_batch + groups * walk.out_channel);
  const Memory grid = memory_of(walk.grid, walk.batches * walk.grid_batch + 2 * kBlock);
  return lie_apart(in, out) && lie_apart(grid, out);
}

/// Points behind the blocks, eight at a time whatever their rows: a point's place in the grid and in the output.
struct TailPoints {
  uint16_t pairs[kBlock];
  size_t out[kBlock];
};

/// blend_in_tail() for eight points, whose neighbours are pairs of bytes. The grid has 1 to 15 fraction bits, so that each
/// position has a neighbour behind it.
template <class Byte>
void blend_tail_points(const Formats &formats, const uint16_t *top, const uint16_t *bottom, const uint16_t *x_fractions,
                       const uint16_t *y_fractions, uint8_t *blended) {
  const int to_whole = formats.grid_frac_bits;
  const int right = formats.scaling >= 0 ? formats.scaling & 31 : 0;
  const int left = formats.scaling >= 0 ? 0 : formats.scaling & 31;
  for (uint32_t k = 0; k < kBlock; ++k) {
    const int32_t x_fraction = x_fractions[k];
    const int32_t upper_left = static_cast<Byte>(top[k]);
    const int32_t upper_right = static_cast<Byte>(top[k] >> 8);
    const int32_t lower_left = static_cast<Byte>(bottom[k]);
    const int32_t lower_right = static_cast<Byte>(bottom[k] >> 8);
    const auto upper =
        static_cast<int16_t>(upper_left + shift_right((upper_right - upper_left) * x_fraction, to_whole));
    const auto lower =
        static_cast<int16_t>(lower_left + shift_right((lower_right - lower_left) * x_fraction, to_whole));
    const uint32_t term = static_cast<uint32_t>(upper - lower) * y_fractions[k];
    const auto scaled = static_cast<uint32_t>(shift_right(static_cast<int32_t>(term << left), right));
    blended[k] = static_cast<uint8_t>(static_cast<uint32_t>(lower) + scaled);
  }
}

/// The columns behind the blocks of all rows of an item.
template <class Byte>
void sample_tails(const Walk &walk, const Formats &formats, const uint8_t *image, const uint8_t *grid, uint8_t *out,
                  uint32_t in_tail) {
  const uint32_t first_column = walk.columns - in_tail;
  const int to_whole = formats.grid_frac_bits;
  const size_t row_bytes = walk.in_steps.row;
  uint32_t row = 0;
  uint32_t column = first_column;
  for (uint64_t left = uint64_t{walk.rows} * in_tail; left != 0;) {
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(left, kBlock));
    TailPoints points;
    for (uint32_t k = 0; k < kBlock; ++k) {
      points.pairs[k] = load<uint16_t>(grid + row * walk.grid_row + 2 * size_t{column});
      points.out[k] = row * walk.out_row + column;
      if (k + 1 >= count) continue;  // the last point fills up the block
      if (++column == walk.columns) {
        column = first_column;
        ++row;
      }
    }
    uint16_t x_fractions[kBlock];
    uint16_t y_fractions[kBlock];
    uint32_t offsets[kBlock];
    for (uint32_t k = 0; k < kBlock; ++k) {
      const auto x = static_cast<uint16_t>((points.pairs[k] & 0xFF) * walk.last_column);
      const auto y = static_cast<uint16_t>((points.pairs[k] >> 8) * walk.last_row);
      x_fractions[k] = x & formats.fraction_mask;
      y_fractions[k] = y & formats.fraction_mask;
      offsets[k] = (uint32_t{y} >> to_whole) * static_cast<uint32_t>(row_bytes) + (uint32_t{x} >> to_whole);
    }
    const uint8_t *plane = image;
    uint8_t *to = out;
    for (uint32_t c = 0; c < walk.channels; ++c, plane += walk.in_channel, to += walk.out_channel) {
      uint16_t top[kBlock];
      uint16_t bottom[kBlock];
      for (uint32_t k = 0; k < kBlock; ++k) {
        top[k] = load<uint16_t>(plane + offsets[k]);
        bottom[k] = load<uint16_t>(plane + offsets[k] + row_bytes);
      }
      uint8_t blended[kBlock];
      blend_tail_points<Byte>(formats, top, bottom, x_fractions, y_fractions, blended);
      for (uint32_t k = 0; k < count; ++k) to[points.out[k]] = blended[k];
    }
    left -= count;
    if (++column == walk.columns) {
      column = first_column;
      ++row;
    }
  }
}

/// Rows shorter than a block, one behind the other in grid and output: blocks of their points, of which the last one begins within
/// the one before.
template <class Byte>
void sample_short_rows(const Walk &walk, const BlendInBlock &blend, const uint8_t *image, const uint8_t *grid,
                       uint8_t *out) {
  const uint32_t points = walk.rows * walk.columns;
  const auto sample_points = [&](uint32_t first, uint32_t count) {
    Walk line = walk;
    line.columns = count;
    if (walk.channels == 1) {
      sample_plane_row<Byte>(blend, static_cast<uint16_t>(walk.in_steps.row), image, grid + 2 * size_t{first},
                             out + first, count / kBlock);
    } else {
      sample_row<Byte>(line, blend, true, image, grid + 2 * size_t{first}, out + first);
    }
  };
  sample_points(0, points - points % kBlock);
  if (points % kBlock != 0) sample_points(points - kBlock, kBlock);
}

template <class Byte>
void sample(const Walk &walk, const Formats &formats) {
  const BlendInBlock blend(walk, formats);
  const bool near = all_corners_are_near(walk, formats);
  const bool is_lone_plane = near && walk.columns >= kBlock && walk.channels == 1 && walk.in_steps.pixel == 1;
  const uint32_t in_tail = walk.columns < kBlock ? 0 : walk.columns % kBlock;
  const bool is_short = walk.has_tail && near && walk.columns < kBlock && walk.rows * walk.columns >= kBlock;
  const bool in_any_order =
      walk.has_tail && (is_short || in_tail != 0) && walk.batches != 0 && points_are_free(walk, formats);
  for (uint32_t b = 0; b < walk.batches; ++b) {
    const uint8_t *image = walk.in + b * walk.in_batch;
    const uint8_t *item_grid = walk.grid + b * walk.grid_batch;
    uint8_t *item_out = walk.out + b * walk.out_batch;
    if (in_any_order && is_short) {
      sample_short_rows<Byte>(walk, blend, image, item_grid, item_out);
      continue;
    }
    for (uint32_t r = 0; r < walk.rows; ++r) {
      const uint8_t *grid = item_grid + r * walk.grid_row;
      uint8_t *out = item_out + r * walk.out_row;
      if (is_lone_plane) {
        const auto row_bytes = static_cast<uint16_t>(walk.in_steps.row);
        sample_plane_row<Byte>(blend, row_bytes, image, grid, out, walk.columns / kBlock);
      } else {
        sample_row<Byte>(walk, blend, near, image, grid, out);
      }
      if (!walk.has_tail || in_any_order)
        continue;  // Kept: the last columns of an interleaved output stay as they were.
      for (uint32_t i = walk.columns - in_tail; i < walk.columns; ++i) {
        sample_in_tail<Byte>(walk, formats, grid + 2 * i, image, out + i);
      }
    }
    if (in_any_order) sample_tails<Byte>(walk, formats, image, item_grid, item_out, in_tail);
  }
}

/// Pixels of adjacent channels; rows of the output and the grid in groups, of which the call fills one each.
bool is_interleaved(const _NN_GRIDSAMPLE_PARM &parm) {
  return parm.in_shape[1] == parm.out_shape[3] && parm.in_shape[0] == parm.out_shape[2] &&
         parm.out_shape[1] == parm.grid_shape[3] && parm.out_shape[3] == parm.grid_shape[2] &&
         parm.out_shape[0] == parm.grid_shape[1];
}

/// A plane for each channel.
bool is_planar(const _NN_GRIDSAMPLE_PARM &parm) {
  return parm.in_shape[3] == parm.out_shape[3] && parm.in_shape[3] == parm.grid_shape[3] &&
         parm.in_shape[2] == parm.out_shape[2] && parm.out_shape[1] == parm.grid_shape[2] &&
         parm.out_shape[0] == parm.grid_shape[1] && parm.grid_shape[0] == 2;
}

Walk walk_of_any(const _NN_GRIDSAMPLE_PARM &parm) {
  Walk walk{};
  walk.in = pointer<const uint8_t>(parm.in_addr);
  walk.out = pointer(parm.out_addr);
  walk.grid = pointer<const uint8_t>(parm.grid_addr);
  walk.batches = parm.out_shape[3];
  walk.channels = parm.out_shape[2];
  walk.rows = parm.out_shape[1];
  walk.columns = parm.out_shape[0];
  return walk;
}

Walk walk_interleaved(const _NN_GRIDSAMPLE_PARM &parm) {
  Walk walk = walk_of_any(parm);
  walk.last_column = static_cast<uint16_t>(parm.in_shape[2] - 1);
  walk.last_row = static_cast<uint16_t>(parm.in_shape[3] - 1);
  walk.in_channel = 1;
  walk.in_batch = walk.channels;
  walk.in_steps.pixel = size_t{walk.batches} * walk.channels;
  walk.in_steps.row = parm.in_shape[2] * walk.in_steps.pixel;
  const size_t group_row = walk.columns;
  const size_t group = group_row * parm.row_group;
  walk.out += group_row * parm.row_offset;
  walk.out_row = group;
  walk.out_channel = walk.rows * group;
  walk.out_batch = walk.channels * walk.out_channel;
  walk.grid += 2 * group_row * parm.row_offset;
  walk.grid_batch = 2 * group;
  walk.grid_row = walk.batches * walk.grid_batch;
  return walk;
}

Walk walk_planar(const _NN_GRIDSAMPLE_PARM &parm) {
  Walk walk = walk_of_any(parm);
  walk.last_column = static_cast<uint16_t>(parm.in_shape[0] - 1);
  walk.last_row = static_cast<uint16_t>(parm.in_shape[1] - 1);
  walk.in_steps.pixel = 1;
  walk.in_steps.row = parm.in_shape[0];
  walk.in_channel = parm.in_shape[1] * walk.in_steps.row;
  walk.in_batch = walk.channels * walk.in_channel;
  walk.out_row = walk.columns;
  walk.out_channel = walk.rows * walk.out_row;
  walk.out_batch = walk.channels * walk.out_channel;
  walk.grid_row = 2 * walk.out_row;
  walk.grid_batch = 2 * walk.out_channel;
  walk.has_tail = true;
  return walk;
}

_QX_RESULT unsupported_order(const _NN_GRIDSAMPLE_PARM &parm) {
  const auto &in = parm.in_shape;
  const auto &out = parm.out_shape;
  const auto &grid = parm.grid_shape;
  std::printf(
      "\033[1;31mERR:%s() unsupported order: input %dx%dx%dx%d, output %dx%dx%dx%d, grid %dx%dx%dx%d\r\n\033[0m",
      "tarvu_gridsample_bilinear_fix", in[3], in[2], in[1], in[0], out[3], out[2], out[1], out[0], grid[3], grid[2],
      grid[1], grid[0]);
  return QX_ERR_UNSUPPORTED;
}

bool is_8_bit(NN_AI_IO_TYPE type) { return type == NN_AI_IO_TYPE_INT8 || type == NN_AI_IO_TYPE_UINT8; }

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_gridsample_process(const _NN_GRIDSAMPLE_PARM *parm) {
  const NN_AI_IO_TYPE in_type = tarvu_get_fmt_type(&parm->in_fmt);
  if (!tarvu::is_8_bit(in_type)) return tarvu::unsupported_input_type("tarvu_gridsample_process", in_type);
  const NN_AI_IO_TYPE out_type = tarvu_get_fmt_type(&parm->out_fmt);
  if (!tarvu::is_8_bit(out_type)) return tarvu::unsupported_output_type("tarvu_gridsample_out_type", out_type);
  const bool interleaved = tarvu::is_interleaved(*parm);
  if (!interleaved && !tarvu::is_planar(*parm)) return tarvu::unsupported_order(*parm);
  const tarvu::Walk walk = interleaved ? tarvu::walk_interleaved(*parm) : tarvu::walk_planar(*parm);
  const tarvu::Formats formats = tarvu::formats_of(*parm);
  if (in_type == NN_AI_IO_TYPE_INT8) {
    tarvu::sample<int8_t>(walk, formats);
  } else {
    tarvu::sample<uint8_t>(walk, formats);
  }
  return QX_OK;
}
