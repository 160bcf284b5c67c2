// The one process-wide Server state, reachable from every request through the gSOAP
// context's user pointer.
#ifndef WSGATE_MAIN_SERVER_STATE_H
#define WSGATE_MAIN_SERVER_STATE_H

#include <csignal>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "platform/cds.h"
#include "platform/connxns.h"
#include "platform/swinfo.h"
#include "service/context.h"

struct FCGX_Request;
struct soap;

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

// The process-wide state: what operations see (ServiceContext, whose store client is
// connected after the process detached) and what only the loop and start-up use.
struct Server : ServiceContext {
  Server() = default;
  // Closes the store client when it is still connected.
  ~Server();

  CCds_SwInfo swinfo{kAppPath, &cds};
  CCDS_Connxns connxns{kConnectionsPath, &cds, &cds};
  FCGX_Request* current_request = nullptr;
  uint32_t connection_counter = 0;
  uint32_t next_sweep_time = 0;  // monotonic seconds
  std::unordered_map<std::string, ConnectionRecord> connections;
};

// The Server state of the request being served.
Server& serverOf(struct soap* soap);

// Process-wide flags, deliberately plain globals: the termination flag is written by the
// signal handler (and by a reset request) and polled by the request loop.
extern bool g_daemon_mode;
extern volatile std::sig_atomic_t g_terminate;

#endif  // WSGATE_MAIN_SERVER_STATE_H
