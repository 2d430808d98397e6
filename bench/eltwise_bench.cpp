#include "bench/bench.h"
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

}  // namespace

void add_eltwise_workloads(std::vector<Workload> &suite) {
  suite.push_back(eltwise("eltwise_sum_8b_1x64x56x56", 1, "default", false));
  suite.push_back(eltwise("eltwise_sum_8b_1x64x56x56", 1, "power_of_two", true));
  suite.push_back(eltwise("eltwise_prod_8b_1x64x56x56", 0, "default", false));
  suite.push_back(eltwise("eltwise_prod_8b_1x64x56x56", 0, "power_of_two", true));
}

}  // namespace bench
