// Standalone non-maximum suppression by true intersection over union, in place.
#include <cstdio>
#include <limits>

#include "detection/score_sort.h"
#include "simd/lanes.h"
#include "tarvu.h"

namespace tarvu {
namespace {

/// Kept boxes in lanes, to be held against one other box. Unused lanes overlap nothing.
struct KeptBoxes {
  static constexpr int kGroups = 256 / kLanes<f32xn>;
  static constexpr int kCapacity = kGroups * kLanes<f32xn>;
  struct Group {
    f32xn x1, y1, x2, y2, area;
  };
  Group groups[kGroups];
  int count = 0;
};

float area_of(const _NN_NMS_OBJ &box) {
  const float width = box.x2 - box.x1;
  const float height = box.y2 - box.y1;
  return width * height;
}

void add_box(KeptBoxes &kept, const _NN_NMS_OBJ &box) {
  KeptBoxes::Group &group = kept.groups[kept.count / kLanes<f32xn>];
  const int lane = kept.count % kLanes<f32xn>;
  if (lane == 0) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const auto after_all = fill<f32xn>(kInfinity);
    const auto before_all = fill<f32xn>(-kInfinity);
    group = {after_all, after_all, before_all, before_all, f32xn{}};
  }
  group.x1[lane] = box.x1;
  group.y1[lane] = box.y1;
  group.x2[lane] = box.x2;
  group.y2[lane] = box.y2;
  group.area[lane] = area_of(box);
  ++kept.count;
}

/// Whether a kept box overlaps `box` by the threshold or more. Edges that only touch are no overlap, and no overlap
/// never suppresses, not even with a threshold of 0.0.
bool is_suppressed(const KeptBoxes &kept, const _NN_NMS_OBJ &box, float threshold) {
  const auto x1 = fill<f32xn>(box.x1);
  const auto y1 = fill<f32xn>(box.y1);
  const auto x2 = fill<f32xn>(box.x2);
  const auto y2 = fill<f32xn>(box.y2);
  const auto area = fill<f32xn>(area_of(box));
  const KeptBoxes::Group *end = kept.groups + (kept.count + kLanes<f32xn> - 1) / kLanes<f32xn>;
  for (const KeptBoxes::Group *group = kept.groups; group < end; ++group) {
    // A NaN edge makes the area NaN, which suppresses nothing, whatever these give.
    const f32xn width = at_most(group->x2, x2) - at_least(group->x1, x1);
    const f32xn height = at_most(group->y2, y2) - at_least(group->y1, y1);
    const auto overlaps = (width > 0.0f) & (height > 0.0f);
    if (!any(overlaps)) continue;
    const f32xn intersection = width * height;
    const f32xn both = group->area + area;
    const f32xn joined = both - intersection;
    const f32xn ratio = intersection / joined;
    if (any(overlaps & (ratio >= threshold))) return true;
  }
  return false;
}

/// Where the sweep over the sorted boxes ended.
struct Sweep {
  int32_t kept = 0;
  int32_t last = 0;  // place of the last box visited
};

/// Greedy sweep: marks every box that a kept one before it suppresses with a score of -1.0. Kept boxes are collected
/// and each box behind them is held against all of them at once; when no more fit, the sweep starts anew behind the
/// last one collected.
Sweep sweep_boxes(_NN_NMS_OBJ *objs, int32_t obj_num, int32_t max_obj_num, float threshold) {
  Sweep sweep;
  sweep.last = obj_num - 1;
  bool ended = false;
  int32_t next = 0;
  while (next < obj_num && !ended) {
    KeptBoxes kept;
    int32_t place = next;
    next = obj_num;
    for (; place < obj_num; ++place) {
      _NN_NMS_OBJ &box = objs[place];
      if (box.score < 0.0f) continue;
      if (is_suppressed(kept, box, threshold)) {
        box.score = -1.0f;
      } else if (!ended && next == obj_num) {
        ++sweep.kept;
        if (sweep.kept >= max_obj_num || place == obj_num - 1) {
          sweep.last = place;  // this box is kept and suppresses nothing any more
          ended = true;
          continue;
        }
        add_box(kept, box);
        if (kept.count == KeptBoxes::kCapacity) next = place + 1;
      }
    }
  }
  return sweep;
}

/// Fills the holes among the first n places with what was kept behind them.
/// Kept: a score of 0.0 counts as kept and yet as a hole, so it loses its place to any live box behind it.
void move_to_front(_NN_NMS_OBJ *objs, int32_t n, int32_t last) {
  int32_t j = 1;
  for (int32_t i = 0; i < n;) {
    if (objs[i].score > 0.0f) {
      ++i;
      continue;
    }
    j = std::max(j, i + 1);
    while (j <= last && objs[j].score < 0.0f) ++j;
    if (j > last) return;
    objs[i] = objs[j];
    objs[j].score = -1.0f;
  }
}

}  // namespace
}  // namespace tarvu

void q_sort(_NN_NMS_OBJ *objs, int32_t left, int32_t right) {
  if (left < right) tarvu::sort_by_score(objs + left, objs + right);
}

int32_t nms_process_c(_NN_NMS_OBJ *objs, int32_t obj_num, int32_t max_obj_num, float threshold) {
  if (obj_num == 0) return 0;
  q_sort(objs, 0, obj_num - 1);
  const tarvu::Sweep sweep = tarvu::sweep_boxes(objs, obj_num, max_obj_num, threshold);
  const int32_t n = std::min(max_obj_num, sweep.kept);
  tarvu::move_to_front(objs, n, sweep.last);
  return n;
}

_QX_RESULT tarvu_nms_process(const _NN_NMS_PARM *parm) {
  const int32_t kept =
      nms_process_c(tarvu::pointer<_NN_NMS_OBJ>(parm->obj_addr), parm->obj_num, parm->max_obj_num, parm->nms_threshold);
  std::printf("obj_final_num is %d\r\n", kept);
  return QX_OK;
}
