// `cds log` and `cds trend`: the event logs and the trend log, loaded from JSON documents and
// shown for a person to read. They work on the log file they name, never on the store.
#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "platform/log.h"
#include "platform/trend.h"
#include "platform/vtx.h"
#include "tools/commands.h"
#include "tools/format.h"
#include "tools/log_documents.h"

namespace cdstool {
namespace {

constexpr size_t kDefaultMax = 100;

// The action and its arguments: "import DB FILE" or "show DB".
void requireAction(const ParsedArgs& args, bool show_takes_max) {
  const std::string& action = args.positional[0];
  const size_t wanted = action == "import" ? 3 : action == "show" ? 2 : 0;
  if (wanted == 0) throw UsageError("unknown action \"" + action + "\" (import, show)");
  if (args.positional.size() != wanted) {
    throw UsageError(args.positional.size() < wanted
                         ? "missing arguments"
                         : "unexpected argument " + args.positional[wanted]);
  }
  if (args.has("--max") && (action != "show" || !show_takes_max)) {
    throw UsageError("option --max belongs to show");
  }
}

std::string documentName(const std::string& file) {
  return file == "-" ? "stdin" : file;
}

int importLog(Context& ctx, const std::string& db, const std::string& file) {
  std::vector<toolkit::CEvent> records;
  std::string error;
  if (!parseLogDocument(readInput(file), records, error)) {
    throw OperationError(errorText(documentName(file), error));
  }
  appendEventLog(db, records);
  ctx.out << "appended " << records.size() << " records to " << db << "\n";
  return kExitOk;
}

int showLog(Context& ctx, const std::string& db, size_t max) {
  pcd_log_handle_t handle = nullptr;
  if (pcd_log_init(db.c_str(), &handle, 0, 0, 0, 0, 0, 0, 0, 0, 0) != 0) {
    throw NoStoreError(errorText("", pcd_log_last_error()));
  }
  std::vector<toolkit::CEvent> records;
  const int max_count = max > static_cast<size_t>(toolkit::CLog::kNoLimit) ? toolkit::CLog::kNoLimit
                                                                           : static_cast<int>(max);
  const int rc = toolkit::CLog(handle).retrieve(records, "", std::nullopt, std::nullopt, max_count,
                                                true, false, 0);
  pcd_log_close(handle);
  if (rc != 0) throw OperationError(errorText(db, pcd_log_result_text(rc)));
  for (const toolkit::CEvent& record : records) ctx.out << eventLine(record) << "\n";
  return kExitOk;
}

int runLog(Context& ctx, const ParsedArgs& args) {
  requireAction(args, true);
  const std::string& db = args.positional[1];
  if (args.positional[0] == "import") return importLog(ctx, db, args.positional[2]);
  return showLog(ctx, db,
                 args.has("--max") ? parseCount("--max", args.value("--max", "")) : kDefaultMax);
}

// A sample value: the shortest text that reads back as the number, "-" for NaN.
std::string number(double value) {
  if (std::isnan(value)) return "-";
  toolkit::CElement element;
  element.set_real(value);
  return element.to_string();
}

std::string flags(const toolkit::trend::CParamProperties& param) {
  std::string text;
  if (param.has_min) text += " min";
  if (param.has_max) text += " max";
  if (param.has_avg) text += " avg";
  if (param.has_actual) text += " actual";
  return text.empty() ? " (no values)" : text;
}

void showDevice(Context& ctx, toolkit::trend::CLog& log,
                const toolkit::trend::CDeviceProperties& device,
                const std::vector<uint32_t>& periods, const std::string& db) {
  std::vector<toolkit::trend::CParamProperties> params;
  toolkit::trend::CDeviceParams wanted{device.path, {}};
  int rc = log.get_params(device, params);
  for (const auto& param : params) wanted.param_paths.push_back(param.path);
  toolkit::trend::CDeviceData data;
  if (rc == 0) {
    rc = log.get_trend_data(data, wanted, periods, {INT64_MIN, -1}, INT32_MAX, 0, true, true);
  }
  if (rc != 0) throw OperationError(errorText(db, pcd_log_result_text(rc)));
  ctx.out << "device " << device.path << ": " << params.size() << " params, "
          << data.snapshots.size() << " snapshots\n";
  for (const auto& param : params) {
    ctx.out << "  param " << param.path << "  " << sampleTypeName(param.type) << flags(param)
            << "\n";
  }
  for (const auto& snapshot : data.snapshots) {
    ctx.out << "  " << isoTime(int64_t{snapshot.timestamp} * 1000) << "  period " << snapshot.period
            << "  valid " << number(snapshot.percent_valid) << "%\n";
    for (size_t i = 0; i < snapshot.data.size(); ++i) {
      const toolkit::trend::CSample& s = snapshot.data[i];
      ctx.out << "    " << params[i].path << "  min " << number(s.min) << "  max " << number(s.max)
              << "  avg " << number(s.avg) << "  actual " << number(s.actual) << "  count "
              << number(s.count) << "\n";
    }
  }
}

int showTrend(Context& ctx, const std::string& db) {
  toolkit::trend::CLog log;
  if (log.open(db, true, false, 0, false, 0, 0, 0, false) != 0) {
    throw NoStoreError(errorText("", log.last_error()));
  }
  std::vector<toolkit::trend::CPeriodProperties> periods;
  std::vector<toolkit::trend::CDeviceProperties> devices;
  int rc = log.get_periods(periods);
  if (rc == 0) rc = log.get_devices(devices);
  if (rc != 0) throw OperationError(errorText(db, pcd_log_result_text(rc)));
  std::vector<uint32_t> numbers;
  ctx.out << "periods:\n";
  for (const auto& period : periods) {
    ctx.out << "  " << period.period << "  max-entries " << period.max_entries << "\n";
    numbers.push_back(period.period);
  }
  for (const auto& device : devices) showDevice(ctx, log, device, numbers, db);
  return kExitOk;
}

int importTrend(Context& ctx, const std::string& db, const std::string& file) {
  TrendDocument doc;
  std::string error;
  if (!parseTrendDocument(readInput(file), doc, error)) {
    throw OperationError(errorText(documentName(file), error));
  }
  replaceTrendLog(db, doc);
  size_t snapshots = 0;
  for (const auto& device : doc.devices) snapshots += device.snapshots.size();
  ctx.out << "wrote " << doc.periods.size() << " periods, " << doc.devices.size() << " devices, "
          << snapshots << " snapshots to " << db << "\n";
  return kExitOk;
}

int runTrend(Context& ctx, const ParsedArgs& args) {
  requireAction(args, false);
  const std::string& db = args.positional[1];
  if (args.positional[0] == "import") return importTrend(ctx, db, args.positional[2]);
  return showTrend(ctx, db);
}

}  // namespace

Command logCommand() {
  Command command{
      "log",
      "import DB FILE|- | show DB [--max N]",
      "Works on the event log (delta, alarm/event or system log) in the SQLite file DB.\n"
      "  import  appends the records of a JSON document (from standard input for \"-\") in\n"
      "          one transaction, creating DB when needed; a wrong document writes nothing\n"
      "          and the error names the item. The document:\n"
      "            {\"records\": [{\"time\": 1700000000000, \"kind\": 1,\n"
      "                         \"source_path\": \"/AHU1/Temp/Value\", \"type\": \"Real\",\n"
      "                         \"value\": \"21.5\", \"quality\": 192}, ...]}\n"
      "          \"time\" (platform time, ms) is required; the other keys are the record's\n"
      "          fields (docs/cds.md lists them).\n"
      "  show    prints the newest N records (default 100), oldest first, one line each.\n"
      "Exit status 3 when DB cannot be opened or created.",
      {{"--max", true}},
      2,
      3,
      runLog};
  command.uses_store = false;
  return command;
}

Command trendCommand() {
  Command command{
      "trend",
      "import DB FILE|- | show DB",
      "Works on the trend log in the SQLite file DB.\n"
      "  import  replaces its whole content with a JSON document (from standard input for\n"
      "          \"-\") in one transaction, creating DB when needed; a wrong document writes\n"
      "          nothing and the error names the item. The document:\n"
      "            {\"periods\": [{\"period\": 1, \"max-entries\": 96}],\n"
      "             \"devices\": [{\"path\": \"/AHU1\", \"params\": [{\"path\": \"/AHU1/Temp\"}],\n"
      "               \"snapshots\": [{\"period\": 1, \"timestamp\": 1700000000000,\n"
      "                 \"percent-valid\": 87.5, \"data\": [{\"min\": 20.5, \"max\": 22,\n"
      "                 \"avg\": 21.25, \"actual\": 21.5, \"count\": 12}]}]}]}\n"
      "          (docs/cds.md lists every key; null stands for a missing value).\n"
      "  show    prints the periods, then each device's params and snapshots.\n"
      "Exit status 3 when DB cannot be opened or created.",
      {},
      2,
      3,
      runTrend};
  command.uses_store = false;
  return command;
}

}  // namespace cdstool
