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

TEST(MarkupGuardTest, AttributesOfOneTag) {
  EXPECT_EQ(scan("<a x='1' y=\"2\" xmlns:z='u'><b p='a=b=c' q='1' r='2'/></a>"), 0);
  EXPECT_EQ(scan("<a x='1' y='2' z='3' w='4'/>"), SOAP_OCCURS);
  EXPECT_EQ(scan("<a xmlns:p='1' xmlns:q='2' xmlns:r='3' xmlns:s='4'>"), SOAP_OCCURS);
  // Equal signs in texts and attribute values are not attributes.
  EXPECT_EQ(scan("<a x='=====' y=\"=>=>=\">==========</a>"), 0);
  EXPECT_EQ(scan(""), 0);
}

TEST(MarkupGuardTest, ChildrenOfOneElement) {
  EXPECT_EQ(scan("<l>" + repeat("<i>x</i>", 4) + "</l><l>" + repeat("<i/>", 4) + "</l>"), 0);
  EXPECT_EQ(scan("<l>" + repeat("<i/>", 5) + "</l>"), SOAP_OCCURS);
  EXPECT_EQ(scan("<l>" + repeat("<i></i>", 5) + "</l>"), SOAP_OCCURS);
  // Nested lists count per parent; the document itself is a parent too.
  EXPECT_EQ(scan("<l>" + repeat("<i><j/><j/><j/><j/></i>", 4) + "</l>"), 0);
  EXPECT_EQ(scan(repeat("<r/>", 5)), SOAP_OCCURS);
}

TEST(MarkupGuardTest, NestingDepth) {
  EXPECT_EQ(scan(repeat("<a>", 5) + repeat("</a>", 5) + repeat("<a>", 5)), 0);
  EXPECT_EQ(scan(repeat("<a>", 6)), SOAP_LEVEL);
  // Empty elements open nothing.
  EXPECT_EQ(scan(repeat("<a>", 5) + "<b/><b />" + "<c x='/'/>"), 0);
}

// Whatever the runtime skips, the guard skips exactly as far, so no tag can hide in it.
TEST(MarkupGuardTest, SkippedMarkupEndsWhereTheRuntimeEndsIt) {
  const std::string flood = "<a p='1' q='2' r='3' s='4'/>";
  EXPECT_EQ(scan("<!DOCTYPE x [ ' >" + flood), SOAP_OCCURS);  // at the first ">", quotes or not
  EXPECT_EQ(scan("<!-- ' > <b> -->" + flood), SOAP_OCCURS);
  EXPECT_EQ(scan("<?pi ' > ?>" + flood), SOAP_OCCURS);
  EXPECT_EQ(scan("<![CDATA[ ' > ]] ]]>" + flood), SOAP_OCCURS);
  EXPECT_EQ(scan("<a x='" + flood), SOAP_OCCURS);  // "<" in a value starts a tag
  // Inside them nothing counts.
  EXPECT_EQ(scan("<!-- " + flood + repeat("<b>", 9) + " -->"), 0);
  EXPECT_EQ(scan("<?pi " + flood + " ?><![CDATA[" + repeat("<b>", 9) + "]]>"), 0);
}

// NUL is refused raw and as a reference in texts and attribute values; other references,
// and "&#0;" where it is not a reference, pass.
TEST(MarkupGuardTest, NulCharacters) {
  EXPECT_EQ(scan(std::string("<v>12") + '\0' + "34</v>"), SOAP_SYNTAX_ERROR);
  for (const char* bad : {"<v>12&#0;34</v>", "<v>&#x0;</v>", "<v>&#X000;</v>", "<v>&#00;</v>",
                          "<a x='&#0;'/>", "<a x=\"1&#x00;\"/>"}) {
    EXPECT_EQ(scan(bad), SOAP_SYNTAX_ERROR) << bad;
  }
  for (const char* good : {"<v>&#10;&#x20;&#0010;&amp;&#;&#x;&#0a;&lt;0;</v>", "<a x='&amp;#0;'/>",
                           "<!-- &#0; --><![CDATA[&#0;]]>", "<v>&</v><w>#0;</w>"}) {
    EXPECT_EQ(scan(good), 0) << good;
  }
}

// Texts go to the store and back as UTF-8: anything else is refused, unless the declaration
// names another encoding, which the runtime then decodes.
TEST(MarkupGuardTest, BytesMustBeUtf8UnlessAnotherEncodingIsDeclared) {
  EXPECT_EQ(scan("<v>\xc2\xb0\x43 \xe2\x82\xac \xf0\x9f\x98\x80 \xed\x9f\xbf</v>"), 0);
  for (const char* bad :
       {"<v>\xff</v>", "<v>\xc0\xaf</v>", "<v>\xe0\x80\xaf</v>", "<v>\xed\xa0\x80</v>",
        "<v>\xf4\x90\x80\x80</v>", "<v>\xc2</v>", "<\xc3\x28/>"}) {
    EXPECT_EQ(scan(bad), SOAP_UTF_ERROR) << bad;
  }
  const std::string latin = "<v>\xb0\x43 \xff</v>";  // "°C ÿ" in Latin-1
  EXPECT_EQ(scan("<?xml version='1.0' encoding='ISO-8859-1'?>" + latin), 0);
  EXPECT_EQ(scan("<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + latin), SOAP_UTF_ERROR);
  EXPECT_EQ(scan("<?xml version=\"1.0\"?>" + latin), SOAP_UTF_ERROR);
}

}  // namespace
