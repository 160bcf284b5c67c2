// wsgated: the gateway's web-services data server, a FastCGI application.
#include <malloc.h>

#include <cstdio>
#include <cstdlib>

#include "main/command_line.h"
#include "main/crash_reporter.h"
#include "main/process.h"
#include "main/request_loop.h"
#include "main/server_state.h"
#include "main/serve.h"
#include "soapH.h"

namespace {

constexpr unsigned kWatchdogPeriod = 90;
constexpr int kLargeBlockBytes = 128 << 10;

// Orderly stop after the request loop returned, in the reverse order of start-up.
int shutDown(Server& server, struct soap* soap, const char* program) {
  soap_destroy(soap);
  soap_end(soap);
  soap_free(soap);
  fprintf(stderr, "Stopping %s \n", program);
  server.swinfo.SetAppStatus(APP_STATUS_STOPPED);
  if (g_daemon_mode) {
    api_status_t status;
    server.cds.watchdog_clear(status);
  }
  server.trend_log.reset();
  server.connxns.RemoveAllConnxns();
  server.connections.clear();
  pcd_close(server.cds.handle());
  server.cds.set_handle(nullptr);
  restoreTerminationSignals();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Buffers above 128 KiB (a long text, a large list) are mapped and unmapped with each
  // request. Left to itself, the allocator raises this threshold to the largest block ever
  // freed and serves such buffers from the heap after that, which then never shrinks back:
  // one request with a 1 MB text left the daemon 70 % larger for good.
  mallopt(M_MMAP_THRESHOLD, kLargeBlockBytes);
  installTerminationHandler();
  installCrashReporter();

  Server server;
  int parsed = parseCommandLine(argc, argv, server.logs, stdout, stderr);
  if (parsed >= 0) return parsed;

  if (g_daemon_mode && !detachProcess()) {
    fputs("Error fork()ing new process\n", stderr);
    return 1;
  }
  // Only now, in the process that serves: a store connection carried across the fork would
  // keep the detached daemon on its own copy of the store's shared memory, blind to what
  // every other gateway process writes (and they to what it writes).
  server.cds.set_handle(pcd_init(0));
  if (!server.cds.connected()) {
    fputs("Error: CCds::init() failed\n", stderr);
    return 1;
  }

  struct soap* soap = soap_new();
  soap_init(soap);
  soap->user = static_cast<ServiceContext*>(&server);
  server.termination_flag = &g_terminate;
  configureContext(soap);

  server.swinfo.SetPath(kAppPath);
  server.connxns.SetPath(kConnectionsPath);
  server.connection_counter = 0;
  server.swinfo.SetAppStatus(APP_STATUS_RUNNING);
  server.swinfo.SetAppError(APP_ERROR_NONE);
  if (g_daemon_mode) {
    api_status_t status;
    server.cds.watchdog_register(status, "wsgated", kWatchdogPeriod, true);
  }

  runRequestLoop(soap);
  return shutDown(server, soap, argv[0]);
}
