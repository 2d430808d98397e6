// Runs brought side by side and taken apart again, over guarded memory.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "simd/side_by_side.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace {

using support::Fault;
using support::GuardedMemory;
using support::Random;
using support::test_random;

/// One run for each lane, all in memory that ends where they end.
template <class Lanes>
struct RunsInMemory {
  static constexpr size_t kRuns = tarvu::kLanes<Lanes>;
  using Element = typename tarvu::LaneOf<Lanes>::type;
  size_t count;
  GuardedMemory memory;
  std::vector<uint8_t *> runs;

  explicit RunsInMemory(size_t count_)
      : count(count_), memory(count_ * kRuns * sizeof(Element), {Fault::kBehind, 2, 0}) {
    for (size_t r = 0; r < kRuns; ++r) runs.push_back(memory.data() + r * count * sizeof(Element));
  }
  Element at(size_t run, size_t i) const { return tarvu::load<Element>(runs[run] + i * sizeof(Element)); }
};

template <class Lanes>
class SideBySide : public ::testing::Test {};
using LaneTypes = ::testing::Types<tarvu::u8x16, tarvu::u16x8>;
TYPED_TEST_SUITE(SideBySide, LaneTypes);

TYPED_TEST(SideBySide, EveryElementOfARunComesToItsPlaceInTheLaneOfTheRun) {
  using Lanes = TypeParam;
  using Element = typename tarvu::LaneOf<Lanes>::type;
  Random random = test_random(81);
  for (const size_t place_bytes : {size_t{16}, size_t{48}}) {
    for (size_t count = 1; count <= 40; ++count) {
      if (count > tarvu::kMostOfShortRun && count < RunsInMemory<Lanes>::kRuns) continue;
      const RunsInMemory<Lanes> runs(count);
      random.fill(runs.memory.data(), runs.memory.size());
      const GuardedMemory places((count - 1) * place_bytes + 16, {Fault::kBehind, 2, 0});
      if (count <= tarvu::kMostOfShortRun) {
        tarvu::bring_short_runs_together<Lanes>(runs.runs[0], count, places.data(), place_bytes);
      } else {
        tarvu::bring_together<Lanes>(runs.runs.data(), 0, count, places.data(), place_bytes);
      }
      for (size_t i = 0; i < count; ++i) {
        for (size_t r = 0; r < runs.kRuns; ++r) {
          ASSERT_EQ(tarvu::load<Element>(places.data() + i * place_bytes + r * sizeof(Element)), runs.at(r, i))
              << "element " << i << " of run " << r << " of " << count;
        }
      }
    }
  }
}

TYPED_TEST(SideBySide, TheWayBackGivesTheRunsAndWritesNothingElse) {
  using Lanes = TypeParam;
  using Element = typename tarvu::LaneOf<Lanes>::type;
  Random random = test_random(82);
  for (const size_t place_bytes : {size_t{16}, size_t{48}}) {
    for (size_t count = 1; count <= 40; ++count) {
      if (count > tarvu::kMostOfShortRun && count < RunsInMemory<Lanes>::kRuns) continue;
      const RunsInMemory<Lanes> runs(count);
      runs.memory.fill(0x5A);
      const GuardedMemory places((count - 1) * place_bytes + 16, {Fault::kBehind, 2, 0});
      random.fill(places.data(), places.size());
      const size_t wanted = count <= tarvu::kMostOfShortRun ? runs.kRuns : 1 + random.below(runs.kRuns);
      if (count <= tarvu::kMostOfShortRun) {
        tarvu::take_short_runs_apart<Lanes>(places.data(), place_bytes, count, runs.runs[0]);
      } else {
        tarvu::take_apart<Lanes>(places.data(), place_bytes, count, runs.runs.data(), wanted, 0);
      }
      for (size_t r = 0; r < runs.kRuns; ++r) {
        for (size_t i = 0; i < count; ++i) {
          const auto place = tarvu::load<Element>(places.data() + i * place_bytes + r * sizeof(Element));
          const auto untouched = static_cast<Element>(sizeof(Element) == 1 ? 0x5A : 0x5A5A);
          ASSERT_EQ(runs.at(r, i), r < wanted ? place : untouched) << "element " << i << " of run " << r;
        }
      }
      EXPECT_EQ(runs.memory.guard_damage(), "");
    }
  }
}

TEST(CopyLines, EveryLengthIsCopiedWithoutReadingOrWritingAnythingElse) {
  Random random = test_random(83);
  for (size_t bytes = 1; bytes <= 70; ++bytes) {
    constexpr size_t kLines = 3;
    const size_t from_step = bytes + random.below(3);
    const size_t to_step = bytes + random.below(3);
    for (const Fault fault : {Fault::kBehind, Fault::kInFront}) {
      const GuardedMemory from((kLines - 1) * from_step + bytes, {fault, 1, 0});
      const GuardedMemory to((kLines - 1) * to_step + bytes, {fault, 1, 0});
      random.fill(from.data(), from.size());
      to.fill(0x5A);
      tarvu::copy_lines(from.data(), from_step, to.data(), to_step, bytes, kLines);
      for (size_t at = 0; at < to.size(); ++at) {
        const size_t line = at / to_step;
        const size_t in_line = at % to_step;
        ASSERT_EQ(to.data()[at], in_line < bytes ? from.data()[line * from_step + in_line] : 0x5A) << bytes;
      }
      EXPECT_EQ(to.guard_damage(), "");
    }
  }
}

}  // namespace
