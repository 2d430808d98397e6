#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/parity/digest.h"
#include "tests/support/stdout_capture.h"
#include "tests/whole/allocating_code.h"
#include "tests/whole/heap_count.h"

namespace {

using whole::take_heap_story;

/// What the four calls of a Gather ND entry take: a stride table and an index table of 4 bytes an entry each, and every other time
/// a staging block of the output's elements. Elements of 32 bits are refused.
std::string story_of_gather_nd(int width, int coordinates) {
  constexpr int kTuples = 86;
  constexpr int kExtent = 5;
  if (width == 32) return {};
  const int slice_rank = 4 - coordinates - (coordinates < 4 ? 1 : 0);
  const int slice = slice_rank == 0 ? 1 : slice_rank == 1 ? kExtent : kExtent * kExtent;
  const std::string tables =
      "calloc " + std::to_string(4 * coordinates) + ", calloc " + std::to_string(4 * kTuples * coordinates);
  const std::string staged = tables + ", malloc " + std::to_string(kTuples * slice * width / 8);
  return tables + ", " + staged + ", " + tables + ", " + staged;
}

std::string expected_story(const std::string &entry) {
  int width = 0;
  int coordinates = 0;
  if (std::sscanf(entry.c_str(), "gathernd_%d_coordinates_%d", &width, &coordinates) != 2) return {};
  return story_of_gather_nd(width, coordinates);
}

TEST(WholeHeap, NoOperatorTakesMemoryButGatherNdWhichTakesItsTablesAndItsStagingBlock) {
  struct Entry {
    std::string name, story;
  };
  std::vector<Entry> entries;
  parity::Report report([&entries](const std::string &name) { entries.push_back({name, take_heap_story()}); });
  {
    support::StdoutCapture capture;
    for (const parity::Subsystem &subsystem : parity::kSubsystems) subsystem.add_cases(report);
  }
  int stories = 0;
  for (const Entry &entry : entries) {
    EXPECT_EQ(expected_story(entry.name), entry.story) << entry.name;
    stories += entry.story.empty() ? 0 : 1;
  }
  EXPECT_EQ(8, stories) << "entries of Gather ND that take memory";
  EXPECT_EQ(std::string(), take_heap_story()) << "behind the last entry";
}

TEST(WholeHeap, EveryWayOfTakingMemoryIsSeen) {
  take_heap_story();
  whole::allocate_in_every_way();
  EXPECT_EQ(
      "malloc 11, realloc 12, free, calloc 14, free, reallocarray 15, free, aligned_alloc 16, free, posix_memalign 17, "
      "free, "
      "memalign 18, free, strdup 19, free, mmap 4096, new 8, free, new 21, free, new 32, free",
      take_heap_story());
}

}  // namespace
