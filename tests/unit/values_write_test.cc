#include <gtest/gtest.h>

#include "values/value_write.h"
#include "values/write_checks.h"
#include "values_fixture.h"

namespace {

using wsgate_test::typed;
using Texts = std::vector<std::string>;

const std::string kRefused = "? 12 Bad Value Format : Could not transform ";
const std::string kNoMatch = "? 12 Bad Value Format : Cannot find PossibleValue match to write";

TEST(WriteConversionTest, EachTypeAtItsLimits) {
  const struct {
    const char* text;
    data_type_t type;
    std::string expected;
  } cases[] = {
      {"2147483647", DATA_TYPE_INT, kRefused + "2147483647"},  // refused for both, deliberately
      {"2147483647", DATA_TYPE_UINT, kRefused + "2147483647"},
      {"-2147483648", DATA_TYPE_INT, "-2147483648"},
      {"-2147483649", DATA_TYPE_INT, kRefused + "-2147483649"},
      {"", DATA_TYPE_INT, "0"},
      {"12abc", DATA_TYPE_INT, kRefused + "12abc"},
      {"4294967295", DATA_TYPE_UINT, "4294967295"},
      {"4294967296", DATA_TYPE_UINT, kRefused + "4294967296"},
      // Unsigned takes the Integer texts, negative numbers wrapping around.
      {" -5", DATA_TYPE_UINT, "4294967291"},
      {"-2147483648", DATA_TYPE_UINT, "2147483648"},
      {"-2147483649", DATA_TYPE_UINT, kRefused + "-2147483649"},
      {"-1x", DATA_TYPE_UINT, kRefused + "-1x"},
      {"-1", DATA_TYPE_UINT64, kRefused + "-1"},  // not checked, and out of its range
      {"1.7976931348623157e308", DATA_TYPE_REAL, "1.7976931348623157e+308"},
      {"1e309", DATA_TYPE_REAL, kRefused + "1e309"},
      {"inf", DATA_TYPE_REAL, kRefused + "inf"},
      {"-inf", DATA_TYPE_REAL, "-inf"},
      {"nan", DATA_TYPE_REAL, kRefused + "nan"},
      {"", DATA_TYPE_REAL, "0"},
      {"False", DATA_TYPE_BOOL, "false"},
      {"1", DATA_TYPE_BOOL, kRefused + "1"},
      {"x", DATA_TYPE_INT64, kRefused + "x"},
      {"anything", DATA_TYPE_STRING, "anything"},
      {"as is", DATA_TYPE_VALUE_TYPE, "as is"},  // never stored: kept as text
  };
  for (const auto& c : cases) {
    toolkit::CElement value(c.text);
    std::string result;
    convertText(value, c.type, parseOptions(nullptr), result);
    EXPECT_EQ(result, c.expected) << c.text << " as " << c.type;
  }
  // Booleans are marked as having state texts; an unknown type name falls back to String.
  bool mark = false;
  EXPECT_EQ(valueTypeFromName("Boolean", mark), DATA_TYPE_BOOL);
  EXPECT_TRUE(mark);
  EXPECT_EQ(valueTypeFromName("Gibberish", mark), DATA_TYPE_STRING);
  EXPECT_FALSE(mark);
}

class WriteTest : public wsgate_test::ValuesTest {
 protected:
  void SetUp() override {
    ValuesTest::SetUp();
    point("/Level", typed("Unsigned", "3"), true);  // Unsigned without state texts
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
  // The leaf's text and type, as "2 (Unsigned)".
  std::string held(const std::string& path) {
    return storedText(path) + " (" + storedKind(path) + ")";
  }
  int status_ = -1;
};

// In order: each row writes, then (when `held` is given) looks at the leaf written: the
// Value of a node, else the attribute.
TEST_F(WriteTest, SingleWrites) {
  leaf("/Count/.HiCriticalLimit", toolkit::CElement("0"));
  node("/Bare");
  const std::string illegal = "? 11 Illegal Attribute : Attribute ";
  const struct {
    const char *path, *text;
    bool maintenance;
    std::string result;
    const char* held;
  } cases[] = {
      // clang-format off
      {"/Temp", "22.25", false, "22.25", "22.25 (Real)"},
      {"/Online", "FALSE", false, "false", "false (Boolean)"},  // a boolean without texts
      {"/Online", "1", false, kRefused + "1", "false (Boolean)"},
      // Texts of a multistate or boolean node: stored as the number, answered as the text.
      {"/Mode", "manual", false, "manual", "2 (Unsigned)"},
      {"/Fan", "On", false, "On", "true (Boolean)"},
      {"/Level", "-5", false, "4294967291", "4294967291 (Unsigned)"},
      {"/Mode", "Turbo", false, kNoMatch, "2 (Unsigned)"},
      {"/Fan", "true", false, kNoMatch, nullptr},
      {"/Count", "8", false, "? 15 Not Writable : Value is not Writable", "7 (Integer)"},
      {"/Temp/Minimum", "1", false, illegal + "Minimum is not Writable", "0 (Real)"},
      // The alarm limits are always writable, when they exist.
      {"/Count/.HiCriticalLimit", "12", false, "12", nullptr},
      {"/Count/.LowCriticalLimit", "1", false, "? 9 Node Not Found : CDS access failed", nullptr},
      {"/Nowhere/Value", "1", false, "? 9 Node Not Found : Node does not exist", nullptr},
      // Metadata of a leaf is not the leaf: nothing is written through a sub-attribute.
      {"/Temp/Value.Time", "5", false, illegal + "Value.Time is not Writable", nullptr},
      {"/Temp/Units.x", "5", true, illegal + "Units.x is not Writable", nullptr},
      {"Temp", "1", false, "? 8 Bad Path Syntax : CDS Error in supplied path", nullptr},
      // Maintenance writes create attributes, typed by name or like the Value.
      {"/Temp/Resolution", "0.5", true, "0.5", "0.5 (Real)"},
      {"/Temp/.BasePriority", "-1", true, "4294967295", nullptr},
      {"/Temp/HasHistory", "TRUE", true, "true", "true (Boolean)"},
      {"/Temp/Units", "K", true, "K", "K (String)"},
      {"/Bare/Minimum", "3", true, "3", "3 (Integer)"},  // no Value to take the type from
      {"/Tree/Children", "x", true,
       "? 11 Illegal Attribute : Automatic Attribute Children is not Writable", nullptr},
      {"/Temp/Writable", "false", true, illegal + "Writable is automatically set to false", nullptr},
      {"/Temp/Writable", "FALSE", true, "false", nullptr},  // only the exact text is refused
      // clang-format on
  };
  for (const auto& c : cases) {
    EXPECT_EQ(set(c.path, c.text, c.maintenance), c.result) << c.path << " " << c.text;
    EXPECT_EQ(status_, 0);
    const std::string path = c.path;
    if (c.held != nullptr) {
      EXPECT_EQ(held(path.find('/', 1) == std::string::npos ? path + "/Value" : path), c.held)
          << c.path << " " << c.text;
    }
  }
  EXPECT_EQ(storedText("/Temp/Value"), "22.25");
  std::string result;
  const std::string path = "/Temp";
  EXPECT_EQ(writeValue(cds, nullptr, &path, defaults, false, result), 0);
  EXPECT_EQ(result, "? 8 Bad Path Syntax : No Path provided");
  EXPECT_EQ(writeValue(cds, &path, nullptr, defaults, false, result), 0);
  EXPECT_EQ(result, "? 12 Bad Value Format : No Value provided");
  actAs("guest");
  EXPECT_EQ(set("/Temp", "5"), "");
  EXPECT_EQ(status_, kWriteUnauthorized);
  EXPECT_EQ(storedText("/Temp/Value"), "22.25");
}

TEST_F(WriteTest, SourceTextNamesTheCallerAndTypedLeavesAreLogged) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(set("/Temp", "19", false, "persist"), "19");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "pcd_setValue: /Temp/Value had type = 4 \n");
  EXPECT_EQ(held("/Temp/Value"), "19 (persistent Real)");
  EXPECT_EQ(stored("/Temp/Value"), typed("Real", "19"));
  api_status_t status;
  std::string source;
  cds.get_leaf_source("/Temp/Value", status, source);
  EXPECT_EQ(source, "Web-Services:writer@10.0.0.7");
  actAs("writer", nullptr);
  EXPECT_EQ(set("/Name", "valve"), "valve");
  cds.get_leaf_source("/Name/Value", status, source);
  EXPECT_EQ(source, "Web-Services:writer@");
}

