#include "fake_reboot.h"

#include <cerrno>

#include "platform/reboot.h"

int g_reboot_requests = 0;

int execRebootProgram() {
  ++g_reboot_requests;
  return ENOENT;
}
