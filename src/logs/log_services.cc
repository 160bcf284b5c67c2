// The delta log and event log operations: the shared retrieval routine, then each record
// through its converter (a record the converter does not show is left out). Both answer
// status 0; errors travel in "result", which is empty on success.
#include <vector>

#include "logs/log_retrieval.h"
#include "platform/cds.h"
#include "service/context.h"
#include "soapH.h"
#include "subscriptions/event_records.h"

namespace {

// An absent request reads as one whose every element is absent.
const nsqv__logRetrieveRequest& requestOrEmpty(const nsqv__logRetrieveRequest* request) {
  static const nsqv__logRetrieveRequest kEmpty;
  return request != nullptr ? *request : kEmpty;
}

}  // namespace

int nsqv__getDeltaLog(struct soap* soap, nsqv__logRetrieveRequest* request,
                      nsqv__getDeltaLogResponse& response) {
  ServiceContext& context = serviceContext(soap);
  const LogSettings& logs = context.logs;
  std::vector<toolkit::CEvent> records;
  // rqstType does not matter here: the delta log is the only one.
  if (retrieveLogRecords(logs, logs.delta_log_path, requestOrEmpty(request), logs.deltaLogLimit(),
                         response.result, response.numTrimmedPoints, records) != 0) {
    return SOAP_OK;
  }
  // The converters read state texts from the store: one snapshot for all of them.
  toolkit::CReadBatch snapshot(context.cds);
  response.loggedValues = soap_new_nss1__ArrayOfPublishedValue(soap);
  std::vector<nss1__PublishedValue>& values = response.loggedValues->PublishedValue;
  values.reserve(records.size());
  for (const toolkit::CEvent& record : records) {
    nss1__PublishedValue* value = vtxPublishedValue(soap, context.cds, record);
    if (value != nullptr) values.push_back(*value);
  }
  return SOAP_OK;
}

int nsqv__getEventLog(struct soap* soap, nsqv__logRetrieveRequest* request,
                      nsqv__getEventLogResponse& response) {
  ServiceContext& context = serviceContext(soap);
  const LogSettings& logs = context.logs;
  // Any request type other than alarm events reads the system log, deltas included.
  const nsqv__logRetrieveRequest& r = requestOrEmpty(request);
  const std::string& path =
      r.rqstType == nsqv__LgRqType__LgRqTypAlarmEvents ? logs.event_log_path : logs.system_log_path;
  std::vector<toolkit::CEvent> records;
  if (retrieveLogRecords(logs, path, r, logs.eventLogLimit(), response.result,
                         response.numTrimmedEvents, records) != 0) {
    return SOAP_OK;
  }
  toolkit::CReadBatch snapshot(context.cds);
  response.events = soap_new_nss1__ArrayOfEvent(soap);
  std::vector<nss1__Event*>& events = response.events->Event;
  events.reserve(records.size());
  for (const toolkit::CEvent& record : records) {
    nss1__Event* event = record.kind == toolkit::CEvent::kKindAlarm
                             ? buildAlarmEvent(soap, context.cds, record)
                             : buildEvent(soap, context.cds, record);
    if (event != nullptr) events.push_back(event);
  }
  return SOAP_OK;
}
