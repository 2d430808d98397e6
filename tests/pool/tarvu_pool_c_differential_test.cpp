#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "tarvu.h"
#include "tests/pool/pool_case.h"
#include "tests/reference/tarvu_pool_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace {

using namespace pool_test;
using support::Element;
using support::Fault;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::test_random;

constexpr Mode kModes[] = {kLocalMaximum, kLocalAverage, kGlobalMaximum, kGlobalAverage};

/// Multipliers and shifts: plain, sensible for a network, or anything.
void choose_output(Random &random, _NN_POOL_PARM &block, int width_delta) {
  int total = 0;
  switch (random.below(4)) {
    case 0:
      block.in_scale.scale_value = 1;
      block.out_scale.scale_value = 1;
      total = random.between(-3, 4);
      break;
    case 1:
      block.in_scale.scale_value = random.between(-40, 40);
      block.out_scale.scale_value = random.between(-40, 40);
      total = random.between(0, 12);
      break;
    case 2:
      block.in_scale.scale_value = random.between(1, 127);
      block.out_scale.scale_value = random.between(1, 32767);
      total = random.between(10, 24);
      break;
    default:
      block.in_scale.scale_value = static_cast<int32_t>(random.next());
      block.out_scale.scale_value = static_cast<int32_t>(random.next());
      total = random.between(-300, 300);
  }
  const int in_shift = random.one_in(3) ? random.between(-128, 127) : random.between(-2, 4);
  const int post_shift = random.one_in(3) ? random.between(-128, 127) : random.between(-2, 4);
  block.in_scale.scale_shift = static_cast<int8_t>(in_shift);
  block.post_shift = static_cast<int8_t>(post_shift);
  block.out_scale.scale_shift = static_cast<int8_t>(total - in_shift - post_shift - width_delta);
}

int choose_kernel(Random &random) {
  switch (random.below(8)) {
    case 0:
      return random.between(0, 255);
    case 1:
      return random.between(5, 40);
    default:
      return random.between(1, 5);
  }
}

int choose_stride(Random &random) {
  switch (random.below(10)) {
    case 0:
      return random.between(0, 255);
    case 1:
      return 0;
    default:
      return random.between(1, 4);
  }
}

int choose_far_pad(Random &random) { return random.one_in(8) ? random.between(0, 255) : random.between(0, 4); }

/// The most output positions along one axis.
size_t most_positions(int extent, int kernel, int stride, int pad_near, int pad_far) {
  const int span = extent + pad_near + pad_far - kernel;
  return static_cast<size_t>(stride == 0 || span < 0 ? 2 : span / stride + 2);
}

/// A random block and its tensors; extents, windows and offsets may be changed between choose() and check().
struct RandomPool {
  Random &random;
  Type in;
  Type out;
  support::Case<_NN_POOL_PARM> pool{};

  RandomPool(Random &generator, Type in_type, Type out_type) : random(generator), in(in_type), out(out_type) {
    _NN_POOL_PARM &block = pool.block;
    random.fill(&block, sizeof block);
    block.in_fmt = in.fmt();
    block.out_fmt = out.fmt();
    block.mode =
        random.pick({kLocalMaximum, kLocalAverage, kLocalMaximum, kLocalAverage, kGlobalMaximum, kGlobalAverage});
    block.non_count_pad = random.pick({0u, 0u, 1u, 1u, 0x100u});
    block.floor_mode = random.pick({0u, 0u, 0u, 1u, 0x10000u});
    choose_output(random, block, (in.width - out.width));
    block.batch = static_cast<uint16_t>(random.between(0, 2));
    block.channel = static_cast<uint16_t>(random.one_in(20) ? 0 : random.between(1, 3));
    block.width = static_cast<uint16_t>(random.between(0, 35));
    block.height = static_cast<uint16_t>(random.between(0, 9));
    block.kernel_w = static_cast<uint8_t>(choose_kernel(random));
    block.kernel_h = static_cast<uint8_t>(choose_kernel(random));
    block.stride_w = static_cast<uint8_t>(choose_stride(random));
    block.stride_h = static_cast<uint8_t>(choose_stride(random));
    choose_pads();
    block.in_line_ofs = static_cast<uint32_t>(block.width * in.bytes()) + random.below(4);
    block.in_channel_ofs = block.height * block.in_line_ofs + random.below(4);
    block.in_batch_ofs = block.channel * block.in_channel_ofs + random.below(4);
  }

