// Sort and non-maximum suppression of the candidates of one class.
#include "detection/detout_suppression.h"

#include <algorithm>
#include <limits>

#include "detection/box_lanes.h"
#include "detection/score_sort.h"

namespace tarvu {
namespace {

constexpr int32_t kGroup = 4;

/// State of one box.
struct BoxState {
  float area;
  float score;  // dead below 0.0
};

bool is_dead(const BoxState &state) { return state.score < 0.0f; }

/// Lanes where two boxes overlap by the threshold or more: by the intersection's share in their union, without a
/// division. A NaN area never does.
inline s32x4 overlap_reaches(float threshold, const BoxLanes &a, f32x4 area_a, const BoxLanes &b, f32x4 area_b) {
  const f32x4 width = at_most(a.xmax, b.xmax) - at_least(a.xmin, b.xmin);
  const f32x4 height = at_most(a.ymax, b.ymax) - at_least(a.ymin, b.ymin);
  const f32x4 intersection = at_least(height, f32x4{}) * at_least(width, f32x4{});
  const f32x4 both = area_a + area_b;
  const f32x4 joined = both - intersection;
  return s32x4(intersection >= joined * threshold);
}

/// What a suppression adds to a score.
/// Kept: this is no dead mark, so a score of 1.0 or more outlives it.
constexpr float kSuppressed = -1.0f;

BoxLanes in_all_lanes(const float *box) {
  return {fill<f32x4>(box[0]), fill<f32x4>(box[1]), fill<f32x4>(box[2]), fill<f32x4>(box[3])};
}

/// Box i against all boxes behind it.
void suppress_behind(const float *boxes, BoxState *states, ptrdiff_t i, ptrdiff_t count, float threshold) {
  const float *at = boxes + 4 * i;
  // A NaN edge makes every overlap NaN, which suppresses nothing.
  if (at[0] != at[0] || at[1] != at[1] || at[2] != at[2] || at[3] != at[3]) return;
  const BoxLanes box = in_all_lanes(at);
  const auto box_area = fill<f32x4>(states[i].area);
  for (ptrdiff_t j = i + 1; j < count;) {
    if (is_dead(states[j])) {
      ++j;
      continue;
    }
    PairLanes state = load_pairs(&states[j].area);
    const s32x4 suppressed = overlap_reaches(threshold, load_boxes(boxes + 4 * j), state.first, box, box_area);
    // Adding -0.0 leaves any score as it is.
    state.second += select(suppressed, fill<f32x4>(kSuppressed), fill<f32x4>(-0.0f));
    store_pairs(&states[j].area, state);
    j += kGroup;
  }
}

/// Boxes that are kept, in lanes, to be held against one other box.
struct KeptBoxes {
  struct Group {
    BoxLanes boxes;
    f32x4 areas;
  };
  Group groups[kMostSurvivors / kGroup];
  int32_t count = 0;
};

float area_of(const float *box) { return (box[3] - box[1]) * (box[2] - box[0]); }

void add_box(KeptBoxes &kept, const float *box) {
  KeptBoxes::Group &group = kept.groups[kept.count / kGroup];
  const int32_t lane = kept.count % kGroup;
  // Lanes without a box have no area.
  if (lane == 0) group = {in_all_lanes(box), fill<f32x4>(std::numeric_limits<float>::quiet_NaN())};
  group.boxes.xmin[lane] = box[0];
  group.boxes.ymin[lane] = box[1];
  group.boxes.xmax[lane] = box[2];
  group.boxes.ymax[lane] = box[3];
  group.areas[lane] = area_of(box);
  ++kept.count;
}

/// The score of a box after the suppressions by all kept ones, or until it is dead.
float suppressed_score(float score, const KeptBoxes &kept, const float *box, float threshold) {
  const BoxLanes lanes = in_all_lanes(box);
  const auto area = fill<f32x4>(area_of(box));
  for (int32_t first = 0; first < kept.count && !(score < 0.0f); first += kGroup) {
    const KeptBoxes::Group &group = kept.groups[first / kGroup];
    const s32x4 suppressing = overlap_reaches(threshold, lanes, area, group.boxes, group.areas);
    if (!any(suppressing)) continue;
    for (int32_t lane = 0; lane < kGroup; ++lane) {
      if (suppressing[lane] != 0) score += kSuppressed;
    }
  }
  return score;
}

/// Fills the first n records with the kept ones. `last` is the place of the last one kept.
/// Kept: a score of 0.0 counts as kept and yet as a hole, so it loses its place to any live box behind it.
void move_to_front(SortRecord *records, BoxState *states, int32_t n, int32_t last) {
  int32_t j = 1;
  for (int32_t i = 0; i < n; ++i) {
    if (states[i].score > 0.0f) {
      records[i].score = states[i].score;
      continue;
    }
    j = std::max(j, i + 1);
    while (j <= last && is_dead(states[j])) ++j;
    if (j > last) return;
    records[i].score = states[j].score;
    records[i].box_addr = records[j].box_addr;
    states[j].score = -1.0f;
    ++j;
  }
}

}  // namespace

int32_t find_survivors(SortRecord *records, float *state, int32_t count, float threshold) {
  auto *states = reinterpret_cast<BoxState *>(state);
  SortedFront<SortRecord> sorted(records, count);
  KeptBoxes kept;
  int32_t survivors = 0;
  int32_t last = 0;
  for (int32_t i = 0; i < count && survivors < kMostSurvivors; ++i) {
    const SortRecord record = *sorted.next();
    const auto *box = pointer<const float>(record.box_addr);
    states[i].score = suppressed_score(record.score, kept, box, threshold);
    if (is_dead(states[i])) continue;
    last = i;
    if (++survivors < kMostSurvivors) add_box(kept, box);
  }
  move_to_front(records, states, survivors, last);
  return survivors;
}

}  // namespace tarvu

