#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

/// The loop that anyone would write: the boxes sorted by selection, then each against each.
int plain_suppression(_NN_NMS_OBJ *boxes, int count, float threshold) {
  std::sort(boxes, boxes + count, [](const _NN_NMS_OBJ &a, const _NN_NMS_OBJ &b) { return a.score > b.score; });
  int kept = 0;
  for (int i = 0; i < count; ++i) {
    if (boxes[i].score < 0.0f) continue;
    const _NN_NMS_OBJ a = boxes[i];
    boxes[kept++] = a;
    const float area = (a.x2 - a.x1) * (a.y2 - a.y1);
    for (int j = i + 1; j < count; ++j) {
      _NN_NMS_OBJ &b = boxes[j];
      const float width = std::min(a.x2, b.x2) - std::max(a.x1, b.x1);
      const float height = std::min(a.y2, b.y2) - std::max(a.y1, b.y1);
      if (width <= 0.0f || height <= 0.0f || b.score < 0.0f) continue;
      const float both = width * height;
      if (threshold <= both / (area + (b.x2 - b.x1) * (b.y2 - b.y1) - both)) b.score = -1.0f;
    }
  }
  return kept;
}

Maker suppression(int count, uint32_t clusters, bool plain) {
  return [=](Arena &arena) -> Call {
    const float *noise = random_floats(arena, 5 * static_cast<size_t>(count), 6.0f);
    const float *corners = random_floats(arena, size_t{4} * clusters, 250.0f);
    auto *boxes = reinterpret_cast<_NN_NMS_OBJ *>(zero_bytes(arena, static_cast<size_t>(count) * sizeof(_NN_NMS_OBJ)));
    auto *work = reinterpret_cast<_NN_NMS_OBJ *>(zero_bytes(arena, static_cast<size_t>(count) * sizeof(_NN_NMS_OBJ)));
    for (int i = 0; i < count; ++i) {
      const float *of = corners + 4 * (static_cast<uint32_t>(i) * 7 % clusters);
      const float *d = noise + 5 * i;
      boxes[i] = {of[0] + d[0],
                  of[1] + d[1],
                  of[0] + 70 + of[2] / 5 + d[2],
                  of[1] + 70 + of[3] / 5 + d[3],
                  (d[4] + 6) / 12,
                  static_cast<uint32_t>(i)};
    }
    return [=] {
      std::copy(boxes, boxes + count, work);
      static_cast<void>(plain ? plain_suppression(work, count, 0.45f) : nms_process_c(work, count, count, 0.45f));
    };
  };
}

}  // namespace

void add_nms_cases(Cases &cases) {
  for (const int count : {1, 2, 4, 7, 10, 14, 21, 28, 49, 56, 100, 112, 200}) {
    for (const uint32_t clusters : {1u, 10u, 60u, 500u}) {
      Case what;
      what.kind = std::to_string(clusters) + (clusters == 1 ? " object" : " objects");
      what.shape = std::to_string(count);
      what.extent = static_cast<uint32_t>(count);
      what.unit = "box";
      what.units = count;
      what.make = suppression(count, clusters, false);
      what.calls = suppression(count, clusters, true);
      what.why = "a sort and a plain loop over the pairs";
      add(cases, std::move(what));
    }
  }
}

}  // namespace sweep
