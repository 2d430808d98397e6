/// \file overlap.h
/// Where ranges lie, and whether two of them share a byte.
#ifndef TARVU_CONTRACT_OVERLAP_H
#define TARVU_CONTRACT_OVERLAP_H

#include "contract/call.h"

namespace contract {

/// Bytes from the first element to behind the last one.
Wide span_of(const Range &range);

/// Address of the first element, which may lie outside the memory that addresses reach.
inline Wide start_of(const Range &range) { return Wide{range.address} + range.offset; }

enum class Overlap { kNone, kPossible, kCertain };

/// Exact where the steps of both ranges nest and most of them are equal, which holds for parts of one tensor and for tensors that
/// lie apart; kPossible where finding out would take long.
Overlap overlap_of(const Range &a, const Range &b);

/// The innermost extent whose step is smaller than what the extents inside it hold together, `bytes`, so that places lie over
/// each other; null if none do.
const tarvu_contract_extent *folded_extent(const Range &range, Wide &bytes);

}  // namespace contract

#endif  // TARVU_CONTRACT_OVERLAP_H
