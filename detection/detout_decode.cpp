// Decoding of box locations by their coding.
#include "detection/detout_decode.h"

#include <cstdio>

#include "tarvu.h"

namespace tarvu {
namespace {

enum CodeType : int32_t { kCentreAndSize = 0, kCorners = 1, kRelativeCorners = 2 };

void clip_records(float *decoded, int32_t count) {
  for (int32_t p = 0; p < count; ++p, decoded += kDecodedStep) {
    for (int k = 0; k < 4; ++k) decoded[k] = number_in_unit(decoded[k]);
  }
}

}  // namespace

void decode_locations(const LocationSet &set, int32_t code_type, bool variance_encoded_in_target) {
  switch (code_type) {
    case kCentreAndSize:
      return decode_set(set, variance_encoded_in_target, decode_centre_and_size);
    case kCorners:
      return decode_set(set, variance_encoded_in_target, decode_corners);
    case kRelativeCorners:
      return decode_set(set, variance_encoded_in_target, decode_relative_corners);
    default:
      for (int32_t p = 0; p < set.count; ++p) std::printf("Unknown code type.");
  }
}

}  // namespace tarvu

void DecodeBBoxes(const float *prior_bboxes, const float *prior_variances, int32_t code_type,
                  int32_t variance_encoded_in_target, int32_t clip_bbox, const float *loc, float *decoded,
                  int32_t num_priors, int32_t num_loc_classes) {
  if (num_priors <= 0) return;
  const ptrdiff_t set_floats = tarvu::kDecodedStep * num_priors;
  for (int32_t l = 0; l < num_loc_classes; ++l, loc += set_floats, decoded += set_floats) {
    tarvu::decode_locations(
        {prior_bboxes, tarvu::kDecodedStep, prior_variances, loc, tarvu::kDecodedStep, decoded, num_priors}, code_type,
        variance_encoded_in_target != 0);
    if (clip_bbox == 1) tarvu::clip_records(decoded, num_priors);
  }
}
