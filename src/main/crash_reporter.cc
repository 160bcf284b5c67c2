#include "main/crash_reporter.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <syslog.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

// Everything here runs inside a signal handler and is not async-signal-safe (printf, syslog,
// malloc in backtrace_symbols, system). That is accepted: the process ends right afterwards,
// and a best-effort report beats none.

namespace {

constexpr int kCrashSignals[] = {SIGQUIT, SIGILL, SIGTRAP, SIGABRT,
                                 SIGBUS,  SIGFPE, SIGSEGV, SIGSTKFLT};
constexpr size_t kLineBuffer = 384;
constexpr int kMaxFrames = 512;

[[noreturn]] void reportCrash(int signo, siginfo_t*, void*) {
  const char* description = strsignal(signo);
  void* frames[kMaxFrames];
  int count = backtrace(frames, kMaxFrames);
  char** lines = backtrace_symbols(frames, count);

  printf("\n###### BACK TRACE START (%s) ######\n", description);
  syslog(LOG_CRIT, "###### BACK TRACE START (%s) ######", description);
  for (long i = 0; lines != nullptr && i < count; ++i) {
    printf("[%ld] %s ", i, lines[i]);
    syslog(LOG_CRIT, "[%ld] %s ", i, lines[i]);
    fflush(stdout);
    resolveFrame(lines[i], stdout);
    fflush(stdout);
  }
  printf("###### BACK TRACE END (%s) ######\n", description);
  syslog(LOG_CRIT, "###### BACK TRACE END (%s) ######", description);
  fflush(stdout);
  free(lines);
  exit(signo);
}

}  // namespace

FrameLine parseFrameLine(const char* line) {
  FrameLine frame;
  const char* bracket = strstr(line, " [0x");
  if (bracket == nullptr) return frame;
  frame.has_address = true;
  frame.address = strtoul(bracket + 2, nullptr, 16);

  const char* paren = strchr(line, '(');
  frame.executable = paren ? std::string(line, paren) : std::string(line, bracket + 1);

  // The symbol is the text between "(" and the first "+" or ")" after it; without such a
  // pair the whole (bounded) line goes to the demangler, which then fails.
  std::string copy(line, strnlen(line, kLineBuffer - 1));
  size_t open = copy.find('(');
  size_t close = open == std::string::npos ? open : copy.find_first_of("+)", open + 1);
  frame.symbol = close == std::string::npos ? copy : copy.substr(open + 1, close - open - 1);
  return frame;
}

void resolveFrame(const char* line, FILE* out) {
  FrameLine frame = parseFrameLine(line);
  if (!frame.has_address) {
    fputs("\n", out);
    return;
  }
  int status = -1;
  char* demangled = abi::__cxa_demangle(frame.symbol.c_str(), nullptr, nullptr, &status);
  bool named = status == 0 && demangled != nullptr && demangled[0] != '?';
  if (named) {
    fprintf(out, "-> %s \n", demangled);
    syslog(LOG_CRIT, "    -> %s", demangled);
  }
  free(demangled);

  char command[kLineBuffer];
  snprintf(command, sizeof command, "addr2line -e %s 0x%lx > /dev/null 2>&1;",
           frame.executable.c_str(), frame.address);
  fflush(out);
  if (system(command) == 0) {
    snprintf(command, sizeof command,
             named ? "addr2line -e %s 0x%lx;" : "addr2line -e %s -f 0x%lx;",
             frame.executable.c_str(), frame.address);
    (void)!system(command);
  } else if (!named) {
    fputs("\n", out);
  }
}

void installCrashReporter() {
  sigset_t set;
  sigemptyset(&set);
  for (int signo : kCrashSignals) sigaddset(&set, signo);
  sigprocmask(SIG_BLOCK, &set, nullptr);

  struct sigaction action {};
  action.sa_sigaction = reportCrash;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO;
  for (int signo : kCrashSignals) sigaction(signo, &action, nullptr);

  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}