TEST_F(WriteTest, MaintenanceValueTypeRetypesTheValueInstead) {
  leaf("/Name/Value", toolkit::CElement("42.5"), /*persist=*/true);
  EXPECT_EQ(set("/Name/ValueType", "Real", true), "Real");
  EXPECT_EQ(held("/Name/Value"), "42.5 (persistent Real)");
  EXPECT_EQ(storedKind("/Name/ValueType"), "None");  // not written
  leaf("/Name/Value", toolkit::CElement("Manual"));
  leaf("/Name/PossibleValues", toolkit::CElement("Off;Auto;Manual"));
  EXPECT_EQ(set("/Name/ValueType", "Multistate", true), "Multistate");
  EXPECT_EQ(held("/Name/Value"), "2 (persistent Unsigned)");
  EXPECT_EQ(set("/Count/ValueType", "Real", true), "Real");
  EXPECT_EQ(held("/Count/Value"), "7 (Integer)");  // Integer Values are left alone
}

TEST_F(WriteTest, ListWriteReportsEachItem) {
  EXPECT_EQ(
      setList({"/Temp", "/Count", "/Mode", "/Fan", "/Online", "bad", "/Name", "/Level"},
              {"18.5", "1", "Manual", "On", "1", "1", "2147483647", "-5"}),
      (Texts{"18.5", "? 15 Not Writable : Value is not Writable", "Manual", "On", "1",
             "? 8 Bad Path Syntax : CDS Error in supplied path", "2147483647", "4294967291"}));
  // clang-format off
  for (const auto& [path, text] : {std::pair{"/Temp", "18.5"}, {"/Level", "4294967291"}, {"/Mode", "2"},
                                   {"/Fan", "true"}, {"/Name", "2147483647"}}) {
    EXPECT_EQ(storedText(std::string(path) + "/Value"), text) << path;  // a string stays text
  }
  // clang-format on
  // Unlike the single write, texts are matched against WritableValues, and booleans
  // without a list take the store's own texts ("1" above).
  leaf("/Fan/WritableValues", toolkit::CElement("Stop;Run"));
  EXPECT_EQ(setList({"/Fan", "/Mode", "/Fan"}, {"On", "9", "run"}),
            (Texts{"? 12 Bad Value Format : Cannot find bool match to write", kNoMatch, "run"}));

  actAs("guest");
  EXPECT_EQ(setList({"/Temp", "/Mode"}, {"1", "Off"}), Texts{});
  EXPECT_EQ(status_, kWriteUnauthorized);
  EXPECT_EQ(storedText("/Temp/Value"), "18.5");

  const struct {
    Texts paths, values;
    std::string error;  // empty: the lists pass
  } lists[] = {
      {{}, {"1"}, "? 17 No Paths Provided : No Paths provided"},
      {{"/A"}, {}, "? 23 Empty Array : No Values provided"},
      {{"/A", "/B"}, {"1", "2", "3"}, "? 14 Index Out of Range : Mismatched array sizes"},
      {{"/A"}, {"1"}, ""},
  };
  for (const auto& c : lists) {
    std::string error;
    EXPECT_EQ(checkWriteLists(c.paths, c.values, &defaults, error), c.error.empty());
    EXPECT_EQ(error, c.error);
  }
}

