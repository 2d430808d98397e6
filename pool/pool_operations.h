/// \file pool_operations.h
/// What happens to a window: its maximum, or its average with the padding counted or not.
///
/// An operation tells the walk over the plane which windows exist (extra_column_limit, extra_line_limit) and which lines may be run
/// in one band (alike), is told which come (start_lines), and takes bands of lines (run) or the reduction of one window (put).
#ifndef TARVU_POOL_POOL_OPERATIONS_H
#define TARVU_POOL_POOL_OPERATIONS_H

#include <type_traits>

#include "pool/pool_band.h"
#include "pool/pool_geometry.h"
#include "pool/pool_output_stage.h"

namespace tarvu {

/// Where the maximum of every word passes through the output unchanged.
template <class In, class Out>
inline bool passes_unchanged(const OutputTerms &terms) {
  const int32_t multiplier = multiply(terms.in_multiplier, terms.out_multiplier);
  // A right shift takes back what the multiplier did, and half of it below is lost. Up to 15 bits no element can wrap.
  return std::is_same_v<In, Out> && terms.right <= 15 && multiplier == shift_left(1, terms.right) &&
         terms.round >= 0 && terms.round < multiplier;
}

/// Where no product of a 16-bit word and no rounding of it can wrap: the words of both signs leave a bit for the rounding.
template <class In>
inline bool fits_halves(const OutputTerms &terms) {
  const int32_t multiplier = multiply(terms.in_multiplier, terms.out_multiplier);
  const int32_t least = std::is_signed_v<In> ? std::numeric_limits<int16_t>::min() : 0;
  const bool rounds = terms.right == 0 ? terms.round == 0 : terms.right <= 30;
  return rounds && multiplier >= least && multiplier <= std::numeric_limits<int16_t>::max() && (terms.round != 0 || terms.right == 0);
}

/// Maxima to the output, in the quickest way that the types and terms allow.
template <class In, class Out>
class MaximumOutput {
 public:
  explicit MaximumOutput(const OutputTerms &terms) : step_(terms), unchanged_(passes_unchanged<In, Out>(terms)), lanes_(terms) {
    if constexpr (kMultiplied) {
      multiplied_ = fits_halves<In>(terms);
      halves_ = halves_terms<In>(step_.multiplier, step_.right);
    }
    if constexpr (kMapped) {
      for (uint32_t byte = 0; byte < 256; ++byte) map_[byte] = static_cast<uint8_t>(element(static_cast<In>(byte)));
    }
  }

  /// Calls use(stage).
  template <class Use>
  void with_stage(Use use) const {
    if constexpr (std::is_same_v<In, Out>) {
      if (unchanged_) return use(IdentityStage<In>{});
    }
    if constexpr (kMapped) {
      use(MapStage{map_});
    } else {
      if constexpr (kMultiplied) {
        if (multiplied_) return use(HalvesStage<Out, In>{halves_});
      }
      use(StepStage<Out, MaximumStep<Words>>{lanes_});
    }
  }

  Out element(int32_t maximum) const { return clamped<Out>(step_(maximum)); }

 private:
  static constexpr bool kMapped = kMapsBytes && sizeof(In) == 1 && sizeof(Out) == 1;
  static constexpr bool kMultiplied = kMultipliesHalves && sizeof(In) == 2 && sizeof(Out) == 2;
  MaximumStep<int32_t> step_;
  bool unchanged_;
  MaximumStep<Words> lanes_;
  bool multiplied_ = false;
  HalvesTerms<std::conditional_t<kMultiplied, In, int16_t>> halves_{};
  uint8_t map_[kMapped ? 256 : 1] = {};
};

/// The maximum of no element.
constexpr int32_t kMaximumOfNothing = std::numeric_limits<int32_t>::min();

template <class In, class OutElement>
class MaximumOperation {
 public:
  using Fold = MaximumFold<In>;
  using Out = OutElement;
  static constexpr int32_t kOfNothing = kMaximumOfNothing;
  static int32_t both(int32_t a, int32_t b) { return std::max(a, b); }

  MaximumOperation(const Axis &columns, const Axis &lines, const OutputTerms &terms)
      : columns_(columns), lines_(lines), output_(terms) {
    first_filled_ = columns.window(0).end > 0 ? 0 : 1;
    // Windows start inside the input up to here.
    end_filled_ = columns.is_regular() && columns.kernel > 0
                      ? static_cast<uint32_t>(columns.extent + columns.pad_near + columns.stride - 1) /
                            static_cast<uint32_t>(columns.stride)
                      : 0;
  }

