// The Data store client.
//
// The store is one SQLite file shared by every process of the gateway. pcd_init(0) opens
// the file named by the environment variable CDS_PATH (default "./cds.db", made absolute
// at open time) and creates the schema when the file is new. A node is named by its
// absolute path ("/" is the root node); a leaf belongs to a node and has a name, a type, a
// value, a time stamp, a storage class and the source text of its last writer. A leaf path
// is the node path, "/" and the leaf name.
//
// Every call returns an int that is 0 when the call itself worked (the database answered)
// and non-zero when it did not; per item it reports an api_status_t. A value counts as read
// or written only when the int is 0 and the status is API_STATUS_OK. Multi-item calls run
// in one transaction; a write that was acknowledged (int 0, status OK) survives a kill -9
// of any process.
//
// Automatic attributes are computed on read, never stored, and cannot be written:
// "Children" (child node names joined with ";", in name order), "Attributes" (leaf names,
// ";"), "ValueAge" (whole seconds since the Value leaf's time stamp, as Unsigned). They read
// with storage class Automatic and the current time as time stamp.
#ifndef WSGATE_PLATFORM_CDS_H
#define WSGATE_PLATFORM_CDS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/element.h"
#include "platform/event.h"

enum api_status_t {
  API_STATUS_UNKNOWN = 0,
  API_STATUS_OK = 1,         // done; the leaf or node was found
  API_STATUS_NO_NODE = 2,    // the node does not exist
  API_STATUS_NO_LEAF = 3,    // the node exists, the leaf does not
  API_STATUS_FAILED = 4,     // the item failed for another reason (database error, bad value)
  API_STATUS_BAD_PATH = 5,   // the path text is malformed
  API_STATUS_READ_ONLY = 6,  // the leaf is an automatic attribute
};

enum storage_class_t {
  STORAGE_NORMAL = 0,
  STORAGE_PERSISTENT = 1,
  STORAGE_AUTOMATIC = 2,
  STORAGE_MPL = 3,
};

struct element_property_t {
  storage_class_t storage = STORAGE_NORMAL;
};

// Severities of the gateway's system log, the syslog(3) scale.
enum syslog_severity_t {
  SYSLOG_EMERGENCY = 0,
  SYSLOG_ALERT = 1,
  SYSLOG_CRITICAL = 2,
  SYSLOG_ERROR = 3,
  SYSLOG_WARNING = 4,
  SYSLOG_NOTICE = 5,
  SYSLOG_INFO = 6,
  SYSLOG_DEBUG = 7,
};

// A connection to the store; owned by whoever called pcd_init, released by pcd_close.
typedef struct pcd_connection* pcd_handle_t;

// Opens the store (see above). `flags` is reserved and must be 0. Returns null when the
// file cannot be opened, is not a store, or stays locked beyond the busy time-out
// (CDS_BUSY_TIMEOUT_MS, default 5000); pcd_last_error() then says why.
pcd_handle_t pcd_init(int flags);
void pcd_close(pcd_handle_t handle);
// The text of the last pcd_init failure of this process ("" when none).
const char* pcd_last_error(void);
// The handle that path checks and rights use in this process: the one most recently opened
// and not yet closed; null when none is open.
pcd_handle_t pcd_default_handle(void);

// Test hook: after `skip` more store calls on `handle` succeed, the next `count` calls fail
// (int result non-zero, every item status API_STATUS_FAILED) without touching the database.
void pcd_inject_failure(pcd_handle_t handle, int skip, int count);

namespace toolkit {

// A user's rights on a path prefix: letters from "r" read, "w" write, "d" remove, "x" reset.
struct right_rule_t {
  std::string user;  // "*" is the rule for every user without a matching rule of their own
  std::string prefix;
  std::string rights;
};

// One stored leaf as listed by list_leaves.
struct leaf_record_t {
  std::string name;
  CElement value;
  element_property_t prop;
  std::string source;
};

// A leaf write with an explicit storage class (import).
struct leaf_write_t {
  std::string path;
  CElement value;  // a time stamp of {0, 0} means "now"
  storage_class_t storage = STORAGE_NORMAL;
};

class CCds {
 public:
  CCds() = default;
  explicit CCds(pcd_handle_t handle) : handle_(handle) {}
  CCds(const CCds&) = delete;
  CCds& operator=(const CCds&) = delete;

  pcd_handle_t handle() const { return handle_; }
  void set_handle(pcd_handle_t handle) { handle_ = handle; }
  bool connected() const { return handle_ != nullptr; }

  // --- Leaves -------------------------------------------------------------------------
  // Reads one leaf. Status OK with the value (type None never occurs for a stored leaf),
  // NO_NODE, NO_LEAF or BAD_PATH.
  int get_leaf(const std::string& path, api_status_t& status, CElement& value,
               element_property_t& prop);
  // Reads every path, in order; the output vectors are replaced and have one entry per path.
  // A non-zero result fails the whole batch.
  int get_leaves(const std::vector<std::string>& paths, std::vector<api_status_t>& statuses,
                 std::vector<CElement>& values, std::vector<element_property_t>& props);
  // Writes one leaf, creating it in an existing node when missing. The value's time stamp
  // becomes the leaf's ({0, 0}: now); `persist` makes the leaf Persistent, otherwise an
  // existing leaf keeps its storage class and a new one is Normal. A value of type None
  // fails the item. NO_NODE when the node is missing, READ_ONLY for automatic attributes.
  int set_leaf(const std::string& path, const CElement& value, api_status_t& status,
               bool persist, const std::string& source);
  // Writes every item in one transaction; one status per item (an item that fails does not
  // stop the others). `persist` has one flag per item.
  int set_leaves(const std::vector<std::string>& paths, const std::vector<CElement>& values,
                 const std::vector<char>& persist, std::vector<api_status_t>& statuses,
                 const std::string& source);
  // Removes one stored leaf. NO_LEAF when it does not exist.
  int clear_leaf(const std::string& path, api_status_t& status, bool persist,
                 const std::string& source);

