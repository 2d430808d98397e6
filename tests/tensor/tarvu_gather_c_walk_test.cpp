#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_gather_c_reference.h"
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

TEST(GatherWalk, EveryPairOfTypesAgreesWithTheTwinForEveryRankAndAxis) {
  Random random = test_random(321);
  SCOPED_TRACE(random.trace());
  for (const Type &in : kElementTypes) {
    for (const Type &index : kIndexTypes) {
      for (int rank = 2; rank <= 4; ++rank) {
        for (int axis = 0; axis <= rank; ++axis) {
          const int index_rank = random.between(1, rank == 4 ? 4 : 5 - rank);
          GatherCase gather(in, index, rank, index_rank, axis, kAllFormats[random.below(5)], random);
          ASSERT_TRUE(gather.same()) << in.width << "/" << in.sign_bits << " by " << index.width << "/"
                                     << index.sign_bits << " rank " << rank << " and " << index_rank << " axis "
                                     << axis;
        }
      }
    }
  }
}

TEST(GatherWalk, EveryRelationOfFormatsAgreesWithTheTwinForEveryRankOfTheIndices) {
  Random random = test_random(322);
  SCOPED_TRACE(random.trace());
  for (const Formats formats : kAllFormats) {
    for (const Type &in : kElementTypes) {
      for (int rank = 2; rank <= 4; ++rank) {
        for (int index_rank = 1; index_rank <= 4; ++index_rank) {
          for (int axis = 0; axis < rank; ++axis) {
            const Type &index = kIndexTypes[random.below(6)];
            GatherCase gather(in, index, rank, index_rank, axis, formats, random);
            ASSERT_TRUE(gather.same()) << "formats " << static_cast<int>(formats) << " width " << in.width << " rank "
                                       << rank << " and " << index_rank << " axis " << axis;
          }
        }
      }
    }
  }
}

TEST(GatherWalk, SlicesOfEveryLengthAreCopiedWholeAndNoFurther) {
  Random random = test_random(323);
  SCOPED_TRACE(random.trace());
  std::vector<uint32_t> lengths;
  for (uint32_t length = 0; length <= 400; ++length) lengths.push_back(length);
  for (const uint32_t length : {1023u, 1024u, 1025u, 4095u, 4096u, 4097u, 9000u}) lengths.push_back(length);
  for (const uint32_t length : lengths) {
    const Placement placement = {Fault::kBehind, 16, random.below(16)};
    const GuardedMemory in(3 * length, placement);
    const GuardedMemory index = memory_of<uint8_t>({2, 0});
    const GuardedMemory out(2 * length, placement);
    random.fill(in.data(), in.size());
    _NN_GATHER_PARM block{};
    block.in_fmt = block.out_fmt = block.ind_fmt = kUint8.fmt();
    block.in_height = 3;
    block.ind_width = 2;
    block.in_line_ofs = block.out_line_ofs = length;
    block.in_addr = in.address();
    block.ind_addr = index.address();
    block.out_addr = out.address();
    ASSERT_EQ(::tarvu_gather_process(&block), QX_OK);
    ASSERT_EQ(std::memcmp(out.data(), in.data() + 2 * length, length), 0) << length;
    ASSERT_EQ(std::memcmp(out.data() + length, in.data(), length), 0) << length;
    ASSERT_EQ(out.guard_damage(), "") << length;
  }
}

/// A list that is longer than what is re-formatted at a time.
TEST(GatherWalk, ALongListOfSingleElementsAgreesWithTheTwinInEveryRelationOfFormats) {
  Random random = test_random(324);
  SCOPED_TRACE(random.trace());
  constexpr uint32_t kIndices = 700;
  constexpr uint32_t kWidth = 90;
  for (const Formats formats : kAllFormats) {
    for (const Type &in_type : kElementTypes) {
      const GuardedMemory in(2 * kWidth * in_type.bytes());
      const GuardedMemory index(kIndices);
      const GuardedMemory out(2 * kIndices * 2);
      const GuardedMemory work(in_type.bytes());
      random.fill(in.data(), in.size());
      random.fill(out.data(), out.size());
      for (uint32_t i = 0; i < kIndices; ++i) index.data()[i] = static_cast<uint8_t>(random.below(kWidth));
      Case<_NN_GATHER_PARM> gather;
      gather.block.in_fmt = in_type.fmt(3);
      gather.block.out_fmt = output_format(formats, in_type, 3, random);
      gather.block.ind_fmt = kInt8.fmt();
      gather.block.in_height = gather.block.out_height = 2;
      gather.block.ind_width = gather.block.out_width = kIndices;
      gather.block.in_line_ofs = kWidth * in_type.bytes();
      gather.block.out_line_ofs = 2 * kIndices;
      gather.block.axis = 1;
      gather.block.work_buffer = work.address();
      gather.attach(&_NN_GATHER_PARM::in_addr, in, "input");
      gather.attach(&_NN_GATHER_PARM::ind_addr, index, "indices");
      gather.attach(&_NN_GATHER_PARM::out_addr, out, "output");
      ASSERT_TRUE(gather.same(::tarvu_gather_process, reference::tarvu_gather_process))
          << "formats " << static_cast<int>(formats) << " width " << in_type.width;
    }
  }
}

}  // namespace
