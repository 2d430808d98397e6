#include <cstring>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

void plain_one_hot(const int16_t *indices, size_t count, const int8_t *off_on, int8_t *__restrict out, size_t depth) {
  std::memset(out, off_on[0], count * depth);
  for (size_t i = 0; i < count; ++i, out += depth) {
    const size_t index = static_cast<size_t>(indices[i] < 0 ? indices[i] + static_cast<int>(depth) : indices[i]);
    if (index < depth) out[index] = off_on[1];
  }
}

constexpr uint16_t kIndices = 1024;
constexpr uint32_t kDepth = 1000;
constexpr size_t kOutputs = size_t{kIndices} * kDepth;

Workload one_hot(const char *name) {
  const auto prepare = [=] {
    const std::shared_ptr<int16_t[]> in = make_buffer<int16_t>(kIndices);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(kOutputs);
    const std::shared_ptr<int8_t[]> values = make_buffer<int8_t>(2);
    values[0] = 3;
    values[1] = 100;
    support::Random random(43);
    for (size_t i = 0; i < kIndices; ++i) in[i] = static_cast<int16_t>(random.below(kDepth));
    _NN_ONEHOT_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.values_addr = address_of(values);
    parm.height = kIndices;
    parm.channel = 1;
    parm.batch = 1;
    parm.in_line_ofs = 2;
    parm.in_channel_ofs = parm.in_batch_ofs = 2 * kIndices;
    parm.out_line_ofs = kDepth;
    parm.out_channel_ofs = parm.out_batch_ofs = kOutputs;
    parm.in_fmt = support::format(16, 0, 1);
    parm.out_fmt = parm.values_fmt = support::format(8, 4, 1);
    parm.in_scale = support::scale(1, 0);
    parm.axis = 3;
    parm.depth = kDepth;
    const auto plain = [in, out, values] { plain_one_hot(in.get(), kIndices, values.get(), out.get(), kDepth); };
    return Calls{[in, out, values, parm] { expect_ok(tarvu_onehot_process(&parm)); }, plain};
  };
  return {name, "default", "output", kOutputs, kOutputs, prepare, Baseline::kMemset};
}

}  // namespace

void add_onehot_workloads(std::vector<Workload> &suite) { suite.push_back(one_hot("onehot_1024x1000_8b")); }

}  // namespace bench
