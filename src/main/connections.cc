#include "main/connections.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "main/server_state.h"
#include "platform/path.h"
#include "platform/vtx.h"

namespace {

constexpr int32_t kSweepPeriod = 60;
constexpr int32_t kConnectionTimeout = 600;

int32_t monoNow() { return static_cast<int32_t>(vtx_GetMonoTime(nullptr)); }

}  // namespace

std::string hostOfAddress(const std::string& address) {
  in_addr_t raw = inet_addr(address.c_str());
  const hostent* entry = gethostbyaddr(&raw, 4, AF_INET);
  if (entry == nullptr || entry->h_name == nullptr) return address;
  return entry->h_name;
}

void recordCaller(Server& server, const char* address, const char* user, bool https) {
  // No separator between address and user, deliberately: the key format is fixed even
  // though one address being a prefix of another makes it ambiguous.
  std::string key = std::string(address) + user + (https ? "S" : "");
  auto found = server.connections.find(key);
  if (found != server.connections.end()) {
    found->second.last_seen = monoNow();
    return;
  }
  // The number is taken before the record is judged, so dropped callers leave gaps.
  ++server.connection_counter;
  if (address[0] == '\0' || user[0] == '\0') return;

  ConnectionRecord record;
  record.number = std::to_string(server.connection_counter) + (https ? "S" : "");
  record.address = address;
  record.user = user;
  record.https = https;
  record.last_seen = monoNow();
  record.host = hostOfAddress(record.address);
  fprintf(stderr, "New wsgated connection %s for %s \n", record.number.c_str(), key.c_str());
  server.connections.emplace(std::move(key), std::move(record));
}

void sweepConnections(Server& server) {
  if (g_daemon_mode) server.cds.watchdog_ping();

  int32_t now = monoNow();
  if (now < static_cast<int32_t>(server.next_sweep_time)) return;
  server.next_sweep_time = static_cast<uint32_t>(now + kSweepPeriod);

  std::vector<std::string> published;
  if (CPath(kConnectionsPath).getAttributeList("Children", server.cds, published) != 0) {
    published.clear();
  }

  int32_t stale_before = monoNow() - kConnectionTimeout;
  for (auto it = server.connections.begin(); it != server.connections.end();) {
    ConnectionRecord& record = it->second;
    auto listed = std::find(published.begin(), published.end(), record.number);
    if (listed == published.end()) {
      server.connxns.AddConnxn(record.number, record.address, record.host, record.user);
      ++it;
      continue;
    }
    published.erase(listed);
    if (record.last_seen < stale_before) {
      server.connxns.RemoveConnxn(record.number);
      fprintf(stderr, "Timed out connection %s for %s \n", record.number.c_str(),
              record.address.c_str());
      it = server.connections.erase(it);
    } else {
      ++it;
    }
  }
  // Whatever is still listed was published by someone else, e.g. an earlier run.
  for (const std::string& number : published) {
    fprintf(stderr, "Unexpected removal of connection %s %s \n", kConnectionsPath,
            number.c_str());
    server.connxns.RemoveConnxn(number);
  }
}
