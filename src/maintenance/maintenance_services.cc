// The maintenance operations of the nst1 namespace. Each parses its options, runs its core
// and puts the result into the response. The writes are the value writes with the
// maintenance flag set; refusals for want of a right are the service status 401.
#include "maintenance/node_maintenance.h"
#include "maintenance/reset.h"
#include "maintenance/subscribed_nodes.h"
#include "service/context.h"
#include "service/options.h"
#include "soapH.h"
#include "values/value_write.h"

namespace {

// Answers `status` when it is a refusal, otherwise `result` as the response's text.
int answer(struct soap* soap, int status, std::string& result, std::string*& field) {
  if (status != 0) return status;
  field = soap_new_std__string(soap);
  *field = std::move(result);
  return SOAP_OK;
}

}  // namespace

int __nst1__CreateNode(struct soap* soap, _nst1__CreateNode* request,
                       _nst1__CreateNodeResponse& response) {
  const RequestOptions options = parseOptions(request->options);
  std::string result;
  const int status = createNode(serviceContext(soap).cds, request->basePath, request->paths,
                                request->values, options, result);
  return answer(soap, status, result, response.CreateNodeResult);
}

int __nst1__SetLeaf(struct soap* soap, _nst1__SetLeaf* request, _nst1__SetLeafResponse& response) {
  const RequestOptions options = parseOptions(request->options);
  std::string result;
  const int status = writeValue(serviceContext(soap).cds, request->path, request->value, options,
                                /*maintenance=*/true, result);
  return answer(soap, status, result, response.SetLeafResult);
}

int __nst1__SetLeaves(struct soap* soap, _nst1__SetLeaves* request,
                      _nst1__SetLeavesResponse& response) {
  const RequestOptions options = parseOptions(request->options);
  std::string error;
  if (!checkWriteLists(request->paths, request->values, &options, error)) {
    response.SetLeavesResult.push_back(std::move(error));
    return SOAP_OK;
  }
  return writeValues(serviceContext(soap).cds, request->paths, request->values, options,
                     /*maintenance=*/true, response.SetLeavesResult);
}

int __nst1__Reset(struct soap* soap, _nst1__Reset*, _nst1__ResetResponse& response) {
  ServiceContext& context = serviceContext(soap);
  std::string result;
  const int status = resetGateway(context.cds, context.termination_flag, result);
  return answer(soap, status, result, response.ResetResult);
}

int __nst1__RemoveNode(struct soap* soap, _nst1__RemoveNode* request,
                       _nst1__RemoveNodeResponse& response) {
  const RequestOptions options = parseOptions(request->options);
  std::string result;
  const int status = removeNode(serviceContext(soap).cds, request->basePath, options, result);
  return answer(soap, status, result, response.RemoveNodeResult);
}

int __nst1__getSubscribedNodes(struct soap* soap, _nst1__getSubscribedNodes* request,
                               _nst1__getSubscribedNodesResponse& response) {
  toolkit::CReadBatch snapshot(serviceContext(soap).cds);
  listSubscribedNodes(serviceContext(soap).cds, request->subscriptionId,
                      response.getSubscribedNodesResult);
  return SOAP_OK;
}
