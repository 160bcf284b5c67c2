// The subscription operations of the core namespace: each turns its request into the core's
// terms (an absent text is an empty one), runs the core in src/subscriptions/subscriptions.cc
// and puts the real-time nodes' results into the response.
#include <cstdio>
#include <exception>

#include "service/context.h"
#include "soapH.h"
#include "subscriptions/soap_text.h"
#include "subscriptions/subscriptions.h"

namespace {

std::string textOf(const std::string* text) {
  return text != nullptr ? *text : std::string();
}

bool tooMany(const nsc1__ArrayOfNodeSubscription* list) {
  return list != nullptr && list->NodeSubscription.size() > kMaxRealTimeNodes;
}

std::optional<std::vector<RealTimeNode>> realTimeNodes(const nsc1__ArrayOfNodeSubscription* list) {
  if (list == nullptr) return std::nullopt;
  std::vector<RealTimeNode> nodes;
  nodes.reserve(list->NodeSubscription.size());
  for (const nsc1__NodeSubscription& item : list->NodeSubscription) {
    nodes.push_back({textOf(item.Path), item.RequestedFreshness, item.DeadbandPercent});
  }
  return nodes;
}

nsc1__ArrayOfRealTimeNodeSubscriptionResult* resultList(struct soap* soap,
                                                        const RealTimeNodeResults& results) {
  if (!results) return nullptr;
  auto* list = soap_new_nsc1__ArrayOfRealTimeNodeSubscriptionResult(soap);
  if (list == nullptr) return nullptr;
  list->RealTimeNodeSubscriptionResult.resize(results->size());
  for (size_t i = 0; i < results->size(); ++i) {
    const RealTimeNodeResult& result = (*results)[i];
    nsc1__RealTimeNodeSubscriptionResult& item = list->RealTimeNodeSubscriptionResult[i];
    item.Value = soapText(soap, result.value);
    item.NumericValue = soapText(soap, result.numeric);
    item.Quality = result.quality;
    item.Time = result.time;
  }
  return list;
}

}  // namespace

int __nsc1__createSubscription(struct soap* soap, _nsc1__createSubscription* request,
                               _nsc1__createSubscriptionResponse& response) {
  if (tooMany(request->realTimeNodes)) return SOAP_OCCURS;
  RealTimeNodeResults results;
  try {
    SubscriptionRequest subscription;
    subscription.id = textOf(request->subscriptionId);
    subscription.reply_uri = textOf(request->replyUri);
    subscription.lease_duration = request->leaseDuration;
    subscription.log_since_time = request->logSinceTime;
    subscription.log_options = static_cast<int>(request->subscribeLogOptions);
    subscription.nodes = realTimeNodes(request->realTimeNodes);
    const int status = createSubscription(serviceContext(soap).cds, subscription, results);
    if (status != 0) return status;
  } catch (const std::exception& e) {
    // Whatever was written stays; the caller is answered with what was made so far.
    fprintf(stderr, "%s \n", e.what());
  }
  response.createSubscriptionResult = resultList(soap, results);
  return SOAP_OK;
}

int __nsc1__updateSubscriptionRealTimeNodes(
    struct soap* soap, _nsc1__updateSubscriptionRealTimeNodes* request,
    _nsc1__updateSubscriptionRealTimeNodesResponse& response) {
  const nsc1__ArrayOfString* remove = request->realTimeNodesToRemove;
  if (tooMany(request->realTimeNodesToAdd) ||
      (remove != nullptr && remove->string.size() > kMaxRealTimeNodes)) {
    return SOAP_OCCURS;
  }
  RealTimeNodeResults results;
  const int status = updateSubscriptionRealTimeNodes(
      serviceContext(soap).cds, textOf(request->subscriptionId),
      realTimeNodes(request->realTimeNodesToAdd),
      remove != nullptr ? remove->string : std::vector<std::string>(), results);
  if (status != 0) return status;
  response.updateSubscriptionRealTimeNodesResult = resultList(soap, results);
  return SOAP_OK;
}

int __nsc1__cancelSubscription(struct soap* soap, _nsc1__cancelSubscription* request,
                               _nsc1__cancelSubscriptionResponse&) {
  return cancelSubscription(serviceContext(soap).cds, textOf(request->subscriptionId));
}
