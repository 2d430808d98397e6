#include <algorithm>

#include "bench/bench.h"
#include "tests/reference/tarvu_lstm_c_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

using support::format;

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

}  // namespace

void add_lstm_workloads(std::vector<Workload> &suite) { suite.push_back(lstm()); }

}  // namespace bench
