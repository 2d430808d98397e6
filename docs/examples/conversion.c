/// \file conversion.c
/// Examples of the frame and of the conversions.

#include "examples.h"

static void frame(void) {
  //! [frame]
  const _NN_FMT fmt = format(4, 3, 1);
  IS(tarvu_get_fmt_type(&fmt), NN_AI_IO_TYPE_INT8);

  uint32_t scratch[4];
  uint64_t cursor = (uintptr_t)scratch;
  void *first = tarvu_getbuffrom(&cursor, 5);  // 8 bytes are taken
  void *second = tarvu_getbuffrom(&cursor, 8);
  IS((uint32_t *)first - scratch, 0);
  IS((uint32_t *)second - scratch, 2);
  //! [frame]
}

static void reformat(void) {
  //! [reformat]
  const int8_t in[4] = {10, -10, 7, -7};
  const _NN_FMT two_bits = format(2, 5, 1), one_bit = format(1, 6, 1), six_bits = format(6, 1, 1);
  int8_t out[4];
  tarvu_convert_fmt_c(in, out, 4, &two_bits, &one_bit, NULL, NULL);
  GIVES(out, 5, -5, 3, -4);  // -7 / 2 drops towards minus infinity
  tarvu_convert_fmt_c(in, out, 4, &two_bits, &six_bits, NULL, NULL);
  GIVES(out, 127, -128, 112, -112);  // 160 and -160 saturate
  //! [reformat]
}

static void flat_conversion(void) {
  //! [flat_conversion]
  const int8_t in[2] = {64, -1};
  float floats[2];
  int8tofloat_neon(in, floats, 6, 2, 0.5f);  // 6 fraction bits, scale 0.5
  GIVES(floats, 0.5f, -0.0078125f);

  const float values[3] = {0.7f, -0.7f, 100.0f};
  int8_t out[3];
  floattoint8_neon(values, out, 4, 3, 1.0f);  // 11.2 and -11.2 lose their fraction, 1600 saturates
  GIVES(out, 11, -11, 127);
  floattoint8_neon(values, out, -1, 3, 1.0f);  // (x + 1) * 0.5
  GIVES(out, 0, 0, 50);
  //! [flat_conversion]
}

static void rounded_conversion(void) {
  //! [rounded_conversion]
  const float halves[4] = {2.5f, -2.5f, 0.5f, 1.5f};
  int8_t out[4];
  floattoint8_rnd_neon(halves, out, 0, 4, 3, 1.0f);  // nearest, ties away from zero
  GIVES(out, 3, -3, 1, 2);
  floattoint8_rnd_neon(halves, out, 0, 4, 5, 1.0f);  // nearest, ties up
  GIVES(out, 3, -2, 1, 2);
  floattoint8_rnd_neon(halves, out, 0, 4, 8, 1.0f);  // nearest, ties to even
  GIVES(out, 2, -2, 0, 2);

  const float same[9] = {-2.7f, -2.7f, -2.7f, -2.7f, -2.7f, -2.7f, -2.7f, -2.7f, -2.7f};
  int8_t block_and_tail[9];
  floattoint8_rnd_neon(same, block_and_tail, 0, 9, 6, 1.0f);  // 8 in a block, 1 in the tail
  GIVES(block_and_tail, -3, -3, -3, -3, -3, -3, -3, -3, -2);
  //! [rounded_conversion]
}

static void zero_point_runs(void) {
  //! [zero_point_runs]
  const uint8_t in[3] = {10, 12, 7};
  float floats[3];
  uint8tofloat_1d_neon(in, floats, 3, 1, 10, 1.0f);  // one fraction bit, zero point 10
  GIVES(floats, 0.0f, 1.0f, -1.5f);

  const float same[9] = {-3.0f, -3.0f, -3.0f, -3.0f, -3.0f, -3.0f, -3.0f, -3.0f, -3.0f};
  uint8_t block_and_tail[9];
  floattouint8_1d_neon(same, block_and_tail, 9, 0, 10, 1.0f);  // a negative value leaves the zero point in a block
  GIVES(block_and_tail, 10, 10, 10, 10, 10, 10, 10, 10, 7);
  //! [zero_point_runs]
}

static void zero_point_tensors(void) {
  //! [zero_point_tensors]
  const int8_t in[2][8] = {{0, 1, 2, 3, 4, 5, 6, 7}, {10, 11, 12, 13, 14, 15, 16, 17}};
  float out[16];
  const uint32_t shape[6] = {8, 2, 1, 1, 1, 1}, stride[6] = {1, 8, 16, 16, 16, 16};  // elements
  int8tofloat_nd_neon(in[0], out, shape, stride, 0, 10, 0.5f);
  GIVES(out, -5.0f, -4.5f, -4.0f, -3.5f, -3.0f, -2.5f, -2.0f, -1.5f, 0.0f, 0.5f, 1.0f, 1.5f, 2.0f, 2.5f, 3.0f, 3.5f);
  //! [zero_point_tensors]
}

static void conversion_by_format(void) {
  //! [conversion_by_format]
  const uint8_t in[2] = {128, 255};
  const _NN_FMT fractions = format(8, 0, 0), sixteenths = format(4, 3, 1);
  const _NN_SCALE three_halves = scale(3, 1), half = scale(1, 1);
  float floats[2];
  tarvu_fixtofloat_neon(in, floats, 2, &fractions, &three_halves);
  GIVES(floats, 0.75f, 1.494140625f);

  int8_t out[2];
  tarvu_floattofix_neon(floats, out, 2, &sixteenths, &half);  // the scale multiplies here too
  GIVES(out, 6, 11);
  tarvu_floattofix_rnd_neon(floats, out, 2, &sixteenths, &half, 3);
  GIVES(out, 6, 12);
  //! [conversion_by_format]
}

void conversion_examples(void) {
  frame();
  reformat();
  flat_conversion();
  rounded_conversion();
  zero_point_runs();
  zero_point_tensors();
  conversion_by_format();
}
