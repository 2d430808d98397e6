// Prior boxes, the whole detection output, FC post-processing, and the table of the family.
#include <algorithm>
#include <limits>

#include "tests/fuzz/makers.h"
#include "tests/fuzz/operators.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/reference/tarvu_fc_post_c_reference.h"
#include "tests/reference/tarvu_priorbox_reference.h"

namespace fuzz {
namespace {

using support::GuardedMemory;

// ---- Prior boxes

/// A value that a layer would hold, or now and then one that none would.
float some_number(Source &source, float first, float last) {
  if (one_in(source, 8)) return some_float(source);
  return first + (last - first) * static_cast<float>(below(source, 1024)) / 1024.0f;
}

float some_ratio(Source &source) {
  if (one_in(source, 6)) return some_number(source, 0.2f, 5.0f);
  return one_of(source, {1.0f, 2.0f, 3.0f, 0.5f, 0.0f, 0x1.00001p0f, 0x1.000012p0f, 0x1.ffffe0p-1f});
}

std::string run_priorbox_process(Source &source) {
  Trial trial{source, {}, {}};
  _NN_PRIORBOX_PARM block{};
  fill_bytes(source, &block, sizeof block);
  const auto positive = [&](uint32_t most) { return one_in(source, 40) ? 0 : 1 + below(source, most); };
  block.in_width = positive(7);
  block.in_height = positive(5);
  block.img_width = positive(600);
  block.img_height = positive(600);
  for (float &size : block.min_sizes) size = some_number(source, 0.0f, 300.0f);
  for (float &size : block.max_sizes) size = some_number(source, 0.0f, 300.0f);
  block.min_size_num = positive(4);
  block.max_size_num = below(source, 5);
  for (float &ratio : block.aspect_ratios) ratio = some_ratio(source);
  block.aspect_ratios_num = positive(4);
  block.flip = one_of<uint8_t>(source, {0, 1, 2});
  block.clip = one_of<uint8_t>(source, {0, 1, 0x40});
  for (float &variance : block.variances) variance = some_number(source, -0.1f, 0.3f);
  block.variance_num = one_in(source, 30) ? 0 : one_of(source, {4u, 1u, 2u, 3u, 5u, 0x80000000u});
  block.offset = one_in(source, 3) ? some_number(source, -1.0f, 2.0f) : 0.5f;
  const bool is_refused = block.in_width == 0 || block.in_height == 0 || block.img_width == 0 ||
                          block.img_height == 0 || block.min_size_num == 0 || block.aspect_ratios_num == 0 ||
                          block.variance_num == 0;
  // Boxes of a cell: up to 9 ratios and 2 sizes for each box size, and at most 13 that the clamp covers.
  const size_t cells = size_t{block.in_width} * block.in_height;
  const size_t region = is_refused ? 0 : 4 * cells * std::max(size_t{10} * block.min_size_num, size_t{13});
  block.variance_ofs = static_cast<uint32_t>(4 * region);
  block.out_addr = make_floats(trial, "output", 2 * region, 60.0f).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_priorbox_process));
}

template <class Product, class Twin>
std::string run_priorbox_kernel(Source &source, const char *name, Product product, Twin twin) {
  Trial trial{source, {}, {}};
  _NN_PRIORBOX_WORK work{};
  work.in_width = below(source, 6);
  work.in_height = below(source, 5);
  work.img_width = one_in(source, 8) ? word(source) : 1 + below(source, 600);
  work.img_height = one_in(source, 8) ? below(source, 2) : 1 + below(source, 600);
  for (float &size : work.min_sizes) size = some_number(source, 0.0f, 300.0f);
  for (float &size : work.max_sizes) size = some_number(source, 0.0f, 300.0f);
  work.min_size_num = below(source, 5);
  work.max_size_num = below(source, 5);
  work.ratio_count = below(source, 11);
  for (float &ratio : work.ratio_list) ratio = some_ratio(source);
  work.clip = one_of<uint8_t>(source, {0, 1, 0x80});
  work.flip = static_cast<uint8_t>(unread(source));
  for (float &variance : work.variances) variance = some_float(source);
  work.num_priors = static_cast<int16_t>(below(source, 14));
  work.offset = one_in(source, 3) ? some_number(source, -1.0f, 2.0f) : 0.5f;
  uint32_t sizes = work.min_size_num * (work.max_size_num != 0 ? 2u : 1u);
  for (uint32_t i = 0; i < work.ratio_count; ++i) {
    // A NaN is not near 1.0.
    const double distance = static_cast<double>(work.ratio_list[i]) - 1.0;
    if (!(distance < 1e-6 && distance > -1e-6)) sizes += work.min_size_num;
  }
  const size_t cells = size_t{work.in_width} * work.in_height;
  const auto covered = static_cast<size_t>(work.num_priors);
  const GuardedMemory &boxes = make_floats(trial, "boxes", 4 * cells * std::max<size_t>(sizes, covered), 2.0f);
  const GuardedMemory &variances = make_floats(trial, "variances", 4 * cells * covered, 2.0f);
  float *const regions[2] = {boxes.as<float>(), variances.as<float>()};
  return compare_calls(
      trial, name, [&] { return product(&work, regions); }, [&] { return twin(&work, regions); });
}

