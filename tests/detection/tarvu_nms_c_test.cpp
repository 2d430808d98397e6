// Standalone non-maximum suppression.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/detection/small_stack.h"
#include "tests/reference/tarvu_nms_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/support/stdout_capture.h"

namespace {

using support::Differential;
using support::Element;
using support::GuardedMemory;
using support::Random;
using Object = _NN_NMS_OBJ;
using Objects = std::vector<Object>;

/// Boxes that overlap no other of these.
Object apart(int i, float score, uint32_t tag) {
  const float x = 3.0f * static_cast<float>(i);
  return {x, 0.0f, x + 2.0f, 2.0f, score, tag};
}

bool same(const Objects &a, const Objects &b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(Object)) == 0;
}

std::vector<uint32_t> tags(const Objects &objects) {
  std::vector<uint32_t> all;
  for (const Object &object : objects) all.push_back(object.obj_tag);
  return all;
}

std::vector<float> scores(const Objects &objects) {
  std::vector<float> all;
  for (const Object &object : objects) all.push_back(object.score);
  return all;
}

int32_t suppress(Objects &objects, int32_t max_obj_num, float threshold = 0.5f) {
  return ::nms_process_c(objects.data(), static_cast<int32_t>(objects.size()), max_obj_num, threshold);
}

// ---- Operator

TEST(Nms, PrintsTheCountOnEveryCall) {
  Objects objects = {apart(0, 0.5f, 1), apart(0, 0.75f, 2), apart(1, 0.25f, 3)};
  _NN_NMS_PARM block{};
  block.nms_threshold = 0.5f;
  block.obj_num = 3;
  block.max_obj_num = 10;
  block.obj_addr = reinterpret_cast<uintptr_t>(objects.data());
  support::StdoutCapture capture;
  EXPECT_EQ(::tarvu_nms_process(&block), QX_OK);
  EXPECT_EQ(capture.text(), "obj_final_num is 2\r\n");
  EXPECT_TRUE(same(objects, {apart(0, 0.75f, 2), apart(1, 0.25f, 3), apart(1, -1.0f, 3)}));
}

TEST(Nms, WithoutBoxesPrintsZeroAndTouchesNothing) {
  _NN_NMS_PARM block{};
  block.max_obj_num = 10;
  block.obj_addr = support::unreadable_address();
  support::StdoutCapture capture;
  EXPECT_EQ(::tarvu_nms_process(&block), QX_OK);
  EXPECT_EQ(capture.text(), "obj_final_num is 0\r\n");
}

TEST(Nms, ANegativeNumberOfBoxesKeepsNone) {
  auto *nothing = reinterpret_cast<Object *>(support::unreadable_address());
  EXPECT_EQ(::nms_process_c(nothing, -4, 10, 0.5f), 0);
}

TEST(Nms, ASingleBoxIsKept) {
  Objects objects = {apart(0, 0.5f, 9)};
  EXPECT_EQ(suppress(objects, 10), 1);
  EXPECT_TRUE(same(objects, {apart(0, 0.5f, 9)}));
  EXPECT_EQ(suppress(objects, 0), 0);
}

TEST(Nms, KeptRecordsStandFirstInDescendingOrderWithTheirTags) {
  Objects objects = {apart(0, 0.3f, 1), apart(1, 0.9f, 2), apart(0, 0.8f, 3), apart(2, 0.7f, 4), apart(1, 0.6f, 5)};
  ASSERT_EQ(suppress(objects, 10), 3);
  objects.resize(3);
  EXPECT_EQ(tags(objects), (std::vector<uint32_t>{2, 3, 4}));
  EXPECT_EQ(scores(objects), (std::vector<float>{0.9f, 0.8f, 0.7f}));
}

TEST(Nms, AHoleIsFilledByTheNextLiveRecordWhichThenIsDead) {
  Objects objects = {apart(0, 0.9f, 1), apart(0, 0.8f, 2), apart(1, 0.7f, 3), apart(2, 0.6f, 4)};
  ASSERT_EQ(suppress(objects, 10), 3);
  EXPECT_EQ(tags(objects), (std::vector<uint32_t>{1, 3, 4, 4}));
  EXPECT_EQ(scores(objects), (std::vector<float>{0.9f, 0.7f, 0.6f, -1.0f}));
}

