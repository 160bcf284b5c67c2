#include <gtest/gtest.h>

#include <algorithm>

#include "devices_fixture.h"

namespace {

using Paths = std::vector<std::string>;

class DeviceTreeTest : public wsgate_test::DevicesTest {
 protected:
  void SetUp() override {
    DevicesTest::SetUp();
    device("/Dev1", "Pump", 192, 5);
    device("/Dev10", "Fan", 64, -1);  // no change counter
    device("/Dev1/Sub", nullptr, -1, 2);
    device("/Dev1/Sub/X", "X", 1, 1);
    device("/Dev10/Sub", "Y", 1, 1);
  }

  // Each device as "path type name quality count time", or the path alone.
  Paths tree(const char* prefix, bool recursive, bool whole = false) {
    std::string text = prefix != nullptr ? prefix : "";
    nsqv__getDeviceTreeResponse response;
    EXPECT_EQ(nsqv__getDeviceTree(soap, nullptr, prefix ? &text : nullptr, recursive, response),
              SOAP_OK);
    EXPECT_EQ(response.result, "");
    Paths lines;
    for (const nsqv__deviceDescriptor& d : response.descriptors) {
      lines.push_back(*d.devPath);
      if (!whole) continue;
      lines.back() += " " + *d.devType + " " + *d.devDisplayName + " " +
                      std::to_string(d.devQuality) + " " + std::to_string(d.devChangeCount) + " " +
                      std::to_string(d.devChangeTime);
    }
    return lines;
  }
};

// A plain text prefix; one level down means no "/" after the character following it.
TEST_F(DeviceTreeTest, PrefixAndLevelSelectDevices) {
  const struct {
    const char* prefix;  // null: absent
    bool recursive;
    Paths expected;
  } cases[] = {
      {"/", false, {"/", "/Dev1", "/Dev10"}},
      {"/Dev1", false, {"/Dev1", "/Dev1/Sub", "/Dev10"}},
      {"/Dev1", true, {"/Dev1", "/Dev1/Sub", "/Dev1/Sub/X", "/Dev10", "/Dev10/Sub"}},
      {"/Dev1/", true, {"/Dev1/Sub", "/Dev1/Sub/X"}},
      {"/Nowhere", true, {}},
      {nullptr, true, {"/", "/Dev1", "/Dev1/Sub", "/Dev1/Sub/X", "/Dev10", "/Dev10/Sub"}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(tree(c.prefix, c.recursive), c.expected)
        << (c.prefix != nullptr ? c.prefix : "(absent)") << " " << c.recursive;
  }
}

// Missing leaves take defaults; the change time is that of the device's change counter,
// else of its quality leaf, else 0.
TEST_F(DeviceTreeTest, DescriptorsTakeDefaultsForMissingLeaves) {
  toolkit::CElement count = wsgate_test::typed("Integer", "9");
  count.set_time({1700000100, 0});
  StoreTest::leaf("/Dev1/sDevChangeCount/Value", count);
  EXPECT_EQ(
      tree("/", true, true),
      (Paths{"/ Unknown Unknown 0 0 0",  // no leaves here
             "/Dev1 Device Pump 192 9 1700000100000", "/Dev1/Sub Device Unknown 0 2 1700000000250",
             "/Dev1/Sub/X Device X 1 1 1700000000250", "/Dev10 Device Fan 64 0 1700000000250",
             "/Dev10/Sub Device Y 1 1 1700000000250"}));
  device("/", "Gateway", 192, 4);  // the root reads its own leaves
  EXPECT_EQ(tree("/", false, true).at(0), "/ Device Gateway 192 4 1700000000250");
}

// A failed device list gives no devices; a device whose leaves cannot be read is left out.
TEST_F(DeviceTreeTest, StoreFailuresLeaveDevicesOut) {
  const Paths all = tree(nullptr, true);
  bool saw_one_left_out = false;
  for (int skip = 0; skip < 12; ++skip) {
    const Paths paths =
        wsgate_test::withFailure(cds.handle(), skip, [&] { return tree(nullptr, true); });
    if (paths.empty() || paths == all) continue;
    ASSERT_EQ(paths.size(), all.size() - 1) << skip;
    EXPECT_TRUE(std::includes(all.begin(), all.end(), paths.begin(), paths.end())) << skip;
    saw_one_left_out = true;
  }
  EXPECT_TRUE(saw_one_left_out);
}

}  // namespace
