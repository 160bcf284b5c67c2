// toolkit::CCds: reading and writing leaves, and the automatic attributes.
#include "platform/cds.h"
#include "platform/store_internal.h"
#include "platform/vtx.h"

namespace store {

namespace {

constexpr const char* kSelectLeaf =
    "SELECT type, value, sec, usec, storage FROM leaves WHERE node = ?1 AND name = ?2";

// Both writes insert only into an existing node (the SELECT yields no row otherwise, and
// sqlite3_changes() tells the caller so) in one statement, so no concurrent removal of the
// node can leave an orphan leaf. "WHERE true" keeps ON CONFLICT from parsing as a join.
constexpr const char* kUpsertLeaf =
    "INSERT INTO leaves(node, name, type, value, sec, usec, storage, source) "
    "SELECT ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8 WHERE EXISTS(SELECT 1 FROM nodes WHERE path = ?1) "
    "ON CONFLICT(node, name) DO UPDATE SET type = excluded.type, value = excluded.value, "
    "sec = excluded.sec, usec = excluded.usec, source = excluded.source, "
    "storage = CASE WHEN excluded.storage = 1 THEN 1 ELSE storage END";
constexpr const char* kImportLeaf =
    "INSERT INTO leaves(node, name, type, value, sec, usec, storage, source) "
    "SELECT ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8 WHERE EXISTS(SELECT 1 FROM nodes WHERE path = ?1) "
    "ON CONFLICT(node, name) DO UPDATE SET type = excluded.type, value = excluded.value, "
    "sec = excluded.sec, usec = excluded.usec, source = excluded.source, "
    "storage = excluded.storage";

void resetOutputs(toolkit::CElement& value, element_property_t& prop) {
  value = toolkit::CElement();
  prop = element_property_t();
}

bool joinColumn(pcd_connection* c, const char* sql, std::string_view node, bool last_component,
                std::string& out) {
  Stmt q(prepare(c, sql));
  if (!q.ok()) return false;
  q.bind(1, node);
  out.clear();
  int rc;
  while ((rc = q.step()) == SQLITE_ROW) {
    if (!out.empty()) out += ';';
    std::string_view text = q.text(0);
    out += last_component ? store::last_component(text) : text;
  }
  return rc == SQLITE_DONE;
}

}  // namespace

LeafReader::LeafReader(pcd_connection* c) : c_(c), leaf_(prepare(c, kSelectLeaf)) {}

bool LeafReader::read(std::string_view path, api_status_t& status, toolkit::CElement& value,
                      element_property_t& prop) {
  std::string_view node, name;
  if (!split_leaf_path(path, scratch_, node, name)) {
    status = API_STATUS_BAD_PATH;
    resetOutputs(value, prop);
    return true;
  }
  if (is_automatic(name)) {
    resetOutputs(value, prop);
    if (!readAutomatic(node, name, status, value)) return false;
    if (status == API_STATUS_OK) prop.storage = STORAGE_AUTOMATIC;
    return true;
  }
  Stmt q(leaf_);
  q.bind(1, node);
  q.bind(2, name);
  int rc = q.step();
  if (rc == SQLITE_ROW) {
    read_value(q.get(), 0, 1, value);
    value.set_time(timeval{static_cast<time_t>(q.int64(2)), static_cast<suseconds_t>(q.int64(3))});
    prop.storage = storage_class(q.int64(4));
    status = API_STATUS_OK;
    return true;
  }
  resetOutputs(value, prop);
  if (rc != SQLITE_DONE) return false;
  q.reset();
  bool exists = node_exists(c_, node, rc);
  status = exists ? API_STATUS_NO_LEAF : API_STATUS_NO_NODE;
  return rc == SQLITE_OK;
}

bool LeafReader::readAutomatic(std::string_view node, std::string_view name, api_status_t& status,
                               toolkit::CElement& value) {
  int rc;
  if (!node_exists(c_, node, rc)) {
    status = API_STATUS_NO_NODE;
    return rc == SQLITE_OK;
  }
  const timeval now = now_timeval();
  std::string text;
  if (name == "Children") {
    if (!joinColumn(c_, "SELECT path FROM nodes WHERE parent = ?1 ORDER BY path", node, true,
                    text)) {
      return false;
    }
    value.set_string(text);
  } else if (name == "Attributes") {
    if (!joinColumn(c_, "SELECT name FROM leaves WHERE node = ?1 ORDER BY name", node, false,
                    text)) {
      return false;
    }
    value.set_string(text);
  } else {
    Stmt q(prepare(c_, "SELECT sec, usec FROM leaves WHERE node = ?1 AND name = 'Value'"));
    if (!q.ok()) return false;
    q.bind(1, node);
    rc = q.step();
    if (rc != SQLITE_ROW) {
      status = API_STATUS_NO_LEAF;
      return rc == SQLITE_DONE;
    }
    // Whole seconds, rounded down, in 128 bits: a stored time stamp may be anything.
    __int128 age_us =
        (static_cast<__int128>(now.tv_sec) - q.int64(0)) * 1000000 + (now.tv_usec - q.int64(1));
    __int128 age = age_us / 1000000;
    value.set_uint(age < 0 ? 0 : age > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(age));
  }
  value.set_time(now);
  status = API_STATUS_OK;
  return true;
}

LeafWriter::LeafWriter(pcd_connection* c, const std::string& source)
    : c_(c),
      source_(source),
      now_(now_timeval()),
      upsert_(prepare(c, kUpsertLeaf)),
      import_(prepare(c, kImportLeaf)) {}

bool LeafWriter::write(std::string_view path, const toolkit::CElement& value, bool persist,
                       api_status_t& status) {
  return run(upsert_, path, value, persist ? STORAGE_PERSISTENT : STORAGE_NORMAL, status);
}

bool LeafWriter::write_with_storage(std::string_view path, const toolkit::CElement& value,
                                    storage_class_t storage, api_status_t& status) {
  if (storage == STORAGE_AUTOMATIC || storage < STORAGE_NORMAL || storage > STORAGE_MPL) {
    status = API_STATUS_FAILED;
    return true;
  }
  return run(import_, path, value, storage, status);
}

bool LeafWriter::run(sqlite3_stmt* stmt, std::string_view path, const toolkit::CElement& value,
                     int storage, api_status_t& status) {
  std::string_view node, name;
  if (!split_leaf_path(path, scratch_, node, name)) {
    status = API_STATUS_BAD_PATH;
    return true;
  }
  if (is_automatic(name)) {
    status = API_STATUS_READ_ONLY;
    return true;
  }
  Stmt q(stmt);
  q.bind(1, node);
  q.bind(2, name);
  if (!bind_value(stmt, 3, 4, value)) {
    status = API_STATUS_FAILED;
    return true;
  }
  timeval tv = value.get_time();
  if (tv.tv_sec == 0 && tv.tv_usec == 0) tv = now_;
  q.bind(5, int64_t{tv.tv_sec});
  q.bind(6, int64_t{tv.tv_usec});
  q.bind(7, int64_t{storage});
  q.bind(8, std::string_view(source_));
  int rc = q.step();
  if (rc == SQLITE_DONE) {
    status = sqlite3_changes(c_->db) > 0 ? API_STATUS_OK : API_STATUS_NO_NODE;
    return true;
  }
  // A value SQLite refuses (too big) fails the item; anything else fails the call.
  status = API_STATUS_FAILED;
  return (rc & 0xff) == SQLITE_TOOBIG || (rc & 0xff) == SQLITE_CONSTRAINT;
}

}  // namespace store

