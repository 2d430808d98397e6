// Random cases of every operator, product against twin, for as long as asked:
//   tarvu_differential --operator=NAME|all --seconds=60 | --cases=N  [--seed=S] [--first=CASE] [--names=FILE] [--list]
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <string_view>

#include "tests/fuzz/operators.h"
#include "tests/fuzz/trial.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kLongestCaseSeconds = 120;

struct Options {
  std::string operator_name = "all";
  double seconds = 0.0;
  uint64_t cases = 0;
  uint64_t seed = 1;
  uint64_t first = 0;
  std::string names;  ///< list of exported names to be reached
  bool list = false;
};

/// Where the run is, for the handler of a fault.
struct Place {
  const char *operator_name;
  uint64_t seed;
  uint64_t number;
};
Place place;

void print_replay(FILE *out) {
  std::fprintf(out, "  replay: --operator=%s --seed=%llu --first=%llu --cases=1\n", place.operator_name,
               static_cast<unsigned long long>(place.seed), static_cast<unsigned long long>(place.number));
}

/// A call that left its memory or did not return. Standard output may be captured at this moment.
void report_fault(int number) {
  std::fprintf(stderr, "%s: %s\n", place.operator_name,
               number == SIGALRM ? "the case does not end" : "access to memory that the call may not touch");
  print_replay(stderr);
  _exit(1);
}

/// Every operator, seed and case number has a generator of its own.
uint64_t seed_of_case(uint64_t seed, std::string_view name, uint64_t number) {
  uint64_t hash = 0xCBF29CE484222325u;  // FNV-1a
  for (const char c : name) hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3u;
  return (hash ^ seed) * 0x9E3779B97F4A7C15u + number * 0xD1342543DE82EF95u;
}

struct Tally {
  uint64_t cases = 0;
  uint64_t differences = 0;
};

/// Runs cases until the budget is used up or ten of them have differed.
Tally run_operator(const fuzz::Operator &op, const Options &options) {
  Tally tally;
  const Clock::time_point start = Clock::now();
  for (uint64_t number = options.first;; ++number) {
    if (options.cases != 0 ? tally.cases == options.cases
                           : std::chrono::duration<double>(Clock::now() - start).count() >= options.seconds) {
      return tally;
    }
    place = {op.name, options.seed, number};
    alarm(kLongestCaseSeconds);
    fuzz::Source source = fuzz::source_of_seed(seed_of_case(options.seed, op.name, number));
    const std::string difference = op.run(source);
    ++tally.cases;
    if (difference.empty()) continue;
    ++tally.differences;
    std::printf("%s: %s\n", op.name, difference.c_str());
    print_replay(stdout);
    if (tally.differences == 10) return tally;
  }
}

bool read_option(const char *argument, const char *name, std::string &value) {
  const size_t length = std::strlen(name);
  if (std::strncmp(argument, name, length) != 0) return false;
  value = argument + length;
  return true;
}

bool read_options(int argc, char **argv, Options &options) {
  for (int i = 1; i < argc; ++i) {
    std::string value;
    if (std::strcmp(argv[i], "--list") == 0) {
      options.list = true;
    } else if (read_option(argv[i], "--operator=", value)) {
      options.operator_name = value;
    } else if (read_option(argv[i], "--seconds=", value)) {
      options.seconds = std::strtod(value.c_str(), nullptr);
    } else if (read_option(argv[i], "--cases=", value)) {
      options.cases = std::strtoull(value.c_str(), nullptr, 0);
    } else if (read_option(argv[i], "--seed=", value)) {
      options.seed = std::strtoull(value.c_str(), nullptr, 0);
    } else if (read_option(argv[i], "--first=", value)) {
      options.first = std::strtoull(value.c_str(), nullptr, 0);
    } else if (read_option(argv[i], "--names=", value)) {
      options.names = value;
    } else {
      return false;
    }
  }
  return options.list || options.cases != 0 || options.seconds > 0.0;
}

/// Counts the functions that an operator claims and its cases did not call, and those they called without a claim.
int wrong_claims(const fuzz::Operator &op) {
  int wrong = 0;
  const std::set<std::string_view> claimed(op.functions.begin(), op.functions.end());
  for (const std::string_view name : claimed) {
    if (fuzz::called_names().contains(name)) continue;
    std::printf("%s: no case has called %s\n", op.name, std::string(name).c_str());
    ++wrong;
  }
  for (const std::string_view name : fuzz::called_names()) {
    if (claimed.contains(name)) continue;
    std::printf("%s: calls %s, which its list lacks\n", op.name, std::string(name).c_str());
    ++wrong;
  }
  return wrong;
}

/// Counts the names of the list ("+ name") that no operator has.
int missing_names(const std::string &path, const std::set<std::string_view> &reached) {
  std::ifstream in(path);
  if (!in) {
    std::printf("cannot read %s\n", path.c_str());
    return 1;
  }
  int missing = 0;
  size_t listed = 0;
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with("+ ")) continue;
    ++listed;
    if (reached.contains(std::string_view(line).substr(2))) continue;
    std::printf("%s: no operator calls it\n", line.c_str() + 2);
    ++missing;
  }
  std::printf("%zu of %zu exported functions called\n", listed - static_cast<size_t>(missing), listed);
  return listed == 0 ? 1 : missing;
}

}  // namespace

int main(int argc, char **argv) {
  Options options;
  if (!read_options(argc, argv, options)) {
    std::fputs(
        "usage: tarvu_differential --operator=NAME|all --seconds=S|--cases=N [--seed=S] [--first=CASE] [--names=FILE]\n"
        "       tarvu_differential --list\n",
        stderr);
    return 2;
  }
  for (const int number : {SIGSEGV, SIGBUS, SIGALRM}) signal(number, report_fault);
  std::set<std::string_view> reached;
  Tally all;
  int wrong = 0;
  size_t run = 0;
  for (const fuzz::Family &family : fuzz::all_families()) {
    for (const fuzz::Operator &op : family.operators) {
      if (options.operator_name != "all" && options.operator_name != op.name) continue;
      ++run;
      if (options.list) {
        std::printf("%-10s %-18s", family.name, op.name);
        for (const std::string_view name : op.functions) std::printf(" %s", std::string(name).c_str());
        std::printf("\n");
        continue;
      }
      fuzz::called_names().clear();
      const Tally tally = run_operator(op, options);
      std::printf("%-18s %10llu cases, %llu differences\n", op.name, static_cast<unsigned long long>(tally.cases),
                  static_cast<unsigned long long>(tally.differences));
      std::fflush(stdout);
      all.cases += tally.cases;
      all.differences += tally.differences;
      if (!options.names.empty()) wrong += wrong_claims(op);
      reached.insert(op.functions.begin(), op.functions.end());
    }
  }
  if (run == 0) {
    std::fprintf(stderr, "no operator has the name %s\n", options.operator_name.c_str());
    return 2;
  }
  if (options.list) return 0;
  std::printf("%zu operators, %llu cases, %llu differences\n", run, static_cast<unsigned long long>(all.cases),
              static_cast<unsigned long long>(all.differences));
  if (!options.names.empty()) wrong += missing_names(options.names, reached);
  return all.differences != 0 || wrong != 0 ? 1 : 0;
}
