// toolkit::CCds: the event queue, the system log and the watchdogs.
#include <unistd.h>

#include "platform/cds.h"
#include "platform/store_internal.h"
#include "platform/vtx.h"

namespace {

// The queue and the system log keep their newest records only: nothing on the gateway
// trims them otherwise, and the store must not grow without bound.
constexpr int64_t kMaxQueuedEvents = 10000;
constexpr int64_t kMaxSyslogRecords = 10000;

constexpr const char* kInsertEvent =
    "INSERT INTO events(kind, source_path, category, type, value, level_quality, message, "
    "event_id, sequence_index, sec, usec, ack_status, base_priority, condition_present, note, "
    "auto_closing, variation_level, source, vsec, vusec) "
    "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17, ?18, "
    "?19, ?20)";
constexpr const char* kSelectEvents =
    "SELECT kind, source_path, category, type, value, level_quality, message, event_id, "
    "sequence_index, sec, usec, ack_status, base_priority, condition_present, note, "
    "auto_closing, variation_level, source, vsec, vusec FROM "
    "(SELECT * FROM events ORDER BY id DESC LIMIT ?1) ORDER BY id";

bool bindEvent(store::Stmt& q, const toolkit::CEvent& e) {
  q.bind(1, int64_t{e.kind});
  q.bind(2, e.source_path);
  q.bind(3, int64_t{e.category});
  if (e.value.get_type() == DATA_TYPE_NONE) {
    q.bind(4, int64_t{DATA_TYPE_NONE});
    sqlite3_bind_null(q.get(), 5);
  } else if (!store::bind_value(q.get(), 4, 5, e.value)) {
    return false;
  }
  q.bind(6, int64_t{e.level_quality});
  q.bind(7, e.message);
  q.bind(8, static_cast<int64_t>(e.event_id));
  q.bind(9, int64_t{e.sequence_index});
  q.bind(10, int64_t{e.timestamp.tv_sec});
  q.bind(11, int64_t{e.timestamp.tv_usec});
  q.bind(12, int64_t{e.ack_status});
  q.bind(13, int64_t{e.base_priority});
  q.bind(14, int64_t{e.condition_present});
  q.bind(15, e.note);
  q.bind(16, int64_t{e.auto_closing});
  q.bind(17, int64_t{e.variation_level});
  q.bind(18, e.source);
  q.bind(19, int64_t{e.value.get_time().tv_sec});
  q.bind(20, int64_t{e.value.get_time().tv_usec});
  return true;
}

void readEvent(store::Stmt& q, toolkit::CEvent& e) {
  e.kind = static_cast<int32_t>(q.int64(0));
  e.source_path = q.text(1);
  e.category = static_cast<int32_t>(q.int64(2));
  store::read_value(q.get(), 3, 4, e.value);
  e.value.set_time(
      timeval{static_cast<time_t>(q.int64(18)), static_cast<suseconds_t>(q.int64(19))});
  e.level_quality = static_cast<uint32_t>(q.int64(5));
  e.message = q.text(6);
  e.event_id = static_cast<uint64_t>(q.int64(7));
  e.sequence_index = static_cast<uint32_t>(q.int64(8));
  e.timestamp = timeval{static_cast<time_t>(q.int64(9)), static_cast<suseconds_t>(q.int64(10))};
  e.ack_status = static_cast<int32_t>(q.int64(11));
  e.base_priority = static_cast<int32_t>(q.int64(12));
  e.condition_present = q.int64(13) != 0;
  e.note = q.text(14);
  e.auto_closing = q.int64(15) != 0;
  e.variation_level = static_cast<int32_t>(q.int64(16));
  e.source = q.text(17);
}

// Drops the oldest rows of an AUTOINCREMENT table beyond `keep`.
bool trim(pcd_connection* c, const char* sql, int64_t keep) {
  store::Stmt del(store::prepare(c, sql));
  if (!del.ok()) return false;
  del.bind(1, keep);
  return del.step() == SQLITE_DONE;
}

}  // namespace

