// The SQLite helpers behind toolkit::CCds: statement cache, transactions, path syntax and
// the value encoding.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/store_internal.h"
#include "platform/vtx.h"

pcd_connection::~pcd_connection() {
  statements.clear();
  if (db != nullptr) sqlite3_close_v2(db);
}

namespace store {

namespace {
constexpr int64_t kMicrosPerSecond = 1000000;
}  // namespace

sqlite3_stmt* StatementCache::get(sqlite3* db, const char* sql) {
  auto it = statements_.find(sql);
  if (it != statements_.end()) return it->second;
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr) != SQLITE_OK) {
    sqlite3_finalize(stmt);
    return nullptr;
  }
  statements_.emplace(sql, stmt);
  return stmt;
}

void StatementCache::clear() {
  for (auto& entry : statements_) sqlite3_finalize(entry.second);
  statements_.clear();
}

namespace {

// This process's id, kept because every store call checks it and getpid() is a system call
// (3 % of a 1000-path getValues). fork() refreshes it in the child.
pid_t g_pid = 0;

void refreshPid() { g_pid = getpid(); }

pid_t currentPid() {
  static const bool tracked = (refreshPid(), pthread_atfork(nullptr, nullptr, refreshPid) == 0);
  return tracked ? g_pid : getpid();
}

}  // namespace

bool ownedByThisProcess(const void* key, pid_t owner, const char* what, const std::string& path) {
  if (owner == currentPid()) return true;
  // SQLite's locks and shared memory belong to the process that opened the file: a child
  // that went on using its parent's connection would read and write a private copy of the
  // database's state, and neither process would see what the other wrote.
  static std::vector<const void*> told;
  if (std::find(told.begin(), told.end(), key) == told.end()) {
    told.push_back(key);
    fprintf(stderr,
            "%s %s: connection opened by process %ld refused in process %ld; open it after "
            "fork()\n",
            what, path.c_str(), static_cast<long>(owner), static_cast<long>(getpid()));
  }
  return false;
}

bool ownedHere(pcd_connection* c) {
  return ownedByThisProcess(c, c->owner, "Data store", c->path);
}

pcd_connection* begin_call(pcd_handle_t handle) {
  if (handle == nullptr || !ownedHere(handle)) return nullptr;
  if (handle->inject_count > 0) {
    if (handle->inject_skip > 0) {
      --handle->inject_skip;
    } else {
      --handle->inject_count;
      return nullptr;
    }
  }
  return handle;
}

sqlite3_stmt* prepare(pcd_connection* c, const char* sql) {
  return c->statements.get(c->db, sql);
}

bool execute(pcd_connection* c, const char* sql) {
  Stmt statement(prepare(c, sql));
  return statement.ok() && statement.step() == SQLITE_DONE;
}

bool query_int(sqlite3* db, const char* sql, int64_t& out, int& rc) {
  sqlite3_stmt* stmt = nullptr;
  rc = sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
  if (rc == SQLITE_OK) {
    rc = sqlite3_step(stmt);
    if (rc == SQLITE_ROW) {
      out = sqlite3_column_int64(stmt, 0);
      rc = SQLITE_OK;
    }
  }
  sqlite3_finalize(stmt);
  return rc == SQLITE_OK;
}

