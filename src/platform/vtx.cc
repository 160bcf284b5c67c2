#include "platform/vtx.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <ctime>

namespace {

constexpr int64_t kMillisPerSecond = 1000;
constexpr int64_t kMicrosPerMilli = 1000;
constexpr int64_t kMicrosPerSecond = 1000000;

// The in-process test clock. A plain global is enough: the gateway's processes are
// single-threaded and only tests set it.
// Both clocks are kept in microseconds, so that short sleeps add up.
struct TestClock {
  bool active = false;
  int64_t utc_us = 0;
  int64_t mono_us = 0;
};
TestClock g_test_clock;

int64_t floorDiv(int64_t a, int64_t b) {
  int64_t q = a / b;
  return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

// The offset in milliseconds that the file named by WSGATE_TEST_CLOCK adds to both clocks.
// Read at every call so that a test can move a running daemon's clock; a missing,
// unreadable or malformed file adds nothing.
int64_t fileOffsetMillis() {
  const char* name = std::getenv("WSGATE_TEST_CLOCK");
  if (name == nullptr || *name == '\0') return 0;
  int fd = ::open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  char buf[64];
  ssize_t n = ::read(fd, buf, sizeof(buf) - 1);
  ::close(fd);
  if (n <= 0) return 0;
  buf[n] = '\0';
  char* end = nullptr;
  double seconds = std::strtod(buf, &end);
  if (end == buf || !std::isfinite(seconds) || std::fabs(seconds) > 1e12) return 0;
  return std::llround(seconds * kMillisPerSecond);
}

vtx_time64_t realUtcMillis() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return int64_t{ts.tv_sec} * kMillisPerSecond + ts.tv_nsec / 1000000;
}

bool localTime(vtx_time64_t utc, struct tm& out) {
  time_t t = static_cast<time_t>(floorDiv(utc, kMillisPerSecond));
  return localtime_r(&t, &out) != nullptr;
}

}  // namespace

uint32_t vtx_GetMonoTime(uint32_t* out) {
  int64_t seconds;
  if (g_test_clock.active) {
    seconds = g_test_clock.mono_us / kMicrosPerSecond;
  } else {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    seconds = ts.tv_sec;
  }
  seconds += floorDiv(fileOffsetMillis(), kMillisPerSecond);
  if (seconds < 0) seconds = 0;
  if (seconds > UINT32_MAX) seconds = UINT32_MAX;
  uint32_t mono = static_cast<uint32_t>(seconds);
  if (out != nullptr) *out = mono;
  return mono;
}

vtx_time64_t vtx_UTCtime64(void) {
  vtx_time64_t base =
      g_test_clock.active ? floorDiv(g_test_clock.utc_us, kMicrosPerMilli) : realUtcMillis();
  return base + fileOffsetMillis();
}

vtx_time_t vtx_UTCtime(vtx_time_t* out) {
  vtx_time_t now = vtx_UTCtime64();
  if (out != nullptr) *out = now;
  return now;
}

vtx_time64_t vtx_Localtime64(void) {
  vtx_time64_t utc = vtx_UTCtime64();
  struct tm local {};
  if (!localTime(utc, local)) return utc;
  return utc + int64_t{local.tm_gmtoff} * kMillisPerSecond;
}

const char* const* vtx_GetLocalTimeZoneName(void) {
  static const char* names[2];
  tzset();
  names[0] = tzname[0] != nullptr ? tzname[0] : "";
  names[1] = tzname[1] != nullptr ? tzname[1] : "";
  return names;
}

bool vtx_IsDaylightSavings(void) {
  struct tm local {};
  return localTime(vtx_UTCtime64(), local) && local.tm_isdst > 0;
}

struct timeval vtx_VTXtoUNIXtime64(vtx_time64_t t) {
  timeval tv{};
  tv.tv_sec = static_cast<time_t>(floorDiv(t, kMillisPerSecond));
  // The remainder directly: seconds times 1000 overflows at the ends of the range.
  int64_t millis = t % kMillisPerSecond;
  if (millis < 0) millis += kMillisPerSecond;
  tv.tv_usec = static_cast<suseconds_t>(millis * 1000);
  return tv;
}

void vtx_VTXtoUNIXtime(const vtx_time_t* in, struct timeval* out) {
  if (out == nullptr) return;
  *out = vtx_VTXtoUNIXtime64(in != nullptr ? *in : 0);
}

vtx_time64_t vtx_UNIXtoVTXtime64(const struct timeval* tv) {
  if (tv == nullptr) return 0;
  // Times beyond the 64-bit millisecond range (from a hostile record) stop at its ends.
  int64_t millis = 0;
  if (__builtin_mul_overflow(int64_t{tv->tv_sec}, kMillisPerSecond, &millis) ||
      __builtin_add_overflow(millis, floorDiv(tv->tv_usec, 1000), &millis)) {
    return tv->tv_sec < 0 ? INT64_MIN : INT64_MAX;
  }
  return millis;
}

void vtx_Sleep(uint32_t microseconds) {
  if (g_test_clock.active) {
    g_test_clock.utc_us += microseconds;
    g_test_clock.mono_us += microseconds;
    return;
  }
  timespec left{static_cast<time_t>(microseconds / kMicrosPerSecond),
                static_cast<long>(microseconds % kMicrosPerSecond) * 1000};
  // A signal (the termination signal of the daemon) cuts the wait short; the rest is waited
  // too, so a retry never comes early.
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

void vtx_SetTestClock(vtx_time64_t utc, uint32_t mono) {
  g_test_clock.active = true;
  g_test_clock.utc_us = utc * kMicrosPerMilli;
  g_test_clock.mono_us = int64_t{mono} * kMicrosPerSecond;
}

void vtx_ClearTestClock(void) {
  g_test_clock = TestClock();
}
