// Texts the `cds` tool prints and reads: storage class names, type names, times.
#ifndef WSGATE_TOOLS_FORMAT_H
#define WSGATE_TOOLS_FORMAT_H

#include <cstdint>
#include <string>

#include "platform/cds.h"
#include "platform/element.h"
#include "platform/event.h"

namespace cdstool {

// "Normal", "Persistent", "Automatic", "MPL"; "?" for a value outside the table.
std::string storageName(storage_class_t storage);
// The storage class named `name` (without regard to case); false when there is none.
bool parseStorageName(const std::string& name, storage_class_t& storage);

// The platform's name of the type ("Real"), or the element's invalid-value text.
std::string typeName(data_type_t type);

// A leaf's time stamp as platform time (milliseconds since the epoch).
int64_t leafTime(const toolkit::CElement& value);
// Platform time as ISO-8601 UTC with milliseconds: "2023-11-14T22:13:20.000Z".
std::string isoTime(int64_t platform_ms);

// The names of an event record's kind ("delta", "alarm", "ack", "system", "kindN") and of its
// acknowledgement status ("NotAcked", "Acked", "Closed", or the number).
std::string kindName(int32_t kind);
std::string ackName(int32_t status);

// One line (without newline) for an event record: texts (message, note) are quoted with
// quotes, backslashes and control characters escaped, so that none can break the line;
// time (to the microsecond when it has them), kind, event id, source path, then the fields
// that are set.
std::string eventLine(const toolkit::CEvent& event);

}  // namespace cdstool

#endif  // WSGATE_TOOLS_FORMAT_H
