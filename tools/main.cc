// cds: the command-line tool for the gateway's Data store.
//
//   cds [--db FILE] COMMAND ARGS...
//
// Global options come before the command; everything after it belongs to the command.
#include <pwd.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/cds.h"
#include "platform/event.h"
#include "tools/commands.h"

namespace cdstool {
namespace {

const std::vector<Command>& commandTable() {
  static const std::vector<Command> kCommands = {
      getCommand(),    setCommand(),    lsCommand(),     treeCommand(),
      mkdirCommand(),  rmCommand(),     importCommand(), exportCommand(),
      rightsCommand(), eventsCommand(), syslogCommand(), logCommand(),
      trendCommand(),  demoCommand(),   handlerCommand(),
  };
  return kCommands;
}

const Command* findCommand(const std::string& name) {
  for (const Command& command : commandTable()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

void printToolHelp(std::ostream& out) {
  out << "Usage: cds [--db FILE] COMMAND ARGS...\n"
         "The command-line tool for the gateway's Data store and history logs.\n\n"
         "Commands:\n";
  for (const Command& command : commandTable()) {
    out << "  " << command.name << " " << command.synopsis << "\n";
  }
  out << "\nOptions:\n"
         "  --db FILE  the store file (default: $CDS_PATH, else ./cds.db)\n"
         "  --help     this text; `cds COMMAND --help` describes one command\n\n"
         "Writes carry the source text \"cds:USER@local\" (USER from the environment).\n\n"
         "Exit status:\n"
         "  0  success\n"
         "  1  the operation failed (missing node or leaf, refused write, wrong document)\n"
         "  2  usage error (unknown command or option, wrong arguments, a value that does\n"
         "     not read as its type)\n"
         "  3  the store (or the log DB of `log` and `trend`) could not be opened\n";
}

void printCommandHelp(std::ostream& out, const Command& command) {
  out << "Usage: cds " << command.name << " " << command.synopsis << "\n" << command.help << "\n";
}

// Prints "cds[ COMMAND]: MESSAGE", then the usage: the command's own when `command` is
// given, the tool's when `tool_usage` is set, none otherwise (a bad value needs no usage).
int usageError(const std::string& where, const std::string& message, const Command* command,
               bool tool_usage = false) {
  std::cerr << "cds" << where << ": " << message << "\n";
  if (command != nullptr) {
    std::cerr << "usage: cds " << command->name << " " << command->synopsis << "\n"
              << "Try 'cds " << command->name << " --help'.\n";
  } else if (tool_usage) {
    std::cerr << "usage: cds [--db FILE] COMMAND ARGS...\nTry 'cds --help'.\n";
  }
  return kExitUsage;
}

// The writer's source text: the tool's name, the login user and "local".
std::string sourceText() {
  const char* user = std::getenv("USER");
  if (user == nullptr || *user == '\0') {
    const passwd* entry = getpwuid(getuid());
    user = entry != nullptr ? entry->pw_name : "";
  }
  std::string source;
  toolkit::CEvent::format_source_string(source, "cds", user, "local");
  return source;
}

std::string storeName(const std::string& db) {
  if (!db.empty()) return db;
  const char* env = std::getenv("CDS_PATH");
  return env != nullptr && *env != '\0' ? env : "./cds.db";
}

int runCommand(const Command& command, const ParsedArgs& args, const std::string& db) {
  if (!db.empty()) setenv("CDS_PATH", db.c_str(), 1);
  pcd_handle_t handle = command.uses_store ? pcd_init(0) : nullptr;
  if (command.uses_store && handle == nullptr) {
    // The platform's text names the file and the reason.
    std::string reason = pcd_last_error();
    std::cerr << (reason.empty() ? errorText(storeName(db), "cannot open the store")
                                 : errorText("", reason))
              << "\n";
    return kExitNoStore;
  }
  toolkit::CCds cds(handle);
  Context ctx{cds, sourceText(), std::cout, std::cerr};
  int exit_code = kExitFailed;
  try {
    exit_code = command.run(ctx, args);
  } catch (const UsageError& e) {
    exit_code =
        usageError(std::string(" ") + command.name, e.what(), e.show_usage() ? &command : nullptr);
  } catch (const OperationError& e) {
    std::cerr << e.what() << "\n";
  } catch (const NoStoreError& e) {
    std::cerr << e.what() << "\n";
    exit_code = kExitNoStore;
  } catch (const std::exception& e) {
    std::cerr << errorText(command.name, e.what()) << "\n";
  }
  if (handle != nullptr) pcd_close(handle);
  std::cout.flush();
  if (!std::cout && exit_code == kExitOk) {
    std::cerr << "cds: cannot write the output\n";
    exit_code = kExitFailed;
  }
  return exit_code;
}

int toolMain(const std::vector<std::string>& argv) {
  std::string db;
  size_t i = 0;
  for (; i < argv.size() && argv[i].size() > 1 && argv[i][0] == '-'; ++i) {
    const std::string& arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      printToolHelp(std::cout);
      return kExitOk;
    }
    if (arg == "--db") {
      if (i + 1 >= argv.size()) return usageError("", "option --db needs a value", nullptr, true);
      db = argv[++i];
    } else if (arg.compare(0, 5, "--db=") == 0) {
      db = arg.substr(5);
    } else {
      return usageError("", "unknown option " + arg, nullptr, true);
    }
    if (db.empty()) return usageError("", "option --db needs a file name", nullptr, true);
  }
  if (i >= argv.size()) return usageError("", "missing command", nullptr, true);
  const Command* command = findCommand(argv[i]);
  if (command == nullptr)
    return usageError("", "unknown command \"" + argv[i] + "\"", nullptr, true);
  ParsedArgs args;
  try {
    auto rest = std::next(argv.begin(), static_cast<std::ptrdiff_t>(i + 1));
    args = parseArgs(*command, std::vector<std::string>(rest, argv.end()));
  } catch (const UsageError& e) {
    return usageError(std::string(" ") + command->name, e.what(), command);
  }
  if (args.has("--help")) {
    printCommandHelp(std::cout, *command);
    return kExitOk;
  }
  return runCommand(*command, args, db);
}

}  // namespace
}  // namespace cdstool

int main(int argc, char** argv) {
  return cdstool::toolMain(std::vector<std::string>(argv + 1, argv + argc));
}
