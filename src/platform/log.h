// The event log library: the gateway's delta, alarm/event and system logs.
//
// An event log is an SQLite file of toolkit::CEvent records, every field of the record kept,
// in the order they were appended. Records are found by their time stamp (indexed, so that
// reading the last records of a log of a million costs what reading its first ones costs)
// and, optionally, by the path they are about. Writers (the gateway's loggers, the `cds`
// tool) append through the same library; readers open a log per request and close it again.
//
// Calls answer SQLite's primary result codes: 0 (SQLITE_OK) for success; SQLITE_CANTOPEN
// (14) for a file that cannot be opened, SQLITE_NOTADB (26) for a file that is not an event
// log, SQLITE_BUSY (5) for a log locked by a writer, SQLITE_MISUSE (21) for a call through a
// handle that is not open or was opened by another process (a connection never crosses a
// fork), SQLITE_RANGE (25) for a record that cannot be stored.
#ifndef WSGATE_PLATFORM_LOG_H
#define WSGATE_PLATFORM_LOG_H

#include <sys/time.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/event.h"

// A connection to one event log; owned by whoever called pcd_log_init, released by
// pcd_log_close.
typedef struct pcd_log_connection* pcd_log_handle_t;

// Opens the event log at `path` and stores the handle in `*handle` (null on failure).
//   create           1: a missing file is created with the log's schema (implies writable);
//                    0: the file must exist
//   writable         1: records may be appended; 0: the connection is read-only
//   busy_timeout_ms  how long a call waits for a writer's lock; 0: a locked log fails the
//                    call at once (SQLITE_BUSY), and the caller decides when to try again
//   wal              1: a file created here uses a write-ahead log, so that readers never
//                    wait for writers
//   synchronous      SQLite's synchronous level for appends (0 off, 1 normal, 2 full)
//   page_size        bytes; only a file created here takes it (SQLite fixes the page size
//                    of a file when it is made); 0 keeps SQLite's default
//   cache_size       bytes of page cache for this connection; 0 keeps SQLite's default
//   heap_limit       bytes, SQLite's soft heap limit for the whole process; 0 leaves it
//   flags            reserved, 0
// Returns 0, or the result code with pcd_log_last_error() saying why. A read-only open that
// finds the log locked succeeds, and the first call reports the lock.
int pcd_log_init(const char* path, pcd_log_handle_t* handle, int create, int writable,
                 int busy_timeout_ms, int wal, int synchronous, int page_size, uint32_t cache_size,
                 uint32_t heap_limit, int flags);
// Closes the connection (null is ignored). In a process that did not open it, the
// connection is only forgotten: the file stays as its owner left it.
void pcd_log_close(pcd_log_handle_t handle);
// The text of the last pcd_log_init failure of this process ("" when none).
const char* pcd_log_last_error(void);
// The English text of a result code of the log libraries ("database is locked").
const char* pcd_log_result_text(int result);

// Test hook: after `skip` more calls of the log libraries succeed (retrieve and append here,
// the trend log's reads and writes), the next `count` calls fail with SQLITE_BUSY without
// touching any file. Process-wide, since readers open their logs per request.
void pcd_log_inject_failure(int skip, int count);

namespace toolkit {

// The calls on one open event log. The object does not own the handle.
class CLog {
 public:
  // Stands for "no limit" in retrieve's `max_count`.
  static constexpr int kNoLimit = INT32_MAX;

  explicit CLog(pcd_log_handle_t handle) : handle_(handle) {}

  // Replaces `records` with the records whose time stamp lies in [start, end] (a bound left
  // out is open) and whose source path is `path` or lies below it, component by component
  // ("/Meter1" takes "/Meter1/Voltage/Value", not "/Meter10"; "" and "/" take every
  // record). At most `max_count` records (none for 0 or less): the earliest ones, or with
  // `latest` the latest ones. The list is in time order, records of one time stamp in the
  // order they were appended; `reverse` gives the opposite order. `flags` is reserved, 0.
  // On failure `records` is empty.
  int retrieve(std::vector<CEvent>& records, const std::string& path,
               const std::optional<timeval>& start, const std::optional<timeval>& end,
               int max_count, bool latest, bool reverse, int flags);

  // Appends `records` in order, in one transaction: all of them or none. SQLITE_RANGE for a
  // time stamp outside the log's range (microseconds out of 0..999999, or beyond the year
  // 292277) or a value of the writers' sentinel type 7; SQLITE_READONLY for a read-only
  // connection.
  int append(const std::vector<CEvent>& records);

 private:
  pcd_log_handle_t handle_;
};

}  // namespace toolkit

#endif  // WSGATE_PLATFORM_LOG_H
