#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/stdout_capture.h"
#include "tests/tensor/permute_check.h"

namespace {

using permute_check::dense_block;
using permute_check::Extents;
using permute_check::Order;
using support::format;
using support::GuardedMemory;

using Bytes = std::vector<uint8_t>;

/// Runs the block over input bytes; returns `out_bytes` output bytes that were 0xEE before.
Bytes permuted(_NN_PERMUTE_PARM parm, const Bytes &input, size_t out_bytes) {
  const GuardedMemory in(input.size());
  const GuardedMemory out(out_bytes);
  std::copy(input.begin(), input.end(), in.data());
  out.fill(0xEE);
  parm.in_addr = in.address();
  parm.out_addr = out.address();
  support::StdoutCapture capture;
  const _QX_RESULT result = tarvu_permute_process(&parm);
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(result, QX_OK);
  EXPECT_EQ(out.guard_damage(), "");
  return {out.data(), out.data() + out_bytes};
}

Bytes counting(size_t count) {
  Bytes values(count);
  for (size_t i = 0; i < count; ++i) values[i] = static_cast<uint8_t>(i);
  return values;
}

TEST(Permute, SwapsChannelAndHeightByWholeLines) {
  EXPECT_EQ(permuted(dense_block({1, 2, 3, 2}, {0, 2, 1, 3}), counting(12), 12),
            (Bytes{0, 1, 6, 7, 2, 3, 8, 9, 4, 5, 10, 11}));
}

TEST(Permute, SwapsHeightAndWidthElementByElement) {
  EXPECT_EQ(permuted(dense_block({1, 1, 2, 3}, {0, 1, 3, 2}), counting(6), 6), (Bytes{0, 3, 1, 4, 2, 5}));
}

TEST(Permute, MakesPlanesOfInterleavedElementsAndBack) {
  const Bytes planes = {0, 1, 2, 3, 10, 11, 12, 13};
  const Bytes interleaved = {0, 10, 1, 11, 2, 12, 3, 13};
  EXPECT_EQ(permuted(dense_block({1, 2, 2, 2}, {0, 2, 3, 1}), planes, 8), interleaved);
  EXPECT_EQ(permuted(dense_block({1, 2, 2, 2}, {0, 3, 1, 2}), interleaved, 8), planes);
}

TEST(Permute, MovesSixteenBitElementsWhole) {
  EXPECT_EQ(permuted(dense_block({1, 1, 2, 2}, {0, 1, 3, 2}, format(16, 8, 1)), counting(8), 8),
            (Bytes{0, 1, 4, 5, 2, 3, 6, 7}));
}

TEST(Permute, TheBatchAxisCanMoveToo) {
  EXPECT_EQ(permuted(dense_block({2, 3, 1, 1}, {1, 0, 2, 3}), counting(6), 6), (Bytes{0, 3, 1, 4, 2, 5}));
  EXPECT_EQ(permuted(dense_block({2, 1, 1, 3}, {3, 1, 2, 0}), counting(6), 6), (Bytes{0, 3, 1, 4, 2, 5}));
}

TEST(Permute, OffsetsLeaveTheBytesBetweenLinesAsTheyWere) {
  _NN_PERMUTE_PARM parm = dense_block({1, 1, 2, 2}, {0, 1, 3, 2});
  parm.in_line_ofs = 3;
  parm.out_line_ofs = 4;
  EXPECT_EQ(permuted(parm, counting(5), 8), (Bytes{0, 3, 0xEE, 0xEE, 1, 4, 0xEE, 0xEE}));
  parm = dense_block({1, 2, 1, 2}, {0, 2, 1, 3});
  parm.in_channel_ofs = 3;
  parm.out_line_ofs = 4;
  EXPECT_EQ(permuted(parm, counting(5), 8), (Bytes{0, 1, 0xEE, 0xEE, 3, 4, 0xEE, 0xEE}));
}

TEST(Permute, ElementsOfOnePlaceHoldWhatWasWrittenLast) {
  _NN_PERMUTE_PARM parm = dense_block({1, 1, 2, 3}, {0, 1, 3, 2});
  parm.out_line_ofs = 1;
  EXPECT_EQ(permuted(parm, counting(6), 5), (Bytes{0, 1, 2, 5, 0xEE}));
  parm.out_line_ofs = 0;
  EXPECT_EQ(permuted(parm, counting(6), 3), (Bytes{2, 5, 0xEE}));
}

TEST(Permute, LinesOfOnePlaceHoldWhatWasWrittenLast) {
  _NN_PERMUTE_PARM parm = dense_block({1, 2, 2, 3}, {0, 2, 1, 3});
  parm.out_line_ofs = 1;
  parm.out_channel_ofs = 0;
  EXPECT_EQ(permuted(parm, counting(12), 5), (Bytes{3, 9, 10, 11, 0xEE}));
}

TEST(Permute, ARepeatedAxisIsWalkedInLockStep) {
  EXPECT_EQ(permuted(dense_block({1, 1, 2, 2}, {0, 2, 2, 3}), counting(6), 8), (Bytes{0, 1, 2, 3, 2, 3, 4, 5}));
  EXPECT_EQ(permuted(dense_block({1, 1, 2, 2}, {0, 1, 2, 2}), counting(5), 4), (Bytes{0, 2, 2, 4}));
  EXPECT_EQ(permuted(dense_block({1, 1, 1, 2}, {3, 3, 3, 2}), counting(4), 8), (Bytes{0, 1, 1, 2, 1, 2, 2, 3}));
}

TEST(Permute, AnExtentThatTheOrderLeavesOutIsNotLookedAt) {
  EXPECT_EQ(permuted(dense_block({0, 1, 1, 2}, {1, 1, 2, 3}), counting(2), 2), (Bytes{0, 1}));
  EXPECT_EQ(permuted(dense_block({0, 1, 2, 1}, {1, 1, 3, 2}), counting(2), 2), (Bytes{0, 1}));
}

TEST(Permute, AnExtentOfZeroWritesNothing) {
  for (const Order &order : {Order{0, 1, 2, 3}, Order{0, 2, 1, 3}, Order{0, 2, 3, 1}, Order{3, 2, 1, 0}}) {
    for (size_t zero = 0; zero < 4; ++zero) {
      Extents extents = {2, 2, 2, 2};
      extents[zero] = 0;
      _NN_PERMUTE_PARM parm = dense_block(extents, order);
      parm.in_line_ofs = parm.out_line_ofs = 2;
      parm.in_channel_ofs = parm.out_channel_ofs = 4;
      parm.in_batch_ofs = parm.out_batch_ofs = 8;
      EXPECT_EQ(permuted(parm, counting(16), 16), Bytes(16, 0xEE)) << "zero extent " << zero;
      parm.out_fmt = format(8, 5, 1);
      EXPECT_EQ(permuted(parm, counting(16), 16), Bytes(16, 0xEE)) << "zero extent " << zero;
    }
  }
}

TEST(Permute, ReformatsLinesWithSaturation) {
  _NN_PERMUTE_PARM parm = dense_block({1, 2, 1, 2}, {0, 2, 1, 3}, format(8, 2, 1));
  parm.out_fmt = format(8, 4, 1);
  EXPECT_EQ(permuted(parm, {100, 0x9C, 1, 0xFF}, 4), (Bytes{127, 0x80, 4, 0xFC}));
}

TEST(Permute, ReformatsElementsToAWiderAndANarrowerOutput) {
  _NN_PERMUTE_PARM parm = dense_block({1, 1, 2, 2}, {0, 1, 3, 2}, format(8, 4, 1));
  parm.out_fmt = format(16, 4, 1);
  parm.out_line_ofs = 4;
  EXPECT_EQ(permuted(parm, {0xFF, 2, 3, 0x80}, 8), (Bytes{0xFF, 0xFF, 3, 0, 2, 0, 0x80, 0xFF}));
  parm = dense_block({1, 1, 2, 2}, {0, 1, 3, 2}, format(16, 4, 1));
  parm.out_fmt = format(8, 4, 1);
  parm.out_line_ofs = 2;
  EXPECT_EQ(permuted(parm, {0xFF, 0xFF, 0x2C, 0x01, 3, 0, 0, 0x80}, 4), (Bytes{0xFF, 3, 127, 0x80}));
}

TEST(Permute, RecordsThatDifferInTheirReservedByteAloneGiveTheSameElements) {
  for (const Order &order : {Order{0, 2, 1, 3}, Order{0, 2, 3, 1}}) {
    for (const int bits : {8, 16}) {
      _NN_PERMUTE_PARM parm = dense_block({1, 2, 3, 4}, order, format(bits, 4, 1, 1));
      const Bytes input = counting(static_cast<size_t>(3 * bits));
      const Bytes equal = permuted(parm, input, input.size());
      parm.out_fmt.fmt_reserved = 2;
      EXPECT_EQ(permuted(parm, input, input.size()), equal);
    }
  }
}

TEST(Permute, RecordsThatDifferInSignAndIntegerBitsAloneGiveTheSameElements) {
  for (const Order &order : {Order{0, 2, 1, 3}, Order{0, 2, 3, 1}}) {
    _NN_PERMUTE_PARM parm = dense_block({1, 2, 3, 4}, order, format(8, 4, 1));
    const Bytes input = {0xFF, 0x80, 0x7F, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21};
    const Bytes equal = permuted(parm, input, input.size());
    parm.out_fmt = format(8, 4, 0);
    EXPECT_EQ(permuted(parm, input, input.size()), equal);
  }
}

TEST(Permute, LinesOfThirtyTwoBitElementsInEqualRecordsAreCopied) {
  EXPECT_EQ(permuted(dense_block({1, 2, 1, 1}, {0, 2, 1, 3}, format(32, 16, 1)), counting(8), 8), counting(8));
  EXPECT_EQ(permuted(dense_block({2, 2, 1, 1}, {1, 0, 2, 3}, format(32, 16, 0)), counting(16), 16),
            (Bytes{0, 1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12, 13, 14, 15}));
}

TEST(Permute, LinesOfThirtyTwoBitElementsInDifferentRecordsAreNotWritten) {
  _NN_PERMUTE_PARM parm = dense_block({1, 2, 1, 1}, {0, 2, 1, 3}, format(32, 16, 1));
  for (const _NN_FMT &out_fmt : {format(32, 16, 1, 9), format(32, 15, 1), format(32, 16, 0), format(16, 16, 1)}) {
    parm.out_fmt = out_fmt;
    EXPECT_EQ(permuted(parm, counting(8), 8), Bytes(8, 0xEE));
  }
}

TEST(Permute, LinesInEqualRecordsOfAnyWidthAreCopiedByWholeBytes) {
  const struct {
    _NN_FMT fmt;
    size_t bytes;
  } cases[] = {{format(24, 4, 1), 3},
               {format(12, 4, 1), 1},
               {format(7, 4, 1), 0},
               {format(0, 0, 0), 0},
               {{127, 127, 10, 0}, 33}};
  for (const auto &c : cases) {
    _NN_PERMUTE_PARM parm = dense_block({1, 1, 1, 2}, {0, 2, 1, 3}, c.fmt);
    Bytes expected(70, 0xEE);
    const Bytes input = counting(2 * c.bytes);
    std::copy(input.begin(), input.end(), expected.begin());
    EXPECT_EQ(permuted(parm, input, 70), expected) << c.bytes << " bytes an element";
  }
}

TEST(Permute, LinesWhoseWidthsAreEightOnlyModulo256AreReformatted) {
  _NN_PERMUTE_PARM parm = dense_block({1, 1, 1, 2}, {0, 2, 1, 3}, {127, 127, 10, 0});
  parm.out_fmt = format(8, 126, 1);
  EXPECT_EQ(permuted(parm, {100, 0x9C}, 4), (Bytes{50, 0xCE, 0xEE, 0xEE}));
}

TEST(Permute, TheScalesHaveNoEffect) {
  for (const Order &order : {Order{0, 2, 1, 3}, Order{0, 1, 3, 2}}) {
    _NN_PERMUTE_PARM parm = dense_block({1, 1, 1, 3}, order);
    parm.out_line_ofs = order[3] == 3 ? 3 : 1;
    parm.in_scale = support::scale(3, 7);
    parm.out_scale = support::scale(-1000, -2);
    EXPECT_EQ(permuted(parm, {1, 2, 3}, 3), (Bytes{1, 2, 3}));
    parm.out_fmt = format(8, 5, 1);
    EXPECT_EQ(permuted(parm, {1, 2, 3}, 3), (Bytes{2, 4, 6}));
  }
}

TEST(Permute, TheIdentityInPlaceWithEqualRecordsWritesNothing) {
  constexpr size_t kBytes = 4096;
  void *memory = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  std::memset(memory, 0x5A, kBytes);
  ASSERT_EQ(mprotect(memory, kBytes, PROT_READ), 0);  // from here on a write ends the test
  for (const int bits : {8, 16, 32}) {
    _NN_PERMUTE_PARM parm = dense_block({2, 3, 4, 5}, {0, 1, 2, 3}, format(bits, 4, 1));
    parm.in_addr = parm.out_addr = reinterpret_cast<uintptr_t>(memory);
    EXPECT_EQ(tarvu_permute_process(&parm), QX_OK);
  }
  munmap(memory, kBytes);
}

TEST(Permute, TheIdentityWithinOneTensorMovesLinesInTheOrderOfTheWalk) {
  // Each line goes where the walk has been already, and its own bytes overlap.
  const GuardedMemory memory(13);
  for (size_t i = 0; i < memory.size(); ++i) memory.data()[i] = static_cast<uint8_t>(i);
  _NN_PERMUTE_PARM parm = dense_block({1, 1, 3, 3}, {0, 1, 2, 3});
  parm.in_line_ofs = 5;
  parm.out_line_ofs = 3;
  parm.in_addr = parm.out_addr = memory.address();
  EXPECT_EQ(tarvu_permute_process(&parm), QX_OK);
  EXPECT_EQ(Bytes(memory.data(), memory.data() + 9), (Bytes{0, 1, 2, 5, 6, 7, 10, 11, 12}));
}

TEST(Permute, TheIdentityToALaterPlaceOfItsOwnTensorReadsWhatItHasWritten) {
  const GuardedMemory memory(10);
  for (size_t i = 0; i < memory.size(); ++i) memory.data()[i] = static_cast<uint8_t>(i);
  _NN_PERMUTE_PARM parm = dense_block({1, 1, 4, 2}, {0, 1, 2, 3});
  parm.in_addr = memory.address();
  parm.out_addr = memory.address() + 2;
  EXPECT_EQ(tarvu_permute_process(&parm), QX_OK);
  EXPECT_EQ(Bytes(memory.data(), memory.data() + 10), (Bytes{0, 1, 0, 1, 0, 1, 0, 1, 0, 1}));
}

TEST(Permute, OffsetsAreUnsigned) {
  constexpr size_t kRange = 0xA0000000u;
  constexpr uint32_t kFarItem = 0x90000000u;
  const auto map = [] {
    return static_cast<uint8_t *>(
        mmap(nullptr, kRange, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  };
  uint8_t *in = map();
  uint8_t *out = map();
  ASSERT_NE(in, MAP_FAILED);
  ASSERT_NE(out, MAP_FAILED);
  std::memcpy(in, "abcd", 4);
  std::memcpy(in + kFarItem, "efgh", 4);
  const struct {
    Order order;
    const char *near, *far;
  } cases[] = {{{0, 2, 1, 3}, "abcd", "efgh"}, {{0, 1, 3, 2}, "acbd", "egfh"}};
  for (const auto &c : cases) {
    _NN_PERMUTE_PARM parm = dense_block({2, 1, 2, 2}, c.order);
    parm.in_addr = reinterpret_cast<uintptr_t>(in);
    parm.out_addr = reinterpret_cast<uintptr_t>(out);
    parm.in_batch_ofs = parm.out_batch_ofs = kFarItem;
    EXPECT_EQ(tarvu_permute_process(&parm), QX_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 4), c.near);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out) + kFarItem, 4), c.far);
  }
  munmap(in, kRange);
  munmap(out, kRange);
}

