#include "service/markup_guard.h"

#include <gtest/gtest.h>

#include <string>

#include "soapH.h"

namespace {

// Small limits, so that each case shows the bound from both sides.
const MarkupGuard::Limits kLimits{/*max_attributes=*/3, /*max_children=*/4, /*max_depth=*/5};

// The outcome of scanning `text` in one piece, checked to be the same in one-byte pieces.
int scan(const std::string& text) {
  MarkupGuard bytewise(kLimits);
  int last = 0;
  for (char c : text) last = bytewise.scan(&c, 1);
  const int whole = MarkupGuard(kLimits).scan(text.data(), text.size());
  EXPECT_EQ(last, whole) << text;
  return whole;
}

std::string repeat(const std::string& text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
}

// Each text's outcome: 0, or the error that the runtime would meet further on.
TEST(MarkupGuardTest, AttributesChildrenDepthNulAndEncoding) {
  const std::string flood = "<a p='1' q='2' r='3' s='4'/>";  // one attribute too many
  const std::string latin = "<v>\xb0\x43 \xff</v>";          // "°C ÿ" in Latin-1
  const std::pair<std::string, int> cases[] = {
      // clang-format off
      {"<a x='1' y=\"2\" xmlns:z='u'><b p='a=b=c' q='1' r='2'/></a>", 0},
      {"<a x='1' y='2' z='3' w='4'/>", SOAP_OCCURS},
      {"<a xmlns:p='1' xmlns:q='2' xmlns:r='3' xmlns:s='4'>", SOAP_OCCURS},
      {"<a x='=====' y=\"=>=>=\">==========</a>", 0},  // "=" in texts and values is no attribute
      {"", 0},
      {"<l>" + repeat("<i>x</i>", 4) + "</l><l>" + repeat("<i/>", 4) + "</l>", 0},
      {"<l>" + repeat("<i/>", 5) + "</l>", SOAP_OCCURS},
      {"<l>" + repeat("<i></i>", 5) + "</l>", SOAP_OCCURS},
      // Nested lists count per parent; the document itself is a parent too.
      {"<l>" + repeat("<i><j/><j/><j/><j/></i>", 4) + "</l>", 0},
      {repeat("<r/>", 5), SOAP_OCCURS},
      {repeat("<a>", 5) + repeat("</a>", 5) + repeat("<a>", 5), 0},
      {repeat("<a>", 6), SOAP_LEVEL},
      {repeat("<a>", 5) + "<b/><b />" + "<c x='/'/>", 0},  // empty elements open nothing
      // Whatever the runtime skips, the guard skips exactly as far, so no tag can hide in it:
      // up to the first ">", quotes or not, and inside nothing counts.
      {"<!DOCTYPE x [ ' >" + flood, SOAP_OCCURS},
      {"<!-- ' > <b> -->" + flood, SOAP_OCCURS},
      {"<?pi ' > ?>" + flood, SOAP_OCCURS},
      {"<![CDATA[ ' > ]] ]]>" + flood, SOAP_OCCURS},
      {"<a x='" + flood, SOAP_OCCURS},  // "<" in a value starts a tag
      {"<!-- " + flood + repeat("<b>", 9) + " -->", 0},
      {"<?pi " + flood + " ?><![CDATA[" + repeat("<b>", 9) + "]]>", 0},
      // NUL is refused raw and as a reference in texts and attribute values; other references,
      // and "&#0;" where it is not a reference, pass.
      {std::string("<v>12") + '\0' + "34</v>", SOAP_SYNTAX_ERROR},
      {"<v>12&#0;34</v>", SOAP_SYNTAX_ERROR},
      {"<v>&#x0;</v>", SOAP_SYNTAX_ERROR},
      {"<v>&#X000;</v>", SOAP_SYNTAX_ERROR},
      {"<v>&#00;</v>", SOAP_SYNTAX_ERROR},
      {"<a x='&#0;'/>", SOAP_SYNTAX_ERROR},
      {"<a x=\"1&#x00;\"/>", SOAP_SYNTAX_ERROR},
      {"<v>&#10;&#x20;&#0010;&amp;&#;&#x;&#0a;&lt;0;</v>", 0},
      {"<a x='&amp;#0;'/>", 0},
      {"<!-- &#0; --><![CDATA[&#0;]]>", 0},
      {"<v>&</v><w>#0;</w>", 0},
      // Texts go to the store and back as UTF-8: anything else is refused, unless the
      // declaration names another encoding, which the runtime then decodes.
      {"<v>\xc2\xb0\x43 \xe2\x82\xac \xf0\x9f\x98\x80 \xed\x9f\xbf</v>", 0},
      {"<v>\xff</v>", SOAP_UTF_ERROR},
      {"<v>\xc0\xaf</v>", SOAP_UTF_ERROR},
      {"<v>\xe0\x80\xaf</v>", SOAP_UTF_ERROR},
      {"<v>\xed\xa0\x80</v>", SOAP_UTF_ERROR},
      {"<v>\xf4\x90\x80\x80</v>", SOAP_UTF_ERROR},
      {"<v>\xc2</v>", SOAP_UTF_ERROR},
      {"<\xc3\x28/>", SOAP_UTF_ERROR},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>" + latin, 0},
      {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + latin, SOAP_UTF_ERROR},
      {"<?xml version=\"1.0\"?>" + latin, SOAP_UTF_ERROR},
      // clang-format on
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(scan(text), expected) << text;
}

}  // namespace
