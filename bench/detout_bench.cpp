#include <algorithm>
#include <tuple>

#include "bench/bench.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

constexpr uint32_t kPriors = 8732;
constexpr uint32_t kClasses = 21;

/// Priors of six feature maps: boxes of all sizes all over the image, then their variances.
std::shared_ptr<float[]> detector_priors() {
  std::shared_ptr<float[]> priors = make_buffer<float>(size_t{kPriors} * 8);
  support::Random random(41);
  for (size_t p = 0; p < kPriors; ++p) {
    const float half_width = random.uniform(0.02f, 0.3f);
    const float half_height = half_width * random.uniform(0.5f, 2.0f);
    const float x = random.uniform(0.0f, 1.0f);
    const float y = random.uniform(0.0f, 1.0f);
    const float box[4] = {x - half_width, y - half_height, x + half_width, y + half_height};
    const float variance[4] = {0.1f, 0.1f, 0.2f, 0.2f};
    std::copy(box, box + 4, &priors[4 * p]);
    std::copy(variance, variance + 4, &priors[4 * (kPriors + p)]);
  }
  return priors;
}

/// Rows that add up to 1, as softmax gives them: the background has what the objects leave, and one score of an object
/// in 100 is at least 0.3.
std::shared_ptr<float[]> detector_confidences() {
  std::shared_ptr<float[]> confidences = make_buffer<float>(size_t{kPriors} * kClasses);
  support::Random random(42);
  for (size_t p = 0; p < kPriors; ++p) {
    float *row = &confidences[p * kClasses];
    for (size_t c = 1; c < kClasses; ++c) row[c] = random.uniform(0.0f, 0.01f);
    if (random.one_in(5)) row[1 + random.below(kClasses - 1)] = random.uniform(0.3f, 0.8f);
    row[0] = 1.0f;
    for (size_t c = 1; c < kClasses; ++c) row[0] -= row[c];
  }
  return confidences;
}

Workload detection_output(const char *name) {
  const auto prepare = [] {
    const std::shared_ptr<int8_t[]> locations = random_buffer<int8_t>(size_t{kPriors} * 4, 43);
    const std::shared_ptr<float[]> confidences = detector_confidences();
    const std::shared_ptr<float[]> priors = detector_priors();
    const std::shared_ptr<float[]> out = make_buffer<float>(size_t{kClasses} * 20 * 5);
    const std::shared_ptr<uint8_t[]> scratch =
        make_buffer<uint8_t>((128 + 4 * kClasses) * kPriors + 24 * (kPriors + 3));
    _NN_DETOUT_PARM parm{};
    parm.loc_addr = address_of(locations);
    parm.conf_addr = address_of(confidences);
    parm.prior_addr = address_of(priors);
    parm.out_addr = address_of(out);
    parm.work_buffer = address_of(scratch);
    parm.batch = 1;
    parm.loc_fmt = support::format(8, 5, 1);
    parm.loc_scale = support::scale(3, 2);
    parm.num_classes = kClasses;
    parm.num_priors = kPriors;
    parm.share_location = 1;
    parm.keep_top_k = 20;
    parm.confidence_threshold = 0.3f;
    parm.nms_threshold = 0.45f;
    // The calls hold the buffers, whose addresses alone are in the block.
    const auto hold = [=](auto process) {
      return [=] {
        static_cast<void>(std::tie(locations, confidences, priors, out, scratch));
        expect_ok(process(&parm));
      };
    };
    return Calls{hold(tarvu_detout_process), hold(reference::tarvu_detout_process)};
  };
  return {name, "default", "score", size_t{kPriors} * kClasses, size_t{kPriors} * kClasses * sizeof(float), prepare};
}

}  // namespace

void add_detout_workloads(std::vector<Workload> &suite) { suite.push_back(detection_output("detout_8732x21")); }

}  // namespace bench
