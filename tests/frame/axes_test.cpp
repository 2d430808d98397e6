// Merged walks against the places of the walk that they were made of.
#include "frame/axes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "tests/support/random.h"

namespace {

using support::Random;
using tarvu::Axes;
using tarvu::Axis;

template <int tensors>
using Place = std::array<ptrdiff_t, tensors>;

/// The places of a walk by counting, the innermost axis fastest.
template <int tensors>
std::vector<Place<tensors>> places_of(const Axes<tensors> &axes) {
  size_t all = 1;
  for (int d = 0; d < axes.count; ++d) all *= axes.axis[d].extent;
  std::vector<Place<tensors>> places(all);
  for (size_t n = 0; n < all; ++n) {
    size_t rest = n;
    for (int d = 0; d < axes.count; ++d) {
      const auto k = static_cast<ptrdiff_t>(rest % axes.axis[d].extent);
      rest /= axes.axis[d].extent;
      for (int t = 0; t < tensors; ++t) places[n][static_cast<size_t>(t)] += k * axes.axis[d].step[t];
    }
  }
  return places;
}

/// Axes of which many continue the one before, in all tensors or in some.
template <int tensors>
Axes<tensors> random_axes(Random &random) {
  Axes<tensors> axes{};
  const int count = static_cast<int>(random.below(tarvu::kMostAxes + 1));
  Axis<tensors> last{1, {}};
  for (int t = 0; t < tensors; ++t) last.step[t] = random.one_in(8) ? 0 : 1 + static_cast<ptrdiff_t>(random.below(4));
  for (int d = 0; d < count; ++d) {
    Axis<tensors> next{};
    next.extent = random.one_in(12) ? 0 : 1 + random.below(4);
    for (int t = 0; t < tensors; ++t) {
      next.step[t] = static_cast<ptrdiff_t>(last.extent) * last.step[t];
      if (random.one_in(4)) next.step[t] += static_cast<ptrdiff_t>(random.below(9)) - 4;
    }
    add_axis(axes, next);
    last = next;
  }
  return axes;
}

template <int tensors>
void expect_same_walk(const Axes<tensors> &axes) {
  const Axes<tensors> merged = merge_axes(axes);
  ASSERT_GE(merged.count, 1);
  EXPECT_LE(merged.count, std::max(axes.count, 1));
  EXPECT_EQ(places_of(merged), places_of(axes));
  for (int d = 1; d < merged.count; ++d) {
    EXPECT_FALSE(continues(merged.axis[d - 1], merged.axis[d])) << "neighbours that continue one another are left";
  }
  for (int d = 0; d < merged.count && merged.count > 1; ++d) EXPECT_GT(merged.axis[d].extent, 1u);
}

TEST(MergeAxes, WalksTheSamePlacesInTheSameOrder) {
  Random random = support::test_random(1601);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 2000; ++i) {
    expect_same_walk(random_axes<1>(random));
    expect_same_walk(random_axes<2>(random));
    expect_same_walk(random_axes<3>(random));
  }
}

TEST(MergeAxes, DensePlanesOfADenseTensorAreOneRun) {
  const Axes<2> dense{{{7, {1, 4}}, {5, {7, 28}}, {3, {35, 140}}, {1, {999, 5}}, {2, {105, 420}}}, 5};
  const Axes<2> merged = merge_axes(dense);
  ASSERT_EQ(merged.count, 1);
  EXPECT_EQ(merged.axis[0].extent, 210u);
  EXPECT_EQ(merged.axis[0].step[0], 1);
  EXPECT_EQ(merged.axis[0].step[1], 4);
}

TEST(MergeAxes, PaddingInOneTensorKeepsLinesApart) {
  const Axes<2> padded{{{7, {1, 1}}, {5, {7, 8}}, {3, {35, 40}}}, 3};
  const Axes<2> merged = merge_axes(padded);
  ASSERT_EQ(merged.count, 2);
  EXPECT_EQ(merged.axis[0].extent, 7u);
  EXPECT_EQ(merged.axis[1].extent, 15u);
  EXPECT_EQ(merged.axis[1].step[0], 7);
  EXPECT_EQ(merged.axis[1].step[1], 8);
}

TEST(MergeAxes, NoMergedExtentPassesTheLimit) {
  const Axes<1> dense{{{10, {1}}, {10, {10}}, {10, {100}}}, 3};
  EXPECT_EQ(merge_axes(dense, 1000).count, 1);
  const Axes<1> limited = merge_axes(dense, 999);
  ASSERT_EQ(limited.count, 2);
  EXPECT_EQ(limited.axis[0].extent, 100u);
  EXPECT_EQ(places_of(limited), places_of(dense));
}

TEST(MergeAxes, AWalkWithoutAxesHasOnePlaceAndOneWithAnEmptyAxisNone) {
  const Axes<1> point = merge_axes(Axes<1>{});
  ASSERT_EQ(point.count, 1);
  EXPECT_EQ(point.axis[0].extent, 1u);
  const Axes<1> empty = merge_axes(Axes<1>{{{4, {1}}, {0, {4}}, {9, {0}}}, 3});
  ASSERT_EQ(empty.count, 1);
  EXPECT_EQ(empty.axis[0].extent, 0u);
}

TEST(SortAxes, AStableOrderByTheStepsOfOneTensorPutsWhatMergesSideBySide) {
  const Axes<2> crossed{{{3, {40, 8}}, {8, {5, 1}}, {5, {1, 24}}}, 3};
  const Axes<2> sorted = sort_axes(crossed, 1);
  EXPECT_EQ(sorted.axis[0].extent, 8u);
  EXPECT_EQ(sorted.axis[1].extent, 3u);
  EXPECT_EQ(sorted.axis[2].extent, 5u);
  EXPECT_EQ(merge_axes(sorted).count, 2);
  const Axes<1> equal = sort_axes(Axes<1>{{{2, {0}}, {3, {0}}, {4, {-1}}}, 3}, 0);
  EXPECT_EQ(equal.axis[0].extent, 4u);
  EXPECT_EQ(equal.axis[1].extent, 2u);
  EXPECT_EQ(equal.axis[2].extent, 3u);
}

template <int tensors>
std::vector<Place<tensors>> visited(const Axes<tensors> &axes, int first) {
  std::vector<Place<tensors>> places;
  for_each_place(axes, first, [&](const tarvu::Offsets<tensors> &at) {
    Place<tensors> place;
    for (int t = 0; t < tensors; ++t) place[static_cast<size_t>(t)] = at.of[t];
    places.push_back(place);
  });
  return places;
}

TEST(ForEachPlace, VisitsEveryElementOrTheStartOfEveryLineInOrder) {
  Random random = support::test_random(1602);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 500; ++i) {
    Axes<3> axes = merge_axes(random_axes<3>(random));
    const std::vector<Place<3>> all = places_of(axes);
    EXPECT_EQ(visited(axes, 0), all);
    std::vector<Place<3>> starts;
    for (size_t n = 0; n < all.size(); n += axes.axis[0].extent) starts.push_back(all[n]);
    EXPECT_EQ(visited(axes, 1), starts);
  }
}

}  // namespace
