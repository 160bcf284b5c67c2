// The crash back-trace reporter: on a fatal signal, a symbolic back-trace of the thread to
// stdout and to the system log (LOG_CRIT), then exit with the signal number as status.
#ifndef WSGATE_MAIN_CRASH_REPORTER_H
#define WSGATE_MAIN_CRASH_REPORTER_H

#include <cstdio>
#include <string>

// Installs the reporter for SIGQUIT, SIGILL, SIGTRAP, SIGABRT, SIGBUS, SIGFPE, SIGSEGV and
// SIGSTKFLT. Installed after the termination handler, it takes SIGQUIT over.
void installCrashReporter();

// One line of backtrace_symbols() as the reporter resolves it.
struct FrameLine {
  bool has_address = false;  // the line holds " [0x"
  unsigned long address = 0;
  std::string executable;  // text before the first "(", else up to the blank before "[0x"
  std::string symbol;      // name offered to the demangler
};
FrameLine parseFrameLine(const char* line);

// Writes one frame's resolution (demangled name, addr2line output) to `out`.
void resolveFrame(const char* line, FILE* out);

#endif  // WSGATE_MAIN_CRASH_REPORTER_H