  void choose_pads() {
    _NN_POOL_PARM &block = pool.block;
    block.pad_left = static_cast<uint8_t>(random.below(std::min<uint32_t>(block.stride_w, 250) + 1));
    block.pad_top = static_cast<uint8_t>(random.below(std::min<uint32_t>(block.stride_h, 250) + 1));
    block.pad_right = static_cast<uint8_t>(choose_far_pad(random));
    block.pad_bottom = static_cast<uint8_t>(choose_far_pad(random));
  }

  /// Bytes from the first element of the first line to the last element of the last one.
  size_t input_bytes() const {
    const _NN_POOL_PARM &b = pool.block;
    if (b.batch == 0 || b.channel == 0 || b.height == 0) return 0;
    return size_t{b.in_batch_ofs} * (b.batch - 1u) + size_t{b.in_channel_ofs} * (b.channel - 1u) +
           size_t{b.in_line_ofs} * (b.height - 1u) + b.width * in.bytes();
  }

  void fill_elements(const GuardedMemory &input) const {
    random.fill(input.data(), input.size());
    if (!random.one_in(4)) return;
    for (size_t i = 0; i < input.size(); ++i) input.data()[i] = random.pick<uint8_t>({0x00, 0x7F, 0x80, 0xFF});
  }

  Placement placement() const { return {random.one_in(2) ? Fault::kBehind : Fault::kInFront, 2, random.below(2)}; }

  /// Lays out the output grid and holds the product against the twin, with `slack` bytes of input before the tensor.
  ::testing::AssertionResult check(size_t slack = 0) {
    _NN_POOL_PARM &block = pool.block;
    const bool global = block.mode == kGlobalMaximum || block.mode == kGlobalAverage;
    const size_t columns =
        global ? 1 : most_positions(block.width, block.kernel_w, block.stride_w, block.pad_left, block.pad_right);
    const size_t rows =
        global ? 1 : most_positions(block.height, block.kernel_h, block.stride_h, block.pad_top, block.pad_bottom);
    const auto line_bytes = static_cast<uint32_t>(columns * out.bytes()) + random.below(4);
    if (!global) block.out_line_ofs = line_bytes;
    block.out_channel_ofs = static_cast<uint32_t>(rows) * line_bytes + random.below(4);
    block.out_batch_ofs = block.channel * block.out_channel_ofs + random.below(4);

    const GuardedMemory input(slack + input_bytes(), placement());
    const GuardedMemory output(size_t{block.batch} * block.out_batch_ofs, placement());
    fill_elements(input);
    output.fill(kUntouchedByte);
    pool.attach(&_NN_POOL_PARM::in_addr, input, "input", Element::k8Bit, {}, slack);
    pool.attach(&_NN_POOL_PARM::out_addr, output, "output", out.width == 8 ? Element::k8Bit : Element::k16Bit);
    ::testing::AssertionResult same = pool.same(::tarvu_pool_process, reference::tarvu_pool_process);
    if (!same) same << "; " << describe(block);
    return same;
  }
};

TEST(PoolDifferential, EveryTypePairAgreesOnRandomBlocks) {
  Random random = test_random(51);
  SCOPED_TRACE(random.trace());
  for (const Type &in : kTypes) {
    for (const Type &out : kTypes) {
      for (int i = 0; i < 250; ++i) {
        RandomPool pool(random, in, out);
        ASSERT_TRUE(pool.check());
      }
    }
  }
}

TEST(PoolDifferential, EveryWindowLengthOfALineAgreesInEveryMode) {
  Random random = test_random(52);
  SCOPED_TRACE(random.trace());
  for (const Type &in : kTypes) {
    for (const Mode mode : kModes) {
      for (int length = 0; length <= 36; ++length) {
        const int kernel = length == 36 ? 255 : length;
        RandomPool pool(random, in, random.pick({kInt8, kUint8, kInt16, kUint16}));
        _NN_POOL_PARM &block = pool.pool.block;
        block.mode = mode;
        block.batch = 1;
        block.channel = 1;
        block.width = static_cast<uint16_t>(kernel + 2);
        block.height = 3;
        block.kernel_w = static_cast<uint8_t>(kernel);
        block.kernel_h = 2;
        block.stride_w = 1;
        block.stride_h = 1;
        pool.choose_pads();
        block.in_line_ofs = static_cast<uint32_t>(block.width * in.bytes());
        ASSERT_TRUE(pool.check());
      }
    }
  }
}

