// The event log library: selection and order of retrieve, what an append keeps, the files it
// refuses, and a log that another connection holds locked.
#include "platform/log.h"

#include <sqlite3.h>

#include <cmath>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "store_fixture.h"

namespace {

using toolkit::CEvent;
using toolkit::CLog;
using wsgate_test::TempStore;

CEvent at(time_t sec, const std::string& path, const std::string& message) {
  CEvent event;
  event.timestamp = {sec, 0};
  event.source_path = path;
  event.message = message;
  return event;
}

std::string messages(const std::vector<CEvent>& records) {
  std::string text;
  for (const CEvent& record : records) text += record.message;
  return text;
}

class LogTest : public ::testing::Test {
 protected:
  void TearDown() override {
    pcd_log_inject_failure(0, 0);
    pcd_log_close(handle_);
  }

  // Opens the log as a writer, creating it.
  pcd_log_handle_t writer() {
    EXPECT_EQ(pcd_log_init(path_.c_str(), &handle_, 1, 1, 0, 1, 1, 0, 0, 0, 0), 0)
        << pcd_log_last_error();
    return handle_;
  }
  int reader(pcd_log_handle_t* handle) {
    return pcd_log_init(path_.c_str(), handle, 0, 0, 0, 1, 1, 0, 0, 0, 0);
  }

