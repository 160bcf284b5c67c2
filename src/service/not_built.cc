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
int __nsc1__createSubscription(struct soap* soap, _nsc1__createSubscription *, _nsc1__createSubscriptionResponse &) { return notBuilt(soap, "nsc1:createSubscription"); }
int __nsc1__updateSubscriptionRealTimeNodes(struct soap* soap, _nsc1__updateSubscriptionRealTimeNodes *, _nsc1__updateSubscriptionRealTimeNodesResponse &) { return notBuilt(soap, "nsc1:updateSubscriptionRealTimeNodes"); }
int __nsc1__cancelSubscription(struct soap* soap, _nsc1__cancelSubscription *, _nsc1__cancelSubscriptionResponse &) { return notBuilt(soap, "nsc1:cancelSubscription"); }
int __nsc1__acknowledgeAlarm(struct soap* soap, _nsc1__acknowledgeAlarm *, _nsc1__acknowledgeAlarmResponse &) { return notBuilt(soap, "nsc1:acknowledgeAlarm"); }
int nsc3__sendDeviceCmd(struct soap* soap, std::string *, std::string *, nsc3__sendCmd_s *, nsc3__sendDeviceCmdResponse &) { return notBuilt(soap, "nsc3:sendDeviceCmd"); }
int nsc3__getDeviceCmdResult(struct soap* soap, std::string *, std::string *, int, nsc3__getDeviceCmdResultResponse &) { return notBuilt(soap, "nsc3:getDeviceCmdResult"); }
int __nst1__CreateNode(struct soap* soap, _nst1__CreateNode *, _nst1__CreateNodeResponse &) { return notBuilt(soap, "nst1:CreateNode"); }
int __nst1__SetLeaf(struct soap* soap, _nst1__SetLeaf *, _nst1__SetLeafResponse &) { return notBuilt(soap, "nst1:SetLeaf"); }
int __nst1__SetLeaves(struct soap* soap, _nst1__SetLeaves *, _nst1__SetLeavesResponse &) { return notBuilt(soap, "nst1:SetLeaves"); }
int __nst1__Reset(struct soap* soap, _nst1__Reset *, _nst1__ResetResponse &) { return notBuilt(soap, "nst1:Reset"); }
int __nst1__RemoveNode(struct soap* soap, _nst1__RemoveNode *, _nst1__RemoveNodeResponse &) { return notBuilt(soap, "nst1:RemoveNode"); }
int __nst1__getSubscribedNodes(struct soap* soap, _nst1__getSubscribedNodes *, _nst1__getSubscribedNodesResponse &) { return notBuilt(soap, "nst1:getSubscribedNodes"); }
int nsqv__getDeviceTree(struct soap* soap, std::string *, std::string *, bool, nsqv__getDeviceTreeResponse &) { return notBuilt(soap, "nsqv:getDeviceTree"); }
int nsqv__findAttributeMatches(struct soap* soap, std::string *, std::string *, bool, std::string *, std::string *, nsqv__findAttributeMatchesResponse &) { return notBuilt(soap, "nsqv:findAttributeMatches"); }
int nsqv__getLeafDescriptors(struct soap* soap, std::string *, std::string *, nsqv__ArrayOfString *, nsqv__getLeafDescriptorsResponse &) { return notBuilt(soap, "nsqv:getLeafDescriptors"); }
int nsqv__getActiveAlarms(struct soap* soap, nsqv__logRetrieveRequest *, nsqv__getActiveAlarmsResponse &) { return notBuilt(soap, "nsqv:getActiveAlarms"); }
// clang-format on
