// Prior boxes: the working record that tarvu_priorbox_process() makes of a block, seen through its output.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/stdout_capture.h"

namespace {

using support::GuardedMemory;

constexpr float kUntouched = 777.0f;

/// One cell of a 64 x 64 image with one box size of 16 and no ratio beside 1.0.
_NN_PRIORBOX_PARM one_cell() {
  _NN_PRIORBOX_PARM block{};
  block.in_addr = support::unreadable_address();
  block.work_buffer = support::unreadable_address();
  block.in_width = 1;
  block.in_height = 1;
  block.img_width = 64;
  block.img_height = 64;
  block.min_sizes[0] = 16.0f;
  block.min_size_num = 1;
  block.aspect_ratios[0] = 1.0f;
  block.aspect_ratios_num = 1;
  for (int i = 0; i < 4; ++i) block.variances[i] = 0.125f * static_cast<float>(i + 1);
  block.variance_num = 4;
  block.offset = 0.5f;
  return block;
}

struct Result {
  _QX_RESULT code = 0;
  std::string text;
  std::vector<float> boxes;
  std::vector<float> variances;
};

/// Runs with room for exactly as many floats in the two regions, the variances right behind the boxes.
Result run(_NN_PRIORBOX_PARM block, size_t box_floats, size_t variance_floats, float start = kUntouched) {
  const GuardedMemory output((box_floats + variance_floats) * sizeof(float));
  std::vector<float> content(box_floats + variance_floats, start);
  std::memcpy(output.data(), content.data(), output.size());
  block.out_addr = output.address();
  block.variance_ofs = static_cast<uint32_t>(box_floats * sizeof(float));

  Result result;
  support::StdoutCapture capture;
  result.code = ::tarvu_priorbox_process(&block);
  result.text = capture.text();
  EXPECT_EQ(output.guard_damage(), "");
  std::memcpy(content.data(), output.data(), output.size());
  const auto split = content.begin() + static_cast<std::ptrdiff_t>(box_floats);
  result.boxes.assign(content.begin(), split);
  result.variances.assign(split, content.end());
  return result;
}

/// The box of a size around the middle of the 64 x 64 image, unclamped.
void append_centred(std::vector<float> &boxes, float w, float h) {
  boxes.push_back((32.0f - w * 0.5f) / 64.0f);
  boxes.push_back((32.0f - h * 0.5f) / 64.0f);
  boxes.push_back((32.0f + w * 0.5f) / 64.0f);
  boxes.push_back((32.0f + h * 0.5f) / 64.0f);
}

std::vector<float> repeated(std::vector<float> pattern, size_t times) {
  std::vector<float> all;
  for (size_t i = 0; i < times; ++i) all.insert(all.end(), pattern.begin(), pattern.end());
  return all;
}

const std::vector<float> kVariances = {0.125f, 0.25f, 0.375f, 0.5f};

TEST(PriorBox, EachCellHasItsBoxAroundItsCentreInShareOfTheImage) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.in_width = 2;
  block.in_height = 2;
  block.img_width = 8;
  block.img_height = 4;
  block.min_sizes[0] = 2.0f;
  const Result result = run(block, 16, 16);
  EXPECT_EQ(result.code, QX_OK);
  EXPECT_EQ(result.text, "");
  const std::vector<float> expected = {0.125f, 0.0f, 0.375f, 0.5f, 0.625f, 0.0f, 0.875f, 0.5f,
                                       0.125f, 0.5f, 0.375f, 1.0f, 0.625f, 0.5f, 0.875f, 1.0f};
  EXPECT_EQ(result.boxes, expected);
  EXPECT_EQ(result.variances, repeated(kVariances, 4));
}

TEST(PriorBox, TheOffsetPlacesTheCentreInItsCell) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.offset = 0.25f;
  EXPECT_EQ(run(block, 4, 4).boxes, (std::vector<float>{0.125f, 0.125f, 0.375f, 0.375f}));
}

