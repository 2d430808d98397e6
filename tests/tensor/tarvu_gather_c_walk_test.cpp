#include <gtest/gtest.h>

#include "tests/support/random.h"
#include "tests/tensor/gather_case.h"
#include "tests/tensor/selection_case.h"

namespace {

using namespace selection_test;
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

}  // namespace
