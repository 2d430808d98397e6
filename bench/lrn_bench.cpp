#include "bench/bench.h"
#include "tests/reference/tarvu_lrn_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

Workload local_response(const char *name) {
  constexpr uint32_t kSide = 55;
  constexpr uint32_t kChannels = 96;
  constexpr uint32_t kWindow = 5;
  constexpr size_t kCount = size_t{kSide} * kSide * kChannels;
  const auto prepare = [] {
    const std::shared_ptr<int16_t[]> in = random_buffer<int16_t>(kCount, 33);
    const std::shared_ptr<int16_t[]> out = make_buffer<int16_t>(kCount);
    const std::shared_ptr<float[]> scratch = make_buffer<float>(4 * kCount + (kWindow - 1) * kSide * kSide);
    _NN_LRN_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.work_buffer = address_of(scratch);
    parm.width = parm.height = kSide;
    parm.channel = kChannels;
    parm.batch = 1;
    parm.in_fmt = support::format(16, 8, 1);
    parm.out_fmt = support::format(16, 12, 1);
    parm.in_scale = parm.out_scale = support::scale(31, 5);
    parm.local_size = kWindow;
    parm.lrn_k = 1;
    parm.alpha = 1e-4f;
    parm.beta = 0.75f;
    const auto run = [=](auto process) { return [in, out, scratch, parm, process] { expect_ok(process(&parm)); }; };
    return Calls{run(tarvu_lrn_process), run(reference::tarvu_lrn_process)};
  };
  return {name, "default", "input", kCount, kCount * sizeof(int16_t), prepare};
}

}  // namespace

void add_lrn_workloads(std::vector<Workload> &suite) { suite.push_back(local_response("lrn_n5_1x96x55x55")); }

}  // namespace bench
