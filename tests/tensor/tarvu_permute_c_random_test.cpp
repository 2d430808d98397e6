#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include "tests/support/formats.h"
#include "tests/support/random.h"
#include "tests/tensor/permute_check.h"

namespace {

using permute_check::agrees;
using permute_check::dense_block;
using permute_check::Extents;
using permute_check::Order;
using support::format;
using support::Random;

/// All 24 orders of four axes.
std::array<Order, 24> all_orders() {
  std::array<Order, 24> orders{};
  Order order = {0, 1, 2, 3};
  for (Order &each : orders) {
    each = order;
    std::next_permutation(order.begin(), order.end());
  }
  return orders;
}

_NN_FMT any_format(Random &random, int width) {
  return format(width, random.between(-2, 9), random.pick({0, 1, 1, 2}), static_cast<int>(random.below(2)));
}

/// Any two formats of 8 and 16 bits; equal in every other case.
void set_formats(_NN_PERMUTE_PARM &parm, Random &random) {
  parm.in_fmt = any_format(random, random.pick({8, 16}));
  parm.out_fmt = random.one_in(2) ? parm.in_fmt : any_format(random, random.pick({8, 16}));
  permute_check::make_dense(parm);
}

void pad(_NN_PERMUTE_PARM &parm, Random &random) {
  const auto padding = [&] { return random.one_in(2) ? 0 : random.below(20); };
  const uint32_t in_line = padding();
  const uint32_t out_line = padding();
  parm.in_line_ofs += in_line;
  parm.in_channel_ofs += parm.height * in_line + padding();
  parm.in_batch_ofs += parm.channel * parm.height * in_line + 64 + padding();
  const Extents extents = {parm.batch, parm.channel, parm.height, parm.width};
  const uint32_t lines = extents[static_cast<size_t>(parm.order[2])];
  parm.out_line_ofs += out_line;
  parm.out_channel_ofs += lines * out_line + padding();
  parm.out_batch_ofs += extents[static_cast<size_t>(parm.order[1])] * (lines * out_line + 20) + padding();
}

TEST(PermuteRandom, AgreesWithTheTwinForEveryOrderOfSmallTensors) {
  Random random = support::test_random(401);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 80; ++round) {
    for (const Order &order : all_orders()) {
      const auto extent = [&] { return random.one_in(25) ? 0 : 1 + random.below(6); };
      _NN_PERMUTE_PARM parm = dense_block({extent(), extent(), extent(), extent()}, order);
      set_formats(parm, random);
      if (random.one_in(2)) pad(parm, random);
      EXPECT_TRUE(agrees(parm, random)) << "round " << round;
    }
  }
}

TEST(PermuteRandom, AgreesWithTheTwinForRepeatedAxes) {
  Random random = support::test_random(402);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 1500; ++round) {
    const bool lines = random.one_in(3);
    Order order{};
    for (size_t i = 0; i < 3; ++i) order[i] = static_cast<int8_t>(random.below(lines ? 3 : 4));
    order[3] = static_cast<int8_t>(lines ? 3 : random.below(3));
    const auto extent = [&] { return 1 + random.below(random.one_in(4) ? 20 : 5); };
    _NN_PERMUTE_PARM parm = dense_block({extent(), extent(), extent(), extent()}, order);
    set_formats(parm, random);
    if (random.one_in(2)) pad(parm, random);
    EXPECT_TRUE(agrees(parm, random)) << "round " << round;
  }
}

TEST(PermuteRandom, AgreesWithTheTwinForAnySteps) {
  Random random = support::test_random(403);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 2500; ++round) {
    const auto orders = all_orders();
    const auto extent = [&] { return 1 + random.below(random.one_in(5) ? 40 : 4); };
    _NN_PERMUTE_PARM parm = dense_block({1 + random.below(3), extent(), extent(), extent()}, orders[random.below(24)]);
    set_formats(parm, random);
    const auto step = [&](uint32_t dense) {
      return random.one_in(2) ? dense : random.pick({random.below(4), random.below(20), random.below(200)});
    };
    parm.in_line_ofs = step(parm.in_line_ofs);
    parm.in_channel_ofs = step(parm.in_channel_ofs);
    parm.in_batch_ofs = step(parm.in_batch_ofs);
    parm.out_line_ofs = step(parm.out_line_ofs);
    parm.out_channel_ofs = step(parm.out_channel_ofs);
    parm.out_batch_ofs = step(parm.out_batch_ofs);
    EXPECT_TRUE(agrees(parm, random)) << "round " << round;
  }
}

