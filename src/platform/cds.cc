// Opening and closing the Data store: the file, its pragmas and its schema.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/store_internal.h"

namespace {

// "wsgt": marks an SQLite file as a Data store, so that a stray database is never taken
// for one (and never altered).
constexpr int64_t kApplicationId = 0x77736774;
constexpr int64_t kSchemaVersion = 1;
constexpr int kDefaultBusyTimeoutMs = 5000;
constexpr sqlite3_int64 kSoftHeapLimitBytes = 4 << 20;

// Values are stored in their own storage class; "value" therefore has no declared type.
// nodes.parent is NULL for the root only.
constexpr const char* kSchema = R"sql(
CREATE TABLE meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE nodes(path TEXT PRIMARY KEY, parent TEXT) WITHOUT ROWID;
CREATE INDEX nodes_by_parent ON nodes(parent);
CREATE TABLE leaves(
  node TEXT NOT NULL, name TEXT NOT NULL, type INTEGER NOT NULL, value,
  sec INTEGER NOT NULL, usec INTEGER NOT NULL, storage INTEGER NOT NULL,
  source TEXT NOT NULL, PRIMARY KEY(node, name)) WITHOUT ROWID;
CREATE INDEX leaves_by_name ON leaves(name);
CREATE TABLE rights(
  user TEXT NOT NULL, prefix TEXT NOT NULL, letters TEXT NOT NULL,
  PRIMARY KEY(user, prefix)) WITHOUT ROWID;
CREATE TABLE events(
  id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER, source_path TEXT, category INTEGER,
  type INTEGER, value, vsec INTEGER, vusec INTEGER, level_quality INTEGER, message TEXT,
  event_id INTEGER, sequence_index INTEGER, sec INTEGER, usec INTEGER, ack_status INTEGER,
  base_priority INTEGER, condition_present INTEGER, note TEXT, auto_closing INTEGER,
  variation_level INTEGER, source TEXT);
CREATE TABLE syslog(
  id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, app TEXT NOT NULL,
  severity INTEGER NOT NULL, text TEXT NOT NULL, detail TEXT NOT NULL);
CREATE TABLE watchdogs(
  name TEXT PRIMARY KEY, period INTEGER NOT NULL, enabled INTEGER NOT NULL,
  pid INTEGER NOT NULL, last_ping INTEGER NOT NULL) WITHOUT ROWID;
INSERT INTO nodes(path, parent) VALUES('/', NULL);
INSERT INTO meta(key, value) VALUES('rights_version', 0);
PRAGMA application_id = 2004051828;
PRAGMA user_version = 1;
)sql";
static_assert(kApplicationId == 2004051828, "the schema text repeats the application id");

std::string g_last_error;
// Open connections, oldest first: the last one is the default handle.
std::vector<pcd_connection*> g_open;

std::string storePath() {
  const char* env = std::getenv("CDS_PATH");
  std::string path = (env != nullptr && *env != '\0') ? env : "./cds.db";
  if (path[0] == '/') return path;
  // Made absolute now: the daemon changes its directory to "/" after opening.
  std::string cwd(4096, '\0');
  if (getcwd(&cwd[0], cwd.size()) == nullptr) return path;
  cwd.resize(std::strlen(cwd.c_str()));
  if (path.compare(0, 2, "./") == 0) path.erase(0, 2);
  return cwd == "/" ? "/" + path : cwd + "/" + path;
}

int busyTimeoutMs() {
  const char* env = std::getenv("CDS_BUSY_TIMEOUT_MS");
  if (env == nullptr || *env == '\0') return kDefaultBusyTimeoutMs;
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(env, &end, 10);
  if (errno != 0 || *end != '\0' || v < 0 || v > 3600 * 1000) return kDefaultBusyTimeoutMs;
  return static_cast<int>(v);
}

