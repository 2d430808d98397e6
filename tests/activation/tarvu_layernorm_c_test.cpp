#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/activation/layernorm_case.h"
#include "tests/reference/tarvu_layernorm_c_reference.h"
#include "tests/reference/tarvu_layernorm_reference.h"

namespace {

using namespace support;

TEST(Layernorm, AxisMinusOneNormalisesEachLineAndReadsThreeAfterwards) {
  _NN_LAYERNORM_PARM block = float_lines(8, 2, 3);
  block.axis = -1;
  std::vector<float> in;
  std::vector<float> expected;
  for (int line = 0; line < 6; ++line) {
    for (int i = 0; i < 8; ++i) {
      in.push_back(static_cast<float>(100 * line + (i % 2 == 0 ? 2 : -2)));
      expected.push_back(i % 2 == 0 ? 1.0f : -1.0f);
    }
  }
  const LayernormResult result = layernorm_of(tarvu_layernorm_process, block, in);
  EXPECT_EQ(expected, result.out);
  EXPECT_EQ(in, result.in);
  EXPECT_EQ(3, result.block.axis);
  EXPECT_EQ(6u, result.block.outer_size);
  EXPECT_EQ(8u, result.block.inner_size);
}

TEST(Layernorm, AxisZeroHasRunsOfOneElementThatBecomeTheFirstBeta) {
  _NN_LAYERNORM_PARM block = float_lines(2, 3, 4);
  block.axis = 0;
  block.eps = 1e-5f;
  const std::vector<float> in(24, 7.5f);
  const LayernormResult with_beta = layernorm_of(tarvu_layernorm_process, block, in, {}, {2.25f});
  EXPECT_EQ(std::vector<float>(24, 2.25f), with_beta.out);
  EXPECT_EQ(4, with_beta.block.axis);
  EXPECT_EQ(24u, with_beta.block.outer_size);
  EXPECT_EQ(1u, with_beta.block.inner_size);
  EXPECT_EQ(std::vector<float>(24, 0.0f), layernorm_of(tarvu_layernorm_process, block, in).out);
}

struct Sizes {
  int32_t axis;
  int32_t axis_after;
  uint32_t outer_size;
  uint32_t inner_size;
};

TEST(Layernorm, BothFormsWriteAxisAndSizesBack) {
  for (const LayernormCall call : {tarvu_layernorm_process, tarvu_layernorm_process_neon}) {
    for (const Sizes &sizes :
         {Sizes{1, 1, 1, 30}, Sizes{2, 2, 5, 6}, Sizes{3, 3, 15, 2}, Sizes{4, 4, 30, 1}, Sizes{5, 5, 30, 1},
          Sizes{0, 4, 30, 1}, Sizes{-1, 3, 15, 2}, Sizes{-2, 2, 5, 6}, Sizes{-3, 1, 1, 30}, Sizes{-4, 0, 1, 30}}) {
      _NN_LAYERNORM_PARM block = float_lines(2, 3, 5);
      block.axis = sizes.axis;
      block.outer_size = block.inner_size = 77;
      const LayernormResult result = layernorm_of(call, block, std::vector<float>(30, 1.0f));
      EXPECT_EQ(sizes.axis_after, result.block.axis) << sizes.axis;
      EXPECT_EQ(sizes.outer_size, result.block.outer_size) << sizes.axis;
      EXPECT_EQ(sizes.inner_size, result.block.inner_size) << sizes.axis;
    }
  }
}

TEST(Layernorm, MeanIsTheSumInIndexOrderInDouble) {
  // 1 + 2^60 is 2^60 and swallows the second 1 as well, so the mean is 0; any other grouping leaves 1/8 or 2/8.
  const std::vector<float> in = {1.0f, 0x1p60f, 0.0f, 0.0f, 1.0f, -0x1p60f, 0.0f, 0.0f};
  const std::vector<float> expected = {0x1p-59f, 2.0f, 0.0f, 0.0f, 0x1p-59f, -2.0f, 0.0f, 0.0f};
  EXPECT_EQ(expected, layernorm_of(tarvu_layernorm_process, float_lines(8), in).out);
}

TEST(Layernorm, SquaresAreAddedByAFusedMultiplyAddInDouble) {
  // The fused sum of the first run is 14 * 9 exactly and the rounded squares come out above it; in the second run it is
  // the rounded squares that give 12 * 9, and the fused sum is one step of a double above it.
  _NN_LAYERNORM_PARM block = float_lines(9);
  block.eps = -14.0f;
  const LayernormResult exact = layernorm_of(tarvu_layernorm_process, block, {-4, 2, 6, -2, -1, 6, -4, -1, 4});
  for (const float y : exact.out) EXPECT_TRUE(std::isinf(y)) << y;
  block.eps = -12.0f;
  const LayernormResult above = layernorm_of(tarvu_layernorm_process, block, {1, -3, 5, -3, 6, 0, 6, 2, -2});
  for (const float y : above.out) EXPECT_TRUE(std::isfinite(y)) << y;
}

TEST(Layernorm, ConstantRunGivesZeroAndWithoutEpsNan) {
  _NN_LAYERNORM_PARM block = float_lines(5);
  block.eps = 1e-12f;
  EXPECT_EQ(std::vector<float>(5, 0.0f), layernorm_of(tarvu_layernorm_process, block, std::vector<float>(5, 3.0f)).out);
  block.eps = 0.0f;
  for (const float y : layernorm_of(tarvu_layernorm_process, block, std::vector<float>(5, 3.0f)).out) {
    EXPECT_TRUE(std::isnan(y));
  }
}

TEST(Layernorm, GammaAndBetaAreSharedByAllRuns) {
  const _NN_LAYERNORM_PARM block = float_lines(2, 2);
  const std::vector<float> in = {1, -1, -3, 3};
  const std::vector<float> gamma = {2, 3};
  const std::vector<float> beta = {10, 20};
  EXPECT_EQ((std::vector<float>{2, -3, -2, 3}), layernorm_of(tarvu_layernorm_process, block, in, gamma).out);
  EXPECT_EQ((std::vector<float>{11, 19, 9, 21}), layernorm_of(tarvu_layernorm_process, block, in, {}, beta).out);
  EXPECT_EQ((std::vector<float>{12, 17, 8, 23}), layernorm_of(tarvu_layernorm_process, block, in, gamma, beta).out);
}

TEST(Layernorm, GammaAndBetaAreRoundedOneAfterTheOther) {
  // The first element becomes the float next to the root of 2. Its square is not a float: a fused operation would leave
  // the rest.
  const float root = 0x1.6a09e6p0f;
  const float square = 0x1.fffffep0f;
  const LayernormResult result =
      layernorm_of(tarvu_layernorm_process, float_lines(3), {1, 0, 0}, {root, root, root}, {-square, 0, 0});
  EXPECT_EQ(0.0f, result.out[0]);
  EXPECT_EQ(-0x1.fffffep-1f, result.out[1]);
}

using LayernormDeathTest = ::testing::Test;

TEST(LayernormDeathTest, ANullGammaIsReadLikeAnyOther) {
  for (const LayernormCall call : {tarvu_layernorm_process, tarvu_layernorm_process_neon}) {
    _NN_LAYERNORM_PARM block = float_lines(16);
    const GuardedMemory tensor = memory_of(std::vector<float>(16, 1.0f));
    block.in_addr = block.out_addr = tensor.address();
    block.gamma_addr = 0;
    EXPECT_DEATH(call(&block), "");
  }
}

TEST(Layernorm, WithoutBatchItemsOnlyTheBlockIsWritten) {
  for (const LayernormCall call : {tarvu_layernorm_process, tarvu_layernorm_process_neon}) {
    for (const int width : {8, 16, 32}) {
      _NN_LAYERNORM_PARM block = float_lines(4, 3, 2);
      block.batch = 0;
      block.in_fmt = block.out_fmt = format(width, 4, 1);
      block.in_addr = block.out_addr = unreadable_address();
      block.axis = -2;
      EXPECT_EQ(QX_OK, call(&block));
      EXPECT_EQ(2, block.axis);
      EXPECT_EQ(2u, block.outer_size);
      EXPECT_EQ(12u, block.inner_size);
    }
  }
}

TEST(Layernorm, AnEmptyRunDoesNothing) {
  for (const LayernormCall call : {tarvu_layernorm_process, tarvu_layernorm_process_neon}) {
    _NN_LAYERNORM_PARM block = float_lines(0, 3, 2);
    block.in_addr = block.out_addr = unreadable_address();
    EXPECT_EQ(QX_OK, call(&block));
    EXPECT_EQ(6u, block.outer_size);
    EXPECT_EQ(0u, block.inner_size);
  }
}

TEST(Layernorm, FixedOutputIsRoundedToNearestTiesAwayFromZero) {
  // y is 1 and -1, gamma makes it 2.5 units and more, in a block of the conversion and in its tail.
  _NN_LAYERNORM_PARM block = float_lines(10);
  block.out_fmt = format(8, 0, 1);
  Random random(1);
  const Scratch scratch(random, 80);
  const GuardedMemory input = memory_of(std::vector<float>{2, -2, 2, -2, 2, -2, 2, -2, 2, -2});
  const GuardedMemory gamma = memory_of(std::vector<float>{2.5f, 2.5f, 3.5f, 3.5f, 2.4f, 2.4f, 200, 200, 2.5f, 2.5f});
  const GuardedMemory output(10);
  block.in_addr = input.address();
  block.gamma_addr = gamma.address();
  block.out_addr = output.address();
  block.work_buffer = scratch.address();
  EXPECT_EQ(QX_OK, scratch.wrap(tarvu_layernorm_process)(&block));
  EXPECT_EQ((std::vector<int8_t>{3, -3, 4, -4, 2, -2, 127, -128, 3, -3}), values_in<int8_t>(output));
}

TEST(Layernorm, TheBatchAsAnAxisStepsPastTheTensorForMoreThanOneItem) {
  Random random = test_random(370);
  SCOPED_TRACE(random.trace());
  // Each of the three walks takes a tensor's length of 3 * 19 elements from where the one before ended. With fixed
  // point the second walk reads the results of the first.
  const uint32_t count = 57;
  for (const bool fixed : {false, true}) {
    for (const bool neon_form : {false, true}) {
      Case<_NN_LAYERNORM_PARM> layernorm;
      layernorm.block = float_lines(19);
      layernorm.block.batch = 3;
      layernorm.block.axis = -4;
      layernorm.block.eps = 0.01f;
      if (fixed) layernorm.block.in_fmt = layernorm.block.out_fmt = format(16, 7, 1);
      const GuardedMemory input(fixed ? 2 * count : 3 * 4 * count);
      const GuardedMemory output(input.size());
      const GuardedMemory work(fixed ? 4 * 4 * count : 0);
      random.fill_floats(work.data(), work.size() / 4, -10.0f, 10.0f);
      if (fixed) {
        random.fill(input.data(), input.size());
      } else {
        random.fill_floats(input.data(), 3 * count, 100.0f, 200.0f);
      }
      layernorm.attach(&_NN_LAYERNORM_PARM::in_addr, input, "input", Element::k16Bit);
      layernorm.attach(&_NN_LAYERNORM_PARM::out_addr, output, "output", fixed ? Element::k16Bit : Element::kFloat);
      layernorm.attach(&_NN_LAYERNORM_PARM::work_buffer, work, "scratch", Element::kFloat);
      EXPECT_TRUE(neon_form ? layernorm.same(tarvu_layernorm_process_neon, reference::tarvu_layernorm_process_neon)
                            : layernorm.same(tarvu_layernorm_process, reference::tarvu_layernorm_process))
          << (fixed ? "fixed" : "float") << (neon_form ? ", constant mean" : "");
    }
  }
}

TEST(Layernorm, EqualsItsTwinOnRandomBlocks) {
  Random random = test_random(371);
  SCOPED_TRACE(random.trace());
  for (uint16_t width = 0; width <= 35; ++width) {
    for (int round = 0; round < 20; ++round) {
      layernorm_random_case(random, tarvu_layernorm_process, reference::tarvu_layernorm_process, width,
                            static_cast<uint16_t>(random.between(round == 0 ? 0 : 1, 4)),
                            static_cast<uint16_t>(random.between(round == 0 ? 0 : 1, 3)),
                            static_cast<uint16_t>(random.between(0, 3)), random.between(-3, 6));
      if (HasFailure()) return;
    }
  }
  layernorm_random_case(random, tarvu_layernorm_process, reference::tarvu_layernorm_process, 1031, 3, 2, 1, -4);
}

}  // namespace
