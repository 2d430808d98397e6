/* Mirrors an image of 4 x 2 bytes along its width and doubles its values. */
#include <stdio.h>

#include "tarvu.h"

int main(void) {
  const uint8_t in[2][4] = {{1, 2, 3, 4}, {5, 6, 7, 8}};
  uint8_t out[2][4];

  _NN_REVERSE_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.width = 4;
  layer.height = 2;
  layer.channel = 1;
  layer.batch = 1;
  layer.in_line_ofs = layer.out_line_ofs = sizeof in[0];
  layer.in_channel_ofs = layer.out_channel_ofs = sizeof in;
  layer.in_batch_ofs = layer.out_batch_ofs = sizeof in;
  layer.in_fmt = (_NN_FMT){.frac_bits = 0, .int_bits = 8, .sign_bits = 0};
  layer.out_fmt = (_NN_FMT){.frac_bits = 1, .int_bits = 7, .sign_bits = 0};
  layer.axis = 3; /* width */

  if (tarvu_reverse_process(&layer) != QX_OK) {
    return 1;
  }
  for (int y = 0; y < 2; ++y) {
    printf("%d %d %d %d\n", out[y][0], out[y][1], out[y][2], out[y][3]);
  }
  return 0;
}