  TempStore dir_;  // only for its temporary directory
  std::string path_ = dir_.dir() + "/events.db";
  pcd_log_handle_t handle_ = nullptr;
};

// The log services' tests cover the limits and both orders through the operations; here the
// order of records with one time stamp, and the path as a whole-component prefix.
TEST_F(LogTest, RetrieveSelectsByTimeAndPathAndOrdersByTimeThenAppending) {
  CLog log(writer());
  // a..f in time order; c and d share a time stamp and keep the order they were appended.
  ASSERT_EQ(log.append({at(10, "/Meter1/Voltage/Value", "a"), at(20, "/Meter10/Voltage/Value", "b"),
                        at(30, "/Meter1", "c"), at(30, "/AHU1/Fan/Value", "d"),
                        at(40, "/Meter1/Current/Value", "e"), at(50, "", "f")}),
            0);
  const timeval t20{20, 0}, t30{30, 0}, t40{40, 0};
  // The path prefix, the time range ({}: open), the limit, the order, the messages found.
  const struct {
    const char* path;
    std::optional<timeval> start, end;
    int max;
    bool latest, reverse;
    const char* expected;
  } cases[] = {
      {"", {}, {}, 100, false, false, "abcdef"},
      {"", {}, {}, 100, false, true, "fedcba"},
      {"", {}, {}, 3, true, true, "fed"},
      {"", t20, t40, 100, false, false, "bcde"},  // both bounds included
      {"", t30, t30, CLog::kNoLimit, false, false, "cd"},
      {"/Meter1", {}, {}, 100, false, false, "ace"},  // not /Meter10
      {"/Meter1/", {}, {}, 100, true, true, "eca"},
      {"/", {}, {}, 100, false, false, "abcdef"},
      {"/Meter", {}, {}, 100, false, false, ""},
  };
  for (const auto& c : cases) {
    std::vector<CEvent> records{at(1, "", "stale")};
    EXPECT_EQ(log.retrieve(records, c.path, c.start, c.end, c.max, c.latest, c.reverse, 0), 0);
    EXPECT_EQ(messages(records), c.expected)
        << c.path << " max " << c.max << " latest " << c.latest << " reverse " << c.reverse;
  }
}

TEST_F(LogTest, AppendKeepsEveryFieldOfTheRecord) {
  CLog log(writer());
  std::vector<CEvent> in(3);
  in[0] = at(-2, "/A/Value", "before 1970");
  in[0].timestamp.tv_usec = 999999;
  in[0].kind = CEvent::kKindAlarm;
  in[0].category = -7;
  in[0].value.set_real(std::nan(""));
  in[0].level_quality = 0xfffffffe;
  in[0].event_id = UINT64_MAX;
  in[0].sequence_index = UINT32_MAX;
  in[0].ack_status = 2;
  in[0].base_priority = -1;
  in[0].condition_present = true;
  in[0].note = "note";
  in[0].auto_closing = true;
  in[0].variation_level = 3;
  in[0].source = "cds:me@local";
  in[1] = at(1700000000, "/B", "");
  in[1].value.set_uint64(UINT64_MAX);
  in[2] = at(1800000000, "/C", "type None stays None");
  ASSERT_EQ(log.append(in), 0);
  std::vector<CEvent> out;
  ASSERT_EQ(log.retrieve(out, "", {}, {}, 10, false, false, 0), 0);
  ASSERT_EQ(out.size(), 3u);
  auto fields = [](const CEvent& e) {
    return std::tie(e.kind, e.source_path, e.category, e.level_quality, e.message, e.event_id,
                    e.sequence_index, e.ack_status, e.base_priority, e.condition_present, e.note,
                    e.auto_closing, e.variation_level, e.source);
  };
  for (size_t i = 0; i < out.size(); ++i) {
    const CEvent& a = in[i];
    const CEvent& b = out[i];
    EXPECT_EQ(b.timestamp.tv_sec, a.timestamp.tv_sec);
    EXPECT_EQ(b.timestamp.tv_usec, a.timestamp.tv_usec);
    EXPECT_EQ(b.value, a.value) << i;
    EXPECT_EQ(b.value.get_time().tv_sec, a.timestamp.tv_sec)
        << "the value carries the record's time";
    EXPECT_EQ(fields(b), fields(a)) << i;
  }
}

TEST_F(LogTest, AnAppendThatCannotStoreARecordWritesNothing) {
  CLog log(writer());
  CEvent bad = at(5, "/A", "bad");
  bad.timestamp.tv_usec = 1000000;
  EXPECT_EQ(log.append({at(1, "/A", "good"), bad}), SQLITE_RANGE);
  std::vector<CEvent> out;
  ASSERT_EQ(log.retrieve(out, "", {}, {}, 10, false, false, 0), 0);
  EXPECT_TRUE(out.empty());
  pcd_log_handle_t read_only = nullptr;
  ASSERT_EQ(reader(&read_only), 0);
  EXPECT_EQ(CLog(read_only).append({at(1, "/A", "x")}), SQLITE_READONLY);
  pcd_log_close(read_only);
}

// A missing file, a missing directory and a Data store are refused end to end
// (tests/e2e/cds_tool_test.py).
TEST_F(LogTest, FilesThatAreNotEventLogsAreRefused) {
  pcd_log_handle_t h = nullptr;
  std::ofstream(path_) << std::string(200, 'x');  // longer than a database file's header
  EXPECT_EQ(reader(&h), SQLITE_NOTADB);
  EXPECT_EQ(h, nullptr);
  EXPECT_EQ(pcd_log_init(nullptr, &h, 0, 0, 0, 0, 0, 0, 0, 0, 0), SQLITE_MISUSE);
  std::vector<CEvent> out;
  EXPECT_EQ(CLog(nullptr).retrieve(out, "", {}, {}, 1, false, false, 0), SQLITE_MISUSE);
}

TEST_F(LogTest, TheSqliteSettingsAreApplied) {
  const sqlite3_int64 old_limit = sqlite3_soft_heap_limit64(-1);
  ASSERT_EQ(pcd_log_init(path_.c_str(), &handle_, 1, 1, 0, 1, 1, 8192, 64 * 1024, 4 << 20, 0), 0);
  EXPECT_EQ(sqlite3_soft_heap_limit64(-1), 4 << 20);
  sqlite3_soft_heap_limit64(old_limit);
  pcd_log_close(handle_);
  handle_ = nullptr;
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v2(db, "PRAGMA page_size", -1, &stmt, nullptr);
  ASSERT_EQ(sqlite3_step(stmt), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(stmt, 0), 8192);
  sqlite3_finalize(stmt);
  sqlite3_close(db);
}

// A reader's open succeeds on a log that a writer holds locked; each read fails at once
// (the caller retries), and works once the writer lets go.
TEST_F(LogTest, ALockedLogFailsReadsUntilItIsReleased) {
  CLog(writer()).append({at(1, "/A", "kept")});
  pcd_log_close(handle_);
  handle_ = nullptr;
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db,
                         "PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; "
                         "DELETE FROM records WHERE 0",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  ASSERT_EQ(reader(&handle_), 0);
  std::vector<CEvent> out;
  EXPECT_EQ(CLog(handle_).retrieve(out, "", {}, {}, 10, false, false, 0), SQLITE_BUSY);
  sqlite3_close(db);
  EXPECT_EQ(CLog(handle_).retrieve(out, "", {}, {}, 10, false, false, 0), 0);
  EXPECT_EQ(messages(out), "kept");
}

TEST_F(LogTest, TheFailureHookFailsTheChosenCalls) {
  CLog log(writer());
  pcd_log_inject_failure(1, 2);
  std::vector<CEvent> out;
  EXPECT_EQ(log.append({at(1, "/A", "a")}), 0);
  EXPECT_EQ(log.retrieve(out, "", {}, {}, 10, false, false, 0), SQLITE_BUSY);
  EXPECT_EQ(log.append({at(2, "/A", "b")}), SQLITE_BUSY);
  EXPECT_EQ(log.retrieve(out, "", {}, {}, 10, false, false, 0), 0);
  EXPECT_EQ(messages(out), "a");
}

}  // namespace
