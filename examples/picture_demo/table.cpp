#include "table.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace demo {

namespace {

/// Widths of the columns that both tables begin with.
struct Widths {
  int name = 5, shape = 5, formats = 7;
};

Widths widths_of(const Run &run) {
  Widths widths;
  auto const widen = [](int &width, const std::string &text) {
    width = std::max(width, static_cast<int>(text.size()));
  };
  for (const Layer &layer : run.layers) {
    widen(widths.name, layer.name);
    widen(widths.shape, layer.shape);
    widen(widths.formats, layer.formats);
  }
  return widths;
}

void print_beginning(const Widths &widths, const std::string &name, const std::string &shape,
                     const std::string &formats) {
  std::printf("%-*s  %-*s  %-*s", widths.name, name.c_str(), widths.shape, shape.c_str(), widths.formats,
              formats.c_str());
}

void print_beginning(const Widths &widths, const Layer &layer) {
  print_beginning(widths, layer.name, layer.shape, layer.formats);
}

/// Head of a column of times.
std::string head_of(const Run &run) {
  return run.machine + (run.machine.empty() ? "ms" : " ms") + (run.emulated ? "*" : "");
}

void print_legend(bool emulated) {
  std::printf(
      "\n"
      "shape    batch x channel x height x width, of the input and of the output\n"
      "formats  u unsigned, s signed, then bits and fraction bits: u8.0 bytes as they are; in s8.4 a stored n means n "
      "/ 2^4;\n"
      "         in u8.-5 it means n * 2^5; f32 floats\n"
      "ms       time of one call, which may be the first to touch its memory\n");
  if (emulated) std::printf("*        under the emulator, which tells nothing of the time on a device\n");
}

}  // namespace

void write_run(const std::string &path, const Run &run) {
  std::ofstream file(path);
  file << run.machine << '\t' << run.emulated << '\n';
  for (const Layer &layer : run.layers) {
    file << layer.name << '\t' << layer.shape << '\t' << layer.formats << '\t' << layer.milliseconds << '\t'
         << layer.digest << '\n';
  }
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

Run read_run(const std::string &path) {
  std::ifstream file(path);
  Run run;
  std::string line;
  bool good = std::getline(file, run.machine, '\t') && std::getline(file, line);
  run.emulated = line == "1";
  while (good && std::getline(file, line)) {
    std::istringstream fields(line);
    Layer layer;
    good = std::getline(fields, layer.name, '\t') && std::getline(fields, layer.shape, '\t') &&
           std::getline(fields, layer.formats, '\t') && fields >> layer.milliseconds >> layer.digest;
    run.layers.push_back(layer);
  }
  if (!good) throw std::runtime_error("cannot read the layers of another run in " + path);
  return run;
}

void print_table(const Run &run) {
  Widths const widths = widths_of(run);
  std::string const head = head_of(run);
  int const time = std::max(8, static_cast<int>(head.size()));
  print_beginning(widths, "layer", "shape", "formats");
  std::printf("  %*s  digest of the output\n", time, head.c_str());
  for (const Layer &layer : run.layers) {
    print_beginning(widths, layer);
    std::printf("  %*.3f  %016" PRIx64 "\n", time, layer.milliseconds, layer.digest);
  }
  print_legend(run.emulated);
}

int print_table(const Run &first, const Run &second) {
  auto const is_same_layer = [](const Layer &a, const Layer &b) { return a.name == b.name; };
  if (!std::equal(first.layers.begin(), first.layers.end(), second.layers.begin(), second.layers.end(),
                  is_same_layer)) {
    throw std::runtime_error("the other run has other layers");
  }
  Widths const widths = widths_of(first);
  std::string const heads[2] = {head_of(first), head_of(second)};
  int times[2];
  for (size_t i = 0; i < 2; ++i) times[i] = std::max(8, static_cast<int>(heads[i].size()));
  print_beginning(widths, "layer", "shape", "formats");
  std::printf("  %*s  %*s  bits\n", times[0], heads[0].c_str(), times[1], heads[1].c_str());
  int differing = 0;
  for (size_t i = 0; i < first.layers.size(); ++i) {
    bool const equal = first.layers[i].digest == second.layers[i].digest;
    print_beginning(widths, first.layers[i]);
    std::printf("  %*.3f  %*.3f  %s\n", times[0], first.layers[i].milliseconds, times[1], second.layers[i].milliseconds,
                equal ? "equal" : "DIFFER");
    if (!equal) ++differing;
  }
  print_legend(first.emulated || second.emulated);
  std::printf("bits     equal: both machines gave the same output, bit for bit\n");
  return differing;
}

}  // namespace demo