TEST(PriorBox, ARatioOfOneMakesNoBoxOfItsOwn) {
  const Result result = run(one_cell(), 4, 4);
  EXPECT_EQ(result.boxes, (std::vector<float>{0.375f, 0.375f, 0.625f, 0.625f}));
  EXPECT_EQ(result.variances, kVariances);
}

TEST(PriorBox, AFlippedRatioIsFollowedByItsReciprocal) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.aspect_ratios[0] = 4.0f;
  block.flip = 1;
  std::vector<float> expected;
  append_centred(expected, 16.0f, 16.0f);
  append_centred(expected, 32.0f, 8.0f);
  append_centred(expected, 8.0f, 32.0f);
  const Result result = run(block, 12, 12);
  EXPECT_EQ(result.boxes, expected);
  EXPECT_EQ(result.variances, repeated(kVariances, 3));
}

TEST(PriorBox, AnyFlipButZeroCounts) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.aspect_ratios[0] = 4.0f;
  block.flip = 0x80;
  EXPECT_EQ(run(block, 12, 12).variances, repeated(kVariances, 3));
}

TEST(PriorBox, ACellHoldsTheSizeThenTheSecondSizeThenTheRatios) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.max_sizes[0] = 64.0f;
  block.max_size_num = 1;
  block.aspect_ratios[0] = 2.0f;
  block.flip = 1;
  const float root_of_two = 1.41421354f;
  const float root_of_half = 0.707106769f;
  std::vector<float> expected;
  append_centred(expected, 16.0f, 16.0f);
  append_centred(expected, 32.0f, 32.0f);
  append_centred(expected, 16.0f * root_of_two, 16.0f / root_of_two);
  append_centred(expected, 16.0f * root_of_half, 16.0f / root_of_half);
  const Result result = run(block, 16, 16);
  EXPECT_EQ(result.boxes, expected);
  EXPECT_EQ(result.variances, repeated(kVariances, 4));
}

TEST(PriorBox, ASecondSizeThatIsNotGreaterMakesABoxThatIsNotCounted) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.min_sizes[0] = 32.0f;
  block.max_sizes[0] = 2.0f;
  block.max_size_num = 1;
  std::vector<float> expected;
  append_centred(expected, 32.0f, 32.0f);
  append_centred(expected, 8.0f, 8.0f);
  const Result result = run(block, 8, 4);
  EXPECT_EQ(result.boxes, expected);
  EXPECT_EQ(result.variances, kVariances);
}

TEST(PriorBox, ASecondSizeEqualToTheFirstIsNotCounted) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.max_sizes[0] = 16.0f;
  block.max_size_num = 1;
  EXPECT_EQ(run(block, 8, 4).variances, kVariances);
}

TEST(PriorBox, AMissingSecondSizeMakesABoxWithoutExtent) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.min_sizes[1] = 32.0f;
  block.min_size_num = 2;
  block.max_sizes[0] = 64.0f;
  block.max_sizes[1] = 128.0f;
  block.max_size_num = 1;
  std::vector<float> expected;
  append_centred(expected, 16.0f, 16.0f);
  append_centred(expected, 32.0f, 32.0f);
  append_centred(expected, 32.0f, 32.0f);
  append_centred(expected, 0.0f, 0.0f);
  EXPECT_EQ(run(block, 16, 8).boxes, expected);
}

TEST(PriorBox, WithTwoSizesClampAndVariancesCoverHalfOfTheBoxes) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.min_sizes[0] = 128.0f;
  block.min_sizes[1] = 256.0f;
  block.min_size_num = 2;
  block.clip = 1;
  const Result result = run(block, 8, 4);
  EXPECT_EQ(result.boxes, (std::vector<float>{0.0f, 0.0f, 1.0f, 1.0f, -1.5f, -1.5f, 2.5f, 2.5f}));
  EXPECT_EQ(result.variances, kVariances);
}

