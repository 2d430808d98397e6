/// \file pool_output_stage.h
/// From a maximum, or a sum and its divisor, to the output element: multipliers, division, shift and clamp.
#ifndef TARVU_POOL_POOL_OUTPUT_STAGE_H
#define TARVU_POOL_POOL_OUTPUT_STAGE_H

#include "simd/requantise.h"
#include "tarvu.h"

namespace tarvu {

/// What the two scales and the shifts of a block come to. With the multipliers a and b of input and output:
///
///     right family:   maximum (round + m * a * b) >> right,   average (round + (m * a + half) / d * b) >> right
///     left family:    maximum ((m * a) << left) * b,          average (((m * a) << left) + half) / d * b
///
/// All wraps in 32 bits, where a left shift is a product: folded into a, it makes one form of both families.
struct OutputTerms {
  int32_t in_multiplier;  ///< a, or a << left
  int32_t out_multiplier;
  int32_t round;
  int32_t right;

  /// `width_delta` is the input's width less the output's, in bits.
  OutputTerms(const _NN_POOL_PARM &parm, int width_delta)
      : in_multiplier(parm.in_scale.scale_value), out_multiplier(parm.out_scale.scale_value), round(0), right(0) {
    const auto shift = static_cast<int8_t>(parm.out_scale.scale_shift + parm.post_shift + width_delta);
    const auto total = static_cast<int8_t>(parm.in_scale.scale_shift + shift);
    // Kept: the direction is that of the output's shift alone, so that the input's can turn the total either way. Counts are
    // taken modulo 32 and not checked: a total of 0 in the right family adds the sign bit.
    if (shift > 0) {
      round = shift_left(1, total - 1);
      right = total & 31;
    } else {
      in_multiplier = shift_left(in_multiplier, -total);
    }
  }
};

/// A maximum's way to the output; V is a word or Words.
template <class V>
struct MaximumStep {
  V multiplier;
  V round;
  V right;

  explicit MaximumStep(const OutputTerms &terms)
      : multiplier(fill<V>(multiply(terms.in_multiplier, terms.out_multiplier))),
        round(fill<V>(terms.round)),
        right(fill<V>(terms.right)) {}

  V operator()(V maximum) const { return shift_right(multiply_add(maximum, multiplier, round), right); }
};

/// Any divisor by the processor's division.
struct AnyDivisor {
  int32_t divisor;
};
inline int32_t divide(int32_t n, AnyDivisor d) { return divide(n, d.divisor); }

/// A sum's way to the output; D is AnyDivisor or Reciprocal<V>.
template <class V, class D>
struct AverageStep {
  V in_multiplier;
  V out_multiplier;
  V round;
  V right;
  V half;
  D divisor;

  /// Kept: `half` is added whatever the sign, and the division truncates, so negative sums are pulled toward zero.
  V operator()(V sum) const {
    const V quotient = divide(multiply_add(sum, in_multiplier, half), divisor);
    return shift_right(multiply_add(quotient, out_multiplier, round), right);
  }
};

using AnyAverageStep = AverageStep<int32_t, AnyDivisor>;
using BlockAverageStep = AverageStep<Words, Reciprocal<Words>>;

inline AnyAverageStep any_average_step(const OutputTerms &terms, int32_t half, int32_t divisor) {
  return {terms.in_multiplier, terms.out_multiplier, terms.round, terms.right, half, {divisor}};
}

/// For a divisor of at least 2.
inline BlockAverageStep block_average_step(const OutputTerms &terms, int32_t half, int32_t divisor) {
  const Reciprocal<int32_t> reciprocal = reciprocal_of(divisor);
  return {fill<Words>(terms.in_multiplier), fill<Words>(terms.out_multiplier),
          fill<Words>(terms.round),         fill<Words>(terms.right),
          fill<Words>(half),                {fill<Words>(reciprocal.multiplier), fill<Words>(reciprocal.shift)}};
}

/// The stages below pass blocks of words on to the output: `Out` is its element, store(to, block) writes a block of them.
/// store_line(to, words, count) a line of them, reading whole blocks. in_registers(use) calls use(stage) with a copy that loops can keep in registers.

/// Words that are the output as they stand.
template <class Word>
struct IdentityStage {
  using Out = Word;
  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
    std::memcpy(to, &block, sizeof block);
  }
  void store_line(uint8_t *to, const Word *words, uint32_t count) const { std::memcpy(to, words, count * sizeof(Word)); }
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    use(*this);
  }
};

