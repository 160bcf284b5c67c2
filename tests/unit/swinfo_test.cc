// The software-information writer's edges; the records that it writes with its templates are
// checked end to end (tests/e2e/subscriptions_test.py).
#include "platform/swinfo.h"

#include <gtest/gtest.h>

#include "platform/cds.h"
#include "platform/utils.h"
#include "store_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::StoreTest;

using SwInfoTest = StoreTest;

const tagnval kBad[] = {{"/ValueType", "Integer"}, {"/Value", "many"}, {nullptr, nullptr}};

TEST_F(SwInfoTest, RefusalsCountersAndLogLines) {
  CCds_SwInfo info("/Software/App", &cds);
  EXPECT_NE(info.FillSwInfoNode({"/Software/App", "/Bad", kBad}), 0);
  EXPECT_NE(CCds_SwInfo("/X", nullptr).SetAppStatus(APP_STATUS_STOPPED), 0);
  ASSERT_EQ(info.UpdateIntValue("/Count", 2), 0);  // a missing counter counts from 0
  api_status_t st;
  CElement v;
  element_property_t prop;
  ASSERT_EQ(cds.get_leaf("/Software/App/Count/Value", st, v, prop), 0);
  EXPECT_EQ(v.to_int(), 2);
  testing::internal::CaptureStderr();
  info.PrintString("two\n\n");
  info.PrintString("\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "two\n\n");
}

// Device qualities are checked through the subscriptions; here paths without a device.
TEST_F(SwInfoTest, QualityOfPathsWithoutADevice) {
  node("/Other");
  EXPECT_EQ(CCds_Utils(cds).CheckDeviceQuality("/Other"), 0u);  // the root has no .Quality
  EXPECT_EQ(CCds_Utils(cds).CheckDeviceQuality("not a path"), 0u);
}

}  // namespace
