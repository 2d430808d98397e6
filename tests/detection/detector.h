/// \file detector.h
/// One batch item of a detector for the tests of the detection output.
#ifndef TARVU_TESTS_DETECTION_DETECTOR_H
#define TARVU_TESTS_DETECTION_DETECTOR_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/stdout_capture.h"

namespace detector {

using support::GuardedMemory;
using Box = std::array<float, 4>;
using Row = std::array<float, 5>;

inline constexpr float kUntouched = 777.0f;
inline constexpr Row kUntouchedRow = {kUntouched, kUntouched, kUntouched, kUntouched, kUntouched};
inline constexpr Row kCleared = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
inline constexpr Row kFiller = {-1.0f, -1.0f, -1.0f, -1.0f, -1.0f};

/// Boxes inside the image that touch no other of these, for i from 0 to 29.
inline Box apart(int i) {
  const float x = 0.03125f * static_cast<float>(i);
  return {x, 0.25f, x + 0.015625f, 0.5f};
}

inline Row row(const Box &box, float score) { return {box[0], box[1], box[2], box[3], score}; }

/// One batch item of a detector with corner coding and locations of 0.0, so that the priors are the decoded boxes.
struct Detector {
  _NN_DETOUT_PARM block{};
  std::vector<Box> priors;
  std::vector<float> confidences;  ///< a row of `num_classes` for each prior
  std::vector<float> locations;    ///< zeros where it is too short
  std::vector<float> scratch_start;
  std::string text;

  Detector() {
    block.batch = 1;
    block.loc_fmt = support::format(32, 0, 1);
    block.loc_scale = support::scale(1, 0);
    block.num_classes = 2;
    block.share_location = 1;
    block.background_label_id = 0;
    block.code_type = 1;
    block.keep_top_k = 10;
    block.confidence_threshold = 0.5f;
    block.nms_threshold = 0.5f;
  }

  void add(const Box &box, const std::vector<float> &scores) {
    priors.push_back(box);
    confidences.insert(confidences.end(), scores.begin(), scores.end());
  }

  size_t scratch_bytes() const {
    const size_t p = priors.size();
    const size_t sets = block.share_location == 1 ? 1 : static_cast<size_t>(block.num_classes);
    return (40 * sets + 4 * static_cast<size_t>(block.num_classes) + 88) * p + 24 * ((p + 3) / 4 * 4);
  }

  /// The output's rows after a call, all of it untouched before.
  std::vector<Row> run(size_t rows) {
    std::vector<Row> output(rows, kUntouchedRow);
    std::vector<float> prior_tensor;
    for (const Box &box : priors) prior_tensor.insert(prior_tensor.end(), box.begin(), box.end());
    prior_tensor.resize(8 * priors.size(), 1.0f);
    locations.resize(std::max(locations.size(), 4 * priors.size() * static_cast<size_t>(block.num_classes)));
    const GuardedMemory scratch(scratch_bytes(), {.alignment = 4});
    scratch.fill(0xA5);
    if (!scratch_start.empty()) std::memcpy(scratch.data(), scratch_start.data(), scratch.size());

    block.loc_addr = reinterpret_cast<uintptr_t>(locations.data());
    block.conf_addr = reinterpret_cast<uintptr_t>(confidences.data());
    block.prior_addr = reinterpret_cast<uintptr_t>(prior_tensor.data());
    block.out_addr = reinterpret_cast<uintptr_t>(output.data());
    block.work_buffer = scratch.address();
    block.num_priors = static_cast<int32_t>(priors.size());
    const _NN_DETOUT_PARM before = block;
    support::StdoutCapture capture;
    EXPECT_EQ(::tarvu_detout_process(&block), QX_OK);
    text = capture.text();
    EXPECT_EQ(std::memcmp(&before, &block, sizeof block), 0);
    EXPECT_EQ(scratch.guard_damage(), "");
    return output;
  }
};

/// Rows, then `fillers` rows of -1.0, then `cleared` rows of 0.0.
inline std::vector<Row> rows_of(std::vector<Row> rows, size_t fillers, size_t cleared = 0) {
  rows.insert(rows.end(), fillers, kFiller);
  rows.insert(rows.end(), cleared, kCleared);
  return rows;
}

}  // namespace detector

#endif  // TARVU_TESTS_DETECTION_DETECTOR_H
