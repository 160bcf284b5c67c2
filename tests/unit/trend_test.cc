// The trend log library: the selection, order, offset and limit of get_trend_data, and content
// that breaks the log's rules. The lists that replace writes are read back end to end by
// `cds trend show` (tests/e2e/cds_tool_test.py).
#include "platform/trend.h"

#include <sqlite3.h>

#include <cmath>
#include <string>
#include <vector>

#include "platform/log.h"
#include "store_fixture.h"

namespace {

using namespace toolkit::trend;
using wsgate_test::TempStore;

const double kNaN = std::nan("");

CSample same(double v) {
  return CSample{v, v, v, v, 1};
}

// Snapshots of /Dev at seconds 100..500 (period 1) and 300, 500 (period 2); the value of
// a sample tells its snapshot: time / 100, plus 10 for period 2, plus 0.5 for the second
// parameter.
std::vector<CDeviceLog> content() {
  CDeviceLog dev{"/Dev",
                 {{"/Dev/A", SAMPLE_TYPE_NORMAL, true, false, true, true},
                  {"/Dev/B", SAMPLE_TYPE_PF, false, true, false, true}},
                 {}};
  auto add = [&](uint32_t period, time_t t) {
    double v = t / 100 + (period == 2 ? 10 : 0);
    dev.snapshots.push_back({period, t, 100, {same(v), same(v + 0.5)}});
  };
  for (time_t t = 100; t <= 500; t += 100) add(1, t);
  add(2, 300);
  add(2, 500);
  dev.snapshots[1].data[0] = CSample{kNaN, 2, kNaN, 2, kNaN};
  return {{"/Other", {}, {}}, dev};
}

class TrendTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(log_.open(path_, false, true, 0, true, 0, 0, 0, false), 0) << log_.last_error();
    ASSERT_EQ(log_.replace({{2, 24}, {1, 96}}, content()), 0);
  }
  void TearDown() override { pcd_log_inject_failure(0, 0); }

  // The first sample's actual value of each snapshot, "period:value" joined.
  std::string read(const std::vector<uint32_t>& periods, std::pair<time_t, time_t> range, int max,
                   uint32_t offset, bool ascending, int expected_result = 0) {
    CDeviceData data;
    EXPECT_EQ(log_.get_trend_data(data, {"/Dev", {"/Dev/A"}}, periods, range, max, offset,
                                  ascending, false),
              expected_result);
    std::string text;
    for (const CSnapshot& s : data.snapshots) {
      text += (text.empty() ? "" : " ") + std::to_string(s.period) + ":" +
              std::to_string(static_cast<int>(s.data.at(0).actual));
    }
    return text;
  }

  TempStore dir_;  // only for its temporary directory
  std::string path_ = dir_.dir() + "/trends.db";
  CLog log_;
};

