#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/activation/lrn_cases.h"
#include "tests/reference/tarvu_lrn_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"

namespace {

using lrn_cases::float_block;
using lrn_cases::Shape;
using support::Case;
using support::Element;
using support::Fault;
using support::format;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::scale;
using support::StdoutCapture;
using support::test_random;
using support::unreadable_address;

const std::string kOddLine =
    "\033[1;31mERR:tarvu_lrn_process() LRN only supports odd values for local_size!\r\n\033[0m";

int width_in_bits(const _NN_FMT &fmt) { return fmt.frac_bits + fmt.int_bits + fmt.sign_bits; }

uint32_t element_bytes(const _NN_FMT &fmt) { return width_in_bits(fmt) == 8 ? 1 : width_in_bits(fmt) == 16 ? 2 : 4; }

Element element(const _NN_FMT &fmt) {
  return element_bytes(fmt) == 1 ? Element::k8Bit : element_bytes(fmt) == 2 ? Element::k16Bit : Element::kFloat;
}

/// Floats in and out, one item.
std::vector<float> lrn(_NN_LRN_PARM block, const std::vector<float> &in) {
  const Shape shape = {block.width, block.height, block.channel, 1};
  const GuardedMemory scratch(lrn_cases::scratch_bytes(shape, block.local_size));
  std::vector<float> out(in.size(), -77.0f);
  block.in_addr = reinterpret_cast<uintptr_t>(in.data());
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = scratch.address();
  EXPECT_EQ(::tarvu_lrn_process(&block), QX_OK);
  EXPECT_EQ(scratch.guard_damage(), "");
  return out;
}

TEST(Lrn, AlphaIsDividedByTheWindow) {
  _NN_LRN_PARM block = float_block({1, 1, 1, 1}, 5);
  block.alpha = 10.0f;
  block.lrn_k = 3;
  EXPECT_EQ(lrn(block, {2.0f})[0], 2.0f * ::fast_Pow(11.0f, -0.75f)) << "2 * (3 / 2 + 4)";
}

TEST(Lrn, FloatsAreReadAtTheAdvancingAddressesWithoutAScale) {
  _NN_LRN_PARM block = float_block({1, 1, 1, 2}, 1);
  std::vector<float> in = {1.0f, 99.0f, 3.0f}, out(4, -77.0f), scratch(16);
  block.in_batch_ofs = 8;
  block.out_batch_ofs = 12;
  block.in_scale = scale(5, 0);
  block.out_scale = scale(7, 0);
  block.in_addr = reinterpret_cast<uintptr_t>(in.data());
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  ASSERT_EQ(::tarvu_lrn_process(&block), QX_OK);
  EXPECT_EQ(out, (std::vector<float>{::fast_Pow(2.0f, -0.75f), -77.0f, -77.0f, 3.0f * ::fast_Pow(10.0f, -0.75f)}));
}

TEST(Lrn, BatchOffsetsAddUpIn64Bits) {
  constexpr uint64_t kHalf = uint64_t{1} << 31;
  constexpr size_t kPage = 65536;
  void *space = mmap(nullptr, 2 * kHalf + kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(space, MAP_FAILED);
  auto *items = static_cast<uint8_t *>(space);
  for (uint64_t b = 0; b < 3; ++b) {
    ASSERT_EQ(mprotect(items + b * kHalf, kPage, PROT_READ | PROT_WRITE), 0);
    const float value = static_cast<float>(b + 1);
    std::memcpy(items + b * kHalf, &value, sizeof value);
  }
  _NN_LRN_PARM block = float_block({1, 1, 1, 3}, 1);
  std::vector<float> out(3, -77.0f), scratch(9);
  block.in_batch_ofs = static_cast<uint32_t>(kHalf);
  block.in_addr = reinterpret_cast<uintptr_t>(items);
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  EXPECT_EQ(::tarvu_lrn_process(&block), QX_OK);
  munmap(space, 2 * kHalf + kPage);
  EXPECT_EQ(out, (std::vector<float>{::fast_Pow(2.0f, -0.75f), 2.0f * ::fast_Pow(5.0f, -0.75f),
                                     3.0f * ::fast_Pow(10.0f, -0.75f)}));
}

TEST(Lrn, IntegersAreConvertedWithTheirScales) {
  _NN_LRN_PARM block = float_block({1, 1, 1, 1}, 1);
  int8_t in = 4;
  uint16_t out = 0;
  std::vector<float> scratch(4);
  block.in_fmt = format(8, 2, 1);
  block.in_scale = scale(3, 0);
  block.out_fmt = format(16, 4, 0);
  block.out_scale = scale(125, 0);
  block.in_addr = reinterpret_cast<uintptr_t>(&in);
  block.out_addr = reinterpret_cast<uintptr_t>(&out);
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  ASSERT_EQ(::tarvu_lrn_process(&block), QX_OK);
  EXPECT_EQ(out, static_cast<uint16_t>(3.0f * ::fast_Pow(10.0f, -0.75f) * 2000.0f));
}

TEST(Lrn, AnySignButZeroIsSigned) {
  _NN_LRN_PARM block = float_block({1, 1, 1, 1}, 1);
  const int8_t in = -1;
  int8_t out = 0;
  std::vector<float> scratch(4);
  block.in_fmt = format(8, 0, 2);
  block.out_fmt = format(8, 6, 3);
  block.in_addr = reinterpret_cast<uintptr_t>(&in);
  block.out_addr = reinterpret_cast<uintptr_t>(&out);
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  ASSERT_EQ(::tarvu_lrn_process(&block), QX_OK);
  EXPECT_EQ(out, static_cast<int8_t>(-64.0f * ::fast_Pow(2.0f, -0.75f)));
}

TEST(Lrn, ABatchAbove1ConvertsTheWholeTensorsCountForEveryItem) {
  // Two items of one element: the second conversion to integers reaches one element past the end of the tensor. What
  // it finds there is the float behind the last scratch array.
  _NN_LRN_PARM block = float_block({1, 1, 1, 2}, 1);
  block.in_fmt = format(16, 0, 1);
  block.out_fmt = format(16, 8, 1);
  block.in_batch_ofs = 2;
  block.out_batch_ofs = 2;
  const std::vector<int16_t> in = {1, 3, 5};
  std::vector<int16_t> out = {77, 77, 77, 77};
  std::vector<float> scratch(6, 9.0f);
  ASSERT_EQ(lrn_cases::scratch_bytes({1, 1, 1, 2}, 1), 4 * scratch.size());
  block.in_addr = reinterpret_cast<uintptr_t>(in.data());
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  ASSERT_EQ(::tarvu_lrn_process(&block), QX_OK);
  EXPECT_EQ(out[0], static_cast<int16_t>(256.0f * ::fast_Pow(2.0f, -0.75f)));
  EXPECT_EQ(out[1], static_cast<int16_t>(256.0f * 3.0f * ::fast_Pow(10.0f, -0.75f)));
  EXPECT_EQ(out[2], 9 * 256);
  EXPECT_EQ(out[3], 77);
}

TEST(Lrn, AnEvenWindowIsRefusedAheadOfAllElse) {
  for (uint32_t local_size : {0u, 2u, 4u, 0xFFFFFFFEu}) {
    _NN_LRN_PARM block = float_block({0, 1, 1, 1}, local_size);
    block.beta = 0.0f;
    block.in_addr = block.out_addr = block.work_buffer = unreadable_address();
    StdoutCapture capture;
    const _QX_RESULT result = ::tarvu_lrn_process(&block);
    EXPECT_EQ(capture.text(), kOddLine) << local_size;
    EXPECT_EQ(result, QX_ERR_PARAM);
  }
}

TEST(Lrn, AZeroExtentOrAPowerTermNotAbove0PrintsItsLineAndWritesNothing) {
  struct Refusal {
    void (*plant)(_NN_LRN_PARM &);
    const char *values;
  };
  const Refusal refusals[] = {
      {[](_NN_LRN_PARM &b) { b.batch = 0; }, "0x4x2x3(num x channels x width x height),5x0.750000x1.000000"},
      {[](_NN_LRN_PARM &b) { b.channel = 0; }, "1x0x2x3(num x channels x width x height),5x0.750000x1.000000"},
      {[](_NN_LRN_PARM &b) { b.width = 0; }, "1x4x0x3(num x channels x width x height),5x0.750000x1.000000"},
      {[](_NN_LRN_PARM &b) { b.height = 0; }, "1x4x2x0(num x channels x width x height),5x0.750000x1.000000"},
      {[](_NN_LRN_PARM &b) { b.beta = 0.0f; }, "1x4x2x3(num x channels x width x height),5x0.000000x1.000000"},
      {[](_NN_LRN_PARM &b) { b.beta = -0.5f; }, "1x4x2x3(num x channels x width x height),5x-0.500000x1.000000"},
      {[](_NN_LRN_PARM &b) { b.alpha = 0.0f; }, "1x4x2x3(num x channels x width x height),5x0.750000x0.000000"},
      {[](_NN_LRN_PARM &b) { b.alpha = -2.0f; }, "1x4x2x3(num x channels x width x height),5x0.750000x-2.000000"},
  };
  for (const Refusal &refusal : refusals) {
    _NN_LRN_PARM block = float_block({2, 3, 4, 1}, 5);
    refusal.plant(block);
    block.in_addr = block.out_addr = block.work_buffer = unreadable_address();
    StdoutCapture capture;
    const _QX_RESULT result = ::tarvu_lrn_process(&block);
    EXPECT_EQ(capture.text(),
              std::string("\033[1;31mERR:tarvu_lrn_checkparm() shape should be positive, but input is ") +
                  refusal.values + "(size x beta x alpha)\r\n\033[0m");
    EXPECT_EQ(result, QX_ERR_PARAM);
  }
}

TEST(Lrn, ANotANumberExponentIsNotRefusedAndGivesZeros) {
  _NN_LRN_PARM block = float_block({1, 1, 3, 1}, 3);
  block.beta = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(lrn(block, {1.0f, 2.0f, 3.0f}), std::vector<float>(3, 0.0f));
}

_NN_FMT random_format(Random &random, int least_frac_bits, int greatest_frac_bits) {
  const int frac_bits = random.between(least_frac_bits, greatest_frac_bits);
  if (random.one_in(4)) return format(random.pick({32, 24}), frac_bits, random.pick({0, 1, 2}));
  return format(random.pick({8, 16}), frac_bits, random.pick({0, 1, 1, 2}));
}

TEST(Lrn, RandomBlocksMatchTheReference) {
  Random random = test_random(361);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 700; ++i) {
    const Shape shape = {static_cast<uint32_t>(random.between(1, 21)), static_cast<uint32_t>(random.between(1, 5)),
                         static_cast<uint32_t>(random.between(1, 12)), random.pick({1u, 1u, 1u, 2u, 3u})};
    const uint32_t local_size = random.pick({1u, 3u, 5u, 5u, 7u, 15u, 33u});
    Case<_NN_LRN_PARM> lrn_case;
    _NN_LRN_PARM &block = lrn_case.block;
    block = float_block(shape, local_size);
    block.in_fmt = random_format(random, -3, 14);
    block.out_fmt = random_format(random, -2, 16);
    block.in_scale = random.one_in(2) ? scale(1, 0) : scale(random.between(-9, 9), random.between(-3, 33));
    block.out_scale = random.one_in(2) ? scale(1, 0) : scale(random.between(-9, 9), random.between(-33, 3));
    block.reserved_0 = static_cast<uint32_t>(random.next());
    block.in_line_ofs = block.in_channel_ofs = static_cast<uint32_t>(random.next());
    block.out_line_ofs = block.out_channel_ofs = static_cast<uint32_t>(random.next());
    block.lrn_k = random.pick({1, 1, 2, 0, -3, 70000});
    block.alpha = random.pick({1e-4f, 0.002f, 1.0f, 5.0f, 1e-30f});
    block.beta = random.pick({0.75f, 0.75f, 0.5f, 1.0f, 2.5f});
    // Integers lie at any address, floats at multiples of 4.
    const bool float_in = element_bytes(block.in_fmt) == 4;
    const bool float_out = element_bytes(block.out_fmt) == 4;
    block.in_batch_ofs = shape.item() * element_bytes(block.in_fmt) + random.pick({0u, 0u, 16u, float_in ? 4u : 3u});
    block.out_batch_ofs = shape.item() * element_bytes(block.out_fmt) + random.pick({0u, 0u, 16u, float_out ? 4u : 3u});

    // Each item is followed by as many elements as the conversions run over.
    const size_t total = size_t{shape.num} * shape.item();
    const auto placement = [&](bool floats) {
      const size_t misalign = floats ? 4 * random.below(4) : random.below(8);
      return Placement{random.pick({Fault::kBehind, Fault::kInFront}), 1, misalign};
    };
    const GuardedMemory in((shape.num - 1) * size_t{block.in_batch_ofs} + total * element_bytes(block.in_fmt),
                           placement(float_in));
    const GuardedMemory out((shape.num - 1) * size_t{block.out_batch_ofs} + total * element_bytes(block.out_fmt),
                            placement(float_out));
    const GuardedMemory scratch(lrn_cases::scratch_bytes(shape, local_size), placement(true));
    random.fill(in.data(), in.size());
    if (float_in) random.fill_floats(in.data(), in.size() / 4, -50.0f, 50.0f);
    random.fill(out.data(), out.size());
    std::vector<float> stale(scratch.size() / 4);
    random.fill_floats(stale.data(), stale.size(), -9.0f, 9.0f);

    lrn_case.attach(&_NN_LRN_PARM::in_addr, in, "input");
    lrn_case.attach(&_NN_LRN_PARM::out_addr, out, "output", element(block.out_fmt));
    if (element_bytes(block.in_fmt) == element_bytes(block.out_fmt) && shape.num == 1 && random.one_in(3)) {
      block.out_addr = block.in_addr;
    }
    block.work_buffer = scratch.address();
    const auto with_stale_scratch = [&](auto process) {
      return [&, process](const _NN_LRN_PARM *parm) {
        std::memcpy(scratch.data(), stale.data(), scratch.size());
        return process(parm);
      };
    };
    ASSERT_TRUE(
        lrn_case.same(with_stale_scratch(::tarvu_lrn_process), with_stale_scratch(reference::tarvu_lrn_process)))
        << "case " << i << ": " << shape.width << " x " << shape.height << " x " << shape.channels << " x " << shape.num
        << ", window " << local_size << ", " << width_in_bits(block.in_fmt) << " to " << width_in_bits(block.out_fmt)
        << " bits";
    ASSERT_EQ(scratch.guard_damage(), "");
  }
}

}  // namespace
