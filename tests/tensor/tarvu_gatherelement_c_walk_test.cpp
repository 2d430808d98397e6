#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_gatherelement_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/tensor/gather_case.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::Case;
using support::Fault;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::test_random;

/// One differential call. On the axis the input has an extent of its own.
class GatherElementCase {
 public:
  GatherElementCase(Type in, Type index, int rank, int axis, Formats formats, const Extents &shape, Random &random,
                    bool has_negatives = true)
      : has_negatives_(has_negatives), index_type_(index), rank_(rank), axis_(axis), shape_(shape) {
    axis_dimension_ = static_cast<size_t>(rank - 1 - axis);
    Extents in_shape = shape;
    in_shape[axis_dimension_] = 1 + random.below(6);
    index_steps_ = steps_of(shape, index.bytes(), random.below(3));
    const Extents in_steps = steps_of(in_shape, in.bytes(), random.below(3));
    const int in_frac_bits = random.between(-2, 6);
    _NN_GATHERELEMENT_PARM &block = case_.block;
    block.in_fmt = in.fmt(in_frac_bits);
    block.ind_fmt = index.fmt(random.between(-3, 3));
    block.out_fmt = output_format(formats, in, in_frac_bits, random);
    block.axis = static_cast<uint8_t>(axis);
    block.in_width = block.ind_width = block.ind_height = block.ind_channel = block.ind_batch = 0xABCD;  // not read
    block.in_height = static_cast<uint16_t>(in_shape[1]);
    block.in_channel = static_cast<uint16_t>(in_shape[2]);
    block.in_batch = static_cast<uint16_t>(in_shape[3]);
    block.out_width = static_cast<uint16_t>(shape[0]);
    block.out_height = static_cast<uint16_t>(shape[1]);
    block.out_channel = static_cast<uint16_t>(shape[2]);
    block.out_batch = static_cast<uint16_t>(shape[3]);
    block.in_line_ofs = in_steps[1];
    block.in_channel_ofs = in_steps[2];
    block.in_batch_ofs = in_steps[3];
    block.ind_line_ofs = index_steps_[1];
    block.ind_channel_ofs = index_steps_[2];
    block.ind_batch_ofs = index_steps_[3];

    total_ = 1;
    for (size_t i = 0; i < static_cast<size_t>(rank); ++i) total_ *= shape[i];
    const uint32_t out_bytes = formats == Formats::kOtherWidth ? 3 - in.bytes() : in.bytes();
    const Placement placement = {Fault::kBehind, 16, random.below(2)};
    in_ = std::make_unique<GuardedMemory>(span(in_shape, in_steps), placement);
    index_ = std::make_unique<GuardedMemory>(span(shape, index_steps_), placement);
    out_ = std::make_unique<GuardedMemory>(size_t{total_} * out_bytes, placement);
    work_ = std::make_unique<GuardedMemory>(in.bytes(), placement);
    random.fill(in_->data(), in_->size());
    random.fill(out_->data(), out_->size());
    stale_.assign(in.bytes(), 0x3C);
    fill_indices(in_shape[axis_dimension_], random);
    case_.attach(&_NN_GATHERELEMENT_PARM::in_addr, *in_, "input");
    case_.attach(&_NN_GATHERELEMENT_PARM::ind_addr, *index_, "indices");
    case_.attach(&_NN_GATHERELEMENT_PARM::out_addr, *out_, "output");
    const bool plain = formats == Formats::kEqual || formats == Formats::kOtherSign;
    block.work_buffer = plain ? support::unreadable_address() : work_->address();
  }

  ::testing::AssertionResult same() {
    ::testing::AssertionResult outcome =
        case_.same(from_scratch(*work_, stale_, ::tarvu_gatherelement_process),
                   from_scratch(*work_, stale_, reference::tarvu_gatherelement_process));
    if (outcome && !work_->guard_damage().empty()) return ::testing::AssertionFailure() << work_->guard_damage();
    return outcome;
  }

 private:
  static size_t span(const Extents &extents, const Extents &steps) {
    size_t last = steps[0];
    for (size_t i = 0; i < 4; ++i) last += size_t{steps[i]} * (std::max(1u, extents[i]) - 1);
    return last;
  }

  /// Positions on the axis, -1 but where nothing has been kept, and negative ones that land on the axis.
  void fill_indices(uint32_t extent, Random &random) {
    random.fill(index_->data(), index_->size());
    bool is_first = true;
    uint32_t at[4];
    for (at[3] = 0; at[3] < std::max(1u, shape_[3]); ++at[3])
      for (at[2] = 0; at[2] < std::max(1u, shape_[2]); ++at[2])
        for (at[1] = 0; at[1] < std::max(1u, shape_[1]); ++at[1])
          for (at[0] = 0; at[0] < shape_[0]; ++at[0]) {
            uint8_t *to = index_->data();
            for (size_t i = 0; i < 4; ++i) to += size_t{at[i]} * index_steps_[i];
            store_element(to, index_type_, 0, some_index(extent, is_first, random));
            is_first = false;
          }
  }

