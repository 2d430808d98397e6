// Resamples an image at the positions of a grid: bilinear, in integers.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "frame/tarvu_util.h"
#include "simd/bilinear.h"

namespace tarvu {
namespace {

constexpr uint32_t kBlock = 8;  // points of a block, and channels of a group

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
  size_t in_row;
  size_t in_pixel;
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

/// Positions of eight points: the pixel to the upper left of each, and how far they lie behind it.
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

/// The corners of points whose offsets in the image fit 32 bits and which have a row and a column behind them.
class NearCorners {
 public:
  NearCorners(const Walk &walk, const Positions &positions)
      : offsets_(sum_of_products(positions.y, static_cast<uint32_t>(walk.in_row), positions.x,
                                 static_cast<uint32_t>(walk.in_pixel))),
        right_(static_cast<ptrdiff_t>(walk.in_pixel)),
        down_(static_cast<ptrdiff_t>(walk.in_row)) {}

  Corners of(const uint8_t *image, int point) const { return {image + offsets_[point], right_, down_}; }

 private:
  EightWords offsets_;
  ptrdiff_t right_;
  ptrdiff_t down_;
};

/// The corners of any point.
/// Kept: positions count in 16 bits, so that the neighbour of the last pixel that they reach is the first one.
Corners corners_of(const Walk &walk, const uint8_t *image, uint16_t x, uint16_t y) {
  const auto next = [](uint16_t position) { return ptrdiff_t{static_cast<uint16_t>(position + 1)}; };
  const auto pixel = static_cast<ptrdiff_t>(walk.in_pixel);
  const auto row = static_cast<ptrdiff_t>(walk.in_row);
  return {image + y * row + x * pixel, (next(x) - x) * pixel, (next(y) - y) * row};
}

class FarCorners {
 public:
  FarCorners(const Walk &walk, const Positions &positions) : walk_(walk), positions_(positions) {}

  Corners of(const uint8_t *image, int point) const {
    return corners_of(walk_, image, positions_.x[point], positions_.y[point]);
  }

 private:
  const Walk &walk_;
  const Positions &positions_;
};

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
    const auto pairs = load<u16x8>(grid);  // x in the low byte
    const u16x8 x = (pairs & 0xFF) * last_column_;
    const u16x8 y = (pairs >> 8) * last_row_;
    return {to_whole_.as_unsigned(x), to_whole_.as_unsigned(y), x & fraction_mask_, y & fraction_mask_};
  }

  /// Between two neighbours of a row. `Bytes` are eight bytes, or eight bytes widened already.
  template <class Bytes>
  u16x8 across(Bytes left, Bytes right, u16x8 x_fraction) const {
    return sum(to_whole_.as_signed(difference(right, left) * x_fraction), left);
  }

  /// Between two rows.
  /// Kept: anchored on the lower row, which alone is not scaled to the output.
  u16x8 down(u16x8 upper, u16x8 lower, u16x8 y_fraction) const {
    return lower + scaling_.as_signed((upper - lower) * y_fraction);
  }

 private:
  uint16_t last_column_;
  uint16_t last_row_;
  uint16_t fraction_mask_;
  LaneShift to_whole_;
  LaneShift scaling_;
};

/// Eight bytes at each corner of one point.
template <class Byte>
u16x8 blend_bytes(const BlendInBlock &blend, Corners corners, uint16_t x_fraction, uint16_t y_fraction) {
  using Bytes = EightBytes<Byte>;
  const uint8_t *top = corners.top_left;
  const uint8_t *bottom = top + corners.down;
  const u16x8 x = fill<u16x8>(x_fraction);
  const u16x8 upper = blend.across(load<Bytes>(top), load<Bytes>(top + corners.right), x);
  const u16x8 lower = blend.across(load<Bytes>(bottom), load<Bytes>(bottom + corners.right), x);
  return blend.down(upper, lower, fill<u16x8>(y_fraction));
}

/// Eight points of one channel, the four neighbours of each side by side in the two rows.
template <class Byte>
u8x8 blend_points(const BlendInBlock &blend, const NearCorners &corners, const Positions &positions,
                  const uint8_t *image) {
  u16x8 top{};
  u16x8 bottom{};
  for (int k = 0; k < static_cast<int>(kBlock); ++k) {
    const Corners own = corners.of(image, k);
    top[k] = load<uint16_t>(own.top_left);
    bottom[k] = load<uint16_t>(own.top_left + own.down);
  }
  const auto across = [&](u16x8 pairs) {
    return blend.across(widened_low_bytes<Byte>(pairs), widened_high_bytes<Byte>(pairs), positions.x_fraction);
  };
  return low_bytes(blend.down(across(top), across(bottom), positions.y_fraction));
}

