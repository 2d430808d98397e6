#include <algorithm>

#include "bench/bench.h"
#include "tests/reference/tarvu_lstm_c_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

using support::format;
using support::scale;

constexpr size_t kPlanes = size_t{64} * 56 * 56;

/// The loop that anyone would write: the inputs to float, the operation, back to the output.
template <class Operation>
void plain_eltwise(const int8_t *__restrict a, const int8_t *__restrict b, int8_t *__restrict to, size_t count,
                   const float (&multipliers)[3], Operation operation) {
  for (size_t i = 0; i < count; ++i) {
    const float x = static_cast<float>(a[i]) * multipliers[0];
    const float y = static_cast<float>(b[i]) * multipliers[1];
    const float scaled = operation(x, y) * multipliers[2];
    to[i] = static_cast<int8_t>(scaled > 127.0f ? 127.0f : scaled < -128.0f ? -128.0f : scaled);
  }
}

/// 64 channels of 56 x 56 signed 8-bit elements, each tensor with a scale of its own, and unweighted.
Workload eltwise(const char *name, int32_t op, const char *variant, bool powers_of_two) {
  const auto prepare = [=] {
    const std::shared_ptr<int8_t[]> first = random_buffer<int8_t>(kPlanes, 21);
    const std::shared_ptr<int8_t[]> second = random_buffer<int8_t>(kPlanes, 22);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(kPlanes);
    const std::shared_ptr<float[]> work = make_buffer<float>(3 * 56 * 56);
    _NN_ELTWISE_PARM parm{};
    parm.in0_addr = address_of(first);
    parm.in1_addr = address_of(second);
    parm.out_addr = address_of(out);
    parm.work_buffer = address_of(work);
    parm.width = parm.height = 56;
    parm.channel = 64;
    parm.batch = 1;
    parm.in0_line_ofs = parm.in1_line_ofs = parm.out_line_ofs = 56;
    parm.in0_channel_ofs = parm.in1_channel_ofs = parm.out_channel_ofs = 56 * 56;
    parm.in0_batch_ofs = parm.in1_batch_ofs = parm.out_batch_ofs = kPlanes;
    parm.in0_fmt = format(8, 4, 1);
    parm.in1_fmt = format(8, 6, 1);
    parm.out_fmt = format(8, 3, 1);
    parm.in0_scale = powers_of_two ? scale(1, 0) : scale(253, 8);
    parm.in1_scale = powers_of_two ? scale(1, 0) : scale(249, 8);
    parm.out_scale = powers_of_two ? scale(1, 0) : scale(131, 7);
    parm.op = op;
    parm.coeff0 = parm.coeff1 = 1.0f;
    const auto ours = [first, second, out, work, parm] { expect_ok(tarvu_eltwise_process(&parm)); };
    const auto scale_of = [](const _NN_SCALE &s) {
      return static_cast<float>(s.scale_value) / static_cast<float>(1 << s.scale_shift);
    };
    const auto plain = [first, second, out, parm, scale_of] {
      const float multipliers[3] = {0x1p-4f * scale_of(parm.in0_scale), 0x1p-6f * scale_of(parm.in1_scale),
                                    0x1p3f * scale_of(parm.out_scale)};
      const auto run = [&](auto operation) {
        plain_eltwise(first.get(), second.get(), out.get(), kPlanes, multipliers, operation);
      };
      parm.op == 0 ? run([](float x, float y) { return x * y; }) : run([](float x, float y) { return x + y; });
    };
    return Calls{ours, plain};
  };
  return {name, variant, "output", kPlanes, 2 * kPlanes, prepare};
}

