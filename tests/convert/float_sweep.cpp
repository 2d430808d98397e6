/// \file float_sweep.cpp
/// Holds every conversion of floats to integers against its twin over a range of all 2^32 bit patterns, each pattern
/// once in a block and once in a tail. Run by hand: all patterns of one step take minutes.
///   float_sweep [--first=0x0] [--last=0xFFFFFFFF] [--stride=1] [--only=TEXT] [--frac_bits=0] [--scale=1.0]
///               [--zero_point=0] [--list]
/// --only takes the steps whose names hold the text. A step is a kernel, for the rounded ones with the code behind a
/// slash: "floattoint8_rnd_neon/3". One line a step goes to standard error; the exit code is 1 if any pattern differs.
/// What the kernels print is dropped, since some print a line a block.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "tests/convert/conversion_kernels.h"

namespace {

using convert_tests::Kernel;
using convert_tests::Settings;

struct Range {
  uint64_t first = 0;
  uint64_t last = 0xFFFFFFFF;
  uint64_t stride = 1;
};

struct Step {
  std::string name;
  Kernel kernel;
  Settings settings;
};

constexpr uint32_t kChunk = 5040 * 16;  // a multiple of 7, 8, 15 and 16

std::vector<Step> all_steps(const Settings &settings) {
  std::vector<Step> steps;
  for (const Kernel &kernel : convert_tests::kFlatToInteger) steps.push_back({kernel.name, kernel, settings});
  for (const Kernel &kernel : convert_tests::kRounded) {
    for (uint32_t code = 0; code <= 11; ++code) {
      Settings with_code = settings;
      with_code.rounding_code = code;
      steps.push_back({std::string(kernel.name) + "/" + std::to_string(code), kernel, with_code});
    }
  }
  for (const Kernel &kernel : convert_tests::kZeroPointToInteger) steps.push_back({kernel.name, kernel, settings});
  return steps;
}

/// Converts the chunk in runs of `run` elements and returns the number of elements that differ.
uint64_t differences(const Step &step, const std::vector<uint32_t> &bits, uint32_t run, const char *part, bool report) {
  static std::vector<uint8_t> ours(kChunk * 4);
  static std::vector<uint8_t> expected(kChunk * 4);
  const size_t width = step.kernel.destination_bytes;
  const auto count = static_cast<uint32_t>(bits.size());
  for (uint32_t i = 0; i < count; i += run) {
    step.kernel.product(&bits[i], &ours[i * width], std::min(run, count - i), step.settings);
    step.kernel.reference(&bits[i], &expected[i * width], std::min(run, count - i), step.settings);
  }
  if (std::memcmp(ours.data(), expected.data(), count * width) == 0) return 0;
  uint64_t different = 0;
  for (size_t i = 0; i < count; ++i) {
    if (std::memcmp(&ours[i * width], &expected[i * width], width) == 0) continue;
    if (report && different == 0) {
      uint32_t product = 0;
      uint32_t reference = 0;
      std::memcpy(&product, &ours[i * width], width);
      std::memcpy(&reference, &expected[i * width], width);
      std::fprintf(stderr, "%s in a %s: pattern 0x%08x gives 0x%x, the twin 0x%x\n", step.name.c_str(), part, bits[i],
                   product, reference);
    }
    ++different;
  }
  return different;
}

/// Returns whether all patterns of the range agree.
bool sweep(const Step &step, const Range &range) {
  uint64_t patterns = 0;
  uint64_t different_in_blocks = 0;
  uint64_t different_in_tails = 0;
  std::vector<uint32_t> bits;
  bits.reserve(kChunk);
  uint64_t next = range.first;
  while (next <= range.last) {
    bits.clear();
    for (; next <= range.last && bits.size() < kChunk; next += range.stride) {
      bits.push_back(static_cast<uint32_t>(next));
    }
    patterns += bits.size();
    while (bits.size() % step.kernel.block != 0) bits.push_back(bits.back());
    different_in_blocks +=
        differences(step, bits, static_cast<uint32_t>(bits.size()), "block", different_in_blocks == 0);
    different_in_tails += differences(step, bits, step.kernel.block - 1, "tail", different_in_tails == 0);
  }
  std::fprintf(stderr, "%s: %llu patterns, %llu differ in blocks, %llu in tails\n", step.name.c_str(),
               static_cast<unsigned long long>(patterns), static_cast<unsigned long long>(different_in_blocks),
               static_cast<unsigned long long>(different_in_tails));
  return patterns != 0 && different_in_blocks == 0 && different_in_tails == 0;
}

/// Whether the argument is `name`=value; the value is returned in `value`.
bool is_option(std::string_view argument, std::string_view name, const char *&value) {
  if (!argument.starts_with(name) || argument.size() <= name.size() || argument[name.size()] != '=') return false;
  value = argument.data() + name.size() + 1;
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  Range range;
  Settings settings;
  std::string only;
  bool list = false;
  for (int i = 1; i < argc; ++i) {
    const char *value = nullptr;
    const std::string_view argument = argv[i];
    if (is_option(argument, "--first", value)) {
      range.first = std::strtoull(value, nullptr, 0);
    } else if (is_option(argument, "--last", value)) {
      range.last = std::min<uint64_t>(std::strtoull(value, nullptr, 0), 0xFFFFFFFF);
    } else if (is_option(argument, "--stride", value)) {
      range.stride = std::max<uint64_t>(std::strtoull(value, nullptr, 0), 1);
    } else if (is_option(argument, "--only", value)) {
      only = value;
    } else if (is_option(argument, "--frac_bits", value)) {
      settings.frac_bits = static_cast<int16_t>(std::strtol(value, nullptr, 0));
    } else if (is_option(argument, "--scale", value)) {
      settings.scale = std::strtof(value, nullptr);
    } else if (is_option(argument, "--zero_point", value)) {
      settings.zero_point = static_cast<int32_t>(std::strtol(value, nullptr, 0));
    } else if (argument == "--list") {
      list = true;
    } else {
      std::fprintf(stderr, "%s: unknown argument\n", argv[i]);
      return 2;
    }
  }
  if (!list && std::freopen("/dev/null", "w", stdout) == nullptr) {
    std::perror("/dev/null");
    return 2;
  }
  int steps = 0;
  bool all_agree = true;
  for (const Step &step : all_steps(settings)) {
    if (step.name.find(only) == std::string::npos) continue;
    ++steps;
    if (list) {
      std::puts(step.name.c_str());
    } else {
      all_agree = sweep(step, range) && all_agree;
    }
  }
  if (steps == 0) {
    std::fprintf(stderr, "no step has \"%s\" in its name\n", only.c_str());
    return 2;
  }
  return all_agree ? 0 : 1;
}