/// A block of `points` (1 to 8) points, all channels.
/// Kept: eight bytes at a corner are stored as eight channels also where they are columns of one, and all eight of the
/// last group are stored if there are eight channels at all.
template <class Byte, class AnyCorners>
void sample_block(const Walk &walk, const BlendInBlock &blend, const Positions &positions, const AnyCorners &corners,
                  const uint8_t *image, uint8_t *out, uint32_t points) {
  const uint32_t stored = std::min(walk.channels, kBlock);
  for (uint32_t c = 0; c < walk.channels; c += kBlock) {
    u16x8 samples[kBlock] = {};
    const auto sample = [&](int k) {
      samples[k] = blend_bytes<Byte>(blend, corners.of(image, k), positions.x_fraction[k], positions.y_fraction[k]);
    };
    if (points == kBlock) {
      for (int k = 0; k < static_cast<int>(kBlock); ++k) sample(k);
    } else {
      for (int k = 0; k < static_cast<int>(points); ++k) sample(k);
    }
    u64x2 rows[kBlock / 2];
    transpose_low_bytes(samples, rows);
    if (points == kBlock && stored == kBlock) {
      for (uint32_t l = 0; l < kBlock; ++l) store(out + l * walk.out_channel, uint64_t{rows[l / 2][l % 2]});
    } else {
      for (uint32_t l = 0; l < stored; ++l) {
        const uint64_t row = rows[l / 2][l % 2];
        std::memcpy(out + l * walk.out_channel, &row, points);
      }
    }
    image += kBlock * walk.in_channel;
    out += kBlock * walk.out_channel;
  }
}

/// One element behind the blocks: 32-bit products, rows cut to 16 bits.
/// Kept apart from the block form: with 8 grid fraction bits, a = -128, b = 127 and fx = 255 the upper row is 126 here and
/// -130 in a block; a scaling of -1 shifts left by 31 here and by 1 in a block.
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
  Corners corners = corners_of(walk, image, whole(x), whole(y));
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
  return furthest(walk.last_row) * walk.in_row + furthest(walk.last_column) * walk.in_pixel <= UINT32_MAX;
}

template <class Byte>
void sample(const Walk &walk, const Formats &formats) {
  const BlendInBlock blend(walk, formats);
  const bool near = all_corners_are_near(walk, formats);
  const bool one_plane = near && walk.channels == 1 && walk.in_pixel == 1;
  const uint32_t points = std::min(walk.columns, kBlock);
  const uint32_t limit = walk.columns + 1 - points;
  for (uint32_t b = 0; b < walk.batches; ++b) {
    const uint8_t *image = walk.in + b * walk.in_batch;
    for (uint32_t r = 0; r < walk.rows; ++r) {
      const uint8_t *grid = walk.grid + b * walk.grid_batch + r * walk.grid_row;
      uint8_t *out = walk.out + b * walk.out_batch + r * walk.out_row;
      uint32_t i = 0;
      for (; i < limit; i += points) {
        const Positions positions = blend.positions(grid + 2 * i);
        if (one_plane && points == kBlock) {
          store(out + i, blend_points<Byte>(blend, NearCorners(walk, positions), positions, image));
        } else if (near) {
          sample_block<Byte>(walk, blend, positions, NearCorners(walk, positions), image, out + i, points);
        } else {
          sample_block<Byte>(walk, blend, positions, FarCorners(walk, positions), image, out + i, points);
        }
      }
      if (!walk.has_tail) continue;  // Kept: the last columns of an interleaved output stay as they were.
      for (; i < walk.columns; ++i) sample_in_tail<Byte>(walk, formats, grid + 2 * i, image, out + i);
    }
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
  walk.in_pixel = size_t{walk.batches} * walk.channels;
  walk.in_row = parm.in_shape[2] * walk.in_pixel;
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
  walk.in_pixel = 1;
  walk.in_row = parm.in_shape[0];
  walk.in_channel = parm.in_shape[1] * walk.in_row;
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
