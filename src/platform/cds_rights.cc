// toolkit::CCds: the users' rights on path prefixes.
//
// Every path check of a request asks for rights, so the rules are cached per connection.
// The cache stays valid while PRAGMA data_version (which moves whenever another connection
// commits) is unchanged; when it moves, one look at the rules' version counter in the meta
// table tells whether the rules themselves changed. Our own changes drop the cache. Inside
// a read batch the snapshot is fixed, so the check is made once per batch.
#include <string_view>

#include "platform/cds.h"
#include "platform/store_internal.h"

namespace store {

namespace {

constexpr const char* kLetters = "rwdx";

bool normalizeLetters(const std::string& in, std::string& out) {
  out.clear();
  for (char ch : in) {
    if (std::string_view(kLetters).find(ch) == std::string_view::npos) return false;
  }
  for (const char* l = kLetters; *l != '\0'; ++l) {
    if (in.find(*l) != std::string::npos) out += *l;
  }
  return true;
}

bool queryInt(pcd_connection* c, const char* sql, int64_t& out) {
  Stmt q(prepare(c, sql));
  if (!q.ok() || q.step() != SQLITE_ROW) return false;
  out = q.int64(0);
  return true;
}

bool bumpRulesVersion(pcd_connection* c) {
  Stmt bump(prepare(c, "UPDATE meta SET value = value + 1 WHERE key = 'rights_version'"));
  c->rules_loaded = false;
  return bump.ok() && bump.step() == SQLITE_DONE;
}

bool refreshRules(pcd_connection* c) {
  int64_t data_version = 0;
  if (!queryInt(c, "PRAGMA data_version", data_version)) return false;
  if (c->rules_loaded && data_version == c->rules_data_version) return true;
  int64_t version = 0;
  if (!queryInt(c, "SELECT value FROM meta WHERE key = 'rights_version'", version)) return false;
  c->rules_data_version = data_version;
  if (c->rules_loaded && version == c->rules_version) return true;
  Stmt q(prepare(c, "SELECT user, prefix, letters FROM rights ORDER BY user, prefix"));
  if (!q.ok()) return false;
  c->rules.clear();
  int rc;
  while ((rc = q.step()) == SQLITE_ROW) {
    c->rules.push_back({std::string(q.text(0)), std::string(q.text(1)), std::string(q.text(2))});
  }
  c->rules_loaded = rc == SQLITE_DONE;
  c->rules_version = version;
  return c->rules_loaded;
}

bool loadRules(pcd_connection* c) {
  const bool in_batch = c->read_batches > 0 && sqlite3_get_autocommit(c->db) == 0;
  if (c->rules_loaded && in_batch && c->rules_batch == c->batch_serial) return true;
  if (!refreshRules(c)) return false;
  c->rules_batch = in_batch ? c->batch_serial : -1;
  return true;
}

// Whole components: "/Dev1" covers "/Dev1" and "/Dev1/x", not "/Dev10"; "/" covers all.
bool covers(std::string_view prefix, std::string_view path) {
  if (prefix == "/") return true;
  if (path.size() < prefix.size() || path.compare(0, prefix.size(), prefix) != 0) return false;
  return path.size() == prefix.size() || path[prefix.size()] == '/';
}

// The rule of `user` with the longest prefix covering `path`, or null.
const toolkit::right_rule_t* longestRule(const std::vector<toolkit::right_rule_t>& rules,
                                         std::string_view user, std::string_view path) {
  const toolkit::right_rule_t* best = nullptr;
  for (const toolkit::right_rule_t& rule : rules) {
    if (rule.user != user || !covers(rule.prefix, path)) continue;
    if (best == nullptr || rule.prefix.size() > best->prefix.size()) best = &rule;
  }
  return best;
}

}  // namespace

int put_rule(pcd_connection* c, const toolkit::right_rule_t& rule, std::string& error) {
  std::string prefix, letters;
  if (!canonicalize(rule.prefix, prefix)) {
    error = "the prefix must be a path beginning with \"/\"";
    return SQLITE_MISUSE;
  }
  if (!normalizeLetters(rule.rights, letters)) {
    error = "rights are letters from \"rwdx\"";
    return SQLITE_MISUSE;
  }
  Stmt put(prepare(c, "INSERT OR REPLACE INTO rights(user, prefix, letters) VALUES(?1, ?2, ?3)"));
  if (!put.ok()) return SQLITE_ERROR;
  put.bind(1, rule.user);
  put.bind(2, prefix);
  put.bind(3, letters);
  int rc = put.step();
  if (rc != SQLITE_DONE) return rc;
  return bumpRulesVersion(c) ? SQLITE_OK : SQLITE_ERROR;
}

}  // namespace store

namespace toolkit {

using store::kCallFailed;

int CCds::rights_list(std::vector<right_rule_t>& rules) {
  rules.clear();
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr || !store::loadRules(c)) return kCallFailed;
  rules = c->rules;
  return 0;
}

int CCds::rights_set(const right_rule_t& rule) {
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  store::Transaction tx(c, true);
  std::string error;
  if (!tx.ok() || store::put_rule(c, rule, error) != SQLITE_OK || !tx.commit()) {
    c->rules_loaded = false;
    return kCallFailed;
  }
  return 0;
}

int CCds::rights_remove(const std::string& user, const std::string& prefix, api_status_t& status) {
  status = API_STATUS_FAILED;
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr) return kCallFailed;
  std::string canonical;
  if (!store::canonicalize(prefix, canonical)) {
    status = API_STATUS_BAD_PATH;
    return 0;
  }
  store::Transaction tx(c, true);
  store::Stmt del(store::prepare(c, "DELETE FROM rights WHERE user = ?1 AND prefix = ?2"));
  if (!tx.ok() || !del.ok()) return kCallFailed;
  del.bind(1, user);
  del.bind(2, canonical);
  if (del.step() != SQLITE_DONE) return kCallFailed;
  bool removed = sqlite3_changes(c->db) > 0;
  if ((removed && !store::bumpRulesVersion(c)) || !tx.commit()) {
    c->rules_loaded = false;
    return kCallFailed;
  }
  status = removed ? API_STATUS_OK : API_STATUS_NO_LEAF;
  return 0;
}

int CCds::rights_for(const std::string& user, const std::string& path, std::string& rights) {
  rights.clear();
  pcd_connection* c = store::begin_call(handle_);
  if (c == nullptr || !store::loadRules(c)) return kCallFailed;
  std::string scratch;
  std::string_view p = path;
  if (!store::is_canonical(p)) {
    if (!store::canonicalize(p, scratch)) return 0;  // a malformed path has no rights
    p = scratch;
  }
  const right_rule_t* rule = store::longestRule(c->rules, user, p);
  if (rule == nullptr) rule = store::longestRule(c->rules, "*", p);
  if (rule != nullptr) rights = rule->rights;
  return 0;
}

}  // namespace toolkit
