/// \file entry_point_cases.cpp
/// Exported functions that the cases of the operators do not call themselves. One entry for each family: the tests of each file
/// tell what a function does; here it is called so that what holds for the whole library is seen to hold for it.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

template <class T>
uint64_t address_of(const std::vector<T> &buffer) {
  return reinterpret_cast<uintptr_t>(buffer.data());
}

std::vector<float> random_floats(support::Random &random, size_t count, float first, float last) {
  std::vector<float> floats(count);
  random.fill_floats(floats.data(), count, first, last);
  return floats;
}

template <class T>
std::vector<T> random_integers(support::Random &random, size_t count) {
  std::vector<T> integers(count);
  random.fill(integers.data(), count * sizeof(T));
  return integers;
}

void add_frame(Report &report) {
  Digest digest;
  const char *version = prebuilt_ai_get_lib_version();
  digest.bytes(version, std::strlen(version));
  digest.result(nn_check_net_parm());
  for (int sum = -130; sum <= 130; ++sum) {
    for (const int sign_bits : {-1, 0, 1, 2}) {
      const _NN_FMT fmt = support::format(sum, 3, sign_bits);
      digest.result(tarvu_get_fmt_type(&fmt));
      digest.result(tarvu_get_gather_fmt_type(&fmt));
      digest.result(tarvu_get_gatherelement_fmt_type(&fmt));
    }
  }
  uint64_t cursor = 0x123456789;
  for (const uint32_t size : {0u, 1u, 4u, 5u, 0xFFFFFFFEu}) {
    const auto taken = reinterpret_cast<uintptr_t>(tarvu_getbuffrom(&cursor, size));
    digest.bytes(&taken, sizeof taken);
    digest.bytes(&cursor, sizeof cursor);
  }
  report.add("frame", digest);
}

constexpr uint32_t kCount = 83;
constexpr uint32_t kShape[] = {19, 2, 2, 1, 1, 1};
constexpr uint32_t kStride[] = {0, 20, 40, 0, 0, 0};

/// The conversion kernels of one integer type; those that it has not are null.
template <class T>
struct Kernels {
  const char *name;
  void (*to_floats)(const T *, float *, int16_t, uint32_t, float);
  void (*from_floats)(const float *, T *, int16_t, uint32_t, float);
  void (*from_floats_rounded)(const float *, T *, int16_t, uint32_t, uint32_t, float);
  void (*to_floats_1d)(const T *, float *, uint32_t, int16_t, int32_t, float);
  void (*from_floats_1d)(const float *, T *, uint32_t, int16_t, int32_t, float);
  void (*to_floats_nd)(const T *, float *, const uint32_t *, const uint32_t *, int16_t, int32_t, float);
  void (*from_floats_nd)(const float *, T *, const uint32_t *, const uint32_t *, int16_t, int32_t, float);
};

template <class T>
void add_kernels(Report &report, const Kernels<T> &kernels) {
  support::Random random(1501);
  Digest digest;
  for (const int16_t frac_bits : {int16_t{-3}, int16_t{0}, int16_t{6}, int16_t{40}}) {
    const std::vector<T> integers = random_integers<T>(random, 128);
    std::vector<float> floats = random_floats(random, 128, -70000.0f, 70000.0f);
    random.fill_any_floats(floats.data() + 50, 40);
    const auto to_floats = [&](auto convert) {
      std::vector<float> out(128);
      convert(integers.data(), out.data());
      digest.floats(out.data(), out.size());
    };
    const auto from_floats = [&](auto convert) {
      std::vector<T> out(128);
      convert(floats.data(), out.data());
      digest.bytes(out.data(), out.size() * sizeof(T));
    };
    to_floats([&](const T *in, float *out) { kernels.to_floats(in, out, frac_bits, kCount, 0.75f); });
    from_floats([&](const float *in, T *out) { kernels.from_floats(in, out, frac_bits, kCount, 0.75f); });
    for (uint32_t code = 0; code <= 12; ++code) {
      from_floats(
          [&](const float *in, T *out) { kernels.from_floats_rounded(in, out, frac_bits, kCount, code, 0.75f); });
    }
    if (kernels.to_floats_1d == nullptr) continue;
    to_floats([&](const T *in, float *out) { kernels.to_floats_1d(in, out, kCount, frac_bits, -7, 0.75f); });
    from_floats([&](const float *in, T *out) { kernels.from_floats_1d(in, out, kCount, frac_bits, -7, 0.75f); });
    to_floats([&](const T *in, float *out) { kernels.to_floats_nd(in, out, kShape, kStride, frac_bits, 9, 0.75f); });
    from_floats(
        [&](const float *in, T *out) { kernels.from_floats_nd(in, out, kShape, kStride, frac_bits, 9, 0.75f); });
  }
  report.add(std::string("kernels_") + kernels.name, digest);
}

