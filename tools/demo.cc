// `cds demo`: builds the demo gateway into the store.
#include "tools/demo.h"

#include <ostream>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/demo_history.h"

namespace cdstool {
namespace {

// The root has children or stored leaves. Rights alone do not count: a new store may
// well be given its rules first.
bool storeIsEmpty(Context& ctx) {
  std::vector<std::string> children;
  std::vector<toolkit::leaf_record_t> leaves;
  api_status_t status = API_STATUS_UNKNOWN;
  int result = ctx.cds.list_children("/", children, status);
  checkStatus(result, status, "/");
  result = ctx.cds.list_leaves("/", leaves, status);
  checkStatus(result, status, "/");
  return children.empty() && leaves.empty();
}

int runDemo(Context& ctx, const ParsedArgs& args) {
  bool force = args.has("--force");
  if (!force && !storeIsEmpty(ctx)) {
    throw OperationError(
        errorText("demo", "the store is not empty (use --force to rebuild the demo)"));
  }
  Document doc;
  buildDemo(doc);
  if (args.has("--logs")) writeDemoHistory(args.value("--logs", "."), force);
  if (force) {
    for (const std::string& subtree : demoSubtrees()) {
      api_status_t status = API_STATUS_UNKNOWN;
      int result = ctx.cds.remove_node(subtree, status, false, ctx.source);
      if (result == 0 && status == API_STATUS_NO_NODE) continue;
      checkStatus(result, status, subtree);
    }
  }
  importDocument(ctx.cds, doc, ctx.source);
  ctx.out << "demo gateway built: " << doc.leaves.size() << " leaves, " << doc.rights.size()
          << " rights\n";
  if (args.has("--logs")) {
    ctx.out << "demo history written: ";
    const char* separator = "";
    for (const std::string& file : demoLogFiles(args.value("--logs", "."))) {
      ctx.out << separator << file;
      separator = ", ";
    }
    ctx.out << "\n";
  }
  return kExitOk;
}

}  // namespace

Command demoCommand() {
  return {"demo",
          "[--force] [--logs DIR]",
          "Builds the demo gateway (devices, points of every type, multistate and boolean\n"
          "points, alarm limits, the /Alarms table, command areas, the subscription\n"
          "publisher's records and the rights of the users guest, operator and admin) in\n"
          "one transaction; docs/demo.md lists it. Refuses a store that is not empty.\n"
          "  --force       first remove what the demo creates, then build it again\n"
          "  --logs DIR    also write a week of history into DIR: the delta log deadband.db,\n"
          "                the alarm/event log alarms.db, the system log system.db and the\n"
          "                trend log interval-trends.db (wsgated -h, -a, -s, -t); existing\n"
          "                files are refused unless --force, which replaces them",
          {{"--force", false}, {"--logs", true}},
          0,
          0,
          runDemo};
}

}  // namespace cdstool
