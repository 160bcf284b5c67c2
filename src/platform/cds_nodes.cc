// toolkit::CCds: nodes, listings and import.
#include "platform/cds.h"
#include "platform/store_internal.h"

namespace store {

namespace {

// Longest node path that add_node and import create: a node stores its whole path, so an
// absurdly long or deep path would otherwise cost its length times its depth.
constexpr size_t kMaxNodePathBytes = 4096;

// The bounds of the paths strictly below `node`: [node + "/", node + "0") in byte order,
// "0" being the byte after "/".
void subtreeBounds(std::string_view node, std::string& low, std::string& high) {
  std::string base = node == "/" ? std::string() : std::string(node);
  low = base + "/";
  high = base + "0";
}

}  // namespace

bool create_nodes(pcd_connection* c, std::string_view path) {
  int rc;
  if (node_exists(c, path, rc)) return true;
  if (rc != SQLITE_OK) return false;
  Stmt insert(prepare(c, "INSERT OR IGNORE INTO nodes(path, parent) VALUES(?1, ?2)"));
  if (!insert.ok()) return false;
  for (size_t end = 1; end <= path.size(); ++end) {
    if (end != path.size() && path[end] != '/') continue;
    std::string_view node = path.substr(0, end);
    size_t slash = node.rfind('/');
    std::string_view parent = slash == 0 ? std::string_view("/") : node.substr(0, slash);
    insert.bind(1, node);
    insert.bind(2, parent);
    if (insert.step() != SQLITE_DONE) return false;
    insert.reset();
  }
  return true;
}

}  // namespace store

