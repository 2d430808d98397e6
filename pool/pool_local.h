/// \file pool_local.h
/// The walk of a window over all planes, shared by all local operations.
#ifndef TARVU_POOL_POOL_LOCAL_H
#define TARVU_POOL_POOL_LOCAL_H

#include "pool/pool_geometry.h"
#include "pool/pool_operations.h"

namespace tarvu {

/// Columns of the input folded down the lines of a window, over a tile of one output line. Position 0 is the first padding
/// column of the tile's first window; padding holds the fold of nothing.
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

  Word *at(uint32_t position) { return words_ + position; }

 private:
  static constexpr uint32_t kNowhere = 0xFFFFFFFF;
  static constexpr uint32_t kWordsBehind = 16;  // a fold of windows may read behind the last one
  uint32_t position_ = kNowhere;
  alignas(16) Word words_[kWords + kWordsBehind];
};

/// What one line of output windows reads and writes.
struct LineOfWindows {
  const uint8_t *from;  ///< column 0 of the first line of the windows
  size_t line_bytes;
  uint32_t lines;  ///< 0 if the windows are empty
  uint8_t *to;
  uint32_t columns;
};

template <class Operation>
void walk_in_tiles(const LineOfWindows &line, const Axis &axis, Operation &operation,
                   LineTile<typename Operation::Fold> &tile) {
  using Fold = typename Operation::Fold;
  constexpr uint32_t kWords = LineTile<Fold>::kWords;
  const auto stride = static_cast<uint32_t>(axis.stride);
  const auto kernel = static_cast<uint32_t>(axis.kernel);
  const auto pad = static_cast<uint32_t>(axis.pad_near);
  const uint32_t end_of_input = pad + static_cast<uint32_t>(axis.extent);
  const uint32_t most = (kWords - kernel) / stride + 1;
  for (uint32_t first = 0; first < line.columns; first += most) {
    const uint32_t count = std::min(most, line.columns - first);
    const uint32_t position = first * stride;
    const uint32_t begin = std::max(position, pad);
    const uint32_t end = std::min(position + (count - 1) * stride + kernel, end_of_input);
    tile.move_to(position);
    if (begin < end) {
      typename Fold::Word *words = tile.at(begin - position);
      if (line.lines != 0) {
        const uint8_t *from = line.from + (begin - pad) * sizeof(typename Fold::Element);
        fold_lines<Fold>(from, line.line_bytes, line.lines, end - begin, words);
      } else {
        std::fill(words, words + (end - begin), Fold::kIdentity);
      }
    }
    operation.finish({tile.at(0), first, count, line.to + first * sizeof(typename Operation::Out)});
  }
}

/// Each window by itself, for windows that do not lie in regular steps.
template <class Operation>
void walk_one_by_one(const LineOfWindows &line, const Axis &axis, Operation &operation) {
  using Element = typename Operation::Fold::Element;
  for (uint32_t i = 0; i < line.columns; ++i) {
    const Window column = axis.window(static_cast<int32_t>(i));
    int32_t reduced = Operation::kOfNothing;
    for (uint32_t l = 0; l < line.lines; ++l) {
      const uint8_t *elements = line.from + l * line.line_bytes;
      for (int32_t x = column.begin; x < column.end; ++x) {
        reduced = Operation::both(reduced, load<Element>(elements + x * static_cast<ptrdiff_t>(sizeof(Element))));
      }
    }
    operation.put(line.to + i * sizeof(typename Operation::Out), reduced, column);
  }
}

/// Kept: lines and columns in ascending order, so that of output lines that overlap the later one wins.
template <class Operation>
void pool_windows(const _NN_POOL_PARM &parm, const OutputTerms &terms) {
  const Axis columns = columns_of(parm);
  const Axis lines = lines_of(parm);
  Operation operation(columns, lines, terms);
  LineTile<typename Operation::Fold> tile;
  const auto count = [](const Axis &axis, int32_t extra_limit) {
    return static_cast<uint32_t>(axis.regular()) + (axis.has_extra_below(extra_limit) ? 1 : 0);
  };
  const uint32_t line_count = count(lines, operation.extra_line_limit());
  // Without steps across the lines a window may be taller than the kernel, and too tall for the words of a tile.
  const bool in_tiles = columns.is_regular() && lines.stride > 0;
  for (uint32_t b = 0; b < parm.batch; ++b) {
    for (uint32_t c = 0; c < parm.channel; ++c) {
      const uint8_t *plane = pointer<const uint8_t>(parm.in_addr) + b * size_t{parm.in_batch_ofs} + c * size_t{parm.in_channel_ofs};
      uint8_t *to = pointer(parm.out_addr) + b * size_t{parm.out_batch_ofs} + c * size_t{parm.out_channel_ofs};
      for (uint32_t j = 0; j < line_count; ++j, to += parm.out_line_ofs) {
        const Window window = lines.window(static_cast<int32_t>(j));
        const LineOfWindows line = {plane + first_line_offset(lines, static_cast<int32_t>(j), parm.in_line_ofs), parm.in_line_ofs,
                                    static_cast<uint32_t>(std::max(window.end - window.begin, 0)), to,
                                    count(columns, operation.extra_column_limit(window.place))};
        operation.start_line(window);
        if (in_tiles) {
          walk_in_tiles(line, columns, operation, tile);
        } else {
          walk_one_by_one(line, columns, operation);
        }
      }
    }
  }
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_LOCAL_H
