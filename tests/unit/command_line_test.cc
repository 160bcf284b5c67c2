#include "main/command_line.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "main/server_state.h"

namespace {

// The parser's result on `args` (argv[0] is "wsgated") and both its output streams.
struct Parse {
  int status = 0;
  std::string out, err;
};

std::string readAll(FILE* f) {
  std::string text;
  rewind(f);
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
  fclose(f);
  return text;
}

Parse parse(LogSettings& logs, std::vector<std::string> args) {
  args.insert(args.begin(), "wsgated");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  FILE *out = tmpfile(), *err = tmpfile();
  const int status = parseCommandLine(static_cast<int>(argv.size()), argv.data(), logs, out, err);
  return {status, readAll(out), readAll(err)};
}

class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override { g_daemon_mode = true; }
  void TearDown() override { g_daemon_mode = true; }
  LogSettings logs_;
};

TEST_F(CommandLineTest, OptionsSetTheirFieldsAndLaterOnesWin) {
  EXPECT_EQ(parse(logs_, {}).status, -1);
  EXPECT_TRUE(g_daemon_mode);
  EXPECT_EQ(logs_.eventLogLimit(), 2500);
  EXPECT_EQ(logs_.trendSnapshotLimit(), 833);
  Parse p = parse(logs_, {"-d", "-h", "/a", "-a", "/b", "-s", "/c", "-t", "/d", "-m", "12x", "-p",
                          "4096", "-c", "2", "-l", "3", "-h", "/e"});
  EXPECT_EQ(p.status, -1);
  EXPECT_EQ(p.out, "");
  EXPECT_FALSE(g_daemon_mode);
  EXPECT_EQ(
      logs_.delta_log_path + logs_.event_log_path + logs_.system_log_path + logs_.trend_log_path,
      "/e/b/c/d");
  EXPECT_EQ(logs_.max_records, 12);  // trailing characters are accepted
  EXPECT_EQ(logs_.page_size, 4096);
  EXPECT_EQ(logs_.cache_size, 2048u);
  EXPECT_EQ(logs_.heap_limit, 3072u);
  EXPECT_EQ(parse(logs_, {"-m", "0"}).status, -1);
  EXPECT_EQ(logs_.max_records, 0);
  // Beyond the 32-bit field (and beyond strtol's range) is "as many as there are".
  for (const char* huge : {"3000000000", "99999999999999999999999"}) {
    EXPECT_EQ(parse(logs_, {"-m", huge}).status, -1);
    EXPECT_EQ(logs_.max_records, INT32_MAX) << huge;
  }
}

// Each refusal prints its lines, then the usage (whatever the settings, it shows the
// defaults), and fails with 1.
TEST_F(CommandLineTest, RefusalsPrintWhatIsWrongThenTheUsage) {
  FILE* usage_file = tmpfile();
  printUsage(usage_file);
  const std::string usage = readAll(usage_file);
  EXPECT_EQ(usage.rfind("Usage: wsgated [-d] [-h deltaLog]  [-a eventLog] \n", 0), 0u);
  EXPECT_NE(usage.find("Deltas:10000, Events:2500, and Trend snapshots:833 \n"), std::string::npos);
  const struct {
    std::vector<std::string> args;
    const char *out, *err;
  } cases[] = {
      {{"-m", "abc"}, "Bad field: abc \n", ""},
      {{"-p", "0"}, "Bad field: 0 \n", "Error: invalid page size: 0\n"},
      {{"-c", "-3"}, "Bad field: -3 \n", "Error: invalid cache size: -3\n"},
      {{"-l", "x"}, "Bad field: x \n", "Error: invalid heap limit: 0\n"},
      {{"-d", "-h"}, "Missing field for: -h \n", ""},
      {{"-h", ""}, "Bad field:  \n", ""},
      {{"-x", "-d", "y"}, "Unknown parameter: -x \nUnknown parameter: y \n", ""},
      // A later bad field still ends parsing at once, without the remembered usage.
      {{"-x", "-m", "-1"}, "Unknown parameter: -x \nBad field: -1 \n", ""},
  };
  for (const auto& c : cases) {
    Parse p = parse(logs_, c.args);
    EXPECT_EQ(p.status, 1) << c.out;
    EXPECT_EQ(p.out, c.out + usage);
    EXPECT_EQ(p.err, c.err);
  }
}

}  // namespace
