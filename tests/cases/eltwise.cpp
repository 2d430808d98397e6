// Calls of Eltwise.
#include "tests/cases/cases.h"

namespace cases {

using namespace fuzz;

void draw_eltwise(Source &source, Case &made) {
  _NN_ELTWISE_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in0_addr = block.in1_addr = block.out_addr = block.work_buffer = 0;
  block.width = some_extent(source, 70);
  block.height = some_extent(source, block.width > 40 ? 4 : 17);
  block.channel = static_cast<uint16_t>(one_of(source, {1, 2, 3, 1, 2, 0}));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 1, 1, 0}));
  block.in0_fmt = some_format(source);
  block.in1_fmt = some_format(source);
  block.out_fmt = one_in(source, 3) ? block.in0_fmt : some_format(source);
  block.in0_scale = some_scale(source);
  block.in1_scale = some_scale(source);
  block.out_scale = some_scale(source);
  block.op = one_in(source, 10) ? static_cast<int32_t>(word(source)) : pick(source, 0, 1);
  block.coeff0 = one_of(source, {1.0f, 1.0f, 0.5f, some_float(source)});
  block.coeff1 = one_of(source, {1.0f, -1.0f, 0.25f, some_float(source)});
  const auto element = [](const _NN_FMT &fmt) { return width_of(fmt) == 8 ? 1u : width_of(fmt) == 16 ? 2u : 4u; };
  const auto steps = [&](const _NN_FMT &fmt) {
    return some_steps(source, block.width * element(fmt), block.height, block.channel);
  };
  const Steps in0 = steps(block.in0_fmt);
  const Steps in1 = steps(block.in1_fmt);
  Steps out = steps(block.out_fmt);
  const bool is_small = element(block.in0_fmt) != 4 && block.in0_fmt.sign_bits >= 0 && block.in0_fmt.sign_bits <= 1;
  const bool is_read = is_small || width_of(block.in0_fmt) == 32;
  if (is_read && element(block.in0_fmt) == element(block.out_fmt) && one_in(source, 3)) {
    out = in0;
    made.in_place = "out_addr";
    made.in_place_of = "in0_addr";
  }
  block.in0_line_ofs = in0.line;
  block.in0_channel_ofs = in0.channel;
  block.in0_batch_ofs = in0.batch;
  block.in1_line_ofs = in1.line;
  block.in1_channel_ofs = in1.channel;
  block.in1_batch_ofs = in1.batch;
  block.out_line_ofs = out.line;
  block.out_channel_ofs = out.channel;
  block.out_batch_ofs = out.batch;
  set_block(made, "tarvu_eltwise_process", block);
}

}  // namespace cases
