#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tarvu.h"
#include "tests/reference/tarvu_gridsample_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/tensor/gridsample_case.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::Case;
using support::Element;
using support::Fault;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::test_random;

constexpr Type kTypes[] = {kInt8, kUint8};

/// Fraction bits with a scaling of -31 to 31 bits.
GridFormats some_formats(Random &random) {
  GridFormats f = {kTypes[random.below(2)], kTypes[random.below(2)], random.between(-4, 8), 0, 0};
  f.grid_frac_bits = random.one_in(3) ? random.between(0, 15) : random.between(6, 8);
  const int scaling = random.one_in(3) ? random.between(-31, 31) : random.between(-2, f.grid_frac_bits + 2);
  f.out_frac_bits = f.in_frac_bits + f.grid_frac_bits - scaling;
  return f;
}

/// One differential call. Grid values stay within the image, or at 1.0 on its last row or column.
::testing::AssertionResult random_call(Layout layout, const GridShape &shape, const GridFormats &f, Random &random) {
  const Placement placement = {Fault::kBehind, 16, random.below(2)};
  const GuardedMemory in(grid_input_bytes(layout, shape), placement);
  const GuardedMemory grid(grid_grid_bytes(layout, shape), placement);
  const GuardedMemory out(grid_output_bytes(layout, shape), placement);
  random.fill(in.data(), in.size());
  random.fill(out.data(), out.size());
  // Extremes side by side bring out what wraps.
  for (size_t i = 0; i < in.size(); ++i) {
    if (random.one_in(2)) in.data()[i] = random.pick<uint8_t>({0x00, 0x7F, 0x80, 0xFF});
  }
  const uint32_t one = f.grid_frac_bits < 8 ? 1u << f.grid_frac_bits : 255;
  for (size_t i = 0; i < grid.size(); ++i) {
    grid.data()[i] = static_cast<uint8_t>(random.one_in(6) ? one : random.below(one + 1));
  }
  Case<_NN_GRIDSAMPLE_PARM> sample;
  sample.block = grid_block(layout, shape, f);
  sample.attach(&_NN_GRIDSAMPLE_PARM::in_addr, in, "input");
  sample.attach(&_NN_GRIDSAMPLE_PARM::grid_addr, grid, "grid");
  sample.attach(&_NN_GRIDSAMPLE_PARM::out_addr, out, "output", Element::k8Bit, {shape.out_width, 8});
  return sample.same(::tarvu_gridsample_process, reference::tarvu_gridsample_process);
}

std::string text(Layout layout, const GridShape &s, const GridFormats &f) {
  return (layout == Layout::kPlanar ? "planar C" : "interleaved C") + std::to_string(s.channels) + " N" +
         std::to_string(s.batches) + " " + std::to_string(s.in_width) + "x" + std::to_string(s.in_height) + " to " +
         std::to_string(s.out_width) + "x" + std::to_string(s.out_height) + " group " + std::to_string(s.group) +
         " offset " + std::to_string(s.offset) + " frac " + std::to_string(f.in_frac_bits) + " " +
         std::to_string(f.grid_frac_bits) + " " + std::to_string(f.out_frac_bits);
}

TEST(GridSampleWalk, EveryPairOfTypesAgreesWithTheTwinInBothLayouts) {
  Random random = test_random(361);
  SCOPED_TRACE(random.trace());
  for (const Layout layout : {Layout::kInterleaved, Layout::kPlanar}) {
    for (const Type &in_type : kTypes) {
      for (const Type &out_type : kTypes) {
        for (int round = 0; round < 40; ++round) {
          const GridShape shape = {
              1 + random.below(20), 1 + random.below(3), 1 + random.below(12), 1 + random.below(12),
              1 + random.below(20), 1 + random.below(4), 1 + random.below(3),  0};
          GridFormats f = some_formats(random);
          f.in_type = in_type;
          f.out_type = out_type;
          ASSERT_TRUE(random_call(layout, shape, f, random)) << text(layout, shape, f);
        }
      }
    }
  }
}

TEST(GridSampleWalk, EveryOutputWidthAgreesWithTheTwin) {
  Random random = test_random(362);
  SCOPED_TRACE(random.trace());
  for (const Layout layout : {Layout::kInterleaved, Layout::kPlanar}) {
    for (uint32_t width = 1; width <= 35; ++width) {
      const GridShape shape = {random.pick({1u, 3u, 8u}), 1 + random.below(2), 9, 7, width, 2};
      const GridFormats f = some_formats(random);
      ASSERT_TRUE(random_call(layout, shape, f, random)) << text(layout, shape, f);
    }
  }
}

TEST(GridSampleWalk, EveryNumberOfChannelsAgreesWithTheTwin) {
  Random random = test_random(363);
  SCOPED_TRACE(random.trace());
  for (const Layout layout : {Layout::kInterleaved, Layout::kPlanar}) {
    for (uint32_t channels = 0; channels <= 35; ++channels) {
      const GridShape shape = {channels, 1 + random.below(3), 6, 5, random.pick({3u, 8u, 11u, 16u}), 2};
      const GridFormats f = some_formats(random);
      ASSERT_TRUE(random_call(layout, shape, f, random)) << text(layout, shape, f);
    }
  }
}

TEST(GridSampleWalk, EveryRowOfAGroupAgreesWithTheTwin) {
  Random random = test_random(364);
  SCOPED_TRACE(random.trace());
  for (uint32_t group = 1; group <= 4; ++group) {
    for (uint32_t offset = 0; offset < group; ++offset) {
      const GridShape shape = {1 + random.below(12), 2, 6, 5, 1 + random.below(18), 3, group, offset};
      const GridFormats f = some_formats(random);
      ASSERT_TRUE(random_call(Layout::kInterleaved, shape, f, random)) << text(Layout::kInterleaved, shape, f);
    }
  }
}

TEST(GridSampleWalk, ImagesOfOver256RowsAndColumnsAgreeWithTheTwin) {
  Random random = test_random(365);
  SCOPED_TRACE(random.trace());
  for (const Layout layout : {Layout::kInterleaved, Layout::kPlanar}) {
    for (int round = 0; round < 6; ++round) {
      const bool is_wide = round % 2 == 0;
      const uint32_t size = random.pick({256u, 257u, 300u, 600u});
      const GridShape shape = {1, 1, is_wide ? size : 3, is_wide ? 3 : size, 21, 3};
      const GridFormats f = some_formats(random);
      ASSERT_TRUE(random_call(layout, shape, f, random)) << text(layout, shape, f);
    }
  }
}

TEST(GridSampleWalk, EveryScalingAgreesWithTheTwin) {
  Random random = test_random(366);
  SCOPED_TRACE(random.trace());
  for (int scaling = -31; scaling <= 31; ++scaling) {
    const GridShape shape = {2, 1, 8, 8, 13, 3};
    GridFormats f = {kTypes[random.below(2)], kInt8, 0, 0, random.between(6, 8)};
    f.out_frac_bits = f.grid_frac_bits - scaling;
    ASSERT_TRUE(random_call(Layout::kPlanar, shape, f, random)) << text(Layout::kPlanar, shape, f);
  }
}

}  // namespace
