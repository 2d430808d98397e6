/// \file pool_square.h
/// Windows of the common kinds, 3 x 3 with step 1 and 2 and 2 x 2 with step 2, folded in one pass over their lines: to words, or
/// straight to elements of the output where the processor gains by it.
#ifndef TARVU_POOL_POOL_SQUARE_H
#define TARVU_POOL_POOL_SQUARE_H

#include "pool/pool_tile.h"
#include "tarvu.h"

namespace tarvu {

/// What runs the windows of a part of a band, or null if nothing here does: they are of no common kind, or too few. Bands with
/// edges are of more than a block of windows.
using ChooseSquare = SquareWindows (*)(const Band &band, const Part &part);

/// Straight to the output. Null where there is none.
ChooseSquare square_maxima(NN_AI_IO_TYPE in, MaximumWay way);
ChooseSquare square_averages(SumWord word, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out);

/// To words.
ChooseSquare square_maximum_words(NN_AI_IO_TYPE in);
ChooseSquare square_sum_words(SumWord word, NN_AI_IO_TYPE in);

/// Lines of three lines' windows may take a line of nothing for one that lies in the padding, if they have at most so many
/// bytes.
inline constexpr uint32_t kNothingBytes = 1024;

}  // namespace tarvu

#endif  // TARVU_POOL_POOL_SQUARE_H
