// The trend operations: the reader kept by the process, the selection of periods, device and
// parameters, the limits, the NaN rule, the retries, and every error text with its line on
// standard error.
#include <cmath>
#include <string>
#include <vector>

#include "logs_fixture.h"

namespace {

using namespace toolkit::trend;
using wsgate_test::LogServiceTest;

const double kNaN = std::nan("");

// Periods 1 (96) and 2 (24); /Dev trends /Dev/A and /Dev/B (PF, no minimum) with snapshots
// at 1000 s and 2000 s (period 1) and 1500 s (period 2); /Empty trends nothing.
class TrendServiceTest : public LogServiceTest {
 protected:
  void SetUp() override {
    CDeviceLog dev{"/Dev",
                   {{"/Dev/A", SAMPLE_TYPE_NORMAL, true, true, true, true},
                    {"/Dev/B", SAMPLE_TYPE_PF, false, true, true, true}},
                   {{1, 1000, 100, {{1, 2, 3, 4, 15}, {kNaN, 0.9, 0.8, kNaN, 15}}},
                    {2, 1500, 50, {{5, 6, 7, 8, 60}, {kNaN, 1, 1, 1, 60}}},
                    {1, 2000, 75, {{9, 10, 11, 12, 15}, {kNaN, 0.7, kNaN, 0.6, 15}}}}};
    writeTrends({{1, 96}, {2, 24}}, {{"/Empty", {}, {}}, dev});
  }

  // A request for /Dev's /Dev/A of every period, all of the log, ascending.
  nsqv__getTrendDataRequest request(int max = 0) {
    nsqv__getTrendDataRequest r;
    r.options = nullptr;
    r.devicePath = text("/Dev");
    r.pointPaths = soap_new_nsqv__ArrayOfString(soap);
    r.pointPaths->string = {"/Dev/A"};
    r.periods = soap_new_nsqv__ArrayOfPeriod(soap);
    r.periods->period = {1, 2};
    r.startTime = 0;
    r.endTime = 0;
    r.nMaxToReturn = max;
    r.startingOffset = 0;
    r.ascendingOrder = true;
    return r;
  }

  // Calls getTrendData; returns the result, and the first sample's actual values joined.
  std::string data(nsqv__getTrendDataRequest r, std::string* values = nullptr,
                   std::string* err = nullptr) {
    nsqv__getTrendDataResponse response;
    testing::internal::CaptureStderr();
    EXPECT_EQ(nsqv__getTrendData(soap, &r, response), SOAP_OK);
    std::string written = testing::internal::GetCapturedStderr();
    if (err != nullptr) *err = written;
    if (values != nullptr) {
      values->clear();
      if (response.data != nullptr) {
        for (const nsqv__stSnapshot& s : response.data->samples->stSnapshot) {
          if (!values->empty()) *values += " ";
          *values += std::to_string(static_cast<int>(s.data->stSample.at(0).actual));
        }
      }
    }
    last_data_ = response.data;
    return response.result;
  }

  nsqv__stDeviceData* last_data_ = nullptr;
};

TEST_F(TrendServiceTest, PeriodsAndParamsInTheLogsOrder) {
  nsqv__getTrendPeriodsResponse periods;
  ASSERT_EQ(nsqv__getTrendPeriods(soap, nullptr, periods), SOAP_OK);
  EXPECT_EQ(periods.result, "OK");
  ASSERT_EQ(periods.periodProperties->stPeriodProperties.size(), 2u);
  EXPECT_EQ(periods.periodProperties->stPeriodProperties[1].period, 2u);
  EXPECT_EQ(periods.periodProperties->stPeriodProperties[1].max_entries, 24u);

  nsqv__getDeviceTrendParamsResponse params;
  testing::internal::CaptureStderr();
  ASSERT_EQ(nsqv__getDeviceTrendParams(soap, nullptr, text("/Dev"), params), SOAP_OK);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Returning 2 Trend parameters for device /Dev. \n");
  EXPECT_EQ(params.result, "OK");
  ASSERT_EQ(params.deviceParams->stParamProperties.size(), 2u);
  const nsqv__stParamProperties& b = params.deviceParams->stParamProperties[1];
  EXPECT_EQ(*b.path, "/Dev/B");
  EXPECT_EQ(b.type, nsqv__SampleType__SAMPLE_TYPE_PF);
  EXPECT_FALSE(b.hasMin);
  EXPECT_TRUE(b.hasMax && b.hasAvg && b.hasActual);
}

TEST_F(TrendServiceTest, DeviceErrorsAndTheKeptEmptyParameterCase) {
  const std::string unknown = "? 21 No History : No Trend data found for this device.";
  const std::string no_params = "? 21 No History : Failed to get Trend parameters for this device";
  struct Case {
    std::string* device;
    const char* result;
    const char* err;
  } cases[] = {
      {text("/Nope"), unknown.c_str(), "No Trend data found for device /Nope. \n"},
      {nullptr, unknown.c_str(), "No Trend data found for device . \n"},
      {text("/Dev/A"), unknown.c_str(), "No Trend data found for device /Dev/A. \n"},
      // No parameter: the error line, then "OK" with an empty list (kept as it is).
      {text("/Empty"), "OK",
       "Failed to get Trend parameters for device /Empty. \n"
       "Returning 0 Trend parameters for device /Empty. \n"},
  };
  for (const Case& c : cases) {
    nsqv__getDeviceTrendParamsResponse response;
    testing::internal::CaptureStderr();
    ASSERT_EQ(nsqv__getDeviceTrendParams(soap, nullptr, c.device, response), SOAP_OK);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.err);
    EXPECT_EQ(response.result, c.result);
  }
}

