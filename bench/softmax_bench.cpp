#include <algorithm>
#include <bit>
#include <type_traits>

#include "bench/bench.h"
#include "tests/reference/tarvu_softmax_table_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

using support::format;
using support::scale;

float plain_exp(float x) {
  const float exponent = x * 1.442695f + 126.934906f;
  return std::bit_cast<float>(static_cast<uint32_t>(exponent * 8388608.0f));
}

constexpr float kInScale = 31.0f / 32.0f;
constexpr float kOutScale = 125.0f / 128.0f;

/// The loops of anyone who knows the arithmetic: convert, compute group by group, convert back. Elements of a group lie `step`
/// apart, groups a row or a column apart.
template <class T, class U>
void plain_softmax(const T *__restrict source, U *__restrict destination, float *__restrict floats, size_t groups,
                   size_t length, size_t step, float in_unit) {
  const size_t count = groups * length;
  for (size_t i = 0; i < count; ++i) floats[i] = static_cast<float>(source[i]) * in_unit;
  for (size_t group = 0; group < groups; ++group) {
    float *first = floats + (step == 1 ? group * length : group);
    float most = -10000000.0f;
    for (size_t i = 0; i < length; ++i) most = first[i * step] > most ? first[i * step] : most;
    float sum = 0.0f;
    for (size_t i = 0; i < length; ++i) {
      const float difference = first[i * step] - most;
      const float e = plain_exp(difference > -87.0f ? difference : -87.0f);
      first[i * step] = e;
      sum += e;
    }
    const float reciprocal = 1.0f / sum;
    for (size_t i = 0; i < length; ++i) first[i * step] *= reciprocal;
  }
  for (size_t i = 0; i < count; ++i) {
    if constexpr (std::is_same_v<U, float>) {
      destination[i] = floats[i];
    } else {
      constexpr float kUnits = 128.0f * kOutScale;
      destination[i] = static_cast<U>(std::clamp(static_cast<int32_t>(floats[i] * kUnits), -128, 127));
    }
  }
}

/// One item along one axis, from T to U, with scales that are no powers of two.
template <class T, class U>
Workload softmax(const char *name, uint16_t channel, uint16_t height, uint16_t width, int8_t axis,
                 const _NN_FMT &in_fmt, const _NN_FMT &out_fmt) {
  const size_t count = size_t{channel} * height * width;
  const auto prepare = [=] {
    const std::shared_ptr<T[]> in = random_buffer<T>(count, 31);
    const std::shared_ptr<U[]> out = make_buffer<U>(count);
    const std::shared_ptr<float[]> scratch = make_buffer<float>(2 * count);
    _NN_SOFTMAX_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.work_buffer = address_of(scratch);
    parm.width = width;
    parm.height = height;
    parm.channel = channel;
    parm.batch = 1;
    parm.in_fmt = in_fmt;
    parm.out_fmt = out_fmt;
    parm.in_scale = scale(31, 5);
    parm.out_scale = scale(125, 7);
    parm.axis = axis;
    const size_t length = axis == 3 ? width : channel;
    const size_t step = axis == 3 ? 1 : size_t{height} * width;
    const float in_unit = kInScale / static_cast<float>(1 << in_fmt.frac_bits);
    const auto plain = [=] {
      plain_softmax(in.get(), out.get(), scratch.get(), count / length, length, step, in_unit);
    };
    return Calls{[in, out, scratch, parm] { expect_ok(tarvu_softmax_process(&parm)); }, plain};
  };
  return {name, "default", "input", count, count * std::max(sizeof(T), sizeof(U)), prepare};
}

Workload table_softmax(const char *name, uint16_t batch, uint16_t channel) {
  const size_t count = size_t{batch} * channel;
  const auto prepare = [=] {
    const std::shared_ptr<int16_t[]> in = random_buffer<int16_t>(count, 32);
    // Values of 6 fraction bits from -32 to 32: no difference wraps, and one in six or so lies within the table.
    for (size_t i = 0; i < count; ++i) in[i] = static_cast<int16_t>(in[i] / 16);
    const std::shared_ptr<int16_t[]> out = make_buffer<int16_t>(count);
    _NN_SOFTMAX_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.channel = channel;
    parm.batch = batch;
    parm.in_fmt = format(16, 6, 1);
    const auto run = [=](auto process) { return [in, out, parm, process] { expect_ok(process(&parm)); }; };
    return Calls{run(::vendor_softmax_process), run(reference::vendor_softmax_process)};
  };
  return {name, "default", "input", count, count * sizeof(int16_t), prepare};
}

}  // namespace

void add_softmax_workloads(std::vector<Workload> &suite) {
  suite.push_back(softmax<int8_t, int8_t>("softmax_row_64x1000", 1, 64, 1000, 3, format(8, 4, 1), format(8, 7, 1)));
  suite.push_back(softmax<int16_t, float>("softmax_row_8732x21", 1, 8732, 21, 3, format(16, 11, 1), format(32, 0, 1)));
  suite.push_back(softmax<int8_t, float>("softmax_chan_1x21x8732", 21, 1, 8732, 1, format(8, 4, 1), format(32, 0, 1)));
  suite.push_back(table_softmax("softmax_table_64x1000", 64, 1000));
}

}  // namespace bench
