/// \file normalisation.c
/// Examples of the L2 norm and of layer normalisation.

#include "examples.h"

static void norm(void) {
  //! [norm]
  const float in[2] = {3.0f, 4.0f}, factor = 1.0f;
  float out[2], scratch[2 * 2];
  _NN_NORM_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.work_buffer = (uintptr_t)scratch;
  layer.scale_addr = (uintptr_t)&factor;
  layer.width = 2;
  layer.height = layer.channel = layer.batch = 1;
  layer.in_fmt = layer.out_fmt = format(0, 31, 1);
  layer.norm_whole_item = layer.shared_scale = 1;
  IS(tarvu_norm_process(&layer), QX_OK);
  GIVES(out, 0.6f, 0.8f);
  //! [norm]
}

static void layernorm(void) {
  //! [layernorm]
  const float in[4] = {1.0f, 2.0f, 3.0f, 4.0f}, beta[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  int16_t out[4];
  float scratch[2 * 4];
  _NN_LAYERNORM_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.work_buffer = (uintptr_t)scratch;
  layer.gamma_addr = TARVU_LAYERNORM_ABSENT;
  layer.beta_addr = (uintptr_t)beta;
  layer.width = 4;
  layer.height = layer.channel = layer.batch = 1;
  layer.in_fmt = format(0, 31, 1);
  layer.out_fmt = format(8, 7, 1);
  layer.in_scale = layer.out_scale = scale(1, 0);
  layer.axis = -1;  // the width
  IS(tarvu_layernorm_process(&layer), QX_OK);
  GIVES(out, -343, -114, 114, 599);  // -1.34164, -0.44721, 0.44721, 2.34164 times 256
  IS(layer.axis, 3);
  IS(layer.inner_size, 4);
  //! [layernorm]
}

void normalisation_examples(void) {
  norm();
  layernorm();
}
