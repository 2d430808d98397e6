#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_topk_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::Case;
using support::Element;
using support::Fault;
using support::GuardedMemory;
using support::Random;
using support::test_random;

enum class Content { kRandom, kManyTies, kExtremes, kAscending, kDescending };

void fill(const GuardedMemory &memory, Type type, Content content, Random &random) {
  const size_t count = memory.size() / type.bytes();
  for (size_t i = 0; i < count; ++i) {
    int64_t value = 0;
    switch (content) {
      case Content::kRandom:
        value = static_cast<int64_t>(random.next() >> 40);
        break;
      case Content::kManyTies:
        value = random.between(-2, 2);
        break;
      case Content::kExtremes:
        value = random.pick({0, -1, 0x7F, 0x80, 0x7FFF, 0x8000, 0xFF, 0xFFFF});
        break;
      case Content::kAscending:
        value = static_cast<int64_t>(i / 2);
        break;
      case Content::kDescending:
        value = -static_cast<int64_t>(i / 2);
        break;
    }
    store_element(memory.data(), type, i, value);
  }
}

struct Shape {
  uint32_t width, height, channel, batch;
};

/// One call with outputs of their own strides. Sorted picks are compared in place, unsorted ones line by line as sets.
class TopkCase {
 public:
  TopkCase(Type type, Shape shape, int axis, uint32_t k, uint32_t padding, size_t misalign, Content content,
           Random &random)
      : type_(type),
        extents_{shape.batch, shape.channel, shape.height, shape.width},
        axis_(axis),
        k_(k),
        in_(size_t{shape.width} * shape.height * shape.channel * shape.batch * type.bytes(), placement(misalign)),
        work_(4 * std::max<size_t>(k, extents_[axis])),
        values_(lay_out(type.bytes(), padding, value_steps_), placement(misalign)),
        indices_(lay_out(2, padding + 3, index_steps_), placement(misalign)),
        stale_(work_.size(), 0) {
    fill(in_, type, content, random);
    random.fill(values_.data(), values_.size());
    random.fill(indices_.data(), indices_.size());
    _NN_TOPK_PARM &block = case_.block;
    block.in_fmt = type.fmt();
    block.width = static_cast<uint16_t>(shape.width);
    block.height = static_cast<uint16_t>(shape.height);
    block.channel = static_cast<uint16_t>(shape.channel);
    block.batch = static_cast<uint16_t>(shape.batch);
    block.axis = static_cast<int8_t>(axis);
    block.k = k;
    block.out_batch_ofs = value_steps_[0];
    block.out_channel_ofs = value_steps_[1];
    block.out_line_ofs = value_steps_[2];
    block.out_index_batch_ofs = index_steps_[0];
    block.out_index_channel_ofs = index_steps_[1];
    block.out_index_line_ofs = index_steps_[2];
    block.work_buffer = work_.address();
    case_.attach(&_NN_TOPK_PARM::in_addr, in_, "input");
    case_.attach(&_NN_TOPK_PARM::out_addr, values_, "values");
    case_.attach(&_NN_TOPK_PARM::out_index_addr, indices_, "indices");
  }

  /// Scratch entries that name elements of the tensor. Values only: an element ahead of its line has no position in it.
  void use_stale_scratch(Random &random) {
    const auto elements = static_cast<uint32_t>(in_.size() / type_.bytes());
    for (size_t i = 0; i < stale_.size(); i += 4) {
      const uint32_t offset = random.below(elements);
      std::memcpy(stale_.data() + i, &offset, 4);
    }
    case_.block.out_index_addr = 0;
  }

  ::testing::AssertionResult same(int largest, int sorted) {
    case_.block.largest = static_cast<int8_t>(largest);
    case_.block.sorted = static_cast<int8_t>(sorted);
    auto ordered = [this](auto process) {
      return [this, process](const _NN_TOPK_PARM *block) {
        const _QX_RESULT result = process(block);
        if (block->sorted == 0 && block->k != extents_[axis_]) order_picks();
        return result;
      };
    };
    ::testing::AssertionResult outcome =
        case_.same(from_scratch(work_, stale_, ordered(::tarvu_topk_process)),
                   from_scratch(work_, stale_, ordered(reference::tarvu_topk_process)));
    if (outcome && !work_.guard_damage().empty()) return ::testing::AssertionFailure() << work_.guard_damage();
    return outcome;
  }

