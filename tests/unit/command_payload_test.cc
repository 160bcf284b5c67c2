#include "devices/command_payload.h"

#include <gtest/gtest.h>

namespace {

const std::string kC3 = "http://wsgate.local/ws/BACnetWSKiteC3";

std::string resultXml(const std::string& root_tag, const std::string& inner) {
  return "<" + root_tag + " xmlns:" + root_tag.substr(0, root_tag.find(':')) + "=\"" + kC3 + "\">" +
         inner + "</" + root_tag + ">";
}

TEST(CommandPayloadTest, WrittenFormDeclaresItsNamespaceOnTheRoot) {
  nsc3__sendCmd_s command;
  nsc3__simpleCmd basic;
  std::string name = "relay", param = "open & <shut>";
  basic.name = &name;
  basic.param = &param;
  basic.num = 3;
  command.cmdVersion = 1;
  command.__union_cmd = SOAP_UNION__nsc3__union_cmd_cmdBasic;
  command.union_cmd.cmdBasic = &basic;
  std::string text;
  ASSERT_TRUE(CommandPayload().write(command, kCommandElement, text));
  EXPECT_EQ(text.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<nsc3:sendCmd-s ", 0), 0u)
      << text;
  EXPECT_NE(text.find(" xmlns:nsc3=\"" + kC3 + "\""), std::string::npos);
  EXPECT_NE(text.find("><cmdVersion>1</cmdVersion><cmdBasic><name>relay</name>"
                      "<param>open &amp; &lt;shut&gt;</param><num>3</num><psswd>0</psswd>"
                      "</cmdBasic></nsc3:sendCmd-s>"),
            std::string::npos)
      << text;
}

// What a handler may store: with or without the declaration, under any prefix, statuses by
// name; anything else is no result.
TEST(CommandPayloadTest, ResultsAreReadInTheirOwnFormOnly) {
  const std::string body =
      "<result>r</result><cmdHandle>12</cmdHandle><numericStatus>cmdFailBusy</numericStatus>"
      "<cmdStatus>busy</cmdStatus>";
  const std::string root = "nsc3:getDeviceCmdResultResponse";
  std::string deep;  // markup deeper than any request
  for (int i = 0; i < 100; ++i) deep += "<a>";
  // clang-format off
  const struct { std::string text; bool read; } cases[] = {
      {resultXml(root, body), true},
      {"<?xml version=\"1.0\"?>\n" + resultXml("x:getDeviceCmdResultResponse", body), true},
      {resultXml("nsc3:sendDeviceCmdResponse", body), false},
      {"<getDeviceCmdResultResponse>" + body + "</getDeviceCmdResultResponse>", false},
      {resultXml(root, body).substr(0, 120), false},
      {resultXml(root, "<cmdHandle>12</cmdHandle><numericStatus>NoSuch</numericStatus>"), false},
      {"", false},
      {"not xml at all", false},
      {resultXml(root, deep), false},
  };
  // clang-format on
  for (const auto& c : cases) {
    CommandPayload payload;
    nsc3__getDeviceCmdResultResponse result;
    EXPECT_EQ(payload.read(c.text, kResultElement, result), c.read) << c.text;
    if (!c.read) continue;
    EXPECT_EQ(result.result, "r");
    EXPECT_EQ(result.cmdHandle, 12);
    EXPECT_EQ(result.numericStatus, nsc3__cmdNumStatus__cmdFailBusy);
  }
  nsc3__getDeviceCmdResultResponse result;
  EXPECT_FALSE(CommandPayload().read(std::string(17u << 20, ' '), kResultElement, result));
}

}  // namespace
