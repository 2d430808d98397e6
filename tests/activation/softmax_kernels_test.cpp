#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <vector>

#include "tarvu.h"
#include "tests/activation/softmax_cases.h"
#include "tests/reference/tarvu_softmax_reference.h"
#include "tests/support/random.h"

namespace {

using softmax_cases::float_block;
using support::Random;
using support::test_random;

std::vector<float> one_row(const std::vector<float> &in) {
  std::vector<float> out(in.size(), -77.0f);
  const _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({static_cast<int>(in.size()), 1, 1, 1}, 3);
  ::tarvu_softmax_axisn_1dim_vec(in.data(), out.data(), &block);
  return out;
}

TEST(SoftmaxKernels, ColumnsAlongTheLinesMatchTheReference) {
  Random random = test_random(321);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_columns<_NN_SOFTMAX_PARM>(random, ::tarvu_softmax_axis2_4vec,
                                                       reference::tarvu_softmax_axis2_4vec);
}

TEST(SoftmaxKernels, RowsMatchTheReference) {
  Random random = test_random(322);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_rows<_NN_SOFTMAX_PARM>(random, ::tarvu_softmax_axis3_4vec,
                                                    reference::tarvu_softmax_axis3_4vec);
}

TEST(SoftmaxKernels, WholeItemsMatchTheReference) {
  Random random = test_random(323);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_whole_items<_NN_SOFTMAX_PARM>(random, ::tarvu_softmax_axisn_1dim_vec,
                                                           reference::tarvu_softmax_axisn_1dim_vec);
}

TEST(SoftmaxKernels, RowsTakeTheHeightAsTheirLengthForAxis2Alone) {
  const std::vector<float> in = {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f};
  std::vector<float> by_height(6), by_width(6);
  const _NN_SOFTMAX_PARM axis_2 = float_block<_NN_SOFTMAX_PARM>({2, 3, 1, 1}, 2);
  ::tarvu_softmax_axis3_4vec(in.data(), by_height.data(), &axis_2);
  const _NN_SOFTMAX_PARM axis_3 = float_block<_NN_SOFTMAX_PARM>({2, 3, 1, 1}, 3);
  ::tarvu_softmax_axis3_4vec(in.data(), by_width.data(), &axis_3);
  EXPECT_NEAR(by_height[0] + by_height[1] + by_height[2], 1.0f, 1e-6f);
  EXPECT_EQ(by_height[0], by_height[3]);
  EXPECT_NEAR(by_width[0] + by_width[1], 1.0f, 1e-6f);
  EXPECT_EQ(by_width[0], by_width[2]);
  EXPECT_EQ(by_width[0], by_width[4]);
}

TEST(SoftmaxKernels, AGroupOfOneElementGivesExactlyOne) {
  for (float x : {0.0f, -3.25f, 1000.0f, -10000000.0f, 3e38f}) EXPECT_EQ(one_row({x}), std::vector<float>{1.0f}) << x;
}

TEST(SoftmaxKernels, EqualValuesShareEvenly) {
  for (size_t length = 1; length <= 70; ++length) {
    for (float y : one_row(std::vector<float>(length, -4.5f))) {
      ASSERT_NEAR(y, 1.0f / static_cast<float>(length), 1e-6f) << length << " elements";
    }
  }
}

TEST(SoftmaxKernels, AnElementFarBelowTheMaximumCountsAsIfItLay87Below) {
  for (size_t tail : std::initializer_list<size_t>{0, 1, 4, 16}) {
    std::vector<float> hundred(tail + 2, 0.0f), limit(tail + 2, 0.0f);
    hundred[tail] = -100.0f;
    limit[tail] = -87.0f;
    const std::vector<float> out = one_row(hundred);
    EXPECT_EQ(out, one_row(limit));
    EXPECT_GT(out[tail], 0.0f);
    EXPECT_LT(out[tail], 2e-38f);
  }
}

TEST(SoftmaxKernels, TheMaximumOfAGroupBelowTheSeedIsTheSeed) {
  // Both lie further than 87 below -1e7, so both are clamped and come out alike, though they lie 100 apart.
  const float e = ::fast_exp(-87.0f);
  const float half = e * (1.0f / (e + e));
  EXPECT_NEAR(half, 0.5f, 1e-6f);
  EXPECT_EQ(one_row({-10000100.0f, -10000200.0f}), (std::vector<float>{half, half}));
  // One at the seed itself is the maximum by right, and the others are as far below it as can be.
  EXPECT_EQ(one_row({-10000000.0f, -10000087.0f})[1], one_row({0.0f, -87.0f})[1]);
}

TEST(SoftmaxKernels, ExponentialsAreMultipliedByTheReciprocalOfTheSum) {
  const float e = ::fast_exp(0.0f);
  const float sum = (e + e) + e;
  const float reciprocal = 1.0f / sum;
  EXPECT_EQ(one_row({2.0f, 2.0f, 2.0f}), std::vector<float>(3, e * reciprocal));
  EXPECT_NE(e * reciprocal, e / sum) << "the input no longer tells the product from the quotient";
}

TEST(SoftmaxKernels, TheSumOfARowGoesLaneByLane) {
  std::vector<float> in(19);
  for (size_t i = 0; i < in.size(); ++i) in[i] = -0.37f * static_cast<float>((7 * i) % 19);
  std::vector<float> e(19);
  for (size_t i = 0; i < e.size(); ++i) e[i] = ::fast_exp(in[i]);
  float lanes[4] = {};
  for (size_t k = 0; k < 4; ++k) lanes[k] = ((e[4 * k] + e[4 * k + 1]) + e[4 * k + 2]) + e[4 * k + 3];
  float sum = ((lanes[0] + lanes[1]) + lanes[2]) + lanes[3];
  for (size_t i = 16; i < 19; ++i) sum += e[i];
  float in_index_order = 0.0f;
  for (float x : e) in_index_order += x;
  ASSERT_NE(sum, in_index_order) << "the input no longer tells the orders apart";
  EXPECT_EQ(one_row(in)[0], e[0] * (1.0f / sum));
}

TEST(SoftmaxKernels, TheSumOfAColumnGoesInTheOrderOfTheAxis) {
  std::vector<float> in(19);
  for (size_t i = 0; i < in.size(); ++i) in[i] = -0.37f * static_cast<float>((7 * i) % 19);
  float sum = 0.0f;
  for (float x : in) sum += ::fast_exp(x);
  std::vector<float> out(19);
  const _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({1, 19, 1, 1}, 2);
  ::tarvu_softmax_axis2_4vec(in.data(), out.data(), &block);
  EXPECT_EQ(out[0], ::fast_exp(in[0]) * (1.0f / sum));
}

TEST(SoftmaxKernels, InfinityIsComputedAsIfItLayFarBelow) {
  const float infinity = std::numeric_limits<float>::infinity();
  for (size_t length : std::initializer_list<size_t>{2, 6, 17}) {
    std::vector<float> in(length, 1.0f);
    in[1] = infinity;
    const std::vector<float> out = one_row(in);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_NEAR(out[0], 1.0f / static_cast<float>(length - 1), 1e-6f);
  }
  for (float y : one_row(std::vector<float>(21, infinity))) EXPECT_TRUE(std::isnan(y));
}

TEST(SoftmaxKernels, ANaNMakesItsWholeGroupNaN) {
  for (size_t length : std::initializer_list<size_t>{1, 3, 6, 19, 32}) {
    for (size_t at = 0; at < length; ++at) {
      std::vector<float> in(length, 1.0f);
      in[at] = std::numeric_limits<float>::quiet_NaN();
      for (float y : one_row(in)) ASSERT_TRUE(std::isnan(y)) << "NaN at " << at << " of " << length;
    }
  }
}

}  // namespace
