/// \file fused_multiply_add_probe.h
/// Multiply, then add, compiled exactly as the product's kernels are.
#ifndef TARVU_TESTS_FRAME_FUSED_MULTIPLY_ADD_PROBE_H
#define TARVU_TESTS_FRAME_FUSED_MULTIPLY_ADD_PROBE_H

#include "simd/lanes.h"

namespace probe {

float multiply_then_add(float a, float b, float c);
double multiply_then_add(double a, double b, double c);
tarvu::f32x4 multiply_then_add(tarvu::f32x4 a, tarvu::f32x4 b, tarvu::f32x4 c);
void multiply_then_add(const float *a, const float *b, const float *c, float *result, int count);

}  // namespace probe

#endif  // TARVU_TESTS_FRAME_FUSED_MULTIPLY_ADD_PROBE_H
