// What an operation may reach of the process and of the request it serves: the Data store
// client, the log settings of the command line, the trend log reader, the caller, and the
// termination flag. The process's Server state is one (src/main fills it); operations see
// only this part of it, through the SOAP context of the request.
#ifndef WSGATE_SERVICE_CONTEXT_H
#define WSGATE_SERVICE_CONTEXT_H

#include <csignal>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/cds.h"

struct soap;
namespace toolkit::trend {
class CLog;
}

// Where the log databases are and how much a caller may ask of them (command line).
struct LogSettings {
  std::string delta_log_path = "./deadband.db";
  std::string event_log_path = "./alarms.db";
  std::string system_log_path = "./system.db";
  std::string trend_log_path = "./interval-trends.db";
  int32_t max_records = 10000;
  int32_t page_size = 0;    // bytes; 0 leaves the log library's default
  uint32_t cache_size = 0;  // bytes; 0 leaves the default
  uint32_t heap_limit = 0;  // bytes; 0 means no limit

  // One -m setting scales every log limit.
  int32_t deltaLogLimit() const { return max_records; }
  int32_t eventLogLimit() const { return max_records >> 2; }
  int32_t trendSnapshotLimit() const { return max_records / 12; }
};

// The web-service caller of the request being served, as the web server named it. Both
// texts are empty outside a request and when the web server sent none.
struct Caller {
  std::string user;
  std::string address;
  bool https = false;
};

struct ServiceContext {
  ServiceContext() = default;
  ServiceContext(const ServiceContext&) = delete;
  ServiceContext& operator=(const ServiceContext&) = delete;

  // The store, connected after the process has detached; shared by every request.
  toolkit::CCds cds;
  LogSettings logs;
  // Opened by the first trend request and kept for the life of the process.
  std::shared_ptr<toolkit::trend::CLog> trend_log;
  Caller caller;
  // Set to 1 to end the request loop once the current request has been answered.
  volatile std::sig_atomic_t* termination_flag = nullptr;
};

// The context of the request being served on `soap` (its user pointer).
ServiceContext& serviceContext(struct soap* soap);

#endif  // WSGATE_SERVICE_CONTEXT_H