  int64_t some_index(uint32_t extent, bool is_first, Random &random) const {
    const bool may_be_negative = (index_type_.sign_bits != 0 || index_type_.width == 32) && has_negatives_;
    const bool starts_at_address_zero = axis_ == 0 || rank_ == 2;
    if (may_be_negative && random.one_in(4) && !(is_first && starts_at_address_zero)) return -1;
    if (may_be_negative && random.one_in(4)) {
      const int64_t magnitude = int64_t{total_} - random.below(std::min(extent, total_));
      const int64_t most = index_type_.width == 8 ? 128 : 32768;
      if (magnitude >= 2 && magnitude <= most) return -magnitude;
    }
    return random.below(extent);
  }

  bool has_negatives_;
  Type index_type_;
  int rank_, axis_;
  size_t axis_dimension_ = 0;
  Extents shape_, index_steps_ = {};
  uint32_t total_ = 0;
  std::unique_ptr<GuardedMemory> in_, index_, out_, work_;
  std::vector<uint8_t> stale_;
  Case<_NN_GATHERELEMENT_PARM> case_;
};

TEST(GatherElementWalk, EveryPairOfTypesAgreesWithTheTwinForEveryRankAndAxis) {
  Random random = test_random(331);
  SCOPED_TRACE(random.trace());
  for (const Type &in : kElementTypes) {
    for (const Type &index : kIndexTypes) {
      for (int rank = 2; rank <= 4; ++rank) {
        for (int axis = 0; axis < rank; ++axis) {
          for (int round = 0; round < 2; ++round) {
            const Formats formats = kAllFormats[random.below(5)];
            GatherElementCase gather(in, index, rank, axis, formats, shape_of(rank, random, 5), random);
            ASSERT_TRUE(gather.same()) << in.width << "/" << in.sign_bits << " by " << index.width << "/"
                                       << index.sign_bits << " rank " << rank << " axis " << axis;
          }
        }
      }
    }
  }
}

TEST(GatherElementWalk, EveryRelationOfFormatsAgreesWithTheTwin) {
  Random random = test_random(332);
  SCOPED_TRACE(random.trace());
  for (const Formats formats : kAllFormats) {
    for (const Type &in : kElementTypes) {
      for (int rank = 2; rank <= 4; ++rank) {
        for (int axis = 0; axis < rank; ++axis) {
          const Type &index = kIndexTypes[random.below(6)];
          GatherElementCase gather(in, index, rank, axis, formats, shape_of(rank, random, 5), random);
          ASSERT_TRUE(gather.same()) << "formats " << static_cast<int>(formats) << " rank " << rank << " axis " << axis;
        }
      }
    }
  }
}

TEST(GatherElementWalk, EveryWidthOfAMatrixAgreesWithTheTwinOnBothAxes) {
  Random random = test_random(333);
  SCOPED_TRACE(random.trace());
  for (uint32_t width = 1; width <= 70; ++width) {
    for (int axis : {0, 1}) {
      const Type &in = kElementTypes[random.below(4)];
      const Type &index = kIndexTypes[random.below(6)];
      const Formats formats = kAllFormats[random.below(5)];
      GatherElementCase gather(in, index, 2, axis, formats, {width, 3, 0, 0}, random);
      ASSERT_TRUE(gather.same()) << "width " << width << " axis " << axis;
    }
  }
}

TEST(GatherElementWalk, LongLinesWithoutNegativeIndicesAgreeWithTheTwinForEveryTypeOfIndex) {
  Random random = test_random(334);
  SCOPED_TRACE(random.trace());
  for (const Type &in : kElementTypes) {
    for (const Type &index : kIndexTypes) {
      for (const Formats formats : kAllFormats) {
        for (int axis : {0, 1}) {
          const uint32_t width = 500 + random.below(100);
          GatherElementCase gather(in, index, 2, axis, formats, {width, 2, 0, 0}, random, false);
          ASSERT_TRUE(gather.same()) << in.width << " by " << index.width << "/" << index.sign_bits << " axis " << axis;
        }
      }
    }
  }
}

TEST(GatherElementWalk, OneNegativeIndexAtEveryPlaceOfALineAgreesWithTheTwin) {
  for (const Type &index_type : {kInt8, kInt16, kInt32, kUint32}) {
    for (uint32_t place = 1; place < 40; ++place) {
      for (int axis : {0, 1}) {
        std::vector<uint8_t> values(3 * 41);
        for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint8_t>(i);
        const GuardedMemory in = memory_of(values);
        const GuardedMemory index(41 * index_type.bytes());
        const GuardedMemory out(41);
        for (uint32_t i = 0; i < 41; ++i) store_element(index.data(), index_type, i, i == place ? -1 : (7 * i) % 3);
        Case<_NN_GATHERELEMENT_PARM> gather;
        gather.block.in_fmt = gather.block.out_fmt = kUint8.fmt();
        gather.block.ind_fmt = index_type.fmt();
        gather.block.in_height = gather.block.out_height = 1;
        gather.block.out_width = 41;
        gather.block.in_line_ofs = 41;
        gather.block.ind_line_ofs = 41 * index_type.bytes();
        gather.block.axis = static_cast<uint8_t>(axis);
        gather.attach(&_NN_GATHERELEMENT_PARM::in_addr, in, "input");
        gather.attach(&_NN_GATHERELEMENT_PARM::ind_addr, index, "indices");
        gather.attach(&_NN_GATHERELEMENT_PARM::out_addr, out, "output");
        ASSERT_TRUE(gather.same(::tarvu_gatherelement_process, reference::tarvu_gatherelement_process))
            << "index width " << index_type.width << " axis " << axis << " place " << place;
      }
    }
  }
}

}  // namespace
