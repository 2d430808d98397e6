/// \file selection.c
/// Examples of Top-K and of the gather family.

#include "examples.h"

static void topk(void) {
  //! [topk]
  const uint8_t in[5] = {3, 9, 1, 7, 9};
  uint8_t values[3];
  uint16_t places[3];
  uint32_t scratch[5];
  _NN_TOPK_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)values;
  layer.out_index_addr = (uintptr_t)places;
  layer.work_buffer = (uintptr_t)scratch;
  layer.in_fmt = format(0, 8, 0);
  layer.width = 5;
  layer.height = layer.channel = layer.batch = 1;
  layer.axis = 3;
  layer.largest = layer.sorted = 1;
  layer.k = 3;
  IS(tarvu_topk_process(&layer), QX_OK);
  GIVES(values, 9, 9, 7);
  GIVES(places, 1, 4, 3);  // of equal elements the earlier one first
  //! [topk]
}

static void gather(void) {
  //! [gather]
  const uint8_t in[3][2] = {{1, 2}, {3, 4}, {5, 6}}, positions[2] = {2, 0};
  uint8_t out[4];
  _NN_GATHER_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.ind_addr = (uintptr_t)positions;
  layer.in_width = layer.out_width = 2;
  layer.in_height = 3;  // no channel and no batch: rank 2
  layer.ind_width = layer.out_height = 2;
  layer.in_line_ofs = layer.out_line_ofs = 2;
  layer.in_fmt = layer.out_fmt = layer.ind_fmt = format(0, 8, 0);
  layer.axis = 0;  // the height, the slowest of two dimensions
  IS(tarvu_gather_process(&layer), QX_OK);
  GIVES(out, 5, 6, 1, 2);
  //! [gather]
}

static void gathernd(void) {
  //! [gathernd]
  const uint8_t in[3][2] = {{1, 2}, {3, 4}, {5, 6}}, tuples[2][2] = {{2, 1}, {0, 0}};
  uint8_t out[2];
  float scratch[4];
  _NN_GATHERND_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.ind_addr = (uintptr_t)tuples;
  layer.work_buffer = (uintptr_t)scratch;
  layer.in_width = 2;
  layer.in_height = 3;
  layer.ind_width = 2;  // line and column
  layer.ind_height = 2;
  layer.out_width = 2;
  layer.in_fmt = layer.out_fmt = layer.ind_fmt = format(0, 8, 0);
  IS(tarvu_gathernd_process(&layer), QX_OK);
  GIVES(out, 6, 1);
  //! [gathernd]
}

static void gatherelement(void) {
  //! [gatherelement]
  const uint8_t in[2][2] = {{1, 2}, {3, 4}}, lines[2] = {1, 0};
  uint8_t out[2];
  _NN_GATHERELEMENT_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.ind_addr = (uintptr_t)lines;
  layer.in_width = layer.in_height = 2;
  layer.out_width = 2;
  layer.out_height = 1;
  layer.in_line_ofs = layer.ind_line_ofs = 2;
  layer.in_fmt = layer.out_fmt = layer.ind_fmt = format(0, 8, 0);
  layer.axis = 0;  // the height
  IS(tarvu_gatherelement_process(&layer), QX_OK);
  GIVES(out, 3, 2);
  //! [gatherelement]
}

void selection_examples(void) {
  topk();
  gather();
  gathernd();
  gatherelement();
}
