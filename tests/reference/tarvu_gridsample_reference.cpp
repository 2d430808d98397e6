#include "tests/reference/tarvu_gridsample_reference.h"

#include <algorithm>
#include <cstdio>

#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

/// Wraps to 16 bits, as a signed number.
int32_t wrap_16(int32_t x) { return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(x))); }

/// Shifts of a signed 16-bit lane: 16 and more leave the sign alone, or nothing.
int32_t lane_shift_right(int32_t x, int32_t count) { return shift_right_32(x, count > 15 ? 15 : count); }
int32_t lane_shift_left(int32_t x, int32_t count) { return count > 15 ? 0 : wrap_16(shift_left_32(x, count)); }

struct Position {
  uint16_t x0, x1, fx;
  uint16_t y0, y1, fy;
};

class Walk {
 public:
  Walk(const _NN_GRIDSAMPLE_PARM *parm, bool input_is_signed, bool interleaved)
      : parm_(parm), input_is_signed_(input_is_signed), interleaved_(interleaved) {
    channels_ = interleaved ? parm->in_shape[0] : parm->in_shape[2];
    batches_ = interleaved ? parm->in_shape[1] : parm->in_shape[3];
    in_columns_ = interleaved ? parm->in_shape[2] : parm->in_shape[0];
    in_rows_ = interleaved ? parm->in_shape[3] : parm->in_shape[1];
    columns_ = parm->out_shape[0];
    rows_ = parm->out_shape[1];
    grid_frac_bits_ = parm->grid_fmt.frac_bits;
    mask_ = subtract_32(shift_left_32(1, grid_frac_bits_), 1);
    scaling_ = int32_t{parm->in_fmt.frac_bits} + grid_frac_bits_ - int32_t{parm->out_fmt.frac_bits};
  }

  void run() const {
    if (parm_->out_shape[3] == 0 || parm_->out_shape[1] == 0) return;
    const uint32_t block = std::min(columns_, 8u);
    const uint32_t limit = columns_ + 1 - block;
    for (uint32_t b = 0; b < batches_; ++b) {
      for (uint32_t r = 0; r < rows_; ++r) {
        uint32_t i = 0;
        while (i < limit) {
          for (uint32_t j = 0; j < block; ++j) block_point(b, r, i + j);
          i += block;
        }
        if (!interleaved_) {
          for (; i < columns_; ++i) single_point(b, r, i);
        }
      }
    }
  }

 private:
  const uint8_t *in(uint32_t b, uint32_t c, uint32_t y, uint32_t x) const {
    const uint64_t w = in_columns_;
    const uint64_t h = in_rows_;
    const uint64_t n = batches_;
    const uint64_t offset = interleaved_ ? y * (w * n * channels_) + x * (n * channels_) + uint64_t{b} * channels_ + c
                                         : b * (channels_ * h * w) + c * (h * w) + y * w + x;
    return reinterpret_cast<const uint8_t *>(parm_->in_addr) + offset;
  }

  uint8_t *out(uint32_t b, uint32_t c, uint32_t r, uint32_t column) const {
    const uint64_t wo = columns_;
    const uint64_t ho = rows_;
    const uint64_t g = parm_->row_group;
    const uint64_t offset = interleaved_ ? b * (channels_ * ho * wo * g) + c * (ho * wo * g) + r * (wo * g) +
                                               wo * parm_->row_offset + column
                                         : b * (channels_ * ho * wo) + c * (ho * wo) + r * wo + column;
    return reinterpret_cast<uint8_t *>(parm_->out_addr) + offset;
  }

  const uint8_t *grid(uint32_t b, uint32_t r, uint32_t column) const {
    const uint64_t wo = columns_;
    const uint64_t ho = rows_;
    const uint64_t g = parm_->row_group;
    const uint64_t n = batches_;
    const uint64_t offset = interleaved_ ? 2 * (r * (wo * g * n) + b * (wo * g) + wo * parm_->row_offset + column)
                                         : 2 * (b * (ho * wo) + r * wo + column);
    return reinterpret_cast<const uint8_t *>(parm_->grid_addr) + offset;
  }

  int32_t element(const uint8_t *address) const {
    return input_is_signed_ ? int32_t{load<int8_t>(address)} : int32_t{load<uint8_t>(address)};
  }

  /// `last_x` and `last_y`: W - 1 and H - 1 as the form takes them.
  Position position(const uint8_t *pair, uint32_t last_x, uint32_t last_y) const {
    const auto px = static_cast<uint16_t>(pair[0] * last_x);
    const auto py = static_cast<uint16_t>(pair[1] * last_y);
    Position p;
    p.x0 = static_cast<uint16_t>(shift_right_u32(px, grid_frac_bits_));
    p.fx = static_cast<uint16_t>(px & static_cast<uint32_t>(mask_));
    p.x1 = static_cast<uint16_t>(p.x0 + 1);
    p.y0 = static_cast<uint16_t>(shift_right_u32(py, grid_frac_bits_));
    p.fy = static_cast<uint16_t>(py & static_cast<uint32_t>(mask_));
    p.y1 = static_cast<uint16_t>(p.y0 + 1);
    return p;
  }