TEST(Nms, AtTheLimitTheSweepEndsAndTheRestStays) {
  Objects objects = {apart(0, 0.9f, 1), apart(1, 0.8f, 2), apart(1, 0.7f, 3), apart(2, 0.6f, 4)};
  ASSERT_EQ(suppress(objects, 2), 2);
  EXPECT_EQ(tags(objects), (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(scores(objects), (std::vector<float>{0.9f, 0.8f, 0.7f, 0.6f}));
}

TEST(Nms, ALimitOfOneSuppressesNothing) {
  Objects objects = {apart(0, 0.9f, 1), apart(0, 0.8f, 2)};
  EXPECT_EQ(suppress(objects, 1), 1);
  EXPECT_EQ(scores(objects), (std::vector<float>{0.9f, 0.8f}));
}

TEST(Nms, ALimitBelowOneKeepsNoneAndSuppressesNothing) {
  for (const int32_t limit : {0, -2}) {
    Objects objects = {apart(0, 0.8f, 1), apart(0, 0.9f, 2)};
    EXPECT_EQ(suppress(objects, limit), limit);
    EXPECT_EQ(tags(objects), (std::vector<uint32_t>{2, 1}));
    EXPECT_EQ(scores(objects), (std::vector<float>{0.9f, 0.8f}));
  }
}

// ---- Overlap

int32_t kept_of(Object first, Object second, float threshold) {
  first.score = 0.9f;
  second.score = 0.8f;
  Objects objects = {first, second};
  return suppress(objects, 10, threshold);
}

TEST(Nms, BoxesThatOnlyTouchDoNotSuppressEachOther) {
  EXPECT_EQ(kept_of({0, 0, 2, 2, 0, 0}, {2, 0, 4, 2, 0, 0}, 0.0f), 2);
  EXPECT_EQ(kept_of({0, 0, 2, 2, 0, 0}, {0, 2, 2, 4, 0, 0}, 0.0f), 2);
  EXPECT_EQ(kept_of({0, 0, 2, 2, 0, 0}, {0, 2, 2, 4, 0, 0}, -1.0f), 2);
}

TEST(Nms, OverlapAtTheThresholdSuppresses) {
  // Intersection 1, union 2.
  EXPECT_EQ(kept_of({0, 0, 2, 1, 0, 0}, {0, 0, 1, 1, 0, 0}, 0.5f), 1);
  EXPECT_EQ(kept_of({0, 0, 2, 1, 0, 0}, {0, 0, 1, 1, 0, 0}, std::nextafter(0.5f, 1.0f)), 2);
}

TEST(Nms, OverlapIsARoundedQuotient) {
  // 1 / 3 in float, which is more than a third.
  EXPECT_EQ(kept_of({0, 0, 2, 1, 0, 0}, {1, 0, 3, 1, 0, 0}, 1.0f / 3.0f), 1);
  EXPECT_EQ(kept_of({0, 0, 2, 1, 0, 0}, {1, 0, 3, 1, 0, 0}, std::nextafter(1.0f / 3.0f, 1.0f)), 2);
}

TEST(Nms, ABoxWithoutExtentIsNeverSuppressed) {
  EXPECT_EQ(kept_of({0, 0, 2, 2, 0, 0}, {1, 1, 1, 1, 0, 0}, 0.0f), 2);
  EXPECT_EQ(kept_of({1, 1, 1, 1, 0, 0}, {1, 1, 1, 1, 0, 0}, 0.0f), 2);
  EXPECT_EQ(kept_of({0, 0, 2, 2, 0, 0}, {1, 0, 1, 2, 0, 0}, 0.0f), 2);
}

TEST(Nms, ABoxTurnedRoundIsNeverSuppressed) {
  EXPECT_EQ(kept_of({0, 0, 4, 4, 0, 0}, {3, 1, 1, 3, 0, 0}, 0.0f), 2);
  EXPECT_EQ(kept_of({0, 0, 4, 4, 0, 0}, {1, 3, 3, 1, 0, 0}, 0.0f), 2);
}

TEST(Nms, ANanCoordinateOrThresholdSuppressesNothing) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(kept_of({0, 0, 2, 2, 0, 0}, {nan, 0, 2, 2, 0, 0}, 0.0f), 2);
  EXPECT_EQ(kept_of({0, 0, 2, nan, 0, 0}, {0, 0, 2, 2, 0, 0}, 0.0f), 2);
  EXPECT_EQ(kept_of({0, 0, 2, 2, 0, 0}, {0, 0, 2, 2, 0, 0}, nan), 2);
}

// ---- Scores of zero and below

TEST(Nms, ANegativeScoreIsDeadFromTheStart) {
  Objects objects = {apart(0, -0.5f, 1), apart(1, 0.5f, 2)};
  EXPECT_EQ(suppress(objects, 10), 1);
  EXPECT_EQ(tags(objects), (std::vector<uint32_t>{2, 1}));
  EXPECT_EQ(scores(objects), (std::vector<float>{0.5f, -0.5f}));
}

TEST(Nms, AScoreOfZeroSuppressesAndIsSuppressed) {
  for (const float zero : {0.0f, -0.0f}) {
    Objects objects = {apart(0, zero, 1), apart(0, zero, 2)};
    EXPECT_EQ(suppress(objects, 10), 1);
    EXPECT_EQ(scores(objects), (std::vector<float>{0.0f, -1.0f}));
  }
}

TEST(Nms, AScoreOfZeroStaysInTheCountIfNothingLiveFollows) {
  Objects objects = {apart(0, 0.5f, 1), apart(1, 0.0f, 2)};
  EXPECT_EQ(suppress(objects, 10), 2);
  EXPECT_EQ(tags(objects), (std::vector<uint32_t>{1, 2}));
  EXPECT_EQ(scores(objects), (std::vector<float>{0.5f, 0.0f}));
}

TEST(Nms, AScoreOfZeroGivesItsPlaceToTheLastLiveOneBehindIt) {
  Objects objects = {apart(0, 0.0f, 1), apart(1, 0.0f, 2), apart(2, 0.0f, 3)};
  EXPECT_EQ(suppress(objects, 10), 3);
  EXPECT_EQ(tags(objects), (std::vector<uint32_t>{3, 2, 3}));
  EXPECT_EQ(scores(objects), (std::vector<float>{0.0f, -1.0f, -1.0f}));
}

TEST(Nms, NothingBehindTheEndOfTheSweepFillsAPlace) {
  Objects objects = {apart(0, 0.0f, 1), apart(1, 0.0f, 2), apart(2, 0.0f, 3)};
  EXPECT_EQ(suppress(objects, 2), 2);
  EXPECT_EQ(tags(objects), (std::vector<uint32_t>{2, 2, 3}));
  EXPECT_EQ(scores(objects), (std::vector<float>{0.0f, -1.0f, 0.0f}));
}

// ---- Sort

Objects objects_of(const std::vector<float> &values) {
  Objects objects;
  for (size_t i = 0; i < values.size(); ++i)
    objects.push_back({1.0f * static_cast<float>(i), 2.0f, 3.0f, 4.0f, values[i], static_cast<uint32_t>(i)});
  return objects;
}

Objects sorted(Objects objects) {
  ::q_sort(objects.data(), 0, static_cast<int32_t>(objects.size()) - 1);
  return objects;
}

TEST(QSort, SortsWholeRecordsByDescendingScore) {
  const Objects start = objects_of({0.25f, 0.75f, -1.0f, 0.5f});
  EXPECT_TRUE(same(sorted(start), {start[1], start[3], start[0], start[2]}));
}

TEST(QSort, TiesComeInTheOrderOfThePartition) {
  EXPECT_EQ(tags(sorted(objects_of({1.0f, 1.0f, 2.0f}))), (std::vector<uint32_t>{2, 1, 0}));
  EXPECT_EQ(tags(sorted(objects_of({2.0f, 1.0f, 1.0f}))), (std::vector<uint32_t>{0, 1, 2}));
}

TEST(QSort, AnEmptyRangeTouchesNothing) {
  auto *nothing = reinterpret_cast<Object *>(support::unreadable_address());
  ::q_sort(nothing, 0, 0);
  ::q_sort(nothing, 0, -1);
  ::q_sort(nothing, 5, 2);
  SUCCEED();
}

constexpr size_t kMany = 10000;

Objects sorted_on_small_stack(Objects objects) {
  small_stack::run([&] { ::q_sort(objects.data(), 0, static_cast<int32_t>(objects.size()) - 1); });
  return objects;
}

std::vector<float> rising(size_t count) {
  std::vector<float> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i);
  return values;
}

