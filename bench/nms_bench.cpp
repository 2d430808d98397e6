#include <algorithm>

#include "bench/bench.h"
#include "tests/reference/tarvu_nms_c_reference.h"

namespace bench {
namespace {

/// Boxes strewn around the corners of 60 objects. The suppression works in place, so every call starts with a copy.
Workload suppression(const char *name) {
  constexpr int32_t kBoxes = 1000;
  constexpr size_t kClusters = 60;
  const auto prepare = [] {
    support::Random random(44);
    float clusters[kClusters][4];
    for (auto &cluster : clusters) {
      const float x = random.uniform(0.0f, 500.0f);
      const float y = random.uniform(0.0f, 500.0f);
      cluster[0] = x;
      cluster[1] = y;
      cluster[2] = x + random.uniform(20.0f, 120.0f);
      cluster[3] = y + random.uniform(20.0f, 120.0f);
    }
    const std::shared_ptr<_NN_NMS_OBJ[]> objects = make_buffer<_NN_NMS_OBJ>(kBoxes);
    for (int32_t i = 0; i < kBoxes; ++i) {
      const float *cluster = clusters[random.below(kClusters)];
      const auto edge = [&](int k) { return cluster[k] + random.uniform(-6.0f, 6.0f); };
      objects[i] = {edge(0), edge(1), edge(2), edge(3), random.uniform(0.0f, 1.0f), static_cast<uint32_t>(i)};
    }
    const std::shared_ptr<_NN_NMS_OBJ[]> work = make_buffer<_NN_NMS_OBJ>(kBoxes);
    const auto call = [objects, work](auto process) {
      std::copy(objects.get(), objects.get() + kBoxes, work.get());
      if (process(work.get(), kBoxes, kBoxes, 0.45f) == 0) expect_ok(QX_ERR_PARAM);
    };
    return Calls{[call] { call(nms_process_c); }, [call] { call(reference::nms_process_c); }};
  };
  return {name, "default", "box", kBoxes, kBoxes * sizeof(_NN_NMS_OBJ), prepare};
}

}  // namespace

void add_nms_workloads(std::vector<Workload> &suite) { suite.push_back(suppression("nms_1000")); }

}  // namespace bench