// The text for a failed step while opening `path`.
std::string describe(sqlite3* db, int rc, const std::string& path, int timeout_ms) {
  switch (rc & 0xff) {
    case SQLITE_NOTADB:
      return "the file " + path + " is not an SQLite database (not a Data store)";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "the Data store " + path + " is locked by another process (gave up after " +
             std::to_string(timeout_ms) + " ms)";
    case SQLITE_CORRUPT:
      return "the Data store " + path + " is damaged: " + sqlite3_errmsg(db);
    default: {
      std::string text = "cannot open the Data store " + path + ": " +
                         (db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
      int os_error = db != nullptr ? sqlite3_system_errno(db) : 0;
      if (os_error != 0) text += std::string(" (") + std::strerror(os_error) + ")";
      return text;
    }
  }
}

bool queryText(sqlite3* db, const char* sql, std::string& out, int& rc) {
  sqlite3_stmt* stmt = nullptr;
  rc = sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
  if (rc == SQLITE_OK) {
    rc = sqlite3_step(stmt);
    if (rc == SQLITE_ROW) {
      const unsigned char* text = sqlite3_column_text(stmt, 0);
      out = text != nullptr ? reinterpret_cast<const char*>(text) : "";
      rc = SQLITE_OK;
    }
  }
  sqlite3_finalize(stmt);
  return rc == SQLITE_OK;
}

// What the file holds: its application id, schema version and number of schema objects.
struct FileState {
  int64_t application_id = 0;
  int64_t version = 0;
  int64_t objects = 0;
};

bool readState(sqlite3* db, FileState& state, int& rc) {
  return store::query_int(db, "PRAGMA application_id", state.application_id, rc) &&
         store::query_int(db, "PRAGMA user_version", state.version, rc) &&
         store::query_int(db, "SELECT count(*) FROM sqlite_schema", state.objects, rc);
}

bool checkState(const FileState& state, const std::string& path, std::string& error) {
  if (state.objects == 0) return true;
  if (state.application_id != kApplicationId) {
    error = "the file " + path + " is an SQLite database but not a Data store";
    return false;
  }
  if (state.version != kSchemaVersion) {
    error = "the Data store " + path + " has schema version " + std::to_string(state.version) +
            "; this program reads version " + std::to_string(kSchemaVersion);
    return false;
  }
  return true;
}

// Creates the schema in an empty file. Two processes may race here: the write lock
// serialises them and the loser finds the schema made.
bool createSchema(sqlite3* db, const std::string& path, int timeout_ms, std::string& error) {
  int rc = sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  FileState state;
  if (rc == SQLITE_OK && readState(db, state, rc)) {
    if (state.objects == 0) rc = sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  }
  if (rc != SQLITE_OK) {
    error = describe(db, rc, path, timeout_ms);
    if (sqlite3_get_autocommit(db) == 0) sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  }
  return state.objects == 0 || checkState(state, path, error);
}

bool prepareFile(sqlite3* db, const std::string& path, int timeout_ms, std::string& error) {
  FileState state;
  int rc;
  if (!readState(db, state, rc)) {
    error = describe(db, rc, path, timeout_ms);
    return false;
  }
  if (!checkState(state, path, error)) return false;
  // WAL lets readers of other processes go on while one process writes; with
  // synchronous=NORMAL a commit is in the log file before it is acknowledged, which is what
  // survives a kill -9 (only a power cut can lose the last commits).
  std::string mode;
  if (!queryText(db, "PRAGMA journal_mode = WAL", mode, rc)) {
    error = describe(db, rc, path, timeout_ms);
    return false;
  }
  if (mode != "wal") {
    error =
        "cannot use a write-ahead log for the Data store " + path + " (journal mode " + mode + ")";
    return false;
  }
  // A gateway's store is a few megabytes and its reads hit the operating system's file
  // cache anyway: 512 KiB of pages per connection (SQLite's default is 2 MiB) and a soft
  // limit of 4 MiB on all of SQLite's memory in the process keep a long list from leaving
  // the daemon larger than it was.
  sqlite3_soft_heap_limit64(kSoftHeapLimitBytes);
  rc = sqlite3_exec(db, "PRAGMA synchronous = NORMAL; PRAGMA cache_size = -512", nullptr, nullptr,
                    nullptr);
  if (rc != SQLITE_OK) {
    error = describe(db, rc, path, timeout_ms);
    return false;
  }
  return state.objects != 0 || createSchema(db, path, timeout_ms, error);
}

}  // namespace