TEST(QSort, ManySortedRecordsStayAndFitASmallStack) {
  std::vector<float> values = rising(kMany);
  std::reverse(values.begin(), values.end());
  const Objects objects = objects_of(values);
  EXPECT_TRUE(same(sorted_on_small_stack(objects), objects));
}

TEST(QSort, ManyReversedRecordsFitASmallStack) {
  const Objects objects = objects_of(rising(kMany));
  EXPECT_TRUE(same(sorted_on_small_stack(objects), Objects(objects.rbegin(), objects.rend())));
}

TEST(QSort, ManyEqualRecordsStayAndFitASmallStack) {
  const Objects objects = objects_of(std::vector<float>(kMany, 0.5f));
  EXPECT_TRUE(same(sorted_on_small_stack(objects), objects));
}

TEST(QSort, ManyRandomRecordsWithTiesAgreeWithTheTwinOnASmallStack) {
  Random random = support::test_random(451);
  SCOPED_TRACE(random.trace());
  for (const uint32_t levels : {200u, 5000u, 1000000000u}) {
    std::vector<float> values(kMany);
    for (float &value : values) value = static_cast<float>(random.below(levels)) / static_cast<float>(levels);
    const Objects objects = objects_of(values);
    Objects expected = objects;
    reference::q_sort(expected.data(), 0, static_cast<int32_t>(kMany) - 1);
    EXPECT_TRUE(same(sorted_on_small_stack(objects), expected)) << levels;
  }
}

