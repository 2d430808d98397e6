#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/activation/layernorm_case.h"
#include "tests/reference/tarvu_layernorm_reference.h"

namespace {

using namespace support;

constexpr float kMean = 187.03314f;
static_assert(std::bit_cast<uint32_t>(kMean) == 0x433B087C);

/// A run of elements one above and one below the constant mean, in turn.
std::vector<float> around_the_mean(size_t count) {
  std::vector<float> run;
  for (size_t i = 0; i < count; ++i) run.push_back(i % 2 == 0 ? kMean + 1.0f : kMean - 1.0f);
  return run;
}

TEST(LayernormWithConstantMean, TakesTheConstantForTheMeanOfAnyData) {
  _NN_LAYERNORM_PARM block = float_lines(16);
  EXPECT_EQ(std::vector<float>(16, 1.0f),
            layernorm_of(tarvu_layernorm_process_neon, block, std::vector<float>(16, kMean + 1.0f)).out);
  block.eps = 1.0f;
  EXPECT_EQ(std::vector<float>(16, 0.0f),
            layernorm_of(tarvu_layernorm_process_neon, block, std::vector<float>(16, kMean)).out);
}

TEST(LayernormWithConstantMean, OverwritesTheInputOfTheTailOnly) {
  const std::vector<float> in = around_the_mean(18);
  const LayernormResult result = layernorm_of(tarvu_layernorm_process_neon, float_lines(18), in);
  for (size_t i = 0; i < 16; ++i) {
    EXPECT_EQ(in[i], result.in[i]) << i;
    EXPECT_EQ(i % 2 == 0 ? 1.0f : -1.0f, result.out[i]) << i;
  }
  EXPECT_EQ(1.0f, result.in[16]);
  EXPECT_EQ(-1.0f, result.in[17]);
}

TEST(LayernormWithConstantMean, LeavesTheTailOfEachRunUnwrittenWithoutGammaAndBeta) {
  const LayernormResult result = layernorm_of(tarvu_layernorm_process_neon, float_lines(18, 2), around_the_mean(36));
  for (const size_t i : {16u, 17u, 34u, 35u}) EXPECT_EQ(kUnwritten, result.out[i]) << i;
  for (const size_t i : {0u, 15u, 18u, 33u}) EXPECT_EQ(i % 2 == 0 ? 1.0f : -1.0f, result.out[i]) << i;
}

TEST(LayernormWithConstantMean, PutsTheValueBeforeGammaAndBetaIntoTheInput) {
  const std::vector<float> in = around_the_mean(2);
  const std::vector<float> gamma = {3, 5};
  const std::vector<float> beta = {10, 20};
  const LayernormResult both = layernorm_of(tarvu_layernorm_process_neon, float_lines(2), in, gamma, beta);
  EXPECT_EQ((std::vector<float>{1, -1}), both.in);
  EXPECT_EQ((std::vector<float>{13, 15}), both.out);
  const LayernormResult gamma_only = layernorm_of(tarvu_layernorm_process_neon, float_lines(2), in, gamma);
  EXPECT_EQ((std::vector<float>{1, -1}), gamma_only.in);
  EXPECT_EQ((std::vector<float>{3, -5}), gamma_only.out);
  const LayernormResult beta_only = layernorm_of(tarvu_layernorm_process_neon, float_lines(2), in, {}, beta);
  EXPECT_EQ((std::vector<float>{1, -1}), beta_only.in);
  EXPECT_EQ((std::vector<float>{11, 19}), beta_only.out);
}

TEST(LayernormWithConstantMean, AxisZeroWritesNoOutputWithoutGammaAndBeta) {
  _NN_LAYERNORM_PARM block = float_lines(16, 2);
  block.axis = 0;
  const LayernormResult result = layernorm_of(tarvu_layernorm_process_neon, block, around_the_mean(32));
  EXPECT_EQ(std::vector<float>(32, kUnwritten), result.out);
  for (size_t i = 0; i < 32; ++i) EXPECT_EQ(i % 2 == 0 ? 1.0f : -1.0f, result.in[i]) << i;
}

TEST(LayernormWithConstantMean, TheSecondScratchArrayShowsThroughAnUnwrittenTail) {
  _NN_LAYERNORM_PARM block = float_lines(18);
  block.out_fmt = format(16, 0, 1);
  const GuardedMemory input = memory_of(around_the_mean(18));
  const GuardedMemory output(36);
  std::vector<float> work(36, 0.0f);
  work[34] = 321.0f;
  work[35] = -45.0f;
  const GuardedMemory scratch = memory_of(work);
  block.in_addr = input.address();
  block.out_addr = output.address();
  block.work_buffer = scratch.address();
  EXPECT_EQ(QX_OK, tarvu_layernorm_process_neon(&block));
  EXPECT_EQ((std::vector<int16_t>{1, -1, 1, -1, 1, -1, 1, -1, 1, -1, 1, -1, 1, -1, 1, -1, 321, -45}),
            values_in<int16_t>(output));
}

TEST(LayernormWithConstantMean, SquaresAreSummedFourToALane) {
  // 2^24 swallows each 1 that joins it alone; elements 5 and 6 share lane 1, so they join as 2.
  std::vector<float> in(16, kMean);
  in[0] = kMean + 4096.0f;
  in[5] = in[6] = kMean + 1.0f;
  ASSERT_EQ(4096.0f, in[0] - kMean);
  _NN_LAYERNORM_PARM block = float_lines(16);
  block.eps = -1048576.0f;
  const LayernormResult result = layernorm_of(tarvu_layernorm_process_neon, block, in);
  EXPECT_EQ(2.8284271f, result.out[5]);
  EXPECT_EQ(2.8284271f, result.out[6]);
  EXPECT_EQ(0.0f, result.out[1]);
}

TEST(LayernormWithConstantMean, SquaresBehindTheLastBlockJoinTheSumOneAtATime) {
  std::vector<float> in(18, kMean);
  in[0] = kMean + 4096.0f;
  in[16] = in[17] = kMean + 1.0f;
  _NN_LAYERNORM_PARM block = float_lines(18);
  block.eps = -(16777216.0f / 18.0f);
  const LayernormResult result = layernorm_of(tarvu_layernorm_process_neon, block, in);
  EXPECT_TRUE(std::isinf(result.out[0]));
  EXPECT_TRUE(std::isnan(result.out[1]));
  EXPECT_TRUE(std::isinf(result.in[17]));
}

TEST(LayernormWithConstantMean, GammaAndBetaAreRoundedOneAfterTheOther) {
  // Every element becomes the float next to the root of 1/2, whose square is not a float, in the block and in the tail.
  const float root = 0x1.6a09e6p-1f;
  const float square = 0x1.fffffep-2f;
  _NN_LAYERNORM_PARM block = float_lines(19);
  block.eps = 1.0f;
  const LayernormResult result = layernorm_of(tarvu_layernorm_process_neon, block, std::vector<float>(19, kMean + 1.0f),
                                              std::vector<float>(19, root), std::vector<float>(19, -square));
  EXPECT_EQ(std::vector<float>(19, 0.0f), result.out);
}

TEST(LayernormWithConstantMean, EqualsItsTwinOnRandomBlocks) {
  Random random = test_random(372);
  SCOPED_TRACE(random.trace());
  for (uint16_t width = 0; width <= 35; ++width) {
    for (int round = 0; round < 20; ++round) {
      layernorm_random_case(random, tarvu_layernorm_process_neon, reference::tarvu_layernorm_process_neon, width,
                            static_cast<uint16_t>(random.between(round == 0 ? 0 : 1, 4)),
                            static_cast<uint16_t>(random.between(round == 0 ? 0 : 1, 3)),
                            static_cast<uint16_t>(random.between(0, 3)), random.between(-3, 6));
      if (HasFailure()) return;
    }
  }
  layernorm_random_case(random, tarvu_layernorm_process_neon, reference::tarvu_layernorm_process_neon, 1031, 3, 2, 1,
                        -4);
}

}  // namespace
