#include "service/errors.h"

#include <gtest/gtest.h>

#include "service/options.h"

namespace {

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

// The daemon's answers show the usual texts; here codes outside the table, and "? " as the
// prefix, which keeps the text as it is.
TEST(ErrorsTest, UnknownCodesAndTheQuestionMarkPrefix) {
  std::string text = "errorPrefix=? ;errorString=BAD", out;
  const RequestOptions options = parseOptions(&text), defaults;
  formatError(kWsBadPathSyntax, "x", out, &options);
  EXPECT_EQ(out, "BAD");
  formatError(35, "x", out, &defaults);
  EXPECT_EQ(out, "? 0 Unspecified Error : x");
  EXPECT_STREQ(wsErrorText(-1), "0 Unspecified Error");
}

}  // namespace
