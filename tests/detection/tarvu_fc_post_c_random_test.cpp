#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "tarvu.h"
#include "tests/reference/tarvu_fc_post_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/filled_memory.h"
#include "tests/support/formats.h"

namespace {

using namespace support;

/// The four element types that have names, wide elements, and now and then any bytes at all.
_NN_FMT random_format(Random &random) {
  switch (random.below(12)) {
    case 0:
      return format(32, random.between(-3, 20), random.between(0, 1));
    case 1: {
      _NN_FMT any;
      random.fill(&any, sizeof any);
      return any;
    }
    default: {
      const int width = random.pick({8, 16});
      return format(width, random.between(-9, width + 9), random.between(0, 1));
    }
  }
}

uint32_t step_of(const _NN_FMT &fmt) { return static_cast<uint8_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits) / 8u; }

/// Bytes that one element touches: its own, or 4 where the type has no name.
uint32_t bytes_of(const _NN_FMT &fmt) {
  const uint32_t width = static_cast<uint8_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits);
  const bool named = (width == 8 || width == 16) && (fmt.sign_bits == 0 || fmt.sign_bits == 1);
  return named ? width / 8 : 4;
}

enum class Multipliers { kOrdinary, kExtreme };

_NN_SCALE random_multiplier(Random &random, Multipliers kind) {
  if (kind == Multipliers::kOrdinary) return scale(random.between(-2000, 2000), random.between(-1, 12));
  const int32_t value = random.pick({std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(), -1, 1, 0,
                                     1 << 30, static_cast<int32_t>(random.next())});
  return scale(value, random.pick({-128, -64, -1, 0, 1, 31, 32, 62, 63, 64, 65, 127, random.between(-128, 127)}));
}

void random_case(Random &random, uint16_t width, uint16_t height, Multipliers kind, bool byte_stride) {
  Case<_NN_FC_POST_PARM> fc;
  _NN_FC_POST_PARM &block = fc.block;
  random.fill(&block, sizeof block);
  block.width = width;
  block.height = height;
  block.batch = static_cast<uint16_t>(random.between(random.one_in(9) ? 0 : 1, 3));
  block.in_fmt = byte_stride ? format(8, 4, random.between(0, 1)) : random_format(random);
  block.out_fmt = random_format(random);
  block.mul_a = random_multiplier(random, kind);
  block.mul_b = random_multiplier(random, kind);
  block.neg_mul = random_multiplier(random, kind);
  block.in_line_ofs = byte_stride ? 1 : random.one_in(3) ? width * step_of(block.in_fmt) : random.below(9);

  const uint32_t last = width == 0 ? 0u : width - 1u;
  const uint32_t further_lines = height == 0 ? 0u : height - 1u;
  const uint32_t in_item = last * step_of(block.in_fmt) + further_lines * block.in_line_ofs + bytes_of(block.in_fmt);
  const uint32_t out_item = last * step_of(block.out_fmt) + bytes_of(block.out_fmt);
  const bool backwards = random.one_in(3);
  const int32_t in_batch = random.between(0, static_cast<int32_t>(in_item) + 5);
  const int32_t out_batch = static_cast<int32_t>(out_item + random.below(6));
  block.in_batch_ofs = backwards ? -in_batch : in_batch;
  block.out_batch_ofs = backwards ? -out_batch : out_batch;
  const uint32_t further_items = block.batch == 0 ? 0u : block.batch - 1u;
  const uint32_t in_reach = further_items * static_cast<uint32_t>(in_batch);
  const uint32_t out_reach = further_items * static_cast<uint32_t>(out_batch);

  const GuardedMemory input(in_reach + in_item);
  const GuardedMemory bias(size_t{width} * 4);
  const GuardedMemory output(out_reach + out_item,
                             {random.pick({Fault::kBehind, Fault::kInFront}), 1, random.below(4)});
  random.fill(input.data(), input.size());
  random.fill(output.data(), output.size());
  std::vector<int32_t> corrections(width);
  for (int32_t &correction : corrections) {
    const int32_t wide = random.pick({std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(),
                                      static_cast<int32_t>(random.next())});
    correction = random.one_in(6) ? wide : random.between(-3000, 3000);
  }
  put_values(bias, corrections);
  fc.attach(&_NN_FC_POST_PARM::in_addr, input, "input", Element::k8Bit, {}, backwards ? in_reach : 0);
  fc.attach(&_NN_FC_POST_PARM::bias_addr, bias, "corrections", Element::k32Bit);
  fc.attach(&_NN_FC_POST_PARM::out_addr, output, "output", Element::k8Bit, {}, backwards ? out_reach : 0);
  EXPECT_TRUE(fc.same(tarvu_fc_post_process, reference::tarvu_fc_post_process))
      << width << " outputs of " << height << " parts, " << block.batch << " items, formats {"
      << int{block.in_fmt.frac_bits} << ", " << int{block.in_fmt.int_bits} << ", " << int{block.in_fmt.sign_bits}
      << "} to {" << int{block.out_fmt.frac_bits} << ", " << int{block.out_fmt.int_bits} << ", "
      << int{block.out_fmt.sign_bits} << "}, line offset " << block.in_line_ofs;
}

TEST(FcPostOnRandomBlocks, EqualsItsTwinForEveryWidth) {
  Random random = test_random(440);
  SCOPED_TRACE(random.trace());
  for (uint16_t width = 0; width <= 35; ++width) {
    for (int round = 0; round < 24; ++round) {
      random_case(random, width, static_cast<uint16_t>(random.between(0, 9)), Multipliers::kOrdinary, false);
      if (HasFailure()) return;
    }
  }
}

TEST(FcPostOnRandomBlocks, EqualsItsTwinForEveryHeightAtAByteStride) {
  Random random = test_random(441);
  SCOPED_TRACE(random.trace());
  for (uint16_t height = 0; height <= 67; ++height) {
    for (int round = 0; round < 12; ++round) {
      random_case(random, static_cast<uint16_t>(random.between(1, 20)), height, Multipliers::kOrdinary, true);
      if (HasFailure()) return;
    }
  }
  random_case(random, 3, 65535, Multipliers::kOrdinary, true);
}

TEST(FcPostOnRandomBlocks, EqualsItsTwinForExtremeMultipliersAndShifts) {
  Random random = test_random(442);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 2000; ++round) {
    random_case(random, static_cast<uint16_t>(random.between(1, 40)), static_cast<uint16_t>(random.between(0, 3)),
                Multipliers::kExtreme, false);
    if (HasFailure()) return;
  }
}

TEST(FcPostOnRandomBlocks, EqualsItsTwinForManyOutputs) {
  Random random = test_random(443);
  SCOPED_TRACE(random.trace());
  for (const uint16_t width : std::initializer_list<uint16_t>{255, 256, 257, 511, 513, 700}) {
    for (int round = 0; round < 8; ++round) {
      const auto height = static_cast<uint16_t>(random.between(0, 20));
      random_case(random, width, height, round % 2 == 0 ? Multipliers::kOrdinary : Multipliers::kExtreme,
                  random.one_in(3));
      if (HasFailure()) return;
    }
  }
}

}  // namespace