TEST(PermuteRandom, LinesOfAnyTwoFormatsAgreeWithTheTwin) {
  Random random = support::test_random(404);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 1000; ++round) {
    Order order = {0, 1, 2, 3};
    for (size_t i = 2; i > 0; --i) std::swap(order[i], order[random.below(static_cast<uint32_t>(i + 1))]);
    _NN_PERMUTE_PARM parm =
        dense_block({1 + random.below(3), 1 + random.below(4), 1 + random.below(4), random.below(50)}, order);
    parm.in_fmt = any_format(random, random.pick({8, 16, 24, 32}));
    parm.out_fmt = random.one_in(2) ? parm.in_fmt : any_format(random, random.pick({8, 16, 24, 32}));
    if (random.one_in(4)) {
      parm.out_fmt = parm.in_fmt;
      parm.out_fmt.fmt_reserved ^= 1;
    }
    permute_check::make_dense(parm);
    if (random.one_in(2)) pad(parm, random);
    EXPECT_TRUE(agrees(parm, random)) << "round " << round;
  }
}

/// The two axes that a transpose turns meet every pair of extents up to `last` from `first`.
void hold_transposes(const Order &order, size_t rows, size_t columns, uint32_t first, uint32_t last, Random &random) {
  for (uint32_t row_count = first; row_count <= last; ++row_count) {
    for (uint32_t column_count = first; column_count <= last; ++column_count) {
      Extents extents = {1, 1, 1, 1};
      extents[1] = extents[2] = extents[3] = random.one_in(3) ? 2 : 1;
      extents[rows] = row_count;
      extents[columns] = column_count;
      const int width = random.pick({8, 16});
      _NN_PERMUTE_PARM parm = dense_block(extents, order, format(width, 4, 1));
      if (random.one_in(2)) pad(parm, random);
      ASSERT_TRUE(agrees(parm, random));
    }
  }
}

TEST(PermuteTranspose, OfHeightAndWidthAgreesWithTheTwinForEveryRemainder) {
  Random random = support::test_random(405);
  SCOPED_TRACE(random.trace());
  hold_transposes({0, 1, 3, 2}, 2, 3, 1, 35, random);
}

TEST(PermuteTranspose, OfPlanesToInterleavedElementsAgreesWithTheTwinForEveryRemainder) {
  Random random = support::test_random(406);
  SCOPED_TRACE(random.trace());
  hold_transposes({0, 2, 3, 1}, 1, 3, 1, 35, random);
}

TEST(PermuteTranspose, OfInterleavedElementsToPlanesAgreesWithTheTwinForEveryRemainder) {
  Random random = support::test_random(407);
  SCOPED_TRACE(random.trace());
  hold_transposes({0, 3, 1, 2}, 2, 3, 1, 35, random);
}

TEST(PermuteTranspose, OfChannelAndWidthAgreesWithTheTwinForEveryRemainder) {
  Random random = support::test_random(408);
  SCOPED_TRACE(random.trace());
  hold_transposes({0, 3, 2, 1}, 1, 3, 15, 33, random);
}

TEST(PermuteTranspose, OfLargeTensorsAgreesWithTheTwinForEveryOrder) {
  Random random = support::test_random(409);
  SCOPED_TRACE(random.trace());
  for (const Order &order : all_orders()) {
    for (const int width : {8, 16}) {
      EXPECT_TRUE(agrees(dense_block({2, 19, 33, 67}, order, format(width, 4, 1)), random));
    }
  }
}

TEST(PermuteTranspose, OfLongLinesAgreesWithTheTwin) {
  Random random = support::test_random(410);
  SCOPED_TRACE(random.trace());
  for (const int width : {8, 16}) {
    for (const Extents &extents : {Extents{1, 1, 130, 257}, Extents{1, 1, 3, 1027}, Extents{1, 1, 1027, 3}}) {
      EXPECT_TRUE(agrees(dense_block(extents, {0, 1, 3, 2}, format(width, 4, 1)), random));
    }
    for (const Extents &extents : {Extents{1, 3, 31, 97}, Extents{1, 31, 97, 3}}) {
      EXPECT_TRUE(agrees(dense_block(extents, {0, 2, 3, 1}, format(width, 4, 1)), random));
      EXPECT_TRUE(agrees(dense_block(extents, {0, 3, 1, 2}, format(width, 4, 1)), random));
    }
  }
}

TEST(PermuteTranspose, IntoLinesThatShareBytesAgreesWithTheTwin) {
  Random random = support::test_random(411);
  SCOPED_TRACE(random.trace());
  for (const int width : {8, 16}) {
    for (uint32_t rows = 16; rows <= 34; rows += 3) {
      for (uint32_t columns = 16; columns <= 34; columns += 3) {
        _NN_PERMUTE_PARM parm = dense_block({1, 1, rows, columns}, {0, 1, 3, 2}, format(width, 4, 1));
        for (const uint32_t out_line_ofs : {0u, 1u, 2u, 15u, parm.out_line_ofs - 1}) {
          parm.out_line_ofs = out_line_ofs;
          EXPECT_TRUE(agrees(parm, random));
        }
        parm = dense_block({1, 2, rows, columns}, {0, 1, 3, 2}, format(width, 4, 1));
        parm.out_channel_ofs = random.below(parm.out_channel_ofs);
        EXPECT_TRUE(agrees(parm, random));
      }
    }
  }
}

}  // namespace
