// Detection output: non-maximum suppression.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace {

using support::Differential;
using support::Element;
using support::GuardedMemory;
using support::Random;

struct Box {
  float xmin;
  float ymin;
  float xmax;
  float ymax;
};

struct State {
  float area;
  float score;
};

/// Runs the suppression on boxes with scores, given in the order of the input.
struct Suppression {
  std::vector<Box> boxes;
  std::vector<float> scores;
  std::vector<_NN_DETOUT_RECORD> records;
  int32_t kept = 0;

  void add(float score, Box box) {
    boxes.push_back(box);
    scores.push_back(score);
  }

  void run(float threshold, int32_t top_k = 20) {
    records.clear();
    for (size_t i = 0; i < boxes.size(); ++i) records.push_back({scores[i], 0, reinterpret_cast<uintptr_t>(&boxes[i])});
    const auto count = static_cast<int32_t>(boxes.size());
    std::vector<Box> sorted(boxes.size() + 3);
    std::vector<State> state(boxes.size() + 3);
    kept = ::nonmax_suppress(records.data(), &sorted[0].xmin, &state[0].area, count, 1, top_k, threshold);
  }

  /// Place in the input of the box at record i.
  size_t origin(size_t i) const {
    return (records[i].box_addr - reinterpret_cast<uintptr_t>(boxes.data())) / sizeof(Box);
  }
};

/// Boxes that touch no other of these.
Box apart(int i) { return {3.0f * static_cast<float>(i), 0.0f, 3.0f * static_cast<float>(i) + 2.0f, 2.0f}; }

TEST(NonmaxSuppress, OfNoRecordsReturnsZeroAndTouchesNothing) {
  auto *nothing = reinterpret_cast<float *>(support::unreadable_address());
  EXPECT_EQ(::nonmax_suppress(nothing, nothing, nothing, 0, 1, 20, 0.5f), 0);
}

TEST(NonmaxSuppress, KeepsTheBestOfOverlappingBoxesInDescendingOrder) {
  Suppression s;
  s.add(0.5f, apart(0));
  s.add(0.9f, apart(1));
  s.add(0.8f, apart(1));
  s.add(0.7f, apart(2));
  s.add(0.6f, apart(0));
  s.run(0.5f);
  ASSERT_EQ(s.kept, 3);
  EXPECT_EQ(s.origin(0), 1u);
  EXPECT_EQ(s.origin(1), 3u);
  EXPECT_EQ(s.origin(2), 4u);
  EXPECT_EQ(s.records[0].score, 0.9f);
  EXPECT_EQ(s.records[1].score, 0.7f);
  EXPECT_EQ(s.records[2].score, 0.6f);
}

TEST(NonmaxSuppress, ReturnsNoMoreThanTheLimit) {
  Suppression s;
  for (int i = 0; i < 30; ++i) s.add(0.5f + 0.01f * static_cast<float>(i), apart(i));
  s.run(0.5f);
  EXPECT_EQ(s.kept, 20);
  EXPECT_EQ(s.origin(0), 29u);
  EXPECT_EQ(s.origin(19), 10u);
  s.run(0.5f, 3);
  EXPECT_EQ(s.kept, 3);
}

TEST(NonmaxSuppress, ALimitOfZeroReturnsZeroAndANegativeOneItself) {
  Suppression s;
  s.add(0.9f, apart(0));
  s.add(0.8f, apart(1));
  s.run(0.5f, 0);
  EXPECT_EQ(s.kept, 0);
  s.run(0.5f, -2);
  EXPECT_EQ(s.kept, -2);
}

TEST(NonmaxSuppress, AScoreAboveOneSurvivesOneSuppressionWithTheRestOfIt) {
  Suppression s;
  s.add(2.0f, apart(0));
  s.add(1.5f, apart(0));
  s.add(0.75f, apart(1));
  s.run(0.5f);
  ASSERT_EQ(s.kept, 3);
  EXPECT_EQ(s.records[1].score, 0.5f);
  EXPECT_EQ(s.records[2].score, 0.75f);
}

TEST(NonmaxSuppress, AScoreOfOneThatWasSuppressedStaysWithItsScoreIfNothingFillsItsPlace) {
  Suppression s;
  s.add(1.0f, apart(0));
  s.add(1.0f, apart(0));
  s.run(0.5f);
  ASSERT_EQ(s.kept, 2);
  EXPECT_EQ(s.records[0].score, 1.0f);
  EXPECT_EQ(s.records[1].score, 1.0f);
  EXPECT_EQ(s.origin(1), 1u);
}

