/// \file sweep_main.cpp
/// The sweep's command: calls every case once between the marks of the instruction counter, which writes one line for
/// each pair of marks, and prints one line of tab-separated fields in the same order:
///   case OPERATOR KIND SHAPE EXTENT UNIT UNITS FIXED EXTRA NEIGHBOUR FACTOR FIGURE LIMIT WHY
///   calls                                  the case before, by its other calls
///   doubling OPERATOR AXIS ONCE TWICE      nothing is called
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <set>

#include "bench/bench.h"
#include "bench/sweep/sweep.h"

namespace {

struct Operator {
  const char *name;
  void (*add_cases)(sweep::Cases &);
};

constexpr Operator kOperators[] = {
    {"reformat", sweep::add_reformat_cases},
    {"convert", sweep::add_convert_cases},
    {"convert_nd", sweep::add_convert_nd_cases},
    {"permute_data", sweep::add_permute_data_cases},
    {"prelu", sweep::add_prelu_cases},
    {"softmax", sweep::add_softmax_cases},
    {"softmax_table", sweep::add_softmax_table_cases},
    {"lrn", sweep::add_lrn_cases},
    {"norm", sweep::add_norm_cases},
    {"layernorm", sweep::add_layernorm_cases},
    {"eltwise", sweep::add_eltwise_cases},
    {"lstm", sweep::add_lstm_cases},
    {"fc_post", sweep::add_fc_post_cases},
    {"priorbox", sweep::add_priorbox_cases},
    {"detout", sweep::add_detout_cases},
    {"nms", sweep::add_nms_cases},
    {"pool", sweep::add_pool_cases},
    {"reverse", sweep::add_reverse_cases},
    {"permute", sweep::add_permute_cases},
    {"topk", sweep::add_topk_cases},
    {"gather", sweep::add_gather_cases},
    {"gathernd", sweep::add_gathernd_cases},
    {"gatherelement", sweep::add_gatherelement_cases},
    {"onehot", sweep::add_onehot_cases},
    {"gridsample", sweep::add_gridsample_cases},
};

/// What operators print goes nowhere, the sweep's lines to where it would have gone.
FILE *take_standard_output() {
  std::fflush(stdout);
  const int lines = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY);
  if (lines < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
    std::perror("tarvu_sweep: standard output");
    std::exit(1);
  }
  close(nowhere);
  return fdopen(lines, "w");
}

/// The second of two calls: the first one has resolved symbols.
void count(const sweep::Call &call) {
  call();
  bench_mark_begin();
  call();
  bench_mark_end();
}

void run(FILE *out, const char *name, const sweep::Case &what) {
  {
    sweep::Arena arena;
    count(what.make(arena));
  }
  std::fprintf(out, "case\t%s\t%s\t%s\t%u\t%s\t%.9g\t%.9g\t%.9g\t%s\t%.9g\t%.9g\t%.9g\t%s\n", name, what.kind.c_str(),
               what.shape.c_str(), what.extent, what.unit.c_str(), what.units, what.fixed, what.extra,
               what.neighbour.c_str(), what.factor, what.figure, what.limit, what.why.c_str());
  if (what.calls) {
    sweep::Arena arena;
    count(what.calls(arena));
    std::fprintf(out, "calls\n");
  }
}

std::set<std::string> lines_of(const std::string &path) {
  std::set<std::string> lines;
  std::ifstream file(path);
  if (!file) {
    std::fprintf(stderr, "tarvu_sweep: %s cannot be read\n", path.c_str());
    std::exit(1);
  }
  for (std::string line; std::getline(file, line);) lines.insert(line);
  return lines;
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("The sweep over small blocks of every operator: one line for each case");
  std::vector<std::string> operators;
  std::string names;
  bool list = false;
  app.add_option("--operator", operators, "only these operators");
  app.add_option("--names", names, "only the cases of this file, whose lines are \"OPERATOR: KIND, SHAPE\"");
  app.add_flag("--list", list, "print the operators and end");
  CLI11_PARSE(app, argc, argv);

  FILE *out = take_standard_output();
  const std::set<std::string> wanted = names.empty() ? std::set<std::string>() : lines_of(names);
  size_t found = 0;
  for (const Operator &each : kOperators) {
    if (list) std::fprintf(out, "%s\n", each.name);
    if (list || (!operators.empty() && std::find(operators.begin(), operators.end(), each.name) == operators.end())) {
      continue;
    }
    sweep::Cases cases;
    each.add_cases(cases);
    for (const sweep::Case &what : cases.cases) {
      if (!names.empty() && !wanted.contains(std::string(each.name) + ": " + what.name())) continue;
      ++found;
      run(out, each.name, what);
    }
    if (!names.empty()) continue;
    for (const sweep::Cases::Doubling &each_doubling : cases.doublings) {
      std::fprintf(out, "doubling\t%s\t%s\t%s\t%s\n", each.name, each_doubling.axis.c_str(), each_doubling.once.c_str(),
                   each_doubling.twice.c_str());
    }
  }
  std::fclose(out);
  if (!list && found == 0) std::fprintf(stderr, "tarvu_sweep: no case is found\n");
  return list || found != 0 ? 0 : 1;
}
