// Restarting the gateway: the reboot program that a reset hands the process over to.
#ifndef WSGATE_PLATFORM_REBOOT_H
#define WSGATE_PLATFORM_REBOOT_H

// The gateway's reboot program.
inline constexpr const char* kRebootProgram = "/sbin/reboot";

// Replaces this process's image with the reboot program, called with its name as the only
// argument, and when that fails with its name and "-f". Standard output and error are
// flushed first; descriptors without close-on-exec stay open in the program. Returns only
// when both attempts failed: the error number of the last one.
int execRebootProgram();

#endif  // WSGATE_PLATFORM_REBOOT_H
