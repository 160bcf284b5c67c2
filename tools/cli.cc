#include "tools/cli.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

namespace cdstool {
namespace {

// "-5", "-0.25", "-.5", "-inf": values, not options, so that `set` can write them.
bool looksNegativeNumber(const std::string& arg) {
  if (arg.size() < 2 || arg[0] != '-') return false;
  if (std::isdigit(static_cast<unsigned char>(arg[1]))) return true;
  if (arg[1] == '.' && arg.size() > 2 && std::isdigit(static_cast<unsigned char>(arg[2]))) {
    return true;
  }
  std::string rest = arg.substr(1);
  for (char& c : rest) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return rest == "inf" || rest == "infinity";
}

const OptionDef* findOption(const Command& command, const std::string& name) {
  static const OptionDef kHelp{"--help", false};
  if (name == kHelp.name) return &kHelp;
  for (const OptionDef& option : command.options) {
    if (name == option.name) return &option;
  }
  return nullptr;
}

}  // namespace

std::string ParsedArgs::value(const std::string& option, const std::string& fallback) const {
  auto it = options.find(option);
  return it == options.end() ? fallback : it->second;
}

ParsedArgs parseArgs(const Command& command, const std::vector<std::string>& args) {
  ParsedArgs parsed;
  bool options_done = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    bool is_option = !options_done && arg.size() > 1 && arg[0] == '-' && !looksNegativeNumber(arg);
    if (!is_option) {
      parsed.positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      options_done = true;
      continue;
    }
    std::string name = arg;
    std::string value;
    bool inline_value = false;
    size_t eq = arg.find('=');
    if (arg.compare(0, 2, "--") == 0 && eq != std::string::npos) {
      name = arg.substr(0, eq);
      value = arg.substr(eq + 1);
      inline_value = true;
    }
    const OptionDef* option = findOption(command, name);
    if (option == nullptr) throw UsageError("unknown option " + name);
    if (option->takes_value && !inline_value) {
      if (i + 1 >= args.size()) throw UsageError("option " + name + " needs a value");
      value = args[++i];
    } else if (!option->takes_value && inline_value) {
      throw UsageError("option " + name + " takes no value");
    }
    parsed.options[name] = value;
  }
  if (parsed.has("--help")) return parsed;
  if (parsed.positional.size() < command.min_args) throw UsageError("missing arguments");
  if (parsed.positional.size() > command.max_args) {
    throw UsageError("unexpected argument " + parsed.positional[command.max_args]);
  }
  return parsed;
}

size_t parseCount(const std::string& option, const std::string& text) {
  char* end = nullptr;
  errno = 0;
  unsigned long long n = std::strtoull(text.c_str(), &end, 10);
  if (text.empty() || text[0] == '-' || *end != '\0' || errno != 0) {
    throw UsageError("option " + option + " needs a non-negative number, not \"" + text + "\"");
  }
  return static_cast<size_t>(n);
}

std::string errorText(const std::string& subject, const std::string& reason) {
  return subject.empty() ? "cds: " + reason : "cds: " + subject + ": " + reason;
}

void reportError(std::ostream& err, const std::string& subject, const std::string& reason) {
  err << errorText(subject, reason) << "\n";
}

std::string statusReason(int result, api_status_t status) {
  if (result != 0) return "store access failed";
  switch (status) {
    case API_STATUS_OK:
      return "done";
    case API_STATUS_NO_NODE:
      return "no such node";
    case API_STATUS_NO_LEAF:
      return "no such leaf";
    case API_STATUS_BAD_PATH:
      return "malformed path";
    case API_STATUS_READ_ONLY:
      return "automatic attribute, not writable";
    case API_STATUS_FAILED:
      return "refused by the store";
    default:
      return "failed with status " + std::to_string(static_cast<int>(status));
  }
}

void checkStatus(int result, api_status_t status, const std::string& subject) {
  if (result == 0 && status == API_STATUS_OK) return;
  throw OperationError(errorText(subject, statusReason(result, status)));
}

void checkLeafStatus(int result, api_status_t status, const std::string& leaf_path) {
  if (result == 0 && status == API_STATUS_NO_NODE) {
    checkStatus(result, status, parentPath(leaf_path));
  }
  checkStatus(result, status, leaf_path);
}

std::string parentPath(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return "/";
  return path.substr(0, slash);
}

std::string joinPath(const std::string& node, const std::string& name) {
  return node == "/" ? "/" + name : node + "/" + name;
}

std::string baseName(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string readInput(const std::string& file) {
  std::ostringstream text;
  if (file == "-") {
    text << std::cin.rdbuf();
    return text.str();
  }
  std::ifstream in(file, std::ios::binary);
  if (!in) throw OperationError(errorText(file, std::strerror(errno)));
  text << in.rdbuf();
  if (in.bad()) throw OperationError(errorText(file, "read error"));
  return text.str();
}

}  // namespace cdstool