void add_conversion_kernels(Report &report) {
  add_kernels<uint8_t>(report, {"u8", uint8tofloat_neon, floattouint8_neon, floattouint8_rnd_neon, uint8tofloat_1d_neon,
                                floattouint8_1d_neon, uint8tofloat_nd_neon, floattouint8_nd_neon});
  add_kernels<int8_t>(report, {"s8", int8tofloat_neon, floattoint8_neon, floattoint8_rnd_neon, int8tofloat_1d_neon,
                               floattoint8_1d_neon, int8tofloat_nd_neon, floattoint8_nd_neon});
  add_kernels<uint16_t>(report,
                        {"u16", uint16tofloat_neon, floattouint16_neon, floattouint16_rnd_neon, uint16tofloat_1d_neon,
                         floattouint16_1d_neon, uint16tofloat_nd_neon, floattouint16_nd_neon});
  add_kernels<int16_t>(report,
                       {"s16", int16tofloat_neon, floattoint16_neon, floattoint16_rnd_neon, int16tofloat_1d_neon,
                        floattoint16_1d_neon, int16tofloat_nd_neon, floattoint16_nd_neon});
  add_kernels<uint32_t>(report, {"u32", uint32tofloat_neon, floattouint32_neon, floattouint32_rnd_neon, nullptr,
                                 nullptr, nullptr, nullptr});
  add_kernels<int32_t>(
      report, {"s32", int32tofloat_neon, floattoint32_neon, floattoint32_rnd_neon, nullptr, nullptr, nullptr, nullptr});
}

void add_interleaving(Report &report) {
  support::Random random(1502);
  Digest digest;
  const std::vector<uint8_t> in = random_integers<uint8_t>(random, 333);
  for (const uint32_t lanes : {1u, 2u, 3u, 4u, 7u, 16u}) {
    std::vector<uint8_t> out(in.size(), 0x5A);
    permute_data_in(in.data(), out.data(), lanes, 333);
    digest.bytes(out.data(), out.size());
    permute_data_out(in.data(), out.data(), lanes, 333);
    digest.bytes(out.data(), out.size());
  }
  report.add("permute_data", digest);
}

void add_prelu_kernels(Report &report) {
  support::Random random(1503);
  Digest digest;
  const std::vector<int8_t> in_8 = random_integers<int8_t>(random, 301);
  const std::vector<int16_t> in_16 = random_integers<int16_t>(random, 301);
  const std::vector<int8_t> slopes = random_integers<int8_t>(random, 7);
  std::vector<int8_t> out_8(301);
  std::vector<int16_t> out_16(301);
  for (const int8_t shift : {int8_t{-3}, int8_t{0}, int8_t{4}, int8_t{33}}) {
    digest.result(tarvu_prelu_neon_func_int8(in_8.data(), out_8.data(), -77, 301, shift));
    digest.result(tarvu_prelu_neon_func_int16(in_16.data(), out_16.data(), 99, 301, shift));
    digest.bytes(out_8.data(), 301);
    digest.bytes(out_16.data(), 602);
    digest.result(tarvu_prelu_c_func_int8(in_8.data(), slopes.data(), out_8.data(), 280, shift, 301, 1, 40));
    digest.result(tarvu_prelu_c_func_int16(in_16.data(), slopes.data(), out_16.data(), 280, shift, 301, 1, 40));
    digest.bytes(out_8.data(), 301);
    digest.bytes(out_16.data(), 602);
  }
  report.add("prelu_kernels", digest);
}

