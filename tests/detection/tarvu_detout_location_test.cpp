// Detection output: formats and sets of locations, and an unknown box coding.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/detection/detector.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/stdout_capture.h"

namespace {

using namespace detector;

TEST(DetectionOutput, EightBitLocationsAreConvertedWithFractionAndScale) {
  Detector detector;
  detector.block.loc_fmt = support::format(8, 4, 1);
  detector.block.loc_scale = support::scale(3, 1);
  detector.add({0.25f, 0.25f, 0.5f, 0.5f}, {0.0f, 0.75f});
  const int8_t bytes[4] = {2, -2, 1, 4};  // sixteenths, times 1.5
  detector.locations.resize(1);
  std::memcpy(detector.locations.data(), bytes, sizeof bytes);
  EXPECT_EQ(detector.run(20), rows_of({{0.4375f, 0.0625f, 0.59375f, 0.875f, 0.75f}}, 4, 15));
}

TEST(DetectionOutput, ANegativeScaleShiftMultiplies) {
  Detector detector;
  detector.block.loc_fmt = support::format(8, 4, 1);
  detector.block.loc_scale = support::scale(1, -1);
  detector.add({0.25f, 0.25f, 0.5f, 0.5f}, {0.0f, 0.75f});
  const int8_t bytes[4] = {1, -1, 2, 3};
  detector.locations.resize(1);
  std::memcpy(detector.locations.data(), bytes, sizeof bytes);
  EXPECT_EQ(detector.run(20), rows_of({{0.375f, 0.125f, 0.75f, 0.875f, 0.75f}}, 4, 15));
}

TEST(DetectionOutput, TheScaleIsAWordShiftedByTheCountModulo32) {
  struct Shift {
    int32_t value;
    int shift;
    float scale;
  };
  const Shift shifts[] = {{1, 32, 1.0f},  {2, 33, 1.0f},           {1, -32, 1.0f},          {1, -128, 1.0f},
                          {1, -33, 2.0f}, {0x40000000, 31, -0.5f}, {0x40000000, 127, -0.5f}};
  for (const Shift &shift : shifts) {
    Detector detector;
    detector.block.loc_fmt = support::format(8, 4, 1);
    detector.block.loc_scale = support::scale(shift.value, shift.shift);
    detector.add({0.25f, 0.25f, 0.5f, 0.5f}, {0.0f, 0.75f});
    const int8_t bytes[4] = {1, -1, 0, 0};
    detector.locations.resize(1);
    std::memcpy(detector.locations.data(), bytes, sizeof bytes);
    const float move = 0.0625f * shift.scale;
    EXPECT_EQ(detector.run(20), rows_of({{0.25f + move, 0.25f - move, 0.5f, 0.5f, 0.75f}}, 4, 15)) << shift.shift;
  }
}

TEST(DetectionOutput, UnsignedEightBitLocationsAreReadAsSigned) {
  for (const _NN_FMT format : {support::format(8, 7, 0), support::format(8, 7, 2)}) {
    Detector detector;
    detector.block.loc_fmt = format;
    detector.add({0.5f, 0.5f, 0.75f, 0.75f}, {0.0f, 0.75f});
    const uint8_t bytes[4] = {0xE0, 0xF0, 0, 0};  // -0.25, -0.125
    detector.locations.resize(1);
    std::memcpy(detector.locations.data(), bytes, sizeof bytes);
    EXPECT_EQ(detector.run(20), rows_of({{0.25f, 0.375f, 0.75f, 0.75f, 0.75f}}, 4, 15));
  }
}

TEST(DetectionOutput, TheWidthOfTheLocationsIsSummedModulo256) {
  Detector detector;
  detector.block.loc_fmt = {10, 127, 127, 0};
  detector.add({0.5f, 0.5f, 0.75f, 0.75f}, {0.0f, 0.75f});
  const int8_t bytes[4] = {-128, 64, 0, 0};
  detector.locations.resize(1);
  std::memcpy(detector.locations.data(), bytes, sizeof bytes);
  EXPECT_EQ(detector.run(20), rows_of({{0.375f, 0.5625f, 0.75f, 0.75f, 0.75f}}, 4, 15));
}

TEST(DetectionOutput, LocationsOfAnyOtherWidthAreFloatsWithoutScale) {
  for (const int width : {16, 32, 24, -8}) {
    Detector detector;
    detector.block.loc_fmt = support::format(width, 4, 1);
    detector.block.loc_scale = support::scale(100, 0);
    detector.add({0.25f, 0.25f, 0.5f, 0.5f}, {0.0f, 0.75f});
    detector.locations = {0.125f, -0.125f, 0.25f, 0.375f};
    EXPECT_EQ(detector.run(20), rows_of({{0.375f, 0.125f, 0.75f, 0.875f, 0.75f}}, 4, 15)) << width;
  }
}

TEST(DetectionOutput, WithASetForEachClassSetZeroServesAllAndPriorsAreReadAtTheWideStep) {
  Detector detector;
  detector.block.share_location = 0;
  detector.block.num_classes = 2;
  detector.block.background_label_id = -1;
  detector.block.keep_top_k = 5;
  // Two sets: prior 0 reads box 0, prior 1 box 2, prior 2 the first variance record, prior 3 the third.
  for (int i = 0; i < 4; ++i) detector.add(apart(i), {0.5f + 0.0625f * static_cast<float>(i), 0.0f});
  detector.block.nms_threshold = 2.0f;
  detector.confidences[1] = 0.75f;  // prior 0, class 1
  detector.locations.resize(32, 0.0f);
  detector.locations[8] = 0.0078125f;  // prior 1, set 0, xmin
  detector.locations[12] = 100.0f;     // prior 1, set 1: no one looks at it
  detector.locations[16] = -0.5f;      // prior 2, set 0: the box starts as 1.0, 1.0, 1.0, 1.0
  detector.locations[17] = -0.5f;
  Box moved = apart(2);
  moved[0] += 0.0078125f;
  // Prior 3 is the box 1.0, 1.0, 1.0, 1.0, outside the image.
  std::vector<Row> expected =
      rows_of({row({0.5f, 0.5f, 1.0f, 1.0f}, 0.625f), row(moved, 0.5625f), row(apart(0), 0.5f)}, 2);
  expected.push_back(row(apart(0), 0.75f));
  expected.insert(expected.end(), 4, kFiller);
  EXPECT_EQ(detector.run(10), expected);
}

TEST(DetectionOutput, AnyShareLocationButOneMeansASetForEachClass) {
  Detector detector;
  detector.block.share_location = 2;
  detector.block.num_classes = 3;
  detector.block.keep_top_k = 1;
  detector.add(apart(0), {0.0f, 0.75f, 0.0f});
  detector.add(apart(1), {0.0f, 0.0f, 0.75f});  // reads the box at three times 16 bytes: the second variance record
  detector.locations.resize(24, 0.0f);
  detector.locations[12] = -0.5f;
  detector.locations[13] = -0.5f;
  std::vector<Row> expected = rows_of({row(apart(0), 0.75f)}, 4);
  expected.push_back({0.5f, 0.5f, 1.0f, 1.0f, 0.75f});
  expected.insert(expected.end(), 4, kFiller);
  EXPECT_EQ(detector.run(10), expected);
}

// ---- Unknown code

TEST(DetectionOutput, AnUnknownCodePrintsOnceABoxAndSetAndUsesWhatScratchHolds) {
  Detector detector;
  detector.block.code_type = 3;
  detector.add(apart(0), {0.0f, 0.9f});
  detector.add(apart(1), {0.0f, 0.8f});
  // Two location records and two prior records of five floats stand before the decoded boxes.
  detector.scratch_start.assign(detector.scratch_bytes() / 4, 0.0f);
  const Box stale[2] = {{0.125f, 0.125f, 0.25f, 0.25f}, {0.5f, 0.5f, 0.75f, 0.75f}};
  for (size_t i = 0; i < 2; ++i)
    std::copy(stale[i].begin(), stale[i].end(), detector.scratch_start.begin() + 20 + 5 * static_cast<int>(i));
  EXPECT_EQ(detector.run(20), rows_of({row(stale[0], 0.9f), row(stale[1], 0.8f)}, 3, 15));
  EXPECT_EQ(detector.text, "Unknown code type.Unknown code type.");
}

TEST(DetectionOutput, AnUnknownCodePrintsForEverySetOfEveryBatchItem) {
  Detector detector;
  detector.block.code_type = -1;
  detector.block.batch = 2;
  detector.block.share_location = 0;
  detector.block.num_classes = 3;
  detector.block.confidence_threshold = 2.0f;
  detector.add(apart(0), {0.0f, 0.0f, 0.0f});
  detector.add(apart(1), {0.0f, 0.0f, 0.0f});
  detector.run(30);
  std::string expected;
  for (int i = 0; i < 2 * 3 * 2; ++i) expected += "Unknown code type.";
  EXPECT_EQ(detector.text, expected);
}

TEST(DetectionOutput, AfterACallTheDecodedBoxesStayForAnUnknownCodeOnTheSameScratch) {
  const std::vector<float> locations = {0.125f, 0.125f, 0.25f, 0.25f};
  const std::vector<float> priors = {0.25f, 0.25f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f};
  const std::vector<float> confidences = {0.75f};
  std::vector<Row> output(5, kUntouchedRow);
  std::vector<float> scratch(1024, 0.0f);
  Detector detector;
  detector.block.num_classes = 1;
  detector.block.background_label_id = -1;
  detector.block.num_priors = 1;
  detector.block.keep_top_k = 5;
  detector.block.loc_addr = reinterpret_cast<uintptr_t>(locations.data());
  detector.block.prior_addr = reinterpret_cast<uintptr_t>(priors.data());
  detector.block.conf_addr = reinterpret_cast<uintptr_t>(confidences.data());
  detector.block.out_addr = reinterpret_cast<uintptr_t>(output.data());
  detector.block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  const std::vector<Row> expected = rows_of({{0.3125f, 0.3125f, 0.625f, 0.625f, 0.75f}}, 4);
  ASSERT_EQ(::tarvu_detout_process(&detector.block), QX_OK);
  EXPECT_EQ(output, expected);
  output.assign(5, kUntouchedRow);
  detector.block.code_type = 3;
  support::StdoutCapture capture;
  ASSERT_EQ(::tarvu_detout_process(&detector.block), QX_OK);
  EXPECT_EQ(capture.text(), "Unknown code type.");
  EXPECT_EQ(output, expected);
}

}  // namespace
