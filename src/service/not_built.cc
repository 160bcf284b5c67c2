// Operations whose services are not built yet. Each answers the runtime's "not implemented"
// fault (SOAP_NO_METHOD) until its module provides the real service; remove an entry here
// when that happens.
#include "soapH.h"

// clang-format off
int __nsc1__getValue(struct soap*, _nsc1__getValue *, _nsc1__getValueResponse &) { return SOAP_NO_METHOD; }
int __nsc1__getValues(struct soap*, _nsc1__getValues *, _nsc1__getValuesResponse &) { return SOAP_NO_METHOD; }
int __nsc1__getRelativeValues(struct soap*, _nsc1__getRelativeValues *, _nsc1__getRelativeValuesResponse &) { return SOAP_NO_METHOD; }
int __nsc1__getArray(struct soap*, _nsc1__getArray *, _nsc1__getArrayResponse &) { return SOAP_NO_METHOD; }
int __nsc1__getArrayRange(struct soap*, _nsc1__getArrayRange *, _nsc1__getArrayRangeResponse &) { return SOAP_NO_METHOD; }
int __nsc1__getArraySize(struct soap*, _nsc1__getArraySize *, _nsc1__getArraySizeResponse &) { return SOAP_NO_METHOD; }
int __nsc1__setValue(struct soap*, _nsc1__setValue *, _nsc1__setValueResponse &) { return SOAP_NO_METHOD; }
int __nsc1__setValues(struct soap*, _nsc1__setValues *, _nsc1__setValuesResponse &) { return SOAP_NO_METHOD; }
int __nsc1__createSubscription(struct soap*, _nsc1__createSubscription *, _nsc1__createSubscriptionResponse &) { return SOAP_NO_METHOD; }
int __nsc1__updateSubscriptionRealTimeNodes(struct soap*, _nsc1__updateSubscriptionRealTimeNodes *, _nsc1__updateSubscriptionRealTimeNodesResponse &) { return SOAP_NO_METHOD; }
int __nsc1__cancelSubscription(struct soap*, _nsc1__cancelSubscription *, _nsc1__cancelSubscriptionResponse &) { return SOAP_NO_METHOD; }
int __nsc1__acknowledgeAlarm(struct soap*, _nsc1__acknowledgeAlarm *, _nsc1__acknowledgeAlarmResponse &) { return SOAP_NO_METHOD; }
int nsc3__sendDeviceCmd(struct soap*, std::string *, std::string *, nsc3__sendCmd_s *, nsc3__sendDeviceCmdResponse &) { return SOAP_NO_METHOD; }
int nsc3__getDeviceCmdResult(struct soap*, std::string *, std::string *, int, nsc3__getDeviceCmdResultResponse &) { return SOAP_NO_METHOD; }
int __nst1__CreateNode(struct soap*, _nst1__CreateNode *, _nst1__CreateNodeResponse &) { return SOAP_NO_METHOD; }
int __nst1__SetLeaf(struct soap*, _nst1__SetLeaf *, _nst1__SetLeafResponse &) { return SOAP_NO_METHOD; }
int __nst1__SetLeaves(struct soap*, _nst1__SetLeaves *, _nst1__SetLeavesResponse &) { return SOAP_NO_METHOD; }
int __nst1__Reset(struct soap*, _nst1__Reset *, _nst1__ResetResponse &) { return SOAP_NO_METHOD; }
int __nst1__RemoveNode(struct soap*, _nst1__RemoveNode *, _nst1__RemoveNodeResponse &) { return SOAP_NO_METHOD; }
int __nst1__getSubscribedNodes(struct soap*, _nst1__getSubscribedNodes *, _nst1__getSubscribedNodesResponse &) { return SOAP_NO_METHOD; }
int nsqv__getDeviceTree(struct soap*, std::string *, std::string *, bool, nsqv__getDeviceTreeResponse &) { return SOAP_NO_METHOD; }
int nsqv__findAttributeMatches(struct soap*, std::string *, std::string *, bool, std::string *, std::string *, nsqv__findAttributeMatchesResponse &) { return SOAP_NO_METHOD; }
int nsqv__getLeafDescriptors(struct soap*, std::string *, std::string *, nsqv__ArrayOfString *, nsqv__getLeafDescriptorsResponse &) { return SOAP_NO_METHOD; }
int nsqv__getDeltaLog(struct soap*, nsqv__logRetrieveRequest *, nsqv__getDeltaLogResponse &) { return SOAP_NO_METHOD; }
int nsqv__getEventLog(struct soap*, nsqv__logRetrieveRequest *, nsqv__getEventLogResponse &) { return SOAP_NO_METHOD; }
int nsqv__getActiveAlarms(struct soap*, nsqv__logRetrieveRequest *, nsqv__getActiveAlarmsResponse &) { return SOAP_NO_METHOD; }
int nsqv__getTrendPeriods(struct soap*, std::string *, nsqv__getTrendPeriodsResponse &) { return SOAP_NO_METHOD; }
int nsqv__getDeviceTrendParams(struct soap*, std::string *, std::string *, nsqv__getDeviceTrendParamsResponse &) { return SOAP_NO_METHOD; }
int nsqv__getTrendData(struct soap*, nsqv__getTrendDataRequest *, nsqv__getTrendDataResponse &) { return SOAP_NO_METHOD; }
// clang-format on
