#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_fc_post_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/filled_memory.h"
#include "tests/support/formats.h"

namespace {

using namespace support;

constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
constexpr int32_t kMost = std::numeric_limits<int32_t>::max();

/// Signed 32-bit in and out, every multiplier 1, every shift 0, no correction.
struct Requantisation {
  _NN_SCALE mul_a = scale(1, 0);
  _NN_SCALE mul_b = scale(1, 0);
  _NN_SCALE neg_mul = scale(1, 0);
  _NN_FMT in_fmt = format(32, 0, 1);
  _NN_FMT out_fmt = format(32, 0, 1);
};

_NN_FC_POST_PARM block_of(const Requantisation &r) {
  _NN_FC_POST_PARM block{};
  block.reserved_0 = unreadable_address();
  block.batch = 1;
  block.height = 1;
  block.in_fmt = r.in_fmt;
  block.out_fmt = r.out_fmt;
  block.mul_a = r.mul_a;
  block.mul_b = r.mul_b;
  block.neg_mul = r.neg_mul;
  return block;
}

/// One partial result for each output, of the types In and Out.
template <class In, class Out>
std::vector<Out> requantise(const Requantisation &r, const std::vector<In> &in) {
  _NN_FC_POST_PARM block = block_of(r);
  const GuardedMemory input = memory_of(in);
  const GuardedMemory bias = memory_of(std::vector<int32_t>(in.size()));
  const GuardedMemory output(in.size() * sizeof(Out));
  block.width = static_cast<uint16_t>(in.size());
  block.in_addr = input.address();
  block.bias_addr = bias.address();
  block.out_addr = output.address();
  EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
  EXPECT_EQ(std::string(), output.guard_damage());
  return values_in<Out>(output);
}

std::vector<int32_t> words(const Requantisation &r, const std::vector<int32_t> &in) {
  return requantise<int32_t, int32_t>(r, in);
}

TEST(FcPost, HalvesAreRoundedAwayFromZero) {
  Requantisation r;
  r.mul_a = scale(1, 1);
  EXPECT_EQ((std::vector<int32_t>{0, 1, 1, 2, -1, -1, -2, -2}), words(r, {0, 1, 2, 3, -1, -2, -3, -4}));
  r.mul_a = scale(1, 2);
  EXPECT_EQ((std::vector<int32_t>{0, 1, 1, 1, -1, 0}), words(r, {1, 2, 3, 5, -2, -1}));
}

TEST(FcPost, RoundsOnceBehindBothMultipliers) {
  Requantisation r;
  r.mul_a = scale(3, 1);
  r.mul_b = scale(1, 1);
  EXPECT_EQ((std::vector<int32_t>{1, 2, 2, -1}), words(r, {1, 2, 3, -1}));  // 3/4, 6/4, 9/4
}

TEST(FcPost, NegativeTotalsTakeTheFurtherMultiplierAndShift) {
  Requantisation r;
  r.mul_a = scale(4, 2);
  r.neg_mul = scale(5, 3);
  EXPECT_EQ((std::vector<int32_t>{16, 0, -10, -1, -1}), words(r, {16, 0, -16, -1, -2}));
}

TEST(FcPost, ATotalOfZeroTakesThePositiveBranch) {
  Requantisation r;
  r.mul_a = scale(1, 1);
  r.neg_mul = scale(1, 63);  // a shift by 64, whose rounding term is the least 64-bit number
  EXPECT_EQ((std::vector<int32_t>{0, kMost}), words(r, {0, -1}));
}

TEST(FcPost, NeutralFurtherMultiplierMakesItLinear) {
  Requantisation r;
  r.mul_a = scale(7, 3);
  const std::vector<int32_t> positive = words(r, {1, 4, 5, 100, 12345});
  const std::vector<int32_t> negative = words(r, {-1, -4, -5, -100, -12345});
  for (size_t i = 0; i < positive.size(); ++i) EXPECT_EQ(positive[i], -negative[i]);
}

TEST(FcPost, MultiplierGoesByTheTotalAndRoundingByTheProduct) {
  Requantisation r;
  r.mul_a = scale(-1, 1);
  r.neg_mul = scale(100, 0);
  EXPECT_EQ((std::vector<int32_t>{-2, -1, 0}), words(r, {3, 1, 0}));  // a positive total, rounded as negative
  EXPECT_EQ((std::vector<int32_t>{150, 50}), words(r, {-3, -1}));
  r.neg_mul = scale(-1, 0);
  EXPECT_EQ((std::vector<int32_t>{-2, -1}), words(r, {-3, -1}));
}

TEST(FcPost, WithoutPartialResultsTheTotalIsTheNegatedCorrection) {
  _NN_FC_POST_PARM block = block_of({});
  const GuardedMemory bias = memory_of(std::vector<int32_t>{5, -7, 0, kLeast, kMost});
  const GuardedMemory output(20);
  block.width = 5;
  block.height = 0;
  block.in_addr = unreadable_address();
  block.bias_addr = bias.address();
  block.out_addr = output.address();
  EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
  // The least correction has no negative in 32 bits and stays what it is.
  EXPECT_EQ((std::vector<int32_t>{-5, 7, 0, kLeast, -kMost}), values_in<int32_t>(output));
}

TEST(FcPost, SaturatesToEachElementType) {
  Requantisation r;
  const std::vector<int32_t> in = {-70000, -40000, -200, -1, 0, 200, 300, 40000, 70000};
  r.out_fmt = format(8, 5, 1);
  EXPECT_EQ((std::vector<int8_t>{-128, -128, -128, -1, 0, 127, 127, 127, 127}), (requantise<int32_t, int8_t>(r, in)));
  r.out_fmt = format(8, 5, 0);
  EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0, 0, 200, 255, 255, 255}), (requantise<int32_t, uint8_t>(r, in)));
  r.out_fmt = format(16, -5, 1);
  EXPECT_EQ((std::vector<int16_t>{-32768, -32768, -200, -1, 0, 200, 300, 32767, 32767}),
            (requantise<int32_t, int16_t>(r, in)));
  r.out_fmt = format(16, -5, 0);
  EXPECT_EQ((std::vector<uint16_t>{0, 0, 0, 0, 0, 200, 300, 40000, 65535}), (requantise<int32_t, uint16_t>(r, in)));
  r.out_fmt = format(32, 9, 0);
  r.mul_a = scale(1 << 16, 0);
  EXPECT_EQ((std::vector<int32_t>{kLeast, kLeast, -200 << 16, -65536, 0, 200 << 16, 300 << 16, kMost, kMost}),
            words(r, in));
}