/// The axis kernels and one batch item of one of the two softmax families.
template <class Parm>
struct SoftmaxKernels {
  const char *name;
  _QX_RESULT (*item)(const Parm *, const void *, void *);
  void (*axis2)(const float *, float *, const Parm *);
  void (*axis3)(const float *, float *, const Parm *);
  void (*all)(const float *, float *, const Parm *);
};

template <class Parm>
Parm softmax_block(const std::vector<float> &in, const std::vector<float> &out, const std::vector<float> &scratch,
                   int axis) {
  Parm parm{};
  parm.in_addr = address_of(in);
  parm.out_addr = address_of(out);
  parm.work_buffer = address_of(scratch);
  parm.width = 37;
  parm.height = 9;
  parm.channel = 4;
  parm.batch = 2;
  parm.in_fmt = support::format(16, 9, 1);
  parm.out_fmt = support::format(16, 14, 1);
  parm.in_scale = support::scale(29, 5);
  parm.out_scale = support::scale(119, 7);
  parm.axis = static_cast<int8_t>(axis);
  return parm;
}

constexpr size_t kSoftmaxFloats = size_t{2} * 37 * 9 * 4;

template <class Parm>
void add_softmax_kernels(Report &report, const SoftmaxKernels<Parm> &kernels) {
  support::Random random(1504);
  Digest digest;
  const std::vector<float> in = random_floats(random, kSoftmaxFloats, -9.0f, 9.0f);
  std::vector<float> out(kSoftmaxFloats);
  const std::vector<float> scratch(2 * kSoftmaxFloats);
  for (const int axis : {-1, 0, 1, 2, 3}) {
    const auto parm = softmax_block<Parm>(in, out, scratch, axis);
    digest.result(kernels.item(&parm, in.data(), out.data()));
    digest.bytes(out.data(), out.size() * sizeof(float));
    for (const auto kernel : {kernels.axis2, kernels.axis3, kernels.all}) {
      kernel(in.data(), out.data(), &parm);
      digest.floats(out.data(), out.size());
    }
  }
  report.add(std::string(kernels.name) + "_kernels", digest);
}

void add_softmax_entries(Report &report) {
  add_softmax_kernels<_NN_SOFTMAX_PARM>(report, {"softmax", tarvu_softmax_process_one_batch, tarvu_softmax_axis2_4vec,
                                                 tarvu_softmax_axis3_4vec, tarvu_softmax_axisn_1dim_vec});
  add_softmax_kernels<_NN_SOFTMAX_ASYM_PARM>(
      report, {"softmax_asym", tarvu_softmax_asym_process_one_batch, tarvu_softmax_asym_axis2_4vec,
               tarvu_softmax_asym_axis3_4vec, tarvu_softmax_asym_axisn_1dim_vec});
  support::Random random(1505);
  Digest digest;
  digest.result(tarvu_dli_softmax_process());
  const std::vector<int16_t> integers = random_integers<int16_t>(random, 2 * kSoftmaxFloats);
  std::vector<float> in(kSoftmaxFloats);
  std::memcpy(in.data(), integers.data(), in.size() * sizeof(float));
  std::vector<float> out(kSoftmaxFloats);
  const std::vector<float> scratch(2 * kSoftmaxFloats, 0.25f);
  for (const int axis : {1, 2, 3}) {
    auto parm = softmax_block<_NN_SOFTMAX_PARM>(in, out, scratch, axis);
    digest.result(tarvu_softmax_process_0(&parm));
    digest.bytes(out.data(), out.size() * sizeof(float));
    parm.channel = static_cast<uint16_t>(3 - axis);  // none at last, which is refused
    digest.result(vendor_ais_checkparm(&parm));
    digest.result(vendor_softmax_process(&parm));
    digest.bytes(out.data(), out.size() * sizeof(float));
  }
  digest.result(dataTransform_u16tofloat(integers.data(), out.data(), 5, 201));
  digest.floats(out.data(), 201);
  report.add("softmax_entries", digest);
}