TEST(PoolDifferential, EveryLineLengthAgreesForSmallWindowsOfEveryStride) {
  Random random = test_random(53);
  SCOPED_TRACE(random.trace());
  for (int width = 0; width <= 67; ++width) {
    for (int stride = 1; stride <= 4; ++stride) {
      RandomPool pool(random, random.pick({kInt8, kUint8, kInt16, kUint16}),
                      random.pick({kInt8, kUint8, kInt16, kUint16}));
      _NN_POOL_PARM &block = pool.pool.block;
      block.mode = random.pick({kLocalMaximum, kLocalAverage});
      block.batch = 1;
      block.channel = 1;
      block.width = static_cast<uint16_t>(width);
      block.height = 4;
      block.kernel_w = static_cast<uint8_t>(random.between(2, 4));
      block.kernel_h = static_cast<uint8_t>(random.between(1, 3));
      block.stride_w = static_cast<uint8_t>(stride);
      block.stride_h = static_cast<uint8_t>(stride);
      pool.choose_pads();
      block.in_line_ofs = static_cast<uint32_t>(width * static_cast<int>(pool.in.bytes())) + random.below(4);
      ASSERT_TRUE(pool.check());
    }
  }
}

/// Nothing of one line or plane may be left in the next: several planes, with and without lines of divisors of their own.
TEST(PoolDifferential, SmallSquareWindowsAgreeOverSeveralPlanes) {
  Random random = test_random(63);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 600; ++i) {
    const Type type = kTypes[i % 4];
    RandomPool pool(random, type, random.one_in(4) ? random.pick({kInt8, kUint8, kInt16, kUint16}) : type);
    _NN_POOL_PARM &block = pool.pool.block;
    block.mode = random.pick({kLocalMaximum, kLocalAverage});
    block.batch = 2;
    block.channel = static_cast<uint16_t>(random.between(1, 4));
    block.width = static_cast<uint16_t>(random.between(8, 80));
    block.height = static_cast<uint16_t>(random.between(2, 14));
    block.kernel_w = block.kernel_h = static_cast<uint8_t>(random.between(2, 3));
    block.stride_w = block.stride_h = static_cast<uint8_t>(block.kernel_w == 2 ? 2 : random.between(1, 2));
    block.pad_left = static_cast<uint8_t>(random.below(2));
    block.pad_top = static_cast<uint8_t>(random.below(2));
    block.pad_right = static_cast<uint8_t>(random.below(3));
    block.pad_bottom = static_cast<uint8_t>(random.below(3));
    block.in_line_ofs = static_cast<uint32_t>(block.width * type.bytes()) + random.below(4);
    block.in_channel_ofs = block.height * block.in_line_ofs;
    block.in_batch_ofs = block.channel * block.in_channel_ofs;
    ASSERT_TRUE(pool.check());
  }
}

/// A block of several small planes; the windows are common ones or any.
void choose_small_planes(Random &random, RandomPool &pool) {
  _NN_POOL_PARM &block = pool.pool.block;
  block.mode = random.pick({kLocalMaximum, kLocalAverage});
  block.kernel_w = static_cast<uint8_t>(random.between(1, random.one_in(3) ? 9 : 3));
  block.kernel_h = random.one_in(3) ? static_cast<uint8_t>(random.between(1, 9)) : block.kernel_w;
  block.stride_w = static_cast<uint8_t>(random.between(1, random.one_in(3) ? 9 : 3));
  block.stride_h = random.one_in(3) ? static_cast<uint8_t>(random.between(1, 9)) : block.stride_w;
  pool.choose_pads();
  if (random.one_in(2)) {
    block.pad_left = block.pad_top = static_cast<uint8_t>(random.below(2));
    block.pad_right = block.pad_bottom = static_cast<uint8_t>(random.below(2));
  }
  const uint32_t padding = random.one_in(3) ? random.below(5) : 0;
  block.in_line_ofs = static_cast<uint32_t>(block.width * pool.in.bytes()) + padding;
  block.in_channel_ofs = block.height * block.in_line_ofs + (random.one_in(3) ? random.below(4) : 0);
  block.in_batch_ofs = block.channel * block.in_channel_ofs + (random.one_in(3) ? random.below(4) : 0);
}