TEST_F(WriteTest, MaintenanceListRetypesValueThroughValueType) {
  node("/New");
  EXPECT_EQ(setList({"/New/Value", "/New/ValueType", "/New/Minimum", "/New/Writable"},
                    {"12.5", "Real", "-3", "TRUE"}, /*maintenance=*/true),
            (Texts{"12.5", "Real", "-3", "true"}));
  EXPECT_EQ(held("/New/Value"), "12.5 (Real)");
  EXPECT_EQ(held("/New/Minimum"), "-3 (Real)");  // typed like the Value
  EXPECT_EQ(held("/New/Writable"), "true (Boolean)");
  EXPECT_EQ(storedKind("/New/ValueType"), "None");  // left unwritten

  // A multistate node made in one list: the Value matches the WritableValues of the list.
  node("/Valve");
  EXPECT_EQ(setList({"/Valve/WritableValues", "/Valve/ValueType", "/Valve/Value"},
                    {"Shut;Open", "Multistate", "open"}, true),
            (Texts{"Shut;Open", "Multistate", "open"}));
  EXPECT_EQ(held("/Valve/Value"), "1 (Unsigned)");
  // The last list of the request counts, even one after the Value; a repeated path is
  // written in order, so its last item stays.
  EXPECT_EQ(
      setList({"/Valve/WritableValues", "/Valve/Value", "/Valve/WritableValues", "/Valve/Value"},
              {"Shut;Open", "closed", "Closed;Opened", "opened"}, true),
      (Texts{"Shut;Open", "closed", "Closed;Opened", "opened"}));
  EXPECT_EQ(storedText("/Valve/Value"), "1");
  EXPECT_EQ(storedText("/Valve/WritableValues"), "Closed;Opened");
  // A list that failed its own conversion is not used: the store's list is too short.
  leaf("/Valve/WritableValues", typed("Integer", "7"));
  EXPECT_EQ(setList({"/Valve/WritableValues", "/Valve/Value"}, {"Shut;Open", "open"}, true),
            (Texts{kRefused + "Shut;Open", kRefused + "open"}));
  // Without ValueType a new Value is written as the client's text.
  node("/Plain");
  EXPECT_EQ(setList({"/Plain/Value"}, {"12"}, true), Texts{"12"});
  EXPECT_EQ(held("/Plain/Value"), "12 (String)");
}

