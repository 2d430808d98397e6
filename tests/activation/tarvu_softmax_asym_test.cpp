#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/activation/softmax_cases.h"
#include "tests/reference/tarvu_softmax_asym_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"

namespace {

using softmax_cases::float_block;
using softmax_cases::Shape;
using softmax_cases::softmax_of_floats;
using support::Case;
using support::Element;
using support::format;
using support::GuardedMemory;
using support::Random;
using support::scale;
using support::StdoutCapture;
using support::test_random;
using support::unreadable_address;

/// A single row of unsigned 8-bit elements, to be converted to `out_fmt` with the scale `out_scale`.
template <class T>
std::vector<T> quantised(std::vector<uint8_t> in, const _NN_FMT &out_fmt, int32_t out_scale, int32_t in_zero_point,
                         int32_t out_zero_point) {
  _NN_SOFTMAX_ASYM_PARM block = float_block<_NN_SOFTMAX_ASYM_PARM>({static_cast<int>(in.size()), 1, 1, 1}, 3);
  std::vector<T> out(in.size(), T{77});
  std::vector<float> scratch(2 * in.size());
  block.in_fmt = format(8, 0, 0);
  block.out_fmt = out_fmt;
  block.out_scale = scale(out_scale, 0);
  block.in_zero_point = in_zero_point;
  block.out_zero_point = out_zero_point;
  block.in_addr = reinterpret_cast<uintptr_t>(in.data());
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  EXPECT_EQ(::tarvu_softmax_asym_process(&block), QX_OK);
  return out;
}

std::vector<float> softmax(std::vector<float> in, Shape shape, int axis) {
  return softmax_of_floats<_NN_SOFTMAX_ASYM_PARM>(::tarvu_softmax_asym_process, std::move(in), shape, axis);
}

std::vector<float> counted(size_t count) {
  std::vector<float> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = 0.75f * static_cast<float>((i * 5) % 11);
  return values;
}

TEST(SoftmaxAsym, RandomBlocksMatchTheReference) {
  Random random = test_random(331);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 900; ++i) {
    softmax_cases::expect_same_for_random_block<_NN_SOFTMAX_ASYM_PARM>(random, ::tarvu_softmax_asym_process,
                                                                       reference::tarvu_softmax_asym_process);
    if (HasFatalFailure()) break;
  }
}

TEST(SoftmaxAsym, EverySmallShapeAndAxisMatchesTheReference) {
  Random random = test_random(337);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_for_every_small_shape<_NN_SOFTMAX_ASYM_PARM>(random, ::tarvu_softmax_asym_process,
                                                                          reference::tarvu_softmax_asym_process);
}

TEST(SoftmaxAsym, LongItemsApartAndOverlappingMatchTheReference) {
  Random random = test_random(338);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_for_long_items<_NN_SOFTMAX_ASYM_PARM>(random, ::tarvu_softmax_asym_process,
                                                                   reference::tarvu_softmax_asym_process);
}

TEST(SoftmaxAsym, OneBatchItemMatchesTheReference) {
  Random random = test_random(332);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 100; ++i) {
    softmax_cases::expect_same_for_random_block<_NN_SOFTMAX_ASYM_PARM>(
        random,
        [](const _NN_SOFTMAX_ASYM_PARM *parm) {
          return ::tarvu_softmax_asym_process_one_batch(parm, reinterpret_cast<const void *>(parm->in_addr),
                                                        reinterpret_cast<void *>(parm->out_addr));
        },
        [](const _NN_SOFTMAX_ASYM_PARM *parm) {
          return reference::tarvu_softmax_asym_process_one_batch(parm, reinterpret_cast<const void *>(parm->in_addr),
                                                                 reinterpret_cast<void *>(parm->out_addr));
        });
    if (HasFatalFailure()) break;
  }
}

TEST(SoftmaxAsym, ColumnsAlongTheLinesMatchTheReference) {
  Random random = test_random(333);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_columns<_NN_SOFTMAX_ASYM_PARM>(random, ::tarvu_softmax_asym_axis2_4vec,
                                                            reference::tarvu_softmax_asym_axis2_4vec);
}