Transaction::Transaction(pcd_connection* c, bool write) : c_(c) {
  if (c_->read_batches > 0) {
    joined_ = !write;
    active_ = joined_;
    return;
  }
  if (c_->write_batch) {
    joined_ = !write;
    savepoint_ = write;
    // Once SQLite has ended the batch's transaction (after some errors) a savepoint would
    // begin a transaction of its own: the call fails instead.
    active_ = sqlite3_get_autocommit(c_->db) == 0 && (joined_ || execute(c_, "SAVEPOINT call"));
    return;
  }
  active_ = execute(c_, write ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
  if (!active_ || joined_ || !alive()) return;
  if (savepoint_) {
    execute(c_, "ROLLBACK TO call");
    execute(c_, "RELEASE call");
  } else {
    execute(c_, "ROLLBACK");
  }
}

bool Transaction::alive() const {
  return active_ && sqlite3_get_autocommit(c_->db) == 0;
}

bool Transaction::commit() {
  if (!alive()) {
    active_ = false;
    return false;
  }
  if (joined_) return true;  // the batch ends the snapshot
  // On failure the destructor rolls back.
  if (!execute(c_, savepoint_ ? "RELEASE call" : "COMMIT")) return false;
  active_ = false;
  return true;
}

PathCall::PathCall(pcd_handle_t handle, const std::string& path, Kind kind, Access access,
                   api_status_t& status)
    : status_(status) {
  status_ = API_STATUS_FAILED;
  c_ = begin_call(handle);
  if (c_ == nullptr) return;
  bool parsed;
  if (kind == kLeafPath) {
    parsed = split_leaf_path(path, scratch_, node_, name_);
  } else if (is_canonical(path)) {
    node_ = path;
    parsed = true;
  } else {
    parsed = canonicalize(path, scratch_);
    node_ = scratch_;
  }
  if (!parsed) {
    status_ = API_STATUS_BAD_PATH;
    result_ = 0;
    return;
  }
  if (access == kOneStatement) {
    open_ = true;
    return;
  }
  tx_.emplace(c_, access == kWrite);
  open_ = tx_->ok();
}

int PathCall::finish(api_status_t status) {
  open_ = false;
  if (tx_ && !tx_->commit()) return fail();
  status_ = status;
  result_ = 0;
  return result_;
}

int PathCall::fail() {
  open_ = false;
  status_ = API_STATUS_FAILED;
  result_ = kCallFailed;
  return result_;
}

bool PathCall::requireNode() {
  int rc;
  if (node_exists(c_, node_, rc)) return true;
  if (rc != SQLITE_OK) {
    fail();
  } else {
    finish(API_STATUS_NO_NODE);
  }
  return false;
}

namespace {

bool isControl(char ch) {
  unsigned char u = static_cast<unsigned char>(ch);
  return u < 0x20 || u == 0x7f;
}

}  // namespace

bool is_canonical(std::string_view path) {
  if (path.empty() || path[0] != '/') return false;
  if (path.size() == 1) return true;
  if (path.back() == '/') return false;
  char prev = '\0';
  for (char ch : path) {
    if (isControl(ch) || (ch == '/' && prev == '/')) return false;
    prev = ch;
  }
  return true;
}

bool canonicalize(std::string_view path, std::string& out) {
  out.clear();
  if (path.empty() || path[0] != '/') return false;
  out.reserve(path.size());
  for (char ch : path) {
    if (isControl(ch)) return false;
    if (ch == '/' && !out.empty() && out.back() == '/') continue;
    out.push_back(ch);
  }
  if (out.size() > 1 && out.back() == '/') out.pop_back();
  return true;
}

bool split_leaf_path(std::string_view path, std::string& scratch, std::string_view& node,
                     std::string_view& name) {
  std::string_view p = path;
  if (!is_canonical(p)) {
    if (!canonicalize(p, scratch)) return false;
    p = scratch;
  }
  if (p.size() == 1) return false;
  size_t slash = p.rfind('/');
  node = slash == 0 ? p.substr(0, 1) : p.substr(0, slash);
  name = p.substr(slash + 1);
  return true;
}

bool is_automatic(std::string_view name) {
  return name == "Children" || name == "Attributes" || name == "ValueAge";
}

std::string_view last_component(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string leaf_path(std::string_view node, std::string_view leaf) {
  std::string path(node);
  if (path != "/") path += '/';
  path += leaf;
  return path;
}

std::string_view node_of(std::string_view path) {
  size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

bool bind_value(sqlite3_stmt* stmt, int type_index, int value_index, const toolkit::CElement& v) {
  data_type_t type = v.get_type();
  sqlite3_bind_int(stmt, type_index, type);
  switch (type) {
    case DATA_TYPE_BOOL:
      sqlite3_bind_int(stmt, value_index, v.to_bool() ? 1 : 0);
      return true;
    case DATA_TYPE_INT:
    case DATA_TYPE_INT64:
      sqlite3_bind_int64(stmt, value_index, v.to_int64());
      return true;
    case DATA_TYPE_UINT:
    case DATA_TYPE_UINT64:
      sqlite3_bind_int64(stmt, value_index, static_cast<int64_t>(v.to_uint64()));
      return true;
    case DATA_TYPE_REAL: {
      double d = v.to_double();
      if (std::isnan(d)) {
        sqlite3_bind_null(stmt, value_index);
      } else {
        sqlite3_bind_double(stmt, value_index, d);
      }
      return true;
    }
    case DATA_TYPE_STRING: {
      std::string text = v.to_string();
      sqlite3_bind_text(stmt, value_index, text.data(), static_cast<int>(text.size()),
                        SQLITE_TRANSIENT);
      return true;
    }
    case DATA_TYPE_TIMEVAL: {
      timeval tv = v.to_timeval();
      int64_t us = 0;
      if (__builtin_mul_overflow(int64_t{tv.tv_sec}, kMicrosPerSecond, &us) ||
          __builtin_add_overflow(us, int64_t{tv.tv_usec}, &us)) {
        return false;
      }
      sqlite3_bind_int64(stmt, value_index, us);
      return true;
    }
    default:
      return false;
  }
}

void read_value(sqlite3_stmt* stmt, int type_column, int value_column, toolkit::CElement& v) {
  timeval keep = v.get_time();
  switch (sqlite3_column_int(stmt, type_column)) {
    case DATA_TYPE_BOOL:
      v.set_bool(sqlite3_column_int64(stmt, value_column) != 0);
      break;
    case DATA_TYPE_INT:
      v.set_int(static_cast<int32_t>(sqlite3_column_int64(stmt, value_column)));
      break;
    case DATA_TYPE_UINT:
      v.set_uint(static_cast<uint32_t>(sqlite3_column_int64(stmt, value_column)));
      break;
    case DATA_TYPE_INT64:
      v.set_int64(sqlite3_column_int64(stmt, value_column));
      break;
    case DATA_TYPE_UINT64:
      v.set_uint64(static_cast<uint64_t>(sqlite3_column_int64(stmt, value_column)));
      break;
    case DATA_TYPE_REAL:
      v.set_real(sqlite3_column_type(stmt, value_column) == SQLITE_NULL
                     ? std::nan("")
                     : sqlite3_column_double(stmt, value_column));
      break;
    case DATA_TYPE_STRING: {
      const char* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt, value_column));
      v.set_string(p != nullptr ? std::string(p, sqlite3_column_bytes(stmt, value_column))
                                : std::string());
      break;
    }
    case DATA_TYPE_TIMEVAL: {
      int64_t us = sqlite3_column_int64(stmt, value_column);
      int64_t sec = us / kMicrosPerSecond;
      int64_t rest = us % kMicrosPerSecond;
      if (rest < 0) {
        rest += kMicrosPerSecond;
        --sec;
      }
      v.set_timeval(timeval{static_cast<time_t>(sec), static_cast<suseconds_t>(rest)});
      break;
    }
    default:
      v.clear();
      break;
  }
  v.set_time(keep);
}

storage_class_t storage_class(int64_t stored) {
  return stored >= STORAGE_NORMAL && stored <= STORAGE_MPL ? static_cast<storage_class_t>(stored)
                                                           : STORAGE_NORMAL;
}

timeval now_timeval() {
  return vtx_VTXtoUNIXtime64(vtx_UTCtime64());
}

bool node_exists(pcd_connection* c, std::string_view node, int& rc) {
  Stmt q(prepare(c, "SELECT 1 FROM nodes WHERE path = ?1"));
  if (!q.ok()) {
    rc = SQLITE_ERROR;
    return false;
  }
  q.bind(1, node);
  rc = q.step();
  bool found = rc == SQLITE_ROW;
  if (rc == SQLITE_ROW || rc == SQLITE_DONE) rc = SQLITE_OK;
  return found;
}

int nodes_with_leaf_text(pcd_connection* c, std::string_view name, std::string_view value,
                         std::vector<std::string>& nodes) {
  nodes.clear();
  Stmt q(prepare(c,
                 "SELECT node FROM leaves WHERE name = ?1 AND type = 6 AND value = ?2 "
                 "ORDER BY node"));
  if (!q.ok()) return kCallFailed;
  q.bind(1, name);
  q.bind(2, value);
  int rc;
  while ((rc = q.step()) == SQLITE_ROW) nodes.emplace_back(q.text(0));
  return rc == SQLITE_DONE ? 0 : kCallFailed;
}

}  // namespace store