// Failing any one store call of a write never crashes, and the answer tells the truth: the
// store holds the new value exactly when the write reported success.
TEST_F(WriteTest, EveryFailingStoreCallLeavesTheStoreConsistent) {
  bool saw_write_failure = false;
  for (int skip = 0; skip < 40; ++skip) {
    leaf("/Temp/Value", typed("Real", "1"));
    leaf("/Mode/Value", typed("Unsigned", "0"));
    const Texts results = wsgate_test::withFailure(cds.handle(), skip, [&] {
      return setList({"/Temp", "/Mode"}, {"2", "Manual"});
    });
    if (status_ == kWriteUnauthorized) {
      EXPECT_EQ(storedText("/Temp/Value"), "1");
      continue;
    }
    ASSERT_EQ(results.size(), 2u) << skip;
    EXPECT_EQ(storedText("/Temp/Value"), results[0] == "2" ? "2" : "1") << skip;
    EXPECT_EQ(storedText("/Mode/Value"), results[1] == "Manual" ? "2" : "0") << skip;
    saw_write_failure |= results[0] == "? 16 Write Failed : CDS write access failed";

    leaf("/Temp/Value", typed("Real", "1"));
    testing::internal::CaptureStderr();
    const std::string result =
        wsgate_test::withFailure(cds.handle(), skip, [&] { return set("/Temp", "3"); });
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(storedText("/Temp/Value"), result == "3" ? "3" : "1") << skip;
  }
  EXPECT_TRUE(saw_write_failure);
}

}  // namespace