TEST(PriorBox, MoreSecondSizesThanSizesClampAndCoverFloatsBehindTheBoxes) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.max_sizes[0] = 64.0f;
  block.max_sizes[1] = 1.0f;
  block.max_sizes[2] = 1.0f;
  block.max_size_num = 3;
  block.clip = 1;
  // Counted: the ratio 1.0 and three second sizes; made: two boxes.
  const Result result = run(block, 16, 16);
  std::vector<float> expected;
  append_centred(expected, 16.0f, 16.0f);
  append_centred(expected, 32.0f, 32.0f);
  expected.resize(16, 1.0f);
  EXPECT_EQ(result.boxes, expected);
  EXPECT_EQ(result.variances, repeated(kVariances, 4));
}

TEST(PriorBox, TheClampKeepsASignallingNanBehindTheBoxesInABlockAndMakesItZeroInTheTail) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.max_sizes[0] = 64.0f;
  for (int i = 1; i < 4; ++i) block.max_sizes[i] = 1.0f;
  block.max_size_num = 4;
  block.clip = 1;
  for (const uint32_t nan : {0x7F800001u, 0xFF800001u, 0x7FBFFFFFu, 0xFFBFFFFFu}) {
    // Counted: five boxes; made: two, which leaves eight floats of the block and four of the tail as they are.
    const Result result = run(block, 20, 20, std::bit_cast<float>(nan));
    for (size_t i = 8; i < 16; ++i) EXPECT_TRUE(std::isnan(result.boxes[i])) << std::hex << nan;
    for (size_t i = 16; i < 20; ++i) EXPECT_EQ(std::bit_cast<uint32_t>(result.boxes[i]), 0u) << std::hex << nan;
  }
}

TEST(PriorBox, SecondSizesAreCountedAgainstTheBlocksSizesAlsoBehindThoseInUse) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.min_sizes[1] = 5.0f;
  block.max_sizes[0] = 64.0f;
  block.max_sizes[1] = 4.0f;
  block.max_size_num = 2;
  EXPECT_EQ(run(block, 8, 8).variances, repeated(kVariances, 2));
}

TEST(PriorBox, WithoutClipNothingIsClamped) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.min_sizes[0] = 128.0f;
  EXPECT_EQ(run(block, 4, 4).boxes, (std::vector<float>{-0.5f, -0.5f, 1.5f, 1.5f}));
}

TEST(PriorBox, AnyClipButZeroClamps) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.min_sizes[0] = 128.0f;
  block.clip = 0x40;
  EXPECT_EQ(run(block, 4, 4).boxes, (std::vector<float>{0.0f, 0.0f, 1.0f, 1.0f}));
}

// ---- Ratio list: its length is seen in the length of the variance region.

size_t counted(std::vector<float> ratios, bool flip) {
  _NN_PRIORBOX_PARM block = one_cell();
  std::memcpy(block.aspect_ratios, ratios.data(), ratios.size() * sizeof(float));
  block.aspect_ratios_num = static_cast<uint32_t>(ratios.size());
  block.flip = flip ? 1 : 0;
  const Result result = run(block, 64, 64);
  size_t floats = 0;
  while (floats < 64 && result.variances[floats] != kUntouched) ++floats;
  return floats / 4;
}

TEST(PriorBox, AReciprocalAlreadyInTheListIsADuplicate) { EXPECT_EQ(counted({2.0f, 0.5f}, true), 3u); }
TEST(PriorBox, WithoutFlipAReciprocalIsARatioOfItsOwn) { EXPECT_EQ(counted({2.0f, 0.5f}, false), 3u); }
TEST(PriorBox, ARepeatedRatioIsSkippedWithItsReciprocal) { EXPECT_EQ(counted({2.0f, 2.0f, 3.0f}, true), 5u); }
TEST(PriorBox, ARatioOfZeroIsSkipped) { EXPECT_EQ(counted({0.0f, -0.0f, 2.0f}, true), 3u); }
TEST(PriorBox, FourFlippedRatiosMakeNineEntries) { EXPECT_EQ(counted({2.0f, 3.0f, 4.0f, 5.0f}, true), 9u); }

