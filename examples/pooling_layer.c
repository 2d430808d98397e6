/* A pooling layer: windows of 3 x 3, two steps apart, over a plane of 5 x 5 bytes with one line and column of padding on each
   side. The maximum keeps the input's format; the average goes to 16 bits with 4 more fraction bits. */
#include <stdio.h>

#include "tarvu.h"

enum { kIn = 5, kOut = 3 };

int main(void) {
  const uint8_t in[kIn][kIn] = {
      {1, 2, 3, 4, 5}, {6, 7, 8, 9, 10}, {11, 12, 13, 14, 15}, {16, 17, 18, 19, 20}, {21, 22, 23, 24, 25},
  };
  uint8_t largest[kOut][kOut];
  uint16_t average[kOut][kOut];

  _NN_POOL_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.width = layer.height = kIn;
  layer.channel = layer.batch = 1;
  layer.in_line_ofs = sizeof in[0];
  layer.in_channel_ofs = layer.in_batch_ofs = sizeof in;
  layer.in_fmt = (_NN_FMT){.frac_bits = 0, .int_bits = 8, .sign_bits = 0};
  layer.in_scale.scale_value = layer.out_scale.scale_value = 1;
  layer.kernel_w = layer.kernel_h = 3;
  layer.stride_w = layer.stride_h = 2;
  layer.pad_left = layer.pad_right = layer.pad_top = layer.pad_bottom = 1;

  layer.mode = 0;
  layer.out_addr = (uintptr_t)largest;
  layer.out_line_ofs = sizeof largest[0];
  layer.out_channel_ofs = layer.out_batch_ofs = sizeof largest;
  layer.out_fmt = layer.in_fmt;
  if (tarvu_pool_process(&layer) != QX_OK) {
    return 1;
  }

  layer.mode = 1;
  layer.non_count_pad = 1; /* an average of the elements that are there */
  layer.out_addr = (uintptr_t)average;
  layer.out_line_ofs = sizeof average[0];
  layer.out_channel_ofs = layer.out_batch_ofs = sizeof average;
  layer.out_fmt = (_NN_FMT){.frac_bits = 4, .int_bits = 12, .sign_bits = 0};
  /* An 8-bit input counts as shifted left by 8 in a 16-bit output. 4 bits more are wanted, so 4 are taken back. */
  layer.post_shift = 4;
  if (tarvu_pool_process(&layer) != QX_OK) {
    return 1;
  }

  for (int y = 0; y < kOut; ++y) {
    for (int x = 0; x < kOut; ++x) {
      printf("%2d %7.4f%s", largest[y][x], average[y][x] / 16.0, x + 1 < kOut ? " | " : "\n");
    }
  }
  return 0;
}
