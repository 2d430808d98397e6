/// \file bench.h
/// The benchmark suite: what a workload is, and the data that workloads are made of.
#ifndef TARVU_BENCH_BENCH_H
#define TARVU_BENCH_BENCH_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/support/random.h"

namespace bench {

/// The two calls that are measured against each other. Both do the same work on the same input. The plain one is the
/// twin of tests/reference/, or, where the twin decides something anew for each element, the loop that anyone would
/// write for this case; both are compiled at -O2 without vectorisation.
struct Calls {
  std::function<void()> ours;
  std::function<void()> plain;
};

/// What the machine's memory allows: the row that ours and plain are held against.
enum class Baseline { kMemcpy, kMemset };

/// One case of the suite. Name, variant and unit are those of goals.csv.
struct Workload {
  std::string name;
  std::string variant;     ///< "default", or what the goals tell apart under one name
  std::string unit;        ///< what is counted: "element", "output", ...
  size_t count = 0;        ///< units in one call
  size_t bytes_moved = 0;  ///< bytes that the baseline copies or sets: the larger of what a call reads and writes
  std::function<Calls()>
      prepare;  ///< makes the data, which the calls own; called once, just before the case is measured
  Baseline baseline = Baseline::kMemcpy;
};

/// One function per operator, in <operator>_bench.cpp.
void add_convert_workloads(std::vector<Workload> &suite);
void add_prelu_workloads(std::vector<Workload> &suite);
void add_softmax_workloads(std::vector<Workload> &suite);
void add_lrn_workloads(std::vector<Workload> &suite);
void add_norm_workloads(std::vector<Workload> &suite);
void add_layernorm_workloads(std::vector<Workload> &suite);
void add_eltwise_workloads(std::vector<Workload> &suite);
void add_lstm_workloads(std::vector<Workload> &suite);
void add_fc_post_workloads(std::vector<Workload> &suite);
void add_priorbox_workloads(std::vector<Workload> &suite);
void add_detout_workloads(std::vector<Workload> &suite);
void add_nms_workloads(std::vector<Workload> &suite);
void add_pool_workloads(std::vector<Workload> &suite);
void add_reverse_workloads(std::vector<Workload> &suite);
void add_permute_workloads(std::vector<Workload> &suite);
void add_topk_workloads(std::vector<Workload> &suite);
void add_gather_workloads(std::vector<Workload> &suite);
void add_gathernd_workloads(std::vector<Workload> &suite);
void add_gatherelement_workloads(std::vector<Workload> &suite);
void add_onehot_workloads(std::vector<Workload> &suite);
void add_gridsample_workloads(std::vector<Workload> &suite);

/// Zeroed memory on a cache line of its own.
template <class T>
std::shared_ptr<T[]> make_buffer(size_t count) {
  constexpr size_t kLineBytes = 64;
  const size_t bytes = (count * sizeof(T) + kLineBytes - 1) / kLineBytes * kLineBytes;
  void *memory = std::aligned_alloc(kLineBytes, bytes);
  if (memory == nullptr) {
    std::fprintf(stderr, "tarvu_bench: no memory for %zu bytes\n", bytes);
    std::exit(1);
  }
  std::memset(memory, 0, bytes);
  return std::shared_ptr<T[]>(static_cast<T *>(memory), [](T *at) { std::free(at); });
}

/// Integers over their full range, the same on every platform.
template <class T>
std::shared_ptr<T[]> random_buffer(size_t count, uint64_t seed) {
  std::shared_ptr<T[]> buffer = make_buffer<T>(count);
  support::Random(seed).fill(buffer.get(), count * sizeof(T));
  return buffer;
}

/// Floats spread evenly over [first, last).
inline std::shared_ptr<float[]> random_floats(size_t count, float first, float last, uint64_t seed) {
  std::shared_ptr<float[]> buffer = make_buffer<float>(count);
  support::Random(seed).fill_floats(buffer.get(), count, first, last);
  return buffer;
}

/// As a parameter block wants it.
template <class T>
uint64_t address_of(const std::shared_ptr<T[]> &buffer) {
  return reinterpret_cast<uintptr_t>(buffer.get());
}

/// A call that was refused has nothing to measure.
inline void expect_ok(_QX_RESULT result) {
  if (result == QX_OK) return;
  std::fprintf(stderr, "a measured call returned %d\n", static_cast<int>(result));
  std::exit(1);
}

/// Time of one call in nanoseconds of the measuring thread: the median of several repeats of each.
struct Times {
  double ours;
  double plain;
  double baseline;
};

/// Measures the three rows of a case in one run, their repeats interleaved. Where the build has no Google Benchmark
/// it ends the program with a message.
Times measure_times(const Workload &workload, const Calls &calls);

}  // namespace bench

/// The instruction counter counts what runs between the two marks.
extern "C" void bench_mark_begin();
extern "C" void bench_mark_end();

#endif  // TARVU_BENCH_BENCH_H
