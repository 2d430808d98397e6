#include "tarvu_pool_c_reference.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

#include "processor_rules.h"
#include "tarvu_util_reference.h"

namespace reference {
namespace {

/// Takes one reduced value to the output type.
template <class Out>
struct OutputStage {
  int32_t in_value;
  int32_t out_value;
  bool shift_right;
  int32_t round;
  int32_t right;
  int32_t left;

  OutputStage(const _NN_POOL_PARM *parm, int8_t shf) {
    const auto total_shift = static_cast<int8_t>(parm->in_scale.scale_shift + shf);
    in_value = parm->in_scale.scale_value;
    out_value = parm->out_scale.scale_value;
    shift_right = shf > 0;
    round = shift_left_32(1, total_shift - 1);
    right = total_shift & 31;
    left = -total_shift & 31;
  }

  Out clamp(int32_t r) const {
    const int32_t out_min = std::numeric_limits<Out>::min();
    const int32_t out_max = std::numeric_limits<Out>::max();
    if (r < out_min) r = out_min;
    if (r > out_max) r = out_max;
    return static_cast<Out>(r);
  }

  Out of_maximum(int32_t m) const {
    const int32_t product = multiply_32(in_value, m);
    if (shift_right) return clamp(shift_right_32(add_32(round, multiply_32(product, out_value)), right));
    return clamp(multiply_32(shift_left_32(product, left), out_value));
  }

  Out of_sum(uint32_t s, int32_t d, int32_t half) const {
    const int32_t product = multiply_32(in_value, static_cast<int32_t>(s));
    if (shift_right) {
      const int32_t q = divide_32(add_32(product, half), d);
      return clamp(shift_right_32(add_32(round, multiply_32(q, out_value)), right));
    }
    const int32_t q = divide_32(add_32(shift_left_32(product, left), half), d);
    return clamp(multiply_32(q, out_value));
  }
};

/// Elements `begin` to `end` - 1 of `rows` lines; the line addressed by `line` comes first.
struct Window {
  uint64_t line;
  int32_t rows;
  int32_t begin;
  int32_t end;
};

template <class In>
int32_t element(const _NN_POOL_PARM *parm, const Window &window, int32_t row, int32_t column) {
  const uint64_t line = window.line + static_cast<uint64_t>(row) * parm->in_line_ofs;
  const int64_t column_bytes = static_cast<int64_t>(column) * static_cast<int64_t>(sizeof(In));
  return load<In>(reinterpret_cast<const void *>(line + static_cast<uint64_t>(column_bytes)));
}

template <class In>
int32_t maximum(const _NN_POOL_PARM *parm, const Window &window) {
  int32_t m = std::numeric_limits<int32_t>::min();
  for (int32_t row = 0; row < window.rows; ++row) {
    for (int32_t column = window.begin; column < window.end; ++column) {
      const int32_t x = element<In>(parm, window, row, column);
      if (x > m) m = x;
    }
  }
  return m;
}

template <class In>
uint32_t sum(const _NN_POOL_PARM *parm, const Window &window) {
  uint32_t s = 0;
  for (int32_t row = 0; row < window.rows; ++row) {
    for (int32_t column = window.begin; column < window.end; ++column) {
      s += static_cast<uint32_t>(element<In>(parm, window, row, column));
    }
  }
  return s;
}

uint64_t in_plane(const _NN_POOL_PARM *parm, uint32_t b, uint32_t c) {
  return parm->in_addr + uint64_t{b} * parm->in_batch_ofs + uint64_t{c} * parm->in_channel_ofs;
}

uint64_t out_plane(const _NN_POOL_PARM *parm, uint32_t b, uint32_t c) {
  return parm->out_addr + uint64_t{b} * parm->out_batch_ofs + uint64_t{c} * parm->out_channel_ofs;
}

template <class In, class Out>
_QX_RESULT global_pool(const _NN_POOL_PARM *parm, int8_t shf) {
  const OutputStage<Out> stage(parm, shf);
  if (parm->batch == 0 || parm->channel == 0) return QX_OK;
  for (uint32_t b = 0; b < parm->batch; ++b) {
    for (uint32_t c = 0; c < parm->channel; ++c) {
      const Window plane{in_plane(parm, b, c), parm->height, 0, parm->width};
      Out result;
      if (parm->mode == 2) {
        result = stage.of_maximum(maximum<In>(parm, plane));
      } else {
        const int32_t d = multiply_32(parm->width, parm->height);
        result = stage.of_sum(sum<In>(parm, plane), d, shift_right_32(d, 1));
      }
      store<Out>(reinterpret_cast<void *>(out_plane(parm, b, c)), result);
    }
  }
  return QX_OK;
}

enum class Kind { kFirst, kInterior, kExtra };

/// One axis of the window geometry: columns, or rows.
struct Axis {
  int32_t extent;
  int32_t kernel;
  int32_t stride;
  int32_t pad_near;
  int32_t pad_far;
  int32_t steps;
  bool extra;
  int32_t last;
  int32_t next;

