/* A tensor with padded lines: 2 lines of 3 elements, each in 8 bytes of memory, become 3 lines of 2 elements in 4 bytes each.
   The padding is neither read nor written. */
#include <stdio.h>
#include <string.h>

#include "tarvu.h"

enum { kWidth = 3, kHeight = 2, kInLine = 8, kOutLine = 4 };

int main(void) {
  const uint8_t in[kHeight][kInLine] = {{11, 12, 13, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE},
                                        {21, 22, 23, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}};
  uint8_t out[kWidth][kOutLine];
  memset(out, '-', sizeof out);

  _NN_PERMUTE_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.width = kWidth;
  layer.height = kHeight;
  layer.channel = layer.batch = 1;
  layer.in_line_ofs = kInLine; /* bytes from one line to the next, whatever the width */
  layer.in_channel_ofs = layer.in_batch_ofs = sizeof in;
  layer.out_line_ofs = kOutLine;
  layer.out_channel_ofs = layer.out_batch_ofs = sizeof out;
  layer.in_fmt = layer.out_fmt = (_NN_FMT){.frac_bits = 0, .int_bits = 8, .sign_bits = 0};
  layer.order[0] = 0; /* batch and channel stay; output lines are input columns */
  layer.order[1] = 1;
  layer.order[2] = 3;
  layer.order[3] = 2;

  if (tarvu_permute_process(&layer) != QX_OK) {
    return 1;
  }
  for (int y = 0; y < kWidth; ++y) {
    printf("%d %d %c%c\n", out[y][0], out[y][1], out[y][2], out[y][3]);
  }
  return 0;
}
