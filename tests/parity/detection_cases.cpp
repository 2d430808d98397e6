#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

constexpr size_t kPriors = 150;
constexpr size_t kClasses = 4;

template <class T>
uint64_t address_of(const std::vector<T> &buffer) {
  return reinterpret_cast<uintptr_t>(buffer.data());
}

std::vector<float> random_floats(support::Random &random, size_t count, float first, float last) {
  std::vector<float> floats(count);
  random.fill_floats(floats.data(), count, first, last);
  return floats;
}

/// Boxes of all sizes, some inside out, then variances.
std::vector<float> random_priors(support::Random &random, size_t count) {
  std::vector<float> priors;
  for (size_t p = 0; p < count; ++p) {
    const float x = random.uniform(-0.2f, 1.0f);
    const float y = random.uniform(-0.2f, 1.0f);
    for (const float edge : {x, y, x + random.uniform(-0.05f, 0.5f), y + random.uniform(-0.05f, 0.5f)}) {
      priors.push_back(edge);
    }
  }
  const std::vector<float> variances = random_floats(random, 4 * count, 0.0f, 0.3f);
  priors.insert(priors.end(), variances.begin(), variances.end());
  return priors;
}

/// One and several box sizes, with and without second sizes, reciprocals and the clamp, subnormal sizes, and a refused
/// block.
void add_priorbox(Report &report) {
  for (const uint32_t sizes : {0u, 1u, 2u, 4u}) {
    Digest digest;
    for (const uint32_t second_sizes : {0u, sizes}) {
      for (const unsigned flags : {0u, 1u, 2u, 3u}) {
        for (const float unit : {1.0f, 0x1p-149f}) {
          std::vector<float> out(2 * 4 * 7 * 5 * 40, 777.0f);
          _NN_PRIORBOX_PARM parm{};
          parm.out_addr = address_of(out);
          parm.in_width = 7;
          parm.in_height = 5;
          parm.img_width = 300;
          parm.img_height = 200;
          parm.variance_ofs = static_cast<uint32_t>(out.size() / 2 * sizeof(float));
          const std::array<float, 4> min_sizes = {31.0f, 45.0f, 60.5f, 99.0f};
          const std::array<float, 4> max_sizes = {45.0f, 40.0f, 80.0f, 120.0f};
          const std::array<float, 4> ratios = {2.0f, 1.0f, 0.5f, 3.0f};
          const std::array<float, 4> variances = {0.1f, 0.0f, 0.2f, -0.2f};
          for (size_t i = 0; i < 4; ++i) {
            parm.min_sizes[i] = min_sizes[i] * unit;
            parm.max_sizes[i] = max_sizes[i] * unit;
            parm.aspect_ratios[i] = ratios[i];
            parm.variances[i] = variances[i];
          }
          parm.min_size_num = sizes;
          parm.max_size_num = second_sizes;
          parm.aspect_ratios_num = 4;
          parm.flip = flags % 2;
          parm.clip = flags / 2 != 0;
          parm.variance_num = 4;
          parm.offset = 0.5f * unit;
          digest.result(tarvu_priorbox_process(&parm));
          digest.floats(out.data(), out.size());
        }
      }
    }
    report.add("priorbox_" + std::to_string(sizes) + "_sizes", digest);
  }
}

/// Each coding and an unknown one, locations of 8 bits and floats, shared and one set per class, scores with and
/// without ties.
void add_detout(Report &report) {
  for (int32_t code_type = 0; code_type < 4; ++code_type) {
    Digest digest;
    for (const int width : {8, 32}) {
      for (const uint32_t shared : {0u, 1u}) {
        for (const bool ties : {false, true}) {
          support::Random random(3002);
          const size_t sets = shared == 1 ? 1 : kClasses;
          const std::vector<float> priors = random_priors(random, kPriors * sets);
          std::vector<float> locations = random_floats(random, 4 * kPriors * sets, -2.0f, 2.0f);
          if (width == 8) random.fill(locations.data(), 4 * kPriors);
          std::vector<float> confidences = random_floats(random, kPriors * kClasses, 0.0f, ties ? 5.99f : 1.0f);
          if (ties) {
            for (float &score : confidences) score = 0.5f * static_cast<float>(static_cast<int>(score));
          }
          std::vector<float> out(kClasses * 30 * 5, 777.0f);
          std::vector<float> scratch =
              random_floats(random, (40 * sets + 4 * kClasses + 88 + 24 + 16 * sets) * kPriors / 4 + 24, 0.0f, 1.0f);
          _NN_DETOUT_PARM parm{};
          parm.loc_addr = address_of(locations);
          parm.conf_addr = address_of(confidences);
          parm.prior_addr = address_of(priors);
          parm.out_addr = address_of(out);
          parm.work_buffer = address_of(scratch);
          parm.batch = 1;
          parm.loc_fmt = support::format(width, 6, 1);
          parm.loc_scale = support::scale(3, 1);
          parm.num_classes = kClasses;
          parm.num_priors = kPriors;
          parm.share_location = shared;
          parm.code_type = code_type;
          parm.keep_top_k = 15;
          parm.confidence_threshold = 0.4f;
          parm.nms_threshold = 0.45f;
          digest.result(tarvu_detout_process(&parm));
          digest.floats(out.data(), out.size());
        }
      }
    }
    report.add("detout_code_" + std::to_string(code_type), digest);
  }
}