  int32_t extra_column_limit(Place) const { return columns_.extent; }
  int32_t extra_line_limit() const { return lines_.extent; }
  void start_lines(const Window &) {}
  bool alike(const Window &, const Window &) const { return true; }

  void put(uint8_t *to, int32_t maximum, const Window &) const { store(to, output_.element(maximum)); }

  /// Kept: an empty window is written too, as the maximum of nothing.
  void run(const Band &band, const Part &part, In *words) const {
    const uint32_t end = part.first + part.count;
    if (band.lines == 0 || end_filled_ == 0) {
      uint8_t *to = band.to + part.first * sizeof(Out);
      for (uint32_t n = 0; n < band.count; ++n, to += band.out_step) fill_empty(to, part.count);
      return;
    }
    const uint32_t filled = part.first < first_filled_ ? 1 : 0;
    const uint32_t end_filled = std::max(filled, std::min(end, end_filled_) - std::min(part.first, end_filled_));
    output_.with_stage([&](const auto &stage) {
      const bool all = filled == 0 && end_filled == part.count;
      if (all && run_if_square<Fold>(band, part, stage, NoEdges{}, words)) return;
      const auto fill_others = [&](uint8_t *to) {
        fill_empty(to, filled);
        fill_empty(to + end_filled * sizeof(Out), part.count - end_filled);
      };
      run_windows<Fold>(band, part, {filled, end_filled - filled}, stage, words, AfterLine(fill_others));
    });
  }

 private:
  [[gnu::noinline]] void fill_empty(uint8_t *to, uint32_t count) const {
    const Out element = output_.element(kOfNothing);
    for (uint32_t i = 0; i < count; ++i) store(to + i * sizeof(Out), element);
  }

  Axis columns_;
  Axis lines_;
  MaximumOutput<In, Out> output_;
  uint32_t first_filled_;  ///< the columns from here to end_filled_ hold elements, the others none
  uint32_t end_filled_;
};

/// What an average counts along one axis.
class Counting {
 public:
  explicit Counting(bool padding_counts) : padding_counts_(padding_counts) {}

  int32_t counted(const Axis &axis, const Window &window) const {
    const int32_t kernel = axis.kernel;
    switch (window.place) {
      case Place::kFirst:
        // Kept: without padding too it is cut at the end of the padding, so that a first window which crosses the whole line
        // counts the padding behind it.
        return padding_counts_ ? std::min(kernel, axis.padded_extent())
                               : std::max(0, std::min(axis.padded_extent(), kernel - axis.pad_near));
      case Place::kInner:
        return padding_counts_ ? kernel : std::min(window.end - window.begin, kernel);
      default:
        return axis.extent + (padding_counts_ ? axis.pad_far : 0) - axis.last;
    }
  }

  /// Kept: without padding the extra column counts one element at least.
  int32_t divisor(int32_t columns, int32_t lines, Place column) const {
    const int32_t product = multiply(columns, lines);
    return !padding_counts_ && column == Place::kExtra ? std::max(product, 1) : product;
  }

  /// An extra window that starts in the padding exists where the padding does not count.
  int32_t extra_limit(const Axis &axis) const { return axis.extent + (padding_counts_ ? 0 : axis.pad_far); }

 private:
  bool padding_counts_;
};

/// `Sum` is the fold that holds a window's sum.
template <class Sum, class OutElement>
class AverageOperation {
 public:
  using Fold = Sum;
  using Out = OutElement;
  using Word = typename Fold::Word;
  static constexpr int32_t kOfNothing = 0;
  static int32_t both(int32_t a, int32_t b) { return add(a, b); }

  AverageOperation(const Axis &columns, const Axis &lines, const OutputTerms &terms, Counting counting)
      : columns_(columns), lines_(lines), terms_(terms), counting_(counting) {
    first_full_ = counting.counted(columns, columns.window(0)) == columns.kernel ? 0 : 1;
    const int32_t last = columns.regular() - 1;
    const bool all_full = last > 0 && counting.counted(columns, columns.window(last)) == columns.kernel;
    end_full_ = static_cast<uint32_t>(all_full ? columns.regular() : columns.whole);
  }

