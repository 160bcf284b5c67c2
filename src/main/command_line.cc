#include "main/command_line.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "main/server_state.h"

namespace {

constexpr const char* kVersion = "2.0.0";

// The version texts are fixed: gateway tooling compares them, so the runtime's own
// version is deliberately not what "-v" reports.
constexpr const char* kSoapVersion = "2.7.12";

// -m: decimal digits with anything after them (12x gives 12, deliberately accepted);
// negative numbers and texts without a digit are refused. A number beyond the 32-bit field
// means "as many as there are" and is kept as the largest one.
bool parseMaxRecords(const char* text, int32_t& value) {
  char* end = nullptr;
  long v = strtol(text, &end, 10);
  if (end == text || v < 0) return false;
  value = static_cast<int32_t>(std::min<long>(v, INT32_MAX));
  return true;
}

// -p, -c, -l: atoi, where 0 or less is refused after the option's own message on `err`.
bool parsePositive(const char* text, const char* what, int& value, FILE* err) {
  value = atoi(text);
  if (value > 0) return true;
  fprintf(err, "Error: invalid %s: %d\n", what, value);
  return false;
}

}  // namespace

void printUsage(FILE* out) {
  fputs("Usage: wsgated [-d] [-h deltaLog]  [-a eventLog] \n", out);
  fputs("                    [-s systemLog] [-t trendLog] [-m maxRecords] \n", out);
  fputs("                    [-p pageSize] [-c cacheSize] [-l heapLimit] \n", out);
  fputs("\t -d: Debug mode (don't fork a child process)\n", out);
  fputs("\t -h: Location of the historical (Delta) data log\n", out);
  fputs("\t -a: Location of the alarm/event log\n", out);
  fputs("\t -s: Location of the System event log\n", out);
  fputs("\t -t: Location of the Trend data log\n", out);
  fputs("\t -m: Maximum allowed size for Delta record requests\n", out);
  fputs("\t     Maximum records for Events and Trends based on this; default \n", out);
  // The defaults, not the current settings: the text documents the options.
  fprintf(out, "\t     maximums are Deltas:%d, Events:%d, and Trend snapshots:%d \n", 10000, 2500,
          833);
  fputs("\t -p: Use the given SQLite page size (in bytes)\n", out);
  fputs("\t -c: Use the given SQLite cache size (in kB)\n", out);
  fputs("\t -l: Use the given size (in kB) as a heap usage soft-limit for SQLite\n", out);
  fputs("Usage: wsgated -v \n", out);
  fputs("\t -v: Print version information to stdout and exit\n", out);
  fputs("\n", out);
}

void printVersion(const char* program, FILE* out) {
  fprintf(out, "%s: version %s\n", program, kVersion);
  fprintf(out, "gsoap: version %s\n", kSoapVersion);
  fprintf(out, "Build date: %s %s\n", __DATE__, __TIME__);
  fputs("$Revision: 39934 $\n\n", out);
}

int parseCommandLine(int argc, char** argv, LogSettings& logs, FILE* out, FILE* err) {
  bool unknown = false;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (strcmp(arg, "-d") == 0) {
      g_daemon_mode = false;
      continue;
    }
    if (strcmp(arg, "-v") == 0) {
      printVersion(argv[0], out);
      return 0;
    }
    static const char* const kValued[] = {"-h", "-a", "-s", "-t", "-m", "-p", "-c", "-l"};
    bool valued = false;
    for (const char* option : kValued) valued = valued || strcmp(arg, option) == 0;
    if (!valued) {
      fprintf(out, "Unknown parameter: %s \n", arg);
      unknown = true;
      continue;
    }
    if (i + 1 >= argc) {
      fprintf(out, "Missing field for: %s \n", arg);
      printUsage(out);
      return 1;
    }
    const char* value = argv[++i];
    bool good = value[0] != '\0';
    if (good) {
      int number = 0;
      switch (arg[1]) {
        case 'h': logs.delta_log_path = value; break;
        case 'a': logs.event_log_path = value; break;
        case 's': logs.system_log_path = value; break;
        case 't': logs.trend_log_path = value; break;
        case 'm': good = parseMaxRecords(value, logs.max_records); break;
        case 'p':
          good = parsePositive(value, "page size", number, err);
          if (good) logs.page_size = number;
          break;
        case 'c':
          good = parsePositive(value, "cache size", number, err);
          if (good) logs.cache_size = static_cast<uint32_t>(number) * 1024u;
          break;
        case 'l':
          good = parsePositive(value, "heap limit", number, err);
          if (good) logs.heap_limit = static_cast<uint32_t>(number) * 1024u;
          break;
      }
    }
    if (!good) {
      fprintf(out, "Bad field: %s \n", value);
      printUsage(out);
      return 1;
    }
  }
  if (unknown) {
    printUsage(out);
    return 1;
  }
  return -1;
}
