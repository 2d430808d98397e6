#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "tarvu.h"
#include "tests/activation/layernorm_case.h"
#include "tests/reference/tarvu_layernorm_c_reference.h"
#include "tests/reference/tarvu_layernorm_reference.h"

namespace {

using namespace support;

/// Lines of integers in and out.
struct Lines {
  uint16_t width;
  uint16_t lines;
  int in_width;
  int in_sign_bits;
  int out_width;
  int out_sign_bits;
  bool in_place;
};

/// Input data over the full range of the type; scales whose products are exact in float and others.
void integer_case(Random &random, LayernormCall product, LayernormCall twin, const Lines &lines) {
  Case<_NN_LAYERNORM_PARM> layernorm;
  _NN_LAYERNORM_PARM &block = layernorm.block;
  block = float_lines(lines.width, lines.lines);
  block.in_fmt = format(lines.in_width, random.between(-3, lines.in_width), lines.in_sign_bits);
  block.out_fmt = format(lines.out_width, random.between(-1, lines.out_width - 2), lines.out_sign_bits);
  block.in_scale = random.one_in(2) ? scale(random.between(1, 200), random.between(-2, 6)) : scale(0x7654321, 20);
  block.out_scale = scale(random.between(1, 99), random.between(-3, 5));
  block.eps = random.pick({0.0f, 1e-5f, 1.0f});
  const size_t count = size_t{lines.width} * lines.lines;
  const size_t in_bytes = count * static_cast<size_t>(lines.in_width / 8);
  const size_t out_bytes = count * static_cast<size_t>(lines.out_width / 8);
  const GuardedMemory input(in_bytes, {random.pick({Fault::kBehind, Fault::kInFront})});
  const GuardedMemory output(out_bytes, {random.pick({Fault::kBehind, Fault::kInFront})});
  const GuardedMemory gamma(lines.width * sizeof(float));
  const GuardedMemory beta(lines.width * sizeof(float));
  random.fill(input.data(), input.size());
  if (random.one_in(4)) std::memset(input.data(), 0x55, input.size());
  random.fill(output.data(), output.size());
  if (random.one_in(5)) {
    random.fill_any_floats(gamma.data(), lines.width);
    random.fill_any_floats(beta.data(), lines.width);
  } else {
    random.fill_floats(gamma.data(), lines.width, -4.0f, 4.0f);
    random.fill_floats(beta.data(), lines.width, -90.0f, 90.0f);
  }
  const Scratch scratch(random, 8 * count);
  block.work_buffer = scratch.address();
  const auto element = [](int width) { return width == 8 ? Element::k8Bit : Element::k16Bit; };
  layernorm.attach(&_NN_LAYERNORM_PARM::in_addr, input, "input", element(lines.in_width), {lines.width, 8});
  if (lines.in_place) {
    block.out_addr = block.in_addr;
  } else {
    layernorm.attach(&_NN_LAYERNORM_PARM::out_addr, output, "output", element(lines.out_width), {lines.width, 8});
  }
  if (random.one_in(2)) layernorm.attach(&_NN_LAYERNORM_PARM::gamma_addr, gamma, "gamma", Element::kFloat);
  if (random.one_in(2)) layernorm.attach(&_NN_LAYERNORM_PARM::beta_addr, beta, "beta", Element::kFloat);
  ASSERT_TRUE(layernorm.same(scratch.wrap(product), scratch.wrap(twin)))
      << lines.lines << " lines of " << lines.width << ", " << lines.in_width << " to " << lines.out_width << " bits"
      << (lines.in_place ? ", in place" : "");
}

TEST(LayernormIntegers, AnElementThatIsInfiniteAsAFloatMakesItsRunNaN) {
  constexpr uint16_t kWidth = 5;
  constexpr uint16_t kLines = 32;  // as many as go side by side, and more
  std::vector<uint16_t> in(size_t{kWidth} * kLines), out(in.size(), 7);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint16_t>(i % kWidth == 3 ? 0xC000 : 1 + i % kWidth);
  std::vector<float> beta(kWidth, 3.0f), scratch(2 * in.size());
  _NN_LAYERNORM_PARM block = float_lines(kWidth, kLines);
  block.in_addr = reinterpret_cast<uintptr_t>(in.data());
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.beta_addr = reinterpret_cast<uintptr_t>(beta.data());
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  block.in_fmt = format(16, -30, 0);
  block.in_scale = scale(1, -30);
  block.out_fmt = format(16, 0, 0);
  block.out_scale = scale(1, 0);
  ASSERT_EQ(tarvu_layernorm_process(&block), QX_OK);
  EXPECT_NE(out, std::vector<uint16_t>(out.size(), 0)) << "2^60 times 0xC000 is a float";
  block.in_fmt = format(16, -59, 0);
  block.in_scale = scale(1 << 24, -30);  // 2^113 times 0xC000 is infinite
  ASSERT_EQ(tarvu_layernorm_process(&block), QX_OK);
  EXPECT_EQ(out, std::vector<uint16_t>(out.size(), 0));
}

class LayernormOfIntegerTypes : public ::testing::TestWithParam<int> {};

TEST_P(LayernormOfIntegerTypes, EqualsItsTwinForManyLinesAtOnce) {
  const int pair = GetParam();
  Random random = test_random(3700 + static_cast<uint64_t>(pair));
  SCOPED_TRACE(random.trace());
  Lines lines{};
  lines.in_width = (pair & 1) != 0 ? 16 : 8;
  lines.in_sign_bits = (pair & 2) != 0 ? 1 : 0;
  lines.out_width = (pair & 4) != 0 ? 16 : 8;
  lines.out_sign_bits = (pair & 8) != 0 ? 1 : 0;
  for (const uint16_t width : std::initializer_list<uint16_t>{1, 2, 7, 8, 9, 15, 16, 17, 24, 31, 53}) {
    for (const uint16_t height : std::initializer_list<uint16_t>{7, 8, 15, 16, 17, 24, 32, 35, 49}) {
      lines.width = width;
      lines.lines = height;
      lines.in_place = lines.in_width == lines.out_width && random.one_in(3);
      integer_case(random, tarvu_layernorm_process, reference::tarvu_layernorm_process, lines);
      if (random.one_in(4)) {
        integer_case(random, tarvu_layernorm_process_neon, reference::tarvu_layernorm_process_neon, lines);
      }
      if (HasFatalFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllPairs, LayernormOfIntegerTypes, ::testing::Range(0, 16));

TEST(LayernormOfIntegers, RoundsEveryFloatAsTheConversionDoes) {
  // A constant line deviates by 0, so the output is beta alone: ties, limits, infinities and NaN.
  Random random = test_random(3730);
  SCOPED_TRACE(random.trace());
  constexpr uint16_t kWidth = 256;
  constexpr uint16_t kLines = 32;
  for (int round = 0; round < 40; ++round) {
    const int width = random.pick({8, 16});
    Case<_NN_LAYERNORM_PARM> layernorm;
    _NN_LAYERNORM_PARM &block = layernorm.block;
    block = float_lines(kWidth, kLines);
    block.in_fmt = format(8, 3, 1);
    block.out_fmt = format(width, round % 3, random.between(0, 1));
    block.eps = 1.0f;
    const float limit = width == 8 ? 300.0f : 70000.0f;
    const GuardedMemory input(size_t{kWidth} * kLines);
    const GuardedMemory output(input.size() * static_cast<size_t>(width / 8));
    std::memset(input.data(), 40, input.size());
    std::vector<float> betas;
    while (betas.size() < kWidth) {
      const auto half = static_cast<float>(random.between(-600, 600)) / 2.0f;
      betas.push_back(half);
      betas.push_back(std::nextafterf(half, 0.0f));
      betas.push_back(std::nextafterf(half, 1e9f));
      betas.push_back(random.one_in(2) ? random.any_float() : limit * (random.one_in(2) ? -0.9999f : 0.9999f));
    }
    const GuardedMemory beta = memory_of(betas);
    const Scratch scratch(random, 8 * input.size());
    block.work_buffer = scratch.address();
    layernorm.attach(&_NN_LAYERNORM_PARM::in_addr, input, "input");
    layernorm.attach(&_NN_LAYERNORM_PARM::out_addr, output, "output", width == 8 ? Element::k8Bit : Element::k16Bit,
                     {kWidth, 8});
    layernorm.attach(&_NN_LAYERNORM_PARM::beta_addr, beta, "beta", Element::kFloat);
    ASSERT_TRUE(layernorm.same(scratch.wrap(tarvu_layernorm_process), scratch.wrap(reference::tarvu_layernorm_process)))
        << width << " bits";
  }
}

TEST(LayernormOfIntegers, AnOutputOverAnotherPartOfTheInputIsWrittenAfterTheWholeInputHasBeenRead) {
  Random random = test_random(3731);
  SCOPED_TRACE(random.trace());
  Case<_NN_LAYERNORM_PARM> layernorm;
  layernorm.block = float_lines(16, 32);
  layernorm.block.in_fmt = format(8, 4, 1);
  layernorm.block.out_fmt = format(16, 12, 1);
  layernorm.block.eps = 0.1f;
  const GuardedMemory tensors(16 * 32 * 2 + 300);
  random.fill(tensors.data(), tensors.size());
  const Scratch scratch(random, 8 * 16 * 32);
  layernorm.block.work_buffer = scratch.address();
  layernorm.attach(&_NN_LAYERNORM_PARM::in_addr, tensors, "tensors", Element::k8Bit, {}, 300);
  layernorm.block.out_addr = tensors.address();
  EXPECT_TRUE(layernorm.same(scratch.wrap(tarvu_layernorm_process), scratch.wrap(reference::tarvu_layernorm_process)));
}

}  // namespace
