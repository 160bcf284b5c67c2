#include "maintenance/reset.h"

#include <cstdlib>
#include <cstring>

#include "platform/path.h"
#include "platform/reboot.h"

namespace {

std::string environmentText(const char* name) {
  const char* value = getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

int resetGateway(toolkit::CCds& cds, volatile std::sig_atomic_t* termination_flag,
                 std::string& result) {
  result.clear();
  if (!CPath("/").is_reset_authorized()) return kMaintenanceUnauthorized;
  // A reset that was asked for goes ahead even when its log line cannot be written.
  cds.syslog_add("", SYSLOG_CRITICAL,
                 "Network Card Reset requested via web services by " +
                     environmentText("REMOTE_USER") + " at " + environmentText("REMOTE_ADDR"),
                 "");
  // Set first, so that the loop ends after this request even when the reboot fails.
  if (termination_flag != nullptr) *termination_flag = 1;
  const int error = execRebootProgram();
  result = "? System Reboot Failed: ";
  result += strerror(error);
  return 0;
}