/// One sequence of 32 steps whose first one starts anew.
Workload lstm() {
  constexpr size_t kSteps = 32, kInputs = 128, kUnits = 128;
  const auto prepare = [] {
    const std::shared_ptr<int16_t[]> in = random_buffer<int16_t>(kSteps * kInputs, 23);
    const std::shared_ptr<int16_t[]> out = make_buffer<int16_t>(kSteps * kUnits);
    const std::shared_ptr<float[]> work = make_buffer<float>((kSteps + 1) * (kInputs + kUnits));
    const std::shared_ptr<uint8_t[]> flags = make_buffer<uint8_t>(kSteps);
    std::fill(flags.get() + 1, flags.get() + kSteps, uint8_t{1});
    std::vector<std::shared_ptr<float[]>> weights;
    _NN_LSTM_PARM parm{};
    const auto attach = [&weights](uint64_t(&addresses)[4], size_t count) {
      for (uint64_t &address : addresses) {
        weights.push_back(random_floats(count, -0.1f, 0.1f, 24 + weights.size()));
        address = address_of(weights.back());
      }
    };
    attach(parm.input_weights, kUnits * kInputs);
    attach(parm.recurrent_weights, kUnits * kUnits);
    attach(parm.biases, kUnits);
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.work_buffer = address_of(work);
    parm.cont_addr = address_of(flags);
    parm.width = kInputs;
    parm.height = parm.channel = 1;
    parm.batch = kSteps;
    parm.in_fmt = format(16, 13, 1);
    parm.out_fmt = format(16, 14, 1);
    parm.hidden_size = kUnits;
    const auto run = [=](auto process) {
      return [in, out, work, flags, weights, parm, process] { expect_ok(process(&parm)); };
    };
    return Calls{run(tarvu_lstm_process), run(reference::tarvu_lstm_process)};
  };
  const size_t weight_bytes = 4 * kUnits * (kInputs + kUnits) * sizeof(float);
  return {"lstm_T32_N1_I128_D128",
          "default",
          "multiply-add",
          kSteps * 4 * kUnits * (kInputs + kUnits),
          weight_bytes,
          prepare};
}

constexpr size_t kOutputs = 4096;

/// The loop that anyone would write for one partial result an output.
void plain_fc_post(const int32_t *__restrict in, const int32_t *__restrict bias, int8_t *__restrict to, size_t count,
                   const _NN_FC_POST_PARM &parm) {
  const int64_t multiplier = int64_t{parm.mul_a.scale_value} * parm.mul_b.scale_value;
  const int64_t negative_multiplier = multiplier * parm.neg_mul.scale_value;
  const int shift = parm.mul_a.scale_shift + parm.mul_b.scale_shift;
  const int negative_shift = shift + parm.neg_mul.scale_shift;
  for (size_t i = 0; i < count; ++i) {
    const int64_t total = int64_t{in[i]} - bias[i];
    const int64_t product = total < 0 ? negative_multiplier * total : multiplier * total;
    const int places = total < 0 ? negative_shift : shift;
    const int64_t half = int64_t{1} << (places - 1);
    const int64_t rounded = product < 0 ? -((half - product) >> places) : (product + half) >> places;
    to[i] = static_cast<int8_t>(std::clamp<int64_t>(rounded, -128, 127));
  }
}

/// One signed 32-bit partial result an output, about one output in ten beyond the range, negative ones with a slope of a tenth.
Workload fc_post() {
  const auto prepare = [] {
    const std::shared_ptr<int32_t[]> in = random_buffer<int32_t>(kOutputs, 40);
    const std::shared_ptr<int32_t[]> bias = random_buffer<int32_t>(kOutputs, 41);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(kOutputs);
    _NN_FC_POST_PARM parm{};
    parm.in_addr = address_of(in);
    parm.bias_addr = address_of(bias);
    parm.out_addr = address_of(out);
    parm.width = kOutputs;
    parm.height = parm.batch = 1;
    parm.in_line_ofs = kOutputs * sizeof(int32_t);
    parm.in_fmt = format(32, 12, 1);
    parm.out_fmt = format(8, 4, 1);
    parm.mul_a = scale(19661, 24);
    parm.mul_b = scale(23, 19);
    parm.neg_mul = scale(205, 11);
    const auto ours = [in, bias, out, parm] { expect_ok(tarvu_fc_post_process(&parm)); };
    const auto plain = [in, bias, out, parm] { plain_fc_post(in.get(), bias.get(), out.get(), kOutputs, parm); };
    return Calls{ours, plain};
  };
  return {"fc_post_s32_s8_4096", "default", "output", kOutputs, kOutputs * sizeof(int32_t), prepare};
}

}  // namespace

void add_eltwise_workloads(std::vector<Workload> &suite) {
  suite.push_back(eltwise("eltwise_sum_8b_1x64x56x56", 1, "default", false));
  suite.push_back(eltwise("eltwise_sum_8b_1x64x56x56", 1, "power_of_two", true));
  suite.push_back(eltwise("eltwise_prod_8b_1x64x56x56", 0, "default", false));
  suite.push_back(eltwise("eltwise_prod_8b_1x64x56x56", 0, "power_of_two", true));
  suite.push_back(lstm());
  suite.push_back(fc_post());
}

}  // namespace bench
