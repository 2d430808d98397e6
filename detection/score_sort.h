/// \file score_sort.h
/// The sort of scored records by descending score, in place. Equal scores end in the order of one prescribed partition.
#ifndef TARVU_DETECTION_SCORE_SORT_H
#define TARVU_DETECTION_SCORE_SORT_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace tarvu {

/// Parts the records left to right by the score of the first one, the pivot, and returns the pivot's place.
template <class Record>
Record *partition_by_score(Record *left, Record *right) {
  const Record pivot = *left;
  const float score = pivot.score;
  Record *i = left;
  Record *j = right;
  while (i < j) {
    while (j > i && j->score <= score) --j;
    *i = *j;
    while (i < j && i->score >= score) ++i;
    *j = *i;
  }
  *i = pivot;
  return i;
}

/// Deals with a run that the partition would take apart record by record, and returns whether it was one. The partition
/// leaves a run that never rises as it is. In a run that never falls it puts the last record first and the first one
/// last, until those two are equal.
template <class Record>
bool sort_ordered_run(Record *left, Record *right) {
  const Record *at = left;
  while (at < right && at[0].score >= at[1].score) ++at;
  if (at == right) return true;
  at = left;
  while (at < right && at[0].score <= at[1].score) ++at;
  if (at != right) return false;
  for (; left < right && left->score < right->score; ++left, --right) std::swap(*left, *right);
  return true;
}

/// Whether no two scores compare equal and none is NaN. May say no where that is so, if their bits are spread badly.
/// Takes the scores in shares that a small table holds.
template <class Record>
[[gnu::noinline]] bool scores_differ(const Record *records, size_t count) {
  constexpr uint32_t kSlots = 1024;
  constexpr uint32_t kFree = 0xFFFFFFFF;  // the bits of a NaN
  const uint64_t shares = count / (kSlots / 2) + 1;
  for (uint64_t share = 0; share < shares; ++share) {
    uint32_t table[kSlots];
    std::memset(table, 0xFF, sizeof table);
    uint32_t used = 0;
    for (size_t i = 0; i < count; ++i) {
      const float score = records[i].score + 0.0f;  // zeros of both signs are equal
      if (score != score) return false;
      const auto bits = std::bit_cast<uint32_t>(score);
      uint32_t hash = bits * 0x9E3779B1u;
      hash = (hash ^ hash >> 15) * 0x85EBCA77u;
      if (hash * shares >> 32 != share) continue;
      uint32_t slot = (hash ^ hash >> 16) % kSlots;
      for (; table[slot] != kFree; slot = (slot + 1) % kSlots) {
        if (table[slot] == bits) return false;
      }
      table[slot] = bits;
      if (++used == kSlots - kSlots / 8) return false;
    }
  }
  return true;
}

/// How many times their number of records the partitions of one call may look at before they count as uneven. With even
/// splits it is twice.
inline constexpr ptrdiff_t kFairRounds = 8;

/// Sorts the records left to right, both included, as the partition does. The smaller part recurses, so the stack grows
/// with the logarithm of the count. Where the partition goes badly any sort serves, if there are no ties.
template <class Record>
void sort_by_score(Record *left, Record *right) {
  ptrdiff_t credit = kFairRounds * (right - left + 1);
  while (left < right && !sort_ordered_run(left, right)) {
    credit -= right - left + 1;
    if (credit < 0) {
      if (scores_differ(left, static_cast<size_t>(right - left + 1))) {
        std::sort(left, right + 1, [](const Record &a, const Record &b) { return a.score > b.score; });
        return;
      }
      credit = PTRDIFF_MAX;
    }
    Record *pivot = partition_by_score(left, right);
    if (pivot - left < right - pivot) {
      sort_by_score(left, pivot - 1);
      left = pivot + 1;
    } else {
      sort_by_score(pivot + 1, right);
      right = pivot - 1;
    }
  }
}

/// The same sort from the front, only as far as it is asked for: the parts of a partition are independent.
template <class Record>
class SortedFront {
 public:
  SortedFront(Record *records, ptrdiff_t count)
      : next_(records), sorted_end_(records), ends_{records + count}, credit_(kFairRounds * count) {}

  /// The next record in order; there must be one.
  Record *next() {
    if (next_ == sorted_end_) sort_part();
    return next_++;
  }

 private:
  /// Deep enough for fair splits of any count.
  static constexpr int kDepth = 48;

  /// Sorts at least one record more.
  void sort_part() {
    if (sorted_end_ == ends_[top_]) {  // a pivot between two parts
      --top_;
      ++sorted_end_;
      return;
    }
    for (;;) {
      Record *const right = ends_[top_] - 1;
      credit_ -= right - next_ + 1;
      if (sort_ordered_run(next_, right)) break;
      if (top_ == kDepth - 1 || credit_ < 0) {
        sort_by_score(next_, right);
        break;
      }
      Record *const pivot = partition_by_score(next_, right);
      if (pivot == next_) {
        ++sorted_end_;
        return;
      }
      ends_[++top_] = pivot;
    }
    sorted_end_ = ends_[top_];
  }

  Record *next_;
  Record *sorted_end_;
  /// Ends of the parts that are not sorted yet, the foremost part last: the end of all, then pivots in their places.
  Record *ends_[kDepth];
  int top_ = 0;
  ptrdiff_t credit_;
};

}  // namespace tarvu

#endif  // TARVU_DETECTION_SCORE_SORT_H
