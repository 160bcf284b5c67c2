#include "main/server_state.h"

#include "soapH.h"

bool g_daemon_mode = true;
volatile std::sig_atomic_t g_terminate = 0;

Server::~Server() {
  if (cds.connected()) pcd_close(cds.handle());
}

Server& serverOf(struct soap* soap) { return static_cast<Server&>(serviceContext(soap)); }