  /// Kept: in the extra line the extra column starts inside the input or does not exist, whatever is counted.
  int32_t extra_column_limit(Place line) const {
    return line == Place::kExtra ? columns_.extent : counting_.extra_limit(columns_);
  }
  int32_t extra_line_limit() const { return counting_.extra_limit(lines_); }
  void start_lines(const Window &line) { counted_lines_ = counting_.counted(lines_, line); }
  bool alike(const Window &a, const Window &b) const { return counting_.counted(lines_, a) == counting_.counted(lines_, b); }

  void put(uint8_t *to, int32_t sum, const Window &column) const {
    const int32_t divisor = divisor_of(column);
    store(to, clamped<Out>(any_average_step(terms_, divisor / 2, divisor)(sum)));
  }

  void run(const Band &band, const Part &part, Word *words) const {
    const int32_t divisor = multiply(columns_.kernel, counted_lines_);
    uint32_t full = std::max(part.first, first_full_);
    uint32_t end_full = std::min(part.first + part.count, end_full_);
    if (full >= end_full || divisor < 2) full = end_full = part.first;
    const Passed passed = {full - part.first, end_full - full};
    const StepStage<Out, BlockAverageStep> stage{block_average_step(terms_, divisor / 2, std::max(divisor, 2))};
    if constexpr (sizeof(Word) == 2) {
      if (passed.count == part.count) {
        if (run_if_square<Fold>(band, part, stage, NoEdges{}, words)) return;
      } else if (passed.count != 0 && run_with_edges(band, part, passed, stage, words)) {
        return;
      }
    }
    const auto put_others = [&](uint8_t *to) {
      put_each(to, part, words, 0, passed.first);
      put_each(to, part, words, passed.first + passed.count, part.count);
    };
    run_windows<Fold>(band, part, passed, stage, words, AfterLine(put_others));
  }

 private:
  int32_t divisor_of(const Window &column) const {
    return counting_.divisor(counting_.counted(columns_, column), counted_lines_, column.place);
  }

  /// Where the windows with divisors of their own lie in the first and the last block of a line, those blocks have a divisor for
  /// each word. False if they do not, or the windows are of no common kind.
  bool run_with_edges(const Band &band, const Part &part, const Passed &passed, const StepStage<Out, BlockAverageStep> &stage,
                      Word *words) const {
    constexpr uint32_t kBlock = kWordsOfBlock<Word>;
    const uint32_t behind = part.count - passed.first - passed.count;
    if (part.count <= kBlock || passed.first > 1 || behind > kBlock) return false;
    Edges<Divisors<Word>> edges;
    return set_divisors(edges.first, part.first) && set_divisors(edges.last, part.first + part.count - kBlock) &&
           run_if_square<Fold>(band, part, stage, edges, words);
  }

  /// False if there is a divisor below 2.
  bool set_divisors(Divisors<Word> &divisors, uint32_t first_column) const {
    constexpr uint32_t kBlock = kWordsOfBlock<Word>;
    int32_t half[kBlock];
    int32_t multiplier[kBlock];
    int32_t shift[kBlock];
    for (uint32_t i = 0; i < kBlock; ++i) {
      const int32_t divisor = divisor_of(columns_.window(static_cast<int32_t>(first_column + i)));
      if (divisor < 2) return false;
      const Reciprocal<int32_t> reciprocal = reciprocal_of(divisor);
      half[i] = divisor / 2;
      multiplier[i] = reciprocal.multiplier;
      shift[i] = reciprocal.shift;
    }
    for (uint32_t i = 0; i < kStepsOfBlock<Word>; ++i) {
      const uint32_t at = i * kLanes<Words>;
      divisors.half[i] = load<Words>(half + at);
      divisors.divisor[i] = {load<Words>(multiplier + at), load<Words>(shift + at)};
    }
    return true;
  }

  /// Windows with divisors of their own: `begin` to `end` of a part.
  [[gnu::noinline]] void put_each(uint8_t *to, const Part &part, const Word *words, uint32_t begin, uint32_t end) const {
    for (uint32_t i = begin; i < end; ++i) {
      const Word sum = fold_window<Fold>(words + i * part.stride, part.window);
      put(to + i * sizeof(Out), static_cast<int32_t>(sum), columns_.window(static_cast<int32_t>(part.first + i)));
    }
  }

  Axis columns_;
  Axis lines_;
  OutputTerms terms_;
  Counting counting_;
  uint32_t first_full_;  ///< these columns have the divisor of a whole window
  uint32_t end_full_;
  int32_t counted_lines_ = 0;
};

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_OPERATIONS_H
