// The reset: a caller with the reset right restarts the whole gateway.
#ifndef WSGATE_MAINTENANCE_RESET_H
#define WSGATE_MAINTENANCE_RESET_H

#include <csignal>
#include <string>

#include "maintenance/node_maintenance.h"
#include "platform/cds.h"

// Without the reset right on "/" returns kMaintenanceUnauthorized and does nothing else.
// Otherwise adds "Network Card Reset requested via web services by USER at ADDRESS" (the
// request's REMOTE_USER and REMOTE_ADDR, "" when unset) to the system log with severity 2,
// sets `*termination_flag` (when not null) so that the request loop ends after this
// request, and replaces the process with the reboot program: on success it never returns.
// When the program cannot be started, returns 0 with `result` "? System Reboot Failed: "
// and the system's text for the error.
int resetGateway(toolkit::CCds& cds, volatile std::sig_atomic_t* termination_flag,
                 std::string& result);

#endif  // WSGATE_MAINTENANCE_RESET_H
