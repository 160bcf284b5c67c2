#include "main/crash_reporter.h"

#include <gtest/gtest.h>

namespace {

TEST(CrashReporterTest, FrameWithoutAddressResolvesToALineEnd) {
  FILE* out = tmpfile();
  resolveFrame("no address here", out);
  rewind(out);
  char text[8] = {};
  ASSERT_EQ(fread(text, 1, sizeof text - 1, out), 1u);
  fclose(out);
  EXPECT_STREQ(text, "\n");
}

}  // namespace
