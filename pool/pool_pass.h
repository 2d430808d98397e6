/// \file pool_pass.h
/// Runs of windows over a line of words, folded block by block and handed to an output stage.
#ifndef TARVU_POOL_POOL_PASS_H
#define TARVU_POOL_POOL_PASS_H

#include "simd/requantise.h"

namespace tarvu {

template <class Fold, uint32_t kStride, uint32_t kWindow, class Stage>
void pass_windows_of(const typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count, const Stage &stage,
                     uint8_t *to) {
  using Out = typename Stage::Out;
  constexpr uint32_t kBlock = kWordsOfBlock<typename Fold::Word>;
  const uint32_t step = kStride != 0 ? kStride : stride;
  const auto folded = [=](uint32_t i, uint32_t wanted) {
    return fold_block_of_windows<Fold, kStride, kWindow>(words + i * step, window, step, wanted);
  };
  if (count < kBlock) {
    uint8_t part[kBlock * sizeof(Out)];
    stage.store(part, folded(0, count));
    store_part(to, part, count * static_cast<uint32_t>(sizeof(Out)));
    return;
  }
  const uint32_t last = count - kBlock;
  for (uint32_t i = 0; i < last; i += kBlock) stage.store(to + i * sizeof(Out), folded(i, kBlock));
  // The last block overlaps the one before it: both write the same elements there.
  stage.store(to + last * sizeof(Out), folded(last, kBlock));
}

/// Folds `count` windows of `window` words, `stride` words apart (each at least 1), and stores them through the stage.
template <class Fold, class Stage>
void pass_windows(const typename Fold::Word *words, uint32_t window, uint32_t stride, uint32_t count, const Stage &stage,
                  uint8_t *to) {
  if (stride == 1) {
    if (window == 1) return pass_windows_of<Fold, 1, 1>(words, window, stride, count, stage, to);
    if (window == 3) return pass_windows_of<Fold, 1, 3>(words, window, stride, count, stage, to);
    return pass_windows_of<Fold, 1, 0>(words, window, stride, count, stage, to);
  }
  if (stride == 2) {
    if (window == 2) return pass_windows_of<Fold, 2, 2>(words, window, stride, count, stage, to);
    if (window == 3) return pass_windows_of<Fold, 2, 3>(words, window, stride, count, stage, to);
    return pass_windows_of<Fold, 2, 0>(words, window, stride, count, stage, to);
  }
  return pass_windows_of<Fold, 0, 0>(words, window, stride, count, stage, to);
}

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_PASS_H
