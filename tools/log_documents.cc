#include "tools/log_documents.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <tuple>

#include "platform/log.h"
#include "tools/cli.h"
#include "tools/json_fields.h"

namespace cdstool {
namespace {

using toolkit::trend::CDeviceLog;
using toolkit::trend::CParamProperties;
using toolkit::trend::CSample;
using toolkit::trend::CSnapshot;
using toolkit::trend::sample_type_t;

constexpr int64_t kInt32Min = std::numeric_limits<int32_t>::min();
constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr int64_t kUint32Max = std::numeric_limits<uint32_t>::max();
// The logs keep microseconds in 64 bits: platform times beyond this do not fit.
constexpr int64_t kMaxTime = std::numeric_limits<int64_t>::max() / 1000 - 1;
// How long a writer waits for another writer's lock on a log.
constexpr int kWriterBusyTimeoutMs = 5000;

std::string itemName(const std::string& parent, const char* key, size_t index) {
  return (parent.empty() ? std::string() : parent + ".") + key + "[" + std::to_string(index) + "]";
}

toolkit::CEvent parseRecord(const Json& object, const std::string& item) {
  checkObject(
      object,
      {"time", "usec", "kind", "category", "base_priority", "variation_level", "source_path",
       "message", "note", "source", "type", "value", "level_quality", "quality", "event_id",
       "sequence_index", "ack_status", "condition_present", "auto_closing"},
      item);
  if (!object.contains("time")) throw DocumentError(item + ": missing \"time\"");
  toolkit::CEvent record;
  const int64_t time = integerField(object, "time", item, -kMaxTime, kMaxTime, 0);
  const int64_t usec = integerField(object, "usec", item, 0, 999, 0);
  // Floor division, so that times before 1970 keep their microseconds in 0..999999.
  int64_t seconds = time / 1000;
  int64_t millis = time % 1000;
  if (millis < 0) {
    millis += 1000;
    --seconds;
  }
  record.timestamp = {static_cast<time_t>(seconds), static_cast<suseconds_t>(millis * 1000 + usec)};
  record.kind = static_cast<int32_t>(integerField(object, "kind", item, kInt32Min, kInt32Max, 0));
  record.category =
      static_cast<int32_t>(integerField(object, "category", item, kInt32Min, kInt32Max, 0));
  record.base_priority =
      static_cast<int32_t>(integerField(object, "base_priority", item, kInt32Min, kInt32Max, 0));
  record.variation_level =
      static_cast<int32_t>(integerField(object, "variation_level", item, kInt32Min, kInt32Max, 0));
  record.source_path = stringField(object, "source_path", item, false);
  record.message = stringField(object, "message", item, false);
  record.note = stringField(object, "note", item, false);
  record.source = stringField(object, "source", item, false);
  const bool has_type = object.contains("type");
  if (has_type != object.contains("value")) {
    throw DocumentError(item + ": \"type\" and \"value\" go together");
  }
  if (has_type) {
    record.value = typedValue(object, item);
    record.value.set_time(record.timestamp);
  }
  if (object.contains("level_quality") && object.contains("quality")) {
    throw DocumentError(item + ": \"level_quality\" and \"quality\" exclude each other");
  }
  record.level_quality =
      static_cast<uint32_t>(integerField(object, "level_quality", item, 0, kUint32Max, 0));
  if (object.contains("quality")) {
    record.set_quality(static_cast<uint16_t>(integerField(object, "quality", item, 0, 65535, 0)));
  }
  record.event_id = unsignedField(object, "event_id", item, 0);
  record.sequence_index =
      static_cast<uint32_t>(integerField(object, "sequence_index", item, 0, kUint32Max, 0));
  record.ack_status = static_cast<int32_t>(integerField(object, "ack_status", item, 0, 2, 0));
  record.condition_present = booleanField(object, "condition_present", item, false);
  record.auto_closing = booleanField(object, "auto_closing", item, false);
  return record;
}

sample_type_t parseSampleType(const std::string& name, const std::string& item) {
  for (int type = toolkit::trend::SAMPLE_TYPE_NORMAL; type <= toolkit::trend::SAMPLE_TYPE_LISTEND;
       ++type) {
    if (name == sampleTypeName(static_cast<sample_type_t>(type))) {
      return static_cast<sample_type_t>(type);
    }
  }
  throw DocumentError(item + ": unknown sample type \"" + name + "\"");
}

CParamProperties parseParam(const Json& object, const std::string& item) {
  checkObject(object, {"path", "type", "hasMin", "hasMax", "hasAvg", "hasActual"}, item);
  CParamProperties param;
  param.path = stringField(object, "path", item, true);
  if (object.contains("type"))
    param.type = parseSampleType(stringField(object, "type", item, true), item);
  param.has_min = booleanField(object, "hasMin", item, true);
  param.has_max = booleanField(object, "hasMax", item, true);
  param.has_avg = booleanField(object, "hasAvg", item, true);
  param.has_actual = booleanField(object, "hasActual", item, true);
  return param;
}

// A number, or NaN for null or an absent key.
double sampleValue(const Json& object, const char* key, const std::string& item) {
  auto it = object.find(key);
  if (it == object.end() || it->is_null()) return std::nan("");
  if (!it->is_number()) {
    throw DocumentError(item + ": \"" + key + "\" is not a number or null");
  }
  return it->get<double>();
}

CSample parseSample(const Json& object, const std::string& item) {
  checkObject(object, {"min", "max", "avg", "actual", "count"}, item);
  return CSample{sampleValue(object, "min", item), sampleValue(object, "max", item),
                 sampleValue(object, "avg", item), sampleValue(object, "actual", item),
                 sampleValue(object, "count", item)};
}

CSnapshot parseSnapshot(const Json& object, const std::string& item,
                        const std::set<uint32_t>& periods, size_t param_count) {
  checkObject(object, {"period", "timestamp", "percent-valid", "data"}, item);
  CSnapshot snapshot;
  if (!object.contains("period")) throw DocumentError(item + ": missing \"period\"");
  snapshot.period = static_cast<uint32_t>(integerField(object, "period", item, 0, kUint32Max, 0));
  if (periods.count(snapshot.period) == 0) {
    throw DocumentError(item + ": period " + std::to_string(snapshot.period) +
                        " is not one of \"periods\"");
  }
  if (!object.contains("timestamp")) throw DocumentError(item + ": missing \"timestamp\"");
  const int64_t timestamp = integerField(object, "timestamp", item, -kMaxTime, kMaxTime, 0);
  if (timestamp % 1000 != 0) {
    throw DocumentError(item + ": \"timestamp\" is not a whole second (the log keeps seconds)");
  }
  snapshot.timestamp = static_cast<time_t>(timestamp / 1000);
  auto percent = object.find("percent-valid");
  if (percent == object.end()) throw DocumentError(item + ": missing \"percent-valid\"");
  if (!percent->is_number()) throw DocumentError(item + ": \"percent-valid\" is not a number");
  snapshot.percent_valid = percent->get<double>();
  const Json& data = arrayField(object, "data", item, true);
  if (data.size() != param_count) {
    throw DocumentError(item + ": \"data\" holds " + std::to_string(data.size()) + " samples for " +
                        std::to_string(param_count) + " params");
  }
  for (size_t i = 0; i < data.size(); ++i) {
    snapshot.data.push_back(parseSample(data[i], itemName(item, "data", i)));
  }
  return snapshot;
}

CDeviceLog parseDevice(const Json& object, const std::string& item,
                       const std::set<uint32_t>& periods) {
  checkObject(object, {"path", "params", "snapshots"}, item);
  CDeviceLog device;
  device.path = stringField(object, "path", item, true);
  const Json& params = arrayField(object, "params", item);
  std::set<std::string> param_paths;
  for (size_t i = 0; i < params.size(); ++i) {
    const std::string param_item = itemName(item, "params", i);
    device.params.push_back(parseParam(params[i], param_item));
    if (!param_paths.insert(device.params.back().path).second) {
      throw DocumentError(param_item + ": the path \"" + device.params.back().path + "\" repeats");
    }
  }
  const Json& snapshots = arrayField(object, "snapshots", item);
  std::set<std::pair<uint32_t, time_t>> seen;
  for (size_t i = 0; i < snapshots.size(); ++i) {
    const std::string snapshot_item = itemName(item, "snapshots", i);
    device.snapshots.push_back(
        parseSnapshot(snapshots[i], snapshot_item, periods, device.params.size()));
    const CSnapshot& snapshot = device.snapshots.back();
    if (!seen.insert({snapshot.period, snapshot.timestamp}).second) {
      throw DocumentError(snapshot_item + ": a second snapshot of period " +
                          std::to_string(snapshot.period) + " at this timestamp");
    }
  }
  return device;
}

}  // namespace

const char* sampleTypeName(sample_type_t type) {
  switch (type) {
    case toolkit::trend::SAMPLE_TYPE_PF:
      return "SAMPLE-TYPE-PF";
    case toolkit::trend::SAMPLE_TYPE_LISTEND:
      return "SAMPLE-TYPE-LISTEND";
    default:
      return "SAMPLE-TYPE-NORMAL";
  }
}

bool parseLogDocument(const std::string& json_text, std::vector<toolkit::CEvent>& records,
                      std::string& error) {
  try {
    Json root = parseJson(json_text);
    if (!root.is_object()) throw DocumentError("the document is not a JSON object");
    checkObject(root, {"records"}, "document");
    const Json& items = arrayField(root, "records", "document", true);
    for (size_t i = 0; i < items.size(); ++i) {
      records.push_back(parseRecord(items[i], itemName("", "records", i)));
    }
    return true;
  } catch (const DocumentError& e) {
    error = e.what();
    return false;
  }
}

bool parseTrendDocument(const std::string& json_text, TrendDocument& doc, std::string& error) {
  try {
    Json root = parseJson(json_text);
    if (!root.is_object()) throw DocumentError("the document is not a JSON object");
    checkObject(root, {"periods", "devices"}, "document");
    const Json& periods = arrayField(root, "periods", "document", true);
    std::set<uint32_t> numbers;
    for (size_t i = 0; i < periods.size(); ++i) {
      const std::string item = itemName("", "periods", i);
      checkObject(periods[i], {"period", "max-entries"}, item);
      for (const char* key : {"period", "max-entries"}) {
        if (!periods[i].contains(key)) throw DocumentError(item + ": missing \"" + key + "\"");
      }
      toolkit::trend::CPeriodProperties period;
      period.period =
          static_cast<uint32_t>(integerField(periods[i], "period", item, 0, kUint32Max, 0));
      period.max_entries =
          static_cast<uint32_t>(integerField(periods[i], "max-entries", item, 0, kUint32Max, 0));
      if (!numbers.insert(period.period).second) {
        throw DocumentError(item + ": period " + std::to_string(period.period) + " repeats");
      }
      doc.periods.push_back(period);
    }
    const Json& devices = arrayField(root, "devices", "document", true);
    std::set<std::string> paths;
    for (size_t i = 0; i < devices.size(); ++i) {
      const std::string item = itemName("", "devices", i);
      doc.devices.push_back(parseDevice(devices[i], item, numbers));
      if (!paths.insert(doc.devices.back().path).second) {
        throw DocumentError(item + ": the path \"" + doc.devices.back().path + "\" repeats");
      }
    }
    return true;
  } catch (const DocumentError& e) {
    error = e.what();
    return false;
  }
}

void appendEventLog(const std::string& path, const std::vector<toolkit::CEvent>& records) {
  pcd_log_handle_t handle = nullptr;
  if (pcd_log_init(path.c_str(), &handle, 1, 1, kWriterBusyTimeoutMs, 1, 1, 0, 0, 0, 0) != 0) {
    throw NoStoreError(errorText("", pcd_log_last_error()));
  }
  const int rc = toolkit::CLog(handle).append(records);
  pcd_log_close(handle);
  if (rc != 0)
    throw OperationError(errorText(path, std::string("cannot append: ") + pcd_log_result_text(rc)));
}

void replaceTrendLog(const std::string& path, const TrendDocument& doc) {
  toolkit::trend::CLog log;
  if (log.open(path, false, true, kWriterBusyTimeoutMs, true, 0, 0, 0, false) != 0) {
    throw NoStoreError(errorText("", log.last_error()));
  }
  const int rc = log.replace(doc.periods, doc.devices);
  if (rc != 0)
    throw OperationError(errorText(path, std::string("cannot write: ") + pcd_log_result_text(rc)));
}

}  // namespace cdstool
