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
    api_status_t st;
    cds.add_node("/Dev/Temp", st, "");
    cds.add_node("/Dev/B.c", st, "");
    cds.set_leaf("/Dev/Temp/Value", toolkit::CElement("21"), st, false, "");
    cds.set_leaf("/Dev/Temp/PossibleValues", toolkit::CElement("a;b"), st, false, "");
  }

  struct Result {
    int rc;
    std::string path;
    std::string suffix;
    bool node_value;
    bool not_plain;
  };
  static Result norm(const std::string& text) {
    CPath p(text);
    int rc = p.normalize();
    return {rc, p.getPath(), p.getSubAttribute(), p.isNodeValue(), p.isNotPlainLeaf()};
  }
};

TEST_F(PathTest, NormalizeRewritesGoodPaths) {
  struct Case {
    const char* in;
    const char* path;
    const char* suffix;
    bool node_value;
    bool not_plain;
  } cases[] = {
      {"/Dev/Temp/Value", "/Dev/Temp/Value", "", false, false},
      {"//Dev///Temp/Value/", "/Dev/Temp/Value", "", false, false},
      {"/Dev/Temp:Writable", "/Dev/Temp/Writable", "", false, false},
      {"/Dev/Temp/Value.Time", "/Dev/Temp/Value", ".Time", false, false},
      {"/Dev/Temp/.HiCriticalLimit.Time", "/Dev/Temp/.HiCriticalLimit", ".Time", false, false},
      {"/Dev/Temp", "/Dev/Temp/Value", "", true, false},  // a node stands for its Value
      {"/Dev/Temp.Time", "/Dev/Temp/Value", ".Time", true, false},
      {"/Dev/B.c", "/Dev/B.c/Value", "", true, false},  // a dotted node name wins
      {"/Dev/Temp:Children", "/Dev/Temp/Children", "", false, true},
      {"/:NodeType", "/NodeType", "", false, false},
      {"/Dev/:Children", "/Dev/Children", "", false, true},
      {"/A:b/C", "/A:b/C", "", false, false},  // a ":" before the last component is a name
      {"/", "/", "", false, false},
  };
  for (const Case& c : cases) {
    Result r = norm(c.in);
    EXPECT_EQ(r.rc, 0) << c.in;
    EXPECT_EQ(r.path, c.path) << c.in;
    EXPECT_EQ(r.suffix, c.suffix) << c.in;
    EXPECT_EQ(r.node_value, c.node_value) << c.in;
    EXPECT_EQ(r.not_plain, c.not_plain) << c.in;
  }
}

TEST_F(PathTest, NormalizeRejectsMalformedPaths) {
  for (std::string bad : {std::string(""), std::string("Dev/Temp"), std::string("/Dev/Temp:"),
                          std::string("/Dev/Te\tmp"), std::string("/Dev/\x7f"),
                          std::string("/Dev\0/x", 7), std::string("Value")}) {
    EXPECT_NE(CPath(bad).normalize(), 0) << bad;
  }
}

// The bulk reads' shortcut must answer exactly as normalize() followed by a read, for every
// kind of path: a node with and without a Value, a node sharing its name with a leaf,
// suffixes, automatic attributes, missing and malformed paths.
TEST_F(PathTest, NormalizeAndReadAnswersAsNormalizeThenRead) {
  api_status_t st;
  cds.add_node("/Dev/Twin", st, "");
  cds.set_leaf("/Dev/Twin", toolkit::CElement("leaf"), st, false, "");
  cds.set_leaf("/Dev/Temp/Text.x", toolkit::CElement("dotted"), st, false, "");
  for (const char* text :
       {"/Dev/Temp", "/Dev/Temp/Value", "/Dev/Temp.Time", "/Dev/Temp/Value.Source", "/Dev",
        "/Dev.Time", "/Dev/Twin", "/Dev/B.c", "/Dev/B.c.Time", "/Dev/Temp:PossibleValues",
        "/Dev/Temp:Children", "/Dev/Temp/Text.x", "/Dev/Missing", "/Dev/Missing/Value.Time", "/",
        "//Dev//Temp/", "/Dev/Temp:", "Dev/Temp", "/Dev/Te\tmp"}) {
    toolkit::CReadBatch snapshot(cds);
    CPath apart(text);
    const int apart_rc = apart.normalize();
    api_status_t apart_status;
    toolkit::CElement apart_value;
    element_property_t apart_prop;
    const int apart_read = cds.get_leaf(apart.getPath(), apart_status, apart_value, apart_prop);

    CPath together(text);
    int read = -2;
    api_status_t status;
    toolkit::CElement value;
    element_property_t prop;
    EXPECT_EQ(together.normalizeAndRead(cds, read, status, value, prop), apart_rc) << text;
    EXPECT_EQ(together.getPath(), apart.getPath()) << text;
    EXPECT_EQ(together.getSubAttribute(), apart.getSubAttribute()) << text;
    EXPECT_EQ(together.isNodeValue(), apart.isNodeValue()) << text;
    EXPECT_EQ(together.isNotPlainLeaf(), apart.isNotPlainLeaf()) << text;
    EXPECT_EQ(read, apart_read) << text;
    EXPECT_EQ(status, apart_status) << text;
    EXPECT_EQ(value.get_type(), apart_value.get_type()) << text;
    EXPECT_EQ(value.to_string(), apart_value.to_string()) << text;
    EXPECT_EQ(prop.storage, apart_prop.storage) << text;
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
  Result r = norm(huge + "//:x");
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.path.size(), huge.size() + 2);
  EXPECT_NE(norm(huge + "\n").rc, 0);
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
  CPath::PathToNodeName("/A/B.c/D", name);
  EXPECT_EQ(name, "A.B\\.c.D");
  CPath::PathToNodeName("/", name);
  EXPECT_EQ(name, "");
  CPath::DottedPathToNodePath("", back);
  EXPECT_EQ(back, "/");
  CPath::PathToNodeName("/x\\y/z.", name);
  EXPECT_EQ(name, "x\\\\y.z\\.");

  std::mt19937 rng(3);
  const char alphabet[] = {'a', '.', '\\', '/', 'b'};
  for (int i = 0; i < 5000; ++i) {
    std::string path = "/";
    int n = rng() % 12;
    for (int j = 0; j < n; ++j) path += alphabet[rng() % sizeof(alphabet)];
    CPath::PathToNodeName(path, name);
    ASSERT_EQ(name.find('/'), std::string::npos) << path;
    CPath::DottedPathToNodePath(name, back);
    ASSERT_EQ(back, path) << name;
  }
}

}  // namespace