TEST_F(TrendTest, TrendDataSelectsOrdersSkipsAndLimits) {
  const std::pair<time_t, time_t> all{0, -1};
  const struct {
    std::vector<uint32_t> periods;
    std::pair<time_t, time_t> range;
    int max;
    uint32_t offset;
    bool ascending;
    const char* expected;
  } cases[] = {
      {{1}, all, 100, 0, true, "1:1 1:2 1:3 1:4 1:5"},
      {{1, 2}, all, 100, 0, true, "1:1 1:2 1:3 2:13 1:4 1:5 2:15"},
      {{1, 2}, all, 100, 0, false, "2:15 1:5 1:4 2:13 1:3 1:2 1:1"},
      {{2}, all, 100, 0, true, "2:13 2:15"},
      {{}, all, 100, 0, true, ""},
      {{7}, all, 100, 0, true, ""},
      {{1}, {200, 400}, 100, 0, true, "1:2 1:3 1:4"},  // both ends included
      {{1}, {400, -1}, 100, 0, false, "1:5 1:4"},
      {{1, 2}, all, 3, 2, true, "1:3 2:13 1:4"},  // the offset counts selected snapshots only
      {{1}, all, 2, 1, false, "1:4 1:3"},
      {{1}, all, 100, 9, true, ""},
      {{1}, all, 0, 0, true, ""},
      {{1}, all, -5, 0, true, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(read(c.periods, c.range, c.max, c.offset, c.ascending), c.expected)
        << "max " << c.max << " offset " << c.offset << " ascending " << c.ascending;
  }
}

TEST_F(TrendTest, SamplesFollowTheRequestedParametersAndKeepNaN) {
  CDeviceData data;
  ASSERT_EQ(log_.get_trend_data(data, {"/Dev", {"/Dev/B", "/Dev/Nope", "/Dev/A"}}, {1}, {200, 200},
                                10, 0, true, false),
            0);
  ASSERT_EQ(data.snapshots.size(), 1u);
  const CSnapshot& s = data.snapshots[0];
  EXPECT_EQ(s.timestamp, 200);
  EXPECT_EQ(s.percent_valid, 100);
  // Each sample as "min max avg actual count"; an unknown parameter has only NaN.
  std::string samples;
  for (const CSample& d : s.data) {
    for (double v : {d.min, d.max, d.avg, d.actual, d.count}) samples += std::to_string(v) + " ";
  }
  EXPECT_EQ(samples,
            "2.500000 2.500000 2.500000 2.500000 1.000000 nan nan nan nan nan "
            "nan 2.000000 nan 2.000000 nan ");
  EXPECT_EQ(log_.get_trend_data(data, {"/Dev", {"/Dev/Nope"}}, {1}, {0, -1}, 10, 0, true, true),
            SQLITE_NOTFOUND);
  EXPECT_EQ(log_.get_trend_data(data, {"/Nope", {}}, {1}, {0, -1}, 10, 0, true, false),
            SQLITE_NOTFOUND);
  EXPECT_TRUE(data.snapshots.empty());
  std::vector<CParamProperties> params;
  EXPECT_EQ(log_.get_params({"/Nope"}, params), SQLITE_NOTFOUND);
}

TEST_F(TrendTest, ContentThatBreaksTheRulesChangesNothing) {
  std::vector<CDeviceLog> base = content();
  auto twice = base, wrong_period = base, short_data = base, same_time = base, param_twice = base;
  twice.push_back(base[0]);  // a device path repeats
  wrong_period[1].snapshots[0].period = 9;
  short_data[1].snapshots[0].data.pop_back();
  same_time[1].snapshots[1].timestamp = 100;
  param_twice[1].params[1].path = "/Dev/A";
  for (const auto& devices : {twice, wrong_period, short_data, same_time, param_twice}) {
    EXPECT_EQ(log_.replace({{1, 1}, {2, 1}}, devices), SQLITE_CONSTRAINT);
  }
  EXPECT_EQ(log_.replace({{1, 1}, {1, 2}}, {}), SQLITE_CONSTRAINT);
  EXPECT_EQ(read({1, 2}, {0, -1}, 100, 0, true), "1:1 1:2 1:3 2:13 1:4 1:5 2:15");
}

TEST_F(TrendTest, AReadOnlyReaderSeesAWritersReplacementAndRefusesWrites) {
  CLog reader;
  ASSERT_EQ(reader.open(path_, true, false, 40, false, 0, 0, 0, false), 0);
  EXPECT_EQ(reader.replace({}, {}), SQLITE_READONLY);
  ASSERT_EQ(log_.replace({{1, 5}}, {{"/New", {}, {}}}), 0);
  std::vector<CDeviceProperties> devices;
  ASSERT_EQ(reader.get_devices(devices), 0);
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_EQ(devices[0].path, "/New");
  pcd_log_inject_failure(0, 1);
  EXPECT_EQ(reader.get_devices(devices), SQLITE_BUSY);
  reader.close();
  EXPECT_EQ(reader.get_devices(devices), SQLITE_MISUSE);
  CLog missing;
  EXPECT_EQ(missing.open(dir_.dir() + "/none.db", true, false, 40, false, 0, 0, 0, false),
            SQLITE_CANTOPEN);
  EXPECT_FALSE(missing.is_open());
  EXPECT_NE(missing.last_error().find("none.db"), std::string::npos);
}

}  // namespace