/// Expects the call to be refused with this line and to touch no tensor: both are unreadable.
void expect_refused(_NN_PERMUTE_PARM parm, const std::string &what, int type) {
  parm.in_addr = parm.out_addr = support::unreadable_address();
  support::StdoutCapture capture;
  const _QX_RESULT result = tarvu_permute_process(&parm);
  EXPECT_EQ(capture.text(), "\033[1;31mERR:tarvu_permute_process() unsupported " + what + " type " +
                                std::to_string(type) + "\r\n\033[0m");
  EXPECT_EQ(result, QX_ERR_UNSUPPORTED);
}

TEST(Permute, AnUnsupportedInputFormatPrintsItsLineWhereTheWidthMoves) {
  for (const Order &order : {Order{0, 1, 3, 2}, Order{0, 2, 3, 1}, Order{3, 2, 1, 0}, Order{3, 3, 3, 2}}) {
    for (const _NN_FMT &out_fmt : {format(8, 4, 1), format(16, 4, 0), format(24, 4, 1), format(32, 4, 1)}) {
      _NN_PERMUTE_PARM parm = dense_block({2, 2, 2, 2}, order);
      parm.out_fmt = out_fmt;
      parm.in_fmt = format(32, 16, 1);
      expect_refused(parm, "input", 4);
      parm.in_fmt = format(32, 16, 0);
      expect_refused(parm, "input", 4);
      parm.in_fmt = format(24, 16, 1);
      expect_refused(parm, "input", -1);
      parm.in_fmt = {127, 127, 10, 0};
      expect_refused(parm, "input", -1);
    }
  }
}