TEST(FcPost, ReadsEachElementType) {
  Requantisation r;
  r.in_fmt = format(8, 5, 1);
  EXPECT_EQ((std::vector<int32_t>{-128, 127, -1}), (requantise<int8_t, int32_t>(r, {-128, 127, -1})));
  r.in_fmt = format(8, 5, 0);
  EXPECT_EQ((std::vector<int32_t>{128, 127, 255}), (requantise<uint8_t, int32_t>(r, {128, 127, 255})));
  r.in_fmt = format(16, 12, 1);
  EXPECT_EQ((std::vector<int32_t>{-32768, 32767}), (requantise<int16_t, int32_t>(r, {-32768, 32767})));
  r.in_fmt = format(16, 12, 0);
  EXPECT_EQ((std::vector<int32_t>{32768, 65535}), (requantise<uint16_t, int32_t>(r, {32768, 65535})));
  r.in_fmt = format(32, 12, 0);
  EXPECT_EQ((std::vector<int32_t>{kLeast, kMost}), words(r, {kLeast, kMost}));
}

TEST(FcPost, BitCountsAreAddedUpModulo256) {
  Requantisation r;
  r.in_fmt = {-128, -120, 0, 0};   // 8, unsigned
  r.out_fmt = {-128, -113, 1, 0};  // 16, signed
  EXPECT_EQ((std::vector<int16_t>{0, 200, 255}), (requantise<uint8_t, int16_t>(r, {0, 200, 255})));
}

TEST(FcPost, ALeftShiftWrapsBeforeTheSaturation) {
  Requantisation r;
  r.mul_a = scale(1, -60);
  EXPECT_EQ((std::vector<int32_t>{kMost, kLeast, 0, kMost, kLeast}), words(r, {1, 8, 16, -16 + 7, -16 + 8}));
  r.mul_b = scale(1, -4);
  EXPECT_EQ((std::vector<int32_t>{1, 8, -9}), words(r, {1, 8, -9}));  // a shift by 64 is one by 0
}

