#include <gtest/gtest.h>

#include <set>

#include "values/value_read.h"
#include "values_fixture.h"

namespace {

using Texts = std::vector<std::string>;

using ValueReadTest = wsgate_test::ValuesTest;

TEST_F(ValueReadTest, SingleReads) {
  leaf("/Temp/Maximum", toolkit::CElement("90"), /*persist=*/true);
  const std::string stamp = "1700000000250", not_found = "? 9 Node Not Found : CDS access failed";
  const struct {
    const char *user, *path, *opts;
    std::string text;  // a text beginning "?" or "E:" is an error: readValue answers false
  } cases[] = {
      // Only Value and .AlarmOnValue carry state texts; multistate ones even when canonical.
      {"", "/Fan", "", "Off"},
      {"", "/Fan/Value", "canonical", "false"},
      {"", "/Online", "", "true"},
      {"", "/Mode", "canonical", "Auto"},
      {"", "/Fan:Writable", "", "true"},
      {"", "/Temp:.AlarmOnValue", "", "25"},
      {"", "/Count", "", "7"},
      // Sub-attributes describe the leaf; they are matched by their beginning.
      {"", "/Temp/Value.Time", "", stamp},
      {"", "/Temp.Timestamp", "", stamp},
      {"", "/Temp/Value.Source", "", "Normal"},
      {"", "/Temp/Maximum.Source", "", "Persistent"},
      {"", "/Tree:Children.Source", "", "Automatic"},
      {"", "/Temp.AttribType", "", "Real"},
      {"", "/Mode.AttribType", "", "Multistate"},
      {"", "/Count.AttribType", "", "Integer"},
      {"", "/Temp/Value.Foo", "", "? 11 Illegal Attribute : Unknown sub-Attribute .Foo"},
      {"", "Temp", "", "? 8 Bad Path Syntax : CDS Error in supplied path"},
      {"", "/Nowhere/Value", "", not_found},
      {"", "/Temp/NoSuchLeaf", "", not_found},
      {"", "/Tree", "", not_found},  // a node without Value
      {"", "/Nowhere", "errorPrefix=E:", "E:" + not_found},
      {"", "/Nowhere", "errorString=BAD;errorPrefix=E:", "E:BAD"},
      // Metadata is readable without the read right.
      {"guest", "/Secret", "", "? 2 Not Authorized : Unauthorized read"},
      {"guest", "/Secret:Writable", "", "? 2 Not Authorized : Unauthorized read"},
      {"guest", "/Secret/Value.Time", "", stamp},
      {"guest", "/Secret.AttribType", "", "Real"},
      {"writer", "/Secret", "", "1"},
  };
  for (const auto& c : cases) {
    actAs(c.user);
    std::string text;
    const bool ok = readValue(cds, c.path, options(c.opts), text);
    EXPECT_EQ(text, c.text) << c.path;
    EXPECT_EQ(ok, c.text[0] != '?' && c.text.rfind("E:", 0) != 0) << c.path;
  }
  std::string text;
  EXPECT_FALSE(readValue(cds, "/Nowhere", options("errorString"), text));
  EXPECT_EQ(text, "");
  EXPECT_TRUE(readAttribute(cds, "/Tree", "Children", defaults, text));
  EXPECT_EQ(text, "a;b;c");
  EXPECT_TRUE(readAttribute(cds, "/Temp", "", defaults, text));
  EXPECT_EQ(text, "21.5");
}

TEST_F(ValueReadTest, BulkReadKeepsOrderAndReportsEachItem) {
  actAs("guest");
  Texts results;
  readValues(cds,
             {"/Mode", "/Nowhere/Value", "/Secret", "/Secret/Value.Time", "/Tree:Children", "Temp",
              "/Temp/Value.Foo", "/Fan"},
             options("canonical"), results);
  EXPECT_EQ(results, (Texts{"Auto", "? 9 Node Not Found : CDS access failed",
                            "? 2 Not Authorized : Unauthorized read", "1700000000250", "a;b;c",
                            // A malformed path is not refused up front: the store read fails.
                            "? 8 Bad Path Syntax : CDS access failed",
                            "? 11 Illegal Attribute : Unknown sub-Attribute .Foo", "false"}));
  readValues(cds, {}, defaults, results);
  EXPECT_EQ(results, Texts{"? 17 No Paths Provided : No paths"});
}

// Failing any one store call of a read never crashes and never passes off an error as a
// value: each item is either its value or an error text.
TEST_F(ValueReadTest, EveryFailingStoreCallGivesAnErrorOrTheValue) {
  const Texts paths = {"/Mode", "/Fan", "/Temp.Time", "/Tree:Children"};
  // A failed state-text lookup leaves the plain value; anything else must be an error.
  const std::vector<std::set<std::string>> good = {
      {"Auto", "1"}, {"Off", "false"}, {"1700000000250"}, {"a;b;c"}};
  auto check = [&](const std::string& text, size_t i, int skip) {
    EXPECT_TRUE(good[i].count(text) == 1 || text.rfind("? ", 0) == 0) << skip << " " << text;
  };
  bool saw_one_text = false;
  for (int skip = 0; skip < 40; ++skip) {
    Texts results;
    std::string one;
    wsgate_test::withFailure(cds.handle(), skip, [&] {
      readValues(cds, paths, defaults, results);
      return 0;
    });
    wsgate_test::withFailure(cds.handle(), skip,
                             [&] { return readValue(cds, "/Mode", defaults, one); });
    check(one, 0, skip);
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
