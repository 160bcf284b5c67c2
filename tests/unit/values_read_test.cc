#include <gtest/gtest.h>

#include <set>

#include "values/value_read.h"
#include "values_fixture.h"

namespace {

using wsgate_test::ValuesTest;

class ValueReadTest : public ValuesTest {
 protected:
  std::string read(const std::string& path, const RequestOptions& opts) {
    std::string text;
    ok_ = readValue(cds, path, opts, text);
    return text;
  }
  std::string read(const std::string& path) { return read(path, defaults); }
  bool ok_ = false;
};

TEST_F(ValueReadTest, StateTextsOfBooleanAndMultistateValues) {
  EXPECT_EQ(read("/Fan"), "Off");
  EXPECT_TRUE(ok_);
  EXPECT_EQ(read("/Fan/Value", options("canonical")), "false");
  EXPECT_EQ(read("/Online"), "true");  // no texts of its own
  // Multistate integers are their text, canonical or not.
  EXPECT_EQ(read("/Mode"), "Auto");
  EXPECT_EQ(read("/Mode", options("canonical")), "Auto");
  // Only Value and .AlarmOnValue carry state texts.
  EXPECT_EQ(read("/Fan:Writable"), "true");
  EXPECT_EQ(read("/Temp:.AlarmOnValue"), "25");
  EXPECT_EQ(read("/Count"), "7");
  EXPECT_EQ(read("/Temp/Minimum"), "0");
}

TEST_F(ValueReadTest, SubAttributesDescribeTheLeaf) {
  EXPECT_EQ(read("/Temp/Value.Time"), "1700000000250");
  EXPECT_EQ(read("/Temp.Timestamp"), "1700000000250");  // matched by its beginning
  EXPECT_EQ(read("/Temp/Value.Source"), "Normal");
  leaf("/Temp/Maximum", toolkit::CElement("90"), /*persist=*/true);
  EXPECT_EQ(read("/Temp/Maximum.Source"), "Persistent");
  EXPECT_EQ(read("/Tree:Children.Source"), "Automatic");
  EXPECT_EQ(read("/Temp.AttribType"), "Real");
  EXPECT_EQ(read("/Mode.AttribType"), "Multistate");
  EXPECT_EQ(read("/Count.AttribType"), "Integer");

  EXPECT_EQ(read("/Temp/Value.Foo"), "? 11 Illegal Attribute : Unknown sub-Attribute .Foo");
  EXPECT_FALSE(ok_);
}

TEST_F(ValueReadTest, ErrorsOfTheSingleRead) {
  EXPECT_EQ(read("Temp"), "? 8 Bad Path Syntax : CDS Error in supplied path");
  EXPECT_FALSE(ok_);
  EXPECT_EQ(read("/Nowhere/Value"), "? 9 Node Not Found : CDS access failed");
  EXPECT_EQ(read("/Temp/NoSuchLeaf"), "? 9 Node Not Found : CDS access failed");
  EXPECT_EQ(read("/Tree"), "? 9 Node Not Found : CDS access failed");  // a node without Value
  // The error texts follow the options.
  EXPECT_EQ(read("/Nowhere", options("errorPrefix=E:")),
            "E:? 9 Node Not Found : CDS access failed");
  EXPECT_EQ(read("/Nowhere", options("errorString=BAD;errorPrefix=E:")), "E:BAD");
  EXPECT_EQ(read("/Nowhere", options("errorString")), "");
  EXPECT_FALSE(ok_);
}

TEST_F(ValueReadTest, MetadataIsReadableWithoutTheReadRight) {
  actAs("guest");
  EXPECT_EQ(read("/Secret"), "? 2 Not Authorized : Unauthorized read");
  EXPECT_EQ(read("/Secret:Writable"), "? 2 Not Authorized : Unauthorized read");
  EXPECT_EQ(read("/Secret/Value.Time"), "1700000000250");
  EXPECT_EQ(read("/Secret.AttribType"), "Real");
  actAs("writer");
  EXPECT_EQ(read("/Secret"), "1");
}

TEST_F(ValueReadTest, AttributeReadJoinsNodeAndAttribute) {
  std::string text;
  EXPECT_TRUE(readAttribute(cds, "/Temp", "Minimum", defaults, text));
  EXPECT_EQ(text, "0");
  EXPECT_TRUE(readAttribute(cds, "/Temp", "", defaults, text));
  EXPECT_EQ(text, "21.5");
  EXPECT_TRUE(readAttribute(cds, "/Tree", "Children", defaults, text));
  EXPECT_EQ(text, "a;b;c");
  EXPECT_FALSE(readAttribute(cds, "/Temp", "Nothing", defaults, text));
}

TEST_F(ValueReadTest, BulkReadKeepsOrderAndReportsEachItem) {
  actAs("guest");
  std::vector<std::string> results;
  readValues(cds,
             {"/Mode", "/Nowhere/Value", "/Secret", "/Secret/Value.Time", "/Tree:Children", "Temp",
              "/Temp/Value.Foo", "/Fan"},
             options("canonical"), results);
  EXPECT_EQ(results, (std::vector<std::string>{
                         "Auto",
                         "? 9 Node Not Found : CDS access failed",
                         "? 2 Not Authorized : Unauthorized read",
                         "1700000000250",
                         "a;b;c",
                         // A malformed path is not refused up front: the store read fails.
                         "? 8 Bad Path Syntax : CDS access failed",
                         "? 11 Illegal Attribute : Unknown sub-Attribute .Foo",
                         "false",
                     }));
  readValues(cds, {}, defaults, results);
  EXPECT_EQ(results, std::vector<std::string>{"? 17 No Paths Provided : No paths"});
}

// Failing any one store call of a read never crashes and never passes off an error as a
// value: each item is either its value or an error text.
TEST_F(ValueReadTest, EveryFailingStoreCallGivesAnErrorOrTheValue) {
  const std::vector<std::string> paths = {"/Mode", "/Fan", "/Temp.Time", "/Tree:Children"};
  // A failed state-text lookup leaves the plain value; anything else must be an error.
  const std::vector<std::set<std::string>> good = {
      {"Auto", "1"}, {"Off", "false"}, {"1700000000250"}, {"a;b;c"}};
  auto check = [&](const std::string& text, size_t i, int skip) {
    if (good[i].count(text) == 0) {
      EXPECT_EQ(text.substr(0, 2), "? ") << skip << " " << paths[i];
    }
  };
  bool saw_one_text = false;
  for (int skip = 0; skip < 40; ++skip) {
    pcd_inject_failure(cds.handle(), skip, 1);
    std::vector<std::string> results;
    readValues(cds, paths, defaults, results);
    std::string single;
    readValue(cds, "/Mode", defaults, single);
    pcd_inject_failure(cds.handle(), 0, 0);
    check(single, 0, skip);
    if (results.size() == 1) {  // the bulk store call itself failed
      EXPECT_EQ(results[0], "? 9 Node Not Found : CDS access failed") << skip;
      saw_one_text = true;
      continue;
    }
    ASSERT_EQ(results.size(), paths.size()) << skip;
    for (size_t i = 0; i < paths.size(); ++i) check(results[i], i, skip);
  }
  EXPECT_TRUE(saw_one_text);
}

}  // namespace
