// The documents of `cds log import` and `cds trend import`, and the log files they go to.
//
// Event log: {"records": [RECORD, ...]}, appended in document order. RECORD keys are the
// fields of toolkit::CEvent; only "time" (platform time, ms) is required:
//   "time", "usec" (0..999, microseconds within that millisecond), "kind", "category",
//   "base_priority", "variation_level" (32-bit signed), "source_path", "message", "note",
//   "source" (strings), "type" + "value" (both or neither; as in `cds import`),
//   "level_quality" (0..2^32-1, the raw word) or "quality" (0..65535, its top 16 bits),
//   "event_id" (0..2^64-1), "sequence_index" (0..2^32-1), "ack_status" (0, 1, 2),
//   "condition_present", "auto_closing" (booleans).
//
// Trend log: {"periods": [{"period": N, "max-entries": N}, ...],
//             "devices": [{"path": P, "params": [PARAM, ...], "snapshots": [SNAPSHOT, ...]}]}
//   PARAM: "path", "type" ("SAMPLE-TYPE-NORMAL" (default), "SAMPLE-TYPE-PF",
//          "SAMPLE-TYPE-LISTEND"), "hasMin", "hasMax", "hasAvg", "hasActual" (default true)
//   SNAPSHOT: "period" (a listed period), "timestamp" (ms, a whole second),
//          "percent-valid" (number), "data" (one sample per param, in params order)
//   sample: "min", "max", "avg", "actual", "count": number, or null (or absent) for NaN
// It replaces the whole content of the trend log.
#ifndef WSGATE_TOOLS_LOG_DOCUMENTS_H
#define WSGATE_TOOLS_LOG_DOCUMENTS_H

#include <string>
#include <vector>

#include "platform/event.h"
#include "platform/trend.h"

namespace cdstool {

struct TrendDocument {
  std::vector<toolkit::trend::CPeriodProperties> periods;
  std::vector<toolkit::trend::CDeviceLog> devices;
};

// Read a document; false with `error` naming the offending item ("records[2]: unknown key
// \"kidn\"") when the text is not a valid document. Nothing is written here.
bool parseLogDocument(const std::string& json_text, std::vector<toolkit::CEvent>& records,
                      std::string& error);
bool parseTrendDocument(const std::string& json_text, TrendDocument& doc, std::string& error);

// The sample type's name in documents and on the wire ("SAMPLE-TYPE-PF").
const char* sampleTypeName(toolkit::trend::sample_type_t type);

// Append the records to the event log at `path` / replace the trend log at `path`, each in
// one transaction, creating the file and its schema when needed. Throw NoStoreError when the
// file cannot be opened or created, OperationError when the write fails.
void appendEventLog(const std::string& path, const std::vector<toolkit::CEvent>& records);
void replaceTrendLog(const std::string& path, const TrendDocument& doc);

}  // namespace cdstool

#endif  // WSGATE_TOOLS_LOG_DOCUMENTS_H
