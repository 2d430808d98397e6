#include <benchmark/benchmark.h>

#include <cstring>

#include "bench/bench.h"

namespace bench {
namespace {

constexpr int kRepeats = 9;
constexpr double kSecondsPerRepeat = 0.02;

/// Keeps the medians in the order of registration and prints nothing.
class Medians : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context &) override { return true; }

  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median") continue;
      const std::string name = run.run_name.function_name;
      if (name == "ours") times.ours = run.GetAdjustedCPUTime();
      if (name == "plain") times.plain = run.GetAdjustedCPUTime();
      if (name == "baseline") times.baseline = run.GetAdjustedCPUTime();
    }
  }

  Times times{};
};

void register_row(const char *name, const std::function<void()> &call) {
  benchmark::RegisterBenchmark(name,
                               [&call](benchmark::State &state) {
                                 for (auto _ : state) {
                                   call();
                                   benchmark::ClobberMemory();
                                 }
                               })
      ->Repetitions(kRepeats)
      ->MinTime(kSecondsPerRepeat)
      ->Unit(benchmark::kNanosecond);
}

void initialize_once() {
  static bool done = false;
  if (done) return;
  done = true;
  char program[] = "tarvu_bench";
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  char *arguments[] = {program, interleave, nullptr};
  int count = 2;
  benchmark::Initialize(&count, arguments);
}

}  // namespace

Times measure_times(const Workload &workload, const Calls &calls) {
  initialize_once();
  const size_t bytes = workload.bytes_moved;
  const std::shared_ptr<uint8_t[]> from = random_buffer<uint8_t>(bytes, 1);
  const std::shared_ptr<uint8_t[]> to = make_buffer<uint8_t>(bytes);
  const std::function<void()> copy = [&] { std::memcpy(to.get(), from.get(), bytes); };
  const std::function<void()> set = [&] { std::memset(to.get(), 1, bytes); };

  register_row("ours", calls.ours);
  register_row("plain", calls.plain);
  register_row("baseline", workload.baseline == Baseline::kMemcpy ? copy : set);
  Medians medians;
  benchmark::RunSpecifiedBenchmarks(&medians);
  benchmark::ClearRegisteredBenchmarks();
  return medians.times;
}

}  // namespace bench
