#include "tools/format.h"

#include <strings.h>
#include <time.h>

#include <cstdio>
#include <sstream>

#include "platform/vtx.h"

namespace cdstool {
namespace {

const char* const kStorageNames[] = {"Normal", "Persistent", "Automatic", "MPL"};

// The record's time; microseconds within the millisecond, when there are any, after the
// milliseconds ("22:13:20.000250Z").
std::string recordTime(const timeval& tv) {
  std::string text = isoTime(vtx_UNIXtoVTXtime64(&tv));
  const int micros = static_cast<int>(tv.tv_usec % 1000);
  if (micros != 0 && text.size() > 1) {
    char extra[8];
    std::snprintf(extra, sizeof extra, "%03d", micros);
    text.insert(text.size() - 1, extra);
  }
  return text;
}

// A text on the event's one line: quoted, with quotes, backslashes and control characters
// escaped, so that no note or message can break the line or forge a field.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      snprintf(escaped, sizeof escaped, "\\x%02x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

}  // namespace

std::string kindName(int32_t kind) {
  switch (kind) {
    case toolkit::CEvent::kKindDelta:
      return "delta";
    case toolkit::CEvent::kKindAlarm:
      return "alarm";
    case toolkit::CEvent::kKindAcknowledgement:
      return "ack";
    case toolkit::CEvent::kKindSystemLevel:
      return "system";
    default:
      return "kind" + std::to_string(kind);
  }
}

std::string ackName(int32_t status) {
  switch (status) {
    case 0:
      return "NotAcked";
    case 1:
      return "Acked";
    case 2:
      return "Closed";
    default:
      return std::to_string(status);
  }
}


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

std::string eventLine(const toolkit::CEvent& event) {
  std::ostringstream out;
  out << recordTime(event.timestamp) << " " << kindName(event.kind) << " #" << event.event_id << " "
      << (event.source_path.empty() ? "-" : event.source_path);
  if (event.category != 0) out << " category=" << event.category;
  if (event.value.get_type() != DATA_TYPE_NONE) out << " value=" << event.value.to_string();
  if (event.kind == toolkit::CEvent::kKindSystemLevel) {
    out << " level=" << event.level_quality;
  } else if (event.quality() != 0) {
    out << " quality=" << event.quality();
  }
  if (event.kind == toolkit::CEvent::kKindAcknowledgement || event.ack_status != 0) {
    out << " ack=" << ackName(event.ack_status) << " variation=" << event.variation_level;
  }
  if (event.condition_present) out << " present";
  if (event.auto_closing) out << " auto-closing";
  if (event.sequence_index != 0) out << " seq=" << event.sequence_index;
  if (event.base_priority != 0) out << " priority=" << event.base_priority;
  if (!event.message.empty()) out << " msg=" << quoted(event.message);
  if (!event.note.empty()) out << " note=" << quoted(event.note);
  if (!event.source.empty()) out << " by " << event.source;
  return out.str();
}

}  // namespace cdstool
