#include <gtest/gtest.h>

#include "tarvu.h"

namespace {

TEST(LibraryVersion, IsTheTextThatRuntimesCompareWith) { EXPECT_STREQ(prebuilt_ai_get_lib_version(), "02.19.2406110"); }

TEST(LibraryVersion, IsOneConstantTextForAllCalls) {
  EXPECT_EQ(prebuilt_ai_get_lib_version(), prebuilt_ai_get_lib_version());
}

}  // namespace
