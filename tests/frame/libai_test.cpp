#include <gtest/gtest.h>

#include "tarvu.h"
#include "tests/support/stdout_capture.h"

namespace {

TEST(NetworkCheck, ReturnsZeroAndPrintsNothing) {
  support::StdoutCapture capture;
  const int32_t result = nn_check_net_parm();
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(result, 0);
}

}  // namespace