  Axis(int32_t extent_in, int32_t kernel_in, int32_t stride_in, int32_t near_in, int32_t far_in, uint32_t floor_mode)
      : extent(extent_in), kernel(kernel_in), stride(stride_in), pad_near(near_in), pad_far(far_in) {
    const int32_t span = extent + pad_near + pad_far - kernel;
    steps = divide_32(span, stride);
    const int32_t rest = span - steps * stride;
    extra = floor_mode == 0 && rest != 0;
    last = (steps + 1) * stride - pad_near;
    next = steps >= 1 ? last : stride - pad_near;
  }

  int32_t padded() const { return extent + pad_near + pad_far; }

  /// Output positions 0 to count() - 1 are the first and the interior ones; an extra one follows at count().
  int32_t count() const { return 1 + std::max(steps, 0); }

  int32_t begin(Kind kind, int32_t i) const {
    if (kind == Kind::kFirst) return 0;
    return kind == Kind::kInterior ? i * stride - pad_near : next;
  }

  int32_t end(Kind kind, int32_t i) const {
    if (kind == Kind::kFirst) return std::min(extent, kernel - pad_near);
    return kind == Kind::kInterior ? std::min(extent, begin(kind, i) + kernel) : extent;
  }

  /// This axis' factor of a divisor that counts the padding.
  int32_t counted(Kind kind) const {
    if (kind == Kind::kFirst) return std::min(kernel, padded());
    return kind == Kind::kInterior ? kernel : extent + pad_far - last;
  }

  /// This axis' factor of a divisor that leaves the padding out.
  int32_t not_counted(Kind kind, int32_t i) const {
    if (kind == Kind::kFirst) return std::max(0, std::min(padded(), kernel - pad_near));
    if (kind == Kind::kExtra) return extent - last;
    const int32_t x = begin(kind, i);
    return std::min(std::min(extent, x + kernel) - x, kernel);
  }
};

enum class Operation { kMaximum, kAverage, kAverageNonCountPad };

template <class In, class Out>
struct LocalPool {
  const _NN_POOL_PARM *parm;
  Operation operation;
  OutputStage<Out> stage;
  Axis columns;
  Axis rows;

  LocalPool(const _NN_POOL_PARM *block, int8_t shf, Operation chosen)
      : parm(block),
        operation(chosen),
        stage(block, shf),
        columns(block->width, block->kernel_w, block->stride_w, block->pad_left, block->pad_right, block->floor_mode),
        rows(block->height, block->kernel_h, block->stride_h, block->pad_top, block->pad_bottom, block->floor_mode) {}

  bool extra_column_exists(Kind row_kind) const {
    const bool by_padded_extent = operation == Operation::kAverageNonCountPad && row_kind != Kind::kExtra;
    return columns.extra && columns.next < columns.extent + (by_padded_extent ? columns.pad_far : 0);
  }

  bool extra_row_exists() const {
    const bool by_padded_extent = operation == Operation::kAverageNonCountPad;
    return rows.extra && rows.next < rows.extent + (by_padded_extent ? rows.pad_far : 0);
  }

  /// Address of the first input line of an output row. That of the first interior row is a 32-bit product; the rows
  /// behind it, the extra one included, follow from there.
  uint64_t first_line(uint64_t plane, Kind kind, int32_t j) const {
    if (kind == Kind::kFirst) return plane;
    const uint32_t start = parm->in_line_ofs * static_cast<uint32_t>(rows.stride - rows.pad_near);
    return plane + start + static_cast<uint64_t>(j - 1) * static_cast<uint64_t>(rows.stride) * parm->in_line_ofs;
  }

  Out reduce(const Window &window, Kind row_kind, int32_t j, Kind column_kind, int32_t i) const {
    if (operation == Operation::kMaximum) return stage.of_maximum(maximum<In>(parm, window));
    const uint32_t s = sum<In>(parm, window);
    if (operation == Operation::kAverage) {
      const int32_t d = multiply_32(columns.counted(column_kind), rows.counted(row_kind));
      return stage.of_sum(s, d, d / 2);
    }
    const int32_t d = multiply_32(columns.not_counted(column_kind, i), rows.not_counted(row_kind, j));
    if (column_kind != Kind::kExtra) return stage.of_sum(s, d, d / 2);
    const int32_t at_least_one = std::max(d, 1);
    return stage.of_sum(s, at_least_one, shift_right_32(at_least_one, 1));
  }

