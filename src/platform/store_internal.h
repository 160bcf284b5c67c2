// Internal to the platform library: the Data store connection and the SQLite helpers that
// the store's source files share. Nothing outside src/platform includes this header.
#ifndef WSGATE_PLATFORM_STORE_INTERNAL_H
#define WSGATE_PLATFORM_STORE_INTERNAL_H

#include <sqlite3.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/cds.h"
#include "platform/element.h"

namespace store {

// Result of a CCds call that did not work (the database did not answer, or a test hook
// made it fail).
constexpr int kCallFailed = -1;

// Prepared statements of one connection, keyed by the address of their SQL text. Every
// caller passes a string literal, so the key is stable and hashing it costs nothing.
class StatementCache {
 public:
  StatementCache() = default;
  StatementCache(const StatementCache&) = delete;
  StatementCache& operator=(const StatementCache&) = delete;
  ~StatementCache() { clear(); }

  // The statement for `sql`, prepared on first use; null when it does not compile.
  sqlite3_stmt* get(sqlite3* db, const char* sql);
  void clear();
  // Drops the statements without finalizing them: those of a connection that belongs to
  // another process (see pcd_close).
  void forget() { statements_.clear(); }

 private:
  std::unordered_map<const char*, sqlite3_stmt*> statements_;
};

// One use of a cached statement; resets it when the use ends, so that no statement keeps
// a read transaction open between calls. Text bindings are not copied: the bound text must
// outlive the use.
class Stmt {
 public:
  explicit Stmt(sqlite3_stmt* stmt) : stmt_(stmt) {}
  Stmt(const Stmt&) = delete;
  Stmt& operator=(const Stmt&) = delete;
  ~Stmt() {
    if (stmt_ != nullptr) sqlite3_reset(stmt_);
  }

  bool ok() const { return stmt_ != nullptr; }
  sqlite3_stmt* get() const { return stmt_; }
  void bind(int index, std::string_view text) {
    sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }
  void bind(int index, int64_t value) { sqlite3_bind_int64(stmt_, index, value); }
  // SQLITE_ROW, SQLITE_DONE or an error code.
  int step() { return sqlite3_step(stmt_); }
  // Reset for another round of binds and steps within the same use.
  void reset() { sqlite3_reset(stmt_); }
  std::string_view text(int column) const {
    const char* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
    return p != nullptr ? std::string_view(p, sqlite3_column_bytes(stmt_, column))
                        : std::string_view();
  }
  int64_t int64(int column) const { return sqlite3_column_int64(stmt_, column); }

 private:
  sqlite3_stmt* stmt_;
};

}  // namespace store

// The connection behind a pcd_handle_t.
struct pcd_connection {
  sqlite3* db = nullptr;
  std::string path;
  // The process that opened the connection: the only one that may use or close it.
  pid_t owner = 0;
  store::StatementCache statements;
  // Test hook (pcd_inject_failure).
  int inject_skip = 0;
  int inject_count = 0;
  // The rules, cached until another connection changes them (see cds_rights.cc).
  bool rules_loaded = false;
  int64_t rules_data_version = -1;
  int64_t rules_version = -1;
  // The read batch whose snapshot the rules were last checked in: within one snapshot they
  // cannot move, so the check is made once per batch rather than once per path.
  int64_t rules_batch = -1;
  std::vector<toolkit::right_rule_t> rules;
  // The name this client registered its watchdog under ("" when none).
  std::string watchdog;
  // Open toolkit::CReadBatch objects; while above 0 a read snapshot is open and every call
  // runs inside it.
  int read_batches = 0;
  // Counts the read batches opened, so that a cache can tell one snapshot from the next.
  int64_t batch_serial = 0;
  // True while a toolkit::CWriteBatch holds a write transaction open: every call runs
  // inside it, each write in a savepoint of its own.
  bool write_batch = false;

  ~pcd_connection();
};

