// Detection output: areas and the greedy sweep.
#include <gtest/gtest.h>

#include <cmath>
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

/// Boxes that touch no other of these.
Box apart(int i) { return {3.0f * static_cast<float>(i), 0.0f, 3.0f * static_cast<float>(i) + 2.0f, 2.0f}; }

// ---- Areas

TEST(CalcArea, IsHeightTimesWidthWithTheirSigns) {
  const std::vector<Box> boxes = {
      {1.0f, 2.0f, 4.0f, 6.0f}, {4.0f, 2.0f, 1.0f, 6.0f}, {4.0f, 6.0f, 1.0f, 2.0f}, {1.0f, 1.0f, 1.0f, 9.0f}};
  std::vector<State> state(4, {99.0f, 0.5f});
  ::calc_area(&boxes[0].xmin, &state[0].area, 4);
  EXPECT_EQ(state[0].area, 12.0f);
  EXPECT_EQ(state[1].area, -12.0f);
  EXPECT_EQ(state[2].area, 12.0f);
  EXPECT_EQ(state[3].area, 0.0f);
  for (const State &one : state) EXPECT_EQ(one.score, 0.5f);
}

TEST(CalcArea, FillsUpToTheNextMultipleOfFour) {
  const std::vector<Box> boxes(8, {0.0f, 0.0f, 2.0f, 3.0f});
  std::vector<State> state(12, {99.0f, 0.5f});
  ::calc_area(&boxes[0].xmin, &state[0].area, 5);
  for (size_t i = 0; i < 12; ++i) EXPECT_EQ(state[i].area, i < 8 ? 6.0f : 99.0f) << i;
}

TEST(CalcArea, OfNoBoxesTouchesNothing) {
  auto *nothing = reinterpret_cast<float *>(support::unreadable_address());
  ::calc_area(nothing, nothing, 0);
  ::calc_area(nothing, nothing, -5);
  SUCCEED();
}

// ---- Sweep

struct Sweep {
  std::vector<Box> boxes;
  std::vector<State> state;
  int32_t last = 999;

  void add(float score, Box box) {
    boxes.push_back(box);
    state.push_back({(box.ymax - box.ymin) * (box.xmax - box.xmin), score});
  }

  int32_t run(float threshold, int32_t top_k) {
    const auto count = static_cast<int32_t>(boxes.size());
    for (int i = 0; i < 3; ++i) add(-1.0f, {});
    return ::check_overlap(&boxes[0].xmin, &state[0].area, count, top_k, &last, threshold);
  }
};

TEST(CheckOverlap, SuppressesAtEqualityOfTheThreshold) {
  // Intersection 1, union 2.
  Sweep at;
  at.add(0.9f, {0.0f, 0.0f, 2.0f, 1.0f});
  at.add(0.8f, {0.0f, 0.0f, 1.0f, 1.0f});
  EXPECT_EQ(at.run(0.5f, 20), 1);
  EXPECT_LT(at.state[1].score, 0.0f);
  Sweep above;
  above.add(0.9f, {0.0f, 0.0f, 2.0f, 1.0f});
  above.add(0.8f, {0.0f, 0.0f, 1.0f, 1.0f});
  EXPECT_EQ(above.run(std::nextafter(0.5f, 1.0f), 20), 2);
  EXPECT_EQ(above.state[1].score, 0.8f);
}

TEST(CheckOverlap, TwoEmptyBoxesSuppressEachOther) {
  Sweep sweep;
  sweep.add(0.9f, {1.0f, 1.0f, 1.0f, 1.0f});
  sweep.add(0.8f, {5.0f, 5.0f, 5.0f, 5.0f});
  EXPECT_EQ(sweep.run(0.5f, 20), 1);
}

TEST(CheckOverlap, AnEmptyBoxDoesNotSuppressAFullOne) {
  Sweep sweep;
  sweep.add(0.9f, {1.0f, 1.0f, 1.0f, 1.0f});
  sweep.add(0.8f, {0.0f, 0.0f, 2.0f, 2.0f});
  EXPECT_EQ(sweep.run(0.5f, 20), 2);
}

TEST(CheckOverlap, ANegativeAreaIsTakenAsItIs) {
  // Intersection 0, areas 4 and -9: 0 is at least -5 * threshold.
  Sweep sweep;
  sweep.add(0.9f, {0.0f, 0.0f, 2.0f, 2.0f});
  sweep.add(0.8f, {13.0f, 10.0f, 10.0f, 13.0f});
  EXPECT_EQ(sweep.run(0.5f, 20), 1);
}

TEST(CheckOverlap, AThresholdOfZeroSuppressesBoxesApart) {
  Sweep sweep;
  sweep.add(0.9f, apart(0));
  sweep.add(0.8f, apart(1));
  EXPECT_EQ(sweep.run(0.0f, 20), 1);
}

TEST(CheckOverlap, SuppressionLowersTheScoreByOne) {
  Sweep sweep;
  sweep.add(2.0f, apart(0));
  sweep.add(1.5f, apart(0));
  sweep.add(0.25f, apart(1));
  EXPECT_EQ(sweep.run(0.5f, 20), 3);
  EXPECT_EQ(sweep.state[1].score, 0.5f);
  EXPECT_EQ(sweep.last, 2);
}

