#include <gtest/gtest.h>

#include <tuple>

#include "values/value_write.h"
#include "values/write_checks.h"
#include "values_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::ValuesTest;
using Texts = std::vector<std::string>;

CElement real(double d) {
  CElement v;
  v.set_real(d);
  return v;
}

TEST(WriteConversionTest, EachTypeAtItsLimits) {
  const std::string refused = "? 12 Bad Value Format : Could not transform ";
  const std::tuple<const char*, data_type_t, std::string> cases[] = {
      // 2147483647 is refused for both, deliberately.
      {"2147483647", DATA_TYPE_INT, refused + "2147483647"},
      {"-2147483648", DATA_TYPE_INT, "-2147483648"},
      {"-2147483649", DATA_TYPE_INT, refused + "-2147483649"},
      {"", DATA_TYPE_INT, "0"},
      {"12abc", DATA_TYPE_INT, refused + "12abc"},
      {"4294967295", DATA_TYPE_UINT, "4294967295"},
      {"4294967296", DATA_TYPE_UINT, refused + "4294967296"},
      {"2147483647", DATA_TYPE_UINT, refused + "2147483647"},
      // Unsigned takes the Integer texts, negative numbers wrapping around.
      {"-1", DATA_TYPE_UINT, "4294967295"},
      {" -5", DATA_TYPE_UINT, "4294967291"},
      {"-2147483648", DATA_TYPE_UINT, "2147483648"},
      {"-2147483649", DATA_TYPE_UINT, refused + "-2147483649"},
      {"-1x", DATA_TYPE_UINT, refused + "-1x"},
      {"-1", DATA_TYPE_UINT64, refused + "-1"},  // not checked, and out of its range
      {"1.7976931348623157e308", DATA_TYPE_REAL, "1.7976931348623157e+308"},
      {"1e309", DATA_TYPE_REAL, refused + "1e309"},
      {"inf", DATA_TYPE_REAL, refused + "inf"},
      {"-inf", DATA_TYPE_REAL, "-inf"},
      {"nan", DATA_TYPE_REAL, refused + "nan"},
      {"", DATA_TYPE_REAL, "0"},
      {"False", DATA_TYPE_BOOL, "false"},
      {"1", DATA_TYPE_BOOL, refused + "1"},
      {"x", DATA_TYPE_INT64, refused + "x"},
      {"anything", DATA_TYPE_STRING, "anything"},
      {"as is", DATA_TYPE_VALUE_TYPE, "as is"},  // never stored: kept as text
  };
  for (const auto& [text, type, expected] : cases) {
    CElement value(text);
    std::string result;
    convertText(value, type, parseOptions(nullptr), result);
    EXPECT_EQ(result, expected) << text << " as " << type;
  }
}

// Booleans are marked as having state texts like multistate values; an unknown type name
// falls back to String.
TEST(WriteConversionTest, ValueTypeNamesMarkStateTexts) {
  bool mark = false;
  EXPECT_EQ(valueTypeFromName("Boolean", mark), DATA_TYPE_BOOL);
  EXPECT_TRUE(mark);
  EXPECT_EQ(valueTypeFromName("Gibberish", mark), DATA_TYPE_STRING);
  EXPECT_FALSE(mark);
}

class WriteTest : public ValuesTest {
 protected:
  void SetUp() override {
    ValuesTest::SetUp();
    CElement level;
    level.set_uint(3);
    point("/Level", level, true);  // Unsigned without state texts
    actAs("writer");
  }
  std::string set(const std::string& path, const std::string& text, bool maintenance = false,
                  const char* opts = "") {
    std::string result;
    status_ = writeValue(cds, &path, &text, options(opts), maintenance, result);
    return result;
  }
  Texts setList(const Texts& paths, const Texts& values, bool maintenance = false) {
    Texts results;
    status_ = writeValues(cds, paths, values, defaults, maintenance, results);
    return results;
  }
  int status_ = -1;
};

