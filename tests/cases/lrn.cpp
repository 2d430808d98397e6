// Calls of LRN and of its kernels.
#include <algorithm>
#include <iterator>

#include "tests/cases/cases.h"

namespace cases {

using namespace fuzz;

void draw_lrn(Source &source, Case &made) {
  _NN_LRN_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = block.work_buffer = 0;
  block.width = some_extent(source, 300);
  block.height = some_extent(source, 300 / std::max<uint32_t>(block.width, 1));
  block.channel = static_cast<uint16_t>(one_in(source, 24) ? 0 : pick(source, 1, 9));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 1, 2, 1, 3, 0}));
  block.local_size = one_in(source, 8) ? below(source, 40) : one_of(source, {1u, 3u, 5u, 7u});
  block.lrn_k = pick(source, -1, 3);
  block.alpha = one_of(source, {1e-4f, 0.5f, 1.0f, some_float(source)});
  block.beta = one_of(source, {0.75f, 0.5f, 0.75f, some_float(source)});
  block.in_fmt = some_format(source);
  block.out_fmt = one_in(source, 3) ? block.in_fmt : some_format(source);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  const auto element = [](const _NN_FMT &fmt) { return width_of(fmt) == 8 ? 1u : width_of(fmt) == 16 ? 2u : 4u; };
  const uint32_t count = uint32_t{block.width} * block.height * block.channel;
  const auto padding = [&] { return one_in(source, 3) ? below(source, 40) : 0; };
  block.in_batch_ofs = count * element(block.in_fmt) + padding();
  block.out_batch_ofs = count * element(block.out_fmt) + padding();
  if (element(block.in_fmt) == element(block.out_fmt) && block.batch == 1 && one_in(source, 2)) {
    made.in_place = "out_addr";
    made.in_place_of = "in_addr";
  }
  set_block(made, "tarvu_lrn_process", block);
}

void draw_lrn_floats(Source &source, Case &made) {
  choose_function(made, one_in(source, 2) ? "tarvu_lrn_c_func" : "tarvu_lrn_neon_func");
  const uint32_t local_size = one_of(source, {1u, 3u, 5u, 9u, 2u});
  const uint32_t width = some_extent(source, 200);
  const float floats[] = {one_of(source, {1e-4f, 0.5f}), 0.75f};
  const uint64_t words[] = {1u + below(source, 3),
                            one_of(source, {0u, 1u, 1u, 2u, 1u}),
                            local_size,
                            1u + below(source, 6),
                            argument_of(floats[0]),
                            argument_of(floats[1]),
                            width,
                            some_extent(source, 200 / std::max(width, 1u)),
                            one_in(source, 20) ? local_size + 1 : (local_size - 1) / 2};
  std::copy(std::begin(words), std::end(words), made.call.argument + 4);
}

}  // namespace cases
