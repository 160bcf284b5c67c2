// The retrieval routine that the delta log and event log operations share: the limit of a
// request, the log database opened for the request and closed again, the retries, and the
// trimming of an incomplete last group of records.
#ifndef WSGATE_LOGS_LOG_RETRIEVAL_H
#define WSGATE_LOGS_LOG_RETRIEVAL_H

#include <string>
#include <vector>

#include "platform/event.h"
#include "service/context.h"
#include "soapH.h"

// Reads the records that `request` asks for from the event log at `db_path` into `records`
// (replaced), at most `limit` of them (the request's nMaxToReturn; 0 asks for the limit).
//  - nMaxToReturn above `limit`: `result` is code 34 with the limit in its text; returns -1.
//  - a log that cannot be opened: code 21, a line on stderr; returns the open's result code.
//  - up to five attempts, one second apart on the platform clock; only the first three count
//    as a success. After five failures, or a success at the fourth or fifth attempt, `result`
//    is code 22 with a line on stderr. A late success deliberately returns 0 with its records,
//    so they are sent beside the error text.
//  - with bTrimIncomplete, a full answer that may end inside a group of records of one time
//    stamp loses that group's records, and `trimmed` is the size of the whole group.
// Otherwise `result` is empty. `settings` gives the SQLite settings of the command line.
int retrieveLogRecords(const LogSettings& settings, const std::string& db_path,
                       const nsqv__logRetrieveRequest& request, int limit, std::string& result,
                       int& trimmed, std::vector<toolkit::CEvent>& records);

#endif  // WSGATE_LOGS_LOG_RETRIEVAL_H
