/// \file reformat.h
/// tarvu_convert_fmt_c() in two steps: what it does between two formats is decided once, for any number of runs.
#ifndef TARVU_CONVERT_REFORMAT_H
#define TARVU_CONVERT_REFORMAT_H

#include "simd/processor.h"
#include "tarvu.h"

namespace tarvu {

/// What happens to a run of elements between two formats.
struct Reformat {
  uint32_t in_bytes;   // of an element; 0 where nothing is written
  uint32_t out_bytes;  // of an element
  bool copies;         // the elements stay as they are
  int shift;           // bits to the left, negative to the right
  void (*run)(const uint8_t *from, uint8_t *to, uint32_t count, int shift);
};

/// Decides by the formats alone; scales take no part.
Reformat reformat_between(const _NN_FMT &in_fmt, const _NN_FMT &out_fmt);

/// Kept: element after element in ascending order, where the destination overlaps the source.
inline void reformat_run(const Reformat &reformat, const uint8_t *from, uint8_t *to, uint32_t count) {
  if (reformat.in_bytes != 0 && count != 0) reformat.run(from, to, count, reformat.shift);
}

}  // namespace tarvu

#endif  // TARVU_CONVERT_REFORMAT_H
