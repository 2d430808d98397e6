// Averages of windows of the common kinds, with divisors of their own at the edges of a line.
#include "frame/element_type.h"
#include "pool/pool_square_kernels.h"

namespace tarvu {
namespace {

/// A divisor for every word of a block.
struct LaneDivisors {
  Words half[kStepsOfBlock];
  Reciprocal<Words> divisor[kStepsOfBlock];

  explicit LaneDivisors(const BlockDivisors &divisors) {
    for (uint32_t i = 0; i < kStepsOfBlock; ++i) {
      const uint32_t at = i * kLanes<Words>;
      half[i] = load<Words>(divisors.half + at);
      divisor[i] = {load<Words>(divisors.multiplier + at), load<Words>(divisors.shift + at)};
    }
  }
};

struct LaneEdges {
  LaneDivisors first;
  LaneDivisors last;
  explicit LaneEdges(const Edges *edges) : first(edges->first), last(edges->last) {}
};

template <class Word, class Element>
struct AverageWay {
  using Out = Element;
  AverageStep<Words> step;
  explicit AverageWay(const OutputStage &stage) : step(stage) {}

  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
    store_block<Out>(to, block, step);
  }
  /// With divisors of their own.
  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block, const LaneDivisors &divisors) const {
    store_block_by_steps<Out>(
        to, block, [&](uint32_t i) __attribute__((always_inline)) {
          AverageStep<Words> own = step;
          own.half = divisors.half[i];
          own.divisor = divisors.divisor[i];
          return own;
        });
  }
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    const AverageWay copy = *this;
    use(copy);
  }
};

template <class Element, class Word>
SquareWindows choose_average(const Band &band, const Part &part) {
  using Fold = SumFold<Element, Word>;
  using Way = AverageWay<Word, Element>;
  if (!band.stage.divides) return nullptr;
  if (band.edges == nullptr) return choose_square<Fold, Way, NoEdges, true>(band, part);
  return choose_square<Fold, Way, LaneEdges, false>(band, part);
}

template <class Element, class Word>
constexpr ChooseSquare kSums = choose_square<SumFold<Element, Word>, UnchangedWay<Word>, NoEdges, false>;

}  // namespace

ChooseSquare square_averages(SumWord word, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  if (in != out || word == SumWord::kUint32) return nullptr;
  return in == NN_AI_IO_TYPE_INT8 ? choose_average<int8_t, int16_t> : choose_average<uint8_t, uint16_t>;
}

ChooseSquare square_sum_words(SumWord word, NN_AI_IO_TYPE in) {
  if (word == SumWord::kInt16) return kSums<int8_t, int16_t>;
  if (word == SumWord::kUint16) return kSums<uint8_t, uint16_t>;
  return with_element_type(in, [](auto element) { return kSums<decltype(element), uint32_t>; });
}

}  // namespace tarvu
