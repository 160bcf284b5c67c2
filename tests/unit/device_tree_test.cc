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

  nsqv__getDeviceTreeResponse tree(std::string* prefix, bool recursive) {
    nsqv__getDeviceTreeResponse response;
    EXPECT_EQ(nsqv__getDeviceTree(soap, nullptr, prefix, recursive, response), SOAP_OK);
    EXPECT_EQ(response.result, "");
    return response;
  }
  Paths listed(std::string* prefix, bool recursive) {
    Paths paths;
    for (const nsqv__deviceDescriptor& d : tree(prefix, recursive).descriptors) {
      paths.push_back(*d.devPath);
    }
    return paths;
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
    std::string prefix = c.prefix != nullptr ? c.prefix : "";
    EXPECT_EQ(listed(c.prefix != nullptr ? &prefix : nullptr, c.recursive), c.expected)
        << (c.prefix != nullptr ? c.prefix : "(absent)") << " " << c.recursive;
  }
}

TEST_F(DeviceTreeTest, DescriptorsTakeDefaultsForMissingLeaves) {
  // Change time from a change counter of its own, else from the quality leaf, else 0.
  toolkit::CElement count;
  count.set_int(9);
  count.set_time({1700000100, 0});
  api_status_t status;
  cds.set_leaf("/Dev1/sDevChangeCount/Value", count, status, false, "");
  std::string prefix = "/";
  const nsqv__getDeviceTreeResponse response = tree(&prefix, true);
  ASSERT_EQ(response.descriptors.size(), 6u);
  const struct {
    const char* type;
    const char* name;
    int quality;
    int count;
    LONG64 time;
  } expected[] = {
      {"Unknown", "Unknown", 0, 0, 0},  // the root, which has no leaves here
      {"Device", "Pump", 192, 9, 1700000100000},
      {"Device", "Unknown", 0, 2, 1700000000250},
      {"Device", "X", 1, 1, 1700000000250},
      {"Device", "Fan", 64, 0, 1700000000250},  // the quality leaf's time
      {"Device", "Y", 1, 1, 1700000000250},
  };
  for (size_t i = 0; i < 6; ++i) {
    const nsqv__deviceDescriptor& d = response.descriptors[i];
    SCOPED_TRACE(*d.devPath);
    EXPECT_EQ(*d.devType, expected[i].type);
    EXPECT_EQ(*d.devDisplayName, expected[i].name);
    EXPECT_EQ(d.devQuality, expected[i].quality);
    EXPECT_EQ(d.devChangeCount, expected[i].count);
    EXPECT_EQ(d.devChangeTime, expected[i].time);
  }
}

TEST_F(DeviceTreeTest, TheRootReadsItsOwnLeaves) {
  device("/", "Gateway", 192, 4);
  std::string prefix = "/";
  const nsqv__getDeviceTreeResponse response = tree(&prefix, false);
  ASSERT_FALSE(response.descriptors.empty());
  const nsqv__deviceDescriptor& root = response.descriptors[0];
  EXPECT_EQ(*root.devPath, "/");
  EXPECT_EQ(*root.devDisplayName, "Gateway");
  EXPECT_EQ(root.devChangeCount, 4);
}

// A failed device list gives no devices; a device whose leaves cannot be read is left out.
TEST_F(DeviceTreeTest, StoreFailuresLeaveDevicesOut) {
  const Paths all = listed(nullptr, true);
  bool saw_one_left_out = false;
  for (int skip = 0; skip < 12; ++skip) {
    pcd_inject_failure(cds.handle(), skip, 1);
    const Paths paths = listed(nullptr, true);
    pcd_inject_failure(cds.handle(), 0, 0);
    if (paths.empty() || paths == all) continue;
    ASSERT_EQ(paths.size(), all.size() - 1) << skip;
    EXPECT_TRUE(std::includes(all.begin(), all.end(), paths.begin(), paths.end())) << skip;
    saw_one_left_out = true;
  }
  EXPECT_TRUE(saw_one_left_out);
}

}  // namespace
