#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_prelu_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"

namespace {

using support::Case;
using support::Differential;
using support::Element;
using support::Fault;
using support::format;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::StdoutCapture;
using support::test_random;

int8_t one_8bit(int8_t x, int8_t weight, int8_t shift) {
  int8_t out = 0;
  ::tarvu_prelu_neon_func_int8(&x, &out, weight, 1, shift);
  return out;
}

/// `count` times the same element.
std::vector<int8_t> repeated_8bit(int8_t x, int8_t weight, uint32_t count, int8_t shift) {
  const std::vector<int8_t> in(count, x);
  std::vector<int8_t> out(count, 99);
  EXPECT_EQ(::tarvu_prelu_neon_func_int8(in.data(), out.data(), weight, count, shift), 0);
  return out;
}

std::vector<int16_t> repeated_16bit(int16_t x, int8_t weight, uint32_t count, int8_t shift) {
  const std::vector<int16_t> in(count, x);
  std::vector<int16_t> out(count, 99);
  EXPECT_EQ(::tarvu_prelu_neon_func_int16(in.data(), out.data(), weight, count, shift), 0);
  return out;
}

std::vector<int8_t> block_and_tail(int8_t in_block, int8_t in_tail) {
  std::vector<int8_t> expected(16, in_block);
  expected.push_back(in_tail);
  return expected;
}

std::vector<int16_t> block_and_tail_16bit(int16_t in_block, int16_t in_tail) {
  std::vector<int16_t> expected(8, in_block);
  expected.push_back(in_tail);
  return expected;
}

/// Dense tensors of 8-bit elements with one slope a channel.
struct Tensors {
  _NN_PRELU_PARM block{};
  std::vector<int8_t> in, out, weights;

