// Calls of the rounded and the zero-point conversions, and of the conversions by format.
#include <utility>

#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

uint64_t some_frac_bits(Source &source) {
  const int32_t frac_bits = one_in(source, 8) ? pick(source, -32768, 32767) : pick(source, -20, 40);
  return static_cast<uint64_t>(int64_t{frac_bits});
}

uint64_t some_zero_point(Source &source) {
  const int32_t zero_point = one_in(source, 6) ? static_cast<int32_t>(word(source)) : pick(source, -300, 300);
  return static_cast<uint64_t>(int64_t{zero_point});
}

uint32_t some_code(Source &source) { return one_in(source, 12) ? word(source) : below(source, 13); }

uint32_t some_count(Source &source) { return one_in(source, 40) ? word(source) : some_size(source, 300); }

struct Dimensions {
  uint32_t at[6];
};

/// Short lines and long ones, back to back, padded, permuted or anything small.
void draw_shape(Source &source, Case &made, int first) {
  Dimensions shape;
  Dimensions stride;
  shape.at[0] = some_extent(source, 70);
  for (int k = 1; k < 6; ++k) shape.at[k] = one_in(source, 2) ? 1 + below(source, 4) : 1;
  if (one_in(source, 12)) shape.at[below(source, 6)] = 0;
  if (one_in(source, 12)) shape.at[below(source, 6)] += 0x10000 * (1 + below(source, 0xFFFF));
  uint32_t reach = shape.at[0] & 0xFFFF;
  stride.at[0] = unread(source);
  for (int k = 1; k < 6; ++k) {
    stride.at[k] = reach + (one_in(source, 3) ? below(source, 20) : 0);
    reach = (shape.at[k] & 0xFFFF) * stride.at[k];
  }
  if (one_in(source, 5)) std::swap(stride.at[1], stride.at[2]);
  if (one_in(source, 8)) stride.at[1 + below(source, 5)] = below(source, 300);
  made.call.argument[first] = keep(made, shape);
  made.call.argument[first + 1] = keep(made, stride);
}

}  // namespace

void draw_conversion(Source &source, Case &made) {
  static constexpr const char *kRounded[] = {"floattouint32_rnd_neon", "floattoint32_rnd_neon",
                                             "floattouint16_rnd_neon", "floattoint16_rnd_neon",
                                             "floattouint8_rnd_neon",  "floattoint8_rnd_neon"};
  static constexpr const char *kRuns[] = {"int8tofloat_1d_neon",   "uint8tofloat_1d_neon", "int16tofloat_1d_neon",
                                          "uint16tofloat_1d_neon", "floattoint8_1d_neon",  "floattouint8_1d_neon",
                                          "floattoint16_1d_neon",  "floattouint16_1d_neon"};
  static constexpr const char *kTensors[] = {"int8tofloat_nd_neon",   "uint8tofloat_nd_neon", "int16tofloat_nd_neon",
                                             "uint16tofloat_nd_neon", "floattoint8_nd_neon",  "floattouint8_nd_neon",
                                             "floattoint16_nd_neon",  "floattouint16_nd_neon"};
  const uint32_t family = below(source, 3);
  const uint64_t frac_bits = some_frac_bits(source);
  const uint64_t scale = argument_of(some_float(source));
  uint64_t *argument = made.call.argument;
  if (family == 0) {
    choose_function(made, one_of(source, kRounded));
    argument[2] = frac_bits;
    argument[3] = some_count(source);
    argument[4] = some_code(source);
    argument[5] = scale;
  } else if (family == 1) {
    choose_function(made, one_of(source, kRuns));
    argument[2] = some_count(source);
    argument[3] = frac_bits;
    argument[4] = some_zero_point(source);
    argument[5] = scale;
  } else {
    choose_function(made, one_of(source, kTensors));
    draw_shape(source, made, 2);
    argument[4] = frac_bits;
    argument[5] = some_zero_point(source);
    argument[6] = scale;
  }
}

void draw_conversion_by_format(Source &source, Case &made) {
  static constexpr const char *kNames[] = {
      "tarvu_fixtofloat_neon",    "tarvu_floattofix_neon",    "tarvu_floattofix_rnd_neon", "tarvu_fixtofloat_1d_neon",
      "tarvu_floattofix_1d_neon", "tarvu_fixtofloat_nd_neon", "tarvu_floattofix_nd_neon"};
  const uint32_t entry = below(source, 7);
  const bool is_tensor = entry >= 5;
  choose_function(made, kNames[entry]);
  uint64_t *argument = made.call.argument;
  if (is_tensor) draw_shape(source, made, 2);
  if (!is_tensor) argument[2] = some_count(source);
  const int format = is_tensor ? 4 : 3;
  argument[format] = keep(made, some_format(source));
  argument[format + 1] = keep(made, some_scale(source));
  if (entry == 2) argument[5] = some_code(source);
  if (entry > 2) argument[format + 2] = some_zero_point(source);
}

}  // namespace cases
