#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_onehot_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::Case;
using support::Fault;
using support::format;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::scale;
using support::test_random;
using support::unreadable_address;

/// A column of `height` signed 8-bit indices, values and output of signed 8 bits, `axis` 3.
_NN_ONEHOT_PARM column_block(uint32_t height, int32_t depth) {
  _NN_ONEHOT_PARM block{};
  block.in_fmt = block.out_fmt = block.values_fmt = kInt8.fmt();
  block.in_scale = scale(1, 0);
  block.width = 999;  // not read
  block.height = static_cast<uint16_t>(height);
  block.channel = block.batch = 1;
  block.in_line_ofs = 1;
  block.in_channel_ofs = block.in_batch_ofs = height;
  block.out_line_ofs = static_cast<uint32_t>(depth);
  block.out_channel_ofs = block.out_batch_ofs = height * static_cast<uint32_t>(depth);
  block.axis = 3;
  block.depth = depth;
  return block;
}

/// What a block writes, as bytes: `indices` and `values` as they lie in memory.
template <class Index, class Value>
std::vector<uint8_t> rows(_NN_ONEHOT_PARM block, const std::vector<Index> &indices, const std::vector<Value> &values,
                          size_t out_bytes) {
  const GuardedMemory in = memory_of(indices);
  const GuardedMemory pair = memory_of(values);
  const GuardedMemory out(out_bytes);
  out.fill(0x77);
  block.in_addr = in.address();
  block.values_addr = pair.address();
  block.out_addr = out.address();
  const Answer got = answer(::tarvu_onehot_process, block);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.text, "");
  EXPECT_EQ(out.guard_damage(), "");
  return values_in<uint8_t>(out);
}

using Bytes = std::vector<uint8_t>;
const std::vector<int8_t> kOffOn = {0, 1};

TEST(OneHot, EachRowIsOnAtItsIndexOnly) {
  EXPECT_EQ(rows<int8_t>(column_block(4, 3), {0, 2, -1, 5}, kOffOn, 12), (Bytes{1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0}));
}

TEST(OneHot, AxisZeroWritesThePositionsIntoTheBatchItems) {
  _NN_ONEHOT_PARM block = column_block(4, 3);
  block.axis = 0;
  block.out_batch_ofs = 4;
  EXPECT_EQ(rows<int8_t>(block, {0, 2, -1, 5}, kOffOn, 12), (Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 0}));
}

TEST(OneHot, AFractionOfAnIndexIsDropped) {
  _NN_ONEHOT_PARM block = column_block(2, 3);
  block.in_fmt = kInt8.fmt(1);
  EXPECT_EQ(rows<int8_t>(block, {3, 4}, kOffOn, 6), (Bytes{0, 1, 0, 0, 0, 1}));
}

TEST(OneHot, MinusOneHalfSelectsTheLastPosition) {
  _NN_ONEHOT_PARM block = column_block(1, 3);
  block.in_fmt = kInt8.fmt(1);
  EXPECT_EQ(rows<int8_t>(block, {-1}, kOffOn, 3), (Bytes{0, 0, 1}));
}

TEST(OneHot, AnIndexLessThanOneBelowTheFirstPositionTruncatesToIt) {
  _NN_ONEHOT_PARM block = column_block(2, 3);
  block.in_fmt = kInt8.fmt(1);
  EXPECT_EQ(rows<int8_t>(block, {-7, -8}, kOffOn, 6), (Bytes{1, 0, 0, 0, 0, 0}));  // -3.5 + 3 and -4 + 3
}

TEST(OneHot, TheScaleOfTheIndicesCounts) {
  _NN_ONEHOT_PARM block = column_block(3, 4);
  block.in_scale = scale(3, 1);
  EXPECT_EQ(rows<int8_t>(block, {1, 2, -1}, kOffOn, 12), (Bytes{0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0}));
}

TEST(OneHot, ThePairIsReformattedWithSaturation) {
  _NN_ONEHOT_PARM block = column_block(1, 2);
  block.values_fmt = kInt16.fmt();
  EXPECT_EQ(rows<int8_t>(block, {1}, std::vector<int16_t>{-300, 300}, 2), (Bytes{0x80, 0x7F}));
}

TEST(OneHot, APairThatNothingReformatsIsZero) {
  _NN_ONEHOT_PARM block = column_block(1, 2);
  block.values_fmt = kInt32.fmt();
  EXPECT_EQ(rows<int8_t>(block, {1}, std::vector<int32_t>{5, 6}, 2), (Bytes{0, 0}));
}

