#include "bench/bench.h"
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

}  // namespace

void add_prelu_workloads(std::vector<Workload> &suite) {
  suite.push_back(rectify<int8_t>("prelu_8b_1x64x56x56"));
  suite.push_back(rectify<int16_t>("prelu_16b_1x64x56x56"));
}

}  // namespace bench