TEST_F(TrendServiceTest, TheLimitFollowsTheMaximumRecordsSetting) {
  std::string values;
  const std::string too_big = "? 34 Result Too Big to Return : Please request less than ";
  EXPECT_EQ(data(request(833), &values), "OK");
  EXPECT_EQ(values, "4 8 12");
  EXPECT_EQ(data(request(834)), too_big + "833 records.");
  context.logs.max_records = 24;  // limit 2
  EXPECT_EQ(data(request(3)), too_big + "2 records.");
  EXPECT_EQ(data(request(0), &values), "OK");  // 0: the limit
  EXPECT_EQ(values, "4 8");
  EXPECT_EQ(data(request(-1), &values), "OK");
  EXPECT_EQ(values, "");
  nsqv__getTrendDataRequest r = request(3);
  r.options = text("errorString=TOO MANY");
  EXPECT_EQ(data(r), "TOO MANY");
}

TEST_F(TrendServiceTest, SelectionOrderAndOffset) {
  std::string values;
  nsqv__getTrendDataRequest r = request();
  r.periods->period = {2, 7};
  EXPECT_EQ(data(r, &values), "OK");
  EXPECT_EQ(values, "8");
  r = request();
  r.ascendingOrder = false;
  r.startingOffset = 1;
  EXPECT_EQ(data(r, &values), "OK");
  EXPECT_EQ(values, "8 4");
  r = request();
  r.startTime = 1500000;  // ms: 1500 s to 1999 s, both ends included
  r.endTime = 1999999;
  EXPECT_EQ(data(r, &values), "OK");
  EXPECT_EQ(values, "8");
  r.endTime = 2000999;  // a bound within a second counts as that second
  EXPECT_EQ(data(r, &values), "OK");
  EXPECT_EQ(values, "8 12");
  EXPECT_EQ(last_data_->samples->stSnapshot[1].timestamp, 2000000);
  EXPECT_EQ(last_data_->samples->stSnapshot[1].percent_valid, 75);
}

TEST_F(TrendServiceTest, PeriodAndParameterErrors) {
  const std::string no_periods = "? 21 No History : No Trend periods data matching the request.";
  nsqv__getTrendDataRequest r = request();
  r.periods->period.clear();  // an empty list keeps no period
  std::string err;
  EXPECT_EQ(data(r, nullptr, &err), no_periods);
  EXPECT_EQ(err, "No Trend periods data matching the request. \n");
  r.periods = nullptr;
  EXPECT_EQ(data(r), no_periods);
  nsqv__getTrendDataResponse absent;  // an absent request has no period either
  testing::internal::CaptureStderr();
  ASSERT_EQ(nsqv__getTrendData(soap, nullptr, absent), SOAP_OK);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(absent.result, no_periods);
  r = request();
  r.devicePath = text("/Nope");
  EXPECT_EQ(data(r, nullptr, &err), "? 21 No History : No Trend data found for this device.");
  // Point paths that name no parameter: the error line, then "OK" with no parameter at all.
  r = request();
  r.pointPaths->string = {"/Dev/Nope"};
  EXPECT_EQ(data(r, nullptr, &err), "OK");
  EXPECT_EQ(err, "Failed to get Trend parameters for device /Dev. \n");
  EXPECT_TRUE(last_data_->params->stParamProperties.empty());
  ASSERT_EQ(last_data_->samples->stSnapshot.size(), 3u);
  EXPECT_TRUE(last_data_->samples->stSnapshot[0].data->stSample.empty());
}