 private:
  static support::Placement placement(size_t misalign) { return {Fault::kBehind, 16, misalign}; }

  /// Steps of the output in bytes, slowest axis first, and the bytes that it spans.
  size_t lay_out(uint32_t element_bytes, uint32_t padding, uint32_t (&steps)[4]) const {
    uint32_t bytes = element_bytes;
    for (int i = 3; i >= 0; --i) {
      steps[i] = i == 3 ? element_bytes : bytes + padding;
      bytes = steps[i] * std::max(1u, i == axis_ ? k_ : extents_[i]);
    }
    return bytes;
  }

  /// Brings the picks of every line into ascending order of their index, values along with them.
  void order_picks() const {
    uint32_t counts[4] = {extents_[0], extents_[1], extents_[2], extents_[3]};
    counts[axis_] = 1;
    uint32_t at[4];
    for (at[0] = 0; at[0] < counts[0]; ++at[0])
      for (at[1] = 0; at[1] < counts[1]; ++at[1])
        for (at[2] = 0; at[2] < counts[2]; ++at[2])
          for (at[3] = 0; at[3] < counts[3]; ++at[3]) order_line(at);
  }

  void order_line(const uint32_t (&at)[4]) const {
    uint8_t *value = values_.data();
    uint8_t *index = indices_.data();
    for (int i = 0; i < 4; ++i) {
      value += size_t{at[i]} * value_steps_[i];
      index += size_t{at[i]} * index_steps_[i];
    }
    std::vector<std::pair<uint16_t, uint16_t>> picks(k_);
    for (size_t i = 0; i < k_; ++i) {
      std::memcpy(&picks[i].first, index + i * index_steps_[axis_], 2);
      std::memcpy(&picks[i].second, value + i * value_steps_[axis_], type_.bytes());
    }
    std::sort(picks.begin(), picks.end());
    for (size_t i = 0; i < k_; ++i) {
      std::memcpy(index + i * index_steps_[axis_], &picks[i].first, 2);
      std::memcpy(value + i * value_steps_[axis_], &picks[i].second, type_.bytes());
    }
  }

  Type type_;
  uint32_t extents_[4];  // slowest first, as axes are numbered
  int axis_;
  uint32_t k_;
  uint32_t value_steps_[4] = {};
  uint32_t index_steps_[4] = {};
  GuardedMemory in_, work_, values_, indices_;
  std::vector<uint8_t> stale_;
  Case<_NN_TOPK_PARM> case_;
};

TEST(TopKWalk, EveryTypeAxisAndDirectionAgreesWithTheTwinOverPaddedAndDenseOutputs) {
  Random random = test_random(311);
  SCOPED_TRACE(random.trace());
  for (const Type &type : kElementTypes) {
    for (int axis = 0; axis < 4; ++axis) {
      for (int round = 0; round < 16; ++round) {
        const Shape shape = {1 + random.below(9), 1 + random.below(6), 1 + random.below(5), 1 + random.below(4)};
        const uint32_t extents[4] = {shape.batch, shape.channel, shape.height, shape.width};
        const uint32_t k = random.below(extents[axis] + 1);
        const auto content = static_cast<Content>(random.below(5));
        TopkCase topk(type, shape, axis, k, round & 1 ? random.below(7) : 0, random.below(2), content, random);
        ASSERT_TRUE(topk.same(round >> 1 & 1, round >> 2 & 1))
            << type.width << "/" << type.sign_bits << " axis " << axis << " k " << k;
      }
    }
  }
}

TEST(TopKWalk, EveryLineLengthAgreesWithTheTwinForFewHalfAndAllPicks) {
  Random random = test_random(312);
  SCOPED_TRACE(random.trace());
  for (uint32_t n = 1; n <= 70; ++n) {
    for (const uint32_t k : {1u, std::min(n, 5u), (n + 1) / 2, n - 1, n}) {
      const Type &type = kElementTypes[random.below(4)];
      const auto content = static_cast<Content>(random.below(5));
      TopkCase topk(type, {n, 2, 1, 1}, 3, k, 0, random.below(2), content, random);
      for (int largest : {0, 1}) {
        for (int sorted : {0, 1}) ASSERT_TRUE(topk.same(largest, sorted)) << "n " << n << " k " << k;
      }
    }
  }
}

