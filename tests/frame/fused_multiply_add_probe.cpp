#include "tests/frame/fused_multiply_add_probe.h"

namespace probe {

float multiply_then_add(float a, float b, float c) {
  const float product = a * b;
  return product + c;
}

double multiply_then_add(double a, double b, double c) {
  const double product = a * b;
  return product + c;
}

tarvu::f32x4 multiply_then_add(tarvu::f32x4 a, tarvu::f32x4 b, tarvu::f32x4 c) {
  const tarvu::f32x4 product = a * b;
  return product + c;
}

void multiply_then_add(const float *a, const float *b, const float *c, float *result, int count) {
  for (int i = 0; i < count; ++i) {
    const float product = a[i] * b[i];
    result[i] = product + c[i];
  }
}

}  // namespace probe
