#include "platform/cds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "platform/path.h"
#include "platform/vtx.h"
#include "store_fixture.h"

namespace {

using toolkit::CElement;
using wsgate_test::StoreTest;

class CdsTest : public StoreTest {
 protected:
  api_status_t statusOf(const std::string& path, CElement* value = nullptr,
                        element_property_t* prop = nullptr) {
    api_status_t st = API_STATUS_UNKNOWN;
    CElement v;
    element_property_t p;
    EXPECT_EQ(cds.get_leaf(path, st, value != nullptr ? *value : v, prop != nullptr ? *prop : p),
              0);
    return st;
  }
  CElement get(const std::string& path, element_property_t* prop = nullptr) {
    CElement v;
    EXPECT_EQ(statusOf(path, &v, prop), API_STATUS_OK) << path;
    return v;
  }
};

CElement stamped(CElement v, time_t sec, suseconds_t usec) {
  v.set_time(timeval{sec, usec});
  return v;
}
CElement integer(int32_t i) {
  CElement v;
  v.set_int(i);
  return v;
}

// The types' text forms are checked end to end (tests/e2e/cds_tool_test.py); here the edges
// of each type, the time stamps to the microsecond and the storage class.
TEST_F(CdsTest, EveryTypeRoundTripsWithItsTimeStampAndStorageClass) {
  node("/Dev");
  std::vector<CElement> values(6);
  values[0] = integer(std::numeric_limits<int32_t>::min());
  values[1].set_int64(std::numeric_limits<int64_t>::min());
  values[2].set_uint64(std::numeric_limits<uint64_t>::max());
  values[3].set_string(std::string("text with ; and \0 inside", 24));
  values[4].set_timeval(timeval{-5, 999999});
  values[5].set_real(std::nan(""));
  for (size_t i = 0; i < values.size(); ++i) {
    std::string path = "/Dev/L" + std::to_string(i);
    leaf(path, stamped(values[i], 1700000000 + i, 123456));
    CElement back = get(path);
    EXPECT_EQ(back, values[i]) << path;
    EXPECT_EQ(back.get_type(), values[i].get_type());
    EXPECT_EQ(back.get_time().tv_sec * 1000000 + back.get_time().tv_usec,
              (1700000000 + int64_t(i)) * 1000000 + 123456);
  }
  vtx_SetTestClock(1700000000123, 50);  // a write without a time stamp is stamped now
  leaf("/Dev/A", CElement("1"), true);
  vtx_ClearTestClock();
  element_property_t prop;
  const timeval tv = get("/Dev/A", &prop).get_time();
  EXPECT_EQ(tv.tv_sec * 1000000 + tv.tv_usec, 1700000000123000);
  leaf("/Dev/A", CElement("3"), false);  // an existing leaf keeps its class
  get("/Dev/A", &prop);
  EXPECT_EQ(prop.storage, STORAGE_PERSISTENT);
}

// Single and bulk calls answer each path with its own status, bulk ones in request order.
TEST_F(CdsTest, StatusesForMissingAndMalformedPaths) {
  node("/A");
  const CElement one = integer(1);
  std::vector<std::string> paths = {"/A/X", "/Missing/X", "/A/Children", "bad", "/A/Y"};
  std::vector<api_status_t> st;
  ASSERT_EQ(cds.set_leaves(paths, {one, one, one, one, CElement("y")}, {0, 0, 0, 0, 1}, st, "s"),
            0);
  EXPECT_EQ(st, (std::vector<api_status_t>{API_STATUS_OK, API_STATUS_NO_NODE, API_STATUS_READ_ONLY,
                                           API_STATUS_BAD_PATH, API_STATUS_OK}));
  std::vector<CElement> got;
  std::vector<element_property_t> props;
  std::vector<std::string> reads = {"/A/Y", "/A/Missing", "//A//X/", "/Missing/X", "/", "/A/X\x01"};
  ASSERT_EQ(cds.get_leaves(reads, st, got, props), 0);
  EXPECT_EQ(st, (std::vector<api_status_t>{API_STATUS_OK, API_STATUS_NO_LEAF, API_STATUS_OK,
                                           API_STATUS_NO_NODE, API_STATUS_BAD_PATH,
                                           API_STATUS_BAD_PATH}));
  EXPECT_EQ(got[0].to_string(), "y");
  EXPECT_EQ(props[0].storage, STORAGE_PERSISTENT);
  EXPECT_EQ(got[1].get_type(), DATA_TYPE_NONE);
  EXPECT_EQ(got[2].to_int(), 1);
  EXPECT_EQ(statusOf("/A/Nope"), API_STATUS_NO_LEAF);

  api_status_t status;
  EXPECT_EQ(cds.set_leaf("/A/X", CElement(), status, false, ""), 0);  // a value without type
  EXPECT_EQ(status, API_STATUS_FAILED);
  for (const auto& [path, expected] : {std::pair{"/A/Missing", API_STATUS_NO_LEAF},
                                       {"/Nope/Missing", API_STATUS_NO_NODE},
                                       {"/A/X", API_STATUS_OK},
                                       {"/A/X", API_STATUS_NO_LEAF}}) {
    EXPECT_EQ(cds.clear_leaf(path, status, false, ""), 0);
    EXPECT_EQ(status, expected) << path;
  }
  toolkit::CCds unconnected;
  EXPECT_NE(unconnected.test_node("/", status), 0);
  EXPECT_EQ(status, API_STATUS_FAILED);
}

TEST_F(CdsTest, NodesTreeAndRecursiveRemoval) {
  node("/A/B/C");  // ancestors are created
  node("/A/B2");
  node("/A B");  // sorts between "/A" and "/A/..." in byte order: not in /A's subtree
  leaf("/A/B/C/Value", CElement("c"));
  leaf("/A/B/Value", CElement("b"));
  leaf("/A B/Value", CElement("kept"));

  std::vector<std::string> list;
  api_status_t st;
  ASSERT_EQ(cds.list_subtree("/A", list, st), 0);
  EXPECT_EQ(list, (std::vector<std::string>{"/A", "/A/B", "/A/B/C", "/A/B2"}));

  EXPECT_EQ(cds.remove_node("/", st, false, ""), 0);
  EXPECT_EQ(st, API_STATUS_FAILED);
  EXPECT_EQ(cds.remove_node("/A/", st, false, ""), 0);  // the path as a client sent it
  EXPECT_EQ(st, API_STATUS_OK);
  EXPECT_EQ(cds.remove_node("/A", st, false, ""), 0);
  EXPECT_EQ(st, API_STATUS_NO_NODE);
  EXPECT_EQ(statusOf("/A/B/C/Value"), API_STATUS_NO_NODE);
  EXPECT_EQ(get("/A B/Value").to_string(), "kept");
  ASSERT_EQ(cds.list_subtree("/", list, st), 0);
  EXPECT_EQ(list, (std::vector<std::string>{"/", "/A B"}));
  // A re-created node starts empty: no leaf survived the removal.
  node("/A/B");
  EXPECT_EQ(statusOf("/A/B/Value"), API_STATUS_NO_LEAF);
}

TEST_F(CdsTest, AutomaticAttributesAreComputed) {
  node("/D/Sub2");
  node("/D/Sub1");
  leaf("/D/Value", stamped(CElement("v"), 1000, 600000));
  leaf("/D/.Quality", CElement("192"));
  vtx_SetTestClock(1010500, 7);  // 9.9 s after the Value's time stamp
  element_property_t prop;
  CElement children = get("/D/Children", &prop);
  EXPECT_EQ(children.to_string(), "Sub1;Sub2");
  EXPECT_EQ(prop.storage, STORAGE_AUTOMATIC);
  EXPECT_EQ(children.get_time().tv_sec, 1010);
  EXPECT_EQ(get("/D/Attributes").to_string(), ".Quality;Value");
  CElement age = get("/D/ValueAge");
  EXPECT_EQ(age.get_type(), DATA_TYPE_UINT);
  EXPECT_EQ(age.to_uint(), 9u);
  vtx_ClearTestClock();
  EXPECT_EQ(statusOf("/D/Sub1/ValueAge"), API_STATUS_NO_LEAF);
  EXPECT_EQ(statusOf("/Nope/Children"), API_STATUS_NO_NODE);
}

TEST_F(CdsTest, RightsTakeTheLongestWholeComponentPrefix) {
  ASSERT_EQ(cds.rights_set({"*", "/", "r"}), 0);
  ASSERT_EQ(cds.rights_set({"operator", "/Dev1", "wr"}), 0);  // letters are normalised
  ASSERT_EQ(cds.rights_set({"operator", "/Dev1/Secret/", "r"}), 0);
  ASSERT_EQ(cds.rights_set({"", "/Public", "rw"}), 0);
  EXPECT_NE(cds.rights_set({"x", "/", "rz"}), 0);
  EXPECT_NE(cds.rights_set({"x", "Dev", "r"}), 0);

  auto rightsOf = [this](const std::string& user, const std::string& path) {
    std::string r = "?";
    EXPECT_EQ(cds.rights_for(user, path, r), 0);
    return r;
  };
  const char* const cases[][3] = {
      {"operator", "/Dev1/Temp/Value", "rw"},
      {"operator", "/Dev1", "rw"},
      {"operator", "/Dev10/Value", "r"},  // "/Dev1" does not cover "/Dev10"
      {"operator", "/Dev1/Secret/Value", "r"},
      {"guest", "/Dev1/Value", "r"},  // falls back to "*"
      {"", "/Public/Value", "rw"},    // the anonymous user's own rule
      {"", "/Dev1", "r"},
  };
  for (const auto& c : cases) EXPECT_EQ(rightsOf(c[0], c[1]), c[2]) << c[0] << " " << c[1];
  api_status_t st;
  ASSERT_EQ(cds.rights_remove("*", "/", st), 0);
  EXPECT_EQ(rightsOf("guest", "/Dev1/Value"), "");  // no rule at all
  std::vector<toolkit::right_rule_t> rules;
  ASSERT_EQ(cds.rights_list(rules), 0);
  EXPECT_EQ(rules.at(2).prefix, "/Dev1/Secret");  // stored without the trailing "/"
}

// A second connection becomes the default one (CPath's) while it is open. The rules it
// changes are seen by the first whatever the first had cached, but within a read batch the
// rules are looked up once.
TEST_F(CdsTest, RuleChangesOfASecondConnectionAreSeenOutsideAReadBatch) {
  ASSERT_EQ(cds.rights_set({"*", "/", "r"}), 0);
  std::string rights;
  ASSERT_EQ(cds.rights_for("u", "/x", rights), 0);  // cached now
  EXPECT_EQ(pcd_default_handle(), store.handle());
  pcd_handle_t other = pcd_init(0);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(pcd_default_handle(), other);
  toolkit::CCds other_cds(other);
  {
    toolkit::CReadBatch batch(cds);
    ASSERT_EQ(cds.rights_for("u", "/x", rights), 0);
    ASSERT_EQ(other_cds.rights_set({"*", "/", "rw"}), 0);
    ASSERT_EQ(cds.rights_for("u", "/x", rights), 0);
    EXPECT_EQ(rights, "r");  // still the batch's snapshot
  }
  pcd_close(other);
  EXPECT_EQ(pcd_default_handle(), store.handle());
  ASSERT_EQ(cds.rights_for("u", "/x", rights), 0);
  EXPECT_EQ(rights, "rw");
}

TEST_F(CdsTest, AReadBatchSeesOneSnapshotAndRefusesWrites) {
  node("/A");
  const CElement one = integer(1);
  leaf("/A/Value", one);
  pcd_handle_t other = pcd_init(0);
  ASSERT_NE(other, nullptr);
  toolkit::CCds writer(other);
  api_status_t st;
  {
    toolkit::CReadBatch outer(cds);
    EXPECT_EQ(get("/A/Value").to_int(), 1);
    {
      toolkit::CReadBatch inner(cds);  // nests
      EXPECT_EQ(writer.set_leaf("/A/Value", integer(2), st, false, "other"), 0);
      EXPECT_EQ(st, API_STATUS_OK);
      EXPECT_EQ(get("/A/Value").to_int(), 1);  // still the snapshot
    }
    std::vector<api_status_t> statuses;
    std::vector<CElement> values;
    std::vector<element_property_t> props;
    ASSERT_EQ(cds.get_leaves({"/A/Value", "/A/Nope"}, statuses, values, props), 0);
    EXPECT_EQ(values[0].to_int(), 1);
    EXPECT_EQ(statuses[1], API_STATUS_NO_LEAF);
    cds.set_leaf("/A/Value", one, st, false, "test");
    EXPECT_EQ(st, API_STATUS_FAILED);
    EXPECT_NE(cds.watchdog_register(st, "w", 90, true), 0);
  }
  EXPECT_EQ(get("/A/Value").to_int(), 2);  // the snapshot has ended
  leaf("/A/Value", one);
  pcd_close(other);
}

TEST_F(CdsTest, AWriteBatchCommitsItsCallsTogetherAndEachCallAlone) {
  pcd_handle_t other = pcd_init(0);
  ASSERT_NE(other, nullptr);
  toolkit::CCds reader(other);
  api_status_t st;
  auto seen = [&](const char* path) {
    return reader.test_node(path, st) == 0 && st == API_STATUS_OK;
  };
  std::string error;
  {
    toolkit::CWriteBatch batch(cds);
    node("/A");
    EXPECT_EQ(statusOf("/A/Value"), API_STATUS_NO_LEAF);  // reads see the batch's writes
    // A call that fails undoes its own changes only.
    EXPECT_NE(cds.import({"/B"}, {{"Nope", CElement("x")}}, {}, "test", error), 0);
    {
      toolkit::CReadBatch inner(cds);  // joins, changes nothing
      EXPECT_EQ(cds.test_node("/A", st), 0);
      EXPECT_EQ(st, API_STATUS_OK);
    }
    EXPECT_FALSE(seen("/A"));  // other processes see nothing before the commit
    EXPECT_EQ(batch.commit(), 0);
  }
  EXPECT_TRUE(seen("/A"));
  EXPECT_FALSE(seen("/B"));
  {
    toolkit::CWriteBatch batch(cds);
    node("/C");
    batch.rollback();
  }
  EXPECT_FALSE(seen("/C"));
  {
    toolkit::CWriteBatch batch(cds);
    node("/D");
    pcd_inject_failure(store.handle(), 0, 1);
    EXPECT_NE(batch.commit(), 0);  // a failed commit keeps nothing
  }
  EXPECT_FALSE(seen("/D"));
  {
    toolkit::CWriteBatch batch(cds);
    node("/E");
  }  // the destructor commits
  EXPECT_TRUE(seen("/E"));
  pcd_close(other);
}

TEST_F(CdsTest, EventsSyslogAndWatchdog) {
  toolkit::CEvent e;
  e.value.set_real(21.5);
  e.value.set_time(timeval{100, 5});
  e.timestamp = timeval{200, 7};
  e.set_quality(toolkit::CEvent::kQualityGood);
  e.event_id = 1ull << 40;
  std::vector<api_status_t> st;
  ASSERT_EQ(cds.events_send({e, e}, st), 0);
  EXPECT_EQ(st, (std::vector<api_status_t>{API_STATUS_OK, API_STATUS_OK}));
  std::vector<toolkit::CEvent> got;
  ASSERT_EQ(cds.events_list(got, 1), 0);
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].value, e.value);
  EXPECT_EQ(got[0].value.get_time().tv_usec, 5);
  EXPECT_EQ(got[0].timestamp.tv_usec, 7);
  EXPECT_EQ(got[0].quality(), toolkit::CEvent::kQualityGood);
  EXPECT_EQ(got[0].event_id, e.event_id);

  ASSERT_EQ(cds.syslog_add("app", SYSLOG_CRITICAL, "first", "d"), 0);
  std::vector<toolkit::CCds::syslog_record_t> log;
  ASSERT_EQ(cds.syslog_list(log, 10), 0);
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0].severity, SYSLOG_CRITICAL);
  EXPECT_EQ(log[0].detail, "d");

  api_status_t wst;
  EXPECT_NE(cds.watchdog_ping(), 0);  // nothing registered
  ASSERT_EQ(cds.watchdog_register(wst, "wsgated", 30, true), 0);
  EXPECT_EQ(cds.watchdog_ping(), 0);
  ASSERT_EQ(cds.watchdog_clear(wst), 0);
  ASSERT_EQ(cds.watchdog_clear(wst), 0);
  EXPECT_EQ(wst, API_STATUS_NO_LEAF);
}

