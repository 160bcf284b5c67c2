#include "platform/utils.h"

#include <gtest/gtest.h>

#include "platform/cds.h"
#include "store_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::StoreTest;

class UtilsTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    device("/Dev1", 192);
    device("/Dev10", 0);
    device("/Dev1/Sub", 64);
    api_status_t st;
    cds.add_node("/Dev1/Sub/Point/Deep", st, "");
    cds.add_node("/Other", st, "");
    cds.set_leaf("/Other/NodeType", CElement("Collection"), st, false, "");
  }
  void device(const std::string& path, unsigned quality) {
    api_status_t st;
    cds.add_node(path, st, "");
    cds.set_leaf(path + "/NodeType", CElement("Device"), st, false, "");
    CElement q;
    q.set_uint(quality);
    cds.set_leaf(path + "/.Quality", q, st, false, "");
  }

  CCds_Utils utils{cds};
};

TEST_F(UtilsTest, DeviceListIsInPathOrderWithTheRootFirst) {
  std::vector<std::string> devices;
  ASSERT_EQ(utils.GetDeviceList(devices), 4);
  EXPECT_EQ(devices, (std::vector<std::string>{"/", "/Dev1", "/Dev1/Sub", "/Dev10"}));
  pcd_inject_failure(store.handle(), 0, 1);
  EXPECT_EQ(utils.GetDeviceList(devices), -1);
}

TEST_F(UtilsTest, QualityComesFromTheNearestDevice) {
  const std::pair<const char*, unsigned> cases[] = {{"/Dev1/Sub/Point/Deep", 64},
                                                    {"/Dev1/Sub/Point/Deep/Value", 64},
                                                    {"/Dev1", 192},
                                                    {"/Dev10/x", 0},
                                                    {"/Other", 0} /* the root has no .Quality */,
                                                    {"not a path", 0}};
  for (const auto& [path, quality] : cases) {
    EXPECT_EQ(utils.CheckDeviceQuality(path), quality) << path;
  }
}

}  // namespace
