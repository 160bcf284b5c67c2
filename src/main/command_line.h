// The daemon's command line: options, usage and version texts.
#ifndef WSGATE_MAIN_COMMAND_LINE_H
#define WSGATE_MAIN_COMMAND_LINE_H

#include <cstdio>

struct LogSettings;

// Parses argv[1..] into the log settings and the daemon-mode flag, left to right. Usage, version and
// most messages go to `out`; the invalid-size lines of -p, -c and -l go to `err`. Returns -1
// when the daemon should start, otherwise the exit status (0 after -v, 1 after a usage
// error).
int parseCommandLine(int argc, char** argv, LogSettings& logs, FILE* out, FILE* err);

void printUsage(FILE* out);
void printVersion(const char* program, FILE* out);

#endif  // WSGATE_MAIN_COMMAND_LINE_H