  Tensors(uint32_t width, uint32_t height, uint32_t channels, uint32_t num) {
    const size_t count = size_t{width} * height * channels * num;
    in.assign(count, -8);
    out.assign(count, 55);
    weights.assign(channels, 2);
    block.in_addr = reinterpret_cast<uintptr_t>(in.data());
    block.out_addr = reinterpret_cast<uintptr_t>(out.data());
    block.weight_addr = reinterpret_cast<uintptr_t>(weights.data());
    block.width = width;
    block.height = height;
    block.channels = channels;
    block.num = num;
    block.in_fmt = format(8, 4, 1);
    block.shift = 1;
  }
};

TEST(Prelu, NonNegativeElementsPassUnchangedForEverySlope) {
  std::vector<int8_t> in(128 + 5);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int8_t>(i % 128);
  for (int weight = -128; weight <= 127; ++weight) {
    std::vector<int8_t> out(in.size(), -1);
    ::tarvu_prelu_neon_func_int8(in.data(), out.data(), static_cast<int8_t>(weight), static_cast<uint32_t>(in.size()),
                                 3);
    ASSERT_EQ(out, in) << "slope " << weight;
  }
}

TEST(Prelu, TheLargestProductSaturatesAtTheTopOfTheElement) {
  EXPECT_EQ(repeated_8bit(-128, -128, 17, 0), block_and_tail(127, 127));
  EXPECT_EQ(repeated_16bit(-32768, -128, 9, 0), block_and_tail_16bit(32767, 32767));
}

TEST(Prelu, TheShiftRoundsTowardsMinusInfinity) {
  EXPECT_EQ(one_8bit(-1, 1, 1), -1);
  EXPECT_EQ(repeated_8bit(-1, 1, 17, 1), block_and_tail(-1, -1));
  EXPECT_EQ(repeated_16bit(-3, 1, 9, 1), block_and_tail_16bit(-2, -2));
}

TEST(Prelu, ANegativeSlopeTurnsNegativeElementsPositiveWithTheSameSaturation) {
  EXPECT_EQ(one_8bit(-10, -3, 1), 15);
  EXPECT_EQ(one_8bit(-100, -3, 1), 127);
}

TEST(Prelu, ANegativeShiftGoesLeftInABlockAndRightModulo32InTheTail) {
  EXPECT_EQ(repeated_8bit(-2, 3, 17, -1), block_and_tail(-12, -1));
  EXPECT_EQ(repeated_16bit(-2, 3, 9, -1), block_and_tail_16bit(-12, -1));
}

TEST(Prelu, ALeftShiftOfABlockLosesTheBitsAboveTheLane) {
  EXPECT_EQ(repeated_8bit(-1, 2, 17, -15), block_and_tail(0, -1)) << "16-bit lanes";
  EXPECT_EQ(repeated_8bit(-1, 1, 17, -15), block_and_tail(-128, -1)) << "16-bit lanes";
  EXPECT_EQ(repeated_16bit(-1, 2, 9, -31), block_and_tail_16bit(0, -1)) << "32-bit lanes, tail shifts by 1";
}

TEST(Prelu, ALeftShiftByTheWholeLaneLeavesNothingOfABlock) {
  EXPECT_EQ(repeated_8bit(-1, 3, 17, -16), block_and_tail(0, -1)) << "tail shifts by 16";
  EXPECT_EQ(repeated_8bit(-1, 3, 17, -127), block_and_tail(0, -2)) << "tail shifts by 1";
  EXPECT_EQ(repeated_16bit(-1, 3, 9, -32), block_and_tail_16bit(0, -3)) << "tail shifts by 0";
}

TEST(Prelu, AShiftOfMinus128LeavesNothingOfABlockAndDoesNotShiftTheTail) {
  EXPECT_EQ(repeated_8bit(-7, 3, 17, -128), block_and_tail(0, -21));
  EXPECT_EQ(repeated_16bit(-7, 3, 9, -128), block_and_tail_16bit(0, -21));
}

TEST(Prelu, AShiftAbove31LeavesTheSignOfABlockAndShiftsTheTailModulo32) {
  EXPECT_EQ(repeated_8bit(-5, 1, 17, 32), block_and_tail(-1, -5));
  EXPECT_EQ(repeated_16bit(-5, 1, 9, 33), block_and_tail_16bit(-1, -3));
  EXPECT_EQ(repeated_8bit(-5, -1, 17, 127), block_and_tail(0, 0)) << "tail shifts by 31";
}

TEST(Prelu, EveryElementSlopeAndShiftOf8BitsMatchesTheReference) {
  std::vector<int8_t> in(256 + 15);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int8_t>(i * 37);
  const uint32_t count = static_cast<uint32_t>(in.size());
  std::vector<int8_t> ours(count), expected(count);
  const auto hold_together = [&](int weight, int shift) {
    ::tarvu_prelu_neon_func_int8(in.data(), ours.data(), static_cast<int8_t>(weight), count,
                                 static_cast<int8_t>(shift));
    reference::tarvu_prelu_neon_func_int8(in.data(), expected.data(), static_cast<int8_t>(weight), count,
                                          static_cast<int8_t>(shift));
    return ours == expected;
  };
  for (int weight = -128; weight <= 127; ++weight) {
    for (int shift = 0; shift <= 16; ++shift) ASSERT_TRUE(hold_together(weight, shift)) << weight << " >> " << shift;
  }
  for (int weight : {-128, -127, -64, -3, -1, 0, 1, 2, 77, 127}) {
    for (int shift = -128; shift <= 127; ++shift)
      ASSERT_TRUE(hold_together(weight, shift)) << weight << " >> " << shift;
  }
}

TEST(Prelu, EveryRunLengthAndAlignmentMatchesTheReference) {
  Random random = test_random(301);
  SCOPED_TRACE(random.trace());
  for (uint32_t count = 0; count <= 2 * 64 + 3; ++count) {
    const Placement placement = {random.pick({Fault::kBehind, Fault::kInFront}), 1, random.below(4)};
    GuardedMemory in(2 * count, placement), out(2 * count, placement);
    random.fill(in.data(), in.size());
    random.fill(out.data(), out.size());
    const int8_t weight = static_cast<int8_t>(random.between(-128, 127));
    const int8_t shift = static_cast<int8_t>(random.one_in(4) ? random.between(-128, 127) : random.between(0, 12));
    SCOPED_TRACE(testing::Message() << count << " elements, slope " << int{weight} << ", shift " << int{shift});
    Differential narrow;
    narrow.track(in, "input");
    narrow.track(out, "output", Element::k8Bit, {count, 16});
    ASSERT_TRUE(narrow.same(
        [&] { return ::tarvu_prelu_neon_func_int8(in.as<int8_t>(), out.as<int8_t>(), weight, count, shift); },
        [&] {
          return reference::tarvu_prelu_neon_func_int8(in.as<int8_t>(), out.as<int8_t>(), weight, count, shift);
        }));
    Differential wide;
    wide.track(in, "input");
    wide.track(out, "output", Element::k16Bit, {count, 8});
    ASSERT_TRUE(wide.same(
        [&] { return ::tarvu_prelu_neon_func_int16(in.as<int16_t>(), out.as<int16_t>(), weight, count, shift); },
        [&] {
          return reference::tarvu_prelu_neon_func_int16(in.as<int16_t>(), out.as<int16_t>(), weight, count, shift);
        }));
  }
}

TEST(Prelu, EachChannelHasItsOwnSlope) {
  Tensors tensors(2, 1, 3, 1);
  tensors.weights = {1, -1, 4};
  ASSERT_EQ(::tarvu_prelu_process(&tensors.block), QX_OK);
  EXPECT_EQ(tensors.out, (std::vector<int8_t>{-4, -4, 4, 4, -16, -16}));
}

TEST(Prelu, OnlyTheFirstBatchItemIsComputed) {
  Tensors tensors(3, 2, 2, 3);
  ASSERT_EQ(::tarvu_prelu_process(&tensors.block), QX_OK);
  std::vector<int8_t> expected(36, 55);
  for (size_t i = 0; i < 12; ++i) expected[i] = -8;
  EXPECT_EQ(tensors.out, expected);
}

TEST(Prelu, UnsignedElementsAreReadAsSigned) {
  Tensors tensors(1, 1, 1, 1);
  tensors.block.in_fmt = format(8, 0, 0);
  tensors.in[0] = static_cast<int8_t>(200);
  ASSERT_EQ(::tarvu_prelu_process(&tensors.block), QX_OK);
  EXPECT_EQ(tensors.out[0], -56);
  tensors.block.shift = 2;
  ASSERT_EQ(::tarvu_prelu_process(&tensors.block), QX_OK);
  EXPECT_EQ(tensors.out[0], -28);
}

TEST(Prelu, OtherElementWidthsDoNothingAndAreNoFailure) {
  for (int width : {32, 24, 0, 4, -8}) {
    Tensors tensors(4, 4, 2, 1);
    tensors.block.in_fmt = format(width, 3, 1);
    StdoutCapture capture;
    const _QX_RESULT result = ::tarvu_prelu_process(&tensors.block);
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(result, QX_OK);
    EXPECT_EQ(tensors.out, std::vector<int8_t>(32, 55)) << width << " bits";
  }
}

TEST(Prelu, AZeroExtentPrintsItsLineAndWritesNoOutputByte) {
  const struct {
    uint32_t _NN_PRELU_PARM::*extent;
    const char *values;
  } cases[] = {{&_NN_PRELU_PARM::num, "0x4x3x2"},
               {&_NN_PRELU_PARM::channels, "5x0x3x2"},
               {&_NN_PRELU_PARM::height, "5x4x0x2"},
               {&_NN_PRELU_PARM::width, "5x4x3x0"}};
  for (const auto &c : cases) {
    Tensors tensors(2, 3, 4, 5);
    tensors.block.*c.extent = 0;
    StdoutCapture capture;
    const _QX_RESULT result = ::tarvu_prelu_process(&tensors.block);
    EXPECT_EQ(capture.text(),
              std::string("\033[1;31mERR:tarvu_prelu_checkparm() shape should be positive, but input is ") + c.values +
                  "(num x channels x height x width)\r\n\033[0m");
    EXPECT_EQ(result, QX_ERR_PARAM);
    EXPECT_EQ(tensors.out, std::vector<int8_t>(120, 55));
  }
}

TEST(Prelu, RandomBlocksMatchTheReference) {
  Random random = test_random(302);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 300; ++i) {
    Case<_NN_PRELU_PARM> prelu;
    _NN_PRELU_PARM &block = prelu.block;
    block.width = random.below(24);
    block.height = 1 + random.below(9);
    block.channels = 1 + random.below(5);
    block.num = 1 + random.below(2);
    if (random.one_in(20)) *random.pick({&block.width, &block.height, &block.channels, &block.num}) = 0;
    const int width = random.pick({8, 16, 8, 16, 8, 16, 32});
    block.in_fmt = format(width, random.between(-20, 20), random.between(0, 2), random.between(0, 255));
    block.reserved_0 = static_cast<uint32_t>(random.next());
    block.shift = static_cast<int8_t>(random.one_in(6) ? random.between(-128, 127) : random.between(0, 15));
    const size_t bytes =
        size_t{block.width} * block.height * block.channels * block.num * static_cast<size_t>(width) / 8;
    const Placement placement = {random.pick({Fault::kBehind, Fault::kInFront}), 1, random.below(8)};
    GuardedMemory in(bytes, placement), out(bytes, placement), weights(block.channels);
    random.fill(in.data(), in.size());
    random.fill(out.data(), out.size());
    random.fill(weights.data(), weights.size());
    prelu.attach(&_NN_PRELU_PARM::in_addr, in, "input");
    prelu.attach(&_NN_PRELU_PARM::out_addr, out, "output", width == 16 ? Element::k16Bit : Element::k8Bit,
                 {size_t{block.width} * block.height, width == 16 ? size_t{8} : size_t{16}});
    prelu.attach(&_NN_PRELU_PARM::weight_addr, weights, "slopes");
    if (random.one_in(3)) block.out_addr = block.in_addr;
    ASSERT_TRUE(prelu.same(::tarvu_prelu_process, reference::tarvu_prelu_process)) << "case " << i;
  }
}

