#include "platform/path.h"

#include <gtest/gtest.h>

#include <random>

#include "platform/cds.h"
#include "store_fixture.h"

namespace {

using wsgate_test::StoreTest;

class PathTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    node("/Dev/Temp");
    node("/Dev/B.c");
    leaf("/Dev/Temp/Value", toolkit::CElement("21"));
    leaf("/Dev/Temp/PossibleValues", toolkit::CElement("a;b"));
  }
};

// What normalize() made of a path: "path|sub-attribute", then " node" when the path stood for
// a node's Value and " auto" for an automatic attribute.
std::string parts(const CPath& p) {
  return p.getPath() + "|" + p.getSubAttribute() + (p.isNodeValue() ? " node" : "") +
         (p.isNotPlainLeaf() ? " auto" : "");
}

// One store read of a path, the way the bulk reads make it.
struct Read {
  int rc = -2, read = -2;
  api_status_t status = API_STATUS_UNKNOWN;
  toolkit::CElement value;
  element_property_t prop;
  std::string text(const CPath& p) const {
    return std::to_string(rc) + " " + std::to_string(read) + " " + parts(p) + " " +
           std::to_string(status) + " " + std::to_string(value.get_type()) + " " +
           value.to_string() + " " + std::to_string(prop.storage);
  }
};

// Each path's parts after normalize() ("!": refused). The bulk reads' shortcut must answer
// exactly as normalize() followed by a read, for every kind of path: a node with and without
// a Value, a node sharing its name with a leaf, suffixes, automatic attributes, missing and
// malformed paths.
TEST_F(PathTest, NormalizeAndNormalizeAndRead) {
  node("/Dev/Twin");
  leaf("/Dev/Twin", toolkit::CElement("leaf"));
  leaf("/Dev/Temp/Text.x", toolkit::CElement("dotted"));
  const std::pair<std::string, const char*> cases[] = {
      // clang-format off
      {"/Dev/Temp/Value", "/Dev/Temp/Value|"},
      {"//Dev///Temp/Value/", "/Dev/Temp/Value|"},
      {"/Dev/Temp:Writable", "/Dev/Temp/Writable|"},
      {"/Dev/Temp/Value.Time", "/Dev/Temp/Value|.Time"},
      {"/Dev/Temp/Value.Source", "/Dev/Temp/Value|.Source"},
      {"/Dev/Temp/.HiCriticalLimit.Time", "/Dev/Temp/.HiCriticalLimit|.Time"},
      {"/Dev/Temp", "/Dev/Temp/Value| node"},  // a node stands for its Value
      {"/Dev/Temp.Time", "/Dev/Temp/Value|.Time node"},
      {"/Dev", "/Dev/Value| node"},
      {"/Dev.Time", "/Dev/Value|.Time node"},
      {"/Dev/Twin", "/Dev/Twin/Value| node"},  // the node wins over its parent's leaf
      {"/Dev/B.c", "/Dev/B.c/Value| node"},  // a dotted node name wins
      {"/Dev/B.c.Time", "/Dev/B|.c.Time"},  // a sub-attribute after a dotted name is not seen
      {"/Dev/Temp:PossibleValues", "/Dev/Temp/PossibleValues|"},
      {"/Dev/Temp:Children", "/Dev/Temp/Children| auto"},
      {"/Dev/Temp/Text.x", "/Dev/Temp/Text|.x"},
      {"/Dev/Missing", "/Dev/Missing|"},  // neither node nor leaf: left as a leaf path
      {"/Dev/Missing/Value.Time", "/Dev/Missing/Value|.Time"},
      {"/:NodeType", "/NodeType|"},
      {"/Dev/:Children", "/Dev/Children| auto"},
      {"/A:b/C", "/A:b/C|"},  // a ":" before the last component is a name
      {"/", "/|"},
      {"", "!"}, {"Dev/Temp", "!"}, {"Value", "!"}, {"/Dev/Temp:", "!"}, {"/Dev/Te\tmp", "!"},
      {"/Dev/\x7f", "!"}, {std::string("/Dev\0/x", 7), "!"},
      // clang-format on
  };
  for (const auto& [in, expected] : cases) {
    toolkit::CReadBatch snapshot(cds);
    CPath apart(in), together(in);
    Read a, t;
    a.rc = apart.normalize();
    a.read = cds.get_leaf(apart.getPath(), a.status, a.value, a.prop);
    t.rc = together.normalizeAndRead(cds, t.read, t.status, t.value, t.prop);
    EXPECT_EQ(a.rc == 0 ? parts(apart) : "!", expected) << in;
    EXPECT_EQ(t.text(together), a.text(apart)) << in;
  }
}