namespace toolkit {

using store::kCallFailed;
using store::PathCall;

int CCds::get_leaf(const std::string& path, api_status_t& status, CElement& value,
                   element_property_t& prop) {
  status = API_STATUS_FAILED;
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  store::LeafReader reader(c);
  if (reader.ok() && reader.read(path, status, value, prop)) return 0;
  status = API_STATUS_FAILED;
  return kCallFailed;
}

int CCds::get_leaves(const std::vector<std::string>& paths, std::vector<api_status_t>& statuses,
                     std::vector<CElement>& values, std::vector<element_property_t>& props) {
  const size_t n = paths.size();
  statuses.assign(n, API_STATUS_FAILED);
  values.assign(n, CElement());
  props.assign(n, element_property_t());
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  // One read transaction gives every item the same snapshot of the store.
  store::Transaction tx(c, false);
  store::LeafReader reader(c);
  bool ok = tx.ok() && reader.ok();
  for (size_t i = 0; ok && i < n; ++i) ok = reader.read(paths[i], statuses[i], values[i], props[i]);
  if (ok && tx.commit()) return 0;
  statuses.assign(n, API_STATUS_FAILED);
  values.assign(n, CElement());
  props.assign(n, element_property_t());
  return kCallFailed;
}

int CCds::set_leaf(const std::string& path, const CElement& value, api_status_t& status,
                   bool persist, const std::string& source) {
  std::vector<api_status_t> statuses;
  int rc = set_leaves({path}, {value}, {static_cast<char>(persist)}, statuses, source);
  status = statuses.empty() ? API_STATUS_FAILED : statuses[0];
  return rc;
}

int CCds::set_leaves(const std::vector<std::string>& paths, const std::vector<CElement>& values,
                     const std::vector<char>& persist, std::vector<api_status_t>& statuses,
                     const std::string& source) {
  const size_t n = paths.size();
  statuses.assign(n, API_STATUS_FAILED);
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  store::Transaction tx(c, true);
  store::LeafWriter writer(c, source);
  bool ok = tx.ok() && writer.ok();
  for (size_t i = 0; ok && i < n; ++i) {
    if (i >= values.size()) break;  // an item without a value stays FAILED
    bool keep = i < persist.size() && persist[i] != 0;
    ok = writer.write(paths[i], values[i], keep, statuses[i]) && tx.alive();
  }
  if (ok && tx.commit()) return 0;
  statuses.assign(n, API_STATUS_FAILED);
  return kCallFailed;
}

int CCds::clear_leaf(const std::string& path, api_status_t& status, bool /*persist*/,
                     const std::string& /*source*/) {
  PathCall call(handle_, path, PathCall::kLeafPath, PathCall::kWrite, status);
  if (!call.open()) return call.result();
  if (store::is_automatic(call.name())) return call.finish(API_STATUS_READ_ONLY);
  store::Stmt del(
      store::prepare(call.connection(), "DELETE FROM leaves WHERE node = ?1 AND name = ?2"));
  if (!del.ok()) return call.fail();
  del.bind(1, call.node());
  del.bind(2, call.name());
  if (del.step() != SQLITE_DONE) return call.fail();
  if (sqlite3_changes(call.connection()->db) > 0) return call.finish(API_STATUS_OK);
  return call.requireNode() ? call.finish(API_STATUS_NO_LEAF) : call.result();
}

int CCds::get_leaf_source(const std::string& path, api_status_t& status, std::string& source) {
  source.clear();
  PathCall call(handle_, path, PathCall::kLeafPath, PathCall::kRead, status);
  if (!call.open()) return call.result();
  store::Stmt q(
      store::prepare(call.connection(), "SELECT source FROM leaves WHERE node = ?1 AND name = ?2"));
  if (!q.ok()) return call.fail();
  q.bind(1, call.node());
  q.bind(2, call.name());
  int rc = q.step();
  if (rc == SQLITE_ROW) source = q.text(0);
  q.reset();
  if (rc == SQLITE_ROW) return call.finish(API_STATUS_OK);
  if (rc != SQLITE_DONE) return call.fail();
  return call.requireNode() ? call.finish(API_STATUS_NO_LEAF) : call.result();
}

}  // namespace toolkit
