#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/support/guarded_memory.h"
#include "tests/tensor/gathernd_case.h"
#include "tests/tensor/heap_watch.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::GuardedMemory;

/// "calloc 8, malloc 6", with frees of null pointers left out.
std::string story(const std::vector<HeapCall> &calls) {
  std::string text;
  for (const HeapCall &call : calls) {
    if (call.kind == HeapCall::kFree && call.address == nullptr) continue;
    if (!text.empty()) text += ", ";
    text += call.kind == HeapCall::kMalloc ? "malloc " : call.kind == HeapCall::kCalloc ? "calloc " : "free ";
    text += std::to_string(call.bytes);
  }
  return text;
}

struct HeapOutcome {
  _QX_RESULT result;
  std::string story;
  std::vector<uint8_t> output;
};

/// Three tuples of two coordinates on a 4 x 4 x 2 input of 16 bits: 6 elements come out. Allocation `fail_at` fails.
HeapOutcome call(_NN_FMT out_fmt, int fail_at) {
  const GuardedMemory in(64);
  const GuardedMemory index = memory_of<int8_t>({1, 2, 0, 0, 3, 3});
  const GuardedMemory out(12);
  const GuardedMemory work(24);
  in.fill(1);
  out.fill(0x77);
  _NN_GATHERND_PARM block = nd_block({{4, 4, 2}, {3, 2}, {3, 2}}, 0);
  block.in_fmt = kInt16.fmt();
  block.out_fmt = out_fmt;
  block.in_addr = in.address();
  block.ind_addr = index.address();
  block.out_addr = out.address();
  block.work_buffer = work.address();
  HeapWatch watch(fail_at);
  const _QX_RESULT result = ::tarvu_gathernd_process(&block);
  return {result, story(watch.calls()), values_in<uint8_t>(out)};
}

const std::vector<uint8_t> kUntouched(12, 0x77);

TEST(GatherNdHeap, EqualFormatsTakeTheTwoTablesAndKeepThem) {
  const HeapOutcome got = call(kInt16.fmt(), 0);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.story, "calloc 8, calloc 24");
  EXPECT_EQ(got.output, std::vector<uint8_t>(12, 1));
}

TEST(GatherNdHeap, OtherFractionBitsTakeAStagingBlockOfTheOutputsCountAndTheInputsSizeAndKeepIt) {
  const HeapOutcome got = call(kInt16.fmt(1), 0);
  EXPECT_EQ(got.result, QX_OK);
  EXPECT_EQ(got.story, "calloc 8, calloc 24, malloc 12");
}

TEST(GatherNdHeap, AnOutputOfAnotherTypeTakesAStagingBlockToo) {
  EXPECT_EQ(call(kUint16.fmt(), 0).story, "calloc 8, calloc 24, malloc 12");
  EXPECT_EQ(call(kInt8.fmt(), 0).story, "calloc 8, calloc 24, malloc 12");
  EXPECT_EQ(call(kInt32.fmt(), 0).story, "calloc 8, calloc 24, malloc 12");
}

TEST(GatherNdHeap, AnInputTypeOtherThanTheFourTakesNothing) {
  _NN_GATHERND_PARM block = nd_block({{4}, {1, 1}, {1}}, 0);
  block.in_fmt = block.ind_fmt = kInt32.fmt();
  support::StdoutCapture capture;
  HeapWatch watch;
  EXPECT_EQ(::tarvu_gathernd_process(&block), QX_ERR_UNSUPPORTED);
  EXPECT_EQ(story(watch.calls()), "");
}

TEST(GatherNdHeap, NoRoomForTheStrideTableEndsTheCall) {
  const HeapOutcome got = call(kInt16.fmt(1), 1);
  EXPECT_EQ(got.result, QX_ERR_NO_MEMORY);
  EXPECT_EQ(got.story, "calloc 8");
  EXPECT_EQ(got.output, kUntouched);
}

TEST(GatherNdHeap, NoRoomForTheIndexTableKeepsTheStrideTable) {
  const HeapOutcome got = call(kInt16.fmt(1), 2);
  EXPECT_EQ(got.result, QX_ERR_NO_MEMORY);
  EXPECT_EQ(got.story, "calloc 8, calloc 24");
  EXPECT_EQ(got.output, kUntouched);
}

TEST(GatherNdHeap, NoRoomForTheStagingBlockKeepsBothTables) {
  const HeapOutcome got = call(kInt16.fmt(1), 3);
  EXPECT_EQ(got.result, QX_ERR_NO_MEMORY);
  EXPECT_EQ(got.story, "calloc 8, calloc 24, malloc 12");
  EXPECT_EQ(got.output, kUntouched);
}

TEST(GatherNdHeap, AFailedAllocationPrintsNothing) {
  for (int fail_at = 1; fail_at <= 3; ++fail_at) {
    support::StdoutCapture capture;
    call(kInt16.fmt(1), fail_at);
    EXPECT_EQ(capture.text(), "") << fail_at;
  }
}

}  // namespace
