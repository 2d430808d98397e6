/// \file pool_local.h
/// The walk of a window over all planes, shared by all local operations.
#ifndef TARVU_POOL_POOL_LOCAL_H
#define TARVU_POOL_POOL_LOCAL_H

#include "pool/pool_geometry.h"
#include "pool/pool_operations.h"

namespace tarvu {

/// Columns of the input folded down the lines of a window, over a tile of one output line. Position 0 is the first
/// word of the tile's first window; padding holds the fold of nothing. With it come a second tile of the same kind and room for a
/// line.
template <class Fold>
class LineTile {
 public:
  using Word = typename Fold::Word;
  static constexpr uint32_t kWords = 3 * kTileWords<Word>;

  /// Moves the tile to another part of the line; stays if it is there.
  void move_to(uint32_t position) {
    if (position == position_) return;
    position_ = position;
    std::fill(words_, words_ + kWords, Fold::kIdentity);
  }

  Word *words() { return words_; }

 private:
  static constexpr uint32_t kNowhere = 0xFFFFFFFF;
  uint32_t position_ = kNowhere;
  alignas(16) Word words_[kWords];
};

/// The parts of a line of output: as many windows as a tile holds.
class Parts {
 public:
  /// Of `columns` output columns.
  Parts(const Axis &axis, uint32_t columns, uint32_t tile_words)
      : kernel_(static_cast<uint32_t>(axis.kernel)),
        stride_(static_cast<uint32_t>(axis.stride)),
        pad_(static_cast<uint32_t>(axis.pad_near)),
        end_of_input_(pad_ + static_cast<uint32_t>(axis.extent)),
        columns_(columns),
        most_((tile_words - kReadBehind - kernel_) / std::max(stride_, 1u) + 1) {
    whole_ = part(0);
  }

  /// The one part of lines that are.
  const Part &whole() const { return whole_; }
  uint32_t columns() const { return columns_; }
  uint32_t most() const { return most_; }
  uint32_t position_of(uint32_t first) const { return first * stride_; }

  Part part(uint32_t first) const {
    const uint32_t count = std::min(most_, columns_ - first);
    const uint32_t position = position_of(first);
    const uint32_t begin = std::max(position, pad_);
    const uint32_t end = std::max(begin, std::min(position + (count - 1) * stride_ + kernel_, end_of_input_));
    return {kernel_, stride_, first, count, begin - pad_, begin - position, end - begin};
  }

 private:
  static constexpr uint32_t kReadBehind = 64;  // whole blocks are folded and written

