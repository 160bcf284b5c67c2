// The SQLite connection shared by the event log and trend log libraries.
#include "platform/log_db.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/log.h"

namespace {

constexpr int64_t kMicrosPerSecond = 1000000;

// The failure test hook (pcd_log_inject_failure): process-wide, because log connections are
// opened per request, out of a test's reach.
int g_inject_skip = 0;
int g_inject_count = 0;

bool injectedFailure() {
  if (g_inject_count == 0) return false;
  if (g_inject_skip > 0) {
    --g_inject_skip;
    return false;
  }
  --g_inject_count;
  return true;
}

// store::query_int with SQLite's primary result code.
bool queryInt(sqlite3* db, const char* sql, int64_t& out, int& rc) {
  const bool ok = store::query_int(db, sql, out, rc);
  rc &= 0xff;
  return ok;
}

}  // namespace

void pcd_log_inject_failure(int skip, int count) {
  g_inject_skip = std::max(skip, 0);
  g_inject_count = std::max(count, 0);
}

namespace logdb {

Connection::~Connection() {
  if (db_ == nullptr) return;
  // A connection inherited across fork() is forgotten, not closed: closing it here could
  // check the write-ahead log into the file and remove it under the process that owns it.
  if (owner_ != getpid()) {
    statements_.forget();
    return;
  }
  statements_.clear();
  sqlite3_close_v2(db_);
}

int Connection::fail(int rc, const std::string& what) {
  rc &= 0xff;
  error_ = what;
  if (db_ != nullptr) {
    statements_.clear();
    sqlite3_close_v2(db_);
    db_ = nullptr;
  }
  return rc == SQLITE_OK ? SQLITE_ERROR : rc;
}

int Connection::open(const std::string& path, const OpenOptions& options) {
  path_ = path;
  owner_ = getpid();
  error_.clear();
  verified_ = false;
  writable_ = options.writable || options.create;
  // Readers open the file read-write too (SQLite falls back to reading only when the file
  // is write-protected) and then refuse writes themselves: a read-only connection could not
  // remove the write-ahead log when it is the last to close, and every read would leave
  // its files behind.
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  if (options.create) flags |= SQLITE_OPEN_CREATE;
  int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
  if (rc != SQLITE_OK) {
    std::string why = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
    int os_error = db_ != nullptr ? sqlite3_system_errno(db_) : 0;
    if (os_error != 0) why += std::string(" (") + std::strerror(os_error) + ")";
    return fail(rc, "cannot open the " + std::string(schema_.kind) + " " + path + ": " + why);
  }
  sqlite3_busy_timeout(db_, std::max(options.busy_timeout_ms, 0));
  // The soft heap limit is SQLite's, for the whole process: the last log opened sets it.
  if (options.heap_limit > 0) sqlite3_soft_heap_limit64(options.heap_limit);
  if (options.page_size > 0) {
    std::string sql = "PRAGMA page_size = " + std::to_string(options.page_size);
    exec(db_, sql.c_str());  // SQLite ignores a size it does not support
  }
  if (options.cache_size > 0) {
    // A negative cache_size counts kibibytes.
    std::string sql =
        "PRAGMA cache_size = -" + std::to_string(std::max<uint32_t>(options.cache_size / 1024, 1));
    exec(db_, sql.c_str());
  }
  if (writable_) {
    std::string sql =
        "PRAGMA synchronous = " + std::to_string(std::clamp(options.synchronous, 0, 3));
    exec(db_, sql.c_str());
  } else {
    exec(db_, "PRAGMA query_only = 1");
  }
  rc = checkSchema(options.create);
  if (rc == SQLITE_BUSY && !writable_) return SQLITE_OK;  // checked again on first use
  if (rc != SQLITE_OK) return fail(rc, error_);
  if (options.create && options.wal) {
    // Readers of other processes then go on while a writer appends. The mode is kept in the
    // file; a file that cannot have it (on a file system without shared memory) keeps its
    // rollback journal, which only costs concurrency.
    exec(db_, "PRAGMA journal_mode = WAL");
  }
  return SQLITE_OK;
}

int Connection::checkSchema(bool create) {
  int64_t application_id = 0;
  int64_t version = 0;
  int64_t objects = 0;
  int rc;
  if (!queryInt(db_, "PRAGMA application_id", application_id, rc) ||
      !queryInt(db_, "PRAGMA user_version", version, rc) ||
      !queryInt(db_, "SELECT count(*) FROM sqlite_schema", objects, rc)) {
    if (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) {
      error_ = "the " + std::string(schema_.kind) + " " + path_ + " is locked by another process";
      return SQLITE_BUSY;
    }
    error_ = "the file " + path_ + " is not " + schema_.kind_article + ": " + sqlite3_errmsg(db_);
    return rc;
  }
  if (objects == 0) {
    if (create) return createSchema();
    error_ = "the " + std::string(schema_.kind) + " " + path_ + " is empty";
    return SQLITE_NOTADB;
  }
  if (application_id != schema_.application_id) {
    error_ = "the file " + path_ + " is not " + schema_.kind_article;
    return SQLITE_NOTADB;
  }
  if (version != schema_.version) {
    error_ = "the " + std::string(schema_.kind) + " " + path_ + " has schema version " +
             std::to_string(version) + "; this program reads version " +
             std::to_string(schema_.version);
    return SQLITE_NOTADB;
  }
  verified_ = true;
  return SQLITE_OK;
}

// Two writers may race to create the schema: the write lock serialises them and the loser
// finds the schema made.
int Connection::createSchema() {
  WriteTransaction tx(db_);
  int rc = tx.begun();
  int64_t objects = 0;
  if (rc == SQLITE_OK && queryInt(db_, "SELECT count(*) FROM sqlite_schema", objects, rc) &&
      objects == 0) {
    rc = exec(db_, schema_.sql);
    if (rc == SQLITE_OK) {
      std::string marks = "PRAGMA application_id = " + std::to_string(schema_.application_id) +
                          "; PRAGMA user_version = " + std::to_string(schema_.version);
      rc = exec(db_, marks.c_str());
    }
  }
  if (rc == SQLITE_OK) rc = tx.commit();
  if (rc != SQLITE_OK) {
    error_ =
        "cannot create the " + std::string(schema_.kind) + " " + path_ + ": " + sqlite3_errmsg(db_);
    return rc;
  }
  return objects == 0 ? SQLITE_OK : checkSchema(false);
}

int Connection::beginCall() {
  if (db_ == nullptr) return SQLITE_MISUSE;
  if (!store::ownedByThisProcess(this, owner_, schema_.kind, path_)) return SQLITE_MISUSE;
  if (injectedFailure()) return SQLITE_BUSY;
  return verified_ ? SQLITE_OK : checkSchema(false);
}

int exec(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) & 0xff;
}

