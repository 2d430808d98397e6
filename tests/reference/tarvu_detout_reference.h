/// \file tarvu_detout_reference.h
/// Plain twin of the detection output and its helpers.
#ifndef TARVU_TESTS_REFERENCE_TARVU_DETOUT_REFERENCE_H
#define TARVU_TESTS_REFERENCE_TARVU_DETOUT_REFERENCE_H

#include <cstdint>

#include "tarvu.h"

namespace reference {

_QX_RESULT tarvu_detout_process(const _NN_DETOUT_PARM *parm);
void DecodeBBoxes(const float *prior_bboxes, const float *prior_variances, int32_t code_type,
                  int32_t variance_encoded_in_target, int32_t clip_bbox, const float *loc, float *decoded,
                  int32_t num_priors, int32_t num_loc_classes);
void quick_sort(void *records, int32_t left, int32_t right);
void calc_area(const float *boxes, float *state, int32_t count);
int32_t check_overlap(const float *boxes, float *state, int32_t count, int32_t top_k, int32_t *last, float threshold);
int32_t nonmax_suppress(void *records, float *boxes, float *state, int32_t count, int32_t reserved, int32_t top_k,
                        float threshold);

}  // namespace reference

#endif  // TARVU_TESTS_REFERENCE_TARVU_DETOUT_REFERENCE_H