TEST(CheckOverlap, AGroupOfFourStartsAtALiveBoxAndLowersItsDeadBoxesToo) {
  Sweep sweep;
  for (int i = 0; i < 6; ++i) sweep.add(i == 1 || i == 3 ? -1.0f : 0.5f, apart(0));
  EXPECT_EQ(sweep.run(0.5f, 20), 1);
  EXPECT_EQ(sweep.state[1].score, -1.0f);  // stepped over
  EXPECT_EQ(sweep.state[2].score, -0.5f);
  EXPECT_EQ(sweep.state[3].score, -2.0f);  // in the group of box 2
  EXPECT_EQ(sweep.state[4].score, -0.5f);
  EXPECT_EQ(sweep.state[5].score, -0.5f);
}

TEST(CheckOverlap, ANegativeZeroIsAlive) {
  Sweep sweep;
  sweep.add(-0.0f, apart(0));
  sweep.add(-0.0f, apart(1));
  sweep.add(-0.0f, apart(0));
  EXPECT_EQ(sweep.run(0.5f, 20), 2);
  EXPECT_EQ(sweep.last, 1);
  EXPECT_EQ(sweep.state[2].score, -1.0f);
}

TEST(CheckOverlap, TheBoxThatFillsTheLimitSuppressesNothing) {
  Sweep sweep;
  sweep.add(0.9f, apart(0));
  sweep.add(0.8f, apart(1));
  sweep.add(0.7f, apart(1));
  EXPECT_EQ(sweep.run(0.5f, 2), 2);
  EXPECT_EQ(sweep.last, 1);
  EXPECT_EQ(sweep.state[2].score, 0.7f);
}

TEST(CheckOverlap, ALimitBelowOneEndsAtTheFirstLiveBox) {
  for (const int32_t top_k : {0, -3}) {
    Sweep sweep;
    sweep.add(-1.0f, apart(0));
    sweep.add(0.8f, apart(1));
    sweep.add(0.7f, apart(1));
    EXPECT_EQ(sweep.run(0.5f, top_k), 1);
    EXPECT_EQ(sweep.last, 1);
    EXPECT_EQ(sweep.state[2].score, 0.7f);
  }
}

TEST(CheckOverlap, WithoutALiveBoxNothingIsKeptAndTheLastIsZero) {
  Sweep sweep;
  for (int i = 0; i < 5; ++i) sweep.add(-0.5f, apart(i));
  EXPECT_EQ(sweep.run(0.5f, 20), 0);
  EXPECT_EQ(sweep.last, 0);
}

TEST(CheckOverlap, ADeadLastBoxIsNotTheLastKept) {
  Sweep sweep;
  sweep.add(0.9f, apart(0));
  sweep.add(0.8f, apart(1));
  sweep.add(0.7f, apart(0));
  EXPECT_EQ(sweep.run(0.5f, 20), 2);
  EXPECT_EQ(sweep.last, 1);
}

TEST(CheckOverlap, AgreesWithItsTwinOnUnsortedScoresAndAnyAreas) {
  Random random = support::test_random(432);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 2000; ++round) {
    SCOPED_TRACE(round);
    const uint32_t count = random.below(40);
    const bool nasty = random.one_in(3);
    const GuardedMemory boxes(16 * size_t{count + 3}, {.alignment = 4});
    const GuardedMemory state(8 * size_t{count + 3}, {.alignment = 4});
    const GuardedMemory last(4, {.alignment = 4});
    for (uint32_t i = 0; i < count + 3; ++i) {
      Box box{random.uniform(0.0f, 2.0f), random.uniform(0.0f, 2.0f), random.uniform(1.0f, 3.0f),
              random.uniform(1.0f, 3.0f)};
      State one{(box.ymax - box.ymin) * (box.xmax - box.xmin), random.uniform(-0.5f, 2.5f)};
      if (nasty && random.one_in(3)) random.fill_any_floats(&box, 4);
      if (nasty) one.area = random.any_float();
      if (random.one_in(6)) one.score = random.pick({0.0f, -0.0f, 1.0f, 2.0f, 1e-30f, 1e30f});
      if (i >= count) one.score = -1.0f;
      std::memcpy(boxes.data() + 16 * size_t{i}, &box, 16);
      std::memcpy(state.data() + 8 * size_t{i}, &one, 8);
    }
    const int32_t top_k = random.between(-1, 25);
    const float threshold = random.pick({0.0f, 0.3f, 0.45f, 0.7f});
    Differential differential;
    differential.track(boxes, "boxes", Element::kFloat);
    differential.track(state, "state", Element::kFloat);
    differential.track(last, "last", Element::k32Bit);
    const auto call = [&](auto sweep) {
      return [&, sweep] {
        return sweep(boxes.as<float>(), state.as<float>(), static_cast<int32_t>(count), top_k, last.as<int32_t>(),
                     threshold);
      };
    };
    ASSERT_TRUE(differential.same(call(::check_overlap), call(reference::check_overlap)));
  }
}

TEST(CalcArea, AgreesWithItsTwinOnAnyFloats) {
  Random random = support::test_random(433);
  SCOPED_TRACE(random.trace());
  for (int32_t count = 0; count < 40; ++count) {
    SCOPED_TRACE(count);
    const size_t padded = (static_cast<size_t>(count) + 3) / 4 * 4;
    const GuardedMemory boxes(16 * padded, {.alignment = 4});
    const GuardedMemory state(8 * padded, {.alignment = 4});
    random.fill_any_floats(boxes.data(), 4 * padded);
    random.fill_any_floats(state.data(), 2 * padded);
    Differential differential;
    differential.track(boxes, "boxes", Element::kFloat);
    differential.track(state, "state", Element::kFloat);
    ASSERT_TRUE(differential.same([&] { ::calc_area(boxes.as<float>(), state.as<float>(), count); },
                                  [&] { reference::calc_area(boxes.as<float>(), state.as<float>(), count); }));
  }
}

}  // namespace
