/// \file pool_output.h
/// The third step of pooling: from a maximum, or a sum and its divisor, to the output element by multipliers, division, shift and
/// clamp.
#ifndef TARVU_POOL_POOL_OUTPUT_H
#define TARVU_POOL_POOL_OUTPUT_H

#include "simd/requantise.h"
#include "tarvu.h"

namespace tarvu {

inline uint32_t bytes_of(NN_AI_IO_TYPE type) {
  return type == NN_AI_IO_TYPE_INT8 || type == NN_AI_IO_TYPE_UINT8 ? 1 : 2;
}

/// Clamps to the type and stores one element.
void store_clamped(uint8_t *to, int32_t value, NN_AI_IO_TYPE type);

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
};

OutputTerms output_terms(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out);

/// How a run of words becomes a run of the output: a function chosen once for the words, the output's type and the arithmetic,
/// and what it needs.
struct OutputStage {
  /// Stores `count` elements; up to a vector behind the last word is read. The elements may take the place of their own words
  /// where the count is a multiple of 16, whether they are narrower or end where the words end.
  void (*store)(const OutputStage &stage, uint8_t *to, const void *words, uint32_t count);
  OutputTerms terms;  ///< without a division, in_multiplier holds both multipliers
  bool divides;       ///< by the reciprocal, with `half`
  int32_t half;
  Reciprocal<int32_t> reciprocal;
  const uint8_t *map;  ///< of all bytes, where they are mapped
};

/// The ways from a maximum to the output.
enum class MaximumWay {
  kUnchanged,  ///< the output is the maximum
  kMapped,     ///< bytes become bytes: by a map
  kInHalves,   ///< with a multiplier of 16 bits, where nothing wraps
  kInWords,    ///< any, with 32-bit words
};
MaximumWay maximum_way(const OutputTerms &terms, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out, uint64_t count);

inline int32_t requantised_maximum(const OutputTerms &terms, int32_t maximum) {
  const int32_t multiplier = multiply(terms.in_multiplier, terms.out_multiplier);
  return shift_right(multiply_add(maximum, multiplier, terms.round), terms.right);
}

/// The stage of a call's maxima. `map` has room for 256 bytes and lives as long as the stage.
OutputStage maximum_stage(const OutputTerms &terms, MaximumWay way, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out, uint8_t *map);

/// Maxima to be stored from which on a map of all bytes is worth making.
inline constexpr uint64_t kLeastMapped = 1024;

/// The words of sums.
enum class SumWord { kInt16, kUint16, kUint32 };

/// The stage of sums that all have one divisor, whatever it is. Kept: `half` is added whatever the sign of a sum, and the division
/// truncates, so negative sums are pulled toward zero; a divisor of 0 gives the quotient 0.
OutputStage average_stage(const OutputTerms &terms, SumWord word, NN_AI_IO_TYPE out, int32_t half, int32_t divisor);

/// What a stage of averages makes of one sum.
inline int32_t requantised_sum(const OutputStage &stage, int32_t sum) {
  const OutputTerms &terms = stage.terms;
  if (!stage.divides) return shift_right(multiply_add(sum, terms.in_multiplier, terms.round), terms.right);
  const int32_t quotient = divide(multiply_add(sum, terms.in_multiplier, stage.half), stage.reciprocal);
  return shift_right(multiply_add(quotient, terms.out_multiplier, terms.round), terms.right);
}

/// The way to the output without a division; V is a word or Words.
template <class V>
struct ScaleStep {
  V multiplier;
  V round;
  V right;

  explicit ScaleStep(const OutputTerms &terms)
      : multiplier(fill<V>(terms.in_multiplier)), round(fill<V>(terms.round)), right(fill<V>(terms.right)) {}

  V operator()(V maximum) const { return shift_right(multiply_add(maximum, multiplier, round), right); }
};

/// A sum's way to the output through a division.
template <class V>
struct AverageStep {
  V in_multiplier;
  V out_multiplier;
  V round;
  V right;
  V half;
  Reciprocal<V> divisor;

  explicit AverageStep(const OutputStage &stage)
      : in_multiplier(fill<V>(stage.terms.in_multiplier)),
        out_multiplier(fill<V>(stage.terms.out_multiplier)),
        round(fill<V>(stage.terms.round)),
        right(fill<V>(stage.terms.right)),
        half(fill<V>(stage.half)),
        divisor{fill<V>(stage.reciprocal.multiplier), fill<V>(stage.reciprocal.shift)} {}

  V operator()(V sum) const {
    const V quotient = divide(multiply_add(sum, in_multiplier, half), divisor);
    return shift_right(multiply_add(quotient, out_multiplier, round), right);
  }
};

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_OUTPUT_H
