// Command-line plumbing of the `cds` tool: exit codes, argument parsing, command table
// entries and the one-line error messages.
#ifndef WSGATE_TOOLS_CLI_H
#define WSGATE_TOOLS_CLI_H

#include <iosfwd>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/cds.h"

namespace cdstool {

// Exit codes of the tool.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;   // the operation failed: missing node or leaf, refused write
constexpr int kExitUsage = 2;    // bad arguments: unknown command or option, bad type or value
constexpr int kExitNoStore = 3;  // the store (or the log a command names) could not be opened

// An option a command accepts: its spelling ("-l", "--max") and whether it takes a value.
struct OptionDef {
  const char* name;
  bool takes_value;
};

// A command's arguments after parsing: the options given (value "" for flags) and the
// positional arguments in order.
struct ParsedArgs {
  std::map<std::string, std::string> options;
  std::vector<std::string> positional;

  bool has(const std::string& option) const { return options.count(option) != 0; }
  // The option's value, or `fallback` when the option was not given.
  std::string value(const std::string& option, const std::string& fallback) const;
};

// Thrown for a usage error; main prints the message and, when `show_usage`, the command's
// usage line; exit code 2. A value that does not read as its type is one, without usage.
class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string& what, bool show_usage = true)
      : std::runtime_error(what), show_usage_(show_usage) {}
  bool show_usage() const { return show_usage_; }

 private:
  bool show_usage_;
};

// Thrown when the operation fails; main prints the message (made by errorText), exit code
// 1. Commands that go on after a failed item report it with reportError instead.
class OperationError : public std::runtime_error {
 public:
  explicit OperationError(const std::string& what) : std::runtime_error(what) {}
};

// Thrown when the file a command works on (a log database) cannot be opened or created;
// main prints the message, exit code 3.
class NoStoreError : public std::runtime_error {
 public:
  explicit NoStoreError(const std::string& what) : std::runtime_error(what) {}
};

// What a command runs with: the open store, the writer's source text and the streams.
struct Context {
  toolkit::CCds& cds;
  std::string source;
  std::ostream& out;
  std::ostream& err;
};

// One entry of the command table.
struct Command {
  const char* name;
  const char* synopsis;  // the arguments after the name, for usage lines
  const char* help;      // the description printed by `cds COMMAND --help`
  std::vector<OptionDef> options;
  size_t min_args;
  size_t max_args;
  int (*run)(Context& ctx, const ParsedArgs& args);
  // False for the commands on log files, which run without opening the store.
  bool uses_store = true;
};

// Splits `args` into options and positional arguments under `command`'s option list.
// An argument beginning with "-" is an option unless it is "-" alone or reads as a
// negative number (a value such as "-5" for `set`); "--" ends the options. Throws
// UsageError for an unknown option, a missing option value or a wrong argument count.
// "--help" is accepted by every command and recorded like any flag.
ParsedArgs parseArgs(const Command& command, const std::vector<std::string>& args);

// Parses a non-negative count option ("--max"); throws UsageError when it is not one.
size_t parseCount(const std::string& option, const std::string& text);

// The whole text of `file`, or of standard input for "-". Throws OperationError naming the
// file when it cannot be read.
std::string readInput(const std::string& file);

// Writes "cds: SUBJECT: REASON" (or "cds: REASON" when the subject is empty).
void reportError(std::ostream& err, const std::string& subject, const std::string& reason);
std::string errorText(const std::string& subject, const std::string& reason);

// Why a store call failed, for messages: the call's int result and the item status.
std::string statusReason(int result, api_status_t status);
// Throws OperationError naming `subject` unless the call succeeded with status OK.
void checkStatus(int result, api_status_t status, const std::string& subject);
// The same for a call on the leaf `leaf_path`, except that a missing node is named by the
// node's own path ("cds: /A: no such node" for "/A/Value").
void checkLeafStatus(int result, api_status_t status, const std::string& leaf_path);
// The node part of a leaf path: everything before the last "/" ("/" for a root leaf).
std::string parentPath(const std::string& path);
// `node` + "/" + `name`, without doubling the root's "/".
std::string joinPath(const std::string& node, const std::string& name);
// The last component of a path.
std::string baseName(const std::string& path);

}  // namespace cdstool

#endif  // WSGATE_TOOLS_CLI_H
