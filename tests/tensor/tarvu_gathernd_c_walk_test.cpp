#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "tarvu.h"
#include "tests/reference/tarvu_gathernd_c_reference.h"
#include "tests/support/differential.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"
#include "tests/tensor/gather_case.h"
#include "tests/tensor/gathernd_case.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
using support::Case;
using support::Fault;
using support::GuardedMemory;
using support::Placement;
using support::Random;
using support::test_random;

/// How the indices are held.
struct IndexForm {
  Type type;
  int frac_bits;
};

constexpr IndexForm kIndexForms[] = {{kInt8, 0},  {kInt8, 2},   {kUint8, 0},  {kUint8, 3}, {kInt16, 0},
                                     {kInt16, 5}, {kUint16, 0}, {kUint16, 8}, {kInt32, 4}, {kUint32, 0}};

void store_index(uint8_t *array, const IndexForm &form, size_t i, uint32_t coordinate, Random &random) {
  if (form.type.width == 32) {
    const float value = static_cast<float>(coordinate) + random.uniform(0.0f, 0.99f);
    std::memcpy(array + 4 * i, &value, 4);
    return;
  }
  const uint32_t fraction = random.below(1u << form.frac_bits);
  store_element(array, form.type, i, (int64_t{coordinate} << form.frac_bits) + fraction);
}

/// One differential call: `shared` leading dimensions, `coordinates` behind them, the slice behind those.
::testing::AssertionResult random_call(Type in_type, const IndexForm &form, Formats formats, uint32_t rank,
                                       uint32_t shared, uint32_t coordinates, uint32_t tuples_per_batch,
                                       Random &random) {
  std::vector<uint32_t> shape(rank);
  uint32_t total = 1;
  for (uint32_t &extent : shape) total *= extent = 1 + random.below(5);
  uint32_t batches = 1;
  for (uint32_t i = 0; i < shared; ++i) batches *= shape[i];
  uint32_t slice = 1;
  for (uint32_t i = shared + coordinates; i < rank; ++i) slice *= shape[i];
  const uint32_t tuples = batches * tuples_per_batch;
  const int in_frac_bits = random.between(-2, 6);

  Case<_NN_GATHERND_PARM> gather;
  set_shapes(gather.block, {shape, {tuples_per_batch, batches, coordinates}, {tuples, slice}});
  gather.block.in_fmt = in_type.fmt(in_frac_bits);
  gather.block.ind_fmt = form.type.fmt(form.frac_bits);
  gather.block.out_fmt = output_format(formats, in_type, in_frac_bits, random);
  gather.block.batch_dims = shared;

  const uint32_t out_bytes = formats == Formats::kOtherWidth ? 3 - in_type.bytes() : in_type.bytes();
  const Placement placement = {Fault::kBehind, 16, random.below(2)};
  const Placement for_floats = {Fault::kBehind, 4, 0};
  const size_t index_count = size_t{tuples} * std::max(1u, coordinates);
  // Coordinates without a dimension step by one element and are 0 or 1: so many elements lie behind the tensor.
  const GuardedMemory in(size_t{total + coordinates} * in_type.bytes(), placement);
  const GuardedMemory index(index_count * form.type.bytes(), form.type.width == 32 ? for_floats : placement);
  const GuardedMemory out(size_t{tuples} * slice * out_bytes, placement);
  const GuardedMemory work(4 * index_count, for_floats);
  random.fill(in.data(), in.size());
  random.fill(out.data(), out.size());
  random.fill(index.data(), index.size());
  for (size_t i = 0; coordinates != 0 && i < index_count; ++i) {
    const size_t dimension = shared + i % coordinates;
    store_index(index.data(), form, i, dimension < rank ? random.below(shape[dimension]) : random.below(2), random);
  }
  gather.attach(&_NN_GATHERND_PARM::in_addr, in, "input");
  gather.attach(&_NN_GATHERND_PARM::ind_addr, index, "indices");
  gather.attach(&_NN_GATHERND_PARM::out_addr, out, "output");
  gather.block.work_buffer = form.type.width == 32 ? support::unreadable_address() : work.address();
  ::testing::AssertionResult outcome = gather.same(gathernd_process, reference::tarvu_gathernd_process);
  if (outcome && !work.guard_damage().empty()) return ::testing::AssertionFailure() << work.guard_damage();
  return outcome;
}

TEST(GatherNdWalk, EveryTypeAndIndexFormAgreesWithTheTwin) {
  Random random = test_random(351);
  SCOPED_TRACE(random.trace());
  for (const Type &in_type : kElementTypes) {
    for (const IndexForm &form : kIndexForms) {
      for (const Formats formats : kAllFormats) {
        const uint32_t rank = 1 + random.below(4);
        const uint32_t shared = random.below(rank + 1);
        const uint32_t coordinates = random.below(rank - shared + 1);
        ASSERT_TRUE(random_call(in_type, form, formats, rank, shared, coordinates, 1 + random.below(5), random))
            << in_type.width << "/" << in_type.sign_bits << " by " << form.type.width << "/" << form.type.sign_bits
            << " rank " << rank << " shared " << shared << " coordinates " << coordinates;
      }
    }
  }
}

TEST(GatherNdWalk, EveryDivisionOfTheDimensionsAgreesWithTheTwin) {
  Random random = test_random(352);
  SCOPED_TRACE(random.trace());
  for (uint32_t rank = 1; rank <= 4; ++rank) {
    for (uint32_t shared = 0; shared <= rank; ++shared) {
      for (uint32_t coordinates = 0; coordinates <= 7; ++coordinates) {
        for (const Formats formats : {Formats::kEqual, Formats::kOtherFraction}) {
          const Type &in_type = kElementTypes[random.below(4)];
          const IndexForm &form = kIndexForms[random.below(10)];
          ASSERT_TRUE(random_call(in_type, form, formats, rank, shared, coordinates, 1 + random.below(6), random))
              << "rank " << rank << " shared " << shared << " coordinates " << coordinates;
        }
      }
    }
  }
}

TEST(GatherNdWalk, EveryNumberOfTuplesAgreesWithTheTwin) {
  Random random = test_random(353);
  SCOPED_TRACE(random.trace());
  for (uint32_t tuples = 1; tuples <= 70; ++tuples) {
    const uint32_t coordinates = 1 + random.below(3);
    ASSERT_TRUE(random_call(kElementTypes[random.below(4)], kIndexForms[random.below(10)], Formats::kEqual, 4, 0,
                            coordinates, tuples, random))
        << tuples;
  }
}

}  // namespace
