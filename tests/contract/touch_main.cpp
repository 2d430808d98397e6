// Holds the ranges of random calls against the bytes that the emulator saw loaded and stored (touch_plugin.c):
//   tarvu_touch --report=FILE --window=ADDRESS,BYTES [--cases=N] [--seed=S] [--first=CASE] [--maker=NAME]
// Exit code 1 with the first difference of each maker.
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/cases/cases.h"
#include "tests/support/stdout_capture.h"

extern "C" __attribute__((noinline, used)) void touch_mark_begin() { __asm__ volatile("" : : "r"(1) : "memory"); }
extern "C" __attribute__((noinline, used)) void touch_mark_end() { __asm__ volatile("" : : "r"(2) : "memory"); }

namespace {

/// Memory at a place that the plugin knows.
struct Window {
  uint8_t *data;
  size_t bytes;
};

enum : uint8_t { kMayRead = 1, kMustRead = 2, kMayWrite = 4, kMustWrite = 8, kWasRead = 16, kWasWritten = 32 };

/// What is expected of every byte of the window, and what happened to it.
using Bytes = std::vector<uint8_t>;

/// Two pieces never touch, so that an access behind one of them is seen.
constexpr size_t kGap = 96;

/// Lays the pieces out one behind the other; 0 if they do not fit, else the bytes of the window that are used.
size_t lay_out(cases::Case &made, fuzz::Source &source, const Window &window) {
  if (!cases::hold_contents(made)) return 0;
  const auto ranges = cases::ranges_of(made.call, TARVU_CONTRACT_READ_CONTENTS);
  for (const auto &range : ranges) {
    if (cases::element_count(range, 8u << 20) > 8u << 20) return 0;
  }
  const auto pieces = cases::pieces_of(ranges);
  // What is not used lies at the end of the window, where the plugin looks.
  cases::set_unused_addresses(made, pieces, reinterpret_cast<uintptr_t>(window.data + window.bytes - kGap));
  size_t at = kGap;
  for (const cases::Piece &piece : pieces) {
    if (made.in_place != nullptr && std::strcmp(piece.field, made.in_place) == 0) continue;
    const bool shares = made.in_place_of != nullptr && std::strcmp(piece.field, made.in_place_of) == 0;
    int64_t low = piece.low;
    int64_t high = piece.high;
    for (const cases::Piece &other : pieces) {
      if (!shares || std::strcmp(other.field, made.in_place) != 0) continue;
      low = std::min(low, other.low);
      high = std::max(high, other.high);
    }
    at = (at + 15) / 16 * 16 + fuzz::below(source, 16) / piece.alignment * piece.alignment;
    const auto bytes = static_cast<size_t>(high - low);
    if (bytes > window.bytes || at + bytes + 2 * kGap > window.bytes) return 0;
    const uint64_t address = reinterpret_cast<uintptr_t>(window.data + at) - static_cast<uint64_t>(low);
    cases::set_address(made, piece.field, address);
    if (shares) cases::set_address(made, made.in_place, address);
    support::Random(fuzz::below(source, 1000)).fill(window.data + at, bytes);
    cases::put_contents(made, {piece.field, low, high, piece.alignment}, window.data + at);
    at += bytes + kGap;
  }
  return at;
}

void expect_ranges(Bytes &bytes, const Window &window, const std::vector<tarvu_contract_range> &ranges) {
  for (const auto &range : ranges) {
    uint8_t flags = 0;
    if (!cases::is_laid_out(range)) continue;
    if (range.role == TARVU_CONTRACT_READS) {
      flags = range.exact != 0 ? kMayRead | kMustRead : kMayRead;
    } else {
      flags = range.exact != 0 ? kMayRead | kMayWrite | kMustWrite : kMayRead | kMayWrite;
    }
    cases::for_each_element(range, [&](uint64_t address) {
      const uint64_t at = address - reinterpret_cast<uintptr_t>(window.data);
      for (uint32_t i = 0; i < range.element_bytes; ++i) bytes[at + i] |= flags;
    });
  }
}

/// The call at hand, for the handler of a fault. Standard output may be captured at this moment.
std::string running;

void report_fault(int) {
  const ssize_t written = write(STDERR_FILENO, running.data(), running.size());
  _exit(written > 0 ? 1 : 2);
}

std::string replay_of(const tarvu_contract_call &call, const char *maker, uint64_t seed, uint64_t number) {
  char text[4096];
  tarvu_contract_describe(&call, text, sizeof text);
  return std::string(text) + "  replay: --maker=" + maker + " --seed=" + std::to_string(seed) +
         " --first=" + std::to_string(number) + " --cases=1\n";
}

/// What the plugin reported for the last call.
bool read_report(std::FILE *report, const Window &window, Bytes &bytes) {
  uint64_t words[3];
  while (std::fread(words, sizeof words, 1, report) == 1) {
    if (words[1] == 0) return true;
    const uint64_t at = words[0] - reinterpret_cast<uintptr_t>(window.data);
    for (uint64_t i = 0; i < words[1]; ++i) bytes[at + i] |= words[2] != 0 ? kWasWritten : kWasRead;
  }
  return false;
}

/// The field whose piece holds a byte, with the byte's distance from its address.
std::string place_of(const Window &window, size_t at, const std::vector<tarvu_contract_range> &ranges) {
  const uint64_t address = reinterpret_cast<uintptr_t>(window.data) + at;
  const tarvu_contract_range *nearest = nullptr;
  for (const auto &range : ranges) {
    if (!cases::is_laid_out(range) || range.address + static_cast<uint64_t>(range.offset) > address + kGap) continue;
    if (nearest == nullptr || range.address > nearest->address) nearest = &range;
  }
  if (nearest == nullptr) return "byte " + std::to_string(at) + " of the window";
  return std::string(nearest->field) + " + " + std::to_string(static_cast<int64_t>(address - nearest->address));
}

std::string difference_of(const Window &window, const Bytes &bytes, const std::vector<tarvu_contract_range> &ranges) {
  for (size_t i = 0; i < bytes.size(); ++i) {
    const uint8_t byte = bytes[i];
    const char *what = nullptr;
    if ((byte & kWasWritten) != 0 && (byte & kMayWrite) == 0) what = " was written";
    if ((byte & kWasRead) != 0 && (byte & kMayRead) == 0) what = " was read";
    if ((byte & kMustWrite) != 0 && (byte & kWasWritten) == 0) what = " was not written";
    if ((byte & kMustRead) != 0 && (byte & kWasRead) == 0) what = " was not read";
    if (what != nullptr) return place_of(window, i, ranges) + what;
  }
  return {};
}

/// Empty if ranges and bytes agree.
std::string check_call(const tarvu_contract_call &call, const Window &window, std::FILE *report, Bytes &bytes) {
  const auto ranges = cases::ranges_of(call, TARVU_CONTRACT_READ_CONTENTS);
  std::fill(bytes.begin(), bytes.end(), uint8_t{0});
  expect_ranges(bytes, window, ranges);
  {
    support::StdoutCapture capture;
    touch_mark_begin();
    cases::invoke(call);
    touch_mark_end();
  }
  if (!read_report(report, window, bytes)) return "the plugin reported nothing";
  return difference_of(window, bytes, ranges);
}

struct Options {
  std::string report;
  Window window = {};
  uint64_t cases = 200;
  uint64_t seed = 1;
  uint64_t first = 0;
  std::string maker;
};

bool read_options(int argc, char **argv, Options &options) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : argument.substr(equals + 1);
    if (name == "--report") {
      options.report = value;
    } else if (name == "--window") {
      options.window.data = reinterpret_cast<uint8_t *>(std::strtoull(value.c_str(), nullptr, 0));
      options.window.bytes = std::strtoull(value.c_str() + value.find(',') + 1, nullptr, 0);
    } else if (name == "--cases") {
      options.cases = std::strtoull(value.c_str(), nullptr, 0);
    } else if (name == "--seed") {
      options.seed = std::strtoull(value.c_str(), nullptr, 0);
    } else if (name == "--first") {
      options.first = std::strtoull(value.c_str(), nullptr, 0);
    } else if (name == "--maker") {
      options.maker = value;
    } else {
      std::fprintf(stderr, "unknown argument %s\n", argv[i]);
      return false;
    }
  }
  return !options.report.empty() && options.window.data != nullptr;
}

