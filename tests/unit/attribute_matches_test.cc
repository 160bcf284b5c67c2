#include "devices/attribute_matches.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "values_fixture.h"

namespace {

using Texts = std::vector<std::string>;

// A clock that moves one second each time it is read.
uint32_t g_ticks = 0;
uint32_t tickingClock() {
  return g_ticks++;
}

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

  SearchResult find(const char* start, bool recursive, const char* attribute, const char* pattern,
                    const char* opts = "", const SearchBounds& bounds = SearchBounds()) {
    SearchResult found;
    findAttributeMatches(cds, {start, recursive, attribute, pattern}, options(opts), bounds, found);
    EXPECT_EQ(found.nodes.size(), found.data.size());
    return found;
  }
  Texts nodes(const char* start, bool recursive, const char* attribute, const char* pattern,
              const char* opts = "") {
    SearchResult found = find(start, recursive, attribute, pattern, opts);
    EXPECT_EQ(found.result, "");
    return found.nodes;
  }
};

TEST_F(AttributeMatchesTest, WalkOrderAndDepth) {
  // Depth first, a node before its subtree, siblings in name order; the start is tested too.
  EXPECT_EQ(nodes("/Walk", true, "", ""), Texts({"/Walk", "/Walk/a", "/Walk/a/x", "/Walk/a/x/deep",
                                                 "/Walk/a/x y", "/Walk/a/x-1", "/Walk/b"}));
  EXPECT_EQ(nodes("/Walk", false, "", ""), Texts({"/Walk", "/Walk/a", "/Walk/b"}));
  // Nodes whose attribute does not read are no matches; a leaf's walk is its node's.
  EXPECT_EQ(nodes("/Walk", true, "Units", ""), Texts({"/Walk/a", "/Walk/b"}));
  EXPECT_EQ(nodes("/Walk/b/Units", false, "", ""), Texts({"/Walk/b/Units"}));
  EXPECT_EQ(nodes("/Nowhere", true, "", ""), Texts());
  EXPECT_EQ(nodes("", true, "", ""), Texts());
}

TEST_F(AttributeMatchesTest, PatternsAreSearchedNotAnchored) {
  const SearchResult found = find("/Walk", true, "Units", "abc");
  EXPECT_EQ(found.nodes, Texts({"/Walk/b"}));
  EXPECT_EQ(found.data, Texts({"xxabcxx"}));
  EXPECT_EQ(nodes("/Walk", true, "", "^v/Walk/a"),
            Texts({"/Walk/a", "/Walk/a/x", "/Walk/a/x/deep", "/Walk/a/x y", "/Walk/a/x-1"}));
}

TEST_F(AttributeMatchesTest, ErrorTextsNeverMatch) {
  EXPECT_EQ(nodes("/Walk", true, "Units", "E"), Texts({"/Walk/a"}));
  EXPECT_EQ(nodes("/Walk", true, "Units", "E", "errorPrefix=E:"), Texts());
  // Error texts made under the options are not matches either.
  EXPECT_EQ(nodes("/", false, "", "BAD", "errorString=BAD"), Texts());
  actAs("guest");
  EXPECT_EQ(nodes("/", false, "", "^1$"), Texts());  // /Secret's Value 1 is not readable
  actAs("writer");
  EXPECT_EQ(nodes("/", false, "", "^1$"), Texts({"/Secret"}));
}

// Bad syntax and a search the library abandons are no matches, never an error of the walk.
TEST_F(AttributeMatchesTest, HostilePatternsMatchNothing) {
  for (const char* pattern : {"(", "[z-a]", "a{2,1}", "\\"}) {
    const SearchResult found = find("/Walk", true, "", pattern);
    EXPECT_EQ(found.result, "") << pattern;
    EXPECT_TRUE(found.nodes.empty()) << pattern;
  }
  node("/Hostile");
  node("/Hostile/long");
  leaf("/Hostile/long/Value", toolkit::CElement(std::string(3000, 'a') + "b"));
  node("/Hostile/short");
  leaf("/Hostile/short/Value", toolkit::CElement("aaa"));
  // Hundreds of thousands of steps on the long text before the library gives up; the walk
  // then goes on to the next node.
  EXPECT_EQ(nodes("/Hostile", true, "", "(a|a)*$"), Texts({"/Hostile/short"}));
}

TEST_F(AttributeMatchesTest, BoundsStopTheSearchAndKeepItsMatches) {
  SearchBounds bounds;
  bounds.max_matches = 2;
  SearchResult found = find("/Walk", true, "", "", "", bounds);
  EXPECT_EQ(found.result, "? 34 Result Too Big to Return : more than 2 matches");
  EXPECT_EQ(found.nodes, Texts({"/Walk", "/Walk/a"}));

  bounds = SearchBounds();
  bounds.max_bytes = 30;  // the first two matches take 11 and 15 bytes, the third 25
  found = find("/Walk", true, "", "", "errorPrefix=E:", bounds);
  EXPECT_EQ(found.result, "E:? 34 Result Too Big to Return : matches larger than 30 bytes");
  EXPECT_EQ(found.nodes.size(), 2u);

  bounds = SearchBounds();
  bounds.max_pattern_bytes = 3;
  found = find("/Walk", true, "", "abcd", "", bounds);
  EXPECT_EQ(found.result,
            "? 33 Argument Invalid/Not Supported : regexMatchPattern longer than 3 bytes");
  EXPECT_TRUE(found.nodes.empty());

  bounds = SearchBounds();
  bounds.clock = tickingClock;
  bounds.max_seconds = 3;
  g_ticks = 0;
  found = find("/Walk", true, "", "", "", bounds);
  EXPECT_EQ(found.result, "? 34 Result Too Big to Return : search stopped after 3 s at /Walk/a/x");
  EXPECT_EQ(found.nodes, Texts({"/Walk", "/Walk/a", "/Walk/a/x"}));
}

// A failed store call makes a node unreadable or its subtree unlisted: fewer matches, in
// the same order, and never an error.
TEST_F(AttributeMatchesTest, StoreFailuresLoseOnlyWhatTheyTouch) {
  const Texts all = nodes("/Walk", true, "", "");
  for (int skip = 0; skip < 40; ++skip) {
    pcd_inject_failure(cds.handle(), skip, 1);
    const Texts found = nodes("/Walk", true, "", "");
    pcd_inject_failure(cds.handle(), 0, 0);
    auto next = all.begin();
    for (const std::string& path : found) {
      next = std::find(next, all.end(), path);
      ASSERT_NE(next, all.end()) << skip << " " << path;
    }
  }
}

}  // namespace
