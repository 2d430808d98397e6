// Detection output: decoding of the box locations.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/support/stdout_capture.h"

namespace {

using support::Differential;
using support::Element;
using support::GuardedMemory;
using support::Random;

struct One {
  std::vector<float> prior = {0.25f, 0.25f, 0.5f, 0.75f};
  std::vector<float> variances = {0.5f, 0.25f, 0.5f, 0.25f};
  std::vector<float> location = {1.0f, 2.0f, 3.0f, 4.0f};
  std::vector<float> decoded = {0.0f, 0.0f, 0.0f, 0.0f, 7.0f};
  int32_t variance_encoded_in_target = 0;
  int32_t clip_bbox = 0;
  std::string text;

  /// Decodes one box of one set; the records' fifth floats are there, but of `decoded` alone are they looked at.
  std::vector<float> decode(int32_t code_type) {
    prior.resize(5, 0.0f);
    location.resize(5, 0.0f);
    support::StdoutCapture capture;
    ::DecodeBBoxes(prior.data(), variances.data(), code_type, variance_encoded_in_target, clip_bbox, location.data(),
                   decoded.data(), 1, 1);
    text = capture.text();
    return decoded;
  }
};

TEST(DecodeBBoxes, CentreAndSizeWithoutMoveGivesThePriorTimesTheApproximateExponentialOfZero) {
  One one;
  one.prior = {0.0f, 0.25f, 1.0f, 0.75f};
  one.location = {0.0f, 0.0f, 0.0f, 0.0f};
  const double e = static_cast<double>(std::bit_cast<float>(0x3F77AB00u));
  EXPECT_EQ(one.decode(0),
            (std::vector<float>{static_cast<float>(0.5 - e * 0.5), static_cast<float>(0.5 - e * 0.25),
                                static_cast<float>(0.5 + e * 0.5), static_cast<float>(0.5 + e * 0.25), 7.0f}));
}

TEST(DecodeBBoxes, CentreAndSizeMovesTheCentreInSharesOfThePrior) {
  One one;
  one.location = {1.0f, 2.0f, -1000.0f, -1000.0f};  // exponentials of 0.0: no extent is left
  EXPECT_EQ(one.decode(0), (std::vector<float>{0.5f, 0.75f, 0.5f, 0.75f, 7.0f}));
}

TEST(DecodeBBoxes, AnExponentTooGreatForAFloatTurnsTheBoxRound) {
  One one;
  one.prior = {0.0f, 0.0f, 1.0f, 1.0f};
  one.variances = {1.0f, 1.0f, 1.0f, 1.0f};
  one.location = {0.0f, 0.0f, 200.0f, 210.0f};
  // (200 * log2(e) + 126.93) * 2^23 runs into the sign bit and makes a negative factor.
  const std::vector<float> box = one.decode(0);
  EXPECT_GT(box[0], box[2]);
  EXPECT_GT(box[1], box[3]);
}

TEST(DecodeBBoxes, HalfTheExtentIsADouble) {
  // The centre is at three least floats, half the extent is half of one: exact in double, then rounded to even.
  const float least = std::numeric_limits<float>::denorm_min();
  One one;
  one.prior = {least, least, 2.0f * least, 2.0f * least};
  one.variances = {1.0f, 1.0f, 1.0f, 1.0f};
  one.location = {1.0f, 1.0f, 0.0f, 0.0f};
  EXPECT_EQ(one.decode(0), (std::vector<float>{2.0f * least, 2.0f * least, 4.0f * least, 4.0f * least, 7.0f}));
}

TEST(DecodeBBoxes, CornersMoveByThemselves) {
  One one;
  EXPECT_EQ(one.decode(1), (std::vector<float>{0.75f, 0.75f, 2.0f, 1.75f, 7.0f}));
}

TEST(DecodeBBoxes, RelativeCornersMoveInSharesOfThePrior) {
  One one;
  EXPECT_EQ(one.decode(2), (std::vector<float>{0.375f, 0.5f, 0.875f, 1.25f, 7.0f}));
}

TEST(DecodeBBoxes, EncodedVariancesAreNoFactors) {
  One one;
  one.variance_encoded_in_target = -1;
  EXPECT_EQ(one.decode(1), (std::vector<float>{1.25f, 2.25f, 3.5f, 4.75f, 7.0f}));
  EXPECT_EQ(one.decode(2), (std::vector<float>{0.5f, 1.25f, 1.25f, 2.75f, 7.0f}));
  one.location = {1.0f, 2.0f, -1000.0f, -1000.0f};
  EXPECT_EQ(one.decode(0), (std::vector<float>{0.625f, 1.5f, 0.625f, 1.5f, 7.0f}));
}

TEST(DecodeBBoxes, ClippingTakesTheFourFloatsIntoTheImage) {
  One one;
  one.clip_bbox = 1;
  EXPECT_EQ(one.decode(1), (std::vector<float>{0.75f, 0.75f, 1.0f, 1.0f, 7.0f}));
  one.location = {-4.0f, -1.0f, 1.0f, 0.75f};
  EXPECT_EQ(one.decode(1), (std::vector<float>{0.0f, 0.0f, 1.0f, 0.9375f, 7.0f}));
}

TEST(DecodeBBoxes, OnlyAClipOfOneClips) {
  One one;
  one.clip_bbox = 2;
  EXPECT_EQ(one.decode(1), (std::vector<float>{0.75f, 0.75f, 2.0f, 1.75f, 7.0f}));
}

TEST(DecodeBBoxes, AnUnknownCodePrintsWithoutLineEndAndKeepsTheRecord) {
  for (const int32_t code_type : {-1, 3}) {
    One one;
    one.decoded = {-3.0f, 5.0f, 0.5f, 0.25f, 7.0f};
    EXPECT_EQ(one.decode(code_type), (std::vector<float>{-3.0f, 5.0f, 0.5f, 0.25f, 7.0f}));
    EXPECT_EQ(one.text, "Unknown code type.");
  }
}

TEST(DecodeBBoxes, AnUnknownCodeStillClipsWhatTheRecordHolds) {
  One one;
  one.clip_bbox = 1;
  one.decoded = {-3.0f, 5.0f, std::numeric_limits<float>::quiet_NaN(), -0.0f, 7.0f};
  EXPECT_EQ(one.decode(7), (std::vector<float>{0.0f, 1.0f, 0.0f, 0.0f, 7.0f}));
  EXPECT_EQ(std::bit_cast<uint32_t>(one.decoded[3]), 0u);
}

TEST(DecodeBBoxes, ClippingMakesZeroOfEverySignallingNan) {
  One one;
  one.clip_bbox = 1;
  for (const uint32_t nan : {0x7F800001u, 0xFF800001u, 0x7FBFFFFFu, 0xFFBFFFFFu}) {
    std::fill(one.decoded.begin(), one.decoded.begin() + 4, std::bit_cast<float>(nan));
    one.decode(7);
    for (size_t k = 0; k < 4; ++k) EXPECT_EQ(std::bit_cast<uint32_t>(one.decoded[k]), 0u) << std::hex << nan;
  }
}

TEST(DecodeBBoxes, AnUnknownCodePrintsOnceABoxAndSet) {
  float records[30] = {};
  support::StdoutCapture capture;
  ::DecodeBBoxes(records, records, 3, 0, 0, records, records, 3, 2);
  std::string expected;
  for (int i = 0; i < 6; ++i) expected += "Unknown code type.";
  EXPECT_EQ(capture.text(), expected);
}

TEST(DecodeBBoxes, PriorsAndVariancesStartAgainForEverySet) {
  const std::vector<float> priors = {1.0f, 2.0f, 3.0f, 4.0f, 0.0f, 10.0f, 20.0f, 30.0f, 40.0f, 0.0f};
  const std::vector<float> variances = {1.0f, 1.0f, 1.0f, 1.0f, 2.0f, 2.0f, 2.0f, 2.0f};
  const std::vector<float> locations(20, 0.5f);
  std::vector<float> decoded(20, 9.0f);
  ::DecodeBBoxes(priors.data(), variances.data(), 1, 0, 0, locations.data(), decoded.data(), 2, 2);
  const std::vector<float> expected = {1.5f, 2.5f, 3.5f, 4.5f, 9.0f, 11.0f, 21.0f, 31.0f, 41.0f, 9.0f,
                                       1.5f, 2.5f, 3.5f, 4.5f, 9.0f, 11.0f, 21.0f, 31.0f, 41.0f, 9.0f};
  EXPECT_EQ(decoded, expected);
}

TEST(DecodeBBoxes, WithoutPriorsOrSetsNothingIsTouched) {
  auto *nothing = reinterpret_cast<float *>(support::unreadable_address());
  support::StdoutCapture capture;
  for (const int32_t none : {0, -1}) {
    ::DecodeBBoxes(nothing, nothing, 0, 0, 1, nothing, nothing, none, 3);
    ::DecodeBBoxes(nothing, nothing, 3, 0, 1, nothing, nothing, 3, none);
  }
  EXPECT_EQ(capture.text(), "");
}

TEST(DecodeBBoxes, AgreesWithItsTwinOnRandomRecords) {
  Random random = support::test_random(411);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 1200; ++round) {
    SCOPED_TRACE(round);
    const bool nasty = random.one_in(3);
    const auto priors = static_cast<int32_t>(random.below(20));
    const auto sets = static_cast<int32_t>(random.below(4));
    const auto in_all = static_cast<size_t>(priors * sets);
    const int32_t code_type = random.one_in(8) ? random.between(-2, 5) : random.between(0, 2);
    const int32_t encoded = random.one_in(3) ? random.between(-1, 1) : 0;
    const int32_t clip = random.between(0, 2);
    const support::Placement placement{.alignment = 4};
    const GuardedMemory boxes(static_cast<size_t>(priors) * 20, placement);
    const GuardedMemory variances(static_cast<size_t>(priors) * 16, placement);
    const GuardedMemory locations(in_all * 20, placement);
    const GuardedMemory decoded(in_all * 20, placement);
    for (const GuardedMemory *memory : {&boxes, &variances, &locations, &decoded}) {
      if (nasty) {
        random.fill_any_floats(memory->data(), memory->size() / 4);
      } else {
        random.fill_floats(memory->data(), memory->size() / 4, -2.0f, 2.0f);
      }
    }
    Differential differential;
    differential.track(boxes, "priors", Element::kFloat);
    differential.track(variances, "variances", Element::kFloat);
    differential.track(locations, "locations", Element::kFloat);
    differential.track(decoded, "decoded", Element::kFloat);
    const auto call = [&](auto decode) {
      return [&, decode] {
        decode(boxes.as<float>(), variances.as<float>(), code_type, encoded, clip, locations.as<float>(),
               decoded.as<float>(), priors, sets);
      };
    };
    ASSERT_TRUE(differential.same(call(::DecodeBBoxes), call(reference::DecodeBBoxes)));
  }
}

}  // namespace