// ---- The kernels with a slope per element

TEST(PreluSlopePerElement, ChannelsOfAPlaneSizeNeedNoLoopOfTheCaller) {
  const std::vector<int8_t> in(12, -4);
  const std::vector<int8_t> weights = {1, 2, -3};
  std::vector<int8_t> out(12);
  EXPECT_EQ(::tarvu_prelu_c_func_int8(in.data(), weights.data(), out.data(), 3 * 2, 0, 12, 1, 2), 0);
  EXPECT_EQ(out, (std::vector<int8_t>{-4, -4, -8, -8, 12, 12, -4, -4, -8, -8, 12, 12}));
}

TEST(PreluSlopePerElement, DivisionsByZeroGiveZeroAndAModulusOfZeroChangesNothing) {
  const std::vector<int16_t> in(4, -1);
  const std::vector<int8_t> weights = {10, 11, 12, 13};
  std::vector<int16_t> out(4);
  ::tarvu_prelu_c_func_int16(in.data(), weights.data(), out.data(), 4, 0, 4, 0, 1);
  EXPECT_EQ(out, (std::vector<int16_t>{-10, -10, -10, -10})) << "first divisor 0";
  ::tarvu_prelu_c_func_int16(in.data(), weights.data(), out.data(), 4, 0, 4, 1, 0);
  EXPECT_EQ(out, (std::vector<int16_t>{-10, -10, -10, -10})) << "second divisor 0";
  ::tarvu_prelu_c_func_int16(in.data(), weights.data(), out.data(), 0, 0, 4, 1, 1);
  EXPECT_EQ(out, (std::vector<int16_t>{-10, -11, -12, -13})) << "modulus 0";
}