namespace toolkit {

using store::kCallFailed;
using store::PathCall;

namespace {

const char* statusText(api_status_t status) {
  switch (status) {
    case API_STATUS_NO_NODE:
      return "the node does not exist";
    case API_STATUS_BAD_PATH:
      return "malformed path";
    case API_STATUS_READ_ONLY:
      return "automatic attributes cannot be written";
    default:
      return "the value cannot be stored";
  }
}

}  // namespace

int CCds::test_node(const std::string& path, api_status_t& status) {
  PathCall call(handle_, path, PathCall::kNodePath, PathCall::kOneStatement, status);
  if (!call.open()) return call.result();
  return call.requireNode() ? call.finish(API_STATUS_OK) : call.result();
}

int CCds::add_node(const std::string& path, api_status_t& status, const std::string& /*source*/) {
  PathCall call(handle_, path, PathCall::kNodePath, PathCall::kWrite, status);
  if (!call.open()) return call.result();
  if (call.node().size() > store::kMaxNodePathBytes) return call.finish(API_STATUS_FAILED);
  if (!store::create_nodes(call.connection(), call.node())) return call.fail();
  return call.finish(API_STATUS_OK);
}

int CCds::remove_node(const std::string& path, api_status_t& status, bool /*persist*/,
                      const std::string& /*source*/) {
  PathCall call(handle_, path, PathCall::kNodePath, PathCall::kWrite, status);
  if (!call.open() || !call.requireNode()) return call.result();
  if (call.node() == "/") return call.finish(API_STATUS_FAILED);  // the root always exists
  std::string low, high;
  store::subtreeBounds(call.node(), low, high);
  for (const char* sql : {"DELETE FROM leaves WHERE node = ?1 OR (node >= ?2 AND node < ?3)",
                          "DELETE FROM nodes WHERE path = ?1 OR (path >= ?2 AND path < ?3)"}) {
    store::Stmt del(store::prepare(call.connection(), sql));
    if (!del.ok()) return call.fail();
    del.bind(1, call.node());
    del.bind(2, low);
    del.bind(3, high);
    if (del.step() != SQLITE_DONE) return call.fail();
  }
  return call.finish(API_STATUS_OK);
}

namespace {

// Runs a query with the node path as ?1 (and its subtree bounds as ?2 and ?3) in one read
// transaction and hands every row to `on_row`; NO_NODE when the node does not exist.
template <typename OnRow>
int listNodeRows(pcd_handle_t handle, const std::string& path, const char* sql, OnRow on_row,
                 api_status_t& status) {
  PathCall call(handle, path, PathCall::kNodePath, PathCall::kRead, status);
  if (!call.open() || !call.requireNode()) return call.result();
  std::string low, high;
  store::subtreeBounds(call.node(), low, high);
  store::Stmt q(store::prepare(call.connection(), sql));
  if (!q.ok()) return call.fail();
  q.bind(1, call.node());
  if (sqlite3_bind_parameter_count(q.get()) >= 3) {
    q.bind(2, low);
    q.bind(3, high);
  }
  int rc;
  while ((rc = q.step()) == SQLITE_ROW) on_row(q);
  q.reset();
  return rc == SQLITE_DONE ? call.finish(API_STATUS_OK) : call.fail();
}

int listPaths(pcd_handle_t handle, const std::string& path, const char* sql,
              std::vector<std::string>& out, api_status_t& status) {
  out.clear();
  int rc = listNodeRows(
      handle, path, sql, [&out](store::Stmt& q) { out.emplace_back(q.text(0)); }, status);
  if (status != API_STATUS_OK) out.clear();
  return rc;
}

}  // namespace

int CCds::list_children(const std::string& path, std::vector<std::string>& children,
                        api_status_t& status) {
  return listPaths(handle_, path, "SELECT path FROM nodes WHERE parent = ?1 ORDER BY path",
                   children, status);
}

int CCds::list_subtree(const std::string& path, std::vector<std::string>& nodes,
                       api_status_t& status) {
  return listPaths(handle_, path,
                   "SELECT path FROM nodes WHERE path = ?1 OR (path >= ?2 AND path < ?3) "
                   "ORDER BY path",
                   nodes, status);
}

int CCds::list_leaves(const std::string& path, std::vector<leaf_record_t>& leaves,
                      api_status_t& status) {
  leaves.clear();
  auto on_row = [&leaves](store::Stmt& q) {
    leaf_record_t record;
    record.name = q.text(0);
    store::read_value(q.get(), 1, 2, record.value);
    record.value.set_time(
        timeval{static_cast<time_t>(q.int64(3)), static_cast<suseconds_t>(q.int64(4))});
    record.prop.storage = store::storage_class(q.int64(5));
    record.source = q.text(6);
    leaves.push_back(std::move(record));
  };
  int rc = listNodeRows(handle_, path,
                        "SELECT name, type, value, sec, usec, storage, source FROM leaves "
                        "WHERE node = ?1 ORDER BY name",
                        on_row, status);
  if (status != API_STATUS_OK) leaves.clear();
  return rc;
}

int CCds::import(const std::vector<std::string>& nodes, const std::vector<leaf_write_t>& leaves,
                 const std::vector<right_rule_t>& rights, const std::string& source,
                 std::string& error) {
  error.clear();
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) {
    error = "no connection to the Data store";
    return kCallFailed;
  }
  store::Transaction tx(c, true);
  store::LeafWriter writer(c, source);
  if (!tx.ok() || !writer.ok()) {
    error = std::string("cannot write the Data store: ") + sqlite3_errmsg(c->db);
    return kCallFailed;
  }
  std::string scratch;
  for (const std::string& path : nodes) {
    if (!store::canonicalize(path, scratch) || scratch.size() > store::kMaxNodePathBytes) {
      error = "node \"" + path + "\": malformed path";
      return kCallFailed;
    }
    if (!store::create_nodes(c, scratch)) {
      error = std::string("node \"" + path + "\": ") + sqlite3_errmsg(c->db);
      return kCallFailed;
    }
  }
  for (const leaf_write_t& leaf : leaves) {
    std::string_view node, name;
    api_status_t status = API_STATUS_BAD_PATH;
    if (store::split_leaf_path(leaf.path, scratch, node, name) &&
        node.size() <= store::kMaxNodePathBytes) {
      if (!store::create_nodes(c, node) ||
          !writer.write_with_storage(leaf.path, leaf.value, leaf.storage, status)) {
        error = "leaf \"" + leaf.path + "\": " + sqlite3_errmsg(c->db);
        return kCallFailed;
      }
    }
    if (status != API_STATUS_OK) {
      error = "leaf \"" + leaf.path + "\": " + statusText(status);
      return kCallFailed;
    }
  }
  for (const right_rule_t& rule : rights) {
    std::string why;
    int rc = store::put_rule(c, rule, why);
    if (rc != SQLITE_OK) {
      error = "rule for \"" + rule.user + "\" on \"" + rule.prefix +
              "\": " + (why.empty() ? sqlite3_errmsg(c->db) : why);
      return kCallFailed;
    }
  }
  if (!tx.commit()) {
    error = std::string("cannot commit the import: ") + sqlite3_errmsg(c->db);
    return kCallFailed;
  }
  return 0;
}

}  // namespace toolkit