TEST(Permute, AnUnsupportedOutputFormatPrintsItsLineWhereTheWidthMoves) {
  for (const Order &order : {Order{0, 1, 3, 2}, Order{0, 2, 3, 1}, Order{3, 2, 1, 0}}) {
    for (const _NN_FMT &in_fmt : {format(8, 4, 1), format(8, 4, 0), format(16, 4, 1), format(16, 4, 0)}) {
      _NN_PERMUTE_PARM parm = dense_block({2, 2, 2, 2}, order, in_fmt);
      parm.out_fmt = format(24, 4, 1);
      expect_refused(parm, "output", -1);
      parm.out_fmt = format(32, 4, 0);
      expect_refused(parm, "output", 4);
    }
  }
}

TEST(Permute, AnEmptyTensorOfAnUnsupportedFormatIsStillAFailureWhereTheWidthMoves) {
  _NN_PERMUTE_PARM parm = dense_block({0, 0, 0, 0}, {0, 1, 3, 2});
  parm.out_fmt = format(24, 4, 1);
  expect_refused(parm, "output", -1);
}

TEST(Permute, ItsLineKeepsItsPlaceAmongTheCallersOwnOutput) {
  _NN_PERMUTE_PARM parm = dense_block({1, 1, 1, 1}, {0, 1, 3, 2}, format(32, 16, 1));
  support::StdoutCapture capture;
  std::printf("before,");
  tarvu_permute_process(&parm);
  std::printf("after");
  EXPECT_EQ(capture.text(), "before,\033[1;31mERR:tarvu_permute_process() unsupported input type 4\r\n\033[0mafter");
}

}  // namespace
