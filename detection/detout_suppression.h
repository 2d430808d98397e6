/// \file detout_suppression.h
/// Records of the non-maximum suppression of the detection output.
#ifndef TARVU_DETECTION_DETOUT_SUPPRESSION_H
#define TARVU_DETECTION_DETOUT_SUPPRESSION_H

#include <cstddef>

#include "tarvu.h"

namespace tarvu {

/// An _NN_DETOUT_RECORD in memory that is aligned to 4 bytes only.
struct [[gnu::packed, gnu::aligned(4), gnu::may_alias]] SortRecord {
  float score;
  uint32_t reserved_0;
  uint64_t box_addr;
};
static_assert(sizeof(SortRecord) == sizeof(_NN_DETOUT_RECORD));
static_assert(offsetof(SortRecord, box_addr) == offsetof(_NN_DETOUT_RECORD, box_addr));

/// Most survivors of a class, whatever the block says.
inline constexpr int32_t kMostSurvivors = 20;

/// nonmax_suppress() with a limit of kMostSurvivors for a caller that wants the survivors alone: returns their number n
/// and puts them into the first n records. The other records end in any order.
/// \param state room for `count` pairs of floats
int32_t find_survivors(SortRecord *records, float *state, int32_t count, float threshold);

}  // namespace tarvu

#endif  // TARVU_DETECTION_DETOUT_SUPPRESSION_H
