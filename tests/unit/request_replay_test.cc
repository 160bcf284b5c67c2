// The request fuzzer's seed corpus and every input that ever broke the request path
// (tests/fuzz/regressions), served again through the daemon's serve routine on a demo store.
// In the sanitizer build a memory error or a leak in any of them fails this test.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "request_harness.h"

namespace {

namespace fs = std::filesystem;

const fs::path kFuzzDir = fs::path(WSGATE_SOURCE_DIR) / "tests" / "fuzz";

std::vector<fs::path> filesIn(const fs::path& dir) {
  std::vector<fs::path> files;
  if (!fs::is_directory(dir)) return files;
  for (const auto& entry : fs::directory_iterator(dir)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

std::string contents(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class RequestReplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { harness_ = std::make_unique<wsgate_fuzz::RequestHarness>(); }
  static void TearDownTestSuite() { harness_.reset(); }

  static std::unique_ptr<wsgate_fuzz::RequestHarness> harness_;
};

std::unique_ptr<wsgate_fuzz::RequestHarness> RequestReplayTest::harness_;

TEST_F(RequestReplayTest, EveryInputIsAnsweredWithACompleteMessage) {
  std::vector<fs::path> inputs = filesIn(kFuzzDir / "corpus");
  ASSERT_GE(inputs.size(), 34u) << "the seed corpus is missing from " << kFuzzDir;
  std::vector<fs::path> regressions = filesIn(kFuzzDir / "regressions");
  inputs.insert(inputs.end(), regressions.begin(), regressions.end());
  for (const fs::path& input : inputs) {
    SCOPED_TRACE(input.filename().string());
    const std::string answer = harness_->serve(contents(input));
    EXPECT_EQ(wsgate_fuzz::answerDefect(answer), "") << answer.substr(0, 400);
  }
}

// Seeds that stop reaching their operation (a renamed field, a changed contract) would
// leave the fuzzer mutating requests that the parser throws away.
TEST_F(RequestReplayTest, EveryOperationSeedReachesItsOperation) {
  int seeds = 0;
  for (const fs::path& input : filesIn(kFuzzDir / "corpus")) {
    const std::string name = input.filename().string();
    if (name.rfind("op-", 0) != 0) continue;
    ++seeds;
    harness_->restoreStore();
    const std::string operation = name.substr(3);
    const std::string answer = harness_->serve(contents(input));
    const bool reached =
        answer.find(":" + operation + "Response>") != std::string::npos ||
        answer.find(":" + operation + "Response ") != std::string::npos ||
        // getMinAvgMaxValues is always refused, by design.
        (operation == "getMinAvgMaxValues" &&
         answer.find("<faultstring>Server fault</faultstring>") != std::string::npos) ||
        // An operation still being built names itself in the runtime's fault.
        answer.find(":" + operation + "' not implemented") != std::string::npos;
    EXPECT_TRUE(reached) << name << ":\n" << answer.substr(0, 600);
  }
  EXPECT_EQ(seeds, 34);
}

}  // namespace