TEST(OneHot, SixteenBitRowsHoldBothBytesOfThePair) {
  _NN_ONEHOT_PARM block = column_block(1, 3);
  block.values_fmt = block.out_fmt = kInt16.fmt();
  EXPECT_EQ(rows<int8_t>(block, {1}, std::vector<uint16_t>{0x1122, 0x3344}, 6),
            (Bytes{0x22, 0x11, 0x44, 0x33, 0x22, 0x11}));
}

TEST(OneHot, A32BitIndexFormatCountsAsIndexZero) {
  _NN_ONEHOT_PARM block = column_block(2, 2);
  block.in_fmt = kInt32.fmt();
  block.in_line_ofs = 4;
  EXPECT_EQ(rows<int32_t>(block, {1, -1}, kOffOn, 4), (Bytes{1, 0, 1, 0}));
}

TEST(OneHot, AnIndexFormatWithTwoSignBitsCountsAsIndexZero) {
  _NN_ONEHOT_PARM block = column_block(2, 2);
  block.in_fmt = format(8, 0, 2);
  EXPECT_EQ(rows<int8_t>(block, {1, 1}, kOffOn, 4), (Bytes{1, 0, 1, 0}));
}

TEST(OneHot, ADepthOfZeroAndBelowWritesNothing) {
  for (int32_t depth : {0, -1, INT32_MIN}) {
    _NN_ONEHOT_PARM block = column_block(2, 1);
    block.depth = depth;
    EXPECT_EQ(rows<int8_t>(block, {0, -1}, kOffOn, 2), (Bytes{0x77, 0x77})) << depth;
  }
}

TEST(OneHot, TheGreatestDepthReachesItsLastPosition) {
  _NN_ONEHOT_PARM block = column_block(1, 65535);
  Bytes expected(65535, 0);
  expected[65534] = 1;
  EXPECT_EQ(rows<int8_t>(block, {-1}, kOffOn, 65535), expected);
}

/// A block with rows to write, all of whose addresses but the pair's fault.
_NN_ONEHOT_PARM block_that_writes_nothing(const GuardedMemory &pair) {
  _NN_ONEHOT_PARM block = column_block(2, 3);
  block.in_addr = unreadable_address();
  block.out_addr = unreadable_address();
  block.values_addr = pair.address();
  return block;
}

TEST(OneHot, AnOutputTypeOtherThanTheFourPrintsAPlainLineAheadOfTheAxis) {
  const GuardedMemory pair = memory_of(kOffOn);
  _NN_ONEHOT_PARM block = block_that_writes_nothing(pair);
  block.values_addr = unreadable_address();
  block.axis = 4;  // checked later
  block.out_fmt = format(32, 0, 0);
  Answer got = answer(::tarvu_onehot_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "not supported output type = 4\n");
  block.out_fmt = format(9, 0, 0);
  got = answer(::tarvu_onehot_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "not supported output type = -1\n");
}

TEST(OneHot, AnAxisOutsideTheFourPrintsAPlainLineEvenForAnEmptyTensor) {
  const GuardedMemory pair = memory_of(kOffOn);
  _NN_ONEHOT_PARM block = block_that_writes_nothing(pair);
  block.axis = 4;
  Answer got = answer(::tarvu_onehot_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "not supported axis = 4\n");
  block.axis = -1;
  block.height = 0;
  got = answer(::tarvu_onehot_process, block);
  EXPECT_EQ(got.result, QX_ERR_UNSUPPORTED);
  EXPECT_EQ(got.text, "not supported axis = -1\n");
}

TEST(OneHot, AZeroExtentWritesNothing) {
  const GuardedMemory pair = memory_of(kOffOn);
  for (uint16_t _NN_ONEHOT_PARM::*extent :
       {&_NN_ONEHOT_PARM::height, &_NN_ONEHOT_PARM::channel, &_NN_ONEHOT_PARM::batch}) {
    _NN_ONEHOT_PARM block = block_that_writes_nothing(pair);
    block.*extent = 0;
    const Answer got = answer(::tarvu_onehot_process, block);
    EXPECT_EQ(got.result, QX_OK);
    EXPECT_EQ(got.text, "");
  }
}

