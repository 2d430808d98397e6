// Detection output: the whole tail of a detector against the plain twin.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/reference/tarvu_priorbox_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace {

using support::Element;
using support::GuardedMemory;
using support::Random;

enum class Content { kDetector, kTies, kNasty };

float confidence(Random &random, Content content) {
  if (content == Content::kTies) return random.pick({0.0f, -0.0f, 0.25f, 0.5f, 0.75f, 1.0f, 1.5f, 2.0f, 3.0f});
  if (content == Content::kNasty) return random.any_float();
  return random.uniform(0.0f, 1.0f);
}

void fill_priors(Random &random, const GuardedMemory &memory, size_t item_bytes, size_t items, size_t priors,
                 Content content) {
  for (size_t i = 0; i < items; ++i) {
    uint8_t *item = memory.data() + i * item_bytes;
    for (size_t p = 0; p < priors; ++p) {
      float box[4];
      box[0] = random.uniform(-0.2f, 1.0f);
      box[1] = random.uniform(-0.2f, 1.0f);
      box[2] = box[0] + random.uniform(-0.05f, 0.6f);
      box[3] = box[1] + random.uniform(-0.05f, 0.6f);
      if (p > 0 && random.one_in(4)) std::memcpy(box, item + 16 * random.below(static_cast<uint32_t>(p)), sizeof box);
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

/// Runs one random case; `largest` bounds the priors.
void run_case(Random &random, uint32_t largest) {
  support::Case<_NN_DETOUT_PARM> detector;
  _NN_DETOUT_PARM &block = detector.block;
  random.fill(&block, sizeof block);
  const Content content = random.pick({Content::kDetector, Content::kTies, Content::kNasty});
  const uint32_t priors = random.below(largest + 1);
  const uint32_t classes = random.one_in(8) ? random.below(2) : 1 + random.below(5);
  const bool shared = !random.one_in(3);
  const uint32_t sets = shared ? 1 : classes;
  const bool eight_bits = random.one_in(3);
  block.batch = static_cast<uint16_t>(random.one_in(10) ? 0 : 1 + random.below(3));
  block.num_priors = static_cast<int32_t>(priors);
  block.num_classes = static_cast<int32_t>(classes);
  block.share_location = shared ? 1 : random.pick({0u, 2u, 0x101u});
  block.background_label_id = random.between(-1, static_cast<int32_t>(classes));
  block.code_type = random.one_in(8) ? random.between(-1, 4) : random.between(0, 2);
  block.keep_top_k = random.between(0, 30);
  block.confidence_threshold =
      content == Content::kNasty ? random.any_float() : random.pick({0.0f, 0.01f, 0.5f, 0.75f, 1.0f});
  block.nms_threshold = content == Content::kNasty ? random.any_float() : random.pick({0.0f, 0.3f, 0.45f, 0.5f, 1.0f});
  const int sign = static_cast<int>(random.below(3));
  block.loc_fmt = support::format(eight_bits ? 8 : random.pick({16, 32, 0, -8}), random.between(-8, 12), sign);
  block.loc_scale =
      support::scale(random.between(-5, 100), random.one_in(4) ? random.between(-128, 127) : random.between(-6, 12));

  // Offsets of whole floats, or of any number of bytes where the locations are bytes.
  const size_t location_bytes = size_t{eight_bits ? 4u : 16u * sets} * priors;
  const size_t location_step = location_bytes + (eight_bits ? random.below(9) : 4 * random.below(3));
  const size_t confidence_step = 4 * (size_t{priors} * classes + random.below(3));
  const size_t prior_bytes = size_t{16} * priors * std::max(sets, 2u);
  const size_t prior_step = random.one_in(3) ? 0 : prior_bytes + 4 * random.below(3);
  const size_t rows = classes * size_t{20};
  const size_t output_step = 20 * rows + 4 * random.below(3);
  const size_t items = std::max<size_t>(block.batch, 1);
  block.loc_batch_ofs = static_cast<uint32_t>(location_step);
  block.conf_batch_ofs = static_cast<uint32_t>(confidence_step);
  block.prior_batch_ofs = static_cast<uint32_t>(prior_step);
  block.out_batch_ofs = static_cast<uint32_t>(output_step);

  const support::Placement placement{.alignment = 4};
  const GuardedMemory locations((items - 1) * location_step + location_bytes, {.alignment = eight_bits ? 1u : 4u});
  const GuardedMemory confidences((items - 1) * confidence_step + 4 * size_t{priors} * classes, placement);
  const GuardedMemory prior_memory((items - 1) * prior_step + prior_bytes, placement);
  const GuardedMemory output(std::max((items - 1) * output_step + 20 * rows, size_t{30} * classes * 20), placement);
  if (eight_bits || content == Content::kNasty) {
    random.fill(locations.data(), locations.size());
  } else {
    random.fill_floats(locations.data(), locations.size() / 4, -3.0f, 3.0f);
  }
  for (size_t i = 0; i < confidences.size() / 4; ++i) {
    const float value = confidence(random, content);
    std::memcpy(confidences.data() + 4 * i, &value, 4);
  }
  random.fill_floats(prior_memory.data(), prior_memory.size() / 4, 0.0f, 1.0f);
  fill_priors(random, prior_memory, prior_step, prior_step == 0 ? 1 : items, priors, content);
  random.fill_any_floats(output.data(), output.size() / 4);
  detector.attach(&_NN_DETOUT_PARM::loc_addr, locations, "locations");
  detector.attach(&_NN_DETOUT_PARM::conf_addr, confidences, "confidences");
  detector.attach(&_NN_DETOUT_PARM::prior_addr, prior_memory, "priors");
  detector.attach(&_NN_DETOUT_PARM::out_addr, output, "output", Element::kFloat);

  // Both start from the same scratch content: unknown codes and wide steps over converted locations read what it holds.
  const size_t padded = (size_t{priors} + 3) / 4 * 4;
  const size_t beyond = eight_bits && sets > 1 ? size_t{16} * (sets - 1) * priors : 0;
  const GuardedMemory scratch((size_t{40} * sets + 4 * classes + 88) * priors + 24 * padded + beyond, placement);
  std::vector<uint8_t> start(scratch.size());
  random.fill_floats(start.data(), start.size() / 4, -0.5f, 1.5f);
  block.work_buffer = scratch.address();
  const auto call = [&](auto process) {
    return [&, process](const _NN_DETOUT_PARM *parm) {
      if (!start.empty()) std::memcpy(scratch.data(), start.data(), start.size());
      return process(parm);
    };
  };
  ASSERT_TRUE(detector.same(call(::tarvu_detout_process), call(reference::tarvu_detout_process)));
  ASSERT_EQ(scratch.guard_damage(), "");
}

TEST(DetectionOutputRandom, SmallDetectorsAgreeWithTheTwin) {
  Random random = support::test_random(441);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(round);
    run_case(random, 12);
    if (HasFatalFailure()) return;
  }
}

TEST(DetectionOutputRandom, LargerDetectorsAgreeWithTheTwin) {
  Random random = support::test_random(442);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 150; ++round) {
    SCOPED_TRACE(round);
    run_case(random, 300);
    if (HasFatalFailure()) return;
  }
}

TEST(DetectionOutputRandom, PriorBoxesFeedTheDetectionOutputAsInATwin) {
  Random random = support::test_random(443);
  SCOPED_TRACE(random.trace());
  constexpr uint32_t kSide = 10;
  constexpr size_t kPriors = kSide * kSide * 4;
  constexpr size_t kClasses = 3;
  _NN_PRIORBOX_PARM prior_block{};
  prior_block.in_width = kSide;
  prior_block.in_height = kSide;
  prior_block.img_width = 300;
  prior_block.img_height = 300;
  prior_block.min_sizes[0] = 60.0f;
  prior_block.max_sizes[0] = 111.0f;
  prior_block.min_size_num = 1;
  prior_block.max_size_num = 1;
  prior_block.aspect_ratios[0] = 2.0f;
  prior_block.aspect_ratios_num = 1;
  prior_block.flip = 1;
  prior_block.clip = 1;
  const float variances[4] = {0.1f, 0.1f, 0.2f, 0.2f};
  std::memcpy(prior_block.variances, variances, sizeof variances);
  prior_block.variance_num = 4;
  prior_block.offset = 0.5f;
  prior_block.variance_ofs = 16 * kPriors;

  const support::Placement placement{.alignment = 4};
  const GuardedMemory priors(32 * kPriors, placement);
  const GuardedMemory locations(16 * kPriors, placement);
  const GuardedMemory confidences(4 * kPriors * kClasses, placement);
  const GuardedMemory scratch((40 + 4 * kClasses + 88) * kPriors + 24 * kPriors, placement);
  const GuardedMemory output(20 * kClasses * 20, placement);
  priors.fill(0);
  output.fill(0x55);
  random.fill_floats(locations.data(), 4 * kPriors, -2.0f, 2.0f);
  random.fill_floats(confidences.data(), kPriors * kClasses, 0.0f, 1.0f);
  prior_block.out_addr = priors.address();

  support::Case<_NN_DETOUT_PARM> detector;
  detector.block.batch = 1;
  detector.block.loc_fmt = support::format(32, 0, 1);
  detector.block.num_classes = kClasses;
  detector.block.num_priors = kPriors;
  detector.block.share_location = 1;
  detector.block.keep_top_k = 20;
  detector.block.confidence_threshold = 0.3f;
  detector.block.nms_threshold = 0.45f;
  detector.attach(&_NN_DETOUT_PARM::prior_addr, priors, "priors", Element::kFloat);
  detector.attach(&_NN_DETOUT_PARM::loc_addr, locations, "locations");
  detector.attach(&_NN_DETOUT_PARM::conf_addr, confidences, "confidences");
  detector.attach(&_NN_DETOUT_PARM::out_addr, output, "output", Element::kFloat);
  detector.block.work_buffer = scratch.address();
  const auto tail = [&](auto prior_box, auto detection_output) {
    return [&, prior_box, detection_output](const _NN_DETOUT_PARM *parm) {
      const _QX_RESULT result = prior_box(&prior_block);
      return result == QX_OK ? detection_output(parm) : result;
    };
  };
  EXPECT_TRUE(detector.same(tail(::tarvu_priorbox_process, ::tarvu_detout_process),
                            tail(reference::tarvu_priorbox_process, reference::tarvu_detout_process)));
  float scores[kClasses - 1];
  std::memcpy(&scores[0], output.data() + 16, 4);
  std::memcpy(&scores[1], output.data() + 20 * 20 + 16, 4);
  for (const float score : scores) EXPECT_GT(score, 0.9f);
}

}  // namespace
