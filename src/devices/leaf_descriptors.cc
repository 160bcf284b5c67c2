// getLeafDescriptors: many leaves read in one store call, each described by its value text
// (formatted as the value reads format it), the time of its last change and its storage
// class. A single leaf's failure shows only in its own descriptor.
#include <string>
#include <vector>

#include "platform/cds.h"
#include "platform/path.h"
#include "platform/vtx.h"
#include "service/context.h"
#include "service/errors.h"
#include "service/options.h"
#include "soapH.h"
#include "values/value_read.h"

int nsqv__getLeafDescriptors(struct soap* soap, std::string* options, std::string* basePath,
                             nsqv__ArrayOfString* leafPaths,
                             nsqv__getLeafDescriptorsResponse& response) {
  response.descriptors.clear();
  toolkit::CCds& cds = serviceContext(soap).cds;
  toolkit::CReadBatch snapshot(cds);
  const RequestOptions parsed = parseOptions(options);
  if (leafPaths == nullptr || leafPaths->string.empty()) {
    formatError(kWsNoPathsProvided, "No paths", response.result, &parsed);
    return SOAP_OK;
  }
  // Plain concatenation: basePath ends with "/" or every entry begins with one.
  const std::string base = basePath != nullptr ? *basePath : std::string();
  std::vector<CPath> paths;
  std::vector<StoredLeaf> leaves;
  if (!readLeaves(cds, base, leafPaths->string, paths, leaves)) {
    formatError(kWsNodeNotFound, "CDS access failed", response.result, &parsed);
    return SOAP_OK;
  }
  response.result = "OK";
  response.descriptors.resize(paths.size());
  for (size_t i = 0; i < paths.size(); ++i) {
    nsqv__leafDescriptor& descriptor = response.descriptors[i];
    descriptor.soap_default(soap);
    descriptor.result = soap_new_std__string(soap);
    formatValue(cds, leaves[i], paths[i], parsed, *descriptor.result);
    const timeval& changed = leaves[i].value.get_time();
    descriptor.leafChangeTime = vtx_UNIXtoVTXtime64(&changed);
    descriptor.leafType = static_cast<nsqv__LeafTypes>(leaves[i].storage);
  }
  return SOAP_OK;
}