/// One differential call over a random shape, padded or dense, with indices in and out of range.
::testing::AssertionResult random_call(Type out_type, Type values_type, int axis, int32_t depth, Random &random) {
  const Type &in_type = kElementTypes[random.below(4)];
  const uint32_t extents[3] = {1 + random.below(5), 1 + random.below(4),
                               1 + random.below(3)};  // height, channel, batch
  const auto length = static_cast<uint32_t>(depth);

  // The output's axes from the dense one up, and the steps that its offsets hold.
  std::vector<uint32_t> axes = {extents[0], extents[1], extents[2]};
  axes.insert(axes.begin() + (3 - axis), length);
  const uint32_t padding = random.below(4);
  uint32_t steps[4] = {out_type.bytes(), 0, 0, 0};
  size_t out_bytes = out_type.bytes() + size_t{steps[0]} * (axes[0] - 1);
  for (size_t i = 1; i < 4; ++i) {
    steps[i] = steps[i - 1] * axes[i - 1] + padding;
    out_bytes += size_t{steps[i]} * (axes[i] - 1);
  }

  Case<_NN_ONEHOT_PARM> onehot;
  _NN_ONEHOT_PARM &block = onehot.block;
  block.width = static_cast<uint16_t>(random.below(9));
  block.height = static_cast<uint16_t>(extents[0]);
  block.channel = static_cast<uint16_t>(extents[1]);
  block.batch = static_cast<uint16_t>(extents[2]);
  block.in_line_ofs = in_type.bytes() * (1 + random.below(3)) + random.below(2);
  block.in_channel_ofs = block.in_line_ofs * extents[0] + random.below(3);
  block.in_batch_ofs = block.in_channel_ofs * extents[1] + random.below(3);
  block.out_line_ofs = steps[1];
  block.out_channel_ofs = steps[2];
  block.out_batch_ofs = steps[3];
  block.in_fmt = format(in_type.width, random.between(0, 2), in_type.sign_bits);
  block.out_fmt = out_type.fmt(random.between(-2, 4));
  block.values_fmt = values_type.fmt(random.between(-2, 4));
  block.in_scale = random.one_in(2) ? scale(1, 0) : scale(random.between(-3, 5), random.between(-1, 2));
  block.axis = axis;
  block.depth = depth;

  const size_t in_bytes = in_type.bytes() + size_t{block.in_line_ofs} * (extents[0] - 1) +
                          size_t{block.in_channel_ofs} * (extents[1] - 1) +
                          size_t{block.in_batch_ofs} * (extents[2] - 1);
  const Placement placement = {Fault::kBehind, 16, random.below(2)};
  const GuardedMemory in(in_bytes, placement);
  const GuardedMemory pair(2 * values_type.bytes(), placement);
  const GuardedMemory out(out_bytes, placement);
  random.fill(in.data(), in.size());
  for (uint32_t b = 0; b < extents[2]; ++b) {
    for (uint32_t c = 0; c < extents[1]; ++c) {
      for (uint32_t h = 0; h < extents[0]; ++h) {
        uint8_t *at = in.data() + b * block.in_batch_ofs + c * block.in_channel_ofs + h * block.in_line_ofs;
        const int32_t magnitude = random.between(-depth - 2, depth + 1);
        store_element(at, in_type, 0, magnitude * (1 << block.in_fmt.frac_bits) + random.between(0, 1));
      }
    }
  }
  random.fill(pair.data(), pair.size());
  random.fill(out.data(), out.size());
  onehot.attach(&_NN_ONEHOT_PARM::in_addr, in, "indices");
  onehot.attach(&_NN_ONEHOT_PARM::values_addr, pair, "values");
  onehot.attach(&_NN_ONEHOT_PARM::out_addr, out, "output");
  return onehot.same(::tarvu_onehot_process, reference::tarvu_onehot_process);
}

TEST(OneHotWalk, EveryTypeOfOutputAndValuesAgreesWithTheTwinOnEveryAxis) {
  Random random = test_random(341);
  SCOPED_TRACE(random.trace());
  for (const Type &out_type : kElementTypes) {
    for (const Type &values_type : kIndexTypes) {
      for (int axis = 0; axis < 4; ++axis) {
        for (int round = 0; round < 3; ++round) {
          const int32_t depth = random.between(1, 12);
          ASSERT_TRUE(random_call(out_type, values_type, axis, depth, random))
              << "output " << out_type.width << "/" << out_type.sign_bits << " values " << values_type.width << "/"
              << values_type.sign_bits << " axis " << axis << " depth " << depth;
        }
      }
    }
  }
}

TEST(OneHotWalk, EveryDepthAgreesWithTheTwinOnTheDenseAxis) {
  Random random = test_random(342);
  SCOPED_TRACE(random.trace());
  for (int32_t depth = 1; depth <= 70; ++depth) {
    const Type &out_type = kElementTypes[random.below(4)];
    ASSERT_TRUE(random_call(out_type, out_type, 3, depth, random)) << depth;
  }
}

}  // namespace
