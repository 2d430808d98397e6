#include <algorithm>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

using support::format;
using support::scale;

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

void add_fc_post_workloads(std::vector<Workload> &suite) { suite.push_back(fc_post()); }

}  // namespace bench
