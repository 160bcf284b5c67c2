#include "main/crash_reporter.h"

#include <gtest/gtest.h>

namespace {

// The end-to-end SIGQUIT case shows that frames are printed; what is taken from each line
// for the demangler and addr2line is only seen here.
TEST(CrashReporterTest, ParsesTheFramesOfBacktraceSymbols) {
  FrameLine named = parseFrameLine("/usr/sbin/wsgated(_ZN3foo3barEv+0x1a) [0x401234]");
  EXPECT_TRUE(named.has_address);
  EXPECT_EQ(named.address, 0x401234ul);
  EXPECT_EQ(named.executable + "|" + named.symbol, "/usr/sbin/wsgated|_ZN3foo3barEv");
  EXPECT_EQ(parseFrameLine("/usr/sbin/wsgated() [0x40abcd]").symbol, "");
  // Without "(" the executable runs up to and including the blank before "[0x".
  FrameLine bare = parseFrameLine("/lib/libc.so.6 [0x7f0012345678]");
  EXPECT_EQ(bare.executable + "|" + bare.symbol, "/lib/libc.so.6 |/lib/libc.so.6 [0x7f0012345678]");
  EXPECT_FALSE(parseFrameLine("garbage without an address").has_address);
}

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