TEST(PreluSlopePerElement, TheFirstDivisionIsSignedAndTheRemainderUnsigned) {
  const std::vector<int8_t> in(3, -1);
  const std::vector<int8_t> weights = {20, 21, 22, 23, 24, 25, 26};
  std::vector<int8_t> out(3);
  ::tarvu_prelu_c_func_int8(in.data(), weights.data(), out.data(), 7, 0, 3, -1, 1);
  // -1 is 4294967295, which leaves 3 of 7; -2 leaves 2.
  EXPECT_EQ(out, (std::vector<int8_t>{-20, -23, -22}));
}

TEST(PreluSlopePerElement, TheShiftCountsModulo32InEveryPosition) {
  const std::vector<int8_t> in(33, -8);
  const std::vector<int8_t> weights = {1};
  std::vector<int8_t> out(33);
  ::tarvu_prelu_c_func_int8(in.data(), weights.data(), out.data(), 1, 33, 33, 1, 1);
  EXPECT_EQ(out, std::vector<int8_t>(33, -4));
  ::tarvu_prelu_c_func_int8(in.data(), weights.data(), out.data(), 1, -1, 33, 1, 1);
  EXPECT_EQ(out, std::vector<int8_t>(33, -1));
}

TEST(PreluSlopePerElement, ACountBelowOneTouchesNothing) {
  int8_t narrow = 77;
  int16_t wide = 77;
  for (int32_t count : {0, -1, std::numeric_limits<int32_t>::min()}) {
    EXPECT_EQ(::tarvu_prelu_c_func_int8(nullptr, nullptr, &narrow, 1, 0, count, 1, 1), 0);
    EXPECT_EQ(::tarvu_prelu_c_func_int16(nullptr, nullptr, &wide, 1, 0, count, 1, 1), 0);
  }
  EXPECT_EQ(narrow, 77);
  EXPECT_EQ(wide, 77);
}