TEST(QSort, AgreesWithItsTwinOnRandomRangesWithFewAndManyTies) {
  Random random = support::test_random(452);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(round);
    const uint32_t count = 1 + random.below(random.one_in(10) ? 400 : 40);
    const uint32_t levels = random.pick({1u, 2u, 3u, 8u, 100u, 1000000u});
    const GuardedMemory memory(count * sizeof(Object), {.alignment = 4});
    random.fill(memory.data(), memory.size());
    for (uint32_t i = 0; i < count; ++i) {
      float score = static_cast<float>(random.below(levels)) / static_cast<float>(levels);
      if (random.one_in(20))
        score = random.pick(
            {-1.0f, -0.0f, std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()});
      std::memcpy(memory.data() + sizeof(Object) * i + offsetof(Object, score), &score, sizeof score);
    }
    const auto left = static_cast<int32_t>(random.one_in(3) ? random.below(count) : 0);
    const int32_t right =
        random.one_in(3) ? random.between(left, static_cast<int32_t>(count) - 1) : static_cast<int32_t>(count) - 1;
    Differential differential;
    differential.track(memory, "objects", Element::k32Bit);
    ASSERT_TRUE(differential.same([&] { ::q_sort(memory.as<Object>(), left, right); },
                                  [&] { reference::q_sort(memory.as<Object>(), left, right); }));
  }
}

TEST(Nms, AgreesWithItsTwinOnRandomBoxes) {
  Random random = support::test_random(453);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(round);
    const uint32_t count = random.below(random.one_in(10) ? 150 : 25);
    const bool nasty = random.one_in(4);
    const uint32_t levels = random.pick({2u, 5u, 1000u});
    const GuardedMemory memory(count * sizeof(Object), {.alignment = 4});
    for (uint32_t i = 0; i < count; ++i) {
      Object object{};
      object.x1 = random.uniform(0.0f, 3.0f);
      object.y1 = random.uniform(0.0f, 3.0f);
      object.x2 = object.x1 + random.uniform(-0.2f, 2.0f);
      object.y2 = object.y1 + random.uniform(-0.2f, 2.0f);
      if (random.one_in(3)) {  // whole corners: boxes that touch, and equal boxes
        object = {static_cast<float>(random.below(3)),
                  static_cast<float>(random.below(3)),
                  static_cast<float>(random.below(5)),
                  static_cast<float>(random.below(5)),
                  0.0f,
                  0};
      }
      if (nasty && random.one_in(3)) random.fill_any_floats(&object, 4);
      object.score = static_cast<float>(random.below(levels + 1)) / static_cast<float>(levels) *
                     random.pick({1.0f, 1.0f, 3.0f, -1.0f});
      object.obj_tag = static_cast<uint32_t>(random.next());
      std::memcpy(memory.data() + sizeof(Object) * i, &object, sizeof object);
    }
    support::Case<_NN_NMS_PARM> nms;
    nms.block.nms_threshold = nasty ? random.any_float() : random.pick({0.0f, 0.3f, 0.45f, 0.5f, 1.0f, -1.0f});
    nms.block.obj_num = static_cast<int32_t>(count);
    nms.block.max_obj_num = random.one_in(2) ? 1000 : random.between(-1, 30);
    nms.block.reserved_0 = static_cast<uint32_t>(random.next());
    nms.attach(&_NN_NMS_PARM::obj_addr, memory, "objects", Element::kFloat);
    ASSERT_TRUE(nms.same(::tarvu_nms_process, reference::tarvu_nms_process));
  }
}

TEST(Nms, ManyKeptBoxesAgreeWithTheTwin) {
  // Some 700 boxes are kept, each of which suppresses boxes from just behind it to the end.
  Random random = support::test_random(454);
  SCOPED_TRACE(random.trace());
  constexpr int32_t kBoxes = 1500;
  Objects objects;
  for (int32_t i = 0; i < kBoxes; ++i) {
    const float x = random.uniform(0.0f, 40.0f);
    const float y = random.uniform(0.0f, 40.0f);
    objects.push_back({x, y, x + 1.0f, y + 1.0f, random.uniform(0.0f, 1.0f), static_cast<uint32_t>(i)});
  }
  for (const int32_t limit : {255, 256, 257, 511, 512, 600, kBoxes}) {
    Objects ours = objects;
    Objects expected = objects;
    const int32_t kept = ::nms_process_c(ours.data(), kBoxes, limit, 0.3f);
    EXPECT_EQ(kept, reference::nms_process_c(expected.data(), kBoxes, limit, 0.3f));
    EXPECT_TRUE(same(ours, expected)) << limit;
    EXPECT_GE(kept, std::min(limit, 600));
  }
}

}  // namespace
