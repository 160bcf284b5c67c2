#include "logs/log_retrieval.h"

#include <cstdio>
#include <optional>

#include "platform/log.h"
#include "platform/vtx.h"
#include "service/errors.h"
#include "service/options.h"

namespace {

constexpr int kAttempts = 5;
// Only the first three attempts count as a success; a later one still returns its records.
constexpr int kAttemptsThatSucceed = 3;
constexpr uint32_t kRetryWaitMicros = 1000000;

// The log library's fixed arguments for a reader: the file must exist, no writes, a locked
// log fails a read at once (this routine waits between its own attempts), the log's
// write-ahead journal and normal syncing are the writers' settings.
constexpr int kCreate = 0;
constexpr int kWritable = 0;
constexpr int kBusyTimeoutMs = 0;
constexpr int kWal = 1;
constexpr int kSynchronous = 1;

// Drops the records at the end of `records` that share the last record's time stamp when the
// log holds more records of that time stamp than the list does: the group was cut by the
// limit. Returns the size of the whole group then, 0 otherwise.
int trimIncompleteGroup(toolkit::CLog& log, const std::string& path,
                        std::vector<toolkit::CEvent>& records) {
  const timeval last = records.back().timestamp;
  size_t tail = 0;
  while (tail < records.size()) {
    const timeval& t = records[records.size() - 1 - tail].timestamp;
    if (t.tv_sec != last.tv_sec || t.tv_usec != last.tv_usec) break;
    ++tail;
  }
  std::vector<toolkit::CEvent> group;
  if (log.retrieve(group, path, last, last, toolkit::CLog::kNoLimit, false, false, 0) != 0 ||
      group.size() <= tail) {
    return 0;
  }
  records.resize(records.size() - tail);
  // The size of the whole group, not of the part dropped, deliberately.
  return static_cast<int>(group.size());
}

}  // namespace

int retrieveLogRecords(const LogSettings& settings, const std::string& db_path,
                       const nsqv__logRetrieveRequest& request, int limit, std::string& result,
                       int& trimmed, std::vector<toolkit::CEvent>& records) {
  const RequestOptions options = parseOptions(request.options);
  trimmed = 0;
  if (request.nMaxToReturn > limit) {
    formatError(kWsResultTooBig, "Please request less than " + std::to_string(limit) + " records.",
                result, &options);
    return -1;
  }
  result.clear();
  pcd_log_handle_t handle = nullptr;
  int rc =
      pcd_log_init(db_path.c_str(), &handle, kCreate, kWritable, kBusyTimeoutMs, kWal, kSynchronous,
                   settings.page_size, settings.cache_size, settings.heap_limit, 0);
  if (rc != 0) {
    // The same words for every log, the delta log included, deliberately.
    formatError(kWsNoHistory, "Failed to open event log database", result, &options);
    fprintf(stderr, "Failed to open database %s, dbResult = %d \n", db_path.c_str(), rc);
    return rc;
  }
  toolkit::CLog log(handle);
  records.clear();
  std::optional<timeval> start = vtx_VTXtoUNIXtime64(request.startTime);
  if (start->tv_sec == -1) start.reset();
  std::optional<timeval> end;
  if (request.endTime > 0) end = vtx_VTXtoUNIXtime64(request.endTime);
  const int max = request.nMaxToReturn == 0 ? limit : request.nMaxToReturn;
  const std::string path = request.path != nullptr ? *request.path : std::string();

  int attempt = 1;
  for (;; ++attempt) {
    rc = log.retrieve(records, path, start, end, max, request.bLatestEvents, request.bReverseOrder,
                      0);
    if (rc == 0) {
      if (max >= 1 && request.bTrimIncomplete && records.size() >= static_cast<size_t>(max)) {
        trimmed = trimIncompleteGroup(log, path, records);
      }
      break;
    }
    vtx_Sleep(kRetryWaitMicros);
    if (attempt == kAttempts) break;
  }
  if (rc != 0 || attempt > kAttemptsThatSucceed) {
    formatError(kWsNoDataAvailable, "Database retrieval failed with these params", result,
                &options);
    fprintf(stderr, "Failed to get events from database %s, dbResult = %d \n", db_path.c_str(), rc);
  }
  pcd_log_close(handle);
  return rc;
}
