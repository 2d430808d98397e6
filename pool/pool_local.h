/// \file pool_local.h
/// The walk of a window over all planes, shared by all local operations.
#ifndef TARVU_POOL_POOL_LOCAL_H
#define TARVU_POOL_POOL_LOCAL_H

#include "pool/pool_geometry.h"
#include "pool/pool_operations.h"

namespace tarvu {

/// Columns of the input folded down the lines of a window, over a tile of one output line. Position 0 is the first
/// word of the tile's first window; padding holds the fold of nothing.
template <class Fold>
class LineTile {
 public:
  using Word = typename Fold::Word;
  static constexpr uint32_t kWords = 4096 / sizeof(Word);

  /// Moves the tile to another part of the line; stays if it is there.
  void move_to(uint32_t position) {
    if (position == position_) return;
    position_ = position;
    std::fill(words_, words_ + kWords + kWordsBehind, Fold::kIdentity);
  }

  Word *words() { return words_; }

 private:
  static constexpr uint32_t kNowhere = 0xFFFFFFFF;
  static constexpr uint32_t kWordsBehind = 16;  // a fold of windows may read behind the last one
  uint32_t position_ = kNowhere;
  alignas(16) Word words_[kWords + kWordsBehind];
};

template <class Operation>
void run_in_tiles(const Band &band, uint32_t columns, const Axis &axis, const Operation &operation,
                  LineTile<typename Operation::Fold> &tile) {
  const auto stride = static_cast<uint32_t>(axis.stride);
  const auto kernel = static_cast<uint32_t>(axis.kernel);
  const auto pad = static_cast<uint32_t>(axis.pad_near);
  const uint32_t end_of_input = pad + static_cast<uint32_t>(axis.extent);
  const uint32_t most = (LineTile<typename Operation::Fold>::kWords - kernel) / stride + 1;
  for (uint32_t first = 0; first < columns; first += most) {
    const uint32_t count = std::min(most, columns - first);
    const uint32_t position = first * stride;
    const uint32_t begin = std::max(position, pad);
    const uint32_t end = std::max(begin, std::min(position + (count - 1) * stride + kernel, end_of_input));
    tile.move_to(position);
    operation.run(band, {kernel, stride, first, count, begin - pad, begin - position, end - begin}, tile.words());
  }
}

/// Each window by itself, for windows that do not lie in regular steps.
template <class Operation>
void run_one_by_one(const Band &line, uint32_t columns, const Axis &axis, const Operation &operation) {
  using Element = typename Operation::Fold::Element;
  for (uint32_t i = 0; i < columns; ++i) {
    const Window column = axis.window(static_cast<int32_t>(i));
    int32_t reduced = Operation::kOfNothing;
    for (uint32_t l = 0; l < line.lines; ++l) {
      const uint8_t *elements = line.from + l * line.line_step;
      for (int32_t x = column.begin; x < column.end; ++x) {
        reduced = Operation::both(reduced, load<Element>(elements + x * static_cast<ptrdiff_t>(sizeof(Element))));
      }
    }
    operation.put(line.to + i * sizeof(typename Operation::Out), reduced, column);
  }
}

/// Kept: lines and columns in ascending order, so that of output lines that overlap the later one wins. A band is run whole where
/// one tile holds its lines, else line by line.
template <class Operation>
void run_band(const Band &band, uint32_t columns, const Axis &axis, bool in_tiles, bool one_tile, const Operation &operation,
              LineTile<typename Operation::Fold> &tile) {
  if (one_tile) return run_in_tiles(band, columns, axis, operation, tile);
  Band line = band;
  line.count = 1;
  for (uint32_t n = band.count; n != 0; --n, line.from += band.window_step, line.to += band.out_step) {
    if (in_tiles) {
      run_in_tiles(line, columns, axis, operation, tile);
    } else {
      run_one_by_one(line, columns, axis, operation);
    }
  }
}

inline uint32_t count_of(const Axis &axis, int32_t extra_limit) {
  return static_cast<uint32_t>(axis.regular()) + (axis.has_extra_below(extra_limit) ? 1 : 0);
}

/// Output lines from line `first` whose windows are alike: only those are many that no border clips.
inline uint32_t alike_from(const Axis &lines, uint32_t first) {
  const auto end = static_cast<uint32_t>(lines.end_of_whole());
  return first > 0 && first < end ? end - first : 1;
}

template <class Operation>
void pool_windows(const _NN_POOL_PARM &parm, const OutputTerms &terms) {
  using Tile = LineTile<typename Operation::Fold>;
  const Axis columns = columns_of(parm);
  const Axis lines = lines_of(parm);
  Operation operation(columns, lines, terms);
  Tile tile;
  const uint32_t line_count = count_of(lines, operation.extra_line_limit());
  // Without steps across the lines a window may be taller than the kernel, and too tall for the words of a tile.
  const bool in_tiles = columns.is_regular() && lines.stride > 0;
  const bool one_tile = in_tiles && columns.regular() * columns.stride + columns.kernel <= static_cast<int32_t>(Tile::kWords);
  for (uint32_t b = 0; b < parm.batch; ++b) {
    for (uint32_t c = 0; c < parm.channel; ++c) {
      const uint8_t *plane = pointer<const uint8_t>(parm.in_addr) + b * size_t{parm.in_batch_ofs} + c * size_t{parm.in_channel_ofs};
      uint8_t *to = pointer(parm.out_addr) + b * size_t{parm.out_batch_ofs} + c * size_t{parm.out_channel_ofs};
      for (uint32_t j = 0; j < line_count;) {
        const Window window = lines.window(static_cast<int32_t>(j));
        const Band band = {plane + first_line_offset(lines, static_cast<int32_t>(j), parm.in_line_ofs),
                           parm.in_line_ofs,
                           parm.stride_h * size_t{parm.in_line_ofs},
                           static_cast<uint32_t>(std::max(window.end - window.begin, 0)),
                           to + j * size_t{parm.out_line_ofs},
                           parm.out_line_ofs,
                           alike_from(lines, j)};
        operation.start_lines(window);
        run_band(band, count_of(columns, operation.extra_column_limit(window.place)), columns, in_tiles, one_tile, operation,
                 tile);
        j += band.count;
      }
    }
  }
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_LOCAL_H
