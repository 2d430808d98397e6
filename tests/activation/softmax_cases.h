/// \file softmax_cases.h
/// Blocks and random cases shared by the tests of softmax with and without zero points.
#ifndef TARVU_TESTS_ACTIVATION_SOFTMAX_CASES_H
#define TARVU_TESTS_ACTIVATION_SOFTMAX_CASES_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"

namespace softmax_cases {

constexpr const char *kAxisText =
    "() Softmax cpu Layer is not support axis = 0 or axis > 3, please convert dimensions.\r\n\033[0m";

/// The line that a function prints for an axis that it does not serve.
inline std::string axis_line(const std::string &function) { return "\033[1;31mERR:" + function + kAxisText; }

struct Shape {
  int width, height, channel, batch;
};

/// Dense tensors of floats; the addresses are still to be set.
template <class Parm>
Parm float_block(Shape shape, int axis) {
  Parm block{};
  block.width = static_cast<uint16_t>(shape.width);
  block.height = static_cast<uint16_t>(shape.height);
  block.channel = static_cast<uint16_t>(shape.channel);
  block.batch = static_cast<uint16_t>(shape.batch);
  block.in_batch_ofs = 4u * block.width * block.height * block.channel;
  block.out_batch_ofs = block.in_batch_ofs;
  block.in_fmt = support::format(32, 0, 1);
  block.out_fmt = support::format(32, 0, 1);
  block.in_scale = support::scale(1, 0);
  block.out_scale = support::scale(1, 0);
  block.axis = static_cast<int8_t>(axis);
  return block;
}

inline uint32_t elements_of_an_item(int width, int height, int channel) {
  return static_cast<uint32_t>(width) * static_cast<uint32_t>(height) * static_cast<uint32_t>(channel);
}

/// One batch item of floats in and out through the operator. Scratch memory is exactly the first array, so that an
/// access to the second faults.
template <class Parm, class Process>
std::vector<float> softmax_of_floats(Process process, std::vector<float> in, Shape shape, int axis) {
  Parm block = float_block<Parm>(shape, axis);
  const support::GuardedMemory scratch(4 * in.size());
  std::vector<float> out(in.size() * static_cast<size_t>(shape.batch), -77.0f);
  block.in_addr = reinterpret_cast<uintptr_t>(in.data());
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = scratch.address();
  EXPECT_EQ(process(&block), QX_OK);
  EXPECT_EQ(scratch.guard_damage(), "");
  return out;
}

inline int width_in_bits(const _NN_FMT &fmt) { return fmt.frac_bits + fmt.int_bits + fmt.sign_bits; }

/// Any width but 8 and 16 is written as floats.
inline uint32_t out_element_bytes(const _NN_FMT &fmt) {
  return width_in_bits(fmt) == 8 ? 1 : width_in_bits(fmt) == 16 ? 2 : 4;
}

inline support::Element out_element(const _NN_FMT &fmt) {
  const uint32_t bytes = out_element_bytes(fmt);
  return bytes == 1 ? support::Element::k8Bit : bytes == 2 ? support::Element::k16Bit : support::Element::kFloat;
}

/// Extents around the blocks of 16, 4 and 1, and a small chance of 0.
inline int random_extent(support::Random &random) {
  if (random.one_in(30)) return 0;
  if (random.one_in(3)) return random.between(1, 3);
  return random.pick({1, 1, 1, 2, 3, 4, 5, 7, 8, 12, 13, 15, 16, 17, 19, 20, 31, 32, 33, 35, 36, 48, 67});
}

inline _NN_SCALE random_scale(support::Random &random) {
  if (random.one_in(2)) return support::scale(1, 0);
  if (random.one_in(4)) {
    return support::scale(random.pick({0, -1, 1, 2147483647}), random.pick({31, 33, -31, -33, -128}));
  }
  return support::scale(random.between(-20, 20), random.between(-2, 5));
}

/// Mostly the formats that are converted, and sometimes one that is not.
inline _NN_FMT random_format(support::Random &random, int least_frac_bits, int greatest_frac_bits) {
  const int frac_bits = random.between(least_frac_bits, greatest_frac_bits);
  if (random.one_in(6)) return support::format(random.pick({32, 24, 8, 16}), frac_bits, random.pick({0, 2, -1}), 9);
  if (random.one_in(4)) return support::format(32, frac_bits, 1);
  return support::format(random.pick({8, 16}), frac_bits, random.pick({0, 1}));
}

/// Integers or floats that are spread, equal, one spike above the rest, or the worst there are.
inline void fill_input(support::Random &random, const support::GuardedMemory &in, bool floats) {
  const uint32_t kind = random.below(6);
  if (!floats) {
    random.fill(in.data(), in.size());
    if (kind <= 1) in.fill(static_cast<uint8_t>(random.next()));
    if (kind == 1 && in.size() != 0) in.data()[random.below(static_cast<uint32_t>(in.size()))] = 0x7F;
    return;
  }
  const size_t count = in.size() / 4;
  if (kind == 0) {
    random.fill_any_floats(in.data(), count);
    return;
  }
  const float level = random.pick({0.0f, 3.5f, -2e7f, -1e7f, 1e30f, -100.0f, std::numeric_limits<float>::infinity(),
                                   -std::numeric_limits<float>::infinity()});
  const float spread = random.pick({1.0f, 100.0f, 1000.0f});
  random.fill_floats(in.data(), count, -spread, spread);
  if (kind == 1) {
    for (size_t i = 0; i < count; ++i) std::memcpy(in.data() + 4 * i, &level, 4);
  }
  if (kind <= 2 && count != 0) {
    const float spike = random.pick({5.0f, 100.0f, 1e8f, std::numeric_limits<float>::infinity()});
    std::memcpy(in.data() + 4 * size_t{random.below(static_cast<uint32_t>(count))}, &spike, 4);
  }
}

template <class Parm>
Parm random_block(support::Random &random) {
  Parm block{};
  do {
    block.width = static_cast<uint16_t>(random_extent(random));
    block.height = static_cast<uint16_t>(random_extent(random));
    block.channel = static_cast<uint16_t>(random_extent(random));
  } while (elements_of_an_item(block.width, block.height, block.channel) > 4000);
  block.batch = static_cast<uint16_t>(random.pick({0, 1, 1, 1, 2, 2, 3}));
  block.in_fmt = random_format(random, -2, 12);
  block.out_fmt = random_format(random, -2, 16);
  block.in_scale = random_scale(random);
  block.out_scale = random_scale(random);
  block.axis = static_cast<int8_t>(random.pick({1, 1, 1, 2, 2, 2, 3, 3, 3, -1, -128, 0, 4, 127}));
  block.in_line_ofs = static_cast<uint32_t>(random.next());
  block.in_channel_ofs = static_cast<uint32_t>(random.next());
  block.out_line_ofs = static_cast<uint32_t>(random.next());
  block.out_channel_ofs = static_cast<uint32_t>(random.next());
  const uint32_t count = elements_of_an_item(block.width, block.height, block.channel);
  block.in_batch_ofs = count * out_element_bytes(block.in_fmt) + random.pick({0u, 1u, 24u});
  const bool float_out = out_element_bytes(block.out_fmt) == 4;
  const uint32_t padding = random.pick({0u, 32u, float_out ? 4u : 5u});
  block.out_batch_ofs = random.one_in(10) ? 4 : count * out_element_bytes(block.out_fmt) + padding;
  if constexpr (requires { block.in_zero_point; }) {
    block.reserved_0 = static_cast<uint32_t>(random.next());
    block.reserved_1 = static_cast<uint32_t>(random.next());
    block.in_zero_point = random.one_in(5) ? static_cast<int32_t>(random.next()) : random.between(-130, 260);
    block.out_zero_point = random.one_in(5) ? static_cast<int32_t>(random.next()) : random.between(-130, 260);
  }
  return block;
}

/// Against a page that faults, before or behind. Integers lie at any address, floats at multiples of 4.
inline support::Placement random_placement(support::Random &random, bool floats) {
  const size_t misalign = floats ? 4 * random.below(4) : random.below(8);
  return {random.pick({support::Fault::kBehind, support::Fault::kInFront}), 1, misalign};
}

/// Runs product and reference over a random block, each with the same stale scratch memory.
template <class Parm, class Product, class Reference>
void expect_same_for_random_block(support::Random &random, Product product, Reference reference) {
  support::Case<Parm> softmax;
  softmax.block = random_block<Parm>(random);
  Parm &block = softmax.block;
  const uint32_t count = elements_of_an_item(block.width, block.height, block.channel);
  const size_t further_items = block.batch > 1 ? block.batch - 1u : 0u;
  const size_t in_item = size_t{count} * out_element_bytes(block.in_fmt);
  const size_t out_item = size_t{count} * out_element_bytes(block.out_fmt);
  const bool float_in = width_in_bits(block.in_fmt) == 32 && block.in_fmt.sign_bits == 1;
  const size_t in_bytes = float_in ? in_item : further_items * block.in_batch_ofs + in_item;
  const bool float_out = out_element_bytes(block.out_fmt) == 4;
  const support::GuardedMemory in(in_bytes, random_placement(random, float_in));
  const support::GuardedMemory out(further_items * block.out_batch_ofs + out_item, random_placement(random, float_out));
  const support::GuardedMemory scratch(size_t{count} * (float_out ? 4 : 8), random_placement(random, true));
  fill_input(random, in, float_in);
  random.fill(out.data(), out.size());
  random.fill_floats(scratch.data(), scratch.size() / 4, -30.0f, 30.0f);
  const std::vector<uint8_t> stale(scratch.data(), scratch.data() + scratch.size());

  softmax.attach(&Parm::in_addr, in, "input");
  softmax.attach(&Parm::out_addr, out, "output", out_element(block.out_fmt));
  block.work_buffer = scratch.address();
  const auto with_stale_scratch = [&](auto process) {
    return [&, process](const Parm *parm) {
      std::copy(stale.begin(), stale.end(), scratch.data());
      return process(parm);
    };
  };
  SCOPED_TRACE(testing::Message() << "axis " << int{block.axis} << ", " << block.width << " x " << block.height << " x "
                                  << block.channel << " x " << block.batch << ", " << width_in_bits(block.in_fmt)
                                  << " to " << width_in_bits(block.out_fmt) << " bits");
  ASSERT_TRUE(softmax.same(with_stale_scratch(product), with_stale_scratch(reference)));
  ASSERT_EQ(scratch.guard_damage(), "");
}

/// One axis kernel over floats of any kind, the input tracked too.
template <class Parm, class Product, class Reference>
void expect_same_kernel(support::Random &random, const Parm &block, Product product, Reference reference) {
  const size_t bytes = size_t{4} * elements_of_an_item(block.width, block.height, block.channel);
  const support::GuardedMemory in(bytes, random_placement(random, true)), out(bytes, random_placement(random, true));
  fill_input(random, in, true);
  random.fill(out.data(), out.size());
  support::Differential kernel;
  kernel.track(in, "input", support::Element::k32Bit);
  kernel.track(out, "output", support::Element::kFloat);
  SCOPED_TRACE(testing::Message() << "axis " << int{block.axis} << ", " << block.width << " x " << block.height << " x "
                                  << block.channel);
  ASSERT_TRUE(kernel.same([&] { product(in.as<const float>(), out.as<float>(), &block); },
                          [&] { reference(in.as<const float>(), out.as<float>(), &block); }));
}

/// The choice of the kernel, with the float path's first scratch array alone.
template <class Parm, class Product, class Reference>
void expect_same_for_every_small_shape(support::Random &random, Product product, Reference reference) {
  for (int shape = 0; shape < 27; ++shape) {
    for (int axis : {1, 2, 3, -1}) {
      support::Case<Parm> softmax;
      softmax.block = float_block<Parm>({shape % 3 + 1, shape / 3 % 3 + 1, shape / 9 + 1, 1}, axis);
      const support::GuardedMemory in(softmax.block.in_batch_ofs), out(in.size()), scratch(in.size());
      random.fill_floats(in.data(), in.size() / 4, -3.0f, 3.0f);
      softmax.attach(&Parm::in_addr, in, "input");
      softmax.attach(&Parm::out_addr, out, "output", support::Element::kFloat);
      softmax.block.work_buffer = scratch.address();
      ASSERT_TRUE(softmax.same(product, reference)) << "axis " << axis << ", " << softmax.block.width << " x "
                                                    << softmax.block.height << " x " << softmax.block.channel;
    }
  }
}

/// Integers or floats that lie apart or one behind the other in one memory, the output `out_at` bytes into it.
template <class Parm, class Product, class Reference>
void expect_same_in_one_memory(support::Random &random, Parm block, size_t out_at, Product product,
                               Reference reference) {
  const size_t count = elements_of_an_item(block.width, block.height, block.channel);
  const size_t in_bytes = count * out_element_bytes(block.in_fmt);
  const size_t out_bytes = count * out_element_bytes(block.out_fmt);
  const support::GuardedMemory memory(std::max(in_bytes, out_at + out_bytes)), scratch(8 * count);
  random.fill(memory.data(), memory.size());
  if (width_in_bits(block.in_fmt) == 32) random.fill_floats(memory.data(), memory.size() / 4, -20.0f, 20.0f);
  support::Case<Parm> softmax;
  softmax.block = block;
  softmax.attach(&Parm::in_addr, memory, "memory", support::Element::k8Bit);
  softmax.block.out_addr = memory.address() + out_at;
  softmax.block.work_buffer = scratch.address();
  ASSERT_TRUE(softmax.same(product, reference))
      << "axis " << int{block.axis} << ", " << block.width << " x " << block.height << " x " << block.channel << ", "
      << width_in_bits(block.in_fmt) << " to " << width_in_bits(block.out_fmt) << " bits, output at " << out_at;
}

/// Items that are computed piece by piece: more rows and columns than go at once, rows that are longer than a piece, and
/// an input that the output lies apart from, equals or overlaps.
template <class Parm, class Product, class Reference>
void expect_same_for_long_items(support::Random &random, Product product, Reference reference) {
  using support::format;
  const struct {
    Shape shape;
    int axis;
  } cases[] = {{{1000, 9, 1, 1}, 3}, {{63, 3, 50, 1}, 3},  {{64, 65, 2, 1}, 3},  {{21, 411, 1, 1}, 3},
               {{5003, 3, 1, 1}, 3}, {{1, 97, 91, 1}, 2},  {{613, 1, 21, 1}, 1}, {{19, 13, 300, 1}, 1},
               {{301, 21, 3, 1}, 2}, {{7, 1200, 2, 1}, 2}, {{97, 11, 13, 1}, -1}};
  const struct {
    _NN_FMT in, out;
  } formats[] = {{format(8, 3, 1), format(8, 7, 1)},   {format(16, 11, 1), format(32, 0, 1)},
                 {format(8, 4, 0), format(16, 16, 0)}, {format(16, 12, 0), format(8, 8, 0)},
                 {format(32, 0, 1), format(8, -1, 1)}, {format(32, 0, 1), format(16, 15, 1)}};
  for (const auto &c : cases) {
    for (const auto &f : formats) {
      Parm block = float_block<Parm>(c.shape, c.axis);
      block.in_fmt = f.in;
      block.out_fmt = f.out;
      block.in_scale = support::scale(29, 5);
      block.out_scale = support::scale(f.out.frac_bits < 0 ? 900 : 119, 7);
      if constexpr (requires { block.in_zero_point; }) {
        block.in_zero_point = 3;
        block.out_zero_point = -2;
      }
      const size_t in_bytes =
          size_t{elements_of_an_item(c.shape.width, c.shape.height, c.shape.channel)} * out_element_bytes(f.in);
      const size_t behind = (in_bytes + 3) / 4 * 4;
      for (size_t out_at : {behind, size_t{0}, size_t{4}}) {
        expect_same_in_one_memory(random, block, out_at, product, reference);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

/// Columns and lengths around the blocks of 16, 4 and 1, for a column kernel along the lines.
template <class Parm, class Product, class Reference>
void expect_same_columns(support::Random &random, Product product, Reference reference) {
  for (int columns = 0; columns <= 2 * 16 + 3; ++columns) {
    for (int length : {0, 1, 2, 5, 21}) {
      const Parm block = float_block<Parm>({columns, length, random.between(1, 3), 1}, random.pick({2, -1, 0}));
      expect_same_kernel(random, block, product, reference);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

/// Row lengths from 0 to beyond two blocks of 16, and numbers of rows that do and do not fill an interleaved group.
template <class Parm, class Product, class Reference>
void expect_same_rows(support::Random &random, Product product, Reference reference) {
  for (int length = 0; length <= 2 * 16 + 3; ++length) {
    for (int rows : {0, 1, 2, 3, 4, 5, 9}) {
      const bool along_height = random.one_in(2);
      const Shape shape = along_height ? Shape{rows, length, 1, 1} : Shape{length, rows, 1, 1};
      expect_same_kernel(random, float_block<Parm>(shape, along_height ? 2 : random.pick({3, 1, 0, -5})), product,
                         reference);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

/// One group of every length up to beyond four blocks of 16, and some long ones.
template <class Parm, class Product, class Reference>
void expect_same_whole_items(support::Random &random, Product product, Reference reference) {
  std::vector<int> lengths = {100, 1000, 1001, 4095};
  for (int length = 0; length <= 4 * 16 + 3; ++length) lengths.push_back(length);
  for (int length : lengths) {
    expect_same_kernel(random, float_block<Parm>({length, 1, 1, 1}, random.pick({-1, 3})), product, reference);
    expect_same_kernel(random, float_block<Parm>({1, length, 1, 1}, 1), product, reference);
    if (testing::Test::HasFatalFailure()) return;
  }
}

}  // namespace softmax_cases

#endif  // TARVU_TESTS_ACTIVATION_SOFTMAX_CASES_H
