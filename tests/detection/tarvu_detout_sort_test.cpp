// Detection output: the sort of candidates by descending score.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "tarvu.h"
#include "tests/detection/small_stack.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace {

using support::Differential;
using support::Element;
using support::Fault;
using support::GuardedMemory;
using support::Random;

using Records = std::vector<_NN_DETOUT_RECORD>;

/// Records with these scores; the other fields tell where in the input each one stood.
Records records_of(const std::vector<float> &scores) {
  Records records;
  for (size_t i = 0; i < scores.size(); ++i) {
    records.push_back({scores[i], static_cast<uint32_t>(~i), 0x123456789ABCDEF0u + i});
  }
  return records;
}

bool same(const Records &a, const Records &b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(_NN_DETOUT_RECORD)) == 0;
}

std::vector<uint64_t> order_of(const std::vector<float> &scores) {
  Records records = records_of(scores);
  ::quick_sort(records.data(), 0, static_cast<int32_t>(scores.size()) - 1);
  std::vector<uint64_t> order;
  for (const _NN_DETOUT_RECORD &record : records) order.push_back(record.box_addr - 0x123456789ABCDEF0u);
  return order;
}

TEST(QuickSort, SortsByDescendingScore) {
  EXPECT_EQ(order_of({0.25f, 0.75f, -1.0f, 0.5f, 8.0f}), (std::vector<uint64_t>{4, 1, 3, 0, 2}));
}

TEST(QuickSort, TiesComeInTheOrderOfThePartition) {
  // The pivot 0 takes the last place, behind its equal.
  EXPECT_EQ(order_of({1.0f, 1.0f, 2.0f}), (std::vector<uint64_t>{2, 1, 0}));
  // Nothing is greater than the pivots: nothing moves.
  EXPECT_EQ(order_of({2.0f, 1.0f, 1.0f}), (std::vector<uint64_t>{0, 1, 2}));
}

TEST(QuickSort, ZerosOfBothSignsAreEqual) {
  EXPECT_EQ(order_of({-0.0f, 0.0f, 0.0f, -0.0f}), (std::vector<uint64_t>{0, 1, 2, 3}));
}

TEST(QuickSort, RecordsOutsideTheRangeStay) {
  Records records = records_of({1.0f, 2.0f, 3.0f, 4.0f, 5.0f});
  const Records start = records;
  ::quick_sort(records.data(), 1, 3);
  EXPECT_TRUE(same(records, {start[0], start[3], start[2], start[1], start[4]}));
}

TEST(QuickSort, ARangeOfOneRecordStays) {
  Records records = records_of({1.0f, 2.0f});
  const Records start = records;
  ::quick_sort(records.data(), 1, 1);
  EXPECT_TRUE(same(records, start));
}

/// A score with as many ties as `levels` is small.
float score(Random &random, uint32_t levels) {
  if (random.one_in(50)) {
    return random.pick({0.0f, -0.0f, std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                        std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::max()});
  }
  return static_cast<float>(random.below(levels)) / static_cast<float>(levels);
}

TEST(QuickSort, AgreesWithItsTwinOnRandomRecordsWithFewAndManyTies) {
  Random random = support::test_random(421);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(round);
    const uint32_t count = 1 + random.below(random.one_in(10) ? 400 : 40);
    const uint32_t levels = random.pick({1u, 2u, 3u, 8u, 100u, 1000000u});
    const bool behind = random.one_in(2);
    const GuardedMemory memory(
        count * sizeof(_NN_DETOUT_RECORD),
        {.fault = behind ? Fault::kBehind : Fault::kInFront, .alignment = 16, .misalign = 4 * size_t{random.below(4)}});
    random.fill(memory.data(), memory.size());
    for (uint32_t i = 0; i < count; ++i) {
      const float value = score(random, levels);
      std::memcpy(memory.data() + 16 * size_t{i}, &value, sizeof value);
    }
    const auto left = static_cast<int32_t>(random.one_in(3) ? random.below(count) : 0);
    const int32_t right =
        random.one_in(3) ? random.between(left, static_cast<int32_t>(count) - 1) : static_cast<int32_t>(count) - 1;
    Differential differential;
    differential.track(memory, "records", Element::k32Bit);
    ASSERT_TRUE(differential.same([&] { ::quick_sort(memory.data(), left, right); },
                                  [&] { reference::quick_sort(memory.data(), left, right); }));
  }
}

