#include "platform/vtx.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "store_fixture.h"

namespace {

using wsgate_test::ScopedEnv;

TEST(VtxTest, ConversionsRoundDownAndRoundTrip) {
  for (vtx_time64_t t : std::initializer_list<vtx_time64_t>{0, 1, -1, -999, -1000, -1001,
                                                            1700000000123, INT64_MIN, INT64_MAX}) {
    timeval tv = vtx_VTXtoUNIXtime64(t);
    EXPECT_TRUE(tv.tv_usec >= 0 && tv.tv_usec < 1000000) << t;
    EXPECT_EQ(vtx_UNIXtoVTXtime64(&tv), t);
  }
  timeval tv = vtx_VTXtoUNIXtime64(-1);
  EXPECT_EQ(tv.tv_sec * 1000000 + tv.tv_usec, -1000);
  timeval odd{-1, 999999};  // -1 µs rounds down to -1 ms
  EXPECT_EQ(vtx_UNIXtoVTXtime64(&odd), -1);
  vtx_time_t in = 1500;
  vtx_VTXtoUNIXtime(&in, &tv);
  EXPECT_EQ(tv.tv_sec * 1000000 + tv.tv_usec, 1500000);
  EXPECT_EQ(vtx_UNIXtoVTXtime64(nullptr), 0);
  // Seconds beyond the millisecond range stop at its ends.
  timeval far{INT64_MAX, 0}, before{INT64_MIN, 0};
  EXPECT_EQ(vtx_UNIXtoVTXtime64(&far), INT64_MAX);
  EXPECT_EQ(vtx_UNIXtoVTXtime64(&before), INT64_MIN);
}

// The end-to-end tests move the clock through this file; here what it may hold.
TEST(VtxTest, ClockFileShiftsBothClocksAtEveryCall) {
  wsgate_test::TempStore dir;  // only for its temporary directory
  std::string file = dir.dir() + "/clock";
  ScopedEnv env("WSGATE_TEST_CLOCK", file);
  vtx_SetTestClock(1000000, 10);
  vtx_time_t out = 0;
  EXPECT_EQ(vtx_UTCtime(&out), 1000000);  // no file yet: nothing added
  EXPECT_EQ(out, 1000000);
  std::ofstream(file) << "600\n";
  EXPECT_EQ(vtx_UTCtime64(), 1600000);
  EXPECT_EQ(vtx_GetMonoTime(nullptr), 610u);
  std::ofstream(file) << "-20";
  EXPECT_EQ(vtx_GetMonoTime(nullptr), 0u);  // never below zero
  std::ofstream(file) << "garbage";
  EXPECT_EQ(vtx_UTCtime64(), 1000000);
  vtx_ClearTestClock();
}

class ZoneTest : public testing::Test {
 protected:
  ZoneTest() { tzset(); }
  ~ZoneTest() override {
    vtx_ClearTestClock();
    tz_.reset();
    tzset();  // the rest of the process goes back to its own zone
  }
  std::unique_ptr<ScopedEnv> tz_ = std::make_unique<ScopedEnv>("TZ", "EST5EDT,M3.2.0,M11.1.0");
};

TEST_F(ZoneTest, LocalTimeFollowsTheZoneAndDaylightSaving) {
  const char* const* names = vtx_GetLocalTimeZoneName();
  EXPECT_STREQ(names[0], "EST");
  EXPECT_STREQ(names[1], "EDT");
  const vtx_time64_t july = 1720000000000LL;     // 2024-07-03
  const vtx_time64_t january = 1705000000000LL;  // 2024-01-11
  vtx_SetTestClock(july, 0);
  EXPECT_TRUE(vtx_IsDaylightSavings());
  EXPECT_EQ(vtx_Localtime64(), july - 4 * 3600 * 1000LL);
  vtx_SetTestClock(january, 0);
  EXPECT_FALSE(vtx_IsDaylightSavings());
  EXPECT_EQ(vtx_Localtime64(), january - 5 * 3600 * 1000LL);
}

}  // namespace