namespace store {

// The connection to use for one CCds call: null when there is none, when the failure
// test hook decides that this call fails, or when the connection belongs to another process
// (it was carried across a fork; that process is told so on stderr, once).
pcd_connection* begin_call(pcd_handle_t handle);
// True when `c` was opened by this process; otherwise says so on stderr (once per
// connection) and returns false.
bool ownedHere(pcd_connection* c);
// The same rule for any SQLite connection of the platform (the store, the event logs, the
// trend log): true when `owner` is this process; otherwise tells stderr, once for the
// connection `key`, that the `what` at `path` was refused, and returns false.
bool ownedByThisProcess(const void* key, pid_t owner, const char* what, const std::string& path);
sqlite3_stmt* prepare(pcd_connection* c, const char* sql);
// Runs a statement without parameters or rows ("COMMIT"); true when it worked.
bool execute(pcd_connection* c, const char* sql);
// Runs a one-off query whose first row's first column is an integer (a PRAGMA while a file
// is opened); false with the SQLite result code in `rc` when it fails.
bool query_int(sqlite3* db, const char* sql, int64_t& out, int& rc);

// A transaction around one multi-item call: BEGIN IMMEDIATE for writes (the write lock is
// taken at once, so the busy time-out applies there and never half-way through), plain
// BEGIN for reads. Rolled back unless committed. Inside a read batch a read joins the
// batch's snapshot (nothing to begin or commit) and a write fails. Inside a write batch a
// read joins the batch and a write runs in a savepoint, so that a failing call undoes only
// its own changes; once SQLite has ended the batch's transaction on its own (after some
// errors), every call fails until the batch ends.
class Transaction {
 public:
  Transaction(pcd_connection* c, bool write);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();
  bool ok() const { return active_; }
  bool commit();
  // True while SQLite still holds the transaction: some errors roll it back on their own,
  // and then every item of the call must count as failed.
  bool alive() const;

 private:
  pcd_connection* c_;
  bool active_ = false;
  bool joined_ = false;     // part of the connection's read or write batch
  bool savepoint_ = false;  // a write inside the connection's write batch
};

// The common course of a call on one node or leaf path: take the connection, parse the
// path, open the transaction, and answer with a status. While open() is false the call is
// over: its status is set and result() is what the call returns.
class PathCall {
 public:
  enum Kind { kNodePath, kLeafPath };
  // kOneStatement: the call runs one query, atomic by itself, so no transaction is opened
  // (test_node runs once per item of a bulk read and must stay cheap).
  enum Access { kOneStatement, kRead, kWrite };
  // Sets `status` to FAILED (no connection, injected failure, no transaction) or BAD_PATH.
  PathCall(pcd_handle_t handle, const std::string& path, Kind kind, Access access,
           api_status_t& status);
  PathCall(const PathCall&) = delete;
  PathCall& operator=(const PathCall&) = delete;

  bool open() const { return open_; }
  int result() const { return result_; }
  pcd_connection* connection() const { return c_; }
  std::string_view node() const { return node_; }  // the node path (of a leaf path: its node)
  std::string_view name() const { return name_; }  // the leaf name of a leaf path

  // Ends the call: commits and answers `status`, or fails when the commit fails.
  int finish(api_status_t status);
  // Ends the call as failed (rolled back).
  int fail();
  // Whether the node exists; when it does not, the call ends (NO_NODE, or failed when the
  // database did not answer).
  bool requireNode();

