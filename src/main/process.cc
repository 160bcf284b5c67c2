#include "main/process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "main/server_state.h"

namespace {

constexpr int kTerminationSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

void onTerminationSignal(int signo) {
  // Only the four termination signals (bits 1, 2, 3 and 15) count.
  if (signo > 0 && signo < 32 && ((1u << signo) & 0x800eu)) g_terminate = 1;
}

}  // namespace

bool detachProcess() {
  pid_t child = fork();
  if (child < 0) return false;
  if (child > 0) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
      if (errno != EINTR) return false;
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
    exit(0);
  }
  setsid();
  pid_t daemon = fork();
  if (daemon < 0) _exit(1);
  if (daemon > 0) _exit(0);

  if (chdir("/") != 0) return false;
  close(0);
  close(1);
  close(2);
  if (open("/dev/null", O_RDWR) != 0) return false;
  if (dup(0) != 1 || dup(0) != 2) return false;
  umask(022);
  return true;
}

void installTerminationHandler() {
  struct sigaction action {};
  action.sa_handler = onTerminationSignal;
  sigemptyset(&action.sa_mask);
  // Reads and writes of a request in progress resume after the signal, so that a restart
  // under traffic still answers the request being received. select() is never resumed,
  // whatever the flag, so the loop still sees the signal at once when it is waiting.
  action.sa_flags = SA_RESTART;
  for (int signo : kTerminationSignals) sigaction(signo, &action, nullptr);
}

void restoreTerminationSignals() {
  for (int signo : kTerminationSignals) signal(signo, SIG_DFL);
}
