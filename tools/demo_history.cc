// The demo's history. Values follow a daily pattern with a fixed pseudo-random jitter, so the
// history is the same at every build and docs/demo.md can quote it.
#include "tools/demo_history.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "platform/vtx.h"
#include "tools/cli.h"

namespace cdstool {
namespace {

using toolkit::CEvent;
using toolkit::trend::CDeviceLog;
using toolkit::trend::CParamProperties;
using toolkit::trend::CSample;
using toolkit::trend::CSnapshot;

constexpr int64_t kMinute = 60000;
constexpr int64_t kQuarter = 15 * kMinute;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kDay = 24 * kHour;
// The demo's alarms are raised at 2023-11-14T22:13:20Z; the history's regular records end
// at the last quarter hour before, and begin a week earlier.
constexpr int64_t kAlarmTime = 1700000000000;
constexpr int64_t kEnd = 1699999200000;  // 2023-11-14T22:00:00Z
constexpr int64_t kStart = kEnd - 7 * kDay;
constexpr int64_t kFirstMidnight = 1699401600000;  // 2023-11-08T00:00:00Z
constexpr double kPi = 3.14159265358979323846;

// Period A: a snapshot every 15 minutes; period B: every hour. Each keeps a week.
constexpr uint32_t kPeriodA = 1;
constexpr uint32_t kPeriodB = 2;
// The quarter hours (counted from the first snapshot) when Meter1 did not answer, and the
// one when the supply temperature sensor gave half of its samples.
constexpr int kOutageFirst = 300;
constexpr int kOutageLast = 302;
constexpr int kGlitch = 500;

// A fixed jitter in [-1, 1) for the number `n`.
double jitter(uint64_t n) {
  uint32_t x = static_cast<uint32_t>(n * 2654435761u) ^ 0x5bd1e995u;
  x ^= x >> 15;
  x *= 0x2c1b3c6du;
  x ^= x >> 12;
  return static_cast<double>(x) / 2147483648.0 - 1.0;
}

// The time `hour`:`minute` UTC of the history's `day`, counted from 2023-11-08.
constexpr int64_t clock(int day, int hour, int minute = 0) {
  return kFirstMidnight + day * kDay + hour * kHour + minute * kMinute;
}

// 1 at 14:00 UTC, -1 at 02:00.
double daily(int64_t t) {
  const double hours = static_cast<double>(((t % kDay) + kDay) % kDay) / kHour;
  return std::cos(2 * kPi * (hours - 14) / 24);
}

// `value` to `digits` decimals, as the nearest double to that decimal text.
double roundTo(double value, int digits) {
  const double scale = std::pow(10.0, digits);
  return std::round(value * scale) / scale;
}

double voltage(int64_t t) {
  return roundTo(230 + 2.5 * daily(t) + 0.8 * jitter(t / kMinute), 1);
}
double current(int64_t t) {
  return roundTo(40 + 15 * daily(t) + 2 * jitter(t / kMinute + 7), 1);
}
double powerFactor(int64_t t) {
  return roundTo(0.92 + 0.03 * daily(t) + 0.01 * jitter(t / kMinute + 11), 2);
}
double power(int64_t t) {
  return roundTo(voltage(t) * current(t) * powerFactor(t) / 1000, 2);
}
// The energy counter at `t`, reaching the store's 5000000000 Wh at the end of the history.
double energy(int64_t t) {
  return std::round(5000000000.0 - 9610.0 * (kEnd - t) / kHour);
}
bool daytime(int64_t t) {
  const int64_t hour = ((t % kDay) + kDay) % kDay / kHour;
  return hour >= 6 && hour < 22;
}
double supplyTemp(int64_t t) {
  return roundTo(18 + 2 * daily(t) + 0.3 * jitter(t / kMinute + 23), 1);
}
double setpoint(int64_t t) {
  return daytime(t) ? 21 : 17;
}

CEvent record(int64_t time, int32_t kind, const std::string& path, const char* type,
              const std::string& value, const char* source) {
  CEvent event;
  event.timestamp = vtx_VTXtoUNIXtime64(time);
  event.kind = kind;
  event.source_path = path;
  if (type != nullptr) {
    event.value = toolkit::CElement(value);
    event.value.convert_type(pcd_human_str_to_enum(type));
    event.value.set_time(event.timestamp);
  }
  event.source = source;
  return event;
}

std::string text(double value) {
  toolkit::CElement element;
  element.set_real(value);
  return element.to_string();
}

CEvent delta(int64_t time, const std::string& path, const char* type, const std::string& value,
             uint16_t quality = CEvent::kQualityGood) {
  const char* writer = path.compare(0, 6, "/AHU1/") == 0        ? "BACnet:@local"
                       : path.compare(0, 10, "/Software/") == 0 ? "SystemManager:@local"
                                                                : "Modbus:@local";
  CEvent event = record(time, CEvent::kKindDelta, path, type, value, writer);
  event.set_quality(quality);
  return event;
}

std::vector<CEvent> deltaLog() {
  std::vector<CEvent> log;
  for (int64_t t = kStart + 30 * kMinute; t <= kEnd; t += 30 * kMinute) {
    // One poll of the meter: three values with one time stamp.
    log.push_back(delta(t, "/Meter1/Voltage/Value", "Real", text(voltage(t))));
    log.push_back(delta(t, "/Meter1/Current/Value", "Real", text(current(t))));
    log.push_back(delta(t, "/Meter1/Power/Value", "Real", text(power(t))));
    const int64_t ahu = t + 10 * kMinute;
    if (ahu <= kEnd)
      log.push_back(delta(ahu, "/AHU1/SupplyTemp/Value", "Real", text(supplyTemp(ahu))));
    // The air handler's schedule: on at 06:00, set back at 22:00.
    if (daytime(t) != daytime(t - 30 * kMinute)) {
      const bool on = daytime(t);
      log.push_back(delta(t, "/AHU1/Fan/Value", "Boolean", on ? "true" : "false"));
      log.push_back(delta(t, "/AHU1/Mode/Value", "Unsigned", on ? "3" : "1"));
      log.push_back(delta(t, "/AHU1/Setpoint/Value", "Real", text(setpoint(t))));
    }
  }
  log.push_back(delta(clock(2, 9, 5), "/Meter1/Voltage/.HiCriticalLimit", "Real", "253"));
  log.push_back(delta(clock(2, 11), "/Meter1/Breaker/Value", "Boolean", "false"));
  log.push_back(delta(clock(2, 11, 20), "/Meter1/Breaker/Value", "Boolean", "true"));
  log.push_back(delta(clock(3, 8), "/Meter10/Online/Value", "Boolean", "false", 0));
  log.push_back(delta(clock(3, 8), "/Meter10/Voltage/Value", "Real", "0", 0));
  log.push_back(delta(clock(3, 12), "/Meter1/Mode/Value", "Unsigned", "2"));
  log.push_back(delta(clock(3, 13), "/Meter1/Mode/Value", "Unsigned", "1"));
  // The gateway's own software tree: never shown by the delta log operation.
  const std::string app = "/Software/Data Servers/BACnet WebServices/AppStatus/Value";
  log.push_back(delta(clock(4, 3), app, "Unsigned", "2"));
  log.push_back(delta(clock(4, 3, 1), app, "Unsigned", "4"));
  log.push_back(delta(clock(5, 12), "/Software/System Settings/Configuration Changed/Value",
                      "Boolean", "true"));
  log.push_back(delta(clock(5, 12, 5), "/Software/System Settings/Configuration Changed/Value",
                      "Boolean", "false"));
  std::stable_sort(log.begin(), log.end(), [](const CEvent& a, const CEvent& b) {
    return vtx_UNIXtoVTXtime64(&a.timestamp) < vtx_UNIXtoVTXtime64(&b.timestamp);
  });
  return log;
}

struct AlarmStep {
  int64_t time;
  int32_t ack_status;
  bool present;
  uint32_t sequence;
  const char* note;
};

void addAlarm(std::vector<CEvent>& log, uint64_t id, const char* path, const char* type,
              const std::string& value, const char* message, int32_t priority, bool auto_closing,
              int32_t variation, const std::vector<AlarmStep>& steps) {
  for (const AlarmStep& step : steps) {
    CEvent event = record(step.time, CEvent::kKindAlarm, path, type, value, "AlarmService:@local");
    event.set_quality(CEvent::kQualityGood);
    event.event_id = id;
    event.sequence_index = step.sequence;
    event.message = message;
    event.base_priority = priority;
    event.auto_closing = auto_closing;
    event.variation_level = variation;
    event.ack_status = step.ack_status;
    event.condition_present = step.present;
    event.note = step.note;
    log.push_back(event);
  }
}

std::vector<CEvent> alarmLog() {
  std::vector<CEvent> log;
  // A high supply temperature every afternoon: raised, acknowledged, cleared.
  for (int day = 0; day < 6; ++day) {
    const int64_t raised = clock(day, 15);
    addAlarm(log, 900 + day, "/AHU1/SupplyTemp/Value", "Real", text(roundTo(26.1 + 0.1 * day, 1)),
             "Supply temperature high", 500, true, 1,
             {{raised, 0, true, 1, ""},
              {raised + 10 * kMinute, 1, true, 2, "Checked by operator"},
              {raised + 40 * kMinute, 2, false, 3, "Checked by operator"}});
  }
  addAlarm(log, 1003, "/Meter10/Online/Value", "Boolean", "false", "Communication lost", 0, true, 0,
           {{clock(3, 8), 0, true, 1, ""},
            {clock(3, 9), 1, true, 2, ""},
            {kAlarmTime + 2 * kMinute, 2, false, 3, "Cable replaced"}});
  addAlarm(log, 1001, "/Meter1/Voltage/Value", "Real", "254.2", "Voltage above critical limit", 100,
           false, 2, {{kAlarmTime, 0, true, 1, ""}});
  addAlarm(log, 1002, "/AHU1/SupplyTemp/Value", "Real", "26.8", "Supply temperature high", 500,
           true, 1,
           {{kAlarmTime + kMinute, 0, true, 1, ""},
            {kAlarmTime + 5 * kMinute, 1, true, 2, "Checked by operator"}});
  addAlarm(log, 4294967297, "/Meter1/Status/Value", "Unsigned", "8", "Meter fault", 200, false, 0,
           {{kAlarmTime + kMinute, 0, true, 1, ""}});
  // The acknowledgement the operator sent, an operator's action and the configuration change
  // (shown as a structure change; its reset to false is not shown).
  CEvent ack = record(kAlarmTime + 5 * kMinute, CEvent::kKindAcknowledgement,
                      "/AHU1/SupplyTemp/Value", nullptr, "", "Web-Services:operator@192.0.2.10");
  ack.event_id = 1002;
  ack.ack_status = 1;
  ack.message = "Alarm acknowledged";
  ack.set_quality(CEvent::kQualityGood);
  log.push_back(ack);
  CEvent breaker = record(clock(2, 11), 2, "/Meter1/Breaker/Value", "Boolean", "false",
                          "Web-Services:admin@192.0.2.10");
  breaker.message = "Breaker opened for maintenance";
  breaker.set_quality(CEvent::kQualityGood);
  log.push_back(breaker);
  const std::string changed = "/Software/System Settings/Configuration Changed/Value";
  for (bool value : {true, false}) {
    CEvent change = record(clock(5, 12, value ? 0 : 5), 2, changed, "Boolean",
                           value ? "true" : "false", "ConfigService:@local");
    change.set_quality(CEvent::kQualityGood);
    log.push_back(change);
  }
  std::stable_sort(log.begin(), log.end(), [](const CEvent& a, const CEvent& b) {
    return vtx_UNIXtoVTXtime64(&a.timestamp) < vtx_UNIXtoVTXtime64(&b.timestamp);
  });
  return log;
}

std::vector<CEvent> systemLog() {
  struct Entry {
    int64_t time;
    uint32_t level;  // 1 informational, 2 cautionary, 3 critical; others: system
    const char* path;
    const char* type;
    const char* value;
    const char* message;  // "": the level's own description
  };
  const Entry entries[] = {
      {kStart + 5 * kMinute, 1, "/", nullptr, "", "Gateway started"},
      {clock(1, 2), 2, "/System/CpuLoad/Value", "Real", "91.5", ""},
      {clock(1, 2, 10), 1, "/System/CpuLoad/Value", "Real", "14.2", ""},
      {clock(3, 8), 3, "/Meter10", nullptr, "", "Device not responding"},
      {clock(3, 8, 1), 3, "/Meter10/Online/Value", "Boolean", "false", ""},
      {clock(4, 3), 2, "/", nullptr, "", "Data server restarted"},
      {clock(4, 3, 1), 0, "/System/Uptime/Value", "Unsigned64", "60", ""},
      {clock(5, 12), 1, "/", nullptr, "", "Configuration changed"},
      {kAlarmTime + kMinute, 3, "/Meter1/Status/Value", "Unsigned", "8", "Meter reports a fault"},
  };
  std::vector<CEvent> log;
  uint64_t id = 5000;
  for (int day = 0; day < 7; ++day) {
    CEvent backup =
        record(clock(day, 3), CEvent::kKindSystemLevel, "/", nullptr, "", "SystemManager:@local");
    backup.level_quality = 1;
    backup.message = "Daily backup completed";
    log.push_back(backup);
  }
  for (const Entry& entry : entries) {
    CEvent event = record(entry.time, CEvent::kKindSystemLevel, entry.path, entry.type, entry.value,
                          "SystemManager:@local");
    event.level_quality = entry.level;
    event.message = entry.message;
    log.push_back(event);
  }
  std::stable_sort(log.begin(), log.end(), [](const CEvent& a, const CEvent& b) {
    return vtx_UNIXtoVTXtime64(&a.timestamp) < vtx_UNIXtoVTXtime64(&b.timestamp);
  });
  for (CEvent& event : log) event.event_id = id++;
  return log;
}

// One parameter's sample over the window (end - length, end]: the average in its middle, the
// extremes around it, and the value at its end.
using Curve = double (*)(int64_t);

CSample sample(Curve curve, int64_t end, int64_t length, double spread, double count) {
  const double avg = curve(end - length / 2);
  return CSample{roundTo(avg - spread, 3), roundTo(avg + spread, 3), avg, curve(end), count};
}

CSample actualOnly(Curve curve, int64_t end, double count) {
  const double nan = std::nan("");
  return CSample{nan, nan, nan, curve(end), count};
}

CParamProperties param(const char* path, toolkit::trend::sample_type_t type, bool all = true) {
  return {path, type, all, all, all, true};
}

TrendDocument trendLog() {
  TrendDocument doc;
  doc.periods = {{kPeriodA, 672}, {kPeriodB, 168}};
  const double nan = std::nan("");
  CDeviceLog meter{"/Meter1",
                   {param("/Meter1/Voltage", toolkit::trend::SAMPLE_TYPE_NORMAL),
                    param("/Meter1/Current", toolkit::trend::SAMPLE_TYPE_NORMAL),
                    param("/Meter1/Power", toolkit::trend::SAMPLE_TYPE_NORMAL),
                    param("/Meter1/PowerFactor", toolkit::trend::SAMPLE_TYPE_PF),
                    param("/Meter1/Energy", toolkit::trend::SAMPLE_TYPE_NORMAL, false)},
                   {}};
  CDeviceLog ahu{"/AHU1",
                 {param("/AHU1/SupplyTemp", toolkit::trend::SAMPLE_TYPE_NORMAL),
                  param("/AHU1/Setpoint", toolkit::trend::SAMPLE_TYPE_NORMAL)},
                 {}};
  for (uint32_t period : {kPeriodA, kPeriodB}) {
    const int64_t length = period == kPeriodA ? kQuarter : kHour;
    const double count = static_cast<double>(length / kMinute);
    int index = 0;
    for (int64_t t = kStart + length; t <= kEnd; t += length, ++index) {
      const auto seconds = static_cast<time_t>(t / 1000);
      const bool outage = period == kPeriodA && index >= kOutageFirst && index <= kOutageLast;
      CSnapshot m{period, seconds, outage ? 0.0 : 100.0, {}};
      if (outage) {
        m.data.assign(meter.params.size(), CSample{nan, nan, nan, nan, 0});
      } else {
        m.data = {sample(voltage, t, length, 1.2, count), sample(current, t, length, 4, count),
                  sample(power, t, length, 1.1, count), sample(powerFactor, t, length, 0.02, count),
                  actualOnly(energy, t, count)};
      }
      meter.snapshots.push_back(m);
      CSnapshot a{
          period,
          seconds,
          100.0,
          {sample(supplyTemp, t, length, 0.6, count), sample(setpoint, t, length, 0, count)}};
      if (period == kPeriodA && index == kGlitch) {
        a.percent_valid = 50;
        a.data[0] = CSample{17.9, 18.6, nan, nan, count / 2};
      }
      ahu.snapshots.push_back(a);
    }
  }
  doc.devices = {meter, ahu};
  return doc;
}

void removeLog(const std::string& path) {
  std::error_code ignored;
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    std::filesystem::remove(path + suffix, ignored);
  }
}

}  // namespace

DemoHistory buildDemoHistory() {
  return DemoHistory{deltaLog(), alarmLog(), systemLog(), trendLog()};
}

std::vector<std::string> demoLogFiles(const std::string& dir) {
  std::vector<std::string> files;
  for (const char* name : {"deadband.db", "alarms.db", "system.db", "interval-trends.db"}) {
    files.push_back(joinPath(dir, name));
  }
  return files;
}

void writeDemoHistory(const std::string& dir, bool replace) {
  const std::vector<std::string> files = demoLogFiles(dir);
  for (const std::string& file : files) {
    std::error_code error;
    if (!std::filesystem::exists(file, error)) continue;
    if (!replace) {
      throw OperationError(errorText(file, "exists (use --force to replace the demo's logs)"));
    }
    removeLog(file);
  }
  const DemoHistory history = buildDemoHistory();
  appendEventLog(files[0], history.deltas);
  appendEventLog(files[1], history.alarms);
  appendEventLog(files[2], history.system);
  replaceTrendLog(files[3], history.trends);
}

}  // namespace cdstool
