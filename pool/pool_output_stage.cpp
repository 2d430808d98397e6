// From lines of words to lines of output elements, one function for each pair of types and way.
#include "pool/pool_output_stage.h"

namespace tarvu {
namespace {

template <class Out, class Word>
void store_maxima(const OutputStage &stage, uint8_t *to, const void *words, uint32_t count) {
  store_words<Out>(to, static_cast<const Word *>(words), count, MaximumStep<Words>(stage.terms));
}

template <class Word>
void store_unchanged(const OutputStage &, uint8_t *to, const void *words, uint32_t count) {
  std::memcpy(to, words, count * sizeof(Word));
}

void store_mapped(const OutputStage &stage, uint8_t *to, const void *words, uint32_t count) {
  map_bytes(stage.map, to, static_cast<const uint8_t *>(words), count);
}

template <class Out, class Word>
void store_averages(const OutputStage &stage, uint8_t *to, const void *words, uint32_t count) {
  store_words<Out>(to, static_cast<const Word *>(words), count, AverageStep<Words>(stage));
}

/// For divisors below 2.
template <class Out, class Word>
void store_averages_singly(const OutputStage &stage, uint8_t *to, const void *words, uint32_t count) {
  const auto *sums = static_cast<const Word *>(words);
  for (uint32_t i = 0; i < count; ++i) {
    store(to + i * sizeof(Out),
          clamped<Out>(requantised_sum(stage.terms, static_cast<int32_t>(sums[i]), stage.half, stage.divisor)));
  }
}

/// f(T{}) for the type of an element.
template <class F>
auto with_type(NN_AI_IO_TYPE type, F f) {
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return f(int8_t{});
    case NN_AI_IO_TYPE_UINT8:
      return f(uint8_t{});
    case NN_AI_IO_TYPE_INT16:
      return f(int16_t{});
    default:
      return f(uint16_t{});
  }
}

using StoreLine = decltype(OutputStage::store_line);

StoreLine line_of_maxima(NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  return with_type(in, [out](auto word) {
    return with_type(out, [](auto element) -> StoreLine { return store_maxima<decltype(element), decltype(word)>; });
  });
}

template <class Word>
StoreLine line_of_averages(NN_AI_IO_TYPE out, int32_t divisor) {
  return with_type(out, [divisor](auto element) -> StoreLine {
    using Out = decltype(element);
    return divisor >= 2 ? store_averages<Out, Word> : store_averages_singly<Out, Word>;
  });
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
  with_type(type, [=](auto element) { store(to, clamped<decltype(element)>(value)); });
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

MaximumWay maximum_way(const OutputTerms &terms, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  if (in == out && passes_unchanged(terms)) return MaximumWay::kUnchanged;
  if (kMapsBytes && bytes_of(in) == 1 && bytes_of(out) == 1) return MaximumWay::kMapped;
  if (kMultipliesBytes && in == out && bytes_of(in) == 1 && fits_bytes(terms)) return MaximumWay::kInHalves;
  if (in == out && bytes_of(in) == 2 && fits_halves(terms, in == NN_AI_IO_TYPE_INT16)) return MaximumWay::kInHalves;
  return MaximumWay::kInWords;
}

OutputStage maximum_stage(const OutputTerms &terms, MaximumWay way, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out, uint8_t *map) {
  OutputStage stage = {};
  stage.terms = {multiply(terms.in_multiplier, terms.out_multiplier), 1, terms.round, terms.right};
  switch (way) {
    case MaximumWay::kUnchanged:
      stage.store_line = bytes_of(in) == 1 ? store_unchanged<uint8_t> : store_unchanged<uint16_t>;
      break;
    case MaximumWay::kMapped:
      for (int32_t byte = 0; byte < 256; ++byte) {
        const int32_t maximum = in == NN_AI_IO_TYPE_INT8 ? static_cast<int8_t>(byte) : byte;
        store_clamped(map + byte, requantised_maximum(terms, maximum), out);
      }
      stage.map = map;
      stage.store_line = store_mapped;
      break;
    default:
      stage.store_line = line_of_maxima(in, out);
  }
  return stage;
}

OutputStage average_stage(const OutputTerms &terms, SumWord word, NN_AI_IO_TYPE out, int32_t half, int32_t divisor) {
  const Reciprocal<int32_t> reciprocal = divisor >= 2 ? reciprocal_of(divisor) : Reciprocal<int32_t>{};
  StoreLine store_line = nullptr;
  switch (word) {
    case SumWord::kInt16:
      store_line = line_of_averages<int16_t>(out, divisor);
      break;
    case SumWord::kUint16:
      store_line = line_of_averages<uint16_t>(out, divisor);
      break;
    case SumWord::kUint32:
      store_line = line_of_averages<uint32_t>(out, divisor);
  }
  return {store_line, terms, half, divisor, reciprocal, nullptr};
}

}  // namespace tarvu