bool has_undefined(const tarvu_contract_call &call) {
  const auto findings = cases::findings_of(call, TARVU_CONTRACT_READ_CONTENTS);
  return std::any_of(findings.begin(), findings.end(),
                     [](const auto &finding) { return finding.kind == TARVU_CONTRACT_UNDEFINED; });
}

/// False at the first difference.
bool check_maker(const cases::Maker &maker, const Options &options, std::FILE *report, Bytes &bytes) {
  uint64_t run = 0;
  for (uint64_t number = options.first; number < options.first + options.cases; ++number) {
    fuzz::Source source = fuzz::source_of_seed(options.seed * 0x9E3779B97F4A7C15u + number * 0xD1342543DE82EF95u);
    cases::Case made;
    maker.draw(source, made);
    if (lay_out(made, source, options.window) == 0 || has_undefined(made.call)) continue;
    running = std::string(maker.name) + ": memory outside the window was touched\n" +
              replay_of(made.call, maker.name, options.seed, number);
    const std::string difference = check_call(made.call, options.window, report, bytes);
    ++run;
    if (difference.empty()) continue;
    std::printf("%s: %s\n%s", maker.name, difference.c_str(),
                replay_of(made.call, maker.name, options.seed, number).c_str());
    return false;
  }
  std::printf("%s: %llu of %llu calls run, every byte as told\n", maker.name, static_cast<unsigned long long>(run),
              static_cast<unsigned long long>(options.cases));
  return options.cases < 20 || run * 3 >= options.cases;
}

}  // namespace

int main(int argc, char **argv) {
  Options options;
  if (!read_options(argc, argv, options)) return 2;
  const int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE;
  if (mmap(options.window.data, options.window.bytes, PROT_READ | PROT_WRITE, flags, -1, 0) != options.window.data) {
    std::perror("window");
    return 2;
  }
  std::FILE *report = std::fopen(options.report.c_str(), "rb");
  if (report == nullptr) {
    std::perror(options.report.c_str());
    return 2;
  }
  struct sigaction action = {};
  action.sa_handler = report_fault;
  sigaction(SIGSEGV, &action, nullptr);
  Bytes bytes(options.window.bytes);
  bool all_as_told = true;
  for (const cases::Maker &maker : cases::all_makers()) {
    if (options.maker.empty() || options.maker == maker.name) all_as_told &= check_maker(maker, options, report, bytes);
  }
  std::fclose(report);
  return all_as_told ? 0 : 1;
}
