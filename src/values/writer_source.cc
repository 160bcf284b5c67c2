#include "values/writer_source.h"

#include <cstdlib>

#include "platform/event.h"

std::string writerSource() {
  const char* user = getenv("REMOTE_USER");
  const char* address = getenv("REMOTE_ADDR");
  std::string source;
  toolkit::CEvent::format_source_string(source, "Web-Services", user != nullptr ? user : "",
                                        address != nullptr ? address : "");
  return source;
}
