// Calls of the detection output.
#include <algorithm>

#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

/// Boxes that overlap now and then, the variances behind them.
void draw_priors(Source &source, Case &made, uint32_t priors) {
  Contents &contents = made.contents.emplace_back("prior_addr", std::vector<uint8_t>(32 * size_t{priors}));
  for (uint32_t p = 0; p < priors; ++p) {
    const auto part = [&] { return static_cast<float>(below(source, 64)) / 64.0f; };
    float box[4] = {part() - 0.2f, part() - 0.2f, 0.0f, 0.0f};
    box[2] = box[0] + part() * 0.5f;
    box[3] = box[1] + part() * 0.5f;
    const float variances[4] = {0.1f, 0.1f, 0.2f, 0.2f};
    std::memcpy(contents.bytes.data() + 16 * p, box, sizeof box);
    std::memcpy(contents.bytes.data() + 16 * (priors + p), variances, sizeof variances);
  }
}

}  // namespace

void draw_detout(Source &source, Case &made) {
  _NN_DETOUT_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.loc_addr = block.conf_addr = block.prior_addr = block.out_addr = block.work_buffer = 0;
  const uint32_t priors = some_size(source, one_in(source, 6) ? 140 : 33);
  const uint32_t classes = one_in(source, 8) ? below(source, 2) : 1 + below(source, 5);
  const bool shared = !one_in(source, 3);
  const uint32_t sets = shared ? 1 : classes;
  const bool eight_bits = one_in(source, 3);
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 0}));
  block.num_priors = one_in(source, 40) ? -static_cast<int32_t>(priors) : static_cast<int32_t>(priors);
  block.num_classes = one_in(source, 40) ? -static_cast<int32_t>(classes) : static_cast<int32_t>(classes);
  block.share_location = shared ? 1 : one_of(source, {0u, 2u, 0x101u});
  block.background_label_id = pick(source, -1, static_cast<int32_t>(classes));
  block.code_type = one_in(source, 12) ? pick(source, -1, 4) : pick(source, 0, 2);
  block.keep_top_k = one_in(source, 30) ? -3 : pick(source, 0, 30);
  block.confidence_threshold = one_of(source, {0.5f, 0.0f, 0.01f, 0.75f, 1.0f});
  block.nms_threshold = one_of(source, {0.45f, 0.0f, 0.3f, 0.5f, 1.0f});
  block.loc_fmt =
      support::format(eight_bits ? 8 : one_of(source, {32, 16, 0, -8}), pick(source, 0, 6), one_of(source, {1, 0, 2}));
  block.loc_scale = some_scale(source);
  const uint32_t location_bytes = (eight_bits ? 4 : 16 * sets) * priors;
  block.loc_batch_ofs = location_bytes + (eight_bits ? below(source, 9) : 4 * below(source, 3));
  block.conf_batch_ofs = 4 * (priors * classes + below(source, 3));
  block.prior_batch_ofs = one_in(source, 2) ? 0 : 16 * priors * std::max(sets, 2u) + 4 * below(source, 3);
  block.out_batch_ofs = 4 * (one_in(source, 4) ? below(source, 99) : 100 * classes + below(source, 9));
  draw_priors(source, made, priors);
  Contents &scores = made.contents.emplace_back("conf_addr", std::vector<uint8_t>());
  const uint32_t count = (block.batch == 0 ? 0 : block.batch - 1u) * block.conf_batch_ofs / 4 + priors * classes;
  scores.bytes.resize(4 * size_t{count});
  const uint32_t few = one_in(source, 2) ? 1 : 6;
  for (uint32_t i = 0; i < count; ++i) {
    const float score = one_in(source, few) ? static_cast<float>(below(source, 65)) / 64.0f : -1.0f;
    std::memcpy(scores.bytes.data() + 4 * size_t{i}, &score, 4);
  }
  set_block(made, "tarvu_detout_process", block);
}

}  // namespace cases
