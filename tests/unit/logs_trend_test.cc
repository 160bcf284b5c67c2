// The trend operations: the reader kept by the process, the selection of periods, device and
// parameters, the limits, the NaN rule, the retries, and every error text with its line on
// standard error.
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "logs_fixture.h"

namespace {

using namespace toolkit::trend;
using wsgate_test::LogServiceTest;
using Request = nsqv__getTrendDataRequest;

const double kNaN = std::nan("");
const std::string kNoPeriods = "? 21 No History : No Trend periods data matching the request.";
const std::string kUnknown = "? 21 No History : No Trend data found for this device.";
const std::string kNoParams = "? 21 No History : Failed to get Trend parameters for this device";
const std::string kTooBig = "? 34 Result Too Big to Return : Please request less than ";
const std::string kFailed =
    "? 22 No Data Available : Trend data retrieval failed with these params";

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
  Request request(int max = 0) {
    Request r;  // the generated constructor zeroes every field
    r.devicePath = text("/Dev");
    r.pointPaths = soap_new_nsqv__ArrayOfString(soap);
    r.pointPaths->string = {"/Dev/A"};
    r.periods = soap_new_nsqv__ArrayOfPeriod(soap);
    r.periods->period = {1, 2};
    r.nMaxToReturn = max;
    r.ascendingOrder = true;
    return r;
  }

  // Calls getTrendData: the result, then the snapshots' first actual values (or "-" without
  // data); the standard error output goes to err_.
  std::string data(Request r) {
    nsqv__getTrendDataResponse response;
    err_ = stderrOf([&] { EXPECT_EQ(nsqv__getTrendData(soap, &r, response), SOAP_OK); });
    last_data_ = response.data;
    if (response.data == nullptr) return response.result + " -";
    std::string values;
    for (const nsqv__stSnapshot& s : response.data->samples->stSnapshot) {
      values += " " + (s.data->stSample.empty()
                           ? std::string("x")
                           : std::to_string(static_cast<int>(s.data->stSample.at(0).actual)));
    }
    return response.result + values;
  }

  nsqv__stDeviceData* last_data_ = nullptr;
  std::string err_;
};

TEST_F(TrendServiceTest, PeriodsAndParamsInTheLogsOrder) {
  nsqv__getTrendPeriodsResponse periods;
  ASSERT_EQ(nsqv__getTrendPeriods(soap, nullptr, periods), SOAP_OK);
  EXPECT_EQ(periods.result, "OK");
  ASSERT_EQ(periods.periodProperties->stPeriodProperties.size(), 2u);
  EXPECT_EQ(periods.periodProperties->stPeriodProperties[1].period, 2u);
  EXPECT_EQ(periods.periodProperties->stPeriodProperties[1].max_entries, 24u);

  // clang-format off
  // device -> result, standard error output, number of parameters
  const struct { std::string* device; std::string result, err; size_t params; } cases[] = {
      {text("/Dev"), "OK", "Returning 2 Trend parameters for device /Dev. \n", 2},
      {text("/Nope"), kUnknown, "No Trend data found for device /Nope. \n", 0},
      {nullptr, kUnknown, "No Trend data found for device . \n", 0},
      {text("/Dev/A"), kUnknown, "No Trend data found for device /Dev/A. \n", 0},
      // No parameter: the error line, then "OK" with an empty list (kept as it is).
      {text("/Empty"), "OK",
       "Failed to get Trend parameters for device /Empty. \nReturning 0 Trend parameters for device /Empty. \n", 0},
  };
  // clang-format on
  for (const auto& c : cases) {
    nsqv__getDeviceTrendParamsResponse response;
    EXPECT_EQ(stderrOf([&] { nsqv__getDeviceTrendParams(soap, nullptr, c.device, response); }),
              c.err);
    EXPECT_EQ(response.result, c.result);
    EXPECT_EQ(response.deviceParams ? response.deviceParams->stParamProperties.size() : 0,
              c.params);
    if (c.params == 0) continue;
    const nsqv__stParamProperties& b = response.deviceParams->stParamProperties[1];
    EXPECT_EQ(*b.path, "/Dev/B");
    EXPECT_EQ(b.type, nsqv__SampleType__SAMPLE_TYPE_PF);
    EXPECT_TRUE(!b.hasMin && b.hasMax && b.hasAvg && b.hasActual);
  }
}