void add_lrn_kernels(Report &report) {
  support::Random random(1506);
  Digest digest;
  const std::vector<float> in = random_floats(random, 2 * 6 * 35, -9.0f, 9.0f);
  std::vector<float> out(in.size()), sums(in.size()), squares(10 * 35);
  const auto run = [&](auto kernel) {
    digest.result(kernel(in.data(), out.data(), sums.data(), squares.data(), 2, 2, 5, 6, 0.02f, 0.75f, 7, 5, 2));
    digest.floats(out.data(), out.size());
  };
  run(tarvu_lrn_neon_func);
  run(tarvu_lrn_c_func);
  for (const float x : {0.01f, 1.0f, 7.5f, 1e20f}) {
    const float power = fast_Pow(x, -0.75f);
    digest.floats(&power, 1);
  }
  report.add("lrn_kernels", digest);
}

/// One sequence, one input and one unit.
void add_lstm_entries(Report &report) {
  Digest digest;
  const std::vector<float> weights = {0.5f};
  const std::vector<uint8_t> flags = {0, 1, 1};
  std::vector<float> work = {1.0f, -2.0f, 0.5f, 0.0f,
                             9.0f, 9.0f,  9.0f, 9.0f};  // three inputs, static, cell, three hidden
  _NN_LSTM_PARM parm{};
  parm.work_buffer = address_of(work);
  parm.cont_addr = address_of(flags);
  for (int gate = 0; gate < 4; ++gate) {
    parm.input_weights[gate] = parm.recurrent_weights[gate] = parm.biases[gate] = address_of(weights);
  }
  parm.width = parm.height = parm.channel = 1;
  parm.batch = 3;
  parm.hidden_size = 1;
  lstm_process_c(&parm);
  digest.floats(work.data(), work.size());
  for (const float x : {-90.0f, -1.0f, 0.0f, 0.3f, 20.0f}) {
    const float y = sigmoid(x);
    digest.floats(&y, 1);
  }
  report.add("lstm_entries", digest);
}

void add_priorbox_kernels(Report &report) {
  Digest digest;
  _NN_PRIORBOX_WORK work{};
  work.in_width = 7;
  work.in_height = 5;
  work.img_width = 300;
  work.img_height = 200;
  work.min_sizes[0] = 31.0f;
  work.max_sizes[0] = 45.0f;
  work.min_size_num = work.max_size_num = 1;
  work.ratio_list[0] = 2.0f;
  work.ratio_list[1] = 0.5f;
  work.ratio_count = 2;
  work.clip = 1;
  work.variances[0] = 0.1f;
  work.num_priors = 4;
  work.offset = 0.5f;
  std::vector<float> boxes(7 * 5 * 4 * 4), variances(boxes.size());
  float *const regions[2] = {boxes.data(), variances.data()};
  for (const auto kernel : {tarvu_priorbox_neon_func, tarvu_priorbox_c_func}) {
    digest.result(kernel(&work, regions));
    digest.floats(boxes.data(), boxes.size());
    digest.floats(variances.data(), variances.size());
  }
  report.add("priorbox_kernels", digest);
}

