// libwsgate_regex.so: Boost.Regex behind the plain entry points of pattern_engine.h.
#include "platform/pattern_engine.h"

#include <boost/regex.hpp>
#include <cstring>
#include <new>
#include <stdexcept>

namespace {

void copyMessage(const char* text, char* message, size_t capacity) {
  if (capacity == 0) return;
  std::strncpy(message, text, capacity - 1);
  message[capacity - 1] = '\0';
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int wsgate_pattern_compile(const char* pattern,
                                                                  size_t length, void** compiled,
                                                                  char* message, size_t capacity) {
  *compiled = nullptr;
  try {
    *compiled = new boost::regex(pattern, pattern + length);
    return kWsgatePatternCompiled;
  } catch (const boost::regex_error& e) {
    copyMessage(e.what(), message, capacity);
    return kWsgatePatternInvalid;
  } catch (const std::bad_alloc& e) {
    copyMessage(e.what(), message, capacity);
    return kWsgatePatternNoMemory;
  } catch (const std::exception& e) {
    copyMessage(e.what(), message, capacity);
    return kWsgatePatternInvalid;
  }
}

__attribute__((visibility("default"))) int wsgate_pattern_search(const void* compiled,
                                                                 const char* text, size_t length) {
  try {
    return boost::regex_search(text, text + length, *static_cast<const boost::regex*>(compiled))
               ? kWsgatePatternFound
               : kWsgatePatternNotFound;
  } catch (const std::bad_alloc&) {
    return kWsgatePatternNoMemory;
  } catch (const std::exception&) {
    // Complexity or the library's own stack limit: reported as a plain runtime_error.
    return kWsgatePatternGaveUp;
  }
}

__attribute__((visibility("default"))) void wsgate_pattern_free(void* compiled) {
  delete static_cast<boost::regex*>(compiled);
}
}
