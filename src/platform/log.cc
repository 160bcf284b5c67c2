// The event log library on SQLite.
#include "platform/log.h"

#include <algorithm>
#include <string>

#include "platform/log_db.h"

namespace {

// "wslg": marks an SQLite file as an event log.
constexpr logdb::Schema kEventLogSchema = {
    "event log", "an event log", 0x77736c67, 1,
    // One row per record; the row id is the order of appending. The value keeps its own
    // storage class, typed by `type` as in the store; `time` is microseconds since 1970.
    R"sql(
CREATE TABLE records(
  id INTEGER PRIMARY KEY, time INTEGER NOT NULL, kind INTEGER NOT NULL,
  source_path TEXT NOT NULL, category INTEGER NOT NULL, type INTEGER NOT NULL, value,
  level_quality INTEGER NOT NULL, message TEXT NOT NULL, event_id INTEGER NOT NULL,
  sequence_index INTEGER NOT NULL, ack_status INTEGER NOT NULL, base_priority INTEGER NOT NULL,
  condition_present INTEGER NOT NULL, note TEXT NOT NULL, auto_closing INTEGER NOT NULL,
  variation_level INTEGER NOT NULL, source TEXT NOT NULL);
-- The row id rides along in the index, so it serves "ORDER BY time, id" in both directions.
CREATE INDEX records_by_time ON records(time);
)sql"};

std::string g_last_error;

#define RECORD_COLUMNS                                                                 \
  "time, kind, source_path, category, type, value, level_quality, message, event_id, " \
  "sequence_index, ack_status, base_priority, condition_present, note, auto_closing, " \
  "variation_level, source"

// ?3 = 0: no path filter. Otherwise the path itself (?4) or anything from "path/" (?5) up to
// but not including "path0" (?6), "0" being the character after "/".
#define RECORD_SELECTION                                          \
  "SELECT " RECORD_COLUMNS                                        \
  " FROM records WHERE time >= ?1 AND time <= ?2 AND (?3 = 0 OR " \
  "source_path = ?4 OR (source_path >= ?5 AND source_path < ?6)) "

constexpr const char* kSelectEarliest = RECORD_SELECTION "ORDER BY time, id LIMIT ?7";
constexpr const char* kSelectLatest = RECORD_SELECTION "ORDER BY time DESC, id DESC LIMIT ?7";
constexpr const char* kInsert =
    "INSERT INTO records(" RECORD_COLUMNS
    ") VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17)";

std::string columnText(sqlite3_stmt* stmt, int column) {
  const char* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
  return text != nullptr ? std::string(text, sqlite3_column_bytes(stmt, column)) : std::string();
}

void readRecord(sqlite3_stmt* stmt, toolkit::CEvent& record) {
  record.timestamp = logdb::fromMicros(sqlite3_column_int64(stmt, 0));
  record.kind = sqlite3_column_int(stmt, 1);
  record.source_path = columnText(stmt, 2);
  record.category = sqlite3_column_int(stmt, 3);
  record.value.set_time(record.timestamp);
  store::read_value(stmt, 4, 5, record.value);
  record.level_quality = static_cast<uint32_t>(sqlite3_column_int64(stmt, 6));
  record.message = columnText(stmt, 7);
  record.event_id = static_cast<uint64_t>(sqlite3_column_int64(stmt, 8));
  record.sequence_index = static_cast<uint32_t>(sqlite3_column_int64(stmt, 9));
  record.ack_status = sqlite3_column_int(stmt, 10);
  record.base_priority = sqlite3_column_int(stmt, 11);
  record.condition_present = sqlite3_column_int(stmt, 12) != 0;
  record.note = columnText(stmt, 13);
  record.auto_closing = sqlite3_column_int(stmt, 14) != 0;
  record.variation_level = sqlite3_column_int(stmt, 15);
  record.source = columnText(stmt, 16);
}

// SQLITE_RANGE when the record cannot be stored.
int bindRecord(sqlite3_stmt* stmt, const toolkit::CEvent& record) {
  int64_t time = 0;
  if (!logdb::toMicros(record.timestamp, time)) return SQLITE_RANGE;
  sqlite3_bind_int64(stmt, 1, time);
  sqlite3_bind_int(stmt, 2, record.kind);
  sqlite3_bind_text(stmt, 3, record.source_path.data(), static_cast<int>(record.source_path.size()),
                    SQLITE_STATIC);
  sqlite3_bind_int(stmt, 4, record.category);
  if (record.value.get_type() == DATA_TYPE_NONE) {
    sqlite3_bind_int(stmt, 5, DATA_TYPE_NONE);
    sqlite3_bind_null(stmt, 6);
  } else if (!store::bind_value(stmt, 5, 6, record.value)) {
    return SQLITE_RANGE;
  }
  sqlite3_bind_int64(stmt, 7, record.level_quality);
  sqlite3_bind_text(stmt, 8, record.message.data(), static_cast<int>(record.message.size()),
                    SQLITE_STATIC);
  sqlite3_bind_int64(stmt, 9, static_cast<int64_t>(record.event_id));
  sqlite3_bind_int64(stmt, 10, record.sequence_index);
  sqlite3_bind_int(stmt, 11, record.ack_status);
  sqlite3_bind_int(stmt, 12, record.base_priority);
  sqlite3_bind_int(stmt, 13, record.condition_present ? 1 : 0);
  sqlite3_bind_text(stmt, 14, record.note.data(), static_cast<int>(record.note.size()),
                    SQLITE_STATIC);
  sqlite3_bind_int(stmt, 15, record.auto_closing ? 1 : 0);
  sqlite3_bind_int(stmt, 16, record.variation_level);
  sqlite3_bind_text(stmt, 17, record.source.data(), static_cast<int>(record.source.size()),
                    SQLITE_STATIC);
  return SQLITE_OK;
}

// A bound of retrieve in the log's microseconds; a bound beyond the log's range is clamped.
int64_t boundMicros(const std::optional<timeval>& bound, int64_t open_value) {
  if (!bound) return open_value;
  int64_t micros = 0;
  if (logdb::toMicros(*bound, micros)) return micros;
  return bound->tv_sec < 0 ? INT64_MIN : INT64_MAX;
}

}  // namespace

