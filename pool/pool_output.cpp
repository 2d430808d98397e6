// From runs of words to runs of output elements, one function for each pair of types and way.
#include "pool/pool_output.h"

#include "frame/element_type.h"

namespace tarvu {
namespace {

using Store = decltype(OutputStage::store);

template <class Out, class Word>
void store_scaled(const OutputStage &stage, uint8_t *to, const void *words, uint32_t count) {
  store_words<Out>(to, static_cast<const Word *>(words), count, ScaleStep<Words>(stage.terms));
}

template <class Word>
void store_unchanged(const OutputStage &, uint8_t *to, const void *words, uint32_t count) {
  if (to != words) std::memcpy(to, words, count * sizeof(Word));
}

void store_mapped(const OutputStage &stage, uint8_t *to, const void *words, uint32_t count) {
  map_bytes(stage.map, to, static_cast<const uint8_t *>(words), count);
}

template <class Out, class Word>
void store_averages(const OutputStage &stage, uint8_t *to, const void *words, uint32_t count) {
  store_words<Out>(to, static_cast<const Word *>(words), count, AverageStep<Words>(stage));
}

/// The functions for words of one type.
template <class Word>
Store scaling(NN_AI_IO_TYPE out) {
  return with_element_type(out, [](auto element) -> Store { return store_scaled<decltype(element), Word>; });
}
template <class Word>
Store averaging(NN_AI_IO_TYPE out, bool divides) {
  if (!divides) return scaling<Word>(out);
  return with_element_type(out, [](auto element) -> Store { return store_averages<decltype(element), Word>; });
}

/// Where the maximum of every word passes through the output unchanged.
bool passes_unchanged(const OutputTerms &terms) {
  const int32_t multiplier = multiply(terms.in_multiplier, terms.out_multiplier);
  // A right shift takes back what the multiplier did, and half of it below is lost. Up to 15 bits no element can wrap.
  return terms.right <= 15 && multiplier == shift_left(1, terms.right) && terms.round >= 0 && terms.round < multiplier;
}

/// Where no product of a 16-bit word and no rounding of it can wrap: the words of both signs leave a bit for the rounding.
bool fits_halves(const OutputTerms &terms, bool is_signed) {
  const int32_t multiplier = multiply(terms.in_multiplier, terms.out_multiplier);
  const int32_t least = is_signed ? std::numeric_limits<int16_t>::min() : 0;
  const bool rounds = terms.right == 0 ? terms.round == 0 : terms.right <= 30 && terms.round != 0;
  return rounds && multiplier >= least && multiplier <= std::numeric_limits<int16_t>::max();
}

/// The same for bytes in 16-bit lanes.
bool fits_bytes(const OutputTerms &terms) {
  const int32_t multiplier = multiply(terms.in_multiplier, terms.out_multiplier);
  return terms.right >= 8 && terms.right <= 15 && multiplier == static_cast<int16_t>(multiplier);
}

}  // namespace

void store_clamped(uint8_t *to, int32_t value, NN_AI_IO_TYPE type) {
  with_element_type(type, [=](auto element) { store(to, clamped<decltype(element)>(value)); });
}

OutputTerms output_terms(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  const int width_delta = 8 * (static_cast<int>(bytes_of(in)) - static_cast<int>(bytes_of(out)));
  const auto shift = static_cast<int8_t>(parm.out_scale.scale_shift + parm.post_shift + width_delta);
  const auto total = static_cast<int8_t>(parm.in_scale.scale_shift + shift);
  const int32_t a = parm.in_scale.scale_value;
  const int32_t b = parm.out_scale.scale_value;
  // Kept: the direction is that of the output's shift alone, so that the input's can turn the total either way. Counts are
  // taken modulo 32 and not checked: a total of 0 in the right family adds the sign bit.
  if (shift > 0) return {a, b, shift_left(1, total - 1), total & 31};
  return {shift_left(a, -total), b, 0, 0};
}

MaximumWay maximum_way(const OutputTerms &terms, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out, uint64_t count) {
  if (in == out && passes_unchanged(terms)) return MaximumWay::kUnchanged;
  if (kMapsBytes && bytes_of(in) == 1 && bytes_of(out) == 1 && count >= kLeastMapped) return MaximumWay::kMapped;
  if (kMultipliesBytes && in == out && bytes_of(in) == 1 && fits_bytes(terms)) return MaximumWay::kInHalves;
  if (in == out && bytes_of(in) == 2 && fits_halves(terms, in == NN_AI_IO_TYPE_INT16)) return MaximumWay::kInHalves;
  return MaximumWay::kInWords;
}

OutputStage maximum_stage(const OutputTerms &terms, MaximumWay way, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out, uint8_t *map) {
  OutputStage stage = {};
  stage.terms = {multiply(terms.in_multiplier, terms.out_multiplier), 1, terms.round, terms.right};
  stage.store = with_element_type(in, [out](auto word) { return scaling<decltype(word)>(out); });
  if (way == MaximumWay::kUnchanged)
    stage.store = bytes_of(in) == 1 ? store_unchanged<uint8_t> : store_unchanged<uint16_t>;
  if (way == MaximumWay::kMapped) {
    uint8_t bytes[256];
    for (uint32_t byte = 0; byte < 256; ++byte) bytes[byte] = static_cast<uint8_t>(byte);
    stage.store(stage, map, bytes, 256);
    stage.map = map;
    stage.store = store_mapped;
  }
  return stage;
}

OutputStage average_stage(const OutputTerms &terms, SumWord word, NN_AI_IO_TYPE out, int32_t half, int32_t divisor) {
  OutputStage stage = {};
  stage.terms = terms;
  stage.half = half;
  const int32_t out_multiplier = divisor < 0 ? subtract(0, terms.out_multiplier) : terms.out_multiplier;
  // Of both signs, -2^31 included.
  const uint32_t magnitude = divisor < 0 ? 0u - static_cast<uint32_t>(divisor) : static_cast<uint32_t>(divisor);
  stage.divides = magnitude >= 2;
  if (stage.divides) {
    stage.terms.out_multiplier = out_multiplier;
    stage.reciprocal = reciprocal_of(magnitude);
  } else if (divisor == 0) {
    stage.terms.in_multiplier = 0;
  } else {
    stage.terms.in_multiplier = multiply(terms.in_multiplier, out_multiplier);
    stage.terms.round = multiply_add(half, out_multiplier, terms.round);
  }
  switch (word) {
    case SumWord::kInt16:
      stage.store = averaging<int16_t>(out, stage.divides);
      break;
    case SumWord::kUint16:
      stage.store = averaging<uint16_t>(out, stage.divides);
      break;
    case SumWord::kUint32:
      stage.store = averaging<uint32_t>(out, stage.divides);
  }
  return stage;
}

}  // namespace tarvu
