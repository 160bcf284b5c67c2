// The reboot program replaced in the test binaries that serve requests in-process (the unit
// tests and the request fuzzer): linked ahead of the platform library, this
// execRebootProgram counts its calls and fails as a missing program does, so a Reset that
// passes its rights check answers its failure text instead of restarting the machine.
#ifndef WSGATE_TESTS_FUZZ_FAKE_REBOOT_H
#define WSGATE_TESTS_FUZZ_FAKE_REBOOT_H

// How often the reboot program was asked for.
extern int g_reboot_requests;

#endif  // WSGATE_TESTS_FUZZ_FAKE_REBOOT_H