std::string run_priorbox_case(Source &source) {
  switch (below(source, 4)) {
    case 2:
      return run_priorbox_kernel(source, TARVU_TWINS(tarvu_priorbox_neon_func));
    case 3:
      return run_priorbox_kernel(source, TARVU_TWINS(tarvu_priorbox_c_func));
    default:
      return run_priorbox_process(source);
  }
}

// ---- Detection output

enum class Content { kDetector, kTies, kNasty };

/// Boxes of the priors with some that are equal, and their variances, for each item.
void fill_priors(support::Random &random, const GuardedMemory &memory, size_t item_bytes, size_t items, uint32_t priors,
                 Content content) {
  for (size_t i = 0; i < items; ++i) {
    uint8_t *item = memory.data() + i * item_bytes;
    for (uint32_t p = 0; p < priors; ++p) {
      float box[4];
      box[0] = random.uniform(-0.2f, 1.0f);
      box[1] = random.uniform(-0.2f, 1.0f);
      box[2] = box[0] + random.uniform(-0.05f, 0.6f);
      box[3] = box[1] + random.uniform(-0.05f, 0.6f);
      if (p > 0 && random.one_in(4)) std::memcpy(box, item + 16 * random.below(p), sizeof box);
      if (content == Content::kNasty && random.one_in(3)) random.fill_any_floats(box, 4);
      std::memcpy(item + 16 * p, box, sizeof box);
    }
    if (content == Content::kNasty) {
      random.fill_any_floats(item + 16 * priors, 4 * priors);
    } else {
      random.fill_floats(item + 16 * priors, 4 * priors, 0.0f, 0.3f);
    }
  }
}

void fill_confidences(support::Random &random, const GuardedMemory &memory, Content content) {
  for (size_t i = 0; i < memory.size() / 4; ++i) {
    float value = random.uniform(0.0f, 1.0f);
    if (content == Content::kTies) value = random.pick({0.0f, -0.0f, 0.25f, 0.5f, 0.75f, 1.0f, 1.5f, 2.0f, 3.0f});
    if (content == Content::kNasty) value = random.any_float();
    std::memcpy(memory.data() + 4 * i, &value, 4);
  }
}

