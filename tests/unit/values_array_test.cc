#include <gtest/gtest.h>

#include "values/array_read.h"
#include "values_fixture.h"

namespace {

using wsgate_test::ValuesTest;
using Items = std::vector<std::string>;

class ArrayTest : public ValuesTest {
 protected:
  Items array(const char* path, const RequestOptions& opts) {
    Items items;
    std::string text = path != nullptr ? path : "";
    readArray(cds, path != nullptr ? &text : nullptr, opts, items);
    return items;
  }
  Items array(const char* path) { return array(path, defaults); }
  Items range(Items items, uint32_t index, uint32_t count, const char* opts = "") {
    selectArrayRange(items, index, count, options(opts));
    return items;
  }
  const Items abc_{"a", "b", "c"};
};

TEST_F(ArrayTest, ReadsAndSplitsArrayAttributes) {
  EXPECT_EQ(array("/Tree:Children"), abc_);
  EXPECT_EQ(array("/Mode/PossibleValues"), (Items{"Off", "Auto", "Manual"}));
  EXPECT_EQ(array("/Tree/a:Children"), Items{});  // no children: no items
  // The attribute test is a substring test, so a node's Value passes as an array.
  leaf("/Name/Value", toolkit::CElement("x;y"));
  EXPECT_EQ(array("/Name"), (Items{"x", "y"}));
}

TEST_F(ArrayTest, ErrorsAreOneItem) {
  EXPECT_EQ(array(nullptr), Items{"? 8 Bad Path Syntax : No Path provided"});
  EXPECT_EQ(array("/Temp:Minimum"), Items{"? 24 Not an Array : Invalid attribute for array"});
  EXPECT_EQ(array("/Nowhere:Children"), Items{"? 9 Node Not Found : CDS access failed"});
  // With errorPrefix an error is told by the prefix, and is not split at its ";".
  EXPECT_EQ(array("/Nowhere:Children", options("errorString=BAD;errorPrefix=E:")), Items{"E:BAD"});
  leaf("/Name/PossibleValues", toolkit::CElement("E:x;y"));
  EXPECT_EQ(array("/Name:PossibleValues", options("errorPrefix=E:")), Items{"E:x;y"});
}

TEST_F(ArrayTest, RangeArithmeticKeepsItsOddities) {
  EXPECT_EQ(range(abc_, 1, 1), Items{"b"});
  EXPECT_EQ(range(abc_, 0, 2), (Items{"a", "b"}));
  EXPECT_EQ(range(abc_, 1, 3), (Items{"b", "c"}));
  EXPECT_EQ(range(abc_, 2, 100), Items{"c"});
  EXPECT_EQ(range(abc_, 0, 0), abc_);                  // the end wraps and is clamped
  EXPECT_EQ(range(abc_, 2, 0), (Items{"a", "b"}));     // the first `index` items
  EXPECT_EQ(range(abc_, 2, 0xFFFFFFFFu), Items{"a"});  // the end wraps to 0
  EXPECT_EQ(range(abc_, 3, 1), Items{"? 14 Index Out of Range"});
  EXPECT_EQ(range(Items{}, 0, 1), Items{"? 14 Index Out of Range"});
  EXPECT_EQ(range(abc_, 7, 1, "errorPrefix=E:"), Items{"E:? 14 Index Out of Range"});
  // One item is taken as an error text and returned whatever the range.
  EXPECT_EQ(range(Items{"only"}, 5, 1), Items{"only"});
  EXPECT_EQ(range(Items{"only"}, 5, 1, "errorPrefix=E:"), Items{"E:? 14 Index Out of Range"});
}

TEST_F(ArrayTest, SizeTextAnswersOneItemArraysWithTheItem) {
  EXPECT_EQ(arraySizeText(abc_, defaults), "3");
  EXPECT_EQ(arraySizeText(Items{}, defaults), "0");
  EXPECT_EQ(arraySizeText(Items{"only"}, defaults), "only");
  EXPECT_EQ(arraySizeText(Items{"only"}, options("errorPrefix=E:")), "1");
  EXPECT_EQ(arraySizeText(array("/Temp:Minimum"), defaults),
            "? 24 Not an Array : Invalid attribute for array");
}

}  // namespace
