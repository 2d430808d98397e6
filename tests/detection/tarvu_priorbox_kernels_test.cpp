// Prior boxes: where the two kernels and their blocks and tails differ, and all three functions against the plain twin.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_priorbox_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace {

using support::Differential;
using support::Element;
using support::Fault;
using support::GuardedMemory;
using support::Random;

using Kernel = _QX_RESULT (*)(const _NN_PRIORBOX_WORK *, float *const[2]);

/// One cell of a 1 x 1 image whose centre is `offset`; ratio 1.0 alone.
_NN_PRIORBOX_WORK unit_cell(float offset) {
  _NN_PRIORBOX_WORK work{};
  work.in_width = 1;
  work.in_height = 1;
  work.img_width = 1;
  work.img_height = 1;
  work.min_size_num = 1;
  work.ratio_list[0] = 1.0f;
  work.ratio_count = 1;
  work.num_priors = 1;
  work.offset = offset;
  return work;
}

struct Output {
  std::vector<float> boxes;
  std::vector<float> variances;
};

Output run(Kernel kernel, const _NN_PRIORBOX_WORK &work, size_t box_floats, size_t variance_floats,
           float start = 777.0f) {
  const GuardedMemory boxes(box_floats * sizeof(float));
  const GuardedMemory variances(variance_floats * sizeof(float));
  Output output;
  output.boxes.assign(box_floats, start);
  output.variances.assign(variance_floats, start);
  std::memcpy(boxes.data(), output.boxes.data(), boxes.size());
  std::memcpy(variances.data(), output.variances.data(), variances.size());
  float *const regions[2] = {boxes.as<float>(), variances.as<float>()};
  EXPECT_EQ(kernel(&work, regions), 0);
  EXPECT_EQ(boxes.guard_damage(), "");
  EXPECT_EQ(variances.guard_damage(), "");
  std::memcpy(output.boxes.data(), boxes.data(), boxes.size());
  std::memcpy(output.variances.data(), variances.data(), variances.size());
  return output;
}

constexpr float kLeast = std::numeric_limits<float>::denorm_min();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

TEST(PriorBoxKernels, ASubnormalSizeIsHalvedInFloatInAGroupOfFour) {
  _NN_PRIORBOX_WORK work = unit_cell(kLeast);
  work.min_size_num = 4;
  for (float &size : work.min_sizes) size = kLeast;
  const std::vector<float> boxes = run(::tarvu_priorbox_neon_func, work, 16, 4).boxes;
  EXPECT_EQ(boxes, std::vector<float>(16, kLeast));
}

TEST(PriorBoxKernels, ASubnormalSizeIsHalvedInDoubleBehindTheGroupsOfFour) {
  _NN_PRIORBOX_WORK work = unit_cell(kLeast);
  work.min_sizes[0] = kLeast;
  const std::vector<float> boxes = run(::tarvu_priorbox_neon_func, work, 4, 4).boxes;
  EXPECT_EQ(boxes, (std::vector<float>{0.0f, 0.0f, 2.0f * kLeast, 2.0f * kLeast}));
}

TEST(PriorBoxKernels, TheScalarKernelHalvesEverySizeInDouble) {
  _NN_PRIORBOX_WORK work = unit_cell(kLeast);
  work.min_size_num = 4;
  for (float &size : work.min_sizes) size = kLeast;
  const std::vector<float> boxes = run(::tarvu_priorbox_c_func, work, 16, 4).boxes;
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(boxes[i], i % 4 < 2 ? 0.0f : 2.0f * kLeast) << i;
}

TEST(PriorBoxKernels, TheClampKeepsNanInBlocksOfSixteenFloatsAndDropsItBehindThem) {
  _NN_PRIORBOX_WORK work = unit_cell(kNan);
  work.in_width = 5;
  work.clip = 1;
  work.min_sizes[0] = 1.0f;
  // Five boxes are 20 floats.
  const std::vector<float> boxes = run(::tarvu_priorbox_neon_func, work, 20, 20).boxes;
  for (size_t i = 0; i < 16; ++i) EXPECT_NE(boxes[i], boxes[i]) << i;
  for (size_t i = 16; i < 20; ++i) EXPECT_EQ(std::bit_cast<uint32_t>(boxes[i]), 0u) << i;
}

TEST(PriorBoxKernels, TheClampOfTheScalarKernelDropsNanEverywhere) {
  _NN_PRIORBOX_WORK work = unit_cell(kNan);
  work.in_width = 5;
  work.clip = 1;
  work.min_sizes[0] = 1.0f;
  EXPECT_EQ(run(::tarvu_priorbox_c_func, work, 20, 20).boxes, std::vector<float>(20, 0.0f));
}