TEST_F(TrendServiceTest, ParametersKeepTheDevicesOrderAndNaNIsSentAsAnInvalidZero) {
  nsqv__getTrendDataRequest r = request();
  r.pointPaths->string = {"/Dev/B", "/Dev/A"};
  r.periods->period = {1};
  ASSERT_EQ(data(r), "OK");
  const auto& params = last_data_->params->stParamProperties;
  ASSERT_EQ(params.size(), 2u);
  EXPECT_EQ(*params[0].path, "/Dev/A");
  const nsqv__stSample& b = last_data_->samples->stSnapshot[1].data->stSample.at(1);
  EXPECT_EQ(b.min, 0);
  EXPECT_FALSE(b.minValid);
  EXPECT_EQ(b.max, 0.7);
  EXPECT_TRUE(b.maxValid);
  EXPECT_EQ(b.avg, 0);
  EXPECT_FALSE(b.avgValid);
  EXPECT_EQ(b.actual, 0.6);
  EXPECT_TRUE(b.actualValid);
  r.pointPaths = nullptr;  // absent: every parameter
  ASSERT_EQ(data(r), "OK");
  EXPECT_EQ(last_data_->params->stParamProperties.size(), 2u);
}

// Fails the Nth call of the trend log once: get_periods, get_devices, get_params, then the
// first read of the data, which the retry recovers after one wait.
TEST_F(TrendServiceTest, EachFailedLogCallHasItsText) {
  const char* expected[] = {
      "? 21 No History : No Trend periods data matching the request.",
      "? 21 No History : No Trending devices found.",
      "? 21 No History : Failed to get Trend parameters for this device",
      "OK",
  };
  for (int n = 0; n < 4; ++n) {
    pcd_log_inject_failure(n, 1);
    EXPECT_EQ(data(request()), expected[n]) << "call " << n;
  }
  EXPECT_EQ(waitedSeconds(), 1);
}

TEST_F(TrendServiceTest, RetriesCountAsSuccessOnlyForTheFirstThreeAttempts) {
  const std::string failed =
      "? 22 No Data Available : Trend data retrieval failed with these params";
  struct Case {
    int failures;
    const char* result;
    bool has_data;
    double waited;
  } cases[] = {
      {2, "OK", true, 2},
      {3, failed.c_str(), true, 3},  // a late success keeps its data
      {4, failed.c_str(), true, 4},
      {5, failed.c_str(), false, 5},
  };
  double before = 0;
  for (const Case& c : cases) {
    pcd_log_inject_failure(3, c.failures);  // after get_periods, get_devices and get_params
    std::string values, err;
    EXPECT_EQ(data(request(), &values, &err), c.result) << c.failures;
    EXPECT_EQ(last_data_ != nullptr, c.has_data) << c.failures;
    EXPECT_EQ(waitedSeconds() - before, c.waited) << c.failures;
    before = waitedSeconds();
    if (c.result != std::string("OK")) {
      EXPECT_EQ(err, c.has_data ? "Failed to get Trend data, retval = 0 \n"
                                : "Failed to get Trend data, retval = 5 \n");
    }
  }
}

TEST_F(LogServiceTest, AFailedOpenIsRetriedByTheNextRequest) {
  nsqv__getTrendPeriodsResponse response;
  testing::internal::CaptureStderr();
  ASSERT_EQ(nsqv__getTrendPeriods(soap, nullptr, response), SOAP_OK);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Failed to open database " + context.logs.trend_log_path + " \n");
  EXPECT_EQ(response.result, "? 21 No History : Failed to open trend log database");
  EXPECT_EQ(context.trend_log, nullptr);
  nsqv__getTrendDataRequest r;
  r.nMaxToReturn = 0;
  nsqv__getTrendDataResponse data;
  testing::internal::CaptureStderr();
  ASSERT_EQ(nsqv__getTrendData(soap, &r, data), SOAP_OK);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(data.result, "? 21 No History : Failed to open trend log database");

  writeTrends({{3, 1}}, {});
  nsqv__getTrendPeriodsResponse again;
  ASSERT_EQ(nsqv__getTrendPeriods(soap, nullptr, again), SOAP_OK);
  EXPECT_EQ(again.result, "OK");
  ASSERT_NE(context.trend_log, nullptr);
  // The reader is kept: a later failure of its read is not an open failure.
  pcd_log_inject_failure(0, 1);
  testing::internal::CaptureStderr();
  ASSERT_EQ(nsqv__getTrendPeriods(soap, nullptr, again), SOAP_OK);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Failed to get Trends periods in " + context.logs.trend_log_path + " \n");
  EXPECT_EQ(again.result, "? 21 No History : No Trend periods data.");
}

}  // namespace
