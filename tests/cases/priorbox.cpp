// Calls of prior boxes: the operator, and its forms on a working record.
#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

float some_side(Source &source) {
  return one_in(source, 8) ? some_float(source) : 300.0f * static_cast<float>(below(source, 1024)) / 1024.0f;
}

float some_ratio(Source &source) {
  if (one_in(source, 6)) return some_float(source);
  return one_of(source, {1.0f, 2.0f, 3.0f, 0.5f, 0.0f, 0x1.00001p0f, 0x1.000012p0f, 0x1.ffffe0p-1f});
}

void draw_process(Source &source, Case &made) {
  _NN_PRIORBOX_PARM block{};
  fill_bytes(source, &block, sizeof block);
  const auto positive = [&](uint32_t most) { return one_in(source, 40) ? 0 : 1 + below(source, most); };
  block.in_addr = block.out_addr = block.work_buffer = 0;
  block.in_width = positive(7);
  block.in_height = positive(5);
  block.img_width = positive(600);
  block.img_height = positive(600);
  for (float &side : block.min_sizes) side = some_side(source);
  for (float &side : block.max_sizes) side = some_side(source);
  for (float &ratio : block.aspect_ratios) ratio = some_ratio(source);
  block.min_size_num = positive(one_in(source, 40) ? 9 : 4);
  block.max_size_num = below(source, 5);
  block.aspect_ratios_num = positive(4);
  block.flip = one_of<uint8_t>(source, {0, 1, 2});
  block.clip = one_of<uint8_t>(source, {0, 1, 0x40});
  for (float &variance : block.variances) variance = some_float(source, 0.3f);
  block.variance_num = one_in(source, 30) ? 0 : one_of(source, {4u, 1u, 2u, 3u, 5u, 0x80000000u});
  block.variance_ofs = 4 * below(source, one_in(source, 4) ? 400 : 8000);
  set_block(made, "tarvu_priorbox_process", block);
}

void draw_form(Source &source, Case &made) {
  _NN_PRIORBOX_WORK work{};
  work.in_width = below(source, 6);
  work.in_height = below(source, 5);
  work.img_width = one_in(source, 8) ? word(source) : 1 + below(source, 600);
  work.img_height = one_in(source, 8) ? below(source, 2) : 1 + below(source, 600);
  for (float &side : work.min_sizes) side = some_side(source);
  for (float &side : work.max_sizes) side = some_side(source);
  for (float &ratio : work.ratio_list) ratio = some_ratio(source);
  work.min_size_num = below(source, 5);
  work.max_size_num = below(source, 5);
  work.ratio_count = below(source, one_in(source, 40) ? 14 : 11);
  work.clip = one_of<uint8_t>(source, {0, 1, 0x80});
  for (float &variance : work.variances) variance = some_float(source);
  work.num_priors = static_cast<int16_t>(one_in(source, 30) ? pick(source, -9, 0) : pick(source, 0, 14));
  work.offset = 0.5f;
  set_block(made, one_in(source, 2) ? "tarvu_priorbox_neon_func" : "tarvu_priorbox_c_func", work);
  struct Regions {
    uint64_t boxes = 0;
    uint64_t variances = 0;
  };
  made.call.argument[1] = keep(made, Regions{});
}

}  // namespace

void draw_priorbox(Source &source, Case &made) {
  if (one_in(source, 3)) return draw_form(source, made);
  draw_process(source, made);
}

}  // namespace cases
