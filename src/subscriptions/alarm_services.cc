// The alarm operations: acknowledgeAlarm (core namespace) sends the acknowledgements to the
// store's event queue; getActiveAlarms (nsqv) reads the active alarm table in one snapshot
// of the store.
#include <cstdio>
#include <exception>

#include "service/context.h"
#include "soapH.h"
#include "subscriptions/alarms.h"

namespace {

// Statuses of acknowledgeAlarm: no requests is not a valid call, deliberately, and a failure
// drops every result made so far. Both become faults.
constexpr int kNoRequests = -1;
constexpr int kAckFailed = 44;

}  // namespace

int __nsc1__acknowledgeAlarm(struct soap* soap, _nsc1__acknowledgeAlarm* request,
                             _nsc1__acknowledgeAlarmResponse& response) {
  if (request->requests == nullptr || request->requests->AckRequest.empty()) return kNoRequests;
  const std::vector<nsc1__AckRequest>& requests = request->requests->AckRequest;
  if (requests.size() > kMaxAckRequests) return SOAP_OCCURS;
  try {
    std::vector<AlarmAck> acks;
    acks.reserve(requests.size());
    for (const nsc1__AckRequest& item : requests) {
      AlarmAck ack;
      ack.event_id = item.EventId;
      if (item.Note != nullptr) ack.note = *item.Note;
      ack.variation_level = item.VariationLevel;
      ack.status = item.Status;
      acks.push_back(std::move(ack));
    }
    nsc1__ArrayOfString* results = soap_new_nsc1__ArrayOfString(soap);
    if (results == nullptr) return SOAP_EOM;
    results->string = acknowledgeAlarms(serviceContext(soap).cds, acks);
    response.acknowledgeAlarmResult = results;
  } catch (const std::exception& e) {
    fputs("Exception in __nsc1__acknowledgeAlarm()", stderr);  // the next line continues it
    fprintf(stderr, "%s \n", e.what());
    return kAckFailed;
  }
  return SOAP_OK;
}

int nsqv__getActiveAlarms(struct soap* soap, nsqv__logRetrieveRequest* request,
                          nsqv__getActiveAlarmsResponse& response) {
  toolkit::CReadBatch snapshot(serviceContext(soap).cds);
  // An absent request asks with every field at its default.
  const nsqv__logRetrieveRequest defaults;
  getActiveAlarms(soap, serviceContext(soap).cds, request != nullptr ? *request : defaults,
                  response);
  return SOAP_OK;
}
