// The log and trend operations' tests: a request context whose logs and (empty) store live
// in a temporary directory, a SOAP context to call the service functions with, and the test
// clock, so that the operations' retry waits pass without waiting (the clock says how long
// they took).
#ifndef WSGATE_TESTS_UNIT_LOGS_FIXTURE_H
#define WSGATE_TESTS_UNIT_LOGS_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/event.h"
#include "platform/log.h"
#include "platform/trend.h"
#include "platform/vtx.h"
#include "soap_fixture.h"
#include "store_fixture.h"

namespace wsgate_test {

class LogServiceTest : public ::testing::Test {
 private:
  TempStore dir_;  // the store and the logs; declared first, so removed last

 protected:
  static constexpr vtx_time64_t kNow = 1700000000000;

  LogServiceTest() {
    context.logs.delta_log_path = dir_.dir() + "/deadband.db";
    context.logs.event_log_path = dir_.dir() + "/alarms.db";
    context.logs.system_log_path = dir_.dir() + "/system.db";
    context.logs.trend_log_path = dir_.dir() + "/interval-trends.db";
    context.cds.set_handle(dir_.open());
    vtx_SetTestClock(kNow, 0);
  }
  ~LogServiceTest() override {
    context.cds.set_handle(nullptr);
    pcd_log_inject_failure(0, 0);
    vtx_ClearTestClock();
  }

  // Replaces the trend log's content.
  void writeTrends(const std::vector<toolkit::trend::CPeriodProperties>& periods,
                   const std::vector<toolkit::trend::CDeviceLog>& devices) {
    toolkit::trend::CLog writer;
    ASSERT_EQ(writer.open(context.logs.trend_log_path, false, true, 0, true, 0, 0, 0, false), 0);
    ASSERT_EQ(writer.replace(periods, devices), 0);
  }
  // Appends records to the event log at `path`.
  void appendEvents(const std::string& path, const std::vector<toolkit::CEvent>& records) {
    pcd_log_handle_t handle = nullptr;
    ASSERT_EQ(pcd_log_init(path.c_str(), &handle, 1, 1, 0, 1, 1, 0, 0, 0, 0), 0);
    EXPECT_EQ(toolkit::CLog(handle).append(records), 0);
    pcd_log_close(handle);
  }
  // What `call` writes on standard error.
  template <typename Call>
  static std::string stderrOf(Call call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
  }
  // Seconds that the operations waited on the test clock.
  double waitedSeconds() const { return (vtx_UTCtime64() - kNow) / 1000.0; }

  std::string* text(const std::string& value) {
    std::string* out = soap_new_std__string(soap);
    *out = value;
    return out;
  }

  ServiceContext context;
  SoapContext soap_context{&context};
  struct soap* soap = soap_context.get();
};

}  // namespace wsgate_test

#endif  // WSGATE_TESTS_UNIT_LOGS_FIXTURE_H
