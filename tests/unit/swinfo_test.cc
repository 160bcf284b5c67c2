#include "platform/swinfo.h"

#include <gtest/gtest.h>

#include "platform/cds.h"
#include "store_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::StoreTest;

class SwInfoTest : public StoreTest {
 protected:
  CElement get(const std::string& path, api_status_t expected = API_STATUS_OK) {
    api_status_t st;
    CElement v;
    element_property_t prop;
    EXPECT_EQ(cds.get_leaf(path, st, v, prop), 0);
    EXPECT_EQ(st, expected) << path;
    return v;
  }
};

const tagnval kLease[] = {{"/NodeType", "Point"},
                          {"/ValueType", "Integer"},
                          {"/Value", "20"},
                          {"/Units", "milliseconds"},
                          {nullptr, nullptr}};
const tagnval kSince[] = {
    {"/NodeType", "Point"}, {"/ValueType", "timeval"}, {"/Value", "1234"}, {nullptr, nullptr}};
const tagnval kRtNodes[] = {{"/NodeType", "Collection"},
                            {"/ValueType", "None"},
                            {"/HasDynamicChildren", "true"},
                            {nullptr, nullptr}};
const tagnval kBad[] = {{"/ValueType", "Integer"}, {"/Value", "many"}, {nullptr, nullptr}};

TEST_F(SwInfoTest, TemplatesMakeTypedLeaves) {
  const char* base = "/Software/Subscriptions";
  CCds_SwInfo info("/Software/Subscriptions/s1", &cds);
  info.SetSource("app:user@addr");
  ASSERT_EQ(info.FillSwInfoNode({base, "/LeaseDuration", kLease}), 0);
  ASSERT_EQ(info.FillSwInfoNode({base, "/LogSinceTime", kSince}), 0);
  ASSERT_EQ(info.FillSwInfoNode({base, "/RTNodes", kRtNodes}), 0);
  CElement lease = get("/Software/Subscriptions/s1/LeaseDuration/Value");
  EXPECT_EQ(lease.get_type(), DATA_TYPE_INT);
  EXPECT_EQ(lease.to_int(), 20);
  EXPECT_EQ(get("/Software/Subscriptions/s1/LeaseDuration/Units").get_type(), DATA_TYPE_STRING);
  CElement since = get("/Software/Subscriptions/s1/LogSinceTime/Value");
  EXPECT_EQ(since.get_type(), DATA_TYPE_TIMEVAL);
  EXPECT_EQ(since.to_string(), "1234");
  EXPECT_EQ(get("/Software/Subscriptions/s1/RTNodes/HasDynamicChildren").get_type(),
            DATA_TYPE_BOOL);
  get("/Software/Subscriptions/s1/RTNodes/Value", API_STATUS_NO_LEAF);
  // The writer's source, also on a leaf written to a node that had to be made first.
  ASSERT_EQ(info.SetIntValue("/Count", 1), 0);
  for (const char* path : {"/Software/Subscriptions/s1/LeaseDuration/Units",
                           "/Software/Subscriptions/s1/Count/Value"}) {
    api_status_t st;
    std::string source;
    ASSERT_EQ(cds.get_leaf_source(path, st, source), 0);
    EXPECT_EQ(source, "app:user@addr") << path;
  }
  EXPECT_NE(info.FillSwInfoNode({base, "/Bad", kBad}), 0);
}

TEST_F(SwInfoTest, StatusAndIntegerValues) {
  CCds_SwInfo info("/Software/App", &cds);
  ASSERT_EQ(info.SetAppStatus(APP_STATUS_RUNNING), 0);  // creates the node
  ASSERT_EQ(info.SetAppError(APP_ERROR_NONE), 0);
  EXPECT_EQ(get("/Software/App/AppStatus").to_int(), APP_STATUS_RUNNING);
  EXPECT_EQ(get("/Software/App/AppError").get_type(), DATA_TYPE_INT);

  ASSERT_EQ(info.SetIntValue("/Count", 5), 0);
  ASSERT_EQ(info.UpdateIntValue("/Count", 2), 0);
  EXPECT_EQ(get("/Software/App/Count/Value").to_int(), 7);
  CCds_SwInfo counter("/Software/Counter", &cds);
  ASSERT_EQ(counter.UpdateIntValue("", 1), 0);  // a missing value counts as 0
  ASSERT_EQ(counter.UpdateIntValue("", 1), 0);
  EXPECT_EQ(get("/Software/Counter/Value").to_int(), 2);

  pcd_inject_failure(store.handle(), 0, 10);
  EXPECT_NE(counter.UpdateIntValue("", 1), 0);
  CCds_SwInfo unbound("/X", nullptr);
  EXPECT_NE(unbound.SetAppStatus(APP_STATUS_STOPPED), 0);
}

TEST_F(SwInfoTest, PrintStringGoesToTheSystemLog) {
  CCds_SwInfo info("/Software/Data Servers/BACnet WebServices", &cds);
  testing::internal::CaptureStderr();
  info.PrintString("New subscription from remote address of 10.1.1.1\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "New subscription from remote address of 10.1.1.1\n");
  std::vector<toolkit::CCds::syslog_record_t> log;
  ASSERT_EQ(cds.syslog_list(log, 5), 0);
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0].app, "BACnet WebServices");
  EXPECT_EQ(log[0].text, "New subscription from remote address of 10.1.1.1");
}

}  // namespace
