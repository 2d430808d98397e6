/* A softmax layer over the classes of a classifier: 8-bit scores with 4 fraction bits in, 16-bit shares with 15 out. */
#include <stdio.h>

#include "tarvu.h"

enum { kClasses = 6 };

int main(void) {
  const int8_t scores[kClasses] = {16, 48, -32, 40, 0, 127}; /* 1.0, 3.0, -2.0, 2.5, 0.0, 7.9375 */
  uint16_t shares[kClasses];
  float scratch[2 * kClasses]; /* two arrays of width * height * channel floats */

  _NN_SOFTMAX_PARM layer = {0};
  layer.in_addr = (uintptr_t)scores;
  layer.out_addr = (uintptr_t)shares;
  layer.work_buffer = (uintptr_t)scratch;
  layer.width = kClasses;
  layer.height = layer.channel = layer.batch = 1;
  layer.in_batch_ofs = sizeof scores;
  layer.out_batch_ofs = sizeof shares;
  layer.in_fmt = (_NN_FMT){.frac_bits = 4, .int_bits = 3, .sign_bits = 1};
  layer.out_fmt = (_NN_FMT){.frac_bits = 15, .int_bits = 1, .sign_bits = 0};
  layer.in_scale.scale_value = layer.out_scale.scale_value = 1;
  layer.axis = 3; /* width */

  if (tarvu_softmax_process(&layer) != QX_OK) {
    return 1;
  }
  for (int i = 0; i < kClasses; ++i) {
    printf("class %d: %5d, %.5f\n", i, shares[i], shares[i] / 32768.0);
  }
  return 0;
}
