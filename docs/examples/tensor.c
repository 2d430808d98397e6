/// \file tensor.c
/// Examples of pooling and of the operators that move elements.

#include "examples.h"

static void pooling(void) {
  //! [pooling]
  const uint8_t in[2][4] = {{1, 2, 3, 4}, {5, 6, 7, 9}};
  uint8_t out[2];
  _NN_POOL_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.width = 4;
  layer.height = 2;
  layer.channel = layer.batch = 1;
  layer.in_line_ofs = sizeof in[0];
  layer.in_channel_ofs = layer.in_batch_ofs = sizeof in;
  layer.out_line_ofs = layer.out_channel_ofs = layer.out_batch_ofs = sizeof out;
  layer.in_fmt = layer.out_fmt = format(0, 8, 0);
  layer.in_scale = layer.out_scale = scale(1, 0);
  layer.kernel_w = layer.kernel_h = layer.stride_w = layer.stride_h = 2;
  layer.mode = 0;  // maximum
  IS(tarvu_pool_process(&layer), QX_OK);
  GIVES(out, 6, 9);
  layer.mode = 1;  // average
  IS(tarvu_pool_process(&layer), QX_OK);
  GIVES(out, 4, 6);  // 14 / 4 = 3.5 and 23 / 4 = 5.75
  layer.post_shift = 1;
  IS(tarvu_pool_process(&layer), QX_OK);
  GIVES(out, 2, 3);  // halved once more
  //! [pooling]
}

static void reverse(void) {
  //! [reverse]
  const uint8_t in[2][3] = {{1, 2, 3}, {4, 5, 6}};
  uint8_t out[6];
  _NN_REVERSE_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.width = 3;
  layer.height = 2;
  layer.channel = layer.batch = 1;
  layer.in_line_ofs = layer.out_line_ofs = 3;
  layer.in_channel_ofs = layer.out_channel_ofs = layer.in_batch_ofs = layer.out_batch_ofs = 6;
  layer.in_fmt = layer.out_fmt = format(0, 8, 0);
  layer.axis = 3;  // width
  IS(tarvu_reverse_process(&layer), QX_OK);
  GIVES(out, 3, 2, 1, 6, 5, 4);
  layer.axis = 2;  // height
  IS(tarvu_reverse_process(&layer), QX_OK);
  GIVES(out, 4, 5, 6, 1, 2, 3);
  //! [reverse]
}

static void permute(void) {
  //! [permute]
  const uint8_t in[2][3] = {{1, 2, 3}, {4, 5, 6}};
  uint8_t out[6];
  _NN_PERMUTE_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.width = 3;
  layer.height = 2;
  layer.channel = layer.batch = 1;
  layer.in_line_ofs = 3;
  layer.in_channel_ofs = layer.in_batch_ofs = 6;
  layer.out_line_ofs = 2;  // of the output, whose lines are the input's columns
  layer.out_channel_ofs = layer.out_batch_ofs = 6;
  layer.in_fmt = layer.out_fmt = format(0, 8, 0);
  layer.order[0] = 0;
  layer.order[1] = 1;
  layer.order[2] = 3;
  layer.order[3] = 2;
  IS(tarvu_permute_process(&layer), QX_OK);
  GIVES(out, 1, 4, 2, 5, 3, 6);
  //! [permute]
}

static void onehot(void) {
  //! [onehot]
  const uint8_t in[2] = {2, 0}, values[2] = {0, 1};
  uint8_t out[2 * 3];
  _NN_ONEHOT_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.values_addr = (uintptr_t)values;
  layer.height = 2;
  layer.channel = layer.batch = 1;
  layer.in_line_ofs = 1;
  layer.in_channel_ofs = layer.in_batch_ofs = 2;
  layer.out_line_ofs = 3;
  layer.out_channel_ofs = layer.out_batch_ofs = 6;
  layer.in_fmt = layer.out_fmt = layer.values_fmt = format(0, 8, 0);
  layer.in_scale = scale(1, 0);
  layer.axis = 3;
  layer.depth = 3;
  IS(tarvu_onehot_process(&layer), QX_OK);
  GIVES(out, 0, 0, 1, 1, 0, 0);
  //! [onehot]
}

static void gridsample(void) {
  //! [gridsample]
  // A picture of 2 x 2, and room behind it: each corner is read with 8 bytes. The grid asks for the middle.
  const uint8_t in[16] = {10, 30, 50, 70}, grid[16] = {64, 64};
  uint8_t out[1];
  _NN_GRIDSAMPLE_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.grid_addr = (uintptr_t)grid;
  const uint16_t in_shape[4] = {1, 1, 2, 2}, out_shape[4] = {1, 1, 1, 1}, grid_shape[4] = {2, 1, 1, 1};
  memcpy(layer.in_shape, in_shape, sizeof in_shape);
  memcpy(layer.out_shape, out_shape, sizeof out_shape);
  memcpy(layer.grid_shape, grid_shape, sizeof grid_shape);
  layer.in_fmt = layer.out_fmt = format(0, 8, 0);
  layer.grid_fmt = format(7, 1, 0);
  layer.row_group = 1;
  IS(tarvu_gridsample_process(&layer), QX_OK);
  GIVES(out, 40);
  //! [gridsample]
}

void tensor_examples(void) {
  pooling();
  reverse();
  permute();
  onehot();
  gridsample();
}
