// Maxima of windows of the common kinds, with the ways to the output that need no 32-bit words.
#include "pool/pool_common_windows_of.h"

namespace tarvu {
namespace {

/// Words that are the output as they stand.
template <class Word>
struct UnchangedWay {
  using Out = Word;
  explicit UnchangedWay(const OutputStage &) {}
  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
    std::memcpy(to, &block, sizeof block);
  }
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    use(*this);
  }
};

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
bool run_maxima(const OutputStage &stage, const Band &band, const Part &part, const Edges *, Tile &tile) {
  return run_if_square<MaximumFold<In>>(band, part, Way<In>(stage), NoEdges{}, tile);
}

template <class In>
RunCommonWindows run_maxima_of(MaximumWay way) {
  if (way == MaximumWay::kUnchanged) return run_maxima<In, UnchangedWay>;
  if constexpr (sizeof(In) == 1 && kMapsBytes) {
    if (way == MaximumWay::kMapped) return run_maxima<In, MapWay>;
  }
  if constexpr (sizeof(In) == 2 || kMultipliesBytes) {
    if (way == MaximumWay::kInHalves) return run_maxima<In, HalvesWay>;
  }
  return nullptr;
}

}  // namespace

RunCommonWindows common_maximum_windows(NN_AI_IO_TYPE in, NN_AI_IO_TYPE out, MaximumWay way) {
  if (in != out) return nullptr;
  switch (in) {
    case NN_AI_IO_TYPE_INT8:
      return run_maxima_of<int8_t>(way);
    case NN_AI_IO_TYPE_UINT8:
      return run_maxima_of<uint8_t>(way);
    case NN_AI_IO_TYPE_INT16:
      return run_maxima_of<int16_t>(way);
    default:
      return run_maxima_of<uint16_t>(way);
  }
}

}  // namespace tarvu
