#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/parity/digest.h"
#include "tests/support/stdout_capture.h"

namespace {

using Digests = std::map<std::string, uint64_t>;

/// All cases, from the subsystem at `first` on and round.
Digests run_all(size_t first) {
  parity::Report report;
  constexpr size_t kCount = std::size(parity::kSubsystems);
  for (size_t i = 0; i < kCount; ++i) parity::kSubsystems[(first + i) % kCount].add_cases(report);
  return {report.entries().begin(), report.entries().end()};
}

TEST(WholeThreads, AllOperatorsOnSeveralThreadsGiveWhatTheyGiveAlone) {
  support::StdoutCapture alone_text;
  const Digests alone = run_all(0);
  const size_t text_bytes = alone_text.text().size();
  ASSERT_FALSE(alone.empty());

  // Two threads in step, so that each operator runs beside itself, and one that runs others beside them.
  const std::vector<size_t> starts = {0, 0, std::size(parity::kSubsystems) / 2};
  std::vector<Digests> together(starts.size());
  support::StdoutCapture together_text;
  {
    std::vector<std::jthread> threads;
    for (size_t t = 0; t < starts.size(); ++t) threads.emplace_back([&, t] { together[t] = run_all(starts[t]); });
  }
  EXPECT_EQ(starts.size() * text_bytes, together_text.text().size()) << "bytes printed";
  for (const Digests &digests : together) {
    ASSERT_EQ(alone.size(), digests.size());
    for (const auto &[name, value] : alone) EXPECT_EQ(value, digests.at(name)) << name;
  }
}

}  // namespace
