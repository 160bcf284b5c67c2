// Internal to the platform library: the SQLite connection under the event log and trend log
// libraries (log.cc, trend.cc): opening a log file with the command line's SQLite settings,
// creating or checking its schema, and the fork rule. Nothing outside src/platform includes
// this header.
#ifndef WSGATE_PLATFORM_LOG_DB_H
#define WSGATE_PLATFORM_LOG_DB_H

#include <sqlite3.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "platform/store_internal.h"

namespace logdb {

// What kind of log a file holds: marks written into a created file and checked on open, so
// that a file of another kind is never read as (or altered into) this one.
struct Schema {
  const char* kind;          // "event log", "trend log": for messages
  const char* kind_article;  // "an event log", "a trend log"
  int64_t application_id;
  int64_t version;
  const char* sql;  // the tables and indexes of a new file
};

// How a log file is opened (the arguments of pcd_log_init and trend::CLog::open).
struct OpenOptions {
  bool create = false;    // a missing or empty file gets the schema (implies writable)
  bool writable = false;  // false: the connection refuses writes
  int busy_timeout_ms = 0;
  bool wal = false;         // a file created here uses a write-ahead log
  int synchronous = 1;      // SQLite's synchronous level for writes (0 off, 1 normal, 2 full)
  int page_size = 0;        // bytes; 0 keeps SQLite's default. Only a new file takes it.
  uint32_t cache_size = 0;  // bytes; 0 keeps SQLite's default
  uint32_t heap_limit = 0;  // bytes, SQLite's soft heap limit (process-wide); 0 leaves it
};

// One connection to a log file. Not copyable; closed with the object, except in a process
// that did not open it (see ownedHere), where it is only forgotten.
class Connection {
 public:
  explicit Connection(const Schema& schema) : schema_(schema) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  // Opens `path`. Returns SQLITE_OK, or an SQLite primary result code with `error()` saying
  // why: SQLITE_CANTOPEN (missing file without `create`, missing directory, no permission),
  // SQLITE_NOTADB (not a log of this kind, or of another schema version), SQLITE_BUSY
  // (a writer found the file locked beyond its time-out). A read-only connection that finds
  // the file locked opens all the same and checks the schema on first use instead, so that a
  // busy log shows as a failed read that its caller may retry.
  int open(const std::string& path, const OpenOptions& options);

  // The calls of the log libraries begin here: SQLITE_OK when the connection may be used
  // now, SQLITE_MISUSE when it is not open or belongs to another process, SQLITE_BUSY when
  // the failure test hook (pcd_log_inject_failure) takes this call, or the result of the
  // schema check still owed by open.
  int beginCall();

  sqlite3* db() const { return db_; }
  const std::string& path() const { return path_; }
  const std::string& error() const { return error_; }
  sqlite3_stmt* prepare(const char* sql) { return statements_.get(db_, sql); }
  bool writable() const { return writable_; }

 private:
  int checkSchema(bool create);
  int createSchema();
  int fail(int rc, const std::string& what);

  const Schema& schema_;
  sqlite3* db_ = nullptr;
  std::string path_;
  pid_t owner_ = 0;
  bool writable_ = false;
  bool verified_ = false;
  std::string error_;
  store::StatementCache statements_;
};

// Runs `sql` (no rows expected); the primary result code.
int exec(sqlite3* db, const char* sql);

// A read transaction (a deferred BEGIN) for the life of the object, so that several queries
// see one state of the file.
class ReadTransaction {
 public:
  explicit ReadTransaction(sqlite3* db);
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;
  ~ReadTransaction();
  int begun() const { return begun_; }  // SQLITE_OK when the transaction is open

 private:
  sqlite3* db_;
  int begun_;
};

// A write transaction (BEGIN IMMEDIATE), rolled back unless committed.
class WriteTransaction {
 public:
  explicit WriteTransaction(sqlite3* db);
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;
  ~WriteTransaction();
  int begun() const { return begun_; }  // SQLITE_OK when the transaction is open
  int commit();

 private:
  sqlite3* db_;
  int begun_;
  bool open_ = false;
};

// Platform time (ms) and timeval against the microseconds the logs store. false when the
// value does not fit.
bool toMicros(const timeval& tv, int64_t& out);
timeval fromMicros(int64_t micros);

}  // namespace logdb

#endif  // WSGATE_PLATFORM_LOG_DB_H
