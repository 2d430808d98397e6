// Calls of functions that take a run of elements: re-formatting, the flat conversions, the interleaving of bytes.
#include "tests/cases/cases.h"

namespace cases {

using namespace fuzz;

void draw_reformat(Source &source, Case &made) {
  const _NN_FMT in = some_format(source);
  const _NN_FMT out = one_in(source, 3) ? some_format(source) : some_format_beside(source, in);
  choose_function(made, "tarvu_convert_fmt_c");
  made.call.argument[2] = some_size(source, 300);
  made.call.argument[3] = keep(made, in);
  made.call.argument[4] = keep(made, out);
  made.call.argument[5] = keep(made, some_scale(source));
  made.call.argument[6] = keep(made, some_scale(source));
  if (one_in(source, 4)) {
    made.in_place = "destination";
    made.in_place_of = "source";
  }
}

void draw_flat_conversion(Source &source, Case &made) {
  static constexpr const char *kNames[] = {"floattouint32_neon", "floattoint32_neon", "floattouint16_neon",
                                           "floattoint16_neon",  "floattouint8_neon", "floattoint8_neon",
                                           "uint32tofloat_neon", "int32tofloat_neon", "uint16tofloat_neon",
                                           "int16tofloat_neon",  "uint8tofloat_neon", "int8tofloat_neon"};
  choose_function(made, one_of(source, kNames));
  const int32_t frac_bits = one_in(source, 8) ? pick(source, -32768, 32767) : pick(source, -20, 40);
  made.call.argument[2] = static_cast<uint64_t>(int64_t{frac_bits});
  made.call.argument[3] = one_in(source, 40) ? word(source) : some_size(source, 300);
  made.call.argument[4] = argument_of(some_float(source));
}

void draw_interleave(Source &source, Case &made) {
  choose_function(made, one_of(source, {"permute_data_in", "permute_data_out"}));
  made.call.argument[2] = one_in(source, 20) ? word(source) : below(source, 20);
  made.call.argument[3] = some_size(source, 300);
}

}  // namespace cases
