#include "platform/reboot.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

int execRebootProgram() {
  fflush(nullptr);
  execl(kRebootProgram, kRebootProgram, static_cast<char*>(nullptr));
  // The forced form is tried as the gateway's tools always have, although an exec that
  // failed once rarely succeeds with other arguments.
  execl(kRebootProgram, kRebootProgram, "-f", static_cast<char*>(nullptr));
  return errno;
}
