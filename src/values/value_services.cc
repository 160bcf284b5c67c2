// The value operations of the core namespace: reading, arrays and writing. Each parses its
// options, runs the shared core and puts the result into the response; errors travel in
// the result texts, so every operation succeeds except a write without the write right.
// The reads run in one snapshot of the store: a consistent answer, and the store's locks
// taken once per request rather than once per path check, rights look-up and read.
#include "service/context.h"
#include "service/errors.h"
#include "soapH.h"
#include "values/array_read.h"
#include "service/options.h"
#include "values/value_read.h"
#include "values/value_write.h"

namespace {

std::string* newText(struct soap* soap, std::string text) {
  std::string* out = soap_new_std__string(soap);
  *out = std::move(text);
  return out;
}

}  // namespace

int __nsc1__getValue(struct soap* soap, _nsc1__getValue* request,
                     _nsc1__getValueResponse& response) {
  toolkit::CReadBatch snapshot(serviceContext(soap).cds);
  const RequestOptions options = parseOptions(request->options);
  std::string text;
  if (request->path == nullptr) {
    formatError(kWsBadPathSyntax, "No Path provided", text, &options);
  } else {
    readValue(serviceContext(soap).cds, *request->path, options, text);
  }
  response.getValueResult = newText(soap, std::move(text));
  return SOAP_OK;
}

int __nsc1__getValues(struct soap* soap, _nsc1__getValues* request,
                      _nsc1__getValuesResponse& response) {
  toolkit::CReadBatch snapshot(serviceContext(soap).cds);
  const RequestOptions options = parseOptions(request->options);
  if (request->paths == nullptr) {
    response.getValuesResult.emplace_back();
    formatError(kWsNoPathsProvided, "No Paths provided", response.getValuesResult.back(), &options);
    return SOAP_OK;
  }
  readValues(serviceContext(soap).cds, request->paths->string, options, response.getValuesResult);
  return SOAP_OK;
}

int __nsc1__getRelativeValues(struct soap* soap, _nsc1__getRelativeValues* request,
                              _nsc1__getRelativeValuesResponse& response) {
  toolkit::CReadBatch snapshot(serviceContext(soap).cds);
  const RequestOptions options = parseOptions(request->options);
  std::vector<std::string> paths;
  if (request->basePath != nullptr) {
    paths.reserve(request->paths.size());
    // No separator is inserted: the client supplies the "/" where one is needed.
    for (const std::string& relative : request->paths)
      paths.push_back(*request->basePath + relative);
  }
  readValues(serviceContext(soap).cds, paths, options, response.getRelativeValuesResult);
  return SOAP_OK;
}

int __nsc1__getArray(struct soap* soap, _nsc1__getArray* request,
                     _nsc1__getArrayResponse& response) {
  toolkit::CReadBatch snapshot(serviceContext(soap).cds);
  const RequestOptions options = parseOptions(request->options);
  readArray(serviceContext(soap).cds, request->path, options, response.getArrayResult);
  return SOAP_OK;
}

int __nsc1__getArrayRange(struct soap* soap, _nsc1__getArrayRange* request,
                          _nsc1__getArrayRangeResponse& response) {
  toolkit::CReadBatch snapshot(serviceContext(soap).cds);
  const RequestOptions options = parseOptions(request->options);
  std::vector<std::string>& items = response.getArrayRangeResult;
  readArray(serviceContext(soap).cds, request->path, options, items);
  // Only the low 32 bits of index and count count.
  selectArrayRange(items, static_cast<uint32_t>(request->index),
                   static_cast<uint32_t>(request->count), options);
  return SOAP_OK;
}

int __nsc1__getArraySize(struct soap* soap, _nsc1__getArraySize* request,
                         _nsc1__getArraySizeResponse& response) {
  toolkit::CReadBatch snapshot(serviceContext(soap).cds);
  const RequestOptions options = parseOptions(request->options);
  std::vector<std::string> items;
  readArray(serviceContext(soap).cds, request->path, options, items);
  response.getArraySizeResult = newText(soap, arraySizeText(items, options));
  return SOAP_OK;
}

int __nsc1__setValue(struct soap* soap, _nsc1__setValue* request,
                     _nsc1__setValueResponse& response) {
  const RequestOptions options = parseOptions(request->options);
  std::string result;
  const int status = writeValue(serviceContext(soap).cds, request->path, request->value, options,
                                /*maintenance=*/false, result);
  if (status != 0) return status;
  response.setValueResult = newText(soap, std::move(result));
  return SOAP_OK;
}

int __nsc1__setValues(struct soap* soap, _nsc1__setValues* request,
                      _nsc1__setValuesResponse& response) {
  const RequestOptions options = parseOptions(request->options);
  std::string error;
  if (!checkWriteLists(request->paths, request->values, &options, error)) {
    response.setValuesResult.push_back(std::move(error));
    return SOAP_OK;
  }
  return writeValues(serviceContext(soap).cds, request->paths, request->values, options,
                     /*maintenance=*/false, response.setValuesResult);
}
