// Alarms: acknowledgements sent to the gateway's alarm handling, and the active alarm table
// it keeps in the store under "/Alarms".
//
// The table: every child of "/Alarms" except "AlarmCount" is one alarm, named by its decimal
// event id, with the nodes SourcePath, SourceValue, AlarmMsg, SequenceID (whose time stamp is
// the alarm's time), AlarmLevel, ConditionRaised and Note (each a "Value" leaf) and the
// leaves ".BasePriority" and ".AutoClosing".
#ifndef WSGATE_SUBSCRIPTIONS_ALARMS_H
#define WSGATE_SUBSCRIPTIONS_ALARMS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/cds.h"
#include "platform/pattern.h"
#include "soapH.h"

// Acknowledgements one request may send: each is a store call of its own.
inline constexpr size_t kMaxAckRequests = 10000;

struct AlarmAck {
  uint64_t event_id = 0;
  std::optional<std::string> note;
  int variation_level = 0;
  int status = 0;  // 0 not acknowledged, 1 acknowledged, 2 closed
};

// Sends each acknowledgement alone to the store's event queue, in order, as an event of kind
// 16 (category word 10) carrying the request's fields, the caller's writer source text and
// the current time, and tells stderr about it. One result per acknowledgement: "" when the
// queue took it, else error code 20 "CDS event_send failed"; a failure never stops the
// others.
std::vector<std::string> acknowledgeAlarms(toolkit::CCds& cds, const std::vector<AlarmAck>& acks);

// The alarm node at `path` as an nss1:AlarmUpdate allocated in `soap`, or null when its
// seven leaves cannot be read or its source path does not match `filter` (searched anywhere
// in the text; null matches every alarm). Quality is always "192"; a missing or untyped
// ".BasePriority" reads "5000", a missing or non-boolean ".AutoClosing" false; AlarmLevel
// 3 is Acked, 5 Closed, 1 NotAcked with variation 2, anything else NotAcked with variation 1.
nss1__AlarmUpdate* buildActiveAlarm(struct soap* soap, toolkit::CCds& cds, const std::string& path,
                                    const Pattern* filter);

// Which alarms of an ordered collection an answer holds. `times` are the alarms' times in
// collection order; at most `max` are taken (all when `max` < 1): the last ones when
// `latest` differs from `reverse`, else the first. With `trim_incomplete` a cut range does
// not end inside a group of alarms of one time: that group is left out, and `trimmed` is
// the size of the group now nearest the cut (the dropped group when nothing is left).
struct AlarmRange {
  size_t begin = 0;
  size_t end = 0;
  int trimmed = 0;
};
AlarmRange selectAlarmRange(const std::vector<int64_t>& times, int max, bool latest, bool reverse,
                            bool trim_incomplete);

// getActiveAlarms: the table's alarms whose source path matches the request's "path" (a
// regular expression searched anywhere in the text; empty matches all, one that does not
// compile nothing), whose time lies from startTime to endTime (each bound only when above
// 0), ordered by time and then event id (both descending with bReverseOrder; of alarms with
// the same pair only the first listed counts), and selected by selectAlarmRange. The request
// options shape the error texts. Without a table, `result` is error code 22 "No Alarm table"
// and there is no list.
void getActiveAlarms(struct soap* soap, toolkit::CCds& cds, const nsqv__logRetrieveRequest& request,
                     nsqv__getActiveAlarmsResponse& response);

#endif  // WSGATE_SUBSCRIPTIONS_ALARMS_H
