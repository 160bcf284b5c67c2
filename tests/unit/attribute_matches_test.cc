#include "devices/attribute_matches.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "values_fixture.h"

namespace {

using Texts = std::vector<std::string>;

uint32_t g_ticks = 0;  // the clock of the time bound: one second further at each read

// Below /Walk/a, names that sort before "/" in byte order ("x y", "x-1") make the store's
// listing order and the order of a depth-first walk differ.
class AttributeMatchesTest : public wsgate_test::ValuesTest {
 protected:
  void SetUp() override {
    ValuesTest::SetUp();
    for (const char* path : {"/Walk", "/Walk/a", "/Walk/a/x", "/Walk/a/x/deep", "/Walk/a/x y",
                             "/Walk/a/x-1", "/Walk/b"}) {
      node(path);
      leaf(std::string(path) + "/Value", toolkit::CElement(std::string("v") + path));
    }
    leaf("/Walk/b/Units", toolkit::CElement("xxabcxx"));
    leaf("/Walk/a/Units", toolkit::CElement("E:lectric"));
  }

  // The result text (when not empty), then each match as "node=data".
  Texts find(const char* start, bool recursive, const char* attribute, const char* pattern,
             const char* opts = "", const SearchBounds& bounds = SearchBounds()) {
    SearchResult found;
    findAttributeMatches(cds, {start, recursive, attribute, pattern}, options(opts), bounds, found);
    EXPECT_EQ(found.nodes.size(), found.data.size());
    Texts lines;
    if (!found.result.empty()) lines.push_back(found.result);
    for (size_t i = 0; i < found.nodes.size(); ++i)
      lines.push_back(found.nodes[i] + "=" + found.data.at(i));
    return lines;
  }
};

TEST_F(AttributeMatchesTest, WalkPatternsAndErrorTexts) {
  const char *const w = "/Walk=v/Walk", *const a = "/Walk/a=v/Walk/a",
                    *const x = "/Walk/a/x=v/Walk/a/x";
  const char *const xy = "/Walk/a/x y=v/Walk/a/x y", *const x1 = "/Walk/a/x-1=v/Walk/a/x-1";
  const struct {
    const char *user, *start;
    bool recursive;
    const char *attribute, *pattern, *opts;
    Texts expected;
  } cases[] = {
      // clang-format off
      // Depth first, a node before its subtree, siblings in name order; the start is tested.
      {"", "/Walk", true, "", "", "", {w, a, x, "/Walk/a/x/deep=v/Walk/a/x/deep", xy, x1, "/Walk/b=v/Walk/b"}},
      {"", "/Walk", false, "", "", "", {w, a, "/Walk/b=v/Walk/b"}},
      // Nodes whose attribute does not read are no matches; a leaf's walk is its node's.
      {"", "/Walk", true, "Units", "", "", {"/Walk/a=E:lectric", "/Walk/b=xxabcxx"}},
      {"", "/Walk/b/Units", false, "", "", "", {"/Walk/b/Units=xxabcxx"}},
      {"", "/Nowhere", true, "", "", "", {}},
      {"", "", true, "", "", "", {}},
      // Patterns are searched, not anchored.
      {"", "/Walk", true, "Units", "abc", "", {"/Walk/b=xxabcxx"}},
      {"", "/Walk/a", false, "", "^v/Walk/a/x", "", {x, xy, x1}},
      // Error texts never match, nor texts that read as errors under the options.
      {"", "/Walk", true, "Units", "E", "", {"/Walk/a=E:lectric"}},
      {"", "/Walk", true, "Units", "E", "errorPrefix=E:", {}},
      {"", "/", false, "", "BAD", "errorString=BAD", {}},
      {"guest", "/", false, "", "^1$", "", {}},  // /Secret's Value 1 is not readable
      {"writer", "/", false, "", "^1$", "", {"/Secret=1"}},
      // Bad syntax is no match, never an error of the walk.
      {"", "/Walk", true, "", "(", "", {}},
      {"", "/Walk", true, "", "[z-a]", "", {}},
      {"", "/Walk", true, "", "a{2,1}", "", {}},
      {"", "/Walk", true, "", "\\", "", {}},
      // clang-format on
  };
  for (const auto& c : cases) {
    actAs(c.user);
    EXPECT_EQ(find(c.start, c.recursive, c.attribute, c.pattern, c.opts), c.expected)
        << c.start << " " << c.attribute << " " << c.pattern << " " << c.opts;
  }
  // Hundreds of thousands of steps on the long text before the library gives up; the walk
  // then goes on to the next node.
  node("/Hostile");
  point("/Hostile/long", toolkit::CElement(std::string(3000, 'a') + "b"), false);
  point("/Hostile/short", toolkit::CElement("aaa"), false);
  // The time bound stands still here: only the library's own limit may stop the long text,
  // however slow a loaded machine runs it.
  SearchBounds untimed;
  untimed.clock = [] { return 0u; };
  EXPECT_EQ(find("/Hostile", true, "", "(a|a)*$", "", untimed), Texts{"/Hostile/short=aaa"});
}

TEST_F(AttributeMatchesTest, BoundsStopTheSearchAndKeepItsMatches) {
  SearchBounds matches, bytes, pattern, seconds;
  matches.max_matches = 2;
  bytes.max_bytes = 30;  // the first two matches take 11 and 15 bytes, the third 25
  pattern.max_pattern_bytes = 3;
  seconds.clock = [] { return g_ticks++; };
  seconds.max_seconds = 3;
  const char *const w = "/Walk=v/Walk", *const a = "/Walk/a=v/Walk/a";
  const std::string too_big = "? 34 Result Too Big to Return : ";
  const struct {
    SearchBounds bounds;
    const char *pattern, *opts;
    Texts expected;
  } cases[] = {
      // clang-format off
      {matches, "", "", {too_big + "more than 2 matches", w, a}},
      {bytes, "", "errorPrefix=E:", {"E:" + too_big + "matches larger than 30 bytes", w, a}},
      {pattern, "abcd", "", {"? 33 Argument Invalid/Not Supported : regexMatchPattern longer than 3 bytes"}},
      {seconds, "", "", {too_big + "search stopped after 3 s at /Walk/a/x", w, a, "/Walk/a/x=v/Walk/a/x"}},
      // clang-format on
  };
  for (const auto& c : cases) {
    g_ticks = 0;
    EXPECT_EQ(find("/Walk", true, "", c.pattern, c.opts, c.bounds), c.expected);
  }
}

// A failed store call makes a node unreadable or its subtree unlisted: fewer matches, in
// the same order, and never an error.
TEST_F(AttributeMatchesTest, StoreFailuresLoseOnlyWhatTheyTouch) {
  const Texts all = find("/Walk", true, "", "");
  for (int skip = 0; skip < 40; ++skip) {
    const Texts found =
        wsgate_test::withFailure(cds.handle(), skip, [&] { return find("/Walk", true, "", ""); });
    auto next = all.begin();
    for (const std::string& match : found) {
      next = std::find(next, all.end(), match);
      ASSERT_NE(next, all.end()) << skip << " " << match;
    }
  }
}

}  // namespace
