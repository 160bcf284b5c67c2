// The gateway's time library.
//
// Platform time ("vtx time") is a signed 64-bit count of milliseconds since
// 1970-01-01T00:00:00Z. Monotonic time is whole seconds of CLOCK_MONOTONIC.
//
// Every clock reading of the gateway goes through these functions so that tests can drive
// time: vtx_SetTestClock() replaces both clocks in this process, and the environment
// variable WSGATE_TEST_CLOCK names a file holding a number of seconds that is added to both
// clocks of any process (read at each call; a missing or unreadable file adds nothing). The
// file lets a test move a running daemon's clock without waiting.
#ifndef WSGATE_PLATFORM_VTX_H
#define WSGATE_PLATFORM_VTX_H

#include <sys/time.h>

#include <cstdint>

typedef int64_t vtx_time64_t;
typedef int64_t vtx_time_t;

// Monotonic seconds. When `out` is not null the value is also stored there.
uint32_t vtx_GetMonoTime(uint32_t* out);

// Current UTC time. vtx_UTCtime stores it in `out` when not null and returns it.
vtx_time_t vtx_UTCtime(vtx_time_t* out);
vtx_time64_t vtx_UTCtime64(void);

// Current local wall-clock time: UTC plus the local offset in force (including daylight
// saving), as platform time.
vtx_time64_t vtx_Localtime64(void);

// The pair of zone names (standard, daylight) from tzset(). Never null; either text may be
// empty.
const char* const* vtx_GetLocalTimeZoneName(void);

// True when daylight saving time is in force now.
bool vtx_IsDaylightSavings(void);

// Conversions between platform time and timeval. Milliseconds below zero round towards
// minus infinity, so every timeval with a whole number of milliseconds round-trips.
void vtx_VTXtoUNIXtime(const vtx_time_t* in, struct timeval* out);
struct timeval vtx_VTXtoUNIXtime64(vtx_time64_t t);
vtx_time64_t vtx_UNIXtoVTXtime64(const struct timeval* tv);

// Waits `microseconds`. While the in-process test clock is set, both of its clocks move
// forward by that much instead and the call returns at once, so that a test of a retry loop
// never waits; the clock file of WSGATE_TEST_CLOCK does not change the wait.
void vtx_Sleep(uint32_t microseconds);

// Test hook: from now on this process reads `utc` as the UTC time and `mono` as the
// monotonic time, until the hook is changed or cleared. Never used by production code.
void vtx_SetTestClock(vtx_time64_t utc, uint32_t mono);
void vtx_ClearTestClock(void);

#endif  // WSGATE_PLATFORM_VTX_H