/// Bytes that a map of all of them turns into the output.
struct MapStage {
  using Out = uint8_t;
  const uint8_t *map;

  struct InRegisters {
    using Out = uint8_t;
    ByteMap map;
    template <class Word>
    [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
      tarvu::store(to, map(std::bit_cast<u8x16>(block.lanes[0])));
    }
  };
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    with_byte_map(map, [&](const ByteMap &ready) __attribute__((always_inline)) { use(InRegisters{ready}); });
  }
  template <class Word>
  void store(uint8_t *to, const WordBlock<Word> &block) const {
    in_registers([&](const InRegisters &stage) { stage.store(to, block); });
  }
  template <class Word>
  void store_line(uint8_t *to, const Word *words, uint32_t count) const {
    in_registers([&](const InRegisters &stage) {
      constexpr uint32_t kBlock = kWordsOfBlock<Word>;
      uint8_t part[kBlock];
      for (uint32_t i = 0; i < count; i += kBlock) {
        stage.store(part, load<WordBlock<Word>>(words + i));
        std::memcpy(to + i, part, std::min(kBlock, count - i));
      }
    });
  }
};

/// 16-bit maxima whose products and rounding cannot wrap.
template <class OutElement, class Word>
struct HalvesStage {
  using Out = OutElement;
  HalvesTerms<Word> terms;
  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
    store_multiplied<Out>(to, block.lanes[0], terms);
  }
  void store_line(uint8_t *to, const Word *words, uint32_t count) const {
    constexpr uint32_t kBlock = kWordsOfBlock<Word>;
    uint8_t part[kBlock * sizeof(Out)];
    for (uint32_t i = 0; i < count; i += kBlock) {
      store(part, load<WordBlock<Word>>(words + i));
      std::memcpy(to + i * sizeof(Out), part, std::min(kBlock, count - i) * sizeof(Out));
    }
  }
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    const HalvesStage copy = *this;
    use(copy);
  }
};

/// A divisor for every word of a block.
template <class Word>
struct Divisors {
  Words half[kStepsOfBlock<Word>];
  Reciprocal<Words> divisor[kStepsOfBlock<Word>];
};

template <class OutElement, class Step>
struct StepStage {
  using Out = OutElement;
  Step step;
  template <class Word>
  void store_line(uint8_t *to, const Word *words, uint32_t count) const {
    store_words<Out>(to, words, count, step);
  }
  /// With other divisors than the step's own.
  template <class Word>
  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block, const Divisors<Word> &divisors) const {
    store_block_by_steps<Out>(to, block, [&](uint32_t i) __attribute__((always_inline)) {
      Step own = step;
      own.half = divisors.half[i];
      own.divisor = divisors.divisor[i];
      return own;
    });
  }
  template <class Word>
  [[gnu::always_inline]] void store(uint8_t *to, const WordBlock<Word> &block) const {
    store_block<Out>(to, block, step);
  }
  template <class Use>
  [[gnu::always_inline]] void in_registers(Use use) const {
    const StepStage copy = *this;
    use(copy);
  }
};

/// One word at a time, for steps that have no lanes.
template <class OutElement, class Step>
struct SingleStage {
  using Out = OutElement;
  Step step;
  template <class Word>
  void store_line(uint8_t *to, const Word *words, uint32_t count) const {
    for (uint32_t i = 0; i < count; ++i) {
      tarvu::store(to + i * sizeof(Out), clamped<Out>(step(static_cast<int32_t>(words[i]))));
    }
  }
};

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_OUTPUT_STAGE_H
