// Calls of PReLU and its kernels.
#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

int8_t some_shift(Source &source) {
  if (!one_in(source, 3)) return static_cast<int8_t>(pick(source, 0, 12));
  return one_of<int8_t>(source, {31, 32, 33, 64, 127, -1, -7, -8, -15, -16, -17, -31, -32, -33, -128});
}

void choose_place(Source &source, Case &made, const char *in, const char *out) {
  if (!one_in(source, 4)) return;
  made.in_place = out;
  made.in_place_of = in;
}

}  // namespace

void draw_prelu(Source &source, Case &made) {
  _NN_PRELU_PARM block = {};
  block.width = some_extent(source, 300);
  block.height = some_extent(source, block.width > 33 ? 3 : 9);
  block.channels = some_extent(source, 12);
  block.num = one_of(source, {1u, 2u, 3u, 0xFFFFFFFFu});
  if (one_in(source, 20)) block.num = 0;
  block.in_fmt = some_format(source);
  block.reserved_0 = unread(source);
  block.shift = some_shift(source);
  set_block(made, "tarvu_prelu_process", block);
  choose_place(source, made, "in_addr", "out_addr");
}

void draw_prelu_slope(Source &source, Case &made) {
  choose_function(made, one_of(source, {"tarvu_prelu_neon_func_int8", "tarvu_prelu_neon_func_int16"}));
  made.call.argument[2] = static_cast<uint64_t>(int64_t{pick(source, -128, 127)});
  made.call.argument[3] = some_size(source, 200);
  made.call.argument[4] = static_cast<uint64_t>(int64_t{some_shift(source)});
  choose_place(source, made, "in", "out");
}

void draw_prelu_lookup(Source &source, Case &made) {
  choose_function(made, one_of(source, {"tarvu_prelu_c_func_int8", "tarvu_prelu_c_func_int16"}));
  const uint32_t plane = 1 + below(source, 17);
  uint32_t modulus = plane * (1 + below(source, 6));
  int32_t divisor_a = 1;
  uint32_t divisor_b = plane;
  if (one_in(source, 3)) {
    modulus = one_of(source, {0u, 1u, 7u, 100u, 0xFFFFFFFFu, 0xFFFFFFE0u});
    divisor_a = one_of(source, {0, 1, 3, -1, -2, -2147483647 - 1});
    divisor_b = one_of(source, {0u, 1u, 5u, 0x10000000u});
  }
  const int32_t count = one_in(source, 12) ? pick(source, -3, 0) : static_cast<int32_t>(some_size(source, 200));
  made.call.argument[3] = modulus;
  made.call.argument[4] = static_cast<uint64_t>(int64_t{some_shift(source)});
  made.call.argument[5] = static_cast<uint64_t>(int64_t{count});
  made.call.argument[6] = static_cast<uint64_t>(int64_t{divisor_a});
  made.call.argument[7] = divisor_b;
  choose_place(source, made, "in", "out");
}

}  // namespace cases
