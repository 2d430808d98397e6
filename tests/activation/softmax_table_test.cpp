#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_softmax_table_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"

namespace {

using support::Case;
using support::Differential;
using support::Element;
using support::Fault;
using support::format;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::StdoutCapture;
using support::test_random;
using support::unreadable_address;

std::vector<int16_t> submax(const std::vector<int16_t> &in, uint8_t frac_bits) {
  std::vector<int16_t> out(in.size(), 77);
  StdoutCapture capture;
  EXPECT_EQ(::vendor_submax_s16(in.data(), out.data(), static_cast<uint32_t>(in.size()), frac_bits), 0);
  EXPECT_EQ(capture.text(), "");
  return out;
}

/// The exponential of -difference / 64.
int16_t entry(int difference) { return submax({0, static_cast<int16_t>(-difference)}, 6)[1]; }

/// A block that names nothing but what the operator reads.
_NN_SOFTMAX_PARM table_block(uint16_t channel, uint16_t batch, int frac_bits, const int16_t *in, int16_t *out) {
  _NN_SOFTMAX_PARM block{};
  block.work_buffer = unreadable_address();
  block.channel = channel;
  block.batch = batch;
  block.in_fmt = format(16, frac_bits, 1);
  block.in_addr = reinterpret_cast<uintptr_t>(in);
  block.out_addr = reinterpret_cast<uintptr_t>(out);
  return block;
}

TEST(SoftmaxTable, EveryEntryIsTheRoundedExponential) {
  for (int difference = 0; difference <= 671; ++difference) {
    const double exact = 16384.0 * std::exp(-difference / 64.0);
    ASSERT_EQ(entry(difference), std::lround(exact)) << "entry " << 671 - difference;
  }
}

TEST(SoftmaxTable, EveryDifferenceGivesTheSameInABlockAsAlone) {
  std::vector<int16_t> in(720);
  std::vector<int16_t> expected(720);
  for (int difference = 0; difference < 720; ++difference) {
    const size_t i = static_cast<size_t>(difference * 7 % 720);
    in[i] = static_cast<int16_t>(-difference);
    expected[i] = entry(difference);
  }
  EXPECT_EQ(submax(in, 6), expected);
}

TEST(SoftmaxTable, TellingEntriesHaveTheirDocumentedValues) {
  EXPECT_EQ(entry(0), 16384);
  EXPECT_EQ(entry(1), 16130);
  EXPECT_EQ(entry(11), 13797);
  EXPECT_EQ(entry(31), 10094);
  EXPECT_EQ(entry(71), 5403);
  EXPECT_EQ(entry(171), 1133);
  EXPECT_EQ(entry(271), 237);
  EXPECT_EQ(entry(371), 50);
  EXPECT_EQ(entry(471), 10);
  EXPECT_EQ(entry(571), 2);
  EXPECT_EQ(entry(665), 1);
  for (int difference = 666; difference <= 671; ++difference) EXPECT_EQ(entry(difference), 0);
}

TEST(SoftmaxTable, DifferencesBelowTheTableGiveZeroWithoutALine) {
  EXPECT_EQ(submax({0, -672, -673, -30000}, 6), (std::vector<int16_t>{16384, 0, 0, 0}));
}

TEST(SoftmaxTable, TheLargestElementAndItsTiesGiveTheWhole) {
  EXPECT_EQ(submax({-5, 7, 7, -5, 7}, 6), (std::vector<int16_t>{13583, 16384, 16384, 13583, 16384}));
}

TEST(SoftmaxTable, MoreFractionBitsAreDroppedTowardsMinusInfinity) {
  // With 8 fraction bits: 0, -1, -1, -1, -2.
  EXPECT_EQ(submax({0, -1, -3, -4, -5}, 8), (std::vector<int16_t>{16384, 16130, 16130, 16130, 15880}));
}

TEST(SoftmaxTable, FractionBitsAreAnUnsignedByteAndAWholeShiftLeavesTheSign) {
  EXPECT_EQ(submax({32767, -5, 3}, 22), (std::vector<int16_t>{16384, 16130, 16384}));
  for (int frac_bits : {38, 127, 134, 135, 142, 254, 255}) {
    EXPECT_EQ(submax({32767, -5, 3}, static_cast<uint8_t>(frac_bits)), (std::vector<int16_t>{16384, 16130, 16384}))
        << frac_bits;
    const std::vector<int16_t> blocks = submax(std::vector<int16_t>(40, -32768), static_cast<uint8_t>(frac_bits));
    EXPECT_EQ(blocks, std::vector<int16_t>(40, 16384));
  }
  const int16_t in[] = {32767, -5, 3};
  int16_t out[3] = {};
  const _NN_SOFTMAX_PARM block = table_block(3, 1, -2, in, out);
  ASSERT_EQ(::vendor_softmax_process(&block), QX_OK);
  EXPECT_EQ(out[1], 16130);
}

TEST(SoftmaxTable, FewerFractionBitsAreShiftedUpInABlockWithTheTopBitsLost) {
  // 5 fraction bits: 1 is 2, and 16385 loses its top bit twice over: 32770 is -32766.
  EXPECT_EQ(submax({0, 1, -1, 0, 0, 0, 0, -16000}, 5),
            (std::vector<int16_t>{15880, 16384, 15391, 15880, 15880, 15880, 15880, 0}));
  EXPECT_EQ(submax({16385, -16383, -16383, -16383, -16383, -16383, -16383, -16383}, 5), std::vector<int16_t>(8, 16384));
}

TEST(SoftmaxTable, SinglesOfFewerFractionBitsCollapseToZeroOrMinusOne) {
  std::vector<int16_t> in(8, 0);
  in.push_back(100);
  in.push_back(-100);
  std::vector<int16_t> expected(8, 16384);
  expected.push_back(16384);
  expected.push_back(16130);
  for (uint8_t frac_bits = 0; frac_bits < 6; ++frac_bits) EXPECT_EQ(submax(in, frac_bits), expected) << int{frac_bits};
}

TEST(SoftmaxTable, ACollapsedSingleTakesPartInTheMaximum) {
  std::vector<int16_t> in(8, -10);
  in.push_back(-100);
  std::vector<int16_t> expected(8, entry(19));
  expected.push_back(16384);
  EXPECT_EQ(submax(in, 5), expected) << "-20 in the block and -1 behind it";
}

TEST(SoftmaxTable, ATailOf6Or7HasItsFirst4ElementsGoTheBlockWayAndATailOf5HasNone) {
  const int16_t shifted = entry(20);  // of -10 with 5 fraction bits, where the maximum is 0
  const int16_t collapsed = entry(1);
  for (size_t blocks : {size_t{0}, size_t{8}, size_t{32}, size_t{40}}) {
    for (size_t tail = 1; tail <= 7; ++tail) {
      std::vector<int16_t> in(blocks + tail, -10);
      in.back() = 0;
      std::vector<int16_t> expected(blocks + tail, collapsed);
      for (size_t i = 0; i < blocks + (tail >= 6 ? 4 : 0); ++i) expected[i] = shifted;
      expected.back() = 16384;
      EXPECT_EQ(submax(in, 5), expected) << blocks << " + " << tail;
    }
  }
}

TEST(SoftmaxTable, ARangeThatWrapsEndsTheRunAndKeepsDifferencesBehindIt) {
  const std::vector<int16_t> in = {32767, 32766, -32768, 32765, -3};
  std::vector<int16_t> out(5, 77);
  StdoutCapture capture;
  const _QX_RESULT result = ::vendor_submax_s16(in.data(), out.data(), 5, 6);
  EXPECT_EQ(capture.text(), "\033[1;31mERR:vendor_submax_s16() idx 8192 over limit 8191\r\n\033[0m");
  EXPECT_EQ(result, QX_ERR_OVER_LIMIT);
  EXPECT_EQ(out, (std::vector<int16_t>{16384, 16130, 1, -2, 32766}));
}

TEST(SoftmaxTable, AnItemThatWrapsNeitherStopsTheNextNorReachesTheResult) {
  const std::vector<int16_t> in = {32767, -32768, 5, 4, -32768, 32000};
  std::vector<int16_t> out(6, 77);
  const _NN_SOFTMAX_PARM block = table_block(2, 3, 6, in.data(), out.data());
  StdoutCapture capture;
  const _QX_RESULT result = ::vendor_softmax_process(&block);
  EXPECT_EQ(capture.text(),
            "\033[1;31mERR:vendor_submax_s16() idx 8192 over limit 8191\r\n\033[0m"
            "\033[1;31mERR:vendor_submax_s16() idx 8959 over limit 8191\r\n\033[0m");
  EXPECT_EQ(result, QX_OK);
  EXPECT_EQ(out, (std::vector<int16_t>{16384, 1, 16384, 16130, 768, 0}));
}

TEST(SoftmaxTable, ABatchOf0IsReportedAheadOfAChannelOf0) {
  const std::string batch_line =
      "\033[1;31mERR:vendor_ais_checkparm() batch num should be positive, but input is 0\r\n\033[0m";
  const std::string channel_line =
      "\033[1;31mERR:vendor_ais_checkparm() channel should be positive, but input is 0\r\n\033[0m";
  const struct {
    uint16_t channel, batch;
    std::string line;
  } cases[] = {{0, 0, batch_line}, {4, 0, batch_line}, {0, 2, channel_line}};
  for (const auto &c : cases) {
    _NN_SOFTMAX_PARM block = table_block(c.channel, c.batch, 6, nullptr, nullptr);
    block.in_addr = block.out_addr = unreadable_address();
    StdoutCapture capture;
    const _QX_RESULT result = ::vendor_softmax_process(&block);
    const int32_t check = ::vendor_ais_checkparm(&block);
    EXPECT_EQ(capture.text(), c.line + c.line);
    EXPECT_EQ(result, QX_ERR_PARAM);
    EXPECT_EQ(check, 2);
  }
}

TEST(SoftmaxTable, TheCheckPassesEverythingElse) {
  _NN_SOFTMAX_PARM block{};
  block.channel = 1;
  block.batch = 1;
  block.in_fmt = format(8, 3, 0);
  EXPECT_EQ(::vendor_ais_checkparm(&block), 0);
}

/// Elements whose range lies well inside the table, or that span it, or that wrap.
void fill_elements(Random &random, const GuardedMemory &in) {
  const int32_t reach = random.pick({10, 700, 12000, 32767});
  for (size_t i = 0; i + 1 < in.size(); i += 2) {
    const int16_t value = static_cast<int16_t>(random.between(-reach - 1, reach));
    std::memcpy(in.data() + i, &value, 2);
  }
}

TEST(SoftmaxTable, EveryRunLengthAndFractionMatchesTheReference) {
  Random random = test_random(341);
  SCOPED_TRACE(random.trace());
  for (uint32_t count = 0; count <= 2 * 32 + 11; ++count) {
    for (int frac_bits : {0, 2, 4, 5, 6, 7, 9, 13, 14, 21, 22, 37, 38, 255}) {
      const Placement placement = {random.pick({Fault::kBehind, Fault::kInFront}), 1, random.below(2)};
      const GuardedMemory in(2 * count, placement), out(2 * count, placement);
      fill_elements(random, in);
      random.fill(out.data(), out.size());
      Differential run;
      run.track(in, "input", Element::k16Bit);
      run.track(out, "output", Element::k16Bit, {count, 8});
      const bool in_place = random.one_in(3);
      int16_t *to = in_place ? in.as<int16_t>() : out.as<int16_t>();
      const uint8_t fraction = static_cast<uint8_t>(frac_bits);
      ASSERT_TRUE(run.same([&] { return ::vendor_submax_s16(in.as<int16_t>(), to, count, fraction); },
                           [&] { return reference::vendor_submax_s16(in.as<int16_t>(), to, count, fraction); }))
          << count << " elements, " << frac_bits << " fraction bits" << (in_place ? ", in place" : "");
    }
  }
}

TEST(SoftmaxTable, RandomBlocksMatchTheReference) {
  Random random = test_random(342);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 200; ++i) {
    Case<_NN_SOFTMAX_PARM> table;
    random.fill(&table.block, sizeof table.block);
    table.block.channel = static_cast<uint16_t>(random.between(1, 80));
    table.block.batch = static_cast<uint16_t>(random.between(1, 4));
    table.block.in_fmt = format(16, random.pick({-2, 0, 3, 5, 6, 6, 8, 100}), 1);
    const size_t bytes = size_t{2} * table.block.channel * table.block.batch;
    const GuardedMemory in(bytes), out(bytes);
    fill_elements(random, in);
    random.fill(out.data(), out.size());
    table.attach(&_NN_SOFTMAX_PARM::in_addr, in, "input", Element::k16Bit);
    table.attach(&_NN_SOFTMAX_PARM::out_addr, out, "output", Element::k16Bit);
    if (random.one_in(3)) table.block.out_addr = table.block.in_addr;
    ASSERT_TRUE(table.same(::vendor_softmax_process, reference::vendor_softmax_process)) << "case " << i;
  }
}

}  // namespace
