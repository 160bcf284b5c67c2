// The entry points of libwsgate_regex.so, which platform/pattern.cc finds with dlsym. No
// exception crosses them: each reports by its result.
#ifndef WSGATE_PLATFORM_PATTERN_ENGINE_H
#define WSGATE_PLATFORM_PATTERN_ENGINE_H

#include <cstddef>

extern "C" {

enum WsgatePatternResult {
  kWsgatePatternCompiled = 1,  // compile: the pattern is ready
  kWsgatePatternFound = 1,
  kWsgatePatternNotFound = 0,
  kWsgatePatternInvalid = -1,  // compile: the pattern does not compile
  kWsgatePatternGaveUp = -2,   // search: the library abandoned the search
  kWsgatePatternNoMemory = -3,
};

// Compiles `pattern` into `*compiled`; kWsgatePatternCompiled when it worked. On failure
// `message` (of `capacity` bytes) holds the library's text.
int wsgate_pattern_compile(const char* pattern, size_t length, void** compiled, char* message,
                           size_t capacity);
// Searches `text` anywhere for the compiled pattern.
int wsgate_pattern_search(const void* compiled, const char* text, size_t length);
void wsgate_pattern_free(void* compiled);
}

#endif  // WSGATE_PLATFORM_PATTERN_ENGINE_H
