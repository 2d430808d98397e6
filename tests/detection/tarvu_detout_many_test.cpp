// Detection output: thousands of candidates of one class, in orders that sorts stumble over.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/detection/small_stack.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace {

using support::Random;

constexpr size_t kPriors = 3000;
constexpr size_t kClasses = 2;
constexpr size_t kRows = 20;

/// One class with these scores behind a background without any. The boxes stand so close that most are suppressed,
/// which makes the suppression ask for many of them in order.
struct Crowd {
  std::vector<float> priors;
  std::vector<float> confidences;
  std::vector<float> locations;
  std::vector<uint8_t> scratch;

  explicit Crowd(const std::vector<float> &scores) : locations(4 * kPriors) {
    Random random(471);
    for (size_t p = 0; p < kPriors; ++p) {
      const float x = 0.25f * static_cast<float>(random.below(4)) + random.uniform(0.0f, 0.02f);
      const float y = 0.25f * static_cast<float>(random.below(3)) + random.uniform(0.0f, 0.02f);
      for (const float edge : {x, y, x + 0.125f, y + 0.125f}) priors.push_back(edge);
      confidences.push_back(-1.0f);
      confidences.push_back(scores[p]);
    }
    priors.resize(8 * kPriors, 0.1f);
    scratch.resize((40 + 4 * kClasses + 88 + 24) * kPriors);
  }

  template <class Process>
  std::vector<float> run(Process process) {
    std::vector<float> output(kRows * kClasses * 5, 777.0f);
    _NN_DETOUT_PARM block{};
    block.loc_addr = reinterpret_cast<uintptr_t>(locations.data());
    block.conf_addr = reinterpret_cast<uintptr_t>(confidences.data());
    block.prior_addr = reinterpret_cast<uintptr_t>(priors.data());
    block.out_addr = reinterpret_cast<uintptr_t>(output.data());
    block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
    block.batch = 1;
    block.loc_fmt = support::format(32, 0, 1);
    block.num_classes = kClasses;
    block.num_priors = kPriors;
    block.share_location = 1;
    block.code_type = 1;
    block.keep_top_k = kRows;
    block.confidence_threshold = 0.0f;
    block.nms_threshold = 0.45f;
    EXPECT_EQ(process(&block), QX_OK);
    return output;
  }

  void expect_twin() {
    std::vector<float> ours;
    small_stack::run([&] { ours = run(::tarvu_detout_process); });
    EXPECT_EQ(ours, run(reference::tarvu_detout_process));
    EXPECT_GT(ours[4], 0.0f);
  }
};

std::vector<float> rising() {
  std::vector<float> scores(kPriors);
  for (size_t i = 0; i < kPriors; ++i) scores[i] = static_cast<float>(i + 1) / static_cast<float>(kPriors);
  return scores;
}

TEST(DetectionOutputCrowd, RisingScoresAgreeWithTheTwin) { Crowd(rising()).expect_twin(); }

TEST(DetectionOutputCrowd, FallingScoresAgreeWithTheTwin) {
  std::vector<float> scores = rising();
  std::reverse(scores.begin(), scores.end());
  Crowd(scores).expect_twin();
}

TEST(DetectionOutputCrowd, EqualScoresAgreeWithTheTwin) { Crowd(std::vector<float>(kPriors, 0.75f)).expect_twin(); }

TEST(DetectionOutputCrowd, ScoresThatRiseAndFallAgreeWithTheTwin) {
  std::vector<float> scores = rising();
  std::reverse(scores.begin() + kPriors / 2, scores.end());
  Crowd(scores).expect_twin();
  for (size_t i = 0; i < kPriors / 2; ++i) scores[kPriors - 1 - i] = scores[i];
  Crowd(scores).expect_twin();
}

TEST(DetectionOutputCrowd, AFallingRunWithItsGreatestScoreAtTheEndAgreesWithTheTwin) {
  std::vector<float> scores = rising();
  std::reverse(scores.begin(), scores.end());
  scores.back() = 2.0f;
  Crowd(scores).expect_twin();
  scores.back() = 0.5f;
  Crowd(scores).expect_twin();
}

TEST(DetectionOutputCrowd, RandomScoresWithFewAndManyTiesAgreeWithTheTwin) {
  Random random = support::test_random(472);
  SCOPED_TRACE(random.trace());
  for (const uint32_t levels : {2u, 20u, 500u, 1000000u}) {
    std::vector<float> scores(kPriors);
    for (float &score : scores) score = static_cast<float>(1 + random.below(levels)) / static_cast<float>(levels);
    Crowd(scores).expect_twin();
    // Scores above 1.0 outlive suppressions.
    for (float &score : scores) score *= 3.0f;
    Crowd(scores).expect_twin();
  }
}

}  // namespace