TEST(TopKWalk, LongLinesOfEveryContentAgreeWithTheTwin) {
  Random random = test_random(313);
  SCOPED_TRACE(random.trace());
  for (const Type &type : kElementTypes) {
    for (int content = 0; content < 5; ++content) {
      for (const auto &[n, k] : {std::pair{1000u, 5u}, std::pair{2049u, 100u}, std::pair{517u, 400u}}) {
        TopkCase topk(type, {n, 1, 2, 1}, 3, k, 0, 0, static_cast<Content>(content), random);
        ASSERT_TRUE(topk.same(1, 1)) << n;
        ASSERT_TRUE(topk.same(0, 1)) << n;
        ASSERT_TRUE(topk.same(1, 0)) << n;
      }
    }
  }
}

TEST(TopKWalk, LongLinesAcrossTheWidthAgreeWithTheTwin) {
  Random random = test_random(316);
  SCOPED_TRACE(random.trace());
  for (const Type &type : kElementTypes) {
    for (int axis = 0; axis < 3; ++axis) {
      for (const auto &[n, k] : {std::pair{61u, 3u}, std::pair{64u, 1u}, std::pair{150u, 2u}, std::pair{331u, 2u}}) {
        const Shape shape = {3, axis == 2 ? n : 1, axis == 1 ? n : 2, axis == 0 ? n : 1};
        TopkCase topk(type, shape, axis, k, 0, random.below(2), static_cast<Content>(random.below(5)), random);
        for (int largest : {0, 1}) {
          for (int sorted : {0, 1}) ASSERT_TRUE(topk.same(largest, sorted)) << "axis " << axis << " n " << n;
        }
      }
    }
  }
}

TEST(TopKWalk, EveryLengthUpTo300AgreesWithTheTwinForOneAndTwoPicks) {
  Random random = test_random(317);
  SCOPED_TRACE(random.trace());
  for (uint32_t n = 71; n <= 300; ++n) {
    for (const uint32_t k : {1u, 2u}) {
      const Type &type = kElementTypes[random.below(4)];
      TopkCase topk(type, {n, 1, 1, 1}, 3, k, 0, random.below(2), static_cast<Content>(random.below(5)), random);
      for (int largest : {0, 1}) ASSERT_TRUE(topk.same(largest, 1)) << "n " << n << " k " << k;
    }
  }
}

TEST(TopKWalk, SortedPicksAboveTheLineLengthCarryTheWorstEntriesOfOneLineIntoTheNext) {
  Random random = test_random(315);
  SCOPED_TRACE(random.trace());
  for (const Type &type : kElementTypes) {
    for (int round = 0; round < 12; ++round) {
      const uint32_t n = 1 + random.below(9);
      TopkCase topk(type, {n, 4, 2, 1}, 3, n + 1 + random.below(6), 0, 0, Content::kManyTies, random);
      topk.use_stale_scratch(random);
      ASSERT_TRUE(topk.same(round & 1, 1)) << "n " << n;
    }
  }
}

TEST(TopKWalk, TheBestElementIsFoundAtEveryPlaceOfALine) {
  Random random = test_random(314);
  for (uint32_t n : {33u, 64u}) {
    for (uint32_t place = 0; place < n; ++place) {
      std::vector<int16_t> line(n, 5);
      line[place] = 6;
      const GuardedMemory in = memory_of(line);
      const GuardedMemory index(2);
      const GuardedMemory work(4 * n);
      _NN_TOPK_PARM block{};
      block.in_addr = in.address();
      block.out_index_addr = index.address();
      block.work_buffer = work.address();
      block.in_fmt = kInt16.fmt();
      block.width = static_cast<uint16_t>(n);
      block.height = block.channel = block.batch = 1;
      block.axis = 3;
      block.largest = 1;
      block.sorted = static_cast<int8_t>(random.below(2));
      block.k = 1;
      ASSERT_EQ(::tarvu_topk_process(&block), QX_OK);
      uint16_t got = 0;
      std::memcpy(&got, index.data(), 2);
      ASSERT_EQ(got, place);
    }
  }
}

}  // namespace
