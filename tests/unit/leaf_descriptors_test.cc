#include <gtest/gtest.h>

#include "devices_fixture.h"

namespace {

using Texts = std::vector<std::string>;

class LeafDescriptorsTest : public wsgate_test::DevicesTest {
 protected:
  nsqv__getLeafDescriptorsResponse describe(const char* base, const Texts* paths,
                                            const char* opts = "") {
    std::string options_text = opts;
    std::string base_text = base != nullptr ? base : "";
    nsqv__ArrayOfString list;
    if (paths != nullptr) list.string = *paths;
    nsqv__getLeafDescriptorsResponse response;
    EXPECT_EQ(nsqv__getLeafDescriptors(soap, &options_text, base != nullptr ? &base_text : nullptr,
                                       paths != nullptr ? &list : nullptr, response),
              SOAP_OK);
    return response;
  }
  Texts results(const char* base, const Texts& paths, const char* opts = "") {
    nsqv__getLeafDescriptorsResponse response = describe(base, &paths, opts);
    EXPECT_EQ(response.result, "OK");
    Texts texts;
    for (const nsqv__leafDescriptor& d : response.descriptors) texts.push_back(*d.result);
    return texts;
  }
};

TEST_F(LeafDescriptorsTest, BasePathIsJoinedAsItIs) {
  EXPECT_EQ(results("/Temp/", {"Value", "Minimum", ".HiCriticalLimit"}),
            Texts({"21.5", "0", "30"}));
  EXPECT_EQ(results("/Te", {"mp/Value"}), Texts({"21.5"}));
  EXPECT_EQ(results("/Tree", {"a/Value"}), Texts({"? 9 Node Not Found : CDS access failed"}));
  EXPECT_EQ(results(nullptr, {"/Fan", "/Mode:Value"}), Texts({"Off", "Auto"}));
}

// Each leaf fails on its own, in its own descriptor, as the value reads word it.
TEST_F(LeafDescriptorsTest, OneLeafFailsInItsOwnDescriptor) {
  actAs("guest");
  EXPECT_EQ(
      results("/", {"Secret", "Nowhere/Value", "Temp", "Temp/Value.Foo"}),
      Texts({"? 2 Not Authorized : Unauthorized read", "? 9 Node Not Found : CDS access failed",
             "21.5", "? 11 Illegal Attribute : Unknown sub-Attribute .Foo"}));
  EXPECT_EQ(results("", {"/Nowhere", "/Fan", "no-slash"}, "errorPrefix=E:;canonical"),
            Texts({"E:? 9 Node Not Found : CDS access failed", "false",
                   "E:? 8 Bad Path Syntax : CDS access failed"}));
}

TEST_F(LeafDescriptorsTest, ChangeTimeAndStorageClass) {
  leaf("/Temp/Maximum", toolkit::CElement("90"), /*persist=*/true);
  const Texts paths = {"/Temp", "/Temp/Maximum", "/Tree:Children", "/Nowhere"};
  const nsqv__getLeafDescriptorsResponse response = describe(nullptr, &paths);
  ASSERT_EQ(response.descriptors.size(), 4u);
  EXPECT_EQ(response.descriptors[0].leafChangeTime, 1700000000250);
  EXPECT_EQ(response.descriptors[0].leafType, nsqv__LeafTypes__LeafTypeNormal);
  EXPECT_EQ(response.descriptors[1].leafType, nsqv__LeafTypes__LeafTypePersist);
  EXPECT_EQ(*response.descriptors[2].result, "a;b;c");
  EXPECT_EQ(response.descriptors[2].leafType, nsqv__LeafTypes__LeafTypeAuto);
  EXPECT_EQ(response.descriptors[3].leafChangeTime, 0);  // nothing was read
}

TEST_F(LeafDescriptorsTest, NoPathsAndAFailedReadAnswerOneErrorWithoutDescriptors) {
  const Texts none;
  for (const Texts* paths : {static_cast<const Texts*>(nullptr), &none}) {
    const nsqv__getLeafDescriptorsResponse response = describe("/", paths);
    EXPECT_EQ(response.result, "? 17 No Paths Provided : No paths");
    EXPECT_TRUE(response.descriptors.empty());
  }
  const Texts paths = {"/Temp", "/Fan"};
  bool saw_failure = false;
  for (int skip = 0; skip < 20; ++skip) {
    pcd_inject_failure(cds.handle(), skip, 1);
    const nsqv__getLeafDescriptorsResponse response = describe(nullptr, &paths);
    pcd_inject_failure(cds.handle(), 0, 0);
    if (response.result == "OK") {
      ASSERT_EQ(response.descriptors.size(), 2u) << skip;
      continue;
    }
    EXPECT_EQ(response.result, "? 9 Node Not Found : CDS access failed") << skip;
    EXPECT_TRUE(response.descriptors.empty());
    saw_failure = true;
  }
  EXPECT_TRUE(saw_failure);
}

}  // namespace
