/// \file detout_decode.h
/// Decoding of box locations against prior boxes: one record of four coordinates at a time in the lanes of one vector.
#ifndef TARVU_DETECTION_DETOUT_DECODE_H
#define TARVU_DETECTION_DETOUT_DECODE_H

#include <cstddef>
#include <cstdint>

#include "simd/arrange.h"
#include "simd/doubles.h"
#include "simd/fast_exp.h"

namespace tarvu {

/// Floats from one record to the next.
inline constexpr ptrdiff_t kDecodedStep = 5;
inline constexpr ptrdiff_t kVarianceStep = 4;

/// One location set: as many records of priors, variances, locations and decoded boxes.
struct LocationSet {
  const float *priors;
  ptrdiff_t prior_step;  // floats
  const float *variances;
  const float *locations;
  ptrdiff_t location_step;  // floats
  float *decoded;
  int32_t count;
};

/// Boxes are xmin, ymin, xmax, ymax. `offsets` is the location, times its variances if those are not in it already.

inline f32x4 decode_corners(f32x4 prior, f32x4 offsets) { return offsets + prior; }

inline f32x4 decode_relative_corners(f32x4 prior, f32x4 offsets) {
  const f32x4 size = upper_twice(prior) - lower_twice(prior);
  const f32x4 shift = offsets * size;
  return shift + prior;
}

/// The centre is in the lower lanes of `offsets`, the logarithm of the size in the upper ones. Half the size is taken
/// from the centre in double precision, where it is exact.
inline f32x4 decode_centre_and_size(f32x4 prior, f32x4 offsets) {
  const f32x4 size = upper_twice(prior) - lower_twice(prior);
  const f32x4 prior_centre = (lower_twice(prior) + upper_twice(prior)) * 0.5f;
  const f32x4 shift = offsets * size;
  const f64x2 centre = widen_low(shift + prior_centre);
  const f64x2 half = widen_high(size * fast_exp_step(offsets)) * 0.5;
  return narrow(centre - half, centre + half);
}

template <class Decode>
inline void decode_set(LocationSet set, bool variance_encoded_in_target, Decode decode) {
  const bool scaled = !variance_encoded_in_target;
  for (int32_t p = 0; p < set.count; ++p) {
    auto offsets = load<f32x4>(set.locations);
    if (scaled) offsets *= load<f32x4>(set.variances);
    store(set.decoded, decode(load<f32x4>(set.priors), offsets));
    set.priors += set.prior_step;
    set.variances += kVarianceStep;
    set.locations += set.location_step;
    set.decoded += kDecodedStep;
  }
}

/// Decodes a set by its `code_type`. An unknown one prints its line, without an end, for every record and writes
/// nothing.
void decode_locations(const LocationSet &set, int32_t code_type, bool variance_encoded_in_target);

}  // namespace tarvu

#endif  // TARVU_DETECTION_DETOUT_DECODE_H
