// Detection output: from scores and decoded boxes to records.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "tarvu.h"
#include "tests/detection/detector.h"
#include "tests/support/guarded_memory.h"

namespace {

using namespace detector;

TEST(DetectionOutput, ASurvivorIsWrittenWithItsScoreAndTheClassFilledUp) {
  Detector detector;
  detector.add(apart(0), {0.0f, 0.75f});
  EXPECT_EQ(detector.run(20), rows_of({row(apart(0), 0.75f)}, 4, 15));
  EXPECT_EQ(detector.text, "");
}

TEST(DetectionOutput, AScoreAtTheThresholdIsACandidate) {
  Detector detector;
  detector.add(apart(0), {0.0f, 0.5f});
  detector.add(apart(1), {0.0f, std::nextafter(0.5f, 0.0f)});
  EXPECT_EQ(detector.run(20), rows_of({row(apart(0), 0.5f)}, 4, 15));
}

TEST(DetectionOutput, ANanScoreIsNoCandidate) {
  Detector detector;
  detector.add(apart(0), {0.0f, std::numeric_limits<float>::quiet_NaN()});
  EXPECT_EQ(detector.run(20), rows_of({}, 5, 15));
}

TEST(DetectionOutput, AClassWithoutCandidateHasFiveFillers) {
  Detector detector;
  detector.block.num_classes = 3;
  detector.add(apart(0), {0.0f, 0.25f, 0.75f});
  EXPECT_EQ(detector.run(30), rows_of({kFiller, kFiller, kFiller, kFiller, kFiller, row(apart(0), 0.75f)}, 4, 20));
}

std::vector<Row> with_survivors(int count, int32_t keep_top_k, size_t rows) {
  Detector detector;
  detector.block.keep_top_k = keep_top_k;
  for (int i = 0; i < count; ++i) detector.add(apart(i), {0.0f, 0.5f + 0.015625f * static_cast<float>(i)});
  return detector.run(rows);
}

/// What with_survivors() keeps, best first.
std::vector<Row> best(int kept, int count) {
  std::vector<Row> rows;
  for (int i = count - 1; i >= count - kept; --i)
    rows.push_back(row(apart(i), 0.5f + 0.015625f * static_cast<float>(i)));
  return rows;
}

TEST(DetectionOutput, TwoSurvivorsHaveThreeFillers) {
  EXPECT_EQ(with_survivors(2, 10, 20), rows_of(best(2, 2), 3, 15));
}
TEST(DetectionOutput, FourSurvivorsHaveOneFiller) { EXPECT_EQ(with_survivors(4, 10, 20), rows_of(best(4, 4), 1, 15)); }
TEST(DetectionOutput, FiveSurvivorsHaveNoFiller) { EXPECT_EQ(with_survivors(5, 10, 20), rows_of(best(5, 5), 0, 15)); }
TEST(DetectionOutput, SevenSurvivorsMakeALongerClass) {
  EXPECT_EQ(with_survivors(7, 10, 20), rows_of(best(7, 7), 0, 13));
}
TEST(DetectionOutput, NoMoreRecordsThanToKeepAreWritten) {
  EXPECT_EQ(with_survivors(9, 6, 12), rows_of(best(6, 9), 0, 6));
  EXPECT_EQ(with_survivors(9, 3, 6), rows_of(best(3, 9), 2, 1));
}
TEST(DetectionOutput, NeverMoreThanTwentyRecordsAreWritten) {
  EXPECT_EQ(with_survivors(25, 30, 60), rows_of(best(20, 25), 0, 40));
}
TEST(DetectionOutput, KeepingNoneWritesFillersAndClearsNothing) {
  std::vector<Row> expected = rows_of({}, 5);
  expected.push_back(kUntouchedRow);
  EXPECT_EQ(with_survivors(3, 0, 6), expected);
}

TEST(DetectionOutput, ASuppressedBoxIsNotWritten) {
  Detector detector;
  detector.add(apart(0), {0.0f, 0.6f});
  detector.add(apart(0), {0.0f, 0.9f});
  EXPECT_EQ(detector.run(20), rows_of({row(apart(0), 0.9f)}, 4, 15));
}

TEST(DetectionOutput, ASuppressedScoreOfOneIsWrittenAllTheSame) {
  Detector detector;
  detector.add(apart(0), {0.0f, 1.0f});
  detector.add(apart(0), {0.0f, 1.0f});
  EXPECT_EQ(detector.run(20), rows_of({row(apart(0), 1.0f), row(apart(0), 1.0f)}, 3, 15));
}

TEST(DetectionOutput, ABoxOutsideTheImageIsDroppedAndOneThatReachesInIsNot) {
  const float in = std::nextafter(1.0f, 0.0f);
  const float least = std::numeric_limits<float>::denorm_min();
  struct Place {
    Box box;
    bool kept;
  };
  const Place places[] = {
      {{1.0f, 0.5f, 2.0f, 0.75f}, false},  {{in, 0.5f, 2.0f, 0.75f}, true},     {{0.5f, 1.0f, 0.75f, 2.0f}, false},
      {{0.5f, in, 0.75f, 2.0f}, true},     {{-1.0f, 0.5f, 0.0f, 0.75f}, false}, {{-1.0f, 0.5f, least, 0.75f}, true},
      {{0.5f, -1.0f, 0.75f, 0.0f}, false}, {{0.5f, -1.0f, 0.75f, least}, true}, {{-1.0f, 0.5f, -0.0f, 0.75f}, false},
  };
  for (const Place &place : places) {
    Detector detector;
    detector.add(place.box, {0.0f, 0.75f});
    const std::vector<Row> expected = place.kept ? rows_of({row(place.box, 0.75f)}, 4, 15) : rows_of({}, 5, 15);
    EXPECT_EQ(detector.run(20), expected)
        << place.box[0] << " " << place.box[1] << " " << place.box[2] << " " << place.box[3];
  }
}

TEST(DetectionOutput, ADroppedBoxTakesItsPlaceAmongThoseToKeep) {
  Detector detector;
  detector.block.keep_top_k = 2;
  detector.add({1.5f, 0.0f, 2.0f, 1.0f}, {0.0f, 0.9f});
  detector.add(apart(0), {0.0f, 0.8f});
  detector.add(apart(1), {0.0f, 0.7f});
  std::vector<Row> expected = rows_of({row(apart(0), 0.8f)}, 4);
  EXPECT_EQ(detector.run(5), expected);
}

TEST(DetectionOutput, TheBackgroundTakesNoRoomWhereverItStands) {
  for (const int32_t background : {0, 1, 2, -1, 3}) {
    SCOPED_TRACE(background);
    Detector detector;
    detector.block.num_classes = 3;
    detector.block.background_label_id = background;
    detector.block.keep_top_k = 5;
    detector.add(apart(0), {0.6f, 0.7f, 0.8f});
    std::vector<Row> expected;
    for (int32_t c = 0; c < 3; ++c) {
      if (c == background) continue;
      expected.push_back(row(apart(0), 0.6f + 0.1f * static_cast<float>(c)));
      expected.insert(expected.end(), 4, kFiller);
    }
    expected[0][4] = background == 0 ? 0.7f : 0.6f;
    expected[5][4] = background == 2 || background == -1 || background == 3 ? 0.7f : 0.8f;
    if (expected.size() == 15) expected[10][4] = 0.8f;
    expected.resize(15, kCleared);
    EXPECT_EQ(detector.run(15), expected);
  }
}

TEST(DetectionOutput, ASingleClassThatIsTheBackgroundHasNoRecords) {
  Detector detector;
  detector.block.num_classes = 1;
  detector.block.keep_top_k = 2;
  detector.add(apart(0), {0.9f});
  EXPECT_EQ(detector.run(3), (std::vector<Row>{kCleared, kCleared, kUntouchedRow}));
}

TEST(DetectionOutput, WithoutPriorsEveryClassHasFiveFillersAndNothingIsRead) {
  for (const int32_t none : {0, -1}) {
    std::vector<Row> output(11, kUntouchedRow);
    Detector detector;
    detector.block.num_classes = 3;
    detector.block.keep_top_k = 1;
    detector.block.num_priors = none;
    detector.block.loc_addr = support::unreadable_address();
    detector.block.conf_addr = support::unreadable_address();
    detector.block.prior_addr = support::unreadable_address();
    detector.block.work_buffer = support::unreadable_address();
    detector.block.out_addr = reinterpret_cast<uintptr_t>(output.data());
    EXPECT_EQ(::tarvu_detout_process(&detector.block), QX_OK);
    std::vector<Row> expected(10, kFiller);
    expected.push_back(kUntouchedRow);
    EXPECT_EQ(output, expected);
  }
}

TEST(DetectionOutput, ABatchOfZeroTouchesNothing) {
  Detector detector;
  detector.block.batch = 0;
  detector.add(apart(0), {0.0f, 0.75f});
  EXPECT_EQ(detector.run(20), std::vector<Row>(20, kUntouchedRow));
}

TEST(DetectionOutput, EveryBatchItemClearsTheStartOfTheWholeOutput) {
  Detector detector;
  detector.block.batch = 2;
  detector.block.keep_top_k = 2;  // clears four rows
  detector.block.out_batch_ofs = 6 * sizeof(Row);
  detector.add(apart(0), {0.0f, 0.75f});
  std::vector<Row> expected(4, kCleared);
  expected.push_back(kFiller);
  expected.push_back(kUntouchedRow);
  expected.push_back(row(apart(0), 0.75f));
  expected.insert(expected.end(), 4, kFiller);
  expected.push_back(kUntouchedRow);
  EXPECT_EQ(detector.run(12), expected);
}

}  // namespace