  // --- Nodes --------------------------------------------------------------------------
  // OK when the node exists, NO_NODE when not.
  int test_node(const std::string& path, api_status_t& status);
  // Creates the node and any missing ancestors; OK also when it existed. A path longer
  // than 4096 bytes is refused (FAILED).
  int add_node(const std::string& path, api_status_t& status, const std::string& source);
  // Removes the node with all its leaves and descendants. The root cannot be removed
  // (FAILED). NO_NODE when it does not exist.
  int remove_node(const std::string& path, api_status_t& status, bool persist,
                  const std::string& source);
  // Paths of the node's children, in name order.
  int list_children(const std::string& path, std::vector<std::string>& children,
                    api_status_t& status);
  // The node's stored leaves, in name order.
  int list_leaves(const std::string& path, std::vector<leaf_record_t>& leaves,
                  api_status_t& status);
  // The node and all nodes below it, in path order.
  int list_subtree(const std::string& path, std::vector<std::string>& nodes,
                   api_status_t& status);
  // The source text of a leaf's last writer.
  int get_leaf_source(const std::string& path, api_status_t& status, std::string& source);
  // Creates the nodes, writes the leaves (creating their nodes) and sets the rights, all in
  // one transaction; nothing is changed when any item fails, and `error` says which.
  int import(const std::vector<std::string>& nodes, const std::vector<leaf_write_t>& leaves,
             const std::vector<right_rule_t>& rights, const std::string& source,
             std::string& error);

  // --- Rights ---------------------------------------------------------------------------
  int rights_list(std::vector<right_rule_t>& rules);
  // Creates or replaces the rule for (user, prefix).
  int rights_set(const right_rule_t& rule);
  // NO_LEAF when there is no such rule.
  int rights_remove(const std::string& user, const std::string& prefix, api_status_t& status);
  // The rights letters that the rules give `user` on `path` (longest matching prefix of the
  // user's own rules, else of the "*" rules, else ""). Prefixes match whole components.
  int rights_for(const std::string& user, const std::string& path, std::string& rights);

  // --- Events, system log, watchdog -------------------------------------------------------
  // Queues the events for other processes; one status per event.
  int events_send(const std::vector<CEvent>& events, std::vector<api_status_t>& statuses);
  // The newest `max` queued events, oldest first.
  int events_list(std::vector<CEvent>& events, size_t max);
  int syslog_add(const std::string& app, syslog_severity_t severity, const std::string& text,
                 const std::string& detail);
  struct syslog_record_t {
    int64_t time;  // platform time
    std::string app;
    syslog_severity_t severity;
    std::string text;
    std::string detail;
  };
  // The newest `max` system-log records, oldest first.
  int syslog_list(std::vector<syslog_record_t>& records, size_t max);
  // Registers this client's watchdog under `name` with its period in seconds; ping and
  // clear act on the registered name.
  int watchdog_register(api_status_t& status, const std::string& name, unsigned period,
                        bool enabled);
  int watchdog_ping();
  int watchdog_clear(api_status_t& status);

 private:
  pcd_handle_t handle_ = nullptr;
};

// One read snapshot of the store across several calls of a client, for the life of the
// object: the calls (and the path checks and rights of the process, when the client's handle
// is the default one) see one state, and the database's locks are taken once instead of
// once per call, which is most of the cost of many small reads. Only reads may run while it
// is held: a call that writes fails (FAILED). Objects may nest; the outermost one ends the
// snapshot. Without a connection it does nothing.
class CReadBatch {
 public:
  explicit CReadBatch(CCds& cds);
  ~CReadBatch();
  CReadBatch(const CReadBatch&) = delete;
  CReadBatch& operator=(const CReadBatch&) = delete;

 private:
  pcd_handle_t handle_;
};

// One write transaction across several calls of a client, from construction to commit():
// other processes see the calls' writes together, at the commit, and the calls share one
// commit instead of paying one each, which is most of the cost of many small writes. Each
// call still succeeds or fails by itself (a failing call undoes only its own changes) and
// reads see the batch's writes. The write lock is held until the commit: keep batches short.
// Without a connection, while another transaction of the client is open (a read or write
// batch), or when the write lock stays taken beyond the busy time-out, the object does
// nothing and every call commits by itself, as without it.
class CWriteBatch {
 public:
  explicit CWriteBatch(CCds& cds);
  // Commits what commit() or rollback() has not ended.
  ~CWriteBatch();
  CWriteBatch(const CWriteBatch&) = delete;
  CWriteBatch& operator=(const CWriteBatch&) = delete;

  // Ends the batch keeping its writes; 0 on success (also when the object does nothing).
  // Non-zero when the commit fails or SQLite ended the transaction on its own (every call
  // made since then has failed): then none of the batch's writes are kept. Counts as a store
  // call for pcd_inject_failure.
  int commit();
  // Ends the batch undoing all its writes.
  void rollback();

 private:
  pcd_handle_t handle_;
};

}  // namespace toolkit

#endif  // WSGATE_PLATFORM_CDS_H