TEST(PreluSlopePerElement, RandomCallsMatchTheReference) {
  Random random = test_random(303);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 200; ++i) {
    const int32_t count = random.between(0, 150);
    const uint32_t modulus = random.pick({1u, 2u, 3u, 17u, 64u, 100u});
    const int32_t divisor_a = random.pick({1, 1, 2, 3, 16, 0, -1, -7, std::numeric_limits<int32_t>::min()});
    const uint32_t divisor_b = random.pick({1u, 1u, 2u, 5u, 16u, 0u, 0xFFFFFFFFu});
    const int8_t shift = static_cast<int8_t>(random.one_in(3) ? random.between(-128, 127) : random.between(0, 8));
    GuardedMemory in(2 * static_cast<size_t>(count)), out(2 * static_cast<size_t>(count)), weights(modulus);
    random.fill(in.data(), in.size());
    random.fill(weights.data(), weights.size());
    Differential call;
    call.track(in, "input");
    call.track(out, "output");
    call.track(weights, "slopes");
    const int8_t *w = weights.as<int8_t>();
    ASSERT_TRUE(call.same(
        [&] {
          return ::tarvu_prelu_c_func_int8(in.as<int8_t>(), w, out.as<int8_t>(), modulus, shift, count, divisor_a,
                                           divisor_b);
        },
        [&] {
          return reference::tarvu_prelu_c_func_int8(in.as<int8_t>(), w, out.as<int8_t>(), modulus, shift, count,
                                                    divisor_a, divisor_b);
        }));
    ASSERT_TRUE(call.same(
        [&] {
          return ::tarvu_prelu_c_func_int16(in.as<int16_t>(), w, out.as<int16_t>(), modulus, shift, count, divisor_a,
                                            divisor_b);
        },
        [&] {
          return reference::tarvu_prelu_c_func_int16(in.as<int16_t>(), w, out.as<int16_t>(), modulus, shift, count,
                                                     divisor_a, divisor_b);
        }));
  }
}

}  // namespace
