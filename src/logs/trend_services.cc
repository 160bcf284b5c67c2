// The trend operations: the rate periods, a device's trended parameters and its snapshots,
// read through the trend log reader that the process opens on first use and keeps. Every
// operation answers status 0; errors travel in "result" (which is "OK" on success) with a
// line on standard error.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/trend.h"
#include "platform/vtx.h"
#include "service/context.h"
#include "service/errors.h"
#include "service/options.h"
#include "soapH.h"

namespace {

using toolkit::trend::CParamProperties;

constexpr int kAttempts = 5;
// Only the first three attempts count as a success; a later one still sends its data.
constexpr int kAttemptsThatSucceed = 3;
constexpr uint32_t kRetryWaitMicros = 1000000;
// The reader's fixed open arguments: read-only, never create, wait up to 40 ms for a writer's
// lock, no write-ahead log of its own, no full sync.
constexpr bool kReadOnly = true;
constexpr bool kCreate = false;
constexpr int kBusyTimeoutMs = 40;

const char* const kOk = "OK";

// The process's trend log reader, opened now unless one is held. A failed open keeps no
// reader, so the next request tries again. Null on failure, with `result` set.
toolkit::trend::CLog* openTrendLog(ServiceContext& context, const RequestOptions& options,
                                   std::string& result) {
  if (context.trend_log != nullptr) return context.trend_log.get();
  const LogSettings& logs = context.logs;
  auto log = std::make_shared<toolkit::trend::CLog>();
  if (log->open(logs.trend_log_path, kReadOnly, kCreate, kBusyTimeoutMs, false, logs.page_size,
                logs.cache_size, logs.heap_limit, false) != 0) {
    formatError(kWsNoHistory, "Failed to open trend log database", result, &options);
    fprintf(stderr, "Failed to open database %s \n", logs.trend_log_path.c_str());
    return nullptr;
  }
  context.trend_log = std::move(log);
  return context.trend_log.get();
}

// The device `device_path` and its parameters, only those named in `param_paths` unless it is
// empty (in the device's order). Returns -1 when the device list cannot be read or has no
// such device, else the result of reading its parameters; `result` is set when no parameter
// is left even though that result may be 0 (deliberately: the caller then goes on, and its
// "OK" replaces the text).
int findTrendDevice(toolkit::trend::CLog& log, const std::string& device_path,
                    const std::vector<std::string>& param_paths, const RequestOptions& options,
                    std::string& result, std::vector<CParamProperties>& params) {
  params.clear();
  std::vector<toolkit::trend::CDeviceProperties> devices;
  if (log.get_devices(devices) != 0) {
    formatError(kWsNoHistory, "No Trending devices found.", result, &options);
    fprintf(stderr, "No Trending devices found. \n");
    return -1;
  }
  const toolkit::trend::CDeviceProperties* device = nullptr;
  for (const auto& candidate : devices) {
    if (candidate.path == device_path) {
      device = &candidate;
      break;
    }
  }
  if (device == nullptr) {
    formatError(kWsNoHistory, "No Trend data found for this device.", result, &options);
    fprintf(stderr, "No Trend data found for device %s. \n", device_path.c_str());
    return -1;
  }
  const int status = log.get_params(*device, params);
  if (!param_paths.empty()) {
    std::vector<CParamProperties> selected;
    for (CParamProperties& param : params) {
      for (const std::string& path : param_paths) {
        if (param.path == path) {
          selected.push_back(std::move(param));
          break;
        }
      }
    }
    params.swap(selected);
  }
  if (status != 0 || params.empty()) {
    formatError(kWsNoHistory, "Failed to get Trend parameters for this device", result, &options);
    fprintf(stderr, "Failed to get Trend parameters for device %s. \n", device_path.c_str());
  }
  return status;
}

nsqv__ArrayOfstParamProperties* paramList(struct soap* soap,
                                          const std::vector<CParamProperties>& params) {
  auto* list = soap_new_nsqv__ArrayOfstParamProperties(soap);
  list->stParamProperties.resize(params.size());
  for (size_t i = 0; i < params.size(); ++i) {
    nsqv__stParamProperties& out = list->stParamProperties[i];
    out.path = soap_new_std__string(soap);
    *out.path = params[i].path;
    out.type = static_cast<nsqv__SampleType>(params[i].type);
    out.hasMin = params[i].has_min;
    out.hasMax = params[i].has_max;
    out.hasAvg = params[i].has_avg;
    out.hasActual = params[i].has_actual;
  }
  return list;
}

// A value that is not a number is sent as 0 and marked invalid.
void setValue(double value, double& out, bool& valid) {
  valid = !std::isnan(value);
  out = valid ? value : 0;
}

nsqv__stDeviceData* deviceData(struct soap* soap, const std::vector<CParamProperties>& params,
                               const toolkit::trend::CDeviceData& data) {
  auto* out = soap_new_nsqv__stDeviceData(soap);
  out->params = paramList(soap, params);
  out->samples = soap_new_nsqv__ArrayOfstSnapshot(soap);
  std::vector<nsqv__stSnapshot>& snapshots = out->samples->stSnapshot;
  snapshots.resize(data.snapshots.size());
  for (size_t i = 0; i < data.snapshots.size(); ++i) {
    const toolkit::trend::CSnapshot& in = data.snapshots[i];
    nsqv__stSnapshot& snapshot = snapshots[i];
    snapshot.period = in.period;
    const timeval seconds{in.timestamp, 0};
    snapshot.timestamp = vtx_UNIXtoVTXtime64(&seconds);
    snapshot.percent_valid = in.percent_valid;
    snapshot.data = soap_new_nsqv__ArrayOfstSample(soap);
    snapshot.data->stSample.resize(in.data.size());
    for (size_t j = 0; j < in.data.size(); ++j) {
      const toolkit::trend::CSample& sample = in.data[j];  // its count is not sent
      nsqv__stSample& s = snapshot.data->stSample[j];
      setValue(sample.min, s.min, s.minValid);
      setValue(sample.max, s.max, s.maxValid);
      setValue(sample.avg, s.avg, s.avgValid);
      setValue(sample.actual, s.actual, s.actualValid);
    }
  }
  return out;
}

std::string textOf(const std::string* text) {
  return text != nullptr ? *text : std::string();
}

}  // namespace