TEST(SoftmaxAsym, RowsMatchTheReference) {
  Random random = test_random(334);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_rows<_NN_SOFTMAX_ASYM_PARM>(random, ::tarvu_softmax_asym_axis3_4vec,
                                                         reference::tarvu_softmax_asym_axis3_4vec);
}

TEST(SoftmaxAsym, WholeItemsMatchTheReference) {
  Random random = test_random(335);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_whole_items<_NN_SOFTMAX_ASYM_PARM>(random, ::tarvu_softmax_asym_axisn_1dim_vec,
                                                                reference::tarvu_softmax_asym_axisn_1dim_vec);
}

TEST(SoftmaxAsym, FloatsGiveTheSameBitsAsTheFormWithoutZeroPoints) {
  const struct {
    Shape shape;
    int axis;
  } cases[] = {{{7, 3, 5, 1}, 1},  {{1, 1, 41, 1}, 1}, {{21, 4, 3, 1}, 2}, {{1, 21, 4, 1}, 2},
               {{1, 41, 1, 1}, 2}, {{37, 4, 2, 1}, 3}, {{37, 1, 1, 1}, 3}, {{5, 5, 5, 1}, -1}};
  for (const auto &c : cases) {
    const size_t count = softmax_cases::elements_of_an_item(c.shape.width, c.shape.height, c.shape.channel);
    const std::vector<float> expected =
        softmax_of_floats<_NN_SOFTMAX_PARM>(::tarvu_softmax_process, counted(count), c.shape, c.axis);
    EXPECT_EQ(softmax(counted(count), c.shape, c.axis), expected) << "axis " << c.axis;
  }
}

TEST(SoftmaxAsym, TheInputIsTakenRelativeToItsZeroPoint) {
  // The differences to the maximum, and with them the result, do not depend on the zero point.
  const _NN_FMT out_fmt = format(16, 0, 0);
  const std::vector<uint8_t> in = {128, 130, 127, 0};
  EXPECT_EQ(quantised<uint16_t>(in, out_fmt, 60000, 128, 0), quantised<uint16_t>(in, out_fmt, 60000, 0, 0));
  // All elements lie below the seed of the maximum, where the differences to it are clamped.
  EXPECT_EQ(quantised<uint16_t>(in, out_fmt, 60000, 20000000, 0), std::vector<uint16_t>(4, 15000));
}

TEST(SoftmaxAsym, ASigned8BitOutputIsBiasedByTheInputsZeroPoint) {
  const std::vector<uint8_t> in(4, 50);
  EXPECT_EQ(quantised<int8_t>(in, format(8, 0, 1), 100, 10, -100), std::vector<int8_t>(4, 35));
  EXPECT_EQ(quantised<int8_t>(in, format(8, 0, 1), 100, 128, -128), std::vector<int8_t>(4, 127)) << "25 + 128, clamped";
}

TEST(SoftmaxAsym, OtherOutputsAreBiasedByTheirOwnZeroPoint) {
  const std::vector<uint8_t> in(4, 50);
  EXPECT_EQ(quantised<uint8_t>(in, format(8, 0, 0), 100, 10, 30), std::vector<uint8_t>(4, 55));
  EXPECT_EQ(quantised<int16_t>(in, format(16, 0, 1), 100, 10, -100), std::vector<int16_t>(4, -75));
  EXPECT_EQ(quantised<uint16_t>(in, format(16, 0, 0), 100, 10, 1000), std::vector<uint16_t>(4, 1025));
}

TEST(SoftmaxAsym, ANegativeSumOfAnUnsignedOutputSaturatesAtTheTopInABlockAndAtZeroInTheTail) {
  std::vector<uint8_t> expected_8(8, 255);
  expected_8.push_back(0);
  EXPECT_EQ(quantised<uint8_t>(std::vector<uint8_t>(9, 50), format(8, 0, 0), 9, 0, -10), expected_8);
  std::vector<uint16_t> expected_16(16, 65535);
  expected_16.push_back(0);
  EXPECT_EQ(quantised<uint16_t>(std::vector<uint8_t>(17, 50), format(16, 0, 0), 17, 0, -10), expected_16);
}