TEST(PriorBox, ARatioIsADuplicateStrictlyWithinAMillionth) {
  EXPECT_EQ(counted({0x1.000010p0f}, false), 1u);   // eight steps above 1.0: 9.54e-7
  EXPECT_EQ(counted({0x1.000012p0f}, false), 2u);   // nine steps above 1.0: 1.07e-6
  EXPECT_EQ(counted({0x1.ffffe0p-1f}, false), 1u);  // 9.54e-7 below
  EXPECT_EQ(counted({0x1.ffffdep-1f}, false), 2u);  // 1.01e-6 below
}

TEST(PriorBox, TheDistanceOfTwoRatiosIsAFloat) {
  // Their distance is just above a millionth, and the float next to it is just below.
  const float small = 0x1.ep-44f;
  EXPECT_EQ(counted({small, std::nextafter(1e-6f, 1.0f)}, false), 2u);
}

TEST(PriorBox, AReciprocalIsAppendedWithoutADuplicateTestOfItsOwn) {
  // 1 / 1000 and 1 / 1000.5 are less than a millionth apart.
  EXPECT_EQ(counted({1000.0f, 1000.5f}, true), 5u);
}

// ---- Variances

std::vector<float> pattern_of(uint32_t variance_num, std::vector<float> values) {
  _NN_PRIORBOX_PARM block = one_cell();
  std::memcpy(block.variances, values.data(), 4 * sizeof(float));
  block.variance_num = variance_num;
  block.aspect_ratios[0] = 2.0f;
  const Result result = run(block, 8, 8);
  const std::vector<float> pattern(result.variances.begin(), result.variances.begin() + 4);
  EXPECT_EQ(result.variances, repeated(pattern, 2));
  return pattern;
}

TEST(PriorBox, OneVarianceIsNotRepeatedWithinARecord) {
  EXPECT_EQ(pattern_of(1, {0.5f, 0.6f, 0.7f, 0.8f}), (std::vector<float>{0.5f, 0.0f, 0.0f, 0.0f}));
}
TEST(PriorBox, TwoVariancesGiveZeros) {
  EXPECT_EQ(pattern_of(2, {0.5f, 0.6f, 0.7f, 0.8f}), std::vector<float>(4, 0.0f));
}
TEST(PriorBox, ThreeVariancesGiveZeros) {
  EXPECT_EQ(pattern_of(3, {0.5f, 0.6f, 0.7f, 0.8f}), std::vector<float>(4, 0.0f));
}
TEST(PriorBox, FourVariancesAreCopied) {
  EXPECT_EQ(pattern_of(4, {0.5f, 0.6f, 0.7f, 0.8f}), (std::vector<float>{0.5f, 0.6f, 0.7f, 0.8f}));
}
TEST(PriorBox, MoreThanFourVariancesCountAsFour) {
  EXPECT_EQ(pattern_of(0xFFFFFFFFu, {0.5f, 0.6f, 0.7f, 0.8f}), (std::vector<float>{0.5f, 0.6f, 0.7f, 0.8f}));
}
TEST(PriorBox, AVarianceThatIsNotGreaterThanZeroStaysZero) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<float> pattern = pattern_of(4, {-0.5f, -0.0f, nan, 0.8f});
  EXPECT_EQ(pattern, (std::vector<float>{0.0f, 0.0f, 0.0f, 0.8f}));
  EXPECT_FALSE(std::signbit(pattern[1]));
  EXPECT_EQ(pattern_of(1, {-0.5f, 0.6f, 0.7f, 0.8f}), std::vector<float>(4, 0.0f));
}
TEST(PriorBox, AVarianceThatIsASignallingNanStaysZero) {
  _NN_PRIORBOX_PARM block = one_cell();
  for (const uint32_t nan : {0x7F800001u, 0xFF800001u, 0x7FBFFFFFu, 0xFFBFFFFFu}) {
    for (float &variance : block.variances) std::memcpy(&variance, &nan, sizeof nan);
    for (const uint32_t variance_num : {1u, 4u}) {
      block.variance_num = variance_num;
      EXPECT_EQ(run(block, 4, 4).variances, std::vector<float>(4, 0.0f)) << std::hex << nan;
    }
  }
}

