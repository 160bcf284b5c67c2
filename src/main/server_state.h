// The one process-wide Server state, reachable from every request through the gSOAP
// context's user pointer.
#ifndef WSGATE_MAIN_SERVER_STATE_H
#define WSGATE_MAIN_SERVER_STATE_H

#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "platform/cds.h"
#include "platform/connxns.h"
#include "platform/swinfo.h"

struct FCGX_Request;
struct soap;
namespace toolkit::trend {
class CLog;
}

// The store node under which the server publishes its status, and its connections.
inline constexpr const char* kAppPath = "/Software/Data Servers/BACnet WebServices";
inline constexpr const char* kConnectionsPath =
    "/Software/Data Servers/BACnet WebServices/Connections";

// One web-service caller seen by the request loop (one per address, user and transport).
struct ConnectionRecord {
  std::string number;   // decimal number, with "S" appended for an HTTPS caller
  std::string host;     // reverse look-up of the address, or the address itself
  std::string address;  // remote address as received
  std::string user;     // remote user as received
  bool https = false;   // transport of the request that created the record
  int32_t last_seen = 0;  // monotonic seconds of the latest request
};

struct Server {
  // Connects the store client (pcd_init(0)); a failure leaves it unconnected.
  Server();
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  toolkit::CCds cds;
  CCds_SwInfo swinfo{kAppPath, &cds};
  CCDS_Connxns connxns{kConnectionsPath, &cds, &cds};
  std::string delta_log_path = "./deadband.db";
  std::string event_log_path = "./alarms.db";
  std::string system_log_path = "./system.db";
  std::shared_ptr<toolkit::trend::CLog> trend_log;
  std::string trend_log_path = "./interval-trends.db";
  int32_t max_records = 10000;
  int32_t page_size = 0;    // bytes; 0 leaves the log library's default
  uint32_t cache_size = 0;  // bytes; 0 leaves the default
  uint32_t heap_limit = 0;  // bytes; 0 means no limit
  FCGX_Request* current_request = nullptr;
  uint32_t connection_counter = 0;
  uint32_t next_sweep_time = 0;  // monotonic seconds
  std::unordered_map<std::string, ConnectionRecord> connections;

  // One -m setting scales every log limit.
  int32_t deltaLogLimit() const { return max_records; }
  int32_t eventLogLimit() const { return max_records >> 2; }
  int32_t trendSnapshotLimit() const { return max_records / 12; }
};

// The Server state of the request being served.
Server& serverOf(struct soap* soap);

// Process-wide flags, deliberately plain globals: the termination flag is written by the
// signal handler (and by a reset request) and polled by the request loop.
extern bool g_daemon_mode;
extern volatile std::sig_atomic_t g_terminate;

#endif  // WSGATE_MAIN_SERVER_STATE_H