namespace toolkit {

using store::kCallFailed;

int CCds::events_send(const std::vector<CEvent>& events, std::vector<api_status_t>& statuses) {
  statuses.assign(events.size(), API_STATUS_FAILED);
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  store::Transaction tx(c, true);
  if (!tx.ok()) return kCallFailed;
  bool ok = true;
  for (size_t i = 0; ok && i < events.size(); ++i) {
    store::Stmt q(store::prepare(c, kInsertEvent));
    if (!q.ok()) {
      ok = false;
    } else if (bindEvent(q, events[i])) {
      ok = q.step() == SQLITE_DONE;
      if (ok) statuses[i] = API_STATUS_OK;
    }
  }
  ok = ok && trim(c, "DELETE FROM events WHERE id <= (SELECT max(id) FROM events) - ?1",
                  kMaxQueuedEvents);
  if (ok && tx.commit()) return 0;
  statuses.assign(events.size(), API_STATUS_FAILED);
  return kCallFailed;
}

int CCds::events_list(std::vector<CEvent>& events, size_t max) {
  events.clear();
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  store::Stmt q(store::prepare(c, kSelectEvents));
  if (!q.ok()) return kCallFailed;
  q.bind(1, static_cast<int64_t>(std::min<size_t>(max, INT64_MAX)));
  int rc;
  while ((rc = q.step()) == SQLITE_ROW) {
    events.emplace_back();
    readEvent(q, events.back());
  }
  if (rc == SQLITE_DONE) return 0;
  events.clear();
  return kCallFailed;
}

int CCds::syslog_add(const std::string& app, syslog_severity_t severity, const std::string& text,
                     const std::string& detail) {
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  store::Transaction tx(c, true);
  store::Stmt q(store::prepare(
      c, "INSERT INTO syslog(time, app, severity, text, detail) VALUES(?1, ?2, ?3, ?4, ?5)"));
  if (!tx.ok() || !q.ok()) return kCallFailed;
  q.bind(1, vtx_UTCtime64());
  q.bind(2, app);
  q.bind(3, int64_t{severity});
  q.bind(4, text);
  q.bind(5, detail);
  if (q.step() != SQLITE_DONE) return kCallFailed;
  q.reset();
  if (!trim(c, "DELETE FROM syslog WHERE id <= (SELECT max(id) FROM syslog) - ?1",
            kMaxSyslogRecords)) {
    return kCallFailed;
  }
  return tx.commit() ? 0 : kCallFailed;
}

int CCds::syslog_list(std::vector<syslog_record_t>& records, size_t max) {
  records.clear();
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  store::Stmt q(store::prepare(c,
                               "SELECT time, app, severity, text, detail FROM "
                               "(SELECT * FROM syslog ORDER BY id DESC LIMIT ?1) ORDER BY id"));
  if (!q.ok()) return kCallFailed;
  q.bind(1, static_cast<int64_t>(std::min<size_t>(max, INT64_MAX)));
  int rc;
  while ((rc = q.step()) == SQLITE_ROW) {
    records.push_back({q.int64(0), std::string(q.text(1)),
                       static_cast<syslog_severity_t>(q.int64(2)), std::string(q.text(3)),
                       std::string(q.text(4))});
  }
  if (rc == SQLITE_DONE) return 0;
  records.clear();
  return kCallFailed;
}

int CCds::watchdog_register(api_status_t& status, const std::string& name, unsigned period,
                            bool enabled) {
  status = API_STATUS_FAILED;
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  if (name.empty()) return 0;
  store::Transaction tx(c, true);
  store::Stmt q(store::prepare(c,
                               "INSERT OR REPLACE INTO watchdogs(name, period, enabled, pid, "
                               "last_ping) VALUES(?1, ?2, ?3, ?4, ?5)"));
  if (!tx.ok() || !q.ok()) return kCallFailed;
  q.bind(1, name);
  q.bind(2, int64_t{period});
  q.bind(3, int64_t{enabled});
  q.bind(4, int64_t{getpid()});
  q.bind(5, vtx_UTCtime64());
  if (q.step() != SQLITE_DONE || !tx.commit()) return kCallFailed;
  c->watchdog = name;
  status = API_STATUS_OK;
  return 0;
}

int CCds::watchdog_ping() {
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr || c->watchdog.empty()) return kCallFailed;
  store::Transaction tx(c, true);
  store::Stmt q(store::prepare(c, "UPDATE watchdogs SET last_ping = ?2 WHERE name = ?1"));
  if (!tx.ok() || !q.ok()) return kCallFailed;
  q.bind(1, c->watchdog);
  q.bind(2, vtx_UTCtime64());
  bool pinged = q.step() == SQLITE_DONE && sqlite3_changes(c->db) > 0;
  return pinged && tx.commit() ? 0 : kCallFailed;
}

int CCds::watchdog_clear(api_status_t& status) {
  status = API_STATUS_FAILED;
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  if (c->watchdog.empty()) {
    status = API_STATUS_NO_LEAF;
    return 0;
  }
  store::Transaction tx(c, true);
  store::Stmt q(store::prepare(c, "DELETE FROM watchdogs WHERE name = ?1"));
  if (!tx.ok() || !q.ok()) return kCallFailed;
  q.bind(1, c->watchdog);
  if (q.step() != SQLITE_DONE) return kCallFailed;
  bool removed = sqlite3_changes(c->db) > 0;
  if (!tx.commit()) return kCallFailed;
  status = removed ? API_STATUS_OK : API_STATUS_NO_LEAF;
  c->watchdog.clear();
  return 0;
}

}  // namespace toolkit
