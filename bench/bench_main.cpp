/// \file bench_main.cpp
/// The suite's command. One JSON line per case and row:
///   {"case": NAME, "peer": "ours", "variant": VARIANT, "unit": UNIT, "elems": N, "ns_elem": X}     in time mode
///   {"case": NAME, "peer": "ours", "variant": VARIANT, "unit": UNIT, "elems": N, "insn_elem": X}   in count mode
/// The peers are "ours", "plain" and, in time mode, "memcpy" or "memset" of the same bytes.

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fstream>

#include "bench/bench.h"

namespace {

/// What operators print must not stand between the suite's lines: it goes nowhere, and the lines to where it would
/// have gone.
FILE *take_standard_output() {
  std::fflush(stdout);
  const int lines = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY);
  if (lines < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
    std::perror("tarvu_bench: standard output");
    std::exit(1);
  }
  close(nowhere);
  return fdopen(lines, "w");
}

void pin_to_one_processor() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
  for (int last = CPU_SETSIZE - 1; last >= 0; --last) {
    if (!CPU_ISSET(last, &allowed)) continue;
    CPU_ZERO(&allowed);
    CPU_SET(last, &allowed);
    sched_setaffinity(0, sizeof allowed, &allowed);
    return;
  }
}

/// `*` stands for any run of characters.
bool matches(const char *pattern, const char *text) {
  if (*pattern == '\0') return *text == '\0';
  if (*pattern == '*') return matches(pattern + 1, text) || (*text != '\0' && matches(pattern, text + 1));
  return *pattern == *text && matches(pattern + 1, text + 1);
}

void print_line(FILE *out, const bench::Workload &workload, const char *peer, const char *key, double total) {
  std::fprintf(out,
               R"({"case": "%s", "peer": "%s", "variant": "%s", "unit": "%s", "elems": %zu, "%s": %.6g})"
               "\n",
               workload.name.c_str(), peer, workload.variant.c_str(), workload.unit.c_str(), workload.count, key,
               total / static_cast<double>(workload.count));
  std::fflush(out);
}

/// The counter's last report, which it has written by the time that bench_mark_end() returns.
double last_count(const std::string &log) {
  std::ifstream file(log);
  std::string line;
  double total = -1;
  while (std::getline(file, line)) {
    unsigned long long value = 0;
    if (std::sscanf(line.c_str(), "icount total=%llu", &value) == 1) total = static_cast<double>(value);
  }
  if (total < 0) {
    std::fprintf(stderr, "tarvu_bench: no count in %s: run under the emulator with the counting plugin\n", log.c_str());
    std::exit(1);
  }
  return total;
}

/// Counts the second of two calls: the first one has resolved symbols and touched all pages.
double count_instructions(const std::function<void()> &call, const std::string &log) {
  call();
  bench_mark_begin();
  call();
  bench_mark_end();
  return last_count(log);
}

void run_case(FILE *out, const bench::Workload &workload, const std::string &mode, const std::string &log) {
  const bench::Calls calls = workload.prepare();
  if (mode != "time") {
    print_line(out, workload, "ours", "insn_elem", count_instructions(calls.ours, log));
    if (mode == "count") print_line(out, workload, "plain", "insn_elem", count_instructions(calls.plain, log));
    return;
  }
  const bench::Times times = bench::measure_times(workload, calls);
  print_line(out, workload, "ours", "ns_elem", times.ours);
  print_line(out, workload, "plain", "ns_elem", times.plain);
  const char *baseline = workload.baseline == bench::Baseline::kMemcpy ? "memcpy" : "memset";
  print_line(out, workload, baseline, "ns_elem", times.baseline);
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("Benchmarks of the library: one JSON line per case and row");
  bool list = false;
  std::string pattern = "*";
  std::string mode = "time";
  std::string log;
  app.add_flag("--list", list, "print the names of the cases and end");
  app.add_option("--case", pattern, "run only the cases whose name matches; * stands for anything");
  app.add_option("--mode", mode,
                 "time: nanoseconds on this machine; count: instructions under the emulator; count-ours: without "
                 "the plain rows")
      ->check(CLI::IsMember({"time", "count", "count-ours"}));
  app.add_option("--count-log", log, "count modes: the file that the counting plugin writes its reports to");
  CLI11_PARSE(app, argc, argv);
  if (mode != "time" && log.empty() && !list) {
    std::fprintf(stderr, "tarvu_bench: --mode %s needs --count-log\n", mode.c_str());
    return 1;
  }

  std::vector<bench::Workload> suite;
  bench::add_convert_workloads(suite);
  bench::add_prelu_workloads(suite);
  bench::add_softmax_workloads(suite);
  bench::add_lrn_workloads(suite);
  bench::add_norm_workloads(suite);
  bench::add_layernorm_workloads(suite);
  bench::add_eltwise_workloads(suite);
  bench::add_lstm_workloads(suite);
  bench::add_fc_post_workloads(suite);
  bench::add_priorbox_workloads(suite);
  bench::add_detout_workloads(suite);
  bench::add_nms_workloads(suite);
  bench::add_pool_workloads(suite);
  bench::add_reverse_workloads(suite);
  bench::add_permute_workloads(suite);
  bench::add_topk_workloads(suite);
  bench::add_gather_workloads(suite);
  bench::add_gathernd_workloads(suite);
  bench::add_gatherelement_workloads(suite);
  bench::add_onehot_workloads(suite);
  bench::add_gridsample_workloads(suite);

  FILE *out = take_standard_output();
  pin_to_one_processor();
  bool found = false;
  for (const bench::Workload &workload : suite) {
    if (!matches(pattern.c_str(), workload.name.c_str())) continue;
    found = true;
    if (list) {
      std::fprintf(out, "%s %s\n", workload.name.c_str(), workload.variant.c_str());
    } else {
      run_case(out, workload, mode, log);
    }
  }
  std::fclose(out);
  if (!found) std::fprintf(stderr, "tarvu_bench: no case matches %s\n", pattern.c_str());
  return found ? 0 : 1;
}
