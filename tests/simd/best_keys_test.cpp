#include "simd/best_keys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/support/random.h"

namespace {

/// The greatest keys of each column, found by sorting, against those found in lanes.
template <class Rank, int count>
void expect_best_keys(uint32_t rows, Rank flip, support::Random &random) {
  constexpr size_t kColumns = tarvu::kKeyColumns<Rank>;
  std::vector<Rank> table(rows * kColumns);
  for (Rank &element : table) element = static_cast<Rank>(random.next() >> (random.below(2) == 0 ? 62 : 40));
  const auto best = tarvu::find_best_keys<Rank, count>(reinterpret_cast<const uint8_t *>(table.data()),
                                                       kColumns * sizeof(Rank), rows, flip);
  for (size_t column = 0; column < kColumns; ++column) {
    std::vector<uint32_t> order(rows);
    for (uint32_t row = 0; row < rows; ++row) order[row] = row;
    std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
      return static_cast<Rank>(table[a * kColumns + column] ^ flip) >
             static_cast<Rank>(table[b * kColumns + column] ^ flip);
    });
    for (uint32_t pick = 0; pick < count && pick < rows; ++pick) {
      const auto found = tarvu::picked<Rank>(best.keys[pick], flip);
      ASSERT_EQ(found.positions[column], order[pick]) << rows << " rows, column " << column << ", pick " << pick;
      ASSERT_EQ(found.elements[column], table[order[pick] * kColumns + column]);
    }
  }
}

TEST(BestKeys, RankEveryColumnByElementAndThenByPosition) {
  support::Random random(94);
  for (const uint32_t rows : {1u, 2u, 3u, 5u, 9u, 21u, 255u, 256u}) {
    expect_best_keys<uint8_t, 1>(rows, 0x80, random);
    expect_best_keys<uint8_t, 5>(rows, 0xFF, random);
    expect_best_keys<uint16_t, 1>(rows, 0x8000, random);
    expect_best_keys<uint16_t, 8>(rows, 0, random);
  }
}

}  // namespace
