#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/pool/pool_case.h"
#include "tests/reference/tarvu_pool_c_reference.h"
#include "tests/support/random.h"

namespace {

using namespace pool_test;
using support::Random;
using support::test_random;

using Elements = std::vector<int32_t>;

struct Shape {
  int width;
  int height;
};

/// Maxima of windows of `size` x `size` around every element, cut at the borders of the plane.
Elements window_maxima(const Elements &plane, Shape shape, int size) {
  const int reach = size / 2;
  Elements maxima;
  for (int y = 0; y < shape.height; ++y) {
    for (int x = 0; x < shape.width; ++x) {
      int32_t largest = INT32_MIN;
      for (int i = std::max(0, y - reach); i <= std::min(shape.height - 1, y + reach); ++i) {
        for (int j = std::max(0, x - reach); j <= std::min(shape.width - 1, x + reach); ++j) {
          largest = std::max(largest, plane[static_cast<size_t>(i * shape.width + j)]);
        }
      }
      maxima.push_back(largest);
    }
  }
  return maxima;
}

Plane pass_of_3x3(Type in, Type out, Shape shape, const Elements &plane) {
  Plane pass(in, out, shape.width, shape.height, plane);
  pass.mode(kLocalMaximum).columns(3, 1, 1, 1).rows(3, 1, 1, 1);
  return pass;
}

/// As many passes of 3 x 3 with step 1 and one line of padding; the last one alone re-quantises.
Elements maxima_by_passes(Type in, Type out, Shape shape, Elements plane, int passes, const _NN_POOL_PARM &output) {
  const auto columns = static_cast<size_t>(shape.width);
  const auto rows = static_cast<size_t>(shape.height);
  for (int i = 1; i < passes; ++i) plane = pass_of_3x3(in, in, shape, plane).pooled(columns, rows);
  Plane last = pass_of_3x3(in, out, shape, plane);
  last.block.in_scale = output.in_scale;
  last.block.out_scale = output.out_scale;
  last.block.post_shift = output.post_shift;
  return last.pooled(columns, rows);
}

/// The maxima through the output arithmetic of the plain twin.
Elements requantised_maxima(Type in, Type out, const Elements &maxima, _NN_POOL_PARM output) {
  std::vector<uint8_t> input(maxima.size() * in.bytes());
  std::vector<uint8_t> result(maxima.size() * out.bytes());
  for (size_t i = 0; i < maxima.size(); ++i) {
    const auto bits = static_cast<uint16_t>(maxima[i]);
    std::memcpy(&input[i * in.bytes()], &bits, in.bytes());
  }
  output.in_addr = reinterpret_cast<uintptr_t>(input.data());
  output.out_addr = reinterpret_cast<uintptr_t>(result.data());
  output.width = static_cast<uint16_t>(maxima.size());
  output.height = 1;
  EXPECT_EQ(reference::tarvu_pool_process(&output), QX_OK);
  Elements expected;
  for (size_t i = 0; i < maxima.size(); ++i) expected.push_back(element_at(&result[i * out.bytes()], out));
  return expected;
}

Elements random_plane(Random &random, Type type, Shape shape) {
  const int low = type.sign_bits == 0 ? 0 : -(1 << (type.width - 1));
  const int high = low + (1 << type.width) - 1;
  Elements plane;
  for (int i = 0; i < shape.width * shape.height; ++i) {
    // Many small ones and some large ones: maxima that reach across several passes.
    plane.push_back(random.one_in(12) ? random.between(low, high) : random.between(low, low + (high - low) / 8));
  }
  return plane;
}

struct LargeWindow {
  int size;
  int passes;
};
constexpr LargeWindow kLargeWindows[] = {{3, 1}, {5, 2}, {9, 4}, {13, 6}};

TEST(PoolLargeWindow, PassesOf3x3GiveTheMaximaOfALargeWindowWithPadsOnEverySide) {
  Random random = test_random(54);
  for (const LargeWindow window : kLargeWindows) {
    for (const Type type : kTypes) {
      for (int round = 0; round < 12; ++round) {
        const Shape shape = {random.between(1, 21), random.between(1, 21)};
        SCOPED_TRACE(std::to_string(window.size) + " of " + std::to_string(type.width) + "/" +
                     std::to_string(type.sign_bits) + " over " + std::to_string(shape.width) + " x " +
                     std::to_string(shape.height));
        const Elements plane = random_plane(random, type, shape);
        EXPECT_EQ(maxima_by_passes(type, type, shape, plane, window.passes, plain_block(type, type)),
                  window_maxima(plane, shape, window.size));
      }
    }
  }
}

TEST(PoolLargeWindow, TheLastPassAloneRequantisesToAnyType) {
  Random random = test_random(55);
  for (const LargeWindow window : kLargeWindows) {
    for (const Type in : kTypes) {
      for (const Type out : kTypes) {
        const Shape shape = {random.between(7, 15), random.between(7, 15)};
        const Elements plane = random_plane(random, in, shape);
        _NN_POOL_PARM output = plain_block(in, out);
        output.in_scale = support::scale(random.between(1, 127), random.between(0, 3));
        output.out_scale = support::scale(random.between(1, 127), random.between(0, 12));
        output.post_shift = static_cast<int8_t>(random.between(-2, 4));
        SCOPED_TRACE(describe(output));
        EXPECT_EQ(maxima_by_passes(in, out, shape, plane, window.passes, output),
                  requantised_maxima(in, out, window_maxima(plane, shape, window.size), output));
      }
    }
  }
}

TEST(PoolLargeWindow, PassesOfAveragesAreNotTheAverageOfALargeWindow) {
  Elements plane(25, 0);
  plane[0] = 100;
  Plane first(kUint8, kUint8, 5, 5, plane);
  first.mode(kLocalAverage).columns(3, 1, 1, 1).rows(3, 1, 1, 1);
  Plane second(kUint8, kUint8, 5, 5, first.pooled(5, 5));
  second.mode(kLocalAverage).columns(3, 1, 1, 1).rows(3, 1, 1, 1);
  const int32_t average_of_all = 100 / 25;
  EXPECT_EQ(second.pooled(5, 5)[12], 1);
  EXPECT_EQ(average_of_all, 4);
}

TEST(PoolLargeWindow, APadAboveTheStrideTakesTheEndOfTheLineBefore) {
  // Window 5, step 1, two columns of padding: the second window starts one column in front of its line.
  Plane plane(kUint8, kUint8, 5, 2, {1, 1, 1, 1, 90, 2, 2, 2, 2, 2});
  plane.mode(kLocalMaximum).columns(5, 1, 2, 2).rows(1, 1);
  plane.block.in_addr += 5;
  plane.block.height = 1;
  EXPECT_EQ(plane.pooled(5, 1), (Elements{2, 90, 2, 2, 2}));
}

}  // namespace