TEST(PriorBoxKernels, TheClampMakesNegativeZeroZero) {
  for (const Kernel kernel : {::tarvu_priorbox_neon_func, ::tarvu_priorbox_c_func}) {
    _NN_PRIORBOX_WORK work = unit_cell(0.5f);
    work.min_sizes[0] = 0.0f;
    work.num_priors = 5;
    work.clip = 1;
    const std::vector<float> boxes = run(kernel, work, 20, 20, -0.0f).boxes;
    for (size_t i = 4; i < 20; ++i) EXPECT_EQ(std::bit_cast<uint32_t>(boxes[i]), 0u) << i;
  }
}

TEST(PriorBoxKernels, AListedRatioNextToOneMakesNoBox) {
  for (const Kernel kernel : {::tarvu_priorbox_neon_func, ::tarvu_priorbox_c_func}) {
    _NN_PRIORBOX_WORK work = unit_cell(0.5f);
    work.min_sizes[0] = 1.0f;
    work.ratio_list[0] = 0x1.000010p0f;
    work.ratio_list[1] = 4.0f;
    work.ratio_list[2] = 0x1.ffffe0p-1f;
    work.ratio_count = 3;
    EXPECT_EQ(run(kernel, work, 8, 4).boxes, (std::vector<float>{0.0f, 0.0f, 1.0f, 1.0f, -0.5f, 0.25f, 1.5f, 0.75f}));
  }
}

TEST(PriorBoxKernels, WithoutCellsNothingIsWritten) {
  for (const Kernel kernel : {::tarvu_priorbox_neon_func, ::tarvu_priorbox_c_func}) {
    _NN_PRIORBOX_WORK work = unit_cell(0.5f);
    work.clip = 1;
    work.in_width = 0;
    EXPECT_EQ(run(kernel, work, 4, 4).boxes, std::vector<float>(4, 777.0f));
    work.in_width = 1;
    work.in_height = 0;
    EXPECT_EQ(run(kernel, work, 4, 4).variances, std::vector<float>(4, 777.0f));
  }
}

TEST(PriorBoxKernels, WithoutCountedPriorsBoxesAreMadeAndNoVariances) {
  for (const Kernel kernel : {::tarvu_priorbox_neon_func, ::tarvu_priorbox_c_func}) {
    _NN_PRIORBOX_WORK work = unit_cell(0.5f);
    work.min_sizes[0] = 4.0f;
    work.num_priors = 0;
    work.clip = 1;
    const Output output = run(kernel, work, 4, 4);
    EXPECT_EQ(output.boxes, (std::vector<float>{-1.5f, -1.5f, 2.5f, 2.5f}));
    EXPECT_EQ(output.variances, std::vector<float>(4, 777.0f));
  }
}

/// A value that a layer would hold, or now and then one that none would.
float number(Random &random, float first, float last) {
  return random.one_in(12) ? random.any_float() : random.uniform(first, last);
}

/// Memory whose data starts at a multiple of 4 bytes only.
GuardedMemory floats(Random &random, size_t count) {
  const bool behind = random.one_in(2);
  GuardedMemory memory(count * sizeof(float), {.fault = behind ? Fault::kBehind : Fault::kInFront,
                                               .alignment = behind ? size_t{4} : size_t{16},
                                               .misalign = behind ? 0 : 4 * size_t{random.below(4)}});
  random.fill_any_floats(memory.data(), count);
  return memory;
}

TEST(PriorBoxKernels, BothKernelsAgreeWithTheirTwinsOnRandomRecords) {
  Random random = support::test_random(401);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(round);
    _NN_PRIORBOX_WORK work{};
    work.in_width = random.below(6);
    work.in_height = random.below(5);
    work.img_width = random.one_in(8) ? static_cast<uint32_t>(random.next()) : 1 + random.below(600);
    work.img_height = random.one_in(8) ? random.below(2) : 1 + random.below(600);
    for (float &size : work.min_sizes) size = number(random, 0.0f, 300.0f);
    for (float &size : work.max_sizes) size = number(random, 0.0f, 300.0f);
    work.min_size_num = random.below(5);
    work.max_size_num = random.below(5);
    work.ratio_count = random.below(11);
    for (float &ratio : work.ratio_list) ratio = random.one_in(5) ? 1.0f : number(random, 0.2f, 5.0f);
    work.clip = static_cast<uint8_t>(random.one_in(2) ? random.next() : 0);
    work.flip = static_cast<uint8_t>(random.next());
    for (float &variance : work.variances) variance = random.any_float();
    work.num_priors = static_cast<int16_t>(random.below(14));
    work.offset = random.one_in(3) ? 0.5f : number(random, -1.0f, 2.0f);

    const size_t cells = size_t{work.in_width} * work.in_height;
    const size_t box_count = work.min_size_num * size_t{12};
    const size_t covered = static_cast<size_t>(work.num_priors);
    const GuardedMemory boxes = floats(random, 4 * cells * std::max(box_count, covered));
    const GuardedMemory variances = floats(random, 4 * cells * covered);
    float *const regions[2] = {boxes.as<float>(), variances.as<float>()};
    Differential differential;
    differential.track(boxes, "boxes", Element::kFloat);
    differential.track(variances, "variances", Element::kFloat);
    ASSERT_TRUE(differential.same([&] { return ::tarvu_priorbox_neon_func(&work, regions); },
                                  [&] { return reference::tarvu_priorbox_neon_func(&work, regions); }));
    random.fill_any_floats(boxes.data(), boxes.size() / 4);
    random.fill_any_floats(variances.data(), variances.size() / 4);
    ASSERT_TRUE(differential.same([&] { return ::tarvu_priorbox_c_func(&work, regions); },
                                  [&] { return reference::tarvu_priorbox_c_func(&work, regions); }));
  }
}