// Each row changes the request for /Dev/A of every period and looks at the answer.
TEST_F(TrendServiceTest, SelectionLimitsAndErrors) {
  // clang-format off
  // change to the request -> the answer, the standard error output (null: not looked at)
  const struct { std::function<void(Request&)> change; std::string answer; const char* err; } cases[] = {
      {[](Request& r) { r.nMaxToReturn = 833; }, "OK 4 8 12", ""},
      {[](Request& r) { r.nMaxToReturn = 834; }, kTooBig + "833 records. -", ""},
      {[](Request& r) { r.nMaxToReturn = -1; }, "OK", ""},
      {[this](Request& r) { r.nMaxToReturn = 834; r.options = text("errorString=TOO MANY"); }, "TOO MANY -", nullptr},
      {[](Request& r) { r.periods->period = {2, 7}; }, "OK 8", ""},
      {[](Request& r) { r.ascendingOrder = false; r.startingOffset = 1; }, "OK 8 4", ""},
      // Times in ms, both ends included; a bound within a second counts as that second.
      {[](Request& r) { r.startTime = 1500000; r.endTime = 1999999; }, "OK 8", ""},
      {[](Request& r) { r.startTime = 1500000; r.endTime = 2000999; }, "OK 8 12", ""},
      {[](Request& r) { r.periods->period.clear(); }, kNoPeriods + " -", "No Trend periods data matching the request. \n"},
      {[](Request& r) { r.periods = nullptr; }, kNoPeriods + " -", nullptr},
      {[this](Request& r) { r.devicePath = text("/Nope"); }, kUnknown + " -", nullptr},
      // Point paths that name no parameter: the error line, then "OK" with no parameter.
      {[](Request& r) { r.pointPaths->string = {"/Dev/Nope"}; }, "OK x x x", "Failed to get Trend parameters for device /Dev. \n"},
  };
  // clang-format on
  for (const auto& c : cases) {
    Request r = request();
    c.change(r);
    EXPECT_EQ(data(r), c.answer);
    if (c.err != nullptr) {
      EXPECT_EQ(err_, c.err) << c.answer;
    }
  }
  EXPECT_EQ(last_data_->params->stParamProperties.size(), 0u);
  context.logs.max_records = 24;  // a limit of 2
  EXPECT_EQ(data(request(3)), kTooBig + "2 records. -");
  EXPECT_EQ(data(request(0)), "OK 4 8");  // 0: the limit
  nsqv__getTrendDataResponse absent;      // an absent request has no period
  stderrOf([&] { nsqv__getTrendData(soap, nullptr, absent); });
  EXPECT_EQ(absent.result, kNoPeriods);
}

TEST_F(TrendServiceTest, ParametersKeepTheDevicesOrderAndNaNIsSentAsAnInvalidZero) {
  Request r = request();
  r.pointPaths->string = {"/Dev/B", "/Dev/A"};
  r.periods->period = {1};
  ASSERT_EQ(data(r), "OK 4 12");
  EXPECT_EQ(*last_data_->params->stParamProperties.at(0).path, "/Dev/A");
  EXPECT_EQ(last_data_->samples->stSnapshot[1].timestamp, 2000000);
  EXPECT_EQ(last_data_->samples->stSnapshot[1].percent_valid, 75);
  const nsqv__stSample& b = last_data_->samples->stSnapshot[1].data->stSample.at(1);
  EXPECT_EQ((std::vector<double>{b.min, b.max, b.avg, b.actual}),
            (std::vector<double>{0, 0.7, 0, 0.6}));
  EXPECT_EQ((std::vector<bool>{b.minValid, b.maxValid, b.avgValid, b.actualValid}),
            (std::vector<bool>{false, true, false, true}));
  r.pointPaths = nullptr;  // absent: every parameter
  ASSERT_EQ(data(r), "OK 4 12");
  EXPECT_EQ(last_data_->params->stParamProperties.size(), 2u);
}

// Fails the Nth call of the trend log, once or several times: get_periods, get_devices,
// get_params, then the reads of the data, retried one second apart; a success after the
// third attempt keeps its data but is reported as a failure.
TEST_F(TrendServiceTest, EachFailedLogCallHasItsText) {
  // clang-format off
  // failing call, failures -> answer, standard error output (null: not looked at), seconds waited
  const struct { int call, failures; std::string answer; const char* err; double waited; } cases[] = {
      {0, 1, kNoPeriods + " -", nullptr, 0},
      {1, 1, "? 21 No History : No Trending devices found. -", nullptr, 0},
      {2, 1, kNoParams + " -", nullptr, 0},
      {3, 2, "OK 4 8 12", "", 2},
      {3, 3, kFailed + " 4 8 12", "Failed to get Trend data, retval = 0 \n", 3},
      {3, 4, kFailed + " 4 8 12", "Failed to get Trend data, retval = 0 \n", 4},
      {3, 5, kFailed + " -", "Failed to get Trend data, retval = 5 \n", 5},
  };
  // clang-format on
  double before = 0;
  for (const auto& c : cases) {
    pcd_log_inject_failure(c.call, c.failures);
    EXPECT_EQ(data(request()), c.answer) << c.call << " " << c.failures;
    if (c.err != nullptr) {
      EXPECT_EQ(err_, c.err);
    }
    EXPECT_EQ(waitedSeconds() - before, c.waited) << c.call << " " << c.failures;
    before = waitedSeconds();
  }
}

TEST_F(LogServiceTest, AFailedOpenIsRetriedByTheNextRequest) {
  const std::string no_log = "? 21 No History : Failed to open trend log database";
  nsqv__getTrendPeriodsResponse response;
  EXPECT_EQ(stderrOf([&] { nsqv__getTrendPeriods(soap, nullptr, response); }),
            "Failed to open database " + context.logs.trend_log_path + " \n");
  EXPECT_EQ(response.result, no_log);
  EXPECT_EQ(context.trend_log, nullptr);
  nsqv__getTrendDataRequest r;
  nsqv__getTrendDataResponse data;
  stderrOf([&] { nsqv__getTrendData(soap, &r, data); });
  EXPECT_EQ(data.result, no_log);

  writeTrends({{3, 1}}, {});
  ASSERT_EQ(nsqv__getTrendPeriods(soap, nullptr, response), SOAP_OK);
  EXPECT_EQ(response.result, "OK");
  ASSERT_NE(context.trend_log, nullptr);
  // The reader is kept: a later failure of its read is not an open failure.
  pcd_log_inject_failure(0, 1);
  EXPECT_EQ(stderrOf([&] { nsqv__getTrendPeriods(soap, nullptr, response); }),
            "Failed to get Trends periods in " + context.logs.trend_log_path + " \n");
  EXPECT_EQ(response.result, "? 21 No History : No Trend periods data.");
}

}  // namespace