TEST(PoolDifferential, SmallPlanesAgreeHoweverManyThereAre) {
  Random random = test_random(64);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 1200; ++i) {
    const Type in = kTypes[i % 4];
    RandomPool pool(random, in, random.one_in(2) ? random.pick({kInt8, kUint8, kInt16, kUint16}) : in);
    _NN_POOL_PARM &block = pool.pool.block;
    block.batch = static_cast<uint16_t>(random.between(1, 3));
    block.channel = static_cast<uint16_t>(random.between(1, 40));
    block.width = static_cast<uint16_t>(random.between(1, random.one_in(4) ? 33 : 16));
    block.height = static_cast<uint16_t>(random.between(1, 16));
    choose_small_planes(random, pool);
    ASSERT_TRUE(pool.check());
  }
}

TEST(PoolDifferential, TallNarrowPlanesAgree) {
  Random random = test_random(65);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 300; ++i) {
    const Type in = kTypes[i % 4];
    RandomPool pool(random, in, random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    block.batch = 1;
    block.channel = static_cast<uint16_t>(random.between(1, 5));
    block.width = static_cast<uint16_t>(random.between(1, 32));
    block.height = static_cast<uint16_t>(random.between(10, 200));
    choose_small_planes(random, pool);
    ASSERT_TRUE(pool.check());
  }
}

TEST(PoolDifferential, WholePlanesAgreeWhateverLiesBetweenTheirLines) {
  Random random = test_random(66);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 600; ++i) {
    RandomPool pool(random, kTypes[i % 4], random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    block.mode = random.pick({kGlobalMaximum, kGlobalAverage});
    block.batch = static_cast<uint16_t>(random.between(1, 2));
    block.channel = static_cast<uint16_t>(random.between(1, 20));
    block.width = static_cast<uint16_t>(random.between(1, 40));
    block.height = static_cast<uint16_t>(random.one_in(8) ? random.between(200, 600) : random.between(1, 20));
    block.in_line_ofs = static_cast<uint32_t>(block.width * pool.in.bytes()) + random.below(10);
    block.in_channel_ofs = block.height * block.in_line_ofs + random.below(4);
    block.in_batch_ofs = block.channel * block.in_channel_ofs + random.below(4);
    ASSERT_TRUE(pool.check());
  }
}

TEST(PoolDifferential, LongLinesAgreeAcrossTheBordersOfAnyTile) {
  Random random = test_random(54);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 48; ++i) {
    RandomPool pool(random, kTypes[i % 4], random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    block.mode = random.pick({kLocalMaximum, kLocalAverage});
    block.batch = 1;
    block.channel = 1;
    block.width = static_cast<uint16_t>(i == 0 ? 65535 : random.between(500, 6000));
    block.height = static_cast<uint16_t>(random.between(1, 4));
    block.kernel_w = static_cast<uint8_t>(random.one_in(4) ? random.between(6, 255) : random.between(1, 5));
    block.kernel_h = static_cast<uint8_t>(random.between(1, 3));
    block.stride_w = static_cast<uint8_t>(random.one_in(4) ? random.between(5, 255) : random.between(1, 4));
    block.stride_h = static_cast<uint8_t>(random.between(1, 2));
    pool.choose_pads();
    block.pad_bottom = static_cast<uint8_t>(random.below(2));
    block.in_line_ofs = static_cast<uint32_t>(block.width * pool.in.bytes()) + random.below(4);
    ASSERT_TRUE(pool.check());
  }
}

TEST(PoolDifferential, TallWindowsAndPlanesAgree) {
  Random random = test_random(55);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 48; ++i) {
    RandomPool pool(random, kTypes[i % 4], random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    block.mode = random.pick({kLocalMaximum, kLocalAverage});
    block.batch = 1;
    block.channel = 1;
    block.width = static_cast<uint16_t>(random.between(1, 20));
    block.height = static_cast<uint16_t>(random.between(100, 600));
    block.kernel_w = static_cast<uint8_t>(random.between(1, 13));
    block.kernel_h = static_cast<uint8_t>(random.one_in(3) ? random.between(100, 255) : random.between(5, 40));
    block.stride_w = static_cast<uint8_t>(random.between(1, 4));
    block.stride_h = static_cast<uint8_t>(random.between(1, 40));
    pool.choose_pads();
    block.in_line_ofs = static_cast<uint32_t>(block.width * pool.in.bytes()) + random.below(4);
    ASSERT_TRUE(pool.check());
  }
}