TEST(FcPost, SumsOfShiftsAreTakenInEightBits) {
  Requantisation r;
  r.mul_a = scale(1, 100);
  r.mul_b = scale(1, 127);
  EXPECT_EQ((std::vector<int32_t>{3 << 29}), words(r, {3}));  // 227 is -29
  r.mul_a = scale(1, -128);
  r.mul_b = scale(1, -127);
  EXPECT_EQ((std::vector<int32_t>{2, 1}), words(r, {3, 2}));  // -255 is 1
  r.mul_a = scale(1, -64);
  r.mul_b = scale(1, -64);
  EXPECT_EQ((std::vector<int32_t>{3, -3}), words(r, {3, -3}));  // -128, whose negative is 128, which is 0 modulo 64
  r.mul_a = scale(1, 100);
  r.mul_b = scale(1, 20);
  r.neg_mul = scale(1, 20);
  EXPECT_EQ((std::vector<int32_t>{kLeast, 0}), words(r, {-1, -4096}));  // 140 is -116, a left shift by 52
  r.neg_mul = scale(1, 127);
  EXPECT_EQ((std::vector<int32_t>{-512}), words(r, {-1}));  // 247 is -9
}

TEST(FcPost, ARightShiftIsTakenModuloSixtyFour) {
  Requantisation r;
  r.mul_a = scale(1, 64);
  // The rounding term of shift 64 is the least 64-bit number, and nothing is shifted.
  EXPECT_EQ((std::vector<int32_t>{kLeast, kLeast, kMost}), words(r, {0, 5, -5}));
  r.mul_a = scale(1, 66);
  EXPECT_EQ((std::vector<int32_t>{1, 1, 2, -1, -2}), words(r, {2, 5, 6, -2, -6}));
}

TEST(FcPost, ProductsWrapInSixtyFourBits) {
  Requantisation r;
  r.mul_a = scale(kMost, 0);
  r.mul_b = scale(kMost, 0);
  r.neg_mul = scale(kMost, 0);
  // (2^31 - 1)^2 * 4 is 2^64 - 2^34 + 4, which wraps to -2^34 + 4.
  EXPECT_EQ((std::vector<int32_t>{kMost, kLeast}), words(r, {1, 4}));
  r.mul_a = scale(1 << 30, 40);
  r.mul_b = scale(1 << 30, 20);
  r.neg_mul = scale(16, 0);
  EXPECT_EQ((std::vector<int32_t>{1, 0, 0}), words(r, {1, -1, -16}));  // 2^60, -2^64, -2^68
}

TEST(FcPost, AByteStrideOfOneShiftsTheWindowByOneByteAnOutput) {
  for (const uint16_t height : std::initializer_list<uint16_t>{3, 15, 16, 17, 35}) {
    _NN_FC_POST_PARM block = block_of({});
    block.in_fmt = format(8, 3, 1);
    block.width = 4;
    block.height = height;
    block.in_line_ofs = 1;
    std::vector<int8_t> in;
    for (int i = 0; i < height + 3; ++i) in.push_back(static_cast<int8_t>(i % 2 == 0 ? 100 + i % 27 : -128 + i % 50));
    std::vector<int32_t> expected;
    for (int j = 0; j < 4; ++j) {
      int32_t sum = -(10 * j);
      for (int k = 0; k < height; ++k) sum += in[static_cast<size_t>(j + k)];
      expected.push_back(sum);
    }
    const GuardedMemory input = memory_of(in);
    const GuardedMemory bias = memory_of(std::vector<int32_t>{0, 10, 20, 30});
    const GuardedMemory output(16);
    block.in_addr = input.address();
    block.bias_addr = bias.address();
    block.out_addr = output.address();
    EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
    EXPECT_EQ(expected, values_in<int32_t>(output)) << height;
  }
}

TEST(FcPost, TotalsAreSummedBeyondThirtyTwoBits) {
  for (const uint16_t height : std::initializer_list<uint16_t>{32767, 32768, 65535}) {
    Requantisation r;
    r.in_fmt = format(16, 3, 0);
    r.mul_a = scale(1, 4);
    _NN_FC_POST_PARM block = block_of(r);
    block.width = 2;
    block.height = height;
    block.in_line_ofs = 0;
    const GuardedMemory input = memory_of(std::vector<uint16_t>{65535, 3});
    const GuardedMemory bias = memory_of(std::vector<int32_t>{kLeast, kMost});
    const GuardedMemory output(8);
    block.in_addr = input.address();
    block.bias_addr = bias.address();
    block.out_addr = output.address();
    EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
    // The least correction stays what it is when negated.
    const int64_t totals[] = {int64_t{65535} * height + kLeast, int64_t{3} * height - kMost};
    std::vector<int32_t> expected;
    for (const int64_t total : totals)
      expected.push_back(static_cast<int32_t>(total < 0 ? -((8 - total) / 16) : (total + 8) / 16));
    EXPECT_EQ(expected, values_in<int32_t>(output)) << height;
  }
}

