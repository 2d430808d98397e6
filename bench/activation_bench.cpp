#include "bench/bench.h"
#include "tests/reference/tarvu_lrn_reference.h"
#include "tests/reference/tarvu_prelu_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

/// One slope a channel, between -1 and 1 in units of the shift.
template <class T>
Workload rectify(const char *name) {
  const auto prepare = [] {
    constexpr uint32_t kSide = 56;
    constexpr uint32_t kChannels = 64;
    constexpr size_t kElements = size_t{kSide} * kSide * kChannels;
    const std::shared_ptr<T[]> in = random_buffer<T>(kElements, 31);
    const std::shared_ptr<T[]> out = make_buffer<T>(kElements);
    const std::shared_ptr<int8_t[]> slopes = random_buffer<int8_t>(kChannels, 32);
    _NN_PRELU_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.weight_addr = address_of(slopes);
    parm.width = parm.height = kSide;
    parm.channels = kChannels;
    parm.num = 1;
    parm.in_fmt = support::format(8 * sizeof(T), 4, 1);
    parm.shift = 7;
    const auto run = [=](auto process) { return [in, out, slopes, parm, process] { expect_ok(process(&parm)); }; };
    return Calls{run(tarvu_prelu_process), run(reference::tarvu_prelu_process)};
  };
  constexpr size_t kCount = size_t{56} * 56 * 64;
  return {name, "default", "input", kCount, kCount * sizeof(T), prepare};
}

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

void add_activation_workloads(std::vector<Workload> &suite) {
  suite.push_back(rectify<int8_t>("prelu_8b_1x64x56x56"));
  suite.push_back(rectify<int16_t>("prelu_16b_1x64x56x56"));
  suite.push_back(local_response("lrn_n5_1x96x55x55"));
}

}  // namespace bench
