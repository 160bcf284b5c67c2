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

  std::string leaf(const std::string& path) {
    toolkit::CElement value;
    api_status_t status;
    element_property_t prop;
    server_.cds.get_leaf(path, status, value, prop);
    return status == API_STATUS_OK ? value.to_string() : "<missing>";
  }

  // Runs a sweep and returns what it wrote to stderr.
  std::string sweep() {
    CaptureStderr();
    sweepConnections(server_);
    return GetCapturedStderr();
  }

  wsgate_test::TempStore store_;  // CDS_PATH for the Server's own pcd_init
  Server server_;
};

TEST_F(ConnectionsTest, RecordsOneEntryPerAddressUserAndTransport) {
  CaptureStderr();
  recordCaller(server_, "10.0.0.1", "alice", true);
  recordCaller(server_, "10.0.0.1", "alice", false);
  recordCaller(server_, "10.0.0.1", "alice", true);  // refreshes the first record
  EXPECT_EQ(GetCapturedStderr(),
            "New wsgated connection 1S for 10.0.0.1aliceS \n"
            "New wsgated connection 2 for 10.0.0.1alice \n");
  ASSERT_EQ(server_.connections.size(), 2u);
  const ConnectionRecord& secure = server_.connections.at("10.0.0.1aliceS");
  EXPECT_EQ(secure.number, "1S");
  EXPECT_TRUE(secure.https);
  EXPECT_EQ(secure.host, hostOfAddress("10.0.0.1"));
}

TEST_F(ConnectionsTest, AnonymousCallersAndCallersWithoutAddressUseUpANumberOnly) {
  CaptureStderr();
  recordCaller(server_, "10.0.0.2", "", false);
  recordCaller(server_, "", "bob", false);
  recordCaller(server_, "10.0.0.2", "bob", false);
  EXPECT_EQ(GetCapturedStderr(), "New wsgated connection 3 for 10.0.0.2bob \n");
  EXPECT_EQ(server_.connections.size(), 1u);
}

TEST_F(ConnectionsTest, SweepPublishesAtMostOnceAMinute) {
  recordCaller(server_, "127.0.0.1", "op", false);
  EXPECT_EQ(sweep(), "");
  EXPECT_EQ(published(), std::vector<std::string>{"1"});
  EXPECT_EQ(leaf(std::string(kConnectionsPath) + "/1/Address"), "127.0.0.1");
  EXPECT_EQ(leaf(std::string(kConnectionsPath) + "/1/User"), "op");
  EXPECT_EQ(leaf(std::string(kConnectionsPath) + "/1/Host"), hostOfAddress("127.0.0.1"));
  EXPECT_EQ(server_.next_sweep_time, 1060u);

  // A caller that arrives within the minute waits for the following sweep.
  setMono(1030);
  recordCaller(server_, "127.0.0.1", "admin", false);
  sweep();
  EXPECT_EQ(published(), std::vector<std::string>{"1"});
  setMono(1060);
  sweep();
  EXPECT_EQ(published(), (std::vector<std::string>{"1", "2"}));
}

TEST_F(ConnectionsTest, CallersNotSeenForMoreThanTenMinutesAreWithdrawn) {
  recordCaller(server_, "10.1.1.1", "kept", false);  // seen at 1000
  setMono(1001);
  recordCaller(server_, "10.1.1.2", "gone", false);  // seen at 1001
  sweep();                                           // publishes both
  setMono(1601);                                     // 600 s after "gone"... and 601 s after "kept"
  recordCaller(server_, "10.1.1.2", "gone", false);  // refresh "gone" at 1601
  setMono(1602);
  std::string err = sweep();
  EXPECT_EQ(err, "Timed out connection 1 for 10.1.1.1 \n");
  EXPECT_EQ(published(), std::vector<std::string>{"2"});
  EXPECT_EQ(server_.connections.count("10.1.1.1kept"), 0u);

  // Exactly 600 seconds old is kept; 601 is not.
  setMono(2201);
  EXPECT_EQ(sweep(), "");
  EXPECT_EQ(published(), std::vector<std::string>{"2"});
  setMono(2262);
  EXPECT_EQ(sweep(), "Timed out connection 2 for 10.1.1.2 \n");
  EXPECT_TRUE(published().empty());

  // A caller who returns after its record was deleted gets a new number.
  CaptureStderr();
  recordCaller(server_, "10.1.1.2", "gone", false);
  EXPECT_EQ(GetCapturedStderr(), "New wsgated connection 3 for 10.1.1.2gone \n");
}

TEST_F(ConnectionsTest, EntriesLeftByAnEarlierRunAreWithdrawn) {
  server_.connxns.AddConnxn("7S", "10.9.9.9", "old", "someone");
  recordCaller(server_, "10.0.0.5", "new", false);
  std::string err = sweep();
  EXPECT_EQ(err, "Unexpected removal of connection " + std::string(kConnectionsPath) + " 7S \n");
  EXPECT_EQ(published(), std::vector<std::string>{"1"});
}

TEST_F(ConnectionsTest, ShutdownWithdrawsEverything) {
  EXPECT_EQ(server_.connxns.RemoveAllConnxns(), 0);  // nothing published yet
  recordCaller(server_, "10.0.0.6", "a", false);
  recordCaller(server_, "10.0.0.7", "b", true);
  sweep();
  EXPECT_EQ(published(), (std::vector<std::string>{"1", "2S"}));
  EXPECT_EQ(leaf(std::string(kConnectionsPath) + "/2S/User"), "b");
  EXPECT_NE(server_.connxns.RemoveConnxn("3"), 0);
  EXPECT_NE(server_.connxns.AddConnxn("a/b", "", "", ""), 0);
  EXPECT_EQ(server_.connxns.RemoveAllConnxns(), 0);
  EXPECT_TRUE(published().empty());
}

}  // namespace
