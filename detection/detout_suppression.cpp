// Sort and non-maximum suppression of the candidates of one class.
#include "detection/detout_suppression.h"

#include <algorithm>

#include "detection/score_sort.h"
#include "simd/boxes.h"

namespace tarvu {
namespace {

constexpr int32_t kGroup = 4;

/// State of one box.
struct BoxState {
  float area;
  float score;  // dead below 0.0
};

bool is_dead(const BoxState &state) { return state.score < 0.0f; }

/// Box i against the group of four boxes at `others`: lowers the score of each one that it suppresses by 1.0.
inline void suppress_group(const BoxLanes &box, f32x4 box_area, const float *others, BoxState *states, float threshold) {
  const BoxLanes other = load_boxes(others);
  PairLanes state = load_pairs(&states->area);
  const f32x4 width = smaller(other.xmax, box.xmax) - larger(other.xmin, box.xmin);
  const f32x4 height = smaller(other.ymax, box.ymax) - larger(other.ymin, box.ymin);
  const f32x4 intersection = larger(height, f32x4{}) * larger(width, f32x4{});
  const f32x4 both = box_area + state.first;
  const f32x4 joined = both - intersection;
  const auto suppressed = intersection >= joined * threshold;
  // Kept: 1.0 less and not a dead mark, so a score of 1.0 or more outlives it. Adding -0.0 leaves any score as it is.
  state.second += select(suppressed, fill<f32x4>(-1.0f), fill<f32x4>(-0.0f));
  store_pairs(&states->area, state);
}

/// Box i against all boxes behind it.
void suppress_behind(const float *boxes, BoxState *states, int32_t i, int32_t count, float threshold) {
  const float *at = boxes + 4 * ptrdiff_t{i};
  // A NaN edge makes every overlap NaN, which suppresses nothing.
  if (at[0] != at[0] || at[1] != at[1] || at[2] != at[2] || at[3] != at[3]) return;
  const BoxLanes box = {fill<f32x4>(at[0]), fill<f32x4>(at[1]), fill<f32x4>(at[2]), fill<f32x4>(at[3])};
  const auto box_area = fill<f32x4>(states[i].area);
  for (int32_t j = i + 1; j < count;) {
    if (is_dead(states[j])) {
      ++j;
    } else {
      suppress_group(box, box_area, boxes + 4 * ptrdiff_t{j}, states + j, threshold);
      j += kGroup;
    }
  }
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
