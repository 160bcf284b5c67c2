#include "platform/event.h"

namespace toolkit {

void CEvent::format_source_string(std::string& out, const char* app, const char* user,
                                  const char* addr) {
  out.clear();
  out += app != nullptr ? app : "";
  out += ':';
  out += user != nullptr ? user : "";
  out += '@';
  out += addr != nullptr ? addr : "";
}

}  // namespace toolkit
