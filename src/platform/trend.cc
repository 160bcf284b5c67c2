// The trend log library on SQLite.
#include "platform/trend.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <unordered_map>

#include "platform/log_db.h"

namespace toolkit::trend {
namespace {

// "wstr": marks an SQLite file as a trend log.
constexpr logdb::Schema kTrendLogSchema = {
    "trend log", "a trend log", 0x77737472, 1,
    // Row ids keep the order in which periods, devices and parameters were written. NaN
    // values are NULL (SQLite stores a NaN as NULL anyway).
    R"sql(
CREATE TABLE periods(position INTEGER PRIMARY KEY, period INTEGER NOT NULL UNIQUE,
  max_entries INTEGER NOT NULL);
CREATE TABLE devices(id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE);
CREATE TABLE params(id INTEGER PRIMARY KEY, device INTEGER NOT NULL, path TEXT NOT NULL,
  type INTEGER NOT NULL, has_min INTEGER NOT NULL, has_max INTEGER NOT NULL,
  has_avg INTEGER NOT NULL, has_actual INTEGER NOT NULL, UNIQUE(device, path));
CREATE TABLE snapshots(id INTEGER PRIMARY KEY, device INTEGER NOT NULL, period INTEGER NOT NULL,
  time INTEGER NOT NULL, percent_valid REAL, UNIQUE(device, period, time));
-- A device's snapshots in time order, ties by period, from either end alike.
CREATE INDEX snapshots_by_time ON snapshots(device, time, period);
CREATE TABLE samples(snapshot INTEGER NOT NULL, param INTEGER NOT NULL, min REAL, max REAL,
  avg REAL, actual REAL, count REAL, PRIMARY KEY(snapshot, param)) WITHOUT ROWID;
)sql"};

constexpr const char* kSelectPeriods = "SELECT period, max_entries FROM periods ORDER BY position";
constexpr const char* kSelectDevices = "SELECT path FROM devices ORDER BY id";
constexpr const char* kSelectDevice = "SELECT id FROM devices WHERE path = ?1";
constexpr const char* kSelectParams =
    "SELECT id, path, type, has_min, has_max, has_avg, has_actual FROM params WHERE device = ?1 "
    "ORDER BY id";
constexpr const char* kSelectAscending =
    "SELECT id, period, time, percent_valid FROM snapshots WHERE device = ?1 AND time >= ?2 "
    "AND time <= ?3 ORDER BY time, period";
constexpr const char* kSelectDescending =
    "SELECT id, period, time, percent_valid FROM snapshots WHERE device = ?1 AND time >= ?2 "
    "AND time <= ?3 ORDER BY time DESC, period DESC";
constexpr const char* kSelectSamples =
    "SELECT param, min, max, avg, actual, count FROM samples WHERE snapshot = ?1";

double columnNumber(sqlite3_stmt* stmt, int column) {
  return sqlite3_column_type(stmt, column) == SQLITE_NULL ? std::nan("")
                                                          : sqlite3_column_double(stmt, column);
}

void bindNumber(sqlite3_stmt* stmt, int index, double value) {
  if (std::isnan(value)) {
    sqlite3_bind_null(stmt, index);
  } else {
    sqlite3_bind_double(stmt, index, value);
  }
}

int stepDone(store::Stmt& stmt) {
  int rc = stmt.step() & 0xff;
  stmt.reset();
  return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

int finish(int rc) {
  return rc == SQLITE_DONE ? SQLITE_OK : rc & 0xff;
}

// The device's row id; SQLITE_NOTFOUND when the log has no such device.
int findDevice(logdb::Connection& c, const std::string& path, int64_t& id) {
  store::Stmt query(c.prepare(kSelectDevice));
  if (!query.ok()) return SQLITE_ERROR;
  query.bind(1, path);
  int rc = query.step();
  if (rc == SQLITE_ROW) {
    id = query.int64(0);
    return SQLITE_OK;
  }
  return rc == SQLITE_DONE ? SQLITE_NOTFOUND : rc & 0xff;
}

struct StoredParam {
  int64_t id;
  CParamProperties props;
};

int readParams(logdb::Connection& c, int64_t device, std::vector<StoredParam>& params) {
  params.clear();
  store::Stmt query(c.prepare(kSelectParams));
  if (!query.ok()) return SQLITE_ERROR;
  query.bind(1, device);
  int rc;
  while ((rc = query.step()) == SQLITE_ROW) {
    StoredParam param{query.int64(0), {}};
    param.props.path = std::string(query.text(1));
    param.props.type = static_cast<sample_type_t>(query.int64(2));
    param.props.has_min = query.int64(3) != 0;
    param.props.has_max = query.int64(4) != 0;
    param.props.has_avg = query.int64(5) != 0;
    param.props.has_actual = query.int64(6) != 0;
    params.push_back(std::move(param));
  }
  return finish(rc);
}

// The samples of one snapshot, in the order of `wanted` (parameter row ids; 0 for a
// parameter the device does not have, which reads as NaN).
int readSamples(logdb::Connection& c, int64_t snapshot, const std::vector<int64_t>& wanted,
                std::vector<CSample>& data) {
  const double nan = std::nan("");
  data.assign(wanted.size(), CSample{nan, nan, nan, nan, nan});
  store::Stmt query(c.prepare(kSelectSamples));
  if (!query.ok()) return SQLITE_ERROR;
  query.bind(1, snapshot);
  int rc;
  while ((rc = query.step()) == SQLITE_ROW) {
    const int64_t param = query.int64(0);
    for (size_t i = 0; i < wanted.size(); ++i) {
      if (wanted[i] != param) continue;
      sqlite3_stmt* s = query.get();
      data[i] = CSample{columnNumber(s, 1), columnNumber(s, 2), columnNumber(s, 3),
                        columnNumber(s, 4), columnNumber(s, 5)};
    }
  }
  return finish(rc);
}

// The arguments of get_trend_data.
struct TrendQuery {
  const CDeviceParams& params;
  const std::vector<uint32_t>& periods;
  std::pair<time_t, time_t> range;
  int max;
  uint32_t offset;
  bool ascending;
  bool strict;
};

int readTrendData(logdb::Connection& c, const TrendQuery& q, CDeviceData& data) {
  int64_t device_id = 0;
  std::vector<StoredParam> stored;
  int rc = findDevice(c, q.params.device_path, device_id);
  if (rc == SQLITE_OK) rc = readParams(c, device_id, stored);
  if (rc != SQLITE_OK) return rc;
  std::unordered_map<std::string, int64_t> ids;
  for (const StoredParam& param : stored) ids.emplace(param.props.path, param.id);
  std::vector<int64_t> wanted;
  for (const std::string& path : q.params.param_paths) {
    auto it = ids.find(path);
    if (it == ids.end() && q.strict) return SQLITE_NOTFOUND;
    wanted.push_back(it == ids.end() ? 0 : it->second);
  }
  const std::set<uint32_t> selected(q.periods.begin(), q.periods.end());
  store::Stmt query(c.prepare(q.ascending ? kSelectAscending : kSelectDescending));
  if (!query.ok()) return SQLITE_ERROR;
  query.bind(1, device_id);
  query.bind(2, int64_t{q.range.first});
  query.bind(3, q.range.second == -1 ? INT64_MAX : int64_t{q.range.second});
  // The period filter, the offset and the limit are applied while walking the index: the
  // periods vary per request, and skipping rows here costs what OFFSET would.
  const size_t limit = static_cast<size_t>(std::max(q.max, 0));
  uint32_t skipped = 0;
  while (data.snapshots.size() < limit && (rc = query.step()) == SQLITE_ROW) {
    const auto period = static_cast<uint32_t>(query.int64(1));
    if (selected.count(period) == 0) continue;
    if (skipped < q.offset) {
      ++skipped;
      continue;
    }
    CSnapshot snapshot;
    snapshot.period = period;
    snapshot.timestamp = static_cast<time_t>(query.int64(2));
    snapshot.percent_valid = columnNumber(query.get(), 3);
    rc = readSamples(c, query.int64(0), wanted, snapshot.data);
    if (rc != SQLITE_OK) return rc;
    data.snapshots.push_back(std::move(snapshot));
  }
  return data.snapshots.size() == limit ? SQLITE_OK : finish(rc);
}

// The checks of replace that the schema's constraints do not make.
bool contentFits(const std::vector<CPeriodProperties>& periods,
                 const std::vector<CDeviceLog>& devices) {
  std::set<uint32_t> known;
  for (const CPeriodProperties& period : periods) known.insert(period.period);
  for (const CDeviceLog& device : devices) {
    for (const CSnapshot& snapshot : device.snapshots) {
      if (known.count(snapshot.period) == 0 || snapshot.data.size() != device.params.size()) {
        return false;
      }
    }
  }
  return true;
}

int writeDevice(logdb::Connection& c, const CDeviceLog& device) {
  store::Stmt insert_device(c.prepare("INSERT INTO devices(path) VALUES(?1)"));
  store::Stmt insert_param(
      c.prepare("INSERT INTO params(device, path, type, has_min, has_max, has_avg, has_actual) "
                "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)"));
  store::Stmt insert_snapshot(c.prepare(
      "INSERT INTO snapshots(device, period, time, percent_valid) VALUES(?1, ?2, ?3, ?4)"));
  store::Stmt insert_sample(
      c.prepare("INSERT INTO samples(snapshot, param, min, max, avg, actual, count) "
                "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)"));
  if (!insert_device.ok() || !insert_param.ok() || !insert_snapshot.ok() || !insert_sample.ok()) {
    return SQLITE_ERROR;
  }
  insert_device.bind(1, device.path);
  int rc = stepDone(insert_device);
  if (rc != SQLITE_OK) return rc;
  const int64_t device_id = sqlite3_last_insert_rowid(c.db());
  std::vector<int64_t> param_ids;
  for (const CParamProperties& param : device.params) {
    insert_param.bind(1, device_id);
    insert_param.bind(2, param.path);
    insert_param.bind(3, int64_t{param.type});
    insert_param.bind(4, int64_t{param.has_min});
    insert_param.bind(5, int64_t{param.has_max});
    insert_param.bind(6, int64_t{param.has_avg});
    insert_param.bind(7, int64_t{param.has_actual});
    if ((rc = stepDone(insert_param)) != SQLITE_OK) return rc;
    param_ids.push_back(sqlite3_last_insert_rowid(c.db()));
  }
  for (const CSnapshot& snapshot : device.snapshots) {
    insert_snapshot.bind(1, device_id);
    insert_snapshot.bind(2, int64_t{snapshot.period});
    insert_snapshot.bind(3, int64_t{snapshot.timestamp});
    bindNumber(insert_snapshot.get(), 4, snapshot.percent_valid);
    if ((rc = stepDone(insert_snapshot)) != SQLITE_OK) return rc;
    const int64_t snapshot_id = sqlite3_last_insert_rowid(c.db());
    for (size_t i = 0; i < snapshot.data.size(); ++i) {
      const CSample& sample = snapshot.data[i];
      insert_sample.bind(1, snapshot_id);
      insert_sample.bind(2, param_ids[i]);
      sqlite3_stmt* s = insert_sample.get();
      bindNumber(s, 3, sample.min);
      bindNumber(s, 4, sample.max);
      bindNumber(s, 5, sample.avg);
      bindNumber(s, 6, sample.actual);
      bindNumber(s, 7, sample.count);
      if ((rc = stepDone(insert_sample)) != SQLITE_OK) return rc;
    }
  }
  return SQLITE_OK;
}

}  // namespace

CLog::CLog() = default;
CLog::~CLog() = default;

int CLog::open(const std::string& path, bool read_only, bool create, int busy_timeout_ms, bool wal,
               int page_size, uint32_t cache_size, uint32_t heap_limit, bool full_sync) {
  close();
  logdb::OpenOptions options;
  options.create = create;
  options.writable = !read_only;
  options.busy_timeout_ms = busy_timeout_ms;
  options.wal = wal;
  options.synchronous = full_sync ? 2 : 1;
  options.page_size = page_size;
  options.cache_size = cache_size;
  options.heap_limit = heap_limit;
  auto db = std::make_unique<logdb::Connection>(kTrendLogSchema);
  int rc = db->open(path, options);
  if (rc != SQLITE_OK) {
    error_ = db->error();
    return rc;
  }
  error_.clear();
  db_ = std::move(db);
  return SQLITE_OK;
}

void CLog::close() {
  db_.reset();
}

bool CLog::is_open() const {
  return db_ != nullptr;
}

int CLog::beginCall() {
  return db_ != nullptr ? db_->beginCall() : SQLITE_MISUSE;
}

int CLog::get_periods(std::vector<CPeriodProperties>& periods) {
  periods.clear();
  int rc = beginCall();
  if (rc != SQLITE_OK) return rc;
  store::Stmt query(db_->prepare(kSelectPeriods));
  if (!query.ok()) return SQLITE_ERROR;
  while ((rc = query.step()) == SQLITE_ROW) {
    periods.push_back(
        {static_cast<uint32_t>(query.int64(0)), static_cast<uint32_t>(query.int64(1))});
  }
  if (rc != SQLITE_DONE) periods.clear();
  return finish(rc);
}

int CLog::get_devices(std::vector<CDeviceProperties>& devices) {
  devices.clear();
  int rc = beginCall();
  if (rc != SQLITE_OK) return rc;
  store::Stmt query(db_->prepare(kSelectDevices));
  if (!query.ok()) return SQLITE_ERROR;
  while ((rc = query.step()) == SQLITE_ROW) devices.push_back({std::string(query.text(0))});
  if (rc != SQLITE_DONE) devices.clear();
  return finish(rc);
}

int CLog::get_params(const CDeviceProperties& device, std::vector<CParamProperties>& params) {
  params.clear();
  int rc = beginCall();
  if (rc != SQLITE_OK) return rc;
  logdb::ReadTransaction snapshot(db_->db());
  if (snapshot.begun() != SQLITE_OK) return snapshot.begun();
  int64_t device_id = 0;
  std::vector<StoredParam> stored;
  rc = findDevice(*db_, device.path, device_id);
  if (rc == SQLITE_OK) rc = readParams(*db_, device_id, stored);
  if (rc != SQLITE_OK) return rc;
  for (StoredParam& param : stored) params.push_back(std::move(param.props));
  return SQLITE_OK;
}

int CLog::get_trend_data(CDeviceData& data, const CDeviceParams& params,
                         const std::vector<uint32_t>& periods, std::pair<time_t, time_t> range,
                         int max, uint32_t offset, bool ascending, bool strict) {
  data.snapshots.clear();
  int rc = beginCall();
  if (rc != SQLITE_OK) return rc;
  logdb::ReadTransaction snapshot(db_->db());
  if (snapshot.begun() != SQLITE_OK) return snapshot.begun();
  TrendQuery query{params, periods, range, max, offset, ascending, strict};
  rc = readTrendData(*db_, query, data);
  if (rc != SQLITE_OK) data.snapshots.clear();
  return rc;
}

int CLog::replace(const std::vector<CPeriodProperties>& periods,
                  const std::vector<CDeviceLog>& devices) {
  int rc = beginCall();
  if (rc != SQLITE_OK) return rc;
  if (!db_->writable()) return SQLITE_READONLY;
  if (!contentFits(periods, devices)) return SQLITE_CONSTRAINT;
  logdb::WriteTransaction tx(db_->db());
  if (tx.begun() != SQLITE_OK) return tx.begun();
  rc = logdb::exec(db_->db(),
                   "DELETE FROM samples; DELETE FROM snapshots; DELETE FROM params; "
                   "DELETE FROM devices; DELETE FROM periods");
  if (rc != SQLITE_OK) return rc;
  store::Stmt insert_period(
      db_->prepare("INSERT INTO periods(period, max_entries) VALUES(?1, ?2)"));
  if (!insert_period.ok()) return SQLITE_ERROR;
  for (const CPeriodProperties& period : periods) {
    insert_period.bind(1, int64_t{period.period});
    insert_period.bind(2, int64_t{period.max_entries});
    if ((rc = stepDone(insert_period)) != SQLITE_OK) return rc;
  }
  for (const CDeviceLog& device : devices) {
    if ((rc = writeDevice(*db_, device)) != SQLITE_OK) return rc;
  }
  return tx.commit();
}

}  // namespace toolkit::trend