  uint8_t blend_in_block(int32_t a, int32_t b, int32_t c, int32_t d, const Position &p) const {
    const int32_t fx = wrap_16(p.fx);
    const int32_t fy = wrap_16(p.fy);
    const int32_t r0 = wrap_16(a + lane_shift_right(wrap_16(multiply_32(wrap_16(b - a), fx)), grid_frac_bits_));
    const int32_t r1 = wrap_16(c + lane_shift_right(wrap_16(multiply_32(wrap_16(d - c), fx)), grid_frac_bits_));
    int32_t q = wrap_16(multiply_32(wrap_16(r0 - r1), fy));
    q = scaling_ >= 0 ? lane_shift_right(q, scaling_) : lane_shift_left(q, -scaling_);
    return static_cast<uint8_t>(static_cast<uint32_t>(r1 + q));
  }

  uint8_t blend_single(int32_t a, int32_t b, int32_t c, int32_t d, const Position &p) const {
    const int32_t fx = p.fx;
    const int32_t fy = p.fy;
    const int32_t r0 = wrap_16(add_32(a, shift_right_32(multiply_32(b - a, fx), grid_frac_bits_)));
    const int32_t r1 = wrap_16(add_32(c, shift_right_32(multiply_32(d - c, fx), grid_frac_bits_)));
    int32_t q = multiply_32(r0 - r1, fy);
    q = scaling_ >= 0 ? shift_right_32(q, scaling_) : shift_left_32(q, scaling_);
    return static_cast<uint8_t>(static_cast<uint32_t>(add_32(r1, q)));
  }

  void block_point(uint32_t b, uint32_t r, uint32_t column) const {
    const uint32_t last_x = (in_columns_ - 1) & 0xFF;
    const uint32_t last_y = (in_rows_ - 1) & 0xFF;
    const Position p = position(grid(b, r, column), last_x, last_y);
    const uint32_t lanes = std::min(channels_, 8u);
    for (uint32_t c = 0; c < channels_; c += 8) {
      for (uint32_t lane = 0; lane < lanes; ++lane) {
        const int32_t upper_left = element(in(b, c, p.y0, p.x0) + lane);
        const int32_t upper_right = element(in(b, c, p.y0, p.x1) + lane);
        const int32_t lower_left = element(in(b, c, p.y1, p.x0) + lane);
        const int32_t lower_right = element(in(b, c, p.y1, p.x1) + lane);
        *out(b, c + lane, r, column) = blend_in_block(upper_left, upper_right, lower_left, lower_right, p);
      }
    }
  }

  void single_point(uint32_t b, uint32_t r, uint32_t column) const {
    const Position p = position(grid(b, r, column), in_columns_ - 1, in_rows_ - 1);
    for (uint32_t c = 0; c < channels_; ++c) {
      *out(b, c, r, column) = blend_single(element(in(b, c, p.y0, p.x0)), element(in(b, c, p.y0, p.x1)),
                                           element(in(b, c, p.y1, p.x0)), element(in(b, c, p.y1, p.x1)), p);
    }
  }

  const _NN_GRIDSAMPLE_PARM *parm_;
  bool input_is_signed_;
  bool interleaved_;
  uint32_t channels_, batches_, in_columns_, in_rows_, columns_, rows_;
  int32_t grid_frac_bits_, mask_, scaling_;
};

}  // namespace

_QX_RESULT tarvu_gridsample_process(const _NN_GRIDSAMPLE_PARM *parm) {
  const NN_AI_IO_TYPE in_type = reference::tarvu_get_fmt_type(&parm->in_fmt);
  if (in_type != NN_AI_IO_TYPE_INT8 && in_type != NN_AI_IO_TYPE_UINT8) {
    std::printf("\033[1;31mERR:%s() unsupported input type %d\r\n\033[0m", "tarvu_gridsample_process",
                static_cast<int>(in_type));
    return QX_ERR_UNSUPPORTED;
  }
  const NN_AI_IO_TYPE out_type = reference::tarvu_get_fmt_type(&parm->out_fmt);
  if (out_type != NN_AI_IO_TYPE_INT8 && out_type != NN_AI_IO_TYPE_UINT8) {
    std::printf("\033[1;31mERR:%s() unsupported output type %d\r\n\033[0m", "tarvu_gridsample_out_type",
                static_cast<int>(out_type));
    return QX_ERR_UNSUPPORTED;
  }
  const uint16_t *in = parm->in_shape;
  const uint16_t *out = parm->out_shape;
  const uint16_t *grid = parm->grid_shape;
  const bool interleaved =
      in[1] == out[3] && in[0] == out[2] && out[1] == grid[3] && out[3] == grid[2] && out[0] == grid[1];
  const bool planar =
      in[3] == out[3] && in[3] == grid[3] && in[2] == out[2] && out[1] == grid[2] && out[0] == grid[1] && grid[0] == 2;
  if (!interleaved && !planar) {
    std::printf(
        "\033[1;31mERR:%s() unsupported order: input %dx%dx%dx%d, output %dx%dx%dx%d, grid %dx%dx%dx%d\r\n\033[0m",
        "tarvu_gridsample_bilinear_fix", in[3], in[2], in[1], in[0], out[3], out[2], out[1], out[0], grid[3], grid[2],
        grid[1], grid[0]);
    return QX_ERR_UNSUPPORTED;
  }
  Walk(parm, in_type == NN_AI_IO_TYPE_INT8, interleaved).run();
  return QX_OK;
}

}  // namespace reference