std::string run_detout_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_DETOUT_PARM block{};
  fill_bytes(source, &block, sizeof block);
  const Content content = one_of(source, {Content::kDetector, Content::kTies, Content::kNasty});
  const uint32_t priors = some_size(source, one_in(source, 6) ? 140 : 33);
  const uint32_t classes = one_in(source, 8) ? below(source, 2) : 1 + below(source, 5);
  const bool shared = !one_in(source, 3);
  const uint32_t sets = shared ? 1 : classes;
  const bool eight_bits = one_in(source, 3);
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 0}));
  block.num_priors = static_cast<int32_t>(priors);
  block.num_classes = static_cast<int32_t>(classes);
  block.share_location = shared ? 1 : one_of(source, {0u, 2u, 0x101u});
  block.background_label_id = pick(source, -1, static_cast<int32_t>(classes));
  block.code_type = one_in(source, 8) ? pick(source, -1, 4) : pick(source, 0, 2);
  block.keep_top_k = pick(source, 0, 30);
  block.confidence_threshold =
      content == Content::kNasty ? some_float(source, 1.0f) : one_of(source, {0.5f, 0.0f, 0.01f, 0.75f, 1.0f});
  block.nms_threshold =
      content == Content::kNasty ? some_float(source, 1.0f) : one_of(source, {0.45f, 0.0f, 0.3f, 0.5f, 1.0f});
  const int sign = static_cast<int>(below(source, 3));
  block.loc_fmt = support::format(eight_bits ? 8 : one_of(source, {32, 16, 0, -8}), pick(source, -8, 12), sign);
  block.loc_scale = some_scale(source);

  const size_t location_bytes = size_t{eight_bits ? 4u : 16u * sets} * priors;
  const size_t location_step = location_bytes + (eight_bits ? below(source, 9) : 4 * below(source, 3));
  const size_t confidence_step = 4 * (size_t{priors} * classes + below(source, 3));
  const size_t prior_bytes = size_t{16} * priors * std::max(sets, 2u);
  const size_t prior_step = one_in(source, 3) ? 0 : prior_bytes + 4 * below(source, 3);
  const size_t rows = classes * size_t{20};
  const size_t output_step = 20 * rows + 4 * below(source, 3);
  const size_t items = std::max<size_t>(block.batch, 1);
  block.loc_batch_ofs = static_cast<uint32_t>(location_step);
  block.conf_batch_ofs = static_cast<uint32_t>(confidence_step);
  block.prior_batch_ofs = static_cast<uint32_t>(prior_step);
  block.out_batch_ofs = static_cast<uint32_t>(output_step);

  const GuardedMemory &locations =
      make_tensor(trial, "locations", (items - 1) * location_step + location_bytes, eight_bits ? 1 : 4, 3.0f);
  const GuardedMemory &confidences =
      make_memory(trial, (items - 1) * confidence_step + 4 * size_t{priors} * classes, Address::kFloats);
  const GuardedMemory &prior_memory = make_memory(trial, (items - 1) * prior_step + prior_bytes, Address::kFloats);
  support::Random random(word(source));
  fill_confidences(random, confidences, content);
  random.fill_floats(prior_memory.data(), prior_memory.size() / 4, 0.0f, 1.0f);
  fill_priors(random, prior_memory, prior_step, prior_step == 0 ? 1 : items, priors, content);
  trial.run.track(confidences, "confidences");
  trial.run.track(prior_memory, "priors");
  // The part that is cleared for every item may be longer than the records are.
  const size_t cleared = static_cast<size_t>(block.keep_top_k) * classes * 20;
  const GuardedMemory &output = make_floats(
      trial, "output", std::max((items - 1) * output_step + 20 * rows, (items - 1) * output_step + cleared) / 4, 8.0f);
  // What the scratch held is seen: unknown codes use it, and wide steps over converted locations read behind them.
  const size_t padded = (size_t{priors} + 3) / 4 * 4;
  const size_t beyond = eight_bits && sets > 1 ? size_t{16} * (sets - 1) * priors : 0;
  const GuardedMemory &scratch =
      make_memory(trial, (size_t{40} * sets + 4 * classes + 88) * priors + 24 * padded + beyond, Address::kFloats);
  random.fill_floats(scratch.data(), scratch.size() / 4, -0.5f, 1.5f);
  trial.run.track_scratch(scratch);
  block.loc_addr = locations.address();
  block.conf_addr = confidences.address();
  block.prior_addr = prior_memory.address();
  block.out_addr = output.address();
  block.work_buffer = scratch.address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_detout_process));
}

// ---- FC post-processing

/// Bytes from one element to the next; widths are sums modulo 256.
uint32_t step_of(const _NN_FMT &fmt) { return static_cast<uint8_t>(width_of(fmt)) / 8u; }

/// Bytes that one element touches: its own, or 4 where the type has no name.
uint32_t touched_bytes(const _NN_FMT &fmt) {
  const auto width = static_cast<uint8_t>(width_of(fmt));
  const bool named = (width == 8 || width == 16) && (fmt.sign_bits == 0 || fmt.sign_bits == 1);
  return named ? width / 8u : 4u;
}

