// Averages of windows of the common kinds, with divisors of their own at the edges of a line.
#include "pool/pool_common_windows_of.h"

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
  explicit LaneEdges(const Edges &edges) : first(edges.first), last(edges.last) {}
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
bool run_averages(const OutputStage &stage, const Band &band, const Part &part, const Edges *edges, Tile &tile) {
  using Fold = SumFold<Element, Word>;
  const AverageWay<Word, Element> way(stage);
  if (edges == nullptr) return run_if_square<Fold>(band, part, way, NoEdges{}, tile);
  return run_if_square<Fold>(band, part, way, LaneEdges(*edges), tile);
}

}  // namespace

RunCommonWindows common_average_windows(NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  if (in == out && in == NN_AI_IO_TYPE_INT8) return run_averages<int8_t, int16_t>;
  if (in == out && in == NN_AI_IO_TYPE_UINT8) return run_averages<uint8_t, uint16_t>;
  return nullptr;
}

}  // namespace tarvu