 private:
  api_status_t& status_;
  pcd_connection* c_ = nullptr;
  std::string scratch_;
  std::string_view node_;
  std::string_view name_;
  std::optional<Transaction> tx_;
  bool open_ = false;
  int result_ = kCallFailed;
};

// Store paths. A canonical path begins with "/", has no empty component, no trailing "/"
// (except the root "/") and no control character.
bool is_canonical(std::string_view path);
// Writes the canonical form of `path` ("//" collapsed, a trailing "/" dropped) to `out`;
// false when the path does not begin with "/" or holds a control character.
bool canonicalize(std::string_view path, std::string& out);
// Splits a leaf path into its node path and leaf name, canonicalizing into `scratch` when
// needed (the views point into `path` or `scratch`). False when malformed or when it names
// no leaf ("/").
bool split_leaf_path(std::string_view path, std::string& scratch, std::string_view& node,
                     std::string_view& name);
// "Children", "Attributes", "ValueAge": computed on read, never stored.
bool is_automatic(std::string_view name);
// The last component of a canonical path ("" for "/").
std::string_view last_component(std::string_view path);
// The path of the leaf `leaf` of the node at `node` ("/" + leaf for the root).
std::string leaf_path(std::string_view node, std::string_view leaf);
// The node part of a leaf path: everything before the last "/" ("/" for a leaf of the
// root, "" when there is no "/").
std::string_view node_of(std::string_view path);

// Values in SQLite: a type column and a value column holding the value in its own storage
// class (INTEGER, REAL, TEXT). Unsigned64 keeps its bits in a signed INTEGER, timeval its
// microseconds, and a NaN (which SQLite would store as NULL) is stored as NULL.
// Returns false for a value that cannot be stored (type None or the sentinel 7).
bool bind_value(sqlite3_stmt* stmt, int type_index, int value_index, const toolkit::CElement& v);
void read_value(sqlite3_stmt* stmt, int type_column, int value_column, toolkit::CElement& v);

// A storage class read from the file; anything out of range (a file edited by hand) reads
// as Normal.
storage_class_t storage_class(int64_t stored);

// Current platform time as a timeval: the time stamp of automatic values and of writes
// that ask for "now".
timeval now_timeval();

// Reads leaves for one call, reusing its statements and scratch space across items.
class LeafReader {
 public:
  explicit LeafReader(pcd_connection* c);
  bool ok() const { return leaf_ != nullptr; }
  // Reads the leaf at `path` into `value` and `prop` (both cleared when the status is not
  // OK). Returns false when the database failed, which fails the whole call.
  bool read(std::string_view path, api_status_t& status, toolkit::CElement& value,
            element_property_t& prop);

 private:
  bool readAutomatic(std::string_view node, std::string_view name, api_status_t& status,
                     toolkit::CElement& value);

  pcd_connection* c_;
  sqlite3_stmt* leaf_;
  std::string scratch_;
};

// Writes leaves for one call, inside the caller's write transaction.
class LeafWriter {
 public:
  // Values whose time stamp is {0, 0} are stamped with the time the writer was made.
  LeafWriter(pcd_connection* c, const std::string& source);
  bool ok() const { return upsert_ != nullptr && import_ != nullptr; }
  // set_leaf's rules: `persist` makes the leaf Persistent, otherwise an existing leaf keeps
  // its storage class. Returns false when the database failed.
  bool write(std::string_view path, const toolkit::CElement& value, bool persist,
             api_status_t& status);
  // Import: the leaf gets `storage` (never Automatic).
  bool write_with_storage(std::string_view path, const toolkit::CElement& value,
                          storage_class_t storage, api_status_t& status);

 private:
  bool run(sqlite3_stmt* stmt, std::string_view path, const toolkit::CElement& value, int storage,
           api_status_t& status);

  pcd_connection* c_;
  const std::string& source_;
  timeval now_;
  sqlite3_stmt* upsert_;
  sqlite3_stmt* import_;
  std::string scratch_;
};

// Creates the node at canonical `path` and its missing ancestors, inside the caller's
// write transaction. Returns false when the database failed.
bool create_nodes(pcd_connection* c, std::string_view path);
// Creates or replaces a rule, inside the caller's write transaction. Returns an SQLite
// result code; SQLITE_MISUSE with `error` set when the rule itself is malformed.
int put_rule(pcd_connection* c, const toolkit::right_rule_t& rule, std::string& error);

// Node queries shared by the store's files.
bool node_exists(pcd_connection* c, std::string_view node, int& rc);
// Paths of the nodes whose leaf `name` holds the text `value`, in path order.
int nodes_with_leaf_text(pcd_connection* c, std::string_view name, std::string_view value,
                         std::vector<std::string>& nodes);

}  // namespace store

#endif  // WSGATE_PLATFORM_STORE_INTERNAL_H
