#include "platform/multistate.h"

#include <gtest/gtest.h>

#include "platform/cds.h"
#include "store_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::StoreTest;

class MultistateTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    CElement mode;
    mode.set_uint(1);
    node("/Mode", mode, "Off;Auto;Manual");
    CElement level;
    level.set_int(10);
    node("/Level", level, "0=Low;10=High;-1=Error");
    CElement pump;
    pump.set_bool(true);
    node("/Pump", pump, "Stopped;Running");
    node("/Plain", level, "");
  }
  void node(const std::string& path, const CElement& value, const std::string& possible) {
    api_status_t st;
    cds.add_node(path, st, "");
    cds.set_leaf(path + "/Value", value, st, false, "");
    if (!possible.empty())
      cds.set_leaf(path + "/PossibleValues", CElement(possible), st, false, "");
  }

  CCds_Multistate ms{cds};
};

TEST_F(MultistateTest, EnumerationTextsBothWays) {
  std::string key, text;
  ASSERT_TRUE(ms.IsMultistate("/Mode", true, key));
  EXPECT_EQ(key, "Off;Auto;Manual");
  EXPECT_FALSE(ms.IsMultistate("/Pump", true, key));  // a boolean is not an enumeration
  EXPECT_FALSE(ms.IsMultistate("/Plain", true, key));
  EXPECT_FALSE(ms.IsMultistate("/Nope", true, key));

  EXPECT_EQ(ms.GetStringValue("Off;Auto;Manual", 2, text), 0);
  EXPECT_EQ(text, "Manual");
  EXPECT_EQ(ms.GetStringValue("0=Low;10=High;-1=Error", -1, text), 0);
  EXPECT_EQ(text, "Error");
  EXPECT_NE(ms.GetStringValue("Off;Auto", 5, text), 0);
  EXPECT_EQ(text, "5");
  EXPECT_NE(ms.GetStringValue("null", 3, text), 0);
  EXPECT_EQ(text, "3");

  int v = -100;
  EXPECT_EQ(ms.GetEnumValue("0=Low;10=High", "High", v), 0);
  EXPECT_EQ(v, 10);
  EXPECT_EQ(ms.GetEnumValue("Off;Auto;Manual", "auto", v), 0);  // case-insensitive fallback
  EXPECT_EQ(v, 1);
  EXPECT_EQ(ms.GetEnumValue("a;A", "A", v), 0);  // an exact match is preferred
  EXPECT_EQ(v, 1);
  EXPECT_NE(ms.GetEnumValue("Off;Auto", "2", v), 0);
  EXPECT_EQ(ms.GetEnumValue("null", "7", v), 0);
  EXPECT_EQ(v, 7);
  EXPECT_NE(ms.GetEnumValue("null", "seven", v), 0);
}

TEST_F(MultistateTest, BooleanTextsBothWays) {
  std::string text;
  EXPECT_EQ(ms.GetBoolStringValue("/Pump", true, text), 0);
  EXPECT_EQ(text, "Running");
  EXPECT_EQ(ms.GetBoolStringValue("/Pump", false, text), 0);
  EXPECT_EQ(text, "Stopped");
  EXPECT_EQ(ms.GetBoolStringValue("/Mode", true, text), 0);  // three items: no bool texts
  EXPECT_EQ(text, "true");

  bool b = false;
  EXPECT_EQ(ms.GetBoolFromString("Off;On", "on", b), 0);
  EXPECT_TRUE(b);
  EXPECT_NE(ms.GetBoolFromString("Off;On", "true", b), 0);
  EXPECT_EQ(ms.GetBoolFromString("null", "TRUE", b), 0);
  EXPECT_TRUE(b);
  EXPECT_EQ(ms.GetBoolFromString("null", "0", b), 0);
  EXPECT_FALSE(b);
  EXPECT_NE(ms.GetBoolFromString("null", "yes", b), 0);
}

TEST_F(MultistateTest, StringToMultiValueUsesTheNodesList) {
  CElement value;
  value.set_time(timeval{77, 1});
  bool multistate = false;
  EXPECT_EQ(ms.StringToMultiValue("/Mode/Value", DATA_TYPE_UINT, "Manual", value, multistate), 0);
  EXPECT_TRUE(multistate);
  EXPECT_EQ(value.get_type(), DATA_TYPE_UINT);
  EXPECT_EQ(value.to_uint(), 2u);
  EXPECT_EQ(value.get_time().tv_sec, 77);
  EXPECT_NE(ms.StringToMultiValue("/Mode/Value", DATA_TYPE_UINT, "2", value, multistate), 0);
  EXPECT_TRUE(multistate);
  EXPECT_NE(ms.StringToMultiValue("/Level/Value", DATA_TYPE_UINT, "Error", value, multistate), 0);
  EXPECT_EQ(ms.StringToMultiValue("/Level/Value", DATA_TYPE_INT, "Error", value, multistate), 0);
  EXPECT_EQ(value.to_int(), -1);

  EXPECT_EQ(ms.StringToMultiValue("/Pump/Value", DATA_TYPE_BOOL, "running", value, multistate), 0);
  EXPECT_TRUE(multistate);
  EXPECT_TRUE(value.to_bool());

  EXPECT_EQ(ms.StringToMultiValue("/Plain/Value", DATA_TYPE_BOOL, "TRUE", value, multistate), 0);
  EXPECT_FALSE(multistate);
  EXPECT_EQ(value.get_type(), DATA_TYPE_BOOL);
  EXPECT_EQ(ms.StringToMultiValue("/Plain/Value", DATA_TYPE_REAL, "2.5", value, multistate), 0);
  EXPECT_EQ(value.to_double(), 2.5);
  EXPECT_EQ(value.get_time().tv_sec, 77);
  EXPECT_NE(ms.StringToMultiValue("/Plain/Value", DATA_TYPE_INT, "x", value, multistate), 0);
  EXPECT_FALSE(multistate);
}

}  // namespace
