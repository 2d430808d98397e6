/// \file pool_global.h
/// One maximum or average of a whole plane, for all planes.
#ifndef TARVU_POOL_POOL_GLOBAL_H
#define TARVU_POOL_POOL_GLOBAL_H

#include "pool/pool_operations.h"
#include "simd/fold_runs.h"

namespace tarvu {

constexpr uint32_t kPlanesAtOnce = 128;

/// to[c] = the fold of plane c, for up to kPlanesAtOnce planes. Planes whose lines lie back to back are one run.
template <class Fold>
[[gnu::noinline]] void fold_planes(const _NN_POOL_PARM &parm, const uint8_t *from, uint32_t planes, typename Fold::Word *to) {
  using Word = typename Fold::Word;
  const size_t width = parm.width;
  const size_t line_bytes = parm.in_line_ofs;
  if (line_bytes == width * sizeof(typename Fold::Element) || parm.height == 1) {
    return fold_runs<Fold>(from, parm.in_channel_ofs, planes, width * parm.height, to);
  }
  Word of_line[kPlanesAtOnce];
  std::fill(to, to + planes, Fold::kIdentity);
  for (uint32_t y = 0; y < parm.height; ++y, from += line_bytes) {
    fold_runs<Fold>(from, parm.in_channel_ofs, planes, width, of_line);
    for (uint32_t c = 0; c < planes; ++c) to[c] = Fold::both(to[c], of_line[c]);
  }
}

/// Folds every plane and stores it through the stage, in ascending order.
template <class Fold, class Stage>
void pool_planes(const _NN_POOL_PARM &parm, const Stage &stage) {
  using Word = typename Fold::Word;
  using Out = typename Stage::Out;
  Word words[kPlanesAtOnce] = {};
  uint8_t elements[kPlanesAtOnce * sizeof(Out)];
  for (uint32_t b = 0; b < parm.batch; ++b) {
    const uint8_t *from = pointer<const uint8_t>(parm.in_addr) + b * size_t{parm.in_batch_ofs};
    uint8_t *to = pointer(parm.out_addr) + b * size_t{parm.out_batch_ofs};
    for (uint32_t first = 0; first < parm.channel; first += kPlanesAtOnce, to += kPlanesAtOnce * size_t{parm.out_channel_ofs}) {
      const uint32_t planes = std::min(kPlanesAtOnce, parm.channel - first);
      fold_planes<Fold>(parm, from + first * size_t{parm.in_channel_ofs}, planes, words);
      if (parm.out_channel_ofs == sizeof(Out)) {
        stage.store_line(to, words, planes);
        continue;
      }
      stage.store_line(elements, words, planes);
      for (uint32_t c = 0; c < planes; ++c) {
        store(to + c * size_t{parm.out_channel_ofs}, load<Out>(elements + c * sizeof(Out)));
      }
    }
  }
}

/// The same element for every plane.
template <class Out>
void fill_planes(const _NN_POOL_PARM &parm, Out element) {
  for (uint32_t b = 0; b < parm.batch; ++b) {
    uint8_t *to = pointer(parm.out_addr) + b * size_t{parm.out_batch_ofs};
    for (uint32_t c = 0; c < parm.channel; ++c, to += parm.out_channel_ofs) store(to, element);
  }
}

template <class In, class Out>
void pool_global_maximum(const _NN_POOL_PARM &parm, const OutputTerms &terms) {
  const MaximumOutput<In, Out> output(terms);
  if (parm.width == 0 || parm.height == 0) return fill_planes(parm, output.element(kMaximumOfNothing));
  output.with_stage([&](const auto &stage) { pool_planes<MaximumFold<In>>(parm, stage); });
}

template <class In, class Out>
void pool_global_average(const _NN_POOL_PARM &parm, const OutputTerms &terms) {
  using Fold = SumFold<In, uint32_t>;
  const int32_t divisor = multiply(parm.width, parm.height);
  const int32_t half = shift_right(divisor, 1);
  if (divisor >= 2) {
    pool_planes<Fold>(parm, StepStage<Out, BlockAverageStep>{block_average_step(terms, half, divisor)});
  } else {
    // Kept: a plane of 2^31 elements and more has a negative divisor, an empty one the divisor 0.
    pool_planes<Fold>(parm, SingleStage<Out, AnyAverageStep>{any_average_step(terms, half, divisor)});
  }
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_GLOBAL_H
