// `cds rights`, `cds events` and `cds syslog`: the rights rules, the event queue and the
// system log.
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "platform/event.h"
#include "platform/vtx.h"
#include "tools/commands.h"
#include "tools/format.h"
#include "tools/interchange.h"

namespace cdstool {
namespace {

constexpr size_t kDefaultMax = 100;

std::string quotedUser(const std::string& user) {
  return user.empty() ? "\"\"" : user;
}

void requireArgs(const ParsedArgs& args, size_t count) {
  if (args.positional.size() < count) throw UsageError("missing arguments");
  if (args.positional.size() > count) {
    throw UsageError("unexpected argument " + args.positional[count]);
  }
}

int listRights(Context& ctx) {
  std::vector<toolkit::right_rule_t> rules;
  if (ctx.cds.rights_list(rules) != 0) {
    throw OperationError(errorText("rights", "store access failed"));
  }
  std::sort(rules.begin(), rules.end(), [](const auto& a, const auto& b) {
    return a.user != b.user ? a.user < b.user : a.prefix < b.prefix;
  });
  size_t user_width = 4;
  size_t prefix_width = 6;
  for (const auto& rule : rules) {
    user_width = std::max(user_width, quotedUser(rule.user).size());
    prefix_width = std::max(prefix_width, rule.prefix.size());
  }
  auto pad = [](const std::string& text, size_t width) {
    return text + std::string(width - text.size() + 2, ' ');
  };
  ctx.out << pad("USER", user_width) << pad("PREFIX", prefix_width) << "RIGHTS\n";
  for (const auto& rule : rules) {
    ctx.out << pad(quotedUser(rule.user), user_width) << pad(rule.prefix, prefix_width)
            << (rule.rights.empty() ? "-" : rule.rights) << "\n";
  }
  return kExitOk;
}

int runRights(Context& ctx, const ParsedArgs& args) {
  const std::string& action = args.positional[0];
  if (action == "list") {
    requireArgs(args, 1);
    return listRights(ctx);
  }
  if (action == "grant") {
    requireArgs(args, 4);
    // "-" grants nothing: a rule that denies everything below its prefix.
    std::string letters = args.positional[3] == "-" ? "" : args.positional[3];
    if (!validRights(letters)) {
      throw UsageError("\"" + letters + "\" is not a set of the letters r, w, d, x");
    }
    const std::string& prefix = args.positional[2];
    if (prefix.empty() || prefix[0] != '/') {
      throw UsageError("\"" + prefix + "\" is not an absolute path");
    }
    if (ctx.cds.rights_set({args.positional[1], prefix, letters}) != 0) {
      throw OperationError(errorText("rights", "store access failed"));
    }
    return kExitOk;
  }
  if (action == "revoke") {
    requireArgs(args, 3);
    api_status_t status = API_STATUS_UNKNOWN;
    int result = ctx.cds.rights_remove(args.positional[1], args.positional[2], status);
    if (result == 0 && status == API_STATUS_NO_LEAF) {
      throw OperationError(
          errorText(args.positional[2], "no rule for user " + quotedUser(args.positional[1])));
    }
    checkStatus(result, status, args.positional[2]);
    return kExitOk;
  }
  throw UsageError("unknown action \"" + action + "\" (list, grant, revoke)");
}

// Every field of an event, set or not, for programs.
nlohmann::ordered_json eventJson(const toolkit::CEvent& event) {
  nlohmann::ordered_json value = nullptr;
  if (event.value.get_type() != DATA_TYPE_NONE) value = event.value.to_string();
  return {{"time", vtx_UNIXtoVTXtime64(&event.timestamp)},
          {"kind", event.kind},
          {"kind_name", kindName(event.kind)},
          {"event_id", event.event_id},
          {"source_path", event.source_path},
          {"category", event.category},
          {"value", value},
          {"value_type", typeName(event.value.get_type())},
          {"level_quality", event.level_quality},
          {"quality", event.quality()},
          {"message", event.message},
          {"sequence_index", event.sequence_index},
          {"ack_status", event.ack_status},
          {"ack_name", ackName(event.ack_status)},
          {"variation_level", event.variation_level},
          {"base_priority", event.base_priority},
          {"condition_present", event.condition_present},
          {"auto_closing", event.auto_closing},
          {"note", event.note},
          {"source", event.source}};
}

int runEvents(Context& ctx, const ParsedArgs& args) {
  size_t max = args.has("--max") ? parseCount("--max", args.value("--max", "")) : kDefaultMax;
  std::vector<toolkit::CEvent> events;
  if (ctx.cds.events_list(events, max) != 0) {
    throw OperationError(errorText("events", "store access failed"));
  }
  if (args.has("--json")) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& event : events) list.push_back(eventJson(event));
    ctx.out << list.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
    return kExitOk;
  }
  for (const auto& event : events) ctx.out << eventLine(event) << "\n";
  return kExitOk;
}

std::string severityName(syslog_severity_t severity) {
  static const char* const kNames[] = {"emerg",   "alert",  "crit", "err",
                                       "warning", "notice", "info", "debug"};
  int index = static_cast<int>(severity);
  return index >= 0 && index <= 7 ? kNames[index] : std::to_string(index);
}

int runSyslog(Context& ctx, const ParsedArgs& args) {
  size_t max = args.has("--max") ? parseCount("--max", args.value("--max", "")) : kDefaultMax;
  std::vector<toolkit::CCds::syslog_record_t> records;
  if (ctx.cds.syslog_list(records, max) != 0) {
    throw OperationError(errorText("syslog", "store access failed"));
  }
  for (const auto& record : records) {
    ctx.out << isoTime(record.time) << " " << severityName(record.severity) << " ";
    // Lines without an application (the data server's reset requests) start with the text.
    if (!record.app.empty()) ctx.out << record.app << ": ";
    ctx.out << record.text;
    if (!record.detail.empty()) ctx.out << " (" << record.detail << ")";
    ctx.out << "\n";
  }
  return kExitOk;
}

}  // namespace

Command rightsCommand() {
  return {"rights",
          "list | grant USER PREFIX LETTERS | revoke USER PREFIX",
          "Shows and changes the rights rules. LETTERS are from r (read), w (write),\n"
          "d (remove) and x (reset); \"-\" grants nothing, which denies USER everything below\n"
          "PREFIX. A user's rule with the longest matching prefix decides; users without one\n"
          "fall back to the rules of \"*\". grant replaces an existing rule for the same user\n"
          "and prefix; revoke removes it.",
          {},
          1,
          4,
          runRights};
}

Command eventsCommand() {
  return {"events",
          "[--max N] [--json]",
          "Lists the newest N queued events (default 100), oldest first, one line each:\n"
          "time, kind, event id, source path and the fields that are set (texts quoted,\n"
          "with \\\", \\\\, \\n and \\xNN escapes). --json gives a JSON array of the same\n"
          "events with every field, for programs.",
          {{"--max", true}, {"--json", false}},
          0,
          0,
          runEvents};
}

Command syslogCommand() {
  return {"syslog",
          "[--max N]",
          "Lists the newest N system-log records (default 100), oldest first, one line each:\n"
          "time, severity, application: text (detail); the application and the detail only\n"
          "when set.",
          {{"--max", true}},
          0,
          0,
          runSyslog};
}

}  // namespace cdstool
