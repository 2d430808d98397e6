/// \file pool_common_windows.h
/// Windows of the common kinds, 3 x 3 with step 1 and 2 and 2 x 2 with step 2, between elements of one type: where the
/// processor gains by it, they are folded and stored without leaving the registers.
#ifndef TARVU_POOL_POOL_COMMON_WINDOWS_H
#define TARVU_POOL_POOL_COMMON_WINDOWS_H

#include "pool/pool_band.h"
#include "pool/pool_output_stage.h"

namespace tarvu {

/// Runs all windows of a part of a band, or gives false if they are of no common kind. `edges` is null where one divisor holds
/// for all of them, as it does for maxima; otherwise the part is more than a block of windows.
using RunCommonWindows = bool (*)(const OutputStage &stage, const Band &band, const Part &part, const Edges *edges,
                                  Tile &tile);

/// Null where there is none.
RunCommonWindows common_maximum_windows(NN_AI_IO_TYPE in, NN_AI_IO_TYPE out, MaximumWay way);
/// Of narrow sums.
RunCommonWindows common_average_windows(NN_AI_IO_TYPE in, NN_AI_IO_TYPE out);

/// Lines of three lines' windows may take a line of nothing for one that lies in the padding, if they have at most so many
/// bytes.
inline constexpr uint32_t kNothingBytes = 1024;

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_COMMON_WINDOWS_H
