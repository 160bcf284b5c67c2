// The software-information writer's edges; the subscription records that it writes with its
// templates are checked end to end (tests/e2e/subscriptions_test.py).
#include "platform/swinfo.h"

#include <gtest/gtest.h>

#include "platform/cds.h"
#include "store_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::StoreTest;

class SwInfoTest : public StoreTest {
 protected:
  CElement get(const std::string& path, std::string* source = nullptr) {
    api_status_t st;
    CElement v;
    element_property_t prop;
    EXPECT_EQ(cds.get_leaf(path, st, v, prop), 0);
    EXPECT_EQ(st, API_STATUS_OK) << path;
    if (source != nullptr) cds.get_leaf_source(path, st, *source);
    return v;
  }
};

const tagnval kSince[] = {
    {"/NodeType", "Point"}, {"/ValueType", "timeval"}, {"/Value", "1234"}, {nullptr, nullptr}};
const tagnval kBad[] = {{"/ValueType", "Integer"}, {"/Value", "many"}, {nullptr, nullptr}};

TEST_F(SwInfoTest, TemplatesAndCountersWriteTypedLeavesWithTheWritersSource) {
  CCds_SwInfo info("/Software/App", &cds);
  info.SetSource("app:user@addr");
  ASSERT_EQ(info.FillSwInfoNode({"/Software/App", "/Since", kSince}), 0);
  EXPECT_NE(info.FillSwInfoNode({"/Software/App", "/Bad", kBad}), 0);
  std::string source;
  CElement since = get("/Software/App/Since/Value", &source);
  EXPECT_EQ(since.get_type(), DATA_TYPE_TIMEVAL);
  EXPECT_EQ(since.to_string(), "1234");
  EXPECT_EQ(source, "app:user@addr");
  // A counter that is missing counts from 0, also in a node that had to be made first.
  ASSERT_EQ(info.UpdateIntValue("/Count", 1), 0);
  ASSERT_EQ(info.UpdateIntValue("/Count", 2), 0);
  EXPECT_EQ(get("/Software/App/Count/Value", &source).to_int(), 3);
  EXPECT_EQ(source, "app:user@addr");
}

TEST_F(SwInfoTest, FailuresOfTheStoreAreReported) {
  CCds_SwInfo counter("/Software/Counter", &cds);
  pcd_inject_failure(store.handle(), 0, 10);
  EXPECT_NE(counter.UpdateIntValue("", 1), 0);
  CCds_SwInfo unbound("/X", nullptr);
  EXPECT_NE(unbound.SetAppStatus(APP_STATUS_STOPPED), 0);
}

}  // namespace
