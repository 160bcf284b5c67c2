// Operations whose services are not built yet. Each answers the runtime's "not implemented"
// fault (SOAP_NO_METHOD) naming the operation, until its module provides the real service;
// remove an entry here when that happens.
#include <cstring>

#include "soapH.h"

namespace {

// The runtime words its "not implemented" fault with the element in soap->tag.
int notBuilt(struct soap* soap, const char* operation) {
  strncpy(soap->tag, operation, sizeof soap->tag - 1);
  soap->tag[sizeof soap->tag - 1] = '\0';
  return SOAP_NO_METHOD;
}

}  // namespace

// clang-format off
int nsqv__getDeltaLog(struct soap* soap, nsqv__logRetrieveRequest *, nsqv__getDeltaLogResponse &) { return notBuilt(soap, "nsqv:getDeltaLog"); }
int nsqv__getEventLog(struct soap* soap, nsqv__logRetrieveRequest *, nsqv__getEventLogResponse &) { return notBuilt(soap, "nsqv:getEventLog"); }
int nsqv__getTrendPeriods(struct soap* soap, std::string *, nsqv__getTrendPeriodsResponse &) { return notBuilt(soap, "nsqv:getTrendPeriods"); }
int nsqv__getDeviceTrendParams(struct soap* soap, std::string *, std::string *, nsqv__getDeviceTrendParamsResponse &) { return notBuilt(soap, "nsqv:getDeviceTrendParams"); }
int nsqv__getTrendData(struct soap* soap, nsqv__getTrendDataRequest *, nsqv__getTrendDataResponse &) { return notBuilt(soap, "nsqv:getTrendData"); }
// clang-format on
