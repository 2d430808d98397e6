// Ranges of memory against a loop over their bytes.
#include "frame/memory.h"

#include <gtest/gtest.h>

namespace {

using tarvu::Memory;

constexpr uint64_t kMostBytes = 5;

bool shares_a_byte(const Memory &a, const Memory &b) {
  for (uint64_t i = 0; i < a.bytes; ++i) {
    for (uint64_t j = 0; j < b.bytes; ++j) {
      if (a.address + i == b.address + j) return true;
    }
  }
  return false;
}

/// Calls action for all pairs of short ranges near `middle`.
template <class Action>
void for_each_pair(uint64_t middle, Action action) {
  for (uint64_t distance = 0; distance < 16; ++distance) {
    for (uint64_t a = 1; a <= kMostBytes; ++a) {
      for (uint64_t b = 1; b <= kMostBytes; ++b) action(Memory{middle, a}, Memory{middle - 8 + distance, b});
    }
  }
}

TEST(Memory, RangesLieApartIfTheyShareNoByte) {
  for_each_pair(1000, [](const Memory &a, const Memory &b) { EXPECT_EQ(lie_apart(a, b), !shares_a_byte(a, b)); });
}

TEST(Memory, RangesThatReachBeyondTheLastAddressGoOnFromTheFirst) {
  for (const uint64_t middle : {uint64_t{0} - 3, uint64_t{0}, uint64_t{2}}) {
    for_each_pair(middle, [](const Memory &a, const Memory &b) { EXPECT_EQ(lie_apart(a, b), !shares_a_byte(a, b)); });
  }
}

TEST(Memory, AnEmptyRangeLiesApartFromEverything) {
  const Memory array{100, 10};
  for (const uint64_t address : {99u, 100u, 105u, 110u}) {
    EXPECT_TRUE(lie_apart(Memory{address, 0}, array)) << address;
    EXPECT_TRUE(lie_apart(array, Memory{address, 0})) << address;
  }
}

TEST(Memory, RangesAreTheSameByAddressAndLength) {
  EXPECT_TRUE(are_same(Memory{8, 4}, Memory{8, 4}));
  EXPECT_FALSE(are_same(Memory{8, 4}, Memory{8, 5}));
  EXPECT_FALSE(are_same(Memory{8, 4}, Memory{9, 4}));
}

/// Ascending blocks of two elements, all read before they are written: whether one reads what another one wrote.
bool a_block_reads_what_was_written(const Memory &source, const Memory &destination, uint64_t elements) {
  const uint64_t in_bytes = source.bytes / elements;
  const uint64_t out_bytes = destination.bytes / elements;
  for (uint64_t later = 2; later < elements; later += 2) {
    const Memory read{source.address + later * in_bytes, 2 * in_bytes};
    const Memory written{destination.address, later * out_bytes};
    if (shares_a_byte(read, written)) return true;
  }
  return false;
}

TEST(Memory, NoStorePrecedesItsLoadWhereBlocksInAscendingOrderNeverMeetTheirOwnResults) {
  constexpr uint64_t kElements = 4;
  for (uint64_t start = 80; start < 120; ++start) {
    for (const uint64_t in_bytes : {1u, 2u, 4u}) {
      for (const uint64_t out_bytes : {1u, 2u, 4u}) {
        const Memory source{100, kElements * in_bytes};
        const Memory destination{start, kElements * out_bytes};
        if (!no_store_precedes_its_load(source, destination)) continue;
        EXPECT_FALSE(a_block_reads_what_was_written(source, destination, kElements)) << start << in_bytes << out_bytes;
      }
    }
  }
  EXPECT_TRUE(no_store_precedes_its_load(Memory{100, 8}, Memory{100, 8}));
  EXPECT_TRUE(no_store_precedes_its_load(Memory{100, 8}, Memory{97, 4}));
  EXPECT_TRUE(no_store_precedes_its_load(Memory{104, 4}, Memory{100, 8}));
  EXPECT_FALSE(no_store_precedes_its_load(Memory{100, 8}, Memory{101, 8}));
  EXPECT_FALSE(no_store_precedes_its_load(Memory{100, 4}, Memory{100, 8}));
}

}  // namespace
