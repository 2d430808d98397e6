#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "tarvu.h"
#include "tests/activation/lrn_cases.h"
#include "tests/reference/tarvu_lrn_reference.h"
#include "tests/support/differential.h"

namespace {

using lrn_cases::Shape;
using support::Differential;
using support::Element;
using support::Fault;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::test_random;

using Kernel = int32_t(const float *, float *, float *, float *, int32_t, uint32_t, uint32_t, uint32_t, float, float,
                       uint32_t, uint32_t, uint32_t);

constexpr Kernel *kKernels[] = {::tarvu_lrn_neon_func, ::tarvu_lrn_c_func};

struct Settings {
  uint32_t local_size = 1;
  int32_t lrn_k = 1;
  float alpha_n = 1.0f;
  float beta = 0.75f;
};

/// Channels of one element each.
std::vector<float> channels_of_one(Kernel *kernel, const std::vector<float> &in, const Settings &settings) {
  const uint32_t channels = static_cast<uint32_t>(in.size());
  std::vector<float> out(in.size(), -77.0f), sums(in.size()), squares(channels + settings.local_size - 1);
  EXPECT_EQ(kernel(in.data(), out.data(), sums.data(), squares.data(), settings.lrn_k, 1, settings.local_size, channels,
                   settings.alpha_n, settings.beta, 1, 1, (settings.local_size - 1) / 2),
            0);
  return out;
}

TEST(LrnKernels, ASingleChannelHoldsItsOwnSquareOnly) {
  for (Kernel *kernel : kKernels) {
    const std::vector<float> out = channels_of_one(kernel, {2.0f}, {.local_size = 5, .lrn_k = 3, .alpha_n = 2.0f});
    EXPECT_EQ(out[0], 2.0f * ::fast_Pow(11.0f, -0.75f)) << "2 * (3 / 2 + 4)";
  }
}

TEST(LrnKernels, FloatsAtOddAddressesGiveTheSameBits) {
  constexpr uint32_t kPlane = 39;
  constexpr uint32_t kChannels = 4;
  constexpr size_t kBytes = kPlane * kChannels * sizeof(float);
  Random random = test_random(349);
  SCOPED_TRACE(random.trace());
  std::vector<float> in(kPlane * kChannels), out(in.size()), sums(in.size()), squares(in.size() + 2 * kPlane);
  random.fill_floats(in.data(), in.size(), -9.0f, 9.0f);
  std::vector<uint8_t> odd_in(kBytes + 1), odd_out(kBytes + 1), odd_sums(kBytes + 1),
      odd_squares(squares.size() * 4 + 1);
  std::memcpy(odd_in.data() + 1, in.data(), kBytes);
  const auto floats = [](std::vector<uint8_t> &bytes) { return reinterpret_cast<float *>(bytes.data() + 1); };
  for (Kernel *kernel : kKernels) {
    kernel(in.data(), out.data(), sums.data(), squares.data(), 1, 1, 3, kChannels, 0.5f, 0.75f, kPlane, 1, 1);
    kernel(floats(odd_in), floats(odd_out), floats(odd_sums), floats(odd_squares), 1, 1, 3, kChannels, 0.5f, 0.75f,
           kPlane, 1, 1);
    EXPECT_EQ(std::memcmp(odd_out.data() + 1, out.data(), kBytes), 0);
  }
}

TEST(LrnKernels, AWindowOfOneChannelIsAPowerOfEachElement) {
  for (Kernel *kernel : kKernels) {
    const std::vector<float> out = channels_of_one(kernel, {1.0f, -3.0f, 0.0f}, {.local_size = 1, .alpha_n = 1.0f});
    EXPECT_EQ(out[0], ::fast_Pow(2.0f, -0.75f));
    EXPECT_EQ(out[1], -3.0f * ::fast_Pow(10.0f, -0.75f));
    EXPECT_EQ(out[2], 0.0f);
  }
}

TEST(LrnKernels, TheWindowIsClippedAtTheFirstAndLastChannel) {
  for (Kernel *kernel : kKernels) {
    const std::vector<float> out = channels_of_one(kernel, {1.0f, 2.0f, 3.0f, 4.0f}, {.local_size = 3});
    EXPECT_EQ(out[0], 1.0f * ::fast_Pow(1.0f + 1.0f + 4.0f, -0.75f));
    EXPECT_EQ(out[1], 2.0f * ::fast_Pow(1.0f + 1.0f + 4.0f + 9.0f, -0.75f));
    EXPECT_EQ(out[2], 3.0f * ::fast_Pow(1.0f + 4.0f + 9.0f + 16.0f, -0.75f));
    EXPECT_EQ(out[3], 4.0f * ::fast_Pow(1.0f + 9.0f + 16.0f, -0.75f));
  }
}

TEST(LrnKernels, RoundingErrorsOfTheSlidingSumRunOnAlongTheChannels) {
  // 1e8 + 1 rounds to 1e8, so nothing is left of the second square once the first has gone.
  for (Kernel *kernel : kKernels) {
    const std::vector<float> out = channels_of_one(kernel, {1e4f, 1.0f, 1.0f}, {.local_size = 1, .lrn_k = 0});
    EXPECT_EQ(out[1], ::fast_Pow(0.0f, -0.75f));
    EXPECT_EQ(out[2], ::fast_Pow(0.0f, -0.75f));
    EXPECT_NE(::fast_Pow(0.0f, -0.75f), ::fast_Pow(1.0f, -0.75f));
  }
}

TEST(LrnKernels, TheConstantGoesThroughItsQuotientByAlpha) {
  const float alpha_n = 0.7f;
  const float start = static_cast<float>(3.0 / static_cast<double>(alpha_n));
  ASSERT_NE(alpha_n * start, 3.0f) << "the values no longer tell the two apart";
  for (Kernel *kernel : kKernels) {
    const std::vector<float> out = channels_of_one(kernel, {0.0f, 0.0f, 1e-20f}, {.lrn_k = 3, .alpha_n = alpha_n});
    EXPECT_EQ(out[2], 1e-20f * ::fast_Pow(alpha_n * start, -0.75f));
  }
}

TEST(LrnKernels, ANegativeConstantIsSignedInOneKernelAndUnsignedInTheOther) {
  const Settings settings = {.lrn_k = -1};
  EXPECT_EQ(channels_of_one(::tarvu_lrn_neon_func, {2.0f}, settings)[0], 2.0f * ::fast_Pow(3.0f, -0.75f));
  EXPECT_EQ(channels_of_one(::tarvu_lrn_c_func, {2.0f}, settings)[0], 2.0f * ::fast_Pow(4294967296.0f, -0.75f));
}

TEST(LrnKernels, InfinityLessInfinityFeedsThePowerTheSameNaNOnEveryProcessor) {
  const float expected = 1.0f * ::fast_Pow(std::bit_cast<float>(0x7FC00000u), -0.75f);
  ASSERT_LT(expected, 1e-20f);
  for (Kernel *kernel : kKernels) {
    for (size_t length : {size_t{2}, size_t{40}}) {
      std::vector<float> in(length, 1.0f);
      in[0] = 1e30f;
      const std::vector<float> out = channels_of_one(kernel, in, {.local_size = 1});
      for (size_t c = 1; c < length; ++c) ASSERT_EQ(out[c], expected) << "channel " << c;
    }
  }
}

TEST(LrnKernels, OfTwoNaNsInAWindowThePowerTakesTheFirstOnEveryProcessor) {
  constexpr size_t kPlane = 39;  // vectors and single positions
  const float one_nan = std::bit_cast<float>(0xFFC00777u);
  const float other_nan = std::bit_cast<float>(0x7FC12345u);
  for (Kernel *kernel : kKernels) {
    for (const auto &[first, last] : {std::pair(one_nan, other_nan), std::pair(other_nan, one_nan)}) {
      std::vector<float> in(3 * kPlane, 1.0f), out(in.size()), sums(in.size()), squares(5 * kPlane);
      std::fill_n(in.begin(), kPlane, first);
      std::fill_n(in.begin() + 2 * kPlane, kPlane, last);
      ASSERT_EQ(kernel(in.data(), out.data(), sums.data(), squares.data(), 1, 1, 3, 3, 1.0f, 0.75f, kPlane, 1, 1), 0);
      const float expected = ::fast_Pow(first, -0.75f);
      ASSERT_NE(expected, ::fast_Pow(last, -0.75f));
      for (size_t i = kPlane; i < 2 * kPlane; ++i) {
        ASSERT_EQ(std::bit_cast<uint32_t>(out[i]), std::bit_cast<uint32_t>(expected)) << i;
      }
    }
  }
}

TEST(LrnKernels, AFactorThatIsNotANumberFeedsThePowerItsQuietForm) {
  for (Kernel *kernel : kKernels) {
    const float signalling = std::bit_cast<float>(0xFF812345u);
    const float quiet = std::bit_cast<float>(0xFFC12345u);
    EXPECT_EQ(channels_of_one(kernel, {2.0f}, {.alpha_n = signalling})[0], 2.0f * ::fast_Pow(quiet, -0.75f));
    const float made = std::bit_cast<float>(0x7FC00000u);
    EXPECT_EQ(channels_of_one(kernel, {2.0f}, {.lrn_k = 0, .alpha_n = 0.0f})[0], 2.0f * ::fast_Pow(made, -0.75f))
        << "0 / 0";
  }
}

TEST(LrnKernels, FurtherItemsFollowBackToBackAndNoItemTouchesNothing) {
  const std::vector<float> in = {1.0f, 2.0f, 5.0f, -3.0f};
  for (Kernel *kernel : kKernels) {
    std::vector<float> out(4, -77.0f), sums(4), squares(4);
    EXPECT_EQ(kernel(in.data(), out.data(), sums.data(), squares.data(), 1, 0, 3, 2, 1.0f, 0.75f, 1, 1, 1), 0);
    EXPECT_EQ(out, std::vector<float>(4, -77.0f));
    EXPECT_EQ(kernel(in.data(), out.data(), sums.data(), squares.data(), 1, 2, 3, 2, 1.0f, 0.75f, 1, 1, 1), 0);
    EXPECT_EQ(out, (std::vector<float>{1.0f * ::fast_Pow(6.0f, -0.75f), 2.0f * ::fast_Pow(6.0f, -0.75f),
                                       5.0f * ::fast_Pow(35.0f, -0.75f), -3.0f * ::fast_Pow(35.0f, -0.75f)}));
  }
}

void expect_same_for_random_calls(uint64_t seed, Kernel *product, Kernel *twin) {
  Random random = test_random(seed);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 250; ++i) {
    const Shape shape = {static_cast<uint32_t>(random.between(0, 37)), static_cast<uint32_t>(random.between(1, 3)),
                         static_cast<uint32_t>(random.between(1, 11)), random.pick({1u, 1u, 1u, 0u, 2u, 3u})};
    const uint32_t local_size = random.pick({1u, 3u, 5u, 5u, 7u, 9u, 21u, 4u});
    const uint32_t half = random.one_in(8) ? random.below(local_size) : (local_size - 1) / 2;
    const int32_t lrn_k = random.pick({1, 1, 2, 0, 1000, -1, std::numeric_limits<int32_t>::min(), 16777217});
    const float alpha_n = random.pick({1e-4f, 2e-5f, 1.0f, 0.3f, 1e20f, 1e-30f});
    const float beta = random.pick({0.75f, 0.5f, 1.0f, 2.0f, 0.1f, 1e30f});
    const size_t count = size_t{shape.num} * shape.item();
    const Placement placement = {random.pick({Fault::kBehind, Fault::kInFront}), 1, 4 * random.below(4)};
    const GuardedMemory in(4 * count, placement), out(4 * count, placement), sums(4 * count, placement);
    const GuardedMemory squares(size_t{4} * (shape.channels + local_size - 1) * shape.plane(), placement);
    const float reach = random.pick({1.0f, 300.0f, 1e-22f, 1e15f});
    random.fill_floats(in.data(), count, -reach, reach);
    random.fill(out.data(), out.size());
    Differential call;
    call.track(in, "input", Element::kFloat);
    call.track(out, "output", Element::kFloat, {shape.item(), 16});
    float *to = random.one_in(4) ? in.as<float>() : out.as<float>();
    const auto run = [&](Kernel *kernel) {
      return [&, kernel] {
        sums.fill(0xAB);
        squares.fill(0xCD);
        return kernel(in.as<float>(), to, sums.as<float>(), squares.as<float>(), lrn_k, shape.num, local_size,
                      shape.channels, alpha_n, beta, shape.width, shape.height, half);
      };
    };
    ASSERT_TRUE(call.same(run(product), run(twin)))
        << shape.width << " x " << shape.height << " x " << shape.channels << " x " << shape.num << ", window "
        << local_size << ", k " << lrn_k << ", alpha " << alpha_n << ", beta " << beta;
    ASSERT_EQ(sums.guard_damage(), "");
    ASSERT_EQ(squares.guard_damage(), "");
  }
}

TEST(LrnKernels, RandomCallsOfTheVectorKernelMatchTheReference) {
  expect_same_for_random_calls(351, ::tarvu_lrn_neon_func, reference::tarvu_lrn_neon_func);
}

TEST(LrnKernels, RandomCallsOfTheScalarKernelMatchTheReference) {
  expect_same_for_random_calls(352, ::tarvu_lrn_c_func, reference::tarvu_lrn_c_func);
}

}  // namespace
