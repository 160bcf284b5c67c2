#include "tools/format.h"

#include <strings.h>
#include <time.h>

#include <cstdio>

#include "platform/vtx.h"

namespace cdstool {
namespace {

const char* const kStorageNames[] = {"Normal", "Persistent", "Automatic", "MPL"};

}  // namespace

std::string storageName(storage_class_t storage) {
  int index = static_cast<int>(storage);
  return index >= 0 && index <= 3 ? kStorageNames[index] : "?";
}

bool parseStorageName(const std::string& name, storage_class_t& storage) {
  for (int i = 0; i <= 3; ++i) {
    if (strcasecmp(name.c_str(), kStorageNames[i]) == 0) {
      storage = static_cast<storage_class_t>(i);
      return true;
    }
  }
  return false;
}

std::string typeName(data_type_t type) {
  const char* name = pcd_enum_to_str(type);
  return name != nullptr ? name : toolkit::CElement::_invalid;
}

int64_t leafTime(const toolkit::CElement& value) {
  timeval tv = value.get_time();
  return vtx_UNIXtoVTXtime64(&tv);
}

std::string isoTime(int64_t platform_ms) {
  timeval tv = vtx_VTXtoUNIXtime64(platform_ms);
  time_t seconds = tv.tv_sec;
  tm parts{};
  if (gmtime_r(&seconds, &parts) == nullptr) return "?";
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>(tv.tv_usec / 1000));
  return text;
}

}  // namespace cdstool