  void row(uint64_t source_plane, uint64_t destination_plane, Kind kind, int32_t j) const {
    const uint64_t destination = destination_plane + static_cast<uint64_t>(j) * parm->out_line_ofs;
    const uint64_t line = first_line(source_plane, kind, j);
    const int32_t row_count = rows.end(kind, j) - rows.begin(kind, j);
    const int32_t all_columns = columns.count() + (extra_column_exists(kind) ? 1 : 0);
    for (int32_t i = 0; i < all_columns; ++i) {
      const Kind column_kind = i == 0 ? Kind::kFirst : i < columns.count() ? Kind::kInterior : Kind::kExtra;
      const Window window{line, row_count, columns.begin(column_kind, i), columns.end(column_kind, i)};
      const Out result = reduce(window, kind, j, column_kind, i);
      store<Out>(reinterpret_cast<void *>(destination + static_cast<uint64_t>(i) * sizeof(Out)), result);
    }
  }

  _QX_RESULT run() const {
    if (operation == Operation::kAverageNonCountPad) {
      const uint32_t bytes = uint32_t{parm->batch} * parm->out_batch_ofs;
      if (bytes != 0) std::memset(reinterpret_cast<void *>(parm->out_addr), 0, bytes);
    }
    if (parm->batch == 0 || parm->channel == 0) return QX_OK;
    for (uint32_t b = 0; b < parm->batch; ++b) {
      for (uint32_t c = 0; c < parm->channel; ++c) {
        const uint64_t source = in_plane(parm, b, c);
        const uint64_t destination = out_plane(parm, b, c);
        row(source, destination, Kind::kFirst, 0);
        for (int32_t j = 1; j < rows.count(); ++j) row(source, destination, Kind::kInterior, j);
        if (extra_row_exists()) row(source, destination, Kind::kExtra, rows.count());
      }
    }
    return QX_OK;
  }
};

template <class In, class Out>
_QX_RESULT pool_mode(const _NN_POOL_PARM *parm, int8_t shf) {
  switch (parm->mode) {
    case 0:
      return LocalPool<In, Out>(parm, shf, Operation::kMaximum).run();
    case 1:
      return LocalPool<In, Out>(parm, shf,
                                parm->non_count_pad == 0 ? Operation::kAverage : Operation::kAverageNonCountPad)
          .run();
    case 2:
    case 3:
      return global_pool<In, Out>(parm, shf);
    default:
      std::printf("\033[1;31mERR:%s() unsupported pooling mode %d\r\n\033[0m", "vendor_ai_pool_mode",
                  static_cast<int32_t>(parm->mode));
      return QX_ERR_UNSUPPORTED;
  }
}

template <class In, class Out>
_QX_RESULT pool_shf(const _NN_POOL_PARM *parm) {
  const int32_t width_delta = sizeof(In) == sizeof(Out) ? 0 : sizeof(In) > sizeof(Out) ? 8 : -8;
  const auto shf = static_cast<int8_t>(parm->out_scale.scale_shift + parm->post_shift + width_delta);
  return pool_mode<In, Out>(parm, shf);
}

template <class In>
_QX_RESULT pool_out_type(const _NN_POOL_PARM *parm) {
  const NN_AI_IO_TYPE type = reference::tarvu_get_fmt_type(&parm->out_fmt);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return pool_shf<In, int8_t>(parm);
    case NN_AI_IO_TYPE_UINT8:
      return pool_shf<In, uint8_t>(parm);
    case NN_AI_IO_TYPE_INT16:
      return pool_shf<In, int16_t>(parm);
    case NN_AI_IO_TYPE_UINT16:
      return pool_shf<In, uint16_t>(parm);
    default:
      std::printf("\033[1;31mERR:%s() unsupported output type %d\r\n\033[0m", "vendor_ai_pool_out_type",
                  static_cast<int>(type));
      return QX_ERR_UNSUPPORTED;
  }
}

}  // namespace

_QX_RESULT tarvu_pool_process(const _NN_POOL_PARM *parm) {
  const NN_AI_IO_TYPE type = reference::tarvu_get_fmt_type(&parm->in_fmt);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return pool_out_type<int8_t>(parm);
    case NN_AI_IO_TYPE_UINT8:
      return pool_out_type<uint8_t>(parm);
    case NN_AI_IO_TYPE_INT16:
      return pool_out_type<int16_t>(parm);
    case NN_AI_IO_TYPE_UINT16:
      return pool_out_type<uint16_t>(parm);
    default:
      std::printf("\033[1;31mERR:%s() unsupported input type %d\r\n\033[0m", "tarvu_pool_process",
                  static_cast<int>(type));
      return QX_ERR_UNSUPPORTED;
  }
}

}  // namespace reference