ReadTransaction::ReadTransaction(sqlite3* db) : db_(db), begun_(exec(db, "BEGIN")) {}

ReadTransaction::~ReadTransaction() {
  if (begun_ == SQLITE_OK && sqlite3_get_autocommit(db_) == 0) exec(db_, "COMMIT");
}

WriteTransaction::WriteTransaction(sqlite3* db) : db_(db), begun_(exec(db, "BEGIN IMMEDIATE")) {
  open_ = begun_ == SQLITE_OK;
}

WriteTransaction::~WriteTransaction() {
  if (open_ && sqlite3_get_autocommit(db_) == 0) exec(db_, "ROLLBACK");
}

int WriteTransaction::commit() {
  if (!open_) return begun_ == SQLITE_OK ? SQLITE_ERROR : begun_;
  int rc = exec(db_, "COMMIT");
  if (rc == SQLITE_OK) open_ = false;
  return rc;
}

bool toMicros(const timeval& tv, int64_t& out) {
  if (tv.tv_usec < 0 || tv.tv_usec >= kMicrosPerSecond) return false;
  return !__builtin_mul_overflow(int64_t{tv.tv_sec}, kMicrosPerSecond, &out) &&
         !__builtin_add_overflow(out, int64_t{tv.tv_usec}, &out);
}

timeval fromMicros(int64_t micros) {
  int64_t sec = micros / kMicrosPerSecond;
  int64_t rest = micros % kMicrosPerSecond;
  if (rest < 0) {
    rest += kMicrosPerSecond;
    --sec;
  }
  return timeval{static_cast<time_t>(sec), static_cast<suseconds_t>(rest)};
}

}  // namespace logdb
