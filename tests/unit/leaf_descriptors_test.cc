#include <gtest/gtest.h>

#include "devices_fixture.h"

namespace {

using Texts = std::vector<std::string>;

class LeafDescriptorsTest : public wsgate_test::DevicesTest {
 protected:
  // The result, then each descriptor as "text time type": the time "T" (kStamp), "0" or
  // "now", the type "normal", "persistent" or "automatic".
  Texts describe(const char* base, const Texts* paths, const char* opts = "") {
    std::string options_text = opts, base_text = base != nullptr ? base : "";
    nsqv__ArrayOfString list;
    if (paths != nullptr) list.string = *paths;
    nsqv__getLeafDescriptorsResponse response;
    EXPECT_EQ(nsqv__getLeafDescriptors(soap, &options_text, base != nullptr ? &base_text : nullptr,
                                       paths != nullptr ? &list : nullptr, response),
              SOAP_OK);
    Texts lines = {response.result};
    const char* const types[] = {"normal", "persistent", "automatic", "mpl"};
    for (const nsqv__leafDescriptor& d : response.descriptors) {
      const char* time = d.leafChangeTime == 1700000000250 ? " T "
                         : d.leafChangeTime == 0           ? " 0 "
                                                           : " now ";
      lines.push_back(*d.result + time + types[d.leafType]);
    }
    return lines;
  }
};

// The base path is joined as it is; each leaf fails on its own, in its own descriptor, as
// the value reads word it.
TEST_F(LeafDescriptorsTest, EachLeafInItsOwnDescriptor) {
  leaf("/Temp/Maximum", toolkit::CElement("90"), /*persist=*/true);
  const std::string not_found = "? 9 Node Not Found : CDS access failed 0 normal";
  const std::string bad_path = "? 8 Bad Path Syntax : CDS access failed 0 normal";
  const std::string foo = "? 11 Illegal Attribute : Unknown sub-Attribute .Foo T normal";
  const struct {
    const char *user, *base;
    Texts paths;
    const char* opts;
    Texts expected;
  } cases[] = {
      // clang-format off
      {"", "/Temp/", {"Value", ".HiCriticalLimit"}, "", {"OK", "21.5 T normal", "30 T normal"}},
      {"", "/Te", {"mp/Value"}, "", {"OK", "21.5 T normal"}},
      {"", "/Tree", {"a/Value"}, "", {"OK", not_found}},
      {"", nullptr, {"/Fan", "/Mode:Value", "/Temp/Maximum", "/Tree:Children"}, "",
       {"OK", "Off T normal", "Auto T normal", "90 T persistent", "a;b;c now automatic"}},
      // An error keeps the time of a leaf that could be looked at.
      {"guest", "/", {"Secret", "Nowhere/Value", "Temp/Value.Foo"}, "",
       {"OK", "? 2 Not Authorized : Unauthorized read T normal", not_found, foo}},
      {"guest", "", {"/Nowhere", "/Fan", "no-slash"}, "errorPrefix=E:;canonical",
       {"OK", "E:" + not_found, "false T normal", "E:" + bad_path}},
      // clang-format on
  };
  for (const auto& c : cases) {
    actAs(c.user);
    EXPECT_EQ(describe(c.base, &c.paths, c.opts), c.expected);
  }
}

TEST_F(LeafDescriptorsTest, NoPathsAndAFailedReadAnswerOneErrorWithoutDescriptors) {
  const Texts none, no_paths = {"? 17 No Paths Provided : No paths"};
  EXPECT_EQ(describe("/", nullptr), no_paths);
  EXPECT_EQ(describe("/", &none), no_paths);
  const Texts paths = {"/Temp", "/Fan"};
  bool saw_failure = false;
  for (int skip = 0; skip < 20; ++skip) {
    const Texts lines =
        wsgate_test::withFailure(cds.handle(), skip, [&] { return describe(nullptr, &paths); });
    if (lines[0] == "OK") {
      EXPECT_EQ(lines.size(), 3u) << skip;
      continue;
    }
    EXPECT_EQ(lines, Texts{"? 9 Node Not Found : CDS access failed"}) << skip;
    saw_failure = true;
  }
  EXPECT_TRUE(saw_failure);
}

}  // namespace
