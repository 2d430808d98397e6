// Pooling of whole planes.
#include "pool/pool_plan.h"

namespace tarvu {
namespace {

/// Folds every plane and stores it through the stage, in ascending order.
void pool_planes(const _NN_POOL_PARM &parm, const PoolFold &fold, const OutputStage &stage, uint32_t out_bytes) {
  alignas(16) unsigned char words[kPlanesAtOnce * sizeof(uint32_t)] = {};
  uint8_t elements[kPlanesAtOnce * sizeof(uint16_t)];
  for (uint32_t b = 0; b < parm.batch; ++b) {
    const uint8_t *from = pointer<const uint8_t>(parm.in_addr) + b * size_t{parm.in_batch_ofs};
    uint8_t *to = pointer(parm.out_addr) + b * size_t{parm.out_batch_ofs};
    for (uint32_t first = 0; first < parm.channel;
         first += kPlanesAtOnce, to += kPlanesAtOnce * size_t{parm.out_channel_ofs}) {
      const uint32_t planes = std::min(kPlanesAtOnce, parm.channel - first);
      fold.fold_planes(parm, from + first * size_t{parm.in_channel_ofs}, planes, words);
      if (parm.out_channel_ofs == out_bytes) {
        stage.store(stage, to, words, planes);
        continue;
      }
      stage.store(stage, elements, words, planes);
      for (uint32_t c = 0; c < planes; ++c) {
        std::memcpy(to + c * size_t{parm.out_channel_ofs}, elements + c * out_bytes, out_bytes);
      }
    }
  }
}

/// The same element for every plane.
void fill_planes(const _NN_POOL_PARM &parm, int32_t value, NN_AI_IO_TYPE out) {
  for (uint32_t b = 0; b < parm.batch; ++b) {
    uint8_t *to = pointer(parm.out_addr) + b * size_t{parm.out_batch_ofs};
    for (uint32_t c = 0; c < parm.channel; ++c, to += parm.out_channel_ofs) store_clamped(to, value, out);
  }
}

}  // namespace

void pool_global(const _NN_POOL_PARM &parm, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  const OutputTerms terms = output_terms(parm, in, out);
  if (parm.mode == kGlobalAverage) {
    // Kept: a plane of 2^31 elements and more has a negative divisor, an empty one the divisor 0.
    const int32_t divisor = multiply(parm.width, parm.height);
    const OutputStage stage = average_stage(terms, SumWord::kUint32, out, shift_right(divisor, 1), divisor);
    return pool_planes(parm, sum_fold(SumWord::kUint32, in), stage, bytes_of(out));
  }
  if (parm.width == 0 || parm.height == 0) return fill_planes(parm, requantised_maximum(terms, kMaximumOfNothing), out);
  uint8_t map[256];
  const MaximumWay way = maximum_way(terms, in, out, uint64_t{parm.channel} * parm.batch);
  pool_planes(parm, maximum_fold(in), maximum_stage(terms, way, in, out, map), bytes_of(out));
}

}  // namespace tarvu
