#include "service/errors.h"

#include <gtest/gtest.h>

#include "service/options.h"

namespace {

// The error text for `code` and `detail` under the options `text` (null: no options at all).
std::string format(const char* text, int code, const char* detail) {
  std::string options_text = text != nullptr ? text : "";
  RequestOptions options = parseOptions(&options_text);
  std::string out = "stale";
  formatError(code, detail, out, text != nullptr ? &options : nullptr);
  return out;
}

TEST(ErrorsTest, OptionsShapeTheErrorText) {
  const struct {
    const char* options;
    int code;
    const char* detail;
    const char* expected;
  } cases[] = {
      {"", kWsNodeNotFound, "Node does not exist", "? 9 Node Not Found : Node does not exist"},
      {"", kWsIndexOutOfRange, nullptr, "? 14 Index Out of Range"},
      {"", kWsIndexOutOfRange, "", "? 14 Index Out of Range"},
      {"", 35, "x", "? 0 Unspecified Error : x"},
      {nullptr, kWsNoHistory, "d", "? 21 No History : d"},
      {"errorString=BAD;errorPrefix=E:", kWsNodeNotFound, "y", "E:BAD"},
      {"errorPrefix=? ;errorString=BAD", kWsBadPathSyntax, "x", "BAD"},
      {"errorPrefix=ERR", kWsNodeNotFound, "y", "ERR? 9 Node Not Found : y"},
      {"errorString", kWsNodeNotFound, "z", ""},
      {"errorString=", kWsNodeNotFound, "z", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(format(c.options, c.code, c.detail), c.expected) << c.options << " " << c.code;
  }
  EXPECT_STREQ(wsErrorText(-1), "0 Unspecified Error");
}

TEST(OptionsTest, DefaultsForAbsentAndEmptyStrings) {
  const std::string empty;
  for (const std::string* text : {static_cast<const std::string*>(nullptr), &empty}) {
    RequestOptions o = parseOptions(text);
    EXPECT_EQ(o.errorString, kErrorStringUnset);
    EXPECT_EQ(o.errorPrefix + "|" + o.locale + "|" + std::to_string(o.precision), "|en-US|6");
    EXPECT_FALSE(o.readback || o.canonical || o.persist || o.noEmptyArrays || o.writeSingleLocale);
  }
}

// Booleans count for the key an item begins with and are false only with "false" after the
// "="; precision takes positive numbers only; the last item wins.
TEST(OptionsTest, BooleansPrecisionAndTextKeys) {
  const std::pair<const char*, bool> canonical[] = {
      {"canonical", true},   {"canonical=false", false},
      {"canonical=0", true}, {"canonical=no", true},
      {"canonicalX", true},  {"canonical=isfalsey", false},
      {"Canonical", false},  {"canonical;canonical=false", false}};
  for (const auto& [text, expected] : canonical) {
    std::string options = text;
    EXPECT_EQ(parseOptions(&options).canonical, expected) << text;
  }
  const std::pair<const char*, int> precision[] = {
      {"precision=0", 6}, {"precision=-3", 6},  {"precision=abc", 6},
      {"precision", 6},   {"precision=12", 12}, {"precision=3;precision=9", 9}};
  for (const auto& [text, expected] : precision) {
    std::string options = text;
    EXPECT_EQ(parseOptions(&options).precision, expected) << text;
  }
  std::string text =
      "readback;writeSingleLocale;noEmptyArrays;persist=true;locale=fr-FR;"
      "errorPrefix=a=b;unknown=1;;errorString=X";
  RequestOptions o = parseOptions(&text);
  EXPECT_TRUE(o.readback && o.writeSingleLocale && o.noEmptyArrays && o.persist);
  EXPECT_EQ(o.locale + "|" + o.errorPrefix + "|" + o.errorString, "fr-FR|a=b|X");
}

}  // namespace