void quick_sort(void *records, int32_t left, int32_t right) {
  auto *first = static_cast<tarvu::SortRecord *>(records);
  if (left < right) tarvu::sort_by_score(first + left, first + right);
}

void calc_area(const float *boxes, float *state, int32_t count) {
  for (int32_t i = 0; i < count; i += tarvu::kGroup, boxes += 16, state += 8) {
    const tarvu::BoxLanes box = tarvu::load_boxes(boxes);
    tarvu::PairLanes pairs = tarvu::load_pairs(state);
    pairs.first = (box.ymax - box.ymin) * (box.xmax - box.xmin);
    tarvu::store_pairs(state, pairs);
  }
}

int32_t check_overlap(const float *boxes, float *state, int32_t count, int32_t top_k, int32_t *last, float threshold) {
  auto *states = reinterpret_cast<tarvu::BoxState *>(state);
  int32_t kept = 0;
  *last = 0;
  for (int32_t i = 0; i < count; ++i) {
    if (tarvu::is_dead(states[i])) continue;
    ++kept;
    *last = i;
    if (kept >= top_k) break;
    tarvu::suppress_behind(boxes, states, i, count, threshold);
  }
  return kept;
}

int32_t nonmax_suppress(void *records, float *boxes, float *state, int32_t count, int32_t /*reserved*/, int32_t top_k,
                        float threshold) {
  if (count == 0) return 0;
  quick_sort(records, 0, count - 1);
  auto *sorted = static_cast<tarvu::SortRecord *>(records);
  auto *states = reinterpret_cast<tarvu::BoxState *>(state);
  for (int32_t i = 0; i < count; ++i) {
    tarvu::store(boxes + 4 * ptrdiff_t{i}, tarvu::load<tarvu::f32x4>(tarvu::pointer(sorted[i].box_addr)));
    states[i].score = sorted[i].score;
  }
  for (int32_t i = 0; i < tarvu::kGroup - 1; ++i) states[count + i].score = -1.0f;
  calc_area(boxes, state, count);
  int32_t last = 0;
  const int32_t kept = check_overlap(boxes, state, count, top_k, &last, threshold);
  const int32_t n = std::min(top_k, kept);
  tarvu::move_to_front(sorted, states, n, last);
  return n;
}
