// Overlap of ranges, reckoned from their extents in bounded time.
#include "contract/overlap.h"

#include <algorithm>

namespace contract {
namespace {

/// The extents of a range, the longest step last, without those that do not step.
struct Places {
  Wide start;
  Wide element;  ///< bytes of a dense run
  uint32_t count;
  struct {
    Wide count;
    Wide step;
  } extents[TARVU_CONTRACT_EXTENTS];
};

/// Innermost extents that touch become one run.
Places places_of(const Range &range) {
  Places places = {start_of(range), range.element_bytes, 0, {}};
  for (uint32_t i = 0; i < range.extent_count; ++i) {
    const tarvu_contract_extent &extent = range.extents[i];
    if (extent.count == 1 || extent.step == 0) continue;
    uint32_t at = places.count++;
    for (; at != 0 && places.extents[at - 1].step > extent.step; --at) places.extents[at] = places.extents[at - 1];
    places.extents[at] = {extent.count, extent.step};
  }
  uint32_t dense = 0;
  for (; dense < places.count && places.extents[dense].step <= places.element; ++dense) {
    places.element += (places.extents[dense].count - 1) * places.extents[dense].step;
  }
  std::copy(places.extents + dense, places.extents + places.count, places.extents);
  places.count -= dense;
  return places;
}

Wide span_of(const Places &places) {
  Wide bytes = places.element;
  for (uint32_t i = 0; i < places.count; ++i) bytes += (places.extents[i].count - 1) * places.extents[i].step;
  return bytes;
}

constexpr int kMostComparisons = 200;

Wide floor_divide(Wide a, Wide b) { return a >= 0 ? a / b : -((b - 1 - a) / b); }

/// `left` comparisons are left.
Overlap compare(Places a, Places b, int &left) {
  if (--left < 0) return Overlap::kPossible;
  const Wide a_span = span_of(a);
  const Wide b_span = span_of(b);
  if (a.start + a_span <= b.start || b.start + b_span <= a.start) return Overlap::kNone;
  if (a.count == 0 && b.count == 0) return Overlap::kCertain;
  const Wide a_step = a.count == 0 ? 0 : a.extents[a.count - 1].step;
  const Wide b_step = b.count == 0 ? 0 : b.extents[b.count - 1].step;
  if (a_step < b_step) std::swap(a, b);
  const Wide step = a.extents[a.count - 1].step;
  const Wide a_places = a.extents[a.count - 1].count;
  --a.count;
  Wide b_places = 1;
  if (a_step == b_step) b_places = b.extents[--b.count].count;
  // Place i of a meets place j of b; only i - j matters, and only where the two come near each other.
  const Wide far = b.start + span_of(b) - a.start;   // (i - j) * step < far
  const Wide near = b.start - a.start - span_of(a);  // (i - j) * step > near
  const Wide first = std::max(floor_divide(near, step) + 1, 1 - b_places);
  const Wide last = std::min(floor_divide(far - 1, step), a_places - 1);
  if (last - first >= left) return Overlap::kPossible;
  Overlap found = Overlap::kNone;
  for (Wide i = first; i <= last && found != Overlap::kCertain; ++i) {
    Places moved = a;
    moved.start += i * step;
    found = std::max(found, compare(moved, b, left));
  }
  return found;
}

}  // namespace

Wide span_of(const Range &range) {
  Wide bytes = range.element_bytes;
  for (uint32_t i = 0; i < range.extent_count; ++i) {
    bytes += Wide{range.extents[i].count - 1} * range.extents[i].step;
  }
  return bytes;
}

Overlap overlap_of(const Range &a, const Range &b) {
  const Wide a_start = start_of(a);
  const Wide b_start = start_of(b);
  if (a_start + span_of(a) <= b_start || b_start + span_of(b) <= a_start) return Overlap::kNone;
  int left = kMostComparisons;
  return compare(places_of(a), places_of(b), left);
}

namespace {

/// Whether some place lies within another one, taken by the length of the steps.
bool is_folded(const Range &range) {
  const Places places = places_of(range);
  Wide elements = 1;
  for (uint32_t i = 0; i < range.extent_count; ++i) {
    if (range.extents[i].count != 1 && range.extents[i].step == 0) return true;
    elements *= range.extents[i].count;
  }
  Wide runs = 1;
  for (uint32_t i = 0; i < places.count; ++i) runs *= places.extents[i].count;
  if (elements * range.element_bytes != runs * places.element) return true;
  Wide bytes = places.element;
  for (uint32_t i = 0; i < places.count; ++i) {
    if (places.extents[i].step < bytes) return true;
    bytes += (places.extents[i].count - 1) * places.extents[i].step;
  }
  return false;
}

}  // namespace

const tarvu_contract_extent *folded_extent(const Range &range, Wide &bytes) {
  bytes = range.element_bytes;
  for (uint32_t i = 0; i < range.extent_count; ++i) {
    const tarvu_contract_extent &extent = range.extents[i];
    // A step may be shorter than the inner ones together and step between their places, as in a permuted tensor.
    if (extent.count != 1 && extent.step < bytes) return is_folded(range) ? &extent : nullptr;
    bytes += Wide{extent.count - 1} * extent.step;
  }
  return nullptr;
}

}  // namespace contract
