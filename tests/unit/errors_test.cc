#include "service/errors.h"

#include <gtest/gtest.h>

#include "service/options.h"

namespace {

std::string format(int code, const char* detail, const RequestOptions* options) {
  std::string out = "stale";
  formatError(code, detail, out, options);
  return out;
}

TEST(ErrorsTest, DefaultOptionsGiveCodeTextAndDetail) {
  RequestOptions defaults;
  EXPECT_EQ(format(kWsNodeNotFound, "Node does not exist", &defaults),
            "? 9 Node Not Found : Node does not exist");
  EXPECT_EQ(format(kWsIndexOutOfRange, nullptr, &defaults), "? 14 Index Out of Range");
  EXPECT_EQ(format(kWsIndexOutOfRange, "", &defaults), "? 14 Index Out of Range");
  EXPECT_EQ(format(35, "x", &defaults), "? 0 Unspecified Error : x");
  EXPECT_EQ(format(kWsNoHistory, "d", nullptr), "? 21 No History : d");
  EXPECT_STREQ(wsErrorText(-1), "0 Unspecified Error");
}

TEST(ErrorsTest, ErrorStringAndPrefixShapeTheText) {
  std::string text = "errorString=BAD;errorPrefix=E:";
  RequestOptions replaced = parseOptions(&text);
  EXPECT_EQ(format(kWsNodeNotFound, "Node does not exist", &replaced), "E:BAD");

  text = "errorPrefix=? ;errorString=BAD";
  RequestOptions question = parseOptions(&text);
  EXPECT_EQ(format(kWsBadPathSyntax, "x", &question), "BAD");

  text = "errorPrefix=ERR";
  RequestOptions prefixed = parseOptions(&text);
  EXPECT_EQ(format(kWsNodeNotFound, "y", &prefixed), "ERR? 9 Node Not Found : y");

  for (const char* silent : {"errorString", "errorString="}) {
    text = silent;
    RequestOptions options = parseOptions(&text);
    EXPECT_EQ(format(kWsNodeNotFound, "z", &options), "") << silent;
  }
}

TEST(OptionsTest, DefaultsForAbsentAndEmptyStrings) {
  std::string empty;
  const std::string* texts[] = {nullptr, &empty};
  for (const std::string* text : texts) {
    RequestOptions o = parseOptions(text);
    EXPECT_FALSE(o.readback);
    EXPECT_EQ(o.errorString, kErrorStringUnset);
    EXPECT_EQ(o.errorPrefix, "");
    EXPECT_EQ(o.locale, "en-US");
    EXPECT_EQ(o.precision, 6);
    EXPECT_FALSE(o.canonical || o.persist || o.noEmptyArrays || o.writeSingleLocale);
  }
}

TEST(OptionsTest, BooleanRulesArePrefixAndFalseAnywhere) {
  struct Case {
    const char* text;
    bool canonical;
  } cases[] = {{"canonical", true},   {"canonical=false", false},
               {"canonical=0", true}, {"canonical=no", true},
               {"canonicalX", true},  {"canonical=isfalsey", false},
               {"Canonical", false},  {"canonical;canonical=false", false}};
  for (const Case& c : cases) {
    std::string text = c.text;
    EXPECT_EQ(parseOptions(&text).canonical, c.canonical) << c.text;
  }
  std::string all = "readback;writeSingleLocale;noEmptyArrays;persist=true";
  RequestOptions o = parseOptions(&all);
  EXPECT_TRUE(o.readback && o.writeSingleLocale && o.noEmptyArrays && o.persist);
}

TEST(OptionsTest, PrecisionTakesOnlyPositiveNumbersAndTheLastWins) {
  struct Case {
    const char* text;
    int precision;
  } cases[] = {{"precision=0", 6}, {"precision=-3", 6},  {"precision=abc", 6},
               {"precision", 6},   {"precision=12", 12}, {"precision=3;precision=9", 9}};
  for (const Case& c : cases) {
    std::string text = c.text;
    EXPECT_EQ(parseOptions(&text).precision, c.precision) << c.text;
  }
}

TEST(OptionsTest, TextKeysTakeEverythingAfterTheFirstEquals) {
  std::string text = "locale=fr-FR;errorPrefix=a=b;unknown=1;;errorString=X";
  RequestOptions o = parseOptions(&text);
  EXPECT_EQ(o.locale, "fr-FR");
  EXPECT_EQ(o.errorPrefix, "a=b");
  EXPECT_EQ(o.errorString, "X");
}

}  // namespace