TEST_F(WriteTest, SingleWriteConvertsAndStores) {
  EXPECT_EQ(set("/Temp", "22.25"), "22.25");
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(stored("/Temp/Value"), real(22.25));
  EXPECT_EQ(set("/Online", "FALSE"), "false");  // a boolean without texts
  EXPECT_EQ(set("/Online", "1"), "? 12 Bad Value Format : Could not transform 1");
  // Texts of a multistate or boolean node: stored as the number, answered as the text.
  EXPECT_EQ(set("/Mode", "manual"), "manual");
  EXPECT_EQ(storedText("/Mode/Value"), "2");
  EXPECT_EQ(set("/Fan", "On"), "On");
  EXPECT_EQ(storedText("/Fan/Value"), "true");
  EXPECT_EQ(set("/Level", "-5"), "4294967291");
  EXPECT_EQ(storedText("/Level/Value"), "4294967291");
  EXPECT_EQ(set("/Mode", "Turbo"),
            "? 12 Bad Value Format : Cannot find PossibleValue match to write");
  EXPECT_EQ(set("/Fan", "true"),
            "? 12 Bad Value Format : Cannot find PossibleValue match to write");
  EXPECT_EQ(storedText("/Mode/Value"), "2");
}

TEST_F(WriteTest, SingleWriteRefusals) {
  EXPECT_EQ(set("/Count", "8"), "? 15 Not Writable : Value is not Writable");
  EXPECT_EQ(set("/Temp/Minimum", "1"),
            "? 11 Illegal Attribute : Attribute Minimum is not Writable");
  // The alarm limits are always writable.
  EXPECT_EQ(set("/Count/.HiCriticalLimit", "1"), "? 9 Node Not Found : CDS access failed");
  leaf("/Count/.HiCriticalLimit", CElement("0"));
  EXPECT_EQ(set("/Count/.HiCriticalLimit", "12"), "12");
  EXPECT_EQ(set("/Nowhere/Value", "1"), "? 9 Node Not Found : Node does not exist");
  // Metadata of a leaf is not the leaf: nothing is written through a sub-attribute.
  EXPECT_EQ(set("/Temp/Value.Time", "5"),
            "? 11 Illegal Attribute : Attribute Value.Time is not Writable");
  EXPECT_EQ(set("/Temp/Units.x", "5", true),
            "? 11 Illegal Attribute : Attribute Units.x is not Writable");
  EXPECT_EQ(storedText("/Temp/Value"), "21.5");
  EXPECT_EQ(set("Temp", "1"), "? 8 Bad Path Syntax : CDS Error in supplied path");
  std::string result;
  const std::string path = "/Temp";
  EXPECT_EQ(writeValue(cds, nullptr, &path, defaults, false, result), 0);
  EXPECT_EQ(result, "? 8 Bad Path Syntax : No Path provided");
  EXPECT_EQ(writeValue(cds, &path, nullptr, defaults, false, result), 0);
  EXPECT_EQ(result, "? 12 Bad Value Format : No Value provided");

  actAs("guest");
  EXPECT_EQ(set("/Temp", "5"), "");
  EXPECT_EQ(status_, kWriteUnauthorized);
  EXPECT_EQ(storedText("/Temp/Value"), "21.5");
}

TEST_F(WriteTest, SourceTextNamesTheCallerAndTypedLeavesAreLogged) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(set("/Temp", "19", false, "persist"), "19");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "pcd_setValue: /Temp/Value had type = 4 \n");
  api_status_t status;
  std::string source;
  cds.get_leaf_source("/Temp/Value", status, source);
  EXPECT_EQ(source, "Web-Services:writer@10.0.0.7");
  CElement value;
  element_property_t prop;
  cds.get_leaf("/Temp/Value", status, value, prop);
  EXPECT_EQ(prop.storage, STORAGE_PERSISTENT);
  actAs("writer", nullptr);
  EXPECT_EQ(set("/Name", "valve"), "valve");
  cds.get_leaf_source("/Name/Value", status, source);
  EXPECT_EQ(source, "Web-Services:writer@");
}

TEST_F(WriteTest, MaintenanceWritesTypeNewAttributes) {
  EXPECT_EQ(set("/Temp/Resolution", "0.5", true), "0.5");  // the Value's type: Real
  EXPECT_EQ(stored("/Temp/Resolution").get_type(), DATA_TYPE_REAL);
  EXPECT_EQ(set("/Temp/.BasePriority", "-1", true), "4294967295");  // Unsigned
  EXPECT_EQ(set("/Temp/HasHistory", "TRUE", true), "true");
  EXPECT_EQ(stored("/Temp/HasHistory").get_type(), DATA_TYPE_BOOL);
  EXPECT_EQ(set("/Temp/Units", "K", true), "K");
  EXPECT_EQ(stored("/Temp/Units").get_type(), DATA_TYPE_STRING);
  node("/Bare");
  EXPECT_EQ(set("/Bare/Minimum", "3", true), "3");  // no Value to take the type from
  EXPECT_EQ(stored("/Bare/Minimum").get_type(), DATA_TYPE_INT);

  EXPECT_EQ(set("/Tree/Children", "x", true),
            "? 11 Illegal Attribute : Automatic Attribute Children is not Writable");
  EXPECT_EQ(set("/Temp/Writable", "false", true),
            "? 11 Illegal Attribute : Attribute Writable is automatically set to false");
  EXPECT_EQ(set("/Temp/Writable", "FALSE", true), "false");  // only the exact text is refused
}