_NN_SCALE some_multiplier(Source &source, bool extreme) {
  if (!extreme) return support::scale(pick(source, -2000, 2000), pick(source, -1, 12));
  const int32_t value = one_of(source, {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(), -1, 1,
                                        0, 1 << 30, static_cast<int32_t>(word(source))});
  return support::scale(value, one_of(source, {0, 1, -128, -64, -1, 31, 32, 62, 63, 64, 65, 127}));
}

std::string run_fc_post_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_FC_POST_PARM block{};
  fill_bytes(source, &block, sizeof block);
  const bool extreme = one_in(source, 3);
  block.width = some_extent(source, 300);
  block.height = static_cast<uint16_t>(one_in(source, 4) ? some_size(source, 70) : below(source, 10));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 0}));
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  if (one_in(source, 16)) fill_bytes(source, &block.in_fmt, sizeof block.in_fmt);
  if (one_in(source, 16)) fill_bytes(source, &block.out_fmt, sizeof block.out_fmt);
  block.mul_a = some_multiplier(source, extreme);
  block.mul_b = some_multiplier(source, extreme);
  block.neg_mul = some_multiplier(source, extreme);
  block.in_line_ofs = one_of(source, {block.width * step_of(block.in_fmt), 1u, 0u, below(source, 9)});
  const uint32_t last = block.width == 0 ? 0u : block.width - 1u;
  const uint32_t further_lines = block.height == 0 ? 0u : block.height - 1u;
  const uint32_t in_item =
      last * step_of(block.in_fmt) + further_lines * block.in_line_ofs + touched_bytes(block.in_fmt);
  const uint32_t out_item = last * step_of(block.out_fmt) + touched_bytes(block.out_fmt);
  const bool backwards = one_in(source, 3);
  const auto in_batch = static_cast<int32_t>(one_of(source, {in_item, below(source, in_item + 6)}));
  const auto out_batch = static_cast<int32_t>(out_item + below(source, 6));
  block.in_batch_ofs = backwards ? -in_batch : in_batch;
  block.out_batch_ofs = backwards ? -out_batch : out_batch;
  const uint32_t further_items = block.batch == 0 ? 0u : block.batch - 1u;
  const uint32_t in_reach = further_items * static_cast<uint32_t>(in_batch);
  const uint32_t out_reach = further_items * static_cast<uint32_t>(out_batch);
  const bool is_empty = block.width == 0 || block.batch == 0;
  const GuardedMemory &input = make_tensor(trial, "input", is_empty || block.height == 0 ? 0 : in_reach + in_item);
  const GuardedMemory &bias = make_memory(trial, is_empty ? 0 : size_t{block.width} * 4, Address::kFloats);
  support::Random random(word(source));
  for (size_t i = 0; i < bias.size(); i += 4) {
    const int32_t wide = random.pick({std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(),
                                      static_cast<int32_t>(random.next())});
    const int32_t correction = random.one_in(6) ? wide : random.between(-3000, 3000);
    std::memcpy(bias.data() + i, &correction, 4);
  }
  trial.run.track(bias, "corrections");
  const GuardedMemory &output = make_tensor(trial, "output", is_empty ? 0 : out_reach + out_item);
  block.in_addr = input.address() + (backwards && input.size() != 0 ? in_reach : 0);
  block.out_addr = output.address() + (backwards && output.size() != 0 ? out_reach : 0);
  block.bias_addr = bias.address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_fc_post_process));
}

}  // namespace

std::span<const Operator> detection_operators() {
  static const Operator operators[] = {
      {"priorbox", run_priorbox_case, {"tarvu_priorbox_process", "tarvu_priorbox_neon_func", "tarvu_priorbox_c_func"}},
      {"detout", run_detout_case, {"tarvu_detout_process"}},
      {"detout_steps",
       run_detout_steps_case,
       {"DecodeBBoxes", "nonmax_suppress", "quick_sort", "calc_area", "check_overlap"}},
      {"nms", run_nms_case, {"tarvu_nms_process", "nms_process_c", "q_sort"}},
      {"fc_post", run_fc_post_case, {"tarvu_fc_post_process"}},
  };
  return operators;
}

}  // namespace fuzz
