// The demo gateway's history: a week of delta, alarm/event and system log records and of
// trend snapshots, ending at the demo's alarms. `cds demo --logs DIR` writes it beside the
// store; docs/demo.md describes it.
#ifndef WSGATE_TOOLS_DEMO_HISTORY_H
#define WSGATE_TOOLS_DEMO_HISTORY_H

#include <string>
#include <vector>

#include "platform/event.h"
#include "tools/log_documents.h"

namespace cdstool {

struct DemoHistory {
  std::vector<toolkit::CEvent> deltas;  // the delta log
  std::vector<toolkit::CEvent> alarms;  // the alarm/event log
  std::vector<toolkit::CEvent> system;  // the system log
  TrendDocument trends;
};

// The history, the same at every call.
DemoHistory buildDemoHistory();

// The files of the history in `dir`, under the daemon's default names: "deadband.db",
// "alarms.db", "system.db", "interval-trends.db".
std::vector<std::string> demoLogFiles(const std::string& dir);

// Writes the history into `dir` (demoLogFiles). Files that exist are refused
// (OperationError naming them) unless `replace`, which removes them first.
void writeDemoHistory(const std::string& dir, bool replace);

}  // namespace cdstool

#endif  // WSGATE_TOOLS_DEMO_HISTORY_H