TEST(SoftmaxAsym, OutputsRoundToNearestWhereTheFormWithoutZeroPointsTruncates) {
  EXPECT_EQ(quantised<uint8_t>(std::vector<uint8_t>(4, 50), format(8, 0, 0), 7, 0, 0), std::vector<uint8_t>(4, 2))
      << "1.75";
}

TEST(SoftmaxAsym, FloatInputOfEveryItemIsThatOfTheFirst) {
  const GuardedMemory in(4 * 6), scratch(4 * 6);
  const std::vector<float> values = counted(6);
  std::memcpy(in.data(), values.data(), in.size());
  _NN_SOFTMAX_ASYM_PARM block = float_block<_NN_SOFTMAX_ASYM_PARM>({3, 2, 1, 2}, 2);
  std::vector<float> out(12, -77.0f);
  block.in_addr = in.address();
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = scratch.address();
  block.in_zero_point = 5;
  ASSERT_EQ(::tarvu_softmax_asym_process(&block), QX_OK);
  const std::vector<float> first(out.begin(), out.begin() + 6);
  EXPECT_EQ(first, softmax(values, {3, 2, 1, 1}, 2)) << "floats know no zero point";
  EXPECT_EQ(std::vector<float>(out.begin() + 6, out.end()), first);
}

TEST(SoftmaxAsym, IntegersInPlaceMatchTheReference) {
  Random random = test_random(336);
  SCOPED_TRACE(random.trace());
  for (int axis : {1, 2, 3, -1}) {
    Case<_NN_SOFTMAX_ASYM_PARM> in_place;
    _NN_SOFTMAX_ASYM_PARM &block = in_place.block;
    block = float_block<_NN_SOFTMAX_ASYM_PARM>({19, 7, 5, 2}, axis);
    block.in_fmt = format(8, 3, 0);
    block.out_fmt = format(8, 8, 0);
    block.in_zero_point = 120;
    block.out_zero_point = 3;
    block.in_batch_ofs = 19 * 7 * 5;
    block.out_batch_ofs = block.in_batch_ofs;
    const GuardedMemory tensor(2 * block.in_batch_ofs), scratch(8 * 19 * 7 * 5);
    random.fill(tensor.data(), tensor.size());
    in_place.attach(&_NN_SOFTMAX_ASYM_PARM::in_addr, tensor, "tensor", Element::k8Bit);
    block.out_addr = tensor.address();
    block.work_buffer = scratch.address();
    ASSERT_TRUE(in_place.same(::tarvu_softmax_asym_process, reference::tarvu_softmax_asym_process)) << "axis " << axis;
  }
}

TEST(SoftmaxAsym, AnAxisThatIsNotServedPrintsALineForEveryItemAndWritesNoOutputByte) {
  for (int axis : {0, 4, 127}) {
    std::vector<float> in = counted(8), out(24, -77.0f), scratch(16);
    _NN_SOFTMAX_ASYM_PARM block = float_block<_NN_SOFTMAX_ASYM_PARM>({4, 2, 1, 3}, axis);
    block.in_addr = reinterpret_cast<uintptr_t>(in.data());
    block.out_addr = reinterpret_cast<uintptr_t>(out.data());
    block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
    StdoutCapture capture;
    const _QX_RESULT result = ::tarvu_softmax_asym_process(&block);
    const std::string line = softmax_cases::axis_line("tarvu_softmax_asym_process_one_batch");
    EXPECT_EQ(capture.text(), line + line + line);
    EXPECT_EQ(result, QX_ERR_UNSUPPORTED);
    EXPECT_EQ(out, std::vector<float>(24, -77.0f));
  }
}

TEST(SoftmaxAsym, ABatchOf0TouchesNothing) {
  _NN_SOFTMAX_ASYM_PARM block = float_block<_NN_SOFTMAX_ASYM_PARM>({4, 2, 1, 0}, 0);
  block.in_addr = block.out_addr = block.work_buffer = unreadable_address();
  StdoutCapture capture;
  const _QX_RESULT result = ::tarvu_softmax_asym_process(&block);
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(result, QX_OK);
}

}  // namespace