struct pcd_log_connection {
  logdb::Connection connection{kEventLogSchema};
};

int pcd_log_init(const char* path, pcd_log_handle_t* handle, int create, int writable,
                 int busy_timeout_ms, int wal, int synchronous, int page_size, uint32_t cache_size,
                 uint32_t heap_limit, int flags) {
  g_last_error.clear();
  if (handle == nullptr) return SQLITE_MISUSE;
  *handle = nullptr;
  if (path == nullptr || flags != 0) {
    g_last_error = "pcd_log_init: no path, or flags other than 0";
    return SQLITE_MISUSE;
  }
  logdb::OpenOptions options;
  options.create = create != 0;
  options.writable = writable != 0;
  options.busy_timeout_ms = busy_timeout_ms;
  options.wal = wal != 0;
  options.synchronous = synchronous;
  options.page_size = page_size;
  options.cache_size = cache_size;
  options.heap_limit = heap_limit;
  auto* log = new pcd_log_connection;
  int rc = log->connection.open(path, options);
  if (rc != SQLITE_OK) {
    g_last_error = log->connection.error();
    delete log;
    return rc;
  }
  *handle = log;
  return SQLITE_OK;
}

void pcd_log_close(pcd_log_handle_t handle) {
  delete handle;
}

const char* pcd_log_last_error(void) {
  return g_last_error.c_str();
}

const char* pcd_log_result_text(int result) {
  return sqlite3_errstr(result);
}

namespace toolkit {

int CLog::retrieve(std::vector<CEvent>& records, const std::string& path,
                   const std::optional<timeval>& start, const std::optional<timeval>& end,
                   int max_count, bool latest, bool reverse, int flags) {
  records.clear();
  if (handle_ == nullptr || flags != 0) return SQLITE_MISUSE;
  logdb::Connection& c = handle_->connection;
  int rc = c.beginCall();
  if (rc != SQLITE_OK) return rc;
  store::Stmt query(c.prepare(latest ? kSelectLatest : kSelectEarliest));
  if (!query.ok()) return sqlite3_errcode(c.db()) & 0xff;

  // Trailing "/" are dropped, so "/" itself filters nothing: every path lies below the root.
  std::string filter = path;
  while (!filter.empty() && filter.back() == '/') filter.pop_back();
  const std::string below = filter + "/";
  const std::string beyond = filter + "0";
  sqlite3_stmt* stmt = query.get();
  sqlite3_bind_int64(stmt, 1, boundMicros(start, INT64_MIN));
  sqlite3_bind_int64(stmt, 2, boundMicros(end, INT64_MAX));
  sqlite3_bind_int(stmt, 3, filter.empty() ? 0 : 1);
  query.bind(4, filter);
  query.bind(5, below);
  query.bind(6, beyond);
  sqlite3_bind_int(stmt, 7, std::max(max_count, 0));
  while ((rc = query.step()) == SQLITE_ROW) {
    records.emplace_back();
    readRecord(stmt, records.back());
  }
  if (rc != SQLITE_DONE) {
    records.clear();
    return rc & 0xff;
  }
  // The query gives the earliest records oldest first, or the latest ones newest first.
  if (latest != reverse) std::reverse(records.begin(), records.end());
  return SQLITE_OK;
}

int CLog::append(const std::vector<CEvent>& records) {
  if (handle_ == nullptr) return SQLITE_MISUSE;
  logdb::Connection& c = handle_->connection;
  int rc = c.beginCall();
  if (rc != SQLITE_OK) return rc;
  if (!c.writable()) return SQLITE_READONLY;
  logdb::WriteTransaction tx(c.db());
  if (tx.begun() != SQLITE_OK) return tx.begun();
  store::Stmt insert(c.prepare(kInsert));
  if (!insert.ok()) return sqlite3_errcode(c.db()) & 0xff;
  for (const CEvent& record : records) {
    rc = bindRecord(insert.get(), record);
    if (rc != SQLITE_OK) return rc;
    rc = insert.step();
    if (rc != SQLITE_DONE) return rc & 0xff;
    insert.reset();
  }
  return tx.commit();
}

}  // namespace toolkit