TEST(PoolDifferential, WindowsWiderAndTallerThanThePaddedInputAgree) {
  Random random = test_random(56);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 400; ++i) {
    RandomPool pool(random, kTypes[i % 4], random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    block.mode = random.pick({kLocalMaximum, kLocalAverage});
    block.width = static_cast<uint16_t>(random.between(1, 8));
    block.height = static_cast<uint16_t>(random.between(1, 8));
    block.kernel_w = static_cast<uint8_t>(random.between(6, 24));
    block.kernel_h = static_cast<uint8_t>(random.between(6, 24));
    block.stride_w = static_cast<uint8_t>(random.between(1, 7));
    block.stride_h = static_cast<uint8_t>(random.between(1, 7));
    block.floor_mode = 0;
    pool.choose_pads();
    block.pad_right = static_cast<uint8_t>(random.below(4));
    block.pad_bottom = static_cast<uint8_t>(random.below(4));
    block.in_line_ofs = static_cast<uint32_t>(block.width * pool.in.bytes());
    block.in_channel_ofs = block.height * block.in_line_ofs;
    block.in_batch_ofs = block.channel * block.in_channel_ofs;
    ASSERT_TRUE(pool.check());
  }
}

TEST(PoolDifferential, ALeftPadAboveTheStrideAgreesOnTheElementsInFrontOfTheLine) {
  Random random = test_random(57);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 300; ++i) {
    RandomPool pool(random, kTypes[i % 4], random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    block.mode = random.pick({kLocalMaximum, kLocalAverage});
    block.pad_left = static_cast<uint8_t>(random.between(block.stride_w, 255));
    ASSERT_TRUE(pool.check(size_t{255} * pool.in.bytes()));
  }
}

TEST(PoolDifferential, ATopPadAboveTheStrideAgreesWhereAllLinesAreOne) {
  Random random = test_random(58);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 300; ++i) {
    RandomPool pool(random, kTypes[i % 4], random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    block.mode = random.pick({kLocalMaximum, kLocalAverage});
    block.width = static_cast<uint16_t>(random.between(1, 35));
    block.height = static_cast<uint16_t>(random.between(1, 9));
    block.pad_top = static_cast<uint8_t>(random.between(block.stride_h, 255));
    block.in_line_ofs = 0;
    block.in_channel_ofs = static_cast<uint32_t>(block.width * pool.in.bytes());
    block.in_batch_ofs = block.channel * block.in_channel_ofs;
    ASSERT_TRUE(pool.check());
  }
}

TEST(PoolDifferential, EveryOutputShiftAgreesUnderAnyInputShiftAndFurtherShift) {
  Random random = test_random(59);
  SCOPED_TRACE(random.trace());
  for (int out_shift = -128; out_shift < 128; ++out_shift) {
    RandomPool pool(random, kTypes[out_shift & 3], random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    block.batch = 1;
    block.channel = 3;
    block.width = 4;
    block.height = 4;
    block.in_line_ofs = 8;
    block.in_channel_ofs = 32;
    block.in_scale = support::scale(random.between(1, 1000), random.between(-128, 127));
    block.out_scale = support::scale(random.between(1, 1000), out_shift);
    block.post_shift = static_cast<int8_t>(random.between(-128, 127));
    ASSERT_TRUE(pool.check());
  }
}

TEST(PoolDifferential, EveryFailureAgreesInResultTextAndUntouchedOutput) {
  Random random = test_random(60);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 200; ++i) {
    RandomPool pool(random, kTypes[i % 4], random.pick({kInt8, kUint8, kInt16, kUint16}));
    _NN_POOL_PARM &block = pool.pool.block;
    if (random.one_in(2)) random.fill(&block.in_fmt, sizeof block.in_fmt);
    if (random.one_in(2)) random.fill(&block.out_fmt, sizeof block.out_fmt);
    if (random.one_in(2)) block.out_fmt = support::format(random.pick({0, 4, 24, 32}), 0, 1);
    block.mode = static_cast<uint32_t>(random.next()) | 4;
    ASSERT_TRUE(pool.check());
    EXPECT_EQ(pool.pool.ours().result, QX_ERR_UNSUPPORTED);
    EXPECT_NE(pool.pool.ours().text, "");
  }
}

}  // namespace