TEST(PriorBoxKernels, TheOperatorAgreesWithItsTwinOnRandomBlocks) {
  Random random = support::test_random(402);
  SCOPED_TRACE(random.trace());
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(round);
    support::Case<_NN_PRIORBOX_PARM> prior_box;
    _NN_PRIORBOX_PARM &block = prior_box.block;
    random.fill(&block, sizeof block);
    block.in_width = random.one_in(30) ? 0 : 1 + random.below(7);
    block.in_height = random.one_in(30) ? 0 : 1 + random.below(5);
    block.img_width = random.one_in(30) ? 0 : 1 + random.below(600);
    block.img_height = random.one_in(30) ? 0 : 1 + random.below(600);
    for (float &size : block.min_sizes) size = number(random, 0.0f, 300.0f);
    for (float &size : block.max_sizes) size = number(random, 0.0f, 300.0f);
    block.min_size_num = random.one_in(30) ? 0 : 1 + random.below(4);
    block.max_size_num = random.below(5);
    for (float &ratio : block.aspect_ratios) {
      ratio = random.one_in(8) ? number(random, 0.2f, 5.0f) : random.pick({1.0f, 2.0f, 3.0f, 0.5f, 0.0f, 0x1.00001p0f});
    }
    block.aspect_ratios_num = random.one_in(30) ? 0 : 1 + random.below(4);
    block.flip = static_cast<uint8_t>(random.below(3));
    block.clip = static_cast<uint8_t>(random.below(3));
    for (float &variance : block.variances) variance = number(random, -0.1f, 0.3f);
    block.variance_num = random.one_in(30) ? 0 : random.pick({1u, 2u, 3u, 4u, 4u, 5u, 0x80000000u});
    block.offset = random.one_in(3) ? number(random, -1.0f, 2.0f) : 0.5f;

    const size_t cells = size_t{block.in_width} * block.in_height;
    const size_t region_floats = 4 * cells * std::max(size_t{10} * block.min_size_num, size_t{13});
    block.variance_ofs = static_cast<uint32_t>(4 * region_floats);
    const GuardedMemory output = floats(random, 2 * region_floats);
    prior_box.attach(&_NN_PRIORBOX_PARM::out_addr, output, "output", Element::kFloat);
    ASSERT_TRUE(prior_box.same(::tarvu_priorbox_process, reference::tarvu_priorbox_process));
  }
}

TEST(PriorBoxKernels, ADetectorsLargestMapAgreesWithTheTwin) {
  Random random = support::test_random(403);
  SCOPED_TRACE(random.trace());
  support::Case<_NN_PRIORBOX_PARM> prior_box;
  _NN_PRIORBOX_PARM &block = prior_box.block;
  block.in_width = 38;
  block.in_height = 38;
  block.img_width = 300;
  block.img_height = 300;
  block.min_sizes[0] = 30.0f;
  block.max_sizes[0] = 60.0f;
  block.min_size_num = 1;
  block.max_size_num = 1;
  block.aspect_ratios[0] = 2.0f;
  block.aspect_ratios[1] = 3.0f;
  block.aspect_ratios_num = 2;
  block.flip = 1;
  block.clip = 1;
  const float variances[4] = {0.1f, 0.1f, 0.2f, 0.2f};
  std::memcpy(block.variances, variances, sizeof variances);
  block.variance_num = 4;
  block.offset = 0.5f;
  const size_t region_floats = 38 * 38 * 6 * 4;
  block.variance_ofs = static_cast<uint32_t>(4 * region_floats);
  const GuardedMemory output = floats(random, 2 * region_floats);
  prior_box.attach(&_NN_PRIORBOX_PARM::out_addr, output, "output", Element::kFloat);
  EXPECT_TRUE(prior_box.same(::tarvu_priorbox_process, reference::tarvu_priorbox_process));
}

}  // namespace
