// The demo gateway's data, kept in the tables below so that it reads in one place, and the
// builder that turns them into one interchange document. docs/demo.md mirrors the tables;
// change both together.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/path.h"
#include "platform/vtx.h"
#include "tools/cli.h"
#include "tools/demo.h"

namespace cdstool {
namespace {

// Alarm times: 2023-11-14T22:13:20Z and one and two minutes later.
constexpr int64_t kT0 = 1700000000000;
constexpr int64_t kMinute = 60000;

struct DemoDevice {
  const char* path;
  const char* display_name;
  const char* quality;
  const char* change_count;
};

struct DemoPoint {
  const char* path;
  const char* type;
  const char* value;
  bool writable;
  const char* units;    // nullptr: no Units leaf
  const char* minimum;  // nullptr: no Minimum, Maximum and Resolution leaves
  const char* maximum;
  const char* resolution;
  const char* texts;  // PossibleValues and WritableValues; nullptr: none
};

struct DemoLimits {
  const char* path;
  const char* hi_critical;
  const char* hi_cautionary;
  const char* low_cautionary;
  const char* low_critical;
  const char* enabled;
  const char* hysteresis;
};

struct DemoAlarm {
  const char* event_id;
  const char* source_path;
  const char* source_type;
  const char* source_value;
  const char* message;
  const char* sequence;
  const char* level;  // 1 not acknowledged (variation 2), 3 acknowledged, 5 closed
  const char* raised;
  const char* note;
  const char* base_priority;  // nullptr: no .BasePriority leaf
  const char* auto_closing;
  int64_t time;
};

struct DemoCommandArea {
  const char* device;
  const char* wsdl_version;
  const char* max_count;
  std::vector<const char*> commands;  // below cmdList: "cmdLine/TEXT", "cmdBasic/NAME/PARAM"
};

struct DemoRealTimeNode {
  const char* path;
  const char* freshness;  // RqstdFreshness, milliseconds
  const char* deadband;   // Deadband, percent
};

// A subscription record as createSubscription writes it.
struct DemoSubscription {
  const char* id;
  const char* reply_uri;
  const char* lease;
  int64_t log_since;
  const char* log_options;
  std::vector<DemoRealTimeNode> nodes;
};

// A result a device handler left in a device's output queue.
struct DemoCommandResult {
  const char* device;
  const char* handle;
  const char* text;
};

struct DemoLeaf {
  const char* path;
  const char* type;
  const char* value;
};

constexpr bool R = false;  // read-only point
constexpr bool W = true;   // writable point

// clang-format off
const DemoDevice kDevices[] = {
  // path                display name          .Quality  sDevChangeCount
  {"/",                  "Demo Gateway",       "192",    "4"},
  {"/Meter1",            "Main Meter",         "192",    "2"},
  {"/Meter1/Submeter",   "Lighting Submeter",  "192",    "1"},
  {"/Meter10",           "Feeder Meter 10",    "0",      "7"},
  {"/AHU1",              "Air Handler 1",      "192",    "3"},
};

const DemoPoint kPoints[] = {
  // path                      type          value              w  units    min      max             res     texts
  {"/System/SerialNumber",     "String",     "WSG-2023-000117", R, nullptr, nullptr, nullptr,        nullptr, nullptr},
  {"/System/Location",         "String",     "Plant room B",    W, nullptr, nullptr, nullptr,        nullptr, nullptr},
  {"/System/Uptime",           "Unsigned64", "864000",          R, "s",     nullptr, nullptr,        nullptr, nullptr},
  {"/System/BootTime",         "timeval",    "1699136000000",   R, nullptr, nullptr, nullptr,        nullptr, nullptr},
  {"/System/CpuLoad",          "Real",       "12.5",            R, "%",     "0",     "100",          "0.1",   nullptr},
  {"/Meter1/Voltage",          "Real",       "230.4",           R, "V",     "0",     "500",          "0.1",   nullptr},
  {"/Meter1/Current",          "Real",       "41.7",            R, "A",     "0",     "200",          "0.1",   nullptr},
  {"/Meter1/Power",            "Real",       "9.61",            R, "kW",    "-500",  "500",          "0.01",  nullptr},
  {"/Meter1/Frequency",        "Real",       "50.02",           R, "Hz",    "45",    "65",           "0.01",  nullptr},
  {"/Meter1/Energy",           "Unsigned64", "5000000000",      R, "Wh",    "0",     "99999999999",  "1",     nullptr},
  {"/Meter1/ReactiveEnergy",   "Integer64",  "-1234567890123",  R, "varh",  "-99999999999999", "99999999999999", "1", nullptr},
  {"/Meter1/DemandLimit",      "Integer",    "250",             W, "kW",    "0",     "1000",         "1",     nullptr},
  {"/Meter1/Breaker",          "Boolean",    "true",            W, nullptr, nullptr, nullptr,        nullptr, "Open;Closed"},
  {"/Meter1/Mode",             "Unsigned",   "1",               W, nullptr, nullptr, nullptr,        nullptr, "Off;Auto;Manual"},
  {"/Meter1/Status",           "Unsigned",   "4",               R, nullptr, nullptr, nullptr,        nullptr, "0=Normal;4=Warning;8=Fault"},
  {"/Meter1/SerialNumber",     "String",     "EM-1-00042",      R, nullptr, nullptr, nullptr,        nullptr, nullptr},
  {"/Meter1/LastReset",        "timeval",    "1699999000000",   W, nullptr, nullptr, nullptr,        nullptr, nullptr},
  {"/Meter1/Submeter/Power",   "Real",       "1.25",            R, "kW",    "0",     "50",           "0.01",  nullptr},
  {"/Meter1/Submeter/Online",  "Boolean",    "true",            R, nullptr, nullptr, nullptr,        nullptr, nullptr},
  {"/Meter10/Voltage",         "Real",       "0",               R, "V",     "0",     "500",          "0.1",   nullptr},
  {"/Meter10/Energy",          "Unsigned64", "123456789",       R, "Wh",    "0",     "99999999999",  "1",     nullptr},
  {"/Meter10/Online",          "Boolean",    "false",           R, nullptr, nullptr, nullptr,        nullptr, nullptr},
  {"/AHU1/SupplyTemp",         "Real",       "18.5",            R, "°C",    "-40",   "80",           "0.1",   nullptr},
  {"/AHU1/Setpoint",           "Real",       "21",              W, "°C",    "10",    "30",           "0.5",   nullptr},
  {"/AHU1/Fan",                "Boolean",    "false",           W, nullptr, nullptr, nullptr,        nullptr, "Off;On"},
  {"/AHU1/Mode",               "Unsigned",   "3",               W, nullptr, nullptr, nullptr,        nullptr, "Off;Heat;Cool;Auto"},
  {"/AHU1/FanSpeedOffset",     "Integer",    "-5",              W, "%",     "-20",   "20",           "1",     nullptr},
  {"/AHU1/RunHours",           "Unsigned",   "12873",           R, "h",     "0",     "4294967295",   "1",     nullptr},
};

const DemoLimits kLimits[] = {
  // point                 .HiCritical .HiCautionary .LowCautionary .LowCritical .AlarmEnabled .Hysteresis
  {"/Meter1/Voltage",      "253",      "245",        "215",         "207",       "true",       "1"},
  {"/Meter1/Current",      "180",      "150",        "1",           "0",         "false",      "2"},
  {"/AHU1/SupplyTemp",     "30",       "26",         "12",          "8",         "true",       "0.5"},
};

const DemoAlarm kAlarms[] = {
  // id            source              type       value    message                          seq  level raised   note                   priority  autoclose  time
  {"1001",         "/Meter1/Voltage",  "Real",    "254.2", "Voltage above critical limit",  "1", "1",  "true",  "",                    "100",    "false",   kT0},
  {"1002",         "/AHU1/SupplyTemp", "Real",    "26.8",  "Supply temperature high",       "2", "3",  "true",  "Checked by operator", "500",    "true",    kT0 + kMinute},
  {"1003",         "/Meter10/Online",  "Boolean", "false", "Communication lost",            "3", "5",  "false", "Cable replaced",      nullptr,  "true",    kT0 + 2 * kMinute},
  {"4294967297",   "/Meter1/Status",   "Unsigned", "8",    "Meter fault",                   "4", "0",  "true",  "",                    "200",    "false",   kT0 + kMinute},
};

const DemoCommandArea kCommandAreas[] = {
  {"/Meter1", "1", "2", {"cmdLine/reset demand", "cmdLine/clear energy", "cmdBasic/relay/open",
                         "cmdBasic/relay/close", "cmdBasic/harmonics/voltage",
                         "cmdBasic/harmonics/current", "cmdIval/demandLimit/kW"}},
  {"/AHU1", "1", "4", {"cmdLine/self test", "cmdBasic/fan/start", "cmdBasic/fan/stop",
                       "cmdIval/setpoint/offset"}},
  // Version 0: commands of schema version 1 are refused.
  {"/Meter1/Submeter", "0", "1", {"cmdLine/reset demand"}},
};

const DemoSubscription kSubscriptions[] = {
  // id      reply address                    lease     log since  options (Trend Alarm)
  {"sub-1", "http://192.0.2.10:8081/notify", "600000", kT0,       "5",
   {{"/Meter1/Voltage", "1000", "0.5"}, {"/AHU1/Fan", "5000", "0"}}},
};

// An earlier self test of /AHU1, stored as a handler may write it: without the XML
// declaration, declaring only its own namespace.
const DemoCommandResult kCommandResults[] = {
  {"/AHU1", "0",
   "<nsc3:getDeviceCmdResultResponse xmlns:nsc3=\"http://wsgate.local/ws/BACnetWSKiteC3\">"
   "<result></result><cmdHandle>0</cmdHandle><numericStatus>cmdSuccess</numericStatus>"
   "<cmdStatus>Done</cmdStatus><cmdResults><cmdVersion>1</cmdVersion>"
   "<resText>self test: passed</resText></cmdResults></nsc3:getDeviceCmdResultResponse>"},
};

const DemoLeaf kOtherLeaves[] = {
  {"/Alarms/AlarmCount/Value",                                "Unsigned", "4"},
  {"/Software/Commands/nextCommandID/Value",                  "Integer",  "1"},
  {"/Software/Data Servers/WS-Publisher/SubUpdateCount/Value", "Integer", "0"},
};

const char* const kOtherNodes[] = {
  "/Software/Data Servers/WS-Publisher/Subscriptions",
};

const toolkit::right_rule_t kRights[] = {
  {"*", "/", "r"},
  {"operator", "/", "rw"},
  {"admin", "/", "rwdx"},
};
// clang-format on

void addLeaf(Document& doc, const std::string& path, const char* type, const std::string& text,
             int64_t time = 0) {
  toolkit::leaf_write_t leaf;
  leaf.path = path;
  leaf.value = toolkit::CElement(text);
  if (leaf.value.convert_type(pcd_human_str_to_enum(type)) != 0) {
    throw std::logic_error("demo table: \"" + text + "\" is not a " + type + " (" + path + ")");
  }
  if (time != 0) leaf.value.set_time(vtx_VTXtoUNIXtime64(time));
  doc.leaves.push_back(leaf);
}

void addDevice(Document& doc, const DemoDevice& device) {
  addLeaf(doc, joinPath(device.path, "NodeType"), "String", "Device");
  addLeaf(doc, joinPath(device.path, "DisplayName"), "String", device.display_name);
  addLeaf(doc, joinPath(device.path, ".Quality"), "Unsigned", device.quality);
  addLeaf(doc, joinPath(device.path, "sDevChangeCount/Value"), "Integer", device.change_count);
}

void addPoint(Document& doc, const DemoPoint& point) {
  std::string node = point.path;
  addLeaf(doc, node + "/NodeType", "String", "Point");
  addLeaf(doc, node + "/Value", point.type, point.value);
  addLeaf(doc, node + "/ValueType", "String", point.type);
  addLeaf(doc, node + "/Writable", "Boolean", point.writable ? "true" : "false");
  if (point.units != nullptr) addLeaf(doc, node + "/Units", "String", point.units);
  if (point.minimum != nullptr) {
    addLeaf(doc, node + "/Minimum", point.type, point.minimum);
    addLeaf(doc, node + "/Maximum", point.type, point.maximum);
    addLeaf(doc, node + "/Resolution", point.type, point.resolution);
  }
  if (point.texts != nullptr) {
    addLeaf(doc, node + "/PossibleValues", "String", point.texts);
    addLeaf(doc, node + "/WritableValues", "String", point.texts);
  }
}

// The limits take the type of the point's Value, as the data server's writers assume.
void addLimits(Document& doc, const DemoLimits& limits, const char* type) {
  std::string node = limits.path;
  addLeaf(doc, node + "/.HiCriticalLimit", type, limits.hi_critical);
  addLeaf(doc, node + "/.HiCautionaryLimit", type, limits.hi_cautionary);
  addLeaf(doc, node + "/.LowCautionaryLimit", type, limits.low_cautionary);
  addLeaf(doc, node + "/.LowCriticalLimit", type, limits.low_critical);
  addLeaf(doc, node + "/.AlarmEnabled", "Boolean", limits.enabled);
  addLeaf(doc, node + "/.Hysteresis", type, limits.hysteresis);
}

void addAlarm(Document& doc, const DemoAlarm& alarm) {
  std::string node = std::string("/Alarms/") + alarm.event_id;
  int64_t t = alarm.time;
  addLeaf(doc, node + "/SourcePath/Value", "String", alarm.source_path, t);
  addLeaf(doc, node + "/SourceValue/Value", alarm.source_type, alarm.source_value, t);
  addLeaf(doc, node + "/AlarmMsg/Value", "String", alarm.message, t);
  addLeaf(doc, node + "/SequenceID/Value", "Unsigned", alarm.sequence, t);
  addLeaf(doc, node + "/AlarmLevel/Value", "Unsigned", alarm.level, t);
  addLeaf(doc, node + "/ConditionRaised/Value", "Boolean", alarm.raised, t);
  addLeaf(doc, node + "/Note/Value", "String", alarm.note, t);
  if (alarm.base_priority != nullptr) {
    addLeaf(doc, node + "/.BasePriority", "Unsigned", alarm.base_priority, t);
  }
  addLeaf(doc, node + "/.AutoClosing", "Boolean", alarm.auto_closing, t);
}

std::string commandRoot(const char* device) {
  std::string name;
  CPath::PathToNodeName(device, name);
  return "/Software/Commands/" + name;
}

void addCommandArea(Document& doc, const DemoCommandArea& area) {
  std::string root = commandRoot(area.device);
  addLeaf(doc, root + "/WsdlVersion/Value", "Unsigned", area.wsdl_version);
  for (const char* command : area.commands) doc.nodes.push_back(root + "/cmdList/" + command);
  addLeaf(doc, root + "/inpQueue/maxCount/Value", "Unsigned", area.max_count);
  doc.nodes.push_back(root + "/outQueue");
}

// A node of a subscription record: NodeType "Point" with its Value, or "Collection" (type
// "None") without one.
void addRecordNode(Document& doc, const std::string& node, const char* type, const char* value,
                   const char* units) {
  const bool point = value != nullptr;
  addLeaf(doc, node + "/NodeType", "String", point ? "Point" : "Collection");
  addLeaf(doc, node + "/ValueType", "String", type);
  if (point) addLeaf(doc, node + "/Value", type, value);
  if (units != nullptr) addLeaf(doc, node + "/Units", "String", units);
}

void addSubscription(Document& doc, const DemoSubscription& sub) {
  const std::string root =
      std::string("/Software/Data Servers/WS-Publisher/Subscriptions/") + sub.id;
  const std::string since = std::to_string(sub.log_since);
  const std::string count = std::to_string(sub.nodes.size());
  addRecordNode(doc, root + "/ReplyURI", "String", sub.reply_uri, nullptr);
  addRecordNode(doc, root + "/LeaseDuration", "Integer", sub.lease, "milliseconds");
  addRecordNode(doc, root + "/LogSinceTime", "timeval", since.c_str(), nullptr);
  addRecordNode(doc, root + "/LogOptions", "Integer", sub.log_options, "no-units");
  addRecordNode(doc, root + "/RTNodeCount", "Integer", count.c_str(), "no-units");
  addRecordNode(doc, root + "/RTNodes", "None", nullptr, nullptr);
  addLeaf(doc, root + "/RTNodes/HasDynamicChildren", "Boolean", "true");
  for (const DemoRealTimeNode& node : sub.nodes) {
    std::string name;
    CPath::PathToNodeName(node.path, name);
    const std::string entry = root + "/RTNodes/" + name;
    addRecordNode(doc, entry, "None", nullptr, nullptr);
    addRecordNode(doc, entry + "/RqstdFreshness", "Integer", node.freshness, "milliseconds");
    addRecordNode(doc, entry + "/Deadband", "Real", node.deadband, "percent");
  }
}

const char* pointType(const char* path) {
  for (const DemoPoint& point : kPoints) {
    if (std::string(point.path) == path) return point.type;
  }
  throw std::logic_error(std::string("demo table: no point ") + path);
}

}  // namespace

void buildDemo(Document& doc) {
  for (const DemoDevice& device : kDevices) addDevice(doc, device);
  for (const DemoPoint& point : kPoints) addPoint(doc, point);
  for (const DemoLimits& limits : kLimits) addLimits(doc, limits, pointType(limits.path));
  for (const DemoAlarm& alarm : kAlarms) addAlarm(doc, alarm);
  for (const DemoCommandArea& area : kCommandAreas) addCommandArea(doc, area);
  for (const DemoSubscription& sub : kSubscriptions) addSubscription(doc, sub);
  for (const DemoCommandResult& result : kCommandResults) {
    addLeaf(doc, commandRoot(result.device) + "/outQueue/" + result.handle + "/Value", "String",
            result.text);
  }
  for (const DemoLeaf& leaf : kOtherLeaves) addLeaf(doc, leaf.path, leaf.type, leaf.value);
  for (const char* node : kOtherNodes) doc.nodes.push_back(node);
  doc.rights.assign(std::begin(kRights), std::end(kRights));
}

const std::vector<std::string>& demoSubtrees() {
  static const std::vector<std::string> kSubtrees = {
      "/sDevChangeCount",
      "/System",
      "/Meter1",
      "/Meter10",
      "/AHU1",
      "/Alarms",
      "/Software/Commands",
      "/Software/Data Servers/WS-Publisher",
  };
  return kSubtrees;
}

}  // namespace cdstool