TEST_F(PathTest, NormalizeIsIdempotentAndHandlesHugePaths) {
  CPath p("/Dev/Temp.Time");
  ASSERT_EQ(p.normalize(), 0);
  ASSERT_EQ(p.normalize(), 0);
  EXPECT_EQ(p.getPath() + p.getSubAttribute(), "/Dev/Temp/Value.Time");
  EXPECT_EQ(p.getNewPath("Writable").getPath(), "/Dev/Temp/Writable");
  std::string huge;
  for (int i = 0; i < 100000; ++i) huge += "/abcdefghi";  // 1 MB, 100000 components
  CPath long_path(huge + "//:x");
  EXPECT_EQ(long_path.normalize(), 0);
  EXPECT_EQ(long_path.getPath().size(), huge.size() + 2);
  EXPECT_NE(CPath(huge + "\n").normalize(), 0);
}

TEST_F(PathTest, ChildPathsAndAttributeLists) {
  std::vector<std::string> items;
  ASSERT_EQ(CPath("/Dev").getChildPaths(cds, items), 0);
  EXPECT_EQ(items, (std::vector<std::string>{"/Dev/B.c", "/Dev/Temp"}));
  CPath leaf("/Dev/Temp/Value");
  ASSERT_EQ(leaf.getChildPaths(cds, items), 0);  // a leaf path lists its node's children
  EXPECT_TRUE(items.empty());
  ASSERT_EQ(CPath("/Dev").getAttributeList("Children", cds, items), 0);
  EXPECT_EQ(items, (std::vector<std::string>{"B.c", "Temp"}));
  CPath normalized("/Dev/Temp");
  normalized.normalize();
  ASSERT_EQ(normalized.getAttributeList("PossibleValues", cds, items), 0);
  EXPECT_EQ(items, (std::vector<std::string>{"a", "b"}));
  ASSERT_EQ(CPath("/Dev/Temp").getAttributeList("Attributes", cds, items), 0);
  EXPECT_EQ(items, (std::vector<std::string>{"PossibleValues", "Value"}));
  // A node that does not exist is never mistaken for a leaf of its parent.
  EXPECT_NE(CPath("/Dev/Connections").getAttributeList("Children", cds, items), 0);
  EXPECT_NE(CPath("/Dev/Nope").getChildPaths(cds, items), 0);
}

TEST_F(PathTest, WithoutADefaultConnectionEveryRightIsRefused) {
  store.close();
  cds.set_handle(nullptr);
  EXPECT_FALSE(CPath("/Dev/Temp").is_read_authorized());
}

TEST(PathNodeNameTest, NodeNamesAreExactInverses) {
  std::string name, back;
  for (const auto& [path, expected] :
       {std::pair{"/A/B.c/D", "A.B\\.c.D"}, {"/", ""}, {"/x\\y/z.", "x\\\\y.z\\."}}) {
    CPath::PathToNodeName(path, name);
    EXPECT_EQ(name, expected);
  }
  CPath::DottedPathToNodePath("", back);
  EXPECT_EQ(back, "/");

  std::mt19937 rng(3);
  const char alphabet[] = {'a', '.', '\\', '/', 'b'};
  for (int i = 0; i < 5000; ++i) {
    std::string path = "/";
    for (int n = rng() % 12; n > 0; --n) path += alphabet[rng() % sizeof(alphabet)];
    CPath::PathToNodeName(path, name);
    ASSERT_EQ(name.find('/'), std::string::npos) << path;
    CPath::DottedPathToNodePath(name, back);
    ASSERT_EQ(back, path) << name;
  }
}

}  // namespace
