// Calls of every maker against the product: what is refused, what is printed, and that nothing but the ranges is touched.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <string>

#include "tests/cases/cases.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/stdout_capture.h"

namespace {

using support::GuardedMemory;

constexpr uint64_t kSeed = 20240611;

/// Named on standard error if the call faults.
std::string running;

void report_fault(int) {
  const ssize_t written = write(STDERR_FILENO, running.data(), running.size());
  _exit(written > 0 ? 1 : 2);
}

/// A call in memory of its own: every field's piece ends, or begins, at a page that faults.
struct Laid {
  std::deque<GuardedMemory> memories;
  std::vector<cases::Piece> pieces;
  bool fits = true;
};

Laid lay_out(cases::Case &made, fuzz::Source &source) {
  Laid laid;
  laid.fits = cases::hold_contents(made);
  if (!laid.fits) return laid;
  laid.pieces = cases::pieces_of(cases::ranges_of(made.call, TARVU_CONTRACT_READ_CONTENTS));
  for (const cases::Piece &piece : laid.pieces) laid.fits &= piece.high - piece.low <= cases::kTooMuch;
  if (!laid.fits) return laid;
  cases::set_unused_addresses(made, laid.pieces, support::unreadable_address());
  for (const cases::Piece &piece : laid.pieces) {
    const auto fault = fuzz::one_of(source, {support::Fault::kBehind, support::Fault::kInFront});
    const support::Placement placement{fault, piece.alignment, 0};
    laid.memories.emplace_back(static_cast<size_t>(piece.high - piece.low), placement);
    support::Random(fuzz::below(source, 1000)).fill(laid.memories.back().data(), laid.memories.back().size());
    cases::put_contents(made, piece, laid.memories.back().data());
    cases::set_address(made, piece.field, laid.memories.back().address() - static_cast<uint64_t>(piece.low));
  }
  return laid;
}

bool has_kind(const std::vector<tarvu_contract_finding> &findings, int32_t kind) {
  return std::any_of(findings.begin(), findings.end(), [=](const auto &finding) { return finding.kind == kind; });
}

/// Every byte outside the ranges that are written is as it was.
std::string stray_write(const Laid &laid, const std::vector<std::vector<uint8_t>> &before,
                        const std::vector<tarvu_contract_range> &ranges) {
  for (size_t i = 0; i < laid.memories.size(); ++i) {
    const GuardedMemory &memory = laid.memories[i];
    std::vector<bool> may_change(memory.size());
    for (const tarvu_contract_range &range : ranges) {
      const bool written = range.role != TARVU_CONTRACT_READS && range.role != TARVU_CONTRACT_PARAMETER;
      if (!written || std::strcmp(range.field, laid.pieces[i].field) != 0) continue;
      cases::for_each_element(range, [&](uint64_t address) {
        for (uint32_t k = 0; k < range.element_bytes; ++k) may_change[address - memory.address() + k] = true;
      });
    }
    for (size_t k = 0; k < memory.size(); ++k) {
      if (!may_change[k] && memory.data()[k] != before[i][k]) {
        return std::string(laid.pieces[i].field) + ": byte " + std::to_string(k) + " was written";
      }
    }
    if (!memory.guard_damage().empty()) return memory.guard_damage();
  }
  return {};
}

/// Skips `line` in `printed` from `at` on, a %d being any number; false if it is not there.
bool skip_line(const std::string &printed, size_t &at, const char *line) {
  size_t next = at;
  for (; *line != 0; ++line) {
    if (line[0] == '%' && line[1] == 'd') {
      const size_t digits = printed.find_first_not_of("-0123456789", next);
      if (digits == next) return false;
      next = std::min(digits, printed.size());
      ++line;
    } else if (next == printed.size() || printed[next++] != *line) {
      return false;
    }
  }
  at = next;
  return true;
}

bool has_line(const tarvu_contract_finding &finding, const char *line) { return std::strcmp(finding.line, line) == 0; }

/// Whether the findings' lines were printed, those that are told at least once each, and nothing else.
bool is_as_told(const std::string &printed, const std::vector<tarvu_contract_finding> &findings) {
  size_t at = 0;
  for (const tarvu_contract_finding &finding : findings) {
    if (finding.line[0] == 0) continue;
    for (uint32_t i = 0; i < finding.line_times; ++i) {
      if (!skip_line(printed, at, finding.line)) return false;
    }
    const auto same = [&](const auto &other) { return has_line(other, finding.line); };
    if (std::count_if(findings.begin(), findings.end(), same) > 1) continue;  // each of them stands for one
    while (finding.kind == TARVU_CONTRACT_TOLD && skip_line(printed, at, finding.line)) {
    }
  }
  return at == printed.size();
}

struct Count {
  uint32_t run = 0;
  uint32_t refused = 0;
};

void check_call(cases::Case &made, fuzz::Source &source, Count &count) {
  const Laid laid = lay_out(made, source);
  if (!laid.fits) return;
  const auto findings = cases::findings_of(made.call, TARVU_CONTRACT_READ_CONTENTS);
  if (has_kind(findings, TARVU_CONTRACT_UNDEFINED)) return;
  const auto ranges = cases::ranges_of(made.call, TARVU_CONTRACT_READ_CONTENTS);
  for (const auto &range : ranges) {
    if (cases::element_count(range, 8u << 20) > 8u << 20) return;
  }
  std::vector<std::vector<uint8_t>> before;
  for (const GuardedMemory &memory : laid.memories) {
    before.emplace_back(memory.data(), memory.data() + memory.size());
  }
  char text[4096];
  tarvu_contract_describe(&made.call, text, sizeof text);
  running += text;
  support::StdoutCapture capture;
  const int64_t result = cases::invoke(made.call);
  const std::string printed = capture.text();
  int64_t expected_result = 0;
  for (const tarvu_contract_finding &finding : findings) {
    if (finding.kind == TARVU_CONTRACT_REFUSED) expected_result = finding.result;
  }
  ASSERT_TRUE(is_as_told(printed, findings)) << printed << "\n" << running;
  const tarvu_contract_function_info *info = tarvu_contract_function_info_of(made.call.function);
  if (info->result == TARVU_CONTRACT_S32 && std::strcmp(info->name, "nms_process_c") != 0) {
    ASSERT_EQ(result, expected_result) << running;
  }
  ASSERT_EQ(stray_write(laid, before, ranges), "") << running;
  count.run += 1;
  count.refused += expected_result != 0 ? 1 : 0;
}

class ContractCalls : public testing::TestWithParam<cases::Maker> {};

TEST_P(ContractCalls, ARefusalIsToldIfAndOnlyIfTheProductRefusesAndNothingIsTouchedOutsideTheRanges) {
  struct sigaction action = {};
  action.sa_handler = report_fault;
  struct sigaction previous;
  sigaction(SIGSEGV, &action, &previous);
  Count count;
  constexpr uint32_t kCases = 400;
  for (uint32_t number = 0; number < kCases && !HasFatalFailure(); ++number) {
    fuzz::Source source = fuzz::source_of_seed(kSeed + number);
    cases::Case made;
    GetParam().draw(source, made);
    running = "faulted or failed: case " + std::to_string(number) + " of " + GetParam().name + "\n";
    check_call(made, source, count);
  }
  sigaction(SIGSEGV, &previous, nullptr);
  EXPECT_GT(count.run, kCases / 2) << "too few of the cases could be run";
}

INSTANTIATE_TEST_SUITE_P(All, ContractCalls, testing::ValuesIn(cases::all_makers().begin(), cases::all_makers().end()),
                         [](const auto &parameter) { return std::string(parameter.param.name); });

/// Random bytes as a block and as arguments: the library answers, whatever they are.
TEST(ContractAnswers, AnyBytesGiveAnswersForEveryFunction) {
  support::Random random(5);
  for (int32_t function = 0; function < tarvu_contract_function_count(); ++function) {
    const tarvu_contract_function_info *info = tarvu_contract_function_info_of(function);
    for (int round = 0; round < 200; ++round) {
      std::vector<uint64_t> block((info->block_bytes + 7) / 8);
      random.fill(block.data(), block.size() * 8);
      if (round % 2 == 0) {  // plausible small numbers, extremes among them
        for (uint64_t &word : block)
          word = random.pick<uint64_t>({0, 0x0001000100010001, ~uint64_t{0}, 0x0000000800000008});
      }
      const std::vector<uint64_t> records(8, random.next());
      tarvu_contract_call call = {function, 0, {}};
      for (uint32_t i = 0; i < info->argument_count; ++i) {
        const bool is_record = info->arguments[i].type == TARVU_CONTRACT_ADDRESS;
        call.argument[i] = is_record ? reinterpret_cast<uintptr_t>(records.data()) : random.next();
      }
      if (info->block != nullptr) call.argument[0] = reinterpret_cast<uintptr_t>(block.data());
      const auto ranges = cases::ranges_of(call, 0);
      const auto findings = cases::findings_of(call, 0);
      char text[4096];
      ASSERT_LT(tarvu_contract_describe(&call, text, sizeof text), sizeof text);
      for (const auto &finding : findings) {
        ASSERT_LT(std::strlen(finding.sentence) + 1, sizeof finding.sentence) << finding.id << " is cut off";
        ASSERT_LT(std::strlen(finding.line) + 1, sizeof finding.line) << finding.id << " is cut off";
      }
      for (const auto &range : ranges) {
        ASSERT_GE(range.extent_count, 1u);
        ASSERT_LE(range.extent_count, uint32_t{TARVU_CONTRACT_EXTENTS});
      }
    }
  }
}

}  // namespace
