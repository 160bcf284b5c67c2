#include <gtest/gtest.h>

#include "values/array_read.h"
#include "values_fixture.h"

namespace {

using Items = std::vector<std::string>;

class ArrayTest : public wsgate_test::ValuesTest {
 protected:
  Items array(const char* path, const char* opts = "") {
    Items items;
    std::string text = path != nullptr ? path : "";
    readArray(cds, path != nullptr ? &text : nullptr, options(opts), items);
    return items;
  }
};

TEST_F(ArrayTest, ReadsSplitsAndAnswersErrorsAsOneItem) {
  leaf("/Name/PossibleValues", toolkit::CElement("E:x;y"));
  leaf("/Name/Value", toolkit::CElement("x;y"));
  const struct {
    const char *path, *opts;
    Items items;
  } cases[] = {
      {"/Tree:Children", "", {"a", "b", "c"}},
      {"/Mode/PossibleValues", "", {"Off", "Auto", "Manual"}},
      {"/Tree/a:Children", "", {}},
      {"/Name:PossibleValues", "", {"E:x", "y"}},
      {"/Name", "", {"x", "y"}},  // the attribute test is a substring test: Value passes
      {nullptr, "", {"? 8 Bad Path Syntax : No Path provided"}},
      {"/Temp:Minimum", "", {"? 24 Not an Array : Invalid attribute for array"}},
      {"/Nowhere:Children", "", {"? 9 Node Not Found : CDS access failed"}},
      // With errorPrefix an error is told by the prefix, and is not split at its ";".
      {"/Nowhere:Children", "errorString=BAD;errorPrefix=E:", {"E:BAD"}},
      {"/Name:PossibleValues", "errorPrefix=E:", {"E:x;y"}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(array(c.path, c.opts), c.items) << (c.path != nullptr ? c.path : "null");
  }
}

TEST_F(ArrayTest, RangeAndSizeKeepTheirOddities) {
  const Items abc = {"a", "b", "c"}, only = {"only"};
  const std::string out = "? 14 Index Out of Range";
  const struct {
    Items items;
    uint32_t index, count;
    const char* opts;
    Items expected;
  } cases[] = {
      {abc, 1, 1, "", {"b"}},
      {abc, 1, 3, "", {"b", "c"}},
      {abc, 2, 100, "", {"c"}},
      {abc, 0, 0, "", abc},              // the end wraps and is clamped
      {abc, 2, 0, "", {"a", "b"}},       // the first `index` items
      {abc, 2, 0xFFFFFFFFu, "", {"a"}},  // the end wraps to 0
      {abc, 3, 1, "", {out}},
      {{}, 0, 1, "", {out}},
      {abc, 7, 1, "errorPrefix=E:", {"E:" + out}},
      {only, 5, 1, "", only},  // one item is taken as an error text, whatever the range
      {only, 5, 1, "errorPrefix=E:", {"E:" + out}},
  };
  for (const auto& c : cases) {
    Items items = c.items;
    selectArrayRange(items, c.index, c.count, options(c.opts));
    EXPECT_EQ(items, c.expected) << c.index << " " << c.count << " " << c.opts;
  }
  EXPECT_EQ(arraySizeText(abc, defaults), "3");
  EXPECT_EQ(arraySizeText(Items{}, defaults), "0");
  EXPECT_EQ(arraySizeText(only, defaults), "only");
  EXPECT_EQ(arraySizeText(only, options("errorPrefix=E:")), "1");
}

}  // namespace
