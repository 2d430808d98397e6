// Calls of Norm and of layer normalisation.
#include <algorithm>

#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

constexpr uint32_t kMostElements = 1200;

uint32_t element_of(const _NN_FMT &fmt) { return width_of(fmt) == 8 ? 1 : width_of(fmt) == 16 ? 2 : 4; }

template <class Block>
void draw_head(Source &source, Block &block) {
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = block.work_buffer = 0;
  block.width = some_extent(source, kMostElements);
  block.height = some_extent(source, kMostElements / std::max<uint32_t>(block.width, 1));
  block.channel = some_extent(source, kMostElements / std::max<uint32_t>(block.width * block.height, 1));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 1, 2, 3, 1, 0}));
  block.in_fmt = some_format(source);
  block.out_fmt = one_in(source, 3) ? block.in_fmt : some_format(source);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  block.eps = one_of(source, {0.0f, 1e-5f, 0.5f});
}

/// The output lies where the input does, now and then.
template <class Block>
bool shares_memory(Source &source, Case &made, const Block &block) {
  const bool is_small = element_of(block.in_fmt) != 4 && block.in_fmt.sign_bits >= 0 && block.in_fmt.sign_bits <= 1;
  const bool is_read = is_small || width_of(block.in_fmt) == 32;
  if (!is_read || element_of(block.in_fmt) != element_of(block.out_fmt) || !one_in(source, 3)) return false;
  made.in_place = "out_addr";
  made.in_place_of = "in_addr";
  return true;
}

/// Gamma or beta, or the mark of absence.
uint64_t some_learned(Source &source, Case &made, const char *field) {
  if (!one_in(source, 3)) return 0;
  made.null_fields.push_back(field);
  return TARVU_LAYERNORM_ABSENT;
}

}  // namespace

void draw_norm(Source &source, Case &made) {
  _NN_NORM_PARM block{};
  draw_head(source, block);
  block.scale_addr = 0;
  block.norm_whole_item = one_of<uint8_t>(source, {0, 1, 255});
  block.shared_scale = one_of<uint8_t>(source, {0, 1, 128});
  const uint32_t count = uint32_t{block.width} * block.height * block.channel;
  const auto padding = [&] { return one_in(source, 3) ? below(source, 40) : 0; };
  block.in_batch_ofs = count * element_of(block.in_fmt) + padding();
  block.out_batch_ofs = count * element_of(block.out_fmt) + padding();
  if (shares_memory(source, made, block)) block.out_batch_ofs = block.in_batch_ofs;
  set_block(made, "tarvu_norm_process", block);
}

void draw_layernorm(Source &source, Case &made) {
  _NN_LAYERNORM_PARM block{};
  draw_head(source, block);
  block.gamma_addr = some_learned(source, made, "gamma_addr");
  block.beta_addr = some_learned(source, made, "beta_addr");
  block.axis = one_of(source, {1, 2, 3, 1, 2, 3, -1, -2, -3, -4, 0, 4, 127, -5});
  shares_memory(source, made, block);
  set_block(made, one_in(source, 2) ? "tarvu_layernorm_process_neon" : "tarvu_layernorm_process", block);
}

}  // namespace cases