int nsqv__getTrendPeriods(struct soap* soap, std::string* options_text,
                          nsqv__getTrendPeriodsResponse& response) {
  const RequestOptions options = parseOptions(options_text);
  ServiceContext& context = serviceContext(soap);
  toolkit::trend::CLog* log = openTrendLog(context, options, response.result);
  if (log == nullptr) return SOAP_OK;
  std::vector<toolkit::trend::CPeriodProperties> periods;
  if (log->get_periods(periods) != 0) {
    formatError(kWsNoHistory, "No Trend periods data.", response.result, &options);
    fprintf(stderr, "Failed to get Trends periods in %s \n", context.logs.trend_log_path.c_str());
    return SOAP_OK;
  }
  response.result = kOk;
  response.periodProperties = soap_new_nsqv__ArrayOfstPeriodProperties(soap);
  for (const auto& period : periods) {
    nsqv__stPeriodProperties out;
    out.period = period.period;
    out.max_entries = period.max_entries;
    response.periodProperties->stPeriodProperties.push_back(out);
  }
  return SOAP_OK;
}

int nsqv__getDeviceTrendParams(struct soap* soap, std::string* options_text,
                               std::string* device_path,
                               nsqv__getDeviceTrendParamsResponse& response) {
  const RequestOptions options = parseOptions(options_text);
  toolkit::trend::CLog* log = openTrendLog(serviceContext(soap), options, response.result);
  if (log == nullptr) return SOAP_OK;
  const std::string device = textOf(device_path);
  std::vector<CParamProperties> params;
  if (findTrendDevice(*log, device, {}, options, response.result, params) != 0) return SOAP_OK;
  response.deviceParams = paramList(soap, params);
  response.result = kOk;
  fprintf(stderr, "Returning %zd Trend parameters for device %s. \n", params.size(),
          device.c_str());
  return SOAP_OK;
}

int nsqv__getTrendData(struct soap* soap, nsqv__getTrendDataRequest* request_or_null,
                       nsqv__getTrendDataResponse& response) {
  // An absent request reads as one whose every element is absent.
  nsqv__getTrendDataRequest empty;
  const nsqv__getTrendDataRequest* request = request_or_null != nullptr ? request_or_null : &empty;
  const RequestOptions options = parseOptions(request->options);
  ServiceContext& context = serviceContext(soap);
  const int limit = context.logs.trendSnapshotLimit();
  int max = request->nMaxToReturn;
  if (max > limit) {
    formatError(kWsResultTooBig, "Please request less than " + std::to_string(limit) + " records.",
                response.result, &options);
    return SOAP_OK;
  }
  if (max == 0) max = limit;
  toolkit::trend::CLog* log = openTrendLog(context, options, response.result);
  if (log == nullptr) return SOAP_OK;

  // The log's periods that the request lists; an empty list therefore keeps none.
  std::vector<toolkit::trend::CPeriodProperties> periods;
  std::vector<uint32_t> selected;
  if (log->get_periods(periods) == 0 && request->periods != nullptr) {
    for (const auto& period : periods) {
      for (unsigned int wanted : request->periods->period) {
        if (period.period == wanted) {
          selected.push_back(period.period);
          break;
        }
      }
    }
  }
  if (selected.empty()) {
    formatError(kWsNoHistory, "No Trend periods data matching the request.", response.result,
                &options);
    fprintf(stderr, "No Trend periods data matching the request. \n");
    return SOAP_OK;
  }

  toolkit::trend::CDeviceParams wanted;
  wanted.device_path = textOf(request->devicePath);
  std::vector<CParamProperties> params;
  const std::vector<std::string> no_paths;
  if (findTrendDevice(*log, wanted.device_path,
                      request->pointPaths != nullptr ? request->pointPaths->string : no_paths,
                      options, response.result, params) != 0) {
    return SOAP_OK;
  }
  for (const CParamProperties& param : params) wanted.param_paths.push_back(param.path);

  const time_t start = vtx_VTXtoUNIXtime64(request->startTime).tv_sec;
  const time_t end = request->endTime > 0 ? vtx_VTXtoUNIXtime64(request->endTime).tv_sec : -1;
  int rc = 0;
  int attempt = 1;
  for (;; ++attempt) {
    toolkit::trend::CDeviceData data;
    rc = log->get_trend_data(data, wanted, selected, {start, end}, max, request->startingOffset,
                             request->ascendingOrder, false);
    if (rc == 0) {
      response.result = kOk;
      response.data = deviceData(soap, params, data);
      break;
    }
    vtx_Sleep(kRetryWaitMicros);
    if (attempt == kAttempts) break;
  }
  // Deliberately kept: a success after the third attempt reports the failure while its data
  // stays in the response.
  if (rc != 0 || attempt > kAttemptsThatSucceed) {
    formatError(kWsNoDataAvailable, "Trend data retrieval failed with these params",
                response.result, &options);
    fprintf(stderr, "Failed to get Trend data, retval = %d \n", rc);
  }
  return SOAP_OK;
}