/// Scores with ties; boxes overlap here and there.
void add_detection_entries(Report &report) {
  constexpr int32_t kBoxes = 61;
  support::Random random(1507);
  Digest digest;
  std::vector<float> priors = random_floats(random, size_t{5} * kBoxes, 0.0f, 1.0f);
  const std::vector<float> variances = random_floats(random, size_t{4} * kBoxes, 0.0f, 0.3f);
  const std::vector<float> locations = random_floats(random, size_t{5} * kBoxes, -2.0f, 2.0f);
  std::vector<float> decoded(size_t{5} * kBoxes);
  for (const int32_t code_type : {0, 1, 2, 3}) {
    DecodeBBoxes(priors.data(), variances.data(), code_type, 0, 1, locations.data(), decoded.data(), kBoxes, 1);
    digest.floats(decoded.data(), decoded.size());
  }
  std::vector<float> corners;
  std::vector<_NN_DETOUT_RECORD> records(kBoxes);
  std::vector<_NN_NMS_OBJ> objects(kBoxes);
  for (uint32_t i = 0; i < kBoxes; ++i) {
    const float x = random.uniform(0.0f, 3.0f);
    const float y = random.uniform(0.0f, 3.0f);
    corners.insert(corners.end(), {x, y, x + 1.0f, y + 1.0f});
    records[i].score = static_cast<float>((i * 7) % 40) / 64.0f;
    records[i].reserved_0 = i;
    objects[i] = {x, y, x + 1.0f, y + 1.0f, records[i].score, i};
  }
  for (size_t i = 0; i < records.size(); ++i) records[i].box_addr = address_of(corners) + 4 * sizeof(float) * i;
  // Addresses enter as distances: they differ from run to run.
  const auto add_records = [&](std::vector<_NN_DETOUT_RECORD> list) {
    for (_NN_DETOUT_RECORD &record : list) record.box_addr -= address_of(corners);
    digest.bytes(list.data(), list.size() * sizeof list[0]);
  };
  std::vector<_NN_DETOUT_RECORD> sorted = records;
  quick_sort(sorted.data(), 0, kBoxes - 1);
  add_records(sorted);
  std::vector<float> boxes = random_floats(random, 4 * (kBoxes + 3), 0.0f, 1.0f);
  std::vector<float> state(2 * (kBoxes + 3), -1.0f);
  for (size_t i = 0; i < kBoxes; ++i) state[2 * i + 1] = 0.9f - 0.01f * static_cast<float>(i);
  calc_area(boxes.data(), state.data(), kBoxes);
  int32_t last = -1;
  digest.result(check_overlap(boxes.data(), state.data(), kBoxes, 20, &last, 0.3f));
  digest.result(last);
  digest.floats(state.data(), state.size());
  digest.result(nonmax_suppress(records.data(), boxes.data(), state.data(), kBoxes, 0, 20, 0.3f));
  add_records(records);
  std::vector<_NN_NMS_OBJ> sorted_objects = objects;
  q_sort(sorted_objects.data(), 0, kBoxes - 1);
  digest.bytes(sorted_objects.data(), sorted_objects.size() * sizeof sorted_objects[0]);
  digest.result(nms_process_c(objects.data(), kBoxes, 20, 0.3f));
  digest.bytes(objects.data(), objects.size() * sizeof objects[0]);
  report.add("detection_entries", digest);
}

void add_gather_nd_entries(Report &report) {
  Digest digest;
  for (uint32_t zeros = 0; zeros <= 4; ++zeros) {
    uint32_t dims[4] = {3, 5, 7, 11};
    for (uint32_t i = 0; i < zeros; ++i) dims[i] = 0;
    digest.result(static_cast<int32_t>(chk_input_offset(dims)));
    for (uint32_t n = 0; n <= 5; ++n) {
      if (n <= 4) digest.result(static_cast<int32_t>(size_to_dimension(dims, n)));
      digest.result(static_cast<int32_t>(size_from_dimension(dims, n)));
    }
  }
  report.add("gathernd_entries", digest);
}

}  // namespace

void add_entry_point_cases(Report &report) {
  add_frame(report);
  add_conversion_kernels(report);
  add_interleaving(report);
  add_prelu_kernels(report);
  add_softmax_entries(report);
  add_lrn_kernels(report);
  add_lstm_entries(report);
  add_priorbox_kernels(report);
  add_detection_entries(report);
  add_gather_nd_entries(report);
}

}  // namespace parity