// ---- 10,000 records on a stack of 64 KiB

constexpr size_t kMany = 10000;

Records sorted_on_small_stack(Records records) {
  small_stack::run([&] { ::quick_sort(records.data(), 0, static_cast<int32_t>(records.size()) - 1); });
  return records;
}

std::vector<float> rising(size_t count) {
  std::vector<float> scores(count);
  for (size_t i = 0; i < count; ++i) scores[i] = static_cast<float>(i);
  return scores;
}

TEST(QuickSort, ManySortedRecordsStayAndFitASmallStack) {
  std::vector<float> scores = rising(kMany);
  std::reverse(scores.begin(), scores.end());
  const Records records = records_of(scores);
  EXPECT_TRUE(same(sorted_on_small_stack(records), records));
}

TEST(QuickSort, ManyReversedRecordsFitASmallStack) {
  const Records records = records_of(rising(kMany));
  EXPECT_TRUE(same(sorted_on_small_stack(records), Records(records.rbegin(), records.rend())));
}

TEST(QuickSort, ManyEqualRecordsStayAndFitASmallStack) {
  const Records records = records_of(std::vector<float>(kMany, 0.5f));
  EXPECT_TRUE(same(sorted_on_small_stack(records), records));
}

TEST(QuickSort, ManyRandomRecordsWithTiesAgreeWithTheTwinOnASmallStack) {
  Random random = support::test_random(422);
  SCOPED_TRACE(random.trace());
  for (const uint32_t levels : {200u, 5000u, 1000000000u}) {
    std::vector<float> scores(kMany);
    for (float &value : scores) value = score(random, levels);
    const Records records = records_of(scores);
    Records expected = records;
    reference::quick_sort(expected.data(), 0, static_cast<int32_t>(kMany) - 1);
    EXPECT_TRUE(same(sorted_on_small_stack(records), expected)) << levels;
  }
}

TEST(QuickSort, ManyRecordsThatRiseAndFallAgreeWithTheTwinOnASmallStack) {
  // Rising halves make the partition as uneven as it gets, on alternating sides.
  std::vector<float> scores = rising(kMany / 2);
  for (size_t i = 0; i < kMany / 2; ++i) scores.push_back(static_cast<float>(kMany / 2 - i) - 0.5f);
  const Records records = records_of(scores);
  Records expected = records;
  std::sort(expected.begin(), expected.end(), [](const auto &a, const auto &b) { return a.score > b.score; });
  EXPECT_TRUE(same(sorted_on_small_stack(records), expected));
}

TEST(QuickSort, ManyRecordsThatRiseAndFallThroughTiesAgreeWithTheTwin) {
  // The halves share their scores, so here the partition itself decides.
  std::vector<float> scores = rising(kMany / 8);
  for (size_t i = 0; i < kMany / 8; ++i) scores.push_back(static_cast<float>(kMany / 8 - i));
  const Records records = records_of(scores);
  Records expected = records;
  reference::quick_sort(expected.data(), 0, static_cast<int32_t>(records.size()) - 1);
  EXPECT_TRUE(same(sorted_on_small_stack(records), expected));
}

TEST(QuickSort, ARisingRunThatBeginsAndEndsWithTiesIsTurnedRoundUpToThem) {
  EXPECT_EQ(order_of({1.0f, 1.0f, 2.0f, 3.0f, 3.0f}), (std::vector<uint64_t>{4, 3, 2, 1, 0}));
  // Between equal ends nothing moves.
  EXPECT_EQ(order_of({1.0f, 2.0f, 2.0f, 2.0f, 3.0f}), (std::vector<uint64_t>{4, 1, 2, 3, 0}));
}

}  // namespace
