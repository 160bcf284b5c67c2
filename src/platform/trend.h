// The trend log library: periodic snapshots of the trended parameters of the gateway's
// devices.
//
// A trend log is an SQLite file holding the rate periods (a number and the most entries a
// writer keeps per device), the trending devices, each device's parameters (path, sample
// type, which of minimum, maximum, average and actual it records) and the snapshots: per
// device, period and time stamp (whole seconds) the percentage of valid samples and one
// sample per parameter (minimum, maximum, average, actual and count; NaN where there is no
// value). Periods, devices and parameters are kept in the order they were written.
//
// Calls answer SQLite's primary result codes: 0 (SQLITE_OK) for success; SQLITE_CANTOPEN
// (14) for a file that cannot be opened, SQLITE_NOTADB (26) for a file that is not a trend
// log, SQLITE_BUSY (5) for a log locked by a writer, SQLITE_NOTFOUND (12) for an unknown
// device or (strict reads) parameter, SQLITE_CONSTRAINT (19) for content that breaks the
// log's rules, SQLITE_MISUSE (21) for a call on a log that is not open or was opened by
// another process (a connection never crosses a fork).
#ifndef WSGATE_PLATFORM_TREND_H
#define WSGATE_PLATFORM_TREND_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace logdb {
class Connection;
}

namespace toolkit::trend {

enum sample_type_t {
  SAMPLE_TYPE_NORMAL = 0,
  SAMPLE_TYPE_PF = 1,  // power factor
  SAMPLE_TYPE_LISTEND = 2,
};

struct CPeriodProperties {
  uint32_t period = 0;
  uint32_t max_entries = 0;
};

struct CDeviceProperties {
  std::string path;
};

struct CParamProperties {
  std::string path;
  sample_type_t type = SAMPLE_TYPE_NORMAL;
  bool has_min = true;
  bool has_max = true;
  bool has_avg = true;
  bool has_actual = true;
};

// What get_trend_data reads: a device and, in the order wanted, parameters of it.
struct CDeviceParams {
  std::string device_path;
  std::vector<std::string> param_paths;
};

// One parameter's values in a snapshot; NaN where there is none.
struct CSample {
  double min;
  double max;
  double avg;
  double actual;
  double count;
};

struct CSnapshot {
  uint32_t period = 0;
  time_t timestamp = 0;  // seconds since 1970
  double percent_valid = 0;
  std::vector<CSample> data;  // one per parameter
};

struct CDeviceData {
  std::vector<CSnapshot> snapshots;
};

// A device's whole content, as a writer gives it: its parameters and its snapshots (each
// with one sample per parameter, in parameter order).
struct CDeviceLog {
  std::string path;
  std::vector<CParamProperties> params;
  std::vector<CSnapshot> snapshots;
};

class CLog {
 public:
  CLog();
  ~CLog();  // closes the log
  CLog(const CLog&) = delete;
  CLog& operator=(const CLog&) = delete;

  // Opens the trend log at `path` (an open log is closed first).
  //   read_only        true: nothing can be written through this object
  //   create           true: a missing or empty file gets the trend log's schema (the log
  //                    is then writable)
  //   busy_timeout_ms  how long a call waits for a writer's lock; 0 fails at once
  //   wal              a file created here uses a write-ahead log, so that readers never
  //                    wait for the writer
  //   page_size        bytes; only a file created here takes it; 0 keeps SQLite's default
  //   cache_size       bytes of page cache; 0 keeps SQLite's default
  //   heap_limit       bytes, SQLite's soft heap limit for the whole process; 0 leaves it
  //   full_sync        writes wait until they are on the disk (SQLite's synchronous FULL)
  //                    rather than until they are in the write-ahead log
  // Returns 0, or a result code with last_error() saying why. A read-only open that finds
  // the log locked succeeds, and the first call reports the lock.
  int open(const std::string& path, bool read_only, bool create, int busy_timeout_ms, bool wal,
           int page_size, uint32_t cache_size, uint32_t heap_limit, bool full_sync);
  void close();
  bool is_open() const;
  const std::string& last_error() const { return error_; }

  // Each replaces its output with the log's content, in the order it was written.
  int get_periods(std::vector<CPeriodProperties>& periods);
  int get_devices(std::vector<CDeviceProperties>& devices);
  // SQLITE_NOTFOUND when the log has no such device.
  int get_params(const CDeviceProperties& device, std::vector<CParamProperties>& params);

  // The snapshots of `params.device_path` whose period is one of `periods` and whose time
  // stamp lies in [range.first, range.second] (seconds; a second bound of -1 leaves the
  // range open), in time order (`ascending`) or newest first; of snapshots with one time
  // stamp the smaller period comes first in ascending order. The first `offset` of them
  // are skipped and at most `max` (none for 0 or less) are returned, each with one sample
  // per parameter of `params.param_paths`, in that order. A parameter the device does not
  // have gives NaN samples, or with `strict` fails the call (SQLITE_NOTFOUND), as does an
  // unknown device.
  int get_trend_data(CDeviceData& data, const CDeviceParams& params,
                     const std::vector<uint32_t>& periods, std::pair<time_t, time_t> range, int max,
                     uint32_t offset, bool ascending, bool strict);

  // The writers' side: replaces the whole content of the log with `periods` and `devices`,
  // in one transaction (all of it or nothing). SQLITE_CONSTRAINT when period numbers,
  // device paths or a device's parameter paths repeat, a snapshot names a period that is
  // not listed, holds a number of samples other than its device's parameters, or shares
  // device, period and time stamp with another; SQLITE_READONLY for a read-only log.
  int replace(const std::vector<CPeriodProperties>& periods,
              const std::vector<CDeviceLog>& devices);

 private:
  int beginCall();

  std::unique_ptr<logdb::Connection> db_;
  std::string error_;
};

}  // namespace toolkit::trend

#endif  // WSGATE_PLATFORM_TREND_H