  uint32_t kernel_;
  uint32_t stride_;
  uint32_t pad_;
  uint32_t end_of_input_;
  uint32_t columns_;
  uint32_t most_;
  Part whole_;
};

/// Each window by itself, for windows that do not lie in regular steps: `both` folds elements as words.
template <class Element>
[[gnu::noinline]] int32_t fold_one_window(const Band &line, const Window &column, int32_t of_nothing,
                                          int32_t (*both)(int32_t, int32_t)) {
  int32_t folded = of_nothing;
  for (uint32_t l = 0; l < line.lines; ++l) {
    const uint8_t *elements = line.from + l * line.line_step;
    for (int32_t x = column.begin; x < column.end; ++x) {
      folded = both(folded, load<Element>(elements + x * static_cast<ptrdiff_t>(sizeof(Element))));
    }
  }
  return folded;
}

/// Runs the lines of a band by `operation`, in tiles or window by window. Kept: lines and columns in ascending order, so that of
/// output lines that overlap the later one wins.
template <class Operation>
[[gnu::noinline]] void run_in_pieces(const Band &band, const Parts &parts, const Axis *irregular, const Operation &operation,
                                     LineTile<typename Operation::Fold> &tile) {
  using Element = typename Operation::Fold::Element;
  for (uint32_t n = 0; n < band.count; ++n) {
    const Band line = line_of(band, n);
    if (irregular != nullptr) {
      for (uint32_t i = 0; i < parts.columns(); ++i) {
        const Window column = irregular->window(static_cast<int32_t>(i));
        operation.put(line.to + i * sizeof(typename Operation::Out),
                      fold_one_window<Element>(line, column, Operation::kOfNothing, Operation::both), column);
      }
      continue;
    }
    for (uint32_t first = 0; first < parts.columns(); first += parts.most()) {
      tile.move_to(parts.position_of(first));
      operation.run(line, parts.part(first), tile.words());
    }
  }
}

inline uint32_t count_of(const Axis &axis, int32_t extra_limit) {
  return static_cast<uint32_t>(axis.regular()) + (axis.has_extra_below(extra_limit) ? 1 : 0);
}

/// Output lines from line `first` that make a band, and the lines that their windows lack: those whose windows lie in the plane
/// and that the operation holds alike. Where borders are blended in (a line of nothing is long enough for the input's lines), a
/// window of three lines may lack the first one in front and the last one behind.
struct Lines {
  uint32_t count;
  uint32_t cut_front;
  uint32_t cut_behind;
};
template <class Operation>
Lines lines_from(const Axis &axis, uint32_t first, uint32_t line_count, bool blended, uint32_t in_line_ofs,
                 const Operation &operation) {
  const auto window = [&](uint32_t i) { return axis.window(static_cast<int32_t>(i)); };
  const Window start = window(first);
  const int32_t lacking = axis.kernel - (start.end - start.begin);
  const auto whole = static_cast<uint32_t>(axis.whole);
  Lines lines = {1, 0, 0};
  if (lacking != 0) {
    if (!blended || lacking != 1 || axis.kernel != 3) return lines;
    if (first != 0 || axis.pad_near != 1) return {1, 0, first != 0 ? 1u : 0u};
    lines.cut_front = 1;
  }
  // Kept: the second line starts at a 32-bit product, so a band from the first line on must not be led past 4 GiB.
  const int64_t to_second_line = int64_t{axis.stride - axis.pad_near} * in_line_ofs;
  if (first == 0 && (to_second_line < 0 || to_second_line > int64_t{UINT32_MAX})) return lines;
  if (first + 1 < whole && operation.alike(start, window(first + 1))) lines.count = whole - first;
  const uint32_t next = first + lines.count;
  if (!blended || axis.kernel != 3 || next < whole || next >= line_count) return lines;
  const Window end = window(next);
  if (end.end - end.begin == 2 && end.place == Place::kInner && operation.alike(start, end)) {
    ++lines.count;
    lines.cut_behind = 1;
  }
  return lines;
}

/// A band of any plane: what does not depend on where the plane lies.
struct PlannedBand {
  Band band;           ///< but for its addresses
  size_t from_offset;  ///< bytes from the start of the input plane
  size_t to_offset;    ///< bytes from the start of the output plane
  uint32_t next;       ///< output line behind the band
  Window window;       ///< of the first line
  const Parts *parts;
};

template <class Operation>
void pool_windows(const _NN_POOL_PARM &parm, const Axis &columns, const Axis &lines, Operation operation) {
  using Tile = LineTile<typename Operation::Fold>;
  Tile tile;
  const uint32_t line_count = count_of(lines, operation.extra_line_limit());
  // Without steps across the lines a window may be taller than the kernel, and too tall for the words of a tile.
  const Axis *irregular = columns.is_regular() && lines.stride > 0 ? nullptr : &columns;
  const Parts parts(columns, count_of(columns, operation.extra_column_limit(Place::kInner)), kTileWords<typename Tile::Word>);
  const Parts extra_parts(columns, count_of(columns, operation.extra_column_limit(Place::kExtra)), kTileWords<typename Tile::Word>);
  const bool blended = columns.extent * static_cast<int32_t>(sizeof(typename Operation::Fold::Element)) <= int32_t{kNothingBytes};
  const bool one_part = irregular == nullptr && parts.columns() <= parts.most();

  const auto plan = [&](uint32_t first) -> PlannedBand {
    const auto index = static_cast<int32_t>(first);
    const Window window = lines.window(index);
    const Lines alike = lines_from(lines, first, line_count, blended, parm.in_line_ofs, operation);
    const auto of_first = static_cast<uint32_t>(std::max(window.end - window.begin, 0));
    const Band band = {nullptr,
                       parm.in_line_ofs,
                       parm.stride_h * size_t{parm.in_line_ofs},
                       of_first + alike.cut_front + (alike.count == 1 ? alike.cut_behind : 0),
                       alike.cut_front,
                       alike.cut_behind,
                       nullptr,
                       parm.out_line_ofs,
                       alike.count};
    return {band, first_line_offset(lines, index, parm.in_line_ofs), first * size_t{parm.out_line_ofs}, first + alike.count,
            window, window.place == Place::kExtra ? &extra_parts : &parts};
  };
  constexpr uint32_t kPlanned = 4;
  PlannedBand planned[kPlanned];  // the others are planned for each plane anew
  uint32_t planned_count = 0;
  for (uint32_t first = 0; first < line_count && planned_count < kPlanned; ++planned_count) {
    planned[planned_count] = plan(first);
    first = planned[planned_count].next;
  }

  const auto run = [&](const PlannedBand &next, const uint8_t *plane, uint8_t *to) {
    Band band = next.band;
    band.from = plane + next.from_offset;
    band.to = to + next.to_offset;
    operation.start_lines(next.window);
    if (one_part) {
      tile.move_to(0);
      operation.run(band, next.parts->whole(), tile.words());
    } else {
      run_in_pieces(band, *next.parts, irregular, operation, tile);
    }
    return next.next;
  };
  for (uint32_t b = 0; b < parm.batch; ++b) {
    const uint8_t *plane = pointer<const uint8_t>(parm.in_addr) + b * size_t{parm.in_batch_ofs};
    uint8_t *to = pointer(parm.out_addr) + b * size_t{parm.out_batch_ofs};
    for (uint32_t c = 0; c < parm.channel; ++c, plane += parm.in_channel_ofs, to += parm.out_channel_ofs) {
      uint32_t first = 0;
      for (uint32_t i = 0; i < planned_count; ++i) first = run(planned[i], plane, to);
      while (first < line_count) first = run(plan(first), plane, to);
    }
  }
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_LOCAL_H
