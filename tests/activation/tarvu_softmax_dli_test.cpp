#include <gtest/gtest.h>

#include "tarvu.h"
#include "tests/support/stdout_capture.h"

namespace {

TEST(SoftmaxDli, DoesNothingAndReturnsZero) {
  support::StdoutCapture capture;
  const _QX_RESULT result = ::tarvu_dli_softmax_process();
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(result, 0);
}

}  // namespace
