// The registry of web-service callers: one record per remote address, user and transport,
// published under the Connections node by the sweep and withdrawn ten minutes after the
// caller was last seen.
#ifndef WSGATE_MAIN_CONNECTIONS_H
#define WSGATE_MAIN_CONNECTIONS_H

#include <string>

struct Server;

// Records the caller of a finished request. Anonymous callers and callers without an address
// use up a number but are never registered. A new record is only announced on stderr; the
// next sweep publishes it.
void recordCaller(Server& server, const char* address, const char* user, bool https);

// Called by the request loop every 5 to 6 seconds: pings the watchdog in daemon mode and, at
// most once a minute, publishes new records, withdraws records not seen for more than 600
// seconds and withdraws published entries that the table does not know.
void sweepConnections(Server& server);

// The reverse look-up of a caller's IPv4 address; the address itself when that fails.
std::string hostOfAddress(const std::string& address);

#endif  // WSGATE_MAIN_CONNECTIONS_H
