#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/detection/small_stack.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"
#include "tests/support/stdout_capture.h"

namespace {

TEST(WholeStack, EveryOperatorRunsOnAStackOf64KiB) {
  parity::Report on_small_stack;
  parity::Report on_usual_stack;
  {
    support::StdoutCapture capture;
    for (const parity::Subsystem &subsystem : parity::kSubsystems) {
      small_stack::run([&] { subsystem.add_cases(on_small_stack); });
    }
    for (const parity::Subsystem &subsystem : parity::kSubsystems) subsystem.add_cases(on_usual_stack);
  }
  EXPECT_EQ(on_usual_stack.entries(), on_small_stack.entries());
}

/// The longest line: the selection's recursion is the deepest.
TEST(WholeStack, TopKSortsTheLongestLineOnAStackOf64KiB) {
  constexpr uint16_t kLine = 65535;
  support::Random random(1601);
  std::vector<int16_t> in(kLine), values(kLine), indices(kLine);
  std::vector<uint32_t> work(kLine);
  random.fill(in.data(), in.size() * sizeof in[0]);
  _NN_TOPK_PARM parm{};
  parm.in_addr = reinterpret_cast<uintptr_t>(in.data());
  parm.out_addr = reinterpret_cast<uintptr_t>(values.data());
  parm.out_index_addr = reinterpret_cast<uintptr_t>(indices.data());
  parm.work_buffer = reinterpret_cast<uintptr_t>(work.data());
  parm.width = kLine;
  parm.height = parm.channel = parm.batch = 1;
  parm.in_fmt = support::format(16, 4, 1);
  parm.axis = 3;
  parm.largest = parm.sorted = 1;
  parm.k = kLine;
  int32_t result = QX_ERR_PARAM;
  small_stack::run([&] { result = tarvu_topk_process(&parm); });
  EXPECT_EQ(QX_OK, result);
  for (size_t i = 1; i < values.size(); ++i) ASSERT_GE(values[i - 1], values[i]) << i;
}

/// Fills its frame from the top down, as a call chain does. The assembly makes compilers keep all of the frame.
__attribute__((noinline)) int descend(int frames) {
  uint8_t frame[4096];
  frame[0] = static_cast<uint8_t>(frames);
  __asm__ volatile("" : : "r"(frame) : "memory");
  return frames == 0 ? frame[0] : descend(frames - 1) + frame[0];
}

/// How a child process ends that goes down by `frames` frames of 4 KiB.
int status_after(int frames) {
  const pid_t child = fork();
  if (child == 0) {
    small_stack::run([frames] { descend(frames); });
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  return status;
}

TEST(WholeStack, AnOverflowOfTheStackIsSeen) {
  const int within = status_after(8);
  EXPECT_TRUE(WIFEXITED(within) && WEXITSTATUS(within) == 0);
  const int beyond = status_after(17);
  EXPECT_FALSE(WIFEXITED(beyond) && WEXITSTATUS(beyond) == 0);
}

}  // namespace