TEST(NonmaxSuppress, AScoreOfOneThatWasSuppressedGivesItsPlaceToTheNextAndTheLastPlaceStays) {
  Suppression s;
  s.add(1.0f, apart(0));
  s.add(1.0f, apart(0));
  s.add(0.5f, apart(1));
  s.run(0.5f);
  // All three count as kept; box 2 moves up and stands in its old place as well.
  ASSERT_EQ(s.kept, 3);
  EXPECT_EQ(s.origin(1), 2u);
  EXPECT_EQ(s.records[1].score, 0.5f);
  EXPECT_EQ(s.origin(2), 2u);
  EXPECT_EQ(s.records[2].score, 0.5f);
}

TEST(NonmaxSuppress, AHoleIsFilledOnceAlsoWithAScoreOfZero) {
  Suppression s;
  s.add(0.5f, apart(0));
  s.add(0.4f, apart(0));  // dead
  s.add(0.0f, apart(1));
  s.add(-0.0f, apart(2));
  s.run(0.5f);
  ASSERT_EQ(s.kept, 3);
  EXPECT_EQ(s.origin(1), 2u);
  EXPECT_EQ(s.records[1].score, 0.0f);
  EXPECT_EQ(s.origin(2), 3u);
  EXPECT_EQ(s.records[2].score, 0.0f);
}

TEST(NonmaxSuppress, AgreesWithItsTwinOnRandomCandidates) {
  Random random = support::test_random(431);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 2500; ++round) {
    SCOPED_TRACE(round);
    const uint32_t count = random.below(random.one_in(10) ? 120 : 24);
    const bool nasty = random.one_in(4);
    const float scale = random.pick({0.5f, 1.0f, 2.5f});
    const uint32_t levels = random.pick({2u, 5u, 1000u});
    const GuardedMemory boxes(16 * size_t{count}, {.alignment = 4});
    const GuardedMemory records(16 * size_t{count}, {.alignment = 4});
    const GuardedMemory sorted(16 * size_t{count + 3}, {.alignment = 4});
    const GuardedMemory state(8 * size_t{count + 3}, {.alignment = 4});
    random.fill_any_floats(sorted.data(), sorted.size() / 4);
    random.fill_any_floats(state.data(), state.size() / 4);
    random.fill(records.data(), records.size());
    for (uint32_t i = 0; i < count; ++i) {
      Box box{random.uniform(0.0f, 3.0f), random.uniform(0.0f, 3.0f), 0.0f, 0.0f};
      box.xmax = box.xmin + random.uniform(-0.2f, 2.0f);
      box.ymax = box.ymin + random.uniform(-0.2f, 2.0f);
      if (random.one_in(4) && i > 0) std::memcpy(&box, boxes.data() + 16 * size_t{random.below(i)}, 16);
      if (nasty && random.one_in(3)) random.fill_any_floats(&box, 4);
      std::memcpy(boxes.data() + 16 * size_t{i}, &box, 16);
      const float unit = static_cast<float>(random.below(levels + 1)) / static_cast<float>(levels);
      const float score = random.one_in(20) ? -unit : unit * scale;
      const uint64_t address = boxes.address() + 16 * size_t{i};
      std::memcpy(records.data() + 16 * size_t{i}, &score, 4);
      std::memcpy(records.data() + 16 * size_t{i} + 8, &address, 8);
    }
    const float threshold = nasty ? random.any_float() : random.pick({0.0f, 0.3f, 0.5f, 1.0f, -1.0f});
    const int32_t top_k = random.pick({20, 20, 1000, 5, 1, 0});
    Differential differential;
    differential.track(boxes, "candidates", Element::kFloat);
    differential.track(records, "records", Element::k32Bit);
    differential.track(sorted, "boxes", Element::kFloat);
    differential.track(state, "state", Element::kFloat);
    const auto call = [&](auto suppress) {
      return [&, suppress] {
        return suppress(records.data(), sorted.as<float>(), state.as<float>(), static_cast<int32_t>(count), 1, top_k,
                        threshold);
      };
    };
    ASSERT_TRUE(differential.same(call(::nonmax_suppress), call(reference::nonmax_suppress)));
  }
}

}  // namespace
