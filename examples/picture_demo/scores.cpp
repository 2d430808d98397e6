/// \file scores.cpp
/// A classifier's tail on a list of scores: softmax in floats and by table, and the largest classes.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "demo.h"

namespace demo {

namespace {

constexpr _NN_FMT kScore = {4, 3, 1, 0};
constexpr _NN_FMT kTableScore = {6, 9, 1, 0};  // the fraction bits that the table is made for
constexpr _NN_FMT kNumerator = {14, 1, 1, 0};  // 16384 is 1.0
constexpr uint16_t kLargest = 5;

/// One signed byte a line.
Tensor load_scores(const std::string &path) {
  constexpr size_t kMost = 4096;
  std::ifstream file(path);
  std::vector<uint8_t> scores;
  for (int score = 0; file >> score; scores.push_back(static_cast<uint8_t>(score))) {
    if (score < INT8_MIN || score > INT8_MAX || scores.size() == kMost) {
      throw std::runtime_error("cannot use " + path + ": at most 4096 scores of -128 to 127, please");
    }
  }
  if (!file.eof() || scores.size() < kLargest) {
    throw std::runtime_error("cannot read " + path + ": it holds no list of at least 5 integers");
  }
  Tensor list({static_cast<uint16_t>(scores.size()), 1, 1, 1}, kScore);
  list.bytes = scores;
  return list;
}

double value_of(const Tensor &scores, size_t i) { return std::ldexp(static_cast<int8_t>(scores.bytes[i]), -4); }

std::vector<double> exact_softmax(const Tensor &scores) {
  std::vector<double> exact(scores.shape.width);
  double sum = 0;
  for (size_t i = 0; i < exact.size(); ++i) sum += exact[i] = std::exp(value_of(scores, i));
  for (double &value : exact) value /= sum;
  return exact;
}

void report_difference(Demo &demo, const char *form, const std::vector<double> &values,
                       const std::vector<double> &exact) {
  double largest = 0;
  for (size_t i = 0; i < exact.size(); ++i) largest = std::max(largest, std::fabs(values[i] - exact[i]));
  char line[128];
  std::snprintf(line, sizeof line, "%s is at most %.3g away from exact softmax, over %zu classes", form, largest,
                exact.size());
  demo.report(line);
}

/// In floats.
std::vector<double> softmax(Demo &demo, const Tensor &scores) {
  Tensor const out(scores.shape, kFloats);
  std::vector<float> scratch(size_t{2} * scores.shape.width);
  auto block = block_of<_NN_SOFTMAX_PARM>(scores, out);
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  block.in_scale.scale_value = block.out_scale.scale_value = 1;
  block.axis = 3;
  demo.run("softmax: scores", tarvu_softmax_process, block, scores, out);

  std::vector<float> values(scores.shape.width);
  std::memcpy(values.data(), out.bytes.data(), out.bytes.size());
  return {values.begin(), values.end()};
}

/// By table, which gives numerators: the sum is left to the reader.
std::vector<double> softmax_by_table(Demo &demo, const Tensor &scores) {
  Tensor const in = permute(demo, "scores to 16 bits", scores, kKeep, kTableScore);
  Tensor const out(in.shape, kNumerator);
  auto block = block_of<_NN_SOFTMAX_PARM>(in, out);
  block.channel = in.shape.width;  // the elements of an item
  block.width = 1;
  demo.run("softmax by table: scores", vendor_softmax_process, block, in, out);

  std::vector<int16_t> numerators(in.shape.width);
  std::memcpy(numerators.data(), out.bytes.data(), out.bytes.size());
  double sum = 0;
  for (int16_t const numerator : numerators) sum += numerator;
  std::vector<double> values(numerators.begin(), numerators.end());
  for (double &value : values) value /= sum;
  return values;
}

std::vector<uint16_t> largest_classes(Demo &demo, const Tensor &scores) {
  Tensor const values({kLargest, 1, 1, 1}, scores.format);
  Tensor const indices({kLargest, 1, 1, 1}, unsigned_format(0, 16));
  std::vector<uint32_t> scratch(scores.shape.width);
  _NN_TOPK_PARM block = {};
  block.in_addr = scores.address();
  block.out_addr = values.address();
  block.out_index_addr = indices.address();
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  block.out_line_ofs = values.line_bytes();
  block.out_channel_ofs = values.channel_bytes();
  block.out_batch_ofs = values.batch_bytes();
  block.out_index_line_ofs = indices.line_bytes();
  block.out_index_channel_ofs = indices.channel_bytes();
  block.out_index_batch_ofs = indices.batch_bytes();
  block.in_fmt = scores.format;
  block.width = scores.shape.width;
  block.height = block.channel = block.batch = 1;
  block.axis = 3;
  block.largest = block.sorted = 1;
  block.k = kLargest;
  demo.run("top-k: largest classes", tarvu_topk_process, block, scores, indices);

  std::vector<uint16_t> classes(kLargest);
  std::memcpy(classes.data(), indices.bytes.data(), indices.bytes.size());
  for (size_t i = 0; i < classes.size(); ++i) {
    if (values.bytes[i] != scores.bytes[classes[i]]) throw std::runtime_error("a largest score is not its class's");
  }
  return classes;
}

/// A column a class, as high as its score, the largest classes red and wider.
Tensor chart_of(const Tensor &scores, const std::vector<uint16_t> &classes) {
  constexpr int kHeight = 256;
  int const width = scores.shape.width;
  Tensor chart({3, scores.shape.width, kHeight, 1}, kByte);
  std::fill(chart.bytes.begin(), chart.bytes.end(), uint8_t{250});
  auto const draw = [&](int from, int to, int score, const uint8_t(&colour)[3]) {
    for (int y = INT8_MAX - score; y < kHeight; ++y) {
      for (int x = std::max(0, from); x <= std::min(width - 1, to); ++x) {
        std::copy_n(colour, 3,
                    &chart.bytes[3 * (static_cast<size_t>(y) * scores.shape.width + static_cast<size_t>(x))]);
      }
    }
  };
  auto const score_of = [&](int i) { return static_cast<int8_t>(scores.bytes[static_cast<size_t>(i)]); };
  for (int i = 0; i < width; ++i) draw(i, i, score_of(i), {110, 130, 150});
  for (int const i : classes) draw(i - 2, i + 2, score_of(i), {210, 40, 40});
  return chart;
}

}  // namespace

void score_stages(Demo &demo, const std::string &scores_path) {
  Tensor const scores = load_scores(scores_path);
  std::vector<double> const exact = exact_softmax(scores);
  std::vector<double> const shares = softmax(demo, scores);
  report_difference(demo, "softmax", shares, exact);
  report_difference(demo, "softmax by table", softmax_by_table(demo, scores), exact);

  std::vector<uint16_t> const classes = largest_classes(demo, scores);
  std::string line = "largest classes:";
  for (uint16_t const i : classes) {
    char text[64];
    std::snprintf(text, sizeof text, " %u (score %g, %.1f %%)", static_cast<unsigned>(i), value_of(scores, i),
                  100 * shares[i]);
    line += text;
  }
  demo.report(line);
  demo.show("scores", chart_of(scores, classes),
            "of " + std::to_string(scores.shape.width) + " classes, the five largest in red");
}

}  // namespace demo