TEST(FcPost, BatchOffsetsMayBeNegative) {
  _NN_FC_POST_PARM block = block_of({});
  block.in_fmt = format(16, 3, 1);
  block.out_fmt = format(8, 3, 1);
  block.width = 2;
  block.batch = 3;
  block.in_batch_ofs = -6;
  block.out_batch_ofs = -3;
  const GuardedMemory input = memory_of(std::vector<int16_t>{5, 6, 99, 3, 4, 99, 1, 2});
  const GuardedMemory bias = memory_of(std::vector<int32_t>{0, 0});
  const GuardedMemory output = memory_of(std::vector<int8_t>(8, -1));
  block.in_addr = input.address() + 12;
  block.bias_addr = bias.address();
  block.out_addr = output.address() + 6;
  EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
  EXPECT_EQ((std::vector<int8_t>{5, 6, -1, 3, 4, -1, 1, 2}), values_in<int8_t>(output));
}

TEST(FcPost, AnOddWidthHasFourByteElementsCloserThanTheirSize) {
  // A width of 24 is a signed 32-bit element every 3 bytes; later outputs overwrite the last byte of earlier ones.
  Requantisation r;
  r.in_fmt = r.out_fmt = format(24, 3, 1);
  _NN_FC_POST_PARM block = block_of(r);
  const GuardedMemory input = memory_of(std::vector<uint8_t>{1, 0, 0, 2, 0, 0, 3});
  const GuardedMemory bias = memory_of(std::vector<int32_t>{0x02000000 - 0x01020304 + 1, 0});
  const GuardedMemory output(7);
  block.width = 2;
  block.in_addr = input.address();
  block.bias_addr = bias.address();
  block.out_addr = output.address();
  EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
  EXPECT_EQ((std::vector<uint8_t>{4, 3, 2, 2, 0, 0, 3}), values_in<uint8_t>(output));
}

TEST(FcPost, AWidthBelowEightPutsAllElementsAtOnePlace) {
  Requantisation r;
  r.in_fmt = format(7, 3, 1);
  r.out_fmt = format(8, 3, 2);  // a 32-bit element every byte
  _NN_FC_POST_PARM block = block_of(r);
  const GuardedMemory input = memory_of(std::vector<int32_t>{0x11223344});
  const GuardedMemory bias = memory_of(std::vector<int32_t>{0, 0x44, 0x3344});
  const GuardedMemory output(6);
  block.width = 3;
  block.in_addr = input.address();
  block.bias_addr = bias.address();
  block.out_addr = output.address();
  EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
  EXPECT_EQ((std::vector<uint8_t>{0x44, 0x00, 0x00, 0x00, 0x22, 0x11}), values_in<uint8_t>(output));
}

TEST(FcPost, EmptyBatchOrWidthTouchesNothing) {
  for (const bool no_batch : {false, true}) {
    _NN_FC_POST_PARM block = block_of({});
    block.width = no_batch ? 3 : 0;
    block.batch = no_batch ? 0 : 3;
    block.in_addr = block.out_addr = block.bias_addr = unreadable_address();
    EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
  }
}

TEST(FcPost, OffsetsOfPartialResultsWrapInThirtyTwoBits) {
  // Partial results at 0, 2^31 and 2^32, which is 0 again. Only the two pages that are touched become real.
  const size_t half = size_t{1} << 31;
  void *const mapping =
      mmap(nullptr, half + 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(MAP_FAILED, mapping);
  auto *const bytes = static_cast<int8_t *>(mapping);
  bytes[0] = 3;
  bytes[half] = 50;
  Requantisation r;
  r.in_fmt = format(8, 3, 1);
  _NN_FC_POST_PARM block = block_of(r);
  const GuardedMemory bias = memory_of(std::vector<int32_t>{0});
  const GuardedMemory output(4);
  block.width = 1;
  block.height = 3;
  block.in_line_ofs = 0x80000000u;
  block.in_addr = reinterpret_cast<uintptr_t>(mapping);
  block.bias_addr = bias.address();
  block.out_addr = output.address();
  EXPECT_EQ(QX_OK, tarvu_fc_post_process(&block));
  EXPECT_EQ(56, values_in<int32_t>(output)[0]);
  munmap(mapping, half + 4096);
}

}  // namespace
