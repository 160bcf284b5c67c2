#include "platform/connxns.h"

#include <gtest/gtest.h>

#include "platform/cds.h"
#include "platform/path.h"
#include "store_fixture.h"

namespace {

using wsgate_test::StoreTest;

const char kConnections[] = "/Software/Data Servers/BACnet WebServices/Connections";

class ConnxnsTest : public StoreTest {
 protected:
  std::vector<std::string> published() {
    std::vector<std::string> items;
    CPath(kConnections).getAttributeList("Children", cds, items);
    return items;
  }
};

TEST_F(ConnxnsTest, PublishAndWithdraw) {
  CCDS_Connxns connxns(kConnections, &cds, &cds);
  EXPECT_TRUE(published().empty());
  EXPECT_EQ(connxns.RemoveAllConnxns(), 0);  // nothing published yet
  ASSERT_EQ(connxns.AddConnxn("3S", "10.0.0.1", "host.local", "admin"), 0);
  ASSERT_EQ(connxns.AddConnxn("4", "10.0.0.2", "10.0.0.2", "operator"), 0);
  EXPECT_EQ(published(), (std::vector<std::string>{"3S", "4"}));

  api_status_t st;
  toolkit::CElement v;
  element_property_t prop;
  ASSERT_EQ(cds.get_leaf(std::string(kConnections) + "/3S/Host", st, v, prop), 0);
  EXPECT_EQ(v.to_string(), "host.local");
  ASSERT_EQ(cds.get_leaf(std::string(kConnections) + "/4/User", st, v, prop), 0);
  EXPECT_EQ(v.to_string(), "operator");

  EXPECT_EQ(connxns.RemoveConnxn("3S"), 0);
  EXPECT_NE(connxns.RemoveConnxn("3S"), 0);
  EXPECT_NE(connxns.AddConnxn("a/b", "", "", ""), 0);
  EXPECT_EQ(published(), (std::vector<std::string>{"4"}));
  EXPECT_EQ(connxns.RemoveAllConnxns(), 0);
  EXPECT_TRUE(published().empty());
}

}  // namespace
