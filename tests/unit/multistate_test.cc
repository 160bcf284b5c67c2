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
    for (const auto& [path, type, value, possible] :
         {std::tuple{"/Mode", DATA_TYPE_UINT, "1", "Off;Auto;Manual"},
          {"/Level", DATA_TYPE_INT, "10", "0=Low;10=High;-1=Error"},
          {"/Pump", DATA_TYPE_BOOL, "true", "Stopped;Running"},
          {"/Plain", DATA_TYPE_INT, "10", ""}}) {
      CElement v(value);
      ASSERT_EQ(v.convert_type(type), 0);
      node(path);
      leaf(path + std::string("/Value"), v);
      if (*possible) leaf(path + std::string("/PossibleValues"), CElement(possible));
    }
  }

  CCds_Multistate ms{cds};
};

// Each conversion as one text: the result, or "!" and what the call left on failure.
TEST_F(MultistateTest, EnumerationAndBooleanTextsBothWays) {
  std::string key;
  ASSERT_TRUE(ms.IsMultistate("/Mode", true, key));
  EXPECT_EQ(key, "Off;Auto;Manual");
  for (const char* path : {"/Pump", "/Plain", "/Nope"}) {  // a boolean is no enumeration
    EXPECT_FALSE(ms.IsMultistate(path, true, key)) << path;
  }
  auto text = [&](const std::string& list, int number) {
    std::string t;
    return (ms.GetStringValue(list, number, t) == 0 ? "" : "!") + t;
  };
  EXPECT_EQ(text("Off;Auto;Manual", 2), "Manual");
  EXPECT_EQ(text("0=Low;10=High;-1=Error", -1), "Error");
  EXPECT_EQ(text("Off;Auto", 5), "!5");
  EXPECT_EQ(text("null", 3), "!3");
  auto number = [&](const std::string& list, const std::string& input) {
    int v = -100;
    return ms.GetEnumValue(list, input, v) == 0 ? std::to_string(v) : "!";
  };
  EXPECT_EQ(number("0=Low;10=High", "High"), "10");
  EXPECT_EQ(number("Off;Auto;Manual", "auto"), "1");  // case-insensitive after exact
  EXPECT_EQ(number("a;A", "A"), "1");
  EXPECT_EQ(number("Off;Auto", "2"), "!");
  EXPECT_EQ(number("null", "7"), "7");
  EXPECT_EQ(number("null", "seven"), "!");
  auto boolText = [&](const std::string& path, bool value) {
    std::string t;
    return (ms.GetBoolStringValue(path, value, t) == 0 ? "" : "!") + t;
  };
  EXPECT_EQ(boolText("/Pump", true), "Running");
  EXPECT_EQ(boolText("/Pump", false), "Stopped");
  EXPECT_EQ(boolText("/Mode", true), "true");  // three items: no bool texts
  auto boolean = [&](const std::string& list, const std::string& input) {
    bool b = false;
    return ms.GetBoolFromString(list, input, b) != 0 ? "!" : b ? "true" : "false";
  };
  EXPECT_EQ(boolean("Off;On", "on"), "true");
  EXPECT_EQ(boolean("Off;On", "true"), "!");
  EXPECT_EQ(boolean("null", "TRUE"), "true");
  EXPECT_EQ(boolean("null", "0"), "false");
  EXPECT_EQ(boolean("null", "yes"), "!");
}

// Each conversion as "multistate" or "plain", then the value, or "!" on failure.
TEST_F(MultistateTest, StringToMultiValueUsesTheNodesList) {
  auto convert = [&](const std::string& path, data_type_t type, const std::string& input) {
    CElement value;
    value.set_time(timeval{77, 1});
    bool multistate = false;
    const int rc = ms.StringToMultiValue(path, type, input, value, multistate);
    if (rc == 0) {
      EXPECT_EQ(value.get_type(), type) << path << " " << input;
      EXPECT_EQ(value.get_time().tv_sec, 77) << "the time stamp stays";
    }
    return std::string(multistate ? "multistate " : "plain ") + (rc == 0 ? value.to_string() : "!");
  };
  EXPECT_EQ(convert("/Mode/Value", DATA_TYPE_UINT, "Manual"), "multistate 2");
  EXPECT_EQ(convert("/Mode/Value", DATA_TYPE_UINT, "2"), "multistate !");
  EXPECT_EQ(convert("/Level/Value", DATA_TYPE_UINT, "Error"), "multistate !");
  EXPECT_EQ(convert("/Level/Value", DATA_TYPE_INT, "Error"), "multistate -1");
  EXPECT_EQ(convert("/Pump/Value", DATA_TYPE_BOOL, "running"), "multistate true");
  EXPECT_EQ(convert("/Plain/Value", DATA_TYPE_BOOL, "TRUE"), "plain true");
  EXPECT_EQ(convert("/Plain/Value", DATA_TYPE_REAL, "2.5"), "plain 2.5");
  EXPECT_EQ(convert("/Plain/Value", DATA_TYPE_INT, "x"), "plain !");
}

}  // namespace
