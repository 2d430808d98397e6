/// \file digest_main.cpp
/// Prints a digest of each operator's output over a fixed set of cases, one a line: `name digest`.
///   tarvu_digest                  prints all
///   tarvu_digest --compare FILE   compares them with a file of the same form; fails on any difference
/// tests/parity/digests.txt is what both targets are held to. It changes only where an operator's results are meant
/// to change, or where cases are added.

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "tests/parity/digest.h"
#include "tests/support/stdout_capture.h"

namespace {

/// Runs a subsystem's cases; what they print is an entry of its own.
void run(parity::Report &report, const std::string &subsystem, void (*add_cases)(parity::Report &)) {
  support::StdoutCapture capture;
  add_cases(report);
  const std::string text = capture.text();
  parity::Digest digest;
  digest.bytes(text.data(), text.size());
  report.add(subsystem + "_printed_text", digest);
}

int compare(const parity::Report &report, const char *path) {
  std::ifstream file(path);
  if (!file) {
    std::fprintf(stderr, "tarvu_digest: %s cannot be read\n", path);
    return 1;
  }
  std::map<std::string, std::string> expected;
  for (std::string name, value; file >> name >> value;) expected[name] = value;
  int differences = 0;
  for (const auto &[name, digest] : report.entries()) {
    char value[17];
    std::snprintf(value, sizeof value, "%016" PRIx64, digest);
    const auto line = expected.find(name);
    const std::string known = line == expected.end() ? "none" : line->second;
    if (known != value) {
      std::printf("%s: %s here, %s in the file\n", name.c_str(), value, known.c_str());
      ++differences;
    }
    if (line != expected.end()) expected.erase(line);
  }
  for (const auto &[name, value] : expected) {
    std::printf("%s: none here, %s in the file\n", name.c_str(), value.c_str());
    ++differences;
  }
  std::printf("%zu digests, %d differences\n", report.entries().size(), differences);
  return differences == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  parity::Report report;
  run(report, "activation", parity::add_activation_cases);
  run(report, "convert", parity::add_convert_cases);
  run(report, "detection", parity::add_detection_cases);
  run(report, "resample", parity::add_resample_cases);
  run(report, "norm", parity::add_norm_cases);
  run(report, "pool", parity::add_pool_cases);
  run(report, "select", parity::add_select_cases);
  run(report, "softmax", parity::add_softmax_cases);
  run(report, "tensor", parity::add_tensor_cases);
  if (argc == 3 && std::strcmp(argv[1], "--compare") == 0) return compare(report, argv[2]);
  if (argc != 1) {
    std::fprintf(stderr, "usage: tarvu_digest [--compare FILE]\n");
    return 2;
  }
  for (const auto &[name, digest] : report.entries()) std::printf("%s %016" PRIx64 "\n", name.c_str(), digest);
  return 0;
}