TEST_F(WriteTest, MaintenanceValueTypeRetypesTheValueInstead) {
  leaf("/Name/Value", CElement("42.5"), /*persist=*/true);
  EXPECT_EQ(set("/Name/ValueType", "Real", true), "Real");
  EXPECT_EQ(stored("/Name/Value"), real(42.5));
  api_status_t status;
  CElement value;
  element_property_t prop;
  cds.get_leaf("/Name/Value", status, value, prop);
  EXPECT_EQ(prop.storage, STORAGE_PERSISTENT);
  EXPECT_EQ(cds.get_leaf("/Name/ValueType", status, value, prop), 0);
  EXPECT_EQ(status, API_STATUS_NO_LEAF);  // not written

  leaf("/Name/Value", CElement("Manual"));
  leaf("/Name/PossibleValues", CElement("Off;Auto;Manual"));
  EXPECT_EQ(set("/Name/ValueType", "Multistate", true), "Multistate");
  EXPECT_EQ(stored("/Name/Value").get_type(), DATA_TYPE_UINT);
  EXPECT_EQ(storedText("/Name/Value"), "2");
  // Integer Values are left alone.
  EXPECT_EQ(set("/Count/ValueType", "Real", true), "Real");
  EXPECT_EQ(stored("/Count/Value").get_type(), DATA_TYPE_INT);
}

TEST_F(WriteTest, ListWriteReportsEachItem) {
  EXPECT_EQ(setList({"/Temp", "/Count", "/Mode", "/Fan", "/Online", "bad", "/Name", "/Level"},
                    {"18.5", "1", "Manual", "On", "1", "1", "2147483647", "-5"}),
            (Texts{"18.5", "? 15 Not Writable : Value is not Writable", "Manual", "On", "1",
                   "? 8 Bad Path Syntax : CDS Error in supplied path", "2147483647",
                   "4294967291"}));
  EXPECT_EQ(storedText("/Temp/Value"), "18.5");
  EXPECT_EQ(storedText("/Level/Value"), "4294967291");
  EXPECT_EQ(storedText("/Mode/Value"), "2");
  EXPECT_EQ(storedText("/Fan/Value"), "true");
  EXPECT_EQ(storedText("/Name/Value"), "2147483647");  // a string is not converted

  // Unlike the single write, texts are matched against WritableValues, and booleans
  // without a list take the store's own texts ("1" above).
  leaf("/Fan/WritableValues", CElement("Stop;Run"));
  EXPECT_EQ(setList({"/Fan", "/Mode"}, {"On", "9"}),
            (Texts{"? 12 Bad Value Format : Cannot find bool match to write",
                   "? 12 Bad Value Format : Cannot find PossibleValue match to write"}));
  EXPECT_EQ(setList({"/Fan"}, {"run"}), Texts{"run"});

  actAs("guest");
  EXPECT_EQ(setList({"/Temp", "/Mode"}, {"1", "Off"}), Texts{});
  EXPECT_EQ(status_, kWriteUnauthorized);
  EXPECT_EQ(storedText("/Temp/Value"), "18.5");
}

TEST_F(WriteTest, ListChecks) {
  std::string error;
  EXPECT_FALSE(checkWriteLists({}, {"1"}, &defaults, error));
  EXPECT_EQ(error, "? 17 No Paths Provided : No Paths provided");
  EXPECT_FALSE(checkWriteLists({"/A"}, {}, &defaults, error));
  EXPECT_EQ(error, "? 23 Empty Array : No Values provided");
  EXPECT_FALSE(checkWriteLists({"/A", "/B"}, {"1", "2", "3"}, nullptr, error));
  EXPECT_EQ(error, "? 14 Index Out of Range : Mismatched array sizes");
  EXPECT_TRUE(checkWriteLists({"/A"}, {"1"}, &defaults, error));
}

