/// \file activation.c
/// Examples of the activations and of requantisation.

#include "examples.h"

static void prelu(void) {
  //! [prelu]
  const int8_t in[4] = {10, -10, 100, -100}, slopes[1] = {3};
  int8_t out[4];
  _NN_PRELU_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.weight_addr = (uintptr_t)slopes;
  layer.width = 4;
  layer.height = layer.channels = layer.num = 1;
  layer.in_fmt = format(0, 7, 1);
  layer.shift = 1;
  IS(tarvu_prelu_process(&layer), QX_OK);
  GIVES(out, 10, -15, 100, -128);  // -300 >> 1 saturates
  //! [prelu]
}

static void softmax(void) {
  //! [softmax]
  const int8_t in[4] = {32, 32, -128, -128};  // 2, 2, -8, -8
  uint16_t out[4];
  float scratch[2 * 4];
  _NN_SOFTMAX_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.work_buffer = (uintptr_t)scratch;
  layer.width = 4;
  layer.height = layer.channel = layer.batch = 1;
  layer.in_fmt = format(4, 3, 1);
  layer.out_fmt = format(15, 1, 0);
  layer.in_scale = layer.out_scale = scale(1, 0);
  layer.axis = 3;
  IS(tarvu_softmax_process(&layer), QX_OK);
  GIVES(out, 16383, 16383, 0, 0);  // the exact shares are 0.49998, of 32768 16383.3, and 0.00002
  //! [softmax]
}

static void softmax_zero_point(void) {
  //! [softmax_zero_point]
  const uint8_t in[3] = {130, 130, 0};  // zero point 128, one fraction bit: 1, 1, -64
  uint8_t out[3];
  float scratch[2 * 3];
  _NN_SOFTMAX_ASYM_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.work_buffer = (uintptr_t)scratch;
  layer.width = 3;
  layer.height = layer.channel = layer.batch = 1;
  layer.in_fmt = format(1, 7, 0);
  layer.out_fmt = format(7, 1, 0);
  layer.in_scale = layer.out_scale = scale(1, 0);
  layer.in_zero_point = 128;
  layer.out_zero_point = 20;
  layer.axis = 3;
  IS(tarvu_softmax_asym_process(&layer), QX_OK);
  GIVES(out, 84, 84, 20);  // 0.5 * 128 + 20
  //! [softmax_zero_point]
}

static void softmax_table(void) {
  //! [softmax_table]
  const int16_t in[3] = {64, 0, -64};  // 6 fraction bits: 1, 0, -1
  int16_t out[3];
  _NN_SOFTMAX_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.channel = 3;
  layer.batch = 1;
  layer.in_fmt = format(6, 9, 1);
  IS(vendor_softmax_process(&layer), QX_OK);
  GIVES(out, 16384, 6027, 2217);  // 16384 * exp(0), exp(-1), exp(-2)
  //! [softmax_table]
}

static void lrn(void) {
  //! [lrn]
  const float in[2] = {1.0f, 2.0f};  // one position in two channels
  int16_t out[2];
  float scratch[2 + 4 + 2 + 2];
  _NN_LRN_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.work_buffer = (uintptr_t)scratch;
  layer.width = layer.height = layer.batch = 1;
  layer.channel = 2;
  layer.in_fmt = format(0, 31, 1);
  layer.out_fmt = format(8, 7, 1);
  layer.in_scale = layer.out_scale = scale(1, 0);
  layer.local_size = 3;
  layer.lrn_k = 1;
  layer.alpha = 3.0f;
  layer.beta = 0.75f;
  IS(tarvu_lrn_process(&layer), QX_OK);
  GIVES(out, 65, 131);  // 1 and 2 times about 6^-0.75; the exact power gives 66.8 and 133.6 of 256
  //! [lrn]
}

static void eltwise(void) {
  //! [eltwise]
  const int8_t in0[3] = {10, -10, 100}, in1[3] = {20, 30, 100};
  int8_t out[3];
  float scratch[3 * 3];
  _NN_ELTWISE_PARM layer = {0};
  layer.in0_addr = (uintptr_t)in0;
  layer.in1_addr = (uintptr_t)in1;
  layer.out_addr = (uintptr_t)out;
  layer.work_buffer = (uintptr_t)scratch;
  layer.width = 3;
  layer.height = layer.channel = layer.batch = 1;
  layer.in0_fmt = layer.in1_fmt = layer.out_fmt = format(0, 7, 1);
  layer.in0_scale = layer.in1_scale = layer.out_scale = scale(1, 0);
  layer.op = 1;  // weighted sum
  layer.coeff0 = 1.0f;
  layer.coeff1 = 0.5f;
  IS(tarvu_eltwise_process(&layer), QX_OK);
  GIVES(out, 20, 5, 127);
  //! [eltwise]
}

static void lstm(void) {
  //! [lstm]
  // One step, one sequence, one input value, one hidden unit. The cell gate alone has a weight.
  const int8_t in[1] = {64};  // 1.0
  const uint8_t continues[1] = {0};
  const float zero = 0.0f, one = 1.0f;
  int8_t out[1];
  float work[1 + 1 + 1 + 1];
  _NN_LSTM_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.work_buffer = (uintptr_t)work;
  layer.cont_addr = (uintptr_t)continues;
  for (int gate = 0; gate < 4; ++gate) {
    layer.input_weights[gate] = (uintptr_t)(gate == 3 ? &one : &zero);
    layer.recurrent_weights[gate] = layer.biases[gate] = (uintptr_t)&zero;
  }
  layer.width = layer.height = layer.channel = layer.batch = 1;
  layer.hidden_size = 1;
  layer.in_fmt = format(6, 1, 1);
  layer.out_fmt = format(7, 0, 1);
  IS(tarvu_lstm_process(&layer), QX_OK);
  GIVES(out, 23);  // 0.5 * tanh(0.5 * tanh(1)) = 0.18170, times 128
  //! [lstm]
}

static void fc_post(void) {
  //! [fc_post]
  const int16_t in[2][2] = {{100, -50}, {20, 30}};  // two partial results of two outputs
  const int32_t bias[2] = {5, 0};
  int16_t out[2];
  _NN_FC_POST_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)out;
  layer.bias_addr = (uintptr_t)bias;
  layer.width = 2;
  layer.height = 2;
  layer.batch = 1;
  layer.in_line_ofs = sizeof in[0];
  layer.in_fmt = layer.out_fmt = format(0, 15, 1);
  layer.mul_a = scale(3, 1);
  layer.mul_b = scale(1, 0);
  layer.neg_mul = scale(1, 2);
  IS(tarvu_fc_post_process(&layer), QX_OK);
  GIVES(out, 173, -8);  // 115 * 3 / 2 = 172.5 and -20 * 3 / 8 = -7.5, halves away from zero
  //! [fc_post]
}

void activation_examples(void) {
  prelu();
  softmax();
  softmax_zero_point();
  softmax_table();
  lrn();
  eltwise();
  lstm();
  fc_post();
}