// Random texts of path-like bytes (separators, dots, colons, escapes, control and high
// bytes) through every path-taking call: no crash, statuses only, and an intact store.
TEST_F(CdsTest, RandomPathsNeverDamageTheStore) {
  std::mt19937 rng(11);
  const char bytes[] = {'/', '/', '/', 'a', 'b', '.', ':', '\\', ' ', '\0', '\n', '\x7f', '\xc3'};
  api_status_t st;
  std::vector<std::string> out;
  std::vector<toolkit::leaf_record_t> leaves;
  for (int i = 0; i < 3000; ++i) {
    std::string path = rng() % 2 == 0 ? "/" : "";
    for (int n = rng() % 16; n > 0; --n) path += bytes[rng() % sizeof(bytes)];
    CPath p(path);
    if (p.normalize() == 0) {
      ASSERT_EQ(p.getPath()[0], '/') << path;
      ASSERT_EQ(p.getPath().find("//"), std::string::npos) << path;
    }
    ASSERT_EQ(cds.add_node(path, st, ""), 0);
    ASSERT_EQ(cds.set_leaf(path, CElement(path), st, rng() % 2 == 0, ""), 0);
    statusOf(path);
    ASSERT_EQ(cds.list_children(path, out, st), 0);
    ASSERT_EQ(cds.list_leaves(path, leaves, st), 0);
    if (rng() % 4 == 0) {
      ASSERT_EQ(cds.remove_node(path, st, false, ""), 0);
    }
    if (rng() % 8 == 0) {
      ASSERT_EQ(cds.clear_leaf(path, st, false, ""), 0);
    }
  }
  wsgate_test::expectWholeStore(store.path());
}

}  // namespace