pcd_handle_t pcd_init(int flags) {
  g_last_error.clear();
  if (flags != 0) {
    g_last_error = "pcd_init: flags must be 0";
    return nullptr;
  }
  auto c = std::make_unique<pcd_connection>();
  c->owner = getpid();
  c->path = storePath();
  const int timeout_ms = busyTimeoutMs();
  int rc =
      sqlite3_open_v2(c->path.c_str(), &c->db,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    g_last_error = describe(c->db, rc, c->path, timeout_ms);
    return nullptr;
  }
  sqlite3_extended_result_codes(c->db, 1);
  sqlite3_busy_timeout(c->db, timeout_ms);
  if (!prepareFile(c->db, c->path, timeout_ms, g_last_error)) return nullptr;
  g_open.push_back(c.get());
  return c.release();
}

namespace toolkit {

CReadBatch::CReadBatch(CCds& cds) : handle_(cds.handle()) {
  if (handle_ == nullptr || !store::ownedHere(handle_)) {
    handle_ = nullptr;
    return;
  }
  // A deferred BEGIN: the snapshot and its locks are taken by the first read.
  if (handle_->read_batches == 0) {
    store::Stmt begin(store::prepare(handle_, "BEGIN"));
    if (!begin.ok() || begin.step() != SQLITE_DONE) {
      handle_ = nullptr;  // reads run one by one, as without a batch
      return;
    }
    ++handle_->batch_serial;
  }
  ++handle_->read_batches;
}

CReadBatch::~CReadBatch() {
  if (handle_ == nullptr || --handle_->read_batches > 0) return;
  if (sqlite3_get_autocommit(handle_->db) == 0) {
    store::Stmt end(store::prepare(handle_, "COMMIT"));
    if (end.ok()) end.step();
  }
}

CWriteBatch::CWriteBatch(CCds& cds) : handle_(cds.handle()) {
  if (handle_ == nullptr || !store::ownedHere(handle_) ||
      sqlite3_get_autocommit(handle_->db) == 0 || !store::execute(handle_, "BEGIN IMMEDIATE")) {
    handle_ = nullptr;
    return;
  }
  handle_->write_batch = true;
}

CWriteBatch::~CWriteBatch() {
  commit();
}

int CWriteBatch::commit() {
  if (handle_ == nullptr) return 0;
  pcd_connection* c = handle_;
  handle_ = nullptr;
  c->write_batch = false;
  const bool open = sqlite3_get_autocommit(c->db) == 0;
  if (open && store::begin_call(c) != nullptr && store::execute(c, "COMMIT")) return 0;
  if (sqlite3_get_autocommit(c->db) == 0) store::execute(c, "ROLLBACK");
  return store::kCallFailed;
}

void CWriteBatch::rollback() {
  if (handle_ == nullptr) return;
  handle_->write_batch = false;
  if (sqlite3_get_autocommit(handle_->db) == 0) store::execute(handle_, "ROLLBACK");
  handle_ = nullptr;
}

}  // namespace toolkit

void pcd_close(pcd_handle_t handle) {
  // A handle closed twice (or never opened) is ignored rather than freed again.
  auto it = std::find(g_open.begin(), g_open.end(), handle);
  if (it == g_open.end()) return;
  g_open.erase(it);
  // A connection inherited across fork() is forgotten, not closed: closing it here could
  // check the log into the file and remove it under the process that really owns it.
  if (handle->owner != getpid()) {
    handle->db = nullptr;
    handle->statements.forget();
  }
  delete handle;
}

const char* pcd_last_error(void) {
  return g_last_error.c_str();
}

pcd_handle_t pcd_default_handle(void) {
  return g_open.empty() ? nullptr : g_open.back();
}

void pcd_inject_failure(pcd_handle_t handle, int skip, int count) {
  if (handle == nullptr) return;
  handle->inject_skip = std::max(skip, 0);
  handle->inject_count = std::max(count, 0);
}
