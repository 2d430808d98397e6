// Maxima of windows of the common kinds, with the ways to the output that need no 32-bit words.
#include "frame/element_type.h"
#include "pool/pool_square_kernels.h"

namespace tarvu {
namespace {

/// Bytes through a map of all of them.
template <class Word>
struct MapWay {
  using Out = Word;
  const uint8_t *map;
  explicit MapWay(const OutputStage &stage) : map(stage.map) {}

  struct InRegisters {
    using Out = Word;
    ByteMap map;
    [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
      tarvu::store(to, map(std::bit_cast<u8x16>(block.lanes[0])));
    }
  };
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    with_byte_map(
        map, [&](const ByteMap &ready) __attribute__((always_inline)) { use(InRegisters{ready}); });
  }
};

/// With a multiplier of 16 bits, where nothing wraps.
template <class Word>
struct HalvesWay {
  using Out = Word;
  std::conditional_t<sizeof(Word) == 1, BytesTerms, HalvesTerms<Word>> terms;
  explicit HalvesWay(const OutputStage &stage) {
    if constexpr (sizeof(Word) == 1) {
      terms = bytes_terms(stage.terms.in_multiplier, stage.terms.right);
    } else {
      terms = halves_terms<Word>(stage.terms.in_multiplier, stage.terms.right);
    }
  }
  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
    store_multiplied<Out>(to, block.lanes[0], terms);
  }
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    const HalvesWay copy = *this;
    use(copy);
  }
};

template <class In, template <class> class Way>
constexpr ChooseSquare kMaxima = choose_square<MaximumFold<In>, Way<In>, NoEdges, true>;

/// Mapped bytes may be of the other signedness.
template <class In>
ChooseSquare maxima_by(MaximumWay way) {
  if (way == MaximumWay::kUnchanged) return kMaxima<In, UnchangedWay>;
  if constexpr (sizeof(In) == 1 && kMapsBytes) {
    if (way == MaximumWay::kMapped) return kMaxima<In, MapWay>;
  }
  if constexpr (sizeof(In) == 2 || kMultipliesBytes) {
    if (way == MaximumWay::kInHalves) return kMaxima<In, HalvesWay>;
  }
  return nullptr;
}

}  // namespace

ChooseSquare square_maxima(NN_AI_IO_TYPE in, MaximumWay way) {
  return with_element_type(in, [way](auto element) { return maxima_by<decltype(element)>(way); });
}

ChooseSquare square_maximum_words(NN_AI_IO_TYPE in) {
  return with_element_type(in, [](auto element) { return kMaxima<decltype(element), UnchangedWay>; });
}

}  // namespace tarvu