TEST(PriorBox, TheVariancesAreWrittenLast) {
  _NN_PRIORBOX_PARM block = one_cell();
  const GuardedMemory output(16);
  output.fill(0);
  block.out_addr = output.address();
  block.variance_ofs = 0;
  ASSERT_EQ(::tarvu_priorbox_process(&block), QX_OK);
  EXPECT_EQ(std::memcmp(output.data(), kVariances.data(), 16), 0);
}

// ---- Parameter check

TEST(PriorBox, AZeroExtentPrintsItsLineAndWritesNothing) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.img_width = 300;
  block.img_height = 200;
  block.in_width = 38;
  block.in_height = 0;
  block.max_size_num = 2;
  block.min_size_num = 3;
  block.aspect_ratios_num = 4;
  block.variance_num = 1;
  const Result result = run(block, 8, 8);
  EXPECT_EQ(result.code, QX_ERR_PARAM);
  EXPECT_EQ(result.text,
            "\033[1;31mERR:tarvu_priorbox_checkparm() shape should be positive, but input is "
            "300x200x38x0(img_width x img_height x in_width x in_height),"
            "2x3x1x4(max_size_num x min_size_num x variance_num x aspect_ratios_num)\r\n\033[0m");
  EXPECT_EQ(result.boxes, std::vector<float>(8, kUntouched));
  EXPECT_EQ(result.variances, std::vector<float>(8, kUntouched));
}

TEST(PriorBox, EachFieldThatMustNotBeZeroIsChecked) {
  uint32_t _NN_PRIORBOX_PARM::*const fields[] = {
      &_NN_PRIORBOX_PARM::in_width,     &_NN_PRIORBOX_PARM::in_height,    &_NN_PRIORBOX_PARM::img_width,
      &_NN_PRIORBOX_PARM::img_height,   &_NN_PRIORBOX_PARM::min_size_num, &_NN_PRIORBOX_PARM::aspect_ratios_num,
      &_NN_PRIORBOX_PARM::variance_num,
  };
  for (size_t i = 0; i < std::size(fields); ++i) {
    SCOPED_TRACE(i);
    _NN_PRIORBOX_PARM block = one_cell();
    block.*fields[i] = 0;
    const Result result = run(block, 4, 4);
    EXPECT_EQ(result.code, QX_ERR_PARAM);
    EXPECT_TRUE(result.text.starts_with("\033[1;31mERR:tarvu_priorbox_checkparm() shape should be positive"));
    EXPECT_EQ(result.boxes, std::vector<float>(4, kUntouched));
    EXPECT_EQ(result.variances, std::vector<float>(4, kUntouched));
  }
}

TEST(PriorBox, ValuesPastTheSignedRangeArePrintedAsSigned) {
  _NN_PRIORBOX_PARM block = one_cell();
  block.img_width = 0;
  block.variance_num = 0xFFFFFFFFu;
  EXPECT_EQ(run(block, 4, 4).text,
            "\033[1;31mERR:tarvu_priorbox_checkparm() shape should be positive, but input is "
            "0x64x1x1(img_width x img_height x in_width x in_height),"
            "0x1x-1x1(max_size_num x min_size_num x variance_num x aspect_ratios_num)\r\n\033[0m");
}

}  // namespace
