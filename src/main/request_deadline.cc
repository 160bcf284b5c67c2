#include "main/request_deadline.h"

#include <sys/socket.h>

#include <csignal>
#include <ctime>

namespace {

constexpr long kGraceMilliseconds = 1000;

timer_t g_timer;
// The connection under the deadline (-1: none) and how often the timer has expired for it.
// Written by the loop while the timer is stopped, read by the handler.
volatile std::sig_atomic_t g_fd = -1;
volatile std::sig_atomic_t g_expiries = 0;

void onDeadline(int) {
  const int fd = g_fd;
  if (fd < 0) {
    // The request it was armed for is finished: stop the timer's repeats, so that an idle
    // daemon is not woken every grace second (timer_settime is async-signal-safe).
    itimerspec off{};
    timer_settime(g_timer, 0, &off, nullptr);
    return;
  }
  const int expiries = ++g_expiries;
  shutdown(fd, expiries == 1 ? SHUT_RD : SHUT_RDWR);
}

timespec after(long milliseconds) {
  return {milliseconds / 1000, (milliseconds % 1000) * 1000000};
}

}  // namespace

bool installRequestDeadline() {
  struct sigaction action {};
  action.sa_handler = onDeadline;
  sigemptyset(&action.sa_mask);
  // Deliberately no SA_RESTART: a read or write blocked at the deadline must return.
  action.sa_flags = 0;
  if (sigaction(SIGALRM, &action, nullptr) != 0) return false;
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGALRM;
  return timer_create(CLOCK_MONOTONIC, &event, &g_timer) == 0;
}

void armRequestDeadline(int fd, long milliseconds) {
  g_fd = -1;  // the timer still running for an earlier connection now does nothing
  itimerspec when{after(kGraceMilliseconds), after(milliseconds > 0 ? milliseconds : 1)};
  timer_settime(g_timer, 0, &when, nullptr);
  // Only now: an expiry of the earlier timer must not reach this connection. One of this
  // timer's that came first (a deadline already past) is repeated a grace second later.
  g_expiries = 0;
  g_fd = fd;
}

void releaseRequestDeadline() {
  g_fd = -1;
}

void disarmRequestDeadline() {
  itimerspec off{};
  timer_settime(g_timer, 0, &off, nullptr);
  g_fd = -1;
}