TEST_F(WriteTest, MaintenanceListRetypesValueThroughValueType) {
  node("/New");
  EXPECT_EQ(setList({"/New/Value", "/New/ValueType", "/New/Minimum", "/New/Writable"},
                    {"12.5", "Real", "-3", "TRUE"}, /*maintenance=*/true),
            (Texts{"12.5", "Real", "-3", "true"}));
  EXPECT_EQ(stored("/New/Value").get_type(), DATA_TYPE_REAL);
  EXPECT_EQ(stored("/New/Minimum").get_type(), DATA_TYPE_REAL);  // typed like the Value
  EXPECT_EQ(stored("/New/Writable").get_type(), DATA_TYPE_BOOL);
  EXPECT_EQ(stored("/New/ValueType").get_type(), DATA_TYPE_NONE);  // left unwritten

  // A multistate node made in one list: the Value matches the WritableValues of the list.
  node("/Valve");
  EXPECT_EQ(setList({"/Valve/WritableValues", "/Valve/ValueType", "/Valve/Value"},
                    {"Shut;Open", "Multistate", "open"}, true),
            (Texts{"Shut;Open", "Multistate", "open"}));
  EXPECT_EQ(stored("/Valve/Value").get_type(), DATA_TYPE_UINT);
  EXPECT_EQ(storedText("/Valve/Value"), "1");
  // The last list of the request counts, even one after the Value; a repeated path is
  // written in order, so its last item stays.
  EXPECT_EQ(setList({"/Valve/WritableValues", "/Valve/Value", "/Valve/WritableValues",
                     "/Valve/Value"},
                    {"Shut;Open", "closed", "Closed;Opened", "opened"}, true),
            (Texts{"Shut;Open", "closed", "Closed;Opened", "opened"}));
  EXPECT_EQ(storedText("/Valve/Value"), "1");
  EXPECT_EQ(storedText("/Valve/WritableValues"), "Closed;Opened");
  // A list that failed its own conversion is not used: the store's list is too short.
  CElement seven;
  seven.set_int(7);
  leaf("/Valve/WritableValues", seven);
  EXPECT_EQ(setList({"/Valve/WritableValues", "/Valve/Value"}, {"Shut;Open", "open"}, true),
            (Texts{"? 12 Bad Value Format : Could not transform Shut;Open",
                   "? 12 Bad Value Format : Could not transform open"}));
  // Without ValueType a new Value is written as the client's text.
  node("/Plain");
  EXPECT_EQ(setList({"/Plain/Value"}, {"12"}, true), Texts{"12"});
  EXPECT_EQ(stored("/Plain/Value").get_type(), DATA_TYPE_STRING);
}

// Failing any one store call of a write never crashes, and the answer tells the truth: the
// store holds the new value exactly when the write reported success.
TEST_F(WriteTest, EveryFailingStoreCallLeavesTheStoreConsistent) {
  bool saw_write_failure = false;
  CElement off;
  off.set_uint(0);
  for (int skip = 0; skip < 40; ++skip) {
    leaf("/Temp/Value", real(1));
    leaf("/Mode/Value", off);
    pcd_inject_failure(cds.handle(), skip, 1);
    const Texts results = setList({"/Temp", "/Mode"}, {"2", "Manual"});
    const int list_status = status_;
    pcd_inject_failure(cds.handle(), 0, 0);
    if (list_status == kWriteUnauthorized) {
      EXPECT_EQ(storedText("/Temp/Value"), "1");
      continue;
    }
    ASSERT_EQ(results.size(), 2u) << skip;
    EXPECT_EQ(storedText("/Temp/Value"), results[0] == "2" ? "2" : "1") << skip;
    EXPECT_EQ(storedText("/Mode/Value"), results[1] == "Manual" ? "2" : "0") << skip;
    if (results[0] == "? 16 Write Failed : CDS write access failed") saw_write_failure = true;

    leaf("/Temp/Value", real(1));
    pcd_inject_failure(cds.handle(), skip, 1);
    testing::internal::CaptureStderr();
    const std::string result = set("/Temp", "3");
    testing::internal::GetCapturedStderr();
    pcd_inject_failure(cds.handle(), 0, 0);
    EXPECT_EQ(storedText("/Temp/Value"), result == "3" ? "3" : "1") << skip;
  }
  EXPECT_TRUE(saw_write_failure);
}

}  // namespace