/// Overlapping boxes with and without ties, zero and negative scores, and several limits.
void add_nms(Report &report) {
  for (const uint32_t levels : {4u, 1000000u}) {
    Digest digest;
    for (const int32_t limit : {0, 1, 30, 400}) {
      support::Random random(3003);
      std::vector<_NN_NMS_OBJ> objects(400);
      for (_NN_NMS_OBJ &object : objects) {
        object.x1 = random.uniform(0.0f, 6.0f);
        object.y1 = random.uniform(0.0f, 6.0f);
        object.x2 = object.x1 + random.uniform(0.0f, 2.0f);
        object.y2 = object.y1 + random.uniform(0.0f, 2.0f);
        object.score = static_cast<float>(random.below(levels)) / static_cast<float>(levels) - 0.125f;
        object.obj_tag = random.below(1000000);
      }
      _NN_NMS_PARM parm{};
      parm.nms_threshold = 0.3f;
      parm.obj_num = static_cast<int32_t>(objects.size());
      parm.max_obj_num = limit;
      parm.obj_addr = address_of(objects);
      digest.result(tarvu_nms_process(&parm));
      digest.bytes(objects.data(), objects.size() * sizeof(_NN_NMS_OBJ));
    }
    report.add("nms_" + std::to_string(levels) + "_levels", digest);
  }
}

/// Multipliers and shifts of a fully-connected layer: ordinary ones, ones that wrap, and shifts to the left.
struct FcScales {
  int32_t a, b, negative;
  int shift_a, shift_b, shift_negative;
};
constexpr FcScales kFcScales[] = {{77, 3, 13, 9, 4, 3},
                                  {-29001, 211, 1, 20, 3, 0},
                                  {1, 1, 1, 0, 0, 0},
                                  {5, 7, -3, -2, -1, 1},
                                  {2147483647, -2147483647, 65537, 60, 1, 2},
                                  {123456, 4321, 99, 31, 32, 1}};

/// Each pair of element types, formats of no type among them, partial results that stand apart, side by side and one inside the
/// other, and none at all.
void add_fc_post(Report &report) {
  constexpr uint16_t kOutputs = 531;
  constexpr uint16_t kBatch = 2;
  constexpr uint16_t kMostParts = 37;
  constexpr size_t kInBytes = size_t{4} * kBatch * kOutputs * kMostParts;
  const _NN_FMT formats[] = {support::format(8, 3, 1),  support::format(8, 3, 0),  support::format(16, 3, 1),
                             support::format(16, 3, 0), support::format(32, 3, 1), support::format(24, 3, 1)};
  for (const _NN_FMT &in_fmt : formats) {
    Digest digest;
    support::Random random(3004);
    const auto in_bytes = static_cast<uint32_t>(in_fmt.frac_bits + in_fmt.int_bits + in_fmt.sign_bits) / 8;
    std::vector<uint8_t> in(kInBytes + 8);
    random.fill(in.data(), in.size());
    for (const _NN_FMT &out_fmt : formats) {
      for (const FcScales &scales : kFcScales) {
        for (const uint16_t parts : {uint16_t{0}, uint16_t{1}, uint16_t{5}, uint16_t{kMostParts}}) {
          std::vector<int32_t> corrections(kOutputs);
          for (int32_t &correction : corrections) correction = random.between(-9000, 9000);
          const std::vector<uint8_t> out(size_t{4} * kBatch * kOutputs + 8, 0x5A);
          _NN_FC_POST_PARM parm{};
          parm.in_addr = address_of(in);
          parm.out_addr = address_of(out);
          parm.bias_addr = address_of(corrections);
          parm.width = kOutputs;
          parm.height = parts;
          parm.batch = kBatch;
          parm.in_line_ofs = random.one_in(2) ? in_bytes * kOutputs : random.one_in(2) ? in_bytes : 3;
          parm.in_batch_ofs = static_cast<int32_t>(in_bytes) * kOutputs * kMostParts;
          parm.out_batch_ofs = 4 * kOutputs;
          parm.in_fmt = in_fmt;
          parm.out_fmt = out_fmt;
          parm.mul_a = support::scale(scales.a, scales.shift_a);
          parm.mul_b = support::scale(scales.b, scales.shift_b);
          parm.neg_mul = support::scale(scales.negative, scales.shift_negative);
          digest.result(tarvu_fc_post_process(&parm));
          digest.bytes(out.data(), out.size());
        }
      }
    }
    report.add("fc_post_" + std::to_string(8 * in_bytes) + (in_fmt.sign_bits == 1 ? "s" : "u"), digest);
  }
}

}  // namespace

void add_detection_cases(Report &report) {
  add_priorbox(report);
  add_detout(report);
  add_nms(report);
  add_fc_post(report);
}

}  // namespace parity
