// The caller registry on the test clock: the edges that the end-to-end test of the running
// daemon does not reach (anonymous callers, the once-a-minute sweep, exactly 600 seconds).
#include "main/connections.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "main/server_state.h"
#include "platform/path.h"
#include "platform/vtx.h"
#include "store_fixture.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

class ConnectionsTest : public ::testing::Test {
 protected:
  ConnectionsTest() { setMono(1000); }
  ~ConnectionsTest() override { vtx_ClearTestClock(); }

  void SetUp() override {
    server_.cds.set_handle(pcd_init(0));
    ASSERT_TRUE(server_.cds.connected()) << pcd_last_error();
    server_.next_sweep_time = 1000;
  }

  void setMono(uint32_t seconds) { vtx_SetTestClock(1700000000000LL + seconds * 1000LL, seconds); }

  std::vector<std::string> published() {
    std::vector<std::string> numbers;
    CPath(kConnectionsPath).getAttributeList("Children", server_.cds, numbers);
    return numbers;
  }

  // Records a caller and returns what that wrote to stderr.
  std::string record(const char* address, const char* user, bool https = false) {
    CaptureStderr();
    recordCaller(server_, address, user, https);
    return GetCapturedStderr();
  }
  // Runs a sweep at `seconds` and returns what it wrote to stderr.
  std::string sweepAt(uint32_t seconds) {
    setMono(seconds);
    CaptureStderr();
    sweepConnections(server_);
    return GetCapturedStderr();
  }

  wsgate_test::TempStore store_;  // CDS_PATH for the Server's own pcd_init
  Server server_;
};

TEST_F(ConnectionsTest, AnonymousCallersAndCallersWithoutAddressUseUpANumberOnly) {
  EXPECT_EQ(record("10.0.0.2", ""), "");
  EXPECT_EQ(record("", "bob"), "");
  EXPECT_EQ(record("10.0.0.2", "bob"), "New wsgated connection 3 for 10.0.0.2bob \n");
  EXPECT_EQ(record("10.0.0.2", "bob", true), "New wsgated connection 4S for 10.0.0.2bobS \n");
  EXPECT_EQ(server_.connections.size(), 2u);
  EXPECT_EQ(server_.connections.at("10.0.0.2bobS").host, hostOfAddress("10.0.0.2"));
}

TEST_F(ConnectionsTest, SweepsOnceAMinuteAndWithdrawsAfterMoreThan600Seconds) {
  record("10.1.1.1", "kept");  // seen at 1000
  EXPECT_EQ(sweepAt(1000), "");
  EXPECT_EQ(published(), std::vector<std::string>{"1"});
  EXPECT_EQ(server_.next_sweep_time, 1060u);
  setMono(1030);
  record("10.1.1.2", "gone");  // seen at 1030: waits for the following sweep
  sweepAt(1059);
  EXPECT_EQ(published(), std::vector<std::string>{"1"});
  sweepAt(1060);
  EXPECT_EQ(published(), (std::vector<std::string>{"1", "2"}));

  // At 1630 "kept" is 630 seconds old and goes; "gone", exactly 600, stays.
  EXPECT_EQ(sweepAt(1630), "Timed out connection 1 for 10.1.1.1 \n");
  EXPECT_EQ(published(), std::vector<std::string>{"2"});
  EXPECT_EQ(server_.connections.count("10.1.1.1kept"), 0u);
  EXPECT_EQ(sweepAt(1690), "Timed out connection 2 for 10.1.1.2 \n");
  EXPECT_TRUE(published().empty());
  // A caller who returns after its record was deleted gets a new number.
  EXPECT_EQ(record("10.1.1.2", "gone"), "New wsgated connection 3 for 10.1.1.2gone \n");

  // A connection published by someone else (an earlier run) goes at the next sweep.
  server_.connxns.AddConnxn("9", "10.9.9.9", hostOfAddress("10.9.9.9"), "old");
  EXPECT_EQ(sweepAt(1750), std::string("Unexpected removal of connection ") + kConnectionsPath +
                               " 9 \n");
  EXPECT_EQ(published(), std::vector<std::string>{"3"});
}

TEST_F(ConnectionsTest, ShutdownWithdrawsEverythingAndBadNumbersAreRefused) {
  EXPECT_EQ(server_.connxns.RemoveAllConnxns(), 0);  // nothing published yet
  record("10.0.0.6", "a");
  record("10.0.0.7", "b", true);
  sweepAt(1000);
  EXPECT_EQ(published(), (std::vector<std::string>{"1", "2S"}));
  EXPECT_NE(server_.connxns.RemoveConnxn("3"), 0);
  EXPECT_NE(server_.connxns.AddConnxn("a/b", "", "", ""), 0);
  EXPECT_EQ(server_.connxns.RemoveAllConnxns(), 0);
  EXPECT_TRUE(published().empty());
}

}  // namespace
