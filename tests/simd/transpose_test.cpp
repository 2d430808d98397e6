#include "simd/transpose.h"

#include <gtest/gtest.h>

#include <vector>

#include "simd/byte_table.h"
#include "simd/part.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace {

using support::GuardedMemory;

/// Every side from 1 to twice the largest block + 3, dense and with gaps, over memory that ends where the tables end.
template <class Element>
void expect_transposed(uint32_t rows, uint32_t columns, size_t from_gap, size_t to_gap, support::Random &random) {
  const size_t from_step = columns * sizeof(Element) + from_gap;
  const size_t to_step = rows * sizeof(Element) + to_gap;
  const GuardedMemory from((rows - 1) * from_step + columns * sizeof(Element));
  const GuardedMemory to((columns - 1) * to_step + rows * sizeof(Element));
  random.fill(from.data(), from.size());
  random.fill(to.data(), to.size());
  std::vector<uint8_t> expected(to.data(), to.data() + to.size());
  for (uint32_t r = 0; r < rows; ++r) {
    for (uint32_t c = 0; c < columns; ++c) {
      std::memcpy(&expected[c * to_step + r * sizeof(Element)], from.data() + r * from_step + c * sizeof(Element),
                  sizeof(Element));
    }
  }
  tarvu::transpose<Element>(from.data(), from_step, to.data(), to_step, rows, columns);
  ASSERT_EQ(std::vector<uint8_t>(to.data(), to.data() + to.size()), expected) << rows << " x " << columns;
}

template <class Element>
void expect_every_shape_transposed() {
  support::Random random(91);
  constexpr uint32_t kMost = 2 * 16 / sizeof(Element) + 3;
  for (uint32_t rows = 1; rows <= kMost; ++rows) {
    for (uint32_t columns = 1; columns <= kMost; ++columns) {
      const size_t gap = random.below(3) == 0 ? 1 + random.below(9) : 0;
      expect_transposed<Element>(rows, columns, gap, 0, random);
      expect_transposed<Element>(rows, columns, 0, gap + 1, random);
    }
  }
}

TEST(Transpose, MovesEveryByteOfTablesOfEveryShape) { expect_every_shape_transposed<uint8_t>(); }
TEST(Transpose, MovesEvery16BitElementOfTablesOfEveryShape) { expect_every_shape_transposed<uint16_t>(); }
TEST(Transpose, MovesEvery32BitElementOfTablesOfEveryShape) { expect_every_shape_transposed<uint32_t>(); }

TEST(Part, LoadsAndStoresExactlySoManyBytes) {
  support::Random random(92);
  for (size_t bytes = 1; bytes <= 16; ++bytes) {
    for (int repeat = 0; repeat < 4; ++repeat) {
      const GuardedMemory from(bytes);
      const GuardedMemory to(bytes);
      random.fill(from.data(), bytes);
      tarvu::store_part(to.data(), tarvu::load_part(from.data(), bytes), bytes);
      EXPECT_EQ(std::vector<uint8_t>(to.data(), to.data() + bytes),
                std::vector<uint8_t>(from.data(), from.data() + bytes));
    }
  }
}

TEST(ByteTable, PutsEveryByteOfABlockWhereItsPlaceSays) {
  support::Random random(93);
  for (size_t bytes = 16; bytes <= tarvu::kTableBytes; ++bytes) {
    constexpr size_t kBlocks = 3;
    uint8_t sources[tarvu::kTableBytes];
    for (uint8_t &source : sources) source = static_cast<uint8_t>(random.below(static_cast<uint32_t>(bytes)));
    const GuardedMemory from(kBlocks * bytes);
    const GuardedMemory to(kBlocks * bytes);
    random.fill(from.data(), from.size());
    tarvu::ByteTable(sources, bytes).move(from.data(), bytes, to.data(), bytes, kBlocks);
    for (size_t i = 0; i < kBlocks * bytes; ++i) {
      ASSERT_EQ(to.data()[i], from.data()[i / bytes * bytes + sources[i % bytes]]) << bytes << " bytes, byte " << i;
    }
  }
}

}  // namespace
