// Event records: the store's event records (toolkit::CEvent, as the event queue and the event
// logs hold them) turned into the subscriber-side wire objects of the nss1 namespace:
//
//   delta (value change) record  -> nss1:PublishedValue   vtxPublishedValue
//   event record                 -> nss1:Event            buildEvent
//   alarm record                 -> nss1:AlarmUpdate      buildAlarmEvent
//
// Contract shared by the three converters:
//  - The object is allocated in `soap` (the request's context) and freed with it; the caller
//    puts it, or a copy, into its response.
//  - Null means "not shown", never an error: the caller leaves the record out of its answer.
//    Records about "/Software" (a text prefix of the source path) are not shown, except that
//    an event or alarm record of "/Software/System Settings/Configuration Changed" whose
//    value is true becomes a "StructureChanged" event with the source "/".
//  - No standard exception escapes: one caught is written to stderr as
//    "FAILURE (system) in CONVERTER(SOURCE PATH): TEXT \n", the half-built object is deleted
//    and null is returned.
//  - The store is read only for the state texts of the record's source node (multistate
//    and boolean "Value" leaves); the caller's rights are not consulted, since the records
//    were filtered by whoever chose them.
//  - Times are platform time (vtx, milliseconds since 1970) made from the record's time
//    stamp.
#ifndef WSGATE_SUBSCRIPTIONS_EVENT_RECORDS_H
#define WSGATE_SUBSCRIPTIONS_EVENT_RECORDS_H

#include <optional>
#include <string>

#include "platform/cds.h"
#include "platform/element.h"
#include "platform/event.h"
#include "soapH.h"

// A record's source as subscribers see it.
struct EventSource {
  // "/" for the root; the node path for a "Value" leaf; "NODE:ATTRIBUTE" for any other leaf.
  std::string path;
  // The value text: for a "Value" leaf of a boolean or multistate node its state text.
  std::string value;
  // The plain number behind a state text ("1"/"0" for a boolean, the integer of a multistate
  // value); absent when `value` is already the plain text.
  std::optional<std::string> numeric;
};

// The source formatting shared by every converter and by the active alarm table. `path` is
// normalized first unless `already_normalized` (a path that does not normalize is used as
// given).
EventSource formatEventSource(toolkit::CCds& cds, const std::string& path, bool already_normalized,
                              const toolkit::CElement& value);

// Fills the fields common to nss1:Event and nss1:AlarmUpdate from `record`: EventId,
// SequenceIndex, EventType ("Event", or "StructureChanged"), SourcePath, Time, Description
// (the message; for an empty message of a level-coded record (kind 256) the level's text,
// "Device Node Structure Changed" for a structure change), Value, NumericValue and Quality
// (absent when the record's quality is good (192); "192" for a level-coded record, whose
// quality word holds its level; the code in decimal otherwise). Returns `event`, or null
// after deleting `event` when the record is not shown.
nss1__Event* fillEvent(struct soap* soap, toolkit::CCds& cds, const toolkit::CEvent& record,
                       nss1__Event* event);

nss1__Event* buildEvent(struct soap* soap, toolkit::CCds& cds, const toolkit::CEvent& record);

// An event as above with EventType "Alarm" and the alarm fields of the record: AckStatus,
// AutoClosing, ConditionPresent, VariationLevel, Note (only when not empty) and BasePriority
// (in decimal, only when not 0).
nss1__AlarmUpdate* buildAlarmEvent(struct soap* soap, toolkit::CCds& cds,
                                   const toolkit::CEvent& record);

// A delta record as a published value: Path, Value and NumericValue as formatEventSource
// makes them, Quality (the record's 16-bit code), Time, RealTime false and Trend true (a
// record from the delta log is trend data, never a real-time update). Records about
// "/Software" are not shown.
nss1__PublishedValue* vtxPublishedValue(struct soap* soap, toolkit::CCds& cds,
                                        const toolkit::CEvent& record);

#endif  // WSGATE_SUBSCRIPTIONS_EVENT_RECORDS_H
